// The codec on frames of 16 KiB, the size that compressed files use: text, machine code and pixels.
//
// Peers: the same algorithm in its plainest form (it gives the same bytes), and zlib at its own frames of the same data.

#include <Bedrock/files/BPE.h>

#include "tests/files/PlainBPE.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#if defined(BENCH_HAS_ZLIB)
#include <zlib.h>
#endif

namespace
{

using Bytes = std::vector<std::uint8_t>;
constexpr std::uint32_t frame = 16384;
constexpr std::size_t frames = 16;

// Sources of the tree, as text of the kind that is stored in archives.
Bytes Text()
{
    Bytes bytes;
    for (const char* name :
         {"/Bedrock/files/BPE.cpp", "/Bedrock/files/BPE.h", "/tests/files/BPETest.cpp", "/tests/files/PlainBPE.h",
          "/bench/CodecBench.cpp", "/LICENSE", "/CMakeLists.txt", "/scripts/bench"})
    {
        std::ifstream in(std::string(BENCH_SOURCE_DIR) + name, std::ios::binary);
        bytes.insert(bytes.end(), std::istreambuf_iterator<char>(in), {});
    }
    return bytes;
}

// This program, from its code on.
Bytes Code()
{
    std::ifstream in("/proc/self/exe", std::ios::binary);
    Bytes bytes{std::istreambuf_iterator<char>(in), {}};
    bytes.erase(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(bytes.size() / 4));
    return bytes;
}

// An image of 24 bits: slow waves, a hard edge, a little noise.
Bytes Pixels()
{
    Bytes bytes;
    std::uint32_t noise = 1;
    for (int y = 0; y < 300; ++y)
        for (int x = 0; x < 300; ++x)
            for (int channel = 0; channel < 3; ++channel)
            {
                noise = noise * 1664525 + 1013904223;
                const double wave = std::sin(x * 0.02 * (channel + 1)) + std::cos(y * 0.03);
                const int edge = (x - 150) * (x - 150) + (y - 150) * (y - 150) < 90 * 90 ? 60 : 0;
                bytes.push_back(static_cast<std::uint8_t>(96 + edge + static_cast<int>(wave * 30) + (noise >> 31)));
            }
    return bytes;
}

// A kind of data, cut into frames, and what each codec makes of each frame.
struct Data
{
    std::vector<Bytes> plain, packed, deflated;

    explicit Data(const Bytes& bytes)
    {
        if (bytes.size() < frame * 2)
            std::abort();
        const std::size_t count = std::min(frames, bytes.size() / frame);
        for (std::size_t i = 0; i < count; ++i)
        {
            const auto first = bytes.begin() + static_cast<std::ptrdiff_t>(i * frame);
            plain.emplace_back(first, first + frame);
            Bytes out(frame);
            out.resize(Zem::BPE::Comp(out.data(), plain.back().data(), frame));
            Bytes same(frame);
            same.resize(Plain::Comp(same.data(), plain.back().data(), frame));
            if (out != same)
                std::abort();
            if (out.size() < frame) // only these are expanded
                packed.push_back(out);
#if defined(BENCH_HAS_ZLIB)
            if (out.size() < frame)
            {
                uLongf size = compressBound(frame);
                Bytes z(size);
                compress2(z.data(), &size, plain.back().data(), frame, Z_DEFAULT_COMPRESSION);
                z.resize(size);
                deflated.push_back(z);
            }
#endif
        }
    }
};

using Codec = std::uint32_t (*)(void*, const void*, std::uint32_t);

void RunAll(benchmark::State& state, const std::vector<Bytes>& inputs, std::size_t logical, Codec codec)
{
    Bytes out(frame);
    for (auto _ : state)
        for (const Bytes& input : inputs)
        {
            benchmark::DoNotOptimize(codec(out.data(), input.data(), static_cast<std::uint32_t>(input.size())));
            benchmark::ClobberMemory();
        }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * logical));
}

std::uint32_t Bounded(void* dst, const void* src, std::uint32_t n)
{
    std::uint32_t written = 0;
    if (!Zem::BPE::DecompBounded(dst, frame, src, n, written))
        std::abort();
    return written;
}

#if defined(BENCH_HAS_ZLIB)
std::uint32_t Inflate(void* dst, const void* src, std::uint32_t n)
{
    uLongf size = frame;
    if (uncompress(static_cast<Bytef*>(dst), &size, static_cast<const Bytef*>(src), n) != Z_OK)
        std::abort();
    return static_cast<std::uint32_t>(size);
}
#endif

void Register(const std::string& kind, const Data& data)
{
    const auto add = [&](const std::string& name, const std::vector<Bytes>& inputs, Codec codec)
    {
        if (!inputs.empty())
            benchmark::RegisterBenchmark(("Codec/" + name).c_str(), [&inputs, codec](benchmark::State& state)
                                         { RunAll(state, inputs, inputs.size() * frame, codec); });
    };
    add("compress " + kind + "/Bedrock", data.plain,
        [](void* d, const void* s, std::uint32_t n) { return Zem::BPE::Comp(d, s, n); });
    add("compress " + kind + "/plain", data.plain, &Plain::Comp);
    add("expand " + kind + "/Bedrock", data.packed, &Bounded);
    add("expand " + kind + "/plain", data.packed, &Plain::Decomp);
#if defined(BENCH_HAS_ZLIB)
    add("expand " + kind + "/zlib", data.deflated, &Inflate);
#endif
}

} // namespace

int main(int argc, char** argv)
{
    const Data text(Text()), code(Code()), pixels(Pixels());
    Register("text", text);
    Register("code", code);
    Register("pixels", pixels);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
