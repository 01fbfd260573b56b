#include <Bedrock/threads/Time.h>

#include "support/Child.h"
#include "support/Support.h"

#include <csignal>
#include <ctime>
#include <sys/time.h>

namespace
{

using Zem::Date;
using Zem::Time;

// The frame lock cannot be turned off: it lives in a child.
TEST(Time, FrameLockFollowsTheCountOfFrames)
{
    EXPECT_EQ(
        ::Test::WaitFor(::Test::Fork(
            []
            {
                const std::uint32_t before = Time::Ms();
                const std::uint32_t unlocked = Time::FrameLockMs();
                if (unlocked - before > Time::Ms() - before)
                    return 1;
                Time::SetFrameLockTime(0.5);
                if (Time::FrameLockSeconds() != 0 || Time::FrameLockMs() != 0)
                    return 2;
                Time::IncFrame();
                if (Time::FrameLockSeconds() != 0)
                    return 3; // the first frame is at 0
                Time::IncFrame();
                Time::IncFrame();
                if (Time::FrameLockSeconds() != 1.0 || Time::FrameLockMs() != 1000)
                    return 4;
                Time::SetFrameLockTime(0.1);
                if (Time::FrameLockSeconds() != 1.0)
                    return 5; // a new step waits for the next frame
                for (int i = 0; i < 98; ++i)
                    Time::IncFrame();
                if (Time::FrameLockSeconds() != 100 * 0.1 || Time::FrameLockMs() != 10000)
                    return 6; // a product, never a sum
                for (const auto& [step, ms] : {std::pair{1e300, 0u}, {-0.01, 0xFFFFFFFFu - 1009}, {65536.0 * 4096, 0u}})
                {
                    Time::SetFrameLockTime(step);
                    Time::IncFrame();
                    if (step == 1e300 && Time::FrameLockMs() != ms)
                        return 7;
                    if (step < 0 && static_cast<std::int32_t>(Time::FrameLockMs()) >= 0)
                        return 8;
                }
                return 0;
            })),
        0);
}

TEST(Time, ClocksAgreeAndRunForward)
{
    ASSERT_GT(Time::GetCounterFrequency(), 1000);
    const std::int64_t first = Time::GetCounter();
    const std::uint32_t ms = Time::Ms();
    const std::uint32_t us = Time::Us();
    const double seconds = Time::GetSeconds();
    const std::int64_t second = Time::GetCounter();
    const auto perMs = Time::GetCounterFrequency() / 1000;
    EXPECT_LE(first, second);
    EXPECT_LE(ms - static_cast<std::uint32_t>(first / perMs),
              static_cast<std::uint32_t>(second / perMs - first / perMs));
    EXPECT_LE(us - static_cast<std::uint32_t>(first), static_cast<std::uint32_t>(second - first));
    EXPECT_GE(seconds, static_cast<double>(first) / static_cast<double>(Time::GetCounterFrequency()));
    EXPECT_LE(seconds, static_cast<double>(second) / static_cast<double>(Time::GetCounterFrequency()));
}

TEST(Time, DelayIsNeverShortAndNoSignalCutsOrStretchesIt)
{
    struct sigaction action = {}, previous = {};
    action.sa_handler = [](int) {};
    sigaction(SIGALRM, &action, &previous);
    itimerval often = {{0, 3000}, {0, 3000}}, never = {};
    setitimer(ITIMER_REAL, &often, nullptr);
    const std::int64_t start = Time::GetCounter();
    Time::Delay(40);
    const double took =
        static_cast<double>(Time::GetCounter() - start) / static_cast<double>(Time::GetCounterFrequency());
    setitimer(ITIMER_REAL, &never, nullptr);
    sigaction(SIGALRM, &previous, nullptr);
    EXPECT_GE(took, 0.040);
    EXPECT_LT(took, 2.0) << "a sleep that starts anew at every signal never ends";
    Time::Delay(0);
}

TEST(Time, WritesTimeAndDateAsNineBytes)
{
    const auto expected = [](const char* format)
    {
        const std::time_t now = std::time(nullptr);
        char text[16];
        std::strftime(text, sizeof(text), format, std::localtime(&now));
        return std::string(text);
    };
    const struct
    {
        void (*write)(char*);
        const char* format;
    } rows[] = {{Time::Str, "%H:%M:%S"}, {Date::Str, "%m/%d/%y"}};
    for (const auto& row : rows)
    {
        char text[12];
        std::memset(text, '#', sizeof(text));
        std::string before, after;
        do
        {
            before = expected(row.format);
            row.write(text);
            after = expected(row.format);
        } while (before != after); // the second went by meanwhile
        EXPECT_EQ(std::string(text, 12), before + std::string(1, '\0') + "###");
    }
}

} // namespace
