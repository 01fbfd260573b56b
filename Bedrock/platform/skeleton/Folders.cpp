#include <Bedrock/platform/Folders.h>

namespace Zem::Platform
{

Status OpenFolder(FileHandle&, const char*) noexcept
{
    return Status::Unsupported;
}

Status ReadNames(FileHandle, char*, std::size_t, std::size_t& used) noexcept
{
    used = 0;
    return Status::Unsupported;
}

Status GetInfo(FileHandle, const char*, NameInfo&) noexcept
{
    return Status::Unsupported;
}

Status GetStamp(const char*, FolderStamp&) noexcept
{
    return Status::Unsupported;
}

Status GetStamp(FileHandle, FolderStamp&) noexcept
{
    return Status::Unsupported;
}

std::int64_t FileClock() noexcept
{
    return 0;
}

bool NamesKeepCase() noexcept
{
    return false;
}

} // namespace Zem::Platform
