// Protected calls of the platform: what each way to fail is told as, and what is left of it afterwards.

#include <Bedrock/platform/Fault.h>

#include <Bedrock/platform/Lock.h>

#include "host/Faults.h"
#include "support/Child.h"

#include <atomic>
#include <csetjmp>
#include <csignal>
#include <cstring>
#include <exception>
#include <gtest/gtest.h>
#include <pthread.h>
#include <stdexcept>
#include <thread>

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
using namespace Zem::Platform;

thread_local std::uint32_t seen;
thread_local std::uintptr_t seenAddress;
thread_local int asked;

FaultAnswer Take(const Fault& fault)
{
    seen = fault.code;
    seenAddress = fault.address;
    ++asked;
    return FaultAnswer::Abandon;
}

FaultAnswer Decline(const Fault&)
{
    ++asked;
    return FaultAnswer::GoOn;
}

std::uint32_t Mxcsr()
{
    std::uint32_t value;
    __asm__ volatile("stmxcsr %0" : "=m"(value));
    return value;
}

struct Way
{
    const char* name;
    int (*body)(void*);
    std::uint32_t code;
};

template <class Body>
int Failed(Body body)
{
    body();
    return 1;
}

constexpr std::uint32_t denormalBits = 0x1;

const Way ways[] = {
    {"read null", [](void*) { return Failed([] { ::Test::ReadAt(0); }); }, FaultAccessViolation},
    {"write null", [](void*) { return Failed([] { ::Test::WriteAt(8); }); }, FaultAccessViolation},
    {"write code", [](void*) { return Failed([] { ::Test::WriteAt(reinterpret_cast<std::uintptr_t>(&Take)); }); },
     FaultAccessViolation},
    {"wild address",
     [](void*)
     { return Failed([] { ::Test::ReadAt(sizeof(void*) == 8 ? UINTPTR_MAX / 16 * 3 : UINTPTR_MAX - 4096); }); },
     FaultAccessViolation},
    {"call null", [](void*) { return Failed([] { ::Test::JumpTo(0); }); }, FaultAccessViolation},
    {"divide by zero", [](void*) { return Failed(::Test::Divide); }, FaultIntegerDivide},
    {"illegal", [](void*) { return Failed(::Test::Illegal); }, FaultIllegalInstruction},
    {"privileged", [](void*) { return Failed(::Test::Privileged); }, FaultPrivilegedInstruction},
    {"breakpoint", [](void*) { return Failed(::Test::Breakpoint); }, FaultBreakpoint},
    {"cut mapping", [](void*) { return Failed(::Test::Truncated); }, FaultInPage},
    {"float divide", [](void*) { return Failed([] { ::Test::DivideFloats(1, 0, 4); }); }, FaultFloatDivide},
    {"float invalid", [](void*) { return Failed([] { ::Test::DivideFloats(0, 0, 1); }); }, FaultFloatInvalid},
    {"float overflow", [](void*) { return Failed([] { ::Test::DivideFloats(3e38F, 1e-30F, 8); }); },
     FaultFloatOverflow},
    {"float underflow", [](void*) { return Failed([] { ::Test::DivideFloats(1e-30F, 1e30F, 16); }); },
     FaultFloatUnderflow},
    {"float denormal",
     [](void*)
     {
         return Failed(
             []
             {
                 float denormal;
                 std::memcpy(&denormal, &denormalBits, sizeof denormal);
                 ::Test::DivideFloats(denormal, 1, 2);
             });
     },
     FaultFloatDenormal},
    {"float inexact", [](void*) { return Failed([] { ::Test::DivideFloats(1, 3, 32); }); }, FaultFloatInexact},
    {"abort", [](void*) { return Failed([] { std::abort(); }); }, FaultAbort},
    {"throw", [](void*) -> int { throw 42; }, FaultThrown},
#if !TEST_ASAN && !TEST_TSAN // they keep the stack in their own hands
    {"stack overflow", [](void*) { return ::Test::Overflow(1); }, FaultStackOverflow},
#endif
};

