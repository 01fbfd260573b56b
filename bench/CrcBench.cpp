// CRC-32 over 1 MiB, and over sizes at which the set-up shows. zlib sums with another polynomial, at the same work.

#include <Bedrock/host/Crc.h>

#include <benchmark/benchmark.h>

#include <array>
#include <vector>

#if defined(BENCH_HAS_ZLIB)
#include <zlib.h>
#endif

namespace
{

std::vector<std::uint8_t> Data(std::size_t size)
{
    std::vector<std::uint8_t> data(size);
    std::uint32_t noise = 1;
    for (std::uint8_t& byte : data)
        byte = static_cast<std::uint8_t>((noise = noise * 1664525 + 1013904223) >> 24);
    return data;
}

// One table, one byte at a time.
std::uint32_t PlainCrc(const std::uint8_t* data, std::size_t size)
{
    static const auto table = []
    {
        std::array<std::uint32_t, 256> words{};
        for (std::uint32_t i = 0; i < 256; ++i)
        {
            std::uint32_t crc = i << 24;
            for (int bit = 0; bit < 8; ++bit)
                crc = crc & 0x80000000 ? crc << 1 ^ 0x04C11DB7 : crc << 1;
            words[i] = crc;
        }
        return words;
    }();
    std::uint32_t crc = 0xFFFFFFFF;
    for (std::size_t i = 0; i < size; ++i)
        crc = crc << 8 ^ table[crc >> 24 ^ data[i]];
    return ~crc;
}

template <class Sum>
void Run(benchmark::State& state, Sum sum)
{
    const auto data = Data(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(sum(data.data(), data.size()));
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void Sizes(benchmark::internal::Benchmark* benchmark)
{
    benchmark->Arg(64)->Arg(4096)->Arg(1 << 20);
}

BENCHMARK_CAPTURE(Run, Bedrock,
                  [](const std::uint8_t* data, std::size_t size)
                  { return Zem::Crc::Calc(data, static_cast<std::uint32_t>(size), 0); })
    ->Name("Crc/sum/Bedrock")
    ->Apply(Sizes);
BENCHMARK_CAPTURE(Run, plain, &PlainCrc)->Name("Crc/sum/plain")->Apply(Sizes);
#if defined(BENCH_HAS_ZLIB)
BENCHMARK_CAPTURE(Run, zlib,
                  [](const std::uint8_t* data, std::size_t size) { return crc32(0, data, static_cast<uInt>(size)); })
    ->Name("Crc/sum/zlib")
    ->Apply(Sizes);
#endif

} // namespace
