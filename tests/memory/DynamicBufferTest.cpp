// Serialisation buffers against a model that knows the bytes, the growth rule and the cursor.

#include "support/Support.h"

#include <Bedrock/memory/AllocReport.h>
#include <Bedrock/memory/DynamicBuffer.h>
#include <Bedrock/memory/PString.h>
#include <Bedrock/memory/String.h>

#include <gtest/gtest.h>

#include <functional>
#include <string>

namespace
{

using namespace Zem;

std::string Data(const DynamicBuffer& buffer)
{
    return {static_cast<const char*>(buffer.GetData()), buffer.GetSize()};
}

template <class T>
std::string Raw(T value)
{
    return {reinterpret_cast<const char*>(&value), sizeof value};
}

TEST(DynamicPtr, MovesOverMemoryOfOthers)
{
    unsigned char block[4] = {};
    DynamicPtr p(block);
    EXPECT_TRUE(p.Write(reinterpret_cast<const unsigned char*>("abcd"), 4));
    EXPECT_FALSE(p.Write(nullptr, 4));
    EXPECT_FALSE(p.Write(block, 0));
    p.Rewind();
    const DynamicPtr& constant = p;
    unsigned char two[2];
    EXPECT_TRUE(constant.Read(two, 2) && constant.Read(two, 2));
    EXPECT_EQ(std::string(reinterpret_cast<char*>(two), 2), "cd");
    EXPECT_FALSE(constant.Read(two, 0));
    EXPECT_FALSE(constant.Read(nullptr, 1));
    EXPECT_FALSE(DynamicPtr().Read(two, 1));
    EXPECT_FALSE(DynamicPtr().Write(two, 1));
}

TEST(DynamicBuffer, StoresTheseBytes)
{
    const struct
    {
        const char* what;
        std::function<bool(DynamicBuffer&)> write;
        std::string bytes;
    } rows[] = {
        {"a byte", [](DynamicBuffer& b) { return b.Write(static_cast<unsigned char>(0x81)); }, "\x81"},
        {"16 bits", [](DynamicBuffer& b) { return b.Write(std::int16_t{-2}); }, "\xFE\xFF"},
        {"32 bits", [](DynamicBuffer& b) { return b.Write32(0x64636261u) && b.Write32(-1); }, "abcd\xFF\xFF\xFF\xFF"},
        {"a float", [](DynamicBuffer& b) { return b.Write(1.0f); }, Raw(std::uint32_t{0x3F800000})},
        {"a bool takes 4", [](DynamicBuffer& b) { return b.Write(true) && b.Write(false); }, Raw(1) + Raw(0)},
        {"a string", [](DynamicBuffer& b) { return b.Write(String("abc")); }, Raw(3) + "abc"},
        {"an interned one with a zero", [](DynamicBuffer& b) { return b.Write(PString("a\0b", 3u)); },
         Raw(3) + std::string("a\0b", 3)},
        {"no text",
         [](DynamicBuffer& b)
         { return b.Write(String()) && b.Write(String("")) && b.Write(PString()) && b.Write(PString("")); },
         std::string(16, '\0')},
        {"a block", [](DynamicBuffer& b) { return b.Write("abcdefgh", 2, 3) == 2; }, "abcdef"},
        {"no block",
         [](DynamicBuffer& b)
         { return b.Write(nullptr, 2, 3) + b.Write("x", 0, 3) + b.Write("x", 3, 0) + b.Write("x", 1u << 31, 2) == 0; },
         ""},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.what);
        DynamicBuffer buffer;
        EXPECT_TRUE(row.write(buffer));
        EXPECT_EQ(Data(buffer), row.bytes);
        EXPECT_EQ(buffer.GetLength(), row.bytes.empty() ? 0u : 512u);
        DynamicBuffer wrapped("abc", 3, true);
        row.write(wrapped);
        EXPECT_EQ(Data(wrapped), "abc") << "a read-only buffer refuses";
        EXPECT_EQ(wrapped.GetCurrentPos(), 0u);
    }
}

// The buffer as it is described, with a vector for its block.
struct Model
{
    std::vector<std::uint8_t> block;
    std::vector<bool> known; // bytes that were written
    std::uint64_t position = 0, size = 0, increment;

    void Room(std::uint64_t n)
    {
        if (n > block.size() - position)
            block.resize((position + n + increment - 1) / increment * increment), known.resize(block.size());
    }
    void Write(const std::string& bytes)
    {
        Room(bytes.size());
        for (const char byte : bytes)
            block[position] = static_cast<std::uint8_t>(byte), known[position++] = true;
        size = std::max(size, position);
    }
};

