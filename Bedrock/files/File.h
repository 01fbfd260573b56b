#pragma once

#include <Bedrock/Export.h>
#include <Bedrock/files/Entry.h>
#include <Bedrock/files/Path.h>
#include <Bedrock/host/ResultClass.h>
#include <Bedrock/memory/HeapOperators.h>
#include <Bedrock/platform/FileHandle.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace Zem
{

class Exception;
class FileFind;
class FileSub;
class FileSubstitute;
class PString;
class String;

/// Where an offset of `File::Seek` counts from. From the end it counts backwards: `SeekEnd(1)` is one byte before it.
enum FileSeek
{
    FileSeekSet = 0,
    FileSeekCur = 1,
    FileSeekEnd = 2,
};

/// A buffered binary stream over a file on disk, over a member of an archive, or over a compressed stream in either.
///
/// A name is a path, or `word:path` where `word` is a substitute made by `Subst`: its folders, archives and links then
/// decide what serves the path. A word of one letter is a drive and part of the path. A name on disk that is not there as it
/// is spelled is found in any other case; either separator may be used. What is compressed is found out
/// from its first four bytes, and read like anything else; it is written with `ModeWriteCompressed`, plain at first, and
/// compressed as a whole by `Close`.
///
/// Positions and lengths are bytes of the stream as its reader sees it, `Tell` and `Seek` count from its first. A
/// file on disk is at most 4 GiB - 2 long. Numbers are stored little-endian. While a file is open for writing no other
/// user of the library can open it, while it is open for reading none can write it. One object may read and write in
/// turn at its one position; a read after a write sees what was written.
///
/// Failures of the disk and of the caller are thrown as `FileEx` with the source name "File"; the object stays open, and
/// its position stands behind what was moved. What an `Open` cannot do is its result.
/// Threads: one object belongs to one thread at a time; the static operations may be called on any.
///
///     File file;
///     if (auto result = file.Open("data:level1.map", File::ModeRead); !result)
///         return Complain(result.Text());
///     std::uint32_t count = 0;
///     file.Read(count);
class ZEM_API File
{
    ZEM_HEAP_OPERATORS

public:
    using Path = FilePath;
    using Time = FileTime;
    using Entry = FileEntry;
    using Find = FileFind; // <Bedrock/files/FileFind.h>

    enum Results : std::int32_t
    {
        RES_OK,
        RES_UNKNOWN,
        RES_FILENOTFOUND,
        RES_ALREADYOPEN,
        RES_MODENOTSUPPORTED,
        RES_CANTWRITECOMPRESSED,
        RES_NOTCOMPRESSED,
        RES_SUBSTNOTFOUND,
    };
    static const ResultTable results[8];
    using Result = ResultClass<results, Results>;

    /// One value from each group, or-ed. Without a create value the file must exist.
    enum Mode : std::uint32_t
    {
        ModeWrite = 0x0001,
        ModeWriteCompressed = 0x0002, // plain until `Close`; no `Seek`
        ModeRead = 0x0010,            // plain or compressed, as its first four bytes say
        ModeReadPlain = 0x0020,       // as stored
        ModeReadCompressed = 0x0030,  // must be compressed, or shorter than four bytes
        ModeCreate = 0x0100,          // makes the file, empties one that is there
        ModeAppend = 0x0200,          // makes it if absent; each write goes to the end
        ModeNotSupported = 0x1000,    // refused
    };

    static constexpr std::uint32_t blockSize = 16384; // of the buffer, of a frame, of a transfer
    static constexpr std::uint32_t unknownSize = 0xFFFFFFFF;

    /// A closed file with a buffer of its own.
    File();
    /// Closes. A failure of that is thrown, unless the destructor runs because of another exception.
    ~File() noexcept(false);
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    /// Uses the caller's block of 16,384 bytes from the next `Open` on, in the place of the own one, which is freed. It
    /// must outlive the object's last use. No effect while the file is open.
    void SetBuffer(void* block);

    /// Opens `name`, see above. A word before ":" that is no substitute is dropped.
    ///
    /// Returns: RES_ALREADYOPEN on an open file, which is left alone; RES_FILENOTFOUND for every failure to find or open;
    /// RES_MODENOTSUPPORTED; RES_CANTWRITECOMPRESSED for write access together with detection on a compressed file;
    /// RES_NOTCOMPRESSED; RES_UNKNOWN when the disk fails during detection.
    Result Open(const char* name, std::uint32_t mode);
    /// The same with the substitute named apart; an empty or unknown one means the plain path.
    Result Open(const PString& subst, const char* name, std::uint32_t mode);

    /// Writes what is pending, compresses if the mode says so, and closes; always 0. The object is closed afterwards in any
    /// case. `Name`, `Tell` and `Size` keep their answers until the next `Open`.
    /// Throws: when data could not be stored; a file that could not be compressed stays, plain, under its name.
    std::uint32_t Close();

    bool IsOpen() const { return handle.IsOpen(); }
    /// The stream that is read is compressed, or the one written will be.
    bool IsCompressed() const { return (mode & 0xF0) == ModeReadCompressed || (mode & 0x0F) == ModeWriteCompressed; }

    // ------------------------------------------------------------------------------------------------ bytes

    /// Copies up to `n` items of `size` bytes from the position to `dst`; whole items read. The end of the file is no
    /// failure: fewer come, and the position stands behind the bytes that came, those of a torn item too.
    /// Throws: on a closed file, without a read mode, when `n * size` is 0, when the disk fails or a compressed stream is
    /// damaged or read behind its end on disk.
    /// Cost: one call of the system per 16 KiB; what is wanted beyond the buffer goes straight to `dst` in one call.
    std::uint32_t Read(void* dst, std::size_t n, std::size_t size);

    /// Writes `n` items of `size` bytes at the position, or at the end with `ModeAppend`; whole items written.
    /// Throws: on a closed file, without a write mode, when `n * size` is 0, when the disk fails or is full.
    std::uint32_t Write(const void* src, std::size_t n, std::size_t size);

    /// The same, but fewer than `n` items throw.
    void SafeRead(void* dst, std::size_t n, std::size_t size);
    void SafeWrite(const void* src, std::size_t n, std::size_t size);

    // ---------------------------------------------------------------------------------------------- numbers

    /// One number; true when it came whole. A target keeps those of its bytes that did not come; `Read32` clears it
    /// first. Wider targets do not compile: what is stored is 1, 2 or 4 bytes.
    bool Read(signed char& value) { return ReadItem(value); }
    bool Read(unsigned char& value) { return ReadItem(value); }
    bool Read(std::int16_t& value) { return ReadItem(value); }
    bool Read(std::uint16_t& value) { return ReadItem(value); }
    bool Read(std::int32_t& value) { return ReadItem(value); }
    bool Read(std::uint32_t& value) { return ReadItem(value); }
    bool Read(float& value) { return ReadItem(value); }
    bool Read32(std::int32_t& value)
    {
        value = 0;
        return ReadItem(value);
    }
    bool Read32(std::uint32_t& value)
    {
        value = 0;
        return ReadItem(value);
    }
    template <class T>
    requires(std::is_arithmetic_v<T> && sizeof(T) > 4) bool Read(T&) = delete;

    bool Write(signed char value) { return WriteItem(value); }
    bool Write(unsigned char value) { return WriteItem(value); }
    bool Write(std::int16_t value) { return WriteItem(value); }
    bool Write(std::uint16_t value) { return WriteItem(value); }
    bool Write(std::int32_t value) { return WriteItem(value); }
    bool Write(std::uint32_t value) { return WriteItem(value); }
    bool Write(float value) { return WriteItem(value); }
    bool Write32(std::int32_t value) { return WriteItem(value); }
    bool Write32(std::uint32_t value) { return WriteItem(value); }
    bool Write(char) = delete; // would be stored as 4 bytes
    bool Write(bool) = delete;
    template <class T>
    requires(std::is_arithmetic_v<T> && sizeof(T) > 4) bool Write(T) = delete;
    template <class T>
    requires(std::is_arithmetic_v<T> && sizeof(T) > 4) bool Write32(T) = delete;

    // ------------------------------------------------------------------------------------------------- text

    /// Reads a line of which up to `size` - 2 bytes fit, with its line feed and a terminator, into `dst` of `size` bytes;
    /// the rest of a longer line is skipped. Bytes stored before the terminator, 0 at the end of the file; a `size` below
    /// 2 gives 0 and touches nothing.
    std::uint32_t ReadLine(void* dst, std::uint32_t size);

    /// Writes the text, without its terminator and without a line end. An empty text throws as `Write` of nothing does.
    std::uint32_t WriteLine(const char* text);

    /// Text as 4 bytes of length and that many bytes. No text and an empty one are the same: a length of 0. True; a text
    /// that the file cuts short is what came of it, and a length that the file cannot hold is never allocated.
    bool Read(PString& text);
    bool Write(const PString& text);
    bool Read(String& text);
    bool Write(const String& text);

    // ---------------------------------------------------------------------------------------------- position

    /// Moves the position, also behind the end of a plain file. The new position, or 0xFFFFFFFF for another `origin`.
    /// Nothing is read on a plain stream; on a compressed one the headers up to the frame, and it, when it is not in hand.
    /// Throws: while writing compressed; behind the end of a compressed stream; the position is then unchanged.
    std::uint32_t Seek(std::int32_t offset, FileSeek origin);
    std::uint32_t SeekSet(std::int32_t offset) { return Seek(offset, FileSeekSet); }
    std::uint32_t SeekCur(std::int32_t offset) { return Seek(offset, FileSeekCur); }
    std::uint32_t SeekEnd(std::int32_t offset) { return Seek(offset, FileSeekEnd); }
    template <class T>
    requires(sizeof(T) > 4) std::uint32_t SeekSet(T)
    = delete;
    template <class T>
    requires(sizeof(T) > 4) std::uint32_t SeekCur(T)
    = delete;
    template <class T>
    requires(sizeof(T) > 4) std::uint32_t SeekEnd(T)
    = delete;

    std::uint32_t Tell() const { return bufferStart + static_cast<std::uint32_t>(current - buffer); }

    /// Bytes of the stream. Of a compressed file opened straight from disk, whose length is stored nowhere, the bytes on
    /// disk; reading stops there once it was asked for.
    std::uint32_t Size();
    bool Eof() { return Tell() == Size(); }

    /// As opened; inside a folder of a substitute the path on disk.
    const char* Name() const { return name; }

    /// Writes what is pending and waits until it is on the device. Nothing pending: nothing done.
    void Commit();

    // ------------------------------------------------------------------------------------------------ chunks

    /// Chunks: 4 bytes id, 4 bytes length, payload. They go past the buffer and the position, at the place where the last
    /// transfer of the system ended.
    ///
    /// Writes a chunk; bytes of payload stored, 0 when the header could not be.
    std::uint32_t WriteBlock(const char* id, const void* data, std::uint32_t length);
    /// Looks for the next chunk `id` and reads up to `max` bytes of it, leaving the place behind all of it: bytes read.
    /// With null `data` the place is left behind its header: the chunk's length. 0 when there is none.
    std::uint32_t ReadBlock(const char* id, void* data, std::uint32_t max);

    /// When the open file was last modified. Throws on failure.
    void GetStamp(Time& time);

    // -------------------------------------------------------------------------------------- names, `subst:path`

    static Result Exists(const char* name);
    /// Looks in `subst`, and stores there the substitute that has the file when a link led on.
    static Result Exists(PString& subst, const char* name);
    static Result SubstExists(const PString& subst);

    /// Puts a location in front of those that the substitute `name` has: a folder if `path` ends in a separator, else an
    /// archive. Null removes the substitute with all its locations; throws while files are open through it.
    static void Subst(const PString& name, const char* path, bool writable);
    /// Lets `name` look in `other` too, last. Throws when there is no `other`, and when the links would close a circle.
    static void SubstLink(const PString& name, const PString& other);

    /// Deletes a file: in a substitute, in each of its writable locations. True if one was deleted.
    static bool Unlink(const char* name);
    static bool Unlink(const PString& subst, const char* name);
    static bool Remove(const char* name) { return Unlink(name); }
    static bool Remove(const PString& subst, const char* name) { return Unlink(subst, name); }

    /// Renames; false if `to` is taken, in any case but that of `from` itself. The word of `to` is not looked at.
    static bool Rename(const char* from, const char* to);
    static bool Rename(const PString& subst, const char* from, const char* to);

    static bool Cd(const char* path);
    static bool Rd(const char* path);
    /// Makes a folder and those above it; one that is there is no failure.
    static bool Md(const char* path);

    /// When a file was last modified; false if it is not there.
    static bool GetStamp(Time& time, const char* name);
    /// Sets that, on a plain path; the time of the last access stays. Throws on failure.
    static void SetStamp(Time& time, const char* name);

    /// Rewrites `name`, which has room for 260 bytes, to the real path of the file, in its own spelling; false if there is none.
    static bool TrueName(char* name);

    /// `progress` is called while a member is stored in an archive, with the bytes read and the bytes stored so far; the
    /// latter is 0 for a plain member. Null: nobody.
    using Progress = bool (*)(std::uint32_t, std::uint32_t);
    static void SetCallBack(Progress progress);
    static void SetLog(bool on);

protected:
    /// Writes `n` bytes over those at `at` and leaves the position alone, whatever happens. After a failure the file is not
    /// whole: it is not put into an archive.
    /// Throws: as `Write`; while writing compressed or appending, where no byte can be written again.
    void Patch(std::uint32_t at, const void* src, std::uint32_t n);
    /// The next `n` bytes where they lie in the buffer, and moves behind them. Null, and nothing moved, if they are not all
    /// read ahead.
    const std::uint8_t* TakeBuffered(std::uint32_t n)
    {
        if (readEnd - current < static_cast<std::ptrdiff_t>(n))
            return nullptr;
        current += n;
        return current - n;
    }
    /// How many of the next `wanted` bytes the stream has.
    std::uint32_t BytesLeft(std::uint32_t wanted);
    /// Reads up to `n` bytes, at least 1: those in hand, or as many as one refill brings. 0 at the end of the stream, also of
    /// a compressed one whose length is stored nowhere. Throws: as `Read`, and as `Size` when the end cannot be told.
    std::uint32_t ReadSome(void* dst, std::uint32_t n);
    /// The last word about data that could not be stored, where another exception is already on its way.
    void ReportLoss(const Exception& failure) const noexcept;

private:
    // The locations fill in and finish what they open: `handle`, `sub`, `name`, `size`, `base`, `rawPosition`, `rawEnd`.
    friend class FileSub;
    friend class FileSubArchive;
    friend class FileSubLink;
    friend class FileSubPath;
    friend class FileSubstitute;
    // The log gives its file up without writing when the process is in trouble.
    friend class Log;

    enum Flags : std::uint8_t
    {
        OwnsBuffer = 1,
        SharedHandle = 2, // the handle is an archive's
        Broken = 4,       // the last write failed: whoever closes the file only gives up the handle
        Unpatched = 8,    // and so for a patch, which nothing written later makes good
        Missing = 16,     // a write failed before all its bytes were taken, and none has succeeded since
        NotWhole = Broken | Unpatched | Missing,
    };

    template <class T>
    bool ReadItem(T& value);
    template <class T>
    bool WriteItem(T value);
    std::uint32_t ReadSlow(void* dst, std::size_t n, std::size_t size);
    std::uint32_t WriteSlow(const void* src, std::size_t n, std::size_t size);

    // Opening and closing, File.cpp
    Result Open(const char* word, std::size_t length, const char* path, std::uint32_t openMode);
    bool OpenHandle(const char* path, unsigned openFlags, Platform::Share share);
    void LimitToPayload() noexcept;
    Result Detect();
    void Abandon() noexcept;
    /// Ends a file on disk that `OpenHandle` opened as `name`: closes it, after the compression of a file written
    /// compressed. `handle` is closed whatever happens. Throws FileEx when data could not be stored.
    void CloseHandle();

    // The buffer
    void PrepareRead();
    void PrepareWrite();
    void WriteBuffer();
    std::uint32_t FillBuffer(std::size_t wanted);
    void Drop(std::uint32_t position) noexcept;
    void WriteStraight(const std::uint8_t* src, std::size_t bytes);
    void Grow(std::uint32_t count) noexcept;
    void NoteWrite(bool stored) noexcept;

    // Below the buffer
    std::size_t ReadAt(void* dst, std::size_t size, std::uint64_t offset, bool& failed);
    std::size_t ReadWhole(void* dst, std::size_t size, std::uint64_t offset, bool& failed);
    std::size_t ReadPieces(std::uint8_t* dst, std::size_t bytes, std::uint8_t (&tail)[2], std::uint64_t offset,
                           bool& failed);
    std::size_t ReadNext(std::uint8_t* dst, std::size_t wanted);
    std::uint32_t FindChunk(const char* id, void* data, std::uint32_t max);
    std::uint32_t StoredLength();

    // FileStream.cpp
    void TakeFirstFrame(std::size_t got);
    std::uint32_t ReadFrame(std::uint8_t* dst);
    bool ReadHeader(std::uint64_t offset, std::uint32_t& header);
    void SeekFrame(std::uint32_t target);
    static void CompressFile(Platform::FileHandle plain, const char* path, std::uint8_t* work);

    // The position in the stream is bufferStart + (current - buffer) at all times.
    Platform::FileHandle handle;
    std::uint8_t* current;
    std::uint8_t* buffer;      // blockSize bytes
    std::uint8_t* readEnd;     // behind what was read ahead; `buffer` when nothing was
    std::uint8_t* writeEnd;    // end of the room while bytes before `current` are pending; else `buffer`
    std::uint32_t bufferStart; // position of buffer[0]; of a compressed stream, of the frame in hand
    std::uint32_t mode;
    std::uint32_t size;           // unknownSize: ask the system
    std::uint32_t nextHeader;     // of the frame at rawPosition, if it came with the frame before; else noHeader
    std::uint64_t base;           // offset in the system's file of position 0
    std::uint64_t rawPosition;    // offset of the next raw read
    std::uint64_t rawEnd;         // offset behind the stream's last stored byte; noEnd: the end of the file
    std::uint64_t systemPosition; // offset behind the last transfer: where chunks go
    std::uint32_t readAhead;      // bytes that the next refill asks for
    std::uint8_t flags;
    FileSubstitute* substitute; // named at Open, never used after it
    FileSub* sub;               // location that opened the file and will close it
    Path name;                  // a member being written: behind the terminator stands its temporary's name

    static constexpr std::uint32_t farAhead = 2048; // the first refill after a far jump: it may be one of many
    static constexpr std::uint32_t noHeader = 0xFFFFFFFF;
    static constexpr std::uint64_t noEnd = ~std::uint64_t{0};

    static Progress callback;
};

// One subtraction, one compare and the copy while the buffer holds what is wanted.
inline std::uint32_t File::Read(void* dst, std::size_t n, std::size_t itemSize)
{
    const std::ptrdiff_t left = readEnd - current;
    if (left > 0 && n <= blockSize && itemSize <= blockSize)
    {
        const std::size_t total = n * itemSize;
        if (total - 1 < static_cast<std::size_t>(left))
        {
            std::memcpy(dst, current, total);
            current += total;
            return static_cast<std::uint32_t>(n);
        }
    }
    return ReadSlow(dst, n, itemSize);
}

// The room is never filled to the last byte here, so that the flush stays out of line.
inline std::uint32_t File::Write(const void* src, std::size_t n, std::size_t itemSize)
{
    const std::ptrdiff_t room = writeEnd - current;
    if (room > 1 && n <= blockSize && itemSize <= blockSize)
    {
        const std::size_t total = n * itemSize;
        if (total - 1 < static_cast<std::size_t>(room - 1))
        {
            std::memcpy(current, src, total);
            current += total;
            return static_cast<std::uint32_t>(n);
        }
    }
    return WriteSlow(src, n, itemSize);
}

template <class T>
bool File::ReadItem(T& value)
{
    if (readEnd - current >= static_cast<std::ptrdiff_t>(sizeof value))
    {
        std::memcpy(&value, current, sizeof value);
        current += sizeof value;
        return true;
    }
    return ReadSlow(&value, 1, sizeof value) == 1;
}

template <class T>
bool File::WriteItem(T value)
{
    if (writeEnd - current > static_cast<std::ptrdiff_t>(sizeof value))
    {
        std::memcpy(current, &value, sizeof value);
        current += sizeof value;
        return true;
    }
    return WriteSlow(&value, 1, sizeof value) == 1;
}

} // namespace Zem
