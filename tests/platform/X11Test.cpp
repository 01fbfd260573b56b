// What the X11 desktop owes to X alone: its protocols, its pixels, its keyboards, its failures. The rules that hold for
// every desktop are tested in tests/window.

#include "support/OtherProgram.h"
#include "support/Support.h"
#include "support/XServer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <fstream>
#include <string>
#include <sys/uio.h>
#include <thread>
#include <xcb/randr.h>
#include <xcb/xcbext.h>

using namespace Zem;
using namespace Zem::Platform;
using Test::Fetch;
using Test::FetchAll;
using Test::XServer;

namespace
{

constexpr std::uint32_t escape = 0xFF1B, shift = 0xFFE1, control = 0xFFE3, alt = 0xFFE9, rightAlt = 0xFE03,
                        deadAcute = 0xFE51, number7 = 0xFF95, numLock = 0xFF7F;

xcb_window_t Id(WindowHandle window)
{
    return static_cast<xcb_window_t>(window.value);
}

WindowHandle MakeFramed(Desktop& desktop, const Rect& area, const char* title = "window")
{
    return desktop.CreateWindow({WindowKind::Framed, "ZEM", title, {0}, true, area, area});
}

// Whether memory for pictures is mapped here.
bool SharesPictures()
{
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);)
        if (line.find("bedrock-picture") != std::string::npos)
            return true;
    return false;
}

class X11 : public testing::Test
{
protected:
    void SetUp() override
    {
        if (!::Test::HasXServer())
            GTEST_SKIP() << "Xvfb or openbox is not installed";
    }
};

// What window managers, task bars and tools read of a window.
TEST_F(X11, TellsManagersWhatTheyAskFor)
{
    XServer server(true);
    Desktop& desktop = server.Open();
    const WindowHandle window = MakeFramed(desktop, {120, 90, 400, 300},
                                           "Gr\xC3\xB6\xC3\x9F"
                                           "e \xE2\x82\xAC");
    ASSERT_TRUE(desktop.Show(window, true));
    const xcb_window_t id = Id(window);

    EXPECT_EQ(server.Text(id, "_NET_WM_NAME"), "Gr\xC3\xB6\xC3\x9F"
                                               "e \xE2\x82\xAC");
    EXPECT_EQ(server.Text(id, "WM_NAME"), "Gr\xF6\xDF"
                                          "e ?");
    EXPECT_TRUE(desktop.SetTitle(window, "caf\xE9 \xC3(")); // no UTF-8: taken as Latin-1
    Point anywhere;
    EXPECT_TRUE(desktop.Pointer(anywhere)); // the server has read the title when it answers
    EXPECT_EQ(server.Text(id, "_NET_WM_NAME"), "caf\xC3\xA9 \xC3\x83(");
    EXPECT_EQ(server.Text(id, "WM_CLASS"), std::string("ZEM\0ZEM\0", 8));
    EXPECT_THAT(server.Property(id, "_NET_WM_PID"), testing::ElementsAre(static_cast<std::uint32_t>(getpid())));
    EXPECT_FALSE(server.Text(id, "WM_CLIENT_MACHINE").empty());

    // The frame's corner is where it was asked for, and the size is the client's; the user cannot change that.
    const auto extents = server.Property(id, "_NET_FRAME_EXTENTS");
    ASSERT_EQ(extents.size(), 4u);
    const auto left = static_cast<std::int32_t>(extents[0]), top = static_cast<std::int32_t>(extents[2]);
    EXPECT_GT(top, 0);
    EXPECT_EQ(server.Geometry(id), Rect(120 + left, 90 + top, 400, 300));
    const auto hints = server.Property(id, "WM_NORMAL_HINTS");
    ASSERT_EQ(hints.size(), 18u);
    EXPECT_EQ(std::vector<std::uint32_t>(hints.begin() + 5, hints.begin() + 9),
              (std::vector<std::uint32_t>{400, 300, 400, 300}));

    // A manager that asks whether the program still lives is answered by whoever fetches messages.
    const std::uint32_t mask = XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY;
    xcb_change_window_attributes(server.xcb, server.screen->root, XCB_CW_EVENT_MASK, &mask);
    server.Tell(id, "WM_PROTOCOLS", server.Atom("_NET_WM_PING"), 4711, id);
    FetchAll(desktop);
    bool answered = false;
    while (xcb_generic_event_t* const event = xcb_poll_for_event(server.xcb))
    {
        const auto& answer = reinterpret_cast<const xcb_client_message_event_t&>(*event);
        answered |= (event->response_type & 0x7F) == XCB_CLIENT_MESSAGE && answer.type == server.Atom("WM_PROTOCOLS") &&
                    answer.window == server.screen->root && answer.data.data32[1] == 4711;
        std::free(event);
    }
    EXPECT_TRUE(answered);
}

