#pragma once

#include <Bedrock/files/ArchiveDirectory.h>
#include <Bedrock/files/ArchiveFolders.h>
#include <Bedrock/files/FileSub.h>
#include <Bedrock/platform/Lock.h>

#include <atomic>
#include <cstdint>

namespace Zem
{

/// One archive file as a location. An archive only ever grows: members are appended, and never moved, replaced or
/// deleted; the first of a name is the one that is found. Names ignore case and the kind of separator.
///
/// Open members share the archive's handle. A member that is written is a temporary file until it is closed; only then
/// it is appended, in a way that leaves the archive as it was if anything fails, be it the end of the process.
///
/// `archiveLock` guards the cursors and what reads on in the directory, and keeps appends apart from them; it is taken
/// inside a walk over the substitution list. Known members are found and payloads are read without it: every read states
/// its offset, and what is stored never changes. Appends of several processes keep out of each other's way by a lock on the file.
class FileSubArchive final : public FileSub
{
public:
    /// Opens the archive at `path`; a writable one that is not there is made. A file that is no archive is left alone and
    /// gives a location that is not valid. Throws FileEx "Substitute() Open new archive failed".
    FileSubArchive(const char* path, bool writable);
    ~FileSubArchive() override;

    bool IsReadOnly() override;
    bool IsValid() override;
    bool IsKind(int kind) override;
    bool OpenWrite(File& file, const char* name, int flags, int permission) override;
    bool OpenRead(File& file, const char* name, int flags, int permission) override;
    void CloseFile(File& file) override;
    bool Exists(PString& subst, const char* name) override;
    bool GetStamp(File::Time& time, const char* name) override;
    void AddToSearch(SearchList& list) override;
    bool IsPath(const char* text) override;

    /// A place in the archive for a search, at its start: its index, or -1 when the heap is exhausted.
    std::int32_t AcquireCursor();
    /// Another one at the place of the cursor `index`.
    std::int32_t CopyCursor(std::int32_t index);
    /// Frees it for the next search; an index that is none does nothing.
    void ReleaseCursor(std::int32_t index);
    /// The next member from the cursor on whose name matches `pattern`, in `out`. A member below a folder that `pattern`
    /// names is reported as that folder: attributes of a read-only folder are added and the name is cut behind it. With
    /// `exact` the member of that very name, wherever the cursor stands. With `advance` the cursor moves behind the
    /// member. False at the end, and for a cursor that is free or none.
    bool Scan(std::int32_t index, File::Entry& out, const char* pattern, bool advance, bool exact);
    /// The next name from the cursor on that a search for `pattern` delivers: as `Scan` moving on does, but a folder once
    /// only, and at the cost of the names in the folder that the pattern names. That may not hold wildcards.
    bool List(std::int32_t index, File::Entry& out, const char* pattern);

private:
    using Record = ArchiveDirectory::Record;

    struct Cursor
    {
        const Record* last = nullptr; // looked at last; null: none yet
        const ArchiveFolders::Folder* folder = nullptr;
        const ArchiveFolders::Child* child = nullptr; // of that folder, where `last` is
        bool inUse = false;
    };

    enum Flags : std::uint8_t
    {
        ReadOnly = 1,
        NoHeader = 2, // the file holds less than its header: the first append writes that
    };

    bool OpenExisting();
    bool Recognise(Platform::FileHandle file, std::uint64_t length);
    void CreateNew();
    void Prefetch(File& file, const Record& record, bool fetched);
    const Record* Find(const char* name);
    Cursor* CursorAt(std::int32_t index);
    bool IndexNext();

    // ArchiveWrite.cpp
    void Append(File& file, Platform::FileHandle stored);
    bool WriteMember(File& file, Platform::FileHandle stored, std::uint64_t length, std::uint64_t at);
    bool CopyPayload(File& file, Platform::FileHandle stored, std::uint64_t length, std::uint64_t at, bool dry,
                     File::Entry& entry);

    ArchiveDirectory directory;
    ArchiveFolders folders; // of the members known, as far as searches needed it
    DynamicArray<Cursor, 4> cursors;
    File::Path archivePath;
    Platform::FileHandle archiveHandle; // not open: the archive is not usable
    std::atomic<std::uint8_t> archiveFlags;
    Platform::Lock archiveLock;
};

} // namespace Zem
