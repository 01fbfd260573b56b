#include "support/XServer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <xcb/xfixes.h>
#include <xcb/xtest.h>

namespace Test
{

namespace
{

bool OnPath(const char* program)
{
    return std::system((std::string("command -v ") + program + " >/dev/null").c_str()) == 0;
}

// Dies with the test. Its output is the test's only if it must be looked at.
pid_t Start(std::vector<const char*> arguments)
{
    arguments.push_back(nullptr);
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child != 0)
        return child;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent)
        _exit(1);
    if (!std::getenv("BEDROCK_TEST_X_OUTPUT"))
    {
        const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
        dup2(nothing, 1);
        dup2(nothing, 2);
    }
    execvp(arguments[0], const_cast<char* const*>(arguments.data()));
    _exit(127);
}

void Stop(pid_t& process, int signal)
{
    if (process <= 0)
        return;
    kill(process, signal);
    waitpid(process, nullptr, 0);
    process = -1;
}

template <class T>
std::unique_ptr<T, decltype(&std::free)> Own(T* reply)
{
    return {reply, std::free};
}

bool Within(int milliseconds, const std::function<bool()>& condition)
{
    for (const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
         std::chrono::steady_clock::now() < end; std::this_thread::sleep_for(std::chrono::milliseconds(2)))
        if (condition())
            return true;
    return condition();
}

} // namespace

bool HasXServer()
{
    static const bool has = OnPath("Xvfb") && OnPath("openbox");
    return has;
}

