#pragma once

#include <Bedrock/platform/x11/Connection.h>

#include <cstdint>

struct xkb_compose_state;
struct xkb_compose_table;
struct xkb_context;
struct xkb_keymap;
struct xkb_state;

namespace Zem::Platform::X11
{

/// One key event in the words of window messages.
struct KeyStroke
{
    std::uint8_t virtualKey; ///< 0 for a key that has no number
    std::uint8_t scanCode;   ///< the key's code less 8: on a common keyboard that of its controller
    bool extended;           ///< the right one of two Control or Alt keys, the grey keys, Enter and / of the number pad
    bool repeated;           ///< pressed and already down
    bool alt;                ///< Alt is down, the event's own key apart
    bool system;             ///< belongs to the system's messages: Alt without Control, F10
    char text[32];           ///< what a press types, UTF-8; empty for none
};

/// The keyboard of the server: numbers of keys, and the text that they type.
///
/// The text is that of the modifiers in the event itself, so that it is right also for events that are read late. Dead
/// keys and the Compose key compose by the tables of the locale in the environment.
class Keyboard
{
public:
    /// Asks the server to report a held key as presses without releases.
    explicit Keyboard(Connection& server);
    ~Keyboard();
    Keyboard(const Keyboard&) = delete;
    Keyboard& operator=(const Keyboard&) = delete;

    KeyStroke Press(xcb_keycode_t key, std::uint16_t modifiers);
    KeyStroke Release(xcb_keycode_t key, std::uint16_t modifiers);

    /// The focus went elsewhere, and releases with it: no key counts as down, nothing is half composed.
    void ForgetKeys();

    /// An event of the keyboard extension, which all share one number. A new keyboard or layout comes as a burst of
    /// them, so the map is built when the next key is read.
    void MapChanged() { stale = true; }

private:
    void Build();
    KeyStroke Describe(xcb_keycode_t key, std::uint16_t modifiers);
    void Type(xcb_keycode_t key, KeyStroke& stroke);
    void FreeMap();

    Connection& connection;
    xkb_context* context;
    xkb_keymap* keymap = nullptr;
    xkb_state* state = nullptr;
    xkb_compose_table* composeTable = nullptr;
    xkb_compose_state* compose = nullptr;
    bool stale = true;
    std::uint32_t down[8] = {}; // a bit a key code
};

} // namespace Zem::Platform::X11
