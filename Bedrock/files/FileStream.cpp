// File: compressed streams. One is stored as frames that are compressed each by itself:
//
//     0  4  "CFIL"
//     4     frames to the end of the file or member:
//           0  2  header   bit 15 set: the payload is the frame's bytes; clear: it is compressed. Bits 0 to 14: its length
//           2     payload
//
// Every frame but the last covers exactly 16,384 bytes of the stream, so positions can be counted from headers alone.
// Nothing else is stored: no length, no count, no check value.

#include <Bedrock/files/File.h>

#include <Bedrock/files/BPE.h>
#include <Bedrock/files/TemporaryFile.h>
#include <Bedrock/host/Exception.h>
#include <Bedrock/platform/Files.h>

#include <atomic>

namespace Zem
{

namespace
{

constexpr std::uint32_t storedFrame = 0x8000;

constexpr std::uint32_t PayloadLength(std::uint32_t header)
{
    return header & 0x7FFF;
}

constexpr std::uint32_t FromBytes(const std::uint8_t* header)
{
    return header[0] | std::uint32_t{header[1]} << 8;
}

// A frame has between 1 and 16,384 bytes of payload; anything else is no frame of ours.
constexpr bool IsPlausible(std::uint32_t header)
{
    return PayloadLength(header) >= 1 && PayloadLength(header) <= File::blockSize;
}

[[noreturn]] void ThrowFrame(std::uint32_t header, int line)
{
    throw FileEx("File", line,
                 header & storedFrame ? "ReadNext() Failed to read uncompressed block"
                                      : "ReadNext() Failed to read compressed block");
}

} // namespace

// Serves the first frame out of the block that detection fetched, where it holds all of it. A frame in error is left
// to the first read.
void File::TakeFirstFrame(std::size_t got)
{
    if (got < 6)
        return;
    const std::uint32_t header = FromBytes(buffer + 4);
    const std::uint32_t length = PayloadLength(header);
    nextHeader = header;
    if (!IsPlausible(header) || got < 6 + std::size_t{length} || size == 0)
        return;
    const bool hasNext = got >= 8 + std::size_t{length};
    const std::uint32_t following = hasNext ? FromBytes(buffer + 6 + length) : noHeader;
    std::uint32_t count = length;
    if (header & storedFrame)
        std::memmove(buffer, buffer + 6, length);
    else
    {
        std::uint8_t work[blockSize];
        std::memcpy(work, buffer + 6, length);
        if (!BPE::DecompBounded(buffer, blockSize, work, length, count))
            return;
    }
    if (count == 0 || (hasNext && count < blockSize && count < size))
        return;
    readEnd = buffer + (count < size ? count : size);
    rawPosition = base + 2 + length;
    nextHeader = following;
}

// The header at `offset`; false where there is none.
bool File::ReadHeader(std::uint64_t offset, std::uint32_t& header)
{
    if (offset == rawPosition && nextHeader != noHeader)
    {
        header = nextHeader;
        return true;
    }
    std::uint8_t bytes[2];
    bool failed = false;
    if (ReadWhole(bytes, sizeof bytes, offset, failed) < sizeof bytes)
        return false;
    header = FromBytes(bytes);
    return true;
}

// Reads the frame at rawPosition into `dst`, and with its payload the header behind it. When that fails the raw position
// still stands before the frame.
std::uint32_t File::ReadFrame(std::uint8_t* dst)
{
    std::uint32_t header;
    if (!ReadHeader(rawPosition, header))
    {
        if (rawEnd != noEnd && rawPosition == rawEnd)
            return 0; // the end of a member
        throw FileEx("File", __LINE__, "ReadNext() Failed to read block size");
    }
    nextHeader = header;
    if (!IsPlausible(header))
        ThrowFrame(header, __LINE__);

    const std::uint32_t length = PayloadLength(header);
    const std::uint64_t offset = rawPosition + 2;
    std::uint8_t work[blockSize + 2];
    std::uint8_t* payload = header & storedFrame ? dst : work;
    std::uint8_t following[2];
    bool failed = false;

    std::size_t got = 0;
    if (payload == work)
        got = ReadWhole(work, length + 2, offset, failed);
    else
        got = ReadPieces(dst, length, following, offset, failed);
    if (failed || (got < length && !(header & storedFrame)))
        ThrowFrame(header, __LINE__);

    std::uint32_t count = got < length ? static_cast<std::uint32_t>(got) : length;
    if (!(header & storedFrame))
    {
        std::memcpy(following, work + length, sizeof following);
        if (!BPE::DecompBounded(dst, blockSize, work, length, count) || count == 0)
            ThrowFrame(header, __LINE__);
    }
    const bool hasNext = got == std::size_t{length} + 2;
    if (hasNext && count < blockSize && count < size - Tell())
        ThrowFrame(header, __LINE__); // a short frame is the last one, unless the member ends with it
    rawPosition = offset + (got < length ? got : length);
    nextHeader = hasNext ? FromBytes(following) : noHeader;
    const std::uint32_t left = size - Tell();
    return count < left ? count : left;
}

// Moves to `target`, outside the frame in hand. Headers alone are read up to its frame; the buffer changes when all of
// that frame is there, so that a failure leaves the position as it was.
void File::SeekFrame(std::uint32_t target)
{
    const auto inHand = static_cast<std::uint32_t>(readEnd - buffer);
    const bool forward = target >= bufferStart;
    std::uint64_t offset = forward ? rawPosition : base;
    std::uint64_t start = forward ? std::uint64_t{bufferStart} + inHand : 0;
    if (target > size)
        throw FileEx("File", __LINE__, "Seek() Position behind the end of a compressed file");
    if (target == size && rawEnd != noEnd) // the end of a member is known without its frames
    {
        Drop(target);
        rawPosition = rawEnd;
        return;
    }

    std::uint32_t header = noHeader;
    std::uint32_t next;
    std::uint64_t lastLength = 0;
    bool found = false;
    while (ReadHeader(offset, next))
    {
        header = next;
        if (!IsPlausible(header))
            ThrowFrame(header, __LINE__);
        lastLength = header & storedFrame ? PayloadLength(header) : blockSize;
        if (start + lastLength > target)
        {
            found = true;
            break;
        }
        start += lastLength;
        offset += 2 + PayloadLength(header);
    }
    if (!found)
    {
        // Behind the last frame. Its end is a place to stand on when it is a stored one, or when there is none at all:
        // what a compressed one holds is not told by its header.
        if (start != target)
            throw FileEx("File", __LINE__, "Seek() Position behind the end of a compressed file");
        if (header != noHeader && !(header & storedFrame))
            ThrowFrame(header, __LINE__);
        Drop(target);
        rawPosition = offset;
        return;
    }

    const std::uint32_t length = PayloadLength(header);
    std::uint8_t payload[blockSize];
    std::uint8_t frame[blockSize];
    const std::uint8_t* bytes = frame;
    bool failed = false;
    std::uint32_t count = static_cast<std::uint32_t>(ReadWhole(payload, length, offset + 2, failed));
    if (failed || (count < length && !(header & storedFrame)))
        ThrowFrame(header, __LINE__);
    if (header & storedFrame)
        bytes = payload;
    else if (!BPE::DecompBounded(frame, blockSize, payload, length, count))
        ThrowFrame(header, __LINE__);
    if (count > size - start)
        count = static_cast<std::uint32_t>(size - start);
    if (target - start > count)
        throw FileEx("File", __LINE__, "Seek() Position behind the end of a compressed file");

    std::memcpy(buffer, bytes, count);
    bufferStart = static_cast<std::uint32_t>(start);
    current = buffer + (target - bufferStart);
    readEnd = buffer + count;
    rawPosition = offset + 2 + length;
    nextHeader = noHeader;
}

namespace
{

struct Handle
{
    ~Handle()
    {
        if (file.IsOpen())
            Platform::CloseFile(file);
    }
    Platform::Status Close()
    {
        const Platform::FileHandle closing = file;
        file = {};
        return Platform::CloseFile(closing);
    }
    Platform::FileHandle file;
};

// A file that is there for a while: gone with the object unless it was kept.
struct Draft : Handle
{
    ~Draft()
    {
        if (name[0])
            Platform::Remove(name);
    }
    void Keep() { name[0] = '\0'; }
    char name[4096] = "";
};

bool ReadBlockAt(Platform::FileHandle from, std::uint64_t offset, std::uint8_t* dst, std::size_t size)
{
    for (std::size_t got; size > 0; dst += got, offset += got, size -= got)
        if (Platform::ReadAt(from, offset, dst, size, got) != Platform::Status::Ok || got == 0)
            return false;
    return true;
}

bool WriteAll(Platform::FileHandle to, std::uint64_t& offset, const void* src, std::size_t size)
{
    std::size_t written;
    const Platform::Status status = Platform::WriteAt(to, offset, src, size, written);
    offset += written;
    return status == Platform::Status::Ok;
}

// Writes the plain file's `length` bytes to `to` as a compressed stream. `work` holds blockSize bytes.
bool WriteFrames(Platform::FileHandle plain, std::uint64_t length, Platform::FileHandle to, std::uint8_t* work)
{
    std::uint8_t block[File::blockSize];
    std::uint8_t frame[2 + File::blockSize];
    std::uint64_t at = 0;
    if (!WriteAll(to, at, "CFIL", 4))
        return false;
    for (std::uint64_t done = 0; done < length;)
    {
        const auto count =
            static_cast<std::uint32_t>(length - done < File::blockSize ? length - done : File::blockSize);
        if (!ReadBlockAt(plain, done, block, count))
            return false;
        const std::uint32_t packed = BPE::Comp(work, block, count);
        const std::uint32_t header = packed == count ? packed | storedFrame : packed;
        frame[0] = static_cast<std::uint8_t>(header);
        frame[1] = static_cast<std::uint8_t>(header >> 8);
        std::memcpy(frame + 2, work, packed);
        if (!WriteAll(to, at, frame, 2 + packed))
            return false;
        done += count;
    }
    return true;
}

bool CopyBytes(Platform::FileHandle from, Platform::FileHandle to, std::uint8_t* work)
{
    std::uint64_t at = 0;
    for (;;)
    {
        std::size_t got;
        if (Platform::ReadAt(from, at, work, File::blockSize, got) != Platform::Status::Ok)
            return false;
        if (got == 0)
            return true;
        if (!WriteAll(to, at, work, got))
            return false;
    }
}

// Puts a finished draft in the place of `target`. From another volume it is copied beside the target first, so that the
// last step is always one rename.
bool Publish(Draft& draft, const char* target, std::uint8_t* work)
{
    const Platform::Status status = Platform::Replace(draft.name, target);
    if (status == Platform::Status::Ok)
    {
        draft.Keep();
        return draft.Close() == Platform::Status::Ok;
    }
    if (status != Platform::Status::CrossVolume)
        return false;
    Draft beside;
    if (TemporaryFile::Make(beside.file, beside.name, sizeof beside.name, target) != Platform::Status::Ok ||
        !CopyBytes(draft.file, beside.file, work) || Platform::Commit(beside.file) != Platform::Status::Ok)
        return false;
    Platform::CopyAccess(draft.file, beside.file);
    if (Platform::Replace(beside.name, target) != Platform::Status::Ok)
        return false;
    beside.Keep();
    return beside.Close() == Platform::Status::Ok;
}

} // namespace

// Compresses the file that was written as `path`: into a temporary, which then takes its place in one step. Until then
// the plain file stays as it is under its name, and its handle, which keeps others out, stays open. `plain` is closed
// whatever happens.
void File::CompressFile(Platform::FileHandle plainHandle, const char* path, std::uint8_t* work)
{
    Handle plain;
    plain.file = plainHandle;
    const auto compress = [&]
    {
        Draft draft;
        char target[sizeof draft.name];
        Platform::FileInfo info;
        // The current folder may have changed since `path` was opened: it must still lead to this file, and a link in its
        // place stays one.
        if (Platform::GetInfo(plain.file, info) != Platform::Status::Ok || !Platform::IsSame(plain.file, path) ||
            Platform::FollowLinks(path, target, sizeof target) != Platform::Status::Ok)
            return false;
        if (TemporaryFile::Make(draft.file, draft.name, sizeof draft.name) != Platform::Status::Ok)
            return false;
        if (!WriteFrames(plain.file, info.length, draft.file, work) ||
            Platform::Commit(draft.file) != Platform::Status::Ok)
            return false;
        Platform::CopyAccess(plain.file, draft.file);
        if (!Publish(draft, target, work))
            return false;
        Platform::SetHidden(target, false);
        return true;
    };
    if (!compress())
        throw FileEx("File", __LINE__, "Close() Failed to compress file");
}

Platform::Status TemporaryFile::Make(Platform::FileHandle& out, char* name, std::size_t capacity,
                                     const char* neighbour) noexcept
{
    static constinit std::atomic<std::uint8_t> counter{0};

    std::size_t folder = 0; // bytes of the neighbour's folder, with its separator
    for (std::size_t i = 0; neighbour && neighbour[i]; ++i)
        if (neighbour[i] == '/' || neighbour[i] == '\\')
            folder = i + 1;
    name[0] = '\0';
    if (folder + nameSize > capacity)
        return Platform::Status::NotFound;

    const std::uint32_t owner = Platform::TemporaryOwner();
    Platform::Status status = Platform::Status::Exists;
    for (int turn = 0; turn < 256 && status == Platform::Status::Exists; ++turn)
    {
        const std::uint8_t number = counter.fetch_add(1, std::memory_order_relaxed);
        constexpr char digits[] = "0123456789ABCDEF";
        if (folder)
            std::memcpy(name, neighbour, folder);
        char* end = name + folder;
        for (int shift = 28; shift >= 0; shift -= 4)
            *end++ = digits[owner >> shift & 15];
        *end++ = '.';
        *end++ = 'T';
        *end++ = digits[number >> 4];
        *end++ = digits[number & 15];
        *end = '\0';
        status = Platform::OpenFile(out, name, Platform::OpenReadWrite | Platform::OpenCreate | Platform::OpenExclusive,
                                    Platform::Share::DenyAll);
    }
    if (status == Platform::Status::Ok)
        Platform::SetHidden(name, true);
    else
        name[0] = '\0';
    return status;
}

} // namespace Zem
