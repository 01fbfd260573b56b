#pragma once

#include <Bedrock/Export.h>
#include <Bedrock/maths/Console.h>
#include <Bedrock/memory/HeapOperators.h>
#include <Bedrock/threads/CriticalSection.h>
#include <Bedrock/threads/Job.h>
#include <Bedrock/threads/Semaphore.h>
#include <Bedrock/threads/WEvent.h>

#include <atomic>
#include <cstdint>

namespace Zem
{

class Options;
class Thread;

/// A queue of jobs, one worker thread that processes them, and their hand-over on the owner's thread.
///
///     Jobs jobs;
///     jobs.Init(&options);
///     jobs.Add(new LoadImage("sky.tga"));
///     while (frame)
///         jobs.Update();          // dispatches what has become ready
///     jobs.Done();
///
/// Jobs are processed in the order of `Add` and dispatched in the order of finishing. A job whose children are open is
/// processed and then pending; the worker looks at pending jobs after each job it processes, so a parent is finished after
/// its last child's dispatch and one further job.
///
/// A job that fails (throws, or faults) is reported like any failure of a thread and ends the worker: later jobs stay in
/// the queue. `IsActive` is false from then on, and `Done` returns at once. The job that failed is never dispatched.
///
/// Threads: `Add`, `IsActive` and `CopyConsole` on any, also within `Process` and `Dispatch`; the rest on the owner's.
class ZEM_API Jobs
{
    ZEM_HEAP_OPERATORS
public:
    /// The consoles that the option "JobsConsole" turns on: messages, jobs in the queue, jobs to dispatch.
    enum ConsoleKind
    {
        MainConsole,  // 40 by 10
        QueueConsole, // 25 by 10
        DoneConsole   // 25 by 10
    };
    /// Bytes of the display: four banks of 8,192, see `Console::BlitToMono44`.
    static constexpr std::uint32_t displaySize = 4 * 8192;

    Jobs() noexcept;
    Jobs(const Jobs&) = delete;
    Jobs& operator=(const Jobs&) = delete;
    /// `Done`, and deletes the jobs that are still here, undispatched.
    ~Jobs();

    /// Where the consoles are drawn, `displaySize` bytes that the caller keeps until `Done`; set it while no worker runs.
    /// It changes at any time, like an adapter's memory. Null, as at first: memory of its own, from `Init` on.
    void SetDisplay(void* memory) noexcept;
    /// The display's memory; null if none was set and the consoles have never been on.
    const std::uint8_t* GetDisplay() const noexcept { return display; }

    /// Reads "JobsConsole" (default off; `options` may be null) and starts the worker, which goes on with the jobs that are
    /// in the queue. A second call without `Done` between does nothing. Without memory or a thread for the worker the jobs
    /// stay in the queue.
    void Init(Options* options) noexcept;

    /// Takes a job, which must not be null and not be here, into the queue.
    void Add(Job* job) noexcept;

    /// Dispatches and deletes everything that is finished; with nothing finished it waits for up to 1 millisecond. At most 6
    /// milliseconds pass outside of `Dispatch`. A worker that finishes a job meanwhile waits. What a `Dispatch` throws passes
    /// through; that job is deleted too, and the others are left to the next call.
    void Update();

    /// Ends the worker behind the job in hand. Jobs that are queued, pending or finished stay, and go with the object or on
    /// after the next `Init`; `Update` may still hand over the finished ones. Not within a `Dispatch`: the worker may wait for
    /// its end.
    void Done() noexcept;

    /// True while the worker processes jobs, false while it waits.
    bool IsActive() const noexcept { return active.load(std::memory_order_acquire); }

    /// Makes `copy` show what the console shows now. False with the consoles off or on an exhausted heap, `copy` unchanged.
    bool CopyConsole(ConsoleKind kind, Console& copy) noexcept;

private:
    static unsigned int Run(void* jobs);
    static int Work(void* jobs);
    void Work();
    bool TakeQueue() noexcept;
    void Process(Job* job);
    void FinishPending() noexcept;
    void Finish(Job* job) noexcept;
    static Job* TakeFirst(NodeList& list) noexcept;

    [[gnu::format(printf, 2, 3)]] void Say(const char* format, ...) noexcept;
    void Show(ConsoleKind kind) noexcept;
    void List(ConsoleKind kind, const NodeList& list) noexcept;

    NodeList queue;
    CriticalSection queueLock;
    WEvent queueFilled; // set by the `Add` that finds the queue empty
    NodeList taken;     // the worker's own, before the queue: it takes all of that at once; `Done` puts the rest back
    NodeList done;
    CriticalSection doneLock; // the worker holds it for an append only, so `Update` waits for it briefly
    Semaphore doneCount;      // one for each finish that `Update` has not looked at
    NodeList started;         // the worker's own: the job in hand, and those that failed
    NodeList pending;         // the worker's own: processed, with children open

    Thread* thread = nullptr;
    Console consoles[3];
    CriticalSection consoleLock; // the consoles and the display; innermost
    std::atomic<bool> consoleOn{false};
    bool ownsDisplay = false;
    std::uint8_t* display = nullptr;
    std::atomic<bool> active{false};
    std::atomic<bool> ending{false}; // `Done` waits
};

} // namespace Zem
