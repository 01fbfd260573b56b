// Names on disk in any case: what finds them, what writes keep, what a miss costs, and that folders which change are
// seen as they are.

#include "files/Mounted.h"
#include "support/FaultPlan.h"
#include "support/Support.h"

#include <Bedrock/files/FileFind.h>
#include <Bedrock/files/NameCase.h>
#include <Bedrock/platform/posix/SystemCalls.h>

#include <algorithm>
#include <map>

using namespace ::Test;
using Zem::File;
using Zem::Platform::systemCalls;

namespace
{

// Shows folders as if they had changed `age` seconds earlier than they did, on a file system whose clock ticks in
// steps of `tick` nanoseconds.
class FolderTimes
{
public:
    FolderTimes(std::int64_t newAge, std::int64_t newTick) : real(systemCalls)
    {
        age = newAge;
        tick = newTick;
        static Zem::Platform::SystemCalls below;
        below = real;
        systemCalls.stat = [](const char* name, struct stat* out) { return Change(below.stat(name, out), out); };
        systemCalls.fstat = [](int fd, struct stat* out) { return Change(below.fstat(fd, out), out); };
    }
    ~FolderTimes() { systemCalls = real; }
    FolderTimes(const FolderTimes&) = delete;
    FolderTimes& operator=(const FolderTimes&) = delete;

private:
    static int Change(int result, struct stat* out)
    {
        if (result == 0 && S_ISDIR(out->st_mode))
            for (timespec* time : {&out->st_mtim, &out->st_ctim})
            {
                std::int64_t at = std::int64_t{time->tv_sec} * 1'000'000'000 + time->tv_nsec;
                at -= at % tick + age * 1'000'000'000;
                time->tv_sec = static_cast<time_t>(at / 1'000'000'000);
                time->tv_nsec = static_cast<long>(at % 1'000'000'000);
            }
        return result;
    }

    static std::int64_t age;
    static std::int64_t tick;
    Zem::Platform::SystemCalls real;
};

std::int64_t FolderTimes::age;
std::int64_t FolderTimes::tick;

} // namespace

TEST(NameCase, ReadsSearchesStampsAndTestsInAnyCase)
{
    const Directory directory;
    Put("Data/Textures/Sky.TGA", "sky");
    Put("Data/Textures/SKY.tga", "SKY");
    Put("Data/plain", "plain");
    Put("Data/Sub/File", "file");
    const Mounted mounted("data", "data/", false);
    const std::string absolute = directory / "dAta/TEXTURES/sky.TGA";

    const struct
    {
        const char* what;
        std::string name;
        const char* content;
        const char* real;
    } rows[] = {
        {"exact", "Data/Textures/Sky.TGA", "sky", "Data/Textures/Sky.TGA"},
        {"exact, of two", "Data/Textures/SKY.tga", "SKY", "Data/Textures/SKY.tga"},
        {"the first of two", "Data/Textures/sky.tga", "SKY", "Data/Textures/SKY.tga"},
        {"every level", "dATA/tEXTURES/sKY.tga", "SKY", "Data/Textures/SKY.tga"},
        {"backslashes", "data\\PLAIN", "plain", "Data\\plain"},
        {"doubled and dotted", ".//DATA/./Sub/../plaiN", "plain", ".//Data/./Sub/../plain"},
        {"in a substitute", "data:TEXTURES\\Sky.TGA", "sky", "Data/Textures\\Sky.TGA"},
        {"a dot level inside", "data:Sub/../PLAIN", "plain", "Data/plain"},
        {"missing", "DATA/none", "(none)", nullptr},
        {"missing folder", "DATA/none/plain", "(none)", nullptr},
        {"a file as folder", "DATA/PLAIN/x", "(none)", nullptr},
        {"missing in a substitute", "data:none", "(none)", nullptr},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.what);
        EXPECT_EQ(Get(row.name), row.content);
        EXPECT_EQ(File::Exists(row.name.c_str()), row.real ? File::RES_OK : File::RES_FILENOTFOUND);
        File::Time time{0};
        EXPECT_EQ(File::GetStamp(time, row.name.c_str()), row.real != nullptr);
        char path[260];
        std::strcpy(path, row.name.c_str());
        EXPECT_EQ(File::TrueName(path), row.real != nullptr);
        if (row.real)
        {
            EXPECT_STREQ(path, row.real);
        }
        Zem::FileFind found;
        EXPECT_EQ(found.Open(row.name.c_str()), row.real != nullptr);
    }
    EXPECT_EQ(Get(absolute), "SKY");
    File file;
    ASSERT_TRUE(file.Open("DATA/PLAIN", File::ModeRead));
    EXPECT_STREQ(file.Name(), "Data/plain");
    file.Close();

