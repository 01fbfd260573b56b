#pragma once

#include <Bedrock/maths/LCRand.h>
#include <Bedrock/memory/HeapOperators.h>

#include <atomic>
#include <concepts>
#include <cstdint>

namespace Zem
{

/// Random numbers from a feedback shift register (R250): 250 words, each new one the exclusive-or of the words 250 and
/// 147 places back. Longer periods and better independence than `LCRand`, at about the same cost.
///
/// All range forms draw one value r, 0 to 0xFFFFFFFF, and scale it in double precision: r * range / (2^32 - 1). Whole
/// numbers are cut toward zero: in a range from 0 up, the top comes up only for the one largest r; treat it as excluded.
/// Seed an object before use: until then, every object gives one and the same fixed sequence. The same seed always
/// gives the same sequence, on every machine.
///
/// Not for cryptography. Threads: an object belongs to one thread at a time; `Gaussian` shares one value among all.
/// Nothing is reported: if memory runs out, the object gives a short fixed sequence over and over.
///
///     Rand rand;
///     rand.SetSeed(42);
///     int die = rand.NextInt(1, 7);              // 1 to 6
///     float height = rand.Gaussian(1.75f, 0.1f); // mean, standard deviation
class ZEM_API Rand
{
    ZEM_HEAP_OPERATORS

public:
    Rand() { Init(Words, MinTable); }
    /// `a` has no effect: the register has 250 words always.
    explicit Rand(std::int32_t a) { Init(a, MinTable); }
    /// `b`: words of the table that shuffles the seeding, at least 100.
    Rand(std::int32_t a, std::int32_t b) { Init(a, b); }
    ~Rand() { Free(); }
    Rand(const Rand&) = delete;
    Rand& operator=(const Rand&) = delete;

    /// Restarts the sequence of the seed `s`. Seeding takes some 600 steps of `LCRand`. A value that `Gaussian` has in
    /// reserve stays there.
    void SetSeed(std::uint32_t s);
    /// State of the generator that seeds; after `SetSeed(s)` no longer `s`.
    std::uint32_t GetSeed() const { return seed; }
    /// Seeds from the clock in milliseconds; from the frame clock while that is locked (`Time::SetFrameLockTime`), so
    /// that a recorded run repeats.
    void Randomise();

    std::uint32_t GetRandom();

    /// 0 to 0x7FFFFFFF.
    std::int32_t NextInt() { return static_cast<std::int32_t>(GetRandom() & 0x7FFFFFFFu); }
    /// 0 toward `n`, which may be negative.
    std::int32_t NextInt(std::int32_t n) { return LCRand::Whole(GetRandom(), n, 0); }
    /// `lo` toward `hi`; `hi` may be the smaller. `hi - lo` must fit 32 bits, and wraps where it does not.
    std::int32_t NextInt(std::int32_t lo, std::int32_t hi)
    {
        return LCRand::Whole(GetRandom(), LCRand::Span(lo, hi), lo);
    }
    bool NextBool() { return (GetRandom() & 1u) != 0; }

    /// 0 to 1, both included.
    float NextFloat() { return static_cast<float>(GetRandom() * LCRand::K); }
    double NextDouble() { return GetRandom() * LCRand::K; }
    /// 0 to `x`, both included.
    float NextFloat(float x) { return static_cast<float>(LCRand::Real(GetRandom(), x, 0.0)); }
    double NextDouble(double x) { return LCRand::Real(GetRandom(), x, 0.0); }
    /// `lo` to `hi`, both included.
    float NextFloat(float lo, float hi)
    {
        return static_cast<float>(LCRand::Real(GetRandom(), double{hi} - double{lo}, lo));
    }
    double NextDouble(double lo, double hi) { return LCRand::Real(GetRandom(), hi - lo, lo); }

    // The same, for an object that is called like a function.
    double operator()() { return NextDouble(); }
    std::uint32_t operator()(std::uint32_t n) { return static_cast<std::uint32_t>(LCRand::Real(GetRandom(), n, 0.0)); }
    std::int32_t operator()(std::int32_t n) { return NextInt(n); }
    float operator()(float x) { return NextFloat(x); }
    std::int32_t operator()(std::int32_t lo, std::int32_t hi) { return NextInt(lo, hi); }
    float operator()(float lo, float hi) { return NextFloat(lo, hi); }

    /// Normally distributed, with the given mean and standard deviation.
    ///
    /// Values are made in pairs: every second call on an object draws nothing and takes the value in reserve, scaled by
    /// its own `mean` and `sigma`. The reserve holds one value for all objects: two that take turns get each other's.
    float Gaussian(float mean, float sigma);

    // A 64-bit range would be cut to 32 bits without a word.
    template <std::integral T>
    requires(sizeof(T) > 4) std::int32_t NextInt(T)
    = delete;
    template <std::integral T, std::integral U>
    requires(sizeof(T) > 4 || sizeof(U) > 4) std::int32_t NextInt(T, U)
    = delete;
    template <std::integral T>
    requires(sizeof(T) > 4) std::int32_t operator()(T) = delete;
    template <std::integral T, std::integral U>
    requires(sizeof(T) > 4 || sizeof(U) > 4) std::int32_t operator()(T, U) = delete;

protected:
    /// Makes the tables anew, unseeded; `a` and `b` as for the constructor.
    void Init(std::int32_t a, std::int32_t b);
    /// The next value of the generator that seeds, the one of `LCRand`.
    std::uint32_t RandLC() { return seed = LCRand::Next(seed); }

private:
    static constexpr std::int32_t Words = 250;
    static constexpr std::int32_t Tap = 147;
    static constexpr std::int32_t MinTable = 100;

    void Free();
    void Advance();

    std::int32_t index = 0; // word of `buffer` that is the next value
    std::int32_t tap = Tap;
    std::int32_t size = Words;       // words in `buffer`
    std::int32_t tableSize = 0;      // words in `table`
    bool haveSpare = false;          // `spare` is for the next call of `Gaussian`
    std::uint32_t seed = 0;          // state of `RandLC`
    std::uint32_t* table = nullptr;  // used while seeding only
    std::uint32_t* buffer = nullptr; // the register, always one whole round ahead: the next 250 values
    static std::atomic<float> spare; // relaxed: objects on two threads may take each other's value, whole
};

inline std::uint32_t Rand::GetRandom()
{
    const std::uint32_t value = buffer[index];
    if (++index == Words)
        Advance();
    return value;
}

} // namespace Zem
