// File: everything that reads.

#include <Bedrock/files/File.h>

#include <Bedrock/files/FileSub.h>
#include <Bedrock/host/Exception.h>
#include <Bedrock/memory/PString.h>
#include <Bedrock/memory/String.h>
#include <Bedrock/platform/Files.h>

namespace Zem
{

// Ready to read at the position: open, allowed, nothing pending.
void File::PrepareRead()
{
    if (!IsOpen())
        throw FileEx("File", __LINE__, "Read() File is not open");
    if ((mode & 0xF0) == 0)
        throw FileEx("File", __LINE__, "Read() File not open for reading");
    if (writeEnd != buffer)
    {
        WriteBuffer();
        Drop(Tell());
    }
}

// One read of the system at `offset`, never past the stream's last stored byte.
std::size_t File::ReadAt(void* dst, std::size_t bytes, std::uint64_t offset, bool& failed)
{
    if (offset >= rawEnd)
        return 0;
    if (bytes > rawEnd - offset)
        bytes = static_cast<std::size_t>(rawEnd - offset);
    std::size_t got = 0;
    if (sub)
        sub->Lock();
    const Platform::Status status = Platform::ReadAt(handle, offset, dst, bytes, got);
    if (sub)
        sub->Unlock();
    if (status == Platform::Status::Unsupported)
    {
        FileEx failure("File", __LINE__);
        failure.SetReasonf("Seek failure handle=%d to %d", static_cast<int>(handle.value), static_cast<int>(offset));
        throw failure;
    }
    failed = status != Platform::Status::Ok;
    if (!failed)
        systemPosition = offset + got;
    return got;
}

// All of `bytes`, or what there is before the end.
std::size_t File::ReadWhole(void* dst, std::size_t bytes, std::uint64_t offset, bool& failed)
{
    std::size_t done = 0;
    while (done < bytes)
    {
        const std::size_t got = ReadAt(static_cast<std::uint8_t*>(dst) + done, bytes - done, offset + done, failed);
        if (failed || got == 0)
            break;
        done += got;
    }
    return done;
}

// `bytes` to `dst` and, in the same call, the two behind them to `tail`, as far as they are there.
std::size_t File::ReadPieces(std::uint8_t* dst, std::size_t bytes, std::uint8_t (&tail)[2], std::uint64_t offset,
                             bool& failed)
{
    std::size_t done = 0;
    if (bytes + sizeof tail <= rawEnd - offset)
    {
        if (sub)
            sub->Lock();
        failed = Platform::ReadAt(handle, offset, dst, bytes, tail, sizeof tail, done) != Platform::Status::Ok;
        if (sub)
            sub->Unlock();
        if (failed)
            return 0;
        systemPosition = offset + done;
        if (done >= bytes) // one byte of two, or none, means that there is no frame behind this one
            return done;
    }
    return done + ReadWhole(dst + done, bytes - done, offset + done, failed);
}

// The next bytes behind an empty buffer: of a plain stream up to `wanted`, of a compressed one a frame, which fits the
// blockSize bytes that `dst` has at least.
std::size_t File::ReadNext(std::uint8_t* dst, std::size_t wanted)
{
    const std::uint32_t position = Tell();
    if (position >= size)
        return 0;
    if ((mode & 0xF0) == ModeReadCompressed)
        return ReadFrame(dst);
    if (wanted > size - position)
        wanted = size - position;
    bool failed = false;
    const std::size_t got = ReadAt(dst, wanted, rawPosition, failed);
    if (failed)
        throw FileEx("File", __LINE__,
                     size == unknownSize ? "ReadNext() Read failed" : "ReadNext() Failed to read block");
    rawPosition += got;
    return got;
}

std::uint32_t File::FillBuffer(std::size_t wanted)
{
    const std::size_t ask = wanted > readAhead ? wanted : readAhead;
    readAhead = blockSize;
    bufferStart = Tell();
    current = buffer;
    readEnd = buffer;
    const std::size_t got = ReadNext(buffer, ask < blockSize ? ask : blockSize);
    readEnd = buffer + got;
    return static_cast<std::uint32_t>(got);
}

std::uint32_t File::ReadSlow(void* target, std::size_t n, std::size_t itemSize)
{
    PrepareRead();
    if (n == 0 || itemSize == 0)
        throw FileEx("File", __LINE__, "Read() n*size == 0");
    // No stream is longer than 32 bits tell; what is asked beyond is not there.
    std::uint64_t total;
    if (__builtin_mul_overflow(std::uint64_t{n}, std::uint64_t{itemSize}, &total) || total > unknownSize)
        total = unknownSize;

    auto* dst = static_cast<std::uint8_t*>(target);
    auto wanted = static_cast<std::size_t>(total);
    while (wanted > 0)
    {
        auto part = static_cast<std::size_t>(readEnd - current);
        if (part == 0 && wanted >= blockSize)
        {
            bufferStart = Tell();
            current = buffer;
            readEnd = buffer;
            part = ReadNext(dst, wanted);
            bufferStart += static_cast<std::uint32_t>(part);
            readAhead = farAhead; // often a header follows, and then another large read
        }
        else
        {
            if (part == 0)
                part = FillBuffer(wanted);
            if (part > wanted)
                part = wanted;
            std::memcpy(dst, current, part);
            current += part;
        }
        if (part == 0)
            break;
        dst += part;
        wanted -= part;
    }
    return static_cast<std::uint32_t>((total - wanted) / itemSize);
}

void File::SafeRead(void* dst, std::size_t n, std::size_t itemSize)
{
    if (Read(dst, n, itemSize) >= n)
        return;
    FileEx failure("File", __LINE__);
    failure.SetReasonf("SafeRead(buffer,%u,%u) failed to read all data", static_cast<unsigned>(n),
                       static_cast<unsigned>(itemSize));
    throw failure;
}

std::uint32_t File::ReadLine(void* dst, std::uint32_t capacity)
{
    if (capacity < 2)
        return 0;
    if (readEnd == current)
        PrepareRead();
    auto* out = static_cast<char*>(dst);
    std::size_t room = capacity - 2;
    bool ended = false;
    // With the room used up the loop goes on without storing, through the line feed.
    for (;;)
    {
        auto have = static_cast<std::size_t>(readEnd - current);
        if (have == 0)
        {
            have = FillBuffer(1);
            if (have == 0)
                break;
        }
        const void* feed = std::memchr(current, '\n', have);
        if (feed)
        {
            have = static_cast<std::size_t>(static_cast<const std::uint8_t*>(feed) - current) + 1;
            ended = true;
        }
        const std::size_t kept = have < room ? have : room;
        std::memcpy(out, current, kept);
        out += kept;
        room -= kept;
        current += have;
        if (ended)
            break;
    }
    *out = '\0';
    return static_cast<std::uint32_t>(out - static_cast<char*>(dst));
}

// How many of the next `wanted` bytes the stream can have: exact for a plain stream, for a compressed one by the frames
// that follow. The size on disk stays unasked for where it would say something else.
std::uint32_t File::BytesLeft(std::uint32_t wanted)
{
    const auto have = static_cast<std::uint32_t>(readEnd - current);
    if (have >= wanted)
        return wanted;
    std::uint64_t left;
    if ((mode & 0xF0) != ModeReadCompressed)
    {
        const std::uint64_t position = std::uint64_t{base} + Tell();
        std::uint64_t end = size != unknownSize ? base + size : rawEnd;
        if (end == noEnd)
            end = base + StoredLength();
        left = end > position ? end - position : 0;
    }
    else
    {
        left = have;
        std::uint64_t offset = rawPosition;
        std::uint32_t header;
        while (left < wanted && ReadHeader(offset, header))
        {
            left += header & 0x8000 ? header & 0x7FFF : blockSize;
            offset += 2 + (header & 0x7FFF);
        }
        if (size != unknownSize && left > size - Tell())
            left = Tell() < size ? size - Tell() : 0;
    }
    return left < wanted ? static_cast<std::uint32_t>(left) : wanted;
}

std::uint32_t File::ReadSome(void* dst, std::uint32_t n)
{
    PrepareRead();
    if (current == readEnd)
    {
        // Where a compressed stream ends there is no further header, and to look for one is a failure.
        if ((mode & 0xF0) == ModeReadCompressed && nextHeader == noHeader &&
            rawPosition == (rawEnd != noEnd ? rawEnd : StoredLength()))
            return 0;
        if (FillBuffer(blockSize) == 0)
            return 0;
    }
    const auto inHand = static_cast<std::uint32_t>(readEnd - current);
    return Read(dst, n < inHand ? n : inHand, 1);
}

namespace
{

// Bytes of a text on their way; on the stack while they are few.
class TextBlock
{
public:
    explicit TextBlock(std::uint32_t size)
        : bytes(size <= sizeof(few) ? few : static_cast<unsigned char*>(Alloc::New(size)))
    {
    }
    ~TextBlock()
    {
        if (bytes != few)
            Alloc::Delete(bytes);
    }
    TextBlock(const TextBlock&) = delete;
    TextBlock& operator=(const TextBlock&) = delete;

