// Chunk files beside stdio's unlocked forms, which store and fetch the same bytes: 20,000 small blocks of 64 bytes and a
// text each, or 64 large ones of 64 KiB, in three blocks around them. stdio is told the sizes beforehand; KROMFile fills
// them in. In memory (/dev/shm), opened and closed in each turn.

#include <Bedrock/files/KROMFile.h>
#include <Bedrock/memory/PString.h>
#include <Bedrock/memory/String.h>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unistd.h>
#include <vector>

namespace
{

using Zem::File;
using Zem::KROMFile;
using Zem::KROMWriteBlock;

constexpr std::uint32_t groups = 3;
const char title[] = "a title of some length";
constexpr std::uint32_t titleBytes = 4 + 24; // as it is stored

struct Shape
{
    std::uint32_t blocks; // in all groups
    std::uint32_t bytes;  // of each, without the text
};

Shape Of(const benchmark::State& state)
{
    return state.range(0) < 1000 ? Shape{static_cast<std::uint32_t>(state.range(0)), 65536}
                                 : Shape{static_cast<std::uint32_t>(state.range(0)), 64};
}

const std::string& Name()
{
    static const std::string name = []
    {
        std::atexit([] { ::unlink(Name().c_str()); });
        return "/dev/shm/bedrock-chunk-bench-" + std::to_string(::getpid());
    }();
    return name;
}

void Check(benchmark::State& state, bool holds)
{
    if (!holds)
        state.SkipWithError("a transfer came short");
}

void WriteBedrock(benchmark::State& state)
{
    const Shape shape = Of(state);
    const std::vector<char> data(shape.bytes, 'd');
    const Zem::String text(title);
    for (auto _ : state)
    {
        KROMFile file;
        if (!file.Open(Name().c_str(), File::ModeCreate | File::ModeWrite))
            std::abort();
        {
            Zem::KROMWriteHeader header(file, 1);
            for (std::uint32_t group = 0; group < groups; ++group)
            {
                KROMWriteBlock around(file, group);
                for (std::uint32_t i = 0; i < shape.blocks / groups; ++i)
                {
                    KROMWriteBlock block(file, i);
                    file.WritePadded(text);
                    file.Write(data.data(), shape.bytes, 1);
                }
            }
        }
        file.Close();
    }
}

void Put(std::FILE* file, std::uint32_t value)
{
    fwrite_unlocked(&value, 4, 1, file);
}

void WriteStdio(benchmark::State& state)
{
    const Shape shape = Of(state);
    const std::vector<char> data(shape.bytes, 'd');
    const std::uint32_t body = titleBytes + shape.bytes;
    const std::uint32_t groupBytes = shape.blocks / groups * (8 + body);
    for (auto _ : state)
    {
        std::FILE* file = std::fopen(Name().c_str(), "wb");
        fwrite_unlocked("KROM", 4, 1, file);
        Put(file, 4 + groups * (8 + groupBytes));
        Put(file, 1);
        for (std::uint32_t group = 0; group < groups; ++group)
        {
            Put(file, group);
            Put(file, groupBytes);
            for (std::uint32_t i = 0; i < shape.blocks / groups; ++i)
            {
                Put(file, i);
                Put(file, body);
                Put(file, sizeof title);
                fwrite_unlocked(title, sizeof title - 1, 1, file);
                fwrite_unlocked("\0\0", 2, 1, file);
                Check(state, fwrite_unlocked(data.data(), shape.bytes, 1, file) == 1);
            }
        }
        std::fclose(file);
    }
}

// What both read.
void Make(const Shape& shape)
{
    const std::vector<char> data(shape.bytes, 'd');
    KROMFile file;
    if (!file.Open(Name().c_str(), File::ModeCreate | File::ModeWrite))
        std::abort();
    Zem::KROMWriteHeader header(file, 1);
    for (std::uint32_t group = 0; group < groups; ++group)
    {
        KROMWriteBlock around(file, group);
        for (std::uint32_t i = 0; i < shape.blocks / groups; ++i)
        {
            KROMWriteBlock block(file, i);
            file.WritePadded(Zem::String(title));
            file.Write(data.data(), shape.bytes, 1);
        }
    }
}

void ReadBedrock(benchmark::State& state)
{
    const Shape shape = Of(state);
    Make(shape);
    std::vector<char> data(shape.bytes);
    Zem::String text;
    for (auto _ : state)
    {
        KROMFile file;
        std::uint32_t total = 0, id = 0, bytes = 0, seen = 0;
        if (!file.Open(Name().c_str(), File::ModeRead) || !file.ReadHeader(1, total))
            std::abort();
        const std::uint32_t end = file.Tell() + total;
        while (file.Tell() < end)
        {
            static_cast<void>(file.ReadBlockHeader(id, bytes));
            const std::uint32_t groupEnd = file.Tell() + bytes;
            while (file.Tell() < groupEnd)
            {
                static_cast<void>(file.ReadBlockHeader(id, bytes));
                static_cast<void>(file.ReadPadded(text));
                benchmark::DoNotOptimize(text);
                Check(state, file.Read(data.data(), bytes - titleBytes, 1) == bytes - titleBytes);
                benchmark::DoNotOptimize(data.data());
                ++seen;
            }
        }
        Check(state, seen == shape.blocks / groups * groups);
    }
}

void ReadStdio(benchmark::State& state)
{
    const Shape shape = Of(state);
    Make(shape);
    std::vector<char> data(shape.bytes);
    std::string text;
    for (auto _ : state)
    {
        std::FILE* file = std::fopen(Name().c_str(), "rb");
        std::uint32_t word[3], header[2], seen = 0;
        Check(state, fread_unlocked(word, 12, 1, file) == 1);
        for (std::uint32_t left = word[1] - 4; left > 0;)
        {
            Check(state, fread_unlocked(header, 8, 1, file) == 1);
            left -= 8 + header[1];
            for (std::uint32_t inner = header[1]; inner > 0;)
            {
                std::uint32_t length = 1;
                Check(state, fread_unlocked(word, 8, 1, file) == 1 && fread_unlocked(&length, 4, 1, file) == 1);
                text.resize(length - 1);
                Check(state, fread_unlocked(text.data(), length - 1, 1, file) == 1);
                char padding[3];
                if (const std::size_t n = (1 - length) & 3)
                    Check(state, fread_unlocked(padding, n, 1, file) == 1);
                benchmark::DoNotOptimize(text);
                Check(state, fread_unlocked(data.data(), word[1] - titleBytes, 1, file) == 1);
                benchmark::DoNotOptimize(data.data());
                inner -= 8 + word[1];
                ++seen;
            }
        }
        std::fclose(file);
        Check(state, seen == shape.blocks / groups * groups);
    }
}

} // namespace

BENCHMARK(WriteBedrock)->Name("Chunk/write/Bedrock")->Arg(66)->Arg(1'000)->Arg(20'000)->Arg(200'000);
BENCHMARK(WriteStdio)->Name("Chunk/write/fwrite_unlocked")->Arg(66)->Arg(1'000)->Arg(20'000)->Arg(200'000);
BENCHMARK(ReadBedrock)->Name("Chunk/read/Bedrock")->Arg(66)->Arg(1'000)->Arg(20'000)->Arg(200'000);
BENCHMARK(ReadStdio)->Name("Chunk/read/fread_unlocked")->Arg(66)->Arg(1'000)->Arg(20'000)->Arg(200'000);
