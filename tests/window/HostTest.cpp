// What is the same on every desktop: options, hooks, the message queue, the choice of the desktop.

#include "window/OnStage.h"

#include <Bedrock/host/ExceptionHandler.h>
#include <Bedrock/platform/Debug.h>
#include <Bedrock/platform/headless/HeadlessDesktop.h>

#include <gmock/gmock.h>

using namespace Zem;
using namespace Test;
using testing::ElementsAre;

namespace
{

class Host : public testing::Test
{
protected:
    void SetUp() override { setenv("BEDROCK_DESKTOP", "1280x1024x32", 1); }
    void TearDown() override { MessageQueue::ResetForTest(); }
};

int Say(const HostWindow& host, std::uintptr_t number, std::uintptr_t first = 0, std::uintptr_t second = 0)
{
    return MessageQueue::Send({host.Handle().value, number, first, second});
}

std::string lastOutput;

} // namespace

TEST_F(Host, ReadsTheUsersWishes)
{
    constexpr int none = Window::NoPosition;
    struct Wishes
    {
        bool full;
        int x, y, width, height, bits = 0, frequency = 0;
        bool tooLarge = false, equal = false;

        bool operator==(const Wishes&) const = default;
    };
    const struct
    {
        const char* desktop;
        const char* options; // null: none given
        Wishes before, after;
    } rows[] = {
        {"1280x1024x32", nullptr, {true, 1, 2, 640, 480, 16, 60}, {true, 1, 2, 640, 480, 16, 60}},
        {"1280x1024x32", "-Fullscreen -Windowed", {false, none, none, 320, 200}, {true, none, none, 320, 200}},
        {"1280x1024x32", "-Windowed", {true, none, none, 320, 200}, {false, none, none, 320, 200}},
        {"1280x1024x32", "-640", {false, none, none, 1, 1}, {false, none, none, 640, 480}},
        {"1280x1024x32", "-1024 -320 -400", {false, none, none, 1, 1}, {false, none, none, 1024, 768}},
        {"1280x1024x32", "-800", {false, none, none, 1, 1}, {false, none, none, 800, 600}},
        {"1280x1024x32", "-Width=700 -640", {false, none, none, 1, 1}, {false, none, none, 700, 480}},
        {"1280x1024x32", "-Height=300 -ColorBits=24", {false, 0, 0, 5, 6, 16}, {false, 0, 0, 5, 300, 24}},
        {"1280x1024x32", "-Frequency=75 -Windowed", {false, 0, 0, 5, 6}, {true, 0, 0, 5, 6, 0, 75}},
        {"1280x1024x32", "-1280", {false, 0, 0, 1, 1}, {false, 0, 0, 1280, 1024, 0, 0, false, true}},
        {"1280x1024x32", "-1280 -Width=1281", {false, 0, 0, 1, 1}, {false, 0, 0, 1281, 1024, 0, 0, true, false}},
        {"1280x1024x32", "-1600", {false, 0, 0, 1, 1}, {false, 0, 0, 1600, 1200, 0, 0, true, false}},
        {"2000x1500x32", "-1920 -1600", {false, 0, 0, 1, 1}, {false, 0, 0, 1920, 1440}},
        {"1280x1024x8", "", {false, 0, 0, 10, 10}, {false, 0, 0, 10, 10, 0, 0, true, false}},
        {"1280x1024x15", "", {false, 0, 0, 10, 10}, {false, 0, 0, 10, 10}},
        {"640x480x16", nullptr, {false, 0, 0, 9, 9, 0, 0, true, true}, {false, 0, 0, 9, 9, 0, 0, true, true}},
        {"1280x1024x32", "-WindowCentered", {false, none, none, 641, 480}, {false, 319, 272, 641, 480}},
        {"1280x1024x32", "-WindowVerticalCentered", {false, 1, 2, 1283, 480}, {false, -1, 272, 1283, 480, 0, 0, true}},
        {"1280x1024x32",
         "-WindowHorizontalCentered -WindowPosX=-5",
         {false, none, none, 640, 480},
         {false, -5, 272, 640, 480}},
        {"1280x1024x32", "-WindowPosX=40", {false, none, none, 640, 480}, {false, 40, 0, 640, 480}},
        {"1280x1024x32", "-WindowPosY=-40", {false, none, none, 640, 480}, {false, 0, -40, 640, 480}},
        {"1280x1024x32", "-WindowCentered", {false, 0, 0, INT32_MIN, 1}, {false, 1073742464, 511, INT32_MIN, 1}},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(std::string(row.desktop) + " " + (row.options ? row.options : "none"));
        Platform::CloseDesktop();
        setenv("BEDROCK_DESKTOP", row.desktop, 1);
        Window window(nullptr);
        Options options;
        options.ProcessRaw(row.options ? row.options : "");
        Wishes w = row.before;
        window.GetUserWindowConfig(row.options ? &options : nullptr, w.full, w.x, w.y, w.width, w.height, w.bits,
                                   w.frequency, w.tooLarge, w.equal);
        EXPECT_EQ(w, row.after) << w.full << ' ' << w.x << ' ' << w.y << ' ' << w.width << ' ' << w.height << ' '
                                << w.bits << ' ' << w.frequency << ' ' << w.tooLarge << ' ' << w.equal;
        EXPECT_TRUE(window.GetVisible());
        options.ProcessRaw("-HideWindow");
        window.GetUserWindowConfig(&options, w.full, w.x, w.y, w.width, w.height, w.bits, w.frequency, w.tooLarge,
                                   w.equal);
        EXPECT_FALSE(window.GetVisible());
    }
}

