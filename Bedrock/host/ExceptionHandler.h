#pragma once

#include <Bedrock/Export.h>
#include <Bedrock/host/Exception.h>

#include <cstdint>

namespace Zem::Platform
{
struct Fault;
enum class FaultAnswer;
} // namespace Zem::Platform

namespace Zem
{

class LogClient;

/// The outermost frame of every thread: what is thrown out of it or faults within it ends the frame and not the process.
///
/// A failure runs the emergency hooks, is shown in a dialog with the buttons "Continue" and "Terminate", and is written
/// to the log, which ends with it. What comes then:
///
///     failure                                   hooks               after the dialog
///     an `Exception`                            after the dialog    `Main` returns 0
///     a fault, or any other thrown object       before the dialog   Terminate: `Main` returns 0; Continue: the next
///                                                                   outer handler, a debugger or the system has it
///     an assertion, "Continue"                  none                the program goes on
///     an assertion, "Terminate"                 after the dialog    `Main` returns 0
///     an assertion with `SetAssertions(false)`  yes, no dialog      `Main` returns 0
///
/// "Terminate" ends the frame that failed, and from then on no `Main` runs its function and no failure is reported: the
/// application ends in its own way. With `SetAssertions(false)` no dialog is shown for any failure, as if it were
/// answered by "Terminate", but later calls of `Main` run.
///
/// Destructors run for thrown objects. After a fault they cannot: what the abandoned code held stays held, apart from
/// locks of the library itself. After a fault within the heap, end the process soon.
///
/// Threads: failures can arrive on all threads at once; they are reported one after the other. Hooks run on the thread
/// that failed, while others go on running.
///
///     int Run(void* argument) { return static_cast<Game*>(argument)->Play(); }
///     int main() { Game game; return ExceptionHandler::Main(&Run, &game); }
class ZEM_API ExceptionHandler
{
public:
    ExceptionHandler() = delete;

    /// Runs `function(argument)` under protection; calls nest. `function` must not be `noexcept`: what is thrown out of
    /// such a function ends the process.
    /// Returns: its result; 0 if it failed, and, without a call, after "Terminate" has been chosen once.
    static int Main(int (*function)(void*), void* argument);

    /// Notes the site of a failed assertion for the `Assert` that follows on this thread. The texts are kept by pointer.
    static void AssertInit(const char* file, int line, const char* reason) noexcept;

    /// Reports a failed assertion, with the formatted text as its description. The caller runs under some `Main`.
    /// Returns: true: the user chose to go on. Otherwise it throws what ends the frame of `Main`.
    static bool Assert(const char* format, ...) ZEM_PRINTF(1, 2);

    /// Whether failures are shown; true at first.
    static void SetAssertions(bool prompt) noexcept;

    /// Adds an emergency hook: `function(data)` is called when a frame ends by a failure, the hook added last first, and
    /// again at the next failure. A hook that fails ends the run of hooks. It runs where the program broke: it saves what
    /// it can and waits for nobody. After an exception the objects of the function under `Main` are gone already, so `data`
    /// outlives them, or their destructor removes the hook. The result of `function` is not used.
    /// Returns: the hook's id; 0 if there is no memory, and then it is not added.
    static unsigned int AddCriticalShutdown(int (*function)(void*), void* data) noexcept;

    /// Removes a hook, from within a hook too; an unknown id is ignored.
    static void RemoveCriticalShutdown(unsigned int id) noexcept;

    /// Fills the list of the report's dialog with a failure, and ends the log. `dialog` is the platform's.
    static void InitExceptionDialog(void* dialog, Exception& failure);

    /// Adds the lines of a text to the dialog's list and to the log.
    static void LogLine(void* dialog, void* deviceContext, const char* format, ...) ZEM_PRINTF(3, 4);

private:
    struct Shutdown;
    struct HookRun;
    struct Call;

    static int MainTryCatch(int (*function)(void*), void* argument);
    static Platform::FaultAnswer FilterException(const Platform::Fault& fault) noexcept;
    static int ProcessException(Exception& failure);
    static void CriticalShutdown();
    static void LogReportLine(const char* line);

    static LogClient* const client;
    static Shutdown* criticalShutdown; // the hooks, the one added last first
    static HookRun* hookRuns;
};

} // namespace Zem

/// Tests a condition that the program relies on; the rest is a format with its arguments that tells more. False goes to
/// `ExceptionHandler::Assert`. The value is true when the program goes on.
///
///     ZEM_ASSERT(index < count, "index %d of %d", index, count);
#define ZEM_ASSERT(condition, ...)                                                                                     \
    ((condition) || (::Zem::ExceptionHandler::AssertInit(__FILE__, __LINE__, #condition),                              \
                     ::Zem::ExceptionHandler::Assert(__VA_ARGS__)))
