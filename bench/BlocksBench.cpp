// BlockReader beside getline and sscanf: the same text in memory (/dev/shm), opened, read to the end and closed in each
// turn. Records of 5 entries in a block; every value of every entry is read and goes into one sum.

#include <Bedrock/files/BlockReader.h>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <unistd.h>

namespace
{

using Zem::PString;

// The file of about `size` bytes, made at first use.
const std::string& File(std::size_t size)
{
    static std::map<std::size_t, std::string> made;
    std::string& name = made[size];
    if (!name.empty())
        return name;
    if (made.size() == 1)
        std::atexit(
            []
            {
                for (const auto& [bytes, path] : made)
                    ::unlink(path.c_str());
            });
    name = "/dev/shm/bedrock-blocks-bench-" + std::to_string(::getpid()) + "-" + std::to_string(size);
    std::minstd_rand generator(1);
    const auto random = [&] { return static_cast<unsigned>(generator()); };
    std::FILE* out = std::fopen(name.c_str(), "w");
    if (!out)
        std::abort();
    for (long n = 0; std::ftell(out) < static_cast<long>(size); ++n)
        std::fprintf(out,
                     "entity %ld {\n    name \"object %u\"\n    position %.2f %.2f %.1f\n    size %u %u\n"
                     "    flags %u 0 1 // as placed\n    scale 1.%u\n}\n",
                     n, random() % 1000, random() % 100000 / 100.0 - 500, random() % 10000 / 100.0,
                     random() % 100 / 8.0, random() % 2000, random() % 2000, random() % 2, random() % 100);
    std::fclose(out);
    return name;
}

void Bedrock(benchmark::State& state)
{
    const std::string path = File(static_cast<std::size_t>(state.range(0)));
    const PString entity("entity"), name("name"), position("position"), size("size"), flags("flags"), scale("scale");
    double last = 0;
    for (auto _ : state)
    {
        Zem::File file;
        if (!file.Open(path.c_str(), Zem::File::ModeRead))
            std::abort();
        Zem::BlockReader reader(file);
        double sum = 0;
        int number = 0;
        float real = 0;
        float reals[3];
        int numbers[3];
        char text[100];
        for (PString key; reader.Next(key);)
        {
            if (key != entity || !reader.ReadInt(number))
                continue;
            sum += number;
            Zem::BlockReader* const block = reader.Begin();
            if (!block)
                continue;
            while (block->Next(key))
            {
                if (key == name && block->ReadString(text, sizeof text))
                    sum += static_cast<double>(std::strlen(text));
                else if (key == position && block->ReadFloatv(reals, 3) == 3)
                    sum += reals[0] + reals[1] + reals[2];
                else if (key == size && block->ReadIntv(numbers, 2) == 2)
                    sum += numbers[0] + numbers[1];
                else if (key == flags && block->ReadIntv(numbers, 3) == 3)
                    sum += numbers[0] + numbers[1] + numbers[2];
                else if (key == scale && block->ReadFloat(real))
                    sum += real;
            }
            reader.End();
        }
        benchmark::DoNotOptimize(sum);
        last = sum;
    }
    state.counters["sum"] = last;
}

void GetlineSscanf(benchmark::State& state)
{
    const std::string path = File(static_cast<std::size_t>(state.range(0)));
    double last = 0;
    for (auto _ : state)
    {
        std::FILE* file = std::fopen(path.c_str(), "r");
        if (!file)
            std::abort();
        double sum = 0;
        char* line = nullptr;
        std::size_t room = 0;
        char key[64], text[100];
        int depth = 0;
        while (::getline(&line, &room, file) > 0)
        {
            int at = 0;
            float x, y, z;
            int a, b, c;
            if (std::sscanf(line, "%63s%n", key, &at) != 1 || std::strncmp(key, "//", 2) == 0)
                continue;
            const char* const values = line + at;
            if (std::strcmp(key, "}") == 0)
                --depth;
            else if (depth == 0 && std::strcmp(key, "entity") == 0 && std::sscanf(values, "%d", &a) == 1)
            {
                sum += a;
                depth += std::strchr(values, '{') != nullptr;
            }
            else if (std::strcmp(key, "name") == 0 && std::sscanf(values, " \"%99[^\"]\"", text) == 1)
                sum += static_cast<double>(std::strlen(text));
            else if (std::strcmp(key, "position") == 0 && std::sscanf(values, "%f %f %f", &x, &y, &z) == 3)
                sum += x + y + z;
            else if (std::strcmp(key, "size") == 0 && std::sscanf(values, "%d %d", &a, &b) == 2)
                sum += a + b;
            else if (std::strcmp(key, "flags") == 0 && std::sscanf(values, "%d %d %d", &a, &b, &c) == 3)
                sum += a + b + c;
            else if (std::strcmp(key, "scale") == 0 && std::sscanf(values, "%f", &x) == 1)
                sum += x;
        }
        std::free(line);
        std::fclose(file);
        benchmark::DoNotOptimize(sum);
        last = sum;
    }
    state.counters["sum"] = last;
}

} // namespace

BENCHMARK(Bedrock)->Name("Blocks/read/Bedrock")->Arg(100'000)->Arg(1'000'000)->Arg(10'000'000);
BENCHMARK(GetlineSscanf)->Name("Blocks/read/getline and sscanf")->Arg(100'000)->Arg(1'000'000)->Arg(10'000'000);
