#pragma once

#include <Bedrock/platform/Lock.h>
#include <Bedrock/platform/SuspendGuard.h>
#include <Bedrock/platform/Wait.h>

#include <atomic>
#include <cstdint>

namespace Zem::Platform
{

struct Wait;

/// One waiter's place in the list of one object.
struct WaitBlock
{
    WaitBlock* next;
    WaitBlock* prev;
    Wait* wait;
};

enum class WaitKind : std::uint8_t
{
    Mutex,
    Semaphore,
    AutoEvent,
    ManualEvent,
    Thread, // as a manual event that its end signals
    Named,  // shared between processes (NamedObject.h)
};

/// What a handle stands for; from `malloc`, trivially destructible together with what derives from it.
struct Waitable
{
    std::atomic<std::uintptr_t> word;
    WaitKind kind;
    bool isClosed;       // the handle is gone: the object goes with its last waiter or owner, a thread with its end
    std::uint32_t depth; // entries of the owner; his alone
    std::uint32_t maximum;
    WaitBlock* first; // guarded by the dispatcher lock
    WaitBlock* last;
    Waitable* nextOwned; // the owner's list
    Waitable* prevOwned;
};

/// Whether the thread has ended; what it wrote before is seen then.
bool HasEnded(const Waitable& thread) noexcept;

/// Signals the end of a thread. Its record may be gone afterwards.
void SignalEnd(Waitable& thread) noexcept;

/// Has the mutexes of the calling thread left behind at its end, after the destructors of its thread-local objects, and
/// then `EndOfOwnThread` called. False if the system has no way for it: the thread then calls `LeaveThread` itself.
bool WatchThread() noexcept;
void LeaveThread() noexcept;

/// The last act of a thread that the library made; nothing for others.
void EndOfOwnThread() noexcept;

/// The system's own handle of a thread, and what becomes of it when ours is closed: what is left of an ended thread is
/// waited for, a running one goes on by itself.
std::uintptr_t NativeThread(const Waitable& thread) noexcept;
void LetGo(std::uintptr_t nativeThread, bool hasEnded) noexcept;

} // namespace Zem::Platform
