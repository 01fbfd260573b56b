#include <Bedrock/platform/Lock.h>

namespace Zem::Platform
{

// A platform of one thread: who comes is the holder.

bool Lock::Enter() noexcept
{
    ++depth;
    return true;
}

bool Lock::TryEnter() noexcept
{
    ++depth;
    return true;
}

bool Lock::Leave() noexcept
{
    --depth;
    return true;
}

LockGuard::LockGuard(Lock& entered) noexcept : lock(entered)
{
    lock.Enter();
}

LockGuard::~LockGuard()
{
    lock.Leave();
}

std::uint32_t HeldLocks() noexcept
{
    return 0;
}

void ReleaseHeldLocks(std::uint32_t) noexcept
{
}

} // namespace Zem::Platform
