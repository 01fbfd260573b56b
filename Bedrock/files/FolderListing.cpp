#include <Bedrock/files/FolderListing.h>

#include <Bedrock/memory/Alloc.h>
#include <Bedrock/platform/Folders.h>

#include <algorithm>
#include <cstring>

namespace Zem
{

namespace
{

bool IsDots(const char* name)
{
    return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

// Eight bytes of a name as a number that orders as they do.
std::uint64_t Key(const char* name)
{
    std::uint64_t key = 0;
    for (int i = 0; i < 8; ++i)
    {
        key = key << 8 | static_cast<unsigned char>(*name);
        name += *name != '\0';
    }
    return key;
}

} // namespace

FolderListing::~FolderListing()
{
    if (folder.IsOpen())
        Platform::CloseFile(folder);
    Alloc::Delete(items);
}

FolderListing* FolderListing::Read(const char* name, const char* wildcard)
{
    Platform::FileHandle handle;
    if (Platform::OpenFolder(handle, name) != Platform::Status::Ok)
        return nullptr;
    auto* listing = new FolderListing;
    if (!listing)
    {
        Platform::CloseFile(handle);
        return nullptr;
    }
    listing->AddRef();
    listing->folder = handle;
    listing->names.Read(handle, wildcard);
    listing->Sort();
    return listing;
}

// What all names begin with is left out of the keys, so that these tell most names apart.
void FolderListing::Sort()
{
    const char* const text = names.Text();
    count = names.Count();
    items = count ? static_cast<Item*>(Alloc::New(std::size_t{count} * sizeof(Item))) : nullptr;
    if (!items)
    {
        count = 0;
        return;
    }
    std::uint32_t dots = 0;
    std::uint32_t next = 0;
    const char* sample = nullptr;
    std::size_t common = 0;
    for (std::uint32_t at = 0; at < names.Size(); at += static_cast<std::uint32_t>(std::strlen(text + at)) + 1)
    {
        items[next].at = at;
        if (IsDots(text + at))
            std::swap(items[next].at, items[dots++].at);
        else if (!sample)
        {
            sample = text + at;
            common = std::strlen(sample);
        }
        else
        {
            std::size_t same = 0;
            while (same < common && sample[same] == text[at + same])
                ++same;
            common = same;
        }
        ++next;
    }
    for (std::uint32_t i = dots; i < count; ++i)
        items[i].key = Key(text + items[i].at + common);
    std::sort(items + dots, items + count,
              [text](const Item& a, const Item& b)
              { return a.key != b.key ? a.key < b.key : std::strcmp(text + a.at, text + b.at) < 0; });
    if (dots == 2 && text[items[0].at + 1] == '.')
        std::swap(items[0].at, items[1].at);
}

bool FolderListing::Describe(std::uint32_t index, FileEntry& entry) const
{
    const char* name = names.Text() + items[index].at;
    Platform::NameInfo info;
    if (Platform::GetInfo(folder, name, info) != Platform::Status::Ok)
        return false;
    entry.name = name;
    entry.size = info.isFolder ? 0 : static_cast<std::uint32_t>(std::min<std::uint64_t>(info.length, 0xFFFFFFFF));
    entry.storedSize = entry.size;
    entry.crc = 0;
    entry.timeCreate = static_cast<std::int32_t>(info.created);
    entry.timeAccess = static_cast<std::int32_t>(info.accessed);
    entry.timeWrite = static_cast<std::int32_t>(info.modified);
    entry.attributes = static_cast<std::uint16_t>((info.isFolder ? FileEntry::Directory : 0) |
                                                  (info.isReadOnly ? FileEntry::ReadOnly : 0) |
                                                  (info.isHidden ? FileEntry::Hidden : 0));
    entry.reserved = 0;
    return true;
}

} // namespace Zem
