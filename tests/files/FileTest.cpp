#include "support/FaultPlan.h"
#include "support/Support.h"

#include <Bedrock/files/File.h>
#include <Bedrock/host/Exception.h>
#include <Bedrock/memory/PString.h>
#include <Bedrock/memory/String.h>
#include <Bedrock/platform/Files.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <functional>
#include <sys/stat.h>

using ::Test::FaultPlan;
using Zem::File;

namespace
{

using Bytes = std::vector<std::uint8_t>;

Bytes Noise(std::size_t n, std::uint64_t salt)
{
    auto random = ::Test::Random(salt);
    Bytes bytes(n);
    for (auto& b : bytes)
        b = static_cast<std::uint8_t>(random());
    return bytes;
}

// The reason of the FileEx that `call` throws; empty if it throws none.
std::string Thrown(const std::function<void()>& call)
{
    try
    {
        call();
    }
    catch (const Zem::FileEx& failure)
    {
        EXPECT_STREQ(failure.File(), "File");
        EXPECT_GT(failure.Line(), 0);
        return failure.Reason();
    }
    return "";
}

} // namespace

TEST(File, OpensByModeAndFirstBytes)
{
    ::Test::Directory here;
    const struct
    {
        const char* what;
        Bytes bytes;
        std::uint32_t mode;
        File::Results result;
        bool compressed;
    } rows[] = {
        {"plain", {'a', 'b', 'c', 'd', 'e'}, File::ModeRead, File::RES_OK, false},
        {"empty", {}, File::ModeRead, File::RES_OK, false},
        {"compressed without frames", {'C', 'F', 'I', 'L'}, File::ModeRead, File::RES_OK, true},
        {"three bytes of the mark", {'C', 'F', 'I'}, File::ModeReadCompressed, File::RES_OK, false},
        {"four other bytes", {'C', 'F', 'I', 'X'}, File::ModeReadCompressed, File::RES_NOTCOMPRESSED, false},
        {"compressed, to be read as stored", {'C', 'F', 'I', 'L'}, File::ModeReadPlain, File::RES_OK, false},
        {"write a compressed one",
         {'C', 'F', 'I', 'L'},
         File::ModeRead | File::ModeWrite,
         File::RES_CANTWRITECOMPRESSED,
         false},
        {"refused mode", {'a'}, File::ModeRead | File::ModeNotSupported, File::RES_MODENOTSUPPORTED, false},
        {"other top bits are ignored", {'a'}, File::ModeRead | 0x2000, File::RES_OK, false},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.what);
        ::Test::WriteFile("f", row.bytes);
        FaultPlan plan(FaultPlan::Count);
        File file;
        EXPECT_EQ(file.Open("f", row.mode), row.result);
        EXPECT_EQ(file.IsOpen(), row.result == File::RES_OK);
        if (file.IsOpen())
        {
            EXPECT_EQ(file.IsCompressed(), row.compressed);
            EXPECT_EQ(file.Open("f", File::ModeRead), File::RES_ALREADYOPEN);
            EXPECT_EQ(file.Tell(), 0u);
        }
        file.Close();
        EXPECT_EQ(plan.OpenHandles(), 0);
        EXPECT_EQ(::Test::ReadFile("f"), row.bytes);
    }
    File file;
    EXPECT_EQ(file.Open("absent", File::ModeRead), File::RES_FILENOTFOUND);
    EXPECT_EQ(file.Open("absent", File::ModeWrite), File::RES_FILENOTFOUND);
    EXPECT_EQ(file.Open(".", File::ModeRead), File::RES_FILENOTFOUND);
    EXPECT_EQ(file.Open(std::string(300, 'x').c_str(), File::ModeRead), File::RES_FILENOTFOUND);
    EXPECT_EQ(file.Open((std::string(300, 'x') + ":f").c_str(), File::ModeRead), File::RES_FILENOTFOUND);
    EXPECT_EQ(file.Open(nullptr, File::ModeRead), File::RES_FILENOTFOUND);
    // A word that is no substitute is dropped, one letter is a drive and stays.
    EXPECT_EQ(file.Open("nosuchword:f", File::ModeRead), File::RES_OK);
    file.Close();
    EXPECT_EQ(file.Open("C:f", File::ModeRead), File::RES_FILENOTFOUND);
    EXPECT_STREQ(file.Open("absent", File::ModeRead).Symbol(), "RES_FILENOTFOUND");
}

