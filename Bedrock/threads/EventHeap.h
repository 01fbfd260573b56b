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
    /// Takes out the first, when there is one.
    void RemoveFirst() noexcept { RemoveAt(0); }
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

    bool Grow() noexcept;
    void Renumber() noexcept;
    void RemoveAt(std::uint32_t at) noexcept;
    void Rise(std::uint32_t at, const Entry& entry) noexcept;

    Entry* entries = nullptr;
    std::uint32_t count = 0;
    std::uint32_t capacity = 0;
    std::uint32_t ticket; // of the next entry
};

} // namespace Zem
