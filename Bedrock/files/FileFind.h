#pragma once

#include <Bedrock/Export.h>
#include <Bedrock/files/Entry.h>
#include <Bedrock/files/File.h>
#include <Bedrock/files/NameTree.h>
#include <Bedrock/files/Path.h>
#include <Bedrock/memory/DynamicArray.h>
#include <Bedrock/memory/HeapOperators.h>

#include <cstdint>

namespace Zem
{

class FileSubArchive;
class FolderListing;

/// Lists the names that match a wildcard; `File::Find` is its usual name. The object is the current result: after an
/// `Open` or `Next` that gave true its `name`, `size`, `attributes` and times describe one file or folder.
///
/// A pattern is a folder and, behind its last separator or colon, a wildcard by the rules of `File::Path::IsMatch`, a
/// list with ";" too: `data:textures/*.tga;*.bmp`. In a substitute the search sees all its locations, those behind links
/// included, as one folder: each name once, without regard to case, in the spelling of the location visited first. Those
/// are the locations that `File::Open` asks last: links come before folders and archives, the oldest before the newest.
/// Elsewhere it lists a folder on disk. The folder of the pattern is found in any case, as names that are opened are.
///
/// The names of a folder on disk are those of the moment when it was its turn, "." and ".." first, then in the order of
/// their bytes; one that is deleted meanwhile is passed over. Members of an archive come in the order in which they were
/// added. An archive stores no folders: a member below the one listed shows as a read-only folder of the next level.
///
/// Results never carry a folder. What the disk fails to deliver is where the names end; nothing is thrown for it. While
/// a search in a substitute goes on, the substitute cannot be removed.
/// Threads: one object belongs to one thread at a time.
///
///     File::Find found;
///     for (bool more = found.Open("data:textures/*.tga"); more; more = found.Next())
///         std::printf("%s %u\n", found.name.Text(), found.size);
class ZEM_API FileFind : public FileEntry
{
    ZEM_HEAP_OPERATORS
public:
    FileFind() noexcept;
    /// A copy is a search of its own: it goes on from the same place.
    FileFind(const FileFind& other);
    FileFind& operator=(const FileFind& other);
    ~FileFind() { Close(); }

    /// Begins a search and delivers the first name; false if there is none. A wildcard in the folder finds nothing. A search
    /// that is going on ends, but names that it delivered are not delivered again, and locations that it has not visited
    /// yet are visited too: `Close` first.
    bool Open(const char* pattern);
    /// The same in the named substitute, of which `pattern` is a path. Throws FileEx "Open() Subst not found".
    bool Open(const char* pattern, const PString& subst);

    /// Delivers the next name; false behind the last.
    bool Next();

    /// Ends the search and forgets what it delivered; it may be called at any time.
    void Close();

    /// Prints the names delivered so far in lower case, in order: a line feed, then "%d. %s\n" for each, from 0. The first
    /// of a search outside substitutes is not among them.
    void Dump();

private:
    bool ReduceWildcard(const char* pattern);
    void AddLocations(FileSubstitute& subst);
    bool NextFile();
    bool NextSearch();
    void OpenListing(const char* folder);
    bool FirstDirect(const char* folder);
    bool NextDirect();
    bool CheckFiles(bool silent);
    void LeavePlace();

    std::int32_t searchHandle; // the next name of `listing`, or the cursor in `archive`; -1: neither
    FilePath directory;
    FilePath wildcard;
    DynamicArray<FileSub*, 13> locations; // still to visit, each counted as in use
    NameTree seen;
    FileSubArchive* archive; // being listed, counted as in use
    FolderListing* listing;  // being delivered, shared with copies of this search
};

} // namespace Zem
