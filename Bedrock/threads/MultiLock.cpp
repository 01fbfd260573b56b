#include <Bedrock/threads/MultiLock.h>

#include <Bedrock/memory/Alloc.h>
#include <Bedrock/platform/Wait.h>

namespace Zem
{

static_assert(sizeof(Platform::Waitable*) == sizeof(void*));

MultiLock::MultiLock(SyncObject** guarded, std::uint32_t number, bool lockNow) noexcept
    : handles(static_cast<void**>(Alloc::New(std::size_t{number} * sizeof(void*)))),
      locked(static_cast<bool*>(Alloc::New(number))), count(number), objects(guarded)
{
    if (!handles || !locked)
    {
        Alloc::Delete(handles);
        Alloc::Delete(locked);
        handles = nullptr;
        locked = nullptr;
        count = 0;
    }
    for (std::uint32_t n = 0; n < count; ++n)
    {
        handles[n] = static_cast<void*>(*objects[n]);
        locked[n] = false;
    }
    if (lockNow)
        Lock();
}

MultiLock::~MultiLock()
{
    Unlock();
    Alloc::Delete(handles);
    Alloc::Delete(locked);
}

MultiLock::Result MultiLock::Lock(std::uint32_t timeout, bool waitForAll) noexcept
{
    const std::uint32_t answer =
        Platform::WaitForMany(reinterpret_cast<Platform::Waitable* const*>(handles), count, waitForAll, timeout);
    if (answer == Platform::WaitTimedOut)
        return TimedOut;
    if (answer < count)
    {
        for (std::uint32_t n = waitForAll ? 0 : answer; n < (waitForAll ? count : answer + 1); ++n)
            locked[n] = true;
        return static_cast<Result>(Signalled + answer);
    }
    if (answer >= Platform::WaitAbandoned && answer - Platform::WaitAbandoned < count)
        return static_cast<Result>(Abandoned + (answer - Platform::WaitAbandoned));
    return Failed;
}

bool MultiLock::Unlock() noexcept
{
    for (std::uint32_t n = 0; n < count; ++n)
        if (locked[n])
            locked[n] = !objects[n]->Unlock();
    return true;
}

bool MultiLock::Unlock(std::uint32_t) noexcept
{
    return false;
}

} // namespace Zem
