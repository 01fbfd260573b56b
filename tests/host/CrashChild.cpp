// A program that fails in the way it is told: crash-child KIND main|worker on|off
//
// What happens goes to standard error, in order: the digits of the emergency hooks, the report, then the results of the
// protected call and of a second one. The exit code is 40 and the first result.

#include <Bedrock/files/File.h>
#include <Bedrock/host/ExceptionHandler.h>
#include <Bedrock/host/Log.h>
#include <Bedrock/host/Options.h>
#include <Bedrock/memory/PString.h>
#include <Bedrock/platform/posix/SystemCalls.h>
#include <Bedrock/threads/Thread.h>

#include "host/Faults.h"

#include <atomic>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#if TEST_TSAN
// Hooks and filters here throw, which calls the heap in the middle of a fault, on purpose.
extern "C" const char* __tsan_default_options();
extern "C" const char* __tsan_default_options()
{
    return "report_signal_unsafe=0";
}
#endif

namespace
{

using namespace Zem;

void Say(const char* text)
{
    if (write(2, text, std::strlen(text)) < 0)
        _exit(3);
}

int Hook(void* name)
{
    Say(static_cast<const char*>(name));
    return 0;
}

void Smash()
{
    // Freed twice: the heap notices and ends the process; had it been written over, nothing could go on afterwards.
    void* volatile block = std::malloc(64);
    void* volatile again = block;
    std::free(block);
    std::free(again);
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
// Its constructor calls what is not there yet; the compiler must not see it.
struct Abstract
{
    Abstract() { Call(this); }
    [[gnu::noinline]] static void Call(Abstract* object)
    {
        Abstract* volatile hidden = object;
        hidden->Work();
    }
    virtual void Work() = 0;
};
struct Concrete : Abstract
{
    void Work() override {}
};
struct Other : Abstract
{
    void Work() override { Say("other"); }
};

// A failure whose own report fails.
struct Unspeakable : Exception
{
    const char* Description() const noexcept override
    {
        Test::WriteAt(0);
        return "";
    }
};
#pragma GCC diagnostic pop

ssize_t (*realWrite)(int, const void*, size_t, off_t);
std::atomic<int> arrived{0};

struct Kind
{
    const char* name;
    void (*fail)();
};

const Kind kinds[] = {
    {"none", [] {}},
    {"exception", [] { throw FileEx("Loader", 77, "Load() has failed"); }},
    {"assertion", [] { ZEM_ASSERT(arrived == 1, "%d%% of %s", 50, "it"); }},
    {"null-read", [] { Test::ReadAt(0); }},
    {"wild-write", [] { Test::WriteAt(UINTPTR_MAX / 16 * 3); }},
    {"null-jump", [] { Test::JumpTo(0); }},
    {"division", [] { Test::Divide(); }},
    {"illegal", [] { Test::Illegal(); }},
    {"cut-mapping", [] { Test::Truncated(); }},
    {"breakpoint", [] { Test::Breakpoint(); }},
    {"overflow", [] { Test::Overflow(1); }},
    {"smashed-heap", [] { Smash(); }},
    {"pure-virtual",
     []
     {
         if (arrived > 1)
             Other();
         Concrete();
     }},
    {"throw-int", [] { throw 42; }},
    {"throw-error", [] { throw std::runtime_error("cannot"); }},
    {"hook-throws", [] { Test::ReadAt(0); }},
    {"hook-faults", [] { Test::ReadAt(0); }},
    {"in-log",
     []
     {
         // The write to the file faults, with the log's lock held; the writes of the report work.
         realWrite = Platform::systemCalls.pwrite;
         Platform::systemCalls.pwrite = [](int, const void*, size_t, off_t) -> ssize_t
         {
             Platform::systemCalls.pwrite = realWrite;
             Test::WriteAt(0);
             return -1;
         };
         Log::GetClient("Crash")->Write(1, "a line");
     }},
    {"in-report", [] { throw Unspeakable(); }},
    {"two-at-once",
     []
     {
         ++arrived;
         while (arrived < 2)
         {
         }
         Test::ReadAt(0);
     }},
};

int Body(void* kind)
{
    static_cast<const Kind*>(kind)->fail();
    return 9;
}

int Five(void*)
{
    return 5;
}

unsigned int Work(void* kind)
{
    return static_cast<unsigned int>(Body(kind));
}

// The library still does its work: files, interned text, the heap behind them.
bool Works()
{
    File file;
    if (file.Open("after", File::ModeCreate | File::ModeWrite))
    {
        for (int i = 0; i < 3000; ++i)
        {
            const PString text(i % 2 ? "odd" : "even");
            file.Write(static_cast<const char*>(text), 1, text.Length());
        }
        file.Close();
        return true;
    }
    return false;
}

} // namespace

int main(int, char** arguments)
{
    Options options;
    options.ProcessRaw("-LogFile=crash.log");
    Log::Init(&options);
    const Kind* kind = kinds;
    while (std::strcmp(kind->name, arguments[1]) != 0)
        ++kind;
    void* const data = const_cast<Kind*>(kind);
    const bool isWorker = std::strcmp(arguments[2], "worker") == 0;
    ExceptionHandler::SetAssertions(std::strcmp(arguments[3], "on") == 0);

    ExceptionHandler::AddCriticalShutdown(Hook, const_cast<char*>("1"));
    if (std::strcmp(kind->name, "hook-throws") == 0)
        ExceptionHandler::AddCriticalShutdown([](void*) -> int { throw 1; }, nullptr);
    if (std::strcmp(kind->name, "hook-faults") == 0)
        ExceptionHandler::AddCriticalShutdown([](void*) { return Test::WriteAt(0), 0; }, nullptr);
    ExceptionHandler::AddCriticalShutdown(Hook, const_cast<char*>("2"));

    int result;
    if (std::strcmp(kind->name, "two-at-once") == 0)
    {
        Thread first(Work, data, true);
        Thread second(Work, data, true);
        result = static_cast<int>(first.Terminate() + second.Terminate());
    }
    else if (isWorker)
    {
        Thread thread(Work, data, true);
        result = static_cast<int>(thread.Terminate());
    }
    else
        result = ExceptionHandler::Main(Body, data);

    char text[64];
    std::snprintf(text, sizeof text, "=%d,%d\n", result, ExceptionHandler::Main(Five, nullptr));
    Say(text);
    if (!Works())
        return 3;
    _exit(40 + result);
}