// A manager may come and go under open windows.
TEST_F(X11, LivesWithManagersThatComeAndGo)
{
    XServer server(false);
    Desktop& desktop = server.Open();
    const WindowHandle window = MakeFramed(desktop, {100, 100, 300, 200});
    ASSERT_TRUE(desktop.Show(window, true));
    Rect area;
    ASSERT_TRUE(desktop.Area(window, area));
    EXPECT_EQ(area, Rect(100, 100, 300, 200));
    EXPECT_EQ(desktop.Focus(), window);
    FetchAll(desktop);

    server.StartManager();
    FetchAll(desktop, 200);
    ASSERT_TRUE(desktop.Area(window, area));
    EXPECT_GT(area.height, 200) << "framed now";
    EXPECT_TRUE(desktop.Resize(window, {200, 100}));
    ASSERT_TRUE(desktop.ClientArea(window, area));
    EXPECT_EQ(Size(area), (Size{200, 100}));

    server.StopManager();
    FetchAll(desktop, 200);
    EXPECT_TRUE(desktop.IsVisible(window));
    EXPECT_TRUE(desktop.Move(window, {10, 20, 210, 110}));
    ASSERT_TRUE(desktop.Area(window, area));
    EXPECT_EQ(area, Rect(10, 20, 210, 110));
    EXPECT_EQ(server.Geometry(Id(window)), area);
}

// Full screen is the manager's business; without one the window has the size that was asked for.
TEST_F(X11, FillsTheMonitor)
{
    for (const bool manager : {false, true})
    {
        SCOPED_TRACE(manager);
        XServer server(manager);
        Desktop& desktop = server.Open();
        const WindowHandle window =
            desktop.CreateWindow({WindowKind::FullScreen, "ZEM", "full", {0}, true, {0, 0}, {640, 480}});
        const Rect expected = manager ? Rect(0, 0, 1280, 1024) : Rect(0, 0, 640, 480);
        for (int times = 0; times < 2; ++times) // a manager forgets the state of what is hidden
        {
            ASSERT_TRUE(desktop.Show(window, true));
            FetchAll(desktop, 100);
            EXPECT_EQ(server.Geometry(Id(window)), expected);
            const auto states = server.Property(Id(window), "_NET_WM_STATE");
            EXPECT_THAT(states, testing::Contains(server.Atom("_NET_WM_STATE_FULLSCREEN")));
            EXPECT_THAT(states, testing::Contains(server.Atom("_NET_WM_STATE_ABOVE")));
            Rect client;
            EXPECT_TRUE(desktop.ClientArea(window, client));
            EXPECT_EQ(client, expected);
            EXPECT_EQ(desktop.Focus(), window);
            EXPECT_TRUE(desktop.Show(window, false));
            EXPECT_FALSE(server.IsMapped(Id(window)));
        }
    }
}

