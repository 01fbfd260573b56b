#pragma once

#include <cstdint>

namespace Zem
{

/// What a window hook is handed: the window, what happened, and two numbers whose meaning depends on it.
///
///     bool Hook(void*, void* block, int& result)
///     {
///         const auto& message = *static_cast<const WindowMessage*>(block);
///         if (message.number != MessageKeyDown || message.first != KeyEscape)
///             return false; // somebody else's
///         ...
///     }
struct WindowMessage
{
    std::uintptr_t window; // native handle
    std::uintptr_t number; // a MessageNumber, or one of the application's own from MessageUser on
    std::uintptr_t first;
    std::uintptr_t second;
};

/// Numbers of messages. "packed" is a pair of 16-bit numbers: x or width in the low half, y or height in the high half
/// (`PackedX`, `PackedY`).
enum MessageNumber : std::uint32_t
{
    MessageCreate = 1,       // second: address of a WindowCreation; an answer of -1 undoes the window
    MessageDestroy = 2,      // the window is gone
    MessageMove = 3,         // second: packed place of the client area on the desktop (a child: in its parent)
    MessageSize = 5,         // first: a SizeKind; second: packed size of the client area (a child: its parent's)
    MessageFocus = 7,        // the window has got the keyboard
    MessageFocusLost = 8,    // the window has lost it
    MessagePaint = 15,       // a part of the client area has to be drawn again
    MessageClose = 16,       // somebody wishes the window closed
    MessageQuit = 18,        // the message loop ends; never reaches a window
    MessageActivate = 28,    // first: 1 the application has become active, 0 it no longer is
    MessageKeyDown = 256,    // first: a KeyCode; second: key bits
    MessageKeyUp = 257,      // likewise
    MessageChar = 258,       // first: one byte of typed text; second: bits of its key
    MessageSysKeyDown = 260, // like 256 to 258, with Alt held
    MessageSysKeyUp = 261,
    MessageSysChar = 262,
    MessageSystemCommand = 274, // first: a SystemCommand; second: packed pointer on the desktop
    MessageMouseMove = 512,     // 512 to 520: first: MouseBits; second: packed pointer in the client area
    MessageLeftDown = 513,
    MessageLeftUp = 514,
    MessageRightDown = 516,
    MessageRightUp = 517,
    MessageMiddleDown = 519,
    MessageMiddleUp = 520,
    MessageWheel = 522,       // first: MouseBits, and in the high half 120 for a notch away from the user, -120 towards
                              // him; second: packed pointer on the desktop
    MessageWheelAcross = 526, // likewise, 120 for a notch to the right
    MessageUser = 1024,       // from here on the application's own
    MessageFrame = 1025,      // once in each call of Window::HandleMessages
};

/// What `MessageCreate` points to.
struct WindowCreation
{
    void* parameter; // what was given to the operation that makes the window
};

/// First number of `MessageSize`.
enum SizeKind : std::uint32_t
{
    SizeRestored = 0,
    SizeMinimised = 1,
    SizeMaximised = 2,
};

/// First number of `MessageSystemCommand`.
enum SystemCommand : std::uint32_t
{
    CommandClose = 0xF060,
    CommandKeyMenu = 0xF100,
    CommandScreenSaver = 0xF140,
    CommandMonitorPower = 0xF170,
};

/// First number of mouse messages: what is held after the event, so a pressed button is in it and a released one isn't.
enum MouseBits : std::uint32_t
{
    MouseLeft = 1,
    MouseRight = 2,
    MouseShift = 4,
    MouseControl = 8,
    MouseMiddle = 16,
};

/// Second number of key messages: 1 in the low half, and these.
enum KeyBits : std::uint32_t
{
    KeyBitsCount = 1,
    KeyBitsScanShift = 16, // eight bits: where the key lies on the keyboard
    KeyBitsExtended =
        1u << 24,           // the key is of the grey blocks: arrows, Insert to PageDown, right Control and Alt, Enter
                            // and the slash of the number block
    KeyBitsAlt = 1u << 29,  // Alt is held
    KeyBitsHeld = 1u << 30, // the key was down before: a repeat, or any release
    KeyBitsReleased = 1u << 31, // up
};

/// First number of key messages. Letters and digits have the numbers of their capital and digit in ASCII, whatever the
/// shift keys: 'A' to 'Z', '0' to '9'. 0xFF is a key that has none of these numbers.
enum KeyCode : std::uint32_t
{
    KeyBackspace = 0x08,
    KeyTab = 0x09,
    KeyEnter = 0x0D,
    KeyShift = 0x10,
    KeyControl = 0x11,
    KeyAlt = 0x12,
    KeyPause = 0x13,
    KeyCapsLock = 0x14,
    KeyEscape = 0x1B,
    KeySpace = 0x20,
    KeyPageUp = 0x21,
    KeyPageDown = 0x22,
    KeyEnd = 0x23,
    KeyHome = 0x24,
    KeyLeft = 0x25,
    KeyUp = 0x26,
    KeyRight = 0x27,
    KeyDown = 0x28,
    KeyPrint = 0x2C,
    KeyInsert = 0x2D,
    KeyDelete = 0x2E,
    KeyLeftSystem = 0x5B,
    KeyRightSystem = 0x5C,
    KeyMenu = 0x5D,
    KeyNumber0 = 0x60, // 0x60 to 0x69: digits of the number block with NumLock on
    KeyMultiply = 0x6A,
    KeyAdd = 0x6B,
    KeySubtract = 0x6D,
    KeyDecimal = 0x6E,
    KeyDivide = 0x6F,
    KeyF1 = 0x70, // 0x70 to 0x87: F1 to F24
    KeyF4 = 0x73,
    KeyF10 = 0x79,
    KeyNumLock = 0x90,
    KeyScrollLock = 0x91,
    KeySemicolon = 0xBA, // the signs by their place on the US keyboard
    KeyEquals = 0xBB,
    KeyComma = 0xBC,
    KeyMinus = 0xBD,
    KeyPeriod = 0xBE,
    KeySlash = 0xBF,
    KeyBackquote = 0xC0,
    KeyBracketOpen = 0xDB,
    KeyBackslash = 0xDC,
    KeyBracketClose = 0xDD,
    KeyQuote = 0xDE,
    KeyLessThan = 0xE2, // between left Shift and Z on European keyboards
    KeyUnknown = 0xFF,
};

/// The two halves of a packed number; both are signed.
constexpr std::int32_t PackedX(std::uintptr_t packed)
{
    return static_cast<std::int16_t>(packed & 0xFFFF);
}

constexpr std::int32_t PackedY(std::uintptr_t packed)
{
    return static_cast<std::int16_t>(packed >> 16 & 0xFFFF);
}

/// Each half is cut to 16 bits.
constexpr std::uintptr_t Pack(std::int32_t x, std::int32_t y)
{
    return static_cast<std::uint32_t>(y & 0xFFFF) << 16 | static_cast<std::uint32_t>(x & 0xFFFF);
}

} // namespace Zem