TEST_F(Host, BoundsItsTitle)
{
    const struct
    {
        std::string given, shown;
    } rows[] = {
        {"Demo", "ZEM [Demo]"},
        {"", "ZEM []"},
        {std::string(249, 'x'), "ZEM [" + std::string(249, 'x') + "]"},
        {std::string(250, 'x'), "ZEM [" + std::string(249, 'x') + "]"},
        {std::string(248, 'x') + "\xC3\xA4", "ZEM [" + std::string(248, 'x') + "]"}, // a letter of two bytes
        {std::string(9999, '%'), "ZEM [" + std::string(249, '%') + "]"},
    };
    for (const auto& row : rows)
    {
        Window window(nullptr);
        ASSERT_TRUE(window.Open(row.given.c_str(), nullptr));
        EXPECT_EQ(window.GetTitle(), row.shown);
    }
}

// Half way from the old rate to the measured one, at most four times a second.
TEST_F(Host, ShowsTheFrameRate)
{
    std::string reason;
    const auto stage = Stage::Open(StageKind::Headless, reason);
    HostWindow host(nullptr, "-ShowFPS");
    ASSERT_TRUE(host.window.CreateWindowedHost(0, 0, 100, 100, nullptr));
    EXPECT_EQ(stage->Title(host.Handle()), "ZEM [Test]") << "no rate in the first quarter of a second";
    double shown = 0;
    int frames = 1; // the one of the creation
    auto start = std::chrono::steady_clock::now();
    for (int updates = 0; updates < 3;)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        const std::string before = stage->Title(host.Handle());
        host.window.HandleMessages();
        ++frames;
        const std::string after = stage->Title(host.Handle());
        if (after == before)
            continue;
        const auto now = std::chrono::steady_clock::now();
        const double passed = std::chrono::duration<double>(now - start).count();
        const double expected = (frames / passed + shown) / 2;
        ASSERT_EQ(after.substr(0, 12), "ZEM [Test]  ");
        ASSERT_EQ(std::sscanf(after.c_str(), "ZEM [Test]  (%lf)", &shown), 1);
        EXPECT_GE(passed, 0.249);
        EXPECT_NEAR(shown, expected, 0.1 * expected + 1);
        ++updates;
        frames = 0;
        start = now;
    }
    EXPECT_STREQ(host.window.GetTitle(), "ZEM [Test]");
}

