// Compressed streams: the stored bytes, reading and seeking by frames, and the step that compresses a file at `Close`.

#include "support/FaultPlan.h"
#include "support/Support.h"

#include <Bedrock/files/BPE.h>
#include <Bedrock/files/File.h>
#include <Bedrock/host/Exception.h>

#include <cerrno>
#include <csignal>
#include <functional>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using ::Test::FaultPlan;
using Zem::File;

namespace
{

using Bytes = std::vector<std::uint8_t>;

std::string Thrown(const std::function<void()>& call)
{
    try
    {
        call();
    }
    catch (const Zem::FileEx& failure)
    {
        return failure.Reason();
    }
    return "";
}

// Compressible, and different everywhere.
Bytes Content(std::size_t n)
{
    Bytes bytes(n);
    for (std::size_t i = 0; i < n; ++i)
        bytes[i] = static_cast<std::uint8_t>("the quick brown fox "[i % 20] + (i / 977 % 3));
    return bytes;
}

Bytes Noise(std::size_t n)
{
    auto random = ::Test::Random(n);
    Bytes bytes(n);
    for (auto& b : bytes)
        b = static_cast<std::uint8_t>(random());
    return bytes;
}

void WriteCompressed(const char* name, const Bytes& bytes)
{
    File file;
    ASSERT_TRUE(file.Open(name, File::ModeCreate | File::ModeWriteCompressed));
    EXPECT_TRUE(file.IsCompressed());
    if (!bytes.empty())
        file.SafeWrite(bytes.data(), bytes.size(), 1);
    file.Close();
}

// Frames as another program would write them.
Bytes Stream(const std::vector<Bytes>& frames)
{
    Bytes out = {'C', 'F', 'I', 'L'};
    for (const Bytes& frame : frames)
    {
        Bytes packed(frame.size());
        const auto size = static_cast<std::uint32_t>(frame.size());
        const std::uint32_t n = Zem::BPE::Comp(packed.data(), frame.data(), size);
        const std::uint32_t header = n == size ? n | 0x8000 : n;
        out.push_back(static_cast<std::uint8_t>(header));
        out.push_back(static_cast<std::uint8_t>(header >> 8));
        out.insert(out.end(), packed.begin(), packed.begin() + n);
    }
    return out;
}

std::size_t FilesIn(const std::filesystem::path& folder)
{
    const std::filesystem::directory_iterator begin(folder);
    return static_cast<std::size_t>(std::distance(begin, {}));
}

} // namespace

TEST(CompressedStream, StoresTheStatedBytes)
{
    ::Test::Directory here;
    WriteCompressed("f", {'x', 'y', 'z'});
    EXPECT_EQ(::Test::ReadFile("f"), (Bytes{'C', 'F', 'I', 'L', 0x03, 0x80, 'x', 'y', 'z'}));
    WriteCompressed("f", {});
    EXPECT_EQ(::Test::ReadFile("f"), (Bytes{'C', 'F', 'I', 'L'}));
    Bytes pairs;
    for (int i = 0; i < 64; ++i)
        pairs.insert(pairs.end(), {'a', 'b'});
    WriteCompressed("f", pairs);
    Bytes packed(128);
    packed.resize(Zem::BPE::Comp(packed.data(), pairs.data(), 128));
    EXPECT_EQ(packed.size(), 20u);
    Bytes stored = {'C', 'F', 'I', 'L', 0x14, 0x00};
    stored.insert(stored.end(), packed.begin(), packed.end());
    EXPECT_EQ(::Test::ReadFile("f"), stored);

    const Bytes noise = Noise(16385); // a full stored frame, and one of a byte
    WriteCompressed("f", noise);
    const Bytes file = ::Test::ReadFile("f");
    ASSERT_EQ(file.size(), 4u + 2 + 16384 + 2 + 1);
    EXPECT_EQ(file[4] | file[5] << 8, 0xC000);
    EXPECT_EQ(file[4 + 2 + 16384] | file[4 + 2 + 16384 + 1] << 8, 0x8001);
    EXPECT_EQ(FilesIn(here.Path()), 1u);
}

