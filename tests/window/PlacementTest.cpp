// The windows of the desktop, and the pointer.

#include "window/OnStage.h"

#include <Bedrock/window/MousePointer.h>
#include <Bedrock/window/WindowPlacement.h>

#include <algorithm>

using namespace Zem;
using namespace Test;

namespace
{

Rect AreaOf(Desktop& desktop, WindowHandle window)
{
    Rect area;
    desktop.Area(window, area);
    return area;
}

} // namespace

// To the pixel, frames included; no window comes to the front; hidden and vanished ones are left out.
TEST_P(OnStage, PutsTheDesktopsWindowsBack)
{
    WindowPlacement::RestoreWindowPositions(); // of nothing noted
    HostWindow host;
    host.Show(700, 500, 200, 150);
    const WindowHandle first = stage->OpenForeign({40, 50, 300, 200}, true);
    const WindowHandle second = stage->OpenForeign({100, 300, 250, 180}, true);
    const WindowHandle hidden = stage->OpenForeign({500, 300, 150, 180}, false);
    ASSERT_TRUE(host.Until([&] { return desktop->IsVisible(first) && desktop->IsVisible(second); }));
    host.Settle();

    const auto stacked = [&]
    {
        std::vector<WindowHandle> windows(desktop->TopLevelWindows(nullptr, 0));
        desktop->TopLevelWindows(windows.data(), windows.size());
        return windows;
    };
    const std::vector<WindowHandle> before = stacked();
    const auto stands = [&](WindowHandle window) { return std::count(before.begin(), before.end(), window); };
    EXPECT_EQ(stands(first) + stands(second) + stands(host.Handle()), 3);
    EXPECT_EQ(stands(hidden), 0);

    const std::uint32_t noted = WindowPlacement::Count();
    WindowPlacement::SaveWindowPositions();
    EXPECT_EQ(WindowPlacement::Count(), noted + before.size());
    const Rect places[] = {AreaOf(*desktop, first), AreaOf(*desktop, second), AreaOf(*desktop, host.Handle())};
    EXPECT_EQ(places[2], host.window.GetArea());

    const auto away = [&]
    {
        EXPECT_TRUE(desktop->Move(first, {0, 0, 350, 260}));
        EXPECT_TRUE(desktop->Move(second, {400, 20, 200, 100}));
        EXPECT_TRUE(desktop->Move(host.Handle(), {300, 600, places[2].width, places[2].height}));
        EXPECT_TRUE(host.Until(
            [&]
            {
                return AreaOf(*desktop, first) == Rect(0, 0, 350, 260) &&
                       AreaOf(*desktop, second) == Rect(400, 20, 200, 100) &&
                       Point{host.window.GetArea()} == Point{300, 600};
            }));
    };
    const auto back = [&]
    {
        return AreaOf(*desktop, first) == places[0] && AreaOf(*desktop, second) == places[1] &&
               AreaOf(*desktop, host.Handle()) == places[2];
    };
    for (int repeat = 0; repeat < 2; ++repeat)
    {
        away();
        WindowPlacement::RestoreWindowPositions();
        EXPECT_TRUE(host.Until(back)) << AreaOf(*desktop, first).x << ' ' << AreaOf(*desktop, second).x;
        host.Settle();
        EXPECT_TRUE(back());
        EXPECT_EQ(stacked(), before);
    }

    // Saved again, the newer places win; a window that has gone is passed over.
    away();
    WindowPlacement::SaveWindowPositions();
    stage->KillForeign();
    host.Settle();
    EXPECT_TRUE(desktop->Move(host.Handle(), places[2]));
    WindowPlacement::RestoreWindowPositions();
    EXPECT_TRUE(host.Until([&] { return Point{host.window.GetArea()} == Point{300, 600}; }));
    EXPECT_FALSE(desktop->IsVisible(first));
}

TEST_P(OnStage, RestoresMinimisedAndMaximisedWindowsAsSuch)
{
    if (!stage->IsManaged())
        GTEST_SKIP() << "nobody minimises";
    HostWindow host;
    host.Show(100, 100, 200, 150);
    const Rect place = host.window.GetArea();
    stage->Minimise(host.Handle());
    ASSERT_TRUE(host.Until([&] { return host.window.IsIconic(); }));
    WindowPlacement::SaveWindowPositions();
    host.window.Show(true);
    ASSERT_TRUE(host.Until([&] { return !host.window.IsIconic(); }));
    Platform::WindowPosition position;
    ASSERT_TRUE(desktop->Position(host.Handle(), position));
    EXPECT_EQ(position.normal, place);
    WindowPlacement::RestoreWindowPositions();
    EXPECT_TRUE(host.Until([&] { return host.window.IsIconic(); }));

    const WindowHandle other = stage->OpenForeign({400, 300, 250, 180}, true);
    const auto reaches = [&](Platform::WindowState state)
    { return host.Until([&] { return desktop->Position(other, position) && position.state == state; }); };
    ASSERT_TRUE(reaches(Platform::WindowState::Normal));
    const Platform::WindowPosition normal = position;
    EXPECT_TRUE(desktop->SetPosition(other, {Platform::WindowState::Maximised, normal.normal}));
    EXPECT_TRUE(reaches(Platform::WindowState::Maximised));
    host.Settle();
    const Rect whole = AreaOf(*desktop, other);
    EXPECT_GE(whole.width, Stage::size.width - 10);
    WindowPlacement::SaveWindowPositions();
    EXPECT_TRUE(desktop->SetPosition(other, {Platform::WindowState::Normal, {10, 10, 200, 200}}));
    EXPECT_TRUE(reaches(Platform::WindowState::Normal));
    WindowPlacement::RestoreWindowPositions();
    EXPECT_TRUE(reaches(Platform::WindowState::Maximised));
    host.Settle();
    EXPECT_EQ(AreaOf(*desktop, other), whole);
    if (GetParam() == StageKind::Headless)
    {
        EXPECT_EQ(position.normal, normal.normal); // X tells only where a window is
    }
    EXPECT_TRUE(desktop->SetPosition(other, normal));
    EXPECT_TRUE(reaches(Platform::WindowState::Normal));
    EXPECT_TRUE(host.Until([&] { return AreaOf(*desktop, other) == normal.normal; }));
}

TEST_P(OnStage, CountsHidingThePointer)
{
    HostWindow host;
    host.Show(100, 100, 200, 150);
    stage->MovePointer({200, 200});
    host.Settle();
    const auto seen = [&](bool expected) { return host.Until([&] { return stage->IsPointerVisible() == expected; }); };
    EXPECT_TRUE(seen(true));
    MousePointer::Hide();
    MousePointer::Hide();
    EXPECT_TRUE(seen(false));
    MousePointer::Show();
    host.Settle();
    EXPECT_FALSE(stage->IsPointerVisible());
    MousePointer::Show();
    EXPECT_TRUE(seen(true));
    MousePointer::Show(); // one too many takes one more to hide
    MousePointer::Hide();
    host.Settle();
    EXPECT_TRUE(stage->IsPointerVisible());
}
