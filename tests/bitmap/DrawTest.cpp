// Shapes and transfers against the slow second opinion of DrawReference.h: random coordinates, clips, formats, pitches
// (odd and negative) and alphas, pixel by pixel, with guard bytes around every image.

#include "bitmap/DrawReference.h"
#include "support/Support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>

namespace
{

using namespace Test;

constexpr Bitmap::Format formats[] = {Bitmap::RGB24, Bitmap::ARGB32, Bitmap::XRGB32, Bitmap::RGB16};
constexpr unsigned char guard = 0xA7;

int Bytes(Bitmap::Format format)
{
    return format == Bitmap::RGB16 ? 2 : format == Bitmap::RGB24 ? 3 : 4;
}

/// A bitmap over memory of our own with guard bytes between and around the rows, beside a model of the same pixels.
struct Pair
{
    std::vector<unsigned char> memory;
    Bitmap bitmap;
    Model model;
    int pitch;
    unsigned char* first;

    Pair(Bitmap::Format format, int width, int height, std::mt19937_64& random)
        : model(format, width, height), pitch(width * Bytes(format) + static_cast<int>(random() % 7))
    {
        memory.assign(static_cast<std::size_t>(pitch) * height + 128, guard);
        const bool bottomUp = random() % 2;
        first = memory.data() + 64 + (bottomUp ? static_cast<std::ptrdiff_t>(pitch) * (height - 1) : 0);
        bitmap.Init(Size{width, height}, bottomUp ? -pitch : pitch, format, first, 0);
        pitch = bottomUp ? -pitch : pitch;
        for (auto& p : model.raw)
        {
            p = static_cast<std::uint32_t>(random());
            if (random() % 3 == 0)
                p |= 0xFF000000;
            if (random() % 8 == 0)
                p &= 0x00FFFFFF;
            p &= format == Bitmap::RGB16 ? 0xFFFF : format == Bitmap::RGB24 ? 0xFFFFFF : 0xFFFFFFFF;
        }
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x)
                std::memcpy(At(x, y), &model.At(x, y), static_cast<std::size_t>(Bytes(format)));
    }

    unsigned char* At(int x, int y) const
    {
        return first + static_cast<std::ptrdiff_t>(y) * pitch + static_cast<std::ptrdiff_t>(x) * Bytes(model.format);
    }

    /// Pixels equal the model's and no guard byte changed; says the first that differs.
    testing::AssertionResult Matches() const
    {
        std::vector<unsigned char> expected(memory.size(), guard);
        for (int y = 0; y < model.height; ++y)
            for (int x = 0; x < model.width; ++x)
                std::memcpy(expected.data() + (At(x, y) - memory.data()),
                            &model.raw[static_cast<std::size_t>(y) * model.width + x],
                            static_cast<std::size_t>(Bytes(model.format)));
        if (expected == memory)
            return testing::AssertionSuccess();
        for (int y = 0; y < model.height; ++y)
            for (int x = 0; x < model.width; ++x)
            {
                std::uint32_t got = 0;
                std::memcpy(&got, At(x, y), static_cast<std::size_t>(Bytes(model.format)));
                if (got != model.At(x, y))
                    return testing::AssertionFailure() << std::hex << "pixel (" << std::dec << x << ", " << y << ") is "
                                                       << std::hex << got << ", should be " << model.At(x, y);
            }
        return testing::AssertionFailure() << "a byte outside the rows was written";
    }
};

std::uint32_t RandomColor(std::mt19937_64& random)
{
    const auto c = static_cast<std::uint32_t>(random());
    const int kind = static_cast<int>(random() % 4);
    return kind == 0 ? c | 0xFF000000 : kind == 1 ? c & 0x00FFFFFF : c;
}

Rect RandomClip(int width, int height, std::mt19937_64& random)
{
    if (random() % 3 == 0)
        return Rect(0, 0, width, height);
    const int x = static_cast<int>(random() % width), y = static_cast<int>(random() % height);
    return Rect(x, y, 1 + static_cast<int>(random() % (width - x)), 1 + static_cast<int>(random() % (height - y)));
}