    unsigned char* bytes; // null: no memory

private:
    unsigned char few[1024];
};

} // namespace

bool File::Read(PString& text)
{
    text = PString();
    std::uint32_t length = 0;
    Read(length);
    if (length == 0)
        return true;
    length = BytesLeft(length);
    TextBlock block(length);
    if (!block.bytes)
        return true;
    if (length > 0)
        length = Read(block.bytes, length, 1);
    text = PString(reinterpret_cast<const char*>(block.bytes), length);
    return true;
}

bool File::Read(String& text)
{
    text = "";
    std::uint32_t length = 0;
    Read(length);
    if (length == 0)
        return true;
    length = BytesLeft(length);
    TextBlock block(length);
    if (!block.bytes)
        return true;
    if (length > 0)
        length = Read(block.bytes, length, 1);
    text = String(reinterpret_cast<const char*>(block.bytes), length);
    return true;
}

// Walks chunks from systemPosition on.
std::uint32_t File::FindChunk(const char* id, void* data, std::uint32_t max)
{
    std::uint64_t offset = systemPosition;
    for (;;)
    {
        std::uint8_t header[8];
        bool failed = false;
        if (ReadWhole(header, sizeof header, offset, failed) < sizeof header)
            return 0;
        offset += sizeof header;
        const std::uint32_t length = header[4] | header[5] << 8 | header[6] << 16 | std::uint32_t{header[7]} << 24;
        if (std::memcmp(header, id, 4) == 0)
        {
            std::uint32_t got = length;
            if (data)
            {
                got = length < max ? length : max;
                got = static_cast<std::uint32_t>(ReadWhole(data, got, offset, failed));
                offset += length;
            }
            systemPosition = offset;
            return got;
        }
        offset += length;
        systemPosition = offset;
    }
}

std::uint32_t File::ReadBlock(const char* id, void* data, std::uint32_t max)
{
    PrepareRead();
    const std::uint32_t got = FindChunk(id, data, max);
    if (flags & SharedHandle)
        rawPosition = systemPosition;
    return got;
}

} // namespace Zem
