// Archives: their bytes, finding and reading members, and that no append that fails or dies costs a stored member.

#include "files/Mounted.h"
#include "support/Child.h"
#include "support/FaultPlan.h"
#include "support/Support.h"

#include <Bedrock/files/FileSubArchive.h>
#include <Bedrock/files/FileSubstList.h>
#include <Bedrock/host/Crc.h>

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <functional>
#include <unistd.h>

using namespace ::Test;
using Zem::File;
using Zem::FileSubArchive;
using Zem::PString;

namespace
{

std::uint32_t Number(const Bytes& bytes, std::size_t at)
{
    return bytes[at] | bytes[at + 1] << 8 | bytes[at + 2] << 16 | std::uint32_t{bytes[at + 3]} << 24;
}

void PutNumber(Bytes& bytes, std::size_t at, std::uint32_t value)
{
    for (int i = 0; i < 4; ++i)
        bytes[at + static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(value >> 8 * i);
}

void AddText(Bytes& bytes, const std::string& text)
{
    bytes.insert(bytes.end(), text.begin(), text.end());
}

// What a new archive holds, written out by hand.
Bytes EmptyArchive()
{
    Bytes bytes;
    AddText(bytes, "ARCHINFO");
    AddText(bytes, std::string("\x20\0\0\0", 4) + "0CRA" + std::string("\x01\xF1\0\0", 4));
    bytes.resize(44);
    return bytes;
}

struct Member
{
    std::string name;
    Bytes payload;
    std::uint32_t size = 0xFFFFFFFE; // the payload's
    std::uint16_t attributes = 0;
    std::int64_t length = -1; // of the chunk: the true one
    char behindName = 0;      // fills the name's field behind the name
};

void AddMember(Bytes& bytes, const Member& member)
{
    const std::size_t at = bytes.size();
    bytes.resize(at + 296);
    std::memcpy(&bytes[at], "FIL ", 4);
    PutNumber(bytes, at + 4,
              member.length < 0 ? static_cast<std::uint32_t>(288 + member.payload.size())
                                : static_cast<std::uint32_t>(member.length));
    std::memset(&bytes[at + 8], member.behindName, 260);
    std::memcpy(&bytes[at + 8], member.name.c_str(), member.name.size() + (member.behindName ? 0 : 1));
    PutNumber(bytes, at + 268, static_cast<std::uint32_t>(member.payload.size()));
    bytes[at + 288] = static_cast<std::uint8_t>(member.attributes);
    PutNumber(bytes, at + 292,
              member.size == 0xFFFFFFFE ? static_cast<std::uint32_t>(member.payload.size()) : member.size);
    bytes.insert(bytes.end(), member.payload.begin(), member.payload.end());
}

std::string Shown(const std::optional<Bytes>& bytes)
{
    return bytes ? std::string(bytes->begin(), bytes->end()) : "(none)";
}

Bytes Plain(const std::string& text)
{
    return Bytes(text.begin(), text.end());
}

} // namespace

// What stands on the disk after each step, byte by byte.
TEST(Archive, StoresTheStatedBytes)
{
    const Directory directory;
    const Mounted mounted("arc", "a.arc", true);
    Bytes expected = EmptyArchive();
    EXPECT_EQ(ReadFile("a.arc"), expected);

    EXPECT_EQ(Store("arc:Dir/ten.bin", Plain("0123456789")), "");
    AddMember(expected, {"Dir/ten.bin", Plain("0123456789")});
    PutNumber(expected, 44 + 272, Zem::Crc::Calc("0123456789", 10, 0));
    EXPECT_EQ(ReadFile("a.arc").size(), 350u);
    EXPECT_EQ(ReadFile("a.arc"), expected);

    EXPECT_EQ(Store("arc:abc", Plain("abc"), File::ModeWriteCompressed), "");
    AddMember(expected, {"abc",
                         Plain("CFIL\x03\x80"
                               "abc"),
                         3, 0x80});
    PutNumber(expected, 350 + 272, 0x648CBB73);
    EXPECT_EQ(Number(expected, 350 + 4), 297u);
    EXPECT_EQ(ReadFile("a.arc"), expected);

    // Many blocks, and none; without `ModeCreate` the size is not known.
    const Bytes large = Text(40000);
    EXPECT_EQ(Store("arc:large", large, File::ModeWriteCompressed), "");
    EXPECT_EQ(Store("arc:none", {}), "");
    {
        File file;
        ASSERT_TRUE(file.Open("arc:unsized", File::ModeWrite));
        file.WriteLine("four");
        file.Close();
    }
    const Bytes stored = ReadFile("a.arc");
    EXPECT_EQ(Number(stored, 655 + 272), Zem::Crc::Calc(large.data(), 40000, 0));
    EXPECT_EQ(Number(stored, stored.size() - 8), 0xFFFFFFFFu);
    EXPECT_EQ(Fetch("arc:large"), large);
    EXPECT_EQ(Fetch("arc:none"), Bytes());
    EXPECT_EQ(Shown(Fetch("arc:unsized")), "four");

    // The temporaries are gone.
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator("."), {}), 1);
}

