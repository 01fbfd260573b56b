#pragma once

#include <Bedrock/Export.h>
#include <Bedrock/Types.h>
#include <Bedrock/memory/HeapOperators.h>
#include <Bedrock/platform/WindowMessage.h>

#include <cstdint>

namespace Zem
{

class Bitmap;
class Options;

namespace Platform
{
struct WindowRequest;
} // namespace Platform

/// The application's window: one native window, framed, full-screen, or inside of another program's window.
///
/// The usual order: construct, `Open`, `GetUserWindowConfig`, one of the `Create...`, `Show`, then `HandleMessages` once a
/// frame until it answers false. What happens to the window goes to the hooks first, oldest first, and then to the
/// window itself, which draws nothing. There is one window at a time: a second object takes over the messages, and the
/// first gets none any more.
///
/// - The desktop is the X server that DISPLAY names, or one in memory where there is none (BEDROCK_DESKTOP chooses).
/// - The frame stands around the client area: widths and heights asked for are those of the client area, and the place is
///   that of the outer corner. `NoPosition` leaves the place, or a size, to the desktop.
/// - With a parent the window fills the client area of that window and follows its size, and hands on to it the mouse and
///   the keyboard. Closing is the parent's business then.
/// - What fails answers false and says why in the log, as client "Window".
/// - Threads: one object belongs to one thread, the same for all windows and for all calls.
///
///     Window window(nullptr);
///     bool full = false, tooLarge = false, desktop = false;
///     int x = Window::NoPosition, y = x, width = 640, height = 480, bits = 32, frequency = 0;
///     if (!window.Open("Demo", &options))
///         return 1;
///     window.GetUserWindowConfig(&options, full, x, y, width, height, bits, frequency, tooLarge, desktop);
///     if (!window.CreateWindowedHost(x, y, width, height, nullptr))
///         return 1;
///     window.Show(window.GetVisible());
///     while (window.HandleMessages())
///         Draw(window);
class ZEM_API Window
{
    ZEM_HEAP_OPERATORS
public:
    /// Sees a message before the window does; `message` is a `WindowMessage`. True: the window does not get it, nor do
    /// later hooks, and `result` (0 at first) is the answer. A hook may add and clear hooks, also itself, and delete the
    /// window: then the call that brought it the message answers false.
    using Hook = bool (*)(void* data, void* message, int& result);

    /// For a coordinate or a size: whatever the desktop likes.
    static constexpr int NoPosition = INT32_MIN;

    /// The object that was constructed last, null if it is gone: the one that gets the messages.
    static Window* self;

    /// `parent` is the native handle of the window to live in, as `GetHandle` gives it, or null.
    explicit Window(void* parent);
    ~Window();
    Window(const Window&) = delete;
    Window& operator=(const Window&) = delete;

    /// Prepares the title "ZEM [title]", cut to 255 bytes in all, and the window class; makes no window. The class, and so
    /// the right to make windows, belongs to one object at a time. Option: "ShowFPS" shows the frame rate in the title.
    bool Open(const char* title, const Options* options);
    /// Hides the window and gives back the class. The native window stays until the process ends.
    void Close();

    /// Changes the caller's wishes to what the user wants. The last two only ever become true: `tooLarge` if the desktop
    /// is smaller than the size or has less than 15 bits per pixel, `equalsDesktop` if it has just this size.
    ///
    /// Options: "Fullscreen", else "Windowed"; "HideWindow"; a size by "320", "400", "640", "800", "1024", "1280", "1600" or
    /// "1920", the largest given winning; then "Width", "Height", "ColorBits" and "Frequency" (which means full screen);
    /// "WindowCentered", "WindowHorizontalCentered" and "WindowVerticalCentered", which all centre both ways; "WindowPosX"
    /// and "WindowPosY", of which one alone makes the other 0 if it had no position. In a parent, unless full screen,
    /// place and size become (0, 0) and the parent's.
    void GetUserWindowConfig(const Options* options, bool& fullscreen, int& x, int& y, int& width, int& height,
                             int& colorBits, int& frequency, bool& tooLarge, bool& equalsDesktop);

