#include <Bedrock/host/Options.h>

#include "support/OptionsModel.h"
#include "support/Support.h"

#include <algorithm>
#include <string>
#include <vector>

namespace
{

using ::Test::Pairs;
using Zem::Options;
using Zem::PString;
using Zem::Range;
using Zem::String;

std::string Text(const char* text)
{
    return text ? text : "";
}

// What an Options holds, in order; the links and the index are looked at on the way.
Pairs Holds(const Options& options)
{
    Pairs pairs;
    const Zem::OptionEntry* before = nullptr;
    for (const Zem::OptionEntry* entry = options.First(); entry; before = entry, entry = entry->next)
    {
        EXPECT_EQ(entry->prev, before);
        pairs.emplace_back(Text(entry->name), Text(entry->value));
        String found = "another";
        EXPECT_TRUE(options.Get(entry->name, found)) << entry->name;
        EXPECT_EQ(Text(found), pairs.back().second);
    }
    EXPECT_EQ(options.Count(), pairs.size());
    return pairs;
}

Pairs Parsed(const std::string& text)
{
    Options options;
    const auto block = ::Test::Exact(text.c_str(), text.size() + 1);
    options.ProcessRaw(reinterpret_cast<const char*>(block.get()));
    return Holds(options);
}

// --------------------------------------------------------------------------------------------------------- the parser

TEST(Options, ParsesTheFreeFormSyntax)
{
    const struct
    {
        const char* what;
        const char* text;
        Pairs pairs;
    } rows[] = {
        {"two numbers", "-Width=800 -Height=600", {{"width", "800"}, {"height", "600"}}},
        {"a value with blanks", "Title=Hello World -Foo", {{"title", "Hello World"}, {"foo", ""}}},
        {"no prefix on the second line", "-a=1\nb=2", {{"a", "1\nb=2"}}},
        {"prefixes on both lines", "-a=1\r\n-b=2\n", {{"a", "1"}, {"b", "2"}}},
        {"a number apart is a key", "-x 5", {{"x", ""}, {"5", ""}}},
        {"blanks around the equals sign", "-x =\t 5 ", {{"x", "5"}}},
        {"switched on, off, bare", "-F+ -S- /B", {{"f", "+"}, {"s", "-"}, {"b", ""}}},
        {"signs end a key", "-My-Key=1", {{"my", "-"}, {"key", "1"}}},
        {"a sign behind a blank is no value", "-a -b + c", {{"a", ""}, {"b", ""}, {"c", ""}}},
        {"quotes", "-Name='a -b' -c", {{"name", "a -b"}, {"c", ""}}},
        {"quotes of two kinds", "-Name='a -b\" -c", {{"name", "a -b"}, {"c", ""}}},
        {"quotes keep what they hold", "-a=' - x- ' -b", {{"a", " - x- "}, {"b", ""}}},
        {"nothing in quotes", "-a=1 -a='' -b", {{"a", ""}, {"b", ""}}},
        {"a quote without its end", "-a=\"x -b=2", {{"a", "x -b=2"}}},
        {"text straight behind a quote", "-a='x'y -b", {{"a", "x"}, {"y", ""}, {"b", ""}}},
        {"no sign at a value's end", "-V=abc- -W=d+- -", {{"v", "abc"}, {"w", "d"}}},
        {"slashes at a value's end", "-D=a/b// -c", {{"d", "a/b"}, {"/", ""}, {"c", ""}}},
        {"a value that begins with a sign", "-x= -y", {{"x", "-y"}}},
        {"a value of signs alone", "-x=-+- -y", {{"x", ""}, {"y", ""}}},
        {"appended", "+Log=a +LOG=b", {{"log", "a,b"}}},
        {"appended and replaced", "+Log=a +log=b -Log=a", {{"log", "a"}}},
        {"appended to nothing", "-Log +Log=b", {{"log", "b"}}},
        {"nothing appended", "-Log=a +Log", {{"log", "a,"}}},
        {"replaced by nothing", "-a=1 -b -a", {{"a", ""}, {"b", ""}}},
        {"no key", "- = x -=y +z=1 -=", {{"z", "1"}}},
        {"nothing", " \n\t\v\f\r ", {}},
        {"bytes from 128 on are no blanks", "-\xC4=\xA0 x", {{"\xC4", "\xA0 x"}}},
        {"an equals sign in a value", "-a=b=c", {{"a", "b=c"}}},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.what);
        EXPECT_EQ(Parsed(row.text), row.pairs);
    }
}

