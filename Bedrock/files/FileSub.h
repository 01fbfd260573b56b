#pragma once

#include <Bedrock/Export.h>
#include <Bedrock/files/File.h>
#include <Bedrock/memory/DynamicArray.h>
#include <Bedrock/memory/HeapOperators.h>
#include <Bedrock/memory/Nodes.h>
#include <Bedrock/memory/PString.h>

#include <atomic>
#include <cstdint>

namespace Zem
{

/// One place where a substitute looks for files: a folder, an archive, a link to another substitute, or a class of the
/// application (`FileSubstitute::Add(FileSub*)`).
///
/// The base class has nothing and refuses everything. Names that it is asked for are paths inside the location. While it
/// is asked the location stays; the operations may open, mount and link, but not remove a substitute. All operations but
/// `CloseFile`, `Lock` and `Unlock` see one thread at a time, unless the location was made for `Threads::Many`; those three
/// run on the thread of the file, any number of them at once.
///
/// An open that works leaves `sub` of the file at the location and has called `AddUse`; the file's `CloseFile` then
/// comes back to it. The count keeps the substitute from being removed while files are open.
class ZEM_API FileSub : public ISingleListNode
{
    ZEM_HEAP_OPERATORS
public:
    enum Kind : int
    {
        KindArchive = 0,
        KindPath = 1,
        KindLink = 2,
    };
    using SearchList = DynamicArray<FileSub*, 13>;

    enum class Threads : bool
    {
        One,  // the library asks from one thread at a time
        Many, // the location has what locks it needs
    };

    explicit FileSub(Threads asking = Threads::One) noexcept : threads(asking) {}
    FileSub(const FileSub&) = delete;
    FileSub& operator=(const FileSub&) = delete;
    virtual ~FileSub();

    /// The substitute `name` is going away.
    virtual void SubstRemoved(const PString& name);
    /// No write may go here.
    virtual bool IsReadOnly();
    /// The location can be used.
    virtual bool IsValid();
    virtual bool IsKind(int kind);
    /// Opens for writing alone. `flags` are `Platform::OpenFlags`.
    virtual bool OpenWrite(File& file, const char* name, int flags, int permission);
    /// Every other open.
    virtual bool OpenRead(File& file, const char* name, int flags, int permission);
    /// Finishes a file that this location opened; the file's handle is closed afterwards, whatever is thrown.
    virtual void CloseFile(File& file);
    /// Whether the name is here. A location that looks elsewhere stores the substitute that has it in `subst`.
    virtual bool Exists(PString& subst, const char* name);
    virtual bool Unlink(const char* name);
    virtual bool Rename(const char* from, const char* to);
    /// Rewrites `name`, which has room for 260 bytes, to the path on disk.
    virtual bool TrueName(char* name);
    virtual bool GetStamp(File::Time& time, const char* name);
    /// Adds this location, or those behind it, to the end of a search.
    virtual void AddToSearch(SearchList& list);
    /// Around each raw read of a file that was opened here.
    virtual void Lock();
    virtual void Unlock();
    /// Whether `path` is the location's own path, to the byte.
    virtual bool IsPath(const char* path);

    /// Files open through this location.
    std::uint32_t UseCount() const noexcept { return useCount.load(std::memory_order_acquire); }
    void AddUse() noexcept { useCount.fetch_add(1, std::memory_order_relaxed); }
    void ReleaseUse() noexcept { useCount.fetch_sub(1, std::memory_order_release); }

    bool IsAskedByMany() const noexcept { return threads == Threads::Many; }

private:
    alignas(4) std::atomic<std::uint32_t> useCount{0};
    const Threads threads;
};

/// A named list of locations, asked in order: folders and archives, the newest first, then links, the oldest first.
///
/// Every operation may be called on any thread; while one goes through the locations none of them is removed. Searches for
/// names don't wait for each other. A pointer to a substitute is good until the substitute is removed.
class ZEM_API FileSubstitute
{
    ZEM_HEAP_OPERATORS
public:
    explicit FileSubstitute(const PString& name);
    ~FileSubstitute();
    FileSubstitute(const FileSubstitute&) = delete;
    FileSubstitute& operator=(const FileSubstitute&) = delete;

