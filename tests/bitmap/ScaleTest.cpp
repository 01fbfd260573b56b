#include <Bedrock/bitmap/Bitmap.h>
#include <Bedrock/memory/AllocReport.h>

#include "support/Support.h"

#include <climits>
#include <memory>
#include <vector>

namespace Zem
{
namespace
{

using Owned = std::unique_ptr<Bitmap>;

// A bitmap over memory that ends with its last pixel, so that a read past it is seen; every byte random.
struct Source
{
    Source(Size size, Bitmap::Format format, int channels, int pitch, std::mt19937_64& random)
        : bytes(static_cast<std::size_t>(std::abs(pitch)) * static_cast<std::size_t>(size.height - 1) +
                static_cast<std::size_t>(size.width * channels))
    {
        for (std::uint8_t& byte : bytes)
            byte = random() % 8 ? static_cast<std::uint8_t>(random()) : 255;
        block = ::Test::Exact(bytes);
        image.Init(size, pitch, format, block.get() + (pitch < 0 ? -std::ptrdiff_t{pitch} * (size.height - 1) : 0),
                   static_cast<int>(bytes.size()));
    }
    std::vector<std::uint8_t> bytes;
    std::unique_ptr<std::uint8_t[]> block;
    Bitmap image;
};

// Every format, shape of block, and way through the loops, against one sum after the other.
TEST(Scale, GivesTheTruncatedMeanOfEachBlock)
{
    const struct
    {
        const char* what;
        int width, height, newWidth, newHeight;
    } rows[] = {
        {"a copy", 64, 32, 64, 32},
        {"blocks of 4 by 16", 256, 256, 64, 16},
        {"halves", 32, 32, 16, 16},
        {"sums past 16 bits", 64, 32, 2, 2},
        {"columns alone", 16, 64, 16, 1},
        {"rows alone", 64, 16, 1, 16},
        {"narrow", 1, 8, 1, 2},
        {"two wide", 2, 2, 1, 1},
        {"several parts of a row", 4096, 8, 512, 1},
        {"blocks wider than a part", 8192, 4, 2, 2},
        {"blocks higher than a part", 4, 2048, 2, 2},
        {"larger than a part both ways", 4096, 1024, 2, 1},
    };
    const struct
    {
        Bitmap::Format format;
        int channels, pad;
        bool bottomUp;
    } formats[] = {{Bitmap::ARGB32, 4, 0, false},
                   {Bitmap::XRGB32, 4, 20, true},
                   {Bitmap::RGB24, 3, 0, false},
                   {Bitmap::RGB24, 3, 8, true}};
    auto random = ::Test::Random(0x560);
    for (const auto& row : rows)
        for (const auto& form : formats)
        {
            SCOPED_TRACE(testing::Message()
                         << row.what << ", format " << form.format << (form.bottomUp ? ", bottom up" : ""));
            const int pitch = ((row.width * form.channels + 3) & ~3) + form.pad;
            Source source({row.width, row.height}, form.format, form.channels, form.bottomUp ? -pitch : pitch, random);
            const Owned result(source.image.Scale(row.newWidth, row.newHeight));
            ASSERT_TRUE(result);
            ASSERT_EQ(Rect(*result), Rect(0, 0, row.newWidth, row.newHeight));
            ASSERT_EQ(result->GetFormat(), form.format);
            const int stepX = row.width / row.newWidth, stepY = row.height / row.newHeight;
            for (int y = 0; y < row.newHeight; ++y)
                for (int x = 0; x < row.newWidth; ++x)
                    for (int channel = 0; channel < form.channels; ++channel)
                    {
                        std::uint64_t sum = 0;
                        for (int v = 0; v < stepY; ++v)
                            for (int u = 0; u < stepX; ++u)
                                sum += source.image.GetPtr(Point{x * stepX + u, y * stepY + v})[channel];
                        ASSERT_EQ(result->GetPtr(Point{x, y})[channel], sum / static_cast<unsigned>(stepX * stepY))
                            << x << ' ' << y << ' ' << channel;
                    }
        }
    // White: the greatest sums of 16 bits, of a part, and of more than 32 bits.
    for (const auto& [size, to] :
         {std::pair{Size{1024, 512}, Size{64, 32}}, {Size{1024, 512}, Size{1, 2}}, {Size{1, 1 << 25}, Size{1, 1}}})
    {
        std::vector<unsigned char> memory(
            4u * static_cast<std::size_t>(size.width) * static_cast<std::size_t>(size.height), 255);
        const Bitmap white(size, Bitmap::ARGB32, memory.data());
        const Owned result(white.Scale(to.width, to.height));
        ASSERT_TRUE(result);
        EXPECT_EQ(static_cast<std::uint32_t>(result->Pixel(Point{to.width - 1, to.height - 1})), 0xFFFFFFFFu)
            << size.width;
    }
}

TEST(Scale, RefusesWhatItCannotDo)
{
    std::vector<unsigned char> memory(1026 * 256);
    const struct
    {
        const char* what;
        Size size;
        Bitmap::Format format;
        int pitch;
        Size to;
    } rows[] = {
        {"16 bits", {64, 64}, Bitmap::RGB16, 0, {32, 32}},
        {"indexed", {64, 64}, Bitmap::Indexed8, 0, {32, 32}},
        {"odd width", {65, 64}, Bitmap::ARGB32, 0, {32, 32}},
        {"odd height", {64, 63}, Bitmap::ARGB32, 0, {32, 32}},
        {"odd new width", {64, 64}, Bitmap::ARGB32, 0, {3, 4}},
        {"odd new height", {64, 64}, Bitmap::ARGB32, 0, {4, 3}},
        {"wider", {64, 64}, Bitmap::ARGB32, 0, {128, 4}},
        {"higher", {64, 64}, Bitmap::ARGB32, 0, {4, 128}},
        {"no width", {64, 64}, Bitmap::ARGB32, 0, {0, 4}},
        {"no height", {64, 64}, Bitmap::ARGB32, 0, {4, 0}},
        {"negative", {64, 64}, Bitmap::ARGB32, 0, {-4, 4}},
        {"the most negative, which has one bit", {64, 64}, Bitmap::ARGB32, 0, {INT_MIN, INT_MIN}},
        {"odd pitch", {256, 64}, Bitmap::ARGB32, 1026, {64, 64}},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.what);
        Bitmap image;
        image.Init(row.size, row.pitch, row.format, memory.data(), static_cast<int>(memory.size()));
        EXPECT_FALSE(Owned(image.Scale(row.to.width, row.to.height)));
    }
    EXPECT_FALSE(Owned(Bitmap().Scale(1, 1)));
    EXPECT_FALSE(Owned(Bitmap(Size{4, 4}, Bitmap::ARGB32, Bitmap::DescribeOnly()).Scale(2, 2)));
}

TEST(Crop, CopiesTheRowsOfARectangle)
{
    auto random = ::Test::Random(0x561);
    const struct
    {
        Bitmap::Format format;
        int bytes;
    } formats[] = {
        {Bitmap::Indexed8, 1}, {Bitmap::RGB24, 3}, {Bitmap::ARGB32, 4}, {Bitmap::XRGB32, 4}, {Bitmap::RGB16, 2}};
    for (const auto& form : formats)
        for (const Rect& rect : {Rect(0, 0, 21, 13), Rect(20, 12, 1, 1), Rect(3, 0, 7, 13), Rect(0, 5, 21, 2)})
            for (const int pitch : {100, -100})
            {
                SCOPED_TRACE(testing::Message() << form.format << ' ' << rect.x << ' ' << rect.width << ' ' << pitch);
                Source source({21, 13}, form.format, form.bytes, pitch, random);
                const Owned part(source.image.Crop(rect));
                ASSERT_TRUE(part);
                ASSERT_EQ(Rect(*part), Rect(0, 0, rect.width, rect.height));
                ASSERT_EQ(part->GetPitch(), part->CalcPitch(static_cast<unsigned>(rect.width)));
                for (int y = 0; y < rect.height; ++y)
                    ASSERT_EQ(std::memcmp(part->GetPtr(Point{0, y}), source.image.GetPtr(Point{rect.x, rect.y + y}),
                                          static_cast<std::size_t>(rect.width * form.bytes)),
                              0);
            }
    Bitmap image(Size{21, 13}, Bitmap::ARGB32, nullptr);
    for (const Rect& out :
         {Rect(-1, 0, 5, 5), Rect(0, 9, 5, 5), Rect(17, 0, 5, 5), Rect(3, 3, 0, 4), Rect(1, 1, INT_MAX, 2)})
        EXPECT_FALSE(Owned(image.Crop(out))) << out.x << ' ' << out.y;
    EXPECT_FALSE(Owned(Bitmap().Crop(Rect(0, 0, 1, 1))));

    Bitmap blob;
    blob.Init(Size{8, 8}, 0, Bitmap::Blob, nullptr, 64);
    const Owned empty(blob.Crop(Rect(2, 2, 4, 4)));
    ASSERT_TRUE(empty);
    EXPECT_EQ(empty->GetFormat(), Bitmap::Blob);
    EXPECT_EQ(empty->GetNumBytes(), 0u);
}

TEST(Scale, GivesNullOnAnExhaustedHeap)
{
    Bitmap image(Size{8, 8}, Bitmap::ARGB32, nullptr);
    for (const std::uint32_t served : {0u, 1u}) // the object, then its pixels
    {
        {
            const AllocFailureForTest failure(served);
            EXPECT_FALSE(image.Scale(4, 4));
        }
        const AllocFailureForTest failure(served);
        EXPECT_FALSE(image.Crop(Rect(1, 1, 3, 3)));
    }
}

} // namespace
} // namespace Zem
