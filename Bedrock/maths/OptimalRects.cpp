#include <Bedrock/maths/OptimalRects.h>

#include <Bedrock/maths/RectGrid.h>
#include <Bedrock/memory/Alloc.h>

#include <algorithm>
#include <cstring>

namespace Zem
{

namespace
{

// Fewer rectangles than this are quicker walked than looked up.
constexpr std::uint32_t GridFrom = 24;

// How a newcomer lies beside an old rectangle: where it sticks out of it.
enum Sides : unsigned
{
    Nowhere = 0,
    Left = 1,
    Right = 2,
    Above = 4,
    Below = 8,
    Apart = 16 // no common pixel
};

std::int32_t LastColumn(const Rect& r)
{
    return r.x + (r.width - 1);
}

std::int32_t LastRow(const Rect& r)
{
    return r.y + (r.height - 1);
}

unsigned SidesOf(const Rect& r, const Rect& c)
{
    const std::int32_t right = LastColumn(r), bottom = LastRow(r);
    const std::int32_t cright = LastColumn(c), cbottom = LastRow(c);
    if ((right < c.x) | (r.x > cright) | (bottom < c.y) | (r.y > cbottom))
        return Apart;
    return (r.x < c.x ? Left : 0u) | (right > cright ? Right : 0u) | (r.y < c.y ? Above : 0u) |
           (bottom > cbottom ? Below : 0u);
}

} // namespace

// An old rectangle that a newcomer shares pixels with.
struct OptimalRects::Meeting
{
    std::int32_t left, top, right, bottom;
    RectNode* node;
    std::uint64_t order;

    explicit Meeting(RectNode* c)
        : left(c->x), top(c->y), right(LastColumn(*c)), bottom(LastRow(*c)), node(c), order(c->order)
    {
    }
};

// The meetings of one newcomer, in the order of the list. Whatever becomes of the newcomer, no piece of it will meet
// another rectangle than these: pieces lie inside of it and apart from each other, and old rectangles only shrink. So
// the list is searched once, however many pieces there will be; and a piece need not look back at those that the
// newcomer had passed before it was cut. What an old rectangle loses, all of it perhaps, lies inside the piece that it
// gives way to, where no other piece comes: so meetings are never brought up to date.
class OptimalRects::Meetings
{
public:
    Meetings() = default;
    ~Meetings()
    {
        if (items != Own())
            Alloc::Delete(items);
    }
    Meetings(const Meetings&) = delete;
    Meetings& operator=(const Meetings&) = delete;

    bool Add(RectNode* node)
    {
        if (count == capacity && !Grow())
            return false;
        new (items + count++) Meeting(node);
        return true;
    }
    void Sort()
    {
        std::sort(items, items + count, [](const Meeting& a, const Meeting& b) { return a.order < b.order; });
    }
    // The first from `from` on that meets `r`, or `Count()`.
    std::uint32_t Next(const Rect& r, std::uint32_t from) const
    {
        const std::int32_t right = LastColumn(r), bottom = LastRow(r);
        for (; from < count; ++from)
        {
            const Meeting& c = items[from];
            if (!((c.left > right) | (c.right < r.x) | (c.top > bottom) | (c.bottom < r.y)))
                break;
        }
        return from;
    }
    Meeting& operator[](std::uint32_t i) { return items[i]; }
    std::uint32_t Count() const { return count; }

private:
    static constexpr std::uint32_t OwnItems = 32;

    Meeting* Own() { return reinterpret_cast<Meeting*>(own); }
    bool Grow()
    {
        const std::uint32_t grown = capacity * 2;
        auto* larger = static_cast<Meeting*>(Alloc::New(sizeof(Meeting) * std::size_t{grown}));
        if (!larger)
            return false;
        std::memcpy(static_cast<void*>(larger), items, sizeof(Meeting) * count);
        if (items != Own())
            Alloc::Delete(items);
        items = larger;
        capacity = grown;
        return true;
    }

