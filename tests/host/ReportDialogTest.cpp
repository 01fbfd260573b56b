#include <Bedrock/host/ReportDialog.h>
#include <Bedrock/platform/ReportDialog.h>

#include "support/Child.h"
#include "support/Support.h"

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <malloc.h>
#include <pty.h>
#include <sys/resource.h>
#include <thread>

namespace
{

using namespace Zem;

std::string logged; // by the test's own log

void Log(const char* line)
{
    logged += line;
    logged += '\n';
}

void EndLog()
{
    logged += "(end)";
}

Exception Failure(const char* file, int line, const char* reason, const char* description)
{
    Exception failure(file, line, reason);
    failure.SetDescriptionf("%s", description);
    return failure;
}

// The rows of a report, in order; each is a group, and the log gets the same lines and is ended behind the last.
TEST(ReportDialog, ListsTheFailureLineByLine)
{
    const struct
    {
        const char* what;
        Exception failure;
        const char* list;
    } rows[] = {
        {"all rows", Failure("File", 12, "Read() File is not open", "No call stack available\r\n"),
         "File: File\n\nLine: 12\n\nClass: Unknown\n\nReason: Read() File is not open\n\nNo call stack available\n\n"},
        {"no file, no line", Failure(nullptr, 0, "Access Violation", " \r\nCall Stack:\r\n \r\n"),
         "Class: Unknown\n\nReason: Access Violation\n\n \nCall Stack:\n \n\n"},
        {"an empty file, a line below 0", Failure("", -1, "", ""), "Class: Unknown\n\nReason: \n\n"},
        {"a percent sign", Failure(nullptr, 0, "100%s", "50%n of\r\n\r\n\n\r%d"),
         "Class: Unknown\n\nReason: 100%s\n\n50%n of\n%d\n\n"},
    };
    static constinit ReportDialog dialog;
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.what);
        logged.clear();
        dialog.Init(row.failure, Log, EndLog);
        EXPECT_STREQ(dialog.Text(), row.list);
        EXPECT_EQ(dialog.Length(), std::strlen(row.list));
        std::string lines = std::string(row.list) + "(end)";
        for (std::size_t at; (at = lines.find("\n\n")) != std::string::npos;)
            lines.erase(at, 1);
        EXPECT_EQ(logged, lines);
        dialog.Clear();
    }
}

TEST(ReportDialog, CutsATextAndEndsAReportThatIsTooLong)
{
    static constinit ReportDialog dialog;
    logged.clear();
    dialog.LogLine(Log, "%s", std::string(10000, 'x').c_str());
    EXPECT_EQ(dialog.Text(), std::string(8191, 'x') + "\n\n");
    std::string expected = logged;
    for (int i = 0; i < 8; ++i)
        dialog.LogLine(Log, "%d%s", i, std::string(8190, 'y').c_str());
    const std::string list(dialog.Text(), dialog.Length());
    EXPECT_EQ(list.substr(list.size() - 37), "\nThe report is longer than the list.\n");
    EXPECT_LE(list.size(), ReportDialog::ListSize);
    EXPECT_EQ(logged.size(), 9u * 8192) << "the log has what the list has no room for";
    dialog.Clear();
    EXPECT_EQ(dialog.Length(), 0u);
}

// ------------------------------------------------------------------------------------------- the dialog's executable

// A directory with a shell script in the place of the dialog.
class ReportHelper : public testing::Test
{
protected:
    void Script(const std::string& body)
    {
        std::ofstream(directory / "helper") << "#!/bin/sh\n" << body << "\n";
        std::filesystem::permissions(directory / "helper", std::filesystem::perms::owner_all);
    }

    // The answer that a child process gets after `prepare`; its standard error is in the file "errors".
    int Answer(const std::function<void()>& prepare = {}, const std::string& report = "A report\n")
    {
        const std::string script = directory / "helper";
        return ::Test::WaitFor(::Test::Fork(
            [&]
            {
                const int errors = open("errors", O_CREAT | O_TRUNC | O_WRONLY, 0600);
                dup2(errors, 1);
                dup2(errors, 2);
                unsetenv("BEDROCK_REPORT");
                Platform::SetReportHelperForTest(script.c_str());
                if (prepare)
                    prepare();
                return static_cast<int>(Platform::ShowReport(report.data(), report.size()));
            }));
    }

