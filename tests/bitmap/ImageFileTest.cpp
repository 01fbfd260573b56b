// TGA, BMP and PCX: bytes in, pixels out; pixels in, bytes out; and files that lie.

#include <Bedrock/bitmap/Bitmap.h>
#include <Bedrock/files/File.h>
#include <Bedrock/files/MemoryFile.h>
#include <Bedrock/memory/PString.h>

#include "support/Images.h"
#include "support/Support.h"

#include <functional>

using namespace Zem;
using Test::Bytes;
using Test::Loader;

namespace
{

struct Images : testing::Test
{
    static void SetUpTestSuite() { PString::Init(); }
    ::Test::Directory directory;
};

bool LoadFile(Bitmap& bitmap, const char* name, const Bytes& bytes, bool keepIndexed = false)
{
    ::Test::WriteFile(name, bytes);
    return bitmap.Load(PString(name), PString(), keepIndexed);
}

std::vector<std::uint32_t> Words(const Bitmap& bitmap)
{
    std::vector<std::uint32_t> words;
    const Rect all = bitmap;
    for (int y = 0; y < all.height; ++y)
        for (int x = 0; x < all.width; ++x)
            words.push_back(bitmap.GetFormat() == Bitmap::Indexed8 ? *bitmap.GetPtr(Point{x, y})
                                                                   : std::uint32_t{bitmap.Pixel(Point{x, y})});
    return words;
}

// One small image of each kind, top row first: the words that must come out, and for 8 bits the indices.
TEST_F(Images, LoadToTheStatedPixels)
{
    const std::vector<std::uint32_t> four = {0x01020304, 0x80FF00AA, 0x00112233, 0xFFFEFDFC, //
                                             0x11111111, 0x22222222, 0x33333333, 0x44444444};
    const std::vector<std::uint32_t> opaque = {0xFF020304, 0xFFFF00AA, 0xFF112233, 0xFFFEFDFC,
                                               0xFF111111, 0xFF222222, 0xFF333333, 0xFF444444};
    const std::vector<std::uint32_t> fifteen = {0xFFF8F8F8, 0xFF000000, 0xFFF80000, 0xFF00F800,
                                                0xFF0000F8, 0xFF082030, 0xFF000000, 0xFFF8F8F8};
    const Bytes fifteenBytes = {0xFF, 0x7F, 0x00, 0x80, 0x00, 0x7C, 0xE0, 0x03,
                                0x1F, 0x00, 0x86, 0x04, 0x00, 0x00, 0xFF, 0xFF};
    const Bytes indices = {3, 1, 4, 1, 5, 9, 2, 255};
    const std::vector<std::uint32_t> kept(indices.begin(), indices.end());
    std::vector<std::uint32_t> mapped, fewMapped;
    for (std::uint8_t i : indices)
    {
        mapped.push_back(0xFF000000 | ::Test::MapColor(i));
        fewMapped.push_back(i < 2 ? 0xFF000000 | ::Test::MapColor(i) : 0xFF000000);
    }
    const std::vector<std::uint32_t> flipped = {5, 9, 2, 255, 3, 1, 4, 1};
    const Bytes id(200, 0xEE);
    const struct
    {
        const char* what;
        const char* name;
        Bytes bytes;
        bool keepIndexed;
        Bitmap::Format format;
        std::vector<std::uint32_t> expected;
    } rows[] = {
        {"TGA 32, top first", "a.tga", ::Test::Tga(4, 2, 32, ::Test::Raw(four, 4), true), false, Bitmap::ARGB32, four},
        {"TGA 32, bottom first", "a.TGA", ::Test::Tga(4, 2, 32, ::Test::Flip(::Test::Raw(four, 4), 2), false), true,
         Bitmap::ARGB32, four},
        {"TGA 32 with an ID", "a.tgax", ::Test::Tga(4, 2, 32, ::Test::Raw(four, 4), true, id), false, Bitmap::ARGB32,
         four},
        {"TGA 24, top first", "a.tga", ::Test::Tga(4, 2, 24, ::Test::Raw(four, 3), true), false, Bitmap::XRGB32,
         opaque},
        {"TGA 24, bottom first", "a.tga", ::Test::Tga(4, 2, 24, ::Test::Flip(::Test::Raw(four, 3), 2), false), true,
         Bitmap::XRGB32, opaque},
        {"TGA 16", "a.tga", ::Test::Tga(4, 2, 16, fifteenBytes, true), false, Bitmap::XRGB32, fifteen},
        {"TGA 8", "a.tga", ::Test::Tga(4, 2, 8, indices, true), false, Bitmap::XRGB32, mapped},
        {"TGA 8, bottom first, an ID", "a.tga", ::Test::Tga(4, 2, 8, ::Test::Flip(indices, 2), false, id), false,
         Bitmap::XRGB32, mapped},
        {"TGA 8 kept", "a.tga", ::Test::Tga(4, 2, 8, indices, true), true, Bitmap::Indexed8, kept},
        {"TGA 8 kept, bottom first", "a.tga", ::Test::Tga(4, 2, 8, ::Test::Flip(indices, 2), false), true,
         Bitmap::Indexed8, kept},
        {"BMP 24, bottom first", "a.bmp", ::Test::Bmp(4, 2, 24, ::Test::Flip(::Test::Raw(four, 3), 2)), false,
         Bitmap::XRGB32, opaque},
        {"BMP 24, top first", "a.bmp", ::Test::Bmp(4, -2, 24, ::Test::Raw(four, 3)), true, Bitmap::XRGB32, opaque},
        {"BMP 8, bottom first", "a.Bmp", ::Test::Bmp(4, 2, 8, ::Test::Flip(indices, 2)), false, Bitmap::XRGB32, mapped},
        {"BMP 8, top first", "a.bmp", ::Test::Bmp(4, -2, 8, indices), false, Bitmap::XRGB32, mapped},
        {"BMP 8 of two colours", "a.bmp", ::Test::Bmp(4, -2, 8, indices, 2), false, Bitmap::XRGB32, fewMapped},
        {"BMP 8, bottom first, kept in file order", "a.bmp", ::Test::Bmp(4, 2, 8, ::Test::Flip(indices, 2)), true,
         Bitmap::Indexed8, flipped},
        {"BMP 8, top first, kept", "a.bmp", ::Test::Bmp(4, -2, 8, indices), true, Bitmap::Indexed8, kept},
        {"PCX", "a.pcx", ::Test::Pcx(4, 2, {0xC1, 3, 1, 4, 1, 5, 9, 2, 0xC1, 255}), false, Bitmap::XRGB32, mapped},
        {"PCX kept", "a.pcx", ::Test::Pcx(4, 2, {3, 1, 4, 0xC0, 77, 1, 5, 9, 2, 0xFF, 255}), true, Bitmap::Indexed8,
         kept},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.what);
        Bitmap bitmap;
        ASSERT_TRUE(LoadFile(bitmap, row.name, row.bytes, row.keepIndexed));
        EXPECT_EQ(bitmap.GetFormat(), row.format);
        EXPECT_EQ(static_cast<Rect>(bitmap), Rect(0, 0, 4, 2));
        EXPECT_EQ(Words(bitmap), row.expected);
        if (row.format == Bitmap::Indexed8)
        {
            ASSERT_TRUE(bitmap.GetPalette());
            const std::uint32_t alpha = row.bytes[0] == 'B' ? 0x77000000 : 0; // a BMP's reserved byte is kept
            EXPECT_EQ(bitmap.GetPalette()[9], alpha | ::Test::MapColor(9));
            Bitmap view(bitmap);
            EXPECT_NE(view.GetPalette(), bitmap.GetPalette());
            EXPECT_EQ(std::memcmp(view.GetPalette(), bitmap.GetPalette(), 1024), 0);
        }
        else
        {
            EXPECT_FALSE(bitmap.GetPalette());
        }
    }
}

