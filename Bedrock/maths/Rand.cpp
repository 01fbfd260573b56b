#include <Bedrock/maths/Rand.h>

#include <Bedrock/memory/Alloc.h>
#include <Bedrock/threads/Time.h>

#include <array>
#include <cmath>
#include <cstring>

namespace Zem
{

namespace
{

constexpr std::uint32_t RegisterWords = 250;

// What an object gives before it is seeded, and all that one gives whose tables could not be allocated. No zeros and no
// cycle of equal words: `Gaussian` must find a point inside the circle in it. Never written.
constinit std::array<std::uint32_t, RegisterWords> unseeded = []
{
    std::array<std::uint32_t, RegisterWords> words{};
    std::uint32_t x = 1;
    for (std::uint32_t& word : words)
        word = x = x * 1664525u + 1013904223u;
    return words;
}();

// `count` words, a multiple of 4, at least 4 apart.
void Xor(std::uint32_t* words, const std::uint32_t* with, std::int32_t count)
{
    for (std::int32_t i = 0; i < count; i += 4)
    {
        std::uint64_t a[2], b[2];
        std::memcpy(a, words + i, sizeof a);
        std::memcpy(b, with + i, sizeof b);
        a[0] ^= b[0];
        a[1] ^= b[1];
        std::memcpy(words + i, a, sizeof a);
    }
}

} // namespace

constinit std::atomic<float> Rand::spare = 0.0f;

void LCRand::Randomise()
{
    seed = ClockSeed();
}

std::uint32_t LCRand::ClockSeed()
{
    if (!Time::frameLock)
        return Time::Ms() + 10;
    const double clock = Time::frameLockTime * 0.001;
    constexpr double Limit = 9e18; // what fits 64 bits; more, or no number at all, counts as 0
    return static_cast<std::uint32_t>(clock > -Limit && clock < Limit ? static_cast<std::int64_t>(clock) : 0) + 10;
}

void Rand::Init(std::int32_t, std::int32_t b)
{
    static_assert(Words == RegisterWords);
    Free();
    index = 0;
    tap = Tap;
    size = Words;
    tableSize = b > MinTable ? b : MinTable;
    const std::uint64_t tableBytes = std::uint64_t{sizeof *table} * static_cast<std::uint32_t>(tableSize);
    if (tableBytes <= SIZE_MAX)
        table = static_cast<std::uint32_t*>(Alloc::New(static_cast<std::size_t>(tableBytes)));
    if (table)
        buffer = static_cast<std::uint32_t*>(Alloc::New(sizeof unseeded));
    if (buffer)
        std::memcpy(buffer, unseeded.data(), sizeof unseeded);
    else
        buffer = unseeded.data();
}

void Rand::Free()
{
    Alloc::Delete(table);
    if (buffer != unseeded.data())
        Alloc::Delete(buffer);
    table = nullptr;
    buffer = nullptr;
}

void Rand::SetSeed(std::uint32_t s)
{
    seed = s;
    index = 0;
    if (buffer == unseeded.data())
        return;

    for (std::int32_t i = 0; i < tableSize; ++i)
        table[i] = RandLC();
    seed = RandLC();
    for (std::int32_t i = 0; i < Words; ++i)
    {
        // `rint` rounds ties to even. A table of millions of words is beyond what a float can tell apart; the last word
        // is the limit then.
        const float place = static_cast<float>(seed * 0x1p-32 * (tableSize - 1) - 0.5);
        const std::int64_t nearest = static_cast<std::int64_t>(std::rint(place));
        const std::int64_t last = tableSize - 1;
        const std::size_t j = static_cast<std::size_t>(nearest < last ? nearest : last);
        buffer[i] = table[j];
        table[j] = RandLC();
    }
    for (std::int32_t i = 0; i < Words; ++i)
        if (RandLC() > 0x40000000u)
            buffer[i] |= 0x80000000u;

    // A staircase of ones with zeros to its left makes the 32 columns of bits independent of each other.
    std::uint32_t mask = 0xFFFFFFFFu;
    std::uint32_t msb = 0x80000000u;
    for (std::int32_t k = 0; k < 32; ++k, mask >>= 1, msb >>= 1)
        buffer[3 + 7 * k] = (buffer[3 + 7 * k] & mask) | msb;

    Advance();
}

void Rand::Randomise()
{
    SetSeed(LCRand::ClockSeed());
}

// The next round in place: 147 words take the word 103 further on, which is still of the old round; the rest take the
// word 147 back, which is of the new one.
void Rand::Advance()
{
    index = 0;
    if (buffer == unseeded.data())
        return;
    constexpr std::int32_t Head = Tap / 4 * 4;
    constexpr std::int32_t Tail = (Words - Tap) / 4 * 4;
    Xor(buffer, buffer + (Words - Tap), Head);
    for (std::int32_t i = Head; i < Tap; ++i)
        buffer[i] ^= buffer[i + (Words - Tap)];
    Xor(buffer + Tap, buffer, Tail);
    for (std::int32_t i = Tap + Tail; i < Words; ++i)
        buffer[i] ^= buffer[i - Tap];
}

float Rand::Gaussian(float mean, float sigma)
{
    if (haveSpare)
    {
        haveSpare = false;
        return static_cast<float>(double{spare.load(std::memory_order_relaxed)} * sigma + mean);
    }
    // The polar method (Marsaglia, 1964): a point in the unit circle gives two independent values. The centre, whose
    // logarithm is not finite, cannot come up: no r makes 2 * r * K exactly 1.
    float u, v;
    double s;
    do
    {
        u = static_cast<float>(2 * NextDouble() - 1);
        v = static_cast<float>(2 * NextDouble() - 1);
        s = double{u} * u + double{v} * v;
    } while (s >= 1);
    const double f = std::sqrt(-2 * std::log(s) / s);
    spare.store(static_cast<float>(f * v), std::memory_order_relaxed);
    haveSpare = true;
    return static_cast<float>(f * u * sigma + mean);
}

} // namespace Zem