// What keys type and which numbers they have, on the keyboard of the server.
TEST_F(X11, ReadsTheKeyboard)
{
    XServer server(false, "640x480x24");
    Desktop& desktop = server.Open();
    const WindowHandle window = MakeFramed(desktop, {0, 0, 200, 100});
    ASSERT_TRUE(desktop.Show(window, true));
    FetchAll(desktop);

    struct Row
    {
        const char* what;
        std::vector<std::uint32_t> held; // pressed before, by symbol
        std::uint32_t key;
        std::uint32_t number, code;
        const char* text;
        std::uint32_t bits; // beside count and scan code
    };
    const auto check = [&](const std::vector<Row>& rows)
    {
        for (const Row& row : rows)
        {
            SCOPED_TRACE(row.what);
            for (const std::uint32_t held : row.held)
                server.Key(held, true);
            server.Key(row.key, true);
            server.Key(row.key, false);
            for (auto held = row.held.rbegin(); held != row.held.rend(); ++held)
                server.Key(*held, false);
            // All of it is read late, when nothing is held any more.
            const auto messages = FetchAll(desktop);
            ASSERT_EQ(messages.size(), 2 * (row.held.size() + 1));
            const DesktopMessage& down = messages[row.held.size()];
            const DesktopMessage& up = messages[row.held.size() + 1];
            EXPECT_EQ(down.message.number, row.number);
            EXPECT_EQ(up.message.number, row.number + 1);
            EXPECT_EQ(down.message.first, row.code);
            EXPECT_EQ(up.message.first, row.code);
            EXPECT_STREQ(down.text, row.text);
            EXPECT_STREQ(up.text, "");
            EXPECT_EQ(down.message.second & ~std::uintptr_t{0xFF0000}, KeyBitsCount | row.bits);
            EXPECT_EQ(up.message.second & ~std::uintptr_t{0xFF0000},
                      KeyBitsCount | row.bits | KeyBitsHeld | KeyBitsReleased);
        }
    };
    check({
        {"letter", {}, 'q', MessageKeyDown, 'Q', "q", 0},
        {"capital", {shift}, 'q', MessageKeyDown, 'Q', "Q", 0},
        {"sign above a digit", {shift}, '1', MessageKeyDown, '1', "!", 0},
        {"control character", {control}, 'c', MessageKeyDown, 'C', "\3", 0},
        {"Alt makes it the system's", {alt}, 'x', MessageSysKeyDown, 'X', "x", KeyBitsAlt},
        {"Alt and Control do not", {control, alt}, 'x', MessageKeyDown, 'X', "\x18", KeyBitsAlt},
        {"F10 is the system's", {}, 0xFFC7, MessageSysKeyDown, KeyF10, "", 0},
        {"Enter", {}, 0xFF0D, MessageKeyDown, KeyEnter, "\r", 0},
        {"Backspace", {}, 0xFF08, MessageKeyDown, KeyBackspace, "\b", 0},
        {"Escape", {}, escape, MessageKeyDown, KeyEscape, "\x1B", 0},
        {"Delete types nothing", {}, 0xFFFF, MessageKeyDown, KeyDelete, "", KeyBitsExtended},
        {"arrow", {}, 0xFF51, MessageKeyDown, KeyLeft, "", KeyBitsExtended},
        {"right Control", {}, 0xFFE4, MessageKeyDown, KeyControl, "", KeyBitsExtended},
        {"number block without its lock", {}, number7, MessageKeyDown, KeyHome, "", 0},
        {"sign of the US keyboard", {}, ';', MessageKeyDown, KeySemicolon, ";", 0},
    });
    server.Type(numLock);
    FetchAll(desktop);
    check({{"number block with its lock", {}, number7, MessageKeyDown, KeyNumber0 + 7, "7", 0}});
    server.Type(numLock);
    FetchAll(desktop);

    // Another layout, under way: letters move, dead keys compose, the third level types without being Alt.
    if (std::system("setxkbmap -layout de >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "setxkbmap does not work here";
    FetchAll(desktop, 200);
    check({
        {"z where the US have y", {}, 'z', MessageKeyDown, 'Z', "z", 0},
        {"letter of its own, by its place", {}, 0xF6, MessageKeyDown, KeySemicolon, "\xC3\xB6", 0},
        {"digit", {}, '7', MessageKeyDown, '7', "7", 0},
        {"third level", {rightAlt}, 'q', MessageKeyDown, 'Q', "@", 0},
    });
    server.Type(deadAcute);
    server.Type('e');
    std::string typed;
    for (const DesktopMessage& message : FetchAll(desktop))
        typed += message.text;
    EXPECT_EQ(typed, "\xC3\xA9");
    ASSERT_EQ(std::system("setxkbmap -layout ru >/dev/null 2>&1"), 0);
    FetchAll(desktop, 200);
    check({{"letter without Latin ones, by its place", {}, 0x6CA, MessageKeyDown, 'Q', "\xD0\xB9", 0}});
}

// A held key comes as presses alone.
TEST_F(X11, RepeatsHeldKeys)
{
    XServer server(false, "640x480x24", {"-ardelay", "100", "-arinterval", "20"});
    Desktop& desktop = server.Open();
    const WindowHandle window = MakeFramed(desktop, {0, 0, 200, 100});
    ASSERT_TRUE(desktop.Show(window, true));
    FetchAll(desktop);
    server.Key('a', true);
    int presses = 0;
    const auto messages =
        Fetch(desktop, [&](const WindowMessage& m) { return m.number == MessageKeyDown && ++presses == 4; });
    server.Key('a', false);
    ASSERT_EQ(presses, 4);
    for (std::size_t i = 0; i < messages.size(); ++i)
    {
        EXPECT_EQ(messages[i].message.number, std::uintptr_t{MessageKeyDown});
        EXPECT_EQ((messages[i].message.second & KeyBitsHeld) != 0, i > 0);
        EXPECT_STREQ(messages[i].text, "a");
    }
}

// A parent that belongs to another process: creation in it, its size, its end.
TEST_F(X11, LivesInAnotherProcessesWindow)
{
    for (const bool manager : {false, true})
    {
        SCOPED_TRACE(manager);
        XServer server(manager);
        ::Test::OtherProgram program;
        Desktop& desktop = server.Open();
        const xcb_window_t parent = program.Open({50, 60, 320, 240}, true, "parent");
        const WindowHandle child =
            desktop.CreateWindow({WindowKind::Child, "ZEM", "child", {parent}, true, {10, 20}, {100, 80}});
        ASSERT_NE(child.value, 0u);
        const WindowHandle inner =
            desktop.CreateWindow({WindowKind::Child, "ZEM", "inner", child, true, {5, 5}, {20, 20}});
        ASSERT_TRUE(desktop.Show(inner, true));
        EXPECT_TRUE(desktop.IsVisible({parent}));
        EXPECT_FALSE(desktop.IsVisible(inner)) << "its parent is not";
        ASSERT_TRUE(desktop.Show(child, true));
        EXPECT_TRUE(desktop.IsVisible(inner));
        const Rect outer = server.Geometry(parent);
        Rect client;
        ASSERT_TRUE(desktop.ClientArea(inner, client));
        EXPECT_EQ(client, Rect(outer.x + 15, outer.y + 25, 20, 20));
        FetchAll(desktop);

        // Keys come to the child while it has the keyboard, and go to the parent as the user's again when it has not.
        server.Move({outer.x + 50, outer.y + 60});
        ASSERT_TRUE(desktop.SetFocus(child));
        FetchAll(desktop);
        server.Type('k');
        EXPECT_THAT(Fetch(desktop, [](const WindowMessage& m) { return m.number == MessageKeyUp; }),
                    testing::SizeIs(2));
        WindowMessage noted{};
        EXPECT_FALSE(program.Take(noted));
        server.Focus(parent);
        FetchAll(desktop);
        server.Type('k');
        EXPECT_THAT(FetchAll(desktop), testing::IsEmpty());
        ASSERT_TRUE(program.Take(noted));
        EXPECT_EQ(noted.number, std::uintptr_t{MessageKeyDown});

        program.Resize(parent, {200, 150});
        const auto resized = Fetch(desktop, [](const WindowMessage& m) { return m.number == MessageSize; });
        ASSERT_FALSE(resized.empty());
        EXPECT_EQ(resized.back().message.window, child.value);
        EXPECT_EQ(resized.back().message.second, Pack(200, 150));

        program.Kill();
        const auto ended = Fetch(desktop, [&](const WindowMessage& m)
                                 { return m.window == child.value && m.number == MessageDestroy; });
        ASSERT_GE(ended.size(), 2u);
        EXPECT_EQ(ended[ended.size() - 2].message.window, inner.value) << "children first";
        EXPECT_EQ(ended.back().message.window, child.value);
        EXPECT_FALSE(desktop.IsOwn(child));
        EXPECT_EQ(desktop.CreateWindow({WindowKind::Child, "ZEM", "x", {parent}, true, {0, 0}, {10, 10}}).value, 0u);
        EXPECT_FALSE(desktop.Forward({parent}, {parent, MessageKeyDown, 'A', 30u << KeyBitsScanShift}));
        EXPECT_NE(MakeFramed(desktop, {0, 0, 10, 10}).value, 0u) << "the desktop goes on";
    }
}

// The server's end is the end of all windows, in order, and of nothing else.
TEST_F(X11, OutlivesItsServer)
{
    XServer server(false, "640x480x24");
    Desktop& desktop = server.Open();
    const WindowHandle window = MakeFramed(desktop, {0, 0, 200, 100});
    const WindowHandle child =
        desktop.CreateWindow({WindowKind::Child, "ZEM", "child", window, true, {0, 0}, {50, 50}});
    const WindowHandle other = MakeFramed(desktop, {0, 200, 200, 100});
    for (const WindowHandle each : {window, child, other})
        ASSERT_TRUE(desktop.Show(each, true));
    ASSERT_TRUE(desktop.SetCapture(window));
    FetchAll(desktop);
    server.Kill();
    const std::vector<std::uint32_t> pixels(100);
    EXPECT_NO_FATAL_FAILURE(desktop.Present(window, {pixels.data(), 40, {10, 10}}, {0, 0}));
    const auto messages = FetchAll(desktop, 200);
    std::vector<std::uintptr_t> order;
    for (const DesktopMessage& message : messages)
    {
        EXPECT_EQ(message.message.number, std::uintptr_t{MessageDestroy});
        order.push_back(message.message.window);
    }
    EXPECT_THAT(order, testing::ElementsAre(child.value, window.value, other.value));

    Rect rect;
    DesktopSize measures;
    Point point;
    WindowPosition position;
    EXPECT_FALSE(desktop.IsOwn(window));
    EXPECT_EQ(MakeFramed(desktop, {0, 0, 10, 10}).value, 0u);
    EXPECT_FALSE(desktop.DestroyWindow(window));
    EXPECT_FALSE(desktop.Show(window, true));
    EXPECT_FALSE(desktop.SetTitle(window, "x"));
    EXPECT_FALSE(desktop.Area(window, rect) || desktop.ClientArea(window, rect) || desktop.Resize(window, {1, 1}));
    EXPECT_FALSE(desktop.SetFocus(window) || desktop.SetCapture(window) || desktop.SetCapture({0}));
    EXPECT_FALSE(desktop.IsVisible(window) || desktop.IsMinimised(window) || desktop.Measure(measures));
    EXPECT_FALSE(desktop.Pointer(point) || desktop.MovePointer({1, 1}) || desktop.ShowPointer(false));
    EXPECT_FALSE(desktop.Position({1}, position) || desktop.SetPosition({1}, {}) || desktop.Move({1}, {}));
    EXPECT_FALSE(desktop.Forward({1}, {1, MessageKeyDown, 0, 0}));
    EXPECT_EQ(desktop.TopLevelWindows(nullptr, 0), 0u);
    EXPECT_EQ(desktop.Focus().value | desktop.Capture().value, 0u);
    const auto start = std::chrono::steady_clock::now();
    desktop.Wait(50);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(45))
        << "there is nothing to wake for";
}

// Numbers that name nothing, somebody else's window, or the root.
TEST_F(X11, RefusesWindowsThatAreNot)
{
    XServer server(false, "640x480x24");
    Desktop& desktop = server.Open();
    const xcb_window_t foreign = server.AddWindow("foreign", {10, 10, 50, 50});
    for (const std::uintptr_t number : {std::uintptr_t{0}, std::uintptr_t{1}, std::uintptr_t{0xDEADBEEF},
                                        static_cast<std::uintptr_t>(foreign) + (std::uintptr_t{1} << 32)})
    {
        SCOPED_TRACE(number);
        const WindowHandle none{number};
        Rect rect(1, 2, 3, 4);
        WindowPosition position;
        EXPECT_FALSE(desktop.IsOwn(none) || desktop.IsVisible(none) || desktop.IsMinimised(none));
        EXPECT_FALSE(desktop.Show(none, true) || desktop.Show(none, false) || desktop.DestroyWindow(none));
        EXPECT_FALSE(desktop.Area(none, rect) || desktop.ClientArea(none, rect));
        EXPECT_EQ(rect, Rect(1, 2, 3, 4));
        EXPECT_FALSE(desktop.Resize(none, {10, 10}) || desktop.Move(none, {0, 0, 10, 10}));
        EXPECT_FALSE(desktop.Position(none, position) || desktop.SetPosition(none, {WindowState::Normal, {}}));
        EXPECT_FALSE(desktop.SetFocus(none) || desktop.Forward(none, {number, MessageMouseMove, 0, 0}));
        EXPECT_FALSE(number != 0 && desktop.SetCapture(none));
        EXPECT_EQ(desktop.CreateWindow({WindowKind::Child, "ZEM", "x", none, true, {0, 0}, {10, 10}}).value, 0u);
    }
    EXPECT_FALSE(desktop.Show({foreign}, false) || desktop.DestroyWindow({foreign}) || desktop.SetFocus({foreign}));
    EXPECT_FALSE(desktop.SetTitle({foreign}, "mine") || desktop.SetCapture({foreign}));
    EXPECT_TRUE(server.IsMapped(foreign));
    EXPECT_EQ(server.Text(foreign, "WM_NAME"), "foreign");
}

// Pictures on every kind of screen, through shared memory and without: each pixel as the server stores it.
TEST_F(X11, ShowsPictures)
{
    const struct
    {
        const char* screen;
        bool shares;
        std::uint32_t (*stored)(std::uint32_t); // of 0x00RRGGBB
    } rows[] = {
        {"320x200x24", true, [](std::uint32_t p) { return p; }},
        {"320x200x24", false, [](std::uint32_t p) { return p; }},
        {"320x200x16", true, [](std::uint32_t p) { return (p >> 8 & 0xF800) | (p >> 5 & 0x7E0) | (p >> 3 & 0x1F); }},
        {"320x200x16", false, [](std::uint32_t p) { return (p >> 8 & 0xF800) | (p >> 5 & 0x7E0) | (p >> 3 & 0x1F); }},
        {"320x200x15", true, [](std::uint32_t p) { return (p >> 9 & 0x7C00) | (p >> 6 & 0x3E0) | (p >> 3 & 0x1F); }},
        {"320x200x30", true,
         [](std::uint32_t p)
         {
             const auto ten = [](std::uint32_t v) { return v << 2 | v >> 6; };
             return ten(p >> 16 & 0xFF) << 20 | ten(p >> 8 & 0xFF) << 10 | ten(p & 0xFF);
         }},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(std::string(row.screen) + (row.shares ? "" : " without shared memory"));
        XServer server(false, row.screen,
                       row.shares ? std::vector<const char*>{} : std::vector<const char*>{"-extension", "MIT-SHM"});
        Desktop& desktop = server.Open();
        const WindowHandle window = MakeFramed(desktop, {10, 10, 301, 97});
        ASSERT_TRUE(desktop.Show(window, true));
        FetchAll(desktop);
        const auto sees = [&](Point at, std::uint32_t pixel)
        {
            Point anywhere;
            desktop.Pointer(anywhere); // what was shown has been drawn
            // The byte that no channel of a pixel of 24 bits lies in is nobody's.
            const std::uint32_t used = std::strstr(row.screen, "x24") ? 0xFFFFFF : 0xFFFFFFFF;
            EXPECT_EQ(server.Pixel(Id(window), at) & used, row.stored(pixel)) << at.x << ',' << at.y;
        };
        // A picture that is larger than the window on all sides, with rows further apart than they are long.
        constexpr std::int32_t width = 333, height = 120, pitch = 340;
        std::vector<std::uint32_t> pixels(static_cast<std::size_t>(pitch) * height, 0xFFFFFFFF);
        const auto value = [](std::int32_t x, std::int32_t y)
        {
            return static_cast<std::uint32_t>(x * 5 % 256) << 16 | static_cast<std::uint32_t>(y * 7 % 256) << 8 |
                   static_cast<std::uint32_t>((x + y) * 3 % 256);
        };
        for (std::int32_t y = 0; y < height; ++y)
            for (std::int32_t x = 0; x < width; ++x)
                pixels[static_cast<std::size_t>(y * pitch + x)] = value(x, y) | 0x5A000000;
        sees({3, 3}, 0);
        ASSERT_TRUE(desktop.Present(window, {pixels.data(), pitch * 4, {width, height}}, {-7, -5}));
        EXPECT_EQ(SharesPictures(), row.shares);
        for (const Point at : {Point{0, 0}, Point{300, 96}, Point{0, 96}, Point{300, 0}, Point{151, 40}})
            sees(at, value(at.x + 7, at.y + 5));
        // A small one of odd width, upside down, in the middle; around it all stays.
        const std::uint32_t* const last = pixels.data() + 2 * pitch;
        ASSERT_TRUE(desktop.Present(window, {last, -pitch * 4, {5, 3}}, {100, 50}));
        sees({100, 50}, value(0, 2));
        sees({104, 52}, value(4, 0));
        sees({99, 50}, value(106, 55));
        sees({105, 52}, value(112, 57));
        sees({102, 53}, value(109, 58));
        // Pictures in quick succession: the last one counts, and each is read before its rows change again.
        for (std::uint32_t shade = 0; shade < 50; ++shade)
        {
            std::fill(pixels.begin(), pixels.end(), shade * 0x050301);
            const Point corner{static_cast<std::int32_t>(shade), 0};
            ASSERT_TRUE(desktop.Present(window, {pixels.data(), pitch * 4, {width, height}}, corner));
        }
        sees({7, 20}, 7 * 0x050301);
        sees({200, 20}, 49 * 0x050301);
        EXPECT_TRUE(desktop.Present(window, {pixels.data(), pitch * 4, {width, height}}, {1000, 1000}))
            << "all cut off";
        EXPECT_TRUE(desktop.Present(window, {nullptr, 0, {0, 0}}, {0, 0})) << "nothing";
        EXPECT_TRUE(desktop.Present(window, {pixels.data(), pitch * 4, {1, 1}}, {INT32_MIN, INT32_MAX}));
        EXPECT_FALSE(desktop.Present({1}, {pixels.data(), pitch * 4, {1, 1}}, {0, 0}));
    }
}

// Windows of other programs are put back to the pixel, frames included, with their state.
TEST_F(X11, MovesOtherProgramsWindows)
{
    XServer server(true);
    Desktop& desktop = server.Open();
    const xcb_window_t plain = server.AddWindow("plain", {100, 120, 200, 150});
    const xcb_window_t large = server.AddWindow("large", {300, 200, 200, 150});
    const xcb_window_t icon = server.AddWindow("icon", {500, 300, 200, 150});
    const xcb_window_t hidden = server.AddWindow("hidden", {10, 10, 50, 50}, false);
    server.Ask(large, "_NET_WM_STATE", 1, server.Atom("_NET_WM_STATE_MAXIMIZED_VERT"));
    server.Ask(large, "_NET_WM_STATE", 1, server.Atom("_NET_WM_STATE_MAXIMIZED_HORZ"));
    server.Ask(icon, "WM_CHANGE_STATE", 3);
    const auto until = [&](auto condition)
    {
        for (int tries = 0; tries < 400 && !condition(); ++tries)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        return condition();
    };
    ASSERT_TRUE(until([&] { return desktop.IsMinimised({icon}); }));
    WindowPosition before[3];
    ASSERT_TRUE(
        until([&] { return desktop.Position({large}, before[1]) && before[1].state == WindowState::Maximised; }));
    ASSERT_TRUE(desktop.Position({plain}, before[0]) && desktop.Position({icon}, before[2]));
    EXPECT_EQ(before[0].state, WindowState::Normal);
    EXPECT_EQ(Point(before[0].normal), (Point{100, 120}));
    EXPECT_GT(before[0].normal.height, 150);
    EXPECT_EQ(before[2].state, WindowState::Minimised);
    EXPECT_FALSE(desktop.IsVisible({hidden}));

    WindowHandle listed[8] = {};
    ASSERT_EQ(desktop.TopLevelWindows(listed, 2), 3u) << "counted beyond the room";
    EXPECT_EQ(listed[2].value, 0u);
    ASSERT_EQ(desktop.TopLevelWindows(listed, 8), 3u);
    EXPECT_THAT((std::vector<std::uintptr_t>{listed[0].value, listed[1].value, listed[2].value}),
                testing::UnorderedElementsAre(plain, large, icon));

    // Everything is moved about, then put back.
    EXPECT_TRUE(desktop.Move({plain}, {7, 9, 333, 222}));
    Rect area;
    ASSERT_TRUE(desktop.Area({plain}, area));
    EXPECT_EQ(area, Rect(7, 9, 333, 222));
    EXPECT_TRUE(desktop.SetPosition({large}, {WindowState::Normal, {50, 60, 300, 200}}));
    EXPECT_TRUE(desktop.SetPosition({icon}, {WindowState::Normal, {70, 80, 300, 200}}));
    ASSERT_TRUE(until([&] { return desktop.Area({large}, area) && area == Rect(50, 60, 300, 200); }));
    ASSERT_TRUE(until([&] { return desktop.Area({icon}, area) && area == Rect(70, 80, 300, 200); }));
    EXPECT_FALSE(desktop.IsMinimised({icon}));
    EXPECT_TRUE(desktop.SetPosition({plain}, before[0]) && desktop.SetPosition({large}, before[1]) &&
                desktop.SetPosition({icon}, before[2]));
    ASSERT_TRUE(desktop.Area({plain}, area));
    EXPECT_EQ(area, before[0].normal);
    WindowPosition now;
    EXPECT_TRUE(until([&] { return desktop.Position({large}, now) && now.state == WindowState::Maximised; }));
    EXPECT_EQ(now.normal, before[1].normal);
    EXPECT_TRUE(until([&] { return desktop.IsMinimised({icon}); }));
    ASSERT_TRUE(desktop.Position({icon}, now));
    EXPECT_EQ(now.normal, before[2].normal);
}

// The pointer has no pixels over own windows, those made later included, and its own over all others.
TEST_F(X11, HidesThePointer)
{
    XServer server(false, "640x480x24");
    Desktop& desktop = server.Open();
    const WindowHandle window = MakeFramed(desktop, {0, 0, 200, 200});
    ASSERT_TRUE(desktop.Show(window, true));
    server.AddWindow("foreign", {300, 0, 100, 100});
    const auto visibleAt = [&](Point place)
    {
        EXPECT_TRUE(desktop.MovePointer(place));
        Point now;
        EXPECT_TRUE(desktop.Pointer(now));
        EXPECT_EQ(now, place);
        return server.IsPointerVisible();
    };
    EXPECT_TRUE(visibleAt({20, 20}));
    EXPECT_TRUE(desktop.ShowPointer(false) && desktop.ShowPointer(false));
    EXPECT_FALSE(visibleAt({20, 20}));
    EXPECT_TRUE(visibleAt({320, 20}));
    const WindowHandle child =
        desktop.CreateWindow({WindowKind::Child, "ZEM", "child", window, true, {100, 100}, {50, 50}});
    ASSERT_TRUE(desktop.Show(child, true));
    EXPECT_FALSE(visibleAt({120, 120}));
    EXPECT_TRUE(desktop.ShowPointer(true));
    EXPECT_TRUE(visibleAt({120, 120}));
    EXPECT_TRUE(visibleAt({20, 20}));
}

// Places count from the main monitor's corner, wherever that lies among the others.
TEST_F(X11, CountsFromTheMainMonitor)
{
    XServer server(false);
    const auto setMonitor = [&](const char* name, bool primary, std::int16_t x)
    {
        // Put together by hand: libxcb 1.15 counts the length of this request from bytes that it never set.
        struct
        {
            xcb_randr_set_monitor_request_t request;
            xcb_randr_monitor_info_t info;
        } message{};
        static_assert(sizeof(message) == 32);
        message.request.window = server.screen->root;
        message.info.name = server.Atom(name);
        message.info.primary = primary;
        message.info.x = x;
        message.info.width = 640;
        message.info.height = 1024;
        iovec parts[3] = {{}, {}, {&message, sizeof(message)}}; // two are for the library
        const xcb_protocol_request_t protocol{1, &xcb_randr_id, XCB_RANDR_SET_MONITOR, 1};
        xcb_send_request(server.xcb, 0, parts + 2, &protocol);
        server.Sync();
    };
    setMonitor("left", false, 0);
    setMonitor("right", true, 640);
    Desktop& desktop = server.Open();
    DesktopSize measures;
    ASSERT_TRUE(desktop.Measure(measures));
    EXPECT_EQ(measures.size, (Size{640, 1024}));
    EXPECT_EQ(measures.bits, 32);
    const WindowHandle window = MakeFramed(desktop, {-30, 40, 200, 100});
    ASSERT_TRUE(desktop.Show(window, true));
    EXPECT_EQ(server.Geometry(Id(window)), Rect(610, 40, 200, 100));
    Rect area;
    ASSERT_TRUE(desktop.Area(window, area));
    EXPECT_EQ(area, Rect(-30, 40, 200, 100));
    EXPECT_TRUE(desktop.Move(window, {5, 6, 210, 110}));
    EXPECT_EQ(server.Geometry(Id(window)), Rect(645, 6, 210, 110));
    WindowPosition position;
    ASSERT_TRUE(desktop.Position(window, position));
    EXPECT_EQ(position.normal, Rect(5, 6, 210, 110));
    EXPECT_TRUE(desktop.SetPosition(window, position));
    EXPECT_EQ(server.Geometry(Id(window)), Rect(645, 6, 210, 110));
    EXPECT_TRUE(desktop.MovePointer({50, 60}));
    FetchAll(desktop);
    server.Click(4);
    const auto wheel = Fetch(desktop, [](const WindowMessage& m) { return m.number == MessageWheel; });
    ASSERT_FALSE(wheel.empty());
    EXPECT_EQ(wheel.back().message.second, Pack(50, 60));
    const WindowHandle full =
        desktop.CreateWindow({WindowKind::FullScreen, "ZEM", "full", {0}, true, {0, 0}, {640, 1024}});
    ASSERT_TRUE(desktop.Show(full, true));
    EXPECT_EQ(server.Geometry(Id(full)), Rect(640, 0, 640, 1024));
}

// In a window whose pixels have an alpha nothing is seen through.
TEST_F(X11, IsOpaqueInTransparentParents)
{
    XServer server(false, "640x480x24");
    Desktop& desktop = server.Open();
    const xcb_window_t parent = server.AddTransparentWindow({0, 0, 100, 100});
    if (parent == 0)
        GTEST_SKIP() << "the server has no visual of 32 bits";
    const WindowHandle child =
        desktop.CreateWindow({WindowKind::Child, "ZEM", "child", {parent}, true, {10, 10}, {50, 50}});
    ASSERT_TRUE(desktop.Show(child, true));
    EXPECT_EQ(server.Pixel(Id(child), {5, 5}), 0xFF000000u);
    const std::uint32_t pixels[] = {0x00123456, 0x80FFFFFF};
    ASSERT_TRUE(desktop.Present(child, {pixels, 8, {2, 1}}, {5, 5}));
    Point anywhere;
    desktop.Pointer(anywhere);
    EXPECT_EQ(server.Pixel(Id(child), {5, 5}), 0xFF123456u);
    EXPECT_EQ(server.Pixel(Id(child), {6, 5}), 0xFFFFFFFFu);
}

// Any program may send any event to any window. None of them ends the process, or makes it believe what is not so.
TEST_F(X11, TakesAnyEventsFromOthers)
{
    XServer server(false, "640x480x24");
    Desktop& desktop = server.Open();
    const WindowHandle window = MakeFramed(desktop, {20, 30, 200, 100});
    const WindowHandle child =
        desktop.CreateWindow({WindowKind::Child, "ZEM", "child", window, true, {0, 0}, {50, 50}});
    ASSERT_TRUE(desktop.Show(window, true) && desktop.Show(child, true));
    FetchAll(desktop);
    auto random = ::Test::Random(11);
    const std::uint32_t words[] = {Id(window),
                                   Id(child),
                                   server.screen->root,
                                   server.Atom("WM_PROTOCOLS"),
                                   server.Atom("_NET_WM_PING"),
                                   server.Atom("WM_STATE"),
                                   0,
                                   0xFFFFFFFF};
    for (int i = 0; i < 20000; ++i)
    {
        std::uint32_t event[8];
        for (std::uint32_t& word : event)
            word = random() % 3 ? words[random() % std::size(words)] : static_cast<std::uint32_t>(random());
        reinterpret_cast<std::uint8_t*>(event)[0] = static_cast<std::uint8_t>(2 + random() % 126);
        const WindowHandle to = random() % 2 ? window : child;
        xcb_send_event(server.xcb, 0, Id(to), random() % 2 ? 0 : 0x1FFFFFF, reinterpret_cast<const char*>(event));
        if (i % 500 == 0)
        {
            server.Sync();
            DesktopMessage message;
            while (desktop.Next(message))
                EXPECT_NE(message.message.number, std::uintptr_t{MessageDestroy});
        }
    }
    for (int i = 0; i < 200; ++i) // properties that managers would set
    {
        const std::uint32_t data[] = {static_cast<std::uint32_t>(random()), 3, 0xFFFFFFFF, words[random() % 8]};
        const char* const names[] = {"WM_STATE", "_NET_WM_STATE", "_NET_FRAME_EXTENTS"};
        const std::uint8_t format = random() % 3 ? 32 : 8;
        xcb_change_property(server.xcb, XCB_PROP_MODE_REPLACE, Id(window), server.Atom(names[random() % 3]),
                            XCB_ATOM_CARDINAL, format, static_cast<std::uint32_t>(random() % 5), data);
        DesktopMessage message;
        while (desktop.Next(message))
            EXPECT_NE(message.message.number, std::uintptr_t{MessageDestroy});
    }
    for (const char* const name : {"WM_STATE", "_NET_WM_STATE", "_NET_FRAME_EXTENTS"})
        xcb_delete_property(server.xcb, Id(window), server.Atom(name));
    server.Sync();
    FetchAll(desktop, 100);
    EXPECT_TRUE(desktop.IsOwn(window) && desktop.IsOwn(child));
    EXPECT_TRUE(desktop.IsVisible(window) && desktop.IsVisible(child));
    EXPECT_TRUE(desktop.Move(window, {40, 50, 210, 110}));
    Rect area;
    ASSERT_TRUE(desktop.ClientArea(window, area));
    EXPECT_EQ(area, Rect(40, 50, 210, 110));
    EXPECT_EQ(server.Geometry(Id(window)), area);
}

} // namespace
