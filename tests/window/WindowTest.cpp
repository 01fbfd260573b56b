// The window as an application sees it, on every desktop.

#include "window/OnStage.h"

#include <Bedrock/bitmap/Bitmap.h>

#include <gmock/gmock.h>

using namespace Zem;
using namespace Test;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

INSTANTIATE_TEST_SUITE_P(Desktops, OnStage,
                         testing::Values(StageKind::Headless, StageKind::X11Managed, StageKind::X11Bare),
                         testing::PrintToStringParamName());

namespace
{

const std::set<std::uintptr_t> keyboard{MessageKeyDown,    MessageKeyUp,    MessageChar,
                                        MessageSysKeyDown, MessageSysKeyUp, MessageSysChar};
const std::set<std::uintptr_t> buttons{MessageLeftDown,   MessageLeftUp,   MessageRightDown, MessageRightUp,
                                       MessageMiddleDown, MessageMiddleUp, MessageWheel,     MessageWheelAcross};

constexpr std::uintptr_t Bits(KeyAt key, std::uintptr_t more = 0)
{
    return KeyBitsCount | static_cast<std::uintptr_t>(key.scan) << KeyBitsScanShift | more;
}

constexpr std::uintptr_t up = KeyBitsHeld | KeyBitsReleased;

} // namespace

// Width and height are the client's, the place is the outer corner's, and nothing is seen before Show.
TEST_P(OnStage, StandsWhereItIsAskedTo)
{
    HostWindow host;
    Window& window = host.window;
    ASSERT_TRUE(window.CreateWindowedHost(120, 90, 400, 300, nullptr));
    EXPECT_FALSE(desktop->IsVisible(host.Handle()));
    EXPECT_EQ(stage->Title(host.Handle()), "ZEM [Test]");
    EXPECT_THAT(host.Of({MessageCreate, MessageSize, MessagePaint}), testing::SizeIs(1)) << "only its creation";
    host.heard.clear();

    window.Show(true);
    ASSERT_TRUE(host.Until([&] { return host.Has(MessagePaint) && host.Has(MessageFocus); }));
    host.Settle();
    EXPECT_THAT(host.Of({MessageSize}), ElementsAre(Heard{MessageSize, SizeRestored, Pack(400, 300)}));
    EXPECT_THAT(host.Of({MessageActivate, MessageFocus}),
                ElementsAre(Heard{MessageActivate, 1, 0}, Heard{MessageFocus, 0, 0}));
    EXPECT_THAT(host.Of({MessagePaint}), ElementsAre(Heard{MessagePaint, 0, 0}));
    EXPECT_TRUE(window.IsActive());
    EXPECT_TRUE(window.HasFocus());

    EXPECT_EQ(window.GetClientArea(), Rect(0, 0, 400, 300));
    const Rect area = window.GetArea();
    EXPECT_EQ(Point{area}, (Point{120, 90}));
    EXPECT_EQ(area.width > 400 && area.height > 300, stage->IsManaged());
    Point corner{0, 0};
    window.LocalToGlobal(corner);
    EXPECT_EQ(host.Of({MessageMove}).back().second, Pack(corner.x, corner.y));
    EXPECT_TRUE(area.Contains(corner));
    EXPECT_EQ(stage->IsManaged(), corner != Point{area});

    host.heard.clear();
    window.Show(false);
    ASSERT_TRUE(host.Until([&] { return !window.IsActive(); }));
    EXPECT_THAT(host.Of({MessageActivate, MessageFocusLost}),
                ElementsAre(Heard{MessageActivate, 0, 0}, Heard{MessageFocusLost, 0, 0}));
    EXPECT_FALSE(desktop->IsVisible(host.Handle()));
    EXPECT_FALSE(window.GetVisible());
}

