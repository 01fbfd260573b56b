// Text blocks, read from files on disk as an application does.

#include "support/Support.h"

#include <Bedrock/files/BlockReader.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <iterator>
#include <string>
#include <vector>

namespace
{

using namespace Zem;

/// A reader on a file with the given text.
struct Opened
{
    explicit Opened(const std::string& text)
    {
        Test::WriteFile(directory / "blocks.txt", text);
        EXPECT_TRUE(static_cast<bool>(file.Open("blocks.txt", File::ModeRead)));
        reader.Init(file);
    }
    Test::Directory directory;
    File file;
    BlockReader reader;
};

/// The whole tree as "key(values){...}", by the same calls at every level. `enter` decides whether a block is entered.
std::string Walk(BlockReader& reader, bool enter = true)
{
    std::string out;
    for (PString key; reader.Next(key);)
    {
        out += std::string(out.empty() ? "" : " ") + static_cast<const char*>(key);
        std::string values;
        for (PString value; reader.ReadString(value);)
            values += std::string(values.empty() ? "" : ",") + static_cast<const char*>(value);
        if (!values.empty())
            out += "(" + values + ")";
        if (!enter)
            continue;
        if (BlockReader* block = reader.Begin())
        {
            out += "{" + Walk(*block) + "}";
            reader.End();
        }
    }
    return out;
}

TEST(BlockReader, ShowsTheStructureItReads)
{
    const struct
    {
        const char* what;
        const char* text;
        const char* entered;
        const char* skipped;
    } rows[] = {
        {"blank and comment lines", "\n   \t\n// a\n  // b\nsize 640 480 // c\n", "size(640,480)", "size(640,480)"},
        {"both placements of the brace", "a {\nb 1\n}\nc\n{\nd 2\n}\ne 3\n", "a({){b(1)} c{d(2)} e(3)", "a({) c e(3)"},
        {"a comment and a blank line before the brace", "a\n\n// x\n{\nb\n}\nc\n", "a{b} c", "a c"},
        {"a quoted value of two words", "title \"two words\" x\n", "title(two words,x)", "title(two words,x)"},
        {"a quote that is not closed", "title \"two\nnext\n", "title next", "title next"},
        {"a closing brace in a comment ends the level", "a\n{\nb 1 // }\nc\n}\nd\n", "a{} c", "a c"},
        {"a block without a key", "{\nx\n}\na\n", "a", "a"},
        {"nested blocks that are skipped", "a\n{\nb\n{\nc\n}\n}\nd\n", "a{b{c}} d", "a d"},
        {"carriage returns", "a 1\r\nb\r\n{\r\nc\r\n}\r\n", "a(1) b{c}", "a(1) b"},
        {"no line end at the end", "a 1", "a(1)", "a(1)"},
        {"nor behind a quote", "a \"1 2\"", "a(1 2)", "a(1 2)"},
        {"a block that never ends", "a\n{\nb\n", "a{b}", "a"},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.what);
        {
            Opened opened(row.text);
            EXPECT_EQ(Walk(opened.reader), row.entered);
        }
        Opened opened(row.text);
        EXPECT_EQ(Walk(opened.reader, false), row.skipped);
    }
}

TEST(BlockReader, ReadsNumbersAndStopsAtWhatIsNone)
{
    Opened opened("size 640 480\nmix 12abc 7 1.5x yes\nflags 0 2 x\nlarge 99999999999 -99999999999\n");
    BlockReader& reader = opened.reader;
    PString key;
    int i[3] = {};
    float f = 0;
    bool b = true;
    ASSERT_TRUE(reader.Next(key));
    EXPECT_EQ(reader.ReadIntv(i, 3), 2);
    EXPECT_EQ(i[0] * 1000 + i[1], 640480);
    ASSERT_TRUE(reader.Next(key));
    EXPECT_TRUE(reader.ReadInt(i[0]) && reader.ReadInt(i[1]) && reader.ReadFloat(f));
    EXPECT_EQ(i[0], 12);
    EXPECT_EQ(i[1], 7);
    EXPECT_EQ(f, 1.5f);
    EXPECT_FALSE(reader.ReadInt(i[2])) << "a word";
    char text[3];
    EXPECT_TRUE(reader.ReadString(text, sizeof text)) << "which is still there as a text, cut to size";
    EXPECT_STREQ(text, "ye");
    ASSERT_TRUE(reader.Next(key));
    EXPECT_TRUE(reader.ReadBool(b) && !b);
    EXPECT_TRUE(reader.ReadBool(b) && b);
    EXPECT_FALSE(reader.ReadBool(b));
    ASSERT_TRUE(reader.Next(key));
    EXPECT_EQ(reader.ReadIntv(i, 2), 2);
    EXPECT_EQ(i[0], INT_MAX);
    EXPECT_EQ(i[1], INT_MIN);
}

