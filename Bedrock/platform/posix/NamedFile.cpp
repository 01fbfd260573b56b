#include <Bedrock/platform/posix/NamedFile.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <initializer_list>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Zem::Platform
{

namespace
{

constexpr std::size_t LongestPlain = 180; // bytes of an escaped name; a file name may have 255

const char* Folder()
{
    for (const char* folder : {"/dev/shm", static_cast<const char*>(secure_getenv("XDG_RUNTIME_DIR")), "/tmp"})
        if (folder && std::strlen(folder) < 200 && access(folder, W_OK | X_OK) == 0)
            return folder;
    return nullptr;
}

int LockFile(int file, int operation)
{
    int result;
    while ((result = flock(file, operation)) != 0 && errno == EINTR)
    {
    }
    return result;
}

int OpenOwn(const char* path)
{
    const int file = open(path, O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, 0600);
    if (file < 0)
        return -1;
    // The folder is open to everybody: only a plain file that nobody else can write is ours.
    struct stat status;
    if (fstat(file, &status) == 0 && S_ISREG(status.st_mode) && status.st_uid == geteuid() &&
        (status.st_mode & 0077) == 0 && status.st_nlink == 1)
        return file;
    close(file);
    return -1;
}

} // namespace

bool NamedFile::MakePath(char (&path)[512], char kind, const char* name) noexcept
{
    const char* folder = Folder();
    if (!folder)
        return false;
    char escaped[LongestPlain + 4];
    std::size_t length = 0;
    std::uint64_t hash = 0xCBF29CE484222325u; // FNV-1a
    for (const char* c = name; *c; ++c)
    {
        const auto byte = static_cast<unsigned char>(*c);
        hash = (hash ^ byte) * 0x100000001B3u;
        if (length >= LongestPlain)
            continue;
        const bool plain = (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
                           (byte >= '0' && byte <= '9') || byte == '.' || byte == '_' || byte == '-';
        if (plain)
            escaped[length++] = *c;
        else
            length += static_cast<std::size_t>(std::snprintf(escaped + length, 4, "%%%02X", byte));
    }
    escaped[length] = '\0';
    const auto user = static_cast<unsigned>(geteuid());
    const int written = length < LongestPlain
                            ? std::snprintf(path, sizeof(path), "%s/zem.%u.%c.%s", folder, user, kind, escaped)
                            : std::snprintf(path, sizeof(path), "%s/zem.%u.%c.%s%%%016llx", folder, user, kind, escaped,
                                            static_cast<unsigned long long>(hash));
    return written > 0 && static_cast<std::size_t>(written) < sizeof(path);
}

NamedFile::Gate::Gate() noexcept : file(-1)
{
    char path[512];
    const char* folder = Folder();
    if (!folder)
        return;
    std::snprintf(path, sizeof(path), "%s/zem.%u.lock", folder, static_cast<unsigned>(geteuid()));
    file = OpenOwn(path);
    if (file >= 0 && LockFile(file, LOCK_EX) != 0)
    {
        close(file);
        file = -1;
    }
}

NamedFile::Gate::~Gate()
{
    if (file >= 0)
        close(file);
}

int NamedFile::Open(const char* path, bool& isAlone) noexcept
{
    const int file = OpenOwn(path);
    if (file < 0)
        return -1;
    isAlone = LockFile(file, LOCK_EX | LOCK_NB) == 0;
    if (LockFile(file, LOCK_SH) != 0 || (isAlone && ftruncate(file, 0) != 0))
    {
        close(file);
        return -1;
    }
    return file;
}

bool NamedFile::Close(int file, const char* path) noexcept
{
    if (LockFile(file, LOCK_EX | LOCK_NB) == 0)
    {
        // The name may stand for another file, if somebody swept the folder while this one was open.
        struct stat here, there;
        if (fstat(file, &here) == 0 && lstat(path, &there) == 0 && here.st_ino == there.st_ino &&
            here.st_dev == there.st_dev)
            unlink(path);
    }
    return close(file) == 0;
}

} // namespace Zem::Platform