// A width of which neither the rows in memory nor the vectors come out even.
TEST_F(Images, LoadRunsAcrossRowsOfOddWidth)
{
    std::vector<std::uint32_t> words, indices;
    Bytes stream;
    for (int i = 0; i < 5 * 41; ++i)
        indices.push_back(i < 150 ? 7 : static_cast<unsigned>(i));
    for (unsigned n : {63u, 63u, 24u})
        stream.insert(stream.end(), {static_cast<std::uint8_t>(0xC0 | n), 7});
    for (int i = 150; i < 5 * 41; ++i)
        if (i >= 0xC0)
            stream.insert(stream.end(), {0xC1, static_cast<std::uint8_t>(i)});
        else
            stream.push_back(static_cast<std::uint8_t>(i));
    for (std::uint32_t i : indices)
        words.push_back(0xFF000000 | ::Test::MapColor(static_cast<std::uint8_t>(i)));
    Bitmap bitmap;
    ASSERT_TRUE(LoadFile(bitmap, "a.pcx", ::Test::Pcx(5, 41, stream), false));
    EXPECT_EQ(Words(bitmap), words);
    ASSERT_TRUE(LoadFile(bitmap, "a.pcx", ::Test::Pcx(5, 41, stream), true));
    EXPECT_EQ(bitmap.GetPitch(), 8u);
    EXPECT_EQ(Words(bitmap), indices);
}

