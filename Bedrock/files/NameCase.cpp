#include <Bedrock/files/NameCase.h>

#include <Bedrock/files/FoldedName.h>
#include <Bedrock/files/FolderNames.h>
#include <Bedrock/memory/HeapOperators.h>
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

// What is remembered at most. A folder of 10,000 names takes about half a megabyte.
constexpr std::uint32_t mostFolders = 64;
constexpr std::uint32_t mostBytes = 8 << 20;
constexpr std::uint32_t mostBytesOfOne = mostBytes / 2;

// Two changes nearer than this may bear the same time: a tick of the kernel, with room to spare; where times are whole
// seconds, the two seconds of the coarsest file system.
constexpr std::int64_t fineTick = 50'000'000;
constexpr std::int64_t coarseTick = 2'100'000'000;
constexpr std::int64_t second = 1'000'000'000;

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
    // Whether a change after the listing shows in the stamp.
    bool IsSettled() const { return settled; }
    std::uint32_t Bytes() const { return names.Size() + slotCount * static_cast<std::uint32_t>(sizeof(Slot)); }

    std::uint64_t lastUse = 0;

private:
    struct Slot
    {
        std::uint32_t hash;
        std::uint32_t at; // 1 + the name's place; 0: free
    };

    bool BuildTable();

    FolderStamp stamp;
    bool settled = false;
    FolderNames names;
    Slot* slots = nullptr; // open addressing, at most half full
    std::uint32_t slotCount = 0;
};

KnownFolder* KnownFolder::Read(const char* name)
{
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
    }
    Platform::CloseFile(handle);
    return folder;
}

bool KnownFolder::BuildTable()
{
    slotCount = 16;
    while (slotCount / 2 < names.Count())
        slotCount *= 2;
    slots = static_cast<Slot*>(Alloc::New(std::size_t{slotCount} * sizeof(Slot)));
    if (!slots)
        return false;
    std::memset(static_cast<void*>(slots), 0, std::size_t{slotCount} * sizeof(Slot));
    for (std::uint32_t at = 0; at < names.Size();)
    {
        const char* name = names.Text() + at;
        const std::uint32_t hash = FoldedName::Hash(name);
        std::uint32_t slot = hash & (slotCount - 1);
        while (slots[slot].at)
            slot = (slot + 1) & (slotCount - 1);
        slots[slot] = {hash, at + 1};
        at += static_cast<std::uint32_t>(std::strlen(name)) + 1;
    }
    return true;
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
// were. The folder is listed outside the lock, so that nobody waits for the disk.
bool FindLevel(const char* folder, const FolderStamp& stamp, char* level, std::uint32_t length)
{
    char name[FilePath::capacity];
    std::memcpy(name, level, length);
    name[length] = '\0';
    {
        const Platform::LockGuard guard(lock);
        if (const std::uint32_t index = IndexOf(stamp); index < folderCount)
        {
            KnownFolder& known = *folders[index];
            if (known.IsSettled() && known.Stamp() == stamp)
            {
                known.lastUse = ++uses;
                const char* spelling = known.Find(name);
                if (spelling)
                    std::memcpy(level, spelling, length);
                return spelling != nullptr;
            }
        }
    }
    KnownFolder* fresh = KnownFolder::Read(folder);
    if (!fresh)
        return false;
    const char* spelling = fresh->Find(name);
    if (spelling)
        std::memcpy(level, spelling, length);
    if (fresh->IsSettled() && fresh->Bytes() <= mostBytesOfOne)
    {
        const Platform::LockGuard guard(lock);
        Remember(fresh);
    }
    else
        delete fresh;
    return spelling != nullptr;
}

} // namespace

void NameCase::Clear() noexcept
{
    const Platform::LockGuard guard(lock);
    while (folderCount > 0)
        Forget(folderCount - 1);
}

NameCase::Respelled NameCase::Respell(FilePath& path) noexcept
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
        const bool found = IsDots(text + start, stop - start) || FindLevel(folder, stamp, text + start, stop - start);
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
