#pragma once

#include <Bedrock/Types.h>
#include <Bedrock/platform/WindowMessage.h>

#include <cstddef>
#include <cstdint>

/// The desktop: windows, what happens to them, the pointer, pictures in windows.
///
/// There are several desktops, chosen when the program runs, and one rule book for all of them:
///
/// *Calls.* One thread at a time works with a desktop, always the same one; `Wake` alone may be called from any. No call
/// throws, none ends the process. A call that cannot be done answers false (0, null) and changes nothing: a window that
/// is gone or never was, a foreign window that refuses, a desktop that has gone away. Texts are terminated bytes, read
/// as UTF-8 where they are valid UTF-8 and as Latin-1 elsewhere. A backend allocates for itself, never from `Alloc`.
///
/// *Windows* are known by the number by which every program of the desktop knows them; 0 is none. "Own" windows are
/// those that `CreateWindow` made, and that are not yet destroyed; all others are foreign, also those that other code of
/// the process made. Except where it is said, calls take own and foreign windows alike.
///
/// *Places* are pixels. The area of a window is its outermost rectangle, frame included, on the desktop: the main
/// monitor's upper left corner is (0, 0). Its client area is what lies within the frame. A child has no frame, so that
/// both are one. Sizes asked for are cut to 1 to 32767 a side, places to -32767 to 32767.
///
/// *Stacking and focus.* A framed or full-screen window comes to the front and gets the keyboard when it is shown, and
/// when it is clicked, whether a window manager sees to it or the backend has to. Children lie on their parent and get
/// the keyboard by `SetFocus` alone. When the window that has the keyboard is hidden, minimised or destroyed, the
/// keyboard goes wherever the desktop likes.
///
/// *Messages* come from `Next`, in the order in which things happened, and only for own windows. The numbers are those of
/// `WindowMessage.h`, with these rules:
///
/// - Size: when a window is first shown, and whenever the size of its client area or its `SizeKind` has changed since;
///   never twice in succession with the same numbers. While minimised, the size counts as 0 by 0. Several changes
///   that were not fetched become the last one. A child is told its parent's client size, whenever that changes; its own
///   size it is told only at the first showing.
/// - Move: like Size, for the place of the client area.
/// - Paint: when a part of the client area shows nothing valid; after each other message that waits; once for any number
///   of exposures until it is fetched, and never again for these.
/// - Focus and FocusLost: to the own window that gets or loses the keyboard. Activate tells a framed or full-screen window,
///   before Focus and FocusLost, that the keyboard comes from outside to it or a child of it (1), or leaves them (0).
///   Children are not told Activate. Grabs of the keyboard by others (a window manager's shortcut) are no losses. The
///   window that loses is told before the one that gains.
/// - KeyDown and so on: to the own window that has the keyboard. Their Sys forms when the key is Alt or F10, or Alt is
///   held without Control. A key that repeats comes as further KeyDowns with `KeyBitsHeld`. What a key types is found when
///   it is read, with the keys that are held then and dead keys composed, and travels with its KeyDown as text; the
///   backend sends no Char itself. Keys that type control characters carry these: Backspace 8, Tab 9, Enter 13,
///   Escape 27, Control with a letter 1 to 26.
/// - Mouse messages: to the topmost visible window under the pointer if that is an own one, and only for places inside of
///   its client area; while an own window has the capture to that one, wherever the pointer is, so that its numbers may
///   be negative. A button held is no capture. MouseMove also tells a window that comes to lie under the pointer; moves
///   that were not fetched become the last one, if nothing else lies between them. A wheel makes one message a notch.
/// - SystemCommand `CommandClose`: when the user closes a framed or full-screen window by the window manager. Nothing
///   else happens to it.
/// - Destroy: when an own window was destroyed by anything but `DestroyWindow`: its parent went, its process's connection
///   broke (then for each own window). It is no longer own then, and nothing else is told of it. Children first.
///
/// *After `DestroyWindow`* no message of that window or its own children comes any more, waiting ones included.
namespace Zem::Platform
{

/// A window; 0 is none.
struct WindowHandle
{
    std::uintptr_t value;

