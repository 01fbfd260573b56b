#include <Bedrock/threads/Time.h>

#include <Bedrock/platform/Clock.h>

#include <initializer_list>

namespace Zem
{

constinit bool Time::frameLock = false;
constinit double Time::frameLockTime = 0;
constinit double Time::frameLockDelta = 0;
constinit std::uint32_t Time::frameLockCount = 0;

namespace
{

// Three numbers of two digits, as "aa:bb:cc" and a terminator.
void WriteTriple(char* buffer, unsigned a, unsigned b, unsigned c, char separator)
{
    for (const unsigned number : {a, b, c})
    {
        *buffer++ = static_cast<char>('0' + number / 10 % 10);
        *buffer++ = static_cast<char>('0' + number % 10);
        *buffer++ = separator;
    }
    buffer[-1] = '\0';
}

} // namespace

std::int64_t Time::QueryCounterFrequency() noexcept
{
    return Platform::CounterFrequency();
}

std::int64_t Time::GetCounter() noexcept
{
    return Platform::Counter();
}

double Time::GetSeconds() noexcept
{
    return static_cast<double>(Platform::Counter()) / static_cast<double>(freq);
}

std::uint32_t Time::Ms() noexcept
{
    return Platform::Milliseconds();
}

std::uint32_t Time::Us() noexcept
{
    return static_cast<std::uint32_t>(Platform::Counter());
}

void Time::Delay(std::uint32_t milliseconds) noexcept
{
    Platform::Sleep(milliseconds);
}

void Time::Str(char* buffer) noexcept
{
    const Platform::LocalTime now = Platform::LocalTimeNow();
    WriteTriple(buffer, now.hour, now.minute, now.second, ':');
}

void Time::SetFrameLockTime(double step) noexcept
{
    frameLock = true;
    frameLockDelta = step;
}

void Time::IncFrame() noexcept
{
    // From the count and not summed: rounding errors do not build up.
    frameLockTime = static_cast<double>(frameLockCount) * frameLockDelta;
    ++frameLockCount;
}

double Time::FrameLockSeconds() noexcept
{
    return frameLock ? frameLockTime : GetSeconds();
}

std::uint32_t Time::FrameLockMs() noexcept
{
    if (!frameLock)
        return Ms();
    const double milliseconds = frameLockTime * 1000;
    if (!(milliseconds > -9e18 && milliseconds < 9e18))
        return 0; // no whole number of 64 bits
    return static_cast<std::uint32_t>(static_cast<std::int64_t>(milliseconds));
}

void Date::Str(char* buffer) noexcept
{
    const Platform::LocalTime now = Platform::LocalTimeNow();
    WriteTriple(buffer, now.month, now.day, now.year, '/');
}

} // namespace Zem