TEST(Options, AgreesWithAModelOnRandomTexts)
{
    auto random = ::Test::Random(1);
    const std::string likely = "abAB=-+/'\" \n\t,:=-  ";
    for (int round = 0; round < 20000; ++round)
    {
        std::string texts[2];
        for (std::string& text : texts)
            for (std::size_t n = random() % 40; n > 0; --n)
                text += random() % 20 ? likely[random() % likely.size()] : static_cast<char>(1 + random() % 255);
        Options options;
        options.ProcessRaw(texts[0].c_str());
        options.ProcessRaw(texts[1].c_str());
        ASSERT_EQ(Holds(options), ::Test::ParseOptions(texts[1], ::Test::ParseOptions(texts[0])))
            << texts[0] << "\n---\n"
            << texts[1];
    }
}

TEST(Options, DumpsWhatItHolds)
{
    Options options;
    options.ProcessRaw("-Title=Hello World -Foo +l=a +L=%s -foo=");
    testing::internal::CaptureStdout();
    options.Dump();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "[title] = [Hello World]\n[foo] = []\n[l] = [a,%s]\n");
}

// A step that looked at all keys, or copied the whole value, for each token would take minutes here.
TEST(Options, TakesHundredsOfThousandsOfTokens)
{
    std::string text;
    for (int i = 0; i < 200000; ++i)
        text += "-Key" + std::to_string(i) + "=" + std::to_string(i) + "\n+All=" + std::to_string(i) + "\n";
    text += "-x=" + std::string(500000, '-') + " -y='" + std::string(500000, ' ') + " -z=" + std::string(500000, '/');
    Options options;
    options.ProcessRaw(text.c_str());
    options.ProcessRaw(text.c_str());
    EXPECT_EQ(options.Count(), 200000u + 3);
    int sum = 0;
    for (int i = 0; i < 200000; i += 1000)
    {
        int value = 0;
        EXPECT_TRUE(options.Get(("KEY" + std::to_string(i)).c_str(), value, -1));
        sum += value == i;
    }
    EXPECT_EQ(sum, 200);
    String all;
    EXPECT_TRUE(options.Get("all", all));
    int tokens = 0;
    options.SetSeperators("all", ",");
    for (String token; options.GetNext("all", token); ++tokens)
        EXPECT_EQ(token.GetInt(), tokens % 200000);
    EXPECT_EQ(tokens, 400000);
}

// --------------------------------------------------------------------------------------------------------- the getters

TEST(Options, ReadsValuesByType)
{
    Options options;
    const struct
    {
        const char* value; // null: the key alone
        bool ifTrue, ifFalse;
        int number;
        unsigned whole;
        float real;
    } rows[] = {
        {nullptr, false, true, 0, 0, 0},
        {"-12", false, false, -12, 0xFFFFFFF4, -12},
        {"+7.5", true, true, 7, 7, 7.5F},
        {"fAlse", false, false, 0, 0, 0},
        {"oFF", false, false, 0, 0, 0},
        {"True", true, true, 0, 0, 0},
        {"ON", true, true, 0, 0, 0},
        {"once", false, true, 0, 0, 0},
        {"0", false, true, 0, 0, 0},
        {"3000000000", false, true, 0x7FFFFFFF, 3000000000u, 3e9F},
        {"99999999999999999999", false, true, 0x7FFFFFFF, 0xFFFFFFFF, 1e20F},
        {"12 apples", false, true, 12, 12, 12},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.value ? row.value : "(none)");
        options.ProcessRaw(row.value ? (std::string("-Key='") + row.value + "'").c_str() : "-Key");
        bool on = false;
        EXPECT_TRUE(options.Get("KEY", on, true));
        EXPECT_EQ(on, row.ifTrue);
        EXPECT_TRUE(options.Get("key", on, false));
        EXPECT_EQ(on, row.ifFalse);
        std::int32_t number = 99;
        EXPECT_TRUE(options.Get("kEy", number, 1));
        EXPECT_EQ(number, row.number);
        std::uint32_t whole = 99;
        EXPECT_TRUE(options.Get("Key", whole, 1));
        EXPECT_EQ(whole, row.whole);
        float real = 99;
        EXPECT_TRUE(options.Get("Key", real, 1));
        EXPECT_EQ(real, row.real);
        PString interned = "stays";
        EXPECT_TRUE(options.Get("Key", interned));
        EXPECT_EQ(Text(interned), Text(row.value));
    }

    // Absent: the default, or nothing.
    for (const char* key : {"absent", "", static_cast<const char*>(nullptr)})
    {
        bool on = false;
        std::int32_t number = 0;
        float real = 0;
        String text = "stays";
        PString interned = "stays";
        EXPECT_FALSE(options.Get(key));
        EXPECT_FALSE(options.Get(key, on, true));
        EXPECT_FALSE(options.Get(key, number, -5));
        EXPECT_FALSE(options.Get(key, real, 2.5F));
        EXPECT_FALSE(options.Get(key, text));
        EXPECT_FALSE(options.Get(key, interned));
        EXPECT_TRUE(on && number == -5 && real == 2.5F && text == "stays" && interned == PString("stays"));
        EXPECT_FALSE(options.Get(key, text, "other"));
        EXPECT_FALSE(options.Get(key, interned, PString("other")));
        EXPECT_TRUE(text == "other" && interned == PString("other"));
    }
}