// Any seeks and reads over frames of both kinds against the bytes themselves.
TEST(CompressedStream, SeeksAndReadsAnywhere)
{
    ::Test::Directory here;
    auto random = ::Test::Random(3);
    Bytes content = Content(100000);
    const Bytes noise = Noise(16384 * 2);
    std::copy(noise.begin(), noise.end(), content.begin() + 16384); // the second and third frame are stored
    WriteCompressed("f", content);
    File file;
    ASSERT_TRUE(file.Open("f", File::ModeRead));
    for (int step = 0; step < 500; ++step)
    {
        const std::size_t at = random() % content.size();
        const std::size_t n =
            std::min<std::size_t>(content.size() - at, random() % 4 ? 1 + random() % 100 : 1 + random() % 40000);
        ASSERT_EQ(file.SeekSet(static_cast<std::int32_t>(at)), at);
        Bytes got(n);
        ASSERT_EQ(file.Read(got.data(), 1, n), 1u) << at << " " << n;
        ASSERT_EQ(std::memcmp(got.data(), &content[at], n), 0) << at << " " << n;
        ASSERT_EQ(file.Tell(), at + n);
    }
    // Within the frame in hand nothing is read; from a later one to the start the scan begins anew.
    file.SeekSet(40000);
    {
        FaultPlan plan(FaultPlan::Count);
        file.SeekSet(16384 * 2);
        file.SeekSet(16384 * 3);
        EXPECT_EQ(plan.Calls(), 0);
        file.SeekSet(0);
        EXPECT_GT(plan.Calls(), 0);
    }
    EXPECT_EQ(Thrown([&] { file.SeekSet(100001); }), "Seek() Position behind the end of a compressed file");
    EXPECT_EQ(Thrown([&] { file.SeekSet(1000000); }), "Seek() Position behind the end of a compressed file");
    EXPECT_EQ(file.Tell(), 0u);
    unsigned char byte;
    EXPECT_TRUE(file.Read(byte) && byte == content[0]);
    EXPECT_EQ(file.SeekSet(100000), 100000u);
    EXPECT_EQ(Thrown([&] { file.Read(byte); }), "ReadNext() Failed to read block size");
    EXPECT_EQ(file.Size(), ::Test::ReadFile("f").size()); // what the disk tells
}

TEST(CompressedStream, EndsWhereItsLastFrameEnds)
{
    ::Test::Directory here;
    const struct
    {
        const char* what;
        Bytes bytes;
        std::string seekToEnd;
    } rows[] = {
        {"a full compressed frame, in hand", Content(16384), ""},
        {"a full stored frame, in hand", Noise(16384), ""},
        {"two full compressed frames", Content(32768), "ReadNext() Failed to read compressed block"},
        {"two full stored frames", Noise(32768), ""},
        {"a short compressed frame", Content(20000), ""},
        {"a short stored frame", Noise(20000), ""},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.what);
        WriteCompressed("f", row.bytes);
        File file;
        ASSERT_TRUE(file.Open("f", File::ModeRead));
        const auto size = static_cast<std::int32_t>(row.bytes.size());
        unsigned char byte;
        ASSERT_TRUE(file.Read(byte));
        // A frame in hand answers for its end; beyond it a scan has only the headers, which do not tell what the last
        // compressed frame holds.
        EXPECT_EQ(Thrown([&] { file.SeekSet(size); }), row.seekToEnd);
        EXPECT_EQ(file.Tell(), row.seekToEnd.empty() ? static_cast<std::uint32_t>(size) : 1u);
        file.Close();
        ASSERT_TRUE(file.Open("f", File::ModeRead));
        Bytes all(row.bytes.size());
        EXPECT_EQ(file.Read(all.data(), all.size(), 1), all.size());
        EXPECT_EQ(all, row.bytes);
        EXPECT_EQ(Thrown([&] { file.Read(byte); }), "ReadNext() Failed to read block size");
        EXPECT_EQ(file.Tell(), all.size());
    }
}

