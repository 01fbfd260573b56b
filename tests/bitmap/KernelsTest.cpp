// A chain of three: formulas written out here against the scalar kernels over every alpha, source and destination; the
// scalar kernels against each level of the processor over shapes; and that no level slows down the code after it.

#include <Bedrock/bitmap/kernels/Kernels.h>

#include "support/Support.h"

#include <algorithm>
#include <chrono>
#include <functional>

using namespace Zem;
using Kernels::Level;
using Bytes = std::vector<std::uint8_t>;

namespace
{

std::uint32_t Word(unsigned a, unsigned r, unsigned g, unsigned b)
{
    return a << 24 | r << 16 | g << 8 | b;
}

const Kernels::Set& Scalar()
{
    return *Kernels::SetOf(Level::Scalar);
}

struct NamedTransfer
{
    const char* name;
    TransferKernel Kernels::Set::*entry;
    int dstPixel, srcPixel;
};

constexpr NamedTransfer transfers[] = {
    {"CopyARGB", &Kernels::Set::copyARGB, 4, 4},
    {"CopyRGB24", &Kernels::Set::copyRGB24, 3, 3},
    {"CopyRGB16", &Kernels::Set::copyRGB16, 2, 2},
    {"RGB24ToARGB", &Kernels::Set::rgb24ToARGB, 4, 3},
    {"RGB16ToARGB", &Kernels::Set::rgb16ToARGB, 4, 2},
    {"RGB16ToRGB24", &Kernels::Set::rgb16ToRGB24, 3, 2},
    {"RGB24ToRGB16", &Kernels::Set::rgb24ToRGB16, 2, 3},
    {"BlendARGB", &Kernels::Set::blendARGB, 4, 4},
    {"BlendARGBToRGB16", &Kernels::Set::blendARGBToRGB16, 2, 4},
    {"BlendARGBToRGB24", &Kernels::Set::blendARGBToRGB24, 3, 4},
};

struct NamedFill
{
    const char* name;
    FillKernel Kernels::Set::*entry;
    int pixel;
};

constexpr NamedFill fills[] = {
    {"FillARGB", &Kernels::Set::fillARGB, 4},
    {"FillRGB16", &Kernels::Set::fillRGB16, 2},
    {"FillRGB24", &Kernels::Set::fillRGB24, 3},
    {"BlendFillARGB", &Kernels::Set::blendFillARGB, 4},
};

constexpr struct
{
    Level level;
    const char* name;
} levels[] = {{Level::Sse2, "sse2"}, {Level::Avx2, "avx2"}};

// Random bytes in which clear, opaque and mixed alphas come in runs, so that every shortcut and its border is met.
Bytes Pixels(std::mt19937_64& random, std::size_t size)
{
    Bytes bytes(size);
    for (std::size_t i = 0; i < size;)
    {
        const unsigned kind = random() % 4;
        for (std::size_t end = std::min<std::size_t>(size, i + 4 * (1 + random() % 24)); i < end; ++i)
        {
            bytes[i] = static_cast<std::uint8_t>(random());
            if (i % 4 == 3 && kind < 2)
                bytes[i] = kind ? 255 : 0;
        }
    }
    return bytes;
}

// The first byte that differs, as text; empty if none does.
std::string Difference(const Bytes& expected, const Bytes& actual)
{
    const auto at = std::mismatch(expected.begin(), expected.end(), actual.begin());
    if (at.first == expected.end())
        return {};
    return "byte " + std::to_string(at.first - expected.begin()) + " is " + std::to_string(*at.second) + ", not " +
           std::to_string(*at.first);
}

// ------------------------------------------------------------------------------------ formulas against scalar kernels

// Every channel has its own source and destination, so an exchange of channels shows too.
TEST(ScalarKernels, BlendOntoARGBExactlyForEveryAlphaSourceAndDestination)
{
    for (unsigned da : {0u, 1u, 2u, 127u, 128u, 200u, 254u, 255u})
        for (unsigned a = 0; a < 256; ++a)
        {
            std::vector<std::uint32_t> source(65536), blended(65536), filled(256), expected(65536);
            for (unsigned i = 0; i < 65536; ++i)
            {
                const unsigned s = i >> 8, d = i & 255;
                source[i] = Word(a, s, 255 - s, s ^ 0x55);
                blended[i] = Word(da, d, d ^ 0xAA, 255 - d);
                auto mix = [&](unsigned from, unsigned to)
                {
                    const unsigned w = da == 255 ? a + 1 : (a + 1 + 255 - da) >> 1;
                    return ((from * w) >> 8) + ((to * (256 - w)) >> 8);
                };
                const unsigned alpha = da == 255 ? 255 : (65536 - (255 - a) * (255 - da)) >> 8;
                if (a == 0)
                    expected[i] = blended[i];
                else if (a == 255 || da == 0)
                    expected[i] = source[i];
                else
                    expected[i] = Word(alpha, mix(s, d), mix(255 - s, d ^ 0xAA), mix(s ^ 0x55, 255 - d));
            }
            const auto original = blended;
            Scalar().blendARGB(blended.data(), source.data(), 65536);
            ASSERT_EQ(blended, expected) << "alpha " << a << " over " << da;
            for (unsigned s : {0u, 3u, 128u, 255u})
            {
                std::copy_n(original.begin() + s * 256, 256, filled.begin());
                Scalar().blendFillARGB(filled.data(), source[s * 256], 256, 0);
                ASSERT_TRUE(std::equal(filled.begin(), filled.end(), expected.begin() + s * 256)) << a << " fill " << s;
            }
        }
}

TEST(ScalarKernels, BlendAndFillRGB24ExactlyForEveryAlphaSourceAndDestination)
{
    for (unsigned a = 0; a < 256; ++a)
        for (unsigned s = 0; s < 256; ++s)
        {
            const unsigned w = a + 1, from[3] = {s, 255 - s, s ^ 0x55};
            std::uint8_t blended[768], filled[768], expectBlend[768], expectFill[768];
            std::vector<std::uint32_t> source(256, Word(a, from[2], from[1], from[0]));
            for (unsigned i = 0; i < 768; ++i)
            {
                const unsigned d = (i / 3 + i % 3 * 85) & 255, c = from[i % 3];
                blended[i] = filled[i] = static_cast<std::uint8_t>(d);
                const bool mixed = a != 0 && a != 255;
                expectBlend[i] =
                    static_cast<std::uint8_t>(mixed ? ((c * w) >> 8) + ((d * (256 - w)) >> 8) : (a ? c : d));
                expectFill[i] =
                    static_cast<std::uint8_t>(mixed ? ((c * w) >> 8) + ((d * (255 - w)) >> 8) : (a ? c : d));
            }
            Scalar().blendARGBToRGB24(blended, source.data(), 256);
            Scalar().fillRGB24(filled, source[0], 256, 0);
            ASSERT_EQ(std::memcmp(blended, expectBlend, 768), 0) << "blend " << a << ' ' << s;
            ASSERT_EQ(std::memcmp(filled, expectFill, 768), 0) << "fill " << a << ' ' << s;
        }
}

// The long way: three fields side by side above their fractions, one addition, the upper half is the pixel. The
// fractions of blue and a weight in the low halves are what makes a transfer differ from a fill.
TEST(ScalarKernels, BlendAndFillRGB16AsOneAdditionOfPackedFields)
{
    for (unsigned a = 0; a < 256; ++a)
        for (unsigned s = 0; s < 256; ++s)
        {
            const unsigned R = s ^ 0x3C, G = 255 - s, B = s, w = a + 1, dw = 255 - w;
            std::uint16_t blended[64], filled[64], expectBlend[64], expectFill[64];
            std::vector<std::uint32_t> source(64, Word(a, R, G, B));
            for (unsigned i = 0; i < 64; ++i)
            {
                const unsigned dr = (i * 7) & 31, dg = i, db = (31 - i) & 31;
                const unsigned d = dr << 11 | dg << 5 | db;
                blended[i] = filled[i] = static_cast<std::uint16_t>(d);
                const std::uint32_t part1 =
                    (((R * w) >> 11) << 27) + (((G * w) >> 10) << 21) + (((B * w) << 5) & 0x1FFFFF) + w;
                const std::uint32_t part2 =
                    (((dr * dw) >> 8) << 27) + ((((dg << 2) * dw) >> 10) << 21) + (((db * dw) >> 8) << 16);
                const std::uint32_t fill =
                    part2 + (((R * w) >> 11) << 27) + (((G * w) >> 10) << 21) + (((B * w) >> 11) << 16);
                const unsigned narrow = (R >> 3) << 11 | (G >> 2) << 5 | B >> 3;
                const bool mixed = a != 0 && a != 255;
                expectBlend[i] = static_cast<std::uint16_t>(mixed ? (part1 + part2) >> 16 : (a ? narrow : d));
                expectFill[i] = static_cast<std::uint16_t>(mixed ? fill >> 16 : (a ? narrow : d));
            }
            Scalar().blendARGBToRGB16(blended, source.data(), 64);
            Scalar().fillRGB16(filled, source[0], 64, 0);
            ASSERT_EQ(std::memcmp(blended, expectBlend, 128), 0) << "blend " << a << ' ' << s;
            ASSERT_EQ(std::memcmp(filled, expectFill, 128), 0) << "fill " << a << ' ' << s;
        }
}

TEST(ScalarKernels, ConvertEveryPixelOf16BitsBothWays)
{
    std::vector<std::uint16_t> narrow(65536), back(65536);
    for (unsigned i = 0; i < 65536; ++i)
        narrow[i] = static_cast<std::uint16_t>(i);
    std::vector<std::uint32_t> wide(65536);
    Bytes bytes(3 * 65536);
    Scalar().rgb16ToARGB(wide.data(), narrow.data(), 65536);
    Scalar().rgb16ToRGB24(bytes.data(), narrow.data(), 65536);
    for (unsigned i = 0; i < 65536; ++i)
    {
        ASSERT_EQ(wide[i], Word(255, (i >> 11) * 8, (i >> 5 & 63) * 4, (i & 31) * 8));
        ASSERT_EQ(Word(255, bytes[3 * i + 2], bytes[3 * i + 1], bytes[3 * i]), wide[i]);
    }
    Scalar().blendARGBToRGB16(back.data(), wide.data(), 65536);
    EXPECT_EQ(back, narrow);
    Scalar().rgb24ToRGB16(back.data(), bytes.data(), 65536);
    EXPECT_EQ(back, narrow);
    std::vector<std::uint32_t> again(65536);
    Scalar().rgb24ToARGB(again.data(), bytes.data(), 65536);
    EXPECT_EQ(again, wide);
}

TEST(ScalarKernels, FlattenColoursByTheTableOfRoundedProducts)
{
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(Kernels::premultiplied) % 256, 0u);
    for (unsigned a = 0; a < 256; ++a)
        for (unsigned c = 0; c < 256; ++c)
        {
            const unsigned p = a == 255 ? c : (a * c + 127) / 255;
            ASSERT_EQ(Kernels::premultiplied[a][c], p);
            const unsigned q = a == 255 ? 255 - c : (a * (255 - c) + 127) / 255;
            ASSERT_EQ(ARGBToRGB24(Word(a, c, 255 - c, c)), Word(255, p, q, p));
            ASSERT_EQ(ARGBToRGB16(Word(a, c, 255 - c, c)), (p >> 3) << 11 | (q >> 2) << 5 | p >> 3);
        }
    EXPECT_EQ(ARGBToRGB16(0x80FFFFFF), 0x8410u);
}

