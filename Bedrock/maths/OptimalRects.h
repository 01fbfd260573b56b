#pragma once

#include <Bedrock/Export.h>
#include <Bedrock/Types.h>
#include <Bedrock/memory/HeapOperators.h>
#include <Bedrock/memory/Nodes.h>

#include <cstddef>
#include <cstdint>
#include <iterator>

namespace Zem
{

class RectGrid;

/// A rectangle on a list of `OptimalRects`: one block from `Alloc`.
struct RectNode : Rect, DLListNode
{
    ZEM_HEAP_OPERATORS

    explicit RectNode(const Rect& r) : Rect(r) {}

    std::uint64_t order = 0; // on the result: grows from head to tail; on the work queue: where its search goes on
};

/// The parts of a screen that need repainting, as rectangles that do not overlap: no pixel is painted twice.
///
/// A newcomer is cut against the rectangles already held, in their order: it is dropped where they cover it, trimmed or
/// split where they stick out, and they give way where it spans them from side to side.
///
///     held   +------+           then   +------+
///            |   +--|---+              |      |---+
///            +---|--+   |  newcomer    +---+--+   |      held, and two pieces behind it
///                +------+                  +------+
///
/// Every pixel of a valid rectangle is covered exactly once; rectangles that touch are never merged. The list and its
/// order depend on nothing but the sequence of calls. Valid rectangles have `x` and `y` from 0 and `width` and `height`
/// from 1; pixels past the last 32-bit coordinate do not exist.
///
/// Threads: an object belongs to one thread at a time. Memory: where it runs out, the rectangle or the piece is dropped.
///
///     OptimalRects dirty;
///     dirty.Invalidate(sprite.oldPlace);
///     dirty.Invalidate(sprite.newPlace);
///     for (const Rect& r : dirty)
///         Repaint(r);
///     dirty.Clear();
class ZEM_API OptimalRects
{
    ZEM_HEAP_OPERATORS

public:
    class Iterator
    {
    public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = Rect;
        using difference_type = std::ptrdiff_t;
        using pointer = const Rect*;
        using reference = const Rect&;

        Iterator() = default;
        explicit Iterator(const DLListNode* first) : node(first) {}
        reference operator*() const { return *static_cast<const RectNode*>(node); }
        pointer operator->() const { return static_cast<const RectNode*>(node); }
        Iterator& operator++()
        {
            node = node->Next();
            return *this;
        }
        Iterator operator++(int)
        {
            const Iterator before = *this;
            ++*this;
            return before;
        }
        friend bool operator==(const Iterator&, const Iterator&) = default;

    private:
        const DLListNode* node = nullptr;
    };

    OptimalRects() = default;
    ~OptimalRects();
    OptimalRects(const OptimalRects&) = delete;
    OptimalRects& operator=(const OptimalRects&) = delete;

    /// Adds a rectangle. One that is not valid changes nothing.
    ///
    /// Cost: grows with the rectangles that it meets, not with those that are held. One that lies inside the first it
    /// meets, as a repeated one does, allocates nothing.
    void Invalidate(const Rect& r);

    /// Cuts whatever waits on the work queue. `Invalidate` leaves nothing there; it is for classes that `Queue`.
    void Process();

    /// Has no effect: what is dirty stays so until `Clear`.
    void Validate(const Rect& r);

    /// Empties the set, as after painting. Memory for finding rectangles is kept for the next frame.
    void Clear();

    /// Number of rectangles.
    std::uint32_t Count() const { return rects.Count(); }
    /// The rectangles, oldest first; they stay at their places in memory, and any change of the set ends the walk.
    Iterator begin() const { return Iterator(rects.Head()); }
    Iterator end() const { return Iterator(); }

protected:
    /// Puts a valid rectangle on the work queue for the next `Process`; another changes nothing.
    void Queue(const Rect& r);

private:
    struct Meeting;
    class Meetings;

    static bool Clip(Rect& r);
    static void Free(NodeList& list);
    void Cut(RectNode* r, RectNode* c, std::uint64_t search);
    void QueuePiece(std::int32_t x, std::int32_t y, std::int32_t width, std::int32_t height, std::uint64_t search);
    void Join(RectNode* r);
    void Take(RectNode* c);
    void Narrow(RectNode* c, const Rect& rest);
    bool Meet(const Rect& r, Meetings& meetings) const;
    void Drain(Meetings& meetings);
    void FitGrid();
    void DropGrid();

    NodeList rects;   // the result: no two share a pixel
    NodeList pending; // not yet cut
    std::uint64_t lastOrder = 0;
    RectGrid* grid = nullptr; // finds rectangles by place once there are many; null or idle: the list is walked
};

} // namespace Zem