    alignas(Meeting) unsigned char own[sizeof(Meeting) * OwnItems]; // most newcomers meet a handful
    Meeting* items = Own();
    std::uint32_t count = 0;
    std::uint32_t capacity = OwnItems;
};

void OptimalRects::Free(NodeList& list)
{
    while (DLListNode* node = list.Head())
    {
        list.Remove(node);
        delete static_cast<RectNode*>(node);
    }
}

OptimalRects::~OptimalRects()
{
    Free(rects);
    Free(pending);
    DropGrid();
}

void OptimalRects::DropGrid()
{
    delete grid;
    grid = nullptr;
}

void OptimalRects::Clear()
{
    Free(rects);
    Free(pending);
    if (grid)
        grid->Rest();
}

// Whether `r` is valid; cuts off what lies past the last coordinate, so that every last column and row is a number.
bool OptimalRects::Clip(Rect& r)
{
    if (r.x < 0 || r.y < 0 || r.width < 1 || r.height < 1)
        return false;
    if (r.width - 1 > INT32_MAX - r.x)
        r.width = INT32_MAX - r.x + 1;
    if (r.height - 1 > INT32_MAX - r.y)
        r.height = INT32_MAX - r.y + 1;
    return true;
}

void OptimalRects::Invalidate(const Rect& r)
{
    Rect newcomer = r;
    if (!Clip(newcomer))
        return;
    if (!pending.Head() || !rects.Head())
    {
        Meetings meetings;
        if (Meet(newcomer, meetings))
        {
            if (meetings.Count() && SidesOf(newcomer, *meetings[0].node) == Nowhere)
                return;
            auto* node = new RectNode(newcomer);
            if (!node)
                return;
            if (meetings.Count() == 0)
                Join(node);
            else
            {
                pending.AddTail(node);
                Drain(meetings);
            }
            FitGrid();
            return;
        }
    }
    Queue(newcomer);
    Process();
}

void OptimalRects::Queue(const Rect& r)
{
    Rect newcomer = r;
    if (!Clip(newcomer))
        return;
    if (auto* node = new RectNode(newcomer))
        pending.AddTail(node);
}

void OptimalRects::Validate(const Rect&)
{
}

// All rectangles that share pixels with `r`, in the order of the list. False if there is no memory for them.
bool OptimalRects::Meet(const Rect& r, Meetings& meetings) const
{
    if (grid && !grid->IsIdle())
    {
        if (!grid->Find(r, [&](RectNode* node) { return meetings.Add(node); }))
            return false;
        meetings.Sort();
        return true;
    }
    const std::int32_t right = LastColumn(r), bottom = LastRow(r);
    for (DLListNode* node = rects.Head(); node; node = node->Next())
    {
        auto* c = static_cast<RectNode*>(node);
        const bool apart = c->x > right || LastColumn(*c) < r.x || c->y > bottom || LastRow(*c) < r.y;
        if (!apart && !meetings.Add(c))
            return false;
    }
    return true;
}

// Cuts the pieces of one newcomer, first come, first served. The order of a piece counts the meetings behind it.
void OptimalRects::Drain(Meetings& meetings)
{
    while (pending.Head())
    {
        auto* r = static_cast<RectNode*>(pending.Head());
        pending.Remove(r);
        const std::uint32_t at = meetings.Next(*r, static_cast<std::uint32_t>(r->order));
        if (at == meetings.Count())
        {
            Join(r);
            continue;
        }
        Cut(r, meetings[at].node, at);
    }
}

// The same for pieces of which nothing is known: each meets the first on the list that it shares pixels with.
void OptimalRects::Process()
{
    while (pending.Head())
    {
        auto* r = static_cast<RectNode*>(pending.Head());
        pending.Remove(r);
        DLListNode* c = rects.Head();
        while (c && SidesOf(*r, *static_cast<RectNode*>(c)) == Apart)
            c = c->Next();
        if (c)
            Cut(r, static_cast<RectNode*>(c), 0);
        else
            Join(r);
    }
    FitGrid();
}

// One step: `r`, off the queue, meets `c`. What is left of `r` goes back on the queue, a piece split off before it.
// The pieces of codes with two sides start on the last column or row of `c`, and are trimmed when they meet it again:
// this settles the order of the list, which owners may rely on.
void OptimalRects::Cut(RectNode* r, RectNode* c, std::uint64_t search)
{
    const std::int32_t right = LastColumn(*r), bottom = LastRow(*r);
    const std::int32_t cright = LastColumn(*c), cbottom = LastRow(*c);
    bool isUsedUp = false; // the old one
    switch (SidesOf(*r, *c))
    {
    case Nowhere:
        delete r;
        return;
    case Left:
        r->width = c->x - r->x;
        break;
    case Right:
        r->width = right - cright;
        r->x = cright + 1;
        break;
    case Left | Right:
        QueuePiece(cright, r->y, right - cright + 1, r->height, search);
        r->width = c->x - r->x;
        break;
    case Above:
        r->height = c->y - r->y;
        break;
    case Left | Above:
        QueuePiece(r->x, c->y, c->x - r->x, bottom - c->y + 1, search);
        r->height = c->y - r->y;
        break;
    case Right | Above:
        QueuePiece(cright, c->y, right - cright + 1, bottom - c->y + 1, search);
        r->height = c->y - r->y;
        break;
    case Below:
        r->height = bottom - cbottom;
        r->y = cbottom + 1;
        break;
    case Left | Below:
        QueuePiece(r->x, r->y, c->x - r->x, cbottom - r->y + 1, search);
        r->height = bottom - cbottom;
        r->y = cbottom + 1;
        break;
    case Right | Below:
        QueuePiece(cright, r->y, right - cright + 1, cbottom - r->y + 1, search);
        r->height = bottom - cbottom;
        r->y = cbottom + 1;
        break;
    case Above | Below:
        QueuePiece(r->x, cbottom, r->width, bottom - cbottom + 1, search);
        r->height = c->y - r->y;
        break;
    case Left | Right | Above: // the old one loses its top
        isUsedUp = bottom == cbottom;
        if (!isUsedUp)
            Narrow(c, Rect(c->x, bottom + 1, c->width, cbottom - bottom));
        break;
    case Left | Right | Below: // its bottom
        isUsedUp = r->y == c->y;
        if (!isUsedUp)
            Narrow(c, Rect(c->x, c->y, c->width, r->y - c->y));
        break;
    case Left | Above | Below: // its left
        isUsedUp = right == cright;
        if (!isUsedUp)
            Narrow(c, Rect(right + 1, c->y, cright - right, c->height));
        break;
    case Right | Above | Below: // its right
        isUsedUp = r->x == c->x;
        if (!isUsedUp)
            Narrow(c, Rect(c->x, c->y, r->x - c->x, c->height));
        break;
    default: // all four: covered
        isUsedUp = true;
        break;
    }
    if (isUsedUp)
        Take(c);
    r->order = search + 1;
    pending.AddTail(r);
}

void OptimalRects::QueuePiece(std::int32_t x, std::int32_t y, std::int32_t width, std::int32_t height,
                              std::uint64_t search)
{
    if (auto* piece = new RectNode(Rect(x, y, width, height)))
    {
        piece->order = search;
        pending.AddTail(piece);
    }
}

void OptimalRects::Join(RectNode* r)
{
    r->order = ++lastOrder;
    rects.AddTail(r);
    if (grid && !grid->IsIdle())
        grid->Add(r);
}

void OptimalRects::Take(RectNode* c)
{
    if (grid && !grid->IsIdle())
        grid->Remove(c);
    rects.Remove(c);
    delete c;
}

void OptimalRects::Narrow(RectNode* c, const Rect& rest)
{
    if (grid && !grid->IsIdle())
        grid->Remove(c);
    static_cast<Rect&>(*c) = rest;
    if (grid && !grid->IsIdle())
        grid->Add(c);
}

// Keeps the grid in proportion to the list.
void OptimalRects::FitGrid()
{
    if (rects.Count() < GridFrom)
    {
        if (grid && rects.Count() < GridFrom / 2)
            grid->Rest();
        return;
    }
    if (!grid)
        grid = new RectGrid;
    if (grid && (grid->IsIdle() || grid->IsMisfit(rects.Count())))
        grid->Build(rects.Head(), rects.Count());
}

} // namespace Zem
