// File: opening, closing, the position. What reads stands in FileRead.cpp, what writes in FileWrite.cpp, compressed
// streams in FileStream.cpp, the operations on names in FileStatic.cpp.

#include <Bedrock/files/File.h>

#include <Bedrock/files/FileSub.h>
#include <Bedrock/files/FileSubstList.h>
#include <Bedrock/files/NameCase.h>
#include <Bedrock/host/Exception.h>
#include <Bedrock/host/Loss.h>
#include <Bedrock/memory/PString.h>
#include <Bedrock/platform/Files.h>

#include <exception>

namespace Zem
{

const ResultTable File::results[8] = {
    {"RES_UNKNOWN", "Unknown file error"},
    {"RES_FILENOTFOUND", "File not found"},
    {"RES_ALREADYOPEN", "File is already open"},
    {"RES_MODENOTSUPPORTED", "Open mode not supported"},
    {"RES_CANTWRITECOMPRESSED", "Can't write to a compressed file"},
    {"RES_NOTCOMPRESSED", "Can't open non-compressed as read compressed file"},
    {"RES_SUBSTNOTFOUND", "Subst not found"},
    {nullptr, nullptr},
};

constinit File::Progress File::callback = nullptr;

void File::ReportLoss(const Exception& failure) const noexcept
{
    ::Zem::ReportLoss("%s: %s", Name(), failure.Reason());
}

File::File()
    : buffer(static_cast<std::uint8_t*>(Alloc::New(blockSize))), mode(0), size(unknownSize), nextHeader(noHeader),
      base(0), rawEnd(noEnd), systemPosition(0), flags(OwnsBuffer), substitute(nullptr), sub(nullptr), name("")
{
    Drop(0);
}

File::~File() noexcept(false)
{
    struct Release
    {
        ~Release()
        {
            if (file.flags & OwnsBuffer)
                Alloc::Delete(file.buffer);
        }
        File& file;
    } release{*this};

    try
    {
        Close();
    }
    catch (const Exception& failure)
    {
        if (std::uncaught_exceptions() == 0)
            throw;
        ReportLoss(failure);
    }
}

void File::SetBuffer(void* block)
{
    if (IsOpen())
        return;
    const std::uint32_t position = Tell();
    if (flags & OwnsBuffer)
        Alloc::Delete(buffer);
    flags &= static_cast<std::uint8_t>(~OwnsBuffer);
    buffer = static_cast<std::uint8_t*>(block);
    Drop(position);
}

File::Result File::Open(const char* path, std::uint32_t openMode)
{
    // One letter before the colon is a drive.
    const char* colon = path ? std::strchr(path, ':') : nullptr;
    if (!colon || colon - path < 2)
        return Open(path, 0, path, openMode);
    const auto length = static_cast<std::size_t>(colon - path);
    return Open(path, length, length < Path::capacity ? colon + 1 : nullptr, openMode);
}

File::Result File::Open(const PString& subst, const char* path, std::uint32_t openMode)
{
    return Open(subst, subst.Length(), path, openMode);
}

// `word` of `length` bytes is the name of a substitute; 0 means none.
File::Result File::Open(const char* word, std::size_t length, const char* path, std::uint32_t openMode)
{
    if (IsOpen())
        return RES_ALREADYOPEN;
    flags &= OwnsBuffer;
    sub = nullptr;
    substitute = nullptr;
    mode = openMode;
    base = 0;
    rawEnd = noEnd;
    systemPosition = 0;
    size = unknownSize;
    Drop(0);

    if ((mode & 0xF000) == ModeNotSupported)
        return RES_MODENOTSUPPORTED;
    if (!buffer)
        return RES_UNKNOWN;
    if (!path || std::strlen(path) >= Path::capacity)
        return RES_FILENOTFOUND;

    unsigned openFlags = mode & 0x0F ? Platform::OpenReadWrite : Platform::OpenReadOnly;
    if (mode & ModeCreate)
    {
        openFlags |= Platform::OpenCreate | Platform::OpenTruncate;
        size = 0;
    }
    if (mode & ModeAppend)
        openFlags |= Platform::OpenCreate | Platform::OpenAppend;

    constexpr int permission = 0x180; // the owner reads and writes
    if (length > 0)
    {
        // Nobody removes the substitute while it is asked.
        const FileSubstList::Walk walk;
        substitute = FileSubstList::Find(word, length);
        if (substitute && (mode & 0xF0) == 0)
            substitute->OpenWrite(*this, path, static_cast<int>(openFlags), permission);
        else if (substitute)
            substitute->OpenRead(*this, path, static_cast<int>(openFlags), permission);
    }
    if (!substitute)
        OpenHandle(path, openFlags, mode & 0x0F ? Platform::Share::DenyAll : Platform::Share::DenyWrite);
    if (!IsOpen())
        return RES_FILENOTFOUND;

    // A location has told where its bytes lie.
    rawPosition = base;
    systemPosition = base;
    if (mode & ModeCreate)
    {
        if ((mode & 0xF0) == ModeRead)
            mode = (mode & ~0xF0u) | ModeReadPlain;
        return RES_OK;
    }
    if ((mode & 0xF0) != ModeRead && (mode & 0xF0) != ModeReadCompressed)
    {
        LimitToPayload();
        return RES_OK;
    }
    return Detect();
}

// Opens a file on disk and notes it as `name`, in the spelling that it has there. A file is made only if there is none
// in any case, in the folder that is there in some. False leaves the handle closed.
bool File::OpenHandle(const char* path, unsigned openFlags, Platform::Share share)
{
    if (std::strlen(path) >= Path::capacity)
        return false;
    name = path;
    const unsigned existing = openFlags & ~static_cast<unsigned>(Platform::OpenCreate);
    Platform::Status status = Platform::OpenFile(handle, name, existing, share);
    if (status != Platform::Status::NotFound)
        return status == Platform::Status::Ok;
    const bool makes = (openFlags & Platform::OpenCreate) != 0;
    const auto respelled = makes ? NameCase::RespellNew(name) : NameCase::Respell(name);
    if (respelled == NameCase::Respelled::Whole)
        status = Platform::OpenFile(handle, name, existing, share);
    if (status == Platform::Status::NotFound && makes)
    {
        // Into the folder as it is spelled there, under the name that was asked for.
        name.DelName();
        name.Add(Path::GetFileName(path));
        status = Platform::OpenFile(handle, name, openFlags, share);
    }
    return status == Platform::Status::Ok;
}

// A plain member ends with its payload, whatever its entry says.
void File::LimitToPayload() noexcept
{
    if (rawEnd != noEnd && size > rawEnd - base)
        size = static_cast<std::uint32_t>(rawEnd - base);
}

// Plain or compressed: the first four bytes tell. A whole block is fetched for them, as it will be wanted next, so that
// a small file costs one read; an archive may have put it into the buffer already.
File::Result File::Detect()
{
    bool failed = false;
    auto got = static_cast<std::size_t>(readEnd - buffer);
    while (got < 4)
    {
        const std::size_t part = ReadAt(buffer + got, blockSize - got, base + got, failed);
        if (failed)
        {
            Abandon();
            return RES_UNKNOWN;
        }
        if (part == 0)
            break;
        got += part;
    }

    const bool compressed = got >= 4 && std::memcmp(buffer, "CFIL", 4) == 0;
    if (compressed && (mode & 0x0F))
    {
        Abandon();
        return RES_CANTWRITECOMPRESSED;
    }
    if (!compressed && got >= 4 && (mode & 0xF0) == ModeReadCompressed)
    {
        Abandon();
        return RES_NOTCOMPRESSED;
    }
    mode = (mode & ~0xF0u) | (compressed ? ModeReadCompressed : ModeReadPlain);
    systemPosition = base + (got < 4 ? got : 4);
    if (compressed)
    {
        base += 4;
        Drop(0);
        TakeFirstFrame(got);
        return RES_OK;
    }
    LimitToPayload();
    if (size != unknownSize && got > size)
        got = size;
    readEnd = buffer + got;
    rawPosition = base + got;
    return RES_OK;
}

// Gives up a file that detection refused.
void File::Abandon() noexcept
{
    if (!(flags & SharedHandle))
        Platform::CloseFile(handle);
    if (sub)
        sub->ReleaseUse();
    handle = {};
    sub = nullptr;
    Drop(0);
}

std::uint32_t File::Close()
{
    if (!IsOpen())
        return 0;

    // Whatever fails on the way, the object ends closed.
    struct End
    {
        ~End()
        {
            file.handle = {};
            file.sub = nullptr;
            file.Drop(file.Tell());
        }
        File& file;
    } end{*this};

    const auto finish = [this]
    {
        if (sub)
            sub->CloseFile(*this);
        else
            CloseHandle();
    };
    try
    {
        WriteBuffer();
    }
    catch (const Exception&)
    {
        flags |= Broken;
        try
        {
            finish();
        }
        catch (const Exception&) // the first failure is the one to tell
        {
        }
        throw;
    }
    finish();
    return 0;
}

void File::CloseHandle()
{
    const Platform::FileHandle closing = handle;
    handle = {};
    if ((mode & 0x0F) == ModeWriteCompressed && !(flags & NotWhole))
    {
        CompressFile(closing, name, buffer);
        return;
    }
    const Platform::Status status = Platform::CloseFile(closing);
    if (status != Platform::Status::Ok && (mode & 0x0F))
        throw FileEx("File", __LINE__, "Close() Failed to store data");
}

// Forgets what the buffer holds; the position is `position`, and the next raw read is there.
void File::Drop(std::uint32_t position) noexcept
{
    current = buffer;
    readEnd = buffer;
    writeEnd = buffer;
    bufferStart = position;
    rawPosition = base + position;
    nextHeader = noHeader;
    readAhead = blockSize;
}

std::uint32_t File::Seek(std::int32_t offset, FileSeek origin)
{
    if (IsOpen() && (mode & 0x0F) == ModeWriteCompressed)
        throw FileEx("File", __LINE__, "Seek() Can't seek writing compressed file");
    WriteBuffer();
    std::uint32_t target = static_cast<std::uint32_t>(offset);
    switch (static_cast<int>(origin))
    {
    case FileSeekSet:
        break;
    case FileSeekCur:
        target += Tell();
        break;
    case FileSeekEnd:
        target = Size() - target;
        break;
    default:
        return 0xFFFFFFFF;
    }

    // What is in hand serves, the end of it too: nobody else may write to the file meanwhile.
    const auto inHand = static_cast<std::uint32_t>(readEnd - buffer);
    if (target >= bufferStart && target - bufferStart <= inHand && writeEnd == buffer)
        current = buffer + (target - bufferStart);
    else if ((mode & 0xF0) == ModeReadCompressed && IsOpen())
        SeekFrame(target);
    else
    {
        // Whoever jumps far may jump again: a short refill is tried first.
        const std::uint32_t distance = target > Tell() ? target - Tell() : Tell() - target;
        Drop(target);
        if (distance > blockSize)
            readAhead = farAhead;
    }
    if (flags & SharedHandle)
        systemPosition = base + target;
    return target;
}

// The length that the system tells: for a member that of its payload.
std::uint32_t File::StoredLength()
{
    if (rawEnd != noEnd)
        return static_cast<std::uint32_t>(rawEnd - base);
    Platform::FileInfo info;
    if (!IsOpen() || Platform::GetInfo(handle, info) != Platform::Status::Ok)
        throw FileEx("File", __LINE__, "Size() failed to get file length");
    return static_cast<std::uint32_t>(info.length < Platform::largestFile ? info.length : Platform::largestFile);
}

std::uint32_t File::Size()
{
    const auto pending = writeEnd == buffer ? 0 : static_cast<std::uint32_t>(current - buffer);
    if (size == unknownSize)
    {
        WriteBuffer();
        const std::uint32_t length = StoredLength();
        // A compressed member without a size reads to the end of its payload; its stored length must not cut it.
        if (rawEnd != noEnd && (mode & 0xF0) == ModeReadCompressed)
            return length;
        size = length;
        return size;
    }
    if (pending == 0)
        return size;
    if (mode & ModeAppend)
        return size + pending;
    return Tell() > size ? Tell() : size;
}

void File::GetStamp(Time& time)
{
    Platform::FileInfo info;
    if (!IsOpen() || Platform::GetInfo(handle, info) != Platform::Status::Ok)
        throw FileEx("File", __LINE__, "GetStamp() failure");
    time = static_cast<std::int32_t>(info.modified);
}

} // namespace Zem
