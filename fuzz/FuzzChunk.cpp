// Any bytes as a file of tagged blocks, read by any sequence of calls. The first 16 bytes choose the calls, the rest is
// the file. What each call answers, and where it leaves the position, is checked against the bytes. Then what was read is
// written again as blocks, and must come back.

#include "FuzzFile.h"

#include <Bedrock/files/KROMFile.h>
#include <Bedrock/host/Exception.h>
#include <Bedrock/memory/PString.h>
#include <Bedrock/memory/String.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

using Zem::File;
using Zem::KROMFile;

namespace
{

void Require(bool holds)
{
    if (!holds)
        std::abort();
}

// The file as it is.
struct Bytes
{
    const std::uint8_t* data;
    std::size_t size;

    std::size_t Left(std::size_t at) const { return at < size ? size - at : 0; }
    std::uint32_t Word(std::size_t at, std::uint32_t old) const
    {
        std::uint8_t word[4];
        std::memcpy(word, &old, 4);
        std::memcpy(word, data + std::min(at, size), std::min<std::size_t>(Left(at), 4));
        std::uint32_t value;
        std::memcpy(&value, word, 4);
        return value;
    }
};

std::string Text(const Zem::String& text)
{
    return text ? std::string(text, text.Length()) : std::string();
}

// A padded text at `at`: where the position must be behind it, and the text itself.
std::size_t Padded(const Bytes& file, std::size_t at, bool& isNull, std::string& text)
{
    const std::uint32_t n = file.Word(at, 0);
    std::size_t end = at + std::min<std::size_t>(file.Left(at), 4);
    isNull = n == 0;
    text.clear();
    if (n == 0 || n == 0xFFFFFFFF)
        return end;
    const std::size_t length = std::min<std::size_t>(n - 1, file.Left(end));
    text.assign(reinterpret_cast<const char*>(file.data + std::min(end, file.size)), length);
    end += length;
    return end + std::min<std::size_t>(file.Left(end), (1 - n) & 3);
}

void WriteAgain(const std::vector<std::string>& texts)
{
    const FuzzFile disk(nullptr, 0);
    KROMFile file;
    Require(static_cast<bool>(file.Open(disk.Name(), File::ModeCreate | File::ModeWrite)));
    {
        Zem::KROMWriteHeader header(file, 5);
        for (const std::string& text : texts)
        {
            Zem::KROMWriteBlock block(file, static_cast<std::uint32_t>(text.size()));
            file.WritePadded(Zem::String(text.data(), static_cast<unsigned>(text.size())));
        }
    }
    file.Close();
    Require(static_cast<bool>(file.Open(disk.Name(), File::ModeRead)));
    std::uint32_t rest = 0;
    Require(file.ReadHeader(5, rest) == KROMFile::RES_OK && rest == file.Size() - 12);
    for (const std::string& text : texts)
    {
        std::uint32_t bytes = 0;
        Zem::String back;
        Require(file.ReadBlock(static_cast<std::uint32_t>(text.size()), bytes, nullptr) == KROMFile::RES_OK);
        const std::uint32_t start = file.Tell();
        Require(file.ReadPadded(back) == KROMFile::RES_OK && Text(back) == text && file.Tell() == start + bytes);
    }
    Require(file.Eof());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    constexpr std::size_t steps = 16;
    if (size < steps || size > 1 << 17)
        return 0;
    Zem::PString::Init();
    const Bytes bytes{data + steps, size - steps};
    const FuzzFile disk(bytes.data, bytes.size);
    KROMFile file;
    Require(static_cast<bool>(file.Open(disk.Name(), File::ModeReadPlain)));
    std::vector<std::string> texts;
    for (std::size_t i = 0; i < steps; ++i)
    {
        const std::size_t at = file.Tell();
        const std::size_t left = bytes.Left(at);
        switch (data[i] & 7)
        {
        case 0:
        {
            std::uint32_t rest = 99;
            const bool magic = left >= 4 && std::memcmp(bytes.data + at, "KROM", 4) == 0;
            const std::uint32_t stored = bytes.Word(at + 4, 0);
            const std::uint32_t type = bytes.Word(at + 8, 0) ^ (data[i] >> 7);
            const bool same = left >= 12 && data[i] < 128;
            const auto result = file.ReadHeader(type, rest);
            Require(result == (!magic ? KROMFile::RES_NOTKROM : same ? KROMFile::RES_OK : KROMFile::RES_OTHERID));
            Require(rest == (left >= 12 && stored > 4 ? stored - 4 : 0));
            Require(file.Tell() == at + std::min<std::size_t>(left, 12));
            break;
        }
        case 1:
        {
            std::uint32_t id = 0x12345678, body = 0x87654321;
            Require(file.ReadBlockHeader(id, body) == KROMFile::RES_OK);
            Require(id == bytes.Word(at, 0x12345678) && body == bytes.Word(at + 4, 0x87654321));
            Require(file.Tell() == at + std::min<std::size_t>(left, 8));
            break;
        }
        case 2:
        case 3:
        {
            if (left < 8)
                break;
            char body[40];
            const std::uint32_t stored = bytes.Word(at + 4, 0);
            std::uint32_t capacity = 1 + (data[i] >> 3);
            const std::size_t got = std::min<std::size_t>({capacity, stored, left - 8});
            if (stored == 0)
                break;
            Require(file.ReadBlock(bytes.Word(at, 0), capacity, body) == KROMFile::RES_OK && capacity == stored);
            Require(std::memcmp(body, bytes.data + at + 8, got) == 0);
            Require(file.Tell() == at + 8 + std::min<std::size_t>(stored, left - 8));
            break;
        }
        case 4:
        case 5:
        {
            bool isNull;
            std::string expected;
            const std::size_t end = Padded(bytes, at, isNull, expected);
            Zem::String text("old");
            Require(file.ReadPadded(text) == KROMFile::RES_OK && file.Tell() == end);
            Require((static_cast<const char*>(text) == nullptr) == isNull && Text(text) == expected);
            file.SeekSet(static_cast<std::int32_t>(at));
            Zem::PString word("old");
            Require(file.ReadPadded(word) == KROMFile::RES_OK && file.Tell() == end && word.IsNull() == isNull);
            Require(std::string(word ? word : "", word.Length()) == expected);
            if (!isNull)
                texts.push_back(expected);
            break;
        }
        case 6:
            file.SeekSet(static_cast<std::int32_t>((data[i] >> 3) * 5));
            break;
        default:
            if (left > 0)
                file.SeekCur(static_cast<std::int32_t>(std::min<std::size_t>(left, data[i] >> 3)));
        }
    }
    if (!texts.empty() && data[0] >= 128)
        WriteAgain(texts);

    // The same behind the mark of a compressed stream, whose end is a failure: whatever comes, it ends.
    KROMFile stream;
    if (!stream.Open(disk.Name(), File::ModeRead))
        std::abort();
    if (!stream.IsCompressed())
        return 0;
    try
    {
        Zem::PString word;
        std::uint32_t id = 0, body = 8;
        char few[8];
        for (int i = 0; i < 8; ++i)
        {
            static_cast<void>(stream.ReadPadded(word));
            static_cast<void>(stream.ReadBlock(id, body, few));
            body = 8;
        }
    }
    catch (const Zem::FileEx&)
    {
    }
    return 0;
}
