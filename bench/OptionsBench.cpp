// Options beside the reader that one writes by hand: lines by std::getline, parted at "=", numbers by std::from_chars,
// kept in a std::unordered_map. Both fill themselves from 10 MB of entries, give the number of every key once, and go.
// Bedrock's syntax has no lines, and it keeps texts, their order and where they came from.

#include <Bedrock/host/Options.h>

#include <benchmark/benchmark.h>

#include <charconv>
#include <cstdlib>
#include <random>
#include <sstream>
#include <string>
#include <unordered_map>
#include <vector>

namespace
{

constexpr std::size_t textSize = 10000000;

struct Input
{
    explicit Input(std::size_t keyCount)
    {
        std::mt19937 random(1);
        for (std::size_t i = 0; i < keyCount; ++i)
            keys.push_back("setting" + std::to_string(random()) + "_" + std::to_string(i));
        for (std::size_t i = 0; text.size() < textSize; ++i)
        {
            const std::string entry = keys[i % keyCount] + "=" + std::to_string(random() % 100000) + "\n";
            text += "-" + entry;
            lines += entry;
        }
        lines.resize(textSize < lines.size() ? lines.rfind('\n', textSize) + 1 : lines.size());
        lines.append(text.size() - lines.size(), '\n'); // as many bytes, as empty lines
    }
    std::vector<std::string> keys;
    std::string text;
    std::string lines;
};

const Input& InputOf(std::size_t keyCount)
{
    static std::unordered_map<std::size_t, Input> inputs;
    return inputs.try_emplace(keyCount, keyCount).first->second;
}

void BedrockOptions(benchmark::State& state)
{
    const Input& input = InputOf(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state)
    {
        Zem::Options options;
        options.ProcessRaw(input.text.c_str());
        std::int64_t sum = 0;
        for (const std::string& key : input.keys)
        {
            std::int32_t value;
            options.Get(key.c_str(), value, 0);
            sum += value;
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(input.text.size()));
}

void ByHand(benchmark::State& state)
{
    const Input& input = InputOf(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state)
    {
        std::unordered_map<std::string, int> options;
        std::istringstream stream(input.lines);
        for (std::string line; std::getline(stream, line);)
        {
            const std::size_t equals = line.find('=');
            if (equals == std::string::npos)
                continue;
            int value = 0;
            std::from_chars(line.data() + equals + 1, line.data() + line.size(), value);
            options[line.substr(0, equals)] = value;
        }
        std::int64_t sum = 0;
        for (const std::string& key : input.keys)
            sum += options.find(key)->second;
        benchmark::DoNotOptimize(sum);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(input.text.size()));
}

void Sizes(benchmark::internal::Benchmark* benchmark)
{
    for (const int keys : {100, 1000, 10000, 100000, 300000})
        benchmark->Arg(keys);
    benchmark->Unit(benchmark::kMillisecond);
}

BENCHMARK(BedrockOptions)->Name("Options/10 MB of entries, keys/Bedrock")->Apply(Sizes);
BENCHMARK(ByHand)->Name("Options/10 MB of entries, keys/getline and from_chars")->Apply(Sizes);

} // namespace
