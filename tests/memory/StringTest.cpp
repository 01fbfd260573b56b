#include "support/Support.h"

#include <Bedrock/memory/AllocReport.h>
#include <Bedrock/memory/String.h>
#include <Bedrock/platform/Text.h>

#include <climits>
#include <clocale>
#include <cmath>

namespace
{

using Zem::String;

std::string Text(const String& s)
{
    return s.Length() ? std::string(s, s.Length()) : std::string();
}

// What must hold for every string at every time.
void ExpectSound(const String& s)
{
    const char* text = s;
    if (!text)
    {
        EXPECT_EQ(s.Length(), 0u);
        EXPECT_EQ(s.AllocSize(), 0u);
        EXPECT_EQ(s.Size(), 0u);
        return;
    }
    EXPECT_EQ(s.AllocSize() % 16, 0u);
    EXPECT_GE(s.AllocSize(), s.Length() + 1);
    EXPECT_EQ(s.Size(), s.Length() + 1);
    EXPECT_EQ(text[s.Length()], '\0');
}

TEST(String, KnowsNoBufferFromEmptyAndGrowsBySixteens)
{
    String s;
    EXPECT_EQ(static_cast<const char*>(s), nullptr);
    ExpectSound(s);
    s = "";
    EXPECT_NE(static_cast<const char*>(s), nullptr);
    EXPECT_EQ(s.AllocSize(), 16u);
    EXPECT_EQ(s.Size(), 1u);
    s = static_cast<const char*>(nullptr);
    EXPECT_EQ(s.AllocSize(), 0u);
    s.SetLength(0);
    EXPECT_EQ(s.AllocSize(), 16u);
    for (unsigned n = 1; n <= 100; ++n)
    {
        s += n % 2 ? "x" : "y";
        ASSERT_EQ(s.Length(), n);
        ASSERT_EQ(s.AllocSize(), (n + 17) & ~15u);
    }
    s.Left(3);
    EXPECT_EQ(Text(s), "xyx");
    EXPECT_EQ(s.AllocSize(), 112u); // never shrinks
    const String copy = s;
    EXPECT_EQ(copy.AllocSize(), 16u); // the text alone is copied
    const String none = String();
    s = none;
    EXPECT_EQ(static_cast<const char*>(s), nullptr);
}

// Rows: nothing, empty, text; columns the same. Every form of the comparison against one table.
TEST(String, ComparesNullEmptyAndText)
{
    struct Side
    {
        const char* text;
    };
    const Side sides[] = {{nullptr}, {""}, {"abc"}, {"abd"}, {"ABC"}, {"ab"}, {"\xE4"}};
    for (const auto& x : sides)
        for (const auto& y : sides)
        {
            SCOPED_TRACE(std::string(x.text ? x.text : "(null)") + " against " + (y.text ? y.text : "(null)"));
            const String a(x.text);
            const String b(y.text);
            const std::string p = x.text ? x.text : "";
            const std::string q = y.text ? y.text : "";
            const int order = p < q ? -1 : p > q; // std::string compares bytes as unsigned
            const int nulls = (x.text != nullptr) - (y.text != nullptr);
            const int strict = x.text && y.text ? order : nulls;
            const auto sign = [](int n) { return (n > 0) - (n < 0); };
            const int folded = sign(strcasecmp(p.c_str(), q.c_str()));
            EXPECT_EQ(a.Compare(b), order);
            EXPECT_EQ(a.Compare(y.text), order);
            EXPECT_EQ(sign(a.CompareIgnoreCase(b)), folded);
            EXPECT_EQ(sign(a.CompareIgnoreCase(y.text)), folded);
            EXPECT_EQ(a.EqualsIgnoreCase(b), x.text && y.text ? folded == 0 : nulls == 0);
            EXPECT_EQ(a.EqualsIgnoreCase(y.text), x.text && y.text ? folded == 0 : nulls == 0);
            EXPECT_EQ((std::array{a<b, a> b, a == b, a != b, a <= b, a >= b}),
                      (std::array{strict<0, strict> 0, strict == 0, strict != 0, strict <= 0, strict >= 0}));
            EXPECT_EQ((std::array{a<y.text, a> y.text, a == y.text, a != y.text, a <= y.text, a >= y.text}),
                      (std::array{strict<0, strict> 0, strict == 0, strict != 0, strict <= 0, strict >= 0}));
        }
}

TEST(String, PrintsUpToItsBound)
{
    const std::string most(8192, 'm');
    String s = "old";
    EXPECT_EQ(s.Addf("%s", (most + "x").c_str()), -1);
    EXPECT_EQ(Text(s), "old");
    EXPECT_EQ(s.Addf("%s", ""), 0);
    EXPECT_EQ(s.Addf("%s", most.c_str()), 8192);
    EXPECT_EQ(Text(s), "old" + most);
    s.Setf("%s", most.c_str());
    EXPECT_EQ(Text(s), most);
    const unsigned size = s.AllocSize();
    s.Setf("%s", (most + "x").c_str());
    EXPECT_EQ(s.Length(), 0u);
    EXPECT_EQ(s.AllocSize(), size);
    EXPECT_EQ(s.Size(), 1u);
    s = "self";
    s.Setf("<%s>", static_cast<const char*>(s)); // an argument in the string itself
    EXPECT_EQ(Text(s), "<self>");
    EXPECT_EQ(s.Addf(" %d%c", -7, '!'), 4);
    EXPECT_EQ(Text(s), "<self> -7!");
    String none;
    none.Setf("%s", "");
    EXPECT_EQ(static_cast<const char*>(none), nullptr);

    const struct
    {
        int value;
        unsigned radix;
        const char* text;
    } rows[] = {{-255, 10, "-255"},   {255, 16, "ff"},
                {-1, 16, "ffffffff"}, {INT_MIN, 10, "-2147483648"},
                {5, 2, "101"},        {-1, 2, "11111111111111111111111111111111"},
                {35, 36, "z"},        {9, 1, ""}};
    for (const auto& row : rows)
    {
        s.Set(row.value, row.radix);
        EXPECT_EQ(Text(s), row.text);
    }
}

TEST(String, CutsTokens)
{
    String s = "  ab, cd";
    const struct
    {
        const char* token;
        const char* left;
    } rows[] = {{"ab", ", cd"}, {"cd", ""}, {nullptr, ""}, {nullptr, ""}};
    for (const auto& row : rows)
    {
        const String token = s.Token(" ,");
        EXPECT_TRUE(token == row.token);
        EXPECT_EQ(Text(s), row.left);
    }
    String delimiters = " , ";
    EXPECT_EQ(static_cast<const char*>(delimiters.Token(" ,")), nullptr);
    EXPECT_EQ(delimiters.Size(), 1u);
}

TEST(String, TakesBytesByCountOrUpToTheTerminator)
{
    const char p[] = {'a', '\0', 'b'};
    const auto block = ::Test::Exact(p, 3);
    const char* bytes = reinterpret_cast<const char*>(block.get());
    EXPECT_EQ(Text(String(bytes, 3)), std::string(p, 3));
    String s;
    s.Setn(bytes, 3);
    EXPECT_EQ(Text(s), "a");
    s.Setn(bytes + 2, 1); // no terminator within the count
    EXPECT_EQ(Text(s), "b");
    EXPECT_EQ(Text(String(0x141u, 3u)), "AAA");
    EXPECT_EQ(static_cast<const char*>(String('x', 0u)), nullptr);
}

TEST(String, ReadsNumbersInThirtyTwoBits)
{
    const struct
    {
        const char* text;
        int radix, asInt;
        unsigned asUInt;
    } rows[] = {{" 42x", 10, 42, 42},
                {"-1", 10, -1, 0xFFFFFFFF},
                {"0x1F", 0, 31, 31},
                {"99999999999", 10, INT_MAX, UINT_MAX},
                {"-99999999999", 10, INT_MIN, UINT_MAX},
                {"4294967295", 10, INT_MAX, UINT_MAX},
                {"", 10, 0, 0}};
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.text);
        EXPECT_EQ(String(row.text).GetInt(row.radix), row.asInt);
        EXPECT_EQ(String(row.text).GetUInt(row.radix), row.asUInt);
    }
    EXPECT_EQ(String("1.5e3z").GetFloat(), 1500.0f);
    EXPECT_EQ(String("0.1").GetDouble(), 0.1);
    EXPECT_EQ(String().GetInt() + static_cast<int>(String().GetDouble()), 0);
}