TEST(Archive, FindsAndReadsMembers)
{
    const Directory directory;
    Bytes bytes = EmptyArchive();
    AddMember(bytes, {"Sky.TGA", Plain("sky")});
    AddText(bytes, std::string("NOTE\x05\0\0\0", 8) + "hello"); // a chunk of somebody else
    AddMember(bytes, {"a/b\\c.txt", Plain("abc")});
    AddMember(bytes, {"sky.tga", Plain("second")});
    AddMember(bytes, {"../out", Plain("exact")});
    AddMember(bytes, {"long", Plain("0123"), 100});
    AddMember(bytes, {"short", Plain("0123456789"), 4});
    AddMember(bytes, {"unknown", Plain("0123"), 0xFFFFFFFF});
    AddMember(bytes, {"packed",
                      Plain("CFIL\x03\x80"
                            "abcCFIL"),
                      3, 0x80});
    AddMember(bytes, {"packedunknown",
                      Plain("CFIL\x03\x80"
                            "abc"),
                      0xFFFFFFFF, 0x80});
    AddMember(bytes, {"CF", Plain("CF")}); // detection must not look on into the next chunk
    AddMember(bytes, {"last", Content(70000)});
    WriteFile("a.arc", bytes);
    const Mounted mounted("arc", "a.arc", false);

    const struct
    {
        const char* name;
        const char* text;
    } rows[] = {
        {"arc:sky.tga", "sky"},  {"arc:SKY.tga", "sky"},       {"arc:/Sky.TGA", "sky"}, {"arc:A/B/C.TXT", "abc"},
        {"arc:../out", "exact"}, {"arc:long", "0123"},         {"arc:short", "0123"},   {"arc:unknown", "0123"},
        {"arc:packed", "abc"},   {"arc:packedunknown", "abc"}, {"arc:CF", "CF"},        {"arc:a", "(none)"},
        {"arc:", "(none)"},      {"arc:hello", "(none)"},      {"arc:*.tga", "(none)"},
    };
    // The second time everything comes from the directory in memory, and backwards.
    for (const auto& row : rows)
        EXPECT_EQ(Shown(Fetch(row.name)), row.text) << row.name;
    for (auto row = std::rbegin(rows); row != std::rend(rows); ++row)
        EXPECT_EQ(Shown(Fetch(row->name)), row->text) << row->name;
    EXPECT_EQ(Fetch("arc:last"), Content(70000));

    File file;
    ASSERT_TRUE(file.Open("arc:sky.tga", File::ModeRead));
    EXPECT_STREQ(file.Name(), "Sky.TGA");
    EXPECT_EQ(file.Size(), 3u);
    EXPECT_EQ(file.Open("arc:last", File::ModeRead), File::RES_ALREADYOPEN);
    // What changes nothing: an archive has no names to delete, no paths, and one handle that cannot write.
    EXPECT_FALSE(File::Unlink("arc:sky.tga"));
    EXPECT_FALSE(File::Rename("arc:sky.tga", "arc:x"));
    char path[260] = "arc:sky.tga";
    EXPECT_FALSE(File::TrueName(path));
    File::Time time{7};
    EXPECT_TRUE(File::GetStamp(time, "arc:sky.tga"));
    EXPECT_EQ(time.seconds, 0);
    EXPECT_FALSE(File::Exists("arc:nowhere"));
    EXPECT_TRUE(File::Exists("arc:A\\b/c.txt"));
    EXPECT_EQ(Store("arc:new", Plain("x")), "open"); // read-only
    EXPECT_EQ(ReadFile("a.arc"), bytes);
}