TEST(File, KeepsWritersAndReadersApartAndNeverEmptiesAnothersFile)
{
    ::Test::Directory here;
    ::Test::WriteFile("f", Bytes{'o', 'l', 'd'});
    File one;
    File other;
    ASSERT_EQ(one.Open("f", File::ModeRead), File::RES_OK);
    EXPECT_EQ(other.Open("f", File::ModeCreate | File::ModeWrite), File::RES_FILENOTFOUND);
    EXPECT_EQ(other.Open("f", File::ModeRead), File::RES_OK);
    other.Close();
    one.Close();
    EXPECT_EQ(::Test::ReadFile("f"), (Bytes{'o', 'l', 'd'}));
    ASSERT_EQ(one.Open("f", File::ModeWrite), File::RES_OK);
    EXPECT_EQ(other.Open("f", File::ModeRead), File::RES_FILENOTFOUND);
}

TEST(File, SaysWhatIsWrong)
{
    ::Test::Directory here;
    ::Test::WriteFile("f", Bytes{'a', 'b'});
    char c[8];
    File file;
    EXPECT_EQ(Thrown([&] { file.Read(c, 1, 1); }), "Read() File is not open");
    EXPECT_EQ(Thrown([&] { file.ReadLine(c, 8); }), "Read() File is not open");
    EXPECT_EQ(Thrown([&] { file.Write(c, 1, 1); }), "Write() File not open");
    EXPECT_EQ(Thrown([&] { file.Size(); }), "Size() failed to get file length");
    File::Time time;
    EXPECT_EQ(Thrown([&] { file.GetStamp(time); }), "GetStamp() failure");
    EXPECT_EQ(Thrown([&] { File::SetStamp(time, "absent"); }), "SetStamp() failure");
    ASSERT_TRUE(file.Open("f", File::ModeRead));
    EXPECT_EQ(Thrown([&] { file.Write(c, 1, 1); }), "Write() File not open for writing");
    EXPECT_EQ(Thrown([&] { file.Read(c, 0, 4); }), "Read() n*size == 0");
    EXPECT_EQ(Thrown([&] { file.Read(c, 4, 0); }), "Read() n*size == 0");
    EXPECT_EQ(Thrown([&] { file.SafeRead(c, 3, 1); }), "SafeRead(buffer,3,1) failed to read all data");
    EXPECT_EQ(file.Tell(), 2u);
    file.Close();
    ASSERT_TRUE(file.Open("f", File::ModeWrite));
    EXPECT_EQ(Thrown([&] { file.Read(c, 1, 1); }), "Read() File not open for reading");
    EXPECT_EQ(Thrown([&] { file.WriteLine(""); }), "Write() n*size == 0");
    file.Close();
    ASSERT_TRUE(file.Open("f", File::ModeWriteCompressed | File::ModeCreate));
    EXPECT_EQ(Thrown([&] { file.SeekSet(0); }), "Seek() Can't seek writing compressed file");
    file.Close();

    // A pipe has no offsets.
    ASSERT_EQ(mkfifo("pipe", 0600), 0);
    EXPECT_EQ(Thrown(
                  [&]
                  {
                      (void)file.Open("pipe", File::ModeReadPlain);
                      file.Read(c, 1, 1);
                  })
                  .substr(0, 20),
              "Seek failure handle=");
}

