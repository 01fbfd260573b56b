// Where options come from: files, the environment, the command line, their order, and the history of a value.

#include <Bedrock/files/File.h>
#include <Bedrock/host/Exception.h>
#include <Bedrock/host/Options.h>
#include <Bedrock/memory/AllocReport.h>

#include "support/Child.h"
#include "support/FaultPlan.h"
#include "support/Support.h"

#include <cerrno>
#include <filesystem>
#include <map>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace
{

using Test::Directory;
using Test::FaultPlan;
using Test::WriteFile;
using Zem::File;
using Zem::Options;
using Zem::String;

std::string Text(const char* text)
{
    return text ? text : "";
}

std::string Value(const Options& options, const char* key)
{
    String value;
    return options.Get(key, value) ? Text(value) : "(absent)";
}

// All that is known of a value, newest first: "kind name=value", "+=" where it was appended.
std::string History(const Options& options, const char* key)
{
    std::string text;
    Options::Origin origin;
    for (std::uint32_t back = 0; options.GetOrigin(key, origin, back); ++back)
        text += (back ? " < " : "") + std::string(1, "EFCT"[origin.kind]) + Text(origin.name) +
                (origin.appended ? "+=" : "=") + Text(origin.value);
    return text;
}

class Variable
{
public:
    Variable(const char* variable, const char* value) : name(variable) { setenv(name, value, 1); }
    ~Variable() { unsetenv(name); }

private:
    const char* name;
};

TEST(OptionSources, TheNearestToTheUserWins)
{
    const Directory here;
    std::filesystem::create_directory("bin");
    const Variable general("Options", "-a=env -b=env -c=env -d=env -e=env +l=1");
    const Variable own("AppOptions", "-b=own -c=own -d=own -e=own +l=2");
    WriteFile("bin/AppOptions.txt", std::string("-c=there\n-d=there\n-e=there\n+l=3\n"));
    WriteFile("AppOptions.txt", std::string("-d=here -e=here\n+l=4"));
    const char* arguments[] = {"bin/app", "-e=arg", "+l=5", "-Title=Hello", "World"};
    Options options;
    options.Init("App", 5, const_cast<char**>(arguments));
    EXPECT_EQ(Value(options, "a"), "env");
    EXPECT_EQ(Value(options, "b"), "own");
    EXPECT_EQ(Value(options, "c"), "there");
    EXPECT_EQ(Value(options, "d"), "here");
    EXPECT_EQ(Value(options, "e"), "arg");
    EXPECT_EQ(Value(options, "l"), "1,2,3,4,5");
    EXPECT_EQ(Value(options, "title"), "Hello World");
    EXPECT_EQ(Value(options, "bin/app"), ""); // the program's name is an argument too
    EXPECT_EQ(History(options, "e"),
              "C=arg < FAppOptions.txt=here < Fbin/AppOptions.txt=there < EAppOptions=own < EOptions=env");
    EXPECT_EQ(History(options, "l"), "C+=1,2,3,4,5 < FAppOptions.txt+=1,2,3,4 < Fbin/AppOptions.txt+=1,2,3 < "
                                     "EAppOptions+=1,2 < EOptions=1");
}

TEST(OptionSources, HistoryAgreesWithAModel)
{
    auto random = ::Test::Random(2);
    for (int round = 0; round < 2000; ++round)
    {
        Options options;
        struct Setting
        {
            std::string source, value;
            bool appended;
        };
        std::map<std::string, std::vector<Setting>> model; // newest last
        const char* const names[] = {"OptA", "OptB", "OptC"};
        for (int step = 0; step < 12; ++step)
        {
            const std::string source = names[random() % 3];
            std::string text;
            for (std::size_t n = 1 + random() % 3; n > 0; --n)
            {
                const std::string key(1, static_cast<char>('a' + random() % 2));
                const std::string value = random() % 4 ? std::to_string(random() % 1000) : "";
                const bool plus = random() % 2;
                text += (plus ? " +" : " -") + key + "=" + (value.empty() ? "''" : value);
                auto& settings = model[key];
                const std::string old = settings.empty() ? "" : settings.back().value;
                const bool append = plus && !old.empty();
                const std::string joined = append ? old + "," + value : value;
                if (settings.empty() || settings.back().source != "E" + source)
                    settings.push_back({"E" + source, joined, append});
                else
                    settings.back() = {"E" + source, joined, append && settings.back().appended};
            }
            const Variable variable(source.c_str(), text.c_str());
            options.ProcessEnv(source.c_str());
        }
        for (const auto& [key, settings] : model)
        {
            std::string expected;
            for (auto at = settings.rbegin(); at != settings.rend(); ++at)
                expected +=
                    (at == settings.rbegin() ? "" : " < ") + at->source + (at->appended ? "+=" : "=") + at->value;
            ASSERT_EQ(History(options, key.c_str()), expected);
        }
        Options::Origin origin;
        EXPECT_FALSE(options.GetOrigin("absent", origin));
        EXPECT_FALSE(options.GetOrigin("a", origin, 100));
    }
}

TEST(OptionSources, FilesPlainCompressedBinaryAndAbsent)
{
    const Directory here;
    std::string text;
    for (int i = 0; i < 50000; ++i)
        text += "-Key" + std::to_string(i) + "=value " + std::to_string(i) + "\n";
    WriteFile("plain", text);
    File file;
    ASSERT_TRUE(file.Open("packed", File::ModeCreate | File::ModeWriteCompressed));
    file.Write(text.data(), text.size(), 1);
    file.Close();
    ASSERT_LT(std::filesystem::file_size("packed"), text.size() * 3 / 4);
    WriteFile("zero", std::string("-a=1 -b\0-c=2", 12));
    WriteFile("empty", std::string());
    std::filesystem::create_directory("folder");

    for (const char* name : {"plain", "packed"})
    {
        Options options;
        options.ProcessFile(name);
        EXPECT_EQ(options.Count(), 50000u) << name;
        EXPECT_EQ(Value(options, "key49999"), "value 49999") << name;
    }
    Options options;
    options.ProcessFile("zero");
    options.ProcessFile("empty");
    options.ProcessFile("folder");
    options.ProcessFile("absent");
    options.ProcessFile("");
    options.ProcessFile(nullptr);
    options.ProcessEnv("ABSENT_IN_THIS_PROCESS");
    options.ProcessEnv(nullptr);
    options.ProcessRaw(nullptr);
    options.ProcessCmdLine(0, nullptr);
    EXPECT_EQ(options.Count(), 2u);
    EXPECT_EQ(History(options, "b"), "Fzero=");
}

// Each call of the system in turn fails: all of the file is taken or nothing, and a failure to read is told.
TEST(OptionSources, AFileThatCannotBeReadChangesNothing)
{
    const Directory here;
    WriteFile("plain", "-a=1 -b=" + std::string(100000, 'x'));
    for (int n = 1;; ++n)
    {
        Options options;
        options.ProcessRaw("-a=0");
        bool threw = false;
        bool reached = false;
        {
            const FaultPlan plan(FaultPlan::Fail, n, EIO);
            try
            {
                options.ProcessFile("plain");
            }
            catch (const Zem::FileEx&)
            {
                threw = true;
            }
            reached = plan.Reached();
            EXPECT_EQ(plan.OpenHandles(), 0) << plan.What();
        }
        ASSERT_TRUE(Value(options, "a") == "1" ? !threw : options.Count() == 1) << n;
        if (!reached)
        {
            EXPECT_EQ(options.Count(), 2u);
            break;
        }
        ASSERT_LT(n, 100);
    }
}

// The heap is exhausted at each request in turn: what is there is a value that somebody gave.
TEST(OptionSources, AnExhaustedHeapLeavesWholeValues)
{
    for (std::uint32_t after = 0;; ++after)
    {
        Options options;
        options.ProcessRaw("-a=old -c=1");
        const Variable variable("OptA", "-a=new +c=2222222222222222222222222222222222222222 -d=3 +a=4");
        bool failed = false;
        {
            const Zem::AllocFailureForTest failure(after);
            options.ProcessEnv("OptA");
            failed = Zem::AllocFailureForTest::HasFailed();
        }
        const std::string a = Value(options, "a");
        EXPECT_TRUE(a == "old" || a == "new" || a == "old,4" || a == "new,4") << a;
        const std::string c = Value(options, "c");
        EXPECT_TRUE(c == "1" || c == "1,2222222222222222222222222222222222222222") << c;
        Options::Origin origin;
        for (std::uint32_t back = 0; options.GetOrigin("a", origin, back); ++back)
            EXPECT_NE(Text(origin.value), "");
        if (!failed)
        {
            EXPECT_EQ(a + " " + Value(options, "d"), "new,4 3");
            break;
        }
        ASSERT_LT(after, 200u);
    }
}

// A copy of this program under another name and in another place, run for the test of the same name below.
int RunCopy(const std::string& path, const std::string& folder, mode_t mode, const std::string& test)
{
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::filesystem::copy_file("/proc/self/exe", path, std::filesystem::copy_options::overwrite_existing);
    if (mode & S_ISUID)
    {
        EXPECT_EQ(chown(path.c_str(), 65534, 65534), 0);
    }
    EXPECT_EQ(chmod(path.c_str(), mode), 0);
    return ::Test::WaitFor(::Test::Fork(
        [&]
        {
            if (chdir(folder.c_str()) != 0)
                return 126;
            const std::string filter = "--gtest_filter=" + test;
            execl(path.c_str(), "copy", filter.c_str(), "--gtest_also_run_disabled_tests", "--gtest_brief=1", nullptr);
            return 127;
        }));
}

TEST(OptionSources, DISABLED_OneCommandLine)
{
    Options options;
    options.Init("App", "-b=line");
    const char* expected = std::getenv("EXPECTED");
    EXPECT_EQ(Value(options, "a") + " " + Value(options, "b"), expected ? expected : "");
}

// With one command line the first file is named after the program and lies beside it; the second is the working folder's.
TEST(OptionSources, OneCommandLine)
{
    const Directory here;
    const struct
    {
        const char* program;
        const char* own; // its option file
    } rows[] = {{"v1.2/run.exe", "v1.2/runOptions.txt"},
                {"v1.2/run.test.exe", "v1.2/runOptions.txt"},
                {"v1.2/a.b.c.exe", "v1.2/a.bOptions.txt"},
                {"v1.2/run", "v1.2/runOptions.txt"}};
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.program);
        std::filesystem::create_directory("v1.2");
        WriteFile(row.own, std::string("-a=own -b=own"));
        WriteFile("AppOptions.txt", std::string("+a=here"));
        WriteFile("v1.2/AppOptions.txt", std::string("-a=wrong"));
        const std::string program = here / row.program;
        const struct
        {
            std::string folder;
            const char* expected;
        } runs[] = {{here.Path().string(), "own,here line"}, {here / "v1.2", "own line"}};
        for (const auto& run : runs)
        {
            const Variable expected("EXPECTED", run.expected);
            EXPECT_EQ(RunCopy(program, run.folder, 0755, "OptionSources.DISABLED_OneCommandLine"), 0);
        }
        std::filesystem::remove_all("v1.2");
    }
}

TEST(OptionSources, DISABLED_RaisedPrivileges)
{
    if (geteuid() == getuid())
        _exit(77); // the system does not raise them here
    Options options;
    options.ProcessEnv("Options");
    EXPECT_EQ(options.Count(), 0u);
}

TEST(OptionSources, RaisedPrivilegesSeeNoEnvironment)
{
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the sanitizer does not start in such a process";
#endif
    if (getuid() != 0)
        GTEST_SKIP() << "only root can make a program of another user";
    const Directory here;
    std::filesystem::permissions(here.Path(), std::filesystem::perms::all);
    const Variable variable("Options", "-a=1");
    const int result = RunCopy(here / "raised", here.Path().string(), 04755, "OptionSources.DISABLED_RaisedPrivileges");
    if (result == 77)
        GTEST_SKIP() << "this file system raises nobody";
    EXPECT_EQ(result, 0);
}

} // namespace