TEST(String, FindsWithAndWithoutCase)
{
    const String s = "Hay hAYSTACK needle";
    EXPECT_EQ(s.Find('h', 0), 4);
    EXPECT_EQ(s.FindIgnoreCase('h', 1), 4);
    EXPECT_EQ(s.FindIgnoreCase('H', 0), 0);
    EXPECT_EQ(s.Find(0u, 3), 19);
    EXPECT_EQ(s.FindIgnoreCase(0u, 3), -1);
    EXPECT_EQ(s.Find("needle", 0), 13);
    EXPECT_EQ(s.Find("", 5), 5);
    EXPECT_EQ(s.FindIgnoreCase("", 3), 3);
    EXPECT_EQ(String().FindIgnoreCase("", 3), -1);
    EXPECT_EQ(String().Find("x", 0), -1);
    EXPECT_EQ(s.FindIgnoreCase("[", 0), -1); // '[' and '{' differ in the bit that tells cases apart
    EXPECT_EQ(String("{").FindIgnoreCase('[', 0), -1);

    // Against the plain definition, over a small alphabet so that near hits abound; blocks of exact size.
    auto random = ::Test::Random(2);
    for (int round = 0; round < 3000; ++round)
    {
        std::string text(random() % 40, ' ');
        std::string wanted(1 + random() % 3, ' ');
        for (auto* t : {&text, &wanted})
            for (char& c : *t)
                c = "aAbB\xC4\xE4"[random() % (round % 2 ? 4 : 6)];
        const unsigned start = static_cast<unsigned>(random() % (text.size() + 1));
        int expected = -1;
        for (std::size_t at = start; expected < 0 && at + wanted.size() <= text.size(); ++at)
            if (strncasecmp(text.c_str() + at, wanted.c_str(), wanted.size()) == 0)
                expected = static_cast<int>(at);
        const auto block = ::Test::Exact(text.c_str(), text.size() + 1);
        const char* exact = reinterpret_cast<const char*>(block.get());
        ASSERT_EQ(String::FindIgnoreCase(exact, static_cast<unsigned>(text.size()), wanted.c_str(), start), expected)
            << text << " / " << wanted << " from " << start;
        if (wanted.size() == 1)
        {
            ASSERT_EQ(String::FindIgnoreCase(exact, static_cast<unsigned char>(wanted[0]), start), expected);
        }
    }
}

