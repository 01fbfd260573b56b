#include <Bedrock/platform/SharedBlock.h>

namespace Zem::Platform
{

SharedBlockHandle OpenSharedBlock(const char*, std::uint32_t) noexcept
{
    return {0};
}

bool CloseSharedBlock(SharedBlockHandle, const char*) noexcept
{
    return false;
}

void* MapSharedBlock(SharedBlockHandle, std::uint32_t) noexcept
{
    return nullptr;
}

bool UnmapSharedBlock(void*, std::uint32_t) noexcept
{
    return false;
}

} // namespace Zem::Platform
