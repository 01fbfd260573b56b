// Appending a member to an archive, so that whatever happens on the way the archive holds all that it held before.
//
// The chunk of the member is written behind the last whole chunk, with a length of 0, which no reader steps over. When
// payload and entry are there and safe on the device, the length is written: four bytes that make the member appear.
// What a crash leaves before that moment is behind the last whole chunk, and the next append cuts it off.

#include <Bedrock/files/FileSubArchive.h>

#include <Bedrock/files/ArchiveFormat.h>
#include <Bedrock/files/BPE.h>
#include <Bedrock/host/Crc.h>
#include <Bedrock/host/Exception.h>
#include <Bedrock/host/Loss.h>
#include <Bedrock/platform/Files.h>

#include <cstring>

namespace Zem
{

using namespace ArchiveFormat;

namespace
{

bool Store(Platform::FileHandle file, std::uint64_t offset, const void* src, std::size_t size)
{
    std::size_t written = 0;
    return Platform::WriteAt(file, offset, src, size, written) == Platform::Status::Ok;
}

bool Load(Platform::FileHandle file, std::uint64_t offset, std::uint8_t* dst, std::size_t size)
{
    for (std::size_t got; size > 0; dst += got, offset += got, size -= got)
        if (Platform::ReadAt(file, offset, dst, size, got) != Platform::Status::Ok || got == 0)
            return false;
    return true;
}

// The temporary file of a member: gone with the object.
struct Temporary
{
    ~Temporary()
    {
        Platform::CloseFile(handle);
        Platform::Remove(name);
    }
    Platform::FileHandle handle;
    const char* name;
};

struct WriterGuard
{
    explicit WriterGuard(Platform::FileHandle file) : handle(file) { Platform::LockWriter(handle); }
    ~WriterGuard() { Platform::UnlockWriter(handle); }
    WriterGuard(const WriterGuard&) = delete;
    WriterGuard& operator=(const WriterGuard&) = delete;
    Platform::FileHandle handle;
};

// Tells the log of an append that was taken back, once the archive's locks are given back: the log may lie in it.
struct RollbackReport
{
    ~RollbackReport()
    {
        if (done && status == Platform::Status::Ok)
            ReportLoss("%s: storing %s failed, and the archive was taken back to what it held before", archive, name);
        else if (done)
            ReportLoss(
                "%s: storing %s failed and left a torn end, which readers pass over and the next append cuts off",
                archive, name);
    }
    const char* archive;
    const char* name;
    bool done = false;
    Platform::Status status = Platform::Status::Ok;
};

// Takes the archive back to `length` bytes unless the append came to its end.
struct Rollback
{
    ~Rollback()
    {
        if (!armed)
            return;
        report.status = Platform::SetLength(handle, length);
        report.done = true;
    }
    RollbackReport& report;
    Platform::FileHandle handle;
    std::uint64_t length;
    bool armed = true;
};

[[noreturn]] void Fail(const char* name, const char* archive, const char* why, int line)
{
    FileEx failure("FileSubArchive", line);
    failure.SetReasonf("CloseFile() Failed to store %.80s in %.80s: %s", name, archive, why);
    throw failure;
}

} // namespace

// Stores what was written to `stored`, which is closed and deleted whatever happens.
void FileSubArchive::Append(File& file, Platform::FileHandle stored)
{
    const char* name = file.name;
    const Temporary temporary{stored, name + std::strlen(name) + 1};
    if (file.flags & File::NotWhole)
        Fail(name, archivePath, "a write to it has failed", __LINE__);

    Platform::FileInfo info;
    if (Platform::GetInfo(stored, info) != Platform::Status::Ok)
        Fail(name, archivePath, "its temporary file is unreadable", __LINE__);

    RollbackReport report{archivePath, name};
    Platform::LockGuard guard(archiveLock);
    const WriterGuard writer(archiveHandle);
    std::uint64_t at = 0;
    if (archiveFlags & NoHeader)
    {
        // Another process may have been first.
        std::uint8_t start[fileHeaderSize];
        Platform::FileInfo archive;
        if (Platform::GetInfo(archiveHandle, archive) != Platform::Status::Ok)
            Fail(name, archivePath, "the archive is unreadable", __LINE__);
        const auto have = static_cast<std::size_t>(archive.length < fileHeaderSize ? archive.length : fileHeaderSize);
        if (!Load(archiveHandle, 0, start, have) || std::memcmp(start, fileHeader, have) != 0)
            Fail(name, archivePath, "the archive has changed", __LINE__);
        Rollback rollback{report, archiveHandle, have};
        if (have < fileHeaderSize && !Store(archiveHandle, have, fileHeader + have, fileHeaderSize - have))
            Fail(name, archivePath, "the archive cannot be written", __LINE__);
        rollback.armed = false;
        archiveFlags.fetch_and(static_cast<std::uint8_t>(~NoHeader));
    }
    at = directory.ReadToEnd();
    if (at < fileHeaderSize)
        Fail(name, archivePath, "the file is no archive", __LINE__);

    // Refused before anything is written. Compression is only tried out where its result decides.
    const std::uint64_t room = Platform::largestFile - at;
    const bool compress = (file.mode & 0x0F) == File::ModeWriteCompressed;
    std::uint64_t worst = memberHeaderSize + info.length;
    if (compress)
        worst += 4 + 2 * ((info.length + File::blockSize - 1) / File::blockSize);
    if (compress && worst > room)
    {
        File::Entry trial;
        if (CopyPayload(file, stored, info.length, at, true, trial))
            worst = memberHeaderSize + std::uint64_t{trial.storedSize};
    }
    if (worst > room)
        Fail(name, archivePath, "the archive would pass 4 GiB", __LINE__);

    Rollback rollback{report, archiveHandle, at};
    directory.Refresh();
    // A torn end goes first: nothing of it may lie behind the new chunk.
    if (Platform::SetLength(archiveHandle, at) != Platform::Status::Ok || !WriteMember(file, stored, info.length, at))
        Fail(name, archivePath, "the archive cannot be written", __LINE__);
    rollback.armed = false;
    ArchiveDirectory::NoteGrowth();
}

bool FileSubArchive::WriteMember(File& file, Platform::FileHandle stored, std::uint64_t length, std::uint64_t at)
{
    File::Entry entry;
    entry.name = file.name.Text();
    std::uint8_t header[memberHeaderSize] = {'F', 'I', 'L', ' '};
    Encode(header + chunkHeaderSize, entry);
    if (!Store(archiveHandle, at, header, sizeof header) ||
        !CopyPayload(file, stored, length, at + memberHeaderSize, false, entry))
        return false;
    entry.size = file.size;
    Encode(header + chunkHeaderSize, entry);
    if (!Store(archiveHandle, at + chunkHeaderSize, header + chunkHeaderSize, entrySize) ||
        Platform::Commit(archiveHandle) != Platform::Status::Ok)
        return false;
    Put32(header + 4, entrySize + entry.storedSize);
    return Store(archiveHandle, at + 4, header + 4, 4) && Platform::Commit(archiveHandle) == Platform::Status::Ok;
}

// Copies the payload to offset `at`, counting and summing in `entry`; a dry run only counts.
bool FileSubArchive::CopyPayload(File& file, Platform::FileHandle stored, std::uint64_t length, std::uint64_t at,
                                 bool dry, File::Entry& entry)
{
    constexpr std::uint32_t frameHeaderSize = 2;
    std::uint8_t block[File::blockSize];
    std::uint8_t frame[frameHeaderSize + File::blockSize];
    const bool compress = (file.mode & 0x0F) == File::ModeWriteCompressed;
    if (compress)
    {
        entry.storedSize = 4;
        entry.attributes |= File::Entry::Compressed;
        if (!dry && !Store(archiveHandle, at, "CFIL", 4))
            return false;
    }
    for (std::uint64_t done = 0; done < length;)
    {
        const auto count = static_cast<std::uint32_t>(length - done < sizeof block ? length - done : sizeof block);
        if (!Load(stored, done, block, count))
            return false;
        const std::uint8_t* bytes = block;
        std::uint32_t size = count;
        if (compress)
        {
            const std::uint32_t packed = BPE::Comp(frame + frameHeaderSize, block, count);
            Put16(frame, packed == count ? packed | 0x8000 : packed);
            bytes = frame;
            size = frameHeaderSize + packed;
        }
        done += count;
        if (!dry)
        {
            entry.crc = Crc::Calc(block, count, entry.crc);
            if (!Store(archiveHandle, at + entry.storedSize, bytes, size))
                return false;
        }
        entry.storedSize += size;
        if (!dry && File::callback)
            File::callback(static_cast<std::uint32_t>(done), compress ? entry.storedSize : 0);
    }
    return true;
}

} // namespace Zem
