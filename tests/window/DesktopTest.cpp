// The rules that every desktop keeps beyond what a `Window` shows of them: several windows of one program, and children.

#include "window/OnStage.h"

#include <gmock/gmock.h>

#include <thread>

using namespace Zem;
using namespace Test;
using Platform::DesktopMessage;
using Platform::WindowKind;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

// A message, and which window got it.
struct Told
{
    WindowHandle window;
    std::uintptr_t number, first;

    bool operator==(const Told&) const = default;
    friend std::ostream& operator<<(std::ostream& out, const Told& told)
    {
        return out << std::hex << told.window.value << ": " << std::dec << told.number << '(' << told.first << ')';
    }
};

class OnDesktop : public OnStage
{
protected:
    WindowHandle Framed(Point corner, Size client)
    {
        return desktop->CreateWindow({WindowKind::Framed, "ZEM", "framed", {0}, true, corner, client});
    }

    WindowHandle Child(WindowHandle parent, const Rect& area)
    {
        return desktop->CreateWindow({WindowKind::Child, "ZEM", "child", parent, true, area, area});
    }

    /// Fetches until none has come for a while; those of the given numbers.
    std::vector<Told> Fetch(const std::set<std::uintptr_t>& numbers)
    {
        std::vector<Told> told;
        for (int quiet = 0; quiet < 6;)
        {
            DesktopMessage message;
            if (!desktop->Next(message))
            {
                ++quiet;
                desktop->Wait(10);
                continue;
            }
            quiet = 0;
            if (numbers.count(message.message.number))
                told.push_back({{message.message.window}, message.message.number, message.message.first});
        }
        return told;
    }

    WindowHandle Front()
    {
        WindowHandle front{0};
        desktop->TopLevelWindows(&front, 1);
        return front;
    }

    const std::set<std::uintptr_t> keyboard{MessageActivate, MessageFocus, MessageFocusLost};
};

INSTANTIATE_TEST_SUITE_P(Desktops, OnDesktop,
                         testing::Values(StageKind::Headless, StageKind::X11Managed, StageKind::X11Bare),
                         testing::PrintToStringParamName());

} // namespace

// A click brings a window to the front with the keyboard; covered ones don't hear the mouse.
TEST_P(OnDesktop, StacksAndFocusesWindowsByClicks)
{
    const WindowHandle below = Framed({100, 100}, {300, 200}), above = Framed({200, 150}, {300, 200});
    desktop->Show(below, true);
    desktop->Show(above, true);
    EXPECT_EQ(desktop->Focus(), above);
    EXPECT_THAT(Fetch(keyboard), ElementsAre(Told{below, MessageActivate, 1}, Told{below, MessageFocus, 0},
                                             Told{below, MessageActivate, 0}, Told{below, MessageFocusLost, 0},
                                             Told{above, MessageActivate, 1}, Told{above, MessageFocus, 0}));
    EXPECT_EQ(Front(), above);

    Rect client;
    ASSERT_TRUE(desktop->ClientArea(below, client));
    const Point both{client.x + 150, client.y + 120}, onlyBelow{client.x + 10, client.y + 10};
    stage->MovePointer(both);
    EXPECT_THAT(Fetch({MessageMouseMove}), testing::Each(Told{above, MessageMouseMove, 0}));
    stage->MovePointer(onlyBelow);
    stage->Button(1, true);
    stage->Button(1, false);
    EXPECT_THAT(Fetch({MessageActivate, MessageFocus, MessageFocusLost, MessageLeftDown}),
                testing::UnorderedElementsAre(Told{above, MessageActivate, 0}, Told{above, MessageFocusLost, 0},
                                              Told{below, MessageActivate, 1}, Told{below, MessageFocus, 0},
                                              Told{below, MessageLeftDown, MouseLeft}));
    EXPECT_EQ(Front(), below);
    EXPECT_EQ(desktop->Focus(), below);
    stage->MovePointer(both);
    EXPECT_THAT(Fetch({MessageMouseMove}), testing::Each(Told{below, MessageMouseMove, 0}));

    if (stage->IsManaged())
    {
        stage->MovePointer({client.x + 10, client.y - 5}); // on the title, which is no business of the window's
        stage->Button(3, true);
        stage->Button(3, false);
        EXPECT_THAT(Fetch({MessageMouseMove, MessageRightDown, MessageRightUp}), IsEmpty());
        stage->Tap(keyEscape); // a manager's menu
        Fetch({});
    }

    // Without messages of what is gone, the other one has the keyboard back only if the desktop likes.
    stage->Tap(keyA);
    EXPECT_TRUE(desktop->DestroyWindow(below));
    EXPECT_THAT(Fetch({MessageKeyDown, MessageDestroy, MessageFocusLost}), IsEmpty());
    EXPECT_FALSE(desktop->DestroyWindow(below));
    EXPECT_FALSE(desktop->IsOwn(below));
    EXPECT_FALSE(desktop->IsVisible(below));
}

