// Decoders of plain rows. They walk a block in memory that is known to hold all of them; where a format's row is what a
// pixel kernel takes, the kernel does the work.

#include <Bedrock/bitmap/ImageRows.h>

#include <Bedrock/bitmap/Bitmap.h>

#include <cstring>

namespace Zem
{

void ReadMap(const unsigned char* bytes, std::uint32_t alpha, std::uint32_t (&words)[256])
{
    for (unsigned i = 0; i < 256; ++i, bytes += 3)
        words[i] = alpha << 24 | static_cast<std::uint32_t>(bytes[0]) << 16 |
                   static_cast<std::uint32_t>(bytes[1]) << 8 | bytes[2];
}

void ExpandIndices(unsigned char* dst, const unsigned char* src, std::int32_t count, const std::uint32_t (&table)[256])
{
    for (; count >= 8; count -= 8, src += 8, dst += 32)
    {
        // All eight indices in one load: the stores could not be proved to leave them alone.
        std::uint64_t indices;
        std::memcpy(&indices, src, 8);
        for (int i = 0; i < 8; i += 2, indices >>= 16)
        {
            const std::uint64_t pair = table[indices & 255] | static_cast<std::uint64_t>(table[indices >> 8 & 255])
                                                                  << 32;
            std::memcpy(dst + 4 * i, &pair, 8);
        }
    }
    for (; count > 0; --count, ++src, dst += 4)
        std::memcpy(dst, &table[*src], 4);
}

// Where the first row in the file goes, and the way from there to the next: up from the bottom row, or, when a negative
// height says so, down from the top.
unsigned char* Bitmap::FileRows(std::ptrdiff_t& step)
{
    if (height < 0)
    {
        height = -height;
        step = pitch;
        return pixels;
    }
    step = -static_cast<std::ptrdiff_t>(pitch);
    return GetPtr(Point{0, height - 1});
}

void Bitmap::Load32(MemoryFile& file)
{
    std::ptrdiff_t step;
    unsigned char* row = FileRows(step);
    const std::size_t rowBytes = static_cast<std::size_t>(width) * 4;
    const unsigned char* from = Cursor(file);
    if (step == static_cast<std::ptrdiff_t>(rowBytes))
        std::memcpy(row, from, rowBytes * static_cast<std::size_t>(height));
    else
        for (std::int32_t y = 0; y < height; ++y, row += step)
            std::memcpy(row, from + static_cast<std::size_t>(y) * rowBytes, rowBytes);
    file.SeekCur(static_cast<std::int32_t>(rowBytes * static_cast<std::size_t>(height)));
}

void Bitmap::Load24(MemoryFile& file)
{
    std::ptrdiff_t step;
    unsigned char* row = FileRows(step);
    const std::size_t rowBytes = static_cast<std::size_t>(width) * 3;
    const unsigned char* from = Cursor(file);
    for (std::int32_t y = 0; y < height; ++y, row += step, from += rowBytes)
        kernels.from24(row, from, width);
    file.SeekCur(static_cast<std::int32_t>(rowBytes * static_cast<std::size_t>(height)));
}

void Bitmap::Load16(MemoryFile& file)
{
    std::ptrdiff_t step;
    unsigned char* row = FileRows(step);
    const std::size_t rowBytes = static_cast<std::size_t>(width) * 2;
    const unsigned char* from = Cursor(file);
    for (std::int32_t y = 0; y < height; ++y, row += step, from += rowBytes)
        kernels.from16(row, from, width);
    file.SeekCur(static_cast<std::int32_t>(rowBytes * static_cast<std::size_t>(height)));
}

void Bitmap::Load15(MemoryFile& file)
{
    std::ptrdiff_t step;
    unsigned char* row = FileRows(step);
    const unsigned char* from = Cursor(file);
    for (std::int32_t y = 0; y < height; ++y, row += step)
        for (std::int32_t x = 0; x < width; ++x, from += 2)
        {
            const std::uint32_t p = Word16(from);
            const std::uint32_t word = 0xFF000000 | (p << 9 & 0xF80000) | (p << 6 & 0xF800) | (p << 3 & 0xF8);
            std::memcpy(row + static_cast<std::size_t>(x) * 4, &word, 4);
        }
    file.SeekCur(static_cast<std::int32_t>(static_cast<std::size_t>(width) * 2 * static_cast<std::size_t>(height)));
}

} // namespace Zem
