#include <Bedrock/host/ExceptionHandler.h>

#include <Bedrock/host/AssertEx.h>
#include <Bedrock/host/HardwareException.h>
#include <Bedrock/host/Log.h>
#include <Bedrock/host/LogClient.h>
#include <Bedrock/host/ReportDialog.h>
#include <Bedrock/memory/AllocReport.h>
#include <Bedrock/memory/HeapOperators.h>
#include <Bedrock/memory/PString.h>
#include <Bedrock/memory/PStringCache.h>
#include <Bedrock/platform/Fault.h>
#include <Bedrock/platform/Lock.h>
#include <Bedrock/platform/Process.h>
#include <Bedrock/platform/ReportDialog.h>
#include <Bedrock/platform/SuspendGuard.h>

#include <atomic>
#include <cstdarg>

namespace Zem
{

/// An emergency hook.
struct ExceptionHandler::Shutdown
{
    ZEM_HEAP_OPERATORS

    void* data;
    int (*function)(void*);
    Shutdown* next;
    unsigned int id;
};

struct ExceptionHandler::Call
{
    int (*function)(void*);
    void* argument;
};

namespace
{

constinit std::atomic<bool> isPromptAssertions{true};
constinit std::atomic<bool> ignore{false}; // the user chose to terminate: no report any more, for good

// Serialises reports and guards what they are made in. Taken before the lock of the log, and held across the hooks and
// the dialog.
constinit Platform::Lock lock;
alignas(HardwareException) constinit unsigned char hardwareExceptionBlock[sizeof(HardwareException)] = {};
constinit ReportDialog reportDialog;
constinit int reports = 0; // dialogs under way, one within the other

// The site that AssertInit noted, for the Assert that follows.
struct Site
{
    const char* file;
    int line;
    const char* reason;
};

constinit thread_local Site site __attribute__((tls_model("initial-exec"))) = {};

// Runs any callable as a guarded call.
template <class Body>
bool Guarded(Body body)
{
    return Platform::CallGuarded([](void* call) { (*static_cast<Body*>(call))(); }, &body);
}

// For a frame in which this thread was stopped: what the library's innards hold for it is given back.
void RecoverLibrary() noexcept
{
    RecoverAllocAfterFault();
    if (PStringCache* cache = PString::Cache())
        cache->RecoverAfterFault();
    Platform::SuspendGuard::Forget();
}

void WriteLog(LogClient* client, const char* text)
{
    if (LogClient::Wants(client, LogClient::Err))
        client->Write(LogClient::Err, "%s", text);
}

void EndLog()
{
    try
    {
        Log::Shutdown(false);
    }
    catch (const Exception&)
    {
        Log::Shutdown(true);
    }
}

void ShowReportFailed()
{
    Guarded(
        []
        {
            Platform::ShowMessage(Platform::MessageKind::Error, "Fatal Error",
                                  "An error occurred trying to display the fatal error window!");
        });
}

} // namespace

// ---- the protected entry

int ExceptionHandler::Main(int (*function)(void*), void* argument)
{
    if (ignore.load(std::memory_order_relaxed))
        return 0;
    Call call = {function, argument};
    int result = 0;
    const auto body = [](void* data)
    {
        const Call& inner = *static_cast<Call*>(data);
        return MainTryCatch(inner.function, inner.argument);
    };
    if (!Platform::CallProtected(body, &call, &FilterException, result))
        RecoverLibrary();
    return result;
}

int ExceptionHandler::MainTryCatch(int (*function)(void*), void* argument)
{
    try
    {
        return function(argument);
    }
    catch (AssertEx&)
    {
        CriticalShutdown(); // it has been shown, or was not wanted
    }
    catch (Exception& failure)
    {
        ProcessException(failure);
        CriticalShutdown();
    }
    return 0;
}

Platform::FaultAnswer ExceptionHandler::FilterException(const Platform::Fault& fault) noexcept
{
    // A thread that waits here for another one's report must not keep from it what it was stopped in.
    const bool isFree = lock.TryEnter();
    if (!isFree && fault.code != Platform::FaultThrown)
    {
        Platform::ReleaseHeldLocks(0);
        RecoverLibrary();
    }
    const Platform::LockGuard guard(lock);
    if (isFree)
        lock.Leave(); // once is enough
    Platform::FaultAnswer answer = Platform::FaultAnswer::Abandon;
    if (!ignore.load(std::memory_order_relaxed))
    {
        const AllocReportScope arena(AllocReportScope::AfterFault);
        const bool isWhole = Guarded(
            [&]
            {
                CriticalShutdown();
                auto* failure = new (hardwareExceptionBlock) HardwareException(const_cast<Platform::Fault*>(&fault));
                if (ProcessException(*failure) == 0)
                    answer = Platform::FaultAnswer::GoOn;
            });
        if (!isWhole)
        {
            RecoverLibrary();
            ShowReportFailed();
        }
    }
    return answer;
}

// ---- the report

int ExceptionHandler::ProcessException(Exception& failure)
{
    if (!isPromptAssertions.load(std::memory_order_relaxed))
        return 1;
    const Platform::LockGuard guard(lock);
    if (ignore.load(std::memory_order_relaxed))
        return 1;
    const AllocReportScope arena;
    if (!Guarded([] { WriteLog(client, "Exception ..."); }))
    {
        RecoverLibrary();
        Log::Shutdown(true);
    }
    ++reports;
    int result = 1;
    const bool isWhole = Guarded(
        [&]
        {
            InitExceptionDialog(&reportDialog, failure);
            result = reportDialog.Show();
        });
    if (!isWhole)
    {
        if (reports == 1)
            reportDialog.Clear();
        RecoverLibrary();
        ShowReportFailed();
        result = 1;
    }
    --reports;
    if (result == 1)
        ignore.store(true, std::memory_order_relaxed);
    return result;
}

// The report goes on without a log that cannot take it.
void ExceptionHandler::LogReportLine(const char* line)
{
    try
    {
        WriteLog(client, line);
    }
    catch (const Exception&)
    {
        Log::Shutdown(true);
    }
}

void ExceptionHandler::InitExceptionDialog(void* dialog, Exception& failure)
{
    static_cast<ReportDialog*>(dialog)->Init(failure, LogReportLine, EndLog);
}

void ExceptionHandler::LogLine(void* dialog, void*, const char* format, ...)
{
    std::va_list args;
    va_start(args, format);
    static_cast<ReportDialog*>(dialog)->VLogLine(LogReportLine, format, args);
    va_end(args);
}

// ---- assertions

void ExceptionHandler::AssertInit(const char* file, int line, const char* reason) noexcept
{
    site = {file, line, reason};
}

bool ExceptionHandler::Assert(const char* format, ...)
{
    AssertEx failure(site.file, site.line, site.reason);
    if (!isPromptAssertions.load(std::memory_order_relaxed))
        throw failure;
    std::va_list args;
    va_start(args, format);
    failure.VSetDescriptionf(format, args);
    va_end(args);
    if (ProcessException(failure) == 0)
        return true;
    throw failure;
}

void ExceptionHandler::SetAssertions(bool prompt) noexcept
{
    isPromptAssertions.store(prompt, std::memory_order_relaxed);
}

// ---- emergency hooks

namespace
{

constinit Platform::Lock hookLock; // guards the list and the runs over it; not held while a hook runs
constinit unsigned int lastHookId = 0;

} // namespace

constinit ExceptionHandler::Shutdown* ExceptionHandler::criticalShutdown = nullptr;
constinit ExceptionHandler::HookRun* ExceptionHandler::hookRuns = nullptr;

/// A thread's way along the hooks. Who removes the hook that comes next moves `next` on.
struct ExceptionHandler::HookRun
{
    explicit HookRun(std::uint32_t id) noexcept : next(criticalShutdown), outer(hookRuns), thread(id)
    {
        hookRuns = this;
    }
    ~HookRun()
    {
        const Platform::LockGuard guard(hookLock);
        HookRun** link = &hookRuns;
        while (*link != this)
            link = &(*link)->outer;
        *link = outer;
    }
    HookRun(const HookRun&) = delete;
    HookRun& operator=(const HookRun&) = delete;