// Every way, twice, on the calling thread: recovered from, told once, by its name, and nothing of it is left.
void FailEveryWay()
{
    for (int round = 0; round < 2; ++round)
        for (const Way& way : ways)
        {
            const std::uint32_t mxcsr = Mxcsr();
            sigset_t before, after;
            pthread_sigmask(SIG_SETMASK, nullptr, &before);
            asked = 0;
            seen = 0;
            int result = 77;
            EXPECT_FALSE(IsProtected());
            EXPECT_FALSE(CallProtected(way.body, nullptr, Take, result)) << way.name;
            EXPECT_FALSE(IsProtected());
            EXPECT_EQ(seen, way.code) << way.name;
            EXPECT_EQ(asked, 1) << way.name;
            EXPECT_EQ(result, 77) << way.name;
            EXPECT_EQ(Mxcsr() & 0x1F80, mxcsr & 0x1F80) << way.name;
            pthread_sigmask(SIG_SETMASK, nullptr, &after);
            for (int number = 1; number < 32; ++number)
                EXPECT_EQ(sigismember(&before, number), sigismember(&after, number)) << way.name << ' ' << number;
            EXPECT_EQ(std::uncaught_exceptions(), 0);
        }
}

TEST(Fault, EveryWayOnTheMainThread)
{
    FailEveryWay();
}

TEST(Fault, EveryWayOnThreadsAtOnce)
{
#if TEST_TSAN
    GTEST_SKIP() << "ThreadSanitizer loses jump targets below the stack of signals";
#endif
    std::thread threads[4];
    for (auto& thread : threads)
        thread = std::thread(FailEveryWay);
    for (auto& thread : threads)
        thread.join();
}

TEST(Fault, AddressIsTheInstruction)
{
    int result;
    CallProtected([](void*) { return Failed(::Test::Breakpoint); }, nullptr, Take, result);
    EXPECT_EQ(*reinterpret_cast<const unsigned char*>(seenAddress), 0xCC);
    CallProtected([](void*) { return Failed(::Test::Illegal); }, nullptr, Take, result);
    EXPECT_EQ(*reinterpret_cast<const unsigned char*>(seenAddress), 0x0F);
}

TEST(Fault, BodyThatReturnsGivesItsResult)
{
    int result = 0;
    int argument = 6;
    const auto body = [](void* data) { return *static_cast<int*>(data) + 1; };
    EXPECT_TRUE(CallProtected(body, &argument, Take, result));
    EXPECT_EQ(result, 7);
    EXPECT_TRUE(CallGuarded([](void* data) { ++*static_cast<int*>(data); }, &argument));
    EXPECT_EQ(argument, 7);
}

// ---- thrown objects

struct Counted
{
    static int alive;
    Counted() { ++alive; }
    ~Counted() { --alive; }
};
int Counted::alive = 0;

// The filter runs while the thrower's objects still live; afterwards they are gone, the thrown one too.
TEST(Fault, FilterComesBeforeDestructors)
{
    static int aliveThen;
    Counted::alive = 0;
    const auto filter = [](const Fault&)
    {
        aliveThen = Counted::alive;
        return FaultAnswer::Abandon;
    };
    const auto body = [](void*) -> int
    {
        Counted first;
        Counted second;
        throw Counted();
    };
    for (int round = 0; round < 1000; ++round)
    {
        int result;
        EXPECT_FALSE(CallProtected(body, nullptr, filter, result));
        EXPECT_EQ(aliveThen, 3);
        EXPECT_EQ(Counted::alive, 0);
    }
}

// Who declines is asked before the next outer frame; a handler outside of all gets the object then.
TEST(Fault, DeclinedGoesOutwards)
{
    asked = 0;
    int result = 0;
    const auto thrower = [](void*) -> int { throw std::runtime_error("on"); };
    const auto inner = [](void* body)
    {
        int within = 0;
        return CallProtected(*static_cast<int (**)(void*)>(body), nullptr, Decline, within) ? within : -1;
    };
    int (*body)(void*) = thrower;
    EXPECT_FALSE(CallProtected(inner, &body, Take, result));
    EXPECT_EQ(asked, 2);
    EXPECT_EQ(seen, FaultThrown);
    try
    {
        CallProtected(inner, &body, Decline, result);
        FAIL();
    }
    catch (const std::runtime_error& failure)
    {
        EXPECT_STREQ(failure.what(), "on");
    }
    EXPECT_EQ(asked, 4);
    EXPECT_FALSE(IsProtected());

    body = [](void*) { return Failed([] { ::Test::WriteAt(0); }); };
    EXPECT_FALSE(CallProtected(inner, &body, Take, result));
    EXPECT_EQ(asked, 6);
    EXPECT_EQ(seen, FaultAccessViolation);
}

