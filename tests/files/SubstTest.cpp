// Substitutes: which location serves a name, what links see, what is refused, and a random name space against a model.

#include "files/Mounted.h"
#include "support/Support.h"

#include <Bedrock/files/FileSubstList.h>

#include <algorithm>
#include <functional>
#include <map>
#include <set>

using namespace ::Test;
using Zem::File;
using Zem::PString;

namespace
{

Bytes Plain(const std::string& text)
{
    return Bytes(text.begin(), text.end());
}

std::string Thrown(const std::function<void()>& call)
{
    try
    {
        call();
    }
    catch (const Zem::FileEx& failure)
    {
        return std::string(failure.File()) + ": " + failure.Reason();
    }
    return "";
}

void Link(const char* name, const char* other)
{
    File::SubstLink(name, other);
}

} // namespace

TEST(Subst, AsksLocationsNewestFirstThenLinks)
{
    const Directory directory;
    Put("a/f", "a");
    Put("a/only", "only a");
    Put("b/f", "b");
    Put("c/f", "c");
    Put("c/far", "far");
    Put("late/far", "late");
    const Mounted other("other", "c/", true);
    const Mounted mounted("xs", "a/", false);
    Link("xs", "other");
    File::Subst("xs", "b/", false);
    EXPECT_EQ(Get("xs:f"), "b");
    EXPECT_EQ(Get("xs:/f"), "b");
    EXPECT_EQ(Get("xs:only"), "only a");
    EXPECT_EQ(Get("xs:far"), "far");
    File::Subst("xs", "late/", false); // goes in front of the link
    EXPECT_EQ(Get("xs:far"), "late");
    EXPECT_EQ(Get("xs:none"), "(none)");

    // Who really has it.
    PString word = "xs";
    EXPECT_TRUE(File::Exists(word, "f"));
    EXPECT_EQ(word, PString("xs"));
    Put("c/deep", "deep");
    EXPECT_TRUE(File::Exists(word, "deep"));
    EXPECT_EQ(word, PString("other"));
    word = "xs";
    EXPECT_FALSE(File::Exists(word, "none"));
    EXPECT_EQ(word, PString("xs"));

    // Only opening and asking see through links.
    char path[260] = "xs:deep";
    File::Time time{5};
    EXPECT_FALSE(File::GetStamp(time, "xs:deep"));
    EXPECT_FALSE(File::Unlink("xs:deep"));
    EXPECT_FALSE(File::Rename("xs:deep", "xs:d"));
    EXPECT_FALSE(File::TrueName(path));
    EXPECT_STREQ(path, "deep");
    std::strcpy(path, "xs:/f");
    EXPECT_TRUE(File::TrueName(path));
    EXPECT_STREQ(path, "b/f");
    EXPECT_TRUE(File::GetStamp(time, "xs:f"));
    EXPECT_GT(time.seconds, 1000000000);

    // Writing passes what is read-only, through the link too.
    EXPECT_EQ(Store("xs:new", Plain("new")), "");
    EXPECT_EQ(Get("c/new"), "new");
    EXPECT_FALSE(File::Unlink("xs:f"));

    // A dead link serves nothing, and comes to life no more.
    File::Subst("other", nullptr, false);
    EXPECT_EQ(Get("xs:deep"), "(none)");
    EXPECT_EQ(Store("xs:new", Plain("new")), "open");
    File::Subst("other", "c/", true);
    EXPECT_EQ(Get("xs:deep"), "(none)");
}

TEST(Subst, WritesDeletesAndRenamesInFolders)
{
    const Directory directory;
    Put("a/f", "a");
    Put("b/f", "b");
    Put("b/g", "g");
    const Mounted mounted("xs", "a/", true);
    File::Subst("xs", "b/", true);
    EXPECT_TRUE(File::Rename("xs:g", "xs:h"));
    EXPECT_EQ(Get("b/h"), "g");
    EXPECT_FALSE(File::Rename("xs:h", "xs:f")); // taken in b, and a has no h
    EXPECT_EQ(Get("b/f"), "b");
    EXPECT_TRUE(File::Unlink("xs:f")); // both
    EXPECT_FALSE(std::filesystem::exists("a/f") || std::filesystem::exists("b/f"));
    EXPECT_FALSE(File::Unlink("xs:f"));

    // A folder that is not there comes with the first write, and is nothing until then.
    const Mounted fresh("fresh", "new/deep/", true);
    EXPECT_FALSE(File::Exists("fresh:f"));
    EXPECT_FALSE(File::Unlink("fresh:f"));
    EXPECT_FALSE(std::filesystem::exists("new"));
    EXPECT_EQ(Store("fresh:f", Text(40000), File::ModeWriteCompressed), "");
    EXPECT_EQ(std::filesystem::exists("new/deep/f"), true);
    EXPECT_LT(std::filesystem::file_size("new/deep/f"), 30000u);
    File file;
    ASSERT_TRUE(file.Open("fresh:f", File::ModeRead));
    EXPECT_STREQ(file.Name(), "new/deep/f");
    EXPECT_TRUE(file.IsCompressed());
    File second;
    EXPECT_TRUE(second.Open("fresh:f", File::ModeRead));
    EXPECT_EQ(Store("fresh:f", Plain("x")), "open"); // readers keep writers out
    second.Close();

    // Both ways at once needs a location that may be written.
    File both;
    ASSERT_TRUE(both.Open("xs:h", File::ModeReadPlain | File::ModeWrite));
    EXPECT_EQ(both.WriteLine("G"), 1u);
    both.Close();
    EXPECT_EQ(Get("xs:h"), "G");
    const Mounted fixed("fixed", "b/", false);
    EXPECT_EQ(both.Open("fixed:h", File::ModeReadPlain | File::ModeWrite), File::RES_FILENOTFOUND);
    EXPECT_EQ(Get("fixed:h"), "G");
}

