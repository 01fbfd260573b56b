#pragma once

#include <Bedrock/maths/OptimalRects.h>

#include <bit>
#include <cstdint>

namespace Zem
{

/// Finds which of many disjoint rectangles another one meets, without a look at all of them.
///
/// The plane is cut into cells of 2^`shiftX` by 2^`shiftY` pixels, which are dealt to a table of 2^`bitsX` by 2^`bitsY`
/// chains, over and over like the squares of a chessboard. So coordinates have no bounds, and a far-away rectangle
/// costs nothing but a chance neighbour in its chain. A rectangle stands in the chain of each cell that it touches.
/// Sizes of cells follow the rectangles: about one cell each, and few cells for a rectangle.
///
/// All memory is from `Alloc`. An operation that finds none leaves the grid idle, and its owner does without.
class RectGrid
{
    ZEM_HEAP_OPERATORS

public:
    RectGrid() = default;
    ~RectGrid();
    RectGrid(const RectGrid&) = delete;
    RectGrid& operator=(const RectGrid&) = delete;

    bool IsIdle() const { return idle; }
    /// Forgets all rectangles and keeps the memory.
    void Rest() { idle = true; }
    /// Sizes the cells for the `count` rectangles from `head` on and takes them in.
    void Build(const DLListNode* head, std::uint32_t count);
    /// The cells no longer suit `count` rectangles.
    bool IsMisfit(std::uint32_t count) const { return count / 2 > built || count < built / 8 || used - unused > limit; }

    void Add(RectNode* node);
    /// `node` must stand as it was when it was added.
    void Remove(const RectNode* node);

    /// Calls `visit(node)` once for each rectangle that shares a pixel with `r`, in no order, until it answers false.
    /// Returns: false if it did.
    template <class Visit>
    bool Find(const Rect& r, Visit visit) const;

private:
    struct Entry
    {
        std::int32_t left, top, right, bottom; // of the rectangle; last column and row included
        RectNode* node;
        std::uint32_t next; // in its chain, or of the unused ones
    };
    static constexpr std::uint32_t None = 0xFFFFFFFF;

    // Cells from `first`, `count` of them; never more than the table has, as the rest are the same chains again.
    struct Span
    {
        std::uint32_t first;
        std::uint32_t count;

        Span(std::int32_t low, std::int32_t extent, std::uint32_t shift, std::uint32_t bits)
            : first(static_cast<std::uint32_t>(low) >> shift),
              count((static_cast<std::uint32_t>(low + (extent - 1)) >> shift) - first + 1)
        {
            if (count > 1u << bits)
                count = 1u << bits;
        }
    };
    Span Across(const Rect& r) const { return Span(r.x, r.width, shiftX, bitsX); }
    Span Down(const Rect& r) const { return Span(r.y, r.height, shiftY, bitsY); }
    std::uint32_t Column(std::uint32_t cell) const { return cell & ((1u << bitsX) - 1); }
    std::uint32_t Line(std::uint32_t cell) const { return cell & ((1u << bitsY) - 1); }

    std::uint64_t Measure(const DLListNode* head, std::uint32_t count);
    bool Reserve(std::uint64_t count);

    std::uint32_t* chains = nullptr; // first entry of each chain, or None; a row of the table after the other
    std::uint32_t chainCapacity = 0;
    Entry* entries = nullptr;
    std::uint32_t capacity = 0;
    std::uint32_t used = 0;     // entries handed out, the unused ones among them
    std::uint32_t unused = 0;   // entries given back
    std::uint32_t spare = None; // first of those
    std::uint32_t built = 0;    // rectangles at the last `Build`
    std::uint32_t limit = 0;    // entries that call for another `Build`
    std::uint32_t shiftX = 0, shiftY = 0, bitsX = 0, bitsY = 0;
    bool idle = true;
};

template <class Visit>
bool RectGrid::Find(const Rect& r, Visit visit) const
{
    const Span across = Across(r);
    const Span down = Down(r);
    const std::int32_t right = r.x + (r.width - 1);
    const std::int32_t bottom = r.y + (r.height - 1);
    for (std::uint32_t y = down.first; y != down.first + down.count; ++y)
    {
        const std::uint32_t line = Line(y);
        for (std::uint32_t x = across.first; x != across.first + across.count; ++x)
        {
            const std::uint32_t column = Column(x);
            for (std::uint32_t at = chains[(line << bitsX) + column]; at != None; at = entries[at].next)
            {
                const Entry& e = entries[at];
                if ((e.left > right) | (e.right < r.x) | (e.top > bottom) | (e.bottom < r.y))
                    continue;
                // A rectangle in several chains counts in the one of the common part's first corner.
                const std::uint32_t cornerX = static_cast<std::uint32_t>(e.left) >> shiftX;
                const std::uint32_t cornerY = static_cast<std::uint32_t>(e.top) >> shiftY;
                if (Column(cornerX > across.first ? cornerX : across.first) == column &&
                    Line(cornerY > down.first ? cornerY : down.first) == line && !visit(e.node))
                    return false;
            }
        }
    }
    return true;
}

} // namespace Zem