TEST_F(Images, RefuseWhatTheyDoNotKnow)
{
    const Bytes four(16, 9), eight(64, 1);
    auto changed = [](Bytes bytes, std::initializer_list<std::pair<int, int>> edits)
    {
        for (auto [at, value] : edits)
            bytes[static_cast<std::size_t>(at < 0 ? static_cast<int>(bytes.size()) + at : at)] =
                static_cast<std::uint8_t>(value);
        return bytes;
    };
    const Bytes tga = ::Test::Tga(2, 2, 32, four, true), tga8 = ::Test::Tga(8, 8, 8, eight, true);
    const Bytes bmp = ::Test::Bmp(8, 8, 8, eight), pcx = ::Test::Pcx(8, 8, {0xFF, 3, 0xC1, 3});
    const struct
    {
        const char* what;
        const char* name;
        Bytes bytes;
    } rows[] = {
        {"empty TGA", "a.tga", {}},
        {"empty BMP", "a.bmp", {}},
        {"empty PCX", "a.pcx", {}},
        {"TGA from right to left", "a.tga", changed(tga, {{17, 0x30}})},
        {"TGA interleaved", "a.tga", changed(tga, {{17, 0x60}})},
        {"TGA of runs", "a.tga", changed(tga, {{2, 10}})},
        {"TGA of true colour with a map", "a.tga", changed(tga, {{1, 1}})},
        {"TGA of 15 bits", "a.tga", changed(tga, {{16, 15}})},
        {"TGA mapped without a map", "a.tga", changed(tga8, {{1, 0}})},
        {"TGA mapped with entries of 32 bits", "a.tga", changed(tga8, {{7, 32}})},
        {"TGA mapped with 16 bits", "a.tga", changed(tga8, {{16, 16}})},
        {"TGA of no width", "a.tga", changed(tga, {{12, 0}})},
        {"TGA of no height", "a.tga", changed(tga, {{14, 0}})},
        {"TGA larger than its bytes", "a.tga", changed(tga, {{12, 255}, {13, 255}, {14, 255}, {15, 255}})},
        {"TGA whose ID is longer than the file", "a.tga", changed(tga, {{0, 255}})},
        {"BMP with another mark", "a.bmp", changed(bmp, {{1, 'N'}})},
        {"BMP with another header", "a.bmp", changed(bmp, {{14, 12}})},
        {"BMP of two planes", "a.bmp", changed(bmp, {{26, 2}})},
        {"BMP compressed", "a.bmp", changed(bmp, {{30, 1}})},
        {"BMP of width 30", "a.bmp", ::Test::Bmp(30, 2, 8, Bytes(60, 1))},
        {"BMP of 16 bits", "a.bmp", changed(bmp, {{28, 16}})},
        {"BMP of no width", "a.bmp", changed(bmp, {{18, 0}})},
        {"BMP of negative width", "a.bmp", changed(bmp, {{18, 0xF8}, {19, 255}, {20, 255}, {21, 255}})},
        {"BMP of no height", "a.bmp", changed(bmp, {{22, 0}})},
        {"BMP of the lowest height", "a.bmp", changed(bmp, {{22, 0}, {25, 0x80}})},
        {"BMP larger than its bytes", "a.bmp", changed(bmp, {{21, 0x7F}})},
        {"PCX of version 3", "a.pcx", changed(pcx, {{1, 3}})},
        {"PCX without runs", "a.pcx", changed(pcx, {{2, 0}})},
        {"PCX of 1 bit", "a.pcx", changed(pcx, {{3, 1}})},
        {"PCX without the mark of the palette", "a.pcx", changed(pcx, {{-769, 11}})},
        {"PCX of negative width", "a.pcx", changed(pcx, {{8, 0xF0}, {9, 255}})},
        {"PCX that no runs could fill", "a.pcx", changed(pcx, {{9, 0x7F}, {11, 0x7F}})},
        {"PCX whose runs end early", "a.pcx", ::Test::Pcx(8, 8, {0xFF, 3})},
        {"PCX that ends inside a run", "a.pcx", ::Test::Pcx(8, 8, {0xFF, 3, 0xC1})},
        {"TGA under another name", "a.png", tga},
        {"TGA under a name without a dot", "tga", tga},
    };
    for (const auto& row : rows)
        for (bool keepIndexed : {false, true})
        {
            SCOPED_TRACE(row.what);
            Bitmap bitmap(Size{2, 2}, Bitmap::ARGB32, nullptr);
            EXPECT_FALSE(LoadFile(bitmap, row.name, row.bytes, keepIndexed));
            EXPECT_FALSE(bitmap.IsValid());
            EXPECT_FALSE(bitmap.GetPalette());
            EXPECT_EQ(static_cast<Rect>(bitmap), Rect());
        }
    std::uint8_t memory[4] = {1, 2, 3, 4};
    Bitmap wrapping(Size{1, 1}, Bitmap::ARGB32, memory);
    EXPECT_FALSE(wrapping.Load(PString("absent.tga"), PString(), false));
    EXPECT_FALSE(wrapping.IsValid());
    EXPECT_FALSE(wrapping.Load(PString(), PString(), false));
}