Point RandomPoint(int width, int height, std::mt19937_64& random)
{
    const auto about = [&](int size) { return static_cast<int>(random() % (3 * size)) - size; };
    return random() % 2 ? Point{about(width), about(height)}
                        : Point{static_cast<int>(random() % width), static_cast<int>(random() % height)};
}

constexpr int rounds = 20000;

/// Runs `draw(pair, clip, random)` on random images; the operation must draw the same into bitmap and model.
template <class Draw>
void Compare(const char* what, std::uint64_t salt, Draw draw)
{
    auto random = Random(salt);
    for (int i = 0; i < rounds; ++i)
    {
        const auto format = formats[random() % 4];
        Pair pair(format, 1 + static_cast<int>(random() % 40), 1 + static_cast<int>(random() % 30), random);
        const Rect clip = RandomClip(pair.model.width, pair.model.height, random);
        draw(pair, clip, random);
        ASSERT_TRUE(pair.Matches()) << what << ", round " << i << ", format " << format << ", clip " << clip.x << ' '
                                    << clip.y << ' ' << clip.width << ' ' << clip.height;
    }
}

TEST(Draw, LinesMatchTheReference)
{
    Compare("line", 1,
            [](Pair& pair, const Rect& clip, std::mt19937_64& random)
            {
                const Point a = RandomPoint(pair.model.width, pair.model.height, random);
                const Point b = RandomPoint(pair.model.width, pair.model.height, random);
                const std::uint32_t color = RandomColor(random);
                const int style = static_cast<int>(random() % 8);
                pair.bitmap.Line(a, b, color, style, clip);
                pair.model.Line(a, b, color, style, clip);
            });
}

TEST(Draw, BoxesMatchTheReference)
{
    Compare("box", 2,
            [](Pair& pair, const Rect& clip, std::mt19937_64& random)
            {
                const Point a = RandomPoint(pair.model.width, pair.model.height, random);
                const Rect rect(a.x, a.y, static_cast<int>(random() % 40) - 3, static_cast<int>(random() % 40) - 3);
                const std::uint32_t color = RandomColor(random);
                const int style = static_cast<int>(random() % 8);
                pair.bitmap.Box(rect, color, style, clip);
                pair.model.Box(rect, color, style, clip);
            });
}

TEST(Draw, CirclesMatchTheReference)
{
    Compare("circle", 3,
            [](Pair& pair, const Rect& clip, std::mt19937_64& random)
            {
                const Point center = RandomPoint(pair.model.width, pair.model.height, random);
                const int radius = static_cast<int>(random() % 30);
                const std::uint32_t color = RandomColor(random);
                const int style = static_cast<int>(random() % 4);
                pair.bitmap.Circle(center, radius, color, style, clip);
                pair.model.Circle(center, radius, color, style, clip);
            });
}

TEST(Draw, TransfersMatchTheReference)
{
    Compare("transfer", 4,
            [](Pair& pair, const Rect& clip, std::mt19937_64& random)
            {
                Pair source(formats[random() % 4], 1 + static_cast<int>(random() % 40),
                            1 + static_cast<int>(random() % 30), random);
                const Point at = RandomPoint(pair.model.width, pair.model.height, random);
                const int x = static_cast<int>(random() % source.model.width),
                          y = static_cast<int>(random() % source.model.height);
                const Rect from(x, y, 1 + static_cast<int>(random() % 40), 1 + static_cast<int>(random() % 40));
                const bool blend = random() % 2;
                const int flags = static_cast<int>(random());
                if (blend)
                    pair.bitmap.Image(source.bitmap, at, from, flags, clip);
                else
                    pair.bitmap.CopyImage(source.bitmap, at, from, flags, clip);
                pair.model.Transfer(source.model, at, from, blend, clip);
            });
}

