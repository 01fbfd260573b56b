// Archives beside PhysFS and libzip on a stored zip of the same members.
//
// Archive/mount-open-read-close   a fresh mount, then every member is opened, read whole and closed, in stored order
// Archive/shuffled                the same in random order
// Archive/open-nowhere            a name that no location has
// Archive/open-seen               a member that was opened before, opened and closed again
//
// Members have 1 to 16 KiB, 8 KiB on average; the number of members is the argument. Both sides deliver into one buffer,
// of which a byte is consumed; files come from the page cache.
//
// With up to 10,000 files of this machine's /usr/include and /usr/share, each at most 64 KiB:
//
// Archive/real mount-read     a fresh mount, then every member is opened, read whole and closed
// Archive/real mount-list     a fresh mount, then every folder is listed, with sizes; libzip, which knows no folders, goes
//                             through its list
// Archive/real find           the names in the fullest folder that match a pattern, with sizes; libzip matches all names

#include "ArchiveCorpus.h"

#include <Bedrock/files/File.h>
#include <Bedrock/files/FileFind.h>
#include <Bedrock/memory/PString.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fnmatch.h>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <unistd.h>
#include <vector>

#if defined(BENCH_HAS_PHYSFS)
#include <physfs.h>
#endif
#if defined(BENCH_HAS_LIBZIP)
#include <zip.h>
#endif

namespace
{

using Zem::File;

std::string NameOf(int index)
{
    char name[64];
    std::snprintf(name, sizeof name, "models/level%02d/object%05d.mdl", index % 17, index);
    return name;
}

// The two files of one number of members.
struct Corpus
{
    std::string archive;
    std::string zip;
    std::vector<std::string> names;
    std::vector<std::string> shuffled;
};

const Corpus& CorpusOf(int members)
{
    static std::map<int, Corpus> made;
    Corpus& corpus = made[members];
    if (!corpus.names.empty())
        return corpus;
    std::mt19937 random(7);
    Bench::CorpusWriter writer(std::to_string(members));
    for (int i = 0; i < members; ++i)
    {
        corpus.names.push_back(NameOf(i));
        std::vector<char> payload(1024 + random() % (15 * 1024));
        for (char& c : payload)
            c = static_cast<char>(random());
        writer.Add(corpus.names.back(), payload);
    }
    writer.Finish();
    corpus.archive = writer.arcPath;
    corpus.zip = writer.zipPath;
    corpus.shuffled = corpus.names;
    std::shuffle(corpus.shuffled.begin(), corpus.shuffled.end(), random);
    return corpus;
}

// Files as they are: many small ones, in a deep tree with full and empty folders.
struct RealCorpus : Corpus
{
    std::string fullest; // folder, with its separator
    std::string wildcard;
    std::size_t matching = 0;
};

const RealCorpus& TheRealCorpus()
{
    static const RealCorpus corpus = []
    {
        namespace fs = std::filesystem;
        RealCorpus made;
        Bench::CorpusWriter writer("real");
        std::map<std::string, std::map<std::string, std::size_t>> kinds; // names by folder and extension
        std::set<std::string>
            folded; // of names that differ in case alone, which an archive does not tell apart, one is taken
        for (const char* root : {"/usr/include", "/usr/share"})
        {
            std::vector<fs::path> paths;
            for (const auto& entry :
                 fs::recursive_directory_iterator(root, fs::directory_options::skip_permission_denied))
                if (!entry.is_symlink() && entry.is_regular_file() && entry.file_size() <= 64 * 1024)
                    paths.push_back(entry.path());
            std::sort(paths.begin(), paths.end());
            for (const auto& path : paths)
            {
                const std::string name = path.string().substr(5);
                std::ifstream in(path, std::ios::binary);
                const std::vector<char> bytes{std::istreambuf_iterator<char>(in), {}};
                std::string lower = name;
                for (char& c : lower)
                    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
                if (made.names.size() == 10000 || name.size() >= File::Path::capacity || !in ||
                    !folded.insert(lower).second)
                    continue;
                writer.Add(name, bytes);
                made.names.push_back(name);
                ++kinds[name.substr(0, name.rfind('/') + 1)][path.extension().string()];
            }
        }
        writer.Finish();
        made.archive = writer.arcPath;
        made.zip = writer.zipPath;
        for (const auto& [folder, extensions] : kinds)
            for (const auto& [extension, count] : extensions)
                if (!extension.empty() && count > made.matching)
                {
                    made.fullest = folder;
                    made.wildcard = "*" + extension;
                    made.matching = count;
                }
        return made;
    }();
    return corpus;
}

char buffer[64 * 1024];

void Check(benchmark::State& state, bool good)
{
    if (!good)
        state.SkipWithError("not every member could be read or found");
}

// --------------------------------------------------------------------------------------------------------- Bedrock

struct BedrockSide
{
    explicit BedrockSide(const Corpus& corpus) { File::Subst("bench", corpus.archive.c_str(), false); }
    ~BedrockSide() { File::Subst("bench", nullptr, false); }

