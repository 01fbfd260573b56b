#include <Bedrock/host/SharedMemory.h>

#include <Bedrock/platform/SharedBlock.h>

namespace Zem
{

SharedMemory::SharedMemory(const char* blockName, std::uint32_t bytes) noexcept
    : data(nullptr), name(blockName), size(bytes), mapping(0)
{
}

SharedMemory::~SharedMemory()
{
    ProcessDetach();
}

bool SharedMemory::ProcessAttach() noexcept
{
    if (mapping)
        return false;
    mapping = Platform::OpenSharedBlock(name, size).value;
    if (!mapping)
        return false;
    data = Platform::MapSharedBlock({mapping}, size);
    return data != nullptr; // a block that cannot be mapped stays open until it is detached
}

bool SharedMemory::ProcessDetach() noexcept
{
    if (data)
    {
        if (!Platform::UnmapSharedBlock(data, size))
            return false;
        data = nullptr;
    }
    if (mapping)
    {
        if (!Platform::CloseSharedBlock({mapping}, name))
            return false;
        mapping = 0;
    }
    return true;
}

} // namespace Zem