    /// A window where and as large as the desktop likes; with a parent one that fills it.
    bool CreateDefault();
    /// Makes a window that is not visible yet, `width` by `height` pixels of client area inside of a frame, or as large as
    /// the parent. Hooks find `parameter` in the message MessageCreate. Returns: the result of one `HandleMessages`.
    bool CreateWindowedHost(int x, int y, int width, int height, void* parameter);
    /// The same for a window over the whole desktop and above others. The desktop keeps its mode: the window takes its
    /// size, and MessageSize tells which.
    bool CreateFullscreenHost(int width, int height, void* parameter);

    void Show(bool visible);
    bool GetVisible() const { return (flags & Visible) != 0; }

    /// Handles what has happened since the last call, then MessageFrame. False: the window was closed, leave the loop.
    /// With "ShowFPS" the title shows the frame rate, at most four times a second and gliding.
    bool HandleMessages();

    /// Sleeps until there may be something for `HandleMessages`, or so many milliseconds have passed (0xFFFFFFFF: for
    /// ever): for applications that draw nothing by themselves. Without a desktop it returns at once.
    static void WaitMessages(std::uint32_t milliseconds);

    /// Appends a hook. False if there is no memory, and then it is not added.
    bool RegisterWindowHook(Hook function, void* data);
    /// Removes the first hook with that data, if there is one.
    void ClearWindowHook(void* data);

    /// Shows a picture with its upper left corner at that place of the client area, cut at its edges. It stays until that
    /// part of the window is covered, which MessagePaint tells. Bitmaps of all formats with colours of their own; the
    /// 32-bit ones go as they are. False without a window, or if there is nothing to show.
    bool Present(const Bitmap& picture, Point at = {0, 0});

    /// Shows a text in a box and waits until it is put away.
    static void Message(const char* text);
    /// The same with the buttons "Yes" and "No". True for "Yes".
    static bool MessageConfirm(const char* text);
    /// Tells the log that something failed: client "Window", level 1.
    static void Error(const char* text);

    /// The native handle, null until a window was made. With X11 it is the number of the window.
    void* GetHandle() const { return handle; }
    void* GetParent() const { return parent; }
    /// The title without the frame rate.
    const char* GetTitle() const { return title; }
    /// Changes the title to "ZEM [name]", cut as `Open` does.
    void SetTitle(const char* name);
    static const char* GetInternalName() { return "ZEM"; }

    /// Left, top, width and height of the client area in its own terms, so left and top are 0. All 0 without a window.
    Rect GetClientArea() const;
    /// Left, top, width and height of the whole window on the desktop. All 0 without a window.
    Rect GetArea() const;
    /// From the client area to the desktop. Without a window the point stays.
    void LocalToGlobal(Point& point) const;

    bool IsIconic() const;
    bool HasFocus() const;
    void SetFocus();
    /// The application is the one that the user works with. A window in a parent never is.
    bool IsActive() const { return active; }
    /// All that the mouse does goes to this window; false ends that.
    void SetCapture(bool capture);
    /// Bits that a pixel of the desktop takes; 0 while there is no desktop.
    int GetHostBitsPerPixel();
    /// Which desktop it is: "x11", or "headless" for the one in memory, where nobody sees the window and nobody closes
    /// it. Empty while there is no desktop.
    static const char* GetDesktopName();

private:
    enum Flags : std::uint32_t
    {
        ShowFrameRate = 1,
        Visible = 2,
    };

    struct HookNode
    {
        ZEM_HEAP_OPERATORS
    public:
        HookNode* next;
        Hook function; // null: cleared while the list is walked
        void* data;
    };

    struct Walk;

    static int CriticalShutdown(void* window);
    static int WindowProc(const WindowMessage& message);
    bool CallHooks(const WindowMessage& message, int& result);
    bool Handle(const WindowMessage& message);
    bool Create(const Platform::WindowRequest& request, void* parameter, const char* failure);
    void CountFrame();
    void SweepHooks();

    void* handle;
    char title[256];
    bool active;
    HookNode hooks; // its own `next` when there is none
    std::uint32_t hookCount;
    void* parent;
    std::uint32_t flags;
    std::uint32_t frames;   // since `rateTime`
    float rate;             // frames a second, as the title shows it
    std::uint32_t rateTime; // Time::Ms
    int hostBits;
    unsigned int shutdownId;
    std::uint32_t walks; // calls of hooks that are under way
};

} // namespace Zem