// Names never lead out of a folder, whatever they look like.
TEST(Subst, NamesStayInTheirFolder)
{
    const Directory directory;
    Put("secret", "secret");
    Put("in/a/f", "f");
    Put("in/f", "top");
    const Mounted mounted("xs", "in/", true);
    for (const char* name : {"xs:../secret", "xs:a/../../secret", "xs:/../secret", "xs:..\\secret", "xs:./../secret",
                             "xs:a//../../secret", "xs:.\\..\\secret"})
    {
        EXPECT_EQ(Get(name), "(none)") << name;
        EXPECT_FALSE(File::Exists(name)) << name;
        EXPECT_FALSE(File::Unlink(name)) << name;
        EXPECT_FALSE(File::Rename(name, "xs:got")) << name;
        EXPECT_FALSE(File::Rename("xs:f", name)) << name;
        EXPECT_EQ(Store(name, Plain("x")), "open") << name;
    }
    EXPECT_EQ(Get("secret"), "secret");
    EXPECT_EQ(Get("xs:a/../f"), "top");
    EXPECT_EQ(Get("xs:a/./f"), "f");
    EXPECT_EQ(Get("xs:..f"), "(none)");
    Put("in/..f", "dots");
    EXPECT_EQ(Get("xs:..f"), "dots");

    // Names that do not fit are refused whole.
    const std::string longest(255, 'n');
    EXPECT_EQ(Store("xs:" + longest, Plain("x")), "");
    EXPECT_EQ(Get("xs:" + longest), "x");
    for (std::size_t n = 256; n < 600; n += n < 270 ? 1 : 50)
    {
        const std::string name = "xs:" + std::string(n / 2, 'a') + "/" + std::string(n - n / 2 - 1, 'b');
        EXPECT_EQ(Get(name), "(none)") << n;
        EXPECT_EQ(Store(name, Plain("x")), "open") << n;
    }
}

TEST(Subst, SaysWhatIsWrong)
{
    const Directory directory;
    Put("in/f", "f");
    EXPECT_EQ(Thrown([] { Link("xs", "nowhere"); }), "File: SubstLink(xs,nowhere) Other subst (nowhere) not found");
    EXPECT_FALSE(File::SubstExists("xs"));
    EXPECT_EQ(Thrown([] { File::Subst("xs", nullptr, false); }),
              "FileSubstList: Subst(xs) Closing non-existant subst?");
    EXPECT_EQ(Thrown([] { File::Subst("xs", "", false); }), "FileSubstList: Subst(xs) Path is empty");
    EXPECT_EQ(Thrown([] { File::Subst("xs", (std::string(259, 'p') + "/").c_str(), false); }),
              "FileSubstList: Subst(xs) Path is too long");
    EXPECT_FALSE(File::SubstExists("xs"));

    const Mounted a("sa", "in/", true);
    const Mounted b("sb", "in/", true);
    const Mounted c("sc", "in/", true);
    Link("sa", "sb");
    Link("sb", "sc");
    EXPECT_EQ(Thrown([] { Link("sc", "sa"); }), "FileSubstList: SubstLink(sc,sa) Links would close a circle");
    EXPECT_EQ(Thrown([] { Link("sa", "sa"); }), "FileSubstList: SubstLink(sa,sa) Links would close a circle");
    EXPECT_EQ(Get("sc:none"), "(none)");

    File file;
    ASSERT_TRUE(file.Open("sa:f", File::ModeRead));
    EXPECT_EQ(Thrown([] { File::Subst("sa", nullptr, false); }), "FileSubstList: Subst(sa) Files are open through it");
    EXPECT_EQ(Get("sa:f"), "f");
    File::Subst("sc", nullptr, false); // nothing open there
    file.Close();
    // A link that is dead leads nowhere, so this is no circle any more.
    File::Subst("sc", "in/", true);
    Link("sc", "sa");
    EXPECT_EQ(Get("sc:f"), "f");
}