TEST(CompressedStream, RefusesDamagedFrames)
{
    ::Test::Directory here;
    const Bytes full = Content(16384);
    const Bytes shortFrame = Content(100);
    Bytes shortFirst = Stream({shortFrame, full});
    Bytes torn = Stream({full});
    torn.resize(torn.size() - 1);
    const struct
    {
        const char* what;
        Bytes bytes;
        const char* reason;
    } rows[] = {
        {"a stored frame of nothing", {'C', 'F', 'I', 'L', 0x00, 0x80}, "ReadNext() Failed to read uncompressed block"},
        {"a compressed frame of nothing", {'C', 'F', 'I', 'L', 0, 0}, "ReadNext() Failed to read compressed block"},
        {"a payload over the limit", {'C', 'F', 'I', 'L', 0x01, 0x40, 1}, "ReadNext() Failed to read compressed block"},
        {"a stored one over the limit",
         {'C', 'F', 'I', 'L', 0x01, 0xC0, 1},
         "ReadNext() Failed to read uncompressed block"},
        {"half a header", {'C', 'F', 'I', 'L', 1}, "ReadNext() Failed to read block size"},
        {"a payload cut off", torn, "ReadNext() Failed to read compressed block"},
        {"a short frame before the last", shortFirst, "ReadNext() Failed to read compressed block"},
        {"a code that contains itself",
         {'C', 'F', 'I', 'L', 6, 0, 0, 0, 0, 0, 1, 0},
         "ReadNext() Failed to read compressed block"},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.what);
        ::Test::WriteFile("f", row.bytes);
        File file;
        ASSERT_TRUE(file.Open("f", File::ModeRead));
        Bytes buffer(20000);
        for (const std::size_t n : {std::size_t{1}, buffer.size()}) // the failure stays, through the buffer and past it
        {
            EXPECT_EQ(Thrown([&] { file.Read(buffer.data(), n, 1); }), row.reason);
            EXPECT_EQ(file.Tell(), 0u);
        }
    }
    // A stored frame cut off comes back short.
    ::Test::WriteFile("f", Bytes{'C', 'F', 'I', 'L', 4, 0x80, 'a', 'b'});
    File file;
    ASSERT_TRUE(file.Open("f", File::ModeRead));
    char two[2];
    EXPECT_EQ(file.Read(two, 2, 1), 2u);
}

// Whatever call fails while a file is compressed: the plain file or the finished one is there, whole, alone, and the
// failure is told.
TEST(CompressOnClose, LosesNothingWhateverFails)
{
    ::Test::Directory here;
    const Bytes content = Content(40000);
    for (const auto kind : {FaultPlan::Fail, FaultPlan::FailFrom, FaultPlan::Short})
        for (const int error : {ENOSPC, EIO, EACCES, EXDEV})
            for (int n = 1;; ++n)
            {
                File file;
                ASSERT_TRUE(file.Open("f", File::ModeCreate | File::ModeWriteCompressed));
                file.SafeWrite(content.data(), content.size(), 1);
                FaultPlan plan(kind, n, error);
                const std::string reason = Thrown([&] { file.Close(); });
                SCOPED_TRACE(std::string(plan.What()) + " " + std::to_string(n) + " " + reason);
                EXPECT_FALSE(file.IsOpen());
                EXPECT_EQ(plan.OpenHandles(), -1); // the one opened before
                const Bytes stored = ::Test::ReadFile("f");
                const bool compressed = stored.size() >= 4 && std::memcmp(stored.data(), "CFIL", 4) == 0;
                EXPECT_TRUE(compressed || stored == content);
                EXPECT_TRUE(compressed || !reason.empty());
                EXPECT_EQ(FilesIn(here.Path()), 1u);
                if (kind == FaultPlan::Short)
                {
                    EXPECT_EQ(reason, "");
                }
                const bool reached = plan.Reached();
                if (compressed)
                {
                    EXPECT_EQ(stored, Stream({Bytes(content.begin(), content.begin() + 16384),
                                              Bytes(content.begin() + 16384, content.begin() + 32768),
                                              Bytes(content.begin() + 32768, content.end())}));
                }
                if (!reached)
                    break;
                ASSERT_LT(n, 200);
            }
}