TEST_P(OnStage, FillsTheScreen)
{
    HostWindow host;
    ASSERT_TRUE(host.window.CreateFullscreenHost(800, 600, nullptr));
    host.window.Show(true);
    const Size expected = stage->IsManaged() ? Stage::size : Size{800, 600};
    ASSERT_TRUE(host.Until([&] { return Size{host.window.GetClientArea()} == expected && host.window.HasFocus(); }));
    EXPECT_EQ(host.window.GetArea(), Rect({0, 0}, expected));
    EXPECT_EQ(host.Of({MessageSize}).back(), (Heard{MessageSize, SizeRestored, Pack(expected.width, expected.height)}));
    EXPECT_EQ(host.window.GetHostBitsPerPixel(), 32);
    EXPECT_STREQ(Window::GetDesktopName(), GetParam() == StageKind::Headless ? "headless" : "x11");
}

// The close button asks; unless somebody objects, the window goes and the loop ends.
TEST_P(OnStage, ClosesWhenAskedUnlessAHookObjects)
{
    HostWindow host;
    host.Show(100, 100, 200, 150);
    host.swallowed = {MessageClose};
    stage->Close(host.Handle());
    ASSERT_TRUE(host.Until([&] { return host.Has(MessageClose); }));
    host.Settle();
    EXPECT_FALSE(host.quit);
    EXPECT_TRUE(desktop->IsVisible(host.Handle()));

    host.swallowed.clear();
    host.heard.clear();
    stage->Close(host.Handle());
    ASSERT_TRUE(host.Until([&] { return host.quit; }));
    const auto told = host.Of({MessageSystemCommand, MessageClose, MessageDestroy, MessageQuit});
    ASSERT_EQ(told.size(), 3u);
    EXPECT_EQ(told[0].number, MessageSystemCommand);
    EXPECT_EQ(told[0].first, CommandClose);
    EXPECT_EQ(told[1], (Heard{MessageClose, 0, 0}));
    EXPECT_EQ(told[2], (Heard{MessageDestroy, 0, 0}));
    EXPECT_FALSE(desktop->IsOwn(host.Handle()));
    EXPECT_EQ(host.window.GetArea(), Rect());
    const int frames = host.frames;
    EXPECT_TRUE(host.window.HandleMessages()) << "the quit message comes once";
    EXPECT_EQ(host.frames, frames) << "no frame of a window that is gone";
}

TEST_P(OnStage, HearsWhatIsTyped)
{
    HostWindow host;
    host.Show(100, 100, 200, 150);
    ASSERT_TRUE(host.Until([&] { return host.window.HasFocus(); }));
    const struct
    {
        const char* what;
        std::vector<std::pair<KeyAt, bool>> keys;
        std::vector<Heard> heard;
    } rows[] = {
        {"a letter",
         {{keyA, true}, {keyA, false}},
         {{MessageKeyDown, 'A', Bits(keyA)}, {MessageChar, 'a', Bits(keyA)}, {MessageKeyUp, 'A', Bits(keyA, up)}}},
        {"a capital, whose shift is up again when it is handled",
         {{keyShift, true}, {keyB, true}, {keyB, false}, {keyShift, false}},
         {{MessageKeyDown, KeyShift, Bits(keyShift)},
          {MessageKeyDown, 'B', Bits(keyB)},
          {MessageChar, 'B', Bits(keyB)},
          {MessageKeyUp, 'B', Bits(keyB, up)},
          {MessageKeyUp, KeyShift, Bits(keyShift, up)}}},
        {"a control character",
         {{keyControl, true}, {keyC, true}, {keyC, false}, {keyControl, false}},
         {{MessageKeyDown, KeyControl, Bits(keyControl)},
          {MessageKeyDown, 'C', Bits(keyC)},
          {MessageChar, 3, Bits(keyC)},
          {MessageKeyUp, 'C', Bits(keyC, up)},
          {MessageKeyUp, KeyControl, Bits(keyControl, up)}}},
        {"keys that type a control character by themselves",
         {{keyEnter, true}, {keyEnter, false}, {keyEscape, true}, {keyEscape, false}},
         {{MessageKeyDown, KeyEnter, Bits(keyEnter)},
          {MessageChar, 13, Bits(keyEnter)},
          {MessageKeyUp, KeyEnter, Bits(keyEnter, up)},
          {MessageKeyDown, KeyEscape, Bits(keyEscape)},
          {MessageChar, 27, Bits(keyEscape)},
          {MessageKeyUp, KeyEscape, Bits(keyEscape, up)}}},
        {"an arrow",
         {{keyLeft, true}, {keyLeft, false}},
         {{MessageKeyDown, KeyLeft, Bits(keyLeft, KeyBitsExtended)},
          {MessageKeyUp, KeyLeft, Bits(keyLeft, KeyBitsExtended | up)}}},
        {"with Alt",
         {{keyAlt, true}, {keyX, true}, {keyX, false}, {keyAlt, false}},
         {{MessageSysKeyDown, KeyAlt, Bits(keyAlt, KeyBitsAlt)},
          {MessageSysKeyDown, 'X', Bits(keyX, KeyBitsAlt)},
          {MessageSysChar, 'x', Bits(keyX, KeyBitsAlt)},
          {MessageSysKeyUp, 'X', Bits(keyX, KeyBitsAlt | up)},
          {MessageSysKeyUp, KeyAlt, Bits(keyAlt, up)}}},
        {"F10",
         {{keyF10, true}, {keyF10, false}},
         {{MessageSysKeyDown, KeyF10, Bits(keyF10)}, {MessageSysKeyUp, KeyF10, Bits(keyF10, up)}}},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.what);
        host.heard.clear();
        for (const auto& [key, down] : row.keys)
            stage->Key(key, down);
        EXPECT_TRUE(host.Until([&] { return host.Of(keyboard).size() >= row.heard.size(); }));
        host.Settle();
        EXPECT_THAT(host.Of(keyboard), ElementsAreArray(row.heard));
    }
    EXPECT_FALSE(host.quit);
}

