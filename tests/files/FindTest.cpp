// Searches: what one view over folders, archives and links shows, in which order, and what becomes of it when folders
// change, searches are copied or the disk fails.

#include "files/Mounted.h"
#include "support/FaultPlan.h"
#include "support/Support.h"

#include <Bedrock/files/FileFind.h>
#include <Bedrock/files/NameTree.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <map>
#include <set>

using namespace ::Test;
using Zem::File;
using Zem::FileFind;
using Zem::PString;

namespace
{

using Names = std::vector<std::string>;

// An archive with members of these names, each holding its own name.
void PutArchive(const std::string& path, const Names& members)
{
    const Mounted maker("maker", path, true);
    for (const auto& name : members)
        ASSERT_EQ(Store("maker:" + name, Bytes(name.begin(), name.end())), "");
}

// All names that a search delivers from here on, folders with a "/" behind.
Names Rest(FileFind& found, bool more)
{
    Names names;
    for (; more; more = found.Next())
        names.push_back(found.name.Text() + std::string(found.IsDir() ? "/" : ""));
    return names;
}

Names List(const std::string& pattern)
{
    FileFind found;
    const bool more = found.Open(pattern.c_str());
    return Rest(found, more);
}

std::string Lower(std::string text)
{
    for (char& c : text)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

std::string Dumped(FileFind& found)
{
    testing::internal::CaptureStdout();
    found.Dump();
    std::fflush(stdout);
    return testing::internal::GetCapturedStdout();
}

} // namespace

TEST(Find, MergesLocationsInReverseOrder)
{
    const Directory directory;
    Put("a/File.TXT", "in a");
    Put("a/a.tga");
    Put("a/sub/deep.txt");
    Put("b/file.txt", "b");
    Put("b/b.bmp", "12345");
    Put("b/.hidden");
    PutArchive("c.arc", {"z.tga", "FILE.txt", "sub/deep.txt", "sub/more/x", "Sub/other.txt", "a.tga"});
    PutArchive("d.arc", {"only-linked.tga", "z.tga"});
    const Mounted other("other", "d.arc", false);
    const Mounted mounted("data", "a/", false);
    File::Subst("data", "b/", false);
    File::Subst("data", "c.arc", false);
    File::SubstLink("data", "other");

    // Links first, then the oldest location; each name in the spelling of where it was seen first.
    EXPECT_EQ(List("data:*"),
              (Names{"only-linked.tga", "z.tga", "./", "../", "File.TXT", "a.tga", "sub/", ".hidden", "b.bmp"}));
    EXPECT_EQ(List("data:*.tga;*.bmp"), (Names{"only-linked.tga", "z.tga", "a.tga", "b.bmp"}));
    EXPECT_EQ(List("data:/sub\\*"), (Names{"./", "../", "deep.txt", "more/", "other.txt"}));
    EXPECT_EQ(List("data:sub/*.*"), (Names{"./", "../", "deep.txt", "other.txt"})); // an archive's folders have no dot
    EXPECT_EQ(List("data:none/*"), Names{});
    EXPECT_EQ(List("data:../*"), Names{});
    EXPECT_EQ(List("data:*/deep.txt"), Names{});
    EXPECT_EQ(List("data:s?b/deep.txt"), Names{});
    EXPECT_EQ(List("nosuch:*"), Names{});
    EXPECT_EQ(List("data:" + std::string(300, 'x')), Names{});

    FileFind found;
    ASSERT_TRUE(found.Open("FILE.txt", "data"));
    EXPECT_STREQ(found.name, "File.TXT");
    EXPECT_EQ(found.size, 4u);
    EXPECT_EQ(found.storedSize, 4u);
    EXPECT_GT(found.timeWrite.seconds, 1000000000);
    EXPECT_EQ(found.attributes, 0);
    EXPECT_FALSE(found.Next());
    EXPECT_FALSE(found.Next());
    EXPECT_EQ(Dumped(found), "\n0. file.txt\n");
    found.Close();
    EXPECT_EQ(Dumped(found), "\n");
    EXPECT_FALSE(found.Open("a*b/x", "nosuch"));
    try
    {
        found.Open("x", "nosuch");
        ADD_FAILURE();
    }
    catch (const Zem::FileEx& failure)
    {
        EXPECT_STREQ(failure.File(), "FileFind");
        EXPECT_STREQ(failure.Reason(), "Open() Subst not found");
    }
    ASSERT_TRUE(found.Open("data:.hid*"));
    EXPECT_TRUE(found.IsHidden());
    ASSERT_FALSE(found.Next());
    ASSERT_TRUE(found.Open("data:sub/mor*"));
    EXPECT_EQ(found.attributes, 0x11);
    // A search holds on to what it still has to list.
    EXPECT_THROW(File::Subst("other", nullptr, false); File::Subst("data", nullptr, false), Zem::FileEx);
    EXPECT_EQ(Rest(found, found.Next()), Names{});
    found.Close();
}

TEST(Find, ListsAPlainFolder)
{
    const Directory directory;
    Put("f/B.txt", "bb");
    Put("f/a.txt");
    Put("f/b.TXT");
    Put("f/c");
    Put("f/sub/x");
    std::filesystem::permissions("f/c", std::filesystem::perms::owner_read);
    std::filesystem::create_symlink("nowhere", "f/dangling");
    std::filesystem::create_symlink("sub", "f/linked");
    EXPECT_EQ(List("f/*"), (Names{"./", "../", "B.txt", "a.txt", "c", "dangling", "linked/", "sub/"}));
    EXPECT_EQ(List("f\\*.txt"), (Names{"B.txt", "a.txt"}));
    EXPECT_EQ(List("*"), (Names{"./", "../", "f/"}));
    EXPECT_EQ(List(""), Names{});
    EXPECT_EQ(List("g/*"), Names{});
    EXPECT_EQ(List("f/c/*"), Names{});
    EXPECT_EQ(List((directory / "f/*.*")), (Names{"./", "../", "B.txt", "a.txt"}));

    FileFind found;
    ASSERT_TRUE(found.Open("f/?*"));
    EXPECT_EQ(Dumped(found), "\n"); // the first of a plain folder is not noted
    ASSERT_TRUE(found.Next());
    ASSERT_TRUE(found.Next());
    EXPECT_STREQ(found.name, "B.txt");
    EXPECT_EQ(found.size, 2u);
    EXPECT_EQ(Dumped(found), "\n0. ..\n1. b.txt\n");
    ASSERT_TRUE(found.Next());
    ASSERT_TRUE(found.Next());
    EXPECT_EQ(found.attributes, 1);

    // The names are those of the beginning; what is gone is passed over, wherever the current folder is.
    std::filesystem::remove("f/dangling");
    Put("f/zz");
    const auto here = std::filesystem::current_path();
    std::filesystem::current_path("/");
    FileFind copy(found);
    EXPECT_EQ(Rest(found, found.Next()), (Names{"linked/", "sub/"}));
    EXPECT_EQ(Rest(copy, copy.Next()), (Names{"linked/", "sub/"}));
    std::filesystem::current_path(here);
    // Names that were delivered stay known until Close.
    EXPECT_EQ(Rest(copy, copy.Open("f/*")), (Names{"zz"}));
    copy.Close();
    EXPECT_EQ(Rest(copy, copy.Open("f/z*")), (Names{"zz"}));
}

// A copy in the middle of anything goes its own way.
TEST(Find, CopiesGoOnByThemselves)
{
    const Directory directory;
    Put("a/n1");
    Put("a/n2");
    PutArchive("b.arc", {"n2", "n3", "n4"});
    PutArchive("c.arc", {"n5"});
    const Mounted mounted("data", "c.arc", false);
    File::Subst("data", "a/", false);
    File::Subst("data", "b.arc", false);
    const Names all{"n5", "n1", "n2", "n3", "n4"};
    for (std::size_t stop = 0; stop < all.size(); ++stop)
    {
        SCOPED_TRACE(stop);
        FileFind found;
        ASSERT_TRUE(found.Open("data:n?"));
        for (std::size_t i = 0; i < stop; ++i)
            ASSERT_TRUE(found.Next());
        FileFind copy;
        copy.Open("data:*");
        copy = found;
        EXPECT_STREQ(copy.name, all[stop].c_str());
        const Names rest(all.begin() + static_cast<std::ptrdiff_t>(stop) + 1, all.end());
        EXPECT_EQ(Rest(found, found.Next()), rest);
        EXPECT_EQ(Rest(copy, copy.Next()), rest);
        EXPECT_EQ(Dumped(copy), Dumped(found));
    }
    // Members that come while the archive is listed are delivered too.
    const Mounted grows("grows", "b.arc", true);
    FileFind found;
    ASSERT_TRUE(found.Open("grows:n*"));
    ASSERT_EQ(Store("grows:nlate", Text(10)), "");
    EXPECT_EQ(Rest(found, found.Next()), (Names{"n3", "n4", "nlate"}));
}

// What the disk does not deliver is where the names end: never a crash, never a handle left open.
TEST(Find, EndsWhereTheDiskFails)
{
    const Directory directory;
    for (int i = 0; i < 5; ++i)
        Put("a/" + std::to_string(i));
    PutArchive("b.arc", {"p", "q"});
    const Names all = [] { return Names{"p", "q", "./", "../", "0", "1", "2", "3", "4"}; }();
    const Mounted mounted("data", "b.arc", false);
    File::Subst("data", "a/", false);
    ASSERT_EQ(List("data:*"), all);
    for (int n = 1;; ++n)
    {
        FaultPlan plan(FaultPlan::Fail, n, EIO);
        const Names names = List("data:*");
        EXPECT_EQ(plan.OpenHandles(), 0) << plan.What();
        EXPECT_TRUE(
            std::includes(all.begin(), all.end(), names.begin(), names.end(),
                          [&](const std::string& a, const std::string& b)
                          { return std::find(all.begin(), all.end(), a) < std::find(all.begin(), all.end(), b); }))
            << plan.What();
        if (!plan.Reached())
            break;
    }
}

TEST(Find, TreeKeepsNamesSorted)
{
    auto random = Random(371);
    for (int round = 0; round < 60; ++round)
    {
        Zem::NameTree tree;
        std::set<std::string> model;
        std::set<std::string> shown;
        const int count = round < 40 ? round : 3000;
        std::vector<std::string> names;
        for (int i = 0; i < count; ++i)
            names.push_back("name" + std::to_string(random() % (2 * static_cast<unsigned>(count) + 1)) +
                            (random() % 3 ? ".TXT" : ".txt"));
        if (round % 3 == 0)
            std::sort(names.begin(), names.end());
        for (const auto& name : names)
        {
            const bool silent = random() % 50 == 0;
            const bool fresh = model.insert(Lower(name)).second;
            ASSERT_EQ(tree.Add(name.c_str(), silent), fresh ? Zem::NameTree::Added::New : Zem::NameTree::Added::Known);
            if (fresh && !silent)
                shown.insert(Lower(name));
            if (count < 40)
            {
                ASSERT_TRUE(tree.CheckInvariants());
            }
        }
        ASSERT_TRUE(tree.CheckInvariants());
        const Zem::NameTree copy(tree);
        ASSERT_TRUE(copy.CheckInvariants());
        for (const Zem::NameTree* each : {static_cast<const Zem::NameTree*>(&tree), &copy})
        {
            std::vector<std::string> walked;
            each->Walk([&](const char* name) { walked.push_back(name); });
            ASSERT_EQ(walked, std::vector<std::string>(shown.begin(), shown.end()));
        }
    }
}

// Random trees of folders, archives and links, and searches in them, against a model of the merged view.
TEST(Find, MatchesAModelOfTheMergedView)
{
    auto random = Random(370);
    const auto pick = [&](std::size_t n) { return static_cast<std::size_t>(random() % n); };
    const auto anyCase = [&](std::string text)
    {
        for (char& c : text)
            c = static_cast<char>(pick(3)                                       ? c
                                  : std::islower(static_cast<unsigned char>(c)) ? std::toupper(c)
                                                                                : std::tolower(c));
        return text;
    };
    const auto anyName = [&]
    {
        static const char* const folders[] = {"", "", "d1/", "d2/", "d1/e.x/"};
        static const char* const kinds[] = {"", ".txt", ".tga", ".tar.gz"};
        return anyCase(folders[pick(5)]) + anyCase("f" + std::to_string(pick(6)) + kinds[pick(4)]);
    };
    struct Location
    {
        bool archive;
        std::string path;
        Names members; // of an archive, in its order
    };
    struct Found
    {
        std::string name;
        bool folder;
        std::uint64_t size;
        bool operator==(const Found&) const = default;
    };
    // What one location has in `folder`, as a search visits it.
    const auto listed = [](const Location& location, const std::string& folder, const std::string& wildcard)
    {
        std::vector<Found> found;
        if (location.archive)
        {
            for (const auto& member : location.members)
            {
                if (strncasecmp(member.c_str(), folder.c_str(), folder.size()) != 0)
                    continue;
                const std::string rest = member.substr(folder.size());
                const std::size_t slash = rest.find('/');
                const char* subdir = nullptr;
                if (File::Path::IsMatch(rest.c_str(), wildcard.c_str(), &subdir))
                    found.push_back({rest, false, member.size()});
                else if (subdir == rest.c_str() + slash)
                    found.push_back({rest.substr(0, slash), true, member.size()});
            }
            return found;
        }
        std::filesystem::path at = location.path;
        for (const auto& level : std::filesystem::path(folder.substr(0, folder.empty() ? 0 : folder.size() - 1)))
        {
            std::string best;
            for (const auto& entry : std::filesystem::directory_iterator(at))
            {
                const std::string name = entry.path().filename();
                if (strcasecmp(name.c_str(), level.c_str()) == 0 && best != level &&
                    (best.empty() || name == level || name < best))
                    best = name;
            }
            if (best.empty() || !std::filesystem::is_directory(at / best))
                return found;
            at /= best;
        }
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(at))
            names.insert(entry.path().filename());
        Names ordered{".", ".."};
        ordered.insert(ordered.end(), names.begin(), names.end());
        for (const auto& name : ordered)
            if (const bool isFolder = std::filesystem::is_directory(at / name);
                File::Path::IsMatch(name.c_str(), wildcard.c_str()))
                found.push_back({name, isFolder, isFolder ? 0 : std::filesystem::file_size(at / name)});
        return found;
    };

