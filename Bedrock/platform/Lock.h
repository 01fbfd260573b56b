#pragma once

#include <atomic>
#include <cstdint>

namespace Zem::Platform
{

/// A lock between the threads of a process, which its holder may enter again: 16 bytes, constant-initialised, never
/// destroyed.
///
/// A static `Lock` needs no initialiser and works until the last instruction of the process. Taking a free lock is one
/// atomic operation, entering a held one again none; a contended one spins shortly, then sleeps in the kernel. What the
/// holder wrote is seen by the next one. No order of arrival is kept. The operations keep errno unless they sleep.
class Lock
{
public:
    constexpr Lock() = default;
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

    void Enter() noexcept;
    /// True if the lock was free or the caller's own, and is entered.
    bool TryEnter() noexcept;
    /// Only the holder may call it, once for each entry.
    void Leave() noexcept;

private:
    void EnterContended() noexcept;
    void WakeOne() noexcept;

    std::atomic<std::uint32_t> word{0};   // 0 free, 1 held, 2 held and somebody may sleep
    std::uint32_t depth = 0;              // entries of the owner
    std::atomic<std::uintptr_t> owner{0}; // identity of the owning thread, 0 when free
};

/// Holds a `Lock` for a scope.
class LockGuard
{
public:
    explicit LockGuard(Lock& held) noexcept : lock(held) { lock.Enter(); }
    ~LockGuard() { lock.Leave(); }
    LockGuard(const LockGuard&) = delete;
    LockGuard& operator=(const LockGuard&) = delete;

private:
    Lock& lock;
};

} // namespace Zem::Platform
