#pragma once

#include <Bedrock/platform/posix/Waitable.h>

#include <atomic>
#include <cstdint>

namespace Zem::Platform
{

/// A mutex, semaphore or event that processes of one user share by name.
///
/// Its state lies in a named file in memory (NamedFile.h). A guard in it, which survives the death of its holder, is
/// held for every look and change; who waits takes the guards of all his named objects, always in the same order, so
/// that a wait for all is one step between processes too. A waiter sleeps on the number of changes that he saw under the
/// guard. What is held of a mutex is a second lock of this kind: the system itself tells that its holder died.
struct NamedSegment;

struct NamedObject : Waitable
{
    NamedObject* nextNamed; // guarded by the lock of the names
    NamedSegment* segment;
    int file;
    std::uint64_t order;             // of the guards; the same in all processes
    std::atomic<std::uint32_t> uses; // handles and waits under way
    std::uintptr_t owner;            // the thread of this process that took the mutex last; guarded by the guard
    char path[512];
};

enum class NamedKind : std::uint32_t
{
    Mutex = 1,
    Semaphore,
    Event
};

/// Opens the object of that name or makes it: only then do the other arguments count. Null if the name stands for
/// another kind, has 260 bytes or more, or the system refuses. A process has one object for a name, however many handles.
NamedObject* OpenNamed(NamedKind kind, const char* name, std::uint32_t count, std::uint32_t maximum, bool isManual,
                       bool isOwned) noexcept;
/// One handle, or one wait, less. What the process does not need any more goes, unless a thread of it owns the mutex.
void LeaveNamed(NamedObject& object) noexcept;

/// At the end of the process: the files go, if nobody else has them. What a handle still stands for works on.
void CloseNames() noexcept;

bool ReleaseNamedMutex(NamedObject& object) noexcept;
bool ReleaseNamedSemaphore(NamedObject& object, std::uint32_t count) noexcept;
bool SetNamedEvent(NamedObject& object, bool isSignalled) noexcept;
bool PulseNamedEvent(NamedObject& object) noexcept;

/// What a waiter knows of one of his named objects. All but the construction happens under the object's guard.
struct NamedWaiter
{
    NamedObject* object = nullptr;
    std::uint32_t changes = 0; // when it was last looked at
    std::uint32_t pulses = 0;
    bool isCounted = false; // among the sleepers
};

/// Holds the guards of several objects, in their order. Their holder is not suspended.
class NamedGuards
{
public:
    /// `waiters` is put into the order of the guards.
    NamedGuards(NamedWaiter** waiters, std::uint32_t count) noexcept;
    ~NamedGuards();
    NamedGuards(const NamedGuards&) = delete;
    NamedGuards& operator=(const NamedGuards&) = delete;

private:
    const SuspendGuard suspension;
    NamedWaiter** const waiters;
    const std::uint32_t count;
};

enum class NamedAnswer
{
    Unavailable,
    Taken,
    TakenAbandoned
};

/// Begins a wait: pulses count from here on.
void BeginNamed(NamedWaiter& waiter) noexcept;
/// Takes the object if it can be had.
NamedAnswer TakeNamed(NamedWaiter& waiter) noexcept;
/// Whether `TakeNamed` would take it; of a mutex that is not told.
bool CanTakeNamed(const NamedWaiter& waiter) noexcept;
/// Puts a mutex back that was taken just now; nobody has seen it.
void PutBackNamed(NamedWaiter& waiter, NamedAnswer taken) noexcept;
/// Before a sleep, after a look that took nothing: from here on the word changes when anything does.
void PrepareSleep(NamedWaiter& waiter) noexcept;
/// Ends a wait.
void EndNamed(NamedWaiter& waiter) noexcept;

/// The word to sleep on while it is `changes`; other processes wake it.
std::uint32_t* ChangesWord(NamedWaiter& waiter) noexcept;
/// A mutex's owner may die without waking anybody: a sleeper must look by himself now and then.
bool IsNamedMutex(const NamedWaiter& waiter) noexcept;

} // namespace Zem::Platform