TEST(DynamicBuffer, GrowsAndMovesAsItsModel)
{
    auto random = ::Test::Random();
    for (int turn = 0; turn < 150; ++turn)
    {
        const auto increment = static_cast<std::uint32_t>(1 + random() % 100);
        const auto start = static_cast<std::uint32_t>(random() % 3 * (random() % 70));
        DynamicBuffer buffer(start, increment);
        Model model{std::vector<std::uint8_t>(start), std::vector<bool>(start), 0, 0, increment};
        for (int step = 0; step < 60; ++step)
        {
            const auto n = static_cast<std::uint32_t>(random() % 150);
            const std::string bytes(n, static_cast<char>(random()));
            switch (random() % 9)
            {
            case 0:
                EXPECT_TRUE(buffer.Write32(n));
                model.Write(Raw(n));
                break;
            case 1:
                EXPECT_EQ(buffer.Write(bytes.data(), n, 1), n);
                if (n > 0)
                    model.Write(bytes);
                break;
            case 2:
                EXPECT_TRUE(buffer.Write(String(bytes.data(), n)));
                model.Write(Raw(n));
                model.Write(bytes);
                break;
            case 3:
                EXPECT_EQ(buffer.Seek(n), n <= model.block.size());
                model.position = std::min<std::uint64_t>(n, model.block.size());
                break;
            case 4:
                EXPECT_EQ(buffer.SetSize(n), n <= model.block.size());
                model.size = std::min<std::uint64_t>(n, model.block.size());
                break;
            case 5:
                buffer.AddLength(n);
                model.Room(n);
                break;
            case 6:
            {
                const bool there = model.position < model.size && model.size - model.position >= n && n > 0;
                std::string read(n, '\0');
                EXPECT_EQ(buffer.Read(read.data(), n, 1), there ? n : 0);
                if (there)
                    model.position += n;
                break;
            }
            case 7:
                if (random() % 4 == 0)
                {
                    buffer.Reset();
                    model.size = model.position = 0;
                }
                break;
            default: // a piece of the buffer itself, which may move under it
                if (const std::uint64_t from = random() % 50; model.size > from)
                {
                    const auto count = static_cast<std::uint32_t>(model.size - from);
                    const std::string piece(model.block.begin() + static_cast<std::ptrdiff_t>(from),
                                            model.block.begin() + static_cast<std::ptrdiff_t>(model.size));
                    const std::vector<bool> wasKnown(model.known.begin() + static_cast<std::ptrdiff_t>(from),
                                                     model.known.begin() + static_cast<std::ptrdiff_t>(model.size));
                    const std::uint64_t to = model.position;
                    EXPECT_EQ(buffer.Write(static_cast<char*>(buffer.GetData()) + from, count, 1), count);
                    model.Write(piece);
                    std::copy(wasKnown.begin(), wasKnown.end(), model.known.begin() + static_cast<std::ptrdiff_t>(to));
                }
                break;
            }
            ASSERT_EQ(buffer.GetLength(), model.block.size());
            ASSERT_EQ(buffer.GetSize(), model.size);
            ASSERT_EQ(buffer.GetCurrentPos(), model.position);
            const DynamicBuffer copy(buffer);
            const auto* bytes2 = static_cast<const std::uint8_t*>(copy.GetData());
            for (std::size_t i = 0; i < model.block.size(); ++i)
                ASSERT_TRUE(!model.known[i] || bytes2[i] == model.block[i]) << i;
        }
    }
}