    File::Time time{1234567890};
    File::SetStamp(time, "DATA/PLAIN");
    EXPECT_TRUE(File::GetStamp(time, "Data/plain"));
    EXPECT_EQ(time.seconds, 1234567890);
    EXPECT_TRUE(File::Cd("DATA/SUB"));
    EXPECT_EQ(Get("fILE"), "file");
    EXPECT_EQ(Get("../PLAIN"), "plain");
}

TEST(NameCase, WritesKeepTheSpellingThatIsThere)
{
    const Directory directory;
    Put("Data/Old.txt", "old");
    const Mounted mounted("data", "data/", true);
    EXPECT_EQ(Store("DATA/old.TXT", Text(3)), "");
    EXPECT_EQ(Get("Data/Old.txt"), "he ");
    EXPECT_EQ(Store("data:OLD.txt", Text(50000), File::ModeWriteCompressed), "");
    EXPECT_EQ(ReadFile("Data/Old.txt")[0], 'C');
    EXPECT_LT(std::filesystem::file_size("Data/Old.txt"), 40000u);
    EXPECT_EQ(Store("data:New.txt", Text(4)), "");
    EXPECT_EQ(Store("DATA/sub/x", Text(4)), "open");
    EXPECT_TRUE(File::Md("DATA/sub/Deep"));
    EXPECT_TRUE(File::Md("data/SUB/deep/more"));
    EXPECT_EQ(Store("data:SUB/deep/MORE/x", Text(4)), "");
    EXPECT_TRUE(std::filesystem::exists("Data/sub/Deep/more/x"));
    EXPECT_FALSE(std::filesystem::exists("DATA") || std::filesystem::exists("data"));
    File appends;
    ASSERT_TRUE(appends.Open("DATA/new.TXT", File::ModeAppend | File::ModeWrite));
    appends.WriteLine("more");
    appends.Close();
    EXPECT_EQ(Get("Data/New.txt"), "he qmore");

    Put("Data/Other", "other");
    EXPECT_FALSE(File::Rename("DATA/NEW.TXT", "data/OTHER")); // taken
    EXPECT_FALSE(File::Rename("data:new.txt", "data:OTHER"));
    EXPECT_FALSE(File::Rename("DATA/none", "DATA/some"));
    EXPECT_TRUE(File::Rename("DATA/new.txt", "DATA/NEW.txt")); // its own case
    EXPECT_TRUE(std::filesystem::exists("Data/NEW.txt"));
    EXPECT_TRUE(File::Rename("data:new.TXT", "data:SUB/Moved"));
    EXPECT_EQ(Get("Data/sub/Moved"), "he qmore");
    EXPECT_TRUE(File::Unlink("data:sub/MOVED"));
    EXPECT_FALSE(File::Unlink("data:sub/MOVED"));
    EXPECT_TRUE(File::Unlink("DATA/other"));
    EXPECT_EQ(Get("Data/Other"), "(none)");
    EXPECT_TRUE(File::Unlink("DATA/SUB/deep/more/X"));
    EXPECT_TRUE(File::Rd("DATA/SUB/deep/more"));
    EXPECT_FALSE(std::filesystem::exists("Data/sub/Deep/more"));

    // An archive's own name too; one that is not there is made in the folder that is.
    {
        const Mounted packs("packs", "DATA/Pack.arc", true);
        EXPECT_EQ(Store("packs:m", Text(4)), "");
    }
    const Mounted packs("packs", "data/PACK.ARC", false);
    EXPECT_EQ(Get("packs:M"), "he q");
    EXPECT_TRUE(std::filesystem::exists("Data/Pack.arc"));
}

// A name that is nowhere costs the call that did not find it and one look at its folder, once the folder is known.
TEST(NameCase, AMissCostsOneLookAtTheFolder)
{
    const Directory directory;
    Put("f/Some", "some");
    const FolderTimes settled(10, 1);
    const auto calls = [](const char* name, const char* content)
    {
        FaultPlan plan(FaultPlan::Count);
        EXPECT_EQ(Get(name), content);
        return plan.Calls();
    };
    const int exact = calls("f/Some", "some");
    EXPECT_GT(calls("f/none", "(none)"), 4);
    EXPECT_EQ(calls("f/none", "(none)"), 2);
    EXPECT_EQ(calls("f/nothing", "(none)"), 2);
    EXPECT_EQ(calls("f/SOME", "some"), exact + 2);
    Put("f/None", "here");
    EXPECT_GT(calls("f/none", "here"), exact + 4);
    EXPECT_EQ(calls("f/none", "here"), exact + 2);

    // Folders that are forgotten are listed again; the newest are kept.
    for (int i = 0; i < 100; ++i)
        Put("g" + std::to_string(i) + "/Some", "some");
    const auto before = Zem::Alloc::Total();
    for (int round = 0; round < 2; ++round)
        for (int i = 0; i < 100; ++i)
            EXPECT_EQ(Get("g" + std::to_string(i) + "/sOME"), "some");
    EXPECT_GT(calls("g0/sOme", "some"), exact + 2);
    EXPECT_EQ(calls("g99/sOme", "some"), exact + 2);
    EXPECT_LT(Zem::Alloc::Total().large - before.large, 500u); // blocks of names are given back
}

// Whoever fills a folder changes it each time; it is not listed each time all the same, and no name is made twice.
TEST(NameCase, FillingAFolderDoesNotListItForEachName)
{
    const Directory directory;
    std::filesystem::create_directory("f");
    static int lists;
    static Zem::Platform::SystemCalls real;
    real = systemCalls;
    lists = 0;
    systemCalls.open = [](const char* name, int flags, mode_t mode)
    {
        lists += (flags & O_DIRECTORY) != 0;
        return real.open(name, flags, mode);
    };
    constexpr int count = 3000;
    File file;
    for (int i = 0; i < count; ++i)
    {
        const std::string name = "f/Name" + std::to_string(i);
        ASSERT_TRUE(file.Open(name.c_str(), File::ModeCreate | File::ModeWrite)) << i;
        file.Write32(i);
        file.Close();
        if (i % 100 == 99) // what was just made is found, gone names are not
        {
            ASSERT_TRUE(file.Open(("F/NAME" + std::to_string(i)).c_str(), File::ModeCreate | File::ModeWrite));
            ASSERT_STREQ(file.Name(), ("f/Name" + std::to_string(i)).c_str());
            file.Close();
            std::filesystem::remove("f/Name" + std::to_string(i));
            ASSERT_TRUE(file.Open(("f/nAME" + std::to_string(i)).c_str(), File::ModeCreate | File::ModeWrite));
            ASSERT_STREQ(file.Name(), ("f/nAME" + std::to_string(i)).c_str());
            file.Close();
        }
    }
    systemCalls = real;
    const auto found = std::distance(std::filesystem::directory_iterator("f"), std::filesystem::directory_iterator());
    EXPECT_EQ(found, count);
    EXPECT_LT(lists, count * 5 / 6); // nearly all of them while it was small
}

// A folder that changes again within one tick of the file system's clock bears the same times.
TEST(NameCase, SeesChangesWithinOneTick)
{
    for (const std::int64_t tick : {4'000'000, 1'000'000'000, 2'000'000'000})
    {
        SCOPED_TRACE(tick);
        const Directory directory;
        const FolderTimes times(0, tick);
        std::filesystem::create_directory("f");
        EXPECT_EQ(Get("f/x"), "(none)");
        Put("f/X", "1");
        EXPECT_EQ(Get("f/x"), "1");
        std::filesystem::rename("f/X", "f/Y");
        EXPECT_EQ(Get("f/x"), "(none)");
        EXPECT_EQ(Get("f/y"), "1");
        std::filesystem::remove_all("f");
        EXPECT_EQ(Get("f/y"), "(none)");
    }
}

// Folders that change all the time, against a model that lists them.
TEST(NameCase, MatchesAModelOfFoldersThatChange)
{
    auto random = Random(37);
    const auto pick = [&](std::size_t n) { return static_cast<std::size_t>(random() % n); };
    const Directory directory;
    const Mounted mounted("case", directory / "", true);
    const auto anyCase = [&](std::string text)
    {
        for (char& c : text)
            c = static_cast<char>(pick(2) ? std::toupper(c) : std::tolower(c));
        return text;
    };
    // As it should be found: level by level, the exact spelling first, then the first by its bytes.
    const auto resolve = [&](const std::string& name) -> std::string
    {
        std::filesystem::path at = ".";
        for (const auto& level : std::filesystem::path(name))
        {
            std::string best;
            if (!std::filesystem::is_directory(at))
                return "";
            for (const auto& entry : std::filesystem::directory_iterator(at))
            {
                const std::string found = entry.path().filename();
                if (strcasecmp(found.c_str(), level.c_str()) == 0 && best != level &&
                    (best.empty() || found == level || found < best))
                    best = found;
            }
            if (best.empty())
                return "";
            at /= best;
        }
        return at;
    };
    for (int step = 0; step < 2500; ++step)
    {
        SCOPED_TRACE(step);
        const std::string folder = anyCase("d" + std::to_string(pick(2)));
        const std::string name = anyCase("f" + std::to_string(pick(4)));
        const std::string full = folder + "/" + name;
        switch (pick(8))
        {
        case 0:
            Put(full, full);
            break;
        case 1:
            std::filesystem::remove(full);
            break;
        case 2:
            if (std::filesystem::exists(folder) && pick(3) == 0)
                std::filesystem::remove_all(folder);
            break;
        default:
        {
            const std::string real = resolve(full);
            std::string content = "(none)";
            if (!real.empty())
            {
                const auto bytes = ReadFile(real);
                content.assign(bytes.begin(), bytes.end());
            }
            ASSERT_EQ(Get(pick(2) ? full : "case:" + full), content) << full << " is " << real;
        }
        }
    }
}
