#pragma once

#include <Bedrock/platform/FileHandle.h>

#include <cstddef>
#include <cstdint>

/// What the library needs of the system's files and folders.
///
/// Names are terminated text and use either separator: a backslash means a slash wherever it stands. A name that the
/// system cannot hold is `NotFound` or `Refused`. Every function answers with a `Status`, `Ok` being 0, and sets nothing
/// else on failure unless told otherwise; the system's own error code is not kept. Calls go on when a signal interrupts
/// them. Offsets and lengths are bytes in 64 bits. Nothing here moves or uses the position of a handle: every transfer
/// states its offset, so one handle may serve many threads at once. Nothing here allocates or throws.
namespace Zem::Platform
{

enum class Status : unsigned
{
    Ok,
    NotFound,    // no such name, or a level of it is no folder
    Exists,      // the name is taken
    Refused,     // permission, sharing, a folder in the place of a file, a read-only system
    Full,        // no room, or a quota
    TooLarge,    // past the largest file that the library or the system can hold
    CrossVolume, // a rename between two volumes
    Unsupported, // the system or this kind of file has no such operation
    Failed,      // everything else: the device
};

/// The longest file that is opened: lengths are 32 bits above this layer, and their last value means "not known".
inline constexpr std::uint64_t largestFile = 0xFFFFFFFEu;

/// What is known of a file. Times are seconds since the system's epoch.
struct FileInfo
{
    std::uint64_t length;
    std::int64_t modified;
    std::int64_t accessed;
    bool isFolder;
    bool isRegular; // a plain file, neither folder, device nor pipe
};

// ------------------------------------------------------------------------------------------------- open files

/// Opens or makes a file. `flags` are `OpenFlags`. A new file can be read and written by whom the user's defaults say.
///
/// A folder is `Refused`, as is a regular file that another user of the library holds in a way that `share` or his own
/// share excludes; a refused open changes nothing, so `OpenTruncate` never empties another user's file. A regular file
/// longer than `largestFile` is `TooLarge`. Sharing is kept for regular files, on file systems that can. Child
/// processes do not inherit the handle. If `info` is given it is filled; its length is as before `OpenTruncate`.
Status OpenFile(FileHandle& out, const char* name, unsigned flags, Share share, FileInfo* info = nullptr) noexcept;

/// Closes; the handle is gone whatever the answer. A failure tells that data written earlier may be lost.
Status CloseFile(FileHandle handle) noexcept;

/// Reads up to `size` bytes from `offset`. `got` is 0 at the end of the file and may be less than `size` anywhere:
/// whoever needs all of them asks again. On failure `got` is 0.
Status ReadAt(FileHandle handle, std::uint64_t offset, void* dst, std::size_t size, std::size_t& got) noexcept;

/// The same into two blocks in turn, in one call of the system.
Status ReadAt(FileHandle handle, std::uint64_t offset, void* first, std::size_t firstSize, void* second,
              std::size_t secondSize, std::size_t& got) noexcept;

/// Writes `size` bytes at `offset`, or at the end of a file opened with `OpenAppend`. `written` tells how many were
/// stored, on failure too (a full disk takes a part). Nothing is written past `largestFile`: `TooLarge`.
Status WriteAt(FileHandle handle, std::uint64_t offset, const void* src, std::size_t size,
               std::size_t& written) noexcept;

/// Cuts the file, or makes it longer with zeros.
Status SetLength(FileHandle handle, std::uint64_t length) noexcept;

/// Waits until data and length are on the device.
Status Commit(FileHandle handle) noexcept;

Status GetInfo(FileHandle handle, FileInfo& info) noexcept;

/// Makes who may read and write the file `to` the same as for `from`, as far as the user is allowed to.
Status CopyAccess(FileHandle from, FileHandle to) noexcept;

/// Whether `name` is the file that `handle` has open.
bool IsSame(FileHandle handle, const char* name) noexcept;

/// Keeps two writers of one file in step, also in two processes: waits for the file's one writer's lock, which is apart
/// from sharing. `Unsupported` on file systems without locks. Closing the handle lets go too.
Status LockWriter(FileHandle handle) noexcept;
void UnlockWriter(FileHandle handle) noexcept;

// ------------------------------------------------------------------------------------------------------ names

/// Whether the name exists, be it a file, a folder or something else. A trailing separator asks for a folder.
bool Exists(const char* name) noexcept;

Status GetInfo(const char* name, FileInfo& info) noexcept;

/// Deletes a file (not a folder).
Status Remove(const char* name) noexcept;

/// Renames; `Exists` if `to` is taken.
Status Rename(const char* from, const char* to) noexcept;

/// Renames onto `to`, replacing a file of that name in one step: at every moment `to` is the old file or the new.
Status Replace(const char* from, const char* to) noexcept;

/// Writes the name of the file itself behind `name`, links followed, to `out`; `name` as it is when it is no link.
Status FollowLinks(const char* name, char* out, std::size_t capacity) noexcept;

Status MakeFolder(const char* name) noexcept;
Status RemoveFolder(const char* name) noexcept;
Status ChangeFolder(const char* name) noexcept;

/// The current folder, terminated, without a trailing separator but for the root.
Status CurrentFolder(char* out, std::size_t capacity) noexcept;

/// Sets both times, in whole seconds.
Status SetTimes(const char* name, std::int64_t accessed, std::int64_t modified) noexcept;

/// Marks a file as hidden from, or visible in, listings. A system that hides by name keeps the name and only looks
/// whether the file is there.
Status SetHidden(const char* name, bool hidden) noexcept;

/// The number of this process that names of its temporary files begin with.
std::uint32_t TemporaryOwner() noexcept;

} // namespace Zem::Platform
