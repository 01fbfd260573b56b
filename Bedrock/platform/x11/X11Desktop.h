#pragma once

#include <Bedrock/platform/Desktop.h>
#include <Bedrock/platform/x11/Connection.h>
#include <Bedrock/platform/x11/Keyboard.h>
#include <Bedrock/platform/x11/MessageQueue.h>
#include <Bedrock/platform/x11/Pictures.h>

namespace Zem::Platform::X11
{

/// What a window manager puts around a client area.
struct Frame
{
    std::int32_t left, right, top, bottom;

    friend bool operator==(const Frame&, const Frame&) = default;
};

/// One of our windows, in a list in the order of their making, so that children come behind their parents.
struct OwnWindow
{
    OwnWindow* next;
    xcb_window_t id;
    xcb_window_t parent; // of a child, own or foreign; otherwise 0
    WindowKind kind;
    bool placed; // a place was asked for, or found once
    bool shown;  // as `Show` left it
    bool everShown;
    bool told; // the first Size and Move have been
    bool mapped;
    bool minimised;
    bool maximised;
    bool managed;    // a window manager has taken it
    bool reparented; // into its frame
    bool paint;      // shows something invalid
    bool placeStale; // `client` and `frame` may be old
    Point corner;    // a child's in its parent; otherwise of the area, where it is to be when shown
    Rect client;     // on the root window
    Frame frame;
    Rect normal;     // area when last neither minimised nor maximised, on the root window
    Size parentSize; // of a foreign parent
    // What the messages fetched last told.
    bool sizeTold, placeTold;
    std::uintptr_t toldKind, toldSize, toldPlace;

    xcb_gcontext_t gc; // 0 before the first picture
    PixelForm form;
};

/// The desktop of an X server. Sources by topic: X11Desktop.cpp (opening, waiting, pointer, pictures), Windows.cpp (own
/// windows, focus and capture), Events.cpp (from the server's events to messages), Placement.cpp (all windows).
///
/// State is kept from events, so that questions cost no trip to the server; calls that change something wait until the
/// change has come back, for a short while, so that what is asked next is answered as on any desktop.
///
/// Places inside are those of the root window; the main monitor's corner (`origin`) is taken off at the boundary.
class X11Desktop final : public Desktop
{
public:
    /// Null if there is no server, or no memory.
    static Desktop* Open();

    const char* Name() const noexcept override { return "x11"; }
    void Close() noexcept override;
    bool Measure(DesktopSize& result) noexcept override;

    WindowHandle CreateWindow(const WindowRequest& request) noexcept override;
    bool DestroyWindow(WindowHandle window) noexcept override;
    bool IsOwn(WindowHandle window) noexcept override;
    bool SetTitle(WindowHandle window, const char* title) noexcept override;
    bool Show(WindowHandle window, bool visible) noexcept override;
    bool IsVisible(WindowHandle window) noexcept override;
    bool IsMinimised(WindowHandle window) noexcept override;
    bool Area(WindowHandle window, Rect& result) noexcept override;
    bool ClientArea(WindowHandle window, Rect& result) noexcept override;
    bool Resize(WindowHandle window, Size client) noexcept override;

    WindowHandle Focus() noexcept override;
    bool SetFocus(WindowHandle window) noexcept override;
    bool SetCapture(WindowHandle window) noexcept override;
    WindowHandle Capture() noexcept override;

    bool Next(DesktopMessage& result) noexcept override;
    void Wait(std::uint32_t milliseconds) noexcept override;
    void Wake() noexcept override;
    bool Forward(WindowHandle window, const WindowMessage& message) noexcept override;

    std::size_t TopLevelWindows(WindowHandle* result, std::size_t capacity) noexcept override;
    bool Position(WindowHandle window, WindowPosition& result) noexcept override;
    bool SetPosition(WindowHandle window, const WindowPosition& position) noexcept override;
    bool Move(WindowHandle window, const Rect& area) noexcept override;

    bool Pointer(Point& result) noexcept override;
    bool MovePointer(Point place) noexcept override;
    bool ShowPointer(bool visible) noexcept override;

    bool Present(WindowHandle window, const PixelRows& picture, Point at) noexcept override;
    bool OpenPicture(WindowHandle window, Size size, PictureMemory& result) noexcept override;
    void ClosePicture(const PictureMemory& picture) noexcept override;
    bool PresentPicture(WindowHandle window, const PictureMemory& picture, const Rect* parts,
                        std::size_t count) noexcept override;
    void WaitPicture(const PictureMemory& picture) noexcept override;

private:
    X11Desktop();
    ~X11Desktop();

