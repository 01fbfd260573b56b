#pragma once

#include <Bedrock/files/FileSub.h>
#include <Bedrock/platform/Lock.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace Zem
{

/// All substitutes of the process, by name. Its one instance is there from the library's first initialisers on, and
/// deletes every substitute with its locations at the end of the process.
///
/// Two things keep the list, and the locations of every substitute, as they are while somebody goes through them:
///
/// - A `Walk` is held over every search for a name, calls of the system included. Any number of threads walk at once and
///   do not wait for each other; only a removal waits until nobody walks, and keeps new walks waiting meanwhile.
/// - A `Guard`, one at a time, is held by whoever adds or removes. What is added is linked in so that walks see it whole
///   or not at all. A removal makes sure that nobody walks first.
///
/// Order: `Walk`, `Guard`, the lock of an archive. Who holds a `Guard` never begins a `Walk`.
class FileSubstList
{
public:
    constexpr FileSubstList() noexcept = default;
    ~FileSubstList();
    FileSubstList(const FileSubstList&) = delete;
    FileSubstList& operator=(const FileSubstList&) = delete;

    /// The substitute of that name, or null. Good until it is removed; the caller holds a `Walk` or a `Guard`, which keeps
    /// it from that.
    static FileSubstitute* Find(const PString& name) noexcept;
    /// The same by the text of its name, which need not be interned for that.
    static FileSubstitute* Find(const char* name, std::size_t length) noexcept;
    /// A new substitute without locations. Throws FileEx when the heap is exhausted.
    static FileSubstitute* Insert(const PString& name);
    /// Removes the substitute with its locations; links to it go dead. Throws FileEx, changing nothing, if there is no
    /// such substitute or files are open through it.
    static void Remove(const PString& name);

    /// Keeps every substitute and location for a scope. A thread may begin another one inside.
    class Walk
    {
    public:
        Walk() noexcept : lane(TakeLane()), guard(lane) { lane.Leave(); }

    private:
        Platform::Lock& lane;
        Platform::LockGuard guard;
    };

    /// Holds the one lock of those who change the list for a scope.
    class Guard
    {
    public:
        Guard() noexcept : guard(lock) {}

    private:
        Platform::LockGuard guard;
    };

private:
    // A walk holds one of them, whichever is free; a removal holds them all.
    struct alignas(64) Lane
    {
        Platform::Lock lock;
    };
    static constexpr unsigned laneCount = 32;
    class AllLanes;

    static Platform::Lock& TakeLane() noexcept;

    static FileSubstList instance;
    static Platform::Lock lock;
    static Lane lanes[laneCount];

    std::atomic<FileSubstitute*> head{nullptr}; // in ascending order of the address of their interned names
    std::uint32_t count = 0;
};

} // namespace Zem
