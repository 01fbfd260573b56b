#pragma once

#include <Bedrock/files/Entry.h>

#include <cstdint>
#include <cstring>

/// The archive file, byte by byte. All numbers are little-endian.
///
///     0    4   "ARCH"
///     4    4   "INFO"    a chunk: 4 bytes id, 4 bytes length of what follows
///     8    4   32
///     12   4   "0CRA"
///     16   4   0xF101    format number
///     20   24  0
///     44       chunks to the end of the file; readers step over ids that they do not know
///
/// The chunk of a member:
///
///     0    4    "FIL "
///     4    4    288 + stored size; written last: while it is 0 the member is not there
///     8    288  entry, see `FileEntry`
///     296       payload, plain or a compressed stream
namespace Zem::ArchiveFormat
{

inline constexpr std::uint32_t fileHeaderSize = 44;
inline constexpr std::uint32_t magicSize = 4;
inline constexpr std::uint32_t infoSize = 32;
inline constexpr std::uint32_t formatNumber = 0xF101;
inline constexpr std::uint32_t chunkHeaderSize = 8;
inline constexpr std::uint32_t entrySize = 288;
inline constexpr std::uint32_t memberHeaderSize = chunkHeaderSize + entrySize;

inline constexpr std::uint8_t fileHeader[fileHeaderSize] = {'A', 'R', 'C', 'H', 'I', 'N', 'F', 'O',  infoSize,
                                                            0,   0,   0,   '0', 'C', 'R', 'A', 0x01, 0xF1};

inline std::uint16_t Get16(const std::uint8_t* at)
{
    return static_cast<std::uint16_t>(at[0] | at[1] << 8);
}

inline std::uint32_t Get32(const std::uint8_t* at)
{
    return at[0] | std::uint32_t{at[1]} << 8 | std::uint32_t{at[2]} << 16 | std::uint32_t{at[3]} << 24;
}

inline void Put16(std::uint8_t* at, std::uint32_t value)
{
    at[0] = static_cast<std::uint8_t>(value);
    at[1] = static_cast<std::uint8_t>(value >> 8);
}

inline void Put32(std::uint8_t* at, std::uint32_t value)
{
    Put16(at, value & 0xFFFF);
    Put16(at + 2, value >> 16);
}

inline bool IsId(const std::uint8_t* chunk, const char* id)
{
    return std::memcmp(chunk, id, 4) == 0;
}

/// The entry at `bytes`; false for a name without an end.
inline bool Decode(FileEntry& entry, const std::uint8_t* bytes)
{
    const auto* name = reinterpret_cast<const char*>(bytes);
    if (!std::memchr(name, 0, FilePath::capacity))
        return false;
    entry.name = name;
    entry.storedSize = Get32(bytes + 260);
    entry.crc = Get32(bytes + 264);
    entry.timeCreate = static_cast<std::int32_t>(Get32(bytes + 268));
    entry.timeAccess = static_cast<std::int32_t>(Get32(bytes + 272));
    entry.timeWrite = static_cast<std::int32_t>(Get32(bytes + 276));
    entry.attributes = Get16(bytes + 280);
    entry.reserved = Get16(bytes + 282);
    entry.size = Get32(bytes + 284);
    return true;
}

/// Bytes of the name behind its end are 0.
inline void Encode(std::uint8_t* bytes, const FileEntry& entry)
{
    std::memset(bytes, 0, FilePath::capacity);
    std::memcpy(bytes, entry.name.Text(), entry.name.Length());
    Put32(bytes + 260, entry.storedSize);
    Put32(bytes + 264, entry.crc);
    Put32(bytes + 268, static_cast<std::uint32_t>(entry.timeCreate.seconds));
    Put32(bytes + 272, static_cast<std::uint32_t>(entry.timeAccess.seconds));
    Put32(bytes + 276, static_cast<std::uint32_t>(entry.timeWrite.seconds));
    Put16(bytes + 280, entry.attributes);
    Put16(bytes + 282, entry.reserved);
    Put32(bytes + 284, entry.size);
}

} // namespace Zem::ArchiveFormat
