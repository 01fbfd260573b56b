#pragma once

#include <Bedrock/files/Entry.h>
#include <Bedrock/files/FolderNames.h>
#include <Bedrock/memory/ReferenceCount.h>
#include <Bedrock/platform/FileHandle.h>

#include <cstdint>

namespace Zem
{

/// The names that a folder had at one moment, "." and ".." first and the others in the order of their bytes, whatever
/// order the file system keeps. It holds the folder open, so that what a name is can still be asked when the current
/// folder is another one by then.
///
/// Names and their order never change, so copies of a search share one listing.
class FolderListing final : public ReferenceCount
{
public:
    /// The names that match `wildcard`, by the rules of `FilePath::IsMatch`; null if there is no such folder. When the
    /// disk or the heap fails on the way, the names end there.
    static FolderListing* Read(const char* folder, const char* wildcard);

    std::uint32_t Count() const noexcept { return count; }

    /// The name `index` and what is known of it; false if it is gone meanwhile.
    bool Describe(std::uint32_t index, FileEntry& entry) const;

private:
    struct Item
    {
        std::uint64_t key; // eight bytes of the name in their order, behind what all names begin with
        std::uint32_t at;  // of the name, in `names`
    };

    FolderListing() = default;
    ~FolderListing() override;

    void Sort();

    Platform::FileHandle folder;
    FolderNames names;
    std::uint32_t count = 0;
    Item* items = nullptr;
};

} // namespace Zem
