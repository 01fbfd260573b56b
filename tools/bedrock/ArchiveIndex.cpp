#include "ArchiveIndex.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <unordered_set>

namespace Tool
{

namespace
{

constexpr std::size_t headerSize = 8; // id and length of a chunk
constexpr std::size_t nameSize = 260;
constexpr std::size_t entrySize = 288;

std::uint32_t Number(const unsigned char* at)
{
    return at[0] | at[1] << 8 | at[2] << 16 | static_cast<std::uint32_t>(at[3]) << 24;
}

// Bytes read at `offset`, fewer only at the end of the file.
std::size_t ReadAt(int file, const std::string& path, void* dst, std::size_t size, std::uint64_t offset)
{
    std::size_t got = 0;
    while (got < size)
    {
        const ssize_t n = pread(file, static_cast<char*>(dst) + got, size - got, static_cast<off_t>(offset + got));
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            FailSystem(path, "cannot read", errno);
        if (n == 0)
            break;
        got += static_cast<std::size_t>(n);
    }
    return got;
}

} // namespace

std::string ArchiveIndex::Folded(std::string name)
{
    for (char& c : name)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    return name;
}

ArchiveIndex::ArchiveIndex(const std::string& path)
{
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)); // a pipe is told, not waited for
    struct stat status;
    if (!file || fstat(file.Get(), &status) != 0)
        FailSystem(path, "cannot open", errno);
    if (!S_ISREG(status.st_mode))
        Fail(Exit::Bad, path, "is not an archive");
    fileSize = static_cast<std::uint64_t>(status.st_size);

    // "ARCH", then the chunk "INFO" of 32 bytes that begin with the mark and the format number.
    unsigned char start[20];
    if (ReadAt(file.Get(), path, start, sizeof start, 0) < sizeof start || std::memcmp(start, "ARCHINFO", 8) != 0 ||
        std::memcmp(start + 12, "0CRA\x01\xF1\0", 8) != 0)
        Fail(Exit::Bad, path, "is not an archive");

    std::unordered_set<std::string> names;
    wholeSize = 4;
    while (wholeSize + headerSize <= fileSize)
    {
        unsigned char chunk[headerSize + entrySize];
        const std::size_t got = ReadAt(file.Get(), path, chunk, sizeof chunk, wholeSize);
        const std::uint32_t length = Number(chunk + 4);
        const bool isMember = std::memcmp(chunk, "FIL ", 4) == 0;
        if (got < headerSize || wholeSize + headerSize + length > fileSize || (isMember && length < entrySize))
            break;
        const unsigned char* const entry = chunk + headerSize;
        if (isMember && !std::memchr(entry, 0, nameSize))
            ++nameless;
        else if (isMember)
        {
            Record record;
            record.name = reinterpret_cast<const char*>(entry);
            record.offset = wholeSize + headerSize + entrySize;
            record.stored = length - static_cast<std::uint32_t>(entrySize);
            record.crc = Number(entry + 264);
            record.attributes = static_cast<std::uint16_t>(entry[280] | entry[281] << 8);
            record.size = Number(entry + 284);
            record.shadowed = !names.insert(Folded(record.name)).second;
            records.push_back(std::move(record));
        }
        wholeSize += headerSize + length;
    }
}

} // namespace Tool