    const PString& Name() const noexcept { return substName; }
    std::uint32_t Count() const noexcept { return count.load(std::memory_order_relaxed); }

    /// A new location in front: a folder if `path` ends in a separator, else an archive. Throws FileEx for a path that
    /// is empty or has 260 bytes and more, and when a new archive cannot be made; nothing is added then.
    void Add(const char* path, bool writable) { Add(NewLocation(substName, path, writable)); }
    /// The same with a location of the application, which belongs to the substitute from here on.
    void Add(FileSub* location);
    /// The folder or archive that `Add` would make, on its own; `name` is for the message of what it throws.
    static FileSub* NewLocation(const PString& name, const char* path, bool writable);
    /// A link to `target`, at the end. Throws FileEx when `target` leads here already: a circle.
    void AddLink(FileSubstitute* target);

    /// Opens through the first location that can: `OpenWrite` asks those that may be written, `OpenRead` those that are
    /// valid.
    bool OpenWrite(File& file, const char* name, int flags, int permission);
    bool OpenRead(File& file, const char* name, int flags, int permission);
    /// RES_OK with the name of the substitute that has the file in `subst`, else RES_FILENOTFOUND.
    File::Result Exists(PString& subst, const char* name);
    /// Deletes the name in every writable location; true if one had it.
    bool Unlink(const char* name);
    bool Rename(const char* from, const char* to);
    bool TrueName(char* name);
    bool GetStamp(File::Time& time, const char* name);
    void AddToSearch(FileSub::SearchList& list);
    void SubstRemoved(const PString& name);

    /// Files open through the locations of this substitute itself.
    std::uint32_t UseCount();
    /// Whether a walk from here comes to `other`: it is this substitute, or links lead to it.
    bool LeadsTo(const FileSubstitute* other);

private:
    friend class FileSubstList;

    template <class Test, class Ask>
    bool FirstThat(Test test, Ask ask);
    template <class See>
    void ForEach(See see);

    // Changed under the list's guard alone, read by walks at any time.
    std::atomic<FileSubstitute*> next{nullptr};
    ISingleListNode first; // a ring: the last location points here
    std::atomic<std::uint32_t> count{0};
    const PString substName;
};

/// A folder on disk. Names never climb above it: what would, is not there.
class FileSubPath final : public FileSub
{
public:
    FileSubPath(const char* folder, bool writable);

    bool IsReadOnly() override;
    bool IsValid() override;
    bool IsKind(int kind) override;
    /// Makes the folder if it is not there.
    bool OpenWrite(File& file, const char* name, int flags, int permission) override;
    bool OpenRead(File& file, const char* name, int flags, int permission) override;
    void CloseFile(File& file) override;
    bool Exists(PString& subst, const char* name) override;
    bool Unlink(const char* name) override;
    bool Rename(const char* from, const char* to) override;
    bool TrueName(char* name) override;
    bool GetStamp(File::Time& time, const char* name) override;
    void AddToSearch(SearchList& list) override;
    bool IsPath(const char* text) override;

    const File::Path& Folder() const noexcept { return path; }
    /// The path on disk of a name in this folder; false for a name that leads out of it, or that does not fit.
    bool Join(File::Path& out, const char* name) const;

private:
    enum Flags : std::uint8_t
    {
        ReadOnly = 1,
        Valid = 2, // the folder exists
    };

    File::Path path; // ends in a separator
    std::atomic<std::uint8_t> flags;
};

/// Another substitute with all its locations, as long as it is registered.
class FileSubLink final : public FileSub
{
public:
    explicit FileSubLink(FileSubstitute* other) noexcept : FileSub(Threads::Many), target(other) {}

    void SubstRemoved(const PString& name) override;
    bool IsReadOnly() override;
    bool IsValid() override;
    bool IsKind(int kind) override;
    bool OpenWrite(File& file, const char* name, int flags, int permission) override;
    bool OpenRead(File& file, const char* name, int flags, int permission) override;
    bool Exists(PString& subst, const char* name) override;
    void AddToSearch(SearchList& list) override;

    FileSubstitute* Target() const noexcept { return target; }

private:
    FileSubstitute* target; // null once it is gone; that happens while nobody walks
};

} // namespace Zem
