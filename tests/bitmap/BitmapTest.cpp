// Life cycle, ownership, and what the whole-image operations do to bytes.

#include <Bedrock/bitmap/Bitmap.h>

#include "support/Support.h"

#include <climits>
#include <cmath>
#include <functional>

using namespace Zem;

namespace
{

struct Open : Bitmap
{
    using Bitmap::Bitmap;
    using Bitmap::GetBlitter;
};

std::uint32_t WordAt(const Bitmap& bitmap, int x, int y)
{
    std::uint32_t word;
    std::memcpy(&word, bitmap.GetPtr(Point{x, y}), 4);
    return word;
}

TEST(Bitmap, TakesSoundShapesOnly)
{
    std::uint8_t memory[256];
    const struct
    {
        const char* what;
        Size size;
        int pitch;
        Bitmap::Format format;
        std::uint8_t* pixels;
        int numBytes;
        bool valid;
        std::int32_t expectPitch;
        std::uint32_t expectBytes;
    } rows[] = {
        {"one pixel of 24 bits", {1, 2}, 0, Bitmap::RGB24, nullptr, 0, true, 4, 8},
        {"five pixels of 24 bits", {5, 1}, 0, Bitmap::RGB24, nullptr, 0, true, 16, 16},
        {"no width", {0, 4}, 0, Bitmap::ARGB32, nullptr, 0, false, 0, 0},
        {"negative height", {4, -1}, 0, Bitmap::ARGB32, nullptr, 0, false, 16, 0xFFFFFFF0},
        {"pitch below the width", {9, 2}, 8, Bitmap::Indexed8, memory, 0, false, 8, 16},
        {"negative pitch below the width", {9, 2}, -8, Bitmap::Indexed8, memory, 0, false, -8, 0xFFFFFFF0},
        {"bottom-up memory", {4, 2}, -16, Bitmap::ARGB32, memory + 16, 0, true, -16, 0xFFFFFFE0},
        {"bottom-up without memory", {4, 2}, -16, Bitmap::ARGB32, nullptr, 0, false, -16, 0xFFFFFFE0},
        {"described only", {4, 2}, 0, Bitmap::RGB16, Bitmap::DescribeOnly(), 0, false, 8, 16},
        {"own number of bytes", {4, 2}, 16, Bitmap::ARGB32, memory, 200, true, 16, 200},
        {"above 2 GiB", {65536, 65536}, 0, Bitmap::ARGB32, nullptr, 0, false, 262144, 0},
        {"product wraps to something small", {0x40000001, 4}, 0, Bitmap::ARGB32, memory, 0, false, 4, 0},
        {"largest numbers", {INT_MAX, INT_MAX}, INT_MIN, Bitmap::RGB24, memory, 0, false, INT_MIN, 0},
        {"blob of 10 bytes", {0, 0}, 0, Bitmap::Blob, nullptr, 10, true, 0, 10},
        {"blob of a negative size", {0, 0}, 0, Bitmap::Blob, nullptr, -1, false, 0, 0xFFFFFFFF},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.what);
        Bitmap bitmap;
        bitmap.Init(row.size, row.pitch, row.format, row.pixels, row.numBytes);
        EXPECT_EQ(bitmap.IsValid(), row.valid);
        EXPECT_EQ(bitmap.GetPitch(), static_cast<std::uint32_t>(row.expectPitch));
        EXPECT_EQ(bitmap.GetNumBytes(), row.expectBytes);
        EXPECT_EQ(static_cast<Rect>(bitmap), Rect(0, 0, row.size.width, row.size.height));
        if (row.valid && row.pixels)
        {
            EXPECT_EQ(bitmap.GetPtr(), row.pixels);
        }
    }
}

// Rows that are longer than the pitch, or than the caller's number of bytes, still fit the block: ASan watches.
TEST(Bitmap, AllocatesRoomForEveryRow)
{
    for (int bytes : {0, 3})
    {
        Bitmap bitmap;
        bitmap.Init(Size{8, 3}, 9, Bitmap::ARGB32, nullptr, bytes);
        ASSERT_TRUE(bitmap.IsValid());
        bitmap.Clear(0x12345678);
        EXPECT_EQ(WordAt(bitmap, 7, 2), 0x12345678u);
    }
}

TEST(Bitmap, WalksBackwardsThroughMemoryOfNegativePitch)
{
    std::uint32_t memory[3][4] = {};
    Bitmap bitmap;
    bitmap.Init(Size{3, 3}, -16, Bitmap::ARGB32, reinterpret_cast<std::uint8_t*>(memory[2]), 0);
    bitmap.Pixel(Point{1, 0}, 0xFF000001);
    bitmap.Pixel(Point{2, 2}, 0xFF000002);
    EXPECT_EQ(memory[2][1], 0xFF000001u);
    EXPECT_EQ(memory[0][2], 0xFF000002u);
    memory[1][3] = 7; // padding
    bitmap.Clear();
    EXPECT_EQ(memory[2][1] | memory[0][2], 0u);
    EXPECT_EQ(memory[1][3], 7u);

    bitmap.Clear(0xFF000003);
    const Bitmap part(bitmap, Rect(1, 1, 2, 2));
    ASSERT_TRUE(part.IsValid());
    EXPECT_EQ(part.GetPitch(), 16u);
    EXPECT_EQ(WordAt(part, 1, 1), 0xFF000003u);
}

