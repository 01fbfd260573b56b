#pragma once

#include <Bedrock/Export.h>

#include <cstdint>

namespace Zem
{

/// Three clocks of different grain, and a clock that follows the frames instead of the time.
///
/// No clock runs backwards or follows changes of the time of day, and all stand still while the computer sleeps. The
/// counter counts nanoseconds from an arbitrary moment. Numbers of 32 bits wrap round: subtract them as unsigned 32-bit
/// numbers, never compare them.
///
/// Frame lock: after `SetFrameLockTime(step)` the locked clock stands at (n - 1) * step seconds after the nth
/// `IncFrame`, however long the frames took. It cannot be turned off again.
///
/// Threads: `SetFrameLockTime` and `IncFrame` belong to the one thread that drives the frames, and so does reading the
/// locked clock; everything else may be called from any thread.
///
///     Time::SetFrameLockTime(1.0 / 25);                       // render a film: 25 frames a second
///     for (int frame = 0; frame < count; ++frame)
///     {
///         Time::IncFrame();
///         Draw(Time::FrameLockSeconds());                     // 0, 0.04, 0.08, ...
///     }
class ZEM_API Time
{
public:
    /// Ticks of the high-resolution counter.
    static std::int64_t GetCounter() noexcept;
    /// Ticks per second.
    static std::int64_t GetCounterFrequency() noexcept { return freq; }
    static double GetSeconds() noexcept;
    /// Milliseconds; wraps every 49.7 days.
    static std::uint32_t Ms() noexcept;
    /// The low 32 bits of the counter, in its ticks; wraps every 4.3 seconds.
    static std::uint32_t Us() noexcept;

    /// Sleeps that long at least; 0 only offers the processor to others, 0xFFFFFFFF sleeps for ever.
    static void Delay(std::uint32_t milliseconds) noexcept;

    /// Writes the local time of day as "hh:mm:ss" and a terminator: 9 bytes.
    static void Str(char* buffer) noexcept;

    /// Turns the frame lock on, with `step` seconds per frame. The next `IncFrame` applies the step to all frames that
    /// were counted so far.
    static void SetFrameLockTime(double step) noexcept;
    static void IncFrame() noexcept;
    /// The locked clock in seconds; `GetSeconds` without a frame lock.
    static double FrameLockSeconds() noexcept;
    /// The locked clock in whole milliseconds, modulo 2 to the 32nd; `Ms` without a frame lock.
    static std::uint32_t FrameLockMs() noexcept;

private:
    friend class LCRand; // seeds itself from the locked clock

    static std::int64_t QueryCounterFrequency() noexcept;

    static const std::int64_t freq; // read when the library starts
    static bool frameLock;
    static double frameLockTime;
    static double frameLockDelta;
    static std::uint32_t frameLockCount;
};

/// Today's date as text.
class ZEM_API Date
{
public:
    /// Writes the local date as "mm/dd/yy" and a terminator: 9 bytes.
    static void Str(char* buffer) noexcept;
};

} // namespace Zem