TEST_P(OnStage, HearsTheMouseInsideAndWithTheCaptureEverywhere)
{
    HostWindow host;
    host.Show(300, 200, 200, 150);
    Point origin{0, 0};
    host.window.LocalToGlobal(origin);
    const auto move = [&](std::int32_t x, std::int32_t y) { stage->MovePointer({origin.x + x, origin.y + y}); };
    const auto lastMove = [&]
    {
        const auto moves = host.Of({MessageMouseMove});
        return moves.empty() ? Heard{} : moves.back();
    };

    move(20, 30);
    stage->Button(1, true);
    stage->Button(1, false);
    stage->Button(3, true);
    stage->Button(2, true);
    stage->Button(2, false);
    stage->Button(3, false);
    stage->Wheel(1, false);
    stage->Wheel(-2, false);
    stage->Wheel(1, true);
    const std::uintptr_t at = Pack(20, 30), onDesktop = Pack(origin.x + 20, origin.y + 30);
    const std::vector<Heard> expected{
        {MessageLeftDown, MouseLeft, at},      {MessageLeftUp, 0, at},
        {MessageRightDown, MouseRight, at},    {MessageMiddleDown, MouseRight | MouseMiddle, at},
        {MessageMiddleUp, MouseRight, at},     {MessageRightUp, 0, at},
        {MessageWheel, 0x00780000, onDesktop}, {MessageWheel, 0xFF880000, onDesktop},
        {MessageWheel, 0xFF880000, onDesktop}, {MessageWheelAcross, 0x00780000, onDesktop}};
    EXPECT_TRUE(host.Until([&] { return host.Of(buttons).size() >= expected.size(); }));
    EXPECT_THAT(host.Of(buttons), ElementsAreArray(expected));
    EXPECT_EQ(lastMove(), (Heard{MessageMouseMove, 0, at}));

    // Outside, a button held or not, it hears nothing.
    host.heard.clear();
    stage->Button(1, true);
    move(-50, -60);
    stage->Button(1, false);
    host.Settle();
    EXPECT_THAT(host.Of(buttons), ElementsAre(Heard{MessageLeftDown, MouseLeft, at}));
    EXPECT_THAT(host.Of({MessageMouseMove}), IsEmpty());

    host.window.SetCapture(true);
    EXPECT_EQ(desktop->Capture(), host.Handle());
    move(-70, 180);
    EXPECT_TRUE(host.Until([&] { return host.Has(MessageMouseMove); }));
    EXPECT_EQ(lastMove(), (Heard{MessageMouseMove, 0, Pack(-70, 180)}));
    stage->Button(3, true);
    stage->Button(3, false);
    EXPECT_TRUE(host.Until([&] { return host.Has(MessageRightUp); }));
    EXPECT_THAT(host.Of({MessageRightDown}), ElementsAre(Heard{MessageRightDown, MouseRight, Pack(-70, 180)}));

    host.window.SetCapture(false);
    EXPECT_EQ(desktop->Capture(), WindowHandle{0});
    host.Settle();
    host.heard.clear();
    move(-80, 190);
    host.Settle();
    EXPECT_THAT(host.Of({MessageMouseMove}), IsEmpty());

    // Hiding ends the capture, and a hidden window cannot have it.
    host.window.SetCapture(true);
    host.window.Show(false);
    host.Settle();
    EXPECT_EQ(desktop->Capture(), WindowHandle{0});
    host.window.SetCapture(true);
    EXPECT_EQ(desktop->Capture(), WindowHandle{0});
}

