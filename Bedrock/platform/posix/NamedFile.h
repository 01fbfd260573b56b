#pragma once

#include <cstddef>

namespace Zem::Platform
{

/// Files in memory that stand for what processes of one user share by name.
///
/// A file lives as long as somebody has it open, told by locks and not by a count, so that a process that dies counts
/// for nothing: every opener holds a shared lock (`flock`) on it. Who gets it exclusively at opening is alone, and what
/// the file holds is a leftover; who gets it exclusively at closing is the last one, and removes it. One more file,
/// locked for the moment, keeps openers and closers apart, since changing a lock's kind is no single step.
class NamedFile
{
public:
    /// Path of the file for `name`; `kind` is the letter of a name space of its own. Characters that a file name cannot
    /// have are escaped, long names are shortened with a hash. False if the system has no place for such files.
    static bool MakePath(char (&path)[512], char kind, const char* name) noexcept;

    /// Holds off all openers and closers of the user while it lives.
    class Gate
    {
    public:
        Gate() noexcept;
        ~Gate();
        Gate(const Gate&) = delete;
        Gate& operator=(const Gate&) = delete;
        bool IsHeld() const noexcept { return file >= 0; }

    private:
        int file;
    };

    /// Opens or makes the file, with the gate held; -1 if that fails or the file is not the user's own. `isAlone` tells
    /// that nobody else has it: the file is empty then.
    static int Open(const char* path, bool& isAlone) noexcept;

    /// Closes the file, with the gate held, and removes it if this was the last opener.
    static bool Close(int file, const char* path) noexcept;
};

} // namespace Zem::Platform
