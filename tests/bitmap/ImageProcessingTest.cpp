#include <Bedrock/bitmap/Bitmap.h>
#include <Bedrock/bitmap/ImageProcessing.h>

#include "support/Support.h"

#include <cmath>
#include <functional>
#include <limits>

namespace Zem
{
namespace
{

// An image of all values of a channel, 16 by 16, each with its own alpha.
Bitmap Ramp()
{
    Bitmap image(Size{16, 16}, Bitmap::ARGB32, nullptr);
    for (std::uint32_t i = 0; i < 256; ++i)
        image.Pixel(Point{static_cast<int>(i % 16), static_cast<int>(i / 16)},
                    PackedColor((255 - i) << 24 | i << 16 | ((i + 85) & 255) << 8 | (i ^ 255)));
    return image;
}

int Cut(double value)
{
    return static_cast<int>(std::fmin(std::fmax(std::trunc(value), 0), 255));
}

TEST(ImageProcessing, AppliesTheCurveThatWasBuilt)
{
    const auto brighter = [](int v, double level) { return Cut(v + std::trunc((level - 1) * 255)); };
    const auto stretched = [](int v, double level) { return Cut((v - 128) * level + 128); };
    const float nan = std::numeric_limits<float>::quiet_NaN();
    using Curve = ImageProcessing;
    const struct
    {
        const char* what;
        std::function<void(Curve&)> build;
        std::function<int(int)> value;
    } rows[] = {
        {"identity", [](Curve&) {}, [](int v) { return v; }},
        {"levels of 1",
         [](Curve& c)
         {
             c.SetupBrightness(1);
             c.SetupContrast(1);
         },
         [](int v) { return v; }},
        {"white", [](Curve& c) { c.SetupBrightness(2); }, [](int) { return 255; }},
        {"black", [](Curve& c) { c.SetupBrightness(0); }, [](int) { return 0; }},
        {"darker", [](Curve& c) { c.SetupBrightness(0.3f); }, [&](int v) { return brighter(v, 0.3f); }},
        {"all 128", [](Curve& c) { c.SetupContrast(0); }, [](int) { return 128; }},
        {"stretched", [](Curve& c) { c.SetupContrast(1.7f); }, [&](int v) { return stretched(v, 1.7f); }},
        {"5 is 2", [](Curve& c) { c.SetupContrast(5); }, [&](int v) { return stretched(v, 2); }},
        {"-3 is 0", [](Curve& c) { c.SetupBrightness(-3); }, [](int) { return 0; }},
        {"stretched, then shifted",
         [](Curve& c)
         {
             c.SetupContrast(2);
             c.SetupBrightness(1.5f);
         },
         [&](int v) { return brighter(stretched(v, 2), 1.5); }},
        {"shifted, then stretched",
         [](Curve& c)
         {
             c.SetupBrightness(1.5f);
             c.SetupContrast(0.5f);
         },
         [&](int v) { return stretched(brighter(v, 1.5), 0.5); }},
        {"afresh",
         [](Curve& c)
         {
             c.SetupContrast(0);
             c.SetupIdentity();
         },
         [](int v) { return v; }},
        {"no number", [&](Curve& c) { c.SetupContrast(nan); }, [](int) { return 128; }},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.what);
        ImageProcessing built, curve;
        row.build(built);
        curve = built;
        Bitmap image = Ramp();
        const Bitmap before = Ramp();
        ASSERT_TRUE(curve.Process(image));
        for (int i = 0; i < 256; ++i)
        {
            const unsigned char* was = before.GetPtr(Point{i % 16, i / 16});
            const unsigned char* is = image.GetPtr(Point{i % 16, i / 16});
            for (int channel = 0; channel < 3; ++channel)
                ASSERT_EQ(is[channel], row.value(was[channel])) << int{was[channel]};
            ASSERT_EQ(is[3], was[3]);
        }
    }
}

TEST(ImageProcessing, SpreadsColoursAboutTheirMean)
{
    auto random = ::Test::Random(0x562);
    Bitmap image(Size{64, 64}, Bitmap::ARGB32, nullptr);
    ImageProcessing processing;
    processing.SetupBrightness(2); // plays no part
    const float inf = std::numeric_limits<float>::infinity();
    for (const float amount : {0.0f, 0.3f, 1.0f, 2.0f, 17.5f, -1.0f, 1e30f, -inf})
    {
        SCOPED_TRACE(amount);
        std::vector<std::uint32_t> before;
        for (int i = 0; i < 64 * 64; ++i)
        {
            before.push_back(i == 0 ? 0x80FF0000 : static_cast<std::uint32_t>(random()));
            image.Pixel(Point{i % 64, i / 64}, PackedColor(before.back()));
        }
        ASSERT_TRUE(processing.AdjustColor(amount, image));
        for (int i = 0; i < 64 * 64; ++i)
        {
            const std::uint32_t was = before[static_cast<std::size_t>(i)];
            const int b = was & 255, g = was >> 8 & 255, r = was >> 16 & 255, mean = (b + g + r) / 3;
            const auto spread = [&](int c) { return static_cast<float>(c - mean) * amount + static_cast<float>(mean); };
            const unsigned char* is = image.GetPtr(Point{i % 64, i / 64});
            if (std::isinf(amount) && (b == mean || g == mean || r == mean))
                continue; // no number: harmless, and no more is promised
            ASSERT_EQ(is[0], Cut(spread(b)));
            ASSERT_EQ(is[1], Cut(spread(g)));
            ASSERT_EQ(is[2], Cut(spread(r)));
            ASSERT_EQ(is[3], was >> 24);
            if (amount == 1.0f)
            {
                ASSERT_EQ(static_cast<std::uint32_t>(image.Pixel(Point{i % 64, i / 64})), was);
            }
        }
    }
}

TEST(ImageProcessing, RefusesOtherImages)
{
    ImageProcessing white;
    white.SetupBrightness(2);
    Bitmap other(Size{2, 2}, Bitmap::XRGB32, nullptr);
    other.Clear(0xFF102030u);
    EXPECT_FALSE(white.Process(other));
    EXPECT_FALSE(white.AdjustColor(0, other));
    EXPECT_EQ(static_cast<std::uint32_t>(other.Pixel(Point{1, 1})), 0xFF102030u);
    Bitmap described(Size{2, 2}, Bitmap::ARGB32, Bitmap::DescribeOnly());
    EXPECT_FALSE(white.Process(described));
    EXPECT_FALSE(white.AdjustColor(0, described));
}

} // namespace
} // namespace Zem