    /// Calls the next hook; false if there is none.
    bool Step()
    {
        Shutdown hook;
        {
            const Platform::LockGuard guard(hookLock);
            if (!next)
                return false;
            hook = *next;
            next = hook.next;
        }
        hook.function(hook.data);
        return true;
    }

    Shutdown* next;
    HookRun* outer;
    std::uint32_t thread;
};

unsigned int ExceptionHandler::AddCriticalShutdown(int (*function)(void*), void* data) noexcept
{
    auto* hook = new Shutdown;
    if (!hook)
        return 0;
    const Platform::LockGuard guard(hookLock);
    if (++lastHookId == 0)
        ++lastHookId;
    *hook = {data, function, criticalShutdown, lastHookId};
    criticalShutdown = hook;
    return hook->id;
}

void ExceptionHandler::RemoveCriticalShutdown(unsigned int id) noexcept
{
    Shutdown* hook;
    {
        const Platform::LockGuard guard(hookLock);
        Shutdown** link = &criticalShutdown;
        while (*link && (*link)->id != id)
            link = &(*link)->next;
        hook = *link;
        if (!hook)
            return;
        *link = hook->next;
        for (HookRun* run = hookRuns; run; run = run->outer)
            if (run->next == hook)
                run->next = hook->next;
    }
    delete hook;
}

void ExceptionHandler::CriticalShutdown()
{
    const std::uint32_t self = Platform::CurrentThreadId();
    hookLock.Enter();
    // A hook that fails under a `Main` of its own does not run the hooks within the hooks.
    bool isWithin = hookRuns && !criticalShutdown;
    for (const HookRun* run = hookRuns; run; run = run->outer)
        isWithin = isWithin || run->thread == self;
    if (isWithin)
    {
        hookLock.Leave();
        return;
    }
    HookRun run(self);
    hookLock.Leave();
    if (!Guarded([] { WriteLog(client, "Critical Shutdown ..."); }))
    {
        RecoverLibrary();
        Log::Shutdown(true);
    }
    bool isLeft = true;
    while (isLeft)
        if (!Guarded([&] { isLeft = run.Step(); }))
        {
            RecoverLibrary();
            Guarded([] { WriteLog(client, "Critical Shutdown failure!"); });
            isLeft = false;
        }
}

} // namespace Zem