// Folders, archives and links at random, against a model that holds what each location has.
TEST(Subst, MatchesAModelOfTheNameSpace)
{
    auto random = Random(35);
    const auto pick = [&](std::size_t n) { return static_cast<std::size_t>(random() % n); };
    struct Location
    {
        bool archive;
        bool writable;
        std::string path;
        std::map<std::string, std::string> files;
    };
    struct Name
    {
        std::vector<Location> locations; // newest first
        std::vector<std::string> links;
    };
    const Directory directory;
    std::map<std::string, Name> model;
    const std::string words[] = {"na", "nb", "nc", "nd"};
    const std::string names[] = {"a", "b", "d/c", "d/e"};
    int serial = 0;

    // The location that serves a name, and the substitute that it belongs to.
    std::function<std::pair<std::string, Location*>(const std::string&, const std::function<bool(Location&)>&)> first =
        [&](const std::string& word, const std::function<bool(Location&)>& test) -> std::pair<std::string, Location*>
    {
        for (Location& location : model[word].locations)
            if (test(location))
                return {word, &location};
        for (const std::string& link : model[word].links)
            if (const auto found = first(link, test); found.second)
                return found;
        return {"", nullptr};
    };
    std::function<bool(const std::string&, const std::string&)> leadsTo =
        [&](const std::string& from, const std::string& to)
    {
        return from == to || std::any_of(model[from].links.begin(), model[from].links.end(),
                                         [&](const std::string& link) { return leadsTo(link, to); });
    };

    for (int step = 0; step < 1500; ++step)
    {
        SCOPED_TRACE(step);
        const std::string word = words[pick(4)];
        const std::string name = names[pick(4)];
        const std::string full = word + ":" + name;
        const bool known = model.count(word) != 0;
        ASSERT_EQ(File::SubstExists(word.c_str()), known ? File::RES_OK : File::RES_SUBSTNOTFOUND);
        switch (pick(12))
        {
        case 0: // a new location
            if (model[word].locations.size() < 4)
            {
                Location location{pick(2) == 0, pick(3) != 0, "l" + std::to_string(serial++), {}};
                if (location.archive)
                {
                    // Made by a substitute that may write.
                    File::Subst("maker", location.path.c_str(), true);
                    File::Subst("maker", nullptr, false);
                }
                else
                {
                    location.path += "/";
                    std::filesystem::create_directories(location.path + "d");
                }
                File::Subst(word.c_str(), location.path.c_str(), location.writable);
                model[word].locations.insert(model[word].locations.begin(), location);
            }
            else
                File::Subst(word.c_str(), "missing/", false);
            break;
        case 1: // a link
        {
            const std::string other = words[pick(4)];
            if (!model.count(other) || model[word].links.size() > 2)
            {
                if (!known)
                    model.erase(word);
                break;
            }
            const bool circle = leadsTo(other, word);
            const std::string thrown = Thrown([&] { Link(word.c_str(), other.c_str()); });
            ASSERT_EQ(thrown.empty(), !circle) << thrown;
            if (!circle)
                model[word].links.push_back(other);
            break;
        }
        case 2: // remove one now and then
            if (known && pick(4) == 0)
            {
                File::Subst(word.c_str(), nullptr, false);
                model.erase(word);
                for (auto& [key, value] : model)
                    value.links.erase(std::remove(value.links.begin(), value.links.end(), word), value.links.end());
            }
            break;
        case 3: // delete
            if (known)
            {
                bool deleted = false;
                for (Location& location : model[word].locations)
                    if (!location.archive && location.writable)
                        deleted |= location.files.erase(name) != 0;
                ASSERT_EQ(File::Unlink(full.c_str()), deleted);
            }
            break;
        case 4:
        case 5:
        case 6: // write
            if (known)
            {
                const auto target = first(word, [](Location& location) { return location.writable; });
                const std::string text = "text " + std::to_string(step);
                // A compressed file on disk has no length that reading could stop at.
                const bool packs = target.second && target.second->archive && pick(2) == 0;
                ASSERT_EQ(Store(full, Plain(text), packs ? File::ModeWriteCompressed : File::ModeWrite),
                          target.second ? "" : "open");
                if (target.second && target.second->archive)
                    target.second->files.emplace(name, text); // the first version stays
                else if (target.second)
                    target.second->files[name] = text;
            }
            break;
        default: // read
            if (known)
            {
                const auto found = first(word, [&](Location& location) { return location.files.count(name) != 0; });
                ASSERT_EQ(Get(full), found.second ? found.second->files[name] : "(none)")
                    << full << " in " << (found.second ? found.second->path : "") << " of " << found.first;
                PString served = word.c_str();
                ASSERT_EQ(File::Exists(served, name.c_str()), found.second ? File::RES_OK : File::RES_FILENOTFOUND);
                ASSERT_EQ(served, PString(found.second ? found.first.c_str() : word.c_str()));
            }
        }
    }
    for (const auto& [word, value] : model)
        File::Subst(word.c_str(), nullptr, false);
}
