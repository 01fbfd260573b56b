#pragma once

#include <Bedrock/Export.h>

#include <concepts>
#include <cstdint>

namespace Zem
{

/// Random numbers from one word: fast, small, good enough to scatter sparks. `Rand` is the better generator.
///
/// Successive values are x = 16807 * x modulo 2^32 - 1, near enough (`GetRandom` says how near). A seed of 0 stays 0.
///
/// All range forms draw one value r, 0 to 0xFFFFFFFF, and scale it in double precision: r * range / (2^32 - 1). Whole
/// numbers are cut toward zero: in a range from 0 up, the top comes up only for the one largest r; treat it as excluded.
/// Not for cryptography. Threads: an object belongs to one thread at a time.
///
///     LCRand rand(42);
///     int die = rand.NextInt(1, 7);             // 1 to 6
///     float angle = rand.NextFloat(6.2831853f); // 0 to a full turn
///     bool heads = rand.NextBool();
class ZEM_API LCRand
{
public:
    /// Seeded from the clock, as by `Randomise`.
    LCRand() { Randomise(); }
    explicit LCRand(std::uint32_t startSeed) : seed(startSeed) {}
    LCRand(const LCRand&) = default;
    LCRand& operator=(const LCRand&) = default;

    void SetSeed(std::uint32_t newSeed) { seed = newSeed; }
    /// The state of the generator, which is also the value it gave last: `SetSeed(GetSeed())` changes nothing.
    std::uint32_t GetSeed() const { return seed; }
    /// Seeds from the clock in milliseconds; from the frame clock while that is locked (`Time::SetFrameLockTime`), so
    /// that a recorded run repeats.
    void Randomise();

    std::uint32_t GetRandom() { return seed = Next(seed); }
    std::uint32_t operator()() { return GetRandom(); }

    /// 0 to 0x7FFFFFFF.
    std::int32_t NextInt() { return static_cast<std::int32_t>(GetRandom() & 0x7FFFFFFFu); }
    /// 0 toward `n`, which may be negative.
    std::int32_t NextInt(std::int32_t n) { return Whole(GetRandom(), n, 0); }
    /// `lo` toward `hi`; `hi` may be the smaller. `hi - lo` must fit 32 bits, and wraps where it does not.
    std::int32_t NextInt(std::int32_t lo, std::int32_t hi) { return Whole(GetRandom(), Span(lo, hi), lo); }
    bool NextBool() { return (GetRandom() & 1u) != 0; }

    /// 0 to 1, both included.
    float NextFloat() { return static_cast<float>(GetRandom() * K); }
    double NextDouble() { return GetRandom() * K; }
    /// 0 to `x`, both included.
    float NextFloat(float x) { return static_cast<float>(Real(GetRandom(), x, 0.0)); }
    double NextDouble(double x) { return Real(GetRandom(), x, 0.0); }
    /// `lo` to `hi`, both included.
    float NextFloat(float lo, float hi) { return static_cast<float>(Real(GetRandom(), double{hi} - double{lo}, lo)); }
    double NextDouble(double lo, double hi) { return Real(GetRandom(), hi - lo, lo); }

    // A 64-bit range would be cut to 32 bits without a word.
    template <std::integral T>
    requires(sizeof(T) > 4) std::int32_t NextInt(T)
    = delete;
    template <std::integral T, std::integral U>
    requires(sizeof(T) > 4 || sizeof(U) > 4) std::int32_t NextInt(T, U)
    = delete;

private:
    friend class Rand; // scales its values the same way, and seeds itself with this generator

    static constexpr double K = 2.3283064370807974e-10; // 1 / (2^32 - 1)

    static constexpr std::uint32_t Next(std::uint32_t x);

    static double Real(std::uint32_t r, double range, double lo) { return r * range * K + lo; }
    static std::int32_t Whole(std::uint32_t r, std::int32_t range, std::int32_t lo)
    {
        // By way of 64 bits: with a wrapped range the sum may lie a little outside of 32.
        return static_cast<std::int32_t>(static_cast<std::int64_t>(Real(r, range, lo)));
    }
    static std::int32_t Span(std::int32_t lo, std::int32_t hi)
    {
        return static_cast<std::int32_t>(static_cast<std::uint32_t>(hi) - static_cast<std::uint32_t>(lo));
    }
    static std::uint32_t ClockSeed();

    std::uint32_t seed;
};

/// The step of the generator. Schrage's method takes the product modulo m = 2^32 - 1 apart, so that it fits a word: with
/// m = 16807 * 255546 + 5673 and x = 255546 * k + l, 16807 * x = k * m + (16807 * l - 5673 * k). The bracket is the
/// answer, or m too small when it is negative. Its sign is read from 32 bits: a bracket of 2^31 and more counts as
/// negative too and comes out 1 too small, which is part of the sequence.
///
/// As m is -1 in 32 bits, the bracket is 16807 * x + k there: one division by a constant, no remainder.
constexpr std::uint32_t LCRand::Next(std::uint32_t x)
{
    constexpr std::uint32_t Multiplier = 16807;
    constexpr std::uint32_t Quotient = 0xFFFFFFFFu / Multiplier;
    static_assert(Quotient == 255546 && 0xFFFFFFFFu % Multiplier == 5673);

    if (x <= Quotient)
        return x * Multiplier;
    const std::uint32_t bracket = x * Multiplier + x / Quotient;
    return bracket - (static_cast<std::int32_t>(bracket) <= 0 ? 1u : 0u);
}

} // namespace Zem