// ----------------------------------------------------------------------------------------- scalar against each level

// Every width up to two of the widest steps and one more, at every misalignment of both sides; the bytes around the
// destination must stay.
TEST(KernelLevels, TransferTheSameBytesAtEveryWidthAndAddress)
{
    auto random = ::Test::Random(1);
    for (const auto& level : levels)
    {
        const Kernels::Set* set = Kernels::SetOf(level.level);
        if (!set)
            continue;
        for (const auto& kernel : transfers)
            for (int width = 1; width <= 69; ++width)
                for (int offset = 0; offset < 33; offset += width < 40 ? 1 : 5)
                {
                    const int other = (offset * 7 + 3) % 33;
                    const Bytes around =
                        Pixels(random, static_cast<std::size_t>(64 + offset + width * kernel.dstPixel));
                    const Bytes source = Pixels(random, static_cast<std::size_t>(other + width * kernel.srcPixel));
                    const auto exact = ::Test::Exact(source); // nothing may be read behind it
                    Bytes expected = around, actual = around;
                    (Scalar().*kernel.entry)(expected.data() + offset + 16, exact.get() + other, width);
                    (set->*kernel.entry)(actual.data() + offset + 16, exact.get() + other, width);
                    ASSERT_EQ(Difference(expected, actual), "")
                        << kernel.name << ' ' << level.name << " width " << width << " offset " << offset;
                    ASSERT_TRUE(std::equal(around.begin(), around.begin() + offset + 16, expected.begin()));
                    ASSERT_TRUE(std::equal(around.end() - 48, around.end(), expected.end() - 48)) << kernel.name;
                }
    }
}

