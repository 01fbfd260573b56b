// Runs a fuzz target once on each file of the folders and files named, for builds without libFuzzer.

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv)
{
    std::vector<std::filesystem::path> files;
    for (int i = 1; i < argc; ++i)
    {
        if (std::filesystem::is_directory(argv[i]))
            for (const auto& entry : std::filesystem::directory_iterator(argv[i]))
                files.push_back(entry.path());
        else
            files.push_back(argv[i]);
    }
    for (const auto& file : files)
    {
        std::ifstream in(file, std::ios::binary);
        const std::vector<char> bytes{std::istreambuf_iterator<char>(in), {}};
        // A block of exactly the input's size: a read behind it is seen by AddressSanitizer.
        const auto block = std::make_unique<std::uint8_t[]>(bytes.size());
        std::copy(bytes.begin(), bytes.end(), block.get());
        std::printf("%s\n", file.c_str());
        std::fflush(stdout);
        LLVMFuzzerTestOneInput(block.get(), bytes.size());
    }
    if (files.empty())
        std::fprintf(stderr, "no seeds\n");
    return files.empty();
}
