#include <Bedrock/threads/SyncObject.h>

namespace Zem
{

SyncObject::~SyncObject() = default;

SyncObject::operator void*() noexcept
{
    return handle;
}

bool SyncObject::Lock(std::uint32_t) noexcept
{
    return false;
}

bool SyncObject::Unlock(std::uint32_t) noexcept
{
    return false;
}

bool SyncObject::Unlock() noexcept
{
    return false;
}

bool SyncObject::IsLocked() noexcept
{
    if (!Lock(0))
        return true;
    Unlock();
    return false;
}

} // namespace Zem
