#include <Bedrock/files/ArchiveFolders.h>

#include <Bedrock/files/FoldedName.h>
#include <Bedrock/memory/Alloc.h>

#include <cstring>

namespace Zem
{

ArchiveFolders::~ArchiveFolders()
{
    Alloc::Delete(slots);
}

ArchiveFolders::Folder* ArchiveFolders::Lookup(const char* name, std::size_t length, std::uint32_t hash) const
{
    if (slotCount == 0)
        return nullptr;
    for (std::uint32_t at = hash & (slotCount - 1); slots[at]; at = (at + 1) & (slotCount - 1))
        if (slots[at]->hash == hash && slots[at]->length == length && FoldedName::Same(slots[at]->name, name, length))
            return slots[at];
    return nullptr;
}

const ArchiveFolders::Folder* ArchiveFolders::Find(const char* name, std::size_t length) const
{
    return Lookup(name, length, FoldedName::Hash(name, length));
}

bool ArchiveFolders::Widen()
{
    const std::uint32_t wider = slotCount ? 2 * slotCount : 64;
    auto** table = static_cast<Folder**>(Alloc::New(std::size_t{wider} * sizeof(Folder*)));
    if (!table)
        return false;
    std::memset(static_cast<void*>(table), 0, std::size_t{wider} * sizeof(Folder*));
    for (Folder& folder : folders)
    {
        std::uint32_t at = folder.hash & (wider - 1);
        while (table[at])
            at = (at + 1) & (wider - 1);
        table[at] = &folder;
    }
    Alloc::Delete(slots);
    slots = table;
    slotCount = wider;
    return true;
}

ArchiveFolders::Folder* ArchiveFolders::Make(const char* name, std::size_t length, std::uint32_t hash)
{
    if (2 * (folderCount + 1) > slotCount && !Widen())
        return nullptr;
    Folder* folder = folders.Add(Folder{name, static_cast<std::uint32_t>(length), hash, nullptr, nullptr});
    if (!folder)
        return nullptr;
    ++folderCount;
    std::uint32_t at = hash & (slotCount - 1);
    while (slots[at])
        at = (at + 1) & (slotCount - 1);
    slots[at] = folder;
    return folder;
}

// From the innermost folder outwards, as far as folders are new: those above know of the first one that was there.
bool ArchiveFolders::Enter(const Record& record)
{
    const char* name = record.entry.name;
    std::size_t length = std::strlen(name);
    for (bool known = false; whole && !known;)
    {
        while (length > 0 && FoldedName::Fold(name[length - 1]) != '/')
            --length;
        const std::uint32_t hash = FoldedName::Hash(name, length);
        Folder* folder = Lookup(name, length, hash);
        known = folder || length == 0;
        if (!folder)
            folder = Make(name, length, hash);
        Child* child = folder ? children.Add(Child{&record, nullptr}) : nullptr;
        whole = child != nullptr;
        if (!child)
            break;
        (folder->last ? folder->last->next : folder->first) = child;
        folder->last = child;
        if (length > 0)
            --length; // the separator: on to the folder around this one
    }
    last = &record;
    return whole;
}

} // namespace Zem