TEST(Bitmap, CopiesAPartAndRefusesOneThatIsNotInside)
{
    Bitmap source(Size{5, 4}, Bitmap::RGB24, nullptr);
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 5; ++x)
            source.Pixel(Point{x, y}, 0xFF000000u | static_cast<unsigned>(y * 16 + x));
    const Bitmap part(source, Rect(2, 1, 3, 3));
    ASSERT_TRUE(part.IsValid());
    EXPECT_EQ(part.GetPitch(), source.GetPitch());
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 3; ++x)
            EXPECT_EQ(part.Pixel(Point{x, y}), source.Pixel(Point{x + 2, y + 1}));
    for (const Rect& outside : {Rect(3, 1, 3, 3), Rect(-1, 0, 2, 2), Rect(0, 0, 0, 2), Rect(INT_MAX, 0, INT_MAX, 1)})
        EXPECT_FALSE(Bitmap(source, outside).IsValid());
    EXPECT_FALSE(Bitmap(Bitmap(), Rect(0, 0, 1, 1)).IsValid());
}

TEST(Bitmap, CopyIsAViewAndMoveHandsOver)
{
    Bitmap owner(Size{4, 4}, Bitmap::ARGB32, nullptr);
    owner.Clear(0xFF010203);
    {
        Bitmap view = owner;
        EXPECT_EQ(view.GetPtr(), owner.GetPtr());
        view.Pixel(Point{1, 1}, 0xFF0A0B0C);
    }
    EXPECT_EQ(owner.Pixel(Point{1, 1}), 0xFF0A0B0Cu); // the view freed nothing
    owner = *&owner;
    EXPECT_EQ(owner.Pixel(Point{0, 0}), 0xFF010203u);
    Bitmap taker(Size{2, 2}, Bitmap::RGB16, nullptr);
    taker = std::move(owner);
    EXPECT_FALSE(owner.IsValid());
    EXPECT_EQ(taker.Pixel(Point{1, 1}), 0xFF0A0B0Cu);
    EXPECT_EQ(static_cast<Rect>(owner), Rect());
}

TEST(Bitmap, DoneLeavesWrappedMemoryAlone)
{
    std::uint32_t memory[4] = {1, 2, 3, 4};
    Bitmap bitmap(Size{2, 2}, Bitmap::ARGB32, reinterpret_cast<std::uint8_t*>(memory));
    bitmap.Done();
    EXPECT_TRUE(bitmap.IsValid());
    bitmap.Clear(0);
    bitmap.Clear();
    bitmap.Pixel(Point{0, 0}, 9, Rect(0, 0, 1, 1)); // the kernels are gone
    EXPECT_EQ(memory[0], 1u);
    EXPECT_EQ(static_cast<Rect>(bitmap), Rect());
}

TEST(Bitmap, ReadsWhiteAndWritesNothingOutside)
{
    for (Bitmap::Format format : {Bitmap::ARGB32, Bitmap::RGB24, Bitmap::RGB16, Bitmap::Indexed8})
    {
        Bitmap bitmap(Size{3, 2}, format, nullptr);
        bitmap.Clear();
        const std::vector<std::uint8_t> before(bitmap.GetPtr(), bitmap.GetPtr() + bitmap.GetNumBytes());
        for (Point p : {Point{-1, 0}, Point{3, 0}, Point{0, -1}, Point{0, 2}, Point{INT_MIN, INT_MAX}})
        {
            EXPECT_EQ(bitmap.Pixel(p), 0xFFFFFFFFu);
            bitmap.Pixel(p, 0xFF123456);
            bitmap.BlendPixel(p, 0xFF123456);
        }
        bitmap.Pixel(Point{0, 0}, 0xFF123456, Rect(1, 0, 2, 2));
        EXPECT_EQ(std::memcmp(before.data(), bitmap.GetPtr(), before.size()), 0) << format;
        EXPECT_EQ(bitmap.Pixel(Point{0, 0}), format == Bitmap::Indexed8 ? 0xFFFFFFFFu
                                             : format == Bitmap::ARGB32 ? 0
                                                                        : 0xFF000000u);
    }
}