TEST_F(Host, CallsHooksInOrderAndLetsThemChangeTheList)
{
    struct Link
    {
        char name;
        std::string* trace;
        Window* window;
        void* clears; // data of a hook that it clears
        Link* adds;
        int answer; // 0: leaves it to the others

        static bool Hook(void* data, void* block, int& result)
        {
            Link& link = *static_cast<Link*>(data);
            if (static_cast<WindowMessage*>(block)->number != MessageUser)
                return false;
            *link.trace += link.name;
            static_cast<WindowMessage*>(block)->first = 99; // its own copy
            EXPECT_EQ(result, 0);
            if (link.clears)
                link.window->ClearWindowHook(link.clears);
            if (link.adds)
                link.window->RegisterWindowHook(&Hook, std::exchange(link.adds, nullptr));
            result = link.answer ? link.answer : 77;
            return link.answer != 0;
        }
    };
    std::string trace;
    HostWindow host;
    ASSERT_TRUE(host.window.CreateDefault());
    Window& window = host.window;
    Link d{'d', &trace, &window, nullptr, nullptr, 0}, c{'c', &trace, &window, nullptr, nullptr, 0},
        b{'b', &trace, &window, nullptr, nullptr, 0}, a{'a', &trace, &window, nullptr, nullptr, 0};
    for (Link* link : {&a, &b, &c})
        ASSERT_TRUE(window.RegisterWindowHook(&Link::Hook, link));

    const auto run = [&]
    {
        trace.clear();
        return Say(host, MessageUser, 5);
    };
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(trace, "abc");
    b.answer = 42;
    EXPECT_EQ(run(), 42);
    EXPECT_EQ(trace, "ab");
    b.answer = 0;
    a.clears = &b; // the one that would come next
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(trace, "ac");
    a.clears = &a; // itself
    a.adds = &d;
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(trace, "acd");
    window.ClearWindowHook(&trace); // nobody's
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(trace, "cd");

    // A second object takes the messages over.
    HostWindow second;
    EXPECT_FALSE(second.opened) << "the class is the first one's";
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(trace, "");
    EXPECT_EQ(second.Of({MessageUser}), (std::vector<Heard>{{MessageUser, 5, 0}}));
}

TEST_F(Host, SurvivesAHookThatDeletesTheWindow)
{
    auto* window = new Window(nullptr);
    ASSERT_TRUE(window->Open("Test", nullptr));
    ASSERT_TRUE(window->CreateDefault());
    const auto handle = reinterpret_cast<std::uintptr_t>(window->GetHandle());
    window->RegisterWindowHook(
        [](void* data, void* block, int&)
        {
            if (static_cast<WindowMessage*>(block)->number == MessageUser)
                delete static_cast<Window*>(data);
            return false;
        },
        window);
    ASSERT_TRUE(MessageQueue::Post({handle, MessageUser, 0, 0}));
    EXPECT_FALSE(window->HandleMessages()) << "leave the loop";
    EXPECT_EQ(Window::self, nullptr);
    EXPECT_EQ(MessageQueue::Send({handle, MessageUser, 0, 0}), 0);
}

// What becomes of messages that no hook takes.
TEST_F(Host, HandlesMessagesOfItsOwn)
{
    HostWindow host;
    host.Show(0, 0, 100, 100);
    // Keyboard menu, screen saver and monitor power never happen; closing becomes a close message.
    host.swallowed = {MessageClose};
    for (const std::uintptr_t command : {CommandKeyMenu, CommandScreenSaver, CommandMonitorPower, CommandClose})
        EXPECT_EQ(Say(host, MessageSystemCommand, command), 0);
    EXPECT_EQ(host.Of({MessageClose}).size(), 1u);
    Say(host, MessageSysKeyDown, KeyF4, KeyBitsAlt); // Alt and F4 ask to close, too
    EXPECT_TRUE(host.window.HandleMessages());
    EXPECT_EQ(host.Of({MessageClose}).size(), 2u);
    Say(host, MessageActivate, 0);
    EXPECT_FALSE(host.window.IsActive());
    Say(host, MessageActivate, 1);
    EXPECT_TRUE(host.window.IsActive());

    // Each turn of the pump ends with one frame; posted messages come in order, painting after them.
    host.heard.clear();
    host.frames = 0;
    static_cast<void>(host.window.HandleMessages());
    EXPECT_EQ(host.frames, 1);
    for (std::uintptr_t i = 0; i < 1024; ++i)
        ASSERT_TRUE(MessageQueue::Post({host.Handle().value, MessageUser + 100, i, 0}));
    EXPECT_FALSE(MessageQueue::Post({host.Handle().value, MessageUser + 100, 0, 0})) << "the queue is full";
    EXPECT_TRUE(host.window.HandleMessages());
    const auto posted = host.Of({MessageUser + 100});
    ASSERT_EQ(posted.size(), 1024u);
    for (std::uintptr_t i = 0; i < 1024; ++i)
        ASSERT_EQ(posted[i].first, i);

    // Quitting waits for what was posted, and comes before what would be painted.
    host.heard.clear();
    static_cast<Platform::HeadlessDesktop*>(Platform::OpenDesktop())->UserExpose(host.Handle());
    MessageQueue::PostQuit();
    MessageQueue::Post({host.Handle().value, MessageUser + 101, 0, 0});
    EXPECT_FALSE(host.window.HandleMessages());
    EXPECT_TRUE(host.Has(MessageUser + 101));
    EXPECT_FALSE(host.Has(MessagePaint));
    EXPECT_TRUE(host.window.HandleMessages());
    EXPECT_EQ(host.Of({MessagePaint}).size(), 1u);

    // What was posted to a window that is destroyed goes with it.
    host.heard.clear();
    MessageQueue::Post({host.Handle().value, MessageClose, 0, 0});
    MessageQueue::Post({host.Handle().value, MessageUser + 102, 0, 0});
    host.swallowed.clear();
    EXPECT_FALSE(host.window.HandleMessages());
    EXPECT_TRUE(host.Has(MessageDestroy));
    EXPECT_FALSE(host.Has(MessageUser + 102));
    EXPECT_FALSE(MessageQueue::Post({host.Handle().value, MessageUser, 0, 0}));
}

