// Every kind of failure, on the main thread and on a worker, with the report answered in either way and without one:
// what the user sees, in which order, what the log keeps, how the process ends, and that nothing hangs.

#include "host/Faults.h"
#include "support/Support.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <vector>

namespace
{

enum Fate
{
    Thrown,    // an Exception: the hooks come behind the dialog
    Fault,     // the hooks come before it, and "Continue" leaves the rest to the system
    Assertion, // "Continue" goes on
};

struct Kind
{
    const char* name;
    Fate fate;
    const char* reason;
    int signal; // that ends the process where nobody wants the failure
    const char* more = "";
};

const Kind kinds[] = {
    {"exception", Thrown, "Load() has failed", 0, "Line: 77"},
    {"assertion", Assertion, "arrived == 1", 0, "50% of it"},
    {"null-read", Fault, "Access Violation", SIGSEGV, "Call Stack:"},
    {"wild-write", Fault, "Access Violation", SIGSEGV},
    {"null-jump", Fault, "Access Violation", SIGSEGV},
    {"division", Fault, "Integer Divide By Zero", SIGFPE},
    {"illegal", Fault, "Illegal Instruction", SIGILL},
    {"cut-mapping", Fault, "In Page Error", SIGBUS},
    {"breakpoint", Fault, "Breakpoint", SIGTRAP},
    {"overflow", Fault, "Stack Overflow", SIGSEGV},
    {"smashed-heap", Fault, "Unknown Exception - 40000015h", SIGABRT},
    {"pure-virtual", Fault, "Unknown Exception - 40000015h", SIGABRT},
    {"throw-int", Fault, "C++ Exception  -  int", SIGABRT},
    {"throw-error", Fault, "C++ Exception  -  std::runtime_error: cannot", SIGABRT},
    {"hook-throws", Fault, "Access Violation", SIGSEGV},
    {"hook-faults", Fault, "Access Violation", SIGSEGV},
    {"in-log", Fault, "Access Violation", SIGSEGV},
    {"in-report", Thrown, "", 0},
    {"two-at-once", Fault, "Access Violation", SIGSEGV},
};

const char* const places[] = {"main", "worker"};
const char* const answers[] = {"off", "terminate", "continue"};

struct Child
{
    const Kind* kind;
    const char* place;
    std::string answer;
    pid_t id;
    std::chrono::steady_clock::time_point end;
    std::string directory;
    int status;
    bool isLate;
};

std::string Content(const std::string& path)
{
    std::string text;
    if (FILE* file = std::fopen(path.c_str(), "rb"))
    {
        char part[4096];
        for (std::size_t n; (n = std::fread(part, 1, sizeof part, file)) > 0;)
            text.append(part, n);
        std::fclose(file);
    }
    return text;
}

void Start(Child& child)
{
    mkdir(child.directory.c_str(), 0777);
    child.end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    child.isLate = false;
    fflush(nullptr);
    child.id = fork();
    ASSERT_GE(child.id, 0);
    if (child.id != 0)
        return;
    if (chdir(child.directory.c_str()) != 0)
        _exit(126);
    const int trace = open("trace", O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0666);
    dup2(trace, 2);
    setenv("BEDROCK_REPORT", child.answer.c_str(), 1);
    const char* prompts = child.answer == "off" ? "off" : "on";
    execl(CRASH_CHILD, "crash-child", child.kind->name, child.place, prompts, nullptr);
    _exit(127);
}

/// How a child must end where the system has the failure. A sanitizer's handlers were there first, and end it their way.
bool IsSystemsEnd(int status, int signal)
{
    if (TEST_ASAN && (signal == SIGSEGV || signal == SIGBUS || signal == SIGFPE))
        return WIFEXITED(status) && WEXITSTATUS(status) == 1;
    return WIFSIGNALED(status) && WTERMSIG(status) == signal;
}

/// What the user sees, shortened: the hooks' digits, D for a report, M for the message that it failed, the results.
std::string Shorten(const std::string& trace)
{
    const std::string report = "Fatal Error: A fatal error has occured.";
    const std::string sorry = "An error occurred trying to display the fatal error window!";
    std::string line, shortened;
    for (const char c : trace + "\n")
    {
        if (c != '\n')
        {
            line += c;
            continue;
        }
        std::size_t hooks = 0;
        while (hooks < line.size() && (line[hooks] == '1' || line[hooks] == '2'))
            ++hooks;
        const std::string rest = line.substr(hooks);
        const bool isResult = rest.size() > 1 && rest[0] == '=' && rest[1] != '=';
        if (rest.empty() || isResult || rest.find(report) == 0 || rest.find("Fatal Error: ") == 0)
            shortened += line.substr(0, hooks);
        if (rest.find(report) == 0)
            shortened += 'D';
        else if (rest.find(sorry) != std::string::npos)
            shortened += 'M';
        else if (isResult)
            shortened += rest;
        line.clear();
    }
    return shortened;
}

void Check(const Child& child)
{
    const Kind& kind = *child.kind;
    const std::string name = kind.name;
    const bool isShown = child.answer != "off";
    const bool goesOn = child.answer == "continue";
    const std::string trace = Content(child.directory + "/trace");
    const std::string log = Content(child.directory + "/crash.log");
    SCOPED_TRACE(name + " on " + child.place + ", " + child.answer + "\n" + trace + "\n---- log\n" + log);
    ASSERT_FALSE(child.isLate) << "hangs";

    std::string hooks = name == "hook-throws" || name == "hook-faults" ? "2" : "21";
    std::string expected;
    bool isSystems = false;
    switch (kind.fate)
    {
    case Thrown:
        expected = (isShown ? "D" : "") + hooks + (isShown && !goesOn ? "=0,0" : "=0,5");
        if (name == "in-report" && isShown)
            expected = "M21=0,0"; // the answer to the message counts as "Terminate"
        break;
    case Fault:
        isSystems = goesOn;
        if (name == "two-at-once" && !isShown)
            expected = hooks + hooks + "=0,5";
        else
            expected = hooks + (!isShown ? "=0,5" : goesOn ? "D" : "D=0,0");
        break;
    case Assertion:
        expected = !isShown ? hooks + "=0,5" : goesOn ? "D=9,5" : "D" + hooks + "=0,0";
        break;
    }
    if (name == "two-at-once" && goesOn) // the other one's report may begin before the process has ended
        EXPECT_EQ(Shorten(trace).substr(0, 3), expected);
    else
        EXPECT_EQ(Shorten(trace), expected);
    if (isSystems)
    {
        EXPECT_TRUE(IsSystemsEnd(child.status, kind.signal)) << child.status;
    }
    else
    {
        const int result = kind.fate == Assertion && goesOn ? 9 : 0;
        EXPECT_TRUE(WIFEXITED(child.status) && WEXITSTATUS(child.status) == 40 + result) << child.status;
    }

    // The log: the hooks' line, then, if there is a report, its rows and the end.
    const auto has = [&](const std::string& text) { return log.find(text) != std::string::npos; };
    EXPECT_TRUE(has("Begin:\r\n"));
    EXPECT_EQ(has("Exception ...\r\n"), isShown);
    EXPECT_EQ(has("Critical Shutdown ...\r\n"), kind.fate == Fault || !isShown || name == "in-report");
    EXPECT_EQ(has("Critical Shutdown failure!\r\n"), hooks == "2");
    if (isShown && *kind.reason)
    {
        EXPECT_TRUE(has(std::string("Reason: ") + kind.reason + "\r\n"));
        EXPECT_NE(trace.find(std::string("Reason: ") + kind.reason + "\n"), std::string::npos);
        EXPECT_TRUE(has(kind.more));
        const std::string end = "Shutdown.\r\n";
        EXPECT_EQ(log.substr(log.size() - std::min(log.size(), end.size())), end);
    }
}

/// Runs all children, several at a time.
void RunAll(std::vector<Child>& children)
{
    constexpr std::size_t atOnce = 4;
    std::vector<Child*> running;
    std::size_t next = 0;
    while (next < children.size() || !running.empty())
    {
        while (next < children.size() && running.size() < atOnce)
        {
            Start(children[next]);
            running.push_back(&children[next++]);
        }
        for (auto it = running.begin(); it != running.end();)
        {
            Child& child = **it;
            if (!child.isLate && std::chrono::steady_clock::now() > child.end)
            {
                child.isLate = true;
                kill(child.id, SIGKILL);
            }
            if (waitpid(child.id, &child.status, WNOHANG) == child.id)
                it = running.erase(it);
            else
                ++it;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

class CrashMatrix : public testing::TestWithParam<const char*>
{
};

TEST_P(CrashMatrix, EveryKindOnEveryThread)
{
    const std::string answer = GetParam();
    if (TEST_TSAN && answer == "continue")
        GTEST_SKIP() << "ThreadSanitizer keeps a process that faults from ending";
    const ::Test::Directory directory;
    std::vector<Child> children;
    std::string skipped;
    for (const Kind& kind : kinds)
    {
        const std::string name = kind.name;
        if (((TEST_ASAN || TEST_TSAN) && (name == "smashed-heap" || name == "overflow")) ||
            (TEST_TSAN && (name == "hook-faults" || name == "two-at-once")))
        {
            skipped += " " + name;
            continue;
        }
        for (const char* place : places)
            if (TEST_TSAN && place == places[1] && kind.fate == Fault &&
                name.find("throw-") != 0) // it loses jump targets below the stack of signals
                skipped += " " + name + "-" + place;
            else
                children.push_back({&kind, place, answer, 0, {}, directory / (name + "-" + place), 0, false});
    }
    RunAll(children);
    for (const Child& child : children)
        Check(child);
    if (!skipped.empty())
        std::printf("left to the sanitizer:%s\n", skipped.c_str());
}

INSTANTIATE_TEST_SUITE_P(Answers, CrashMatrix, testing::ValuesIn(answers),
                         [](const auto& row) { return std::string(row.param); });

} // namespace
