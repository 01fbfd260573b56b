#pragma once

// Child processes: what a test does in a copy of itself, or in another program.

#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace Test
{

/// How a child ended: its exit code, or minus the number of the signal that killed it.
inline int WaitFor(pid_t child)
{
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR)
    {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

/// Runs `body` in a forked child that ends with its result and without destructors; the child's id.
inline pid_t Fork(const std::function<int()>& body)
{
    fflush(nullptr);
    const pid_t child = fork();
    if (child == 0)
        _exit(body());
    EXPECT_GT(child, 0);
    return child;
}

/// Runs this test program anew (a fresh process with nothing inherited in memory) for one test; the child's id.
/// The child finds `argument` in the environment under BEDROCK_TEST_CHILD.
inline pid_t RunSelf(const std::string& test, const std::string& argument)
{
    fflush(nullptr);
    const pid_t child = fork();
    if (child == 0)
    {
        setenv("BEDROCK_TEST_CHILD", argument.c_str(), 1);
        const std::string filter = "--gtest_filter=" + test;
        execl("/proc/self/exe", "child", filter.c_str(), "--gtest_also_run_disabled_tests", "--gtest_brief=1", nullptr);
        _exit(127);
    }
    EXPECT_GT(child, 0);
    return child;
}

/// What the parent gave to `RunSelf`; empty in a process that no `RunSelf` started.
inline std::string ChildArgument()
{
    const char* text = getenv("BEDROCK_TEST_CHILD");
    return text ? text : "";
}

/// Output of a program (stdout) and how it ended.
struct Output
{
    std::string text;
    int result;
};

inline Output RunProgram(const std::vector<std::string>& arguments)
{
    int ends[2];
    if (pipe(ends) != 0)
        return {"", -1};
    fflush(nullptr);
    const pid_t child = fork();
    if (child == 0)
    {
        dup2(ends[1], 1);
        close(ends[0]);
        close(ends[1]);
        std::vector<char*> list;
        for (const std::string& argument : arguments)
            list.push_back(const_cast<char*>(argument.c_str()));
        list.push_back(nullptr);
        execvp(list[0], list.data());
        _exit(127);
    }
    close(ends[1]);
    Output output;
    char part[4096];
    for (ssize_t n; (n = read(ends[0], part, sizeof(part))) > 0;)
        output.text.append(part, static_cast<std::size_t>(n));
    close(ends[0]);
    output.result = WaitFor(child);
    return output;
}

} // namespace Test
