// Strings beside std::string and the C library.

#include <Bedrock/memory/String.h>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <string>

namespace
{

// A text of `range` bytes built up by appending 1 or 16 bytes at a time, from nothing.
void AppendBedrock(benchmark::State& state, const char* piece)
{
    const auto size = static_cast<unsigned>(state.range(0));
    for (auto _ : state)
    {
        Zem::String s;
        while (s.Length() < size)
            s += piece;
        benchmark::DoNotOptimize(static_cast<const char*>(s));
    }
}
void AppendStd(benchmark::State& state, const char* piece)
{
    const auto size = static_cast<std::size_t>(state.range(0));
    for (auto _ : state)
    {
        std::string s;
        while (s.size() < size)
            s += piece;
        benchmark::DoNotOptimize(s.data());
    }
}
BENCHMARK_CAPTURE(AppendBedrock, 1, "x")->Name("String/append-1/Bedrock")->Arg(64)->Arg(256)->Arg(1024);
BENCHMARK_CAPTURE(AppendStd, 1, "x")->Name("String/append-1/std::string")->Arg(64)->Arg(256)->Arg(1024);
BENCHMARK_CAPTURE(AppendBedrock, 16, "sixteen bytes...")
    ->Name("String/append-16/Bedrock")
    ->Arg(64)
    ->Arg(256)
    ->Arg(1024);
BENCHMARK_CAPTURE(AppendStd, 16, "sixteen bytes...")
    ->Name("String/append-16/std::string")
    ->Arg(64)
    ->Arg(256)
    ->Arg(1024);

// A printed line appended to a text with room for it, which is then cut back.
void FormatBedrock(benchmark::State& state)
{
    Zem::String s;
    s.SetLength(200);
    int i = 0;
    for (auto _ : state)
    {
        s.Left(0);
        s.Addf("object %d of %s at %u, flags %08X", ++i, "textures/wall", 640u, 0xBEEFu);
        benchmark::DoNotOptimize(static_cast<const char*>(s));
    }
}
void FormatStd(benchmark::State& state)
{
    std::string s;
    s.reserve(200);
    int i = 0;
    for (auto _ : state)
    {
        s.clear();
        char line[8193];
        const int n =
            std::snprintf(line, sizeof line, "object %d of %s at %u, flags %08X", ++i, "textures/wall", 640u, 0xBEEFu);
        s.append(line, static_cast<std::size_t>(n));
        benchmark::DoNotOptimize(s.data());
    }
}
BENCHMARK(FormatBedrock)->Name("String/format/Bedrock");
BENCHMARK(FormatStd)->Name("String/format/snprintf");

std::string Haystack(std::size_t size)
{
    std::string text;
    while (text.size() < size)
        text += "The quick brown fox jumps over the lazy dog, and nobody knows why. ";
    text.resize(size);
    return text + "needle";
}

void FindBedrock(benchmark::State& state)
{
    const Zem::String s = Haystack(static_cast<std::size_t>(state.range(0))).c_str();
    for (auto _ : state)
        benchmark::DoNotOptimize(s.Find("needle", 0));
}
void FindStd(benchmark::State& state)
{
    const std::string s = Haystack(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state)
        benchmark::DoNotOptimize(s.find("needle"));
}
BENCHMARK(FindBedrock)->Name("String/find/Bedrock")->Arg(64)->Arg(512)->Arg(8192);
BENCHMARK(FindStd)->Name("String/find/std::string")->Arg(64)->Arg(512)->Arg(8192);

void FindIgnoreBedrock(benchmark::State& state)
{
    const Zem::String s = Haystack(static_cast<std::size_t>(state.range(0))).c_str();
    for (auto _ : state)
        benchmark::DoNotOptimize(s.FindIgnoreCase("NEEDLE", 0));
}
void FindIgnoreC(benchmark::State& state)
{
    const std::string s = Haystack(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state)
        benchmark::DoNotOptimize(strcasestr(s.c_str(), "NEEDLE"));
}
BENCHMARK(FindIgnoreBedrock)->Name("String/find-ignoring-case/Bedrock")->Arg(64)->Arg(512)->Arg(8192);
BENCHMARK(FindIgnoreC)->Name("String/find-ignoring-case/strcasestr")->Arg(64)->Arg(512)->Arg(8192);

} // namespace
