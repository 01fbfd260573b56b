#include <Bedrock/memory/DynamicBuffer.h>

#include <Bedrock/memory/PString.h>
#include <Bedrock/memory/String.h>

#include <utility>

namespace Zem
{

static_assert(sizeof(DynamicBuffer) == sizeof(DynamicPtr) + 16);

// ---------------------------------------------------------------------------------------------------------- the block

void DynamicBuffer::Release() noexcept
{
    if (!readOnly)
        Alloc::Delete(data);
}

void DynamicBuffer::Start(std::uint32_t blockLength, std::uint32_t growth) noexcept
{
    data = blockLength > 0 ? static_cast<unsigned char*>(Alloc::New(blockLength)) : nullptr;
    position = 0;
    length = data ? blockLength : 0;
    size = 0;
    increment = growth > 0 ? growth : defaultIncrement;
    readOnly = false;
}

void DynamicBuffer::Start(const void* p, std::uint32_t n, bool wrap) noexcept
{
    data = nullptr;
    position = 0;
    length = size = n;
    increment = defaultIncrement;
    readOnly = wrap;
    if (wrap)
        data = static_cast<unsigned char*>(const_cast<void*>(p)); // never written: `readOnly`
    else if (p && n > 0)
    {
        data = static_cast<unsigned char*>(Alloc::New(n));
        if (data)
            std::memcpy(data, p, n);
        else
            length = size = 0;
    }
}

DynamicBuffer::DynamicBuffer(const DynamicBuffer& other) noexcept : DynamicPtr()
{
    *this = other;
}

DynamicBuffer& DynamicBuffer::operator=(const DynamicBuffer& other) noexcept
{
    if (this == &other)
        return *this;
    unsigned char* block = other.data;
    if (block && !other.readOnly)
    {
        block = static_cast<unsigned char*>(Alloc::New(other.length));
        if (!block)
            return *this;
        std::memcpy(block, other.data, other.length);
    }
    Release();
    data = block;
    position = other.position;
    length = other.length;
    size = other.size;
    increment = other.increment;
    readOnly = other.readOnly;
    return *this;
}

void DynamicBuffer::ReInit(std::uint32_t blockLength, std::uint32_t growth) noexcept
{
    Release();
    Start(blockLength, growth);
}

// The data may lie in the old block.
void DynamicBuffer::SetData(const void* p, std::uint32_t n, bool wrap) noexcept
{
    unsigned char* const old = readOnly ? nullptr : data;
    Start(p, n, wrap);
    if (old != data)
        Alloc::Delete(old);
}

void DynamicBuffer::Clean() noexcept
{
    Release();
    data = nullptr;
    position = length = size = 0;
}

// Makes room for `n` bytes at the cursor; a block that was left is `old`, for the caller to free. False: no room.
bool DynamicBuffer::Grow(std::uint64_t n, unsigned char*& old) noexcept
{
    old = nullptr;
    if (readOnly)
        return false;
    if (n <= length - position)
        return data != nullptr;
    const std::uint64_t wanted = (position + n + increment - 1) / increment * increment;
    if (wanted > 0xFFFFFFFF)
        return false;
    auto* const block = static_cast<unsigned char*>(Alloc::New(static_cast<std::size_t>(wanted)));
    if (!block)
        return false;
    if (data)
        std::memcpy(block, data, length);
    old = std::exchange(data, block);
    length = static_cast<std::uint32_t>(wanted);
    return true;
}

void DynamicBuffer::AddLength(std::uint32_t n) noexcept
{
    unsigned char* old;
    Grow(n, old);
    Alloc::Delete(old);
}

bool DynamicBuffer::Seek(std::uint32_t p) noexcept
{
    position = p <= length ? p : length;
    return p <= length;
}

bool DynamicBuffer::SetSize(std::uint32_t n) noexcept
{
    size = n <= length ? n : length;
    return n <= length;
}

// ------------------------------------------------------------------------------------------------------------ writing

bool DynamicBuffer::Store(const void* p, std::uint64_t n) noexcept
{
    unsigned char* old;
    const bool room = Grow(n, old);
    if (room)
    {
        std::memmove(data + position, p, static_cast<std::size_t>(n));
        position += static_cast<std::uint32_t>(n);
        size = position > size ? position : size;
    }
    Alloc::Delete(old); // now only: the bytes may have been in it
    return room;
}

bool DynamicBuffer::StoreText(const char* text, std::uint32_t n) noexcept
{
    // Both or nothing.
    unsigned char* old;
    const bool room = Grow(std::uint64_t{n} + sizeof n, old);
    Alloc::Delete(old);
    return room && WriteItem(n) && (n == 0 || Store(text, n));
}

bool DynamicBuffer::Write(const String& text) noexcept
{
    return StoreText(text, text.Length());
}

bool DynamicBuffer::Write(const PString& text) noexcept
{
    return StoreText(text, text.Length());
}

std::uint32_t DynamicBuffer::Write(const void* p, std::uint32_t a, std::uint32_t b) noexcept
{
    const std::uint64_t n = std::uint64_t{a} * b;
    return p && n > 0 && n <= 0xFFFFFFFF && Store(p, n) ? a : 0;
}

// ------------------------------------------------------------------------------------------------------------ reading

bool DynamicBuffer::Read(bool& value) const noexcept
{
    value = false;
    std::uint32_t word;
    if (!ReadItem(word))
        return false;
    value = (word & 0xFF) != 0;
    return true;
}

template <class Text>
bool DynamicBuffer::ReadText(Text& text) const noexcept
{
    std::uint32_t n;
    if (!ReadItem(n))
        return false;
    if (n > size - position)
        return false;
    Text read(reinterpret_cast<const char*>(data) + position, n);
    if (!static_cast<const char*>(read)) // the heap is exhausted
    {
        position -= static_cast<std::uint32_t>(sizeof n);
        return false;
    }
    text = std::move(read);
    position += n;
    return true;
}

bool DynamicBuffer::Read(String& text) const noexcept
{
    return ReadText(text);
}

bool DynamicBuffer::Read(PString& text) const noexcept
{
    return ReadText(text);
}

std::uint32_t DynamicBuffer::Read(void* p, std::uint32_t a, std::uint32_t b) const noexcept
{
    const std::uint64_t n = std::uint64_t{a} * b;
    if (!p || n == 0 || !data || position >= size || n > size - position)
        return 0;
    std::memcpy(p, data + position, static_cast<std::size_t>(n));
    position += static_cast<std::uint32_t>(n);
    return a;
}

} // namespace Zem
