#include "LogSupport.h"

#include <Bedrock/files/File.h>
#include <Bedrock/host/Exception.h>
#include <Bedrock/platform/Debug.h>
#include <Bedrock/platform/Process.h>

#include "support/Child.h"
#include "support/FaultPlan.h"

#include <cerrno>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

namespace
{

using ::Test::FaultPlan;
using ::Test::logBanner;
using Zem::File;
using Zem::Log;
using Zem::LogClient;
using Zem::Options;

class LogFile : public ::Test::FreshLog
{
};

std::string debugged; // what reached the debugger

struct Debugged
{
    Debugged()
    {
        debugged.clear();
        Zem::Platform::SetDebugSinkForTest([](const char* text) { debugged += text; });
    }
    ~Debugged() { Zem::Platform::SetDebugSinkForTest(nullptr); }
};

// Text with each prefix of client "C" at level 2 as a "#".
std::string Shortened(std::string text)
{
    const std::string pattern = "? XXXXXXXX Warn MMM:SS.S C               : ";
    const auto fits = [&](std::size_t at)
    {
        for (std::size_t i = 0; i < pattern.size(); ++i)
        {
            const char c = text[at + i];
            const char p = pattern[i];
            if (p == 'X'   ? !std::strchr("0123456789ABCDEF", c)
                : p == 'M' ? !std::strchr(" 0123456789", c)
                : p == 'S' ? c < '0' || c > '9'
                           : c != p)
                return false;
        }
        return true;
    };
    for (std::size_t at = 0; at + pattern.size() <= text.size(); ++at)
        if (fits(at))
            text.replace(at, pattern.size(), "#");
    return text;
}

// The writer's pattern.
void Say(LogClient* client, int level, const char* message)
{
    if (client != nullptr && client->threshold >= level && client->outputs != 0 && !LogClient::disabled)
    {
        client->level = level;
        client->OutputString("%s", message);
    }
}

TEST_F(LogFile, ALineTellsWhoWhenAndHowBad)
{
    Start("");
    const struct
    {
        const char* name;
        int level;
        const char* start; // up to the minutes, behind the thread
        const char* name15;
    } rows[] = {
        {"ExceptionHandler", 1, "! @ Err  ", "ExceptionHandle"},
        {"Loader", 2, "? @ Warn ", "Loader         "},
        {"FifteenLetters!", 3, "+ @ Diag ", "FifteenLetters!"},
        {"x", 4, "- @ Prog ", "x              "},
        {"", 0, "  @ None ", "               "},
    };
    char thread[16];
    std::snprintf(thread, sizeof thread, "%08X", Zem::Platform::CurrentThreadId());
    for (const auto& row : rows)
    {
        LogClient* const client = Log::GetClient(row.name);
        client->level = row.level;
        client->OutputString("message %d of %s", row.level, "five");
        const float now = Log::CurLogTime();
        const std::string line = Lines(Body()).back();
        std::string start = row.start;
        start.replace(start.find('@'), 1, thread);
        ASSERT_EQ(line.substr(0, 16), start);
        EXPECT_EQ(line.substr(24),
                  std::string(" ") + row.name15 + " : message " + std::to_string(row.level) + " of five");
        // The time is that of the clock, in minutes and seconds.
        EXPECT_EQ(line[19], ':');
        EXPECT_EQ(line[22], '.');
        EXPECT_NEAR(std::stof(line.substr(16, 3)) * 60 + std::stof(line.substr(20, 4)), now, 0.5F) << line;
    }
    const float seconds = Log::CurLogSeconds();
    EXPECT_NEAR(std::remainder(Log::CurLogTime() - seconds, 60.0F), 0, 0.1);
    EXPECT_EQ(Log::GetBedrockBuildVersion(), 1.3F);
}

TEST_F(LogFile, AClientTakesItsThresholdAndItsOutputsFromTheOption)
{
    const struct
    {
        const char* option;
        int threshold;
        unsigned outputs, format;
    } rows[] = {
        {"-Unrelated", 2, 3, 3},
        {"+Log=C:Diag", 3, 3, 3},
        {"+Log=c:none", 0, 3, 3},
        {"+Log=C:ERR:mono=off", 1, 1, 3},
        {"+Log=C:prog:file=OFF:window", 4, 10, 3},
        {"+Log=C:newlines=off:displaymodulename=off", 2, 3, 0},
        {"+Log=C:mono=off:mono=on", 2, 3, 3},
        {"+Log=C:mono=off:mono=of", 2, 3, 3},
        {"+Log=C:file=off:mono=off", 2, 0, 3},
        {"+Log=C:mono =off:Warning:Err=1::=file=off", 2, 2, 3},
        {"+Log=A:Prog,::C:::Diag:, ,B:None", 3, 3, 3},
        {"+Log=C:Diag +Log=C:mono=off", 3, 1, 3},
        {"-Log=C:Diag -Log=D:Err", 2, 3, 3},
        {"-Log='C:Diag\n , C:window'", 3, 11, 3},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.option);
        Start(row.option);
        LogClient* const client = Log::GetClient("c");
        EXPECT_EQ(client, Log::GetClient("C"));
        EXPECT_EQ(client->threshold, row.threshold);
        EXPECT_EQ(client->outputs, row.outputs);
        EXPECT_EQ(client->format, row.format);
        for (int level = 0; level <= 4; ++level)
            EXPECT_EQ(LogClient::Wants(client, level), level <= row.threshold && row.outputs != 0) << level;
    }
    EXPECT_FALSE(LogClient::Wants(nullptr, 0));
}

