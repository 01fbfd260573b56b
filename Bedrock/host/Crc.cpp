#include <Bedrock/host/Crc.h>

#include <Bedrock/host/CrcKernels.h>
#include <Bedrock/platform/Processor.h>

#include <atomic>

namespace Zem
{

namespace CrcKernels
{

namespace
{

// slice[k][b] is the register after byte b and k zero bytes, from a register of 0. Sixteen bytes are then sixteen
// independent look-ups, where the plain loop waits for each one before the next.
struct Slices
{
    std::uint32_t slice[16][256];
};

consteval Slices MakeSlices()
{
    Slices slices{};
    for (std::uint32_t byte = 0; byte < 256; ++byte)
    {
        std::uint32_t crc = byte << 24;
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc << 1) ^ ((crc >> 31) * polynomial);
        slices.slice[0][byte] = crc;
    }
    for (int k = 1; k < 16; ++k)
        for (int byte = 0; byte < 256; ++byte)
        {
            const std::uint32_t crc = slices.slice[k - 1][byte];
            slices.slice[k][byte] = (crc << 8) ^ slices.slice[0][crc >> 24];
        }
    return slices;
}

constinit const Slices tables = MakeSlices();

} // namespace

std::uint32_t UpdateTable(std::uint32_t crc, const std::uint8_t* data, std::size_t size)
{
    const auto& slice = tables.slice;
    for (; size >= 16; data += 16, size -= 16)
    {
        std::uint32_t next = slice[15][(crc >> 24) ^ data[0]] ^ slice[14][((crc >> 16) & 0xFF) ^ data[1]] ^
                             slice[13][((crc >> 8) & 0xFF) ^ data[2]] ^ slice[12][(crc & 0xFF) ^ data[3]];
        for (int i = 4; i < 16; ++i)
            next ^= slice[15 - i][data[i]];
        crc = next;
    }
    for (; size > 0; ++data, --size)
        crc = (crc << 8) ^ slice[0][(crc >> 24) ^ *data];
    return crc;
}

} // namespace CrcKernels

namespace
{

std::uint32_t UpdateFirst(std::uint32_t crc, const std::uint8_t* data, std::size_t size);

// The kernel in use. It starts as the one that chooses, so it is right before any initialiser has run; two threads
// that come first at once store the same choice.
constinit std::atomic<CrcKernels::Update> update{&UpdateFirst};

std::uint32_t UpdateFirst(std::uint32_t crc, const std::uint8_t* data, std::size_t size)
{
    const Platform::ProcessorFeatures features = Platform::Processor();
    const CrcKernels::Update best = features.avx512 && features.clmul ? &CrcKernels::UpdateAvx512
                                    : features.clmul                  ? &CrcKernels::UpdateClmul
                                                                      : &CrcKernels::UpdateTable;
    update.store(best, std::memory_order_relaxed);
    return best(crc, data, size);
}

} // namespace

std::uint32_t Crc::Calc(const void* data, std::uint32_t length, std::uint32_t seed)
{
    return ~update.load(std::memory_order_relaxed)(~seed, static_cast<const std::uint8_t*>(data), length);
}

} // namespace Zem
