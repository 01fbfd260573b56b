#pragma once

#include <Bedrock/platform/FileHandle.h>
#include <Bedrock/platform/Files.h>

#include <cstddef>
#include <cstdint>

/// Folders: their names, what each of them is, and whether a folder has changed. The rules of `Files.h` hold here too.
namespace Zem::Platform
{

/// The longest name in a folder, in bytes.
inline constexpr std::size_t longestName = 255;

/// Opens a folder for reading its names; the empty name is the current folder. `NotFound` if there is none, or a file in
/// its place. `CloseFile` closes it.
Status OpenFolder(FileHandle& out, const char* name) noexcept;

/// Stores the next names of the folder in `names`, one behind the other, each with its terminator: `used` bytes, 0 when
/// there are no more. "." and ".." are among them; the order is the system's. `capacity` is 4,096 at least, the address a
/// multiple of 8. This moves on in the folder, so one thread reads from one handle.
Status ReadNames(FileHandle folder, char* names, std::size_t capacity, std::size_t& used) noexcept;

/// What a name in a folder is. Times are seconds since the system's epoch.
struct NameInfo
{
    std::uint64_t length;
    std::int64_t created; // where the system does not know that, the oldest of its times
    std::int64_t accessed;
    std::int64_t modified;
    bool isFolder;
    bool isReadOnly; // nobody may write it
    bool isHidden;
};

/// `name` is one level, as `ReadNames` gave it. A link that leads nowhere tells about itself.
Status GetInfo(FileHandle folder, const char* name, NameInfo& info) noexcept;

/// Which folder a name is, and the state of its names: it differs from an older stamp when names came or went since,
/// unless that was within one tick of the file system's clock.
struct FolderStamp
{
    std::uint64_t volume = 0;
    std::uint64_t identity = 0;
    std::int64_t modified = 0; // nanoseconds
    std::int64_t changed = 0;

    bool IsSameFolder(const FolderStamp& other) const { return identity == other.identity && volume == other.volume; }
    friend bool operator==(const FolderStamp&, const FolderStamp&) = default;
};

Status GetStamp(const char* folder, FolderStamp& stamp) noexcept;
Status GetStamp(FileHandle folder, FolderStamp& stamp) noexcept;

/// The clock that local file systems take their times from, in nanoseconds.
std::int64_t FileClock() noexcept;

/// Whether file systems may tell names apart that differ in case alone. Where not, every name is found in any case.
bool NamesKeepCase() noexcept;

} // namespace Zem::Platform
