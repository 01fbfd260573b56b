// The protected entry within one process; the kinds of failure and their fates stand in CrashMatrixTest.cpp. What ends
// in "Terminate" is for good, so it happens in children.

#include <Bedrock/host/AssertEx.h>
#include <Bedrock/host/ExceptionHandler.h>
#include <Bedrock/memory/AllocReport.h>
#include <Bedrock/memory/PString.h>
#include <Bedrock/memory/PStringCache.h>
#include <Bedrock/memory/String.h>
#include <Bedrock/platform/Lock.h>
#include <Bedrock/threads/Thread.h>

#include "host/Faults.h"
#include "support/Child.h"

#include <cstdlib>
#include <functional>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <thread>
#include <unistd.h>

namespace
{

using namespace Zem;

std::string calls; // of the hooks

int Note(void* name)
{
    calls += static_cast<const char*>(name);
    return 1; // of no interest
}

void* Name(const char* text)
{
    return const_cast<char*>(text);
}

// Without prompts, so that failures end their frames and nothing else.
class ExceptionHandlerTest : public testing::Test
{
protected:
    ExceptionHandlerTest()
    {
        calls.clear();
        ExceptionHandler::SetAssertions(false);
    }
    ~ExceptionHandlerTest() override { ExceptionHandler::SetAssertions(true); }