TEST(Archive, RefusesWhatItCannotDo)
{
    const Directory directory;
    WriteFile("text", Plain("This is no archive, and must stay as it is."));
    {
        const Mounted mounted("arc", "text", true);
        EXPECT_EQ(Store("arc:x", Plain("x")), "open");
        EXPECT_EQ(Fetch("arc:x"), std::nullopt);
        EXPECT_EQ(Shown(ReadFile("text")), "This is no archive, and must stay as it is.");
    }
    {
        const Mounted mounted("arc", "missing", false);
        EXPECT_FALSE(File::Exists("arc:x"));
        EXPECT_FALSE(std::filesystem::exists("missing"));
    }
    std::string reason;
    try
    {
        File::Subst("arc", "no/such/folder.arc", true);
    }
    catch (const Zem::FileEx& failure)
    {
        reason = failure.Reason();
        EXPECT_STREQ(failure.File(), "FileSubArchive");
    }
    EXPECT_EQ(reason, "Substitute() Open new archive failed");
    EXPECT_FALSE(File::SubstExists("arc"));

    const Mounted mounted("arc", "a.arc", true);
    EXPECT_EQ(Store("arc:a", Plain("a")), "");
    File file;
    EXPECT_EQ(file.Open("arc:a", File::ModeRead | File::ModeWrite), File::RES_FILENOTFOUND);
    EXPECT_EQ(Store("arc:" + std::string(246, 'n'), Plain("x")), ""); // the longest
    EXPECT_EQ(Store("arc:" + std::string(247, 'n'), Plain("x")), "open");
    EXPECT_EQ(Store("arc:", Plain("x")), "open");
    ASSERT_TRUE(file.Open("arc:a", File::ModeRead));
    EXPECT_THROW(File::Subst("arc", nullptr, false), Zem::FileEx); // in use
    EXPECT_EQ(file.Size(), 1u);
    file.Close();

    // Less than a header: no members, and the first append completes it, unless it is somebody's text.
    for (const char* start : {"", "AR", "ARCHINFO\x20"})
    {
        WriteFile("b.arc", Plain(start));
        {
            const Mounted other("brc", "b.arc", true);
            EXPECT_EQ(Fetch("brc:a"), std::nullopt);
            EXPECT_EQ(Shown(ReadFile("b.arc")), start);
            EXPECT_EQ(Store("brc:a", Plain("first")), "");
        }
        const Mounted other("brc", "b.arc", false);
        EXPECT_EQ(Shown(Fetch("brc:a")), "first") << start;
    }
    WriteFile("b.arc", Plain("me"));
    const Mounted other("brc", "b.arc", true);
    EXPECT_NE(Store("brc:a", Plain("first")), "");
    EXPECT_EQ(Shown(ReadFile("b.arc")), "me");
}

// An archive that a member would carry past 4 GiB: a sparse file with one chunk up to the last few bytes.
TEST(Archive, RefusesToPass4GiBBeforeItWrites)
{
    const Directory directory;
    Bytes bytes = EmptyArchive();
    AddText(bytes, "HOLE");
    bytes.resize(52);
    PutNumber(bytes, 48, 0xFFFFFE00 - 52);
    WriteFile("a.arc", bytes);
    ASSERT_EQ(truncate("a.arc", 0xFFFFFE00), 0);
    const Mounted mounted("arc", "a.arc", true);
    // 510 bytes are left for header, entry and payload.
    EXPECT_NE(Store("arc:a", Content(215)), "");
    EXPECT_NE(Store("arc:a", Content(209), File::ModeWriteCompressed), "");
    EXPECT_EQ(std::filesystem::file_size("a.arc"), 0xFFFFFE00u);
    EXPECT_EQ(Store("arc:a", Text(400), File::ModeWriteCompressed), ""); // fits once it is compressed
    EXPECT_EQ(Fetch("arc:a"), Text(400));
}

