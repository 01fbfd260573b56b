// Files of tagged blocks: bytes, models, lies and failures.

#include "Mounted.h"
#include "support/FaultPlan.h"
#include "support/Support.h"

#include <Bedrock/files/KROMFile.h>
#include <Bedrock/memory/String.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <stdexcept>
#include <string>

namespace
{

using namespace Zem;
using ::Test::Bytes;
using ::Test::FaultPlan;

constexpr std::uint32_t create = File::ModeCreate | File::ModeWrite;
const std::string name = "x.krom";

std::string Word(std::uint32_t value)
{
    std::string bytes;
    for (int i = 0; i < 4; ++i)
        bytes += static_cast<char>(value >> (8 * i));
    return bytes;
}

std::string Block(std::uint32_t id, const std::string& body)
{
    return Word(id) + Word(static_cast<std::uint32_t>(body.size())) + body;
}

std::string Header(std::uint32_t type, const std::string& rest)
{
    return "KROM" + Word(static_cast<std::uint32_t>(rest.size() + 4)) + Word(type) + rest;
}

std::string Stored()
{
    const auto bytes = ::Test::ReadFile(name);
    return {bytes.begin(), bytes.end()};
}

void Open(KROMFile& file, std::uint32_t mode)
{
    ASSERT_TRUE(static_cast<bool>(file.Open(name.c_str(), mode)));
}

TEST(KROMFile, WritesTheseBytes)
{
    const std::string zero(1, '\0');
    const struct
    {
        const char* what;
        std::function<void(KROMFile&)> write;
        std::string bytes;
    } rows[] = {
        {"a header alone", [](KROMFile& file) { KROMWriteHeader header(file, 0x01020304); },
         "KROM" + Word(4) + "\4\3\2\1"},
        {"a block of 3 bytes",
         [](KROMFile& file)
         {
             KROMWriteHeader header(file, 7);
             KROMWriteBlock block(file, 9);
             file.Write("abc", 3, 1);
         },
         Header(7, Block(9, "abc"))},
        {"nested blocks, empty ones, and what follows them",
         [](KROMFile& file)
         {
             KROMWriteHeader header(file, 1);
             {
                 KROMWriteBlock outer(file, 2);
                 {
                     KROMWriteBlock inner(file, 3);
                     KROMWriteBlock innermost(file, 4);
                 }
                 file.WriteBlock(5, 4u, "wxyz");
             }
             file.WriteBlock(6, 0u, "nothing of this");
         },
         Header(1, Block(2, Block(3, Block(4, "")) + Block(5, "wxyz")) + Block(6, ""))},
        {"a size that is told later",
         [](KROMFile& file)
         {
             const std::uint32_t at = file.WriteBlock(0xAABBCCDD, 0u, nullptr);
             EXPECT_EQ(at, 4u);
             file.Write("12345", 5, 1);
             file.WriteSizeAt(at);
             EXPECT_EQ(file.Tell(), 13u);
             file.WriteAt(9u, 0x78787878u);
         },
         Block(0xAABBCCDD, "1xxxx")},
        {"padded texts",
         [](KROMFile& file)
         {
             for (const char* text : {"", "a", "abc", "abcd", "abcde"})
                 file.WritePadded(PString(text));
             file.WritePadded(PString());
             file.WritePadded(String("abcdef"));
             file.WritePadded(String());
             file.WritePadded(String(""));
             file.WritePadded(String("a\0b", 3u));
         },
         Word(0xFFFFFFFF) + Word(2) + "a" + zero + zero + zero + Word(4) + "abc" + zero + Word(5) + "abcd" + Word(6) +
             "abcde" + zero + zero + zero + Word(0) + Word(7) + "abcdef" + zero + zero + Word(0) + Word(0xFFFFFFFF) +
             Word(4) + std::string("a\0b", 3) + zero},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.what);
        const ::Test::Directory directory;
        {
            KROMFile file;
            Open(file, create);
            row.write(file);
        }
        EXPECT_EQ(Stored(), row.bytes);
    }
}

