#include <Bedrock/threads/EventHeap.h>

#include <algorithm>

namespace Zem
{

namespace
{

// The root stands at place 3 of its cache line, so that the four children of a node, at 4 i + 1, fill one. Behind the
// last entry lie entries that are after all others: a node that has a child has four.
constexpr std::size_t line = 64;
constexpr std::uint32_t skipped = 3;
constexpr std::uint32_t spare = 4;

} // namespace

EventHeap::~EventHeap()
{
    if (entries)
        DeleteAligned(entries - skipped);
}

bool EventHeap::Insert(DLListNode* event, std::uint32_t time) noexcept
{
    if (count == capacity && !Grow())
        return false;
    if (ticket == 0)
        Renumber();
    const Entry entry{static_cast<std::uint64_t>(time) << 32 | --ticket, event};
    Rise(count++, entry);
    return true;
}

void EventHeap::Remove(const DLListNode* event) noexcept
{
    std::uint32_t at = 0;
    while (entries[at].event != event)
        ++at;
    RemoveAt(at);
}

// The hole goes down to a leaf along the earliest children, and the last entry rises from there: it came from the bottom
// and mostly belongs there.
void EventHeap::RemoveAt(std::uint32_t at) noexcept
{
    const Entry last = entries[--count];
    entries[count].order = UINT64_MAX;
    if (at == count)
        return;
    for (std::uint32_t child = at * 4 + 1; child < count; child = at * 4 + 1)
    {
        const Entry* c = entries + child;
        const std::uint32_t low = c[1].order < c[0].order;
        const std::uint32_t high = 2 + (c[3].order < c[2].order);
        const std::uint32_t mask =
            0 - std::uint32_t{c[high].order < c[low].order}; // no branch: it would be guessed wrong
        const std::uint32_t best = child + (low ^ ((low ^ high) & mask));
        entries[at] = entries[best];
        at = best;
    }
    Rise(at, last);
}

void EventHeap::Rise(std::uint32_t at, const Entry& entry) noexcept
{
    for (; at > 0; at = (at - 1) / 4)
    {
        const Entry& parent = entries[(at - 1) / 4];
        if (parent.order < entry.order)
            break;
        entries[at] = parent;
    }
    entries[at] = entry;
}

bool EventHeap::Grow() noexcept
{
    const std::uint32_t larger = capacity ? capacity * 2 : 16;
    const std::size_t size = (std::size_t{larger} + skipped + spare) * sizeof(Entry);
    if (larger < capacity || size / sizeof(Entry) < larger)
        return false;
    auto* fresh = static_cast<Entry*>(NewAligned(size, line));
    if (!fresh)
        return false;
    fresh += skipped;
    if (entries)
    {
        std::copy(entries, entries + count, fresh);
        DeleteAligned(entries - skipped);
    }
    std::fill(fresh + count, fresh + larger + spare, Entry{UINT64_MAX, nullptr});
    entries = fresh;
    capacity = larger;
    return true;
}

// The tickets have run out: those that are here get new ones in their order, and a sorted array is a heap.
void EventHeap::Renumber() noexcept
{
    std::sort(entries, entries + count, [](const Entry& a, const Entry& b) { return a.order < b.order; });
    ticket = 0xFFFFFFFF;
    for (std::uint32_t i = count; i > 0; --i)
        entries[i - 1].order = (entries[i - 1].order >> 32 << 32) | --ticket;
}

} // namespace Zem
