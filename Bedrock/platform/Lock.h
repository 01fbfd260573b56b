#pragma once

#include <atomic>
#include <cstdint>

namespace Zem::Platform
{

/// A recursive lock for the inside of the library: 16 bytes or less, constant-initialised, never destroyed.
///
/// A static `Lock` needs no initialiser and works until the last instruction of the process. Taking a free lock is
/// one atomic exchange; a contended one spins shortly, then sleeps in the kernel.
class Lock
{
public:
    constexpr Lock() = default;
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

    void Enter() noexcept;
    bool TryEnter() noexcept;
    void Leave() noexcept;

private:
    std::atomic<std::uint32_t> word{0};    // 0 free, 1 held, 2 held and somebody may sleep
    std::uint32_t depth = 0;               // entries of the owner
    std::atomic<std::uintptr_t> owner{0};  // identity of the owning thread, 0 when free
};

/// Holds a `Lock` for a scope.
class LockGuard
{
public:
    explicit LockGuard(Lock& held) noexcept : lock(held)
    {
        lock.Enter();
    }
    ~LockGuard()
    {
        lock.Leave();
    }
    LockGuard(const LockGuard&) = delete;
    LockGuard& operator=(const LockGuard&) = delete;

private:
    Lock& lock;
};

} // namespace Zem::Platform
