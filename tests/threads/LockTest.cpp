#include <Bedrock/platform/Lock.h>
#include <Bedrock/threads/CriticalSection.h>
#include <Bedrock/threads/SingleLock.h>

#include "support/Support.h"

#include <atomic>
#include <thread>

namespace
{

using Zem::CriticalSection;
using Zem::SingleLock;
using Zem::SyncObject;
using Zem::Platform::Lock;

// Plain data under the lock, more threads than processors: a lost update, a torn pair or a race is a hole in the lock;
// a lost wake-up hangs the test.
TEST(CriticalSection, ExcludesAndNeverLosesAWakeUp)
{
    CriticalSection section;
    struct
    {
        std::uint64_t a = 0, b = 0;
    } shared;
    constexpr int threads = 4, rounds = 20000;
    std::vector<std::thread> workers;
    std::atomic<int> torn{0};
    for (int t = 0; t < threads; ++t)
        workers.emplace_back(
            [&, t]
            {
                auto random = ::Test::Random(static_cast<std::uint64_t>(t));
                for (int i = 0; i < rounds; ++i)
                {
                    const int depth = 1 + static_cast<int>(random() % 3);
                    for (int d = 0; d < depth; ++d)
                        section.Lock();
                    ++shared.a;
                    if (random() % 512 == 0)
                        std::this_thread::yield(); // the others pile up in the kernel
                    torn += shared.b != shared.a - 1;
                    ++shared.b;
                    for (int d = 0; d < depth; ++d)
                        section.Unlock();
                }
            });
    for (auto& worker : workers)
        worker.join();
    EXPECT_EQ(torn, 0);
    EXPECT_EQ(shared.a, std::uint64_t{threads} * rounds);
    EXPECT_EQ(shared.b, shared.a);
}

// Recursion is the holder's alone, and the last Leave frees.
TEST(CriticalSection, IsRecursiveForItsHolderOnly)
{
    Lock lock;
    const auto freeForOthers = [&]
    {
        bool entered = false;
        std::thread(
            [&]
            {
                entered = lock.TryEnter();
                if (entered)
                    lock.Leave();
            })
            .join();
        return entered;
    };
    EXPECT_TRUE(freeForOthers());
    lock.Enter();
    EXPECT_TRUE(lock.TryEnter());
    lock.Enter();
    for (int left = 3; left > 0; --left)
    {
        EXPECT_FALSE(freeForOthers());
        lock.Leave();
    }
    EXPECT_TRUE(freeForOthers());

    CriticalSection section("name");
    EXPECT_FALSE(section.IsLocked());
    EXPECT_EQ(static_cast<void*>(section), nullptr);
    EXPECT_TRUE(section.Lock(0) && section.Wait(5) && section.Signal() && section.Unlock());
    EXPECT_FALSE(section.Unlock(1)) << "there is no count to give back";
}

// What the guard asks of its object, call by call.
struct Recorder : SyncObject
{
    bool Lock(std::uint32_t timeout) noexcept override
    {
        calls += "L" + std::to_string(timeout) + " ";
        return lockAnswer;
    }
    bool Unlock(std::uint32_t count) noexcept override
    {
        calls += "U" + std::to_string(count) + " ";
        return unlockAnswer;
    }
    bool Unlock() noexcept override
    {
        calls += "U ";
        return unlockAnswer;
    }
    bool lockAnswer = true, unlockAnswer = true;
    std::string calls;
};

TEST(SingleLock, GivesBackWhatItTookAndOnlyThat)
{
    Recorder object;
    {
        SingleLock guard(&object, false);
        EXPECT_TRUE(guard.Unlock() && guard.Unlock(3)) << "nothing held, nothing asked";
        object.lockAnswer = false;
        EXPECT_FALSE(guard.Lock(7) || guard.IsLocked());
    }
    EXPECT_EQ(object.calls, "L7 ");

    object.lockAnswer = true;
    object.calls.clear();
    {
        SingleLock guard(&object, true);
        EXPECT_TRUE(guard.IsLocked());
        EXPECT_TRUE(guard.Unlock(3));
        EXPECT_TRUE(guard.Lock());
    }
    EXPECT_EQ(object.calls, "L4294967295 U3 L4294967295 U ");

    object.calls.clear();
    {
        SingleLock guard(&object, true);
        object.unlockAnswer = false;
        EXPECT_FALSE(guard.Unlock());
        EXPECT_TRUE(guard.IsLocked()) << "it was not given back";
    }
    EXPECT_EQ(object.calls, "L4294967295 U U ");

    struct Bare : SyncObject
    {
    } bare;
    EXPECT_FALSE(bare.Lock(0) || bare.Unlock() || bare.Unlock(1));
    EXPECT_TRUE(bare.IsLocked());
}

} // namespace