    bool Read(const std::string& name)
    {
        path.replace(6, std::string::npos, name);
        if (!file.Open(path.c_str(), File::ModeRead))
            return false;
        const std::uint32_t size = file.Size();
        const bool whole = size == 0 || file.Read(buffer, size, 1) == size;
        file.Close();
        return whole;
    }
    bool Open(const std::string& name)
    {
        path.replace(6, std::string::npos, name);
        if (!file.Open(path.c_str(), File::ModeRead))
            return false;
        file.Close();
        return true;
    }

    // Names and their sizes in a folder and all those below it.
    static std::size_t ListTree(const std::string& folder, std::uint64_t& bytes)
    {
        std::size_t files = 0;
        std::vector<std::string> below;
        File::Find found;
        for (bool more = found.Open(("bench:" + folder + "*").c_str()); more; more = found.Next())
            if (found.IsDir())
                below.push_back(folder + found.name.Text() + "/");
            else
            {
                ++files;
                bytes += found.size;
            }
        for (const auto& each : below)
            files += ListTree(each, bytes);
        return files;
    }
    std::size_t List(std::uint64_t& bytes) { return ListTree("", bytes); }
    std::size_t Find(const std::string& folder, const std::string& wildcard, std::uint64_t& bytes)
    {
        std::size_t files = 0;
        File::Find found;
        for (bool more = found.Open(("bench:" + folder + wildcard).c_str()); more; more = found.Next())
        {
            ++files;
            bytes += found.size;
        }
        return files;
    }

    std::string path = "bench:";
    File file;
};

// ---------------------------------------------------------------------------------------------------------- peers

#ifdef BENCH_HAS_PHYSFS
struct PhysFSSide
{
    explicit PhysFSSide(const Corpus& corpus)
    {
        PHYSFS_init("bench");
        PHYSFS_mount(corpus.zip.c_str(), "/", 1);
    }
    ~PhysFSSide() { PHYSFS_deinit(); }

