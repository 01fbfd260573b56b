// What windows are told, and in which order.

#include <Bedrock/platform/headless/Record.h>

#include <cstdlib>
#include <cstring>

namespace Zem::Platform
{

// Without memory the message is lost, as on a desktop whose queue is full.
bool HeadlessDesktop::Queue::Add(const DesktopMessage& message) noexcept
{
    if (first + count == capacity)
    {
        if (first > count)
        {
            std::memmove(items, items + first, count * sizeof(DesktopMessage));
        }
        else
        {
            const std::size_t wanted = capacity ? 2 * capacity : 64;
            auto* fresh = static_cast<DesktopMessage*>(std::malloc(wanted * sizeof(DesktopMessage)));
            if (!fresh)
                return false;
            if (count > 0)
                std::memcpy(fresh, items + first, count * sizeof(DesktopMessage));
            std::free(items);
            items = fresh;
            capacity = wanted;
        }
        first = 0;
    }
    items[first + count++] = message;
    return true;
}

bool HeadlessDesktop::Queue::Take(DesktopMessage& result) noexcept
{
    if (count == 0)
        return false;
    result = items[first++];
    --count;
    return true;
}

void HeadlessDesktop::Queue::Remove(std::size_t i) noexcept
{
    std::memmove(items + first + i, items + first + i + 1, (count - i - 1) * sizeof(DesktopMessage));
    --count;
}

void HeadlessDesktop::Queue::Clear() noexcept
{
    std::free(items);
    *this = Queue();
}

bool HeadlessDesktop::Next(DesktopMessage& result) noexcept
{
    if (queue.Take(result))
    {
        if (Record* record = Find({result.message.window}))
        {
            if (result.message.number == MessageSize)
            {
                record->toldSize = true;
                record->sizeKind = result.message.first;
                record->sizeNumbers = result.message.second;
            }
            if (result.message.number == MessageMove)
            {
                record->toldPlace = true;
                record->placeNumbers = result.message.second;
            }
        }
        return true;
    }
    for (std::size_t i = 0; i < recordCount; ++i)
    {
        Record& record = *records[i];
        if (record.own && record.paint && OnScreen(record))
        {
            record.paint = false;
            result = {{record.handle.value, MessagePaint, 0, 0}, ""};
            return true;
        }
    }
    return false;
}

void HeadlessDesktop::Wait(std::uint32_t milliseconds) noexcept
{
    bool waits = queue.count > 0;
    for (std::size_t i = 0; i < recordCount; ++i)
        waits |= records[i]->own && records[i]->paint && OnScreen(*records[i]);
    if (!waits)
        WaitForOne(wake, milliseconds);
}

void HeadlessDesktop::Wake() noexcept
{
    SetEvent(wake);
}

bool HeadlessDesktop::Forward(WindowHandle window, const WindowMessage& message) noexcept
{
    Record* record = Find(window);
    if (!record || record->own)
        return false;
    DesktopMessage handed{message, ""};
    handed.message.window = window.value;
    return record->forwarded.Add(handed);
}

void HeadlessDesktop::Tell(const Record& record, std::uint32_t number, std::uintptr_t first, std::uintptr_t second,
                           const char* text) noexcept
{
    if (!record.own)
        return;
    DesktopMessage message{{record.handle.value, number, first, second}, ""};
    const std::size_t length = std::strlen(text);
    std::memcpy(message.text, text, length < sizeof(message.text) ? length : sizeof(message.text) - 1);
    queue.Add(message);
}

// Tells a Size or Move in place of one that waits, unless it is what was told last.
void HeadlessDesktop::TellOnce(Record& record, std::uint32_t number, std::uintptr_t first,
                               std::uintptr_t second) noexcept
{
    for (std::size_t i = queue.count; i-- > 0;)
        if (queue[i].message.window == record.handle.value && queue[i].message.number == number)
            queue.Remove(i);
    const bool known = number == MessageSize
                           ? record.toldSize && record.sizeKind == first && record.sizeNumbers == second
                           : record.toldPlace && record.placeNumbers == second;
    if (!known)
        Tell(record, number, first, second);
}

// Its own shape, or to a child but at its first showing that of its parent.
void HeadlessDesktop::TellShape(Record& record, bool first) noexcept
{
    if (!record.own || !record.everShown)
        return;
    Rect client = ClientOf(record);
    Point place = client;
    const Record* shaped = &record;
    if (record.parent)
    {
        place = record.area;
        if (!first)
        {
            shaped = record.parent;
            client = ClientOf(*shaped);
        }
    }
    const std::uint32_t kind = shaped->minimised ? SizeMinimised : shaped->maximised ? SizeMaximised : SizeRestored;
    if (!shaped->minimised)
        TellOnce(record, MessageMove, 0, Pack(place.x, place.y));
    TellOnce(record, MessageSize, kind, shaped->minimised ? 0 : Pack(client.width, client.height));
}

void HeadlessDesktop::GiveKeyboard(Record* record) noexcept
{
    if (record == focus)
        return;
    const auto top = [](Record* r)
    {
        while (r && r->parent)
            r = r->parent;
        return r;
    };
    Record* const before = focus;
    focus = record;
    const bool activates = top(before) != top(record);
    if (before)
    {
        if (activates)
            Tell(*top(before), MessageActivate, 0, 0);
        Tell(*before, MessageFocusLost, 0, 0);
    }
    if (record)
    {
        if (activates)
            Tell(*top(record), MessageActivate, 1, 0);
        Tell(*record, MessageFocus, 0, 0);
    }
}

// After a window has vanished from the screen or moved.
void HeadlessDesktop::AfterHiding() noexcept
{
    if (capture && !OnScreen(*capture))
        capture = nullptr;
    if (focus && !OnScreen(*focus))
        GiveKeyboard(Front());
    PointerMayBeElsewhere();
}

void HeadlessDesktop::PointerMayBeElsewhere() noexcept
{
    Record* const now = At(pointer);
    if (now == hovered)
        return;
    hovered = now;
    if (!capture)
        TellMouse(MessageMouseMove, 0);
}

std::uint32_t HeadlessDesktop::MouseState() const noexcept
{
    return buttons | (keyDown[KeyShift] ? MouseShift : 0u) | (keyDown[KeyControl] ? MouseControl : 0u);
}

// To the window that has the capture, or whose client area lies under the pointer.
void HeadlessDesktop::TellMouse(std::uint32_t number, std::uintptr_t more) noexcept
{
    const Record* target = capture ? capture : At(pointer);
    if (!target)
        return;
    const Rect client = ClientOf(*target);
    if (!capture && !client.Contains(pointer))
        return;
    const bool wheel = number == MessageWheel || number == MessageWheelAcross;
    const std::uintptr_t place = wheel ? Pack(pointer.x, pointer.y) : Pack(pointer.x - client.x, pointer.y - client.y);
    if (number == MessageMouseMove && queue.count > 0)
    {
        WindowMessage& last = queue[queue.count - 1].message;
        if (last.number == MessageMouseMove && last.window == target->handle.value)
        {
            last.first = MouseState();
            last.second = place;
            return;
        }
    }
    Tell(*target, number, MouseState() | more, place);
}

} // namespace Zem::Platform
