#include <Bedrock/maths/Color.h>

#include "support/Support.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace Zem
{

void PrintTo(const Color& c, std::ostream* out)
{
    *out << c.r << ' ' << c.g << ' ' << c.b << ' ' << c.a;
}

void PrintTo(const HSVColor& c, std::ostream* out)
{
    *out << c.h << ' ' << c.s << ' ' << c.v;
}

namespace
{

TEST(Color, ConvertsToHueAndBack)
{
    const struct
    {
        const char* what;
        Color rgb;
        HSVColor hsv;
    } rows[] = {
        {"grey", {0.5f, 0.5f, 0.5f, 0.3f}, {-1, 0, 0.5f}},
        {"black", {0, 0, 0, 1}, {-1, 0, 0}},
        {"red", {1, 0, 0, 1}, {0, 1, 1}},
        {"yellow, both the most", {1, 1, 0, 1}, {60 * 0.0027777778f, 1, 1}},
        {"green", {0, 0.5f, 0, 1}, {120 * 0.0027777778f, 1, 0.5f}},
        {"blue", {0, 0, 1, 0}, {240 * 0.0027777778f, 1, 1}},
        {"red and some blue", {1, 0, 0.5f, 1}, {330 * 0.0027777778f, 1, 1}},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.what);
        HSVColor hsv{9, 9, 9};
        EXPECT_EQ(hsv.Convert(row.rgb), row.hsv);
        Color back{9, 9, 9, 9};
        back.Convert(hsv);
        EXPECT_NEAR(back.r, row.rgb.r, 5e-7);
        EXPECT_NEAR(back.g, row.rgb.g, 5e-7);
        EXPECT_NEAR(back.b, row.rgb.b, 5e-7);
        EXPECT_EQ(back.a, 1);
    }
}

TEST(Color, TakesHuesAtAndPastTheEnds)
{
    const Color kept{7, 8, 9, 1};
    const struct
    {
        const char* what;
        float h;
        Color rgb;
    } rows[] = {
        {"a full turn is none", 1, {0.5f, 0.25f, 0.25f, 1}},
        {"just below it", 0.9999999f, {0.5f, 0.25f, 0.25f, 1}},
        {"a little back, still the first sixth", -1 / 12.0f, {0.5f, 0.125f, 0.25f, 1}},
        {"back", -0.25f, kept},
        {"past it", 1.0000001f, kept},
        {"far", 1e30f, kept},
        {"no number", std::numeric_limits<float>::quiet_NaN(), kept},
    };
    for (const auto& row : rows) // a step of six times the hue is 4.8e-7 at the end
    {
        SCOPED_TRACE(row.what);
        Color rgb{7, 8, 9, 0};
        rgb.Convert({row.h, 0.5f, 0.5f});
        EXPECT_NEAR(rgb.r, row.rgb.r, 5e-7);
        EXPECT_NEAR(rgb.g, row.rgb.g, 5e-7);
        EXPECT_NEAR(rgb.b, row.rgb.b, 5e-7);
        EXPECT_EQ(rgb.a, 1);
    }
}

// Against the geometry of the colour circle: a channel is full within a sixth of the circle around its own hue, none
// beyond a third, and falls evenly between.
TEST(Color, FollowsTheColourCircle)
{
    auto random = ::Test::Random(0x730);
    std::uniform_real_distribution<float> unit(0, 1);
    for (int i = 0; i < 50000; ++i)
    {
        const HSVColor hsv{unit(random), unit(random), unit(random)};
        Color rgb;
        ASSERT_EQ(&rgb.Convert(hsv), &rgb);
        const float* channels[] = {&rgb.r, &rgb.g, &rgb.b};
        for (int k = 0; k < 3; ++k)
        {
            const double turned = std::fabs(hsv.h - k / 3.0);
            const double away = std::min(turned, 1 - turned) * 6;
            const double strength = std::clamp(2 - away, 0.0, 1.0);
            ASSERT_NEAR(*channels[k], hsv.v * (1 - hsv.s * (1 - strength)), 1e-6) << hsv.h << " channel " << k;
        }
        HSVColor back;
        ASSERT_EQ(&back.Convert(rgb), &back);
        ASSERT_EQ(back.v, hsv.v);
        if (hsv.s * hsv.v > 0.01f)
        {
            ASSERT_NEAR(back.s, hsv.s, 1e-4);
            const double off = std::fabs(back.h - hsv.h);
            ASSERT_LT(std::min(off, 1 - off), 1e-4);
        }
    }
}

} // namespace
} // namespace Zem
