#pragma once

// An X server of a test's own, with the hands of its user and with other programs' windows.

#include <Bedrock/platform/Desktop.h>

#include <functional>
#include <string>
#include <sys/types.h>
#include <vector>
#include <xcb/xcb.h>

namespace Test
{

/// Whether X servers can be started here; tests that need one skip themselves otherwise.
bool HasXServer();

/// A virtual X server on a display of its own. DISPLAY and BEDROCK_DESKTOP point the library's desktop there as long as
/// it lives; that desktop is closed first at the end.
class XServer
{
public:
    /// `screen` is WxHxB. `options` go to the server.
    explicit XServer(bool manager, const char* screen = "1280x1024x24", std::vector<const char*> options = {});
    ~XServer();
    XServer(const XServer&) = delete;
    XServer& operator=(const XServer&) = delete;

    void StartManager();
    void StopManager();
    /// Ends the server as a crash does.
    void Kill();

    /// Opens the library's desktop on this server; fails the test if that does not work.
    Zem::Platform::Desktop& Open();

    // The user

    void Move(Zem::Point place);
    void Button(int button, bool down);
    void Click(int button);
    /// A key by what it types without Shift, or by its X name's number.
    void Key(std::uint32_t keysym, bool down);
    void Type(std::uint32_t keysym);
    /// A key by its place.
    void KeyAt(int scanCode, bool down);
    /// Gives the keyboard to a window, without a manager.
    void Focus(xcb_window_t window);
    /// Asks the manager to close, activate or minimise a window.
    void Ask(xcb_window_t window, const char* message, std::uint32_t first, std::uint32_t second = 0);

    /// What a manager tells a window.
    void Tell(xcb_window_t window, const char* message, std::uint32_t first, std::uint32_t second = 0,
              std::uint32_t third = 0);

    // Other programs

    xcb_window_t AddWindow(const char* title, const Zem::Rect& client, bool map = true);
    /// Mapped, of pixels of 32 bits with an alpha; 0 if the server has none such.
    xcb_window_t AddTransparentWindow(const Zem::Rect& client);
    std::vector<xcb_window_t> Children();    // of the root window
    Zem::Rect Geometry(xcb_window_t window); // client area on the root window
    std::vector<std::uint32_t> Property(xcb_window_t window, const char* name);
    std::string Text(xcb_window_t window, const char* name);
    std::uint32_t Pixel(xcb_window_t window, Zem::Point at); // as the server stores it
    bool IsMapped(xcb_window_t window);
    xcb_window_t Focused();
    bool IsPointerVisible(); // has pixels where it is now
    xcb_atom_t Atom(const char* name);
    void Sync();

    xcb_connection_t* xcb = nullptr;
    xcb_screen_t* screen = nullptr;

private:
    void SendMessage(xcb_window_t to, std::uint32_t mask, xcb_window_t about, const char* message,
                     const std::uint32_t (&data)[3]);
    xcb_keycode_t CodeOf(std::uint32_t keysym);

    pid_t server = -1;
    pid_t manager = -1;
    std::string display;
};

/// All messages that come until `done` says so of the newest, or two seconds have passed.
std::vector<Zem::Platform::DesktopMessage> Fetch(Zem::Platform::Desktop& desktop,
                                                 const std::function<bool(const Zem::WindowMessage&)>& done);
/// Those that come until nothing has come for `quietMs`.
std::vector<Zem::Platform::DesktopMessage> FetchAll(Zem::Platform::Desktop& desktop, int quietMs = 60);

} // namespace Test