TEST(File, CountsWholeItemsAndNumbers)
{
    ::Test::Directory here;
    ::Test::WriteFile("f", Bytes{1, 2, 3, 4, 5, 6, 7, 8, 9, 10});
    File file;
    ASSERT_TRUE(file.Open("f", File::ModeRead));
    std::uint8_t buffer[12];
    EXPECT_EQ(file.Read(buffer, 3, 4), 2u); // two items and a torn one
    EXPECT_EQ(file.Tell(), 10u);
    EXPECT_TRUE(file.Eof());
    unsigned char byte;
    EXPECT_FALSE(file.Read(byte));
    std::int32_t number = -1;
    file.SeekSet(8);
    EXPECT_FALSE(file.Read32(number));
    EXPECT_EQ(number, 0x0A09);
    EXPECT_EQ(file.SeekEnd(0), 10u);
    EXPECT_EQ(file.SeekEnd(1), 9u);
    EXPECT_EQ(file.Seek(0, static_cast<Zem::FileSeek>(3)), 0xFFFFFFFFu);
    EXPECT_EQ(file.Tell(), 9u);
    EXPECT_EQ(file.SeekCur(1000), 1009u); // behind the end is a place too
    EXPECT_FALSE(file.Read(byte));
    // More than 32 bits of items ask for what there is.
    file.SeekSet(0);
    EXPECT_EQ(file.Read(buffer, SIZE_MAX / 2, 1), 10u);
    file.Close();
    EXPECT_EQ(file.Size(), 10u); // answers of the past

    ASSERT_TRUE(file.Open("n", File::ModeCreate | File::ModeWrite));
    EXPECT_TRUE(file.Write(static_cast<unsigned char>(0xFE)) && file.Write(std::int16_t{-2}) && file.Write32(-3) &&
                file.Write(1.5f));
    file.Close();
    EXPECT_EQ(::Test::ReadFile("n"), (Bytes{0xFE, 0xFE, 0xFF, 0xFD, 0xFF, 0xFF, 0xFF, 0, 0, 0xC0, 0x3F}));
}

TEST(File, ReadsLines)
{
    const std::string longLine(40000, 'x');
    const struct
    {
        const char* what;
        std::string bytes;
        std::uint32_t size;
        std::vector<std::string> lines; // as stored; the last call gives none
        std::uint32_t tell;
    } rows[] = {
        {"ends kept", "ab\r\n\ncd", 80, {"ab\r\n", "\n", "cd"}, 7},
        {"the rest of a long line is skipped", "abcdef\ngh\n", 5, {"abc", "gh\n"}, 10},
        {"a full line loses its end alone", "abc\nd\n", 5, {"abc", "d\n"}, 6},
        {"a line over several blocks", longLine + "\ny", 50000, {longLine + "\n", "y"}, 40002},
        {"a skip over several blocks", longLine + "\ny", 4, {"xx", "y"}, 40002},
    };
    ::Test::Directory here;
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.what);
        ::Test::WriteFile("f", row.bytes);
        File file;
        ASSERT_TRUE(file.Open("f", File::ModeRead));
        auto block = std::make_unique<char[]>(row.size); // exactly
        for (const auto& line : row.lines)
        {
            EXPECT_EQ(file.ReadLine(block.get(), row.size), line.size());
            EXPECT_EQ(block.get(), line);
        }
        EXPECT_EQ(file.ReadLine(block.get(), row.size), 0u);
        EXPECT_EQ(file.Tell(), row.tell);
    }
    ::Test::WriteFile("f", std::string("abc\nd"));
    File file;
    ASSERT_TRUE(file.Open("f", File::ModeRead));
    char two[2] = {'?', '?'};
    EXPECT_EQ(file.ReadLine(two, 1), 0u);
    EXPECT_EQ(two[0], '?');
    EXPECT_EQ(file.ReadLine(two, 2), 0u); // room for the terminator alone: the line goes by
    EXPECT_EQ(two[0], '\0');
    EXPECT_EQ(file.Tell(), 4u);
}

