#include "support/Support.h"

#include <Bedrock/files/File.h>

#include <cctype>
#include <functional>

using Zem::File;

TEST(Path, EditsInPlace)
{
    using P = File::Path;
    const struct
    {
        const char* what;
        const char* before;
        std::function<void(P&)> edit;
        const char* after;
    } rows[] = {
        {"DelPath", "data:a/b.txt", [](P& p) { p.DelPath(); }, "b.txt"},
        {"DelPath, colon alone", "data:b", [](P& p) { p.DelPath(); }, "b"},
        {"DelPath, none", "b.txt", [](P& p) { p.DelPath(); }, "b.txt"},
        {"DelName", "a/file.txt", [](P& p) { p.DelName(); }, "a/"},
        {"DelName, none", "file.txt", [](P& p) { p.DelName(); }, ""},
        {"DelFileName", "a/b.txt", [](P& p) { p.DelFileName(); }, "a/.txt"},
        {"DelFileName, no extension", "a.d/b", [](P& p) { p.DelFileName(); }, "a.d/"},
        {"DelFileName, two dots", "a\\b.c.d", [](P& p) { p.DelFileName(); }, "a\\.d"},
        {"DelDrive", "C:/a:b", [](P& p) { p.DelDrive(); }, ":/a:b"},
        {"Del inside", "abcdef", [](P& p) { p.Del(1, 2); }, "adef"},
        {"Del past the end", "abcdef", [](P& p) { p.Del(4, 0xFFFFFFFF); }, "abcd"},
        {"Del at the end", "abc", [](P& p) { p.Del(3, 1); }, "abc"},
        {"PrevDir", "a/b/c.txt", [](P& p) { p.PrevDir(); }, "a/c.txt"},
        {"PrevDir of a folder", "a/b/", [](P& p) { p.PrevDir(); }, "a/"},
        {"PrevDir, one separator", "a/b", [](P& p) { p.PrevDir(); }, "a/b"},
        {"RootDir", "a\\b/c/d.txt", [](P& p) { p.RootDir(); }, "a\\d.txt"},
        {"RootDir, none", "d.txt", [](P& p) { p.RootDir(); }, "d.txt"},
        {"SetExt with its dot", "x.bmp", [](P& p) { p.SetExt(".tga"); }, "x.tga"},
        {"SetExt without", "x.bmp", [](P& p) { p.SetExt("tga"); }, "x.tga"},
        {"SetExt of null", "x.bmp", [](P& p) { p.SetExt(nullptr); }, "x"},
        {"SetExt cuts at a folder's dot", "a.b/c", [](P& p) { p.SetExt("d"); }, "a.d"},
        {"Make, empty folder", "?", [](P& p) { p.Make("", "/x"); }, "/x"},
        {"Make drops a file name", "?", [](P& p) { p.Make("data/file.txt", "/x"); }, "data/x"},
        {"Make, a bare word", "?", [](P& p) { p.Make("data", "x"); }, "data:/x"},
        {"Make, dot", "?", [](P& p) { p.Make(".", "x"); }, "./x"},
        {"Make, drive", "?", [](P& p) { p.Make("C:", "x"); }, "C:/x"},
        {"Make from itself", "a/b", [](P& p) { p.Make(p, p); }, "a/a/b"},
        {"AddPath", "a/", [](P& p) { p.AddPath("/b"); }, "a/b"},
        {"AddPath to nothing", "", [](P& p) { p.AddPath("b"); }, "b"},
        {"AddPath adds the separator", "a", [](P& p) { p.AddPath("bcd", 2); }, "a/bc"},
        {"AddPath of null", "a", [](P& p) { p.AddPath(nullptr); }, "a/"},
        {"Add, bounded", "a", [](P& p) { p.Add("bcd", 2); }, "abc"},
    };
    for (const auto& row : rows)
    {
        P path(row.before);
        row.edit(path);
        EXPECT_STREQ(path, row.after) << row.what;
    }

    P rest("a/b\\c");
    for (const char* piece : {"a", "/b", "\\c", "", ""})
        EXPECT_STREQ(rest.ExtractFirstPath(), piece);

    EXPECT_TRUE(P("x.tga").IsExt(".TGA"));
    EXPECT_FALSE(P("x").IsExt("tga"));
    EXPECT_FALSE(P("tga").IsExt("tga"));
    EXPECT_FALSE(P("a.b/c").IsExt("b/c"));
    EXPECT_TRUE(P("").IsExt(nullptr));
    EXPECT_FALSE(P("x").IsExt(nullptr));
}