// Random edits against std::string, with positions and counts on and behind the edges, sources in the string itself
// among them, and now and then an exhausted heap, which must leave everything as it was.
TEST(String, EditsAsAModelDoes)
{
    auto random = ::Test::Random(3);
    String s;
    std::string model;
    for (int round = 0; round < 30'000; ++round)
    {
        const unsigned pos = static_cast<unsigned>(random() % (model.size() + 3));
        const unsigned n =
            random() % 10 == 0 ? UINT_MAX - static_cast<unsigned>(random() % 3) : static_cast<unsigned>(random() % 20);
        const std::string source(random() % 20, static_cast<char>('a' + random() % 26));
        const std::string old = model;
        const unsigned operation = static_cast<unsigned>(random() % 12);
        SCOPED_TRACE(testing::Message() << "round " << round << " operation " << operation << " pos " << pos << " n "
                                        << n);
        const bool fails = random() % 20 == 0;
        bool failed = false;
        {
            std::unique_ptr<Zem::AllocFailureForTest> failure;
            if (fails)
                failure = std::make_unique<Zem::AllocFailureForTest>();
            switch (operation)
            {
            case 0:
                s.Ins(source.c_str(), pos);
                if (pos <= model.size())
                    model.insert(pos, source);
                break;
            case 1:
                if (n > 1000 && pos <= model.size())
                    break; // gigabytes
                s.Ins('Q', pos, n);
                if (pos <= model.size())
                    model.insert(pos, n, 'Q');
                break;
            case 2:
                s.Del(pos, n);
                if (pos < model.size())
                    model.erase(pos, n);
                break;
            case 3:
                s.Left(n);
                model = model.substr(0, n);
                break;
            case 4:
                s.Right(n);
                if (n < model.size())
                    model.erase(0, model.size() - n);
                break;
            case 5:
                s += source.c_str();
                model += source;
                break;
            case 6:
                if (pos < model.size()) // a tail of itself before itself
                {
                    s.Ins(static_cast<const char*>(s) + pos, pos / 2);
                    model.insert(pos / 2, std::string(model, pos));
                }
                break;
            case 7:
                s.Strip("aeiouQ");
                std::erase_if(model, [](char c) { return std::strchr("aeiouQ", c) != nullptr; });
                break;
            case 8:
                s.ToUpper();
                for (char& c : model)
                    c = static_cast<char>(std::toupper(c));
                break;
            case 9:
                s += s;
                model += model;
                break;
            case 10:
                s.SetLength(n < 1000 ? n : 5);
                model = model.substr(0, n < 1000 ? n : 5);
                break;
            case 11:
                s = source.c_str();
                model = source;
                break;
            }
            failed = fails && Zem::AllocFailureForTest::HasFailed();
        }
        if (failed)
            model = old;
        ASSERT_EQ(Text(s), model);
        ExpectSound(s);
        if (model.size() > 300)
        {
            s.Left(10);
            model.resize(10);
        }
    }
}

TEST(String, MovesWithoutCopying)
{
    String a = "text that moves";
    const char* text = a;
    String b = std::move(a);
    EXPECT_EQ(static_cast<const char*>(b), text);
    ExpectSound(a);
    String c = "other";
    c = std::move(b);
    EXPECT_EQ(static_cast<const char*>(c), text);
    EXPECT_EQ(static_cast<const char*>(b), nullptr);
    String& self = c;
    c = std::move(self);
    EXPECT_EQ(Text(c), "text that moves");
}

TEST(PlatformText, FoldsKeysAlikeInEveryLocale)
{
    EXPECT_EQ(Zem::Platform::CompareIgnoreCaseAscii("NoLog", "nolOG"), 0);
    EXPECT_LT(Zem::Platform::CompareIgnoreCaseAscii("a", "B"), 0);
    EXPECT_GT(Zem::Platform::CompareIgnoreCaseAscii("ab", "A"), 0);
    EXPECT_NE(Zem::Platform::CompareIgnoreCaseAscii("\xC4", "\xE4"), 0);
    EXPECT_GT(Zem::Platform::CompareIgnoreCaseAscii("\xE4", "z"), 0);
}

} // namespace
