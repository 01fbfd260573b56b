#include <Bedrock/host/SharedMemory.h>

#include "support/Child.h"
#include "support/Support.h"

#include <fcntl.h>
#include <filesystem>
#include <signal.h>
#include <sys/stat.h>

namespace
{

using Zem::SharedMemory;

// A name that no other run of the tests uses.
std::string UniqueName(const char* what)
{
    return std::string("bedrock test ") + what + "/" + std::to_string(getpid());
}

unsigned char* Bytes(const SharedMemory& block)
{
    return static_cast<unsigned char*>(block.Data());
}

// Names of all files in the shared folder that end in the process's number: what this test left there.
int FilesLeft()
{
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/dev/shm"))
    {
        const std::string name = entry.path().filename().string();
        count += name.rfind("zem.", 0) == 0 && name.find(std::to_string(getpid())) != std::string::npos;
    }
    return count;
}

TEST(SharedMemory, IsOneBlockForAllOfANameAndGoesWithTheLast)
{
    const std::string name = UniqueName("one");
    SharedMemory a(name.c_str(), 8192);
    EXPECT_EQ(a.Data(), nullptr);
    EXPECT_TRUE(a.ProcessDetach());
    ASSERT_TRUE(a.ProcessAttach());
    EXPECT_FALSE(a.ProcessAttach()) << "attached already";
    EXPECT_EQ(Bytes(a)[0] | Bytes(a)[8191], 0);
    Bytes(a)[8191] = 77;
    {
        SharedMemory b(name.c_str(), 8192);
        SharedMemory larger(name.c_str(), 8193 + 4096);
        SharedMemory other(UniqueName("other").c_str(), 8192);
        ASSERT_TRUE(b.ProcessAttach());
        EXPECT_EQ(Bytes(b)[8191], 77);
        Bytes(b)[0] = 5;
        EXPECT_FALSE(larger.ProcessAttach()) << "its bytes would not be there";
    }
    EXPECT_EQ(Bytes(a)[0], 5);
    ASSERT_TRUE(a.ProcessDetach());
    EXPECT_EQ(a.Data(), nullptr);
    EXPECT_EQ(FilesLeft(), 0);
    ASSERT_TRUE(a.ProcessAttach());
    EXPECT_EQ(Bytes(a)[0] | Bytes(a)[8191], 0) << "a new block";
}

TEST(SharedMemory, TakesAnyNameAndNoSize)
{
    const std::string base = UniqueName("x");
    const std::string names[] = {"",
                                 "/",
                                 "..",
                                 "../etc/" + base,
                                 base + "\\\n\xE4",
                                 std::string(4000, 'n') + base + "a",
                                 std::string(4000, 'n') + base + "b"};
    std::vector<std::unique_ptr<SharedMemory>> blocks;
    for (const std::string& name : names)
    {
        SCOPED_TRACE(name);
        blocks.push_back(std::make_unique<SharedMemory>(name.c_str(), 16));
        ASSERT_TRUE(blocks.back()->ProcessAttach());
        for (const auto& other : blocks)
            EXPECT_EQ(Bytes(*other)[0], other == blocks.back() ? 0 : 1) << "each name has a block of its own";
        Bytes(*blocks.back())[0] = 1;
    }
    SharedMemory nameless(nullptr, 16), second(nullptr, 16);
    ASSERT_TRUE(nameless.ProcessAttach() && second.ProcessAttach());
    Bytes(nameless)[0] = 9;
    EXPECT_EQ(Bytes(second)[0], 0);
    EXPECT_TRUE(nameless.ProcessDetach());

    SharedMemory empty(base.c_str(), 0);
    EXPECT_FALSE(empty.ProcessAttach());
    EXPECT_TRUE(empty.ProcessDetach());
    blocks.clear();
    EXPECT_EQ(FilesLeft(), 0);
}

// The body of the other process: adds 1 to the first byte, then ends or dies as told.
TEST(SharedMemory, DISABLED_Child)
{
    const std::string argument = ::Test::ChildArgument();
    const std::string name = argument.substr(1);
    SharedMemory block(name.c_str(), 4096);
    if (!block.ProcessAttach() || block.Data() == nullptr)
        _exit(9);
    ++Bytes(block)[0];
    if (argument[0] == 'd')
        kill(getpid(), SIGKILL);
    const int seen = Bytes(block)[0];
    block.ProcessDetach();
    _exit(seen);
}

TEST(SharedMemory, ReachesOtherProcessesAndOutlivesNone)
{
    const std::string name = UniqueName("two");
    const auto run = [&](char how)
    { return ::Test::WaitFor(::Test::RunSelf("SharedMemory.DISABLED_Child", how + name)); };
    {
        SharedMemory block(name.c_str(), 4096);
        ASSERT_TRUE(block.ProcessAttach());
        EXPECT_EQ(run('e'), 1);
        EXPECT_EQ(run('d'), -SIGKILL);
        EXPECT_EQ(run('e'), 3);
        EXPECT_EQ(Bytes(block)[0], 3);
    }
    EXPECT_EQ(run('d'), -SIGKILL);
    EXPECT_EQ(run('e'), 1) << "what a killed process left is not found again";
    EXPECT_EQ(FilesLeft(), 0);
}

// Whoever plants something in the shared folder under our name gets neither read nor written by us.
TEST(SharedMemory, RefusesWhatIsNotItsOwnFile)
{
    const std::string name = "planted" + std::to_string(getpid());
    const std::string path = "/dev/shm/zem." + std::to_string(geteuid()) + ".m." + name;
    ::Test::Directory folder;
    ::Test::WriteFile(folder / "victim", "secret", 6);
    const struct
    {
        const char* what;
        std::function<int()> plant;
    } rows[] = {
        {"link", [&] { return symlink((folder / "victim").c_str(), path.c_str()); }},
        {"file that others can write",
         [&]
         {
             const int file = open(path.c_str(), O_CREAT | O_WRONLY, 0600);
             const int result = fchmod(file, 0622);
             close(file);
             return result;
         }},
        {"pipe", [&] { return mkfifo(path.c_str(), 0600); }},
        {"folder", [&] { return mkdir(path.c_str(), 0700); }},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.what);
        ASSERT_EQ(row.plant(), 0);
        SharedMemory block(name.c_str(), 4096);
        EXPECT_FALSE(block.ProcessAttach());
        EXPECT_TRUE(block.ProcessDetach());
        EXPECT_TRUE(std::filesystem::remove(path)) << "it must still be there";
    }
    EXPECT_EQ(::Test::ReadFile(folder / "victim").size(), 6u);
}

} // namespace
