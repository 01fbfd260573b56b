#pragma once

#include <Bedrock/files/File.h>
#include <Bedrock/files/MemoryFile.h>

#include <cstdint>

// What the readers of the image formats share.

namespace Zem
{

/// Bytes from the cursor to the end of the file.
inline std::uint64_t BytesLeft(const MemoryFile& file)
{
    return file.Size() - file.Tell();
}

inline const unsigned char* Cursor(const MemoryFile& file)
{
    return static_cast<const unsigned char*>(file.CurrentPosition());
}

/// A file that is opened by name and read as far as its header. The file closes with the object.
template <unsigned size>
class FileHeader
{
public:
    /// False when the file cannot be opened or is shorter than the header.
    bool Read(const char* name)
    {
        File file;
        return name && file.Open(name, File::ModeRead) && file.Read(bytes, 1, size) == 1;
    }

    const unsigned char* Bytes() const { return bytes; }

private:
    unsigned char bytes[size];
};

// Little-endian numbers of a header, at any address.
inline std::uint16_t Word16(const unsigned char* at)
{
    return static_cast<std::uint16_t>(at[0] | at[1] << 8);
}

inline std::uint32_t Word32(const unsigned char* at)
{
    return Word16(at) | static_cast<std::uint32_t>(Word16(at + 2)) << 16;
}

inline void PutWord16(unsigned char* at, std::uint32_t value)
{
    at[0] = static_cast<unsigned char>(value);
    at[1] = static_cast<unsigned char>(value >> 8);
}

inline void PutWord32(unsigned char* at, std::uint32_t value)
{
    PutWord16(at, value);
    PutWord16(at + 2, value >> 16);
}

/// 256 entries of 3 bytes, red, green, blue, as words with `alpha` (0 or 255) on top.
void ReadMap(const unsigned char* bytes, std::uint32_t alpha, std::uint32_t (&words)[256]);

/// `count` indices as the words that `table` has for them.
void ExpandIndices(unsigned char* dst, const unsigned char* src, std::int32_t count, const std::uint32_t (&table)[256]);

} // namespace Zem