TEST(File, StoresTextWithItsLengthAndDistrustsTheLength)
{
    ::Test::Directory here;
    Zem::PString::Init();
    File file;
    ASSERT_TRUE(file.Open("f", File::ModeCreate | File::ModeWrite));
    file.Write(Zem::String("abc"));
    file.Write(Zem::PString());
    file.Write(Zem::PString("de"));
    file.Close();
    EXPECT_EQ(::Test::ReadFile("f"), (Bytes{3, 0, 0, 0, 'a', 'b', 'c', 0, 0, 0, 0, 2, 0, 0, 0, 'd', 'e'}));
    Zem::String text;
    Zem::PString word("old");
    ASSERT_TRUE(file.Open("f", File::ModeRead));
    EXPECT_TRUE(file.Read(text));
    EXPECT_STREQ(text, "abc");
    EXPECT_TRUE(file.Read(word));
    EXPECT_EQ(word.Length(), 0u);
    EXPECT_TRUE(file.Read(word));
    EXPECT_TRUE(word == Zem::PString("de"));
    file.Close();

    // Lengths that cannot be true: what is left is what came.
    for (const std::uint32_t mode : {File::ModeRead, File::ModeReadPlain})
    {
        ::Test::WriteFile("f", Bytes{0xFF, 0xFF, 0xFF, 0xFF, 'x', 'y'});
        ASSERT_TRUE(file.Open("f", mode));
        EXPECT_TRUE(file.Read(text));
        EXPECT_STREQ(text, "xy");
        file.SeekSet(0);
        EXPECT_TRUE(file.Read(word));
        EXPECT_TRUE(word == Zem::PString("xy"));
        file.Close();
    }
}

TEST(File, WalksChunksPastTheBuffer)
{
    ::Test::Directory here;
    File file;
    ASSERT_TRUE(file.Open("f", File::ModeCreate | File::ModeWrite));
    EXPECT_EQ(file.WriteBlock("ONE ", "abc", 3), 3u);
    EXPECT_EQ(file.WriteBlock("TWO ", "defgh", 5), 5u);
    EXPECT_EQ(file.Tell(), 0u);
    file.Close();
    const Bytes stored = {'O', 'N', 'E', ' ', 3, 0, 0, 0,   'a', 'b', 'c', 'T',
                          'W', 'O', ' ', 5,   0, 0, 0, 'd', 'e', 'f', 'g', 'h'};
    EXPECT_EQ(::Test::ReadFile("f"), stored);

    char data[8] = {};
    ASSERT_TRUE(file.Open("f", File::ModeReadPlain));
    EXPECT_EQ(file.ReadBlock("ONE ", data, 2), 2u); // and the rest of it is skipped
    EXPECT_EQ(file.ReadBlock("TWO ", nullptr, 0), 5u);
    EXPECT_EQ(file.ReadBlock("TWO ", data, 8), 0u);
    file.Close();
    ASSERT_TRUE(file.Open("f", File::ModeReadPlain));
    EXPECT_EQ(file.ReadBlock("TWO ", data, 8), 5u);
    EXPECT_EQ(std::memcmp(data, "defgh", 5), 0);
}

