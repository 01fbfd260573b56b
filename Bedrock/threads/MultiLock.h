#pragma once

#include <Bedrock/memory/HeapOperators.h>
#include <Bedrock/threads/SyncObject.h>

#include <cstdint>

namespace Zem
{

/// Waits for one or all of several objects, remembers which it took, and gives them back at the end of the scope.
///
/// Up to 64 objects; a critical section has no handle and makes every wait fail. Objects and the array that names them
/// must outlive the guard. A guard belongs to one thread.
///
///     SyncObject* objects[] = {&quit, &work};
///     MultiLock wait(objects, 2, false);
///     switch (std::uint32_t{wait.Lock(1000, false)})
///     {
///     case MultiLock::Signalled:     return;              // the first of them
///     case MultiLock::Signalled + 1: TakeJob(); break;    // the second
///     case MultiLock::TimedOut:      break;
///     }
class ZEM_API MultiLock
{
    ZEM_HEAP_OPERATORS
public:
    /// What a wait came to. The number of the object is added to the last two.
    enum Result : std::uint32_t
    {
        Failed = 0,
        TimedOut = 1,
        Signalled = 0x10000000, // taken; after a wait for all of them the number is 0
        Abandoned = 0x20000000, // a mutex that its owner left behind; it is taken, but not remembered as locked
    };

    /// A guard over `count` objects. With `lockNow` it waits without end for one of them.
    MultiLock(SyncObject** objects, std::uint32_t count, bool lockNow) noexcept;
    ~MultiLock();
    MultiLock(const MultiLock&) = delete;
    MultiLock& operator=(const MultiLock&) = delete;

    /// Waits up to `timeout` milliseconds for one object, the first in their order that is signalled, or for all: they
    /// are taken at one moment then, and none before.
    Result Lock(std::uint32_t timeout = SyncObject::Forever, bool waitForAll = false) noexcept;

    /// Gives back what was taken; always true.
    bool Unlock() noexcept;
    /// False: no count fits several objects.
    bool Unlock(std::uint32_t count) noexcept;

    /// Whether the guard took object `index` and has not given it back; false for an index that there is not.
    bool IsLocked(std::uint32_t index) const noexcept { return locked && index < count && locked[index]; }

private:
    void** handles; // null when the heap was exhausted: every wait fails then
    bool* locked;   // one for each object
    std::uint32_t count;
    SyncObject** objects;
};

} // namespace Zem
