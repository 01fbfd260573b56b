#pragma once

#include <Bedrock/memory/DynamicPtr.h>

#include <concepts>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace Zem
{

class PString;
class String;

/// A block of memory that values are written into one behind the other, and read from in the same order.
///
///     | 1, 2 or 4 bytes: a number | 4: a bool | 4 + n: length n and n bytes of a text |   no tags, no gaps, little-endian
///
/// The block grows by a fixed increment as it is written: who knows the size tells it first. It may also be the memory of
/// somebody else, read-only; that is never written and never freed here.
///
///     0 ........ GetCurrentPos() ........ GetSize() ........ GetLength()
///                the cursor               end of the data    end of the block
///
/// The cursor may stand behind the data, never behind the block. Nothing throws: a write that has no room, or whose
/// buffer is read-only, and a read of what is not fully there are false, and change nothing but where told otherwise. A
/// buffer that the heap or the 32 bits of its length refuse to grow keeps its content.
/// Threads: one object belongs to one thread, its `const` operations included.
///
///     DynamicBuffer out;
///     out.Write(std::uint16_t{3});
///     out.Write(name);
///     Send(out.GetData(), out.GetSize());
///
///     const DynamicBuffer in(received, size, true);
///     std::uint16_t version;
///     if (!in.Read(version) || !in.Read(name)) ...
class ZEM_API DynamicBuffer : public DynamicPtr
{
    ZEM_HEAP_OPERATORS

public:
    static constexpr std::uint32_t defaultIncrement = 512;

    DynamicBuffer() noexcept = default;
    /// An own block of `blockLength` bytes, none with 0. An increment of 0 means 512.
    DynamicBuffer(std::uint32_t blockLength, std::uint32_t growth) noexcept { Start(blockLength, growth); }
    /// `n` bytes of data at `p`: as they are, for reading, or copied to an own block.
    DynamicBuffer(const void* p, std::uint32_t n, bool wrap) noexcept { Start(p, n, wrap); }
    /// A copy of the whole block; a read-only one is shared.
    DynamicBuffer(const DynamicBuffer& other) noexcept;
    DynamicBuffer& operator=(const DynamicBuffer& other) noexcept;
    ~DynamicBuffer() { Release(); }

    /// As the constructors, after the old block is freed.
    void ReInit(std::uint32_t blockLength, std::uint32_t growth) noexcept;
    void SetData(const void* p, std::uint32_t n, bool wrap) noexcept;
    /// Frees the own block: no data, no length. Increment and kind stay.
    void Clean() noexcept;
    /// No data; the block stays for the next.
    void Reset() noexcept { size = position = 0; }

    /// Room for `n` more bytes at the cursor. No effect if there is, or on a read-only buffer.
    void AddLength(std::uint32_t n) noexcept;

    // ---------------------------------------------------------------------------------------------- position

    /// Moves the cursor within the block; false, and to the end of the block, if `p` is behind it.
    bool Seek(std::uint32_t p) noexcept;
    /// Tells how much of the block is data, for who filled it through `GetData`; false, and all of it, if `n` is more.
    bool SetSize(std::uint32_t n) noexcept;

    void* GetData() const noexcept { return data; }
    void* GetCurrentData() const noexcept { return data ? IncPtr(data, position) : nullptr; }
    std::uint32_t GetCurrentPos() const noexcept { return position; }
    std::uint32_t GetLength() const noexcept { return length; }
    std::uint32_t GetSize() const noexcept { return size; }
    std::uint32_t GetIncrement() const noexcept { return increment; }
    bool IsReadOnly() const noexcept { return readOnly; }

    // ----------------------------------------------------------------------------------------------- writing

    bool Write(signed char value) noexcept { return WriteItem(value); }
    bool Write(unsigned char value) noexcept { return WriteItem(value); }
    bool Write(std::int16_t value) noexcept { return WriteItem(value); }
    bool Write(std::uint16_t value) noexcept { return WriteItem(value); }
    bool Write(std::int32_t value) noexcept { return WriteItem(value); }
    bool Write(std::uint32_t value) noexcept { return WriteItem(value); }
    bool Write(float value) noexcept { return WriteItem(value); }
    bool Write32(std::int32_t value) noexcept { return WriteItem(value); }
    bool Write32(std::uint32_t value) noexcept { return WriteItem(value); }
    /// 4 bytes. Taken by its exact type: a pointer never becomes one.
    template <std::same_as<bool> T>
    bool Write(T value) noexcept
    {
        return WriteItem(std::uint32_t{value});
    }
    bool Write(char) = delete; // would be stored as 4 bytes
    template <class T>
    requires(std::is_arithmetic_v<T> && sizeof(T) > 4) bool Write(T) = delete;
    template <class T>
    requires(std::is_arithmetic_v<T> && sizeof(T) > 4) bool Write32(T) = delete;

    /// Length and text; no text and an empty one are the same.
    bool Write(const String& text) noexcept;
    bool Write(const PString& text) noexcept;

    /// `a` times `b` bytes. Returns: `a`, 0 if nothing was stored. The bytes may lie in this buffer.
    std::uint32_t Write(const void* p, std::uint32_t a, std::uint32_t b) noexcept;

    // ----------------------------------------------------------------------------------------------- reading

    /// One number; a target that is not read stays as it was, but for `Read32` and a bool, which are then 0 and false.
    bool Read(signed char& value) const noexcept { return ReadItem(value); }
    bool Read(unsigned char& value) const noexcept { return ReadItem(value); }
    bool Read(std::int16_t& value) const noexcept { return ReadItem(value); }
    bool Read(std::uint16_t& value) const noexcept { return ReadItem(value); }
    bool Read(std::int32_t& value) const noexcept { return ReadItem(value); }
    bool Read(std::uint32_t& value) const noexcept { return ReadItem(value); }
    bool Read(float& value) const noexcept { return ReadItem(value); }
    bool Read32(std::int32_t& value) const noexcept
    {
        value = 0;
        return ReadItem(value);
    }
    bool Read32(std::uint32_t& value) const noexcept
    {
        value = 0;
        return ReadItem(value);
    }
    /// 4 bytes, of which the lowest tells.
    bool Read(bool& value) const noexcept;
    template <class T>
    requires(std::is_arithmetic_v<T> && sizeof(T) > 4) bool Read(T&) const = delete;

    /// Length and text. An empty one is never null. With a length that the data does not have the cursor stays behind
    /// the length, and the text as it was.
    bool Read(String& text) const noexcept;
    bool Read(PString& text) const noexcept;

    /// `a` times `b` bytes. Returns: `a`, 0 if they are not all there.
    std::uint32_t Read(void* p, std::uint32_t a, std::uint32_t b) const noexcept;

private:
    template <class T>
    bool WriteItem(T value) noexcept;
    template <class T>
    bool ReadItem(T& value) const noexcept;
    bool Store(const void* p, std::uint64_t n) noexcept;
    bool StoreText(const char* text, std::uint32_t n) noexcept;
    template <class Text>
    bool ReadText(Text& text) const noexcept;
    bool Grow(std::uint64_t n, unsigned char*& old) noexcept;
    void Start(std::uint32_t blockLength, std::uint32_t growth) noexcept;
    void Start(const void* p, std::uint32_t n, bool wrap) noexcept;
    void Release() noexcept;

    // position <= length, size <= length
    std::uint32_t length = 0; // bytes at `data`
    std::uint32_t size = 0;   // of them, data
    std::uint32_t increment = defaultIncrement;
    bool readOnly = false; // `data` is somebody else's
};

template <class T>
bool DynamicBuffer::WriteItem(T value) noexcept
{
    if (readOnly || !data || length - position < sizeof value)
        return Store(&value, sizeof value);
    std::memcpy(data + position, &value, sizeof value);
    position += sizeof value;
    if (position > size)
        size = position;
    return true;
}

template <class T>
bool DynamicBuffer::ReadItem(T& value) const noexcept
{
    if (position >= size || size - position < sizeof value || !data)
        return false;
    std::memcpy(&value, data + position, sizeof value);
    position += sizeof value;
    return true;
}

} // namespace Zem
