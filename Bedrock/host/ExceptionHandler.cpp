#include <Bedrock/host/ExceptionHandler.h>

#include <Bedrock/host/AssertEx.h>
#include <Bedrock/host/HardwareException.h>
#include <Bedrock/host/ReportDialog.h>
#include <Bedrock/memory/AllocReport.h>
#include <Bedrock/memory/HeapOperators.h>
#include <Bedrock/memory/PStringCache.h>
#include <Bedrock/platform/Fault.h>
#include <Bedrock/platform/Lock.h>
#include <Bedrock/platform/ReportDialog.h>

#include <atomic>
#include <cstdarg>

namespace Zem
{

/// An emergency hook. Its fields stand in the order in which debuggers' scripts expect them.
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

void RecoverLibrary()
{
    RecoverAllocAfterFault();
    if (PStringCache* cache = PStringCache::Instance())
        cache->RecoverAfterFault();
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
    if (!lock.TryEnter())
    {
        if (fault.code != Platform::FaultThrown)
        {
            Platform::ReleaseHeldLocks(0);
            RecoverLibrary();
        }
        lock.Enter();
    }
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
            ShowReportFailed();
    }
    lock.Leave();
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
        ShowReportFailed();
        result = 1;
    }
    --reports;
    if (result == 1)
        ignore.store(true, std::memory_order_relaxed);
    return result;
}

void ExceptionHandler::InitExceptionDialog(void* dialog, Exception& failure)
{
    static_cast<ReportDialog*>(dialog)->Init(
        failure, [](const char*) {}, [] {});
}

void ExceptionHandler::LogLine(void* dialog, void*, const char* format, ...)
{
    std::va_list args;
    va_start(args, format);
    static_cast<ReportDialog*>(dialog)->VLogLine([](const char*) {}, format, args);
    va_end(args);
}

// ---- emergency hooks

namespace
{

constinit Platform::Lock hookLock; // guards the list and the runs; not held while a hook runs
constinit std::atomic<bool> isShuttingDown{false};

} // namespace

constinit ExceptionHandler::Shutdown* ExceptionHandler::criticalShutdown = nullptr;
constinit ExceptionHandler::HookRun* ExceptionHandler::hookRuns = nullptr;

/// A run over the hooks: it stands between two of them while one is called, and whoever removes the next one moves it.
struct ExceptionHandler::HookRun
{
    Shutdown* next;
    HookRun* outer;
    std::uint32_t thread;
};
