// The table of premultiplied components, made by the compiler: it lies in read-only memory and is right before any
// code runs. And the two colour conversions that read it.

#include <Bedrock/bitmap/kernels/Kernels.h>

namespace Zem::Kernels
{

namespace
{

struct Table
{
    std::uint8_t entry[256][256];
};

constexpr Table MakeTable()
{
    Table table{};
    for (unsigned a = 0; a < 256; ++a)
        for (unsigned c = 0; c < 256; ++c)
            table.entry[a][c] = static_cast<std::uint8_t>((a * c + 127) / 255);
    return table;
}

alignas(256) constexpr Table madeTable = MakeTable();

} // namespace

constinit const std::uint8_t (&premultiplied)[256][256] = madeTable.entry;

} // namespace Zem::Kernels

namespace
{

// Red, green and blue scaled by alpha; the alpha byte is not kept.
std::uint32_t Flatten(std::uint32_t argb)
{
    if (argb >= 0xFF000000)
        return argb;
    const std::uint8_t* scaled = Zem::Kernels::premultiplied[argb >> 24];
    return static_cast<std::uint32_t>(scaled[argb >> 16 & 255]) << 16 |
           static_cast<std::uint32_t>(scaled[argb >> 8 & 255]) << 8 | scaled[argb & 255];
}

} // namespace

std::uint32_t ARGBToRGB16(std::uint32_t argb)
{
    argb = Flatten(argb);
    return (argb >> 8 & 0xF800) | (argb >> 5 & 0x07E0) | (argb >> 3 & 0x001F);
}

std::uint32_t ARGBToRGB24(std::uint32_t argb)
{
    return Flatten(argb) | 0xFF000000;
}
