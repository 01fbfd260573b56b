// The picture of a window: what is drawn is seen where and when it is shown, and stays.

#include "window/OnStage.h"

#include <Bedrock/maths/OptimalRects.h>
#include <Bedrock/window/WindowSurface.h>

using namespace Zem;
using Test::HostWindow;
using Test::Stage;

namespace
{

using Test::OnStage;

TEST_P(OnStage, ShowsWhatIsDirty)
{
    HostWindow host;
    WindowSurface surface(host.window);
    EXPECT_EQ(surface.Begin(), nullptr) << "no window yet";
    EXPECT_FALSE(surface.Present());
    host.Show(100, 100, 200, 150);
    const auto seen = [&](Point at)
    {
        Point anywhere;
        desktop->Pointer(anywhere); // what was shown has been drawn
        return stage->Pixel(host.Handle(), at);
    };

    Bitmap* picture = surface.Begin();
    ASSERT_NE(picture, nullptr);
    EXPECT_EQ(Rect(*picture), Rect(0, 0, 200, 150));
    picture->Clear(0xFF102030);
    EXPECT_EQ(seen({5, 5}), 0u) << "not shown yet";
    const Rect corner(0, 0, 10, 10);
    ASSERT_TRUE(surface.Present(&corner, 1)); // a new picture is shown as a whole
    EXPECT_FALSE(surface.IsNew());
    EXPECT_EQ(seen({5, 5}), 0x102030u);
    EXPECT_EQ(seen({199, 149}), 0x102030u);

    // Each rectangle is cut to the picture; between them nothing changes.
    EXPECT_EQ(surface.Begin(), picture);
    picture->Clear(0xFFAABBCC);
    OptimalRects dirty;
    dirty.Invalidate(Rect(20, 30, 11, 7));
    dirty.Invalidate(Rect(190, 140, 50, 50));
    dirty.Process();
    ASSERT_TRUE(surface.Present(dirty));
    const Rect outside[] = {{-20, -20, 22, 22}, {300, 300, 5, 5}, {0, 0, 0, 0}};
    ASSERT_TRUE(surface.Present(outside, 3));
    const struct
    {
        Point at;
        bool fresh;
    } rows[] = {{{20, 30}, true},    {{30, 36}, true},  {{19, 30}, false},  {{31, 36}, false},
                {{20, 29}, false},   {{30, 37}, false}, {{190, 140}, true}, {{199, 149}, true},
                {{189, 149}, false}, {{1, 1}, true},    {{2, 1}, false},    {{100, 100}, false}};
    for (const auto& row : rows)
        EXPECT_EQ(seen(row.at), row.fresh ? 0xAABBCCu : 0x102030u) << row.at.x << ',' << row.at.y;

    // Hundreds of small ones, each with its own colour.
    for (int y = 0; y < 15; ++y)
        for (int x = 0; x < 20; ++x)
        {
            const Rect cell(x * 10, y * 10, 10, 10);
            picture->Box(cell, PackedColor(0xFF000000u + static_cast<std::uint32_t>(y * 20 + x)), Bitmap::StyleFilled);
            ASSERT_TRUE(surface.Present(&cell, 1));
        }
    for (int cell = 0; cell < 300; cell += 7)
        EXPECT_EQ(seen({cell % 20 * 10 + 4, cell / 20 * 10 + 9}), static_cast<std::uint32_t>(cell));

    // A part that was covered is shown again, whether or not the program draws.
    const auto foreign = stage->OpenForeign({120, 130, 80, 60}, true);
    ASSERT_NE(foreign.value, 0u);
    host.Settle();
    stage->KillForeign();
    ASSERT_TRUE(host.Until([&] { return seen({54, 49}) == 4 * 20 + 5; }));

    // Another size is another picture.
    ASSERT_TRUE(desktop->Resize(host.Handle(), {120, 80}));
    picture = surface.Begin();
    ASSERT_NE(picture, nullptr);
    EXPECT_TRUE(surface.IsNew());
    EXPECT_EQ(Rect(*picture), Rect(0, 0, 120, 80));
    EXPECT_EQ(picture->Pixel(Point{7, 7}), PackedColor(0u)) << "black";
    ASSERT_TRUE(surface.Present());
    host.window.Show(false);
    host.window.Show(true);
    EXPECT_TRUE(surface.Present());
}

} // namespace
