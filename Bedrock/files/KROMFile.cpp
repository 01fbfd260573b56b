// Files of tagged blocks.

#include <Bedrock/files/KROMFile.h>

#include <Bedrock/host/Exception.h>
#include <Bedrock/memory/PString.h>
#include <Bedrock/memory/String.h>

#include <cstring>
#include <exception>
#include <utility>

namespace Zem
{

const ResultTable KROMFile::results[4] = {
    {nullptr, "Unknown Error"},
    {nullptr, "Not a KROM file"},
    {nullptr, "Identifer not the same as the supplied id"},
    {nullptr, nullptr},
};

namespace
{

constexpr std::uint32_t noText = 0;
constexpr std::uint32_t emptyText = 0xFFFFFFFF;

void Put(std::uint8_t* p, std::uint32_t value)
{
    for (int i = 0; i < 4; ++i)
        p[i] = static_cast<std::uint8_t>(value >> (8 * i));
}

std::uint32_t Get(const std::uint8_t* p)
{
    return p[0] | p[1] << 8 | p[2] << 16 | std::uint32_t{p[3]} << 24;
}

// Zero bytes behind a text whose length word is `n`.
std::uint32_t Padding(std::uint32_t n)
{
    return (1 - n) & 3;
}

} // namespace

// --------------------------------------------------------------------------------------------------------- writing

std::uint32_t KROMFile::WriteHeader(std::uint32_t id)
{
    std::uint8_t header[12] = {'K', 'R', 'O', 'M'};
    Put(header + 8, id);
    const std::uint32_t at = Tell() + 4;
    Write(header, 1, sizeof header);
    return at;
}

std::uint32_t KROMFile::WriteBlock(std::uint32_t id, std::uint32_t bytes, const void* data)
{
    std::uint8_t header[8];
    Put(header, id);
    Put(header + 4, bytes);
    const std::uint32_t at = Tell() + 4;
    Write(header, 1, sizeof header);
    if (data && bytes > 0)
        Write(data, bytes, 1);
    return at;
}

void KROMFile::WriteAt(std::uint32_t at, std::uint32_t value)
{
    std::uint8_t bytes[4];
    Put(bytes, value);
    Patch(at, bytes, sizeof bytes);
}

void KROMFile::WritePadded(const char* text, std::uint32_t length)
{
    Write32(!text ? noText : length == 0 ? emptyText : length + 1);
    if (length == 0)
        return;
    Write(text, length, 1);
    constexpr std::uint8_t zeros[3] = {};
    if (const std::uint32_t padding = Padding(length + 1))
        Write(zeros, padding, 1);
}

void KROMFile::WritePadded(const PString& text)
{
    WritePadded(text, text.Length());
}

void KROMFile::WritePadded(const String& text)
{
    WritePadded(text, text.Length());
}

KROMWriteSize::~KROMWriteSize() noexcept(false)
{
    try
    {
        file.WriteSizeAt(sizeAt);
    }
    catch (const Exception& failure)
    {
        if (std::uncaught_exceptions() == 0)
            throw;
        file.ReportLoss(failure);
    }
}

// --------------------------------------------------------------------------------------------------------- reading

KROMFile::Result KROMFile::ReadHeader(std::uint32_t id)
{
    std::uint32_t bytes;
    return ReadHeader(id, bytes);
}

KROMFile::Result KROMFile::ReadHeader(std::uint32_t id, std::uint32_t& bytes)
{
    std::uint8_t header[12] = {};
    Put(header + 8, ~id); // a type that is not there is another one
    const bool whole = Read(header, 1, sizeof header) == 1;
    const std::uint32_t stored = Get(header + 4);
    bytes = whole && stored > 4 ? stored - 4 : 0;
    if (std::memcmp(header, "KROM", 4) != 0)
        return RES_NOTKROM;
    return whole && Get(header + 8) == id ? RES_OK : RES_OTHERID;
}

KROMFile::Result KROMFile::ReadBlockHeader(std::uint32_t& id, std::uint32_t& bytes)
{
    std::uint8_t header[8];
    Put(header, id);
    Put(header + 4, bytes);
    Read(header, 1, sizeof header);
    id = Get(header);
    bytes = Get(header + 4);
    return RES_OK;
}

KROMFile::Result KROMFile::ReadBlock(std::uint32_t id, std::uint32_t& bytes, void* data)
{
    std::uint32_t found = ~id;
    std::uint32_t stored = 0;
    static_cast<void>(ReadBlockHeader(found, stored));
    const bool same = found == id;
    if (same && data)
    {
        const std::uint32_t wanted = bytes < stored ? bytes : stored;
        const std::uint32_t start = Tell();
        Read(data, wanted, 1);
        Skip(stored - (Tell() - start));
    }
    bytes = stored;
    return same ? RES_OK : RES_OTHERID;
}

// Moves over `bytes`, at most to the end of the stream.
void KROMFile::Skip(std::uint32_t bytes)
{
    bytes = BytesLeft(bytes);
    if (bytes > 0)
        SeekCur(static_cast<std::int32_t>(bytes));
}

// The text behind a length word `n`. False: there is no memory for it.
bool KROMFile::ReadText(std::uint32_t n, String& text)
{
    text = "";
    bool stored = static_cast<const char*>(text) != nullptr;
    const std::uint32_t length = BytesLeft(n - 1);
    if (length > 0)
    {
        char* const bytes = text.Fill(length);
        stored = bytes != nullptr;
        if (!stored)
            Skip(length);
        else if (const std::uint32_t got = Read(bytes, length, 1); got < length)
            text.SetLength(got);
    }
    Skip(Padding(n));
    return stored;
}

// Most texts lie in the buffer as a whole, and are made from there.
KROMFile::Result KROMFile::ReadPadded(String& text)
{
    std::uint32_t n = 0;
    Read32(n);
    if (n == noText)
        text = String();
    else if (n == emptyText)
        text = "";
    else if (const std::uint8_t* const bytes = n < blockSize ? TakeBuffered(n - 1 + Padding(n)) : nullptr)
    {
        if (char* const to = text.Fill(n - 1))
            std::memcpy(to, bytes, n - 1);
    }
    else if (String read; ReadText(n, read))
        text = std::move(read);
    return RES_OK;
}

KROMFile::Result KROMFile::ReadPadded(PString& text)
{
    std::uint32_t n = 0;
    Read32(n);
    PString read;
    if (n == noText)
    {
        text = std::move(read);
        return RES_OK;
    }
    if (n == emptyText)
        read = PString("");
    else if (const std::uint8_t* const bytes = n < blockSize ? TakeBuffered(n - 1 + Padding(n)) : nullptr)
        read = PString(reinterpret_cast<const char*>(bytes), n - 1);
    else if (String whole; ReadText(n, whole))
        read = PString(static_cast<const char*>(whole), whole.Length());
    if (!read.IsNull())
        text = std::move(read);
    return RES_OK;
}

} // namespace Zem
