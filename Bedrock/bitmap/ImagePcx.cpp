// PCX files of version 5 with 8 bits, reading only.
//
//     1        2         3     4     6     8     10        128                        -769   -768
//     version  encoding  bits  xmin  ymin  xmax  ymax      run-length coded indices   12     256 times red, green, blue
//
// In the coded indices a byte below 0xC0 is one index, any other a count in its low 6 bits, and the next byte is the
// index to repeat. They are one stream over the whole image: a run may go on in the next row.

#include <Bedrock/bitmap/Bitmap.h>

#include <Bedrock/bitmap/ImageRows.h>

#include <cstring>

namespace Zem
{

namespace
{

enum : unsigned
{
    headerBytes = 128,
    paletteBytes = 769, // with the 12 in front
    longestRun = 63
};

std::int32_t Extent(const unsigned char* low, const unsigned char* high)
{
    return static_cast<std::int16_t>(Word16(high)) - static_cast<std::int16_t>(Word16(low)) + 1;
}

// The stream of runs, from the start of the coded bytes to their end.
struct Runs
{
    const unsigned char* at;
    const unsigned char* end;
    std::size_t left = 0; // of the run in hand
    unsigned char index = 0;

    // The next run; false at the end of the bytes, also when they end between a count and its index.
    bool Next()
    {
        if (at == end)
            return false;
        index = *at++;
        left = 1;
        if (index < 0xC0)
            return true;
        left = index & longestRun;
        if (at == end)
            return false;
        index = *at++;
        return true;
    }
};

// Fills `count` pixels from the stream; false when it ends before.
bool DecodeIndices(Runs& runs, unsigned char* dst, std::size_t count)
{
    while (count > 0)
    {
        while (runs.left == 0)
            if (!runs.Next())
                return false;
        const std::size_t n = runs.left < count ? runs.left : count;
        std::memset(dst, runs.index, n);
        dst += n;
        count -= n;
        runs.left -= n;
    }
    return true;
}

bool DecodeWords(Runs runs, unsigned char* dst, std::size_t count, const std::uint32_t (&words)[256])
{
    while (count > 0)
    {
        if (!runs.Next())
            return false;
        std::uint64_t pair = words[runs.index];
        pair |= pair << 32;
        if (count >= longestRun + 1)
        {
            // Pairs may pass the end of the run by one pixel, which the next run overwrites.
            unsigned char* to = dst;
            for (std::size_t i = 0; i < runs.left; i += 2, to += 8)
                std::memcpy(to, &pair, 8);
            dst += runs.left * 4;
            count -= runs.left;
            continue;
        }
        const std::size_t n = runs.left < count ? runs.left : count;
        for (std::size_t i = 0; i < n; ++i, dst += 4)
            std::memcpy(dst, &pair, 4);
        count -= n;
    }
    return true;
}

} // namespace

bool Bitmap::GetInfoPCX(const char* name, Format& found, std::uint32_t& columns, std::uint32_t& rows)
{
    FileHeader<headerBytes> header;
    if (!header.Read(name) || header.Bytes()[1] != 5)
        return false;
    const unsigned char* bytes = header.Bytes();
    found = XRGB32;
    columns = static_cast<std::uint32_t>(Extent(bytes + 4, bytes + 8));
    rows = static_cast<std::uint32_t>(Extent(bytes + 6, bytes + 10));
    return true;
}

bool Bitmap::LoadPCX(MemoryFile& file, bool keepIndexed)
{
    if (BytesLeft(file) < headerBytes + paletteBytes)
        return false;
    const unsigned char* bytes = Cursor(file);
    const unsigned char* tail = bytes + BytesLeft(file) - paletteBytes;
    if (bytes[1] != 5 || bytes[2] != 1 || bytes[3] != 8 || tail[0] != 12)
        return false;
    const Size size{Extent(bytes + 4, bytes + 8), Extent(bytes + 6, bytes + 10)};
    if (size.width < 1 || size.height < 1)
        return false;
    Runs runs{bytes + headerBytes, tail};
    const std::uint64_t codedBytes = static_cast<std::uint64_t>(runs.end - runs.at);
    const std::uint64_t count = static_cast<std::uint64_t>(size.width) * static_cast<std::uint64_t>(size.height);
    if (count > codedBytes / 2 * longestRun + codedBytes % 2)
        return false; // not even the longest runs would fill it

    std::uint32_t words[256];
    ReadMap(tail + 1, keepIndexed ? 0 : 255, words);
    Init(size, 0, keepIndexed ? Indexed8 : XRGB32, nullptr, 0);
    if (!pixels)
        return false;
    if (!keepIndexed)
        return DecodeWords(runs, pixels, static_cast<std::size_t>(count), words); // rows of words have no padding
    if (!AllocatePalette())
        return false;
    std::memcpy(palette, words, sizeof words);
    for (std::int32_t y = 0; y < height; ++y)
        if (!DecodeIndices(runs, GetPtr(Point{0, y}), static_cast<std::size_t>(width)))
            return false;
    return true;
}

} // namespace Zem
