#include <Bedrock/files/MemoryFile.h>

#include <Bedrock/memory/PString.h>

namespace Zem
{

MemoryFile::MemoryFile(const char* name, std::uint32_t size) : fileName(name)
{
    Open(size);
}

MemoryFile::MemoryFile(void* data, std::uint32_t size)
{
    Wrap(static_cast<std::uint8_t*>(data), size, false);
}

MemoryFile::MemoryFile(File& file, std::uint32_t size) : fileName(file.Name())
{
    ReadData(file, size);
}

MemoryFile::MemoryFile(File& file)
{
    Open(file);
}

MemoryFile::MemoryFile(const MemoryFile& other)
    : cursorPtr(other.cursorPtr), start(other.start), length(other.length), fileName(other.fileName)
{
}

MemoryFile& MemoryFile::operator=(const MemoryFile& other)
{
    if (this == &other)
        return *this;
    Wrap(other.start, other.length, owned && start == other.start);
    cursorPtr = other.cursorPtr;
    fileName = other.fileName;
    return *this;
}

MemoryFile::~MemoryFile()
{
    Free();
}

File::Result MemoryFile::Open(const char* name, std::uint32_t mode)
{
    Wrap(nullptr, 0, false);
    File file;
    const File::Result result = file.Open(name, mode);
    if (result)
        Open(file);
    return result;
}

File::Result MemoryFile::Open(const PString& subst, const char* name, std::uint32_t mode)
{
    Wrap(nullptr, 0, false);
    File file;
    const File::Result result = file.Open(subst, name, mode);
    if (result)
        Open(file);
    return result;
}

void MemoryFile::Open(File& file)
{
    fileName = file.Name();
    const std::uint32_t size = file.Size();
    const std::uint32_t position = file.Tell();
    ReadData(file, size > position ? size - position : 0);
}

bool MemoryFile::Open(std::uint32_t size)
{
    Free();
    auto* block = static_cast<std::uint8_t*>(Alloc::New(size));
    Wrap(block, block ? size : 0, block != nullptr);
    return block != nullptr;
}

void MemoryFile::Open(void* data, std::uint32_t size)
{
    Wrap(static_cast<std::uint8_t*>(data), size, false);
}

// A parser's `const MemoryFile&` is read from alone: nothing writes through the block that it wraps here.
void MemoryFile::Open(const void* data, std::uint32_t size) const
{
    Wrap(static_cast<std::uint8_t*>(const_cast<void*>(data)), size, false);
}

void MemoryFile::Close()
{
    if (owned)
        Wrap(nullptr, 0, false);
}

void MemoryFile::SetName(const char* name)
{
    fileName = name;
}

void MemoryFile::SetName(const String& name)
{
    fileName = name;
}

void MemoryFile::ReadData(File& file, std::uint32_t n)
{
    // More than the file holds is not allocated; what a short read leaves is 0.
    Wrap(nullptr, 0, false);
    const std::uint32_t size = n;
    if (size > 0 && !Open(size))
        return;
    try
    {
        const std::uint32_t got = file.Read(start, size, 1);
        std::memset(start + got, 0, size - got);
    }
    catch (...)
    {
        Wrap(nullptr, 0, false);
        throw;
    }
}

void MemoryFile::Read(void* dst, std::uint32_t n, std::uint32_t size) const
{
    auto* out = static_cast<std::uint8_t*>(dst);
    std::uint64_t total = std::uint64_t{n} * size;
    const std::uint32_t left = length - Tell();
    const std::size_t part = total < left ? static_cast<std::size_t>(total) : left;
    if (part > 0)
        std::memcpy(out, cursorPtr, part);
    cursorPtr += part;
    if (total > part)
        std::memset(out + part, 0, static_cast<std::size_t>(total - part));
}

void MemoryFile::TakeTail(void* dst, std::uint32_t n) const
{
    Read(dst, n, 1);
}

void MemoryFile::Read(PString& text, bool) const
{
    std::uint32_t n = Readudword();
    if (n > length - Tell())
        n = length - Tell();
    const auto* bytes = reinterpret_cast<const char*>(cursorPtr);
    const void* end = n ? std::memchr(bytes, '\0', n) : nullptr;
    const auto size = end ? static_cast<std::uint32_t>(static_cast<const char*>(end) - bytes) : n;
    text = PString(n ? bytes : "", size);
    cursorPtr += n;
}

void MemoryFile::Write(const void* src, std::uint32_t n)
{
    const std::uint32_t left = length - Tell();
    if (n > left)
        n = left;
    if (n > 0)
        std::memcpy(cursorPtr, src, n);
    cursorPtr += n;
}

std::uint32_t MemoryFile::Seek(std::int32_t offset, FileSeek origin) const
{
    std::int64_t target;
    switch (static_cast<int>(origin))
    {
    case FileSeekSet:
        target = offset;
        break;
    case FileSeekCur:
        target = std::int64_t{Tell()} + offset;
        break;
    case FileSeekEnd:
        target = std::int64_t{length} - offset;
        break;
    default:
        return Tell();
    }
    if (target < 0)
        target = 0;
    if (target > length)
        target = length;
    cursorPtr = start + target;
    return Tell();
}

void MemoryFile::Wrap(std::uint8_t* block, std::uint32_t size, bool own) const
{
    if (owned && start != block)
        Free();
    cursorPtr = block;
    start = block;
    length = block ? size : 0;
    owned = own;
}

void MemoryFile::Free() const
{
    if (owned)
        Alloc::Delete(start);
    owned = false;
    start = nullptr;
    cursorPtr = nullptr;
    length = 0;
}

} // namespace Zem