// Children lie in their parent: cut at its edges, moved with it, hidden with it, and gone with it.
TEST_P(OnDesktop, KeepsChildrenInTheirParents)
{
    const WindowHandle parent = Framed({100, 100}, {300, 200});
    const WindowHandle child = Child(parent, {200, 100, 150, 80}), inner = Child(child, {10, 10, 20, 20});
    ASSERT_NE(inner.value, 0u);
    EXPECT_EQ(Child({0}, {0, 0, 1, 1}).value, 0u);
    desktop->Show(child, true);
    desktop->Show(inner, true);
    EXPECT_FALSE(desktop->IsVisible(inner)) << "its parents are hidden";
    EXPECT_FALSE(desktop->SetFocus(inner));
    EXPECT_FALSE(desktop->SetCapture(inner));
    desktop->Show(parent, true);
    EXPECT_TRUE(desktop->IsVisible(inner));
    Fetch({});

    Rect client, area;
    ASSERT_TRUE(desktop->ClientArea(parent, client));
    ASSERT_TRUE(desktop->Area(inner, area));
    EXPECT_EQ(area, Rect(client.x + 210, client.y + 110, 20, 20));
    const auto hears = [&](Point place)
    {
        stage->MovePointer(place);
        const auto moves = Fetch({MessageMouseMove});
        return moves.empty() ? WindowHandle{0} : moves.back().window;
    };
    EXPECT_EQ(hears({client.x + 5, client.y + 5}), parent);
    EXPECT_EQ(hears({client.x + 205, client.y + 105}), child);
    EXPECT_EQ(hears({client.x + 215, client.y + 115}), inner);
    EXPECT_EQ(hears({client.x + 340, client.y + 150}), (WindowHandle{0})) << "the child ends with its parent";

    // The keyboard wanders within the tree: no activation, and a click leaves it where it is.
    EXPECT_TRUE(desktop->SetFocus(inner));
    EXPECT_THAT(Fetch(keyboard), ElementsAre(Told{parent, MessageFocusLost, 0}, Told{inner, MessageFocus, 0}));
    EXPECT_EQ(desktop->Focus(), inner);
    stage->Tap(keyA);
    EXPECT_THAT(Fetch({MessageKeyDown}), ElementsAre(Told{inner, MessageKeyDown, 'A'}));
    const WindowHandle other = stage->OpenForeign({600, 100, 200, 200}, true);
    stage->Activate(other);
    EXPECT_THAT(Fetch(keyboard), ElementsAre(Told{parent, MessageActivate, 0}, Told{inner, MessageFocusLost, 0}));
    EXPECT_TRUE(desktop->SetFocus(child));
    EXPECT_THAT(Fetch(keyboard), ElementsAre(Told{parent, MessageActivate, 1}, Told{child, MessageFocus, 0}));

    // Only what changes is told, and the last change alone.
    desktop->Resize(parent, {310, 210});
    desktop->Resize(parent, {320, 220});
    const auto sizes = Fetch({MessageSize});
    EXPECT_EQ(std::count(sizes.begin(), sizes.end(), (Told{child, MessageSize, SizeRestored})),
              std::count(sizes.begin(), sizes.end(), (Told{parent, MessageSize, SizeRestored})));
    EXPECT_FALSE(sizes.empty());
    desktop->Resize(child, {100, 70});
    const auto followed = Fetch({MessageSize});
    EXPECT_THAT(followed, ElementsAre(Told{inner, MessageSize, SizeRestored})) << "its own size is no news to it";

    // With the capture, every move goes to its window, whatever lies there.
    EXPECT_TRUE(desktop->SetCapture(child));
    EXPECT_TRUE(desktop->SetCapture(parent)); // takes it over
    EXPECT_EQ(hears({client.x + 205, client.y + 105}), parent);
    EXPECT_EQ(hears({5, 5}), parent);
    EXPECT_TRUE(desktop->SetCapture({0}));

    EXPECT_TRUE(desktop->DestroyWindow(parent));
    EXPECT_FALSE(desktop->IsOwn(child));
    EXPECT_FALSE(desktop->IsOwn(inner));
    EXPECT_THAT(Fetch({MessageDestroy}), IsEmpty());
}

