// The open rate: files of a folder and members of an archive are opened, read whole and closed, by 1, 2 and 4 threads.
//
// Open/files N threads      2,000 files of 1 to 4 KiB, through a substitute; the peer is open, fstat, read and close
// Open/members N threads    2,000 members of the same sizes; the peer is PhysFS on a stored zip
// Open/nowhere N threads    a name that neither a folder nor an archive behind it has; the peer is PhysFS likewise
//
// The peer "one-thread" is Bedrock doing the same work on one thread: more threads must not be slower than that. Figures
// are real time for one file, all threads together.

#include "ArchiveCorpus.h"

#include <Bedrock/files/File.h>
#include <Bedrock/memory/PString.h>

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <sys/stat.h>
#include <vector>

#ifdef BENCH_HAS_PHYSFS
#include <physfs.h>
#endif

namespace
{

using Zem::File;

constexpr int count = 2000;

struct Corpus
{
    std::string folder = Bench::Scratch("open/");
    std::string archive;
    std::string zip;
    std::vector<std::string> names;
    std::vector<std::string> missing;
};

const Corpus& TheCorpus()
{
    static const Corpus corpus = []
    {
        Corpus made;
        Bench::CorpusWriter writer("open");
        std::filesystem::create_directories(made.folder);
        std::mt19937 random(11);
        for (int i = 0; i < count; ++i)
        {
            std::string name = "object" + std::to_string(10000 + i) + ".mdl";
            std::vector<char> payload(1024 + random() % 3072);
            for (char& c : payload)
                c = static_cast<char>(random());
            std::ofstream(made.folder + name, std::ios::binary)
                .write(payload.data(), static_cast<std::streamsize>(payload.size()));
            writer.Add(name, payload);
            made.names.push_back(name);
            made.missing.push_back(name + ".none");
        }
        writer.Finish();
        made.archive = writer.arcPath;
        made.zip = writer.zipPath;
        File::Subst("files", made.folder.c_str(), false);
        File::Subst("members", made.archive.c_str(), false);
        File::Subst("both", made.archive.c_str(), false);
        File::Subst("both", made.folder.c_str(), false);
#ifdef BENCH_HAS_PHYSFS
        PHYSFS_init("bench");
        PHYSFS_mount(made.zip.c_str(), "/", 1);
        PHYSFS_mount(made.folder.c_str(), "/", 1);
#endif
        return made;
    }();
    return corpus;
}

// One thread's hands; a name is told with its word for Bedrock.
struct Bedrock
{
    explicit Bedrock(const char* word) : path(std::string(word) + ":"), start(path.size()) {}
    bool Read(const std::string& name)
    {
        path.replace(start, std::string::npos, name);
        if (!file.Open(path.c_str(), File::ModeRead))
            return false;
        const std::uint32_t size = file.Size();
        const bool whole = file.Read(buffer, size, 1) == size;
        file.Close();
        return whole;
    }
    std::string path;
    std::size_t start;
    File file;
    char buffer[8192];
};

struct Posix
{
    explicit Posix(const char*) : path(TheCorpus().folder), start(path.size()) {}
    bool Read(const std::string& name)
    {
        path.replace(start, std::string::npos, name);
        const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        struct stat about;
        if (fd < 0)
            return false;
        const bool whole =
            fstat(fd, &about) == 0 && read(fd, buffer, static_cast<std::size_t>(about.st_size)) == about.st_size;
        close(fd);
        return whole;
    }
    std::string path;
    std::size_t start;
    char buffer[8192];
};

#ifdef BENCH_HAS_PHYSFS
struct PhysFS
{
    explicit PhysFS(const char*) {}
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
    char buffer[8192];
};
#endif

template <class Side>
void Run(benchmark::State& state, const char* word, const std::vector<std::string> Corpus::*names, bool expected)
{
    const std::vector<std::string>& list = TheCorpus().*names;
    const auto side = std::make_unique<Side>(word);
    std::size_t at = static_cast<std::size_t>(state.thread_index()) * 997 % list.size();
    bool good = true;
    for (const std::string& name : list) // everybody starts with everything known
        good &= side->Read(name) == expected;
    for (auto _ : state)
    {
        good &= side->Read(list[at]) == expected;
        at = at + 1 == list.size() ? 0 : at + 1;
    }
    if (!good)
        state.SkipWithError("a file could not be read, or was found where it is not");
}

template <class Side>
void Register(const std::string& work, int threads, const std::string& who, const char* word,
              const std::vector<std::string> Corpus::*names, bool expected, int running)
{
    benchmark::RegisterBenchmark(
        ("Open/" + work + " " + std::to_string(threads) + (threads == 1 ? " thread/" : " threads/") + who).c_str(),
        [=](benchmark::State& state) { Run<Side>(state, word, names, expected); })
        ->Threads(running)
        ->UseRealTime();
}

const bool registered = []
{
    TheCorpus();
    const struct
    {
        const char* work;
        const char* word;
        const std::vector<std::string> Corpus::*names;
        bool expected;
    } works[] = {
        {"files", "files", &Corpus::names, true},
        {"members", "members", &Corpus::names, true},
        {"nowhere", "both", &Corpus::missing, false},
    };
    for (const auto& work : works)
        for (const int threads : {1, 2, 4})
        {
            Register<Bedrock>(work.work, threads, "Bedrock", work.word, work.names, work.expected, threads);
            if (threads > 1)
                Register<Bedrock>(work.work, threads, "one-thread", work.word, work.names, work.expected, 1);
            if (work.word == std::string("files"))
                Register<Posix>(work.work, threads, "posix", "", work.names, work.expected, threads);
#ifdef BENCH_HAS_PHYSFS
            else
                Register<PhysFS>(work.work, threads, "PhysFS", "", work.names, work.expected, threads);
#endif
        }
    return true;
}();

} // namespace
