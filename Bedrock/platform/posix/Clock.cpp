#include <Bedrock/platform/Clock.h>

#include <cerrno>
#include <ctime>
#include <sched.h>
#include <unistd.h>

namespace Zem::Platform
{

namespace
{

constexpr std::int64_t NsPerSecond = 1'000'000'000;
constexpr std::int64_t NsPerMillisecond = 1'000'000;

} // namespace

std::int64_t Counter() noexcept
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t{now.tv_sec} * NsPerSecond + now.tv_nsec;
}

std::int64_t CounterFrequency() noexcept
{
    return NsPerSecond;
}

std::uint32_t Milliseconds() noexcept
{
    return static_cast<std::uint32_t>(Counter() / NsPerMillisecond);
}

void Sleep(std::uint32_t milliseconds) noexcept
{
    if (milliseconds == 0)
    {
        sched_yield();
        return;
    }
    if (milliseconds == 0xFFFFFFFF)
    {
        for (;;)
            pause();
    }
    const std::int64_t end = Counter() + milliseconds * NsPerMillisecond;
    timespec until;
    until.tv_sec = static_cast<std::time_t>(end / NsPerSecond);
    until.tv_nsec = static_cast<long>(end % NsPerSecond);
    // The end is a moment and not a length: a signal does not stretch the sleep.
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR)
    {
    }
}

LocalTime LocalTimeNow() noexcept
{
    const std::time_t now = std::time(nullptr);
    std::tm parts = {};
    localtime_r(&now, &parts);
    return {static_cast<std::uint16_t>(parts.tm_year + 1900), static_cast<std::uint16_t>(parts.tm_mon + 1),
            static_cast<std::uint16_t>(parts.tm_mday),        static_cast<std::uint16_t>(parts.tm_hour),
            static_cast<std::uint16_t>(parts.tm_min),         static_cast<std::uint16_t>(parts.tm_sec)};
}

} // namespace Zem::Platform