// An opaque tile covers its target with the tile's period, whatever the clip; the rest stays.
TEST(Draw, TilesRepeatWithTheirPeriod)
{
    Compare("tiles", 5,
            [](Pair& pair, const Rect& clip, std::mt19937_64& random)
            {
                Pair source(pair.model.format == Bitmap::RGB16 ? Bitmap::RGB16 : Bitmap::RGB24,
                            1 + static_cast<int>(random() % 9), 1 + static_cast<int>(random() % 9), random);
                const Point at = RandomPoint(pair.model.width, pair.model.height, random);
                const Rect target(at.x, at.y, static_cast<int>(random() % 60), static_cast<int>(random() % 60));
                const Rect tile(0, 0, source.model.width, source.model.height);
                pair.bitmap.Image(source.bitmap, target, tile, 0, clip);
                for (int y = 0; y < target.height; ++y)
                    for (int x = 0; x < target.width; ++x)
                        if (clip.Contains({target.x + x, target.y + y}))
                            pair.model.Take(target.x + x, target.y + y, source.model.format,
                                            source.model.At(x % tile.width, y % tile.height), true);
            });
}

// A triangle inside the clip: each row runs from edge to edge, by the stated integer steps.
TEST(Draw, TrianglesInsideFillEachRowOnce)
{
    Compare("triangle", 6,
            [](Pair& pair, const Rect&, std::mt19937_64& random)
            {
                const auto inside = [&] {
                    return Point{static_cast<int>(random() % pair.model.width),
                                 static_cast<int>(random() % pair.model.height)};
                };
                Point p[3] = {inside(), inside(), inside()};
                const std::uint32_t color = RandomColor(random);
                pair.bitmap.Triangle(p[0], p[1], p[2], color, 1, pair.model.Bounds());

                std::stable_sort(p, p + 3, [](Point a, Point b) { return a.y < b.y; });
                // Three compare-and-exchange steps are not stable for the last pair, but equal rows give the same triangle.
                const int cross = (p[2].x - p[0].x) * (p[1].y - p[0].y) - (p[1].x - p[0].x) * (p[2].y - p[0].y);
                if (cross == 0)
                    return pair.model.Line(p[0], p[2], color, 1, pair.model.Bounds());
                const auto edge = [](Point a, Point b, int y)
                {
                    const int dx = b.x - a.x, dy = b.y - a.y;
                    return dy ? a.x + (dx < 0 ? -1 : 1) * ((y - a.y) * std::abs(dx) / dy) : a.x;
                };
                for (int y = p[0].y; y <= p[2].y; ++y)
                {
                    const int onLong = edge(p[0], p[2], y);
                    const int onShort = y >= p[1].y ? edge(p[1], p[2], y) : edge(p[0], p[1], y);
                    const int left = cross > 0 ? onShort : onLong, right = cross > 0 ? onLong : onShort;
                    for (int x = left; x <= right; ++x)
                        pair.model.Put(x, y, color);
                }
            });
}

// Triangles across the clip, plain and with an antialiased fringe.
TEST(Draw, TrianglesMatchTheReference)
{
    Compare("clipped triangle", 8,
            [](Pair& pair, const Rect& clip, std::mt19937_64& random)
            {
                const auto point = [&] { return RandomPoint(pair.model.width, pair.model.height, random); };
                const Point a = point(), b = point(), c = point();
                const std::uint32_t color = RandomColor(random);
                const int style = random() % 2 ? 1 : 3;
                pair.bitmap.Triangle(a, b, c, color, style, clip);
                pair.model.Triangle(a, b, c, color, style, clip);
            });
}

// Convex polygons around a centre, textures of powers of two that repeat, every pair of formats.
TEST(Draw, PolygonsMatchTheReference)
{
    Compare("polygon", 9,
            [](Pair& pair, const Rect&, std::mt19937_64& random)
            {
                Pair source(formats[random() % 4], 1 << random() % 5, 1 << random() % 5, random);
                const Point center = RandomPoint(pair.model.width, pair.model.height, random);
                const int corners = 3 + static_cast<int>(random() % 5), radius = 1 + static_cast<int>(random() % 40);
                const double turn = static_cast<double>(random() % 1000) / 1000;
                std::vector<Point> points, texture;
                for (int i = 0; i < corners; ++i)
                {
                    const double angle = 6.283185307 * (i + turn) / corners;
                    points.push_back({center.x + static_cast<int>(radius * std::cos(angle)),
                                      center.y + static_cast<int>(radius * std::sin(angle))});
                    texture.push_back({static_cast<int>(random() % 200) - 100, static_cast<int>(random() % 200) - 100});
                }
                const bool alpha = random() % 2;
                pair.bitmap.MapPolygon(corners, points.data(), source.bitmap, texture.data(), source.model.width - 1,
                                       source.model.height - 1, alpha);
                pair.model.MapPolygon(points, source.model, texture, source.model.width - 1, source.model.height - 1,
                                      alpha);
            });
}