TEST(DynamicBuffer, ReadsOnlyWhatIsThere)
{
    const std::string bytes = Raw(std::int16_t{-5}) + Raw(0x100) + Raw(2) + "hi" + Raw(0) + Raw(10) + "12345";
    const DynamicBuffer in(bytes.data(), static_cast<std::uint32_t>(bytes.size()), true);
    std::int16_t number = 0;
    bool flag = true;
    String text("old");
    PString word("old");
    EXPECT_TRUE(in.Read(number));
    EXPECT_EQ(number, -5);
    EXPECT_TRUE(in.Read(flag));
    EXPECT_FALSE(flag) << "its lowest byte is 0";
    EXPECT_TRUE(in.Read(text));
    EXPECT_STREQ(text, "hi");
    EXPECT_TRUE(in.Read(word));
    EXPECT_FALSE(word.IsNull());
    EXPECT_EQ(word.Length(), 0u);
    EXPECT_FALSE(in.Read(text)) << "a length that the data does not have";
    EXPECT_STREQ(text, "hi");
    EXPECT_EQ(in.GetCurrentPos(), bytes.size() - 5);
    char eight[8];
    EXPECT_EQ(in.Read(eight, 2, 3), 0u);
    std::uint32_t wide = 7;
    EXPECT_TRUE(in.Read(wide));
    EXPECT_FALSE(in.Read(wide));
    EXPECT_EQ(wide, 0x34333231u) << "a number that is not there leaves its target";
    EXPECT_FALSE(in.Read32(wide));
    EXPECT_EQ(wide, 0u);
    flag = true;
    EXPECT_FALSE(in.Read(flag));
    EXPECT_FALSE(flag);
    EXPECT_EQ(in.GetCurrentPos(), bytes.size() - 1) << "none of these moved it";
    EXPECT_FALSE(in.Read(text)) << "half a length";
    EXPECT_EQ(in.GetCurrentPos(), bytes.size() - 1);

    DynamicBuffer out;
    out.Write(String("abcd"));
    out.Rewind();
    out.SetSize(7);
    EXPECT_FALSE(out.Read(text)) << "its last byte is in the block, and no data";
    out.Reset();
    out.Write(String());
    out.Rewind();
    EXPECT_TRUE(out.Read(text));
    EXPECT_STREQ(text, "") << "empty, with a buffer";
}

TEST(DynamicBuffer, OwnsOrSharesItsBlock)
{
    std::string memory = "abcdef";
    DynamicBuffer shared(memory.data(), 6, true);
    DynamicBuffer owned(memory.data(), 6, false);
    DynamicBuffer sharing(shared);
    EXPECT_EQ(sharing.GetData(), memory.data());
    EXPECT_EQ(owned.GetIncrement(), 512u);
    memory[0] = 'X';
    EXPECT_EQ(Data(owned), "abcdef");
    DynamicBuffer copied(owned);
    EXPECT_NE(copied.GetData(), owned.GetData());
    copied = *&copied;
    EXPECT_EQ(Data(copied), "abcdef");
    copied = shared;
    EXPECT_TRUE(copied.IsReadOnly());
    copied.Clean();
    EXPECT_TRUE(copied.IsReadOnly() && !copied.GetData() && copied.GetLength() == 0 && copied.GetSize() == 0);
    EXPECT_FALSE(copied.Write(true));
    copied.ReInit(0, 3);
    EXPECT_TRUE(copied.Write(true));
    EXPECT_EQ(copied.GetLength(), 6u);
    owned.SetData(static_cast<char*>(owned.GetData()) + 2, 3, false); // out of its own block
    EXPECT_EQ(Data(owned), "cde");
    EXPECT_EQ(memory, "Xbcdef");
}

TEST(DynamicBuffer, KeepsItsContentWhenThereIsNoMemory)
{
    DynamicBuffer buffer(4, 4);
    buffer.Write32(0x64636261u);
    const DynamicBuffer other("123456789", 9, false);
    buffer.Rewind();
    {
        const AllocFailureForTest failure;
        EXPECT_FALSE(buffer.Write(String()) && buffer.Write(true));
        buffer.Seek(4);
        EXPECT_FALSE(buffer.Write(true));
        EXPECT_EQ(buffer.Write("12345", 5, 1), 0u);
        buffer.AddLength(100);
        buffer = other;
        EXPECT_EQ(buffer.GetLength(), 4u);
        EXPECT_EQ(DynamicBuffer(other).GetLength(), 0u);
        EXPECT_EQ(DynamicBuffer(10, 0).GetLength(), 0u);
        EXPECT_EQ(DynamicBuffer("abc", 3, false).GetSize(), 0u);
    }
    EXPECT_EQ(buffer.GetSize(), 4u);
    EXPECT_EQ(buffer.GetCurrentPos(), 4u);
    const std::string stored = Raw(30) + std::string(30, 't');
    const DynamicBuffer in(stored.data(), 34, true);
    String text("old");
    {
        const AllocFailureForTest failure;
        EXPECT_FALSE(in.Read(text));
        EXPECT_EQ(in.GetCurrentPos(), 0u);
    }
    EXPECT_STREQ(text, "old");
    EXPECT_TRUE(in.Read(text));
    EXPECT_EQ(text.Length(), 30u);
    // Past 32 bits nothing grows.
    DynamicBuffer high(1, 0xFFFFFFFF);
    EXPECT_TRUE(high.Seek(1));
    EXPECT_EQ(high.Write(stored.data(), 0xFFFFFFFF, 1), 0u);
    EXPECT_EQ(high.GetLength(), 1u);
}

} // namespace
