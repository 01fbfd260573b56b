#include <Bedrock/platform/x11/Keyboard.h>

#include <Bedrock/platform/WindowMessage.h>
#include <Bedrock/platform/x11/Xkb.h>

#include <xkbcommon/xkbcommon-compose.h>
#include <xkbcommon/xkbcommon-x11.h>
#include <xkbcommon/xkbcommon.h>

#include <cstdlib>
#include <cstring>

namespace Zem::Platform::X11
{

namespace
{

constexpr std::uint16_t controlBit = XCB_MOD_MASK_CONTROL;
constexpr std::uint16_t altBit = XCB_MOD_MASK_1;

struct KeyNumber
{
    xkb_keysym_t symbol;
    std::uint8_t virtualKey;
    bool extended;
};

// Keys by what is engraved on them. Letters and digits are their own numbers and stand in `NumberOf`.
constexpr KeyNumber keyNumbers[] = {
    {XKB_KEY_BackSpace, 0x08, false},
    {XKB_KEY_Tab, 0x09, false},
    {XKB_KEY_ISO_Left_Tab, 0x09, false},
    {XKB_KEY_KP_Begin, 0x0C, false},
    {XKB_KEY_Clear, 0x0C, false},
    {XKB_KEY_Return, 0x0D, false},
    {XKB_KEY_KP_Enter, 0x0D, true},
    {XKB_KEY_Shift_L, 0x10, false},
    {XKB_KEY_Shift_R, 0x10, false},
    {XKB_KEY_Control_L, 0x11, false},
    {XKB_KEY_Control_R, 0x11, true},
    {XKB_KEY_Alt_L, 0x12, false},
    {XKB_KEY_Meta_L, 0x12, false},
    {XKB_KEY_Alt_R, 0x12, true},
    {XKB_KEY_Meta_R, 0x12, true},
    {XKB_KEY_ISO_Level3_Shift, 0x12, true},
    {XKB_KEY_Pause, 0x13, false},
    {XKB_KEY_Break, 0x03, true},
    {XKB_KEY_Caps_Lock, 0x14, false},
    {XKB_KEY_Escape, 0x1B, false},
    {XKB_KEY_space, 0x20, false},
    {XKB_KEY_Prior, 0x21, true},
    {XKB_KEY_Next, 0x22, true},
    {XKB_KEY_End, 0x23, true},
    {XKB_KEY_Home, 0x24, true},
    {XKB_KEY_Left, 0x25, true},
    {XKB_KEY_Up, 0x26, true},
    {XKB_KEY_Right, 0x27, true},
    {XKB_KEY_Down, 0x28, true},
    {XKB_KEY_Print, 0x2C, true},
    {XKB_KEY_Insert, 0x2D, true},
    {XKB_KEY_Delete, 0x2E, true},
    {XKB_KEY_KP_Prior, 0x21, false},
    {XKB_KEY_KP_Next, 0x22, false},
    {XKB_KEY_KP_End, 0x23, false},
    {XKB_KEY_KP_Home, 0x24, false},
    {XKB_KEY_KP_Left, 0x25, false},
    {XKB_KEY_KP_Up, 0x26, false},
    {XKB_KEY_KP_Right, 0x27, false},
    {XKB_KEY_KP_Down, 0x28, false},
    {XKB_KEY_KP_Insert, 0x2D, false},
    {XKB_KEY_KP_Delete, 0x2E, false},
    {XKB_KEY_Super_L, 0x5B, true},
    {XKB_KEY_Super_R, 0x5C, true},
    {XKB_KEY_Menu, 0x5D, true},
    {XKB_KEY_KP_Multiply, 0x6A, false},
    {XKB_KEY_KP_Add, 0x6B, false},
    {XKB_KEY_KP_Separator, 0x6C, false},
    {XKB_KEY_KP_Subtract, 0x6D, false},
    {XKB_KEY_KP_Decimal, 0x6E, false},
    {XKB_KEY_KP_Divide, 0x6F, true},
    {XKB_KEY_Num_Lock, 0x90, true},
    {XKB_KEY_Scroll_Lock, 0x91, false},
    {XKB_KEY_semicolon, 0xBA, false},
    {XKB_KEY_equal, 0xBB, false},
    {XKB_KEY_plus, 0xBB, false},
    {XKB_KEY_comma, 0xBC, false},
    {XKB_KEY_minus, 0xBD, false},
    {XKB_KEY_period, 0xBE, false},
    {XKB_KEY_slash, 0xBF, false},
    {XKB_KEY_grave, 0xC0, false},
    {XKB_KEY_bracketleft, 0xDB, false},
    {XKB_KEY_backslash, 0xDC, false},
    {XKB_KEY_bracketright, 0xDD, false},
    {XKB_KEY_apostrophe, 0xDE, false},
    {XKB_KEY_less, 0xE2, false},
};

KeyNumber NumberOf(xkb_keysym_t symbol)
{
    const auto number = [&](xkb_keysym_t value, bool extended = false) {
        return KeyNumber{symbol, static_cast<std::uint8_t>(value), extended};
    };
    if (symbol >= XKB_KEY_a && symbol <= XKB_KEY_z)
        return number(symbol - XKB_KEY_a + 'A');
    if ((symbol >= XKB_KEY_A && symbol <= XKB_KEY_Z) || (symbol >= XKB_KEY_0 && symbol <= XKB_KEY_9))
        return number(symbol);
    if (symbol >= XKB_KEY_KP_0 && symbol <= XKB_KEY_KP_9)
        return number(symbol - XKB_KEY_KP_0 + 0x60);
    if (symbol >= XKB_KEY_F1 && symbol <= XKB_KEY_F24)
        return number(symbol - XKB_KEY_F1 + 0x70);
    for (const KeyNumber& key : keyNumbers)
        if (key.symbol == symbol)
            return key;
    return number(0);
}

// The numbers of a layout's own characters are those of the places where they lie.
std::uint8_t NumberOfPlace(std::uint8_t scanCode)
{
    constexpr struct
    {
        std::uint8_t scanCode, virtualKey;
    } places[] = {
        {12, 0xBD}, {13, 0xBB}, {26, 0xDB}, {27, 0xDD}, {39, 0xBA}, {40, 0xDE},
        {41, 0xC0}, {43, 0xDC}, {51, 0xBC}, {52, 0xBE}, {53, 0xBF}, {86, 0xE2},
    };
    for (const auto& place : places)
        if (place.scanCode == scanCode)
            return place.virtualKey;
    return 0;
}

// Letters and digits by place, for the user whose only layout is of another script.
std::uint8_t LatinOfPlace(std::uint8_t scanCode)
{
    constexpr char places[] = "\0\0"
                              "1234567890"
                              "\0\0\0\0"
                              "QWERTYUIOP"
                              "\0\0\0\0"
                              "ASDFGHJKL"
                              "\0\0\0\0\0"
                              "ZXCVBNM";
    static_assert(places[2] == '1' && places[16] == 'Q' && places[30] == 'A' && places[44] == 'Z');
    return scanCode < sizeof(places) ? static_cast<std::uint8_t>(places[scanCode]) : std::uint8_t{0};
}

const char* LocaleName()
{
    for (const char* const variable : {"LC_ALL", "LC_CTYPE", "LANG"})
        if (const char* const value = std::getenv(variable); value && *value)
            return std::strcmp(value, "C") && std::strcmp(value, "POSIX") ? value : "en_US.UTF-8";
    return "en_US.UTF-8";
}

} // namespace

Keyboard::Keyboard(Connection& server) : connection(server), context(xkb_context_new(XKB_CONTEXT_NO_FLAGS))
{
    if (!connection.extensions.xkb)
        return;
    constexpr std::uint16_t events = XCB_XKB_EVENT_TYPE_NEW_KEYBOARD_NOTIFY | XCB_XKB_EVENT_TYPE_MAP_NOTIFY;
    constexpr std::uint16_t parts = XCB_XKB_MAP_PART_KEY_TYPES | XCB_XKB_MAP_PART_KEY_SYMS |
                                    XCB_XKB_MAP_PART_MODIFIER_MAP | XCB_XKB_MAP_PART_EXPLICIT_COMPONENTS |
                                    XCB_XKB_MAP_PART_KEY_ACTIONS | XCB_XKB_MAP_PART_VIRTUAL_MODS |
                                    XCB_XKB_MAP_PART_VIRTUAL_MOD_MAP;
    xcb_xkb_select_events(connection.xcb, XCB_XKB_ID_USE_CORE_KBD, events, 0, events, parts, parts, nullptr);
    constexpr std::uint32_t repeat = XCB_XKB_PER_CLIENT_FLAG_DETECTABLE_AUTO_REPEAT;
    xcb_discard_reply(
        connection.xcb,
        xcb_xkb_per_client_flags(connection.xcb, XCB_XKB_ID_USE_CORE_KBD, repeat, repeat, 0, 0, 0).sequence);
}

Keyboard::~Keyboard()
{
    FreeMap();
    xkb_compose_state_unref(compose);
    xkb_compose_table_unref(composeTable);
    xkb_context_unref(context);
}

void Keyboard::FreeMap()
{
    xkb_state_unref(state);
    xkb_keymap_unref(keymap);
    state = nullptr;
    keymap = nullptr;
}

void Keyboard::Build()
{
    stale = false;
    FreeMap();
    if (context == nullptr)
        return;
    if (connection.extensions.xkb)
    {
        std::uint16_t major = 0, minor = 0;
        if (xkb_x11_setup_xkb_extension(connection.xcb, XKB_X11_MIN_MAJOR_XKB_VERSION, XKB_X11_MIN_MINOR_XKB_VERSION,
                                        XKB_X11_SETUP_XKB_EXTENSION_NO_FLAGS, &major, &minor, nullptr, nullptr))
            if (const std::int32_t device = xkb_x11_get_core_keyboard_device_id(connection.xcb); device >= 0)
                keymap = xkb_x11_keymap_new_from_device(context, connection.xcb, device, XKB_KEYMAP_COMPILE_NO_FLAGS);
    }
    if (keymap == nullptr)
        keymap = xkb_keymap_new_from_names(context, nullptr, XKB_KEYMAP_COMPILE_NO_FLAGS);
    if (keymap)
        state = xkb_state_new(keymap);
    if (compose == nullptr)
    {
        composeTable = xkb_compose_table_new_from_locale(context, LocaleName(), XKB_COMPOSE_COMPILE_NO_FLAGS);
        if (composeTable)
            compose = xkb_compose_state_new(composeTable, XKB_COMPOSE_STATE_NO_FLAGS);
    }
}

void Keyboard::ForgetKeys()
{
    std::memset(down, 0, sizeof(down));
    if (compose)
        xkb_compose_state_reset(compose);
}

KeyStroke Keyboard::Describe(xcb_keycode_t key, std::uint16_t modifiers)
{
    if (stale)
        Build();
    KeyStroke stroke{};
    stroke.scanCode = static_cast<std::uint8_t>(key < 8 ? 0 : key - 8);
    if (state == nullptr)
        return stroke;
    // The state in an event is that before it: eight modifiers, and the layout in bits 13 and 14.
    xkb_state_update_mask(state, modifiers & 0xFFU, 0, 0, 0, 0, (modifiers >> 13) & 3U);

    const xkb_layout_index_t layouts = xkb_keymap_num_layouts_for_key(keymap, key);
    const xkb_layout_index_t current = xkb_state_key_get_layout(state, key);
    const auto symbolAt = [&](xkb_layout_index_t layout, xkb_level_index_t level)
    {
        const xkb_keysym_t* symbols = nullptr;
        return xkb_keymap_key_get_syms_by_level(keymap, key, layout, level, &symbols) > 0
                   ? symbols[0]
                   : xkb_keysym_t{XKB_KEY_NoSymbol};
    };
    xkb_keysym_t symbol = current < layouts ? symbolAt(current, 0) : xkb_keysym_t{XKB_KEY_NoSymbol};
    if (symbol >= XKB_KEY_KP_Space && symbol <= XKB_KEY_KP_Equal) // the number pad turns with its lock
        symbol = xkb_state_key_get_one_sym(state, key);
    else if (const xkb_keysym_t shifted = current < layouts ? symbolAt(current, 1) : xkb_keysym_t{XKB_KEY_NoSymbol};
             shifted >= XKB_KEY_0 && shifted <= XKB_KEY_9) // digits that are typed with Shift
        symbol = shifted;
    KeyNumber number = NumberOf(symbol);
    if (number.virtualKey == 0)
        number.virtualKey = NumberOfPlace(stroke.scanCode);
    // A key of a script without Latin letters has the number that it has in another layout of the user.
    for (xkb_layout_index_t layout = 0; number.virtualKey == 0 && layout < layouts; ++layout)
        number = NumberOf(symbolAt(layout, 0));
    if (number.virtualKey == 0)
        number.virtualKey = LatinOfPlace(stroke.scanCode);
    stroke.virtualKey = number.virtualKey ? number.virtualKey : static_cast<std::uint8_t>(KeyUnknown);
    stroke.extended = number.extended;

    const bool itselfAlt = stroke.virtualKey == KeyAlt && symbol != XKB_KEY_ISO_Level3_Shift;
    stroke.alt = (modifiers & altBit) != 0 && !itselfAlt;
    stroke.system = itselfAlt || stroke.virtualKey == KeyF10 || (stroke.alt && (modifiers & controlBit) == 0);
    return stroke;
}

void Keyboard::Type(xcb_keycode_t key, KeyStroke& stroke)
{
    if (state == nullptr)
        return;
    const xkb_keysym_t symbol = xkb_state_key_get_one_sym(state, key);
    if (compose && !stroke.alt && xkb_compose_state_feed(compose, symbol) == XKB_COMPOSE_FEED_ACCEPTED)
    {
        switch (xkb_compose_state_get_status(compose))
        {
        case XKB_COMPOSE_COMPOSING:
            return;
        case XKB_COMPOSE_COMPOSED:
            xkb_compose_state_get_utf8(compose, stroke.text, sizeof(stroke.text));
            xkb_compose_state_reset(compose);
            return;
        case XKB_COMPOSE_CANCELLED: // the key that does not fit is lost with those before it, as everywhere
            xkb_compose_state_reset(compose);
            return;
        default:
            break;
        }
    }
    const int length = xkb_state_key_get_utf8(state, key, stroke.text, sizeof(stroke.text));
    if (length < 0 || static_cast<std::size_t>(length) >= sizeof(stroke.text) || stroke.virtualKey == KeyDelete)
        stroke.text[0] = 0; // Delete types nothing
}

KeyStroke Keyboard::Press(xcb_keycode_t key, std::uint16_t modifiers)
{
    KeyStroke stroke = Describe(key, modifiers);
    std::uint32_t& word = down[key / 32];
    const std::uint32_t bit = 1U << (key % 32);
    stroke.repeated = (word & bit) != 0;
    word |= bit;
    if (stroke.virtualKey == KeyAlt && stroke.system)
        stroke.alt = true;
    Type(key, stroke);
    return stroke;
}

KeyStroke Keyboard::Release(xcb_keycode_t key, std::uint16_t modifiers)
{
    KeyStroke stroke = Describe(key, modifiers);
    down[key / 32] &= ~(1U << (key % 32));
    return stroke;
}

} // namespace Zem::Platform::X11
