#pragma once

#include <Bedrock/files/Path.h>
#include <Bedrock/platform/Files.h>

#include <cstdint>

namespace Zem
{

/// Names on disk as content has them: found in any case where the file system tells cases apart.
///
/// The exact spelling comes first, everywhere; only a name that is not there is looked for in other ones, level by level.
/// A level that exists as it is spelled is taken as it is; of several other spellings the first in the order of bytes.
///
/// What folders hold is remembered, so that a name that is nowhere costs one look at its folder's times and no listing.
/// A folder whose times differ is listed anew, and so is one that was listed so soon after its last change that another
/// change may bear the same time. Names about to be made are noted, so that whoever fills a large folder does not list it
/// for each of them. Memory is bounded: folders not asked for longest are forgotten, and one with very many
/// names is listed each time. Every operation may be called on any thread; none of them throws.
class NameCase
{
public:
    enum class Respelled : std::uint8_t
    {
        No,     // nothing else was found; the path is as it was
        Folder, // the folder has another spelling, in which the path is now; the name itself is not there
        Whole,  // the path is now the name of something that is there
    };

    /// Looks for another spelling of a path that does not exist in its own.
    static Respelled Respell(FilePath& path) noexcept { return Respell(path, false); }

    /// The same for a name that is about to be made if it is not found. Of a large folder what was known some milliseconds
    /// ago will do: other programs may have changed it since, as they may between any look and the making.
    static Respelled RespellNew(FilePath& path) noexcept { return Respell(path, true); }

    /// `operation(path)` on the exact spelling, then on another one that exists.
    template <class Operation>
    static Platform::Status Find(FilePath& path, Operation operation)
    {
        const Platform::Status status = operation(path);
        if (status != Platform::Status::NotFound || Respell(path) != Respelled::Whole)
            return status;
        return operation(path);
    }

    /// Whether the name exists in any case; the path becomes the spelling that does.
    static bool Exists(FilePath& path) noexcept
    {
        return Platform::Exists(path) || (Respell(path) == Respelled::Whole && Platform::Exists(path));
    }

    /// Renames a name given in any case; false also if `to` is taken in another case. A name may change its own case.
    static bool Rename(FilePath& from, FilePath& to) noexcept;

    /// Forgets all folders.
    static void Clear() noexcept;

private:
    static Respelled Respell(FilePath& path, bool isNew) noexcept;
};

} // namespace Zem
