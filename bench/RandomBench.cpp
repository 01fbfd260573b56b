// Random numbers: the sum of 16, 1,000 and 100,000 values of a generator that is seeded already, and seeding itself.

#include <Bedrock/maths/LCRand.h>
#include <Bedrock/maths/Rand.h>

#include <benchmark/benchmark.h>

#include <random>

namespace
{

template <class Sum, class Draw>
void Run(benchmark::State& state, Draw draw)
{
    for (auto _ : state)
    {
        Sum sum = 0;
        for (std::int64_t i = 0; i < state.range(0); ++i)
            sum += draw();
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

#define SIZES ->Arg(16)->Arg(1000)->Arg(100000)

void ValueBedrock(benchmark::State& state)
{
    Zem::Rand rand;
    rand.SetSeed(1);
    Run<std::uint32_t>(state, [&] { return rand.GetRandom(); });
}
void ValueMt19937(benchmark::State& state)
{
    std::mt19937 rand(1);
    Run<std::uint32_t>(state, [&] { return static_cast<std::uint32_t>(rand()); });
}
BENCHMARK(ValueBedrock)->Name("Random/value/Bedrock") SIZES;
BENCHMARK(ValueMt19937)->Name("Random/value/std::mt19937") SIZES;

void CongruentialBedrock(benchmark::State& state)
{
    Zem::LCRand rand(1);
    Run<std::uint32_t>(state, [&] { return rand.GetRandom(); });
}
void CongruentialStd(benchmark::State& state)
{
    std::minstd_rand rand(1);
    Run<std::uint32_t>(state, [&] { return static_cast<std::uint32_t>(rand()); });
}
BENCHMARK(CongruentialBedrock)->Name("Random/congruential/Bedrock") SIZES;
BENCHMARK(CongruentialStd)->Name("Random/congruential/std::minstd_rand") SIZES;

void RangeBedrock(benchmark::State& state)
{
    Zem::Rand rand;
    rand.SetSeed(1);
    Run<std::int32_t>(state, [&] { return rand.NextInt(-500, 1500); });
}
void RangeStd(benchmark::State& state)
{
    std::mt19937 rand(1);
    std::uniform_int_distribution<std::int32_t> range(-500, 1499);
    Run<std::int32_t>(state, [&] { return range(rand); });
}
BENCHMARK(RangeBedrock)->Name("Random/range/Bedrock") SIZES;
BENCHMARK(RangeStd)->Name("Random/range/std::uniform_int_distribution") SIZES;

void GaussianBedrock(benchmark::State& state)
{
    Zem::Rand rand;
    rand.SetSeed(1);
    Run<float>(state, [&] { return rand.Gaussian(3, 2); });
}
void GaussianStd(benchmark::State& state)
{
    std::mt19937 rand(1);
    std::normal_distribution<float> normal(3, 2);
    Run<float>(state, [&] { return normal(rand); });
}
BENCHMARK(GaussianBedrock)->Name("Random/gaussian/Bedrock") SIZES;
BENCHMARK(GaussianStd)->Name("Random/gaussian/std::normal_distribution") SIZES;

void SeedBedrock(benchmark::State& state)
{
    Zem::Rand rand;
    std::uint32_t seed = 1;
    for (auto _ : state)
    {
        rand.SetSeed(seed++);
        benchmark::DoNotOptimize(rand.GetRandom());
    }
}
void SeedStd(benchmark::State& state)
{
    std::mt19937 rand;
    std::uint32_t seed = 1;
    for (auto _ : state)
    {
        rand.seed(seed++);
        benchmark::DoNotOptimize(rand());
    }
}
BENCHMARK(SeedBedrock)->Name("Random/seed/Bedrock");
BENCHMARK(SeedStd)->Name("Random/seed/std::mt19937");

} // namespace
