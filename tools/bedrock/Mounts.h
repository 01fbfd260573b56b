#pragma once

// The name space that --mount builds, and how a file argument becomes a path on disk.

#include "Console.h"

#include <string>
#include <string_view>
#include <vector>

namespace Tool
{

/// One --mount NAME=PATH[:ro].
struct Mount
{
    std::string name;
    std::string path; // ends in "/" for a folder
    bool readOnly;
    std::string alone; // a substitute that has this location and nothing else

    bool IsFolder() const { return path.back() == '/'; }
};

/// The mounts of this run, in the order of the command line; of two with one name the later is searched first.
class Mounts
{
public:
    /// Checks the texts and registers the substitutes. `writable` says whether the command writes at all: a command
    /// that only reads never opens an archive for writing.
    void Register(const std::vector<std::string>& texts, bool writable);

    /// Locations of the word before ":" in `name`, the one that is searched first in front; empty if `name` has no
    /// word or the word is not mounted.
    std::vector<const Mount*> Of(std::string_view name) const;

    bool IsMounted(std::string_view name) const { return !Of(name).empty(); }

    /// A name that `Zem::File` opens and that means exactly this path on disk. A path may hold colons, which mean a
    /// substitute to `Zem::File`: such a path goes through a folder of its own.
    std::string ForFile(const std::string& path, bool writable);
    /// The same for an input argument: one that is mounted is right as it is.
    std::string ForReading(const std::string& name) { return IsMounted(name) ? name : ForFile(name, false); }

    /// The path on disk where a command may read `name` directly: the argument itself, or the file in the first mounted
    /// folder that has it. Throws a `Failure` for a file that only a mounted archive has.
    std::string OnDisk(const std::string& name) const;

    /// Where an output `name` goes: the path on disk in the first writable location. Empty if that is an archive, and
    /// then `name` itself is what `Zem::File` writes to. Throws a `Failure` if no location can be written.
    std::string ForWriting(const std::string& name) const;

private:
    std::vector<Mount> mounts;
    unsigned folders = 0; // substitutes made by ForFile
};

/// The part behind "word:", without leading separators.
std::string_view BehindWord(std::string_view name);

} // namespace Tool