// What does not fit changes nothing; what just fits does.
TEST(Path, NeverLeavesItsBytes)
{
    const std::string full(259, 'a');
    const std::string nearly(255, 'b');
    struct
    {
        std::uint8_t before[16];
        File::Path path;
        std::uint8_t after[16];
    } fenced;
    std::memset(fenced.before, 0xA5, 16);
    std::memset(fenced.after, 0xA5, 16);
    File::Path& path = fenced.path;
    path = "old";
    path = (full + "a").c_str();
    EXPECT_STREQ(path, "old");
    path = full.c_str();
    EXPECT_EQ(path.Length(), 259u);
    path.Add("x");
    path.AddPath("x");
    path.AddPath(nullptr);
    path.SetExt("x");
    path.Make(full.c_str(), "x");
    EXPECT_STREQ(path, full.c_str());
    path = nearly.c_str();
    path.AddPath("cde");
    EXPECT_STREQ(path, (nearly + "/cde").c_str());
    path.DelPath();
    path.Make(nearly.c_str(), "cd"); // 255 + ":/" + 2
    EXPECT_STREQ(path, (nearly + ":/cd").c_str());
    for (int i = 0; i < 16; ++i)
        EXPECT_TRUE(fenced.before[i] == 0xA5 && fenced.after[i] == 0xA5);
}

TEST(Path, MatchesWildcards)
{
    const struct
    {
        const char* name;
        const char* pattern;
        bool match;
        int subdir; // index in the name, -1 for none
    } rows[] = {
        {"file.txt", "*.*", true, -1},
        {"file", "*.*", false, -1},
        {"file", "*", true, -1},
        {"file", "*.", true, -1},
        {"FILE.TXT", "file.txt", true, -1},
        {"a\\b.txt", "a/b.txt", true, -1},
        {"file.txt", "*.bmp;*.txt", true, -1},
        {"file.bmp", "*.bmp;*.txt", true, -1},
        {"file.tga", "*.bmp;*.txt", false, -1},
        {"a/b.txt", "a/*.bmp;*.txt", true, -1},
        {"b.txt", "a/*.bmp;*.txt", false, -1},
        {"a/b.txt", "*.txt", false, -1},
        {"a/b/c.txt", "a/*.txt", false, -1},
        {"a/b/c.txt", "a/*", false, 3},
        {"a/b/c.txt", "a/", false, 1},
        {"/b", "/", false, -1},
        {"a/b/c", "*/*/*", true, -1},
        {"abc/d", "a*c/d", true, -1},
        {"abc", "a?c", true, -1},
        {"a/c", "a?c", false, -1},
        {"a", "a?", false, -1},
        {"abab", "*ab", true, -1},
        {"xaab", "*ab", true, -1},
        {"a.b.c", "*.c", true, -1},
        {"", "*", true, -1},
        {"", "", true, -1},
        {"a", "", false, -1},
        {"a", ";a", true, -1},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(std::string(row.name) + " against " + row.pattern);
        const char* subdir = "unset";
        EXPECT_EQ(File::Path::IsMatch(row.name, row.pattern, &subdir), row.match);
        EXPECT_EQ(File::Path::IsMatch(row.name, row.pattern), row.match);
        if (!row.match)
        {
            EXPECT_EQ(subdir ? subdir - row.name : -1, row.subdir);
        }
    }
}

namespace
{

// All ways of a star tried, one file name: what the rules say.
bool Reference(const char* name, const char* pattern)
{
    if (*pattern == '*')
        return Reference(name, pattern + 1) || (*name && *name != '/' && Reference(name + 1, pattern)) ||
               (!*name && std::strcmp(pattern, "*.") == 0);
    if (!*name || !*pattern)
        return !*name && !*pattern;
    if (*pattern == '?')
        return *name == '/' ? Reference(name, pattern + 1) : Reference(name + 1, pattern + 1);
    return std::tolower(*name) == std::tolower(*pattern) && Reference(name + 1, pattern + 1);
}

} // namespace

// A match is always one by the rules; with one star the single way back finds every one.
TEST(Path, MatchesOnlyWhatTheRulesAllow)
{
    auto random = ::Test::Random(2);
    int matches = 0;
    for (int i = 0; i < 200000; ++i)
    {
        std::string name;
        std::string pattern;
        for (auto n = random() % 8; n-- > 0;)
            name += "abAB.."[random() % 6];
        for (auto n = random() % 7; n-- > 0;)
            pattern += "abAB.?**"[random() % 8];
        const bool got = File::Path::IsMatch(name.c_str(), pattern.c_str());
        const bool rules = Reference(name.c_str(), pattern.c_str());
        const auto stars = std::count(pattern.begin(), pattern.end(), '*');
        if (stars <= 1)
        {
            ASSERT_EQ(got, rules) << name << " against " << pattern;
        }
        else
            ASSERT_TRUE(rules || !got) << name << " against " << pattern;
        matches += got;
    }
    EXPECT_GT(matches, 5000);
}
