// File beside stdio's unlocked forms and read(2), on the same file in memory (/dev/shm), 4 MiB, through a handle that is
// opened once: each turn seeks to the start and moves all bytes.

#include <Bedrock/files/File.h>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <random>
#include <string>
#include <unistd.h>
#include <vector>

namespace
{

constexpr std::size_t fileSize = 4 << 20;

// The file that is read: lines of 1 to 120 letters.
const std::string& Name()
{
    static const std::string name = []
    {
        std::string path = "/dev/shm/bedrock-file-bench-" + std::to_string(::getpid());
        std::mt19937 random(1);
        std::string text;
        while (text.size() < fileSize)
            text.append(1 + random() % 120, static_cast<char>('a' + random() % 26)).append("\n");
        text.resize(fileSize);
        std::FILE* out = std::fopen(path.c_str(), "wb");
        if (!out || std::fwrite(text.data(), 1, text.size(), out) != text.size() || std::fclose(out) != 0)
            std::abort();
        static const std::string kept = path;
        std::atexit(
            []
            {
                ::unlink(kept.c_str());
                ::unlink((kept + "-out").c_str());
            });
        return path;
    }();
    return name;
}

std::string OutName()
{
    return Name() + "-out";
}

void Fail(benchmark::State& state, bool failed)
{
    if (failed)
        state.SkipWithError("a transfer came short");
}

// --------------------------------------------------------------------------------------------- sequential reads

template <std::size_t N>
void ReadBedrock(benchmark::State& state)
{
    Zem::File file;
    if (!file.Open(Name().c_str(), Zem::File::ModeReadPlain))
        std::abort();
    char block[N];
    for (auto _ : state)
    {
        file.SeekSet(0);
        std::size_t n = 0;
        while (file.Read(block, 1, N) == 1)
        {
            benchmark::DoNotOptimize(block);
            n += N;
        }
        Fail(state, n != fileSize);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * fileSize));
}

template <std::size_t N>
void ReadStdio(benchmark::State& state)
{
    std::FILE* file = std::fopen(Name().c_str(), "rb");
    char block[N];
    for (auto _ : state)
    {
        std::fseek(file, 0, SEEK_SET);
        std::size_t n = 0;
        while (fread_unlocked(block, N, 1, file) == 1)
        {
            benchmark::DoNotOptimize(block);
            n += N;
        }
        Fail(state, n != fileSize);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * fileSize));
    std::fclose(file);
}

// -------------------------------------------------------------------------------------------- sequential writes

template <std::size_t N>
void WriteBedrock(benchmark::State& state)
{
    Zem::File file;
    if (!file.Open(OutName().c_str(), Zem::File::ModeCreate | Zem::File::ModeWrite))
        std::abort();
    char block[N];
    std::memset(block, 'x', N);
    for (auto _ : state)
    {
        file.SeekSet(0);
        for (std::size_t n = 0; n < fileSize; n += N)
        {
            benchmark::DoNotOptimize(block);
            Fail(state, file.Write(block, 1, N) != 1);
        }
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * fileSize));
}

template <std::size_t N>
void WriteStdio(benchmark::State& state)
{
    std::FILE* file = std::fopen(OutName().c_str(), "wb");
    char block[N];
    std::memset(block, 'x', N);
    for (auto _ : state)
    {
        std::fseek(file, 0, SEEK_SET);
        for (std::size_t n = 0; n < fileSize; n += N)
        {
            benchmark::DoNotOptimize(block);
            Fail(state, fwrite_unlocked(block, N, 1, file) != 1);
        }
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * fileSize));
    std::fclose(file);
}

// -------------------------------------------------------------------------------------------------------- lines

void LinesBedrock(benchmark::State& state)
{
    Zem::File file;
    if (!file.Open(Name().c_str(), Zem::File::ModeReadPlain))
        std::abort();
    char line[256];
    for (auto _ : state)
    {
        file.SeekSet(0);
        std::size_t n = 0;
        while (const std::uint32_t got = file.ReadLine(line, sizeof line))
        {
            benchmark::DoNotOptimize(line);
            n += got;
        }
        Fail(state, n != fileSize);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * fileSize));
}

void LinesStdio(benchmark::State& state)
{
    std::FILE* file = std::fopen(Name().c_str(), "rb");
    char line[256];
    for (auto _ : state)
    {
        std::fseek(file, 0, SEEK_SET);
        std::size_t n = 0;
        while (fgets_unlocked(line, sizeof line, file))
        {
            benchmark::DoNotOptimize(line);
            n += std::strlen(line); // what ReadLine tells by itself
        }
        Fail(state, n != fileSize);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * fileSize));
    std::fclose(file);
}

// ------------------------------------------------------------------------------------------- seeks with reads

// Near: 16 bytes read, up to 4 KiB skipped; far: anywhere.
std::vector<std::int32_t> Places(bool near)
{
    std::mt19937 random(2);
    std::vector<std::int32_t> places(4096);
    std::int32_t at = 0;
    for (auto& place : places)
    {
        at = near ? static_cast<std::int32_t>((static_cast<std::size_t>(at) + 16 + random() % 4096) % (fileSize - 16))
                  : static_cast<std::int32_t>(random() % (fileSize - 16));
        place = at;
    }
    return places;
}

