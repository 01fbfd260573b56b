// Entry of every test program: prints what the run depends on, then runs the tests.

#include "support/Support.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <unistd.h>

namespace Test
{

std::uint64_t Seed()
{
    static const std::uint64_t seed = []
    {
        const char* text = std::getenv("BEDROCK_TEST_SEED");
        return text ? std::strtoull(text, nullptr, 0) : std::random_device{}();
    }();
    return seed;
}

std::string UniqueName(const char* what)
{
    static int calls = 0;
    return "bedrock test " + std::to_string(getpid()) + "/" + std::to_string(++calls) + " " + what;
}

Directory::Directory() : previous(std::filesystem::current_path())
{
    std::string name = (std::filesystem::temp_directory_path() / "bedrock-test-XXXXXX").string();
    if (!mkdtemp(name.data()))
        std::abort();
    path = name;
    std::filesystem::current_path(path);
}

Directory::~Directory()
{
    std::error_code ignored;
    std::filesystem::current_path(previous, ignored);
    std::filesystem::remove_all(path, ignored);
}

std::vector<std::uint8_t> ReadFile(const std::filesystem::path& path)
{
    std::ifstream in(path, std::ios::binary);
    EXPECT_TRUE(in.good()) << path;
    return {std::istreambuf_iterator<char>(in), {}};
}

void WriteFile(const std::filesystem::path& path, const void* data, std::size_t size)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(static_cast<const char*>(data), static_cast<std::streamsize>(size));
    EXPECT_TRUE(out.flush().good()) << path;
}

} // namespace Test

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    if (!testing::GTEST_FLAG(list_tests))
        std::printf("compiler %s, %zu bits, BEDROCK_TEST_SEED=%llu\n", __VERSION__, 8 * sizeof(void*),
                    static_cast<unsigned long long>(Test::Seed()));
    return RUN_ALL_TESTS();
}
