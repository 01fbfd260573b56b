#pragma once

#include <cstddef>
#include <cstdint>

// The ways to run bytes through the register of Crc. All give the same result; they differ in what they need of the
// processor. The register here is the raw one, not complemented.

namespace Zem::CrcKernels
{

using Update = std::uint32_t (*)(std::uint32_t crc, const std::uint8_t* data, std::size_t size);

std::uint32_t UpdateTable(std::uint32_t crc, const std::uint8_t* data, std::size_t size);  // any processor
std::uint32_t UpdateClmul(std::uint32_t crc, const std::uint8_t* data, std::size_t size);  // ProcessorFeatures::clmul
std::uint32_t UpdateAvx512(std::uint32_t crc, const std::uint8_t* data, std::size_t size); // ProcessorFeatures::avx512

inline constexpr std::uint32_t polynomial = 0x04C11DB7; // x^32 is implied

/// x to the power of `n` modulo the polynomial: what folding data over a distance of `n` bits multiplies by.
consteval std::uint32_t PowerOfX(unsigned n)
{
    std::uint32_t value = 1;
    for (; n > 0; --n)
        value = (value << 1) ^ ((value >> 31) * polynomial);
    return value;
}

} // namespace Zem::CrcKernels