    for (int round = 0; round < 25; ++round)
    {
        SCOPED_TRACE(round);
        const Directory directory;
        const std::string words[] = {"fa", "fb", "fc"};
        std::map<std::string, std::vector<Location>> chains; // newest first
        std::map<std::string, Names> links;
        int serial = 0;
        for (const auto& word : words)
            for (std::size_t n = pick(4); n-- > 0;)
            {
                Location location{pick(2) == 0, "l" + std::to_string(serial++), {}};
                std::set<std::string> folded; // an archive keeps the first of a name
                for (std::size_t files = pick(12); files-- > 0;)
                {
                    const std::string name = anyName();
                    if (!location.archive)
                        Put(location.path + "/" + name, name + "+");
                    else if (folded.insert(Lower(name)).second)
                        location.members.push_back(name);
                }
                if (location.archive)
                    PutArchive(location.path, location.members);
                else
                {
                    std::filesystem::create_directories(location.path);
                    location.path += "/";
                }
                File::Subst(word.c_str(), location.path.c_str(), false);
                chains[word].insert(chains[word].begin(), location);
            }
        for (const auto& [from, to] : {std::pair("fa", "fb"), std::pair("fb", "fc"), std::pair("fa", "fc")})
            if (pick(2) && chains.count(from) && chains.count(to))
            {
                File::SubstLink(from, to);
                links[from].push_back(to);
            }
        const std::function<void(const std::string&, std::vector<const Location*>&)> walk =
            [&](const std::string& word, std::vector<const Location*>& to)
        {
            for (const auto& location : chains[word])
                to.push_back(&location);
            for (const auto& link : links[word])
                walk(link, to);
        };
        for (int search = 0; search < 40; ++search)
        {
            static const char* const folders[] = {"", "", "d1/", "d1/e.x/", "d2/", "none/", "f1.txt/"};
            static const char* const wildcards[] = {"*",  "*.*",    "*.",   "f*", "*.txt;*.tga", "?1*",
                                                    "d*", "f2.tga", "*;f1", "",   "e?x",         "f?.t*;d?"};
            const std::string& word = words[pick(3)];
            const std::string folder = anyCase(folders[pick(7)]);
            const std::string wildcard = anyCase(wildcards[pick(12)]);
            if (!chains.count(word) || (wildcard.empty() && !folder.empty()))
                continue;
            std::vector<const Location*> order;
            walk(word, order);
            std::vector<Found> expected;
            std::set<std::string> seen;
            for (auto location = order.rbegin(); location != order.rend(); ++location)
                for (const auto& found : listed(**location, folder, wildcard))
                    if (seen.insert(Lower(found.name)).second)
                        expected.push_back(found);
            std::string pattern = word + ":" + folder + wildcard;
            if (pick(4) == 0)
                std::replace(pattern.begin(), pattern.end(), '/', '\\');
            std::vector<Found> got;
            FileFind found;
            for (bool more = found.Open(pattern.c_str()); more; more = found.Next())
                got.push_back({found.name.Text(), found.IsDir(), found.size});
            ASSERT_EQ(got.size(), expected.size()) << pattern;
            for (std::size_t i = 0; i < got.size(); ++i)
                ASSERT_EQ(got[i], expected[i]) << pattern << " " << got[i].name << " " << expected[i].name;
            std::string dump = "\n";
            int number = 0;
            for (const auto& name : seen)
                dump += std::to_string(number++) + ". " + name + "\n";
            ASSERT_EQ(Dumped(found), dump);
        }
        for (const auto& word : words)
            if (chains.count(word))
                File::Subst(word.c_str(), nullptr, false);
    }
}
