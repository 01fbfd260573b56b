#include <Bedrock/threads/SingleLock.h>

namespace Zem
{

SingleLock::SingleLock(SyncObject* guarded, bool lockNow) noexcept : object(guarded), locked(false)
{
    if (lockNow)
        Lock();
}

SingleLock::~SingleLock()
{
    Unlock();
}

bool SingleLock::Lock(std::uint32_t timeout) noexcept
{
    locked = object->Lock(timeout);
    return locked;
}

bool SingleLock::Unlock() noexcept
{
    if (locked)
        locked = !object->Unlock();
    return !locked;
}

bool SingleLock::Unlock(std::uint32_t count) noexcept
{
    if (locked)
        locked = !object->Unlock(count);
    return !locked;
}

} // namespace Zem