// Other windows come and go in front; the user minimises and brings back.
TEST_P(OnStage, IsActiveWhileTheUserWorksWithIt)
{
    HostWindow host;
    host.Show(100, 100, 200, 150);
    ASSERT_TRUE(host.Until([&] { return host.window.IsActive(); }));
    const WindowHandle other = stage->OpenForeign({600, 100, 200, 200}, true);
    stage->Activate(other);
    EXPECT_TRUE(host.Until([&] { return !host.window.IsActive(); }));
    EXPECT_FALSE(host.window.HasFocus());
    host.Settle();
    host.heard.clear();
    host.window.SetFocus();
    EXPECT_TRUE(host.Until([&] { return host.window.HasFocus() && host.window.IsActive(); }));
    EXPECT_THAT(host.Of({MessageActivate, MessageFocus, MessageFocusLost}),
                ElementsAre(Heard{MessageActivate, 1, 0}, Heard{MessageFocus, 0, 0}));

    if (!stage->IsManaged())
        return; // nobody minimises
    host.heard.clear();
    stage->Minimise(host.Handle());
    EXPECT_TRUE(host.Until([&] { return host.window.IsIconic() && !host.window.HasFocus(); }));
    host.Settle();
    EXPECT_THAT(host.Of({MessageSize}), ElementsAre(Heard{MessageSize, SizeMinimised, 0}));
    EXPECT_TRUE(desktop->IsVisible(host.Handle())) << "minimised counts as visible";
    host.heard.clear();
    stage->Activate(host.Handle());
    EXPECT_TRUE(
        host.Until([&] { return !host.window.IsIconic() && host.window.HasFocus() && host.Has(MessagePaint); }));
    EXPECT_THAT(host.Of({MessageSize}), ElementsAre(Heard{MessageSize, SizeRestored, Pack(200, 150)}));
}

