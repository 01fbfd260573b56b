#pragma once

#include <Bedrock/Export.h>

#include <cstdint>

namespace Zem
{

/// CRC-32 over bytes, most significant bit first, polynomial 0x04C11DB7 (the sum that bzip2 uses).
///
/// All operations may be called from any thread at any time.
///
///     std::uint32_t sum = Crc::Calc(header, headerSize, 0);
///     sum = Crc::Calc(body, bodySize, sum); // the sum of header and body, one behind the other
class ZEM_API Crc
{
public:
    Crc() = delete;

    /// The sum of `length` bytes at `data`, continuing `seed`: 0 for the first block, then the sum so far.
    ///
    /// Returns: the sum; for a length of 0 the seed itself, and then `data` may be null.
    static std::uint32_t Calc(const void* data, std::uint32_t length, std::uint32_t seed);

    /// A length of 64 bits would lose its upper half: say where it is cut.
    template <class Wide>
    requires(sizeof(Wide) > sizeof(std::uint32_t)) static std::uint32_t
        Calc(const void* data, Wide length, std::uint32_t seed) = delete;
};

} // namespace Zem
