#include <Bedrock/threads/Jobs.h>

#include <Bedrock/host/ExceptionHandler.h>
#include <Bedrock/host/Options.h>
#include <Bedrock/platform/Pause.h>
#include <Bedrock/threads/MultiLock.h>
#include <Bedrock/threads/SingleLock.h>
#include <Bedrock/threads/Thread.h>
#include <Bedrock/threads/Time.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <utility>

namespace Zem
{

namespace
{

constexpr int mostCounts = 0x7FFFFFFF;
constexpr int breathingTurns = 200; // some five microseconds

// Where each console stands in the display, in cells.
constexpr int displayRow = 28;
constexpr int displayColumns[] = {0, 40, 65};
constexpr Size consoleSizes[] = {{40, 10}, {25, 10}, {25, 10}};

Job* ToJob(DLListNode* node) noexcept
{
    return static_cast<Job*>(node);
}

void DeleteAll(NodeList& list) noexcept
{
    while (DLListNode* node = list.Head())
    {
        list.Remove(node);
        delete ToJob(node);
    }
}

} // namespace

Job::Job(Job* waiting) noexcept : parent(waiting)
{
    if (parent)
        parent->Lock();
}

Job::~Job() = default;

const char* Job::GetName()
{
    return "Unknown";
}

void Job::Process()
{
}

void Job::Dispatch()
{
    if (parent)
        parent->Unlock();
}

Jobs::Jobs() noexcept : doneCount(0, mostCounts)
{
}

Jobs::~Jobs()
{
    Done();
    DeleteAll(queue);
    DeleteAll(started);
    DeleteAll(pending);
    DeleteAll(done);
    SetDisplay(nullptr);
}

void Jobs::SetDisplay(void* memory) noexcept
{
    if (ownsDisplay)
        Alloc::Delete(display);
    ownsDisplay = false;
    display = static_cast<std::uint8_t*>(memory);
}

void Jobs::Init(Options* options) noexcept
{
    if (thread)
        return;
    bool wanted = false;
    if (options)
        options->Get("JobsConsole", wanted, false);
    if (wanted && !display)
    {
        display = static_cast<std::uint8_t*>(Alloc::New(displaySize));
        ownsDisplay = display;
        if (display)
            std::memset(display, 0, displaySize);
    }
    for (const ConsoleKind kind : {MainConsole, DoneConsole, QueueConsole})
        if (wanted)
        {
            SingleLock lock(&consoleLock, true);
            consoles[kind].Init(consoleSizes[kind]);
            Show(kind);
        }
    consoleOn = wanted;
    ending.store(false, std::memory_order_relaxed);
    queueFilled.Set();                     // an earlier worker may have left jobs and taken the signal
    thread = new Thread(Run, this, false); // it looks at `thread`, so it starts after that is set
    if (!thread)
        return;
    thread->SetPriority(Thread::PriorityAboveNormal);
    thread->Resume();
}

void Jobs::Add(Job* job) noexcept
{
    bool wasEmpty;
    {
        SingleLock lock(&queueLock, true);
        wasEmpty = queue.Count() == 0;
        queue.AddTail(job);
        List(QueueConsole, queue);
    }
    if (wasEmpty)
        queueFilled.Set();
}

void Jobs::Update()
{
    constexpr std::uint32_t wait = 1; // millisecond
    if (!doneCount.Lock(wait))
        return;
    struct Guard
    {
        Jobs& jobs;
        Job* job = nullptr;
        explicit Guard(Jobs& owner) noexcept : jobs(owner) { jobs.doneLock.Lock(); }
        Guard(const Guard&) = delete;
        Guard& operator=(const Guard&) = delete;
        ~Guard() // also when a `Dispatch` throws
        {
            delete job;
            jobs.doneLock.Unlock();
        }
    } guard(*this);
    while ((guard.job = TakeFirst(done)))
    {
        guard.job->Dispatch();
        List(DoneConsole, done);
        delete guard.job;
    }
}

void Jobs::Done() noexcept
{
    if (!thread)
        return;
    Say("Terminating Thread...\n");
    ending.store(true, std::memory_order_relaxed);
    delete thread; // signals its quit event and waits
    thread = nullptr;
    active.store(false, std::memory_order_release); // also if a job has ended the thread by itself
    {
        SingleLock lock(&queueLock, true);
        while (DLListNode* last = taken.Tail())
        {
            taken.Remove(last);
            queue.AddHead(last);
        }
    }
    Say("Jobs Done.\n");
    SingleLock lock(&consoleLock, true);
    for (Console& console : consoles)
        console.Done();
    consoleOn = false;
}

bool Jobs::CopyConsole(ConsoleKind kind, Console& copy) noexcept
{
    SingleLock lock(&consoleLock, true);
    return consoles[kind].Width() > 0 && copy.CopyFrom(consoles[kind]);
}

// A frame of its own under the thread's: after a job that failed, and was reported, the worker is still tidied up.
unsigned int Jobs::Run(void* jobs)
{
    ExceptionHandler::Main(Work, jobs);
    static_cast<Jobs*>(jobs)->active.store(false, std::memory_order_release);
    return 0;
}

int Jobs::Work(void* jobs)
{
    static_cast<Jobs*>(jobs)->Work();
    return 0;
}

void Jobs::Work()
{
    Say("Jobs Started!\n");
    {
        SingleLock lock(&queueLock, true);
        List(QueueConsole, queue);
    }
    {
        SingleLock lock(&doneLock, true);
        List(DoneConsole, done);
    }
    SyncObject* objects[] = {thread, &queueFilled};
    MultiLock wait(objects, 2, false);
    bool worked = true;
    for (;;)
    {
        active.store(false, std::memory_order_release);
        if (worked) // it may wake for jobs that it has processed already
            Say("Waiting...\n");
        if (wait.Lock(SyncObject::Forever, false) != MultiLock::Signalled + 1)
            break;
        worked = false;
        while (!ending.load(std::memory_order_relaxed) && TakeQueue())
        {
            worked = true;
            Job* job = TakeFirst(taken);
            Process(job);
            FinishPending();
            if (!taken.Head()) // who adds many gets ahead, and so neither waits for the other at every job
                for (int turn = 0; turn < breathingTurns; ++turn)
                    Platform::PauseTurn(0);
        }
    }
    Say("Job Thread Ended.\n");
}

// Sees to it that `taken` has the next job; false if there is none. With the consoles on it takes one job at a time, since
// they show what waits.
bool Jobs::TakeQueue() noexcept
{
    if (taken.Head())
        return true;
    SingleLock lock(&queueLock, true);
    if (queue.Count() == 0)
        return false;
    active.store(true, std::memory_order_release);
    if (consoleOn)
    {
        taken.AddTail(TakeFirst(queue));
        List(QueueConsole, queue);
    }
    else
        taken = std::exchange(queue, NodeList());
    return true;
}

void Jobs::Process(Job* job)
{
    if (consoleOn)
        Say("Processing Job: %s\n", job->GetName());
    started.AddTail(job); // there it is the object's to delete, should it not come back from here
    const std::uint32_t start = consoleOn ? Time::Ms() : 0;
    job->Process();
    job->milliseconds = consoleOn ? Time::Ms() - start : 0;
    started.Remove(job);
    if (job->IsDone())
        return Finish(job);
    if (consoleOn)
        Say("Job Pending: %s\n", job->GetName());
    pending.AddTail(job);
}

void Jobs::FinishPending() noexcept
{
    for (DLListNode* node = pending.Head(); node;)
    {
        Job* job = ToJob(node);
        node = node->Next();
        if (!job->IsDone())
            continue;
        pending.Remove(job);
        Finish(job);
    }
}

void Jobs::Finish(Job* job) noexcept
{
    if (consoleOn)
        Say("Job Complete: %s (%u ms)\n", job->GetName(), job->milliseconds);
    {
        SingleLock lock(&doneLock, true);
        done.AddTail(job);
        List(DoneConsole, done);
    }
    doneCount.Unlock();
}

Job* Jobs::TakeFirst(NodeList& list) noexcept
{
    DLListNode* node = list.Head();
    if (node)
        list.Remove(node);
    return ToJob(node);
}

void Jobs::Say(const char* format, ...) noexcept
{
    if (!consoleOn)
        return;
    char text[1024];
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    SingleLock lock(&consoleLock, true);
    consoles[MainConsole].Print(text);
    Show(MainConsole);
}

void Jobs::Show(ConsoleKind kind) noexcept
{
    if (display)
        consoles[kind].BlitToMono44(displayColumns[kind], displayRow, reinterpret_cast<std::uintptr_t>(display));
}

// Called with the list's lock held.
void Jobs::List(ConsoleKind kind, const NodeList& list) noexcept
{
    if (!consoleOn)
        return;
    SingleLock lock(&consoleLock, true);
    consoles[kind].Clear();
    int index = 0;
    for (DLListNode* node = list.Head(); node; node = node->Next())
        consoles[kind].Printf("%d. %s\n", index++, ToJob(node)->GetName());
    Show(kind);
}

} // namespace Zem