TEST(Bitmap, StoresColoursByFormat)
{
    const struct
    {
        const char* what;
        Bitmap::Format format;
        std::uint32_t below, color, expected;
    } rows[] = {
        {"32 bits keep the word", Bitmap::ARGB32, 0xFF808080, 0x40FF0000, 0x40FF0000},
        {"32 bits without alpha too", Bitmap::XRGB32, 0xFF808080, 0x00FF0000, 0x00FF0000},
        {"24 bits composite", Bitmap::RGB24, 0xFFFFFFFF, 0x7F000000, 0xFF7E7E7E},
        {"24 bits ignore what is clear", Bitmap::RGB24, 0xFF102030, 0x00FFFFFF, 0xFF102030},
        {"16 bits lose low bits", Bitmap::RGB16, 0xFF000000, 0xFFFFFFFF, 0xFFF8FCF8},
        {"16 bits composite", Bitmap::RGB16, 0xFF000000, 0x80FFFFFF, 0xFF808080},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.what);
        Bitmap pixel(Size{2, 1}, row.format, nullptr), blended(Size{2, 1}, row.format, nullptr),
            cleared(Size{2, 1}, row.format, nullptr);
        for (Bitmap* bitmap : {&pixel, &blended, &cleared})
        {
            bitmap->Clear();
            bitmap->Clear(row.below);
        }
        pixel.Pixel(Point{1, 0}, row.color);
        blended.BlendPixel(Point{1, 0}, row.color);
        cleared.Clear(row.color);
        EXPECT_EQ(pixel.Pixel(Point{1, 0}), row.expected);
        EXPECT_EQ(blended.Pixel(Point{1, 0}), row.expected);
        EXPECT_EQ(cleared.Pixel(Point{1, 0}), row.expected);
        EXPECT_EQ(pixel.Pixel(Point{0, 0}), row.below | (row.format == Bitmap::RGB16 ? 0xFF000000u : 0));
    }
}

TEST(Bitmap, ChangesNothingInFormatsWithoutKernels)
{
    std::uint8_t memory[32];
    std::memset(memory, 0x5A, sizeof memory);
    Bitmap indexed(Size{4, 4}, Bitmap::Indexed8, memory);
    indexed.Clear(0xFFFFFFFF);
    indexed.Pixel(Point{1, 1}, 0xFFFFFFFF);
    EXPECT_EQ(memory[0] & memory[5], 0x5A);
    indexed.Clear();
    EXPECT_EQ(memory[15], 0);
    EXPECT_EQ(memory[16], 0x5A);
    Bitmap blob;
    blob.Init(Size{4, 4}, 4, Bitmap::Blob, memory + 16, 16);
    blob.Clear();
    blob.Clear(0);
    EXPECT_EQ(memory[16] & memory[31], 0x5A);
    for (Bitmap::Format format : {Bitmap::RGB24, Bitmap::ARGB32, Bitmap::RGB16, Bitmap::Indexed8})
    {
        const Open bitmap(Size{1, 1}, format, nullptr);
        EXPECT_EQ(bitmap.GetBlitter(Bitmap::Indexed8, true), nullptr);
        EXPECT_EQ(bitmap.GetBlitter(Bitmap::Blob, false), nullptr);
        EXPECT_EQ(bitmap.GetBlitter(Bitmap::XRGB32, false) == bitmap.GetBlitter(Bitmap::ARGB32, true),
                  format != Bitmap::ARGB32);
    }
}

TEST(Bitmap, RecoloursMasksAndScalesAlpha)
{
    const std::uint32_t start[4] = {0x00000040, 0x00000000, 0xFF12AB80, 0xFF000000};
    std::uint32_t memory[6];
    Bitmap bitmap;
    bitmap.Init(Size{2, 2}, 12, Bitmap::XRGB32, reinterpret_cast<std::uint8_t*>(memory), 0);
    const struct
    {
        const char* what;
        std::function<void()> change;
        std::uint32_t expected[4];
    } rows[] = {
        {"red mask", [&] { bitmap.Colorize(PackedColor::red); }, {0x40FF0000, 0, 0x80FF0000, 0x00FF0000}},
        {"half red", [&] { bitmap.Colorize(0x80FF0000); }, {0x40800000, 0, 0x80800000, 0x00800000}},
        {"half", [&] { bitmap.SetTransparency(0.5f); }, {0x00000040, 0, 0x7E12AB80, 0x7E000000}},
        {"above one", [&] { bitmap.SetTransparency(2.0f); }, {0x00000040, 0, 0xFE12AB80, 0xFE000000}},
        {"below zero", [&] { bitmap.SetTransparency(-1.0f); }, {0x00000040, 0, 0x0012AB80, 0}},
        {"no number", [&] { bitmap.SetTransparency(NAN); }, {0x00000040, 0, 0x0012AB80, 0}},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.what);
        for (int i = 0; i < 4; ++i)
            memory[i / 2 * 3 + i % 2] = start[i];
        memory[2] = 0xABCDEF01; // padding between the rows
        row.change();
        for (int i = 0; i < 4; ++i)
            EXPECT_EQ(memory[i / 2 * 3 + i % 2], row.expected[i]) << i;
        EXPECT_EQ(memory[2], 0xABCDEF01u);
    }
    Bitmap narrow(Size{1, 1}, Bitmap::RGB16, nullptr);
    narrow.Clear();
    narrow.Colorize(PackedColor::red);
    EXPECT_FALSE(narrow.SetTransparency(0.5f));
    EXPECT_EQ(narrow.Pixel(Point{0, 0}), 0xFF000000u);
}

} // namespace