template <bool Near>
void SeekBedrock(benchmark::State& state)
{
    Zem::File file;
    if (!file.Open(Name().c_str(), Zem::File::ModeReadPlain))
        std::abort();
    const auto places = Places(Near);
    char block[16];
    for (auto _ : state)
        for (const std::int32_t place : places)
        {
            file.SeekSet(place);
            Fail(state, file.Read(block, 1, 16) != 1);
            benchmark::DoNotOptimize(block);
        }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * places.size()));
}

template <bool Near>
void SeekStdio(benchmark::State& state)
{
    std::FILE* file = std::fopen(Name().c_str(), "rb");
    const auto places = Places(Near);
    char block[16];
    for (auto _ : state)
        for (const std::int32_t place : places)
        {
            std::fseek(file, place, SEEK_SET);
            Fail(state, fread_unlocked(block, 16, 1, file) != 1);
            benchmark::DoNotOptimize(block);
        }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * places.size()));
    std::fclose(file);
}

// --------------------------------------------------------------------------------- large blocks, whole files

void Read65536System(benchmark::State& state)
{
    const int file = ::open(Name().c_str(), O_RDONLY);
    auto block = std::make_unique<char[]>(65536);
    for (auto _ : state)
    {
        ::lseek(file, 0, SEEK_SET);
        std::size_t n = 0;
        while (::read(file, block.get(), 65536) == 65536)
        {
            benchmark::DoNotOptimize(block[0]);
            n += 65536;
        }
        Fail(state, n != fileSize);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * fileSize));
    ::close(file);
}

void Read65536Bedrock(benchmark::State& state)
{
    Zem::File file;
    if (!file.Open(Name().c_str(), Zem::File::ModeReadPlain))
        std::abort();
    auto block = std::make_unique<char[]>(65536);
    for (auto _ : state)
    {
        file.SeekSet(0);
        std::size_t n = 0;
        while (file.Read(block.get(), 65536, 1) == 65536)
        {
            benchmark::DoNotOptimize(block[0]);
            n += 65536;
        }
        Fail(state, n != fileSize);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * fileSize));
}

void WholeSystem(benchmark::State& state)
{
    auto block = std::make_unique<char[]>(fileSize);
    for (auto _ : state)
    {
        const int file = ::open(Name().c_str(), O_RDONLY | O_CLOEXEC);
        Fail(state, ::lseek(file, 0, SEEK_END) != fileSize || ::lseek(file, 0, SEEK_SET) != 0 ||
                        ::read(file, block.get(), fileSize) != fileSize);
        benchmark::DoNotOptimize(block[0]);
        ::close(file);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * fileSize));
}

void WholeBedrock(benchmark::State& state)
{
    auto block = std::make_unique<char[]>(fileSize);
    for (auto _ : state)
    {
        Zem::File file;
        Fail(state, !file.Open(Name().c_str(), Zem::File::ModeRead) || file.Size() != fileSize ||
                        file.Read(block.get(), fileSize, 1) != fileSize);
        benchmark::DoNotOptimize(block[0]);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * fileSize));
}

} // namespace

BENCHMARK(ReadBedrock<1>)->Name("File/read 1/Bedrock");
BENCHMARK(ReadStdio<1>)->Name("File/read 1/fread_unlocked");
BENCHMARK(ReadBedrock<4>)->Name("File/read 4/Bedrock");
BENCHMARK(ReadStdio<4>)->Name("File/read 4/fread_unlocked");
BENCHMARK(ReadBedrock<64>)->Name("File/read 64/Bedrock");
BENCHMARK(ReadStdio<64>)->Name("File/read 64/fread_unlocked");
BENCHMARK(ReadBedrock<4096>)->Name("File/read 4096/Bedrock");
BENCHMARK(ReadStdio<4096>)->Name("File/read 4096/fread_unlocked");
BENCHMARK(LinesBedrock)->Name("File/lines/Bedrock");
BENCHMARK(LinesStdio)->Name("File/lines/fgets_unlocked");
BENCHMARK(SeekBedrock<true>)->Name("File/seek near and read/Bedrock");
BENCHMARK(SeekStdio<true>)->Name("File/seek near and read/stdio");
BENCHMARK(SeekBedrock<false>)->Name("File/seek far and read/Bedrock");
BENCHMARK(SeekStdio<false>)->Name("File/seek far and read/stdio");
BENCHMARK(WriteBedrock<1>)->Name("File/write 1/Bedrock");
BENCHMARK(WriteStdio<1>)->Name("File/write 1/fwrite_unlocked");
BENCHMARK(WriteBedrock<4>)->Name("File/write 4/Bedrock");
BENCHMARK(WriteStdio<4>)->Name("File/write 4/fwrite_unlocked");
BENCHMARK(WriteBedrock<64>)->Name("File/write 64/Bedrock");
BENCHMARK(WriteStdio<64>)->Name("File/write 64/fwrite_unlocked");
BENCHMARK(WriteBedrock<4096>)->Name("File/write 4096/Bedrock");
BENCHMARK(WriteStdio<4096>)->Name("File/write 4096/fwrite_unlocked");
BENCHMARK(Read65536Bedrock)->Name("File/read 65536/Bedrock");
BENCHMARK(Read65536System)->Name("File/read 65536/read");
BENCHMARK(WholeBedrock)->Name("File/whole file/Bedrock");
BENCHMARK(WholeSystem)->Name("File/whole file/read");