// One random tree, written by guards, and as the text that it must be.
struct Tree
{
    std::mt19937_64& random;
    KROMFile& file;
    std::string Fill(int depth)
    {
        std::string body;
        for (std::uint64_t n = random() % 5; n > 0; --n)
        {
            const auto id = static_cast<std::uint32_t>(random());
            if (depth < 6 && random() % 3 != 0)
            {
                KROMWriteBlock block(file, id);
                body += Block(id, Fill(depth + 1));
                continue;
            }
            const std::uint64_t kind = random() % 16;
            std::string data(kind == 0   ? 16384 - random() % 30
                             : kind == 1 ? random() % 40000
                                         : random() % 20,
                             static_cast<char>(random()));
            if (random() % 2 == 0)
                file.WriteBlock(id, static_cast<std::uint32_t>(data.size()), data.data());
            else
            {
                KROMWriteBlock block(file, id);
                for (std::size_t at = 0; at < data.size();)
                {
                    const std::size_t part = std::min<std::size_t>(data.size() - at, 1 + random() % 9000);
                    file.Write(data.data() + at, part, 1);
                    at += part;
                }
            }
            body += Block(id, data);
        }
        return body;
    }
};

// Sizes are right wherever their fields lie: in the buffer, behind it, across its end.
TEST(KROMFile, MeasuresAnyTree)
{
    const ::Test::Directory directory;
    auto random = ::Test::Random();
    for (int turn = 0; turn < 300; ++turn)
    {
        std::string expected;
        {
            KROMFile file;
            Open(file, random() % 2 ? create : create | File::ModeReadPlain);
            KROMWriteHeader header(file, 1);
            expected = Tree{random, file}.Fill(0);
        }
        ASSERT_EQ(Stored(), Header(1, expected)) << "turn " << turn;
    }
}

// A size field at every place around the end of the buffer, so that a part of it is on disk and a part is not.
TEST(KROMFile, FillsInASizeAcrossTheEndOfTheBuffer)
{
    const ::Test::Directory directory;
    for (std::uint32_t bytes = 16384 - 48; bytes < 16384; ++bytes)
    {
        {
            KROMFile file;
            Open(file, create);
            KROMWriteHeader header(file, 1);
            file.WriteBlock(2, bytes, std::string(bytes, 'x').data());
            KROMWriteBlock block(file, 0xFFFFFFFF);
            file.Write(std::string(0x304, 'y').data(), 0x304, 1);
        }
        ASSERT_TRUE(Stored() ==
                    Header(1, Block(2, std::string(bytes, 'x')) + Block(0xFFFFFFFF, std::string(0x304, 'y'))))
            << bytes;
    }
}

TEST(KROMFile, TellsWhatAHeaderIs)
{
    const struct
    {
        const char* what;
        std::string bytes;
        KROMFile::Results result;
        std::uint32_t size;
    } rows[] = {
        {"right", Header(5, "1234567"), KROMFile::RES_OK, 7},
        {"another type", Header(6, "1234567"), KROMFile::RES_OTHERID, 7},
        {"another magic, the type right", "KRON" + Word(11) + Word(5), KROMFile::RES_NOTKROM, 7},
        {"a size that is a lie", "KROM" + Word(0xFFFFFFFF) + Word(5), KROMFile::RES_OK, 0xFFFFFFFB},
        {"a size below what it holds", "KROM" + Word(3) + Word(5), KROMFile::RES_OK, 0},
        {"torn in the type", "KROM" + Word(11) + Word(5).substr(0, 3), KROMFile::RES_OTHERID, 0},
        {"torn in the magic", "KRO", KROMFile::RES_NOTKROM, 0},
        {"nothing", "", KROMFile::RES_NOTKROM, 0},
    };
    const ::Test::Directory directory;
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.what);
        ::Test::WriteFile(name, row.bytes);
        KROMFile file;
        Open(file, File::ModeRead);
        std::uint32_t size = 99;
        EXPECT_EQ(file.ReadHeader(5, size), row.result);
        EXPECT_EQ(size, row.size);
        file.SeekSet(0);
        EXPECT_EQ(file.ReadHeader(5), row.result);
        EXPECT_EQ(file.Tell(), std::min<std::size_t>(12, row.bytes.size()));
    }
    EXPECT_STREQ(KROMFile::Result(KROMFile::RES_NOTKROM).Text(), "Not a KROM file");
    EXPECT_STREQ(KROMFile::Result(KROMFile::RES_OTHERID).Text(), "Identifer not the same as the supplied id");
    EXPECT_STREQ(KROMFile::Result(KROMFile::RES_UNKNOWN).Text(), "Unknown Error");
}

