// The services of the process: modules, the debugger's output, readable memory, process queries.

#include <Bedrock/host/Debugger.h>
#include <Bedrock/host/DynamicLibrary.h>
#include <Bedrock/platform/Debug.h>
#include <Bedrock/threads/Thread.h>

#include "support/Child.h"
#include "support/Support.h"

#include <cmath>
#include <signal.h>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <thread>

namespace
{

using Zem::Debugger;
using Zem::DynamicLibrary;
using Zem::Thread;

struct CountingLibrary : DynamicLibrary
{
    void Close() override
    {
        ++closes;
        DynamicLibrary::Close();
    }
    int closes = 0;
};

TEST(DynamicLibrary, OpensImportsAndClosesWhatWasOpen)
{
    CountingLibrary library;
    void* symbol = &library;
    EXPECT_FALSE(library.Import(&symbol, "cos")) << "nothing is open";
    EXPECT_EQ(symbol, nullptr);

    ASSERT_TRUE(library.Open("libm.so.6"));
    double (*cosine)(double) = nullptr;
    ASSERT_TRUE(library.Import(reinterpret_cast<void**>(&cosine), "cos"));
    EXPECT_EQ(cosine(0), 1.0);
    symbol = &library;
    EXPECT_FALSE(library.Import(&symbol, "no_such_symbol"));
    EXPECT_EQ(symbol, nullptr);

    EXPECT_FALSE(library.Open("no-such-module.so"));
    EXPECT_EQ(library.closes, 1) << "through the derived class's Close, also when the second load fails";
    EXPECT_FALSE(library.Import(&symbol, "cos"));
    EXPECT_FALSE(library.Open(nullptr));
    library.Close();
}

thread_local std::string caught;

TEST(Debugger, HandsTextsToWhoeverListens)
{
    const auto writeIn = [](const char* setting, bool traced)
    {
        int ends[2];
        EXPECT_EQ(pipe(ends), 0);
        const pid_t child = ::Test::Fork(
            [&]
            {
                dup2(ends[1], STDERR_FILENO);
                setting ? setenv("BEDROCK_DEBUG_OUTPUT", setting, 1) : unsetenv("BEDROCK_DEBUG_OUTPUT");
                if (traced && ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0)
                    return 5;
                Debugger::Output("one ");
                Debugger::Output(nullptr);
                Debugger::Output("two");
                return 0;
            });
        close(ends[1]);
        std::string text;
        char part[256];
        for (ssize_t n; (n = read(ends[0], part, sizeof(part))) > 0;)
            text.append(part, static_cast<std::size_t>(n));
        close(ends[0]);
        EXPECT_EQ(::Test::WaitFor(child), 0);
        return text;
    };
    EXPECT_EQ(writeIn(nullptr, false), "") << "a quiet program stays quiet";
    EXPECT_EQ(writeIn("", false), "");
    EXPECT_EQ(writeIn("1", false), "one two");
    EXPECT_EQ(writeIn("stderr", false), "one two");
    EXPECT_EQ(writeIn(nullptr, true), "one two") << "a tracer is a debugger";

    ::Test::Directory folder;
    EXPECT_EQ(writeIn((folder / "out.txt").c_str(), false), "");
    EXPECT_EQ(writeIn((folder / "out.txt").c_str(), false), "");
    const auto bytes = ::Test::ReadFile(folder / "out.txt");
    EXPECT_EQ(std::string(bytes.begin(), bytes.end()), "one twoone two") << "appended";
    EXPECT_EQ(writeIn((folder / "no/such/folder").c_str(), false), "");

    Zem::Platform::SetDebugSinkForTest([](const char* text) { caught += text; });
    Debugger::Output("seen");
    Zem::Platform::SetDebugSinkForTest(nullptr);
    Debugger::Output("not seen");
    EXPECT_EQ(caught, "seen");
}

TEST(Debugger, TellsReadableMemoryWithoutTouchingIt)
{
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    constexpr std::size_t pages = 600;
    auto* block = static_cast<unsigned char*>(
        mmap(nullptr, pages * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(block, MAP_FAILED);
    ASSERT_EQ(mprotect(block + 2 * page, page, PROT_NONE), 0);
    ASSERT_EQ(munmap(block + (pages - 1) * page, page), 0);
    const auto size = [](std::size_t n) { return static_cast<std::uint32_t>(n); };
    const struct
    {
        const char* what;
        const void* address;
        std::uint32_t size;
        bool readable;
    } rows[] = {
        {"nothing", nullptr, 0, true},
        {"null", nullptr, 1, false},
        {"two whole pages", block, size(2 * page), true},
        {"one byte too far", block, size(2 * page + 1), false},
        {"the last byte before", block + 2 * page - 1, 1, true},
        {"across the edge", block + 2 * page - 1, 2, false},
        {"inside the closed page", block + 3 * page - 1, 1, false},
        {"many pages", block + 3 * page, size((pages - 4) * page), true},
        {"many pages and a hole at the end", block + 3 * page, size((pages - 4) * page + 1), false},
        {"past the end of addresses", reinterpret_cast<void*>(~std::uintptr_t{0} - 3), 16, false},
        {"the last byte of addresses", reinterpret_cast<void*>(~std::uintptr_t{0}), 1, false},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.what);
        errno = 77;
        EXPECT_EQ(Debugger::IsReadValid(row.address, row.size), row.readable);
        EXPECT_EQ(errno, 77);
    }
    munmap(block, (pages - 1) * page);
}

TEST(ThreadQueries, KnowThreadsAndProcesses)
{
    EXPECT_EQ(Thread::GetProcessId(), static_cast<std::uint32_t>(getpid()));
    EXPECT_EQ(Thread::GetCurrentId(), static_cast<std::uint32_t>(syscall(SYS_gettid)));
    std::uint32_t other = 0, kernels = 1;
    std::thread(
        [&]
        {
            other = Thread::GetCurrentId();
            kernels = static_cast<std::uint32_t>(syscall(SYS_gettid));
        })
        .join();
    EXPECT_EQ(other, kernels);
    EXPECT_EQ(::Test::WaitFor(
                  ::Test::Fork([] { return Thread::GetCurrentId() == static_cast<std::uint32_t>(getpid()) ? 0 : 1; })),
              0)
        << "a forked child's thread has a number of its own";

    char name[260];
    std::memset(name, 'x', sizeof(name));
    Thread::GetProcessName(name);
    EXPECT_EQ(std::string(name), std::filesystem::read_symlink("/proc/self/exe").string());
    EXPECT_EQ(name[256], 'x');
}

TEST(ThreadQueries, TellLivingProcessesFromEndedOnes)
{
    EXPECT_TRUE(Thread::IsProcessAlive(Thread::GetProcessId()));
    EXPECT_TRUE(Thread::IsProcessAlive(1)) << "also one that is not ours";
    EXPECT_FALSE(Thread::IsProcessAlive(0));
    EXPECT_FALSE(Thread::IsProcessAlive(0x7FFFFFF0));
    EXPECT_FALSE(Thread::IsProcessAlive(0xFFFFFFFF));

    const pid_t child = ::Test::Fork(
        []
        {
            pause();
            return 0;
        });
    EXPECT_TRUE(Thread::IsProcessAlive(static_cast<std::uint32_t>(child)));
    kill(child, SIGKILL);
    siginfo_t ended; // leaves it a zombie
    ASSERT_EQ(waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOWAIT), 0);
    EXPECT_FALSE(Thread::IsProcessAlive(static_cast<std::uint32_t>(child))) << "a zombie runs no more";
    EXPECT_EQ(::Test::WaitFor(child), -SIGKILL);
    EXPECT_FALSE(Thread::IsProcessAlive(static_cast<std::uint32_t>(child)));
}

} // namespace