// Nothing outside the clip or the rows is ever written, wherever the corners lie.
TEST(Draw, ShapesKeepToTheClip)
{
    auto random = Random(7);
    for (int i = 0; i < rounds; ++i)
    {
        Pair pair(formats[random() % 4], 2 + static_cast<int>(random() % 40), 2 + static_cast<int>(random() % 30),
                  random);
        const Rect clip = RandomClip(pair.model.width, pair.model.height, random);
        const auto before = pair.memory;
        const auto far = [&]
        {
            const int shift = static_cast<int>(random() % 24);
            return Point{static_cast<int>(random()) >> (8 + shift), static_cast<int>(random()) >> (8 + shift)};
        };
        // An antialiased fringe may lie one pixel outside the clip, but never outside the bitmap.
        const int style = random() % 2 ? 1 : 3;
        pair.bitmap.Triangle(far(), far(), far(), RandomColor(random), style, clip);
        for (int y = 0; y < pair.model.height && style == 1; ++y)
            for (int x = 0; x < pair.model.width; ++x)
                if (!clip.Contains({x, y}))
                {
                    ASSERT_EQ(std::memcmp(pair.At(x, y), before.data() + (pair.At(x, y) - pair.memory.data()),
                                          static_cast<std::size_t>(Bytes(pair.model.format))),
                              0)
                        << "round " << i << " pixel " << x << ' ' << y;
                }
        for (int y = 0; y < pair.model.height; ++y)
            for (int x = 0; x < pair.model.width; ++x)
                std::memcpy(&pair.model.At(x, y), pair.At(x, y), static_cast<std::size_t>(Bytes(pair.model.format)));
        ASSERT_TRUE(pair.Matches()) << "round " << i; // the guard bytes
    }
}

TEST(Draw, EffectsAndScansOnStatedValues)
{
    Bitmap image(Size{4, 2}, Bitmap::ARGB32, nullptr);
    image.Clear(0xFFFF0000u);
    image.GrayScale(image);
    EXPECT_EQ(static_cast<std::uint32_t>(image.Pixel({3, 1})), 0xFF555555u);
    image.GrayScale(image, true);
    EXPECT_EQ(static_cast<std::uint32_t>(image.Pixel({0, 0})), 0xFF555555u);
    EXPECT_EQ(static_cast<std::uint32_t>(image.Pixel({1, 0})), 0x7F555555u);
    EXPECT_EQ(static_cast<std::uint32_t>(image.Pixel({1, 1})), 0xFF555555u);

    image.Clear(0u);
    image.Stipple(Rect(0, 0, 2, 2), PackedColor(0xFFFFFFFF), image);
    for (int i = 0; i < 8; ++i)
        EXPECT_EQ(static_cast<std::uint32_t>(image.Pixel({i % 4, i / 4})), i == 0 || i == 5 ? 0xFFFFFFFFu : 0u) << i;
    image.Clear(0u);
    image.Stipple(Rect(0, 0, 1, 2), PackedColor(0xFFFFFFFF), image);
    EXPECT_EQ(image.LineScan({0, 0}, {4, 0}, 0), 0);
    image.Pixel({2, 0}, PackedColor(0xFF000001));
    EXPECT_EQ(image.LineScan({0, 0}, {4, 0}, 0), 3);
    EXPECT_EQ(image.LineScan({3, 0}, {0, 0}, 0), 2);
    EXPECT_EQ(image.LineScan({0, 0}, {3, 1}, 0), 0) << "off axis";
}

} // namespace
