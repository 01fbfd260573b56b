// Archives beside PhysFS and libzip on a stored zip of the same members.
//
// Archive/mount-open-read-close   a fresh mount, then every member is opened, read whole and closed, in stored order
// Archive/shuffled                the same in random order
// Archive/open-nowhere            a name that no location has
// Archive/open-seen               a member that was opened before, opened and closed again
//
// Members have 1 to 16 KiB, 8 KiB on average; the number of members is the argument. Both sides deliver into one buffer,
// of which a byte is consumed; files come from the page cache.

#include <Bedrock/files/File.h>
#include <Bedrock/memory/PString.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
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

void Put(std::vector<char>& to, std::uint64_t value, int bytes)
{
    for (int i = 0; i < bytes; ++i)
        to.push_back(static_cast<char>(value >> 8 * i));
}

// Written here for both formats, so that neither side's writer has a say.
const Corpus& CorpusOf(int members)
{
    static std::vector<std::unique_ptr<Corpus>> made;
    for (const auto& corpus : made)
        if (static_cast<int>(corpus->names.size()) == members)
            return *corpus;
    auto corpus = std::make_unique<Corpus>();
    const auto folder = std::filesystem::temp_directory_path();
    const std::string stem = (folder / ("bedrock-bench-" + std::to_string(getpid()) + "-")).string();
    corpus->archive = stem + std::to_string(members) + ".arc";
    corpus->zip = stem + std::to_string(members) + ".zip";
    std::mt19937 random(7);
    std::ofstream arc(corpus->archive, std::ios::binary);
    std::ofstream zip(corpus->zip, std::ios::binary);
    arc.write("ARCHINFO\x20\0\0\0"
              "0CRA\x01\xF1\0\0",
              20);
    arc.write(std::string(24, '\0').data(), 24);
    std::vector<char> central;
    std::uint32_t crcTable[256];
    for (std::uint32_t i = 0; i < 256; ++i)
    {
        std::uint32_t c = i;
        for (int bit = 0; bit < 8; ++bit)
            c = c & 1 ? c >> 1 ^ 0xEDB88320 : c >> 1;
        crcTable[i] = c;
    }
    std::uint64_t zipAt = 0;
    for (int i = 0; i < members; ++i)
    {
        const std::string name = NameOf(i);
        corpus->names.push_back(name);
        std::vector<char> payload(1024 + random() % (15 * 1024));
        for (char& c : payload)
            c = static_cast<char>(random());
        const auto size = static_cast<std::uint32_t>(payload.size());

        std::vector<char> chunk;
        chunk.insert(chunk.end(), {'F', 'I', 'L', ' '});
        Put(chunk, 288 + size, 4);
        chunk.insert(chunk.end(), name.begin(), name.end());
        chunk.resize(8 + 260);
        Put(chunk, size, 4);
        chunk.resize(8 + 284);
        Put(chunk, size, 4);
        arc.write(chunk.data(), static_cast<std::streamsize>(chunk.size()));
        arc.write(payload.data(), size);

        std::uint32_t crc = 0xFFFFFFFF;
        for (const char c : payload)
            crc = crcTable[(crc ^ static_cast<unsigned char>(c)) & 255] ^ crc >> 8;
        crc = ~crc;
        std::vector<char> fields; // what both headers share
        Put(fields, 10, 2);
        Put(fields, 0, 2);
        Put(fields, 0, 2);
        Put(fields, 0x21, 4);
        Put(fields, crc, 4);
        Put(fields, size, 4);
        Put(fields, size, 4);
        Put(fields, name.size(), 2);
        Put(fields, 0, 2);
        std::vector<char> local = {'P', 'K', 3, 4};
        local.insert(local.end(), fields.begin(), fields.end());
        local.insert(local.end(), name.begin(), name.end());
        central.insert(central.end(), {'P', 'K', 1, 2, 20, 0});
        central.insert(central.end(), fields.begin(), fields.end());
        Put(central, 0, 10);
        Put(central, zipAt, 4);
        central.insert(central.end(), name.begin(), name.end());
        zip.write(local.data(), static_cast<std::streamsize>(local.size()));
        zip.write(payload.data(), size);
        zipAt += local.size() + size;
    }
    const std::size_t centralSize = central.size();
    central.insert(central.end(), {'P', 'K', 5, 6});
    Put(central, 0, 4);
    Put(central, static_cast<std::uint64_t>(members), 2);
    Put(central, static_cast<std::uint64_t>(members), 2);
    Put(central, centralSize, 4);
    Put(central, zipAt, 4);
    Put(central, 0, 2);
    zip.write(central.data(), static_cast<std::streamsize>(central.size()));
    arc.close();
    zip.close();
    if (!arc || !zip)
    {
        std::fprintf(stderr, "cannot write the corpus\n");
        std::exit(1);
    }
    corpus->shuffled = corpus->names;
    std::shuffle(corpus->shuffled.begin(), corpus->shuffled.end(), random);
    static std::vector<std::string> files; // deleted at exit
    if (files.empty())
        std::atexit(
            []
            {
                for (const auto& file : files)
                    std::remove(file.c_str());
            });
    files.push_back(corpus->archive);
    files.push_back(corpus->zip);
    made.push_back(std::move(corpus));
    return *made.back();
}

char buffer[64 * 1024];

void Check(benchmark::State& state, bool good)
{
    if (!good)
        state.SkipWithError("a member could not be read");
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
        const bool whole = file.Read(buffer, size, 1) == size;
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
