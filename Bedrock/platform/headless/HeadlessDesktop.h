#pragma once

#include <Bedrock/platform/Desktop.h>
#include <Bedrock/platform/Wait.h>

#include <atomic>

namespace Zem::Platform
{

enum class MouseButton
{
    Left,
    Right,
    Middle,
};

/// A desktop in memory: a model of a desktop with a window manager, and the user's hands.
///
/// Its windows are records in one list from back to front: framed and foreign ones, then full-screen ones, each with
/// its children somewhere behind it in the list. Nothing depends on time or chance, so that a test is exact: all that a
/// call of a `User...` operation causes waits in the queue when it returns.
///
/// The user has a US keyboard and clicks windows to the front. Windows get a frame of the extents below. Nothing is
/// drawn but what `Present` shows; pixels survive being covered.
///
/// Not an allocated block of `Alloc`: records, pictures and the queue come from the system's heap.
class HeadlessDesktop final : public Desktop
{
public:
    static constexpr std::int32_t frameLeft = 4, frameTop = 24, frameRight = 4, frameBottom = 4;

    static HeadlessDesktop* Open(const DesktopSize& size) noexcept;

    const char* Name() const noexcept override { return "headless"; }
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

    // The user

    /// To the place on the desktop, or its nearest edge.
    void UserMove(Point pointer) noexcept;
    /// The button is pressed or released where the pointer is. Pressing clicks a window to the front.
    void UserButton(MouseButton button, bool down) noexcept;
    /// Turns the wheel: positive notches away from the user, or to the right.
    void UserWheel(std::int32_t notches, bool across) noexcept;
    /// Presses or releases a key of the US keyboard by its `KeyCode`; pressing a pressed one is its repetition.
    void UserKey(std::uint32_t key, bool down) noexcept;
    /// Presses and releases the keys that type the ASCII text; false for other characters.
    bool UserType(const char* text) noexcept;
    /// Presses the close button of the frame.
    void UserClose(WindowHandle window) noexcept;
    /// Brings the window to the front with the keyboard; 0 takes the keyboard away from all windows.
    void UserActivate(WindowHandle window) noexcept;
    void UserMinimise(WindowHandle window, bool minimised) noexcept;
    /// Drags the frame; for a foreign window of any size too. Children that lie in it stay at their places in it.
    void UserPlace(WindowHandle window, const Rect& area) noexcept;
    /// Makes the desktop forget what a window shows.
    void UserExpose(WindowHandle window) noexcept;

    // Other programs

    /// A framed window of another program.
    WindowHandle AddForeign(const char* title, const Rect& area, bool visible) noexcept;
    /// The other program ends; own children are destroyed with its window.
    void RemoveForeign(WindowHandle window) noexcept;
    /// The oldest message that was handed to a foreign window by `Forward` and is not yet taken.
    bool TakeForwarded(WindowHandle window, WindowMessage& result) noexcept;

    // What a bystander sees

    const char* Title(WindowHandle window) noexcept;
    bool IsPointerVisible() const noexcept { return pointerVisible; }
    /// The picture in a window, black where nothing is shown; 0 outside of the client area.
    std::uint32_t Pixel(WindowHandle window, Point at) noexcept;

    /// The next so many calls of `CreateWindow` fail.
    void FailCreateForTest(std::uint32_t times) noexcept { failures = times; }

private:
    struct Record;
    struct Queue
    {
        DesktopMessage* items = nullptr;
        std::size_t first = 0, count = 0, capacity = 0;

        bool Add(const DesktopMessage& message) noexcept;
        bool Take(DesktopMessage& result) noexcept;
        DesktopMessage& operator[](std::size_t i) { return items[first + i]; }
        void Remove(std::size_t i) noexcept;
        void Clear() noexcept;
    };

    explicit HeadlessDesktop(const DesktopSize& measures) noexcept;
    ~HeadlessDesktop() = default;

    // Records
    Record* Find(WindowHandle window) noexcept;
    Record* FindOwn(WindowHandle window) noexcept;
    Record* FindTop(WindowHandle window) noexcept;
    Record* Add(const WindowRequest& request, bool own) noexcept;
    void Remove(Record* record, bool tell) noexcept;
    bool OnScreen(const Record& record) const noexcept;

    // Shape
    Rect ClientOf(const Record& record) const noexcept;
    Rect AreaOf(const Record& record) const noexcept;
    void Reshape(Record& record, const Rect& area) noexcept;
    bool Raise(Record& record) noexcept;
    Record* At(Point place) noexcept;
    Record* Front() noexcept;

    // Telling
    void Tell(const Record& record, std::uint32_t number, std::uintptr_t first, std::uintptr_t second,
              const char* text = "") noexcept;
    void TellShape(Record& record, bool first = false) noexcept;
    void TellOnce(Record& record, std::uint32_t number, std::uintptr_t first, std::uintptr_t second) noexcept;
    void TellMouse(std::uint32_t number, std::uintptr_t more) noexcept;
    void GiveKeyboard(Record* record) noexcept;
    void PointerMayBeElsewhere() noexcept;
    void AfterHiding() noexcept;
    std::uint32_t MouseState() const noexcept;

    DesktopSize size;
    Record** records = nullptr; // from back to front
    std::size_t recordCount = 0, recordCapacity = 0;
    std::uintptr_t lastHandle = 0x00A00000;
    std::int32_t cascade = 0; // places found so far

    Queue queue;
    Record* focus = nullptr;
    Record* capture = nullptr;
    Record* hovered = nullptr; // the window that was last told where the pointer is
    Point pointer;
    bool pointerVisible = true;
    std::uint32_t buttons = 0; // MouseBits of the buttons
    std::uint32_t failures = 0;
    bool keyDown[256] = {};
    bool capsLock = false;
    Waitable* wake = nullptr; // an event that resets itself
};

} // namespace Zem::Platform
