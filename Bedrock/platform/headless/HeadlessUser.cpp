// What the user does with his hands, and what other programs do.

#include <Bedrock/platform/headless/Record.h>

#include <cstring>

namespace Zem::Platform
{

namespace
{

// A key of the US keyboard: where it lies, and what it types. 0 types nothing.
struct UsKey
{
    std::uint8_t key, scan;
    char plain, shifted;
    bool extended = false;
};

constexpr UsKey keyboard[] = {
    {KeyEscape, 1, 27, 27},
    {'1', 2, '1', '!'},
    {'2', 3, '2', '@'},
    {'3', 4, '3', '#'},
    {'4', 5, '4', '$'},
    {'5', 6, '5', '%'},
    {'6', 7, '6', '^'},
    {'7', 8, '7', '&'},
    {'8', 9, '8', '*'},
    {'9', 10, '9', '('},
    {'0', 11, '0', ')'},
    {KeyMinus, 12, '-', '_'},
    {KeyEquals, 13, '=', '+'},
    {KeyBackspace, 14, 8, 8},
    {KeyTab, 15, 9, 9},
    {'Q', 16, 'q', 'Q'},
    {'W', 17, 'w', 'W'},
    {'E', 18, 'e', 'E'},
    {'R', 19, 'r', 'R'},
    {'T', 20, 't', 'T'},
    {'Y', 21, 'y', 'Y'},
    {'U', 22, 'u', 'U'},
    {'I', 23, 'i', 'I'},
    {'O', 24, 'o', 'O'},
    {'P', 25, 'p', 'P'},
    {KeyBracketOpen, 26, '[', '{'},
    {KeyBracketClose, 27, ']', '}'},
    {KeyEnter, 28, 13, 13},
    {KeyControl, 29, 0, 0},
    {'A', 30, 'a', 'A'},
    {'S', 31, 's', 'S'},
    {'D', 32, 'd', 'D'},
    {'F', 33, 'f', 'F'},
    {'G', 34, 'g', 'G'},
    {'H', 35, 'h', 'H'},
    {'J', 36, 'j', 'J'},
    {'K', 37, 'k', 'K'},
    {'L', 38, 'l', 'L'},
    {KeySemicolon, 39, ';', ':'},
    {KeyQuote, 40, '\'', '"'},
    {KeyBackquote, 41, '`', '~'},
    {KeyShift, 42, 0, 0},
    {KeyBackslash, 43, '\\', '|'},
    {'Z', 44, 'z', 'Z'},
    {'X', 45, 'x', 'X'},
    {'C', 46, 'c', 'C'},
    {'V', 47, 'v', 'V'},
    {'B', 48, 'b', 'B'},
    {'N', 49, 'n', 'N'},
    {'M', 50, 'm', 'M'},
    {KeyComma, 51, ',', '<'},
    {KeyPeriod, 52, '.', '>'},
    {KeySlash, 53, '/', '?'},
    {KeyAlt, 56, 0, 0},
    {KeySpace, 57, ' ', ' '},
    {KeyCapsLock, 58, 0, 0},
    {KeyF1, 59, 0, 0},
    {KeyF1 + 1, 60, 0, 0},
    {KeyF1 + 2, 61, 0, 0},
    {KeyF4, 62, 0, 0},
    {KeyF1 + 4, 63, 0, 0},
    {KeyF1 + 5, 64, 0, 0},
    {KeyF1 + 6, 65, 0, 0},
    {KeyF1 + 7, 66, 0, 0},
    {KeyF1 + 8, 67, 0, 0},
    {KeyF10, 68, 0, 0},
    {KeyF1 + 10, 87, 0, 0},
    {KeyF1 + 11, 88, 0, 0},
    {KeyHome, 102, 0, 0, true},
    {KeyUp, 103, 0, 0, true},
    {KeyPageUp, 104, 0, 0, true},
    {KeyLeft, 105, 0, 0, true},
    {KeyRight, 106, 0, 0, true},
    {KeyEnd, 107, 0, 0, true},
    {KeyDown, 108, 0, 0, true},
    {KeyPageDown, 109, 0, 0, true},
    {KeyInsert, 110, 0, 0, true},
    {KeyDelete, 111, 127, 127, true},
};

const UsKey* FindKey(std::uint32_t key)
{
    for (const UsKey& candidate : keyboard)
        if (candidate.key == key)
            return &candidate;
    return nullptr;
}

bool IsLetter(std::uint32_t key)
{
    return key >= 'A' && key <= 'Z';
}

} // namespace

void HeadlessDesktop::UserMove(Point place) noexcept
{
    const auto within = [](std::int32_t n, std::int32_t end) { return n < 0 ? 0 : n >= end ? end - 1 : n; };
    place = {within(place.x, size.size.width), within(place.y, size.size.height)};
    if (place == pointer)
        return;
    pointer = place;
    hovered = At(place);
    TellMouse(MessageMouseMove, 0);
}

void HeadlessDesktop::UserButton(MouseButton button, bool down) noexcept
{
    constexpr std::uint32_t bits[] = {MouseLeft, MouseRight, MouseMiddle};
    constexpr std::uint32_t numbers[] = {MessageLeftDown, MessageRightDown, MessageMiddleDown};
    const auto index = static_cast<std::size_t>(button);
    if (down == ((buttons & bits[index]) != 0))
        return;
    buttons ^= bits[index];
    if (down && !capture)
    {
        Record* top = At(pointer);
        while (top && top->parent)
            top = top->parent;
        if (top)
        {
            if (Raise(*top))
                top->paint = true;
            bool inside = false; // a child of it that has the keyboard keeps it
            for (const Record* r = focus; r; r = r->parent)
                inside |= r == top;
            if (!inside)
                GiveKeyboard(top);
        }
    }
    TellMouse(numbers[index] + (down ? 0 : 1), 0);
}

void HeadlessDesktop::UserWheel(std::int32_t notches, bool across) noexcept
{
    const std::uint32_t notch = notches < 0 ? 0xFF880000u : 0x00780000u; // 120 either way, in the high half
    for (std::int32_t n = notches < 0 ? -notches : notches; n > 0; --n)
        TellMouse(across ? MessageWheelAcross : MessageWheel, notch);
}

void HeadlessDesktop::UserKey(std::uint32_t key, bool down) noexcept
{
    const UsKey* const known = FindKey(key);
    if (!known || (!down && !keyDown[key]))
        return;
    const bool held = keyDown[key];
    keyDown[key] = down;
    if (key == KeyCapsLock && down && !held)
        capsLock = !capsLock;
    const bool alt = keyDown[KeyAlt] || key == KeyAlt, control = keyDown[KeyControl];
    const bool system = key == KeyAlt || key == KeyF10 || (alt && !control);
    std::uintptr_t bits = KeyBitsCount | static_cast<std::uintptr_t>(known->scan) << KeyBitsScanShift;
    if (known->extended)
        bits |= KeyBitsExtended;
    if (keyDown[KeyAlt])
        bits |= KeyBitsAlt;
    if (held)
        bits |= KeyBitsHeld;
    if (!down)
        bits |= KeyBitsReleased;
    char text[2] = "";
    if (down)
    {
        const bool shifted = keyDown[KeyShift] != (capsLock && IsLetter(key));
        text[0] = control && IsLetter(key) ? static_cast<char>(key - '@') : shifted ? known->shifted : known->plain;
    }
    if (focus)
        Tell(*focus, static_cast<std::uint32_t>((system ? MessageSysKeyDown : MessageKeyDown) + (down ? 0 : 1)), key,
             bits, text);
}

bool HeadlessDesktop::UserType(const char* text) noexcept
{
    for (; *text; ++text)
    {
        const UsKey* found = nullptr;
        for (const UsKey& candidate : keyboard)
            if (candidate.plain == *text || candidate.shifted == *text)
                found = &candidate;
        if (!found)
            return false;
        const bool shift = (found->plain != *text) != (capsLock && IsLetter(found->key));
        if (shift)
            UserKey(KeyShift, true);
        UserKey(found->key, true);
        UserKey(found->key, false);
        if (shift)
            UserKey(KeyShift, false);
    }
    return true;
}

void HeadlessDesktop::UserClose(WindowHandle window) noexcept
{
    Record* record = FindTop(window);
    if (record && OnScreen(*record))
        Tell(*record, MessageSystemCommand, CommandClose, Pack(pointer.x, pointer.y));
}

void HeadlessDesktop::UserActivate(WindowHandle window) noexcept
{
    Record* record = FindTop(window);
    if (window.value != 0 && (!record || !record->shown))
        return;
    if (record && record->minimised)
        return UserMinimise(window, false);
    if (record && Raise(*record))
        record->paint = true;
    GiveKeyboard(record);
    PointerMayBeElsewhere();
}

void HeadlessDesktop::UserMinimise(WindowHandle window, bool minimised) noexcept
{
    Record* record = FindTop(window);
    if (!record || !record->shown || record->minimised == minimised)
        return;
    record->minimised = minimised;
    record->paint = !minimised;
    TellShape(*record);
    for (std::size_t i = 0; i < recordCount; ++i)
        if (records[i]->parent == record)
            TellShape(*records[i]);
    if (!minimised)
    {
        Raise(*record);
        GiveKeyboard(record);
    }
    AfterHiding();
}

void HeadlessDesktop::UserPlace(WindowHandle window, const Rect& area) noexcept
{
    Move(window, area);
}

void HeadlessDesktop::UserExpose(WindowHandle window) noexcept
{
    if (Record* record = Find(window))
        record->paint = true;
}

WindowHandle HeadlessDesktop::AddForeign(const char* title, const Rect& area, bool visible) noexcept
{
    const Size client{area.width - frameLeft - frameRight, area.height - frameTop - frameBottom};
    Record* record = Add({WindowKind::Framed, "", title, {0}, true, area, client}, false);
    if (!record)
        return {0};
    record->shown = record->everShown = visible;
    Raise(*record);
    PointerMayBeElsewhere();
    return record->handle;
}

void HeadlessDesktop::RemoveForeign(WindowHandle window) noexcept
{
    Record* record = Find(window);
    if (!record || record->own)
        return;
    const bool hadFocus = focus;
    Remove(record, true);
    if (hadFocus && !focus)
        GiveKeyboard(Front());
    PointerMayBeElsewhere();
}

bool HeadlessDesktop::TakeForwarded(WindowHandle window, WindowMessage& result) noexcept
{
    Record* record = Find(window);
    DesktopMessage message;
    if (!record || !record->forwarded.Take(message))
        return false;
    result = message.message;
    return true;
}

} // namespace Zem::Platform