// Alphas in all combinations meet in one vector.
TEST(KernelLevels, BlendTheSameBytesForAllPairsOfAlphas)
{
    auto random = ::Test::Random(2);
    std::vector<std::uint32_t> source(65536), target(65536);
    for (unsigned i = 0; i < 65536; ++i)
    {
        source[i] = (i >> 8) << 24 | (random() & 0xFFFFFF);
        target[i] = (i & 255) << 24 | (random() & 0xFFFFFF);
    }
    for (const auto& level : levels)
        if (const Kernels::Set* set = Kernels::SetOf(level.level))
            for (const auto& kernel : transfers)
            {
                Bytes expected(65536 * 4), actual;
                std::memcpy(expected.data(), target.data(), expected.size());
                actual = expected;
                (Scalar().*kernel.entry)(expected.data(), source.data(), 65536);
                (set->*kernel.entry)(actual.data(), source.data(), 65536);
                EXPECT_EQ(Difference(expected, actual), "") << kernel.name << ' ' << level.name;
            }
}

TEST(KernelLevels, FillTheSameBytesAtEveryStrideWidthAndAlpha)
{
    auto random = ::Test::Random(3);
    for (const auto& level : levels)
    {
        const Kernels::Set* set = Kernels::SetOf(level.level);
        if (!set)
            continue;
        for (const auto& kernel : fills)
            for (int width = 1; width <= 129; ++width)
                for (int stride : {0, kernel.pixel, kernel.pixel + 1, 64, -kernel.pixel, -61})
                    for (unsigned alpha : {0u, 1u, static_cast<unsigned>(random() & 255), 254u, 255u})
                    {
                        const int reach = width * std::max(kernel.pixel, std::abs(stride)) + 40;
                        const std::size_t start = static_cast<std::size_t>(stride < 0 ? reach : 16) + width % 33u;
                        const Bytes around = Pixels(random, start + static_cast<std::size_t>(reach) + 16);
                        const PackedColor color(alpha << 24 | (random() & 0xFFFFFF));
                        Bytes expected = around, actual = around;
                        (Scalar().*kernel.entry)(expected.data() + start, color, width, stride);
                        (set->*kernel.entry)(actual.data() + start, color, width, stride);
                        ASSERT_EQ(Difference(expected, actual), "")
                            << kernel.name << ' ' << level.name << " width " << width << " stride " << stride
                            << " alpha " << alpha;
                        ASSERT_TRUE(std::equal(around.end() - 32, around.end(), expected.end() - 32)) << kernel.name;
                    }
        // Long enough for the processor's string store.
        for (const auto& kernel : fills)
        {
            Bytes expected = Pixels(random, 100001 * 4), actual = expected;
            (Scalar().*kernel.entry)(expected.data() + 1, 0xFF123456, 99999, 0);
            (set->*kernel.entry)(actual.data() + 1, 0xFF123456, 99999, 0);
            EXPECT_EQ(Difference(expected, actual), "") << kernel.name << ' ' << level.name;
        }
    }
}

