#include <Bedrock/files/FileFind.h>

#include <Bedrock/files/FileSubArchive.h>
#include <Bedrock/files/FileSubstList.h>
#include <Bedrock/files/FolderListing.h>
#include <Bedrock/files/NameCase.h>
#include <Bedrock/host/Exception.h>
#include <Bedrock/memory/PString.h>

#include <cstdio>
#include <cstring>
#include <utility>

namespace Zem
{

namespace
{

bool IsSeparator(char c)
{
    return c == '/' || c == '\\';
}

const char* WithoutSeparators(const char* path)
{
    while (IsSeparator(*path))
        ++path;
    return path;
}

// Behind a word and its colon, without separators at the front.
const char* Inside(const char* path)
{
    return WithoutSeparators(FilePath::GetPath(path));
}

} // namespace

FileFind::FileFind() noexcept : searchHandle(-1), directory(""), wildcard(""), archive(nullptr), listing(nullptr)
{
    name = "";
}

FileFind::FileFind(const FileFind& other) : FileFind()
{
    *this = other;
}

FileFind& FileFind::operator=(const FileFind& other)
{
    if (this == &other)
        return *this;
    Close();
    FileEntry::operator=(other);
    directory = other.directory;
    wildcard = other.wildcard;
    seen = other.seen;
    for (FileSub* location : other.locations)
        if (locations.Add(location))
            location->AddUse();
    if (other.archive)
    {
        archive = other.archive;
        archive->AddUse();
        searchHandle = archive->CopyCursor(other.searchHandle);
    }
    else if (other.listing)
    {
        listing = other.listing;
        listing->AddRef();
        searchHandle = other.searchHandle;
    }
    return *this;
}

bool FileFind::Open(const char* pattern)
{
    if (!ReduceWildcard(pattern))
        return false;
    {
        const FileSubstList::Walk walk;
        if (FileSubstitute* subst = PString::Cache() ? directory.GetSubst() : nullptr)
        {
            directory.Del(0, static_cast<std::uint32_t>(Inside(directory) - directory.Text()));
            AddLocations(*subst);
            return Next();
        }
    }
    return FirstDirect(directory) && (!CheckFiles(true) || Next());
}

bool FileFind::Open(const char* pattern, const PString& subst)
{
    if (!ReduceWildcard(pattern))
        return false;
    {
        const FileSubstList::Walk walk;
        FileSubstitute* found = FileSubstList::Find(subst);
        if (!found)
            throw FileEx("FileFind", __LINE__, "Open() Subst not found");
        AddLocations(*found);
    }
    return Next();
}

// Splits the pattern; false for one that finds nothing. The place where another search stands is left.
bool FileFind::ReduceWildcard(const char* pattern)
{
    LeavePlace();
    // One byte is left for the separator that joining may add.
    if (!pattern || std::strlen(pattern) + 1 >= FilePath::capacity)
        return false;
    wildcard = pattern;
    wildcard.DelPath();
    directory = pattern;
    directory.DelName();
    return !std::strpbrk(directory, "*?");
}

// Puts the locations of a substitute on the list, and keeps them there: who is in use is not removed. The caller holds
// the substitute.
void FileFind::AddLocations(FileSubstitute& subst)
{
    const std::uint32_t before = locations.Count();
    subst.AddToSearch(locations);
    auto added = locations.Begin();
    added += before;
    for (; !added.IsEnd(); ++added)
        (*added)->AddUse();
}

void FileFind::Close()
{
    LeavePlace();
    for (FileSub* location : locations)
        location->ReleaseUse();
    locations.Clear();
    seen.Clear();
}

void FileFind::LeavePlace()
{
    if (archive)
    {
        archive->ReleaseCursor(searchHandle);
        std::exchange(archive, nullptr)->ReleaseUse();
    }
    if (listing)
        std::exchange(listing, nullptr)->Release();
    searchHandle = -1;
}

bool FileFind::Next()
{
    while (NextFile())
        if (!CheckFiles(false))
            return true;
    return false;
}

// The next name of whatever is being listed, be it known or not.
bool FileFind::NextFile()
{
    do
    {
        if (archive)
        {
            FilePath pattern = directory;
            pattern.AddPath(wildcard);
            if (archive->List(searchHandle, *this, WithoutSeparators(pattern)))
            {
                name.DelPath();
                return true;
            }
        }
        else if (searchHandle != -1 && NextDirect())
            return true;
    } while (NextSearch());
    return false;
}

// Goes on to the next location; false if none is left. One that has nothing to list is a place without names.
bool FileFind::NextSearch()
{
    LeavePlace();
    if (locations.IsEmpty())
        return false;
    FileSub* location = *locations.Last();
    locations.RemoveLast(); // its use goes over to the place
    if (location->IsKind(FileSub::KindArchive))
    {
        archive = dynamic_cast<FileSubArchive*>(location);
        if (archive)
        {
            searchHandle = archive->AcquireCursor();
            return true;
        }
    }
    else if (location->IsKind(FileSub::KindPath))
    {
        FilePath folder;
        auto* path = dynamic_cast<FileSubPath*>(location);
        if (path && path->Join(folder, Inside(directory)))
            OpenListing(folder);
    }
    location->ReleaseUse();
    return true;
}

void FileFind::OpenListing(const char* folder)
{
    listing = FolderListing::Read(folder, wildcard);
    if (FilePath path(folder); !listing && NameCase::Respell(path) == NameCase::Respelled::Whole)
        listing = FolderListing::Read(path, wildcard);
    if (listing)
        searchHandle = 0;
}

bool FileFind::FirstDirect(const char* folder)
{
    OpenListing(folder);
    return NextDirect();
}

bool FileFind::NextDirect()
{
    while (listing && static_cast<std::uint32_t>(searchHandle) < listing->Count())
        if (listing->Describe(static_cast<std::uint32_t>(searchHandle++), *this))
            return true;
    return false;
}

// Whether the name was delivered already; from now on it was. With no memory left to note it, it counts as new.
bool FileFind::CheckFiles(bool silent)
{
    return seen.Add(name, silent) == NameTree::Added::Known;
}

void FileFind::Dump()
{
    std::printf("\n");
    int number = 0;
    seen.Walk([&](const char* shown) { std::printf("%d. %s\n", number++, shown); });
}

} // namespace Zem