// Reads, writes and seeks in any order against the bytes as they must be, over all buffer borders.
TEST(File, AgreesWithAModelOnAnySequence)
{
    ::Test::Directory here;
    auto random = ::Test::Random(1);
    for (int round = 0; round < 30; ++round)
    {
        Bytes model = Noise(random() % 70000, random());
        if (model.size() >= 4)
            model[0] = 'x'; // no mark of a compressed stream
        ::Test::WriteFile("f", model);
        File file;
        ASSERT_TRUE(file.Open("f", File::ModeRead | File::ModeWrite));
        std::size_t at = 0;
        for (int step = 0; step < 200; ++step)
        {
            const std::size_t sizes[] = {1, 4, 100, 16383, 16384, 16385, 40000};
            const std::size_t n = random() % 3 ? 1 + random() % 64 : sizes[random() % 7];
            switch (random() % 4)
            {
            case 0:
            {
                Bytes got(n);
                const std::size_t expected = at < model.size() ? std::min(n, model.size() - at) : 0;
                ASSERT_EQ(file.Read(got.data(), n, 1), expected);
                ASSERT_TRUE(expected == 0 || std::memcmp(got.data(), &model[at], expected) == 0);
                at += expected;
                break;
            }
            case 1:
            {
                const Bytes put = Noise(n, random());
                ASSERT_EQ(file.Write(put.data(), n, 1), n);
                if (model.size() < at + n)
                    model.resize(at + n);
                std::copy(put.begin(), put.end(), model.begin() + static_cast<std::ptrdiff_t>(at));
                at += n;
                break;
            }
            case 2:
                at = random() % (model.size() + 100);
                ASSERT_EQ(file.SeekSet(static_cast<std::int32_t>(at)), at);
                break;
            default:
                ASSERT_EQ(file.Tell(), at);
                ASSERT_EQ(file.Size(), model.size());
                ASSERT_EQ(file.Eof(), at == model.size());
                if (random() % 4 == 0)
                    file.Commit();
            }
        }
        file.Close();
        ASSERT_EQ(::Test::ReadFile("f"), model);
    }
}

TEST(File, AppendsWhateverThePosition)
{
    ::Test::Directory here;
    for (const char* text : {"ab", "cd"})
    {
        File file;
        ASSERT_TRUE(file.Open("f", File::ModeAppend | File::ModeWrite));
        file.Write(text, 1, 1);
        file.SeekSet(0);
        file.Write(text + 1, 1, 1);
        EXPECT_EQ(file.Size(), *text == 'a' ? 2u : 4u);
    }
    EXPECT_EQ(::Test::ReadFile("f"), (Bytes{'a', 'b', 'c', 'd'}));
}

// Each call of the system fails once, or comes short: what is read is right or the failure is told, what was written and
// closed without a word is on the disk, and nothing leaks.
TEST(File, SurvivesEveryFailingCall)
{
    ::Test::Directory here;
    Bytes content = Noise(50000, 7);
    content[0] = 'x';
    for (const auto kind : {FaultPlan::Fail, FaultPlan::FailFrom, FaultPlan::Short})
        for (const int error : {ENOSPC, EIO})
            for (int n = 1;; ++n)
            {
                std::filesystem::remove("f");
                FaultPlan plan(kind, n, error);
                bool told = false;
                {
                    File file;
                    try
                    {
                        if (file.Open("f", File::ModeCreate | File::ModeWrite | File::ModeRead))
                        {
                            for (std::size_t at = 0; at < content.size(); at += 10000)
                                file.SafeWrite(&content[at], 10000, 1);
                            file.Commit();
                            file.SeekSet(100);
                            Bytes back(20000);
                            file.SafeRead(back.data(), back.size(), 1);
                            EXPECT_EQ(std::memcmp(back.data(), &content[100], back.size()), 0) << plan.What();
                        }
                        else
                            told = true;
                    }
                    catch (const Zem::FileEx&)
                    {
                        told = true;
                        EXPECT_TRUE(file.IsOpen());
                    }
                    try
                    {
                        file.Close();
                    }
                    catch (const Zem::FileEx&)
                    {
                        told = true;
                    }
                    EXPECT_FALSE(file.IsOpen());
                    EXPECT_TRUE(!plan.Reached() || file.Open("absent", File::ModeRead) == File::RES_FILENOTFOUND);
                }
                EXPECT_EQ(plan.OpenHandles(), 0) << plan.What() << n;
                // A device that has no locks, a full one that kept all the data: only these may pass unnoticed.
                if (!told)
                {
                    EXPECT_EQ(::Test::ReadFile("f"), content) << plan.What() << n;
                }
                if (kind == FaultPlan::Short)
                {
                    EXPECT_FALSE(told) << plan.What() << n;
                }
                if (!plan.Reached())
                    break;
                ASSERT_LT(n, 100);
            }
}