// A walk in ascending order: where the destination starts inside the source, its start repeats.
TEST(KernelLevels, WalkOverlappingMemoryInAscendingOrder)
{
    auto random = ::Test::Random(4);
    auto run = [&](const char* name, TransferKernel kernel, int dstPixel, int srcPixel, bool bytewise)
    {
        for (int distance = -70; distance <= 70; ++distance)
            for (int width : {1, 2, 3, 7, 8, 9, 31, 64, 100})
            {
                Bytes expected = Pixels(random, 800), actual = expected;
                const int at = 100;
                if (bytewise)
                    for (int i = 0; i < width * dstPixel; ++i)
                        expected[at + distance + i] = expected[at + i];
                else
                    for (int i = 0; i < width; ++i)
                    {
                        std::uint8_t pixel[4], result[4];
                        std::memcpy(pixel, expected.data() + at + i * srcPixel, srcPixel);
                        std::memcpy(result, expected.data() + at + distance + i * dstPixel, dstPixel);
                        kernel(result, pixel, 1);
                        std::memcpy(expected.data() + at + distance + i * dstPixel, result, dstPixel);
                    }
                kernel(actual.data() + at + distance, actual.data() + at, width);
                ASSERT_EQ(Difference(expected, actual), "") << name << " distance " << distance << " width " << width;
            }
    };
    for (const auto& level : levels)
        if (const Kernels::Set* set = Kernels::SetOf(level.level))
            for (const auto& kernel : transfers)
                run(kernel.name, set->*kernel.entry, kernel.dstPixel, kernel.srcPixel,
                    std::string(kernel.name).starts_with("Copy"));
}

