#include <Bedrock/threads/Jobs.h>

#include <Bedrock/host/ExceptionHandler.h>
#include <Bedrock/host/Options.h>
#include <Bedrock/threads/MultiLock.h>
#include <Bedrock/threads/SingleLock.h>
#include <Bedrock/threads/Thread.h>
#include <Bedrock/threads/Time.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace Zem
{

namespace
{

constexpr int mostCounts = 0x7FFFFFFF;

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

Jobs::Jobs() noexcept : queueCount(0, mostCounts), doneCount(0, mostCounts)
{
}

Jobs::~Jobs()
{
    Done();
    DeleteAll(queue);
    DeleteAll(pending);
    DeleteAll(done);
    if (ownsDisplay)
        Alloc::Delete(display);
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
    thread = new Thread(Run, this, false); // it looks at `thread`, so it starts after that is set
    if (!thread)
        return;
    thread->SetPriority(Thread::PriorityAboveNormal);
    thread->Resume();
}

void Jobs::Add(Job* job) noexcept
{
    {
        SingleLock lock(&queueLock, true);
        queue.AddTail(job);
        List(QueueConsole, queue);
    }
    queueCount.Unlock();
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
    delete thread; // signals its quit event and waits
    thread = nullptr;
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
    SyncObject* objects[] = {thread, &queueCount}; // the quit event first: jobs that still wait stay where they are
    MultiLock wait(objects, 2, false);
    for (;;)
    {
        active.store(false, std::memory_order_release);
        if (consoleOn && queueCount.IsLocked())
            Say("Waiting...\n");
        if (wait.Lock(SyncObject::Forever, false) != MultiLock::Signalled + 1)
            break;
        active.store(true, std::memory_order_release);
        ProcessNext();
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
    Say("Job Thread Ended.\n");
}

void Jobs::ProcessNext()
{
    Job* job;
    {
        SingleLock lock(&queueLock, true);
        job = TakeFirst(queue);
        List(QueueConsole, queue);
    }
    if (consoleOn)
        Say("Processing Job: %s\n", job->GetName());
    pending.AddTail(job); // there it is the object's to delete, should it not come back from here
    const std::uint32_t start = consoleOn ? Time::Ms() : 0;
    job->Process();
    job->milliseconds = consoleOn ? Time::Ms() - start : 0;
    if (!job->IsDone())
    {
        if (consoleOn)
            Say("Job Pending: %s\n", job->GetName());
        return;
    }
    pending.Remove(job);
    Finish(job);
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
