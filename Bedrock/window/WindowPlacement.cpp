#include <Bedrock/window/WindowPlacement.h>

#include <Bedrock/memory/Alloc.h>
#include <Bedrock/platform/Desktop.h>

namespace Zem
{

using Platform::WindowHandle;

namespace
{

// How a window is shown, where its icon stands, and the edges of its normal area.
struct Placement
{
    std::uint32_t length; // 44
    std::uint32_t flags;
    std::uint32_t show; // 1 normal, 2 minimised, 3 maximised
    std::int32_t minimisedX, minimisedY;
    std::int32_t maximisedX, maximisedY;
    std::int32_t left, top, right, bottom;
};
static_assert(sizeof(Placement) == 44);

constexpr std::uint32_t shows[] = {1, 2, 3}; // by WindowState

// Modulo 2 to the 32nd: an edge from outside may lie anywhere.
std::int32_t Sum(std::int32_t a, std::int32_t b)
{
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) + static_cast<std::uint32_t>(b));
}

std::int32_t Difference(std::int32_t a, std::int32_t b)
{
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) - static_cast<std::uint32_t>(b));
}

Placement ToPlacement(const Platform::WindowPosition& position)
{
    const Rect& area = position.normal;
    return {sizeof(Placement),
            0,
            shows[static_cast<std::size_t>(position.state)],
            -1,
            -1,
            -1,
            -1,
            area.x,
            area.y,
            Sum(area.x, area.width),
            Sum(area.y, area.height)};
}

Platform::WindowPosition FromPlacement(const Placement& placement)
{
    return {static_cast<Platform::WindowState>(placement.show - 1),
            {placement.left, placement.top, Difference(placement.right, placement.left),
             Difference(placement.bottom, placement.top)}};
}

} // namespace

struct WindowPlacement::Record : DLListNode
{
    ZEM_HEAP_OPERATORS
public:
    WindowHandle window;
    bool haveArea;
    std::int32_t left, top, right, bottom;
    Placement placement;
};

WindowPlacement::Records::~Records()
{
    while (DLListNode* const node = Head())
    {
        Remove(node);
        delete static_cast<Record*>(node);
    }
}

void WindowPlacement::SaveWindowPositions()
{
    Platform::Desktop* const desktop = Platform::OpenDesktop();
    if (!desktop)
        return;
    const std::size_t capacity = desktop->TopLevelWindows(nullptr, 0);
    auto* const windows = static_cast<WindowHandle*>(Alloc::New(capacity * sizeof(WindowHandle)));
    if (!windows)
        return;
    std::size_t count = desktop->TopLevelWindows(windows, capacity);
    if (count > capacity)
        count = capacity; // one has come in between
    for (std::size_t i = 0; i < count; ++i)
    {
        Platform::WindowPosition position;
        if (!desktop->Position(windows[i], position))
            continue;
        auto* const record = new Record();
        if (!record)
            break;
        record->window = windows[i];
        record->placement = ToPlacement(position);
        Rect area;
        record->haveArea = desktop->Area(windows[i], area);
        if (!record->haveArea)
            area = position.normal;
        record->left = area.x;
        record->top = area.y;
        record->right = Sum(area.x, area.width);
        record->bottom = Sum(area.y, area.height);
        records.AddTail(record);
    }
    Alloc::Delete(windows);
}

void WindowPlacement::RestoreWindowPositions()
{
    Platform::Desktop* const desktop = Platform::OpenDesktop();
    if (!desktop)
        return;
    for (const DLListNode* node = records.Head(); node; node = node->Next())
    {
        const auto& record = static_cast<const Record&>(*node);
        desktop->SetPosition(record.window, FromPlacement(record.placement));
        desktop->Move(record.window, {record.left, record.top, Difference(record.right, record.left),
                                      Difference(record.bottom, record.top)});
    }
}

} // namespace Zem
