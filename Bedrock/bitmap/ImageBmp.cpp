// BMP files: 24 bits, and 8 bits with a palette, not compressed, of a width that is a multiple of 4.
//
//     0     2           10              14          18     22      26      28    30           46
//     "BM"  file bytes  pixels' offset  info bytes  width  height  planes  bits  compression  colours used
//
// Behind the 54 bytes come, at 8 bits, the palette entries blue, green, red, reserved, and the rows, the bottom one
// first unless the height is negative. With a width that is a multiple of 4 no row has padding.

#include <Bedrock/bitmap/Bitmap.h>

#include <Bedrock/bitmap/ImageRows.h>

#include <cstring>

namespace Zem
{

namespace
{

enum : unsigned
{
    headerBytes = 54,
    infoBytes = 40
};

struct BmpHeader
{
    std::int32_t width;  // as in the file
    std::int32_t height; // as in the file; negative: top row first
    std::uint32_t rows;  // the magnitude of `height`
    std::uint32_t bits;
    std::uint32_t colours;
    std::uint32_t offset; // of the pixels
};

// False for what is no BMP, or none of the kind that is read.
bool ParseHeader(const unsigned char* bytes, BmpHeader& header)
{
    if (bytes[0] != 'B' || bytes[1] != 'M' || Word32(bytes + 14) != infoBytes || Word16(bytes + 26) != 1 ||
        Word32(bytes + 30) != 0)
        return false;
    header.width = static_cast<std::int32_t>(Word32(bytes + 18));
    header.height = static_cast<std::int32_t>(Word32(bytes + 22));
    header.rows = header.height < 0 ? 0u - Word32(bytes + 22) : Word32(bytes + 22);
    header.bits = Word16(bytes + 28);
    header.colours = Word32(bytes + 46);
    header.offset = Word32(bytes + 10);
    return header.width > 0 && header.width % 4 == 0 && header.rows > 0 && header.rows <= 0x7FFFFFFF;
}

unsigned PaletteEntries(std::uint32_t colours)
{
    return colours >= 1 && colours <= 256 ? colours : 256;
}

} // namespace

bool Bitmap::GetInfoBMP(const char* name, Format& found, std::uint32_t& columns, std::uint32_t& rows)
{
    FileHeader<headerBytes> header;
    if (!header.Read(name))
        return false;
    const unsigned char* bytes = header.Bytes();
    if (bytes[0] != 'B' || bytes[1] != 'M' || Word32(bytes + 14) != infoBytes)
        return false;
    const std::uint32_t tall = Word32(bytes + 22);
    found = XRGB32;
    columns = Word32(bytes + 18);
    rows = tall > 0x7FFFFFFF ? 0u - tall : tall;
    return true;
}

bool Bitmap::LoadBMP(MemoryFile& file, bool keepIndexed)
{
    unsigned char bytes[headerBytes];
    BmpHeader header;
    if (BytesLeft(file) < headerBytes)
        return false;
    file.Read(bytes, 1, headerBytes);
    if (!ParseHeader(bytes, header) || (header.bits != 8 && header.bits != 24))
        return false;
    const bool mapped = header.bits == 8;
    const std::uint64_t pixelBytes = static_cast<std::uint64_t>(header.width) * header.rows * (header.bits / 8);
    if (BytesLeft(file) < pixelBytes + (mapped ? PaletteEntries(header.colours) * 4 : 0))
        return false;

    Init(Size{header.width, static_cast<std::int32_t>(header.rows)}, 0, mapped && keepIndexed ? Indexed8 : XRGB32,
         nullptr, 0);
    if (!pixels)
        return false;
    if (header.height < 0)
        height = -height;
    if (mapped)
        BMP8(file, keepIndexed, header.colours);
    else
        Load24(file);
    return !mapped || !keepIndexed || palette;
}

void Bitmap::BMP8(MemoryFile& file, bool keepIndexed, unsigned int colours)
{
    const unsigned entries = PaletteEntries(colours);
    std::uint32_t words[256] = {};
    for (unsigned i = 0; i < entries; ++i)
        words[i] = Word32(Cursor(file) + 4 * i);
    file.SeekCur(static_cast<std::int32_t>(entries * 4));
    const unsigned char* from = Cursor(file);
    const std::size_t rowBytes = static_cast<std::size_t>(width);
    std::ptrdiff_t step;
    unsigned char* row = FileRows(step);
    if (keepIndexed)
    {
        // Indexed rows stand in memory in the order of the file, whatever its height says.
        row = pixels;
        step = pitch;
        if (AllocatePalette())
            std::memcpy(palette, words, sizeof words); // with the reserved byte as alpha
    }
    else
        for (std::uint32_t& word : words)
            word |= 0xFF000000;
    for (std::int32_t y = 0; y < height; ++y, row += step, from += rowBytes)
        if (keepIndexed)
            std::memcpy(row, from, rowBytes);
        else
            ExpandIndices(row, from, width, words);
    file.SeekCur(static_cast<std::int32_t>(rowBytes * static_cast<std::size_t>(height)));
}

bool Bitmap::AddAlpha(const char* name)
{
    if ((format != ARGB32 && format != XRGB32) || !pixels || !name)
        return false;
    MemoryFile file;
    {
        File source;
        if (!source.Open(name, File::ModeRead) || source.Size() == 0)
            return false;
        file.Open(source);
    }
    unsigned char bytes[headerBytes];
    BmpHeader header;
    if (BytesLeft(file) < headerBytes)
        return false;
    file.Read(bytes, 1, headerBytes);
    if (!ParseHeader(bytes, header) || header.width != width || header.rows != static_cast<std::uint32_t>(height) ||
        header.bits != 8)
        return false;
    if (header.offset > file.Size() ||
        file.Size() - header.offset < static_cast<std::uint64_t>(width) * static_cast<std::uint64_t>(height))
        return false;
    const unsigned char* from = static_cast<const unsigned char*>(file.Data()) + header.offset;
    for (std::int32_t y = height - 1; y >= 0; --y)
    {
        unsigned char* alpha = GetPtr(Point{0, y}) + 3;
        for (std::int32_t x = 0; x < width; ++x, alpha += 4)
            *alpha = *from++;
    }
    return true;
}

// The rows are padded to a multiple of 4 bytes, as every reader of the format expects.
bool Bitmap::SaveBMP(const char* name, bool) const
{
    if ((format != ARGB32 && format != XRGB32) || !pixels || width < 1 || height < 1)
        return false;
    const std::uint32_t padding = static_cast<std::uint32_t>(width) & 3; // 3 * width and this make a multiple of 4
    const std::uint64_t pixelBytes =
        (static_cast<std::uint64_t>(width) * 3 + padding) * static_cast<std::uint64_t>(height);
    if (pixelBytes > 0xFFFFFFFF - headerBytes)
        return false;
    File file;
    if (!file.Open(name, File::ModeWrite | File::ModeCreate))
        return false;
    unsigned char header[headerBytes] = {};
    header[0] = 'B';
    header[1] = 'M';
    PutWord32(header + 2, headerBytes + static_cast<std::uint32_t>(pixelBytes));
    PutWord32(header + 10, headerBytes);
    PutWord32(header + 14, infoBytes);
    PutWord32(header + 18, static_cast<std::uint32_t>(width));
    PutWord32(header + 22, static_cast<std::uint32_t>(-height));
    PutWord16(header + 26, 1);
    PutWord16(header + 28, 24);
    PutWord32(header + 34, static_cast<std::uint32_t>(pixelBytes));
    file.SafeWrite(header, 1, headerBytes);
    unsigned char packed[3 * 1024 + 4];
    for (std::int32_t y = 0; y < height; ++y)
        for (std::int32_t x = 0; x < width; x += 1024)
        {
            const std::int32_t count = width - x < 1024 ? width - x : 1024;
            const unsigned char* from = GetPtr(Point{x, y});
            unsigned char* to = packed;
            for (std::int32_t i = 0; i < count; ++i, from += 4, to += 3)
            {
                to[0] = from[0];
                to[1] = from[1];
                to[2] = from[2];
            }
            if (x + count == width)
                for (std::uint32_t i = 0; i < padding; ++i)
                    *to++ = 0;
            file.SafeWrite(packed, 1, static_cast<std::size_t>(to - packed));
        }
    file.Close();
    return true;
}

} // namespace Zem
