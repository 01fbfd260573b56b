#include <Bedrock/files/FolderNames.h>

#include <Bedrock/files/Path.h>
#include <Bedrock/memory/Alloc.h>
#include <Bedrock/platform/Folders.h>

#include <cstring>

namespace Zem
{

namespace
{

constexpr std::uint32_t readSize = 32768; // of names that one call of the system may deliver

} // namespace

FolderNames::~FolderNames()
{
    Alloc::Delete(text);
}

bool FolderNames::MakeRoom(std::uint32_t wanted)
{
    if (room - size >= wanted)
        return true;
    const std::uint32_t wider = room ? 2 * room : 2 * readSize;
    auto* block = wider > room ? static_cast<char*>(Alloc::New(wider)) : nullptr;
    if (!block)
        return false;
    if (size > 0)
        std::memcpy(block, text, size);
    Alloc::Delete(text);
    text = block;
    room = wider;
    return true;
}

std::uint32_t FolderNames::Add(const char* name)
{
    const auto length = static_cast<std::uint32_t>(std::strlen(name)) + 1;
    if (!MakeRoom(length))
        return 0xFFFFFFFF;
    const std::uint32_t at = size;
    std::memcpy(text + at, name, length);
    size += length;
    ++count;
    return at;
}

bool FolderNames::Read(Platform::FileHandle folder, const char* wildcard)
{
    for (;;)
    {
        if (!MakeRoom(readSize))
            return false;
        std::size_t got = 0;
        const std::uint32_t start = (size + 7) & ~7u;
        if (Platform::ReadNames(folder, text + start, room - start, got) != Platform::Status::Ok)
            return false;
        if (got == 0)
            return true;
        for (const char *name = text + start, *end = name + got; name < end;)
        {
            const std::size_t length = std::strlen(name) + 1;
            if (!wildcard || FilePath::IsMatch(name, wildcard))
            {
                std::memmove(text + size, name, length);
                size += static_cast<std::uint32_t>(length);
                ++count;
            }
            name += length;
        }
    }
}

} // namespace Zem
