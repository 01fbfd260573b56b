// The archive as a location: opening it, finding and opening its members. The directory stands in ArchiveDirectory.cpp,
// appending in ArchiveWrite.cpp.

#include <Bedrock/files/FileSubArchive.h>

#include <Bedrock/files/ArchiveFormat.h>
#include <Bedrock/files/NameCase.h>
#include <Bedrock/files/TemporaryFile.h>
#include <Bedrock/host/Exception.h>
#include <Bedrock/platform/Files.h>

#include <cstring>

namespace Zem
{

using namespace ArchiveFormat;

namespace
{

bool IsSeparator(char c)
{
    return c == '/' || c == '\\';
}

const char* Inside(const char* name)
{
    return IsSeparator(*name) ? name + 1 : name;
}

// Bytes of a member that one read brings into the buffer of its file.
std::uint32_t FirstBlock(const ArchiveDirectory::Record& record)
{
    return record.payload < File::blockSize ? record.payload : File::blockSize;
}

bool ReadWhole(Platform::FileHandle file, std::uint64_t offset, void* dst, std::size_t size)
{
    auto* bytes = static_cast<std::uint8_t*>(dst);
    for (std::size_t got; size > 0; bytes += got, offset += got, size -= got)
        if (Platform::ReadAt(file, offset, bytes, size, got) != Platform::Status::Ok || got == 0)
            return false;
    return true;
}

} // namespace

FileSubArchive::FileSubArchive(const char* path, bool writable)
    : FileSub(Threads::Many), archivePath(path), archiveFlags(static_cast<std::uint8_t>(writable ? 0 : ReadOnly))
{
    if (!OpenExisting() && writable)
        CreateNew();
    directory.Attach(archiveHandle);
}

FileSubArchive::~FileSubArchive()
{
    if (archiveHandle.IsOpen())
        Platform::CloseFile(archiveHandle);
}

// False if the file could not be opened. One that is no archive is closed again, and that is no failure.
bool FileSubArchive::OpenExisting()
{
    Platform::FileInfo info;
    const unsigned access = archiveFlags & ReadOnly ? Platform::OpenReadOnly : Platform::OpenReadWrite;
    Platform::FileHandle file;
    File::Path path = archivePath;
    const auto open = [&](const char* name)
    { return Platform::OpenFile(file, name, access, Platform::Share::DenyNone, &info); };
    if (NameCase::Find(path, open) != Platform::Status::Ok)
        return false;
    if (Recognise(file, info.length))
        archiveHandle = file;
    else
        Platform::CloseFile(file);
    return true;
}

bool FileSubArchive::Recognise(Platform::FileHandle file, std::uint64_t length)
{
    std::uint8_t start[fileHeaderSize] = {};
    const auto have = static_cast<std::size_t>(length < fileHeaderSize ? length : fileHeaderSize);
    if (!ReadWhole(file, 0, start, have))
        return false;
    if (have < fileHeaderSize && std::memcmp(start, fileHeader, have) == 0)
        archiveFlags |= NoHeader; // nothing yet, or the making of it was cut short
    if (have < magicSize)
        return true; // no members, whatever it is
    if (archiveFlags & NoHeader)
        return !(archiveFlags & ReadOnly);
    if (!IsId(start, "ARCH"))
        return false;

    // The format stands in the chunk "INFO", usually the first.
    std::uint64_t at = magicSize;
    for (std::uint8_t chunk[chunkHeaderSize]; ReadWhole(file, at, chunk, sizeof chunk);)
    {
        const std::uint32_t size = Get32(chunk + 4);
        at += chunkHeaderSize;
        // A chunk that a torn end holds goes with it, so it says nothing of the archive.
        if (at + size > length || (IsId(chunk, "FIL ") && size < entrySize))
            return false;
        if (IsId(chunk, "INFO"))
        {
            std::uint8_t info[8];
            return size >= sizeof info && ReadWhole(file, at, info, sizeof info) && IsId(info, "0CRA") &&
                   Get32(info + 4) == formatNumber;
        }
        at += size;
    }
    return false;
}

// Two processes may come here at once for one file: whoever is first writes the header.
void FileSubArchive::CreateNew()
{
    Platform::FileHandle file;
    File::Path path = archivePath;
    const auto make = [&]
    {
        return Platform::OpenFile(file, path, Platform::OpenReadWrite | Platform::OpenCreate,
                                  Platform::Share::DenyNone) == Platform::Status::Ok;
    };
    bool made = make() || (NameCase::Respell(path) == NameCase::Respelled::Folder && make());
    if (made)
    {
        Platform::LockWriter(file);
        Platform::FileInfo info;
        std::size_t written = 0;
        made = Platform::GetInfo(file, info) == Platform::Status::Ok;
        if (made && info.length == 0)
        {
            made = Platform::WriteAt(file, 0, fileHeader, fileHeaderSize, written) == Platform::Status::Ok;
            if (!made)
                Platform::SetLength(file, 0);
        }
        Platform::UnlockWriter(file);
        if (!made)
            Platform::CloseFile(file);
    }
    if (!made)
        throw FileEx("FileSubArchive", __LINE__, "Substitute() Open new archive failed");
    archiveHandle = file;
}

bool FileSubArchive::IsReadOnly()
{
    return (archiveFlags & ReadOnly) != 0;
}

bool FileSubArchive::IsValid()
{
    return archiveHandle.IsOpen();
}

bool FileSubArchive::IsKind(int kind)
{
    return kind == KindArchive;
}

// The member is written to a temporary file, whose name is kept behind the file's own.
bool FileSubArchive::OpenWrite(File& file, const char* name, int, int)
{
    const char* stored = Inside(name);
    const std::size_t length = std::strlen(stored);
    if (!archiveHandle.IsOpen() || length == 0 || length + 1 + TemporaryFile::nameSize > File::Path::capacity)
        return false;
    char text[File::Path::capacity] = {};
    std::memcpy(text, stored, length);
    Platform::FileHandle temporary;
    if (TemporaryFile::Make(temporary, text + length + 1, sizeof text - length - 1) != Platform::Status::Ok)
        return false;
    static_assert(sizeof(File::Path) == sizeof text);
    std::memcpy(static_cast<void*>(&file.name), text, sizeof text);
    file.handle = temporary;
    file.sub = this;
    AddUse();
    return true;
}

// A member cannot be written in place, so a mode that also writes finds nothing here.
bool FileSubArchive::OpenRead(File& file, const char* name, int, int)
{
    if (file.mode & 0x0F)
        return false;
    // Detection wants the first block, and so does whoever reads. The first open of a member fetches it; the next ones
    // know what it is, and leave a plain one to the first read.
    const std::uint32_t reads = file.mode & 0xF0;
    const bool detects =
        (reads == File::ModeRead || reads == File::ModeReadCompressed) && !(file.mode & File::ModeCreate);
    // A member that was opened before is found without the lock. A payload that was read along with the directory is likely
    // still there when its member is opened for the first time, and only then.
    using Content = ArchiveDirectory::Content;
    const Record* record = directory.FindKnown(Inside(name));
    Content content = record ? record->content.load(std::memory_order_relaxed) : Content::Unknown;
    bool fetched = false;
    if (content == Content::Unknown)
    {
        const Platform::LockGuard guard(archiveLock);
        if (!record)
            record = directory.Find(Inside(name));
        if (!record)
            return false;
        content = record->content.load(std::memory_order_relaxed);
        fetched = detects && directory.TakeAhead(*record, file.buffer, FirstBlock(*record));
    }
    const bool knownPlain = reads == File::ModeRead && content == Content::Plain && !fetched;
    std::memcpy(static_cast<void*>(&file.name), record->entry.name.Text(), record->entry.name.Length() + 1);
    file.handle = archiveHandle;
    file.flags |= File::SharedHandle;
    file.size = record->entry.size;
    file.base = record->dataOffset;
    file.rawPosition = record->dataOffset;
    file.rawEnd = record->dataOffset + record->payload;
    file.sub = this;
    AddUse();
    if (detects && knownPlain)
        file.mode = (file.mode & ~0xF0u) | File::ModeReadPlain;
    else if (detects)
        Prefetch(file, *record, fetched);
    return true;
}

// Puts the first block of a member into the file's buffer, where `fetched` tells that it is already, and notes what it
// begins with. Runs without the lock: nobody waits for the disk.
void FileSubArchive::Prefetch(File& file, const Record& record, bool fetched)
{
    using Content = ArchiveDirectory::Content;
    const std::uint32_t block = FirstBlock(record);
    std::size_t got = block;
    if (!fetched && Platform::ReadAt(archiveHandle, record.dataOffset, file.buffer, block, got) != Platform::Status::Ok)
        return; // detection tries again, and tells
    file.readEnd = file.buffer + got;
    if (got < 4 && got < record.payload)
        return;
    record.content.store(got >= 4 && IsId(file.buffer, "CFIL") ? Content::Stream : Content::Plain,
                         std::memory_order_relaxed);
}

void FileSubArchive::CloseFile(File& file)
{
    ReleaseUse();
    const Platform::FileHandle closing = file.handle;
    file.handle = {};
    if (!(file.flags & File::SharedHandle))
        Append(file, closing);
}

const FileSubArchive::Record* FileSubArchive::Find(const char* name)
{
    if (const Record* known = directory.FindKnown(name))
        return known;
    const Platform::LockGuard guard(archiveLock);
    return directory.Find(name);
}

bool FileSubArchive::Exists(PString&, const char* name)
{
    return Find(Inside(name)) != nullptr;
}

bool FileSubArchive::GetStamp(File::Time& time, const char* name)
{
    const Record* record = Find(Inside(name));
    if (record)
        time = record->entry.timeWrite;
    return record != nullptr;
}

void FileSubArchive::AddToSearch(SearchList& list)
{
    list.Add(this);
}

bool FileSubArchive::IsPath(const char* text)
{
    return std::strcmp(archivePath, text) == 0;
}

// ----------------------------------------------------------------------------------------------------- searches

FileSubArchive::Cursor* FileSubArchive::CursorAt(std::int32_t index)
{
    auto at = cursors.Begin();
    if (index < 0)
        return nullptr;
    at += static_cast<std::uint32_t>(index);
    return at.Get();
}

std::int32_t FileSubArchive::AcquireCursor()
{
    Platform::LockGuard guard(archiveLock);
    std::int32_t index = 0;
    for (Cursor& cursor : cursors)
    {
        if (!cursor.inUse)
        {
            cursor = {};
            cursor.inUse = true;
            return index;
        }
        ++index;
    }
    Cursor* made = cursors.Add({});
    if (made)
        made->inUse = true;
    return made ? index : -1;
}

std::int32_t FileSubArchive::CopyCursor(std::int32_t index)
{
    Platform::LockGuard guard(archiveLock);
    const std::int32_t copy = AcquireCursor();
    const Cursor* from = CursorAt(index);
    Cursor* to = CursorAt(copy);
    if (from && to)
        *to = *from;
    return copy;
}

void FileSubArchive::ReleaseCursor(std::int32_t index)
{
    Platform::LockGuard guard(archiveLock);
    if (Cursor* cursor = CursorAt(index))
        cursor->inUse = false;
}

namespace
{

// Whether `pattern` matches the member, or names a folder that it lies in; `out` is what a search reports then.
bool Report(const ArchiveDirectory::Record& record, const char* pattern, File::Entry& out)
{
    const char* folder = nullptr;
    const char* name = record.entry.name;
    const bool matches = File::Path::IsMatch(name, pattern, &folder);
    if (!matches && (!folder || folder == name))
        return false;
    out = record.entry;
    if (!matches)
    {
        out.attributes |= File::Entry::Directory | File::Entry::ReadOnly;
        out.name.Del(static_cast<std::uint32_t>(folder - name), File::Path::capacity);
    }
    return true;
}

} // namespace

bool FileSubArchive::Scan(std::int32_t index, File::Entry& out, const char* pattern, bool advance, bool exact)
{
    Platform::LockGuard guard(archiveLock);
    Cursor* cursor = CursorAt(index);
    if (!cursor || !cursor->inUse || !archiveHandle.IsOpen())
        return false;
    if (exact)
    {
        const Record* record = directory.Find(Inside(pattern));
        if (!record)
            return false;
        out = record->entry;
        if (advance)
            cursor->last = record;
        return true;
    }
    const Record* before = cursor->last;
    while (const Record* record = directory.Next(before))
    {
        const bool found = Report(*record, pattern, out);
        if (!found || advance)
            cursor->last = record;
        if (found)
            return true;
        before = record;
    }
    return false;
}

bool FileSubArchive::List(std::int32_t index, File::Entry& out, const char* pattern)
{
    Platform::LockGuard guard(archiveLock);
    Cursor* cursor = CursorAt(index);
    if (!cursor || !cursor->inUse || !archiveHandle.IsOpen())
        return false;
    std::size_t length = std::strlen(pattern);
    while (length > 0 && !IsSeparator(pattern[length - 1]))
        --length;
    while (folders.IsWhole())
    {
        const ArchiveFolders::Folder* folder = folders.Find(pattern, length);
        const ArchiveFolders::Child* child = folder ? folder->first : nullptr;
        if (folder && folder == cursor->folder && cursor->child->record == cursor->last)
            child = cursor->child->next;
        else
            while (child && cursor->last && child->record->dataOffset <= cursor->last->dataOffset)
                child = child->next;
        for (; child; child = child->next)
        {
            cursor->last = child->record;
            cursor->folder = folder;
            cursor->child = child;
            if (Report(*child->record, pattern, out))
                return true;
        }
        if (!IndexNext())
            return false;
    }
    // No memory for the folders: the whole archive is looked at.
    return Scan(index, out, pattern, true, false);
}

// Enters one more member into the folders; false if there is none.
bool FileSubArchive::IndexNext()
{
    const Record* more = directory.Next(folders.Last());
    if (more)
        folders.Enter(*more);
    return more != nullptr;
}

} // namespace Zem