    std::string Content(const std::string& name)
    {
        const auto bytes = ::Test::ReadFile(directory / name);
        return std::string(bytes.begin(), bytes.end());
    }

    ::Test::Directory directory;
};

constexpr const char* Unshown = "Fatal Error: A fatal error has occured.\nA report\n";

// However the dialog ends: the byte decides, else the exit code, and else the report goes to standard error.
TEST_F(ReportHelper, AnswerIsTheByteOrTheExitCodeOrTerminate)
{
    const struct
    {
        const char* what;
        const char* script;
        int answer;
        bool isShown;
    } rows[] = {
        {"continue", "printf 0 >&3", 0, true},
        {"terminate", "printf 1 >&3", 1, true},
        {"the byte goes before the code", "printf 1 >&3; exit 0", 1, true},
        {"a code of failure behind a byte", "printf 0 >&3; exit 7", 0, true},
        {"code 0 alone", "exit 0", 0, true},
        {"code 1 alone", "exit 1", 1, true},
        {"it fails", "exit 2", 1, false},
        {"it crashes", "kill -SEGV $$", 1, false},
        {"it talks nonsense", "printf x >&3; exit 9", 1, false},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.what);
        Script(row.script);
        EXPECT_EQ(Answer(), row.answer);
        EXPECT_EQ(Content("errors"), row.isShown ? "" : Unshown);
    }
    std::filesystem::remove(directory / "helper");
    EXPECT_EQ(Answer(), 1);
    EXPECT_EQ(Content("errors"), Unshown) << "no executable";
}

TEST_F(ReportHelper, GetsTheReportOnItsInputWhateverItsSize)
{
    Script("printf '%s\\n' \"$*\" >arguments; cat >got; printf 0 >&3");
    for (std::size_t size : {0u, 1u, 70000u, 300000u})
    {
        std::string report(size, 'x');
        for (std::size_t i = 0; i < size; i += 100)
            report[i] = '\n';
        EXPECT_EQ(Answer({}, report), 0);
        EXPECT_EQ(Content("got"), report);
        EXPECT_EQ(Content("arguments"), "--answer-fd 3\n");
    }
}

// What the state of a broken process may not spoil: the dialog gets its input, standard output and error that lead
// somewhere, the way for its answer if the process can make one, nothing else, and no blocked or ignored signal.
TEST_F(ReportHelper, AnswersFromAProcessInAnyState)
{
    const struct
    {
        const char* what;
        void (*prepare)();
        const char* descriptors = "0123\n";
    } rows[] = {
        {"children are collected by nobody", [] { signal(SIGCHLD, SIG_IGN); }},
        {"all signals are blocked, some ignored",
         []
         {
             sigset_t all;
             sigfillset(&all);
             sigprocmask(SIG_SETMASK, &all, nullptr);
             signal(SIGPIPE, SIG_IGN);
         }},
        {"no descriptor is left",
         []
         {
             const rlimit few = {32, 32};
             setrlimit(RLIMIT_NOFILE, &few);
             while (open("/dev/null", O_RDONLY) >= 0)
             {
             }
         },
         "012\n"},
        {"many descriptors are open",
         []
         {
             for (int fd = 0; fd < 40; ++fd)
                 (void)dup(0);
         }},
        {"no descriptor but the standard ones is open",
         []
         {
             for (int fd = 3; fd < 64; ++fd)
                 close(fd);
         }},
        {"the answer's way lies on the dialog's own descriptor",
         []
         {
             for (int fd = 3; fd < 64; ++fd)
                 close(fd);
             close(0);
         }},
        {"not even the standard ones are open",
         []
         {
             for (int fd = 0; fd < 64; ++fd)
                 close(fd);
         }},
        {"a signal arrives every millisecond",
         []
         {
             struct sigaction action = {};
             action.sa_handler = [](int) {};
             sigaction(SIGALRM, &action, nullptr);
             const itimerval often = {{0, 1000}, {0, 1000}};
             setitimer(ITIMER_REAL, &often, nullptr);
         }},
    };
    Script("grep -E 'SigBlk|SigIgn' /proc/self/status >signals; list=\n"
           "for n in 0 1 2 3 4 5 6 7 8 9; do [ -e /proc/$$/fd/$n ] && list=$list$n; done; echo $list >open\n"
           "cat >got; sleep 0.02; echo said || exit 8; echo said >&2 || exit 9\n"
           "if { printf 0 >&3; } 2>/dev/null; then exit 7; fi; exit 0");
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.what);
        EXPECT_EQ(Answer(row.prepare), 0);
        EXPECT_EQ(Content("got"), "A report\n");
        EXPECT_EQ(Content("open"), row.descriptors);
        EXPECT_EQ(Content("signals"), "SigBlk:\t0000000000000000\nSigIgn:\t0000000000000000\n");
    }
}