// Entries and lengths that lie. What is whole in front of the lie is served, and nothing else.
TEST(Archive, TakesNothingForGranted)
{
    const Bytes text = Plain("text");
    const struct
    {
        const char* what;
        std::function<void(Bytes&)> add;
        bool seesLater; // whether members behind it are served
    } rows[] = {
        {"name without end",
         [](Bytes& b) {
             AddMember(b, {"bad", Plain("x"), 0xFFFFFFFE, 0, -1, 'n'});
         },
         true},
        {"length 0",
         [](Bytes& b) {
             AddMember(b, {"bad", {}, 0xFFFFFFFE, 0, 0});
         },
         false},
        {"length 287",
         [](Bytes& b) {
             AddMember(b, {"bad", {}, 0xFFFFFFFE, 0, 287});
         },
         false},
        {"length past the end",
         [](Bytes& b) {
             AddMember(b, {"bad", {}, 0xFFFFFFFE, 0, 0xFFFFFFFF});
         },
         false},
        {"unknown chunk past the end", [](Bytes& b) { AddText(b, "XXXX\xFF\xFF\xFF\xFF"); }, false},
        {"attribute without a stream",
         [](Bytes& b) {
             AddMember(b, {"flag", Plain("y"), 0xFFFFFFFE, 0x80});
         },
         true},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.what);
        const Directory directory;
        Bytes bytes = EmptyArchive();
        AddMember(bytes, {"before", text});
        row.add(bytes);
        const std::size_t lie = bytes.size();
        AddMember(bytes, {"after", text});
        WriteFile("a.arc", bytes);
        const Mounted mounted("arc", "a.arc", true);
        EXPECT_EQ(Fetch("arc:before"), text);
        EXPECT_EQ(Fetch("arc:bad"), std::nullopt);
        EXPECT_EQ(Fetch("arc:after").has_value(), row.seesLater);
        EXPECT_EQ(Store("arc:new", text), "");
        EXPECT_EQ(Fetch("arc:before"), text);
        EXPECT_EQ(Fetch("arc:new"), text);
        EXPECT_EQ(Fetch("arc:after").has_value(), row.seesLater);
        EXPECT_GT(lie, 44u);
    }
}

// An archive that ends anywhere: members that are whole are there, the rest is not, and the next append mends the end.
TEST(Archive, CutAnywhereKeepsWhatIsWhole)
{
    const Directory directory;
    Bytes bytes = EmptyArchive();
    std::vector<std::size_t> ends;
    const Bytes payloads[] = {Plain("first"), Bytes(40, 0),
                              Plain("CFIL\x03\x80"
                                    "abc")};
    const Bytes contents[] = {Plain("first"), Bytes(40, 0), Plain("abc")};
    for (int i = 0; i < 3; ++i)
    {
        AddMember(bytes, {"m" + std::to_string(i), payloads[i], static_cast<std::uint32_t>(contents[i].size())});
        ends.push_back(bytes.size());
    }
    for (std::size_t cut = 44; cut < bytes.size(); ++cut)
    {
        SCOPED_TRACE(cut);
        // Cut off, or zeros from there on, as some file systems leave it.
        const bool zeros = cut % 3 == 0;
        Bytes torn(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(cut));
        if (zeros)
            torn.resize(cut + 8 * (cut % 7) + cut % 5);
        unlink("a.arc");
        WriteFile("a.arc", torn);
        const Mounted mounted("arc", "a.arc", true);
        const bool appends = cut % 6 == 0 || cut % 5 == 0; // each waits for the disk
        for (int turn = 0; turn < 1 + appends; ++turn)
        {
            for (std::size_t i = 0; i < 3; ++i)
            {
                const auto found = Fetch("arc:m" + std::to_string(i));
                ASSERT_TRUE(ends[i] <= cut ? found == contents[i] : zeros || !found) << i;
            }
            if (appends && turn == 0)
            {
                ASSERT_EQ(Store("arc:new", contents[0]), "");
            }
        }
        ASSERT_EQ(Fetch("arc:new"), appends ? std::optional(contents[0]) : std::nullopt);
        if (!appends)
            continue;
        const Bytes now = ReadFile("a.arc");
        std::size_t whole = 44;
        for (const std::size_t end : ends)
            whole = end <= cut ? end : whole;
        ASSERT_TRUE(std::equal(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(whole), now.begin()));
        ASSERT_TRUE(zeros || now.size() == whole + 296 + 5);
    }
}

namespace
{

// An archive with two members, and what it holds.
Bytes SeedArchive()
{
    Bytes bytes = EmptyArchive();
    AddMember(bytes, {"one", Content(100)});
    AddMember(bytes, {"two", Text(3000)});
    return bytes;
}

void ExpectSeedArchive()
{
    ASSERT_EQ(Fetch("arc:one"), Content(100));
    ASSERT_EQ(Fetch("arc:two"), Text(3000));
}

constexpr std::uint32_t writeModes[] = {File::ModeWrite, File::ModeWriteCompressed};

} // namespace