// Every file cut at every byte: refused, and nothing behind the cut is read (the block is exactly as long).
TEST_F(Images, RefuseFilesThatEndEarly)
{
    const Bytes pixels(4 * 4 * 4, 0xC5), id(3, 1);
    const struct
    {
        const char* what;
        bool (*load)(Loader&, MemoryFile&, bool);
        Bytes bytes;
    } rows[] = {
        {"TGA 32", ::Test::LoadTga, ::Test::Tga(4, 4, 32, pixels, true, id)},
        {"TGA 24", ::Test::LoadTga, ::Test::Tga(4, 4, 24, Bytes(48, 5), false)},
        {"TGA 16", ::Test::LoadTga, ::Test::Tga(4, 4, 16, Bytes(32, 5), false)},
        {"TGA 8", ::Test::LoadTga, ::Test::Tga(4, 4, 8, Bytes(16, 5), false, id)},
        {"BMP 24", ::Test::LoadBmp, ::Test::Bmp(4, 4, 24, Bytes(48, 5))},
        {"BMP 8", ::Test::LoadBmp, ::Test::Bmp(4, -4, 8, Bytes(16, 5))},
        {"PCX", ::Test::LoadPcx, ::Test::Pcx(4, 4, {0xC8, 200, 1, 2, 3, 4, 0xC4, 12})},
    };
    for (const auto& row : rows)
        for (bool keepIndexed : {false, true})
            for (std::size_t size = 0; size <= row.bytes.size(); ++size)
            {
                const auto block = ::Test::Exact(row.bytes.data(), size);
                MemoryFile file(block.get(), static_cast<std::uint32_t>(size));
                Loader bitmap;
                EXPECT_EQ(row.load(bitmap, file, keepIndexed), size == row.bytes.size()) << row.what << " at " << size;
            }
}

