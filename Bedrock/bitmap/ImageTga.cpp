// TGA files: colour-mapped with 8 bits, true colour with 16, 24 and 32 bits, not compressed.
//
//     0       1          2      3             5           7           8       12      14       16      17
//     ID len  map type   type   map first(2)  map len(2)  map bits    origin  width   height   depth   descriptor
//
// Behind the 18 bytes come the ID, for type 1 the map of 256 times red, green, blue (its place in the file, its length
// and its order are taken as these, whatever the header says), and the rows.

#include <Bedrock/bitmap/Bitmap.h>

#include <Bedrock/bitmap/ImageRows.h>

#include <cstring>

namespace Zem
{

namespace
{

enum : unsigned
{
    headerBytes = 18,
    mapBytes = 768,
    typeMapped = 1,
    typeTrueColour = 2,
    rightToLeft = 0x10,
    topFirst = 0x20,
    interleaved = 0xC0
};

} // namespace

bool Bitmap::GetInfoTGA(const char* name, Format& found, std::uint32_t& columns, std::uint32_t& rows)
{
    FileHeader<headerBytes> header;
    if (!header.Read(name))
        return false;
    const unsigned char* bytes = header.Bytes();
    if (bytes[2] == typeMapped)
        found = Indexed8;
    else if (bytes[2] == typeTrueColour)
        found = bytes[16] == 32 ? ARGB32 : XRGB32;
    else
        found = Blob;
    columns = Word16(bytes + 12);
    rows = Word16(bytes + 14);
    return true;
}

bool Bitmap::LoadTGA(MemoryFile& file, bool keepIndexed)
{
    unsigned char header[headerBytes];
    if (BytesLeft(file) < headerBytes)
        return false;
    file.Read(header, 1, headerBytes);
    const unsigned idBytes = header[0], mapType = header[1], type = header[2], mapBits = header[7];
    const unsigned depth = header[16], descriptor = header[17];
    const Size size{Word16(header + 12), Word16(header + 14)};
    if (BytesLeft(file) < idBytes)
        return false;
    file.SeekCur(static_cast<std::int32_t>(idBytes));

    if (descriptor & (rightToLeft | interleaved))
        return false;
    const bool mapped = type == typeMapped;
    if (mapped ? mapType != 1 || mapBits != 24 || depth != 8
               : type != typeTrueColour || mapType != 0 || (depth != 16 && depth != 24 && depth != 32))
        return false;
    const std::uint64_t pixelBytes =
        static_cast<std::uint64_t>(size.width) * static_cast<std::uint64_t>(size.height) * (depth / 8);
    if (pixelBytes == 0 || BytesLeft(file) < pixelBytes + (mapped ? mapBytes : 0u))
        return false;

    Init(size, 0, mapped && keepIndexed ? Indexed8 : depth == 32 ? ARGB32 : XRGB32, nullptr, 0);
    if (!pixels)
        return false;
    if (descriptor & topFirst)
        height = -height;
    if (depth == 32)
        Load32(file);
    else if (depth == 24)
        Load24(file);
    else if (depth == 16)
        TGA16(file);
    else
        TGA8(file, keepIndexed);
    return !mapped || !keepIndexed || palette;
}

void Bitmap::TGA16(MemoryFile& file)
{
    Load15(file);
}

void Bitmap::TGA8(MemoryFile& file, bool keepIndexed)
{
    std::ptrdiff_t step;
    unsigned char* row = FileRows(step);
    std::uint32_t words[256];
    ReadMap(Cursor(file), keepIndexed ? 0 : 255, words);
    file.SeekCur(mapBytes);
    const unsigned char* from = Cursor(file);
    const std::size_t rowBytes = static_cast<std::size_t>(width);
    for (std::int32_t y = 0; y < height; ++y, row += step, from += rowBytes)
        if (keepIndexed)
            std::memcpy(row, from, rowBytes);
        else
            ExpandIndices(row, from, width, words);
    file.SeekCur(static_cast<std::int32_t>(rowBytes * static_cast<std::size_t>(height)));
    if (keepIndexed && AllocatePalette())
        std::memcpy(palette, words, sizeof words);
}

bool Bitmap::SaveTGA(const char* name) const
{
    if (format != ARGB32 || !pixels || width < 1 || height < 1 || width > 0xFFFF || height > 0xFFFF)
        return false;
    File file;
    if (!file.Open(name, File::ModeWrite | File::ModeCreate))
        return false;
    unsigned char header[headerBytes] = {};
    header[2] = typeTrueColour;
    PutWord16(header + 12, static_cast<std::uint32_t>(width));
    PutWord16(header + 14, static_cast<std::uint32_t>(height));
    header[16] = 32;
    header[17] = topFirst;
    file.SafeWrite(header, 1, headerBytes);
    const std::size_t rowBytes = static_cast<std::size_t>(width) * 4;
    if (pitch == width * std::int64_t{4})
        file.SafeWrite(pixels, 1, rowBytes * static_cast<std::size_t>(height));
    else
        for (std::int32_t y = 0; y < height; ++y)
            file.SafeWrite(GetPtr(Point{0, y}), 1, rowBytes);
    file.Close();
    return true;
}

} // namespace Zem
