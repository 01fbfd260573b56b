#include <Bedrock/platform/Files.h>
#include <Bedrock/platform/posix/SystemCalls.h>
#include <Bedrock/platform/posix/SystemName.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/file.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Zem::Platform
{

static_assert(sizeof(off_t) == 8, "lengths reach 4 GiB");

constinit SystemCalls systemCalls = {
    .open = [](const char* name, int flags, mode_t mode) { return ::open(name, flags, mode); },
    .close = ::close,
    .pread = ::pread,
    .preadv = ::preadv,
    .write = ::write,
    .pwrite = ::pwrite,
    .ftruncate = ::ftruncate,
    .fdatasync = ::fdatasync,
    .flock = ::flock,
    .lock = [](int fd, int command, struct flock* range) { return ::fcntl(fd, command, range); },
    .fstat = [](int fd, struct stat* out) { return ::fstat(fd, out); },
    .stat = [](const char* name, struct stat* out) { return ::stat(name, out); },
    .statx = ::statx,
    .getdents = [](int fd, void* out, size_t size) -> ssize_t { return ::syscall(SYS_getdents64, fd, out, size); },
    .fchmod = ::fchmod,
    .access = ::access,
    .rename = ::rename,
    .renameat2 = ::renameat2,
    .link = ::link,
    .unlink = ::unlink,
    .realpath = ::realpath,
    .mkdir = ::mkdir,
    .rmdir = ::rmdir,
    .chdir = ::chdir,
    .getcwd = ::getcwd,
    .utimensat = ::utimensat,
};

Status FromErrno(int error) noexcept
{
    switch (error)
    {
    case 0:
        return Status::Ok;
    case ENOENT:
    case ENOTDIR:
    case ENAMETOOLONG:
    case ELOOP:
    case ENXIO:
        return Status::NotFound;
    case EEXIST:
    case ENOTEMPTY:
        return Status::Exists;
    case EACCES:
    case EPERM:
    case EROFS:
    case EISDIR:
    case EBUSY:
    case ETXTBSY:
    case EWOULDBLOCK:
        return Status::Refused;
    case ENOSPC:
    case EDQUOT:
        return Status::Full;
    case EFBIG:
    case EOVERFLOW:
        return Status::TooLarge;
    case EXDEV:
        return Status::CrossVolume;
    case ENOSYS:
    case EOPNOTSUPP:
    case ENOLCK:
    case EINVAL:
    case ESPIPE:
        return Status::Unsupported;
    default:
        return Status::Failed;
    }
}

namespace
{

template <class Call>
Status Result(Call call) noexcept
{
    return Restart(call) < 0 ? FromErrno(errno) : Status::Ok;
}

int Descriptor(FileHandle handle) noexcept
{
    return static_cast<int>(handle.value);
}

FileInfo ToInfo(const struct stat& from) noexcept
{
    FileInfo info;
    info.length = static_cast<std::uint64_t>(from.st_size);
    info.modified = from.st_mtime;
    info.accessed = from.st_atime;
    info.isFolder = S_ISDIR(from.st_mode);
    info.isRegular = S_ISREG(from.st_mode);
    return info;
}

// Shared locks agree with each other; whoever writes holds the file alone. A file system without locks shares freely.
Status TakeShare(int fd, Share share) noexcept
{
    const int kind = share == Share::DenyAll ? LOCK_EX : LOCK_SH;
    if (Restart([&] { return systemCalls.flock(fd, kind | LOCK_NB); }) >= 0 || errno != EWOULDBLOCK)
        return Status::Ok;
    return Status::Refused;
}

// One byte far behind any data: the range of the writer's lock.
struct flock WriterRange(short type) noexcept
{
    struct flock range = {};
    range.l_type = type;
    range.l_whence = SEEK_SET;
    range.l_start = off_t{1} << 40;
    range.l_len = 1;
    return range;
}

} // namespace

Status OpenFile(FileHandle& out, const char* name, unsigned flags, Share share, FileInfo* info) noexcept
{
    const SystemName path(name);
    // Never O_TRUNC: the file may be another user's, which only the lock below tells. Non-blocking, so that a pipe
    // without a partner cannot hang the open.
    int how = O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
    how |= flags & OpenReadWrite ? O_RDWR : flags & OpenWriteOnly ? O_WRONLY : O_RDONLY;
    if (flags & OpenCreate)
        how |= O_CREAT;
    if (flags & OpenExclusive)
        how |= O_EXCL;
    if (flags & OpenAppend)
        how |= O_APPEND;
    const int fd = Restart([&] { return systemCalls.open(path, how, 0666); });
    if (fd < 0)
        return FromErrno(errno);

    struct stat about;
    Status status = Status::Ok;
    if (systemCalls.fstat(fd, &about) < 0)
        status = FromErrno(errno);
    else if (S_ISDIR(about.st_mode))
        status = Status::Refused;
    else if (S_ISREG(about.st_mode))
    {
        status = TakeShare(fd, share);
        if (status == Status::Ok && (flags & OpenTruncate))
        {
            if (about.st_size != 0)
                status = SetLength(FileHandle{fd}, 0);
        }
        else if (status == Status::Ok && static_cast<std::uint64_t>(about.st_size) > largestFile)
            status = Status::TooLarge;
    }
    else if (!S_ISFIFO(about.st_mode))
        ::fcntl(fd, F_SETFL, how & O_APPEND);
    if (status != Status::Ok)
    {
        systemCalls.close(fd);
        if (flags & OpenExclusive)
            systemCalls.unlink(path); // nobody else's: this call made it
        return status;
    }
    if (info)
        *info = ToInfo(about);
    out.value = fd;
    return Status::Ok;
}

// Not repeated after a signal: the descriptor is gone then too, and its number may be somebody else's by now.
Status CloseFile(FileHandle handle) noexcept
{
    return systemCalls.close(Descriptor(handle)) < 0 && errno != EINTR ? FromErrno(errno) : Status::Ok;
}

Status ReadAt(FileHandle handle, std::uint64_t offset, void* dst, std::size_t size, std::size_t& got) noexcept
{
    const ssize_t result =
        Restart([&] { return systemCalls.pread(Descriptor(handle), dst, size, static_cast<off_t>(offset)); });
    got = result < 0 ? 0 : static_cast<std::size_t>(result);
    return result < 0 ? FromErrno(errno) : Status::Ok;
}

Status ReadAt(FileHandle handle, std::uint64_t offset, void* first, std::size_t firstSize, void* second,
              std::size_t secondSize, std::size_t& got) noexcept
{
    const iovec parts[2] = {{first, firstSize}, {second, secondSize}};
    const ssize_t result =
        Restart([&] { return systemCalls.preadv(Descriptor(handle), parts, 2, static_cast<off_t>(offset)); });
    got = result < 0 ? 0 : static_cast<std::size_t>(result);
    return result < 0 ? FromErrno(errno) : Status::Ok;
}

Status WriteAt(FileHandle handle, std::uint64_t offset, const void* src, std::size_t size,
               std::size_t& written) noexcept
{
    written = 0;
    if (offset > largestFile || size > largestFile - offset)
        return Status::TooLarge;
    const auto* bytes = static_cast<const std::uint8_t*>(src);
    const int fd = Descriptor(handle);
    while (written < size)
    {
        ssize_t result = Restart(
            [&]
            { return systemCalls.pwrite(fd, bytes + written, size - written, static_cast<off_t>(offset + written)); });
        if (result < 0 && errno == ESPIPE) // a pipe or terminal has no offsets: in order is all it knows
            result = Restart([&] { return systemCalls.write(fd, bytes + written, size - written); });
        if (result < 0)
            return FromErrno(errno);
        if (result == 0)
            return Status::Full;
        written += static_cast<std::size_t>(result);
    }
    return Status::Ok;
}

Status SetLength(FileHandle handle, std::uint64_t length) noexcept
{
    return Result([&] { return systemCalls.ftruncate(Descriptor(handle), static_cast<off_t>(length)); });
}

Status Commit(FileHandle handle) noexcept
{
    const Status status = Result([&] { return systemCalls.fdatasync(Descriptor(handle)); });
    return status == Status::Unsupported ? Status::Ok : status; // a device or pipe has nothing to commit
}

Status GetInfo(FileHandle handle, FileInfo& info) noexcept
{
    struct stat about;
    if (systemCalls.fstat(Descriptor(handle), &about) < 0)
        return FromErrno(errno);
    info = ToInfo(about);
    return Status::Ok;
}

Status CopyAccess(FileHandle from, FileHandle to) noexcept
{
    struct stat about;
    if (systemCalls.fstat(Descriptor(from), &about) < 0)
        return FromErrno(errno);
    return Result([&] { return systemCalls.fchmod(Descriptor(to), about.st_mode & 07777); });
}

bool IsSame(FileHandle handle, const char* name) noexcept
{
    const SystemName path(name);
    struct stat open;
    struct stat named;
    return systemCalls.fstat(Descriptor(handle), &open) == 0 && systemCalls.stat(path, &named) == 0 &&
           open.st_dev == named.st_dev && open.st_ino == named.st_ino;
}

Status LockWriter(FileHandle handle) noexcept
{
    struct flock range = WriterRange(F_WRLCK);
    return Result([&] { return systemCalls.lock(Descriptor(handle), F_OFD_SETLKW, &range); });
}

void UnlockWriter(FileHandle handle) noexcept
{
    struct flock range = WriterRange(F_UNLCK);
    systemCalls.lock(Descriptor(handle), F_OFD_SETLK, &range);
}

bool Exists(const char* name) noexcept
{
    const SystemName path(name);
    return systemCalls.access(path, F_OK) == 0;
}

Status GetInfo(const char* name, FileInfo& info) noexcept
{
    const SystemName path(name);
    struct stat about;
    if (systemCalls.stat(path, &about) < 0)
        return FromErrno(errno);
    info = ToInfo(about);
    return Status::Ok;
}

Status Remove(const char* name) noexcept
{
    const SystemName path(name);
    return Result([&] { return systemCalls.unlink(path); });
}

Status Rename(const char* from, const char* to) noexcept
{
    const SystemName source(from);
    const SystemName target(to);
    if (Restart([&] { return systemCalls.renameat2(AT_FDCWD, source, AT_FDCWD, target, RENAME_NOREPLACE); }) >= 0)
        return Status::Ok;
    if (errno != EINVAL && errno != ENOSYS)
        return FromErrno(errno);
    // A file system without that: a second link fails on a name that is taken, as wanted.
    if (systemCalls.link(source, target) == 0)
        return Result([&] { return systemCalls.unlink(source); });
    if (errno == EEXIST || errno == ENOENT || errno == EXDEV)
        return FromErrno(errno);
    if (systemCalls.access(target, F_OK) == 0)
        return Status::Exists;
    return Result([&] { return systemCalls.rename(source, target); });
}

Status Replace(const char* from, const char* to) noexcept
{
    const SystemName source(from);
    const SystemName target(to);
    return Result([&] { return systemCalls.rename(source, target); });
}

Status FollowLinks(const char* name, char* out, std::size_t capacity) noexcept
{
    const SystemName path(name);
    char real[PATH_MAX];
    if (!systemCalls.realpath(path, real))
        return FromErrno(errno);
    const std::size_t length = std::strlen(real);
    if (length >= capacity)
        return Status::NotFound;
    std::memcpy(out, real, length + 1);
    return Status::Ok;
}

Status MakeFolder(const char* name) noexcept
{
    const SystemName path(name);
    return Result([&] { return systemCalls.mkdir(path, 0777); });
}

Status RemoveFolder(const char* name) noexcept
{
    const SystemName path(name);
    return Result([&] { return systemCalls.rmdir(path); });
}

Status ChangeFolder(const char* name) noexcept
{
    const SystemName path(name);
    return Result([&] { return systemCalls.chdir(path); });
}

Status CurrentFolder(char* out, std::size_t capacity) noexcept
{
    return systemCalls.getcwd(out, capacity) ? Status::Ok : errno == ERANGE ? Status::NotFound : FromErrno(errno);
}

Status SetTimes(const char* name, std::int64_t accessed, std::int64_t modified) noexcept
{
    const SystemName path(name);
    timespec times[2] = {};
    times[0].tv_sec = static_cast<time_t>(accessed);
    times[1].tv_sec = static_cast<time_t>(modified);
    return Result([&] { return systemCalls.utimensat(AT_FDCWD, path, times, 0); });
}

// A leading dot is what hides a file here, and a renamed file is another file: so nothing changes.
Status SetHidden(const char* name, bool) noexcept
{
    const SystemName path(name);
    return systemCalls.access(path, F_OK) == 0 ? Status::Ok : FromErrno(errno);
}

std::uint32_t TemporaryOwner() noexcept
{
    return static_cast<std::uint32_t>(::getpid());
}

} // namespace Zem::Platform