TEST_F(Images, TellWhatAFileHolds)
{
    const struct
    {
        const char* what;
        const char* name;
        Bytes bytes;
        bool expected;
        Bitmap::Format format;
        std::uint32_t width, height;
    } rows[] = {
        {"TGA 32", "a.tga", ::Test::Tga(300, 2, 32, {}, true), true, Bitmap::ARGB32, 300, 2},
        {"TGA 24", "a.tga", ::Test::Tga(300, 2, 24, {}, true), true, Bitmap::XRGB32, 300, 2},
        {"TGA 8", "a.tga", ::Test::Tga(3, 2, 8, {}, true), true, Bitmap::Indexed8, 3, 2},
        {"short TGA", "a.tga", Bytes(17, 0), false, Bitmap::Blob, 0, 0},
        {"empty TGA", "a.tga", {}, false, Bitmap::Blob, 0, 0},
        {"BMP of any width, top first", "a.bmp", ::Test::Bmp(30, -7, 8, {}), true, Bitmap::XRGB32, 30, 7},
        {"no BMP", "a.bmp", Bytes(54, 0), false, Bitmap::Blob, 0, 0},
        {"PCX", "a.pcx", ::Test::Pcx(9, 5, {}), true, Bitmap::XRGB32, 9, 5},
        {"no PCX", "a.pcx", Bytes(128, 0), false, Bitmap::Blob, 0, 0},
        {"no dot", "tga", ::Test::Tga(3, 2, 8, {}, true), false, Bitmap::Blob, 0, 0},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.what);
        ::Test::WriteFile(row.name, row.bytes);
        Bitmap::Format format = Bitmap::Blob;
        std::uint32_t width = 0, height = 0;
        EXPECT_EQ(Bitmap::GetInfo(row.name, format, width, height), row.expected);
        EXPECT_EQ(format, row.format);
        EXPECT_EQ(width, row.width);
        EXPECT_EQ(height, row.height);
    }
    Bytes runs = ::Test::Tga(3, 2, 32, {}, true);
    runs[2] = 10;
    ::Test::WriteFile("a.tga", runs);
    Bitmap::Format format = Bitmap::ARGB32;
    std::uint32_t width = 0, height = 0;
    EXPECT_TRUE(Bitmap::GetInfo("a.tga", format, width, height));
    EXPECT_EQ(format, Bitmap::Blob);
    EXPECT_FALSE(Bitmap::GetInfo("absent.tga", format, width, height));
    EXPECT_FALSE(Bitmap::GetInfo(nullptr, format, width, height));
}

TEST_F(Images, SaveTheStatedBytesAndLoadThemAgain)
{
    auto random = ::Test::Random(11);
    for (int width : {1, 2, 3, 32, 1025})
    {
        SCOPED_TRACE(width);
        Bitmap image(Size{width, 3}, Bitmap::ARGB32, nullptr);
        for (int y = 0; y < 3; ++y)
            for (int x = 0; x < width; ++x)
                image.Pixel(Point{x, y}, static_cast<std::uint32_t>(random()));
        const auto words = Words(image);
        ASSERT_TRUE(image.Save("out.tga"));
        EXPECT_EQ(::Test::ReadFile("out.tga"), ::Test::Tga(width, 3, 32, ::Test::Raw(words, 4), true));
        Bitmap again;
        ASSERT_TRUE(again.Load(PString("out.tga"), PString(), false));
        EXPECT_EQ(again.GetFormat(), Bitmap::ARGB32);
        EXPECT_EQ(Words(again), words);

        ASSERT_TRUE(image.Save("out.bmp"));
        Bytes rows;
        for (int y = 0; y < 3; ++y)
        {
            const Bytes row = ::Test::Raw({words.begin() + y * width, words.begin() + (y + 1) * width}, 3);
            rows.insert(rows.end(), row.begin(), row.end());
            rows.resize((rows.size() + 3) / 4 * 4);
        }
        Bytes expected = ::Test::Bmp(width, -3, 24, rows);
        ::Test::Put(expected, 2, 54 + rows.size(), 4);
        ::Test::Put(expected, 34, rows.size(), 4);
        EXPECT_EQ(::Test::ReadFile("out.bmp"), expected);
        EXPECT_EQ(again.Load(PString("out.bmp"), PString(), false), width % 4 == 0);
        if (width % 4 == 0)
        {
            for (int i = 0; i < 3 * width; ++i)
                EXPECT_EQ(again.Pixel(Point{i % width, i / width}), words[static_cast<std::size_t>(i)] | 0xFF000000);
        }
    }
    // Rows that do not follow each other in memory.
    std::uint32_t memory[8] = {1, 2, 0, 0, 3, 4, 0, 0};
    Bitmap wide;
    wide.Init(Size{2, 2}, 16, Bitmap::ARGB32, reinterpret_cast<std::uint8_t*>(memory), 0);
    ASSERT_TRUE(wide.Save("out.tga"));
    EXPECT_EQ(::Test::ReadFile("out.tga"), ::Test::Tga(2, 2, 32, ::Test::Raw({1, 2, 3, 4}, 4), true));
}