TEST_F(ReportHelper, SettingAnswersWithoutADialog)
{
    Script("touch started; printf 0 >&3");
    const struct
    {
        const char* setting;
        int answer;
        bool starts;
    } rows[] = {{"continue", 0, false}, {"terminate", 1, false}, {"", 0, true}, {"Continue", 0, true}};
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.setting);
        std::filesystem::remove(directory / "started");
        EXPECT_EQ(Answer([&] { setenv("BEDROCK_REPORT", row.setting, 1); }), row.answer);
        EXPECT_EQ(std::filesystem::exists(directory / "started"), row.starts);
        EXPECT_EQ(Content("errors"), row.starts ? "" : Unshown);
    }
}

// Standard error may be a terminal: what outside text holds must not drive it. Marks between groups are not shown.
TEST_F(ReportHelper, ReportOnStandardErrorIsPlainText)
{
    std::filesystem::remove(directory / "helper");
    EXPECT_EQ(Answer({}, "Class: \x1B[31mFile\n\nReason: a\tb\x7F\n\n \nlast"), 1);
    EXPECT_EQ(Content("errors"), "Fatal Error: A fatal error has occured.\nClass: ?[31mFile\nReason: a\tb?\n \nlast\n");
    // Nobody reads it: the process lives on.
    EXPECT_EQ(Answer(
                  []
                  {
                      int ends[2];
                      EXPECT_EQ(pipe(ends), 0);
                      close(ends[0]);
                      dup2(ends[1], 2);
                  }),
              1);
}

TEST_F(ReportHelper, TerminalIsAskedUntilItAnswers)
{
    const struct
    {
        const char* typed;
        int answer;
        int asked;
    } rows[] = {{"c\n", 0, 1}, {"t\n", 1, 1}, {"what?\n\n  Continue\n", 0, 3}, {"\x04", 1, 1}};
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.typed);
        int master = -1;
        const pid_t child = forkpty(&master, nullptr, nullptr, nullptr);
        if (child == 0)
        {
            unsetenv("BEDROCK_REPORT");
            Platform::SetReportHelperForTest(nullptr);
            _exit(static_cast<int>(Platform::ShowReport("A report\n", 9)));
        }
        std::string seen;
        char part[256];
        bool typed = false;
        for (ssize_t count; (count = read(master, part, sizeof(part))) > 0;)
        {
            seen.append(part, static_cast<std::size_t>(count));
            if (!typed && seen.find("[c/t] ") != std::string::npos)
            {
                typed = true;
                ASSERT_EQ(write(master, row.typed, std::strlen(row.typed)),
                          static_cast<ssize_t>(std::strlen(row.typed)));
            }
        }
        close(master);
        EXPECT_EQ(::Test::WaitFor(child), row.answer);
        int asked = 0;
        for (std::size_t at = 0; (at = seen.find("[c/t] ", at)) != std::string::npos; ++at)
            ++asked;
        EXPECT_EQ(asked, row.asked) << seen;
        EXPECT_NE(seen.find("A report\r\n"), std::string::npos) << seen;
    }
}

