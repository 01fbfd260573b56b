#include <Bedrock/platform/Lock.h>

#include <linux/futex.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Zem::Platform
{

namespace
{

std::uintptr_t Self()
{
    return static_cast<std::uintptr_t>(pthread_self());
}

} // namespace

bool Lock::TryEnter() noexcept
{
    const auto self = Self();
    if (owner.load(std::memory_order_relaxed) == self)
    {
        ++depth;
        return true;
    }
    std::uint32_t free = 0;
    if (!word.compare_exchange_strong(free, 1, std::memory_order_acquire, std::memory_order_relaxed))
        return false;
    owner.store(self, std::memory_order_relaxed);
    depth = 1;
    return true;
}

void Lock::Enter() noexcept
{
    if (TryEnter())
        return;
    for (int turn = 0; turn < 200; ++turn)
    {
        if (word.load(std::memory_order_relaxed) == 0 && TryEnter())
            return;
        __builtin_ia32_pause();
    }
    while (word.exchange(2, std::memory_order_acquire) != 0)
        syscall(SYS_futex, reinterpret_cast<std::uint32_t*>(&word), FUTEX_WAIT_PRIVATE, 2, nullptr, nullptr, 0);
    owner.store(Self(), std::memory_order_relaxed);
    depth = 1;
}

void Lock::Leave() noexcept
{
    if (--depth != 0)
        return;
    owner.store(0, std::memory_order_relaxed);
    if (word.exchange(0, std::memory_order_release) == 2)
        syscall(SYS_futex, reinterpret_cast<std::uint32_t*>(&word), FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

} // namespace Zem::Platform