// Each call of the system in turn fails, or comes short: the archive is then the old one or has the member, the failure
// was told, and nothing is left over.
TEST(ArchiveFaults, AFailedAppendChangesNothing)
{
    const Bytes content = Text(40000);
    const struct
    {
        FaultPlan::Kind kind;
        int error;
    } faults[] = {
        {FaultPlan::Fail, ENOSPC}, {FaultPlan::Fail, EIO}, {FaultPlan::FailFrom, ENOSPC}, {FaultPlan::Short, 0}};
    for (const std::uint32_t mode : writeModes)
        for (const auto& fault : faults)
            for (int n = 1;; ++n)
            {
                SCOPED_TRACE("mode " + std::to_string(mode) + " kind " + std::to_string(fault.kind) + " error " +
                             std::to_string(fault.error) + " call " + std::to_string(n));
                const Directory directory;
                WriteFile("a.arc", SeedArchive());
                const Mounted mounted("arc", "a.arc", true);
                bool reached = false;
                std::string told;
                {
                    const FaultPlan plan(fault.kind, n, fault.error);
                    told = Store("arc:new", content, mode);
                    reached = plan.Reached();
                    EXPECT_EQ(plan.OpenHandles(), 0) << plan.What();
                }
                ExpectSeedArchive();
                const auto now = Fetch("arc:new");
                // When even taking the member back fails, it may be there whole.
                ASSERT_TRUE(told.empty() || fault.kind == FaultPlan::FailFrom ? now == content || !told.empty() : !now);
                ASSERT_TRUE(!now || now == content);
                ASSERT_TRUE(fault.kind == FaultPlan::FailFrom || told.empty() || ReadFile("a.arc") == SeedArchive())
                    << told;
                ASSERT_EQ(Store("arc:next", content, mode), "");
                ExpectSeedArchive();
                ASSERT_EQ(Fetch("arc:next"), content);
                if (!reached)
                    break;
                ASSERT_LT(n, 500);
            }
}

// The process dies before each call of the system in turn.
TEST(ArchiveFaults, ADeathInAnAppendLosesOnlyThatMember)
{
    const Bytes content = Text(40000);
    int survived = 0;
    for (const std::uint32_t mode : writeModes)
        for (int n = 1;; ++n)
        {
            SCOPED_TRACE("mode " + std::to_string(mode) + " call " + std::to_string(n));
            const Directory directory;
            WriteFile("a.arc", SeedArchive());
            const int result = WaitFor(Fork(
                [&]
                {
                    File::Subst("arc", "a.arc", true);
                    const FaultPlan plan(FaultPlan::Kill, n);
                    return Store("arc:new", content, mode).empty() ? 0 : 1;
                }));
            ASSERT_TRUE(result == 0 || result == -SIGKILL) << result;
            const Mounted mounted("arc", "a.arc", true);
            ExpectSeedArchive();
            const auto now = Fetch("arc:new");
            ASSERT_TRUE(now == content || now == std::nullopt);
            survived += now.has_value();
            ASSERT_EQ(Store("arc:next", Plain("next")), "");
            ExpectSeedArchive();
            ASSERT_EQ(Shown(Fetch("arc:next")), "next");
            ASSERT_EQ(Fetch("arc:new"), now);
            if (result == 0)
                break;
            ASSERT_LT(n, 500);
        }
    EXPECT_GE(survived, 2);
}

// Several processes append to one archive at once, and one looks on: every member comes, whole and once.
TEST(Archive, ProcessesAppendSideBySide)
{
    const Directory directory;
    constexpr int processes = 3;
    constexpr int members = 20;
    const Mounted mounted("arc", "a.arc", true);
    std::vector<pid_t> children;
    for (int p = 0; p < processes; ++p)
        children.push_back(Fork(
            [&]
            {
                File::Subst("own", "a.arc", true); // a handle of its own
                for (int i = 0; i < members; ++i)
                {
                    const auto id = static_cast<std::uint32_t>(p * 100 + i);
                    if (!Store("own:m" + std::to_string(id), Text(id * 37, id), i % 2 ? 1 : 2).empty())
                        return 1;
                }
                return 0;
            }));
    for (int i = 0; i < members; ++i)
        ASSERT_EQ(Store("arc:p" + std::to_string(i), Content(100)), "");
    for (const pid_t child : children)
        ASSERT_EQ(WaitFor(child), 0);
    for (int i = 0; i < members; ++i)
    {
        ASSERT_EQ(Fetch("arc:p" + std::to_string(i)), Content(100));
        for (int p = 0; p < processes; ++p)
        {
            const auto id = static_cast<std::uint32_t>(p * 100 + i);
            ASSERT_EQ(Fetch("arc:m" + std::to_string(id)), Text(id * 37, id)) << id;
        }
    }
}