TEST_P(OnStage, LivesInAWindowOfAnotherProgram)
{
    const WindowHandle parent = stage->OpenForeign({50, 60, 400, 300}, true);
    Rect within;
    ASSERT_TRUE(desktop->ClientArea(parent, within));
    HostWindow host(reinterpret_cast<void*>(parent.value));
    bool full = false, tooLarge = false, equal = false;
    int x = 7, y = 8, width = 9, height = 10, bits = 0, frequency = 0;
    host.window.GetUserWindowConfig(nullptr, full, x, y, width, height, bits, frequency, tooLarge, equal);
    Rect area;
    ASSERT_TRUE(desktop->Area(parent, area));
    EXPECT_EQ(Rect(x, y, width, height), Rect(0, 0, area.width, area.height));

    ASSERT_TRUE(host.window.CreateDefault());
    host.window.Show(true);
    ASSERT_TRUE(host.Until([&] { return host.Has(MessagePaint); }));
    EXPECT_EQ(host.window.GetArea(), within) << "it fills the parent";
    EXPECT_THAT(host.Of({MessageActivate}), IsEmpty());

    host.Settle();
    host.heard.clear();
    stage->ResizeForeign(parent, {350, 220});
    ASSERT_TRUE(host.Until([&] { return host.Has(MessageSize); }));
    EXPECT_THAT(host.Of({MessageSize}), ElementsAre(Heard{MessageSize, SizeRestored, Pack(350, 220)}));
    EXPECT_TRUE(host.Until([&] { return host.window.GetClientArea() == Rect(0, 0, 350, 220); }));
    host.Settle();
    EXPECT_THAT(host.Of({MessageSize}), testing::SizeIs(1)) << "following the parent is no news";

    // The parent hears the mouse and the keyboard.
    const auto forwarded = [&](std::uintptr_t number)
    {
        WindowMessage message{};
        EXPECT_TRUE(host.Until([&] { return stage->TakeForwarded(message) && message.number == number; })) << number;
        return message;
    };
    ASSERT_TRUE(desktop->ClientArea(parent, within));
    stage->MovePointer({within.x + 40, within.y + 50});
    stage->Button(1, true);
    stage->Button(1, false);
    const WindowMessage pressed = forwarded(MessageLeftDown);
    EXPECT_EQ(pressed.window, parent.value);
    EXPECT_EQ(pressed.first, MouseLeft);
    EXPECT_EQ(pressed.second, Pack(40, 50));
    host.window.SetFocus();
    ASSERT_TRUE(host.Until([&] { return host.window.HasFocus(); }));
    stage->Tap(keyA);
    const WindowMessage key = forwarded(MessageKeyDown);
    EXPECT_EQ(key.first, 'A');
    EXPECT_EQ(key.second, Bits(keyA));

    // Closing is the parent's business.
    stage->KillForeign();
    ASSERT_TRUE(host.Until([&] { return host.Has(MessageDestroy); }));
    host.Settle();
    EXPECT_FALSE(host.quit);
    EXPECT_EQ(host.window.GetClientArea(), Rect());
    HostWindow orphan(reinterpret_cast<void*>(parent.value));
    EXPECT_FALSE(orphan.window.CreateDefault()) << "the parent is gone";
}

TEST_P(OnStage, ShowsPictures)
{
    HostWindow host;
    EXPECT_FALSE(host.window.Present(Bitmap(Size{4, 4}, Bitmap::XRGB32, nullptr))) << "no window yet";
    host.Show(100, 100, 60, 40);
    EXPECT_EQ(stage->Pixel(host.Handle(), {5, 5}), 0u);

    const struct
    {
        const char* what;
        Bitmap::Format format;
        std::uint32_t color;
        Point at;
        Rect expected; // where the colour is seen
    } rows[] = {
        {"32 bits", Bitmap::XRGB32, 0xFF0A141E, {3, 4}, {3, 4, 20, 10}},
        {"24 bits", Bitmap::RGB24, 0xFFC86432, {30, 4}, {30, 4, 20, 10}},
        {"16 bits", Bitmap::RGB16, 0xFFF8FC00, {3, 20}, {3, 20, 20, 10}},
        {"cut at the upper left", Bitmap::ARGB32, 0xFF010203, {-15, -7}, {0, 0, 5, 3}},
        {"cut at the lower right", Bitmap::ARGB32, 0xFF040506, {50, 35}, {50, 35, 10, 5}},
        {"outside", Bitmap::ARGB32, 0xFF070809, {60, 0}, {0, 0, 0, 0}},
    };
    std::vector<std::uint32_t> model(60 * 40, 0);
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.what);
        Bitmap picture(Size{20, 10}, row.format, nullptr);
        picture.Clear(row.color);
        EXPECT_TRUE(host.window.Present(picture, row.at));
        const std::uint32_t seen = std::uint32_t{picture.Pixel({0, 0})} & 0x00FFFFFF;
        for (std::int32_t y = 0; y < 40; ++y)
            for (std::int32_t x = 0; x < 60; ++x)
                if (row.expected.Contains({x, y}))
                    model[static_cast<std::size_t>(y * 60 + x)] = seen;
    }
    std::size_t wrong = 0;
    for (std::int32_t y = 0; y < 40; ++y)
        for (std::int32_t x = 0; x < 60; ++x)
            wrong += stage->Pixel(host.Handle(), {x, y}) != model[static_cast<std::size_t>(y * 60 + x)];
    EXPECT_EQ(wrong, 0u);
    EXPECT_FALSE(host.window.Present(Bitmap(Size{4, 4}, Bitmap::Indexed8, nullptr)));
    EXPECT_FALSE(host.window.Present(Bitmap()));
}
