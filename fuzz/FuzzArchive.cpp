// Any bytes as an archive: listed, searched, every member opened and read, one appended. Nothing may crash; a search finds
// what a walk over all members finds; what was there before the append is there afterwards, and the new member is found
// unless its name was taken.

#include <Bedrock/files/FileFind.h>
#include <Bedrock/files/FileSubArchive.h>
#include <Bedrock/files/FoldedName.h>
#include <Bedrock/host/Exception.h>
#include <Bedrock/memory/PString.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

using Zem::File;

namespace
{

constexpr std::size_t enough = 100000; // bytes of a member that are read

void Require(bool holds, const char* what)
{
    if (holds)
        return;
    std::fprintf(stderr, "%s\n", what);
    std::abort();
}

// What a reader gets of a name, with a mark for a failure in the middle.
std::string Contents(const std::string& name)
{
    std::string text;
    try
    {
        File file;
        if (!file.Open(("fuzz:" + name).c_str(), File::ModeRead))
            return "(not there)";
        char part[3000];
        for (std::uint32_t n; text.size() < enough && (n = file.Read(part, sizeof part, 1)) != 0;)
            text.append(part, n);
        if (file.Size() > 10)
        {
            file.SeekSet(7);
            file.Read(part, 1, 1);
        }
    }
    catch (const Zem::Exception&)
    {
        text += "(failed)";
    }
    return text;
}

std::vector<std::string> Names(const std::string& path)
{
    std::vector<std::string> names;
    Zem::FileSubArchive archive(path.c_str(), false);
    for (const char* pattern : {"*", "*/*", "*/*/*"})
    {
        const std::int32_t cursor = archive.AcquireCursor();
        File::Entry entry;
        while (names.size() < 50 && archive.Scan(cursor, entry, pattern, true, false))
            names.push_back(entry.name.Text());
        archive.ReleaseCursor(cursor);
    }
    return names;
}

// The search of a folder, which asks an index, against the scan, which looks at every member.
void CompareSearch(const std::string& path, const std::string& pattern)
{
    if (pattern.size() > 250 || pattern.find_first_of("/\\") == 0 || pattern.find(':') != std::string::npos ||
        pattern.find_first_of("*?") < pattern.find_last_of("/\\") + 1)
        return;
    std::vector<std::string> expected;
    std::set<std::string> seen;
    {
        Zem::FileSubArchive archive(path.c_str(), false);
        const std::int32_t cursor = archive.AcquireCursor();
        File::Entry entry;
        while (archive.Scan(cursor, entry, pattern.c_str(), true, false))
        {
            entry.name.DelPath();
            std::string folded = entry.name.Text();
            for (char& c : folded)
                c = static_cast<char>(Zem::FoldedName::Fold(c));
            if (seen.insert(folded).second)
                expected.push_back(entry.name.Text());
        }
    }
    std::vector<std::string> found;
    File::Find search;
    for (bool more = search.Open(("fuzz:" + pattern).c_str()); more; more = search.Next())
        found.push_back(search.name.Text());
    Require(found == expected, "a search and a scan differ");
}

void CompareSearches(const std::string& path, const std::vector<std::string>& names)
{
    for (const char* pattern : {"*", "*.*", "?*", ""})
        CompareSearch(path, pattern);
    for (std::size_t i = 0; i < names.size() && i < 10; ++i)
    {
        CompareSearch(path, names[i]);
        CompareSearch(path, names[i].substr(0, names[i].find_last_of("/\\") + 1) + "*");
        CompareSearch(path, names[i].substr(0, names[i].find_first_of("/\\") + 1) + "*");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size > 1 << 16)
        return 0;
    static const int memory = memfd_create("archive", 0);
    static const std::string path = "/proc/self/fd/" + std::to_string(memory);
    Require(ftruncate(memory, 0) == 0 && pwrite(memory, data, size, 0) == static_cast<ssize_t>(size), "no file");

    const std::vector<std::string> names = Names(path);
    File::Subst("fuzz", path.c_str(), true);
    CompareSearches(path, names);
    std::vector<std::string> before;
    for (const std::string& name : names)
        before.push_back(Contents(name));
    const bool taken = static_cast<bool>(File::Exists("fuzz:new member"));
    bool stored = false;
    try
    {
        File file;
        if (file.Open("fuzz:new member", File::ModeCreate | File::ModeWrite))
        {
            file.WriteLine("whole");
            file.Close();
            stored = true;
        }
    }
    catch (const Zem::Exception&)
    {
    }
    for (std::size_t i = 0; i < names.size(); ++i)
        Require(Contents(names[i]) == before[i], "an append changed a member");
    Require(!stored || taken || Contents("new member") == "whole", "a stored member is not found");
    File::Subst("fuzz", nullptr, false);
    // And so after a fresh look at the file.
    File::Subst("fuzz", path.c_str(), false);
    for (std::size_t i = 0; i < names.size(); ++i)
        Require(Contents(names[i]) == before[i], "an append changed a member on disk");
    Require(!stored || taken || Contents("new member") == "whole", "a stored member is not on disk");
    File::Subst("fuzz", nullptr, false);
    return 0;
}
