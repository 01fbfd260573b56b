// Any bytes as an archive: listed, every member opened and read, one appended. Nothing may crash; what was there before
// the append is there afterwards, and the new member is found unless its name was taken.

#include <Bedrock/files/FileSubArchive.h>
#include <Bedrock/host/Exception.h>
#include <Bedrock/memory/PString.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
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
