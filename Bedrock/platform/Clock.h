#pragma once

#include <cstdint>

/// Clocks. None of these functions fails.
namespace Zem::Platform
{

/// Ticks of the high-resolution counter since an arbitrary moment; never runs backwards, in any thread.
std::int64_t Counter() noexcept;

/// Ticks per second: a constant of the running process.
std::int64_t CounterFrequency() noexcept;

/// The counter in milliseconds, modulo 2 to the 32nd.
std::uint32_t Milliseconds() noexcept;

/// Sleeps until at least so many milliseconds have passed, also across signals; 0 offers the processor to others,
/// 0xFFFFFFFF never returns.
void Sleep(std::uint32_t milliseconds) noexcept;

/// A moment of local time. Month and day count from 1, the year is the whole number.
struct LocalTime
{
    std::uint16_t year, month, day;
    std::uint16_t hour, minute, second;
};

LocalTime LocalTimeNow() noexcept;

} // namespace Zem::Platform