    friend bool operator==(WindowHandle, WindowHandle) = default;
};

/// A message from the desktop and the text that its key types.
struct DesktopMessage
{
    WindowMessage message;
    char text[32]; // terminated; empty for all but KeyDown and SysKeyDown
};

/// Size of the main monitor in pixels, and the bits that each takes in memory (32 where 24 are shown).
struct DesktopSize
{
    Size size;
    std::int32_t bits;
};

enum class WindowKind
{
    Framed,     // title and close button; the user can move it, not resize it
    FullScreen, // no frame, above others, over the whole monitor
    Child,      // inside of its parent's client area, and cut at its edges
};

/// What `CreateWindow` makes.
struct WindowRequest
{
    WindowKind kind;
    const char* className; // by which programs and users of the desktop tell applications apart
    const char* title;
    WindowHandle parent; // Child: not 0. FullScreen: the window it belongs to, or 0. Framed: 0
    bool placed;         // false: the desktop finds a place; `corner` is not looked at
    Point corner;        // of the area. Child: in the parent's client area
    Size client;         // of the client area. FullScreen: a wish; the desktop may take its own size, and Size tells
};

enum class WindowState
{
    Normal,
    Minimised,
    Maximised,
};

/// Where a window stands.
struct WindowPosition
{
    WindowState state;
    Rect normal; // the area that it has or had when neither minimised nor maximised
};

/// Rows of pixels, four bytes each: blue, green, red and one that is not looked at.
struct PixelRows
{
    const void* first;    // the upper row
    std::ptrdiff_t pitch; // bytes from a row to the one below; may be negative
    Size size;
};

/// Rows of pixels as in `PixelRows`, in memory of the desktop's.
struct PictureMemory
{
    void* first; // null: none
    std::ptrdiff_t pitch;
    Size size;
    std::uintptr_t number; // by which the desktop knows it
};

class Desktop
{
public:
    Desktop(const Desktop&) = delete;
    Desktop& operator=(const Desktop&) = delete;

    /// What BEDROCK_DESKTOP calls it.
    virtual const char* Name() const noexcept = 0;

    /// Destroys all own windows and the object itself, without messages.
    virtual void Close() noexcept = 0;

    virtual bool Measure(DesktopSize& result) noexcept = 0;

    // Windows

    /// Makes a window that is not visible yet.
    virtual WindowHandle CreateWindow(const WindowRequest& request) noexcept = 0;
    /// Own windows only. Takes the own children with it.
    virtual bool DestroyWindow(WindowHandle window) noexcept = 0;
    virtual bool IsOwn(WindowHandle window) noexcept = 0;

    /// Own windows only. At the next look the desktop shows `title` in the frame and in its lists.
    virtual bool SetTitle(WindowHandle window, const char* title) noexcept = 0;
    /// Own windows only. Showing brings back a window that is minimised. The first showing waits, shortly, until a window
    /// manager has framed the window, so that `Area` is right afterwards.
    virtual bool Show(WindowHandle window, bool visible) noexcept = 0;
    /// Shown, or minimised; a child also needs its parents visible.
    virtual bool IsVisible(WindowHandle window) noexcept = 0;
    virtual bool IsMinimised(WindowHandle window) noexcept = 0;

    virtual bool Area(WindowHandle window, Rect& result) noexcept = 0;
    /// On the desktop, as `Area`.
    virtual bool ClientArea(WindowHandle window, Rect& result) noexcept = 0;
    /// Gives a window the client size; its upper left corner stays. Stacking and focus stay as they are.
    virtual bool Resize(WindowHandle window, Size client) noexcept = 0;

    // Focus and capture

    /// The own window that has the keyboard, 0 if none has.
    virtual WindowHandle Focus() noexcept = 0;
    /// Own windows only, and only visible ones that are not minimised. The top-level window of `window` comes to the front.
    virtual bool SetFocus(WindowHandle window) noexcept = 0;
    /// Own windows only, and only visible ones; 0 ends the capture, and so does hiding or destroying its window. Another
    /// window takes it over.
    virtual bool SetCapture(WindowHandle window) noexcept = 0;
    virtual WindowHandle Capture() noexcept = 0;

    // Messages

    /// Fetches the next message; false if none waits. Never sleeps.
    virtual bool Next(DesktopMessage& result) noexcept = 0;
    /// Sleeps until `Next` may have something, `Wake` is called, or so many milliseconds have passed (0xFFFFFFFF: for
    /// ever). A `Wake` between two `Wait`s ends the second at once. May return early.
    virtual void Wait(std::uint32_t milliseconds) noexcept = 0;
    /// From any thread.
    virtual void Wake() noexcept = 0;
    /// Hands a mouse or keyboard message to a foreign window, as if the user had made it there; packed places count in
    /// that window's client area. Programs are free to ignore such messages.
    virtual bool Forward(WindowHandle window, const WindowMessage& message) noexcept = 0;

