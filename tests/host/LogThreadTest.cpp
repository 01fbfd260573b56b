// The log under many threads, in a process that is killed, and in one whose writer hangs.

#include "LogSupport.h"

#include <Bedrock/host/Exception.h>
#include <Bedrock/platform/Lock.h>
#include <Bedrock/platform/posix/SystemCalls.h>

#include "support/Child.h"

#include <atomic>
#include <chrono>
#include <csetjmp>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <map>
#include <semaphore>
#include <string>
#include <thread>
#include <vector>

namespace
{

using ::Test::logBanner;
using Zem::Log;
using Zem::LogClient;

class LogThreads : public ::Test::FreshLog
{
};

TEST_F(LogThreads, LinesAreWholeAndInTheOrderOfTheirThread)
{
    for (const char* option : {"-LogFlush=off -Log=a:mono=off,b:mono=off", "-Log=a:mono=off,b:mono=off"})
    {
        Start(option);
        constexpr int threads = 8;
        const int lines = option[9] == '=' ? 2000 : 100;
        std::atomic<int> ready{0};
        std::vector<std::thread> running;
        for (int t = 0; t < threads; ++t)
            running.emplace_back(
                [t, lines, &ready]
                {
                    // Half of them share a client, at two levels; clients are asked for on all threads at once.
                    ++ready;
                    while (ready < threads)
                    {
                    }
                    LogClient* const client = Log::GetClient(t % 2 ? "a" : ("own" + std::to_string(t)).c_str());
                    client->outputs = LogClient::file;
                    for (int i = 0; i < lines; ++i)
                        client->Write(1 + (t & 2) / 2, "%d %d %s", t, i, std::string(i % 1500, 'x').c_str());
                });
        for (std::thread& thread : running)
            thread.join();
        Log::Done();

        std::map<int, int> next;
        for (const std::string& line : Lines(Body("End.\r\n")))
        {
            const std::size_t colon = line.find(" : ");
            ASSERT_NE(colon, std::string::npos) << line;
            int t = -1;
            int i = -1;
            int used = 0;
            ASSERT_EQ(std::sscanf(line.c_str() + colon + 3, "%d %d %n", &t, &i, &used), 2) << line;
            ASSERT_EQ(line.substr(colon + 3 + static_cast<std::size_t>(used)), std::string(i % 1500, 'x'));
            ASSERT_EQ(line[0], t & 2 ? '?' : '!') << line;
            ASSERT_EQ(i, next[t]++) << line;
        }
        for (int t = 0; t < threads; ++t)
            EXPECT_EQ(next[t], lines);
    }
}

// Who has returned from OutputString has his line in the file, whatever happens then.
TEST_F(LogThreads, AKilledProcessLosesNoLineThatWasWritten)
{
    for (const char* option : {"", "-LogFlush=off"})
    {
        Reset();
        int ends[2];
        ASSERT_EQ(pipe(ends), 0);
        const pid_t child = ::Test::Fork(
            [&]
            {
                Start(option);
                LogClient* const client = Log::GetClient("C");
                client->format = LogClient::newlines;
                client->level =
                    *option ? LogClient::Err : LogClient::Warn; // not committed, only an error is out at once
                for (int i = 0;; ++i)
                {
                    client->OutputString("line %d", i);
                    if (write(ends[1], "", 1) != 1)
                        return 1;
                }
            });
        close(ends[1]);
        char byte;
        int written = 0;
        for (; written < 200; ++written)
            ASSERT_EQ(read(ends[0], &byte, 1), 1);
        kill(child, SIGKILL);
        EXPECT_EQ(::Test::WaitFor(child), -SIGKILL);
        while (read(ends[0], &byte, 1) == 1)
            ++written;
        close(ends[0]);

        // The last line may have been on its way, then it may be torn.
        std::string body = Body();
        body.resize(body.rfind('\n') + 1);
        const auto lines = Lines(body);
        EXPECT_GE(static_cast<int>(lines.size()), written);
        EXPECT_LE(static_cast<int>(lines.size()), written + 1);
        for (std::size_t i = 0; i < lines.size(); ++i)
            EXPECT_EQ(lines[i], "line " + std::to_string(i));
    }
}

TEST_F(LogThreads, TheEndOfTheProcessEndsTheLog)
{
    Reset();
    const pid_t child = fork();
    if (child == 0)
    {
        Start("-LogFlush=off");
        LogClient* const client = Log::GetClient("C");
        client->format = LogClient::newlines;
        client->outputs = LogClient::file;
        for (int i = 0; i < 1000; ++i)
            client->OutputString("x");
        struct Late // an application's static: it goes before the library, but what it registers goes later
        {
            ~Late() { late->OutputString("late"); }
            LogClient* late;
        };
        static Late last{client};
        std::exit(7);
    }
    EXPECT_EQ(::Test::WaitFor(child), 7);
    std::string expected;
    for (int i = 0; i < 1000; ++i)
        expected += "x\r\n";
    EXPECT_EQ(Body("End.\r\n"), expected + "late\r\n");
}

// ------------------------------------------------------------------------------------------------- a writer that hangs

std::binary_semaphore entered{0};
std::binary_semaphore released{0};
ssize_t (*realWrite)(int, const void*, size_t, off_t);

// The abrupt end comes while another thread is inside the system with the log's lock in its hands.
TEST_F(LogThreads, AnAbruptEndWaitsForNobody)
{
    Start("-LogFlush=off");
    LogClient* const client = Log::GetClient("C");
    client->format = LogClient::newlines;
    client->Write(2, "buffered");
    realWrite = Zem::Platform::systemCalls.pwrite;
    Zem::Platform::systemCalls.pwrite = [](int file, const void* data, size_t size, off_t at)
    {
        entered.release();
        released.acquire();
        return realWrite(file, data, size, at);
    };
    std::thread writer([client] { client->Write(1, "hangs"); });
    entered.acquire();
    std::thread waiting([client] { client->Write(1, "waits for the lock"); });

    Log::Shutdown(true);
    client->Write(1, "to the debugger alone"); // does not wait either
    Log::Shutdown(true);
    Log::Shutdown(false);
    EXPECT_EQ(Body(), "");

    released.release();
    writer.join();
    waiting.join();
    Zem::Platform::systemCalls.pwrite = realWrite;
    Log::Done();
    EXPECT_EQ(Body(), "buffered\r\nhangs\r\n");
    Start(""); // the file is not held any more
    EXPECT_FALSE(LogClient::disabled);
}

// A fault on a thread that holds the lock: the frame that ends it gives the lock back.
TEST_F(LogThreads, TheLockOfAnAbandonedFrameIsGivenBack)
{
    Start("");
    LogClient* const client = Log::GetClient("C");
    client->outputs = LogClient::file;
    static thread_local std::jmp_buf frame;
    realWrite = Zem::Platform::systemCalls.pwrite;
    Zem::Platform::systemCalls.pwrite = [](int, const void*, size_t, off_t) -> ssize_t { std::longjmp(frame, 1); };
    if (setjmp(frame) == 0)
        client->Write(1, "stopped inside");
    Zem::Platform::systemCalls.pwrite = realWrite;
    Zem::Platform::ReleaseHeldLocks(0);
    auto other = std::async(std::launch::async, [client] { client->Write(1, "goes on"); });
    ASSERT_EQ(other.wait_for(std::chrono::seconds(20)), std::future_status::ready);
    EXPECT_NE(Body().find("goes on"), std::string::npos);
}

} // namespace
