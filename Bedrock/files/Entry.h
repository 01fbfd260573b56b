#pragma once

#include <Bedrock/Export.h>
#include <Bedrock/files/Path.h>

#include <compare>
#include <cstdint>

namespace Zem
{

/// A moment as signed 32-bit seconds since the operating system's epoch; `File::Time` is its usual name.
union FileTime
{
    std::int32_t seconds;

    void SetSeconds(std::int32_t value) { seconds = value; }
    FileTime& operator=(std::int32_t value)
    {
        seconds = value;
        return *this;
    }
    friend bool operator==(const FileTime& a, const FileTime& b) { return a.seconds == b.seconds; }
    friend std::strong_ordering operator<=>(const FileTime& a, const FileTime& b) { return a.seconds <=> b.seconds; }
};

/// One file of a folder or one member of an archive; `File::Entry` is its usual name.
///
/// The record has the same 288 bytes in memory and in archives, where all numbers are little-endian:
///
///     0    260  name            path, terminated; bytes behind the terminator mean nothing
///     260  4    storedSize      bytes of payload
///     264  4    crc             of the logical bytes; 0 on disk
///     268  4    timeCreate      seconds; archives store 0 in all three
///     272  4    timeAccess
///     276  4    timeWrite
///     280  2    attributes      0x01 read-only, 0x02 hidden, 0x10 folder, 0x80 payload is a compressed stream
///     282  2    reserved        0
///     284  4    size            logical bytes; 0xFFFFFFFF: not known
///
/// The constructor clears all but `name`.
struct ZEM_API FileEntry
{
    enum Attributes : std::uint16_t
    {
        ReadOnly = 0x01,
        Hidden = 0x02,
        Directory = 0x10,
        Compressed = 0x80,
    };

    bool IsDir() const { return (attributes & Directory) != 0; }
    bool IsHidden() const { return (attributes & Hidden) != 0; }
    bool IsCompressed() const { return (attributes & Compressed) != 0; }

    FilePath name;
    std::uint32_t storedSize = 0;
    std::uint32_t crc = 0;
    FileTime timeCreate{0};
    FileTime timeAccess{0};
    FileTime timeWrite{0};
    std::uint16_t attributes = 0;
    std::uint16_t reserved = 0;
    std::uint32_t size = 0;
};

static_assert(sizeof(FileEntry) == 288);

} // namespace Zem