TEST(KROMFile, ReadsABlockAndStandsBehindIt)
{
    const struct
    {
        const char* what;
        std::string bytes;
        std::uint32_t capacity; // noData: null
        KROMFile::Results result;
        std::string read;
        std::uint32_t size, tell;
    } rows[] = {
        {"whole", Block(5, "0123456789") + "next", 10, KROMFile::RES_OK, "0123456789", 10, 18},
        {"more room than body", Block(5, "0123") + "next", 10, KROMFile::RES_OK, "0123", 4, 12},
        {"less", Block(5, "0123456789") + "next", 4, KROMFile::RES_OK, "0123", 10, 18},
        {"no data", Block(5, "0123456789"), 0xFFFFFFFF, KROMFile::RES_OK, "", 10, 8},
        {"another id", Block(6, "0123456789"), 10, KROMFile::RES_OTHERID, "", 10, 8},
        {"a body that ends with the file", Word(5) + Word(10) + "0123", 6, KROMFile::RES_OK, "0123", 10, 12},
        {"a size that is a lie", Word(5) + Word(0xFFFFFFF0) + "0123456789", 4, KROMFile::RES_OK, "0123", 0xFFFFFFF0,
         18},
        {"a torn size", Word(5) + "\1\0", 4, KROMFile::RES_OK, "", 1, 5},
        {"nothing", "", 4, KROMFile::RES_OTHERID, "", 0, 0},
    };
    const ::Test::Directory directory;
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.what);
        ::Test::WriteFile(name, row.bytes);
        KROMFile file;
        Open(file, File::ModeRead);
        char data[16] = {};
        std::uint32_t size = row.capacity;
        EXPECT_EQ(file.ReadBlock(5, size, row.capacity == 0xFFFFFFFF ? nullptr : data), row.result);
        EXPECT_EQ(data, row.read);
        EXPECT_EQ(size, row.size);
        EXPECT_EQ(file.Tell(), row.tell);
    }
    // A block without bytes cannot be read into a place.
    ::Test::WriteFile(name, Block(5, "") + Block(5, "x"));
    KROMFile file;
    Open(file, File::ModeRead);
    char data[1];
    std::uint32_t size = 1;
    EXPECT_THROW(static_cast<void>(file.ReadBlock(5, size, data)), FileEx);
    size = 0;
    EXPECT_THROW(static_cast<void>(file.ReadBlock(5, size, data)), FileEx);
    std::uint32_t id = 0x11223344;
    size = 0x55667788;
    EXPECT_EQ(file.ReadBlockHeader(id, size), KROMFile::RES_OK);
    EXPECT_EQ(id, 0x11223378u) << "one byte was left";
    EXPECT_EQ(size, 0x55667788u);
}

TEST(KROMFile, ReadsPaddedTexts)
{
    const struct
    {
        const char* what;
        std::string bytes;
        bool isNull;
        std::string text;
        std::uint32_t tell;
    } rows[] = {
        {"no text", Word(0) + "rest", true, "", 4},
        {"an empty text", Word(0xFFFFFFFF) + "rest", false, "", 4},
        {"an empty text by its length", Word(1) + "rest", false, "", 4},
        {"one byte", Word(2) + "a---rest", false, "a", 8},
        {"four bytes", Word(5) + "abcdrest", false, "abcd", 8},
        {"five bytes", Word(6) + "abcde---rest", false, "abcde", 12},
        {"a zero within", Word(4) + std::string("a\0b-rest", 8), false, std::string("a\0b", 3), 8},
        {"its padding missing", Word(2) + "a", false, "a", 5},
        {"its text missing", Word(9), false, "", 4},
        {"a length that is a lie", Word(0xFFFFFFFE) + "abc", false, "abc", 7},
        {"a length that is a half lie", Word(0x80000001) + "abc", false, "abc", 7},
        {"half a length", "\2", false, "", 1},
    };
    const ::Test::Directory directory;
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.what);
        ::Test::WriteFile(name, row.bytes);
        KROMFile file;
        Open(file, File::ModeRead);
        String text("old");
        EXPECT_EQ(file.ReadPadded(text), KROMFile::RES_OK);
        EXPECT_EQ(static_cast<const char*>(text) == nullptr, row.isNull);
        EXPECT_EQ(std::string(text ? text : "", text.Length()), row.text);
        EXPECT_EQ(file.Tell(), row.tell);
        file.SeekSet(0);
        PString word("old");
        EXPECT_EQ(file.ReadPadded(word), KROMFile::RES_OK);
        EXPECT_EQ(word.IsNull(), row.isNull);
        EXPECT_EQ(std::string(word ? word : "", word.Length()), row.text);
        EXPECT_EQ(file.Tell(), row.tell);
    }
}

