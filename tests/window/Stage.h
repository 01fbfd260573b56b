#pragma once

// Desktops to test on, each with a user and another program: the one in memory, and X servers with and without a window
// manager. The same tests run on all of them.

#include <Bedrock/platform/Desktop.h>

#include <memory>
#include <ostream>
#include <string>

namespace Test
{

/// A key: what the window is told of it, and where it lies.
struct KeyAt
{
    std::uint32_t code;
    std::uint32_t scan;
};

inline constexpr KeyAt keyA{'A', 30}, keyB{'B', 48}, keyX{'X', 45}, keyC{'C', 46}, keyShift{Zem::KeyShift, 42},
    keyControl{Zem::KeyControl, 29}, keyAlt{Zem::KeyAlt, 56}, keyF4{Zem::KeyF4, 62}, keyF10{Zem::KeyF10, 68},
    keyLeft{Zem::KeyLeft, 105}, keyEnter{Zem::KeyEnter, 28}, keyEscape{Zem::KeyEscape, 1};

enum class StageKind
{
    Headless,
    X11Managed, // with openbox
    X11Bare,    // without a window manager
};

std::ostream& operator<<(std::ostream& out, StageKind kind);

/// What lies around the window under test. The desktop measures 1280 by 1024 pixels of 32 bits, and the pointer starts
/// in its lower right corner. What is done here may take its time: wait for its consequence.
class Stage
{
public:
    static constexpr Zem::Size size{1280, 1024};

    /// Chooses that desktop by BEDROCK_DESKTOP. Null if this machine lacks something for it; `reason` says what.
    static std::unique_ptr<Stage> Open(StageKind kind, std::string& reason);

    virtual ~Stage() = default;

    /// Windows have frames, and somebody minimises them and closes them by a button.
    virtual bool IsManaged() const = 0;

    // The user
    virtual void MovePointer(Zem::Point place) = 0;
    virtual void Button(int number, bool down) = 0; // 1 left, 2 middle, 3 right
    virtual void Wheel(int notches, bool across) = 0;
    virtual void Key(KeyAt key, bool down) = 0;
    virtual void Close(Zem::Platform::WindowHandle window) = 0;
    virtual void Activate(Zem::Platform::WindowHandle window) = 0;
    virtual void Minimise(Zem::Platform::WindowHandle window) = 0;

    void Tap(KeyAt key)
    {
        Key(key, true);
        Key(key, false);
    }

    // Another program. It shows up to four windows, and notes the keyboard and mouse messages that they get.
    virtual Zem::Platform::WindowHandle OpenForeign(const Zem::Rect& area, bool visible) = 0;
    /// Gives one of its windows a client size.
    virtual void ResizeForeign(Zem::Platform::WindowHandle window, Zem::Size client) = 0;
    virtual void KillForeign() = 0;
    /// The next message that a window of it got; false if there is none yet.
    virtual bool TakeForwarded(Zem::WindowMessage& message) = 0;

    // What one sees
    virtual std::string Title(Zem::Platform::WindowHandle window) = 0;
    virtual std::uint32_t Pixel(Zem::Platform::WindowHandle window, Zem::Point at) = 0; // without its upper byte
    virtual bool IsPointerVisible() = 0;
};

/// Defined where X11 is; null where not.
std::unique_ptr<Stage> OpenX11Stage(bool managed, std::string& reason);

} // namespace Test
