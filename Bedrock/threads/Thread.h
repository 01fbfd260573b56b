#pragma once

#include <Bedrock/threads/WEvent.h>

#include <cstdint>

namespace Zem
{

/// A thread of its own for a function, which it runs under protection: what the function throws, and what the processor
/// faults on, reaches the same report as on the main thread; the function is then abandoned and the exit code is 0.
///
/// The owner asks the thread to stop by the quit event: `Terminate` signals it and waits for the end. The body polls
/// `IsDone`, which is true once for each `Terminate`, or waits for the event together with its work: in a `MultiLock` a
/// `Thread` stands for its quit event. `Lock` waits for the end of the thread itself, the destructors of its thread-local
/// objects included; all that it wrote is seen then.
///
/// The object must outlive its thread; the destructor sees to that by `Terminate`, unless `DisableTermination` was called.
/// A thread that was made suspended and never resumed cannot end: `Terminate` waits for ever.
/// Nothing throws: if the thread could not be made, `StartedOk` is false and all its operations fail.
///
///     unsigned int Work(void* data)
///     {
///         auto& worker = *static_cast<Worker*>(data);
///         while (!worker.thread.IsDone())
///             worker.Step();
///         return 0;
///     }
///     Thread thread(Work, this, true);
class ZEM_API Thread : public SyncObject
{
public:
    using Function = unsigned int (*)(void*);

    /// How eagerly the thread gets the processor.
    enum Priority : std::int32_t
    {
        PriorityIdle = -15,
        PriorityLowest = -2,
        PriorityBelowNormal = -1,
        PriorityNormal = 0,
        PriorityAboveNormal = 1,
        PriorityHighest = 2,
        PriorityTimeCritical = 15,
        PriorityUnknown = 0x7FFFFFFF, // of a thread that could not be made
    };

    /// Makes a thread that runs `function(argument)`; its result is the exit code. With `startNow` false it waits for
    /// `Resume` and counts as alive meanwhile.
    Thread(Function function, void* argument, bool startNow) noexcept;
    ~Thread() override;

    /// Signals the quit event, waits for the end however long it takes, and returns the exit code; 0xFFFFFFFF if there is
    /// no thread.
    std::uint32_t Terminate() noexcept;
    /// The destructor neither asks the thread to stop nor waits for it.
    void DisableTermination() noexcept { isTerminated = false; }

    /// Ends the calling thread at once with that exit code, from within its body. No destructor of the body runs and no
    /// guard gives back what it holds, so call it with nothing held; thread-local objects are destroyed as ever. Never
    /// inside a hook or report of a failure. On a thread that the library did not make it unwinds the stack.
    [[noreturn]] static void End(std::uint32_t exitCode);

    /// True if the quit event is signalled, which takes the signal. For the body.
    bool IsDone() noexcept;

    /// False if there is no living thread or no such priority. What the user may not ask of the system stays without
    /// effect, but is remembered.
    bool SetPriority(Priority priority) noexcept;
    Priority GetPriority() const noexcept;

    /// The name that debuggers and system monitors show, from then on; they know its first 15 bytes.
    bool SetName(const char* name) noexcept;

    /// True from construction until the thread has ended, whatever its exit code is.
    bool IsAlive() const noexcept;
    bool StartedOk() const noexcept { return handle != nullptr; }

    /// Stops the thread where it is, and returns when it stands; takes back one such stop. Suspensions count, up to 127.
    /// A thread may suspend itself. Stopped inside a lock, it keeps the lock; inside the library's memory and text it
    /// goes on until it is out of it. False if there is no living thread.
    bool Suspend() noexcept;
    bool Resume() noexcept;

    /// The quit event's handle, for `MultiLock`.
    operator void*() noexcept override;

    // ---- What a thread can ask about itself and its process, also one that the library did not make.

    /// The number of the calling thread, which no other living thread of the system has.
    static std::uint32_t GetCurrentId() noexcept;
    /// The number of the process.
    static std::uint32_t GetProcessId() noexcept;

    /// Writes the file name of the process's program, whole path and terminator, into `buffer` of 256 bytes; a longer
    /// one is cut. Empty if the system does not tell.
    static void GetProcessName(char* buffer) noexcept;

    /// True while that process runs; false for one that has ended, even if its parent has not asked for its end yet.
    static bool IsProcessAlive(std::uint32_t processId) noexcept;

private:
    static unsigned int Start(void* thread);
    static int SafeStart(void* thread);

    WEvent quit;
    bool isTerminated; // by the destructor
    Function function;
    void* argument;
};

} // namespace Zem