TEST(Fault, CaughtInsideIsNoFault)
{
    asked = 0;
    int result = 0;
    const auto body = [](void*)
    {
        try
        {
            throw 1;
        }
        catch (int value)
        {
            return value + 1;
        }
    };
    EXPECT_TRUE(CallProtected(body, nullptr, Take, result));
    EXPECT_EQ(result, 2);
    EXPECT_EQ(asked, 0);
}

// A fault within a handler, or within a destructor that unwinding runs, leaves no exception behind.
TEST(Fault, FaultAmidAnException)
{
    int result;
    const auto inHandler = [](void*) -> int
    {
        try
        {
            throw 1;
        }
        catch (int)
        {
            ::Test::WriteAt(0);
        }
        return 1;
    };
    struct Bomb
    {
        ~Bomb() { ::Test::WriteAt(0); }
    };
    const auto inDestructor = [](void*) -> int
    {
        try
        {
            Bomb bomb;
            throw 1;
        }
        catch (int)
        {
        }
        return 1;
    };
    for (int (*body)(void*) : {+inHandler, +inDestructor})
    {
        const ::Test::LeakAllowed allowed; // the object that was on its way
        EXPECT_FALSE(CallProtected(body, nullptr, Take, result));
        EXPECT_EQ(std::uncaught_exceptions(), 0);
        EXPECT_FALSE(std::current_exception());
    }
}

// ---- guards

TEST(Fault, GuardsNest)
{
    asked = 0;
    int result = 0;
    const auto body = [](void*)
    {
        int trips = 0;
        for (const Way& way : ways)
        {
            int (*inner)(void*) = way.body;
            trips += !CallGuarded([](void* data) { (*static_cast<int (**)(void*)>(data))(nullptr); }, &inner);
        }
        // One within the other, and a protected call within a guard.
        const auto deep = [](void* data)
        {
            int within;
            *static_cast<int*>(data) += !CallGuarded([](void*) { ::Test::Divide(); }, nullptr);
            *static_cast<int*>(data) +=
                !CallProtected([](void*) { return Failed(::Test::Illegal); }, nullptr, Take, within);
            throw 5;
        };
        trips += !CallGuarded(deep, &trips);
        return trips;
    };
    EXPECT_TRUE(CallProtected(body, nullptr, Decline, result));
    EXPECT_EQ(result, static_cast<int>(std::size(ways)) + 3);
    EXPECT_EQ(asked, 1);
}

// The report of a fault may fail itself, at any depth: the frame's own guard has it.
TEST(Fault, FaultWithinTheFilter)
{
#if TEST_TSAN
    GTEST_SKIP() << "ThreadSanitizer loses jump targets below the stack of signals";
#endif
    static int trips;
    trips = 0;
    const auto filter = [](const Fault&)
    {
        const auto outer = [](void*)
        {
            trips += !CallGuarded([](void*) { ::Test::Illegal(); }, nullptr);
            trips += !CallGuarded([](void*) { throw 1; }, nullptr);
            ::Test::WriteAt(0);
        };
        trips += !CallGuarded(outer, nullptr);
        return FaultAnswer::Abandon;
    };
    int result;
    for (const Way& way : ways)
        EXPECT_FALSE(CallProtected(way.body, nullptr, filter, result)) << way.name;
    EXPECT_EQ(trips, 3 * static_cast<int>(std::size(ways)));
}

// A filter that fails unguarded is not asked about it again; the next outer frame has it.
TEST(Fault, FilterThatFailsItself)
{
#if TEST_TSAN
    GTEST_SKIP() << "ThreadSanitizer loses jump targets below the stack of signals";
#endif
    asked = 0;
    int result = 0;
    const auto inner = [](void*)
    {
        int within;
        const auto bad = [](const Fault&) -> FaultAnswer
        {
            ::Test::Divide();
            return FaultAnswer::Abandon;
        };
        CallProtected([](void*) { return Failed(::Test::Illegal); }, nullptr, bad, within);
        return 1;
    };
    EXPECT_FALSE(CallProtected(inner, nullptr, Take, result));
    EXPECT_EQ(asked, 1);
    EXPECT_EQ(seen, FaultIntegerDivide);
}

