#include <Bedrock/host/Crc.h>
#include <Bedrock/host/CrcKernels.h>
#include <Bedrock/platform/Processor.h>

#include "support/Support.h"

namespace
{

using Zem::Crc;

// The definition, bit by bit.
std::uint32_t Bitwise(std::uint32_t crc, const std::uint8_t* data, std::size_t size)
{
    for (std::size_t i = 0; i < size; ++i)
    {
        crc ^= std::uint32_t{data[i]} << 24;
        for (int bit = 0; bit < 8; ++bit)
            crc = crc & 0x80000000 ? crc << 1 ^ 0x04C11DB7 : crc << 1;
    }
    return crc;
}

} // namespace

TEST(Crc, KnownSumsAndSeeds)
{
    EXPECT_EQ(Crc::Calc("123456789", 9, 0), 0xFC891918u);
    EXPECT_EQ(Crc::Calc("abc", 3, 0), 0x648CBB73u);
    EXPECT_EQ(Crc::Calc(nullptr, 0, 0x12345678), 0x12345678u);
    for (std::uint32_t cut = 0; cut <= 9; ++cut)
        EXPECT_EQ(Crc::Calc(&"123456789"[cut], 9 - cut, Crc::Calc("123456789", cut, 0)), 0xFC891918u) << cut;
}

// Every kernel that this processor runs, over all lengths around its steps, at all alignments, in exact blocks.
TEST(Crc, KernelsAgreeWithTheDefinition)
{
    namespace Kernels = Zem::CrcKernels;
    const auto features = Zem::Platform::Processor();
    const struct
    {
        const char* name;
        bool runs;
        Kernels::Update update;
    } kernels[] = {
        {"table", true, &Kernels::UpdateTable},
        {"clmul", features.clmul, &Kernels::UpdateClmul},
        {"avx512", features.avx512 && features.clmul, &Kernels::UpdateAvx512},
    };
    auto random = ::Test::Random();
    for (const std::size_t size :
         []
         {
             std::vector<std::size_t> sizes;
             for (std::size_t n = 0; n <= 300; ++n)
                 sizes.push_back(n);
             for (std::size_t n : {511, 512, 513, 575, 767, 768, 769, 1024, 1031, 4096 + 63, 65536 + 17})
                 sizes.push_back(n);
             return sizes;
         }())
    {
        const std::size_t offsets = size <= 300 ? 16 : 65;
        const auto block = std::make_unique<std::uint8_t[]>(size + offsets); // the last offset ends where it ends
        for (std::size_t i = 0; i < size + offsets; ++i)
            block[i] = static_cast<std::uint8_t>(random());
        const auto seed = static_cast<std::uint32_t>(random());
        for (std::size_t at = 0; at <= offsets; at += size <= 300 ? 1 : 13)
        {
            const std::uint32_t expected = Bitwise(seed, block.get() + at, size);
            for (const auto& kernel : kernels)
            {
                if (!kernel.runs)
                    continue;
                ASSERT_EQ(kernel.update(seed, block.get() + at, size), expected)
                    << kernel.name << " length " << size << " offset " << at;
            }
            ASSERT_EQ(Crc::Calc(block.get() + at, static_cast<std::uint32_t>(size), ~seed), ~expected);
        }
    }
}
