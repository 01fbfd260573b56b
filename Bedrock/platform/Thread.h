#pragma once

#include <cstdint>

/// Threads that the library makes. A thread is a `Waitable` (Wait.h): signalled once it has ended, the destructors of its
/// thread-local objects included. Null handles and ended threads are refused by the result.
namespace Zem::Platform
{

struct Waitable;

/// Gives back what suspending took from the process, unless a thread still runs.
void CloseThreads() noexcept;

/// True while a thread of the library runs.
bool HasThreads() noexcept;

/// Makes a thread that runs `body(argument)`; with `suspended` not before `ResumeThread`. `handle` is set before the
/// thread runs, and null if that failed. `CloseWaitable` closes it: on an ended thread it returns when nothing of the
/// thread is left, a running one goes on by itself.
bool StartThread(unsigned (*body)(void*), void* argument, bool suspended, Waitable*& handle) noexcept;

/// Ends the calling thread with that exit code, at once: no destructor of the frames left behind runs. The thread-local
/// objects are destroyed as ever. A thread that the library did not make ends as its own library does it: with
/// destructors, and not from below a `noexcept` function.
[[noreturn]] void EndThread(std::uint32_t exitCode);

/// Stops the thread wherever it is, and returns when it stands; each call counts, and as many resumes are needed. It
/// never stands inside a lock of the library's core (SuspendGuard.h).
bool SuspendThread(Waitable* thread) noexcept;
/// Takes back one suspension; true also for a thread that runs.
bool ResumeThread(Waitable* thread) noexcept;

/// How eagerly a thread gets the processor: -15, -2 to 2 or 15, 0 at first. What the user may not ask of the system (to
/// raise it; to lower it and not be able to raise it again) is remembered, and no failure.
bool SetThreadPriority(Waitable* thread, std::int32_t priority) noexcept;
/// What was set last; `noPriority` for a null handle.
std::int32_t ThreadPriority(const Waitable* thread) noexcept;
inline constexpr std::int32_t noPriority = 0x7FFFFFFF;

/// The name that debuggers and the system's lists show; the system keeps so many of its bytes as it has room for.
bool NameThread(Waitable* thread, const char* name) noexcept;

/// False for a null handle and for a thread that has ended.
bool IsThreadAlive(const Waitable* thread) noexcept;
/// What the body returned or ended with; 259 while it runs, 0 for a null handle.
std::uint32_t ThreadExitCode(const Waitable* thread) noexcept;

} // namespace Zem::Platform