// Guards within a filter that trip do not make it ready to be asked anew.
TEST(Fault, FilterThatFailsBehindAGuard)
{
#if TEST_TSAN
    GTEST_SKIP() << "ThreadSanitizer loses jump targets below the stack of signals";
#endif
    static int calls;
    calls = 0;
    int result = 0;
    const auto inner = [](void*)
    {
        int within;
        const auto bad = [](const Fault&) -> FaultAnswer
        {
            if (++calls > 5)
                _exit(1);
            CallGuarded([](void*) { ::Test::Illegal(); }, nullptr);
            ::Test::Divide();
            return FaultAnswer::Abandon;
        };
        CallProtected([](void*) { return Failed(::Test::Illegal); }, nullptr, bad, within);
        return 1;
    };
    EXPECT_FALSE(CallProtected(inner, nullptr, Take, result));
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(seen, FaultIntegerDivide);
    int state = 0;
    pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &state);
    EXPECT_EQ(state, PTHREAD_CANCEL_ENABLE);
}

// A cancelled thread ends at once in the middle of its body, but behind its report.
TEST(Fault, CancelledWhileItReports)
{
#if TEST_TSAN
    GTEST_SKIP() << "ThreadSanitizer loses jump targets below the stack of signals";
#endif
    static std::atomic<int> steps;
    steps = 0;
    const auto filter = [](const Fault&)
    {
        steps = 1;
        while (steps != 2)
            usleep(100);
        usleep(1000); // where a thread may be cancelled
        steps = 3;
        return FaultAnswer::Abandon;
    };
    static FaultAnswer (*const ask)(const Fault&) = filter;
    pthread_t thread;
    const auto run = [](void*) -> void*
    {
        int result;
        CallProtected([](void*) { return Failed(::Test::Illegal); }, nullptr, ask, result);
        pthread_testcancel();
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, nullptr, run, nullptr), 0);
    while (steps != 1)
        usleep(100);
    pthread_cancel(thread);
    steps = 2;
    void* result = nullptr;
    pthread_join(thread, &result);
    EXPECT_EQ(result, PTHREAD_CANCELED);
    EXPECT_EQ(steps, 3);
}

// ---- what the abandoned code held

TEST(Fault, LocksAreGivenBack)
{
    static constinit Lock outer, first, second;
    int result = 0;
    const LockGuard kept(outer);
    const auto body = [](void*)
    {
        const LockGuard one(first);
        const LockGuard again(first);
        const LockGuard two(second);
        ::Test::WriteAt(0);
        return 1;
    };
    for (int round = 0; round < 3; ++round)
    {
        EXPECT_FALSE(CallProtected(body, nullptr, Take, result));
        EXPECT_EQ(HeldLocks(), 1u);
        std::thread(
            []
            {
                EXPECT_TRUE(first.TryEnter());
                EXPECT_TRUE(second.TryEnter());
                EXPECT_FALSE(outer.TryEnter());
                second.Leave();
                first.Leave();
            })
            .join();
    }
}

// ---- who else handles signals

volatile sig_atomic_t otherCalls;