// Whatever begins a value is the number that the C library makes of it.
TEST(BlockReader, ReadsNumbersAsTheCLibraryDoes)
{
    auto random = ::Test::Random();
    const char* const pieces[] = {
        "-",      "+",        "0",  "1",   "9",        "25",         "16777217",   ".",   ".",  "e",   "E-",
        "e+",     "38",       "39", "46",  "x",        "X",          "p",          "p-1", "f",  "inf", "nan",
        "nan(1)", "infinity", "0x", "000", "99999999", "2147483647", "2147483648", "4",   "\v", "\r",  "g"};
    std::string text;
    std::vector<std::string> words = {"0x",
                                      "0x.",
                                      "0x.8",
                                      "0X1p3",
                                      "1e400",
                                      "1e-400",
                                      "-1e39",
                                      "1.4e-45",
                                      "1e-46",
                                      "3.4028236e38",
                                      std::string(400, '9'),
                                      std::string(400, '9') + "e-10",
                                      std::string(400, '9') + "e-500",
                                      "0." + std::string(400, '0') + "1e380",
                                      "0" + std::string(400, '9'),
                                      "0x0" + std::string(99, 'f'),
                                      "0xep-999",
                                      "0." + std::string(400, '0') + "1",
                                      "0x1p999",
                                      "0x1p-999",
                                      "+-1",
                                      "-+1",
                                      "--1",
                                      "-",
                                      "+",
                                      ".",
                                      "5.",
                                      ".5",
                                      "-.5e1",
                                      "1e",
                                      "1e+",
                                      "0x1p"};
    while (words.size() < 5000)
    {
        std::string word;
        for (std::uint64_t n = 1 + random() % 6; n > 0; --n)
            word += pieces[random() % std::size(pieces)];
        words.push_back(word);
    }
    for (const std::string& word : words)
        text += "key " + word + "\n";
    Opened reals(text);
    Opened ints(text);
    PString key;
    for (const std::string& word : words)
    {
        SCOPED_TRACE(word);
        ASSERT_TRUE(reals.reader.Next(key) && ints.reader.Next(key));
        char* end;
        const std::string line = word + "\n";
        float real = 77;
        const float expectedReal = std::strtof(line.c_str(), &end);
        const bool isReal = end != line.c_str();
        ASSERT_EQ(reals.reader.ReadFloat(real), isReal);
        ASSERT_TRUE(!isReal || real == expectedReal || (std::isnan(real) && std::isnan(expectedReal)))
            << real << " " << expectedReal;
        ASSERT_TRUE(!isReal || std::signbit(real) == std::signbit(expectedReal) || std::isnan(real));
        int number = 77;
        const long long expected = std::strtoll(line.c_str(), &end, 10);
        const bool isNumber = end != line.c_str();
        ASSERT_EQ(ints.reader.ReadInt(number), isNumber);
        ASSERT_TRUE(!isNumber || number == std::clamp<long long>(expected, INT_MIN, INT_MAX)) << number;
    }
}

TEST(BlockReader, LeavesABlockFromAnywhereInside)
{
    Opened opened("a\n{\nb\n{\nc\n{\nx\n}\ny\n}\nz\n}\nd\n");
    BlockReader& reader = opened.reader;
    PString key;
    ASSERT_TRUE(reader.Next(key));
    BlockReader* a = reader.Begin();
    ASSERT_TRUE(a && a->Next(key));
    BlockReader* b = a->Begin();
    ASSERT_TRUE(b && b->Next(key));
    EXPECT_FALSE(reader.Next(key)) << "while a block is entered";
    EXPECT_EQ(reader.Begin(), nullptr);
    reader.End();
    ASSERT_TRUE(reader.Next(key));
    EXPECT_STREQ(key, "d");
    reader.End();
    EXPECT_FALSE(reader.Next(key));
}

// A million levels must not be as many calls: entered to the innermost, left from there or closed one by one, skipped.
TEST(BlockReader, NestsToAnyDepth)
{
    constexpr int depth = 1000000;
    std::string text;
    for (int i = 0; i < depth; ++i)
        text += "a\n{\n";
    const auto enter = [](BlockReader& root)
    {
        std::vector<BlockReader*> levels;
        PString key;
        for (BlockReader* reader = &root; reader && reader->Next(key); reader = reader->Begin())
            levels.push_back(reader);
        EXPECT_EQ(levels.size(), static_cast<std::size_t>(depth));
        return levels;
    };
    PString key;
    {
        Opened torn(text);
        enter(torn.reader);
        torn.reader.End();
        EXPECT_FALSE(torn.reader.Next(key)) << "the braces are missing";
    }
    {
        Opened left(text);
        enter(left.reader); // its destructor finds the whole chain
    }
    for (int i = 0; i < depth; ++i)
        text += "}\n";
    text += "behind\n";
    {
        Opened opened(text);
        enter(opened.reader);
        opened.reader.End();
        EXPECT_TRUE(opened.reader.Next(key) && key == PString("behind"));
    }
    {
        Opened opened(text);
        const auto levels = enter(opened.reader);
        int ended = 0;
        for (std::size_t i = levels.size() - 1; --i > 0;)
        {
            levels[i]->End();
            ended += !levels[i]->Next(key);
        }
        EXPECT_EQ(ended, depth - 2);
        opened.reader.End();
        EXPECT_TRUE(opened.reader.Next(key) && key == PString("behind"));
    }
    Opened skipped(text);
    EXPECT_TRUE(skipped.reader.Next(key) && skipped.reader.Next(key));
    EXPECT_TRUE(key == PString("behind"));
}

} // namespace
