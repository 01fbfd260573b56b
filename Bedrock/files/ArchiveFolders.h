#pragma once

#include <Bedrock/files/ArchiveDirectory.h>
#include <Bedrock/memory/DynamicArray.h>

#include <cstddef>
#include <cstdint>

namespace Zem
{

/// The folders that the names in an archive imply, so that listing one costs its own names and not the whole archive.
///
/// A folder has a child for each member that lies right in it, and one for each folder in it: the first member below
/// that. Children stand in the order of the file. Folders are told apart as names are, without case and separators.
/// Threads: the archive's lock guards it.
class ArchiveFolders
{
public:
    using Record = ArchiveDirectory::Record;

    struct Child
    {
        const Record* record;
        Child* next;
    };

    struct Folder
    {
        const char* name; // of a member in it; the first `length` bytes are the folder, through its separator
        std::uint32_t length;
        std::uint32_t hash;
        Child* first;
        Child* last;
    };

    constexpr ArchiveFolders() noexcept = default;
    ~ArchiveFolders();
    ArchiveFolders(const ArchiveFolders&) = delete;
    ArchiveFolders& operator=(const ArchiveFolders&) = delete;

    /// Enters a member; they come in the order of the file. False when the heap is exhausted: what is known then lacks
    /// names, and always will.
    bool Enter(const Record& record);

    /// The folder named by the first `length` bytes of `name`, through its last separator, or by none: the top. Null if
    /// no member entered so far lies in it.
    const Folder* Find(const char* name, std::size_t length) const;

    /// The member entered last.
    const Record* Last() const noexcept { return last; }
    bool IsWhole() const noexcept { return whole; }

private:
    Folder* Lookup(const char* name, std::size_t length, std::uint32_t hash) const;
    Folder* Make(const char* name, std::size_t length, std::uint32_t hash);
    bool Widen();

    DynamicArray<Child, 126> children;
    DynamicArray<Folder, 50> folders;
    Folder** slots = nullptr; // open addressing, at most half full
    std::uint32_t slotCount = 0;
    std::uint32_t folderCount = 0;
    const Record* last = nullptr;
    bool whole = true;
};

} // namespace Zem