TEST(Options, ReadsRanges)
{
    const struct
    {
        const char* value;
        bool there;
        Range<int> whole;
        Range<float> real;
    } rows[] = {
        {"1:5", true, {1, 5}, {1, 5}}, {"-1.5:2.25:9", true, {-1, 2}, {-1.5F, 2.25F}},
        {":7", true, {0, 7}, {0, 7}},  {"1:x", true, {1, 0}, {1, 0}},
        {"1:", false, {8, 9}, {8, 9}}, {"5", false, {8, 9}, {8, 9}},
        {"", false, {8, 9}, {8, 9}},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.value);
        Options options;
        options.ProcessRaw((std::string("-R='") + row.value + "'").c_str());
        Range<int> whole{8, 9};
        Range<float> real{8, 9};
        EXPECT_EQ(options.Get("r", whole), row.there);
        EXPECT_EQ(options.Get("r", real), row.there);
        EXPECT_EQ(whole, row.whole);
        EXPECT_EQ(real, row.real);
    }
}

TEST(Options, CutsValuesIntoTokens)
{
    const struct
    {
        const char* what;
        const char* value;
        const char* seperators;
        std::vector<std::string> tokens;
    } rows[] = {
        {"runs and blanks", "a, b ,,c", ",", {"a", "b", "c"}},
        {"begins with a separator", ",a", ",", {}},
        {"ends with separators", "a;b:; ", ";:", {"a", "b"}},
        {"blanks inside stay", "a  b,c d", ",", {"a  b", "c d"}},
        {"no separators", "a, b", "", {"a, b"}},
        {"nothing", "", ",", {}},
        {"a blank in front", " ,b", ",", {"", "b"}},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.what);
        Options options;
        options.ProcessRaw((std::string("-L='") + row.value + "'").c_str());
        String token;
        EXPECT_FALSE(options.GetNext("l", token)); // nothing was started
        for (int round = 0; round < 2; ++round)
        {
            std::vector<std::string> tokens;
            options.SetSeperators("L", row.seperators);
            while (options.GetNext("l", token))
                tokens.push_back(Text(token));
            EXPECT_EQ(tokens, row.tokens);
            EXPECT_FALSE(options.GetNext("l", token)); // it stays at the end
        }
        Zem::DynamicArray<String, 41> array;
        EXPECT_FALSE(options.Get("absent", array, ","));
        EXPECT_EQ(options.Get("l", array, row.seperators), !row.tokens.empty());
        EXPECT_TRUE(std::equal(array.begin(), array.end(), row.tokens.begin(),
                               [](const String& a, const std::string& b) { return Text(a) == b; }));
        EXPECT_EQ(array.Count(), row.tokens.size());
        array.Add("kept");
        EXPECT_TRUE(options.Get("absent", array, ","));
    }

    // A value that changes meanwhile ends the walk: its old text is gone.
    Options options;
    options.ProcessRaw("-L=a,b,c");
    options.SetSeperators("l", ",");
    PString token;
    EXPECT_TRUE(options.GetNext("l", token));
    options.ProcessRaw(("+L=" + std::string(1000, 'd')).c_str());
    EXPECT_FALSE(options.GetNext("l", token));
    EXPECT_EQ(token, PString("a"));
}

} // namespace