TEST(CompressOnClose, SurvivesAKillAtEveryCall)
{
    ::Test::Directory here;
    const Bytes content = Content(40000);
    WriteCompressed("whole", content);
    const Bytes whole = ::Test::ReadFile("whole");
    std::filesystem::remove("whole");
    for (int n = 1;; ++n)
    {
        const pid_t child = fork();
        if (child == 0)
        {
            File file;
            if (!file.Open("f", File::ModeCreate | File::ModeWriteCompressed))
                _exit(1);
            file.SafeWrite(content.data(), content.size(), 1);
            FaultPlan plan(FaultPlan::Kill, n);
            file.Close();
            _exit(0);
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        if (WIFEXITED(status))
        {
            EXPECT_EQ(WEXITSTATUS(status), 0);
            EXPECT_EQ(::Test::ReadFile("f"), whole);
            break;
        }
        ASSERT_EQ(WTERMSIG(status), SIGKILL);
        const Bytes stored = ::Test::ReadFile("f");
        EXPECT_TRUE(stored == content || stored == whole) << n;
        ASSERT_LT(n, 200);
    }
}

TEST(CompressOnClose, KeepsFolderLinkAndAccess)
{
    ::Test::Directory here;
    std::filesystem::create_directory("d");
    std::filesystem::create_directory("e");
    ::Test::WriteFile("d/real", Bytes{'o', 'l', 'd'});
    ASSERT_EQ(chmod("d/real", 0640), 0);
    std::filesystem::create_symlink("d/real", "link");
    WriteCompressed("link", {'x', 'y', 'z'});
    EXPECT_TRUE(std::filesystem::is_symlink("link"));
    EXPECT_EQ(::Test::ReadFile("d/real").size(), 9u);
    struct stat about;
    ASSERT_EQ(stat("d/real", &about), 0);
    EXPECT_EQ(about.st_mode & 0777, 0640u);

    // The current folder changes under an open relative name, and another file has that name there.
    ::Test::WriteFile("e/f", Bytes{'o', 't', 'h', 'e', 'r'});
    File file;
    ASSERT_TRUE(file.Open("f", File::ModeCreate | File::ModeWriteCompressed));
    file.Write("abc", 3, 1);
    ASSERT_TRUE(File::Cd("e"));
    EXPECT_EQ(Thrown([&] { file.Close(); }), "Close() Failed to compress file");
    EXPECT_EQ(::Test::ReadFile("f"), (Bytes{'o', 't', 'h', 'e', 'r'}));
    EXPECT_EQ(::Test::ReadFile("../f"), (Bytes{'a', 'b', 'c'}));

    // A taken temporary name: the next one.
    char name[16];
    for (unsigned i = 0; i < 256; i += 2)
    {
        std::snprintf(name, sizeof name, "%08X.T%02X", static_cast<unsigned>(getpid()), i);
        ::Test::WriteFile(name, Bytes{'t'});
    }
    for (int i = 0; i < 3; ++i)
        WriteCompressed("g", {'x', 'y', 'z'});
    EXPECT_EQ(::Test::ReadFile("g").size(), 9u);
    EXPECT_EQ(::Test::ReadFile(name), Bytes{'t'});
    EXPECT_EQ(FilesIn("."), 128u + 2);
}