// With the window of another program as parent, that closes it.
TEST_F(Host, LeavesClosingToItsParent)
{
    std::string reason;
    const auto stage = Stage::Open(StageKind::Headless, reason);
    HostWindow host(reinterpret_cast<void*>(stage->OpenForeign({0, 0, 200, 200}, true).value));
    ASSERT_TRUE(host.window.CreateDefault());
    Say(host, MessageSystemCommand, CommandKeyMenu);
    Say(host, MessageSystemCommand, CommandClose); // by default: close, destroy
    EXPECT_THAT(host.Of({MessageClose, MessageDestroy}),
                ElementsAre(Heard{MessageClose, 0, 0}, Heard{MessageDestroy, 0, 0}));
    EXPECT_TRUE(host.window.HandleMessages()) << "no quit";
}

TEST_F(Host, SaysWhyThereIsNoWindow)
{
    Platform::SetDebugSinkForTest([](const char* text) { lastOutput += text; });
    const auto logged = [&](const char* text) { return std::exchange(lastOutput, "").find(text) != std::string::npos; };
    Window early(nullptr);
    EXPECT_FALSE(early.CreateDefault()) << "not opened";
    EXPECT_TRUE(logged("Window          : Failed to create window\r\n"));

    HostWindow child(reinterpret_cast<void*>(0x1234));
    EXPECT_FALSE(child.window.CreateDefault());
    EXPECT_TRUE(logged("Failed to create window - invalid parent\r\n"));
    HostWindow second;
    EXPECT_FALSE(second.opened);
    EXPECT_TRUE(logged("Failed to register class\r\n"));
    child.window.Close();
    EXPECT_TRUE(second.window.Open("Test", nullptr)) << "the class is free again";
    second.window.RegisterWindowHook(
        [](void*, void* block, int& result)
        {
            const auto& message = *static_cast<WindowMessage*>(block);
            if (message.number == MessageCreate)
                result = *static_cast<int*>(reinterpret_cast<WindowCreation*>(message.second)->parameter);
            return message.number == MessageCreate;
        },
        nullptr);
    int refuse = -1;
    EXPECT_FALSE(second.window.CreateFullscreenHost(10, 10, &refuse)) << "a hook refuses";
    EXPECT_TRUE(logged("Failed to create fullscreen window\r\n"));
    EXPECT_EQ(second.window.GetHandle(), nullptr);
    Platform::SetDebugSinkForTest(nullptr);
}