// However often a name was missed before: what this process appends is found at once, also through another location.
TEST(Archive, SeesGrowthAfterManyMisses)
{
    const Directory directory;
    const Mounted writer("arc", "a.arc", true);
    const Mounted reader("brc", "a.arc", false);
    for (int round = 0; round < 3; ++round)
    {
        const std::string name = "m" + std::to_string(round);
        for (int i = 0; i < 100; ++i)
            ASSERT_FALSE(File::Exists(("brc:" + name).c_str()));
        ASSERT_EQ(Store("arc:" + name, Content(10)), "");
        ASSERT_EQ(Fetch("brc:" + name), Content(10));
        ASSERT_EQ(Fetch("arc:" + name), Content(10));
    }
}

// Searches by cursor: patterns, folders made of members, growth in the middle, reuse.
TEST(Archive, ScansByCursor)
{
    const Directory directory;
    Bytes bytes = EmptyArchive();
    for (const char* name : {"a.txt", "dir/b.txt", "dir/sub/c.txt", "d.bin", "e.txt"})
        AddMember(bytes, {name, Plain(name)});
    WriteFile("a.arc", bytes);
    FileSubArchive archive("a.arc", true);
    const auto list = [&](std::int32_t cursor, const char* pattern)
    {
        std::string names;
        File::Entry entry;
        while (archive.Scan(cursor, entry, pattern, true, false))
            names += std::string(entry.name) + (entry.IsDir() ? "/ " : " ");
        return names;
    };
    const std::int32_t first = archive.AcquireCursor();
    const std::int32_t second = archive.AcquireCursor();
    EXPECT_NE(first, second);
    EXPECT_EQ(list(first, "*.txt"), "a.txt e.txt ");
    EXPECT_EQ(list(second, "dir/*"), "dir/b.txt dir/sub/ ");
    archive.ReleaseCursor(second);
    EXPECT_EQ(list(second, "*"), ""); // free
    EXPECT_EQ(archive.AcquireCursor(), second);
    EXPECT_EQ(list(second, "*"), "a.txt dir/ dir/ d.bin e.txt ");
    File::Entry entry;
    EXPECT_TRUE(archive.Scan(second, entry, "D.BIN", false, true));
    EXPECT_STREQ(entry.name, "d.bin");
    EXPECT_FALSE(archive.Scan(second, entry, "*.bin", false, true));
    for (const std::int32_t none : {-1, 2, 1000})
    {
        archive.ReleaseCursor(none);
        EXPECT_FALSE(archive.Scan(none, entry, "*", true, false));
    }
    // Both ended searches go on with what comes.
    AddMember(bytes, {"f.txt", {}});
    WriteFile("a.arc", bytes);
    EXPECT_EQ(list(first, "*.txt"), "f.txt ");
    EXPECT_EQ(list(second, "*"), "f.txt ");
}

TEST(Archive, CallsBackWhileItStores)
{
    const Directory directory;
    const Mounted mounted("arc", "a.arc", true);
    static std::vector<std::pair<std::uint32_t, std::uint32_t>> calls;
    calls.clear();
    File::SetCallBack(
        [](std::uint32_t done, std::uint32_t stored)
        {
            calls.emplace_back(done, stored);
            return false;
        });
    EXPECT_EQ(Store("arc:plain", Content(20000)), "");
    EXPECT_EQ(Store("arc:packed", Content(16385), File::ModeWriteCompressed), "");
    File::SetCallBack(nullptr);
    const decltype(calls) expected = {{16384, 0}, {20000, 0}, {16384, 16390}, {16385, 16393}};
    EXPECT_EQ(calls, expected);
}

// What was written is stored, wherever the file stood when it was closed.
TEST(Archive, StoresAllThatWasWritten)
{
    const Directory directory;
    const Mounted mounted("arc", "a.arc", true);
    {
        File file;
        ASSERT_TRUE(file.Open("arc:a", File::ModeCreate | File::ModeWrite));
        file.WriteLine("0123456789");
        file.SeekSet(2);
        file.WriteLine("xx");
        file.Close();
    }
    EXPECT_EQ(Shown(Fetch("arc:a")), "01xx456789");
}
