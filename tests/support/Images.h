#pragma once

// Image files in bytes, as other programs write them, for the tests and benchmarks of the readers.

#include <Bedrock/bitmap/Bitmap.h>
#include <Bedrock/files/MemoryFile.h>

#include <cstdint>
#include <vector>

namespace Test
{

using Bytes = std::vector<std::uint8_t>;

/// Reaches the loaders behind `Bitmap::Load`, so that they read from memory.
struct Loader : Zem::Bitmap
{
    using Bitmap::LoadBMP;
    using Bitmap::LoadJPG;
    using Bitmap::LoadPCX;
    using Bitmap::LoadTGA;
};

inline bool LoadTga(Loader& bitmap, Zem::MemoryFile& file, bool keepIndexed)
{
    return bitmap.LoadTGA(file, keepIndexed);
}

inline bool LoadBmp(Loader& bitmap, Zem::MemoryFile& file, bool keepIndexed)
{
    return bitmap.LoadBMP(file, keepIndexed);
}

inline bool LoadPcx(Loader& bitmap, Zem::MemoryFile& file, bool keepIndexed)
{
    return bitmap.LoadPCX(file, keepIndexed);
}

inline bool LoadJpg(Loader& bitmap, Zem::MemoryFile& file, bool)
{
    return bitmap.LoadJPG(file);
}

inline void Put(Bytes& bytes, std::size_t at, std::uint64_t value, int width)
{
    for (int i = 0; i < width; ++i)
        bytes[at + static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(value >> 8 * i);
}

/// The colour of an index in the maps below: three different bytes.
inline std::uint32_t MapColor(std::uint8_t index)
{
    return static_cast<std::uint32_t>(index) << 16 | static_cast<std::uint32_t>(index ^ 0x5A) << 8 | (255u - index);
}

/// The low `width` bytes of each word.
inline Bytes Raw(const std::vector<std::uint32_t>& words, int width)
{
    Bytes bytes;
    for (std::uint32_t word : words)
        for (int i = 0; i < width; ++i)
            bytes.push_back(static_cast<std::uint8_t>(word >> 8 * i));
    return bytes;
}

/// The same rows in the other order.
inline Bytes Flip(const Bytes& bytes, int rows)
{
    Bytes flipped;
    const auto row = static_cast<std::ptrdiff_t>(bytes.size()) / rows;
    for (int y = rows - 1; y >= 0; --y)
        flipped.insert(flipped.end(), bytes.begin() + y * row, bytes.begin() + (y + 1) * row);
    return flipped;
}

inline Bytes Tga(int width, int height, int depth, const Bytes& pixels, bool topFirst, const Bytes& id = {})
{
    Bytes bytes(18, 0);
    bytes[0] = static_cast<std::uint8_t>(id.size());
    bytes[2] = 2;
    Put(bytes, 12, static_cast<unsigned>(width), 2);
    Put(bytes, 14, static_cast<unsigned>(height), 2);
    bytes[16] = static_cast<std::uint8_t>(depth);
    bytes[17] = topFirst ? 0x20 : 0;
    bytes.insert(bytes.end(), id.begin(), id.end());
    if (depth == 8)
    {
        bytes[1] = bytes[2] = 1;
        bytes[7] = 24;
        for (int i = 0; i < 256; ++i)
            for (int shift : {16, 8, 0}) // red first
                bytes.push_back(static_cast<std::uint8_t>(MapColor(static_cast<std::uint8_t>(i)) >> shift));
    }
    bytes.insert(bytes.end(), pixels.begin(), pixels.end());
    return bytes;
}

/// `colours` goes into the header; that many entries are written, or 256 for 0.
inline Bytes Bmp(int width, int height, int bits, const Bytes& pixels, int colours = 0)
{
    Bytes bytes(54, 0);
    bytes[0] = 'B';
    bytes[1] = 'M';
    const int entries = bits == 8 ? (colours ? colours : 256) : 0;
    Put(bytes, 10, 54u + static_cast<unsigned>(entries) * 4, 4);
    Put(bytes, 14, 40, 4);
    Put(bytes, 18, static_cast<std::uint32_t>(width), 4);
    Put(bytes, 22, static_cast<std::uint32_t>(height), 4);
    bytes[26] = 1;
    bytes[28] = static_cast<std::uint8_t>(bits);
    Put(bytes, 46, static_cast<std::uint32_t>(colours), 4);
    for (int i = 0; i < entries; ++i)
        for (int shift : {0, 8, 16, 24})
            bytes.push_back(static_cast<std::uint8_t>((MapColor(static_cast<std::uint8_t>(i)) | 0x77000000) >> shift));
    bytes.insert(bytes.end(), pixels.begin(), pixels.end());
    return bytes;
}

/// `stream` is the run-length coded part.
inline Bytes Pcx(int width, int height, const Bytes& stream)
{
    Bytes bytes(128, 0);
    bytes[0] = 10;
    bytes[1] = 5;
    bytes[2] = 1;
    bytes[3] = 8;
    Put(bytes, 4, 100, 2); // the image lies somewhere on its screen
    Put(bytes, 6, 50, 2);
    Put(bytes, 8, static_cast<unsigned>(100 + width - 1), 2);
    Put(bytes, 10, static_cast<unsigned>(50 + height - 1), 2);
    bytes.insert(bytes.end(), stream.begin(), stream.end());
    bytes.push_back(12);
    for (int i = 0; i < 256; ++i)
        for (int shift : {16, 8, 0})
            bytes.push_back(static_cast<std::uint8_t>(MapColor(static_cast<std::uint8_t>(i)) >> shift));
    return bytes;
}

} // namespace Test
