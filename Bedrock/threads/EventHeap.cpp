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

void EventHeap::Remove(const DLListNode* event) noexcept
{
    std::uint32_t at = 0;
    while (entries[at].event != event)
        ++at;
    RemoveAt(at);
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