TEST_F(LogFile, EachOutputGetsTheWholeMessageOrNothing)
{
    const std::string longText(3000, 'x');
    const struct
    {
        const char* option;
        std::string message;
        std::string inFile, inDebugger; // the prefix, which is 46 characters, as a "#"
    } rows[] = {
        {"-Log=C", "m", "#m\r\n", "#m\r\n"},
        {"-Log=C:mono=off", "m", "#m\r\n", ""},
        {"-Log=C:file=off", "m", "", "#m\r\n"},
        {"-Log=C:file=off:mono=off", "m", "", ""},
        {"-Log=C:displaymodulename=off", "m", "m\r\n", "m\r\n"},
        {"-Log=C:displaymodulename=off", "", "\r\n", "\r\n"},
        {"-Log=C:newlines=off", "m", "#m", "#m"},
        {"-Log=C:newlines=off:displaymodulename=off", "m", "m", "m"},
        {"-Log=C:newlines=off:displaymodulename=off", "", "", ""},
        {"-Log=C", longText, "#" + longText + "\r\n", "#" + longText + "\r\n"},
        {"-Log=C", std::string(8192, 'y'), "#" + std::string(8192, 'y') + "\r\n",
         "#" + std::string(8192, 'y') + "\r\n"},
        {"-Log=C", std::string(8193, 'y'), "#\r\n", "#\r\n"},
        {"-Log=C", "%s %n", "#%s %n\r\n", "#%s %n\r\n"},
        {"-Log=C:Err", "dropped by the writer", "", ""},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(std::string(row.option) + " " + row.message.substr(0, 40));
        const Debugged sink;
        Start(row.option);
        LogClient* const client = Log::GetClient("C");
        Say(client, 2, row.message.c_str());
        EXPECT_EQ(Shortened(Body()), row.inFile);
        EXPECT_EQ(Shortened(debugged), row.inDebugger);
        // The same by the call that takes the level along.
        if (LogClient::Wants(client, 2))
            client->Write(2, "%s", row.message.c_str());
        EXPECT_EQ(Shortened(Body()), row.inFile + row.inFile);
    }
    // Every length around the end of the line's room on the stack.
    Start("-Log=C:mono=off");
    std::string expected;
    for (std::size_t length = 960; length < 1030; ++length)
    {
        Say(Log::GetClient("C"), 2, std::string(length, 'z').c_str());
        expected += "#" + std::string(length, 'z') + "\r\n";
    }
    EXPECT_EQ(Shortened(Body()), expected);
}

TEST_F(LogFile, BeginsAndEndsAsItShould)
{
    LogClient* client = Log::GetClient("C");
    Start("-LogFile=other.log -Log=C:displaymodulename=off");
    Say(client, 1, "one");
    Log::Init(nullptr); // nothing
    Log::Done();
    EXPECT_EQ(Content("other.log"), logBanner + "Begin:\r\none\r\nEnd.\r\n");
    EXPECT_EQ(client->format, 3u); // as new
    EXPECT_EQ(Log::GetClient("c"), client);
    Say(client, 1, "to the debugger alone");
    Log::Done();
    EXPECT_EQ(Content("other.log"), logBanner + "Begin:\r\none\r\nEnd.\r\n");

    Start("");
    client->format = LogClient::newlines;
    Say(client, 1, "one");
    Log::Shutdown(false);
    Say(client, 1, "to the debugger alone");
    Log::Init(nullptr); // a log that was shut down stays so
    Log::Shutdown(false);
    Log::Done();
    EXPECT_EQ(Content(), logBanner + "Begin:\r\none\r\nShutdown.\r\n");

    // Flushing off: an error leaves the process at once, other lines when they are many, or at the end.
    Start("-LogFlush");
    client->format = LogClient::newlines;
    Say(client, 2, "waits");
    EXPECT_EQ(Body(), "");
    Say(client, 1, "does not");
    EXPECT_EQ(Body(), "waits\r\ndoes not\r\n");
    Say(client, 2, "lost");
    Log::Shutdown(true);
    EXPECT_EQ(Body(), "waits\r\ndoes not\r\n");
    Start("-LogFlush=off");
    client->format = LogClient::newlines;
    for (int i = 0; i < 10000; ++i)
        Say(client, 2, "many");
    EXPECT_GT(Body().size(), 6u * 10000 - 20000);
    Log::Done();
    EXPECT_EQ(Body("End.\r\n").size(), 6u * 10000);
}

