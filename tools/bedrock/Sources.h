#pragma once

// What `archive create` and `archive add` are to store: files on disk and in mounts, each with its member name.

#include "Mounts.h"
#include "Output.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Zem
{
class File;
}

namespace Tool
{

struct Source
{
    std::string member;
    std::string path; // on disk, or NAME:PATH
    bool onDisk;
    std::uint64_t size;
    std::uint64_t device; // with `inode`: which file on disk this is
    std::uint64_t inode;
};

/// All files of `names`, sorted by the bytes of their member names, so that equal files give equal archives.
///
/// A folder gives the files below it, named from there; what is no regular file in it is passed over with a note, and
/// folders behind symbolic links are not entered. A file gives itself under its own name. `under` goes in front of all.
/// Throws a `Failure` for a name that the archive could not hold, or not find again: two that differ only in case.
std::vector<Source> Collect(const Mounts& mounts, const std::vector<std::string>& names, const std::string& under,
                            Messages& messages);

/// Why a file on disk cannot be opened to be read: the system's text, or "is a folder"; empty if it can.
std::string WhyNotReadable(const std::string& path);

/// Reads a source, or any file argument, from start to end.
///
/// Bytes come as stored from disk; a file of a mount comes as the library serves it, expanded if it is compressed.
class Reader
{
public:
    Reader(const std::string& name, bool onDisk);
    ~Reader();
    Reader(Reader&&) noexcept;

    /// Up to `size` bytes; 0 at the end.
    std::size_t Read(void* dst, std::size_t size);

private:
    std::string path;
    Descriptor disk;
    std::unique_ptr<Zem::File> file;
};

} // namespace Tool