TEST_F(ReportHelper, MessagesAskForTheirKindOfBox)
{
    const auto message = [&](Platform::MessageKind kind, bool hasDialog)
    {
        return ::Test::WaitFor(::Test::Fork(
            [&]
            {
                dup2(open("errors", O_CREAT | O_TRUNC | O_WRONLY, 0600), 2);
                unsetenv("BEDROCK_REPORT");
                Platform::SetReportHelperForTest(hasDialog ? (directory / "helper").c_str() : nullptr);
                return Platform::ShowMessage(kind, "ZEM", "Really?") ? 0 : 1;
            }));
    };
    const struct
    {
        Platform::MessageKind kind;
        const char* option;
        int unasked;
    } rows[] = {{Platform::MessageKind::Error, "--error", 0},
                {Platform::MessageKind::Plain, "--message", 0},
                {Platform::MessageKind::Confirm, "--confirm", 1}};
    for (const auto& row : rows)
    {
        Script("printf '%s|' \"$@\" >got; cat >>got; printf 1 >&3");
        EXPECT_EQ(message(row.kind, true), 1);
        EXPECT_EQ(Content("got"), std::string("--answer-fd|3|") + row.option + "|ZEM|Really?");
        Script("printf 0 >&3");
        EXPECT_EQ(message(row.kind, true), 0);
        EXPECT_EQ(message(row.kind, false), row.unasked);
        EXPECT_EQ(Content("errors"), "ZEM: Really?\n");
    }
}

// Where a stack overflow is reported from.
TEST_F(ReportHelper, AnswersOnAStackForSignals)
{
    Script("cat >got; exit 0");
    const int result = Answer(
        []
        {
            static char stack[32768];
            const stack_t alternate = {stack, 0, sizeof(stack)};
            sigaltstack(&alternate, nullptr);
            struct sigaction action = {};
            action.sa_flags = SA_ONSTACK;
            action.sa_handler = [](int)
            {
                errno = 2;
                const int answer = static_cast<int>(Platform::ShowReport("Small\n", 6));
                _exit(40 + answer + errno); // errno is as it was
            };
            sigaction(SIGUSR1, &action, nullptr);
            raise(SIGUSR1);
        });
    EXPECT_EQ(result, 42);
    EXPECT_EQ(Content("got"), "Small\n");
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
// The heap notices its own corruption while it holds its lock, and ends the process; the handler reports from there.
TEST_F(ReportHelper, AnswersFromInsideTheBrokenHeap)
{
    Script("cat >got; printf 0 >&3");
    const int result = Answer(
        []
        {
            signal(SIGABRT, [](int) { _exit(40 + static_cast<int>(Platform::ShowReport("From the heap\n", 14))); });
            std::thread([] {}).join();                        // a process of several threads takes the heap's lock
            alarm(20);                                        // a deadlock is a failure
            volatile unsigned char* volatile block = nullptr; // the last one has the heap's rest behind it
            for (int i = 0; i < 100; ++i)
                block = static_cast<volatile unsigned char*>(malloc(100000));
            const std::size_t size =
                malloc_usable_size(const_cast<unsigned char*>(static_cast<volatile unsigned char*>(block)));
            for (std::size_t i = 0; i < sizeof(std::size_t); ++i)
                block[size + i] = 0xFF; // the size of what is behind the block
            for (int i = 0; i < 10; ++i)
                block = static_cast<volatile unsigned char*>(malloc(100000));
            _exit(99);
        });
    EXPECT_EQ(result, 40);
    EXPECT_EQ(Content("got"), "From the heap\n");
}
#endif

// A report that fails itself leaves the first one's lines alone, and says so in its own dialog.
TEST_F(ReportHelper, ReportWithinAReport)
{
    Script("cat >>got; printf '|' >>got; printf 0 >&3");
    Platform::SetReportHelperForTest((directory / "helper").c_str());
    static constinit ReportDialog dialog;
    dialog.Init(Failure(nullptr, 0, "first", ""), Log, EndLog);
    logged.clear();
    dialog.Init(Failure(nullptr, 0, "second", "inner"), Log, EndLog);
    EXPECT_EQ(logged, "");
    EXPECT_EQ(dialog.Show(), 0);
    EXPECT_EQ(dialog.Show(), 0);
    EXPECT_EQ(Content("got"), "Problem creating exception report|Class: Unknown\n\nReason: first\n\n|");
    Platform::SetReportHelperForTest(nullptr);
}

} // namespace