    bool Read(const std::string& name)
    {
        PHYSFS_File* file = PHYSFS_openRead(name.c_str());
        if (!file)
            return false;
        const PHYSFS_sint64 size = PHYSFS_fileLength(file);
        const bool whole = PHYSFS_readBytes(file, buffer, static_cast<PHYSFS_uint64>(size)) == size;
        PHYSFS_close(file);
        return whole;
    }
    bool Open(const std::string& name)
    {
        PHYSFS_File* file = PHYSFS_openRead(name.c_str());
        if (!file)
            return false;
        PHYSFS_close(file);
        return true;
    }
    static std::size_t ListTree(const std::string& folder, std::uint64_t& bytes)
    {
        std::size_t files = 0;
        char** const names = PHYSFS_enumerateFiles(folder.c_str());
        for (char** name = names; *name; ++name)
        {
            const std::string full = folder.empty() ? *name : folder + "/" + *name;
            PHYSFS_Stat about;
            if (!PHYSFS_stat(full.c_str(), &about))
                continue;
            if (about.filetype == PHYSFS_FILETYPE_DIRECTORY)
                files += ListTree(full, bytes);
            else
            {
                ++files;
                bytes += static_cast<std::uint64_t>(about.filesize);
            }
        }
        PHYSFS_freeList(names);
        return files;
    }
    std::size_t List(std::uint64_t& bytes) { return ListTree("", bytes); }
    std::size_t Find(const std::string& folder, const std::string& wildcard, std::uint64_t& bytes)
    {
        std::size_t files = 0;
        char** const names = PHYSFS_enumerateFiles(folder.substr(0, folder.size() - 1).c_str());
        for (char** name = names; *name; ++name)
        {
            PHYSFS_Stat about;
            if (fnmatch(wildcard.c_str(), *name, FNM_CASEFOLD) != 0 || !PHYSFS_stat((folder + *name).c_str(), &about))
                continue;
            ++files;
            bytes += static_cast<std::uint64_t>(about.filesize);
        }
        PHYSFS_freeList(names);
        return files;
    }
};
#endif

#ifdef BENCH_HAS_LIBZIP
struct LibzipSide
{
    explicit LibzipSide(const Corpus& corpus) { zip = zip_open(corpus.zip.c_str(), ZIP_RDONLY, nullptr); }
    ~LibzipSide() { zip_discard(zip); }

