#include <Bedrock/threads/SyncObject.h>

#include <Bedrock/platform/Wait.h>

namespace Zem
{

SyncObject::~SyncObject()
{
    Platform::CloseWaitable(static_cast<Platform::Waitable*>(handle));
    handle = nullptr;
}

SyncObject::operator void*() noexcept
{
    return handle;
}

bool SyncObject::Lock(std::uint32_t timeout) noexcept
{
    return Platform::WaitForOne(static_cast<Platform::Waitable*>(handle), timeout) == Platform::WaitSignalled;
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
