// The list of substitutes, and what `File` and `File::Path` do with it: registering and looking up by name.

#include <Bedrock/files/FileSubstList.h>

#include <Bedrock/files/NameCase.h>
#include <Bedrock/host/Exception.h>
#include <Bedrock/memory/PString.h>

#include <cstring>

namespace Zem
{

constinit Platform::Lock FileSubstList::lock;
constinit FileSubstList::Lane FileSubstList::lanes[laneCount] = {};

namespace
{

// The order of the list says nothing of the texts; it lets a look-up end early.
bool IsBelow(const PString& a, const PString& b)
{
    return reinterpret_cast<std::uintptr_t>(a.GetNode()) < reinterpret_cast<std::uintptr_t>(b.GetNode());
}

const char* Text(const PString& text)
{
    const char* bytes = text;
    return bytes ? bytes : "";
}

} // namespace

// Excludes every walk. Always taken in the same order, so that two removals don't stop each other.
class FileSubstList::AllLanes
{
public:
    AllLanes() noexcept
    {
        for (Lane& lane : lanes)
            lane.lock.Enter();
    }
    ~AllLanes()
    {
        for (Lane& lane : lanes)
            lane.lock.Leave();
    }
    AllLanes(const AllLanes&) = delete;
    AllLanes& operator=(const AllLanes&) = delete;
};

// A lane that is free, or the thread's own from a walk further out: entered once. Threads start to look at different
// lanes, told apart by where their stacks are, so they rarely meet. Only a removal, or more walks than lanes, take all;
// a thread that holds a lane never comes to wait then, since that one lets it in.
Platform::Lock& FileSubstList::TakeLane() noexcept
{
    const char here = 0;
    const auto stack = static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(&here) >> 16);
    const auto first = static_cast<unsigned>(stack * 0x9E3779B97F4A7C15 >> 59);
    static_assert(laneCount == 1u << (64 - 59));
    for (unsigned i = 0; i < laneCount; ++i)
        if (Platform::Lock& lane = lanes[(first + i) % laneCount].lock; lane.TryEnter())
            return lane;
    lanes[first].lock.Enter();
    return lanes[first].lock;
}

// At the end of the process nobody else is left to keep out.
FileSubstList::~FileSubstList()
{
    for (FileSubstitute* node = head.load(std::memory_order_relaxed); node;)
    {
        FileSubstitute* gone = node;
        node = node->next.load(std::memory_order_relaxed);
        delete gone;
    }
    head.store(nullptr, std::memory_order_relaxed);
    count = 0;
    NameCase::Clear();
}

FileSubstitute* FileSubstList::Find(const PString& name) noexcept
{
    FileSubstitute* node = instance.head.load(std::memory_order_acquire);
    while (node && IsBelow(node->substName, name))
        node = node->next.load(std::memory_order_acquire);
    return node && node->substName == name ? node : nullptr;
}

FileSubstitute* FileSubstList::Find(const char* name, std::size_t length) noexcept
{
    FileSubstitute* node = instance.head.load(std::memory_order_acquire);
    while (node && (node->substName.Length() != length || std::memcmp(Text(node->substName), name, length) != 0))
        node = node->next.load(std::memory_order_acquire);
    return node;
}

FileSubstitute* FileSubstList::Insert(const PString& name)
{
    FileSubstitute* made = new FileSubstitute(name);
    if (!made)
        throw FileEx("FileSubstList", __LINE__, "Subst() Out of memory");
    Guard guard;
    std::atomic<FileSubstitute*>* link = &instance.head;
    FileSubstitute* behind = link->load(std::memory_order_relaxed);
    while (behind && IsBelow(behind->substName, name))
    {
        link = &behind->next;
        behind = link->load(std::memory_order_relaxed);
    }
    made->next.store(behind, std::memory_order_relaxed);
    link->store(made, std::memory_order_release);
    ++instance.count;
    return made;
}

void FileSubstList::Remove(const PString& name)
{
    const AllLanes alone;
    Guard guard;
    FileSubstitute* removed = Find(name);
    const char* wrong = !removed                   ? "Closing non-existant subst?"
                        : removed->UseCount() != 0 ? "Files are open through it"
                                                   : nullptr;
    if (wrong)
    {
        FileEx failure("FileSubstList", __LINE__);
        failure.SetReasonf("Subst(%s) %s", Text(name), wrong);
        throw failure;
    }
    for (FileSubstitute* node = instance.head; node; node = node->next)
        node->SubstRemoved(name);
    std::atomic<FileSubstitute*>* link = &instance.head;
    while (*link != removed)
        link = &link->load()->next;
    link->store(removed->next);
    --instance.count;
    delete removed;
}

void File::Subst(const PString& name, const char* path, bool writable)
{
    if (!path)
        return FileSubstList::Remove(name);
    // Made before the lock is taken: opening an archive may take its time.
    FileSub* location = FileSubstitute::NewLocation(name, path, writable);
    FileSubstList::Guard guard;
    FileSubstitute* substitute = FileSubstList::Find(name);
    try
    {
        if (!substitute)
            substitute = FileSubstList::Insert(name);
    }
    catch (const FileEx&)
    {
        delete location;
        throw;
    }
    substitute->Add(location);
}

void File::SubstLink(const PString& name, const PString& other)
{
    FileSubstList::Guard guard;
    FileSubstitute* target = FileSubstList::Find(other);
    if (!target)
    {
        FileEx failure("File", __LINE__);
        failure.SetReasonf("SubstLink(%s,%s) Other subst (%s) not found", Text(name), Text(other), Text(other));
        throw failure;
    }
    FileSubstitute* substitute = FileSubstList::Find(name);
    if (!substitute)
        substitute = FileSubstList::Insert(name);
    substitute->AddLink(target);
}

File::Result File::SubstExists(const PString& subst)
{
    const FileSubstList::Walk walk;
    return FileSubstList::Find(subst) ? RES_OK : RES_SUBSTNOTFOUND;
}

FileSubstitute* FilePath::GetSubst(const char* path)
{
    const char* colon = path ? std::strchr(path, ':') : nullptr;
    if (!colon || colon - path >= static_cast<std::ptrdiff_t>(capacity))
        return nullptr;
    const FileSubstList::Walk walk;
    return FileSubstList::Find(path, static_cast<std::size_t>(colon - path));
}

} // namespace Zem
