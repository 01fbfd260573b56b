// `bedrock view` as its user sees it: the built command on an X server.

#include "support/Support.h"
#include "support/XServer.h"

#include <Bedrock/bitmap/Bitmap.h>

#include <gmock/gmock.h>

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using namespace Zem;
using Test::XServer;

namespace
{

constexpr std::uint32_t keyEscape = 0xFF1B, keyRight = 0xFF53, keyPageDown = 0xFF56, keyPageUp = 0xFF55;

// A run of the command; its error stream goes to a file.
class Command
{
public:
    explicit Command(std::vector<const char*> arguments)
    {
        arguments.insert(arguments.begin(), {BEDROCK_COMMAND, "view"});
        arguments.push_back(nullptr);
        process = fork();
        if (process != 0)
            return;
        const int errors = open("errors", O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
        dup2(errors, 2);
        execv(arguments[0], const_cast<char* const*>(arguments.data()));
        _exit(127);
    }
    ~Command()
    {
        if (process > 0)
        {
            kill(process, SIGKILL);
            waitpid(process, nullptr, 0);
        }
    }

    /// The exit code, once it ends; -1 if it does not within ten seconds, or by a signal.
    int Ended()
    {
        int status = 0;
        for (int tries = 0; tries < 2000; ++tries)
        {
            if (waitpid(process, &status, WNOHANG) == process)
            {
                process = -1;
                return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return -1;
    }
    static std::string Errors()
    {
        const auto bytes = Test::ReadFile("errors");
        return {bytes.begin(), bytes.end()};
    }
    void Signal(int number) const { kill(process, number); }

private:
    pid_t process;
};

template <class Condition>
bool Until(Condition condition)
{
    for (int tries = 0; tries < 1000 && !condition(); ++tries)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    return condition();
}

void WriteImage(const char* name, Size size, std::uint32_t (*pixel)(std::int32_t x, std::int32_t y))
{
    Bitmap image(size, Bitmap::ARGB32, nullptr);
    for (std::int32_t y = 0; y < size.height; ++y)
        for (std::int32_t x = 0; x < size.width; ++x)
            image.Pixel(Point{x, y}, PackedColor(pixel(x, y)));
    ASSERT_TRUE(image.Save(name));
}

class View : public testing::Test
{
protected:
    void SetUp() override
    {
        if (!::Test::HasXServer())
            GTEST_SKIP() << "Xvfb or openbox is not installed";
    }

    // The command's window, once it is there, has the keyboard, and its title is that.
    static xcb_window_t Window(XServer& server, const std::string& title)
    {
        xcb_window_t found = 0;
        std::string seen;
        EXPECT_TRUE(Until(
            [&]
            {
                for (const xcb_window_t window : server.Children())
                    if (server.IsMapped(window) && server.Focused() == window &&
                        (seen = server.Text(window, "_NET_WM_NAME")) == title)
                        found = window;
                return found != 0;
            }))
            << "last title: " << seen;
        return found;
    }

    ::Test::Directory directory;
};

TEST_F(View, ShowsZoomsTurnsAndEnds)
{
    XServer server(false, "1000x800x24");
    // Left half, right half; some of it seen through.
    WriteImage("small.tga", {40, 30},
               [](std::int32_t x, std::int32_t y)
               { return x == 39 ? 0x00FFFFFFu : 0xFF000000u | static_cast<std::uint32_t>(x << 16 | y << 8 | 7); });
    WriteImage("large.tga", {2000, 1000},
               [](std::int32_t x, std::int32_t) { return x < 1000 ? 0xFFFF0000u : 0xFF0000FFu; });
    Command command({"./small.tga", "no such.tga", "large.tga"});

    // The window has room for the large one, scaled down; the small one stands in its middle as it is.
    xcb_window_t window = Window(server, "ZEM [small.tga, 40 x 30, 100%, 1 of 3]");
    ASSERT_NE(window, 0u);
    const Rect client = server.Geometry(window);
    EXPECT_EQ(Size(client), (Size{900, 640}));
    const auto sees = [&](Point at, std::uint32_t pixel)
    {
        std::uint32_t seen = 0;
        EXPECT_TRUE(Until([&] { return (seen = server.Pixel(window, at) & 0xFFFFFF) == pixel; }))
            << at.x << ',' << at.y << ": " << std::hex << seen << " and not " << pixel;
    };
    const Point corner{450 - 20, 320 - 15};
    sees({corner.x, corner.y}, 0x000007);
    sees({corner.x + 13, corner.y + 29}, 0x0D1D07);
    sees({corner.x - 1, corner.y}, 0x282828);
    sees({corner.x, corner.y + 30}, 0x282828);
    sees({corner.x + 39, corner.y}, ((corner.x + 39) ^ corner.y) & 8 ? 0x666666 : 0x999999); // the ground

    server.Move({client.x + 450, client.y + 320});
    for (int i = 0; i < 4; ++i)
        server.Click(4); // the wheel, in the middle
    window = Window(server, "ZEM [small.tga, 40 x 30, 244%, 1 of 3]");
    sees({450, 320}, 0x140F07);
    sees({450 + 25, 320 - 25}, 0x1E0407); // 2.44 pixels each
    server.Type('1');
    window = Window(server, "ZEM [small.tga, 40 x 30, 100%, 1 of 3]");

    server.Type(keyPageDown); // over the one that is missing
    window = Window(server, "ZEM [large.tga, 2000 x 1000, 45%, 3 of 3]");
    sees({2, 320}, 0xFF0000);
    sees({449, 320}, 0xFF0000);
    sees({450, 320}, 0x0000FF);
    sees({897, 320}, 0x0000FF);
    sees({450, 320 - 226}, 0x282828);
    server.Type('1');
    Window(server, "ZEM [large.tga, 2000 x 1000, 100%, 3 of 3]");
    server.Type(keyRight); // 64 pixels
    sees({385, 5}, 0xFF0000);
    sees({386, 5}, 0x0000FF);
    server.Button(1, true); // and back by hand
    server.Move({client.x + 450 + 64, client.y + 320});
    server.Button(1, false);
    sees({449, 5}, 0xFF0000);
    sees({450, 5}, 0x0000FF);
    server.Type('f');
    Window(server, "ZEM [large.tga, 2000 x 1000, 45%, 3 of 3]");
    server.Type(keyPageUp);
    Window(server, "ZEM [small.tga, 40 x 30, 100%, 1 of 3]");

    server.Type(keyEscape);
    EXPECT_EQ(command.Ended(), 3) << "one could not be read";
    EXPECT_EQ(Command::Errors(), "bedrock: view: no such.tga: cannot open: No such file or directory\n");
}

TEST_F(View, EndsInEveryWay)
{
    WriteImage("one.tga", {16, 16}, [](std::int32_t, std::int32_t) { return 0xFF123456u; });
    XServer server(false, "1000x800x24");
    const struct
    {
        const char* what;
        void (*end)(XServer&, Command&, xcb_window_t);
        int code;
    } rows[] = {
        {"q", [](XServer& x, Command&, xcb_window_t) { x.Type('q'); }, 0},
        {"the close button",
         [](XServer& x, Command&, xcb_window_t w) { x.Tell(w, "WM_PROTOCOLS", x.Atom("WM_DELETE_WINDOW")); }, 0},
        {"an interrupt", [](XServer&, Command& c, xcb_window_t) { c.Signal(SIGINT); }, 3},
        {"the server's end", [](XServer& x, Command&, xcb_window_t) { x.Kill(); }, 0},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.what);
        Command command({"--fullscreen", "one.tga"});
        const xcb_window_t window = Window(server, "ZEM [one.tga, 16 x 16, 100%]");
        ASSERT_NE(window, 0u);
        EXPECT_EQ(server.Geometry(window), Rect(0, 0, 1000, 800));
        row.end(server, command, window);
        EXPECT_EQ(command.Ended(), row.code);
    }
}

// What cannot work is said at once, by name, and by the exit code.
TEST_F(View, SaysWhatIsMissing)
{
    WriteImage("one.tga", {16, 16}, [](std::int32_t, std::int32_t) { return 0xFF123456u; });
    const struct
    {
        const char *display, *desktop, *image;
        int code;
        const char* says;
    } rows[] = {
        {nullptr, nullptr, "one.tga", 3, "bedrock: view: there is no display: DISPLAY is not set\n"},
        {":987", nullptr, "one.tga", 3, "bedrock: view: cannot open a window on the display :987: "},
        {":987", "headless", "one.tga", 3,
         "bedrock: view: there is no window to look at: BEDROCK_DESKTOP is headless\n"},
        {nullptr, nullptr, "--nothing", 2, "bedrock: view: "},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.says);
        row.display ? setenv("DISPLAY", row.display, 1) : unsetenv("DISPLAY");
        row.desktop ? setenv("BEDROCK_DESKTOP", row.desktop, 1) : unsetenv("BEDROCK_DESKTOP");
        EXPECT_EQ(Command({row.image}).Ended(), row.code);
        EXPECT_THAT(Command::Errors(), testing::StartsWith(row.says));
    }
    unsetenv("BEDROCK_DESKTOP");
    XServer server(false, "640x480x24");
    ::Test::WriteFile("bad.tga", std::vector<std::uint8_t>(7));
    EXPECT_EQ(Command({"bad.tga"}).Ended(), 1);
    EXPECT_THAT(Command::Errors(), testing::StartsWith("bedrock: view: bad.tga: cannot be loaded"));
}

} // namespace