TEST_F(Images, SaveNothingOfOtherFormats)
{
    const struct
    {
        const char* name;
        Bitmap::Format format;
    } rows[] = {{"x.tga", Bitmap::XRGB32}, {"x.tga", Bitmap::RGB24},  {"x.bmp", Bitmap::Indexed8},
                {"x.bmp", Bitmap::RGB16},  {"x.pcx", Bitmap::ARGB32}, {"x.jpg", Bitmap::ARGB32},
                {"tga", Bitmap::ARGB32}};
    for (const auto& row : rows)
    {
        Bitmap bitmap(Size{4, 4}, row.format, nullptr);
        EXPECT_FALSE(bitmap.Save(row.name)) << row.name;
        EXPECT_FALSE(std::filesystem::exists(row.name));
    }
    EXPECT_FALSE(Bitmap().Save("x.tga"));
    EXPECT_FALSE(Bitmap(Size{4, 4}, Bitmap::ARGB32, nullptr).Save("absent/x.tga"));
    EXPECT_FALSE(Bitmap(Size{65536, 1}, Bitmap::ARGB32, nullptr).Save("x.tga")); // its fields have 16 bits
    EXPECT_FALSE(std::filesystem::exists("x.tga"));
}

TEST_F(Images, AddAlphaFromIndices)
{
    Bitmap image(Size{4, 2}, Bitmap::XRGB32, nullptr);
    const Bytes alpha = {1, 2, 3, 4, 128, 128, 128, 128};
    Bytes moved = ::Test::Bmp(4, -2, 8, alpha); // three bytes between palette and pixels, named in the header
    moved.insert(moved.end() - 8, 3, 0xEE);
    ::Test::Put(moved, 10, moved.size() - 8, 4);
    Bytes outside = moved;
    ::Test::Put(outside, 10, outside.size() - 7, 4);
    const struct
    {
        const char* what;
        Bytes bytes;
        bool expected;
    } rows[] = {
        {"bottom first", ::Test::Bmp(4, 2, 8, alpha), true},
        {"top first is taken the same way", ::Test::Bmp(4, -2, 8, alpha), true},
        {"pixels elsewhere", moved, true},
        {"pixels past the end", outside, false},
        {"another width", ::Test::Bmp(8, 1, 8, alpha), false},
        {"another height", ::Test::Bmp(4, 1, 8, alpha), false},
        {"24 bits", ::Test::Bmp(4, 2, 24, Bytes(24, 1)), false},
        {"no BMP", Bytes(100, 1), false},
        {"nothing", {}, false},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.what);
        image.Clear(0xFF102030);
        ::Test::WriteFile("a.bmp", row.bytes);
        EXPECT_EQ(image.AddAlpha("a.bmp"), row.expected);
        EXPECT_EQ(image.Pixel(Point{1, 0}), row.expected ? 0x80102030u : 0xFF102030u);
        EXPECT_EQ(image.Pixel(Point{1, 1}), row.expected ? 0x02102030u : 0xFF102030u);
        EXPECT_EQ(image.GetFormat(), Bitmap::XRGB32);
    }
    ::Test::WriteFile("i.tga", ::Test::Tga(4, 2, 24, Bytes(24, 7), true));
    ::Test::WriteFile("a.bmp", ::Test::Bmp(4, 2, 8, alpha));
    EXPECT_TRUE(image.LoadAlpha("i.tga", "a.bmp"));
    EXPECT_EQ(image.Pixel(Point{0, 1}), 0x01070707u);
    EXPECT_FALSE(image.LoadAlpha("i.tga", "absent.bmp"));
    EXPECT_EQ(image.Pixel(Point{0, 1}), 0xFF070707u); // the image stays
    EXPECT_FALSE(image.LoadAlpha("absent.tga", "a.bmp"));
    EXPECT_FALSE(image.IsValid());
    Bitmap narrow(Size{4, 2}, Bitmap::RGB24, nullptr);
    EXPECT_FALSE(narrow.AddAlpha("a.bmp"));
}

} // namespace
