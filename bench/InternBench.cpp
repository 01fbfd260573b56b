// Interned texts beside a hash set of strings behind a mutex, and handles beside shared pointers.

#include <Bedrock/memory/PString.h>

#include <benchmark/benchmark.h>

#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#if defined(BENCH_HAS_ABSL_FLAT_HASH_SET)
#include <absl/container/flat_hash_set.h>
#endif

namespace
{

// Shared pointers and mutexes skip their atomics in a process that never had a second thread.
const bool hadThread = (std::thread([] {}).join(), true);

// Names as an engine has them: a path, a stem and a number.
std::vector<std::string> Names(std::size_t count)
{
    static const char* const folders[] = {"", "textures/", "models/props/", "sounds/"};
    static const char* const stems[] = {"wall", "player", "light_source", "door", "metal_plate", "x"};
    std::mt19937 random(1);
    std::vector<std::string> names(count);
    for (std::size_t i = 0; i < count; ++i)
        names[i] = std::string(folders[random() % 4]) + stems[random() % 6] + "_" + std::to_string(i);
    return names;
}

// The order in which texts are asked for.
std::vector<std::uint32_t> Order(std::size_t count)
{
    std::mt19937 random(2);
    std::vector<std::uint32_t> order(1 << 16);
    for (auto& i : order)
        i = static_cast<std::uint32_t>(random() % count);
    return order;
}

void MakeBedrock(benchmark::State& state)
{
    const auto names = Names(static_cast<std::size_t>(state.range(0)));
    const auto order = Order(names.size());
    std::vector<Zem::PString> kept;
    for (const auto& name : names)
        kept.emplace_back(name.c_str());
    std::size_t at = 0;
    for (auto _ : state)
    {
        const Zem::PString made(names[order[at++ % order.size()]].c_str());
        benchmark::DoNotOptimize(static_cast<const char*>(made));
    }
}
BENCHMARK(MakeBedrock)->Name("Intern/make/Bedrock")->Arg(1000)->Arg(10000)->Arg(100000);

#if defined(BENCH_HAS_ABSL_FLAT_HASH_SET)
// What a program would do in place of this library: the set's node is the handle, nothing is counted.
void MakeAbsl(benchmark::State& state)
{
    const auto names = Names(static_cast<std::size_t>(state.range(0)));
    const auto order = Order(names.size());
    std::mutex mutex;
    absl::flat_hash_set<std::string> set;
    for (const auto& name : names)
        set.insert(name);
    std::size_t at = 0;
    for (auto _ : state)
    {
        const std::string_view text = names[order[at++ % order.size()]].c_str();
        const std::lock_guard guard(mutex);
        benchmark::DoNotOptimize(set.emplace(text).first->data());
    }
}
BENCHMARK(MakeAbsl)->Name("Intern/make/absl::flat_hash_set")->Arg(1000)->Arg(10000)->Arg(100000);
#endif

constexpr std::size_t handles = 256;

template <class Handle>
void CopyAndRelease(benchmark::State& state, const std::vector<Handle>& sources)
{
    std::size_t at = 0;
    for (auto _ : state)
    {
        Handle copy = sources[at++ % sources.size()];
        benchmark::DoNotOptimize(copy);
    }
}

void CopyBedrock(benchmark::State& state)
{
    std::vector<Zem::PString> sources;
    for (const auto& name : Names(handles))
        sources.emplace_back(name.c_str());
    CopyAndRelease(state, sources);
}
BENCHMARK(CopyBedrock)->Name("Intern/copy-release-handle/Bedrock");

void CopyShared(benchmark::State& state)
{
    std::vector<std::shared_ptr<std::string>> sources;
    for (const auto& name : Names(handles))
        sources.push_back(std::make_shared<std::string>(name));
    CopyAndRelease(state, sources);
}
BENCHMARK(CopyShared)->Name("Intern/copy-release-handle/std::shared_ptr");

} // namespace