    OwnWindow* Find(std::uintptr_t window);
    OwnWindow* Canvas(WindowHandle window);
    OwnWindow* ParentOf(const OwnWindow& own) { return own.parent ? Find(own.parent) : nullptr; }
    bool IsInside(const OwnWindow& own, const OwnWindow& ancestor);
    bool OnScreen(const OwnWindow& own);
    xcb_window_t TopOf(const OwnWindow* own);
    void Forget(OwnWindow* own, bool tell);
    void Unlink(OwnWindow* own);

    // Windows.cpp
    bool CreateChild(OwnWindow& own, const WindowRequest& request);
    void CreateTop(OwnWindow& own, const WindowRequest& request);
    void SetHints(const OwnWindow& own);
    void Hide(OwnWindow& own);
    void SelectEvents(const OwnWindow& own, bool keys);
    void Activate(xcb_window_t window);
    bool Withdrawn(const OwnWindow& own);

    // Events.cpp
    void Pump();
    void Handle(const xcb_generic_event_t& event);
    void HandleConfigure(const xcb_configure_notify_event_t& event);
    void HandleProperty(const xcb_property_notify_event_t& event);
    void HandleClient(const xcb_client_message_event_t& event);
    void HandleFocus(const xcb_focus_in_event_t& event, bool in);
    void HandleKey(const xcb_key_press_event_t& event, bool pressed);
    void HandleButton(const xcb_button_press_event_t& event, bool pressed);
    void HandleMove(xcb_window_t window, xcb_window_t child, std::uint16_t state, Point client);
    void HandleLoss();
    void Refresh(OwnWindow& own);
    void RefreshStale();
    void UpdateNormal(OwnWindow& own);
    void TellFamily(OwnWindow& own);
    void ReadState(OwnWindow& own);
    void GiveKeyboard(OwnWindow* own);
    void TellFocus();
    void Tell(const OwnWindow& own, std::uint32_t number, std::uintptr_t first, std::uintptr_t second);
    void TellLatest(OwnWindow& own, std::uint32_t number, std::uintptr_t first, std::uintptr_t second);
    void TellShape(OwnWindow& own, bool first);
    template <class Condition>
    bool Settle(int milliseconds, const Condition& condition);
    void Sleep(int milliseconds);
    static std::int64_t Milliseconds();
    bool Sync();

    // Placement.cpp
    bool IsTopLevel(xcb_window_t window);
    bool IsIconic(xcb_window_t window);
    bool ClientOf(xcb_window_t window, Rect& result);
    Frame FrameOf(xcb_window_t window);
    void Iconify(xcb_window_t window);
    void ChangeState(xcb_window_t window, bool add, AtomName one, AtomName two);
    bool MoveTop(xcb_window_t window, const Rect& area);
    bool MoveTop(xcb_window_t window, const Rect& area, const Frame& frame);

    Connection connection;
    Keyboard keyboard;
    Pictures pictures;
    MessageQueue queue;
    OwnWindow* windows = nullptr;
    OwnWindow* focus = nullptr;
    OwnWindow* focusTold = nullptr; // what was told last of it
    bool focusHeld = false;         // nothing is told until it has come to rest
    OwnWindow* capture = nullptr;
    bool focusLost = false; // and nobody of ours got it yet
    bool lost = false;      // the server is, and the windows have been told
    bool anyStale = false;
    bool monitorStale = true;
    Rect monitor;           // the main one, on the root window
    int wake;               // an event counter's descriptor
    xcb_cursor_t blank = 0; // the pointer when it is hidden
    bool pointerShown = true;
    xcb_timestamp_t time = XCB_CURRENT_TIME; // of the last key or button
    std::uint16_t modifiers = 0;             // at the last event that told them
    WindowMessage lastMove{};                // told as such, and no button since

    Point Origin();
    const Rect& Monitor();
    Rect ToDesktop(Rect rect);
};

// Reads events until `condition` holds; false if it does not within that time.
template <class Condition>
bool X11Desktop::Settle(int milliseconds, const Condition& condition)
{
    const std::int64_t end = Milliseconds() + milliseconds;
    for (;;)
    {
        Pump();
        if (condition())
            return true;
        const std::int64_t left = end - Milliseconds();
        if (lost || left <= 0)
            return false;
        Sleep(left < 5 ? static_cast<int>(left) : 5); // conditions may ask the server for what no event tells
    }
}

} // namespace Zem::Platform::X11
