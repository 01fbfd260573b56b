#pragma once

#include <Bedrock/files/Entry.h>
#include <Bedrock/memory/DynamicArray.h>
#include <Bedrock/platform/FileHandle.h>

#include <atomic>
#include <cstdint>

namespace Zem
{

/// The directory of an archive file, which stores none: built from the headers of its members, from the front, and only
/// as far as somebody needed it. What was read once stays.
///
/// A chunk counts when all of it is in the file. The first that does not ends the directory for the time being: a later
/// call looks again, since the archive may have grown. Nothing in the file is believed before it was compared with the
/// file's length.
/// Threads: no lock of its own; the archive's lock guards it. `FindKnown` alone needs no lock.
class ArchiveDirectory
{
public:
    /// What the payload of a member begins with. It never changes, so it is looked at once.
    enum class Content : std::uint8_t
    {
        Unknown,
        Plain,
        Stream, // compressed
    };

    /// One member.
    struct Record
    {
        Record* next = nullptr;       // in the order of the file
        std::uint64_t dataOffset = 0; // of the payload
        std::uint32_t payload = 0;    // bytes
        std::uint32_t hash = 0;       // of the folded name
        mutable std::atomic<Content> content{Content::Unknown};
        FileEntry entry; // as stored
    };

    constexpr ArchiveDirectory() noexcept = default;
    ~ArchiveDirectory();
    ArchiveDirectory(const ArchiveDirectory&) = delete;
    ArchiveDirectory& operator=(const ArchiveDirectory&) = delete;

    /// Begins the directory of an open file, behind its magic.
    void Attach(Platform::FileHandle file) noexcept { handle = file; }

    /// The first member of that name, ignoring case and the kind of separator; reads on in the file where the members
    /// known do not have it. Null: nowhere.
    const Record* Find(const char* name);

    /// The same among the members known already, on any thread at any time.
    const Record* FindKnown(const char* name) const;

    /// The member behind `last` in the file, or the first for null; reads on where needed. Null at the end.
    const Record* Next(const Record* last);

    /// Reads all there is to the end. The answer is where the next member goes: behind the last whole chunk. What lies
    /// behind it is the rest of an append that came to nothing.
    std::uint64_t ReadToEnd();

    /// Members known so far, and entries passed over because their name has no end.
    std::uint32_t Count() const noexcept { return count; }
    std::uint32_t Nameless() const noexcept { return nameless; }

    /// Copies the first `size` bytes of a member's payload to `dst` if they were read along with its header.
    bool TakeAhead(const Record& record, std::uint8_t* dst, std::uint32_t size) const noexcept;

    /// Forgets what was read ahead and how long the file is: somebody changed its end.
    void Refresh() noexcept;

    /// Some archive of this process grew: directories that keep from looking too often look again.
    static void NoteGrowth() noexcept;

private:
    // Look-ups go on without a lock while members are entered: a record is in its slot only when all of it is there, and a
    // table that became too small is kept, since somebody may be looking into it.
    struct Slot
    {
        std::atomic<std::uint32_t> hash{0};
        std::atomic<const Record*> record{nullptr}; // null: free
    };
    struct Table
    {
        Table* smaller;      // the one before
        std::uint32_t count; // of slots, a power of two

        Slot* Slots() noexcept { return reinterpret_cast<Slot*>(this + 1); }
        void Put(const Record& record) noexcept;
    };

    const Record* ReadMore();
    bool MayLook();
    bool Fetch(std::uint64_t offset, std::uint32_t bytes);
    bool EndsInFile(std::uint64_t end);
    bool Enter(const Record& record);
    const Record* Lookup(const char* name, std::uint32_t hash) const;

    // Small members share a read of this size, payloads and all, and one that is opened next has its payload there.
    // Behind a larger one only the next header is read.
    static constexpr std::uint32_t windowSize = 65536;
    static constexpr std::uint32_t smallChunk = windowSize / 4;

    Platform::FileHandle handle;
    DynamicArray<Record, 61> records;
    Record* firstRecord = nullptr;
    Record* lastRecord = nullptr;
    std::atomic<Table*> table{nullptr}; // open addressing, at most half full
    std::uint32_t count = 0;
    std::uint32_t nameless = 0;

    std::uint64_t scanned = 4;    // offset behind the last whole chunk
    std::uint64_t fileLength = 0; // as last asked
    std::uint64_t windowOffset = 0;
    std::uint32_t windowCount = 0;        // bytes read ahead
    std::uint32_t readAhead = windowSize; // bytes worth reading at once, as the last members were
    std::uint8_t* window = nullptr;

    std::uint32_t idleLooks = 0; // at the end of the file that found nothing, in a row
    std::uint32_t growthSeen = 0;
    std::int64_t lastLook = 0; // clock
};

} // namespace Zem