// A flush that fails keeps what it could not store: once there is room, nothing is missing.
TEST(File, StoresPendingDataWhenTheDiskHasRoomAgain)
{
    ::Test::Directory here;
    for (const std::uint32_t create : {File::ModeCreate, File::ModeAppend})
    {
        std::filesystem::remove("f");
        File file;
        ASSERT_TRUE(file.Open("f", create | File::ModeWrite));
        file.Write("abc", 3, 1);
        {
            FaultPlan plan(FaultPlan::Fail, 1, ENOSPC);
            EXPECT_EQ(Thrown([&] { file.SeekCur(0); }), "WriteBuffer(void) Writing failed");
        }
        EXPECT_EQ(file.Tell(), 3u);
        file.Write("d", 1, 1);
        file.Close();
        EXPECT_EQ(::Test::ReadFile("f"), (Bytes{'a', 'b', 'c', 'd'}));
    }
}

// A destructor tells a failed flush by a throw, but never during another one.
TEST(File, DestructorThrowsUnlessAnotherFailureIsOnItsWay)
{
    ::Test::Directory here;
    for (const bool unwinding : {false, true})
    {
        const std::string reason = Thrown(
            [&]
            {
                auto file = std::make_unique<File>();
                (void)file->Open("f", File::ModeCreate | File::ModeWrite);
                file->Write("a", 1, 1);
                FaultPlan broken(FaultPlan::FailFrom, 1, EIO);
                struct Owner
                {
                    ~Owner() noexcept(false) { delete file; }
                    File* file;
                } owner{file.release()};
                if (unwinding)
                    throw Zem::FileEx("File", 1, "the first failure");
            });
        EXPECT_EQ(reason, unwinding ? "the first failure" : "WriteBuffer(void) Writing failed");
    }
}

TEST(File, WorksOnNames)
{
    ::Test::Directory here;
    EXPECT_TRUE(File::Md("a"));
    EXPECT_TRUE(File::Md("a/b\\c"));
    EXPECT_TRUE(File::Md("a/b/c/"));
    EXPECT_TRUE(std::filesystem::is_directory("a/b/c"));
    EXPECT_TRUE(File::Md((here / "abs/d").c_str()));
    ::Test::WriteFile("a/f", Bytes{'1'});
    EXPECT_FALSE(File::Md("a/f/g"));
    EXPECT_EQ(File::Exists("a\\f"), File::RES_OK);
    EXPECT_EQ(File::Exists("a/"), File::RES_OK);
    EXPECT_EQ(File::Exists("a/g"), File::RES_FILENOTFOUND);
    EXPECT_EQ(File::Exists(std::string(400, 'a').c_str()), File::RES_FILENOTFOUND);

    ::Test::WriteFile("a/g", Bytes{'2'});
    EXPECT_FALSE(File::Rename("a/f", "a/g")); // taken
    EXPECT_EQ(::Test::ReadFile("a/g"), Bytes{'2'});
    EXPECT_TRUE(File::Rename("a/f", "a/h"));
    EXPECT_FALSE(File::Rename("a/f", "a/i"));
    EXPECT_TRUE(File::Unlink("a/h"));
    EXPECT_FALSE(File::Remove("a/h"));
    EXPECT_FALSE(File::Unlink("a"));

    File::Time time{1234567890};
    File::SetStamp(time, "a/g");
    File::Time read{0};
    EXPECT_TRUE(File::GetStamp(read, "a/g") && read == time);
    EXPECT_FALSE(File::GetStamp(read, "a/x"));
    File file;
    ASSERT_TRUE(file.Open("a/g", File::ModeRead));
    file.GetStamp(read);
    EXPECT_EQ(read.seconds, 1234567890);
    char name[260] = "a/g";
    EXPECT_TRUE(File::TrueName(name));
    EXPECT_STREQ(name, "a/g");

    EXPECT_TRUE(File::Cd("a/b"));
    EXPECT_TRUE(File::Rd("c"));
    EXPECT_FALSE(File::Rd("c"));
    EXPECT_FALSE(File::Cd("c"));
}
