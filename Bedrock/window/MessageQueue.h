#pragma once

#include <Bedrock/platform/Desktop.h>

#include <cstdint>

namespace Zem
{

/// The messages of the window's thread, and what becomes of those that no one else handles.
///
/// Two streams join here: what the program posts, which comes first, and what the desktop tells. The quit message comes
/// behind both, and painting last, so that a busy window paints once for all that has happened.
///
///     Post ─► posted ──┐
///     desktop ─────────┼─► Peek ─► Translate ─► Dispatch ─► procedure ─► Default
///     quit ────────────┘             │
///                     posted ◄───────┘ the characters that a key types
///
/// There is one window class, whose procedure gets the messages of all windows. Threads: all of it belongs to the window's
/// thread, but for the class, which a failing thread may unregister.
class MessageQueue
{
public:
    MessageQueue() = delete;

    using Procedure = int (*)(const WindowMessage& message);

    /// Registers the class; false if it is registered. `owner` names who did, for `UnregisterClass`.
    static bool RegisterClass(Procedure procedure, const void* owner) noexcept;
    /// Does nothing if it is not registered by that `owner`. Windows that exist keep the procedure.
    static void UnregisterClass(const void* owner) noexcept;

    /// Makes a window of the class, sends it MessageCreate with `parameter`, and makes an end of it again if the answer
    /// is -1. Returns: 0 without class or desktop, or when the desktop makes none.
    static Platform::WindowHandle CreateWindow(const Platform::WindowRequest& request, void* parameter) noexcept;
    /// Destroys an own window; then sends it MessageDestroy.
    static void DestroyWindow(Platform::WindowHandle window);

    /// Fetches the next message; false if there is none. The quit message is fetched once.
    static bool Peek(Platform::DesktopMessage& result) noexcept;
    /// Sleeps until `Peek` may find something, or so many milliseconds have passed (0xFFFFFFFF: for ever).
    static void Wait(std::uint32_t milliseconds) noexcept;
    /// Posts the text that a key types, one message for each byte. Nothing else waits there, as keys come from the desktop.
    static void Translate(const Platform::DesktopMessage& message) noexcept;
    static int Dispatch(const WindowMessage& message);

    /// Appends a message of an own window to the queue, or hands it to a foreign window. False if neither can be done.
    static bool Post(const WindowMessage& message) noexcept;
    /// The procedure is called before this returns.
    static int Send(const WindowMessage& message) { return Dispatch(message); }
    /// Makes `Peek` find the quit message once nothing else waits.
    static void PostQuit() noexcept;

    /// What a window does of its own accord: it is closed by a command or Alt with F4, and destroyed when closed.
    static int Default(const WindowMessage& message);

    /// Forgets everything, as at the start. The desktop is closed.
    static void ResetForTest() noexcept;
};

} // namespace Zem
