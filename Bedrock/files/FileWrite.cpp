// File: everything that writes.

#include <Bedrock/files/File.h>

#include <Bedrock/host/Exception.h>
#include <Bedrock/memory/PString.h>
#include <Bedrock/memory/String.h>
#include <Bedrock/platform/Files.h>

namespace Zem
{

// Ready to write at the position: open, allowed, nothing read ahead.
void File::PrepareWrite()
{
    if (!IsOpen())
        throw FileEx("File", __LINE__, "Write() File not open");
    if ((mode & 0x0F) == 0)
        throw FileEx("File", __LINE__, "Write() File not open for writing");
    if (writeEnd == buffer)
    {
        Drop(Tell());
        writeEnd = buffer + blockSize;
    }
}

// The size as it is when `count` bytes were stored up to the position.
void File::Grow(std::uint32_t count) noexcept
{
    if (size == unknownSize)
        return;
    if (mode & ModeAppend)
        size = count < unknownSize - size ? size + count : unknownSize;
    else if (Tell() > size)
        size = Tell();
}

// A stream whose last write failed is not whole: unless the rest is written after all, it is not compressed and not put
// into an archive when it is closed.
void File::NoteWrite(bool stored) noexcept
{
    if (stored)
        flags &= static_cast<std::uint8_t>(~Broken);
    else
        flags |= Broken;
}

// Writes what is pending. When that fails, what was not stored stays pending, and the position is the same.
void File::WriteBuffer()
{
    if (writeEnd == buffer || current == buffer)
        return;
    const auto count = static_cast<std::size_t>(current - buffer);
    std::size_t written = 0;
    const Platform::Status status = Platform::WriteAt(handle, base + bufferStart, buffer, count, written);
    systemPosition = base + bufferStart + written;
    Grow(static_cast<std::uint32_t>(written));
    if (written < count)
        std::memmove(buffer, buffer + written, count - written);
    bufferStart += static_cast<std::uint32_t>(written);
    current = buffer + (count - written);
    NoteWrite(status == Platform::Status::Ok);
    if (status != Platform::Status::Ok)
        throw FileEx("File", __LINE__,
                     status == Platform::Status::Unsupported ? "WriteBuffer(void) Seek failed"
                                                             : "WriteBuffer(void) Writing failed");
}

// Writes past the empty buffer.
void File::WriteStraight(const std::uint8_t* src, std::size_t bytes)
{
    std::size_t written = 0;
    const Platform::Status status = Platform::WriteAt(handle, base + bufferStart, src, bytes, written);
    systemPosition = base + bufferStart + written;
    bufferStart += static_cast<std::uint32_t>(written);
    Grow(static_cast<std::uint32_t>(written));
    NoteWrite(status == Platform::Status::Ok);
    if (status != Platform::Status::Ok)
        throw FileEx("File", __LINE__, "WriteBuffer() Write failed");
}

std::uint32_t File::WriteSlow(const void* source, std::size_t n, std::size_t itemSize)
{
    PrepareWrite();
    if (n == 0 || itemSize == 0)
        throw FileEx("File", __LINE__, "Write() n*size == 0");
    // Bytes that a failure leaves behind are missing in the file, however well the buffer is stored later on. The next write
    // has to come here again, to say whether it went better: it finds no room.
    struct Outcome
    {
        ~Outcome()
        {
            if (rest == 0)
                file.flags &= static_cast<std::uint8_t>(~Missing);
            else
            {
                file.flags |= Missing;
                file.writeEnd = file.current;
            }
        }
        File& file;
        std::size_t rest = 1;
    } outcome{*this};
    std::size_t& rest = outcome.rest;

    std::uint64_t total;
    if (__builtin_mul_overflow(std::uint64_t{n}, std::uint64_t{itemSize}, &total) ||
        total > Platform::largestFile - (Tell() < Platform::largestFile ? Tell() : Platform::largestFile))
        throw FileEx("File", __LINE__, "WriteBuffer() Write failed"); // nothing of it: the file would pass 4 GiB

    const auto* src = static_cast<const std::uint8_t*>(source);
    rest = static_cast<std::size_t>(total);
    if (rest >= blockSize)
    {
        WriteBuffer();
        WriteStraight(src, rest);
        rest = 0;
        return static_cast<std::uint32_t>(n);
    }
    while (rest > 0)
    {
        auto part = static_cast<std::size_t>(writeEnd - current);
        if (part == 0) // full since a flush failed
        {
            WriteBuffer();
            writeEnd = buffer + blockSize;
            continue;
        }
        if (part > rest)
            part = rest;
        std::memcpy(current, src, part);
        current += part;
        src += part;
        rest -= part;
        if (current == writeEnd)
            WriteBuffer();
    }
    return static_cast<std::uint32_t>(n);
}

void File::Patch(std::uint32_t at, const void* src, std::uint32_t n)
{
    if (IsOpen() && (mode & 0x0F) == ModeWriteCompressed)
        throw FileEx("File", __LINE__, "Seek() Can't seek writing compressed file");
    PrepareWrite();
    if (mode & ModeAppend)
        throw FileEx("File", __LINE__, "Write() File is open to append");
    const std::uint64_t end = std::uint64_t{at} + n;
    if (at >= bufferStart && end <= Tell())
    {
        std::memcpy(buffer + (at - bufferStart), src, n);
        return;
    }
    if (end > bufferStart)
        WriteBuffer();
    std::size_t written = 0;
    const Platform::Status status = Platform::WriteAt(handle, base + at, src, n, written);
    systemPosition = base + at + written;
    if (size != unknownSize && at + written > size)
        size = static_cast<std::uint32_t>(at + written);
    if (status != Platform::Status::Ok)
    {
        flags |= Unpatched;
        throw FileEx("File", __LINE__, "WriteBuffer() Write failed");
    }
}

void File::SafeWrite(const void* src, std::size_t n, std::size_t itemSize)
{
    if (Write(src, n, itemSize) >= n)
        return;
    FileEx failure("File", __LINE__);
    failure.SetReasonf("SafeWrite(buffer,%u,%u) failed to write all data", static_cast<unsigned>(n),
                       static_cast<unsigned>(itemSize));
    throw failure;
}

std::uint32_t File::WriteLine(const char* text)
{
    return Write(text, text ? std::strlen(text) : 0, 1);
}

bool File::Write(const PString& text)
{
    const std::uint32_t length = text.Length();
    Write(length);
    if (length > 0)
        Write(static_cast<const char*>(text), length, 1);
    return true;
}

bool File::Write(const String& text)
{
    const std::uint32_t length = text.Length();
    Write(length);
    if (length > 0)
        Write(static_cast<const char*>(text), length, 1);
    return true;
}

void File::Commit()
{
    if (!IsOpen() || writeEnd == buffer || current == buffer)
        return;
    WriteBuffer();
    if (Platform::Commit(handle) != Platform::Status::Ok)
        throw FileEx("File", __LINE__, "Commit() failed");
}

std::uint32_t File::WriteBlock(const char* id, const void* data, std::uint32_t length)
{
    PrepareWrite();
    WriteBuffer();
    std::uint8_t header[8] = {0,
                              0,
                              0,
                              0,
                              static_cast<std::uint8_t>(length),
                              static_cast<std::uint8_t>(length >> 8),
                              static_cast<std::uint8_t>(length >> 16),
                              static_cast<std::uint8_t>(length >> 24)};
    std::memcpy(header, id, 4);
    std::size_t stored = 0;
    std::size_t written = 0;
    if (Platform::WriteAt(handle, systemPosition, header, sizeof header, written) == Platform::Status::Ok && length > 0)
        Platform::WriteAt(handle, systemPosition + written, data, length, stored);
    systemPosition += written + stored;
    if (size != unknownSize)
    {
        const auto end =
            static_cast<std::uint32_t>(mode & ModeAppend ? size + written + stored : systemPosition - base);
        size = end > size ? end : size;
    }
    return static_cast<std::uint32_t>(stored);
}

} // namespace Zem
