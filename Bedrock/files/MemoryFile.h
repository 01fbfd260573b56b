#pragma once

#include <Bedrock/Export.h>
#include <Bedrock/files/File.h>
#include <Bedrock/memory/HeapOperators.h>
#include <Bedrock/memory/String.h>

#include <cstdint>
#include <cstring>

namespace Zem
{

/// A cursor over one block of memory with the look of a file, for parsers that want a whole file at once.
///
/// Numbers are little-endian and may lie at any address. Nothing leaves the block: a byte past the end reads as 0 and
/// is not written, and the cursor stops at the end, so a parser may read its header first and ask `Eof` once, after.
/// Reading is `const`: the cursor is no part of the value, and a parser can take a `const MemoryFile&`. Its block is
/// either the object's own, freed with it, or the caller's, who keeps it alive.
/// Threads: one object belongs to one thread, its `const` operations included.
///
///     MemoryFile file;
///     if (!file.Open("data:sky.tga", File::ModeRead))
///         return false;
///     const std::uint32_t magic = file.Readudword();
class ZEM_API MemoryFile
{
    ZEM_HEAP_OPERATORS

public:
    MemoryFile() = default;
    /// A block of `size` unset bytes; none if the heap is exhausted.
    MemoryFile(const char* name, std::uint32_t size);
    /// The caller's block.
    MemoryFile(void* data, std::uint32_t size);
    /// `size` bytes of `file` from its position, and its name.
    MemoryFile(File& file, std::uint32_t size);
    explicit MemoryFile(File& file);
    /// A view of the same block with a cursor of its own; it owns nothing, so the original outlives it.
    MemoryFile(const MemoryFile& other);
    MemoryFile& operator=(const MemoryFile& other);
    ~MemoryFile();

    /// Loads a whole file. The result of `File::Open`; on failure the object is empty.
    /// Throws: FileEx when reading fails, and for an empty file "Read() n*size == 0"; the object is then empty.
    File::Result Open(const char* name, std::uint32_t mode);
    File::Result Open(const PString& subst, const char* name, std::uint32_t mode);
    /// Loads the rest of an open file from its position. Bytes that the file no longer has are 0.
    void Open(File& file);
    /// A new own block of `size` unset bytes; false, and empty, if the heap is exhausted.
    bool Open(std::uint32_t size);
    /// The caller's block; an own one is freed first.
    void Open(void* data, std::uint32_t size);
    void Open(const void* data, std::uint32_t size) const;
    /// Frees an own block; a caller's stays in use.
    void Close();

    void SetName(const char* name);
    void SetName(const String& name);
    const char* Name() const { return fileName; }

    // ---------------------------------------------------------------------------------------------- reading

    void Read(signed char& value) const { value = Take<signed char>(); }
    void Read(unsigned char& value) const { value = Take<unsigned char>(); }
    void Read(std::int16_t& value) const { value = Take<std::int16_t>(); }
    void Read(std::uint16_t& value) const { value = Take<std::uint16_t>(); }
    void Read(std::int32_t& value) const { value = Take<std::int32_t>(); }
    void Read(std::uint32_t& value) const { value = Take<std::uint32_t>(); }
    void Read(float& value) const { value = Take<float>(); }
    template <class T>
    requires(std::is_arithmetic_v<T> && sizeof(T) > 4) void Read(T&) const = delete;

    signed char Readsbyte() const { return Take<signed char>(); }
    unsigned char Readubyte() const { return Take<unsigned char>(); }
    std::int16_t Readsword() const { return Take<std::int16_t>(); }
    std::uint16_t Readuword() const { return Take<std::uint16_t>(); }
    std::int32_t Readsdword() const { return Take<std::int32_t>(); }
    std::uint32_t Readudword() const { return Take<std::uint32_t>(); }
    float Readfloat() const { return Take<float>(); }

    /// The byte at the cursor, which stays.
    unsigned char Peek() const { return cursorPtr < start + length ? *cursorPtr : 0; }

    /// `n` times `size` bytes to `dst`; those that the block lacks are 0.
    void Read(void* dst, std::uint32_t n, std::uint32_t size) const;

    /// Text as `File::Write` stores it: 4 bytes of length and the text, which also ends at a zero byte within. A length
    /// past the end of the block is cut to what is left. `flag` has no effect.
    void Read(PString& text, bool flag) const;

    /// Copies `n` bytes to the cursor, as many as the block has room for.
    void Write(const void* src, std::uint32_t n);

    // ---------------------------------------------------------------------------------------------- position

    /// Moves the cursor, within the block; an offset from the end counts back. The bytes before the cursor; another
    /// `origin` leaves it.
    std::uint32_t Seek(std::int32_t offset, FileSeek origin) const;
    std::uint32_t SeekSet(std::int32_t offset) const { return Seek(offset, FileSeekSet); }
    std::uint32_t SeekCur(std::int32_t offset) const { return Seek(offset, FileSeekCur); }
    std::uint32_t SeekEnd(std::int32_t offset) const { return Seek(offset, FileSeekEnd); }

    std::uint32_t Tell() const { return static_cast<std::uint32_t>(cursorPtr - start); }
    bool Eof() const { return Tell() >= length; }
    std::uint32_t Size() const { return length; }
    const void* Data() const { return start; }
    const void* CurrentPosition() const { return cursorPtr; }

protected:
    /// Loads `n` bytes from the position of `file` into a new own block.
    void ReadData(File& file, std::uint32_t n);

private:
    template <class T>
    T Take() const;
    void TakeTail(void* dst, std::uint32_t n) const;
    void Wrap(std::uint8_t* block, std::uint32_t size, bool own) const;
    void Free() const;

    // What `Open(const void*, ...) const` changes is mutable: a parser may be pointed at another block.
    mutable std::uint8_t* cursorPtr = nullptr; // start <= cursorPtr <= start + length
    mutable std::uint8_t* start = nullptr;
    mutable std::uint32_t length = 0; // bytes at `start`
    mutable bool owned = false;       // `start` came from Alloc and is ours
    String fileName;
};

// One compare and one load while the block has the bytes.
template <class T>
T MemoryFile::Take() const
{
    T value;
    if (length - Tell() < sizeof value) [[unlikely]]
        TakeTail(&value, sizeof value);
    else
    {
        std::memcpy(&value, cursorPtr, sizeof value);
        cursorPtr += sizeof value;
    }
    return value;
}

} // namespace Zem
