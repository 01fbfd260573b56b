#include <Bedrock/platform/Folders.h>

#include <Bedrock/platform/posix/SystemCalls.h>
#include <Bedrock/platform/posix/SystemName.h>

#include <climits>
#include <cstring>
#include <sys/stat.h>
#include <time.h>

namespace Zem::Platform
{

static_assert(longestName == NAME_MAX);

namespace
{

// What the kernel stores for a name: this header, the name with its terminator, padding to a multiple of 8.
constexpr std::size_t recordLengthAt = 16;
constexpr std::size_t nameAt = 19;

int Descriptor(FileHandle handle) noexcept
{
    return static_cast<int>(handle.value);
}

std::int64_t Nanoseconds(const timespec& time) noexcept
{
    return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

FolderStamp ToStamp(const struct stat& about) noexcept
{
    return {about.st_dev, about.st_ino, Nanoseconds(about.st_mtim), Nanoseconds(about.st_ctim)};
}

bool IsDots(const char* name) noexcept
{
    return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

} // namespace

Status OpenFolder(FileHandle& out, const char* name) noexcept
{
    const SystemName path(name && *name ? name : ".");
    const int fd = Restart([&] { return systemCalls.open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0); });
    if (fd < 0)
        return FromErrno(errno);
    out.value = fd;
    return Status::Ok;
}

// A record's header is longer than a terminator, so the names move towards the front and none is overwritten before
// it is read.
Status ReadNames(FileHandle folder, char* names, std::size_t capacity, std::size_t& used) noexcept
{
    used = 0;
    const ssize_t got = Restart([&] { return systemCalls.getdents(Descriptor(folder), names, capacity); });
    if (got < 0)
        return FromErrno(errno);
    for (std::size_t at = 0; at < static_cast<std::size_t>(got);)
    {
        std::uint16_t length;
        std::memcpy(&length, names + at + recordLengthAt, sizeof length);
        const std::size_t size = std::strlen(names + at + nameAt) + 1;
        std::memmove(names + used, names + at + nameAt, size);
        used += size;
        at += length;
    }
    return Status::Ok;
}

Status GetInfo(FileHandle folder, const char* name, NameInfo& info) noexcept
{
    constexpr unsigned wanted =
        STATX_TYPE | STATX_MODE | STATX_SIZE | STATX_ATIME | STATX_MTIME | STATX_CTIME | STATX_BTIME;
    struct statx about;
    if (systemCalls.statx(Descriptor(folder), name, 0, wanted, &about) < 0 &&
        systemCalls.statx(Descriptor(folder), name, AT_SYMLINK_NOFOLLOW, wanted, &about) < 0)
        return FromErrno(errno);
    info.length = about.stx_size;
    info.modified = about.stx_mtime.tv_sec;
    info.accessed = about.stx_atime.tv_sec;
    if (about.stx_mask & STATX_BTIME)
        info.created = about.stx_btime.tv_sec;
    else
        info.created = about.stx_ctime.tv_sec < info.modified ? about.stx_ctime.tv_sec : info.modified;
    info.isFolder = S_ISDIR(about.stx_mode);
    info.isReadOnly = (about.stx_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) == 0;
    info.isHidden = name[0] == '.' && !IsDots(name);
    return Status::Ok;
}

Status GetStamp(const char* folder, FolderStamp& stamp) noexcept
{
    const SystemName path(folder && *folder ? folder : ".");
    struct stat about;
    if (systemCalls.stat(path, &about) < 0)
        return FromErrno(errno);
    if (!S_ISDIR(about.st_mode))
        return Status::NotFound;
    stamp = ToStamp(about);
    return Status::Ok;
}

Status GetStamp(FileHandle folder, FolderStamp& stamp) noexcept
{
    struct stat about;
    if (systemCalls.fstat(Descriptor(folder), &about) < 0)
        return FromErrno(errno);
    stamp = ToStamp(about);
    return Status::Ok;
}

// The kernel stamps files with the time of its last tick.
std::int64_t FileClock() noexcept
{
    timespec now = {};
    clock_gettime(CLOCK_REALTIME_COARSE, &now);
    return Nanoseconds(now);
}

bool NamesKeepCase() noexcept
{
    return true;
}

} // namespace Zem::Platform
