#include <Bedrock/platform/Lock.h>

#include <Bedrock/platform/posix/Futex.h>
#include <Bedrock/platform/posix/ThreadIdentity.h>

#include <cerrno>
#include <ctime>
#include <linux/membarrier.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Zem::Platform
{

// Leaving is a plain store, not an atomic exchange, which is half of what a lock costs. The processor may carry out the
// look at `sleepers` that follows before the store is seen by others; so a thread that goes to sleep, where time does
// not matter, makes every other thread pass a memory barrier (`membarrier`) between counting itself as a sleeper and its
// last look at the lock:
//
//     leaving                      going to sleep
//     owner = 0                    sleepers += 1
//     if sleepers: wake one        every thread passes a barrier
//                                  if owner: sleep while it is unchanged
//
// A leaver that passes the barrier before it looks at `sleepers` sees the sleeper; one that has looked before has
// stored, too, and the sleeper sees the lock free.
//
// `waking` keeps a thread that enters and leaves in a loop from waking again and again a thread that is on its way.

namespace
{

// Looks at a held lock before sleeping, with pauses that grow up to 64: some microseconds, about what a sleep costs.
constexpr unsigned SpinTurns = 12;

// Whether sleepers can make others pass a barrier. If the system does not let them, leaving is an exchange, and who
// goes to sleep meanwhile looks again after a millisecond.
constinit std::atomic<bool> hasBarrier{true};

// The part of the owner that the kernel compares: its low 32 bits.
std::uint32_t* KernelWord(std::atomic<std::uintptr_t>& owner)
{
    auto* words = reinterpret_cast<std::uint32_t*>(&owner);
    return words + (__BYTE_ORDER__ == __ORDER_BIG_ENDIAN__ ? sizeof(owner) / 4 - 1 : 0);
}

bool BarrierOnAllThreads()
{
    if (syscall(SYS_membarrier, MEMBARRIER_CMD_PRIVATE_EXPEDITED, 0, 0) == 0)
        return true;
    return syscall(SYS_membarrier, MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED, 0, 0) == 0 &&
           syscall(SYS_membarrier, MEMBARRIER_CMD_PRIVATE_EXPEDITED, 0, 0) == 0;
}

} // namespace

bool Lock::Enter() noexcept
{
    const std::uintptr_t self = ThreadIdentity();
    std::uintptr_t holder = owner.load(std::memory_order_relaxed);
    // Only this thread ever stores its own identity, so what it reads of it is right without any order.
    if (holder == self)
    {
        ++depth;
        return true;
    }
    holder = 0;
    if (!owner.compare_exchange_strong(holder, self, std::memory_order_acquire, std::memory_order_relaxed)) [[unlikely]]
        return EnterContended(self);
    depth = 1;
    return true;
}

bool Lock::TryEnter() noexcept
{
    const std::uintptr_t self = ThreadIdentity();
    std::uintptr_t holder = owner.load(std::memory_order_relaxed);
    if (holder == self)
    {
        ++depth;
        return true;
    }
    if (holder != 0 ||
        !owner.compare_exchange_strong(holder, self, std::memory_order_acquire, std::memory_order_relaxed))
        return false;
    depth = 1;
    return true;
}

bool Lock::Leave() noexcept
{
    if (--depth != 0)
        return true;
    if (hasBarrier.load(std::memory_order_relaxed)) [[likely]]
    {
        owner.store(0, std::memory_order_release);
        std::atomic_signal_fence(std::memory_order_seq_cst); // for the compiler; the sleeper's barrier does the rest
    }
    else
        owner.exchange(0, std::memory_order_seq_cst);
    if (sleepers.load(std::memory_order_relaxed) != 0) [[unlikely]]
        return WakeOne();
    return true;
}

bool Lock::EnterContended(std::uintptr_t self) noexcept
{
    const auto take = [&]
    {
        std::uintptr_t holder = 0;
        return owner.load(std::memory_order_relaxed) == 0 &&
               owner.compare_exchange_strong(holder, self, std::memory_order_acquire, std::memory_order_relaxed);
    };
    for (unsigned turn = 0; turn < SpinTurns; ++turn)
    {
        for (unsigned pause = 0; pause < 1u << (turn < 6 ? turn : 6); ++pause)
            EaseProcessor();
        if (take())
        {
            depth = 1;
            return true;
        }
    }
    const int saved = errno;
    sleepers.fetch_add(1, std::memory_order_seq_cst);
    const bool isSafe = BarrierOnAllThreads();
    if (!isSafe)
        hasBarrier.store(false, std::memory_order_relaxed);
    const timespec again = {0, 1'000'000};
    while (!take())
    {
        const std::uintptr_t holder = owner.load(std::memory_order_relaxed);
        if (holder == 0)
            continue;
        Futex(KernelWord(owner), FUTEX_WAIT, static_cast<std::uint32_t>(holder), isSafe ? nullptr : &again);
        // Back, for whatever reason: who leaves from now on wakes somebody again. A leaver who did not because of this
        // mark had stored before, and `take` sees it.
        waking.exchange(0, std::memory_order_acq_rel);
    }
    sleepers.fetch_sub(1, std::memory_order_relaxed);
    depth = 1;
    errno = saved;
    return true;
}

bool Lock::WakeOne() noexcept
{
    const int saved = errno;
    while (waking.exchange(1, std::memory_order_acq_rel) == 0)
    {
        if (Futex(KernelWord(owner), FUTEX_WAKE, 1, nullptr) > 0)
            break;
        // Nobody slept yet. Somebody may have entered and left meanwhile, have seen the mark and woken nobody.
        waking.exchange(0, std::memory_order_acq_rel);
        if (owner.load(std::memory_order_relaxed) != 0 || sleepers.load(std::memory_order_relaxed) == 0)
            break;
    }
    errno = saved;
    return true;
}

namespace
{

constexpr std::uint32_t KnownGuards = 8;

// The locks of the thread's guards, the oldest first; not a list through the guards, whose stack may be in ruins when
// it is needed. The count goes on above what the array holds.
struct Held
{
    volatile std::uint32_t count;
    Lock* locks[KnownGuards];
};

constinit thread_local Held held __attribute__((tls_model("initial-exec"))) = {};

} // namespace

LockGuard::LockGuard(Lock& entered) noexcept : lock(entered)
{
    lock.Enter();
    const std::uint32_t index = held.count;
    if (index < KnownGuards)
        held.locks[index] = &lock;
    held.count = index + 1;
}

LockGuard::~LockGuard()
{
    held.count = held.count - 1;
    lock.Leave();
}

std::uint32_t HeldLocks() noexcept
{
    return held.count;
}

void ReleaseHeldLocks(std::uint32_t count) noexcept
{
    while (held.count > count)
    {
        const std::uint32_t index = held.count - 1;
        held.count = index;
        if (index < KnownGuards)
            held.locks[index]->Leave();
    }
}

} // namespace Zem::Platform
