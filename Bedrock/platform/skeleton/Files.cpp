#include <Bedrock/platform/Files.h>

namespace Zem::Platform
{

Status OpenFile(FileHandle&, const char*, unsigned, Share, FileInfo*) noexcept
{
    return Status::Unsupported;
}

Status CloseFile(FileHandle) noexcept
{
    return Status::Unsupported;
}

Status ReadAt(FileHandle, std::uint64_t, void*, std::size_t, std::size_t& got) noexcept
{
    got = 0;
    return Status::Unsupported;
}

Status ReadAt(FileHandle, std::uint64_t, void*, std::size_t, void*, std::size_t, std::size_t& got) noexcept
{
    got = 0;
    return Status::Unsupported;
}

Status WriteAt(FileHandle, std::uint64_t, const void*, std::size_t, std::size_t& written) noexcept
{
    written = 0;
    return Status::Unsupported;
}

Status SetLength(FileHandle, std::uint64_t) noexcept
{
    return Status::Unsupported;
}

Status Commit(FileHandle) noexcept
{
    return Status::Unsupported;
}

Status GetInfo(FileHandle, FileInfo&) noexcept
{
    return Status::Unsupported;
}

Status CopyAccess(FileHandle, FileHandle) noexcept
{
    return Status::Unsupported;
}

bool IsSame(FileHandle, const char*) noexcept
{
    return false;
}

Status LockWriter(FileHandle) noexcept
{
    return Status::Unsupported;
}

void UnlockWriter(FileHandle) noexcept
{
}

bool Exists(const char*) noexcept
{
    return false;
}

Status GetInfo(const char*, FileInfo&) noexcept
{
    return Status::Unsupported;
}

Status Remove(const char*) noexcept
{
    return Status::Unsupported;
}

Status Rename(const char*, const char*) noexcept
{
    return Status::Unsupported;
}

Status Replace(const char*, const char*) noexcept
{
    return Status::Unsupported;
}

Status FollowLinks(const char*, char*, std::size_t) noexcept
{
    return Status::Unsupported;
}

Status MakeFolder(const char*) noexcept
{
    return Status::Unsupported;
}

Status RemoveFolder(const char*) noexcept
{
    return Status::Unsupported;
}

Status ChangeFolder(const char*) noexcept
{
    return Status::Unsupported;
}

Status CurrentFolder(char*, std::size_t) noexcept
{
    return Status::Unsupported;
}

Status SetTimes(const char*, std::int64_t, std::int64_t) noexcept
{
    return Status::Unsupported;
}

Status SetHidden(const char*, bool) noexcept
{
    return Status::Unsupported;
}

std::uint32_t TemporaryOwner() noexcept
{
    return 0;
}

} // namespace Zem::Platform