TEST_F(LogFile, NoLog)
{
    Start("-NoLog=off"); // the key counts, not its value
    EXPECT_TRUE(LogClient::disabled);
    EXPECT_EQ(Content(), logBanner + "Log Disabled.\r\n");
    LogClient* const client = Log::GetClient("C");
    Say(client, 1, "dropped by the writer");
    client->Write(1, "not tested");
    Log::Done();
    EXPECT_EQ(Content(), logBanner + "Log Disabled.\r\n");

    Start("-LogFile=no/such/folder -Log=C:Prog");
    EXPECT_TRUE(LogClient::disabled);
    EXPECT_EQ(client->threshold, 4);

    EXPECT_THROW(Start("-NoLog -LogFile=no/such/folder"), Zem::FileEx);
    Reset();
    Options options;
    Log::Init(&options); // it has not begun yet
    EXPECT_EQ(Body(), "");
}

// Each call of the system in turn fails. A failure is thrown, the lock is free again, and the log goes on or ends.
TEST_F(LogFile, FailuresOfTheDiskAreToldAndLeaveTheLogUsable)
{
    LogClient* const client = Log::GetClient("C");
    for (int n = 1;; ++n)
    {
        Start("-Log=C:displaymodulename=off:mono=off");
        std::string expected;
        bool reached = false;
        bool threw = false;
        {
            const FaultPlan plan(FaultPlan::Fail, n, ENOSPC);
            for (const char* word : {"a", "b", "c"})
                try
                {
                    client->Write(1, "%s", word);
                    expected += std::string(word) + "\r\n";
                }
                catch (const Zem::FileEx&)
                {
                    threw = true;
                    expected += std::string(word) + "\r\n"; // it stays pending, or is there and not committed
                }
            reached = plan.Reached();
        }
        EXPECT_EQ(threw, reached) << n;
        Log::Done();
        EXPECT_EQ(Body("End.\r\n"), expected) << n;
        if (!reached)
            break;
        ASSERT_LT(n, 50);
    }
    // At the end, too: it is told, and the file is closed.
    for (const bool done : {true, false})
    {
        Start("-LogFlush=off");
        client->Write(2, "a");
        {
            const FaultPlan plan(FaultPlan::FailFrom, 1, EIO);
            if (done)
                EXPECT_THROW(Log::Done(), Zem::FileEx);
            else
                EXPECT_THROW(Log::Shutdown(false), Zem::FileEx);
            EXPECT_EQ(plan.OpenHandles(), -1);
        }
        client->Write(2, "to the debugger alone");
        EXPECT_EQ(Body(), "");
    }
    // At the start: the next try may succeed.
    Reset();
    {
        const FaultPlan plan(FaultPlan::FailFrom, 5, ENOSPC);
        EXPECT_THROW(Log::Init(nullptr), Zem::FileEx);
        EXPECT_EQ(plan.OpenHandles(), 0);
    }
    Log::Init(nullptr);
    EXPECT_EQ(Body(), "");
}

// What the files below the log have to tell when nobody can catch it.
TEST_F(LogFile, LossesAreTold)
{
    Start("-Log=File:displaymodulename=off");
    try
    {
        File file;
        ASSERT_TRUE(file.Open("f", File::ModeCreate | File::ModeWrite));
        file.Write("a", 1, 1);
        struct Restore
        {
            FaultPlan plan{FaultPlan::Fail, 1, ENOSPC};
        } restore;
        struct Destroyed
        {
            ~Destroyed() { file.~File(), new (&file) File; }
            File& file;
        } destroyed{file};
        throw 1;
    }
    catch (int)
    {
    }
    EXPECT_EQ(Body(), "f: WriteBuffer(void) Writing failed\r\n");

    // An append that fails is taken back.
    Start("-Log=File:displaymodulename=off");
    ::Test::WriteFile("a.arc", std::string());
    File::Subst("arc", "a.arc", true);
    const auto store = [](const char* name)
    {
        File file;
        (void)file.Open(name, File::ModeCreate | File::ModeWrite); // where it fails, writing throws
        file.Write("abc", 3, 1);
        file.Close();
    };
    store("arc:one");
    const auto before = ::Test::ReadFile("a.arc");
    int told = 0;
    for (int n = 1;; ++n)
    {
        bool reached = false;
        bool threw = false;
        {
            const FaultPlan plan(FaultPlan::Fail, n, ENOSPC);
            try
            {
                store("arc:two");
            }
            catch (const Zem::FileEx&)
            {
                threw = true;
            }
            reached = plan.Reached();
        }
        if (!reached)
            break;
        ASSERT_LT(n, 100);
        if (!threw)
            ::Test::WriteFile("a.arc", before);
        const std::string body = Body();
        EXPECT_EQ(::Test::ReadFile("a.arc"), before) << body;
        told = static_cast<int>(Lines(body).size());
        for (const std::string& line : Lines(body))
            EXPECT_EQ(line, "a.arc: storing two failed, and the archive was taken back to what it held before");
    }
    EXPECT_GE(told, 3); // cutting, writing and the wait for the disk
    File::Subst("arc", nullptr, false);
}

} // namespace
