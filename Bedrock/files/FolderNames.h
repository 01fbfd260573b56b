#pragma once

#include <Bedrock/platform/FileHandle.h>

#include <cstdint>

namespace Zem
{

/// The names in a folder at one moment, in the order in which the file system tells them.
class FolderNames
{
public:
    constexpr FolderNames() noexcept = default;
    ~FolderNames();
    FolderNames(const FolderNames&) = delete;
    FolderNames& operator=(const FolderNames&) = delete;

    /// Reads those that match `wildcard`, or all of them for null. False when the disk or the heap failed: what was read
    /// until then is there.
    bool Read(Platform::FileHandle folder, const char* wildcard);

    /// Appends one more name; its place, or 0xFFFFFFFF when the heap is exhausted.
    std::uint32_t Add(const char* name);

    /// The names, one behind the other, each with its terminator.
    const char* Text() const noexcept { return text; }
    std::uint32_t Size() const noexcept { return size; }
    std::uint32_t Count() const noexcept { return count; }

private:
    bool MakeRoom(std::uint32_t wanted);

    char* text = nullptr;
    std::uint32_t room = 0;
    std::uint32_t size = 0; // bytes in `text`
    std::uint32_t count = 0;
};

} // namespace Zem