XServer::XServer(bool withManager, const char* size, std::vector<const char*> options)
{
    int numbers[2];
    EXPECT_EQ(pipe(numbers), 0);
    const std::string number = std::to_string(numbers[1]); // inherited: the server writes its display there when ready
    std::vector<const char*> arguments = {"Xvfb", "-displayfd", number.c_str(), "-screen", "0",
                                          size,   "-noreset",   "-nolisten",    "tcp"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    server = Start(arguments);
    close(numbers[1]);
    char text[16] = "";
    std::size_t length = 0;
    pollfd ready{numbers[0], POLLIN, 0};
    while (length < sizeof(text) - 1 && !std::strchr(text, '\n') && poll(&ready, 1, 20000) > 0)
    {
        const ssize_t count = read(numbers[0], text + length, sizeof(text) - 1 - length);
        if (count <= 0)
            break;
        length += static_cast<std::size_t>(count);
    }
    close(numbers[0]);
    EXPECT_TRUE(std::strchr(text, '\n')) << "Xvfb did not start";
    display = ":" + std::string(text, std::strcspn(text, "\n"));
    setenv("DISPLAY", display.c_str(), 1);
    setenv("BEDROCK_DESKTOP", "x11", 1);
    xcb = xcb_connect(display.c_str(), nullptr);
    EXPECT_EQ(xcb_connection_has_error(xcb), 0);
    screen = xcb_setup_roots_iterator(xcb_get_setup(xcb)).data;
    if (withManager)
        StartManager();
}

XServer::~XServer()
{
    Zem::Platform::CloseDesktop();
    if (xcb)
        xcb_disconnect(xcb);
    StopManager();
    Kill();
    unsetenv("DISPLAY");
    unsetenv("BEDROCK_DESKTOP");
}

void XServer::StartManager()
{
    // No configuration of whoever runs the test.
    manager = Start({"env", "HOME=/nonexistent", "XDG_CONFIG_HOME=/nonexistent", "openbox", "--sm-disable"});
    EXPECT_TRUE(Within(10000,
                       [&]
                       {
                           const auto check = Property(screen->root, "_NET_SUPPORTING_WM_CHECK");
                           return check.size() == 1 && Property(check[0], "_NET_SUPPORTING_WM_CHECK") == check;
                       }))
        << "openbox did not start";
    // It says so before it takes windows, and those that come meanwhile it may never see.
    bool works = false;
    for (int tries = 0; tries < 20 && !works; ++tries)
    {
        const xcb_window_t probe = AddWindow("probe", {0, 0, 10, 10}, false);
        xcb_map_window(xcb, probe);
        works = Within(500, [&] { return !Property(probe, "WM_STATE").empty(); });
        xcb_destroy_window(xcb, probe);
    }
    EXPECT_TRUE(works) << "openbox does not take windows";
    Sync();
}

void XServer::StopManager()
{
    Stop(manager, SIGTERM);
}

void XServer::Kill()
{
    Stop(server, SIGKILL);
}

Zem::Platform::Desktop& XServer::Open()
{
    Zem::Platform::Desktop* const desktop = Zem::Platform::OpenDesktop();
    if (!desktop)
    {
        std::fprintf(stderr, "no desktop: %s\n", Zem::Platform::DesktopProblem());
        std::abort();
    }
    EXPECT_STREQ(desktop->Name(), "x11");
    return *desktop;
}

void XServer::Sync()
{
    Own(xcb_get_input_focus_reply(xcb, xcb_get_input_focus(xcb), nullptr));
}

xcb_atom_t XServer::Atom(const char* name)
{
    const auto reply = Own(xcb_intern_atom_reply(
        xcb, xcb_intern_atom(xcb, 0, static_cast<std::uint16_t>(std::strlen(name)), name), nullptr));
    return reply ? reply->atom : 0;
}

// ------------------------------------------------------------------------------------------------------------ The user

void XServer::Move(Zem::Point place)
{
    xcb_test_fake_input(xcb, XCB_MOTION_NOTIFY, 0, 0, screen->root, static_cast<std::int16_t>(place.x),
                        static_cast<std::int16_t>(place.y), 0);
    Sync();
}

void XServer::Button(int button, bool down)
{
    xcb_test_fake_input(xcb, down ? XCB_BUTTON_PRESS : XCB_BUTTON_RELEASE, static_cast<std::uint8_t>(button), 0, 0, 0,
                        0, 0);
    Sync();
}

void XServer::Click(int button)
{
    Button(button, true);
    Button(button, false);
}

xcb_keycode_t XServer::CodeOf(std::uint32_t keysym)
{
    const xcb_setup_t* const setup = xcb_get_setup(xcb);
    const auto reply = Own(xcb_get_keyboard_mapping_reply(
        xcb,
        xcb_get_keyboard_mapping(xcb, setup->min_keycode,
                                 static_cast<std::uint8_t>(setup->max_keycode - setup->min_keycode + 1)),
        nullptr));
    const xcb_keysym_t* const symbols = xcb_get_keyboard_mapping_keysyms(reply.get());
    for (int code = setup->min_keycode; code <= setup->max_keycode; ++code)
        if (symbols[(code - setup->min_keycode) * reply->keysyms_per_keycode] == keysym)
            return static_cast<xcb_keycode_t>(code);
    ADD_FAILURE() << "no key types " << keysym;
    return 0;
}

void XServer::Key(std::uint32_t keysym, bool down)
{
    KeyAt(CodeOf(keysym) - 8, down);
}

void XServer::KeyAt(int scanCode, bool down)
{
    xcb_test_fake_input(xcb, down ? XCB_KEY_PRESS : XCB_KEY_RELEASE, static_cast<std::uint8_t>(scanCode + 8), 0, 0, 0,
                        0, 0);
    Sync();
}

void XServer::Focus(xcb_window_t window)
{
    xcb_set_input_focus(xcb, XCB_INPUT_FOCUS_POINTER_ROOT, window, XCB_CURRENT_TIME);
    Sync();
}

void XServer::Type(std::uint32_t keysym)
{
    Key(keysym, true);
    Key(keysym, false);
}

void XServer::Ask(xcb_window_t window, const char* message, std::uint32_t first, std::uint32_t second)
{
    SendMessage(screen->root, XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT, window,
                message, {first, second});
}

void XServer::Tell(xcb_window_t window, const char* message, std::uint32_t first, std::uint32_t second,
                   std::uint32_t third)
{
    SendMessage(window, 0, window, message, {first, second, third});
}

void XServer::SendMessage(xcb_window_t to, std::uint32_t mask, xcb_window_t about, const char* message,
                          const std::uint32_t (&data)[3])
{
    xcb_client_message_event_t event{};
    event.response_type = XCB_CLIENT_MESSAGE;
    event.format = 32;
    event.window = about;
    event.type = Atom(message);
    std::memcpy(event.data.data32, data, sizeof(data));
    xcb_send_event(xcb, 0, to, mask, reinterpret_cast<const char*>(&event));
    Sync();
}

// ------------------------------------------------------------------------------------------------------ Other programs

xcb_window_t XServer::AddWindow(const char* title, const Zem::Rect& client, bool map)
{
    const xcb_window_t window = xcb_generate_id(xcb);
    const std::uint32_t values[] = {screen->white_pixel, XCB_EVENT_MASK_STRUCTURE_NOTIFY};
    xcb_create_window(xcb, XCB_COPY_FROM_PARENT, window, screen->root, static_cast<std::int16_t>(client.x),
                      static_cast<std::int16_t>(client.y), static_cast<std::uint16_t>(client.width),
                      static_cast<std::uint16_t>(client.height), 0, XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT,
                      XCB_CW_BACK_PIXEL | XCB_CW_EVENT_MASK, values);
    xcb_change_property(xcb, XCB_PROP_MODE_REPLACE, window, XCB_ATOM_WM_NAME, XCB_ATOM_STRING, 8,
                        static_cast<std::uint32_t>(std::strlen(title)), title);
    const std::uint32_t hints[18] = {1 | 4}; // the place is the user's wish
    xcb_change_property(xcb, XCB_PROP_MODE_REPLACE, window, XCB_ATOM_WM_NORMAL_HINTS, XCB_ATOM_WM_SIZE_HINTS, 32, 18,
                        hints);
    if (map)
    {
        xcb_map_window(xcb, window);
        Sync();
        EXPECT_TRUE(
            Within(5000, [&] { return IsMapped(window) && (manager <= 0 || !Property(window, "WM_STATE").empty()); }));
    }
    Sync();
    return window;
}

xcb_window_t XServer::AddTransparentWindow(const Zem::Rect& client)
{
    xcb_visualid_t visual = 0;
    for (auto depths = xcb_screen_allowed_depths_iterator(screen); depths.rem; xcb_depth_next(&depths))
        if (depths.data->depth == 32 && xcb_depth_visuals_length(depths.data) > 0)
            visual = xcb_depth_visuals(depths.data)->visual_id;
    if (visual == 0)
        return 0;
    const xcb_window_t window = xcb_generate_id(xcb);
    const xcb_colormap_t colours = xcb_generate_id(xcb);
    xcb_create_colormap(xcb, XCB_COLORMAP_ALLOC_NONE, colours, screen->root, visual);
    const std::uint32_t values[] = {0, 0, colours};
    xcb_create_window(xcb, 32, window, screen->root, static_cast<std::int16_t>(client.x),
                      static_cast<std::int16_t>(client.y), static_cast<std::uint16_t>(client.width),
                      static_cast<std::uint16_t>(client.height), 0, XCB_WINDOW_CLASS_INPUT_OUTPUT, visual,
                      XCB_CW_BACK_PIXEL | XCB_CW_BORDER_PIXEL | XCB_CW_COLORMAP, values);
    xcb_map_window(xcb, window);
    Sync();
    return window;
}

std::vector<xcb_window_t> XServer::Children()
{
    const auto reply = Own(xcb_query_tree_reply(xcb, xcb_query_tree(xcb, screen->root), nullptr));
    if (!reply)
        return {};
    const xcb_window_t* const children = xcb_query_tree_children(reply.get());
    return {children, children + xcb_query_tree_children_length(reply.get())};
}

Zem::Rect XServer::Geometry(xcb_window_t window)
{
    const auto size = Own(xcb_get_geometry_reply(xcb, xcb_get_geometry(xcb, window), nullptr));
    const auto place =
        Own(xcb_translate_coordinates_reply(xcb, xcb_translate_coordinates(xcb, window, screen->root, 0, 0), nullptr));
    if (!size || !place)
        return {};
    return {place->dst_x, place->dst_y, size->width, size->height};
}

std::vector<std::uint32_t> XServer::Property(xcb_window_t window, const char* name)
{
    const auto reply =
        Own(xcb_get_property_reply(xcb, xcb_get_property(xcb, 0, window, Atom(name), XCB_ATOM_ANY, 0, 1024), nullptr));
    if (!reply || reply->format != 32)
        return {};
    const auto* const items = static_cast<const std::uint32_t*>(xcb_get_property_value(reply.get()));
    return {items, items + xcb_get_property_value_length(reply.get()) / 4};
}

std::string XServer::Text(xcb_window_t window, const char* name)
{
    const auto reply =
        Own(xcb_get_property_reply(xcb, xcb_get_property(xcb, 0, window, Atom(name), XCB_ATOM_ANY, 0, 1024), nullptr));
    if (!reply || reply->format != 8)
        return {};
    return {static_cast<const char*>(xcb_get_property_value(reply.get())),
            static_cast<std::size_t>(xcb_get_property_value_length(reply.get()))};
}

std::uint32_t XServer::Pixel(xcb_window_t window, Zem::Point at)
{
    const auto image =
        Own(xcb_get_image_reply(xcb,
                                xcb_get_image(xcb, XCB_IMAGE_FORMAT_Z_PIXMAP, window, static_cast<std::int16_t>(at.x),
                                              static_cast<std::int16_t>(at.y), 1, 1, ~0u),
                                nullptr));
    std::uint32_t pixel = 0;
    EXPECT_TRUE(image) << at.x << ',' << at.y;
    if (image)
        std::memcpy(&pixel, xcb_get_image_data(image.get()), image->depth > 16 ? 4 : 2);
    return pixel;
}

bool XServer::IsMapped(xcb_window_t window)
{
    const auto reply = Own(xcb_get_window_attributes_reply(xcb, xcb_get_window_attributes(xcb, window), nullptr));
    return reply && reply->map_state == XCB_MAP_STATE_VIEWABLE;
}

xcb_window_t XServer::Focused()
{
    const auto reply = Own(xcb_get_input_focus_reply(xcb, xcb_get_input_focus(xcb), nullptr));
    return reply ? reply->focus : 0;
}

bool XServer::IsPointerVisible()
{
    Own(xcb_xfixes_query_version_reply(xcb, xcb_xfixes_query_version(xcb, 4, 0), nullptr));
    const auto reply = Own(xcb_xfixes_get_cursor_image_reply(xcb, xcb_xfixes_get_cursor_image(xcb), nullptr));
    EXPECT_TRUE(reply);
    if (!reply)
        return false;
    const std::uint32_t* const pixels = xcb_xfixes_get_cursor_image_cursor_image(reply.get());
    const int count = xcb_xfixes_get_cursor_image_cursor_image_length(reply.get());
    return std::any_of(pixels, pixels + count, [](std::uint32_t pixel) { return pixel >> 24 != 0; });
}

// ------------------------------------------------------------------------------------------------------------ Messages

std::vector<Zem::Platform::DesktopMessage> Fetch(Zem::Platform::Desktop& desktop,
                                                 const std::function<bool(const Zem::WindowMessage&)>& done)
{
    std::vector<Zem::Platform::DesktopMessage> all;
    for (const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(2);
         std::chrono::steady_clock::now() < end;)
    {
        Zem::Platform::DesktopMessage message;
        if (!desktop.Next(message))
        {
            desktop.Wait(20);
            continue;
        }
        all.push_back(message);
        if (done(message.message))
            break;
    }
    return all;
}

std::vector<Zem::Platform::DesktopMessage> FetchAll(Zem::Platform::Desktop& desktop, int quietMs)
{
    std::vector<Zem::Platform::DesktopMessage> all;
    for (auto last = std::chrono::steady_clock::now();
         std::chrono::steady_clock::now() - last < std::chrono::milliseconds(quietMs);)
    {
        Zem::Platform::DesktopMessage message;
        if (!desktop.Next(message))
        {
            desktop.Wait(5);
            continue;
        }
        all.push_back(message);
        last = std::chrono::steady_clock::now();
    }
    return all;
}

} // namespace Test
