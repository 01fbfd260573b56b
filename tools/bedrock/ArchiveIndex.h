#pragma once

// What an archive file holds, read from the file itself: every record, also those that lookups never reach.

#include "Console.h"
#include "Output.h"

#include <cstdint>
#include <string>
#include <vector>

namespace Tool
{

/// One member as stored.
struct Record
{
    std::string name;
    std::uint64_t offset; // of the payload
    std::uint32_t stored; // bytes of payload
    std::uint32_t size;   // logical bytes; 0xFFFFFFFF: not known
    std::uint32_t crc;
    std::uint16_t attributes;
    bool shadowed; // an earlier record has the same name, so nobody finds this one

    bool IsCompressed() const { return (attributes & 0x80) != 0; }
    bool IsFolder() const { return (attributes & 0x10) != 0; }
};

class ArchiveIndex
{
public:
    /// Reads the headers of the archive at `path`, a path on disk. Throws a `Failure`: the file cannot be read (3), or is
    /// no archive (1).
    explicit ArchiveIndex(const std::string& path);

    const std::vector<Record>& Records() const { return records; }
    /// Bytes of the file, and of the part that holds whole records; what lies behind that is a torn tail, as a crash in
    /// the middle of an append leaves it.
    std::uint64_t FileSize() const { return fileSize; }
    std::uint64_t WholeSize() const { return wholeSize; }
    /// Records whose name has no end, which lookups pass over.
    std::uint64_t Nameless() const { return nameless; }

    /// The name as lookups compare it: letters A to Z folded.
    static std::string Folded(std::string name);

private:
    std::vector<Record> records;
    std::uint64_t fileSize = 0;
    std::uint64_t wholeSize = 0;
    std::uint64_t nameless = 0;
};

} // namespace Tool