#if defined(__x86_64__) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
// The upper halves of the registers are clear after each kernel: the processor's own note of which register states are
// in use says so. Upper halves in use slow down all SSE code that follows.
TEST(KernelLevels, LeaveTheUpperHalvesOfTheRegistersClear)
{
    const Kernels::Set* set = Kernels::SetOf(Level::Avx2);
    unsigned a = 13, b, c = 1, d;
    asm volatile("cpuid" : "+a"(a), "=b"(b), "+c"(c), "=d"(d));
    if (!set || !(a & 4))
        GTEST_SKIP() << "no AVX2, or no way to read which register states are in use";
    auto upperInUse = []
    {
        unsigned low, high;
        asm volatile("xgetbv" : "=a"(low), "=d"(high) : "c"(1)); // index 1: states that are not in their initial form
        return (low & 4) != 0;
    };
    Bytes dst(4096), src(4096, 0x80);
    asm volatile("vpcmpeqd %%ymm0, %%ymm0, %%ymm0" ::: "xmm0");
    ASSERT_TRUE(upperInUse()); // the note can say so
    asm volatile("vzeroupper");
    for (const auto& kernel : transfers)
    {
        (set->*kernel.entry)(dst.data(), src.data(), 501);
        EXPECT_FALSE(upperInUse()) << kernel.name;
    }
    for (const auto& kernel : fills)
        for (std::uint32_t color : {0x80808080u, 0xFF123456u})
        {
            (set->*kernel.entry)(dst.data(), color, 501, 0);
            EXPECT_FALSE(upperInUse()) << kernel.name;
        }
}
#endif

TEST(KernelLevels, ServeNewBitmapsOnceChosen)
{
    const Level before = Kernels::CurrentLevel();
    for (Level level : {Level::Scalar, Level::Sse2, Level::Avx2})
        if (Kernels::SetLevel(level))
        {
            EXPECT_EQ(Kernels::CurrentLevel(), level);
            EXPECT_EQ(Kernels::For(Bitmap::RGB16).from24, Kernels::SetOf(level)->rgb24ToRGB16);
        }
    Kernels::SetLevel(before);
}

} // namespace
