#pragma once

#include <Bedrock/files/FileSub.h>
#include <Bedrock/platform/Lock.h>

#include <cstdint>

namespace Zem
{

/// All substitutes of the process, by name. Its one instance is there from the library's first initialisers on, and
/// deletes every substitute with its locations at the end of the process.
///
/// One recursive lock guards the list, the locations of every substitute and the walks over them, calls of the system
/// included. It is taken before the lock of an archive.
class FileSubstList
{
public:
    constexpr FileSubstList() noexcept = default;
    ~FileSubstList();
    FileSubstList(const FileSubstList&) = delete;
    FileSubstList& operator=(const FileSubstList&) = delete;

    /// The substitute of that name, or null. Good until it is removed; who holds a `Guard` keeps it from that.
    static FileSubstitute* Find(const PString& name) noexcept;
    /// A new substitute without locations. Throws FileEx when the heap is exhausted.
    static FileSubstitute* Insert(const PString& name);
    /// Removes the substitute with its locations; links to it go dead. Throws FileEx, changing nothing, if there is no
    /// such substitute or files are open through it.
    static void Remove(const PString& name);

    /// Holds the lock for a scope.
    class Guard
    {
    public:
        Guard() noexcept : guard(lock) {}

    private:
        Platform::LockGuard guard;
    };

private:
    static FileSubstList instance;
    static Platform::Lock lock;

    FileSubstitute* head = nullptr; // in ascending order of the address of their interned names
    std::uint32_t count = 0;
};

} // namespace Zem
