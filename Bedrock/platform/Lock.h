#pragma once

#include <atomic>
#include <cstdint>

namespace Zem::Platform
{

/// A lock between the threads of a process, which its holder may enter again: constant-initialised, never destroyed.
///
/// A static `Lock` needs no initialiser and works until the last instruction of the process. Entering a free lock is one
/// atomic operation; entering it again and leaving it are none. Who comes to a held lock spins shortly, then sleeps in
/// the kernel. What the holder wrote is seen by the next one. No order of arrival is kept.
class Lock
{
public:
    constexpr Lock() = default;
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

    /// Always true, as is the answer of `Leave`: an operation that ends by one of them and succeeds is a single jump.
    bool Enter() noexcept;
    /// True if the lock was free or the caller's own, and is entered.
    bool TryEnter() noexcept;
    /// Only the holder may call it, once for each entry.
    bool Leave() noexcept;

private:
    bool EnterContended(std::uintptr_t self) noexcept;
    bool WakeOne() noexcept;

    std::atomic<std::uintptr_t> owner{0};   // identity of the thread that holds the lock, 0 when it is free
    std::uint32_t depth = 0;                // entries of the owner
    std::atomic<std::uint32_t> sleepers{0}; // threads that sleep or are about to, or have just been woken
    std::atomic<std::uint32_t> waking{0};   // 1 while a thread has been woken and has not come back yet
};

/// Holds a `Lock` for a scope. A thread's guards are known to the frame that catches a fault: what the abandoned code
/// held is given back there, since its destructors do not run.
class LockGuard
{
public:
    explicit LockGuard(Lock& held) noexcept;
    ~LockGuard();
    LockGuard(const LockGuard&) = delete;
    LockGuard& operator=(const LockGuard&) = delete;

private:
    Lock& lock;
};

/// How many locks the calling thread holds by guards.
std::uint32_t HeldLocks() noexcept;

/// Leaves the locks of the calling thread's youngest guards until `count` are held; those guards are gone, without their
/// destructors. Guards that lie more than eight deep are not known and keep their locks.
void ReleaseHeldLocks(std::uint32_t count) noexcept;

} // namespace Zem::Platform
