#include <Bedrock/files/NameCase.h>

#include <Bedrock/files/FoldedName.h>
#include <Bedrock/files/FolderNames.h>
#include <Bedrock/memory/HeapOperators.h>
#include <Bedrock/platform/Clock.h>
#include <Bedrock/platform/Folders.h>
#include <Bedrock/platform/Lock.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace Zem
{

namespace
{

using Platform::FolderStamp;
using Platform::Status;

// What is remembered at most. A folder of 10,000 names takes about 0.7 megabytes.
constexpr std::uint32_t mostFolders = 64;
constexpr std::uint32_t mostBytes = 16 << 20;
constexpr std::uint32_t mostBytesOfOne = mostBytes / 4 * 3;

// Two changes nearer than this may bear the same time: a tick of the kernel, with room to spare; where times are whole
// seconds, the two seconds of the coarsest file system.
constexpr std::int64_t fineTick = 50'000'000;
constexpr std::int64_t coarseTick = 2'100'000'000;
constexpr std::int64_t second = 1'000'000'000;

// Whoever makes names in a folder changes it each time. What was known of one whose listing takes longer than
// `longListing` serves him for `graceFactor` times as long, so that listing takes a fifth of his time at most.
constexpr std::int64_t longListing = 100'000; // nanoseconds
constexpr std::int64_t graceFactor = 4;

bool IsSeparator(char c)
{
    return c == '/' || c == '\\';
}

bool IsDots(const char* level, std::uint32_t length)
{
    return level[0] == '.' && (length == 1 || (length == 2 && level[1] == '.'));
}

// All names of one folder, by their folded hash.
class KnownFolder
{
    ZEM_HEAP_OPERATORS
public:
    // Null when the folder cannot be read or the heap is exhausted.
    static KnownFolder* Read(const char* name);
    ~KnownFolder() { Alloc::Delete(slots); }

    // The spelling of `name` in this folder, itself if it is there; null if it is not there in any case.
    const char* Find(const char* name) const;

    const FolderStamp& Stamp() const { return stamp; }
    // Whether this is what the folder of that stamp holds: it bears the same one, in which a change after the listing
    // would show.
    bool IsOf(const FolderStamp& now) const { return settled && stamp == now; }
    // Whether it may serve somebody who is about to make a name.
    bool ServesNew() const { return cost > longListing && NanosecondsNow() - listed < graceFactor * cost; }
    // Notes a name that is about to be made.
    void Add(const char* name);
    std::uint32_t Bytes() const { return names.Size() + slotCount * static_cast<std::uint32_t>(sizeof(Slot)); }

    std::uint64_t lastUse = 0;

private:
    struct Slot
    {
        std::uint32_t hash;
        std::uint32_t at; // 1 + the name's place; 0: free
    };

    static std::int64_t NanosecondsNow();
    bool BuildTable();
    void Put(std::uint32_t at);

    FolderStamp stamp;
    bool settled = false;
    std::int64_t listed = 0; // when
    std::int64_t cost = 0;   // how long that took, in nanoseconds
    FolderNames names;
    Slot* slots = nullptr; // open addressing, at most half full
    std::uint32_t slotCount = 0;
};

std::int64_t KnownFolder::NanosecondsNow()
{
    return static_cast<std::int64_t>(static_cast<double>(Platform::Counter()) * 1e9 /
                                     static_cast<double>(Platform::CounterFrequency()));
}

KnownFolder* KnownFolder::Read(const char* name)
{
    const std::int64_t begin = NanosecondsNow();
    Platform::FileHandle handle;
    if (Platform::OpenFolder(handle, name) != Status::Ok)
        return nullptr;
    auto* folder = new KnownFolder;
    if (folder)
    {
        const std::int64_t start = Platform::FileClock();
        FolderStamp after;
        bool whole = Platform::GetStamp(handle, folder->stamp) == Status::Ok;
        whole &= folder->names.Read(handle, nullptr);
        whole &= Platform::GetStamp(handle, after) == Status::Ok && after == folder->stamp;
        const bool coarse = after.modified % second == 0 && after.changed % second == 0;
        folder->settled = whole && start - std::max(after.modified, after.changed) > (coarse ? coarseTick : fineTick);
        if (!folder->BuildTable())
            delete std::exchange(folder, nullptr);
        else
        {
            folder->listed = NanosecondsNow();
            folder->cost = folder->listed - begin;
        }
    }
    Platform::CloseFile(handle);
    return folder;
}

// Makes a table with room for as many names again.
bool KnownFolder::BuildTable()
{
    std::uint32_t wanted = 16;
    while (wanted / 4 < names.Count())
        wanted *= 2;
    auto* table = static_cast<Slot*>(Alloc::New(std::size_t{wanted} * sizeof(Slot)));
    if (!table)
        return false;
    std::memset(static_cast<void*>(table), 0, std::size_t{wanted} * sizeof(Slot));
    Alloc::Delete(slots);
    slots = table;
    slotCount = wanted;
    for (std::uint32_t at = 0; at < names.Size(); at += static_cast<std::uint32_t>(std::strlen(names.Text() + at)) + 1)
        Put(at);
    return true;
}

void KnownFolder::Put(std::uint32_t at)
{
    const std::uint32_t hash = FoldedName::Hash(names.Text() + at);
    std::uint32_t slot = hash & (slotCount - 1);
    while (slots[slot].at)
        slot = (slot + 1) & (slotCount - 1);
    slots[slot] = {hash, at + 1};
}

// Without memory for it the name is not noted; a table that could not grow is still right as it is.
void KnownFolder::Add(const char* name)
{
    if (2 * (names.Count() + 1) > slotCount && !BuildTable())
        return;
    if (const std::uint32_t at = names.Add(name); at != 0xFFFFFFFF)
        Put(at);
}

const char* KnownFolder::Find(const char* name) const
{
    const std::uint32_t hash = FoldedName::Hash(name);
    const char* best = nullptr;
    for (std::uint32_t slot = hash & (slotCount - 1); slots[slot].at; slot = (slot + 1) & (slotCount - 1))
    {
        const char* candidate = names.Text() + slots[slot].at - 1;
        if (slots[slot].hash != hash || !FoldedName::Same(candidate, name))
            continue;
        if (std::strcmp(candidate, name) == 0)
            return candidate;
        if (!best || std::strcmp(candidate, best) < 0)
            best = candidate;
    }
    return best;
}

// The folders remembered, guarded by `lock`.
constinit Platform::Lock lock;
constinit KnownFolder* folders[mostFolders] = {};
constinit std::uint32_t folderCount = 0;
constinit std::uint32_t bytesKept = 0;
constinit std::uint64_t uses = 0;

void Forget(std::uint32_t index)
{
    bytesKept -= folders[index]->Bytes();
    delete folders[index];
    folders[index] = folders[--folderCount];
}

// Where the folder of that stamp stands, or `folderCount`.
std::uint32_t IndexOf(const FolderStamp& stamp)
{
    std::uint32_t index = 0;
    while (index < folderCount && !folders[index]->Stamp().IsSameFolder(stamp))
        ++index;
    return index;
}

void Remember(KnownFolder* folder)
{
    if (const std::uint32_t old = IndexOf(folder->Stamp()); old < folderCount)
        Forget(old);
    while (folderCount == mostFolders || bytesKept + folder->Bytes() > mostBytes)
    {
        std::uint32_t oldest = 0;
        for (std::uint32_t i = 1; i < folderCount; ++i)
            if (folders[i]->lastUse < folders[oldest]->lastUse)
                oldest = i;
        Forget(oldest);
    }
    folder->lastUse = ++uses;
    bytesKept += folder->Bytes();
    folders[folderCount++] = folder;
}

// Puts the spelling that `folder` has of a level in its place; false if it has none. Folded names are as long as they
// were. A name that `isNew` and is not there is noted. The folder is listed outside the lock, so that nobody waits for
// the disk.
bool FindLevel(const char* folder, const FolderStamp& stamp, char* level, std::uint32_t length, bool isNew)
{
    char name[FilePath::capacity];
    std::memcpy(name, level, length);
    name[length] = '\0';
    const auto ask = [&](KnownFolder& known)
    {
        const char* spelling = known.Find(name);
        if (spelling)
            std::memcpy(level, spelling, length);
        else if (isNew)
        {
            bytesKept -= known.Bytes();
            known.Add(name);
            bytesKept += known.Bytes();
        }
        return spelling != nullptr;
    };
    {
        const Platform::LockGuard guard(lock);
        if (const std::uint32_t index = IndexOf(stamp); index < folderCount)
        {
            KnownFolder& known = *folders[index];
            if (known.IsOf(stamp) || (isNew && known.ServesNew()))
            {
                known.lastUse = ++uses;
                return ask(known);
            }
        }
    }
    KnownFolder* fresh = KnownFolder::Read(folder);
    if (!fresh)
        return false;
    const Platform::LockGuard guard(lock);
    const bool kept = fresh->Bytes() <= mostBytesOfOne;
    if (kept)
        Remember(fresh);
    const bool found = kept ? ask(*fresh) : fresh->Find(name) != nullptr;
    if (!kept)
    {
        if (found)
            std::memcpy(level, fresh->Find(name), length);
        delete fresh;
    }
    return found;
}

} // namespace

void NameCase::Clear() noexcept
{
    const Platform::LockGuard guard(lock);
    while (folderCount > 0)
        Forget(folderCount - 1);
}

NameCase::Respelled NameCase::Respell(FilePath& path, bool isNew) noexcept
{
    auto end = path.Length();
    if (end == 0 || !Platform::NamesKeepCase())
        return Respelled::No;
    char text[FilePath::capacity];
    std::memcpy(text, path.Text(), end + 1);
    while (end > 1 && IsSeparator(text[end - 1])) // a folder may be named with a separator behind it
        --end;

    // The start of the level that ends at `at`.
    const auto levelStart = [&](std::uint32_t at)
    {
        while (at > 0 && !IsSeparator(text[at - 1]))
            --at;
        return at;
    };
    // The folder before `start`, spelled as it is now.
    char folder[FilePath::capacity];
    const auto folderBefore = [&](std::uint32_t start)
    {
        std::memcpy(folder, text, start);
        folder[start] = '\0';
        return folder;
    };

    // Up to the nearest folder that is there as it is spelled.
    const std::uint32_t lastStart = levelStart(end);
    std::uint32_t start = lastStart;
    FolderStamp stamp;
    while (Platform::GetStamp(folderBefore(start), stamp) != Status::Ok)
    {
        std::uint32_t above = start;
        while (above > 0 && IsSeparator(text[above - 1]))
            --above;
        if (above == 0)
            return Respelled::No;
        start = levelStart(above);
    }
    // From there down again.
    for (;;)
    {
        std::uint32_t stop = start;
        while (stop < end && !IsSeparator(text[stop]))
            ++stop;
        const bool found = IsDots(text + start, stop - start) ||
                           FindLevel(folder, stamp, text + start, stop - start, isNew && start == lastStart);
        if (start == lastStart)
        {
            if (std::memcmp(text, path.Text(), end) == 0)
                return Respelled::No;
            path = text;
            return found ? Respelled::Whole : Respelled::Folder;
        }
        for (start = stop; start < end && IsSeparator(text[start]);)
            ++start;
        if (!found || Platform::GetStamp(folderBefore(start), stamp) != Status::Ok)
            return Respelled::No;
    }
}

bool NameCase::Rename(FilePath& from, FilePath& to) noexcept
{
    if (!Exists(from))
        return false;
    if (!Platform::Exists(to))
    {
        const FilePath wanted = to;
        if (Respell(to) == Respelled::Whole)
        {
            // Taken, unless it is the name itself, which gets another case.
            if (!FoldedName::Same(from, to) || std::strcmp(from.GetFileName(), to.GetFileName()) != 0)
                return false;
            to.DelName();
            to.Add(wanted.GetFileName());
        }
    }
    return Platform::Rename(from, to) == Status::Ok;
}

} // namespace Zem