    bool Read(const std::string& name)
    {
        const zip_int64_t index = zip_name_locate(zip, name.c_str(), 0);
        zip_stat_t about;
        if (index < 0 || zip_stat_index(zip, static_cast<zip_uint64_t>(index), 0, &about) != 0)
            return false;
        zip_file_t* file = zip_fopen_index(zip, static_cast<zip_uint64_t>(index), 0);
        if (!file)
            return false;
        const bool whole = zip_fread(file, buffer, about.size) == static_cast<zip_int64_t>(about.size);
        zip_fclose(file);
        return whole;
    }
    std::size_t Find(const std::string& folder, const std::string& wildcard, std::uint64_t& bytes)
    {
        std::size_t files = 0;
        const std::string pattern = folder + wildcard;
        const auto count = static_cast<zip_uint64_t>(zip_get_num_entries(zip, 0));
        for (zip_uint64_t i = 0; i < count; ++i)
        {
            zip_stat_t about;
            const char* const name = zip_get_name(zip, i, 0);
            if ((!wildcard.empty() && fnmatch(pattern.c_str(), name, FNM_PATHNAME | FNM_CASEFOLD) != 0) ||
                zip_stat_index(zip, i, 0, &about) != 0)
                continue;
            ++files;
            bytes += about.size;
        }
        return files;
    }
    std::size_t List(std::uint64_t& bytes) { return Find("", "", bytes); }
    zip_t* zip;
};
#endif

template <class Side>
void ReadAll(benchmark::State& state, const std::vector<std::string> Corpus::*names)
{
    const Corpus& corpus = CorpusOf(static_cast<int>(state.range(0)));
    bool good = true;
    for (auto _ : state)
    {
        Side side(corpus);
        for (const std::string& name : corpus.*names)
        {
            good &= side.Read(name);
            benchmark::DoNotOptimize(buffer[0]);
        }
    }
    Check(state, good);
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <class Side>
void OpenNowhere(benchmark::State& state)
{
    const Corpus& corpus = CorpusOf(static_cast<int>(state.range(0)));
    Side side(corpus);
    for (const std::string& name : corpus.names)
        side.Open(name);
    std::vector<std::string> missing;
    for (int i = 0; i < 1000; ++i)
        missing.push_back(NameOf(i) + ".none");
    bool found = false;
    std::size_t at = 0;
    for (auto _ : state)
    {
        found |= side.Open(missing[at]);
        at = at + 1 == missing.size() ? 0 : at + 1;
    }
    Check(state, !found);
}

template <class Side>
void OpenSeen(benchmark::State& state)
{
    const Corpus& corpus = CorpusOf(static_cast<int>(state.range(0)));
    Side side(corpus);
    for (const std::string& name : corpus.names)
        side.Open(name);
    bool good = true;
    std::size_t at = 0;
    for (auto _ : state)
    {
        good &= side.Open(corpus.shuffled[at]);
        at = at + 1 == corpus.shuffled.size() ? 0 : at + 1;
    }
    Check(state, good);
}

template <class Side>
void RealRead(benchmark::State& state)
{
    const Corpus& corpus = TheRealCorpus();
    bool good = true;
    for (auto _ : state)
    {
        Side side(corpus);
        for (const std::string& name : corpus.names)
        {
            good &= side.Read(name);
            benchmark::DoNotOptimize(buffer[0]);
        }
    }
    Check(state, good);
}

template <class Side>
void RealList(benchmark::State& state)
{
    const Corpus& corpus = TheRealCorpus();
    bool good = true;
    for (auto _ : state)
    {
        Side side(corpus);
        std::uint64_t bytes = 0;
        good &= side.List(bytes) == corpus.names.size();
        benchmark::DoNotOptimize(bytes);
    }
    Check(state, good);
}

template <class Side>
void RealFind(benchmark::State& state)
{
    const RealCorpus& corpus = TheRealCorpus();
    Side side(corpus);
    bool good = true;
    for (auto _ : state)
    {
        std::uint64_t bytes = 0;
        good &= side.Find(corpus.fullest, corpus.wildcard, bytes) == corpus.matching;
        benchmark::DoNotOptimize(bytes);
    }
    Check(state, good);
}

void Sizes(benchmark::internal::Benchmark* made)
{
    made->Arg(100)->Arg(1000)->Arg(10000)->Unit(benchmark::kMicrosecond);
}

template <class Side>
void RegisterReading(const std::string& who)
{
    Sizes(benchmark::RegisterBenchmark(("Archive/mount-open-read-close/" + who).c_str(),
                                       [](benchmark::State& state) { ReadAll<Side>(state, &Corpus::names); }));
    Sizes(benchmark::RegisterBenchmark(("Archive/shuffled/" + who).c_str(),
                                       [](benchmark::State& state) { ReadAll<Side>(state, &Corpus::shuffled); }));
    const auto real = [&](const char* work, void (*run)(benchmark::State&))
    {
        benchmark::RegisterBenchmark(("Archive/" + std::string(work) + "/" + who).c_str(), run)
            ->Unit(benchmark::kMicrosecond);
    };
    real("real mount-read", RealRead<Side>);
    real("real mount-list", RealList<Side>);
    real("real find", RealFind<Side>);
}

// For libraries with a name space; libzip looks into one archive that the caller holds.
template <class Side>
void RegisterOpening(const std::string& who)
{
    Sizes(benchmark::RegisterBenchmark(("Archive/open-nowhere/" + who).c_str(), OpenNowhere<Side>));
    Sizes(benchmark::RegisterBenchmark(("Archive/open-seen/" + who).c_str(), OpenSeen<Side>));
}

const bool registered = []
{
    RegisterReading<BedrockSide>("Bedrock");
    RegisterOpening<BedrockSide>("Bedrock");
#ifdef BENCH_HAS_PHYSFS
    RegisterReading<PhysFSSide>("PhysFS");
    RegisterOpening<PhysFSSide>("PhysFS");
#endif
#ifdef BENCH_HAS_LIBZIP
    RegisterReading<LibzipSide>("libzip");
#endif
    return true;
}();

} // namespace
