#pragma once

#include <Bedrock/Export.h>

#include <cstdint>

namespace Zem
{

class FileSubstitute;

/// A path or file name of up to 259 bytes and its terminator, edited in place; `File::Path` is its usual name.
///
/// Both "/" and "\\" separate folders, everywhere; what is added here is "/". A name may start with a word and a colon:
/// `word:rest` is the path `rest` inside the substitute `word`. The file name is what follows the last separator or
/// colon, and its extension begins at the last ".".
///
///     data:textures/sky.tga
///     |--| GetSubst         GetPath: behind the first ":"
///          |------| folder  GetFileName: sky.tga
///
/// An operation whose result would not fit its 260 bytes leaves the path as it was. A null text counts as an empty one
/// unless told otherwise. The default constructor leaves the bytes unset: assign before anything else. Bytes compare as
/// they are, and case is folded only where that is said. Nothing here touches the disk but `GetCwd`.
///
///     File::Path path("data:textures/sky.tga");
///     path.SetExt("bmp");                     // data:textures/sky.bmp
///     path.Make("save/", "slot1.sav");        // save/slot1.sav
///     if (path.IsMatch("save/*.sav;*.bak")) ...
class ZEM_API FilePath
{
public:
    static constexpr std::uint32_t capacity = 260; // bytes, terminator included

    FilePath() {}
    FilePath(const char* text);
    FilePath& operator=(const char* text);
    FilePath(const FilePath&) = default;
    FilePath& operator=(const FilePath&) = default;

    operator const char*() const { return text; }
    const char* Text() const { return text; }
    std::uint32_t Length() const;

    /// The last byte, 0 to 255; 0 for the empty path.
    std::uint32_t Last() const;

    /// Appends `more`, or at most its first `n` bytes; a negative `n` appends nothing.
    void Add(const char* more);
    void Add(const char* more, int n);

    /// Folds to lower case, byte by byte, as the process's locale has it.
    void ToLower();

    /// Becomes the current folder; the empty path when the system does not tell it or it does not fit.
    void GetCwd();

    // ------------------------------------------------------------------------------------------ parts of a name

    /// Behind the first ":", else the whole text.
    const char* GetPath() const { return GetPath(text); }
    static const char* GetPath(const char* path);

    /// Behind the last separator or colon, else the whole text.
    const char* GetFileName() const { return GetFileName(text); }
    static const char* GetFileName(const char* path);

    /// The substitute named before the first ":", or null. It lives as long as the substitute is registered.
    FileSubstitute* GetSubst() const { return GetSubst(text); }
    static FileSubstitute* GetSubst(const char* path);

    /// Keeps the file name only.
    void DelPath();
    /// Keeps the text through the last separator or colon; without one nothing is left.
    void DelName();
    /// Removes the base name, keeps folder and extension: `a/b.txt` becomes `a/.txt`, `a/b` becomes `a/`.
    void DelFileName();
    /// Removes what stands before the first ":"; the colon stays: `C:/a` becomes `:/a`.
    void DelDrive();
    /// Removes `n` bytes at `pos`, or all from `pos` on if there are fewer. Nothing for a `pos` at or past the end.
    void Del(std::uint32_t pos, std::uint32_t n);
    /// Removes the last folder level: `a/b/c.txt` becomes `a/c.txt`, `a/b/` becomes `a/`. Needs two separators.
    void PrevDir();
    /// Keeps the first level and the file name: `a/b/c/d.txt` becomes `a/d.txt`.
    void RootDir();

    /// Cuts the text at its last ".", wherever that stands, and appends `ext` with one "." before it; null appends none.
    void SetExt(const char* ext);
    /// Whether the extension is `ext`, given with or without its ".", ignoring case. Null asks for the empty path.
    bool IsExt(const char* ext) const;

    // ------------------------------------------------------------------------------------------------- joining

    /// Joins: `dir` without the file name behind its last separator, then `name` without one leading separator. A bare
    /// word names a substitute: `data` and `x` give `data:/x`; `.` gives `./x`, `C:` gives `C:/x`. An empty `dir` gives
    /// `name` as it is.
    void Make(const char* dir, const char* name);

    /// Appends a level, or its first `n` bytes, with one separator between: `a/` and `/b` give `a/b`.
    void AddPath(const char* more);
    void AddPath(const char* more, int n);

    /// Cuts the first level off and gives it; a leading separator belongs to it. `a/b/c` gives `a`, then `/b`, then
    /// `/c`, then empty paths.
    FilePath ExtractFirstPath();

    // ------------------------------------------------------------------------------------------------ wildcards

    /// Whether the name matches `pattern`: `*` any bytes but separators, `?` one byte but a separator, either separator
    /// for either, other bytes ignoring case; ";" parts alternatives of the file name, all in the folder that stands
    /// before the pattern's last separator. A star with nothing or "." behind it also matches at the name's end, so
    /// `*.` matches a name with no dot, `*.*` does not.
    ///
    /// A star is tried at one place at a time and goes back once: `*` before a byte stops at the first such byte, and on a
    /// later mismatch goes on behind it.
    ///
    /// If `subdir` is given it tells, for a name that does not match, where a leading part of it did: it points at the
    /// separator in `name` behind that part, so the name lies in a folder that the pattern names. Otherwise it is null.
    bool IsMatch(const char* pattern, const char** subdir = nullptr) const { return IsMatch(text, pattern, subdir); }
    static bool IsMatch(const char* name, const char* pattern, const char** subdir = nullptr);

private:
    char text[capacity];
};

static_assert(sizeof(FilePath) == 260);

} // namespace Zem
