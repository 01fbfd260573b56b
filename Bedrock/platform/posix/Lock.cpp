#include <Bedrock/platform/Lock.h>

#include <linux/futex.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Zem::Platform
{

namespace
{

// Turns of looking at a held lock before sleeping: a bit less than a sleep and a wake cost.
constexpr int SpinTurns = 200;

// What tells threads apart. Not the kernel's thread number: that one costs a system call, and a remembered one would be
// wrong in a forked child. The address of the thread's control block is both, and pthread_self() without a call.
inline std::uintptr_t Self()
{
#if defined(__x86_64__)
    std::uintptr_t self;
    __asm__("mov %%fs:0, %0" : "=r"(self));
    return self;
#elif defined(__i386__)
    std::uintptr_t self;
    __asm__("mov %%gs:0, %0" : "=r"(self));
    return self;
#else
    return static_cast<std::uintptr_t>(pthread_self());
#endif
}

inline void Pause()
{
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#endif
}

std::uint32_t* Address(std::atomic<std::uint32_t>& word)
{
    return reinterpret_cast<std::uint32_t*>(&word);
}

} // namespace

void Lock::Enter() noexcept
{
    const std::uintptr_t self = Self();
    // Only this thread ever writes its own identity there, so what it reads is right even without order.
    if (owner.load(std::memory_order_relaxed) == self)
    {
        ++depth;
        return;
    }
    std::uint32_t expected = 0;
    if (!word.compare_exchange_strong(expected, 1, std::memory_order_acquire, std::memory_order_relaxed))
        EnterContended();
    owner.store(self, std::memory_order_relaxed);
    depth = 1;
}

bool Lock::TryEnter() noexcept
{
    const std::uintptr_t self = Self();
    if (owner.load(std::memory_order_relaxed) == self)
    {
        ++depth;
        return true;
    }
    std::uint32_t expected = 0;
    if (!word.compare_exchange_strong(expected, 1, std::memory_order_acquire, std::memory_order_relaxed))
        return false;
    owner.store(self, std::memory_order_relaxed);
    depth = 1;
    return true;
}

void Lock::Leave() noexcept
{
    if (--depth != 0)
        return;
    owner.store(0, std::memory_order_relaxed);
    if (word.exchange(0, std::memory_order_release) == 2)
        WakeOne();
}

void Lock::EnterContended() noexcept
{
    for (int turn = 0; turn < SpinTurns; ++turn)
    {
        std::uint32_t expected = 0;
        if (word.load(std::memory_order_relaxed) == 0 &&
            word.compare_exchange_weak(expected, 1, std::memory_order_acquire, std::memory_order_relaxed))
            return;
        Pause();
    }
    // Who has slept once takes the lock as "somebody may sleep": others may have come to sleep behind it.
    while (word.exchange(2, std::memory_order_acquire) != 0)
        syscall(SYS_futex, Address(word), FUTEX_WAIT_PRIVATE, 2, nullptr, nullptr, 0);
}

void Lock::WakeOne() noexcept
{
    syscall(SYS_futex, Address(word), FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

} // namespace Zem::Platform