// A program that ends takes its windows with it, and ours in them.
TEST_P(OnDesktop, TellsWhatDiesWithAForeignParent)
{
    const WindowHandle parent = stage->OpenForeign({100, 100, 300, 200}, true);
    const WindowHandle outer = Child(parent, {0, 0, 100, 100}), inner = Child(outer, {0, 0, 50, 50});
    desktop->Show(outer, true);
    desktop->Show(inner, true);
    Fetch({});
    stage->KillForeign();
    EXPECT_THAT(Fetch({MessageDestroy}), ElementsAre(Told{inner, MessageDestroy, 0}, Told{outer, MessageDestroy, 0}));
    Rect area;
    EXPECT_FALSE(desktop->Area(outer, area));
    EXPECT_FALSE(desktop->Show(outer, true));
    EXPECT_FALSE(desktop->Resize(inner, {5, 5}));
}

// What cannot be done answers false, and sizes are cut to what a desktop can take.
TEST_P(OnDesktop, RefusesWhatCannotBe)
{
    const WindowHandle nobody{0x00DEAD00};
    const WindowHandle foreign = stage->OpenForeign({100, 100, 300, 200}, true);
    const WindowHandle window = Framed({100, 100}, {0, -5});
    const WindowHandle child = Child(foreign, {0, 0, 10, 10});
    Rect area;
    Platform::WindowPosition position;
    for (const WindowHandle wrong : {nobody, WindowHandle{0}})
    {
        EXPECT_FALSE(desktop->Area(wrong, area));
        EXPECT_FALSE(desktop->ClientArea(wrong, area));
        EXPECT_FALSE(desktop->Resize(wrong, {10, 10}));
        EXPECT_FALSE(desktop->Move(wrong, {0, 0, 10, 10}));
        EXPECT_FALSE(desktop->Position(wrong, position));
        EXPECT_FALSE(desktop->SetPosition(wrong, {Platform::WindowState::Normal, {0, 0, 10, 10}}));
        EXPECT_FALSE(desktop->IsVisible(wrong));
        EXPECT_FALSE(desktop->Forward(wrong, {0, MessageKeyDown, 'A', 1}));
    }
    const std::uint32_t pixel = 0;
    for (const WindowHandle wrong : {nobody, foreign, WindowHandle{0}})
    {
        EXPECT_FALSE(desktop->IsOwn(wrong));
        EXPECT_FALSE(desktop->DestroyWindow(wrong));
        EXPECT_FALSE(desktop->SetTitle(wrong, "title"));
        EXPECT_FALSE(desktop->Show(wrong, false));
        EXPECT_FALSE(desktop->SetFocus(wrong));
        EXPECT_FALSE(desktop->Present(wrong, {&pixel, 4, {1, 1}}, {0, 0}));
    }
    EXPECT_FALSE(desktop->SetCapture(nobody));
    EXPECT_FALSE(desktop->SetFocus(window)) << "hidden";
    EXPECT_FALSE(desktop->Move(child, {0, 0, 10, 10})) << "no top-level window";
    EXPECT_FALSE(desktop->Forward(window, {0, MessageKeyDown, 'A', 1})) << "an own one";
    desktop->Show(window, true);
    Fetch({});
    ASSERT_TRUE(desktop->ClientArea(window, area));
    EXPECT_EQ(Size{area}, (Size{1, 1}));
    for (const std::int32_t far : {INT32_MIN, INT32_MIN + 1, -32768, 32768, INT32_MAX})
    {
        const WindowHandle remote = Framed({far, far}, {far, far});
        if (remote.value == 0)
            continue; // a server may have no memory for the largest
        EXPECT_TRUE(desktop->Area(remote, area));
        EXPECT_EQ(area.x < 0, far < 0) << far;
        EXPECT_TRUE(area.width > 0 && area.height > 0);
        desktop->Move(remote, {far, far, far, far});
        desktop->SetPosition(remote, {Platform::WindowState::Normal, {far, far, far, far}});
        desktop->Present(remote, {&pixel, 4, {1, 1}}, {far, far});
        EXPECT_TRUE(desktop->DestroyWindow(remote));
    }
    EXPECT_TRUE(desktop->IsVisible(foreign));
}

// Another thread wakes the one that waits, also when it does so just before.
TEST_P(OnDesktop, WakesWhoWaits)
{
    Fetch({});
    for (int repeat = 0; repeat < 3; ++repeat)
    {
        const auto start = std::chrono::steady_clock::now();
        std::thread waker(
            [&]
            {
                if (repeat != 0)
                    std::this_thread::sleep_for(std::chrono::milliseconds(20 * repeat));
                desktop->Wake();
            });
        if (repeat == 0)
            waker.join();
        desktop->Wait(20000);
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
        if (repeat != 0)
            waker.join();
    }
}
