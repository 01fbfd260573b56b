#include <Bedrock/platform/headless/Record.h>

#include <cstdlib>
#include <cstring>
#include <new>

namespace Zem::Platform
{

namespace
{

constexpr std::int32_t longestSide = 32767;

std::int32_t Side(std::int32_t wished)
{
    return wished < 1 ? 1 : wished > longestSide ? longestSide : wished;
}

Size Sides(Size wished)
{
    return {Side(wished.width), Side(wished.height)};
}

// Places reach as far as sizes do, so that sums of them stay small.
Point Corner(Point wished)
{
    const auto within = [](std::int32_t n) {
        return n < -longestSide ? -longestSide : n > longestSide ? longestSide : n;
    };
    return {within(wished.x), within(wished.y)};
}

constexpr Size frameSize{HeadlessDesktop::frameLeft + HeadlessDesktop::frameRight,
                         HeadlessDesktop::frameTop + HeadlessDesktop::frameBottom};

// The area that the user or a program wants, with a client area that is legal.
Rect LegalArea(const Rect& area, WindowKind kind)
{
    if (kind != WindowKind::Framed)
        return {Corner(area), Sides(area)};
    const Size outer = Sides(area);
    const Size client = Sides({outer.width - frameSize.width, outer.height - frameSize.height});
    return {Corner(area), Size{client.width + frameSize.width, client.height + frameSize.height}};
}

void CopyTitle(char (&target)[512], const char* title)
{
    std::size_t length = std::strlen(title);
    if (length > sizeof(target) - 1)
        length = sizeof(target) - 1;
    std::memcpy(target, title, length);
    target[length] = 0;
}

} // namespace

Desktop* OpenHeadlessDesktop(const DesktopSize& size) noexcept
{
    return HeadlessDesktop::Open(size);
}

HeadlessDesktop* HeadlessDesktop::Open(const DesktopSize& size) noexcept
{
    void* place = std::malloc(sizeof(HeadlessDesktop));
    return place ? new (place) HeadlessDesktop(size) : nullptr;
}

HeadlessDesktop::HeadlessDesktop(const DesktopSize& measures) noexcept
    : size(measures), pointer{measures.size.width / 2, measures.size.height / 2},
      wake(CreateEvent(false, false, nullptr))
{
}

void HeadlessDesktop::Close() noexcept
{
    focus = capture = hovered = nullptr;
    while (recordCount > 0)
        Remove(records[recordCount - 1], false);
    std::free(records);
    queue.Clear();
    CloseWaitable(wake);
    this->~HeadlessDesktop();
    std::free(this);
}

bool HeadlessDesktop::Measure(DesktopSize& result) noexcept
{
    result = size;
    return true;
}

// ------------------------------------------------------------------------------------------------------------ Records

HeadlessDesktop::Record* HeadlessDesktop::Find(WindowHandle window) noexcept
{
    for (std::size_t i = 0; i < recordCount; ++i)
        if (records[i]->handle == window)
            return records[i];
    return nullptr;
}

HeadlessDesktop::Record* HeadlessDesktop::FindOwn(WindowHandle window) noexcept
{
    Record* record = Find(window);
    return record && record->own ? record : nullptr;
}

HeadlessDesktop::Record* HeadlessDesktop::FindTop(WindowHandle window) noexcept
{
    Record* record = Find(window);
    return record && record->kind != WindowKind::Child ? record : nullptr;
}

HeadlessDesktop::Record* HeadlessDesktop::Add(const WindowRequest& request, bool own) noexcept
{
    Record* parent = request.kind == WindowKind::Child ? Find(request.parent) : nullptr;
    if (request.kind == WindowKind::Child && !parent)
        return nullptr;
    if (recordCount == recordCapacity)
    {
        const std::size_t wanted = recordCapacity ? 2 * recordCapacity : 16;
        void* grown = std::realloc(records, wanted * sizeof(Record*));
        if (!grown)
            return nullptr;
        records = static_cast<Record**>(grown);
        recordCapacity = wanted;
    }
    void* place = std::malloc(sizeof(Record));
    if (!place)
        return nullptr;
    Record& record = *new (place) Record{};
    lastHandle += 0x10;
    record.handle.value = lastHandle;
    record.kind = request.kind;
    record.own = own;
    record.parent = parent;
    CopyTitle(record.title, request.title);

    const Size client = Sides(request.client);
    Point corner = Corner(request.corner);
    if (!request.placed)
    {
        corner = request.kind == WindowKind::Framed ? Point{32 + 32 * cascade, 32 + 32 * cascade} : Point{0, 0};
        cascade = (cascade + 1) % 8;
    }
    const Size frame = request.kind == WindowKind::Framed ? frameSize : Size{0, 0};
    record.area = record.normal = {corner, Size{client.width + frame.width, client.height + frame.height}};
    records[recordCount++] = &record;
    return &record;
}

// Takes out the record with its children. With `tell` the own ones among them hear of it.
void HeadlessDesktop::Remove(Record* record, bool tell) noexcept
{
    for (std::size_t i = recordCount; i-- > 0;)
        if (i < recordCount && records[i]->parent == record)
        {
            Remove(records[i], tell);
            i = recordCount; // the child may have taken others with it
        }
    std::size_t at = 0;
    while (records[at] != record)
        ++at;
    std::memmove(records + at, records + at + 1, (recordCount - at - 1) * sizeof(Record*));
    --recordCount;
    for (std::size_t i = queue.count; i-- > 0;)
        if (queue[i].message.window == record->handle.value)
            queue.Remove(i);
    if (capture == record)
        capture = nullptr;
    if (hovered == record)
        hovered = nullptr;
    if (focus == record)
        focus = nullptr;
    if (tell && record->own)
        Tell(*record, MessageDestroy, 0, 0);
    record->forwarded.Clear();
    std::free(record->pixels);
    std::free(record);
}

bool HeadlessDesktop::OnScreen(const Record& record) const noexcept
{
    for (const Record* r = &record; r; r = r->parent)
        if (!r->shown || r->minimised)
            return false;
    return true;
}

WindowHandle HeadlessDesktop::CreateWindow(const WindowRequest& request) noexcept
{
    if (failures > 0)
    {
        --failures;
        return {0};
    }
    Record* record = Add(request, true);
    return record ? record->handle : WindowHandle{0};
}

bool HeadlessDesktop::DestroyWindow(WindowHandle window) noexcept
{
    Record* record = FindOwn(window);
    if (!record)
        return false;
    const bool hadFocus = focus;
    Remove(record, false);
    if (hadFocus && !focus)
        GiveKeyboard(Front());
    PointerMayBeElsewhere();
    return true;
}

bool HeadlessDesktop::IsOwn(WindowHandle window) noexcept
{
    return FindOwn(window);
}

bool HeadlessDesktop::SetTitle(WindowHandle window, const char* title) noexcept
{
    Record* record = FindOwn(window);
    if (record)
        CopyTitle(record->title, title);
    return record;
}

const char* HeadlessDesktop::Title(WindowHandle window) noexcept
{
    const Record* record = Find(window);
    return record ? record->title : nullptr;
}

bool HeadlessDesktop::Show(WindowHandle window, bool visible) noexcept
{
    Record* record = FindOwn(window);
    if (!record)
        return false;
    if (visible == (record->shown && !record->minimised))
        return true;
    if (!visible)
    {
        record->shown = false;
        AfterHiding();
        return true;
    }
    const bool first = !record->everShown;
    record->shown = record->everShown = record->paint = true;
    record->minimised = false;
    if (first && record->kind == WindowKind::FullScreen)
        record->area = {Point{0, 0}, size.size};
    TellShape(*record, first);
    if (record->kind != WindowKind::Child)
    {
        Raise(*record);
        GiveKeyboard(record);
    }
    PointerMayBeElsewhere();
    return true;
}

bool HeadlessDesktop::IsVisible(WindowHandle window) noexcept
{
    const Record* record = Find(window);
    if (!record)
        return false;
    for (; record; record = record->parent)
        if (!record->shown)
            return false;
    return true;
}

bool HeadlessDesktop::IsMinimised(WindowHandle window) noexcept
{
    const Record* record = Find(window);
    return record && record->minimised;
}

// --------------------------------------------------------------------------------------------------------------- Shape

Rect HeadlessDesktop::AreaOf(const Record& record) const noexcept
{
    Rect area = record.area;
    if (record.parent)
    {
        const Rect within = ClientOf(*record.parent);
        area.x += within.x;
        area.y += within.y;
    }
    return area;
}

Rect HeadlessDesktop::ClientOf(const Record& record) const noexcept
{
    const Rect area = AreaOf(record);
    if (record.kind != WindowKind::Framed)
        return area;
    return {area.x + frameLeft, area.y + frameTop, area.width - frameSize.width, area.height - frameSize.height};
}

bool HeadlessDesktop::Area(WindowHandle window, Rect& result) noexcept
{
    const Record* record = Find(window);
    if (record)
        result = AreaOf(*record);
    return record;
}

bool HeadlessDesktop::ClientArea(WindowHandle window, Rect& result) noexcept
{
    const Record* record = Find(window);
    if (record)
        result = ClientOf(*record);
    return record;
}

// Gives the window its area, in the terms of the record, and tells whom it concerns.
void HeadlessDesktop::Reshape(Record& record, const Rect& area) noexcept
{
    if (area.width > record.area.width || area.height > record.area.height)
        record.paint = true;
    record.area = area;
    TellShape(record);
    for (std::size_t i = 0; i < recordCount; ++i)
        if (records[i]->parent == &record)
            TellShape(*records[i]);
    PointerMayBeElsewhere();
}

bool HeadlessDesktop::Resize(WindowHandle window, Size client) noexcept
{
    Record* record = Find(window);
    if (!record)
        return false;
    client = Sides(client);
    Rect area = record->area;
    area.width = client.width + (record->kind == WindowKind::Framed ? frameSize.width : 0);
    area.height = client.height + (record->kind == WindowKind::Framed ? frameSize.height : 0);
    if (!record->maximised)
        record->normal = area;
    Reshape(*record, area);
    return true;
}

bool HeadlessDesktop::Move(WindowHandle window, const Rect& area) noexcept
{
    Record* record = FindTop(window);
    if (!record)
        return false;
    if (record->minimised || record->maximised)
        return true; // it keeps its place, and the one that it goes back to
    record->normal = LegalArea(area, record->kind);
    Reshape(*record, record->normal);
    return true;
}

bool HeadlessDesktop::Position(WindowHandle window, WindowPosition& result) noexcept
{
    const Record* record = FindTop(window);
    if (!record)
        return false;
    result.state = record->minimised   ? WindowState::Minimised
                   : record->maximised ? WindowState::Maximised
                                       : WindowState::Normal;
    result.normal = record->normal;
    return true;
}

bool HeadlessDesktop::SetPosition(WindowHandle window, const WindowPosition& position) noexcept
{
    Record* record = FindTop(window);
    if (!record)
        return false;
    record->normal = LegalArea(position.normal, record->kind);
    record->minimised = position.state == WindowState::Minimised;
    if (!record->minimised)
        record->maximised = position.state == WindowState::Maximised;
    Reshape(*record, record->maximised ? Rect(Point{0, 0}, size.size) : record->normal);
    AfterHiding();
    return true;
}

// Brings a top-level window to the front of its kind; true if another one covered a part of it.
bool HeadlessDesktop::Raise(Record& record) noexcept
{
    std::size_t at = 0;
    while (records[at] != &record)
        ++at;
    bool covered = false;
    for (; at + 1 < recordCount; ++at)
    {
        const Record& above = *records[at + 1];
        if (above.kind == WindowKind::FullScreen && record.kind != WindowKind::FullScreen)
            break;
        covered |= above.kind != WindowKind::Child && OnScreen(above) && !above.area.Intersect(record.area).IsEmpty();
        records[at] = records[at + 1];
        records[at + 1] = &record;
    }
    return covered;
}

// The topmost window at that place, frames included.
HeadlessDesktop::Record* HeadlessDesktop::At(Point place) noexcept
{
    Record* found = nullptr;
    for (;;)
    {
        Record* deeper = nullptr;
        for (std::size_t i = recordCount; i-- > 0 && !deeper;)
            if (records[i]->parent == found && OnScreen(*records[i]) && AreaOf(*records[i]).Contains(place))
                deeper = records[i];
        if (!deeper)
            return found;
        found = deeper;
        if (!ClientOf(*found).Contains(place))
            return found; // on the frame
    }
}

HeadlessDesktop::Record* HeadlessDesktop::Front() noexcept
{
    for (std::size_t i = recordCount; i-- > 0;)
        if (records[i]->kind != WindowKind::Child && OnScreen(*records[i]))
            return records[i];
    return nullptr;
}

std::size_t HeadlessDesktop::TopLevelWindows(WindowHandle* result, std::size_t capacity) noexcept
{
    std::size_t count = 0;
    for (std::size_t i = recordCount; i-- > 0;)
        if (records[i]->kind != WindowKind::Child && records[i]->shown)
        {
            if (count < capacity)
                result[count] = records[i]->handle;
            ++count;
        }
    return count;
}

// ------------------------------------------------------------------------------------------- Focus, capture, pointer

WindowHandle HeadlessDesktop::Focus() noexcept
{
    return focus && focus->own ? focus->handle : WindowHandle{0};
}

bool HeadlessDesktop::SetFocus(WindowHandle window) noexcept
{
    Record* record = FindOwn(window);
    if (!record || !OnScreen(*record))
        return false;
    Record* top = record;
    while (top->parent)
        top = top->parent;
    if (Raise(*top))
        top->paint = true;
    GiveKeyboard(record);
    PointerMayBeElsewhere();
    return true;
}

bool HeadlessDesktop::SetCapture(WindowHandle window) noexcept
{
    Record* record = FindOwn(window);
    if (window.value != 0 && (!record || !OnScreen(*record)))
        return false;
    capture = record;
    if (!capture)
        PointerMayBeElsewhere();
    return true;
}

WindowHandle HeadlessDesktop::Capture() noexcept
{
    return capture ? capture->handle : WindowHandle{0};
}

bool HeadlessDesktop::Pointer(Point& result) noexcept
{
    result = pointer;
    return true;
}

bool HeadlessDesktop::MovePointer(Point place) noexcept
{
    UserMove(place);
    return true;
}

bool HeadlessDesktop::ShowPointer(bool visible) noexcept
{
    pointerVisible = visible;
    return true;
}

// ------------------------------------------------------------------------------------------------------------ Pictures

bool HeadlessDesktop::Present(WindowHandle window, const PixelRows& picture, Point at) noexcept
{
    Record* record = FindOwn(window);
    if (!record)
        return false;
    const Rect client = ClientOf(*record);
    if (!record->pixels || !(record->pixelSize == client))
    {
        const std::size_t columns = static_cast<std::size_t>(client.width);
        auto* fresh = static_cast<std::uint32_t*>(
            std::calloc(static_cast<std::size_t>(client.height), columns * sizeof(std::uint32_t)));
        if (!fresh)
            return false;
        const Rect kept = Rect(Point{0, 0}, record->pixelSize).Intersect({Point{0, 0}, client});
        for (std::int32_t y = 0; y < kept.height; ++y)
            std::memcpy(fresh + static_cast<std::size_t>(y) * columns,
                        record->pixels +
                            static_cast<std::size_t>(y) * static_cast<std::size_t>(record->pixelSize.width),
                        static_cast<std::size_t>(kept.width) * sizeof(std::uint32_t));
        std::free(record->pixels);
        record->pixels = fresh;
        record->pixelSize = client;
    }
    const Rect part = Rect(at, picture.size).Intersect({Point{0, 0}, client});
    const auto* row = static_cast<const std::byte*>(picture.first);
    for (std::int32_t y = part.y; y < part.y + part.height; ++y)
        std::memcpy(record->pixels + static_cast<std::size_t>(y) * static_cast<std::size_t>(client.width) + part.x,
                    row + (std::int64_t{y} - at.y) * picture.pitch + (std::int64_t{part.x} - at.x) * 4,
                    static_cast<std::size_t>(part.width) * 4);
    return true;
}

std::uint32_t HeadlessDesktop::Pixel(WindowHandle window, Point at) noexcept
{
    const Record* record = Find(window);
    if (!record || !record->pixels || !Rect(Point{0, 0}, ClientOf(*record)).Contains(at) ||
        !Rect(Point{0, 0}, record->pixelSize).Contains(at))
        return 0;
    const auto index = std::int64_t{at.y} * record->pixelSize.width + at.x;
    return record->pixels[index] & 0x00FFFFFF;
}

} // namespace Zem::Platform