    static int Fail(void*) { throw Exception("Test", 1, "fails"); }
    static int Seven(void*) { return 7; }
};

TEST_F(ExceptionHandlerTest, HooksRunTheYoungestFirstAndStay)
{
    const unsigned a = ExceptionHandler::AddCriticalShutdown(Note, Name("a"));
    const unsigned b = ExceptionHandler::AddCriticalShutdown(Note, Name("b"));
    const unsigned c = ExceptionHandler::AddCriticalShutdown(Note, Name("c"));
    EXPECT_TRUE(a != 0 && b != 0 && c != 0 && a != b && b != c && a != c);
    EXPECT_EQ(ExceptionHandler::Main(Fail, nullptr), 0);
    EXPECT_EQ(ExceptionHandler::Main(Seven, nullptr), 7);
    EXPECT_EQ(ExceptionHandler::Main([](void*) -> int { throw 5; }, nullptr), 0);
    EXPECT_EQ(calls, "cbacba");
    ExceptionHandler::RemoveCriticalShutdown(b);
    ExceptionHandler::RemoveCriticalShutdown(b);
    ExceptionHandler::RemoveCriticalShutdown(0);
    ExceptionHandler::Main(Fail, nullptr);
    EXPECT_EQ(calls, "cbacbaca");
    ExceptionHandler::RemoveCriticalShutdown(a);
    ExceptionHandler::RemoveCriticalShutdown(c);
    ExceptionHandler::Main(Fail, nullptr);
    EXPECT_EQ(calls, "cbacbaca");
}

// A hook may remove itself, the one that would come next, and add one, which has its turn at the next failure.
TEST_F(ExceptionHandlerTest, HooksChangeTheListTheyAreOn)
{
    static unsigned self, next, added;
    const unsigned last = ExceptionHandler::AddCriticalShutdown(Note, Name("z"));
    next = ExceptionHandler::AddCriticalShutdown(Note, Name("n"));
    const auto change = [](void*)
    {
        calls += "s";
        ExceptionHandler::RemoveCriticalShutdown(next);
        ExceptionHandler::RemoveCriticalShutdown(self);
        added = ExceptionHandler::AddCriticalShutdown(Note, Name("+"));
        return 0;
    };
    self = ExceptionHandler::AddCriticalShutdown(change, nullptr);
    ExceptionHandler::Main(Fail, nullptr);
    EXPECT_EQ(calls, "sz");
    ExceptionHandler::Main(Fail, nullptr);
    EXPECT_EQ(calls, "sz+z");
    ExceptionHandler::RemoveCriticalShutdown(added);
    ExceptionHandler::RemoveCriticalShutdown(last);
}

// A hook that fails within a protected call of its own does not start the hooks anew.
TEST_F(ExceptionHandlerTest, HooksWithinHooks)
{
    const unsigned last = ExceptionHandler::AddCriticalShutdown(Note, Name("z"));
    const auto nested = [](void*)
    {
        calls += "n";
        calls += std::to_string(ExceptionHandler::Main(Fail, nullptr));
        calls += std::to_string(ExceptionHandler::Main(
            [](void*) -> int
            {
                ::Test::WriteAt(0);
                return 1;
            },
            nullptr));
        return 0;
    };
    const unsigned id = ExceptionHandler::AddCriticalShutdown(nested, nullptr);
    EXPECT_EQ(ExceptionHandler::Main(Fail, nullptr), 0);
    EXPECT_EQ(calls, "n00z");
    ExceptionHandler::RemoveCriticalShutdown(id);
    ExceptionHandler::RemoveCriticalShutdown(last);
}

TEST_F(ExceptionHandlerTest, NestedCallsEndOnlyThemselves)
{
    const auto outer = [](void*) { return 10 + ExceptionHandler::Main(Fail, nullptr); };
    EXPECT_EQ(ExceptionHandler::Main(outer, nullptr), 10);
    const auto faulting = [](void*)
    {
        return 20 + ExceptionHandler::Main(
                        [](void*)
                        {
                            ::Test::Divide();
                            return 1;
                        },
                        nullptr);
    };
    EXPECT_EQ(ExceptionHandler::Main(faulting, nullptr), 20);
}

// Without prompts an assertion is thrown as it stands, its format not looked at.
TEST_F(ExceptionHandlerTest, AssertionWithoutPrompts)
{
    const auto body = [](void*)
    {
        try
        {
            ExceptionHandler::AssertInit("Site.cpp", 33, "a < b");
            ExceptionHandler::Assert("%s", reinterpret_cast<const char*>(16));
        }
        catch (AssertEx& failure)
        {
            EXPECT_STREQ(failure.Class(), "Assertion");
            EXPECT_STREQ(failure.File(), "Site.cpp");
            EXPECT_EQ(failure.Line(), 33);
            EXPECT_STREQ(failure.Reason(), "a < b");
            EXPECT_STREQ(failure.Description(), "No call stack available\r\n");
            throw;
        }
        return 1;
    };
    EXPECT_EQ(ExceptionHandler::Main(body, nullptr), 0);
    int evaluated = 0;
    EXPECT_TRUE(ZEM_ASSERT(++evaluated == 1, "is %d", evaluated));
    EXPECT_EQ(evaluated, 1);
}

// Each thread has its own site.
TEST_F(ExceptionHandlerTest, AssertionsOfSeveralThreads)
{
    std::thread threads[4];
    for (int i = 0; i < 4; ++i)
        threads[i] = std::thread(
            [i]
            {
                for (int round = 0; round < 200; ++round)
                    try
                    {
                        ExceptionHandler::AssertInit("Here", 1000 * i + round, "fails");
                        std::this_thread::yield();
                        ExceptionHandler::Assert("x");
                    }
                    catch (Exception& failure)
                    {
                        EXPECT_EQ(failure.Line(), 1000 * i + round);
                    }
            });
    for (auto& thread : threads)
        thread.join();
}

// ---- what a fault leaves behind in the library

TEST_F(ExceptionHandlerTest, LibraryWorksAfterFaults)
{
    const auto body = [](void* way)
    {
        String text("kept");
        PString interned("kept");
        for (int i = 0; i < 50; ++i)
            text += "and more, until it does not fit into what it had";
        static_cast<void (*const*)()>(way)[0]();
        return 1;
    };
    void (*ways[])() = {[] { ::Test::WriteAt(0); }, ::Test::Divide, ::Test::Illegal, [] { throw 3; }};
    const std::uint32_t used = AllocReportScope::Used();
    for (int round = 0; round < 50; ++round)
        for (auto& way : ways)
        {
            const ::Test::LeakAllowed allowed; // the texts of the abandoned frames
            EXPECT_EQ(ExceptionHandler::Main(body, &way), 0);
            EXPECT_EQ(PString("kept"), PString(String("kept")));
        }
    EXPECT_EQ(AllocReportScope::Used(), used); // reports use the arena and leave nothing in it
    EXPECT_EQ(Platform::HeldLocks(), 0u);
}

// A thread that is stopped in the middle of the string cache keeps it from nobody.
TEST_F(ExceptionHandlerTest, StringCacheAfterAFaultWithin)
{
    const PString before("before");
    const auto body = [](void*)
    {
        PStringCache::Lock();
        ::Test::WriteAt(0);
        return 1;
    };
    EXPECT_EQ(ExceptionHandler::Main(body, nullptr), 0);
    std::thread([&] { EXPECT_EQ(PString("before"), before); }).join();
    EXPECT_EQ(ExceptionHandler::Main([](void*) -> int { throw 1; }, nullptr), 0);
    EXPECT_EQ(PString("before"), before);
}

TEST_F(ExceptionHandlerTest, ThreadsEndAndFailApart)
{
#if TEST_TSAN
    GTEST_SKIP() << "ThreadSanitizer loses jump targets below the stack of signals";
#endif
    const auto end = [](void*) -> unsigned int
    {
        ExceptionHandler::Main([](void*) -> int { Thread::End(77); }, nullptr);
        return 1;
    };
    const auto fault = [](void*) -> unsigned int
    {
        ::Test::ReadAt(0);
        return 1;
    };
    for (int round = 0; round < 5; ++round)
    {
        Thread ending(end, nullptr, true);
        Thread failing(fault, nullptr, true);
        EXPECT_EQ(ending.Terminate(), 77u);
        EXPECT_EQ(failing.Terminate(), 0u);
    }
    EXPECT_EQ(ExceptionHandler::Main(Fail, nullptr), 0); // the handlers are as they were
}

// ---- answered reports, in children

// Runs a child whose report is answered so; what it wrote to standard error.
std::string Reported(const char* answer, const std::function<int()>& body, int expected)
{
    char name[] = "/tmp/bedrock-report-XXXXXX";
    const int file = mkstemp(name);
    unlink(name);
    const pid_t child = ::Test::Fork(
        [&]
        {
            dup2(file, 2);
            setenv("BEDROCK_REPORT", answer, 1);
            ExceptionHandler::SetAssertions(true);
            return body();
        });
    EXPECT_EQ(::Test::WaitFor(child), expected);
    std::string text(65536, '\0');
    const ssize_t length = pread(file, text.data(), text.size(), 0);
    close(file);
    text.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
    return text;
}

TEST_F(ExceptionHandlerTest, RowsOfAReport)
{
    const auto assertion = []
    {
        const auto body = [](void*)
        {
            ExceptionHandler::AssertInit("Map.cpp", 12, "index < count");
            return ExceptionHandler::Assert("100%% of %s\r\n \r\nlast", "it") ? 4 : 5;
        };
        return ExceptionHandler::Main(body, nullptr);
    };
    EXPECT_EQ(Reported("continue", assertion, 4),
              "Fatal Error: A fatal error has occured.\nFile: Map.cpp\nLine: 12\nClass: Assertion\n"
              "Reason: index < count\n100% of it\n \nlast\n");

    const auto fault = []
    {
        return ExceptionHandler::Main(
            [](void*)
            {
                ::Test::Divide();
                return 1;
            },
            nullptr);
    };
    const std::string report = Reported("terminate", fault, 0);
    EXPECT_EQ(report.find("Fatal Error: A fatal error has occured.\nClass: Hardware\nReason: Integer Divide By Zero\n"
                          " \nException @ "),
              0u)
        << report;
    EXPECT_NE(report.find("\nRecoverable exception: Yes\n"), std::string::npos);
}

TEST_F(ExceptionHandlerTest, TerminateIsForGood)
{
    static int ran;
    const auto body = []
    {
        ran = 0;
        const auto count = [](void*) { return ++ran; };
        const auto asserting = [](void*)
        {
            ExceptionHandler::AssertInit("a", 1, "b");
            return ExceptionHandler::Assert("c") ? 1 : 2;
        };
        int result = ExceptionHandler::Main(asserting, nullptr);
        result += ExceptionHandler::Main(count, nullptr);
        Thread thread([](void*) -> unsigned int { return static_cast<unsigned>(++ran); }, nullptr, true);
        result += static_cast<int>(thread.Terminate());
        ExceptionHandler::SetAssertions(false);
        result += ExceptionHandler::Main(count, nullptr);
        return 100 * ran + result;
    };
    const std::string report = Reported("terminate", body, 0);
    EXPECT_EQ(report.find("Class: Assertion"), report.rfind("Class: Assertion")) << report;
}

// "Continue" on an exception ends its frame all the same, and everything else goes on.
TEST_F(ExceptionHandlerTest, ContinueAfterAnException)
{
    const auto body = []
    {
        int result = 0;
        for (int round = 0; round < 3; ++round)
            result += ExceptionHandler::Main(Fail, nullptr) + ExceptionHandler::Main(Seven, nullptr);
        return result;
    };
    const std::string report = Reported("continue", body, 21);
    std::size_t count = 0;
    for (std::size_t at = 0; (at = report.find("Reason: fails", at)) != std::string::npos; ++at)
        ++count;
    EXPECT_EQ(count, 3u) << report;
}

// A foreign object that the caller of `Main` wants gets there, behind the hooks and the report.
TEST_F(ExceptionHandlerTest, ContinueHandsAForeignObjectOn)
{
    const auto body = []
    {
        try
        {
            ExceptionHandler::Main([](void*) -> int { throw std::runtime_error("mine"); }, nullptr);
        }
        catch (const std::runtime_error& failure)
        {
            return std::string(failure.what()) == "mine" ? 11 : 12;
        }
        return 13;
    };
    EXPECT_NE(Reported("continue", body, 11).find("Reason: C++ Exception  -  std::runtime_error: mine\n"),
              std::string::npos);
    Reported("terminate", body, 13);
}

} // namespace