    // The desktop's windows

    /// Up to `capacity` visible top-level windows of all programs, the front one first; how many there are.
    virtual std::size_t TopLevelWindows(WindowHandle* result, std::size_t capacity) noexcept = 0;
    /// Top-level windows only.
    virtual bool Position(WindowHandle window, WindowPosition& result) noexcept = 0;
    /// Top-level windows only. The window gets its normal area and its state; it is not brought to the front, except that
    /// a minimised one that is restored may be, and a hidden one stays hidden. Sizes that the window itself does not
    /// allow may be refused by its desktop.
    virtual bool SetPosition(WindowHandle window, const WindowPosition& position) noexcept = 0;
    /// Gives a top-level window the area, frame included; stacking, focus and state stay. A window that is minimised or
    /// maximised may keep its place.
    virtual bool Move(WindowHandle window, const Rect& area) noexcept = 0;

    // The pointer

    /// Place on the desktop.
    virtual bool Pointer(Point& result) noexcept = 0;
    virtual bool MovePointer(Point place) noexcept = 0;
    /// Shows or hides it over own windows, those to come included. Shown at first. Calls needn't alternate.
    virtual bool ShowPointer(bool visible) noexcept = 0;

    // Pictures

    /// Shows a picture with its upper left corner at `at` in the client area of an own window, cut at its edges. The rows
    /// have been read when it returns. What it shows stays until that part is covered, which Paint tells; before the
    /// first picture the client area is black.
    virtual bool Present(WindowHandle window, const PixelRows& picture, Point at) noexcept = 0;

    /// Memory for a picture of one window that the desktop shows without a copy of its own. It is the desktop's, and lasts
    /// until `ClosePicture`, or the desktop's end. False where there is no such memory: then `Present` is as good.
    virtual bool OpenPicture(WindowHandle window, Size size, PictureMemory& result) noexcept;
    virtual void ClosePicture(const PictureMemory& picture) noexcept;
    /// Shows parts of the picture, which lie in it, at the same places of the client area. The rows may still be read when
    /// it returns: they are not to be changed before `WaitPicture`.
    virtual bool PresentPicture(WindowHandle window, const PictureMemory& picture, const Rect* parts,
                                std::size_t count) noexcept;
    virtual void WaitPicture(const PictureMemory& picture) noexcept;

protected:
    constexpr Desktop() = default;
    ~Desktop() = default;
};

// Where a picture takes a copy anyway, there is no memory to open.

inline bool Desktop::OpenPicture(WindowHandle, Size, PictureMemory&) noexcept
{
    return false;
}

inline void Desktop::ClosePicture(const PictureMemory&) noexcept
{
}

inline bool Desktop::PresentPicture(WindowHandle, const PictureMemory&, const Rect*, std::size_t) noexcept
{
    return false;
}

inline void Desktop::WaitPicture(const PictureMemory&) noexcept
{
}

/// The desktop of the process, opened by the first call: which one, BEDROCK_DESKTOP says (`x11`, `headless`, or `WxHxB`
/// for a headless one of that size and bits); otherwise the first of the platform's list that can be opened. Null if the
/// named one cannot be; the next call tries again.
Desktop* OpenDesktop() noexcept;
/// That desktop if it is open, null otherwise.
Desktop* OpenedDesktop() noexcept;
/// Why the last `OpenDesktop` gave null, as a phrase that follows a colon.
const char* DesktopProblem() noexcept;
/// Closes the desktop of the process if it is open. The next `OpenDesktop` chooses anew.
void CloseDesktop() noexcept;

/// A desktop in memory: the rules above, with windows that only the program itself sees. Null if memory is exhausted.
Desktop* OpenHeadlessDesktop(const DesktopSize& size) noexcept;

/// A desktop that lies in a module of its own exports a function of this type and name. It answers null if there is no
/// such desktop (no display is named, nobody serves it) or if `version` is not the `desktopVersion` it was built with.
using OpenDesktopFunction = Desktop*(std::uint32_t version);
inline constexpr char openDesktopSymbol[] = "BedrockOpenDesktop";
inline constexpr std::uint32_t desktopVersion = 2;

} // namespace Zem::Platform
