#pragma once

#include <cstdint>

/// Objects that threads wait for: mutexes, semaphores, events.
///
/// Time-outs are milliseconds, 0 tries once, 0xFFFFFFFF waits for ever; signals neither cut nor stretch a wait. Who waits
/// for an object that somebody else waits for already is served after him. An object is taken together with the end of
/// the wait, never seen by others in between. All functions may be called from any thread at once; null handles are
/// refused by the result.
///
/// With a name an object is shared between the user's processes: the first opener makes it, later ones get what is there,
/// or null if that is of another kind. It goes with the last handle, or when the last process that has one ends. Names
/// have 1 to 259 bytes; an empty one is none. Waiters for named objects are served in no particular order.
namespace Zem::Platform
{

/// An object; null where creation failed.
struct Waitable;

/// Largest number of objects in one wait.
inline constexpr std::uint32_t longestWait = 64;

/// How a wait ended. From `Signalled` and from `Abandoned` on the number of the object is added (0 for all of them):
/// an abandoned one is a mutex whose owner ended without releasing it; it is taken all the same.
enum WaitResult : std::uint32_t
{
    WaitSignalled = 0,
    WaitAbandoned = 128,
    WaitTimedOut = 258,
    WaitFailed = 0xFFFFFFFF,
};

/// Before the first object is made and after the last: opens and closes what notices the end of threads.
void OpenWaits() noexcept;
void CloseWaits() noexcept;

/// A mutex, which its owner may take again; `owned` makes the caller the owner.
Waitable* CreateMutex(bool owned, const char* name) noexcept;
/// A semaphore; null unless 0 <= `initial` <= `maximum` and `maximum` >= 1.
Waitable* CreateSemaphore(std::int32_t initial, std::int32_t maximum, const char* name) noexcept;
/// An event: one that resets itself lets one wait through for each signal, a `manual` one all until it is reset.
Waitable* CreateEvent(bool manual, bool signalled, const char* name) noexcept;

/// Closes the handle. Waits that are under way keep the object and end as they may; a mutex that its closer owns is
/// released, a named one stays his until his end.
void CloseWaitable(Waitable* object) noexcept;

/// Gives back one `taking`; false if the caller is not the owner.
bool ReleaseMutex(Waitable* object) noexcept;
/// Adds `count`; false, and nothing is added, if `count` is 0 or the maximum would be passed.
bool ReleaseSemaphore(Waitable* object, std::uint32_t count) noexcept;
bool SetEvent(Waitable* object) noexcept;
/// Lets through who waits at this moment, all of them or one as the event's kind is, and leaves it reset.
bool PulseEvent(Waitable* object) noexcept;
bool ResetEvent(Waitable* object) noexcept;

/// Waits for one object and takes it.
std::uint32_t WaitForOne(Waitable* object, std::uint32_t timeout) noexcept;

/// Waits for one of `count` objects, the first that is signalled in their order, or with `all` for all of them at the
/// same moment: nothing is taken before everything can be. `WaitFailed` for `count` 0 or above `longestWait`, and with
/// `all` for an object that is named twice.
std::uint32_t WaitForMany(Waitable* const* objects, std::uint32_t count, bool all, std::uint32_t timeout) noexcept;

} // namespace Zem::Platform