// A failure anywhere gives the class back, so that a window of the report can be opened; Close takes the hook away.
TEST_F(Host, GivesTheClassBackWhenTheProgramFails)
{
    ExceptionHandler::SetAssertions(false); // nobody is asked
    const auto fail = []
    {
        ExceptionHandler::Main(
            [](void*) -> int
            {
                Exception failure;
                failure.SetReasonf("on purpose");
                throw failure;
            },
            nullptr);
    };
    Window second(nullptr);
    {
        Window first(nullptr);
        ASSERT_TRUE(first.Open("Test", nullptr));
        EXPECT_FALSE(first.Open("Test", nullptr)) << "registered twice";
        EXPECT_FALSE(second.Open("Test", nullptr));
        second.Close(); // what it never had it cannot give back
        EXPECT_FALSE(second.Open("Test", nullptr));
        fail();
        EXPECT_TRUE(second.Open("Test", nullptr));
        second.Close();
        first.Close();
        ASSERT_TRUE(MessageQueue::RegisterClass([](const WindowMessage&) { return 0; }, &first));
        fail(); // a hook that were still there would give it back
        EXPECT_FALSE(second.Open("Test", nullptr));
        MessageQueue::UnregisterClass(&first);
        second.Close();
        EXPECT_TRUE(second.Open("Test", nullptr));
    }
    Window third(nullptr);
    EXPECT_FALSE(third.Open("Test", nullptr)) << "the first one's end is no business of the second's class";
    fail();
    EXPECT_TRUE(third.Open("Test", nullptr));
    ExceptionHandler::SetAssertions(true);
}

TEST_F(Host, AsksTheUser)
{
    const char* before = getenv("BEDROCK_REPORT");
    const std::string kept = before ? before : "";
    setenv("BEDROCK_REPORT", "continue", 1);
    EXPECT_TRUE(Window::MessageConfirm("Continue?"));
    Window::Message("Shown.");
    setenv("BEDROCK_REPORT", "terminate", 1);
    EXPECT_FALSE(Window::MessageConfirm("Continue?"));
    before ? setenv("BEDROCK_REPORT", kept.c_str(), 1) : unsetenv("BEDROCK_REPORT");
}

// BEDROCK_DESKTOP decides; without it a display, and without that the desktop in memory.
TEST_F(Host, ChoosesTheDesktop)
{
    const struct
    {
        const char* wish;
        const char* opened; // null: none
        Size size;
        std::int32_t bits;
    } rows[] = {
        {"headless", "headless", {1280, 1024}, 32},
        {"", "headless", {1280, 1024}, 32},
        {"1x32767x1", "headless", {1, 32767}, 1},
        {"640x480x16", "headless", {640, 480}, 16},
        {"640x480", nullptr, {}, 0},
        {"640x480x33", nullptr, {}, 0},
        {"0x480x16", nullptr, {}, 0},
        {"640x32768x16", nullptr, {}, 0},
        {"640x480x16 ", nullptr, {}, 0},
        {"99999999999999999999x480x16", nullptr, {}, 0},
        {"x11", nullptr, {}, 0},
        {"wayland", nullptr, {}, 0},
    };
    const char* display = getenv("DISPLAY");
    const std::string kept = display ? display : "";
    unsetenv("DISPLAY");
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.wish);
        Platform::CloseDesktop();
        setenv("BEDROCK_DESKTOP", row.wish, 1);
        Desktop* desktop = Platform::OpenDesktop();
        Window window(nullptr);
        EXPECT_EQ(window.GetHostBitsPerPixel(), row.bits);
        EXPECT_EQ(desktop != nullptr, row.opened != nullptr);
        if (!desktop)
        {
            EXPECT_STRNE(Platform::DesktopProblem(), "");
            ASSERT_TRUE(window.Open("Test", nullptr));
            EXPECT_FALSE(window.CreateDefault());
            EXPECT_TRUE(window.HandleMessages());
            continue;
        }
        EXPECT_STREQ(desktop->Name(), row.opened);
        Platform::DesktopSize size{};
        EXPECT_TRUE(desktop->Measure(size));
        EXPECT_EQ(size.size, row.size);
    }
    setenv("DISPLAY", ":99999", 1); // nobody serves it
    setenv("BEDROCK_DESKTOP", "", 1);
    Platform::CloseDesktop();
    EXPECT_STREQ(Platform::OpenDesktop()->Name(), "headless");
    display ? setenv("DISPLAY", kept.c_str(), 1) : unsetenv("DISPLAY");
}
