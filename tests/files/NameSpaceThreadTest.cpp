// Threads in the name space: opening, searching and missing while others mount, link and remove; and who waits for whom.

#include "files/Mounted.h"
#include "support/Support.h"

#include <Bedrock/files/FileFind.h>
#include <Bedrock/files/FileSub.h>
#include <Bedrock/files/FileSubstList.h>
#include <Bedrock/platform/posix/SystemCalls.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <future>
#include <mutex>
#include <set>
#include <thread>

using namespace ::Test;
using Zem::File;
using Zem::FileFind;
using Zem::PString;
using Zem::Platform::systemCalls;

namespace
{

// While it lives, the first call of the system that thread `Hold` makes through `entry` stops until `Release`.
class HeldCall
{
public:
    HeldCall() : real(systemCalls)
    {
        below = &real;
        self = this;
        systemCalls.open = [](const char* name, int flags, mode_t mode)
        {
            self->Stop();
            return below->open(name, flags, mode);
        };
        systemCalls.pread = [](int fd, void* dst, size_t n, off_t at)
        {
            self->Stop();
            return below->pread(fd, dst, n, at);
        };
    }
    ~HeldCall() { systemCalls = real; }
    HeldCall(const HeldCall&) = delete;
    HeldCall& operator=(const HeldCall&) = delete;

    // Runs `work` on a thread of its own, and returns once it stands in a call of the system.
    std::thread Start(const std::function<void()>& work)
    {
        std::thread thread(
            [work]
            {
                holds = true;
                work();
            });
        std::unique_lock lock(mutex);
        changed.wait(lock, [this] { return stopped; });
        return thread;
    }
    void Release()
    {
        const std::lock_guard lock(mutex);
        released = true;
        changed.notify_all();
    }

private:
    void Stop()
    {
        if (!holds)
            return;
        std::unique_lock lock(mutex);
        stopped = true;
        changed.notify_all();
        changed.wait(lock, [this] { return released; });
    }

    static const Zem::Platform::SystemCalls* below;
    static HeldCall* self;
    static thread_local bool holds;
    Zem::Platform::SystemCalls real;
    std::mutex mutex;
    std::condition_variable changed;
    bool stopped = false;
    bool released = false;
};

const Zem::Platform::SystemCalls* HeldCall::below;
HeldCall* HeldCall::self;
thread_local bool HeldCall::holds;

// Whether the work comes to its end while something else stands still.
bool Ends(const std::function<void()>& work)
{
    auto done = std::async(std::launch::async, work);
    return done.wait_for(std::chrono::seconds(30)) == std::future_status::ready;
}

} // namespace

TEST(NameSpaceThreads, SearchesGoOnWhileTheNameSpaceChanges)
{
    const Directory directory;
    for (int i = 0; i < 20; ++i)
    {
        Put("low/Shared" + std::to_string(i), "shared");
        Put("high/only" + std::to_string(i), "high");
    }
    {
        const Mounted maker("maker", "pack.arc", true);
        for (int i = 0; i < 20; ++i)
            ASSERT_EQ(Store("maker:packed" + std::to_string(i), Text(200)), "");
    }
    const Mounted low("low", "low/", true);
    const Mounted stays("stays", "pack.arc", false);
    File::Subst("stays", "low/", true);

    std::atomic<bool> stop = false;
    std::atomic<int> wrong = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t)
        threads.emplace_back(
            [&, t]
            {
                for (int i = t; !stop; ++i)
                {
                    const std::string number = std::to_string(i % 20);
                    wrong += Get("stays:SHARED" + number) != "shared";
                    wrong += Fetch("stays:packed" + number) != Text(200);
                    wrong += !!File::Exists(("stays:none" + number).c_str());
                    const std::string high = Get("comes:ONLY" + number);
                    wrong += high != "high" && high != "(none)";
                    FileFind found;
                    std::set<std::string> names;
                    for (bool more = found.Open("stays:*"); more; more = found.Next())
                        wrong += !names.insert(found.name.Text()).second;
                    wrong += names.size() < 42;
                    if (t == 0)
                    {
                        const std::string mine = "stays:made" + number;
                        wrong += !Store(mine, Text(50)).empty();
                        wrong += !File::Unlink(mine.c_str());
                    }
                    FileFind more;
                    try
                    {
                        more.Open("only*", "comes");
                    }
                    catch (const Zem::FileEx&) // gone at this moment
                    {
                    }
                }
            });
    for (int i = 0; i < 100; ++i)
    {
        File::Subst("comes", "high/", false);
        File::SubstLink("comes", "low");
        File::Subst("comes", "missing/", false);
        for (bool gone = false; !gone;)
            try
            {
                File::Subst("comes", nullptr, false);
                gone = true;
            }
            catch (const Zem::FileEx& failure)
            {
                EXPECT_STREQ(failure.Reason(), "Subst(comes) Files are open through it");
            }
    }
    stop = true;
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_FALSE(File::SubstExists("comes"));
}

// An open that waits for the disk keeps nobody else waiting: not those who read, not those who open something else.
TEST(NameSpaceThreads, NobodyWaitsForAnOpen)
{
    const Directory directory;
    Put("a/file", "file");
    Put("a/other", "other");
    {
        const Mounted maker("maker", "pack.arc", true);
        ASSERT_EQ(Store("maker:m", Text(100000)), "");
        for (int i = 0; i < 50; ++i)
            ASSERT_EQ(Store("maker:n" + std::to_string(i), Text(10000)), "");
    }
    const Mounted mounted("data", "a/", false);
    File::Subst("data", "pack.arc", false);
    const Mounted other("otherdata", "a/", false);
    for (const std::string held : {"data:file", "data:n49"}) // a file; a member that the directory has not come to yet
    {
        SCOPED_TRACE(held);
        File member;
        ASSERT_TRUE(member.Open("data:m", File::ModeRead));
        std::string got;
        HeldCall call;
        std::thread thread = call.Start([&] { got = Get(held); });
        EXPECT_TRUE(Ends(
            [&]
            {
                Bytes bytes(100000);
                EXPECT_EQ(member.Read(bytes.data(), bytes.size(), 1), bytes.size());
                EXPECT_EQ(bytes, Text(100000));
                EXPECT_EQ(Get("otherdata:other"), "other");
                File::Subst("added", "a/", false);
                EXPECT_EQ(Get("added:other"), "other");
            }));
        call.Release();
        thread.join();
        EXPECT_EQ(got.size(), held == "data:file" ? 4u : 10000u);
        member.Close();
        File::Subst("added", nullptr, false);
    }
}

// A location of the application is asked by one thread at a time, and may use the name space meanwhile.
TEST(NameSpaceThreads, LocationsOfTheApplicationSeeOneThread)
{
    struct Counting final : Zem::FileSub
    {
        bool IsValid() override { return true; }
        bool Exists(PString&, const char* name) override
        {
            most = std::max(most, ++inside);
            const bool found = !!File::Exists((std::string("plain:") + name).c_str());
            std::this_thread::yield();
            --inside;
            return found;
        }
        int inside = 0;
        int most = 0;
    };
    const Directory directory;
    Put("a/file", "file");
    const Mounted plain("plain", "a/", false);
    const Mounted mounted("app", "missing/", false);
    auto* location = new Counting;
    Zem::FilePath::GetSubst("app:")->Add(location);
    std::atomic<int> wrong = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back(
            [&]
            {
                for (int i = 0; i < 500; ++i)
                {
                    wrong += !File::Exists("app:FILE");
                    wrong += !!File::Exists("app:none");
                }
            });
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(location->most, 1);
}