// A page that a handler of before mends: the body goes on.
TEST(Fault, HandlerOfBeforeMends)
{
    static char* page;
    page = static_cast<char*>(mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    otherCalls = 0;
    struct sigaction action = {}, before, after;
    action.sa_flags = SA_SIGINFO;
    action.sa_sigaction = [](int, siginfo_t*, void*)
    {
        otherCalls = otherCalls + 1;
        mprotect(page, 4096, PROT_READ | PROT_WRITE);
    };
    sigaction(SIGSEGV, &action, &before);
    asked = 0;
    int result = 0;
    const auto body = [](void*)
    {
        ::Test::WriteAt(reinterpret_cast<std::uintptr_t>(page));
        return page[0] + 1;
    };
    EXPECT_TRUE(CallProtected(body, nullptr, Decline, result));
    EXPECT_EQ(result, 2);
    EXPECT_EQ(asked, 1);
    EXPECT_EQ(otherCalls, 1);
    sigaction(SIGSEGV, &before, &after);
    EXPECT_EQ(after.sa_sigaction, action.sa_sigaction); // ours is gone with the last frame
    munmap(page, 4096);
}

// Somebody puts a handler over ours that calls ours, and keeps it beyond the frame.
struct sigaction covered;

TEST(Fault, HandlerOnTopOfOurs)
{
    otherCalls = 0;
    struct sigaction before;
    sigaction(SIGFPE, nullptr, &before);
    int result = 0;
    const auto divide = [](void*)
    {
        ::Test::Divide();
        return 1;
    };
    static int (*const division)(void*) = divide;
    const auto cover = [](void*)
    {
        struct sigaction action = {};
        action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_NODEFER;
        action.sa_sigaction = [](int number, siginfo_t* info, void* context)
        {
            otherCalls = otherCalls + 1;
            covered.sa_sigaction(number, info, context);
        };
        sigaction(SIGFPE, &action, &covered);
        return division(nullptr);
    };
    asked = 0;
    EXPECT_FALSE(CallProtected(cover, nullptr, Take, result));
    EXPECT_EQ(asked, 1);
    for (int round = 0; round < 3; ++round)
        EXPECT_FALSE(CallProtected(divide, nullptr, Take, result));
    EXPECT_EQ(asked, 4);
    EXPECT_EQ(otherCalls, 4);
    sigaction(SIGFPE, &before, nullptr);
    EXPECT_FALSE(CallProtected(divide, nullptr, Take, result));
    EXPECT_EQ(otherCalls, 4);
    EXPECT_EQ(asked, 5);
}

// Where nobody wants it, the process ends by its own signal; a signal that was sent is no fault.
TEST(Fault, SystemHasWhatNobodyWants)
{
#if TEST_ASAN || TEST_TSAN
    GTEST_SKIP() << "the sanitizer's handlers come before the system's";
#endif
    const struct
    {
        const char* name;
        int signal;
        int (*body)(void*);
    } rows[] = {
        {"segment", SIGSEGV, [](void*) { return Failed([] { ::Test::WriteAt(0); }); }},
        {"bus", SIGBUS, [](void*) { return Failed(::Test::Truncated); }},
        {"divide", SIGFPE, [](void*) { return Failed(::Test::Divide); }},
        {"illegal", SIGILL, [](void*) { return Failed(::Test::Illegal); }},
        {"breakpoint", SIGTRAP, [](void*) { return Failed(::Test::Breakpoint); }},
        {"abort", SIGABRT, [](void*) { return Failed([] { std::abort(); }); }},
        {"throw", SIGABRT, [](void*) -> int { throw 1; }},
        {"sent", SIGSEGV, [](void*) { return Failed([] { raise(SIGSEGV); }); }},
        {"sent by kill", SIGABRT, [](void*) { return Failed([] { kill(getpid(), SIGABRT); }); }},
    };
    for (const auto& row : rows)
        EXPECT_EQ(::Test::WaitFor(::Test::Fork(
                      [&]() noexcept
                      {
                          fclose(stderr);
                          int result = 0;
                          CallProtected(row.body, nullptr, Decline, result);
                          return 3;
                      })),
                  -row.signal)
            << row.name;
    // An ignored signal stays ignored when it is sent.
    EXPECT_EQ(::Test::WaitFor(::Test::Fork(
                  []
                  {
                      signal(SIGABRT, SIG_IGN);
                      int result = 0;
                      const auto body = [](void*) { return kill(getpid(), SIGABRT) + 9; };
                      return CallProtected(body, nullptr, Take, result) ? result : 1;
                  })),
              9);
}

// ---- leaving a thread from within

TEST(Fault, LeavingIsNoFault)
{
#if TEST_TSAN
    GTEST_SKIP() << "ThreadSanitizer loses jump targets below the stack of signals";
#endif
    static std::atomic<int> asks;
    asks = 0;
    const auto filter = [](const Fault&)
    {
        ++asks;
        return FaultAnswer::Abandon;
    };
    static FaultAnswer (*const ask)(const Fault&) = filter;
    pthread_t thread;
    ASSERT_EQ(pthread_create(
                  &thread, nullptr,
                  [](void*) -> void*
                  {
                      int result;
                      CallProtected([](void*) -> int { pthread_exit(reinterpret_cast<void*>(5)); }, nullptr, ask,
                                    result);
                      return nullptr;
                  },
                  nullptr),
              0);
    void* result = nullptr;
    pthread_join(thread, &result);
    EXPECT_EQ(result, reinterpret_cast<void*>(5));
    EXPECT_EQ(asks, 0);

    // By a jump to the base, with the frames given up first.
    std::thread(
        []
        {
            sigjmp_buf base;
            static thread_local sigjmp_buf* target;
            target = &base;
            if (sigsetjmp(base, 1) == 0)
            {
                int ignored;
                CallProtected(
                    [](void*) -> int
                    {
                        AbandonProtectedCalls();
                        siglongjmp(*target, 1);
                    },
                    nullptr, ask, ignored);
            }
            EXPECT_FALSE(IsProtected());
            FailEveryWay();
        })
        .join();
    EXPECT_EQ(asks, 0);
}

} // namespace
