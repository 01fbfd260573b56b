#include "support/Support.h"

#include <Bedrock/files/MemoryFile.h>
#include <Bedrock/host/Exception.h>
#include <Bedrock/memory/PString.h>

using Zem::File;
using Zem::MemoryFile;

// What a parser relies on: numbers come out little-endian at any address, and no read leaves the block.
TEST(MemoryFile, ReadsLittleEndianAnywhereAndStopsAtTheEnd)
{
    const struct
    {
        const char* what;
        std::vector<std::uint8_t> bytes;
        std::int32_t at;
        std::uint32_t value, tell;
    } rows[] = {
        {"whole number", {0x78, 0x56, 0x34, 0x12}, 0, 0x12345678, 4},
        {"odd address", {0xFF, 0x78, 0x56, 0x34, 0xF2, 0xFF}, 1, 0xF2345678, 5},
        {"one byte missing", {0x78, 0x56, 0x34}, 0, 0x00345678, 3},
        {"at the end", {0xAA}, 1, 0, 1},
        {"a seek behind the end stops there", {0xAA}, 100, 0, 1},
        {"and one before the start", {0x78, 0x56, 0x34, 0x12}, -5, 0x12345678, 4},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.what);
        const auto block = ::Test::Exact(row.bytes);
        MemoryFile file(block.get(), static_cast<std::uint32_t>(row.bytes.size()));
        file.SeekSet(row.at);
        EXPECT_EQ(file.Readudword(), row.value);
        EXPECT_EQ(file.Tell(), row.tell);
        EXPECT_EQ(file.Peek(), row.tell < row.bytes.size() ? row.bytes[row.tell] : 0);
    }
    std::uint8_t bytes[4] = {1, 2, 3, 4};
    MemoryFile file(bytes, 4);
    EXPECT_EQ(file.SeekEnd(0), 4u);
    EXPECT_TRUE(file.Eof());
    EXPECT_EQ(file.SeekEnd(3), 1u);
    EXPECT_EQ(file.Seek(0, static_cast<Zem::FileSeek>(7)), 1u);
    EXPECT_EQ(file.Readsword(), 0x0302);
    file.Write("xyz", 3); // the block does not grow
    EXPECT_EQ(bytes[3], 'x');
    std::uint8_t out[6] = {9, 9, 9, 9, 9, 9};
    file.SeekSet(2);
    file.Read(out, 3, 2);
    EXPECT_EQ(out[1], 'x');
    EXPECT_EQ(out[2] | out[5], 0);
}

TEST(MemoryFile, ReadsTextUpToItsZeroAndDistrustsLengths)
{
    Zem::PString::Init();
    const struct
    {
        const char* what;
        std::vector<std::uint8_t> bytes;
        const char* text;
        std::uint32_t tell;
    } rows[] = {
        {"as File stores it", {2, 0, 0, 0, 'a', 'b', 'c'}, "ab", 6},
        {"a zero and more within", {5, 0, 0, 0, 'a', 'b', 'c', 0, 'd'}, "abc", 9},
        {"nothing", {0, 0, 0, 0, 'a'}, "", 4},
        {"a length past the end", {0xFF, 0xFF, 0xFF, 0xFF, 'a', 'b'}, "ab", 6},
        {"a torn length", {7, 0}, "", 2},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.what);
        const auto block = ::Test::Exact(row.bytes);
        const MemoryFile file(block.get(), static_cast<std::uint32_t>(row.bytes.size()));
        Zem::PString text("old");
        file.Read(text, false);
        EXPECT_STREQ(text, row.text);
        EXPECT_EQ(file.Tell(), row.tell);
    }
}

TEST(MemoryFile, LoadsTheRestOfAFileAndOwnsIt)
{
    ::Test::Directory here;
    std::vector<std::uint8_t> bytes(1000);
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<std::uint8_t>(i * 7);
    ::Test::WriteFile("f", bytes);
    File disk;
    ASSERT_TRUE(disk.Open("f", File::ModeRead));
    disk.SeekSet(100);
    MemoryFile file(disk);
    EXPECT_EQ(file.Size(), 900u);
    EXPECT_EQ(file.Tell(), 0u);
    EXPECT_STREQ(file.Name(), "f");
    EXPECT_EQ(std::memcmp(file.Data(), &bytes[100], 900), 0);

    // A copy is a view: two destructors, one block.
    MemoryFile view(file);
    EXPECT_EQ(view.Data(), file.Data());
    file = view; // and what it owned stays its own
    EXPECT_EQ(file.Readubyte(), bytes[100]);

    MemoryFile more(disk, 10); // at the end: nothing comes, nothing is unset
    EXPECT_EQ(more.Size(), 10u);
    EXPECT_EQ(more.Readudword(), 0u);

    EXPECT_EQ(file.Open("absent", File::ModeRead), File::RES_FILENOTFOUND);
    EXPECT_TRUE(!file.Data() && file.Size() == 0 && file.Readudword() == 0);
    ::Test::WriteFile("empty", bytes.data(), 0);
    EXPECT_THROW((void)file.Open("empty", File::ModeRead), Zem::FileEx);
    EXPECT_EQ(file.Size(), 0u);
    EXPECT_TRUE(file.Open(16));
    file.Close();
    EXPECT_EQ(file.Data(), nullptr);
}
