// The directory of an archive: how it is read from the file, how names are found in it.

#include <Bedrock/files/ArchiveDirectory.h>

#include <Bedrock/files/ArchiveFormat.h>
#include <Bedrock/files/FoldedName.h>
#include <Bedrock/memory/Alloc.h>
#include <Bedrock/platform/Clock.h>
#include <Bedrock/platform/Files.h>

#include <atomic>
#include <cstring>
#include <new>

namespace Zem
{

namespace
{

using namespace ArchiveFormat;

// Appends by anybody in this process.
constinit std::atomic<std::uint32_t> growth{0};

// Looks at the end of the file cost a call of the system each. After so many in a row that found nothing, there is one
// a millisecond: enough to see what other processes append.
constexpr std::uint32_t freeLooks = 16;

} // namespace

ArchiveDirectory::~ArchiveDirectory()
{
    for (Table* gone = table.load(std::memory_order_relaxed); gone;)
    {
        Table* smaller = gone->smaller;
        Alloc::Delete(gone);
        gone = smaller;
    }
    Alloc::Delete(window);
}

void ArchiveDirectory::NoteGrowth() noexcept
{
    growth.fetch_add(1, std::memory_order_release);
}

void ArchiveDirectory::Refresh() noexcept
{
    windowCount = 0;
    fileLength = 0;
    idleLooks = 0;
}

const ArchiveDirectory::Record* ArchiveDirectory::Lookup(const char* name, std::uint32_t hash) const
{
    Table* const now = table.load(std::memory_order_acquire);
    if (!now)
        return nullptr;
    const Slot* const slots = now->Slots();
    const std::uint32_t mask = now->count - 1;
    for (std::uint32_t at = hash & mask;; at = (at + 1) & mask)
    {
        const Record* record = slots[at].record.load(std::memory_order_acquire);
        if (!record)
            return nullptr;
        if (slots[at].hash.load(std::memory_order_relaxed) == hash && FoldedName::Same(record->entry.name, name))
            return record;
    }
}

const ArchiveDirectory::Record* ArchiveDirectory::FindKnown(const char* name) const
{
    return Lookup(name, FoldedName::Hash(name));
}

const ArchiveDirectory::Record* ArchiveDirectory::Find(const char* name)
{
    const std::uint32_t hash = FoldedName::Hash(name);
    if (const Record* found = Lookup(name, hash))
        return found;
    if (!MayLook())
        return nullptr;
    while (const Record* more = ReadMore())
        if (more->hash == hash && FoldedName::Same(more->entry.name, name))
            return more;
    return nullptr;
}

const ArchiveDirectory::Record* ArchiveDirectory::Next(const Record* last)
{
    if (const Record* known = last ? last->next : firstRecord)
        return known;
    return ReadMore();
}

std::uint64_t ArchiveDirectory::ReadToEnd()
{
    Refresh();
    while (ReadMore())
    {
    }
    return scanned;
}

// Whether a look at the end of the file is due. While members are still being found it always is.
bool ArchiveDirectory::MayLook()
{
    if (idleLooks < freeLooks)
        return true;
    const std::uint32_t now = growth.load(std::memory_order_acquire);
    const std::int64_t clock = Platform::Counter();
    if (now == growthSeen && clock - lastLook < Platform::CounterFrequency() / 1000)
        return false;
    growthSeen = now;
    lastLook = clock;
    return true;
}

// Makes `bytes` bytes at `offset` lie in the window; false if the file does not have them.
bool ArchiveDirectory::Fetch(std::uint64_t offset, std::uint32_t bytes)
{
    if (offset >= windowOffset && offset + bytes <= windowOffset + windowCount)
        return true;
    if (!window && !(window = static_cast<std::uint8_t*>(Alloc::New(windowSize))))
        return false;
    const std::uint32_t wanted = readAhead > bytes ? readAhead : bytes;
    windowOffset = offset;
    windowCount = 0;
    while (windowCount < bytes)
    {
        std::size_t got = 0;
        if (Platform::ReadAt(handle, offset + windowCount, window + windowCount, wanted - windowCount, got) !=
                Platform::Status::Ok ||
            got == 0)
            return false;
        windowCount += static_cast<std::uint32_t>(got);
    }
    return true;
}

bool ArchiveDirectory::TakeAhead(const Record& record, std::uint8_t* dst, std::uint32_t size) const noexcept
{
    if (record.dataOffset < windowOffset || record.dataOffset + size > windowOffset + windowCount)
        return false;
    std::memcpy(dst, window + (record.dataOffset - windowOffset), size);
    return true;
}

bool ArchiveDirectory::EndsInFile(std::uint64_t end)
{
    if (end <= fileLength)
        return true;
    Platform::FileInfo info;
    if (Platform::GetInfo(handle, info) != Platform::Status::Ok)
        return false;
    fileLength = info.length;
    return end <= fileLength;
}

void ArchiveDirectory::Table::Put(const Record& record) noexcept
{
    Slot* const slots = Slots();
    std::uint32_t at = record.hash & (count - 1);
    while (slots[at].record.load(std::memory_order_relaxed))
        at = (at + 1) & (count - 1);
    slots[at].hash.store(record.hash, std::memory_order_relaxed);
    slots[at].record.store(&record, std::memory_order_release);
}

// Puts a member into the table; the first of a name stays the one that is found. False when the heap is exhausted.
bool ArchiveDirectory::Enter(const Record& record)
{
    Table* now = table.load(std::memory_order_relaxed);
    if (!now || 2 * (count + 1) > now->count)
    {
        const std::uint32_t slots = now ? 2 * now->count : 512;
        void* block = Alloc::New(sizeof(Table) + std::size_t{slots} * sizeof(Slot));
        if (!block)
            return false;
        auto* wider = new (block) Table{now, slots};
        for (std::uint32_t i = 0; i < slots; ++i)
            new (static_cast<void*>(wider->Slots() + i)) Slot;
        for (std::uint32_t i = 0; now && i < now->count; ++i)
            if (const Record* known = now->Slots()[i].record.load(std::memory_order_relaxed))
                wider->Put(*known);
        table.store(wider, std::memory_order_release);
        now = wider;
    }
    if (!Lookup(record.entry.name, record.hash))
        now->Put(record);
    return true;
}

// The next member in the file that is not in the directory yet; it is afterwards. Null where no whole chunk follows.
const ArchiveDirectory::Record* ArchiveDirectory::ReadMore()
{
    // A crash can leave zeros where an append had begun. They look like empty chunks; they count as such only if something
    // follows them, else they go with the torn end.
    for (std::uint64_t at = scanned;;)
    {
        if (!Fetch(at, chunkHeaderSize))
            break;
        const std::uint8_t* chunk = window + (at - windowOffset);
        const std::uint32_t length = Get32(chunk + 4);
        const std::uint64_t end = at + chunkHeaderSize + length;
        if (!IsId(chunk, "FIL "))
        {
            if (!EndsInFile(end))
                break;
            readAhead = length < smallChunk ? windowSize : memberHeaderSize;
            if (length != 0 || Get32(chunk) != 0)
                scanned = end;
            at = end;
            continue;
        }
        // The member's header is one read with the chunk's: it is nearly always there.
        if (length < entrySize || !EndsInFile(end) || !Fetch(at, memberHeaderSize))
            break;
        chunk = window + (at - windowOffset);
        Record* record = records.Emplace();
        if (!record)
            break;
        if (!Decode(record->entry, chunk + chunkHeaderSize))
        {
            ++nameless; // its slot stays unused
            scanned = at = end;
            continue;
        }
        record->dataOffset = at + memberHeaderSize;
        record->payload = length - entrySize;
        record->hash = FoldedName::Hash(record->entry.name);
        if (!Enter(*record))
            break;
        (lastRecord ? lastRecord->next : firstRecord) = record;
        lastRecord = record;
        ++count;
        scanned = end;
        idleLooks = 0;
        readAhead = length < smallChunk ? windowSize : memberHeaderSize;
        return record;
    }
    // What was read ahead may be the middle of somebody's append.
    windowCount = 0;
    if (idleLooks < freeLooks && ++idleLooks == freeLooks)
    {
        Alloc::Delete(window);
        window = nullptr;
    }
    return nullptr;
}

} // namespace Zem