// A file that cannot be patched says so, and a member of an archive can.
TEST(KROMFile, PatchesWhereThatCanBe)
{
    const ::Test::Directory directory;
    for (const std::uint32_t mode : {File::ModeCreate | File::ModeWriteCompressed, File::ModeWrite | File::ModeAppend})
    {
        SCOPED_TRACE(mode);
        ::Test::WriteFile(name, std::string());
        KROMFile file;
        Open(file, mode);
        const std::uint32_t at = file.WriteBlock(1, 0u, nullptr);
        EXPECT_THROW(file.WriteSizeAt(at), FileEx);
        file.WriteLine("goes on");
        EXPECT_EQ(file.Tell(), 15u);
        file.Close();
        Open(file, File::ModeRead);
        char bytes[15];
        file.SafeRead(bytes, sizeof bytes, 1);
        EXPECT_EQ(std::string(bytes, sizeof bytes), Block(1, "") + "goes on");
    }
    KROMFile closed;
    EXPECT_THROW(closed.WriteAt(0u, 1u), FileEx);
    Open(closed, File::ModeRead);
    EXPECT_THROW(closed.WriteAt(0u, 1u), FileEx) << "not open for writing";

    const ::Test::Mounted mounted("arc", directory / "a.arc", true);
    const std::string body(50000, 'b');
    {
        KROMFile file;
        ASSERT_TRUE(static_cast<bool>(file.Open("arc:sub/x.krom", create)));
        KROMWriteHeader header(file, 1);
        KROMWriteBlock block(file, 2);
        file.Write(body.data(), body.size(), 1);
    }
    KROMFile file;
    ASSERT_TRUE(static_cast<bool>(file.Open("arc:sub/x.krom", File::ModeRead)));
    std::uint32_t size = 0;
    EXPECT_EQ(file.ReadHeader(1, size), KROMFile::RES_OK);
    EXPECT_EQ(size, body.size() + 8);
    EXPECT_EQ(file.ReadBlock(2, size, nullptr), KROMFile::RES_OK);
    EXPECT_EQ(size, body.size());
}

// Blocks that the scope of a failure ends are complete as far as they go.
TEST(KROMFile, EndsItsBlocksWhenAnExceptionPasses)
{
    const ::Test::Directory directory;
    try
    {
        KROMFile file;
        Open(file, create);
        KROMWriteHeader header(file, 1);
        KROMWriteBlock block(file, 2);
        file.WriteLine("abc");
        throw std::runtime_error("the caller's");
    }
    catch (const std::runtime_error&)
    {
    }
    EXPECT_EQ(Stored(), Header(1, Block(2, "abc")));
}

// Each call of the system fails once: the failure is told, the position stays when a size could not be filled in, and an
// archive never takes a file with such a hole.
TEST(KROMFile, KeepsItsPlacesWhenTheDiskFails)
{
    const std::string body(20000, 'b');
    const std::string whole = Header(1, Block(2, Block(3, body)) + Block(4, "tail"));
    const auto write = [&](bool& holed)
    {
        KROMFile file;
        if (!file.Open("arc:x", create))
            throw FileEx("test", __LINE__, "not open");
        KROMWriteHeader header(file, 1);
        {
            KROMWriteBlock outer(file, 2);
            const std::uint32_t at = file.WriteBlock(3, 0u, nullptr);
            file.Write(body.data(), body.size(), 1);
            const std::uint32_t before = file.Tell();
            holed = true;
            try
            {
                file.WriteSizeAt(at);
            }
            catch (const FileEx&)
            {
                EXPECT_EQ(file.Tell(), before);
                throw;
            }
            holed = false;
        }
        file.WriteBlock(4, 4u, "tail");
    };
    int holes = 0;
    for (int n = 1;; ++n)
    {
        SCOPED_TRACE("call " + std::to_string(n));
        const ::Test::Directory directory;
        const ::Test::Mounted mounted("arc", directory / "a.arc", true);
        bool told = false;
        bool reached = false;
        bool holed = false;
        {
            FaultPlan plan(FaultPlan::Fail, n, ENOSPC);
            try
            {
                write(holed);
            }
            catch (const FileEx&)
            {
                told = true;
            }
            reached = plan.Reached();
        }
        holes += holed;
        File file;
        const bool stored = static_cast<bool>(file.Open("arc:x", File::ModeRead));
        EXPECT_FALSE(stored && holed);
        EXPECT_TRUE(stored || told) << "lost without a word";
        if (stored)
        {
            std::string bytes(file.Size(), '\0');
            file.SafeRead(bytes.data(), bytes.size(), 1);
            EXPECT_TRUE(bytes == whole) << "a part of it took its name";
        }
        if (!reached)
            break;
    }
    EXPECT_EQ(holes, 1) << "the size lies behind the buffer: one call fills it";
}

} // namespace
