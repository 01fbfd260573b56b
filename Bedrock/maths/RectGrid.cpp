#include <Bedrock/maths/RectGrid.h>

#include <Bedrock/memory/Alloc.h>

#include <cstring>

namespace Zem
{

RectGrid::~RectGrid()
{
    Alloc::Delete(chains);
    Alloc::Delete(entries);
}

// Chooses cells, and tells how many entries the rectangles take.
std::uint64_t RectGrid::Measure(const DLListNode* head, std::uint32_t count)
{
    // Cells start at the typical size, the mean of the logarithms: a few giants among many small ones do not count.
    std::uint64_t logX = 0, logY = 0;
    std::int32_t left = INT32_MAX, top = INT32_MAX, right = 0, bottom = 0;
    for (const DLListNode* node = head; node; node = node->Next())
    {
        const Rect& r = *static_cast<const RectNode*>(node);
        logX += static_cast<std::uint32_t>(std::bit_width(static_cast<std::uint32_t>(r.width)));
        logY += static_cast<std::uint32_t>(std::bit_width(static_cast<std::uint32_t>(r.height)));
        left = r.x < left ? r.x : left;
        top = r.y < top ? r.y : top;
        right = r.x + (r.width - 1) > right ? r.x + (r.width - 1) : right;
        bottom = r.y + (r.height - 1) > bottom ? r.y + (r.height - 1) : bottom;
    }
    shiftX = static_cast<std::uint32_t>((logX + count / 2) / count);
    shiftY = static_cast<std::uint32_t>((logY + count / 2) / count);

    // Where they turn out to fill too many, giants do count after all, and cells grow.
    const std::uint32_t most = static_cast<std::uint32_t>(std::bit_width(count)) + 1;
    for (;;)
    {
        bitsX = static_cast<std::uint32_t>(std::bit_width(static_cast<std::uint32_t>(right - left) >> shiftX));
        bitsY = static_cast<std::uint32_t>(std::bit_width(static_cast<std::uint32_t>(bottom - top) >> shiftY));
        while (bitsX + bitsY > most)
            --(bitsX > bitsY ? bitsX : bitsY);
        std::uint64_t total = 0, cellsX = 0, cellsY = 0;
        for (const DLListNode* node = head; node; node = node->Next())
        {
            const Rect& r = *static_cast<const RectNode*>(node);
            const std::uint64_t across = Across(r).count;
            const std::uint64_t down = Down(r).count;
            total += across * down;
            cellsX += across;
            cellsY += down;
        }
        if (total <= 4 * std::uint64_t{count} || (bitsX | bitsY) == 0)
            return total;
        ++(cellsX >= cellsY ? shiftX : shiftY);
    }
}

void RectGrid::Build(const DLListNode* head, std::uint32_t count)
{
    idle = true;
    built = count;
    const std::uint64_t total = Measure(head, count);
    used = unused = 0;
    spare = None;
    if (!Reserve(2 * total))
        return;
    limit = static_cast<std::uint32_t>(2 * total + 256);

    const std::uint32_t size = 1u << (bitsX + bitsY);
    if (size > chainCapacity)
    {
        Alloc::Delete(chains);
        chains = static_cast<std::uint32_t*>(Alloc::New(sizeof *chains * std::size_t{size}));
        chainCapacity = chains ? size : 0;
        if (!chains)
            return;
    }
    std::memset(chains, 0xFF, sizeof *chains * std::size_t{size});
    static_assert(None == 0xFFFFFFFF);
    idle = false;
    for (const DLListNode* node = head; node && !idle; node = node->Next())
        Add(const_cast<RectNode*>(static_cast<const RectNode*>(node)));
}

// Room for `count` entries, of which the first `used` are kept.
bool RectGrid::Reserve(std::uint64_t count)
{
    if (count <= capacity)
        return true;
    const std::uint64_t bytes = count * sizeof(Entry);
    if (count >= None || bytes > SIZE_MAX / 2)
        return false;
    auto* grown = static_cast<Entry*>(Alloc::New(static_cast<std::size_t>(bytes)));
    if (!grown)
        return false;
    if (used)
        std::memcpy(grown, entries, used * sizeof(Entry));
    Alloc::Delete(entries);
    entries = grown;
    capacity = static_cast<std::uint32_t>(count);
    return true;
}

void RectGrid::Add(RectNode* node)
{
    const Span across = Across(*node);
    const Span down = Down(*node);
    const std::uint64_t wanted = std::uint64_t{across.count} * down.count;
    if (wanted > unused && !(used + wanted - unused <= capacity || Reserve(2 * (used + wanted))))
    {
        idle = true;
        return;
    }
    const Entry entry{node->x, node->y, node->x + (node->width - 1), node->y + (node->height - 1), node, None};
    for (std::uint32_t y = down.first; y != down.first + down.count; ++y)
        for (std::uint32_t x = across.first; x != across.first + across.count; ++x)
        {
            std::uint32_t at = spare;
            if (at != None)
            {
                spare = entries[at].next;
                --unused;
            }
            else
                at = used++;
            std::uint32_t& first = chains[(Line(y) << bitsX) + Column(x)];
            entries[at] = entry;
            entries[at].next = first;
            first = at;
        }
}

void RectGrid::Remove(const RectNode* node)
{
    const Span across = Across(*node);
    const Span down = Down(*node);
    for (std::uint32_t y = down.first; y != down.first + down.count; ++y)
        for (std::uint32_t x = across.first; x != across.first + across.count; ++x)
        {
            std::uint32_t* link = &chains[(Line(y) << bitsX) + Column(x)];
            while (entries[*link].node != node)
                link = &entries[*link].next;
            const std::uint32_t at = *link;
            *link = entries[at].next;
            entries[at].next = spare;
            spare = at;
            ++unused;
        }
}

} // namespace Zem
