#include "ArchiveBuilder.h"

#include <Bedrock/files/BPE.h>
#include <Bedrock/files/File.h>
#include <Bedrock/host/Crc.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace Tool
{

namespace
{

constexpr std::size_t bufferSize = 1 << 20;
constexpr std::uint32_t frameSize = Zem::File::blockSize;
constexpr std::uint64_t largestArchive = 0xFFFFFFFF; // offsets in it are 32 bits

// "ARCH", the chunk "INFO" of 32 bytes: mark, format number, zeros.
constexpr unsigned char start[44] = {'A', 'R', 'C', 'H', 'I', 'N', 'F', 'O',  32,
                                     0,   0,   0,   '0', 'C', 'R', 'A', 0x01, 0xF1};

void Store(unsigned char* at, std::uint32_t number)
{
    for (int i = 0; i < 4; ++i)
        at[i] = static_cast<unsigned char>(number >> 8 * i);
}

// A "FIL " chunk up to its payload: id, length, and the 288 bytes of Zem::File::Entry, whose ruler gives the offsets.
struct MemberHeader
{
    unsigned char bytes[8 + 288] = {'F', 'I', 'L', ' '};

    MemberHeader(const std::string& name, bool compress)
    {
        std::memcpy(bytes + 8, name.data(), name.size());
        bytes[8 + 280] = compress ? Zem::File::Entry::Compressed : 0;
    }
    void Set(std::uint32_t stored, std::uint32_t crc, std::uint32_t size)
    {
        Store(bytes + 4, 288 + stored);
        Store(bytes + 8 + 260, stored);
        Store(bytes + 8 + 264, crc);
        Store(bytes + 8 + 284, size);
    }
};

} // namespace

ArchiveBuilder::ArchiveBuilder(const std::string& path, const std::string& shownName)
    : shown(shownName), file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666))
{
    if (!file)
        FailSystem(shown, "cannot create", errno);
    buffer.reserve(bufferSize + 2 * frameSize);
    Put(start, sizeof start);
}

void ArchiveBuilder::WriteAt(std::uint64_t offset, const void* data, std::size_t size)
{
    for (const char* at = static_cast<const char*>(data); size;)
    {
        const ssize_t n = pwrite(file.Get(), at, size, static_cast<off_t>(offset));
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            FailSystem(shown, "cannot write", errno);
        at += n;
        offset += static_cast<std::uint64_t>(n);
        size -= static_cast<std::size_t>(n);
    }
}

void ArchiveBuilder::Flush()
{
    WriteAt(flushed, buffer.data(), buffer.size());
    flushed += buffer.size();
    buffer.clear();
}

void ArchiveBuilder::Put(const void* data, std::size_t size)
{
    if (flushed + buffer.size() + size > largestArchive)
        Fail(Exit::Usage, shown, "the archive would be larger than 4 GiB");
    const auto* bytes = static_cast<const unsigned char*>(data);
    buffer.insert(buffer.end(), bytes, bytes + size);
    if (buffer.size() >= bufferSize)
        Flush();
}

// Overwrites bytes that were put before.
void ArchiveBuilder::Patch(std::uint64_t offset, const void* data, std::size_t size)
{
    if (offset < flushed)
    {
        Flush();
        WriteAt(offset, data, size);
    }
    else
        std::memcpy(buffer.data() + (offset - flushed), data, size);
}

// A header of 16 bits and a payload; bit 15 marks a payload that is stored as it is.
void ArchiveBuilder::PutFrame(const unsigned char* data, std::uint32_t size, std::uint32_t& stored)
{
    unsigned char frame[2 + frameSize];
    const std::uint32_t length = Zem::BPE::Comp(frame + 2, data, size);
    const std::uint32_t header = length == size ? length | 0x8000 : length;
    frame[0] = static_cast<unsigned char>(header);
    frame[1] = static_cast<unsigned char>(header >> 8);
    Put(frame, 2 + length);
    stored += 2 + length;
}

void ArchiveBuilder::Add(const Source& source, bool compress, Progress& progress)
{
    Reader in(source.path, source.onDisk);
    const std::uint64_t offset = flushed + buffer.size();
    MemberHeader header(source.member, compress);
    Put(header.bytes, sizeof header.bytes);
    std::uint32_t stored = 0, crc = 0, size = 0;
    if (compress)
    {
        Put("CFIL", 4);
        stored = 4;
    }
    unsigned char block[frameSize];
    for (std::size_t n = frameSize; n == frameSize;)
    {
        n = 0; // a frame is full but for the last, however the bytes come
        while (n < frameSize)
        {
            const std::size_t got = in.Read(block + n, frameSize - n);
            if (got == 0)
                break;
            n += got;
        }
        if (n == 0)
            break;
        const auto count = static_cast<std::uint32_t>(n);
        if (size > largestArchive - count)
            Fail(Exit::Usage, source.path, "cannot be stored: larger than 4 GiB");
        size += count;
        crc = Zem::Crc::Calc(block, count, crc);
        if (compress)
            PutFrame(block, count, stored);
        else
        {
            Put(block, count);
            stored += count;
        }
        progress.Advance(count, source.member);
        CheckInterrupt();
    }
    header.Set(stored, crc, size);
    Patch(offset, header.bytes, sizeof header.bytes);
}

void ArchiveBuilder::Finish()
{
    Flush();
    if (fsync(file.Get()) != 0)
        FailSystem(shown, "cannot write", errno);
}

} // namespace Tool
