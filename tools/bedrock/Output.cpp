#include "Output.h"

#include "Console.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace Tool
{

namespace
{

bool IsFolder(const struct stat& status)
{
    return S_ISDIR(status.st_mode);
}

// Names of one process never meet: the number of the process and a counter.
std::string TemporaryName(const char* extension)
{
    static unsigned counter = 0;
    char name[64];
    std::snprintf(name, sizeof name, ".bedrock-%ld-%u", static_cast<long>(getpid()), counter++);
    return std::string(name) + extension;
}

// Gives `from` the name `to`, atomically; without `force` not when that is taken.
int Rename(int folder, const std::string& from, const std::string& to, bool force)
{
    if (force)
        return renameat(folder, from.c_str(), folder, to.c_str());
    if (renameat2(folder, from.c_str(), folder, to.c_str(), RENAME_NOREPLACE) == 0)
        return 0;
    if (errno != EINVAL && errno != ENOSYS)
        return -1;
    // A file system without that flag: a link never replaces either.
    return linkat(folder, from.c_str(), folder, to.c_str(), 0) == 0 ? unlinkat(folder, from.c_str(), 0) : -1;
}

} // namespace

// ----------------------------------------------------------------------------------------------------- Replacement

Replacement::Replacement(std::string targetPath, bool replace) : target(std::move(targetPath)), force(replace)
{
    struct stat status;
    if (target.empty() || target.back() == '/')
        Fail(Exit::Usage, target, "cannot create: not the name of a file");
    if (stat(target.c_str(), &status) == 0)
    {
        if (IsFolder(status))
            Fail(Exit::Usage, target, "cannot create: is a folder");
        if (!S_ISREG(status.st_mode))
            Fail(Exit::Usage, target, "cannot create: is a device or the like");
        if (!force)
            Fail(Exit::Usage, target, "exists already (--force replaces it)");
        std::error_code error; // what a link leads to is replaced, not the link
        const std::filesystem::path real = std::filesystem::canonical(target, error);
        if (!error)
            target = real.string();
    }
    const std::filesystem::path asPath(target);
    const std::string folder = asPath.has_parent_path() ? asPath.parent_path().string() : ".";
    if (access(folder.c_str(), W_OK | X_OK) != 0)
        FailSystem(target, "cannot create", errno);
    path = (asPath.parent_path() / TemporaryName(asPath.extension().c_str())).string();
}

Replacement::~Replacement()
{
    if (!path.empty())
        unlink(path.c_str());
}

void Replacement::Commit()
{
    if (Rename(AT_FDCWD, path, target, force) != 0)
        FailSystem(target, "cannot create", errno);
    path.clear();
}

// ------------------------------------------------------------------------------------------------------ Descriptor

Descriptor::~Descriptor()
{
    if (value >= 0)
        close(value);
}

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept
{
    std::swap(value, other.value);
    return *this;
}

// ---------------------------------------------------------------------------------------------------- TargetFolder

TargetFolder::TargetFolder(const std::string& path)
{
    std::error_code error;
    std::filesystem::create_directories(path, error);
    root = Descriptor(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!root)
        FailSystem(path, "cannot open the target folder", errno);
}

std::string TargetFolder::Refusal(std::string_view member)
{
    if (member.empty())
        return "refused: the name is empty";
    if (member.front() == '/' || member.front() == '\\')
        return "refused: the name is absolute";
    if (member.find('\\') != std::string_view::npos)
        return "refused: the name holds a backslash";
    for (std::size_t start = 0; start <= member.size();)
    {
        const std::size_t end = std::min(member.find('/', start), member.size());
        const std::string_view level = member.substr(start, end - start);
        if (level == "..")
            return "refused: the name leaves the folder";
        if (level == "." || level.empty())
            return "refused: the name has an empty level";
        if (level.size() > 255)
            return "refused: a level of the name is too long";
        start = end + 1;
    }
    return {};
}

int TargetFolder::FolderOf(std::string_view folders, const std::string& member)
{
    if (folders.empty())
        return root.Get();
    if (last && lastName == folders)
        return last.Get();
    Descriptor folder;
    int parent = root.Get();
    for (std::size_t start = 0; start < folders.size();)
    {
        const std::size_t end = std::min(folders.find('/', start), folders.size());
        const std::string level(folders.substr(start, end - start));
        if (mkdirat(parent, level.c_str(), 0777) != 0 && errno != EEXIST)
            FailSystem(member, "cannot make its folder", errno);
        Descriptor next(openat(parent, level.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (!next)
        {
            if (errno == ELOOP || errno == ENOTDIR)
                Fail(Exit::Bad, member, "refused: \"" + Shown(folders.substr(0, end)) + "\" is a link or a file there");
            FailSystem(member, "cannot open its folder", errno);
        }
        folder = std::move(next);
        parent = folder.Get();
        start = end + 1;
    }
    last = std::move(folder);
    lastName = folders;
    return last.Get();
}

void TargetFolder::MakeFolder(const std::string& member)
{
    FolderOf(member, member);
}

TargetFolder::NewFile::NewFile(TargetFolder& target, const std::string& memberName, bool replace)
    : member(memberName), temporary(TemporaryName("")), force(replace)
{
    const std::size_t slash = member.rfind('/');
    const std::string_view folders =
        slash == std::string::npos ? std::string_view() : std::string_view(member).substr(0, slash);
    name = member.substr(slash == std::string::npos ? 0 : slash + 1);
    folder = target.FolderOf(folders, member);

    struct stat status;
    if (fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0)
    {
        if (IsFolder(status))
            Fail(Exit::Bad, member, "refused: a folder has this name there");
        if (!force)
            Fail(Exit::Bad, member, "exists already there (--force replaces it)");
    }
    file = Descriptor(openat(folder, temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666));
    if (!file)
    {
        const int error = errno;
        temporary.clear();
        FailSystem(member, "cannot create", error);
    }
}

TargetFolder::NewFile::~NewFile()
{
    if (!temporary.empty())
        unlinkat(folder, temporary.c_str(), 0);
}

void TargetFolder::NewFile::Write(const void* data, std::size_t size)
{
    for (const char* at = static_cast<const char*>(data); size;)
    {
        const ssize_t n = write(file.Get(), at, size);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            FailSystem(member, "cannot write", errno);
        at += n;
        size -= static_cast<std::size_t>(n);
    }
}

void TargetFolder::NewFile::Commit()
{
    if (Rename(folder, temporary, name, force) != 0)
        FailSystem(member, "cannot create", errno);
    temporary.clear();
}

} // namespace Tool
