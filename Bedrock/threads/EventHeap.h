#pragma once

#include <Bedrock/memory/Nodes.h>

#include <cstdint>

namespace Zem
{

/// A priority queue of events, for `Events`: the earliest time first, and of equal times the one that came last.
///
/// A heap of four children a node: half the levels of a binary one, and four children lie side by side. Each entry has its
/// order in one number, the time above a ticket that counts down, so that a comparison touches no event.
class EventHeap
{
public:
    explicit EventHeap(std::uint32_t firstTicket = 0xFFFFFFFF) noexcept : ticket(firstTicket) {}
    EventHeap(const EventHeap&) = delete;
    EventHeap& operator=(const EventHeap&) = delete;
    ~EventHeap();

    std::uint32_t Count() const noexcept { return count; }
    /// Of the first, when there is one.
    DLListNode* First() const noexcept { return entries[0].event; }
    std::uint32_t FirstTime() const noexcept { return static_cast<std::uint32_t>(entries[0].order >> 32); }

    /// False on an exhausted heap of memory, and nothing is added.
    bool Insert(DLListNode* event, std::uint32_t time) noexcept;
    /// Of the one after the first, when there is a first; the highest time if there is no other.
    std::uint32_t SecondTime() const noexcept
    {
        return static_cast<std::uint32_t>(EarliestOfFour(entries + 1).order >> 32);
    }

    /// Puts `event` in when the first goes out; there is one.
    void ReplaceFirst(DLListNode* event, std::uint32_t time) noexcept { Rise(Sink(0), NewEntry(event, time)); }
    /// Takes out the first, when there is one.
    void RemoveFirst() noexcept { RemoveAt(0); }
    /// Takes out and returns an event of no particular place in the order, when there is one.
    DLListNode* TakeLast() noexcept
    {
        DLListNode* event = entries[--count].event;
        entries[count].order = UINT64_MAX;
        return event;
    }
    /// Takes out `event`, which is here; looks at one after the other.
    void Remove(const DLListNode* event) noexcept;

    /// The first in order of those for which `matches(event)` holds, or null; asks all.
    template <class Matches>
    DLListNode* FirstThat(const Matches& matches) const
    {
        const Entry* best = nullptr;
        for (std::uint32_t i = 0; i < count; ++i)
            if (matches(entries[i].event) && (!best || entries[i].order < best->order))
                best = &entries[i];
        return best ? best->event : nullptr;
    }

private:
    struct Entry
    {
        std::uint64_t order;
        DLListNode* event;
    };

    struct Earliest
    {
        std::uint64_t order;
        std::uint32_t number;
    };

    Entry NewEntry(DLListNode* event, std::uint32_t time) noexcept
    {
        if (ticket == 0)
            Renumber();
        return {static_cast<std::uint64_t>(time) << 32 | --ticket, event};
    }
    static Earliest EarliestOfFour(const Entry* four) noexcept;
    std::uint32_t Sink(std::uint32_t at) noexcept;
    bool Grow() noexcept;
    void Renumber() noexcept;
    void RemoveAt(std::uint32_t at) noexcept;
    void Rise(std::uint32_t at, const Entry& entry) noexcept;

    Entry* entries = nullptr;
    std::uint32_t count = 0;
    std::uint32_t capacity = 0;
    std::uint32_t ticket; // of the next entry
};

inline EventHeap::Earliest EventHeap::EarliestOfFour(const Entry* four) noexcept
{
    const std::uint64_t a = four[0].order, b = four[1].order, c = four[2].order, d = four[3].order;
    const Earliest low{b < a ? b : a, std::uint32_t{b < a}};
    const Earliest high{d < c ? d : c, 2 + std::uint32_t{d < c}};
    return high.order < low.order ? high : low;
}

// Moves the hole at `at` down to a leaf, along the earliest children, and returns where it has come to. Entries are moved
// a member at a time, as they are stored: one load of both would have to wait until both stores are through.
inline std::uint32_t EventHeap::Sink(std::uint32_t at) noexcept
{
    for (std::uint32_t child = at * 4 + 1; child < count; child = at * 4 + 1)
    {
        const Earliest best = EarliestOfFour(entries + child);
        entries[at].order = best.order;
        entries[at].event = entries[child + best.number].event;
        at = child + best.number;
    }
    return at;
}

inline void EventHeap::Rise(std::uint32_t at, const Entry& entry) noexcept
{
    for (; at > 0; at = (at - 1) / 4)
    {
        const Entry* parent = entries + (at - 1) / 4;
        const std::uint64_t order = parent->order;
        if (order < entry.order)
            break;
        entries[at].order = order;
        entries[at].event = parent->event;
    }
    entries[at].order = entry.order;
    entries[at].event = entry.event;
}

// The last entry fills the hole, from a leaf upwards: it came from the bottom and mostly belongs there.
inline void EventHeap::RemoveAt(std::uint32_t at) noexcept
{
    const Entry last = entries[--count];
    entries[count].order = UINT64_MAX;
    if (at != count)
        Rise(Sink(at), last);
}

inline bool EventHeap::Insert(DLListNode* event, std::uint32_t time) noexcept
{
    if (count == capacity && !Grow())
        return false;
    const Entry entry = NewEntry(event, time);
    Rise(count++, entry);
    return true;
}

} // namespace Zem
