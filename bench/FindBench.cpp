// Searches beside std::filesystem with fnmatch, and beside the system's own calls.
//
// Find/list N names            names, sizes, times and kinds of all of N files of a folder that match "*.tga;*.mdl" (all
//                              do), merged with an archive of N members, half of which the folder has too: 1.5 N names.
//                              The peers list the folder alone: std::filesystem asks each entry for its size, its time
//                              and its status, readdir calls fstatat once.
// Find/one of ten of N names   the same with a pattern that a tenth of the names matches
// Find/names only N names      the same as the first, but std::filesystem takes the names alone. Bedrock's result always
//                              tells size, times and attributes, so it makes a call of the system for each file that
//                              matches. Find/names only, one of ten of N names likewise
// Find/folder N names          Bedrock lists the folder alone too, as std::filesystem does in the first
//
// Names come from the page cache. The folder's names are in random case and were made in random order.

#include "ArchiveCorpus.h"

#include <Bedrock/files/File.h>
#include <Bedrock/files/FileFind.h>
#include <Bedrock/memory/PString.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <dirent.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <map>
#include <random>
#include <sys/stat.h>

namespace
{

using Zem::File;

// A folder and an archive of `count` names each, mounted as "both<count>", the folder alone as "alone<count>".
const std::string& FolderOf(int count)
{
    static std::map<int, std::string> made;
    std::string& folder = made[count];
    if (!folder.empty())
        return folder;
    folder = Bench::Scratch("find" + std::to_string(count) + "/");
    std::filesystem::create_directories(folder);
    std::mt19937 random(5);
    std::vector<std::string> names;
    Bench::CorpusWriter writer("find" + std::to_string(count));
    for (int i = 0; i < count + count / 2; ++i)
    {
        char name[64];
        std::snprintf(name, sizeof name, "%s%05d.%s", random() % 2 ? "object" : "Object", i, i % 10 ? "mdl" : "tga");
        if (i < count)
            names.push_back(name);
        if (i >= count / 2)
            writer.Add(name, std::vector<char>(100));
    }
    writer.Finish();
    std::shuffle(names.begin(), names.end(), random);
    for (const auto& name : names)
        std::ofstream(folder + name) << name;
    const std::string number = std::to_string(count);
    File::Subst(("both" + number).c_str(), folder.c_str(), false);
    File::Subst(("both" + number).c_str(), writer.arcPath.c_str(), false);
    File::Subst(("alone" + number).c_str(), folder.c_str(), false);
    return folder;
}

struct Total
{
    std::uint64_t names = 0;
    std::uint64_t bytes = 0;
    std::uint64_t times = 0;
};

void Bedrock(const std::string& pattern, Total& total)
{
    File::Find found;
    for (bool more = found.Open(pattern.c_str()); more; more = found.Next())
    {
        ++total.names;
        total.bytes += found.size;
        total.times += static_cast<std::uint64_t>(found.timeWrite.seconds) + found.IsDir();
    }
}

bool Matches(const char* name, bool tenth)
{
    return fnmatch("*.tga", name, FNM_CASEFOLD) == 0 || (!tenth && fnmatch("*.mdl", name, FNM_CASEFOLD) == 0);
}

void Filesystem(const std::string& folder, bool tenth, bool namesOnly, Total& total)
{
    for (const auto& entry : std::filesystem::directory_iterator(folder))
    {
        const std::string name = entry.path().filename();
        if (!Matches(name.c_str(), tenth))
            continue;
        ++total.names;
        if (namesOnly)
            continue;
        total.bytes += entry.file_size();
        total.times += static_cast<std::uint64_t>(entry.last_write_time().time_since_epoch().count());
        total.times += entry.status().type() == std::filesystem::file_type::directory;
    }
}

void Readdir(const std::string& folder, bool tenth, Total& total)
{
    DIR* const open = opendir(folder.c_str());
    while (const dirent* entry = readdir(open))
    {
        struct stat about;
        if (!Matches(entry->d_name, tenth) || fstatat(dirfd(open), entry->d_name, &about, 0) != 0)
            continue;
        ++total.names;
        total.bytes += static_cast<std::uint64_t>(about.st_size);
        total.times += static_cast<std::uint64_t>(about.st_mtime) + S_ISDIR(about.st_mode);
    }
    closedir(open);
}

template <class Work>
void Add(const std::string& work, const std::string& who, int count, std::uint64_t expected, Work list)
{
    benchmark::RegisterBenchmark(("Find/" + work + "/" + who).c_str(),
                                 [=](benchmark::State& state)
                                 {
                                     FolderOf(count);
                                     for (auto _ : state)
                                     {
                                         Total total;
                                         list(total);
                                         benchmark::DoNotOptimize(total);
                                         if (total.names != expected)
                                             state.SkipWithError("not all names were listed");
                                     }
                                 })
        ->Unit(benchmark::kMicrosecond);
}

const bool registered = []
{
    for (const int count : {100, 1000, 10000})
    {
        const std::string number = std::to_string(count);
        const std::string names = " " + number + " names";
        const auto all = static_cast<std::uint64_t>(count);
        const auto bedrock = [number](const char* word, const char* pattern)
        { return [=](Total& total) { Bedrock(word + number + ":" + pattern, total); }; };
        const auto filesystem = [count](bool tenth, bool namesOnly)
        { return [=](Total& total) { Filesystem(FolderOf(count), tenth, namesOnly, total); }; };
        const auto readdirs = [count](bool tenth)
        { return [=](Total& total) { Readdir(FolderOf(count), tenth, total); }; };
        Add("list" + names, "Bedrock", count, all + all / 2, bedrock("both", "*.tga;*.mdl"));
        Add("list" + names, "std::filesystem", count, all, filesystem(false, false));
        Add("list" + names, "readdir", count, all, readdirs(false));
        Add("one of ten of" + names, "Bedrock", count, (all + all / 2) / 10, bedrock("both", "*.tga"));
        Add("one of ten of" + names, "std::filesystem", count, all / 10, filesystem(true, false));
        Add("one of ten of" + names, "readdir", count, all / 10, readdirs(true));
        Add("names only" + names, "Bedrock", count, all + all / 2, bedrock("both", "*.tga;*.mdl"));
        Add("names only" + names, "std::filesystem", count, all, filesystem(false, true));
        Add("names only, one of ten of" + names, "Bedrock", count, (all + all / 2) / 10, bedrock("both", "*.tga"));
        Add("names only, one of ten of" + names, "std::filesystem", count, all / 10, filesystem(true, true));
        Add("folder" + names, "Bedrock", count, all, bedrock("alone", "*.tga;*.mdl"));
        Add("folder" + names, "std::filesystem", count, all, filesystem(false, false));
        Add("folder" + names, "readdir", count, all, readdirs(false));
    }
    return true;
}();

} // namespace
