// Waitable objects: the rules of each kind, waits for several, and a model that random operations are compared with.

#include <Bedrock/threads/CriticalSection.h>
#include <Bedrock/threads/MultiLock.h>
#include <Bedrock/threads/Mutex.h>
#include <Bedrock/threads/Semaphore.h>
#include <Bedrock/threads/SingleLock.h>
#include <Bedrock/threads/Thread.h>
#include <Bedrock/threads/WEvent.h>

#include "support/Support.h"

#include <atomic>
#include <chrono>
#include <thread>

namespace
{

using Zem::MultiLock;
using Zem::Mutex;
using Zem::Semaphore;
using Zem::SyncObject;
using Zem::WEvent;

// Runs on another thread, to its end.
template <class Body>
void Elsewhere(Body body)
{
    std::thread(body).join();
}

TEST(Mutex, BelongsToItsOwnerAndTellsWhenItWasLeftBehind)
{
    Mutex mutex(true, nullptr);
    EXPECT_TRUE(mutex.Lock(0)) << "the owner again";
    Elsewhere([&] { EXPECT_FALSE(mutex.Lock(0) || mutex.Unlock() || !mutex.IsLocked()); });
    EXPECT_TRUE(mutex.Unlock(5));
    Elsewhere([&] { EXPECT_FALSE(mutex.Lock(0)) << "one entry is left"; });
    EXPECT_TRUE(mutex.Unlock());
    EXPECT_FALSE(mutex.Unlock());
    EXPECT_FALSE(mutex.IsLocked());
    Elsewhere([&] { EXPECT_TRUE(mutex.Lock(0) && mutex.Lock(0)); }); // and ends as the owner
    EXPECT_FALSE(mutex.Lock(0)) << "left behind: taken, and said so";
    EXPECT_TRUE(mutex.Unlock());
    EXPECT_TRUE(mutex.Lock(0));
    EXPECT_TRUE(mutex.Unlock());

    // The same for who waits already, and in a wait for several.
    Semaphore never(0, 1);
    WEvent held;
    std::thread owner(
        [&]
        {
            mutex.Lock();
            held.Set();
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        });
    held.Lock();
    SyncObject* objects[] = {&never, &mutex};
    {
        MultiLock wait(objects, 2, false);
        EXPECT_EQ(wait.Lock(20000, false), MultiLock::Abandoned + 1u);
        EXPECT_FALSE(wait.IsLocked(1));
    }
    owner.join();
    EXPECT_TRUE(mutex.Unlock()) << "the guard leaves it to who was told";

    auto closed = std::make_unique<Mutex>(true, nullptr); // closed while owned, and another one owned after it
    Mutex other(true, nullptr);
    closed.reset();
    EXPECT_TRUE(other.Unlock());
}

TEST(Semaphore, CountsWithinItsLimits)
{
    const struct
    {
        int initial, maximum;
        bool works;
    } rows[] = {{0, 0, false},  {-1, 3, false}, {4, 3, false},
                {0, -1, false}, {3, 3, true},   {0x7FFFFFFF, 0x7FFFFFFF, true}};
    for (const auto& row : rows)
    {
        SCOPED_TRACE(std::to_string(row.initial) + " of " + std::to_string(row.maximum));
        Semaphore semaphore(row.initial, row.maximum);
        EXPECT_EQ(static_cast<void*>(semaphore) != nullptr, row.works);
        EXPECT_EQ(semaphore.Lock(0), row.works);
        EXPECT_EQ(semaphore.Unlock(), row.works);
        EXPECT_FALSE(semaphore.Unlock()) << "full";
    }
    Semaphore semaphore(1, 5);
    EXPECT_FALSE(semaphore.Unlock(0) || semaphore.Unlock(5) || semaphore.Unlock(0xFFFFFFFF));
    EXPECT_TRUE(semaphore.Unlock(4));
    for (int n = 0; n < 5; ++n)
        EXPECT_TRUE(semaphore.Lock(0));
    EXPECT_FALSE(semaphore.Lock(0));
}

TEST(WEvent, LetsThroughOneOrAllAndKeepsNoPulse)
{
    WEvent once(false, true);
    EXPECT_FALSE(once.IsLocked()) << "takes the signal";
    EXPECT_TRUE(once.IsLocked());
    once.Set();
    once.Set();
    EXPECT_TRUE(once.Lock(0));
    EXPECT_FALSE(once.Lock(0));
    once.Pulse();
    EXPECT_FALSE(once.Lock(0)) << "nobody was there";
    EXPECT_TRUE(once.Unlock());

    for (const bool manual : {false, true})
    {
        WEvent event(manual);
        std::atomic<int> through{0}, late{0};
        std::vector<std::thread> waiters;
        for (int n = 0; n < 4; ++n)
            waiters.emplace_back([&] { ++(event.Lock(20000) ? through : late); });
        // How many a pulse meets is seen by what it frees; it is repeated until all are through.
        for (int pulses = 1; through < 4; ++pulses)
        {
            event.Pulse();
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
            EXPECT_TRUE(manual || through <= pulses) << "one at a time";
            EXPECT_FALSE(event.Lock(0));
        }
        for (auto& waiter : waiters)
            waiter.join();
        EXPECT_EQ(late, 0);
        event.Set();
        EXPECT_TRUE(event.Lock(0));
        EXPECT_EQ(event.Lock(0), manual);
        event.Reset();
        EXPECT_FALSE(event.Lock(0));
    }
}

TEST(MultiLock, TakesTheFirstOrAllAndRefusesWhatCannotBe)
{
    WEvent a, b(true, true);
    Semaphore c(1, 1);
    Zem::CriticalSection section;
    SyncObject* objects[] = {&a, &b, &c};
    {
        MultiLock wait(objects, 3, true);
        EXPECT_TRUE(!wait.IsLocked(0) && wait.IsLocked(1) && !wait.IsLocked(2) && !wait.IsLocked(3));
        EXPECT_FALSE(wait.Unlock(1));
        EXPECT_TRUE(wait.Unlock());
        EXPECT_FALSE(wait.IsLocked(1));
        EXPECT_EQ(wait.Lock(0, true), MultiLock::TimedOut);
        EXPECT_TRUE(c.Lock(0) && c.Unlock()) << "nothing is taken before everything can be";
        a.Set();
        EXPECT_EQ(wait.Lock(0, true), MultiLock::Signalled);
        EXPECT_TRUE(wait.IsLocked(0) && wait.IsLocked(1) && wait.IsLocked(2));
        EXPECT_FALSE(c.Lock(0) || a.Lock(0));
    }
    EXPECT_TRUE(c.Lock(0)) << "the guard gave it back";

    SyncObject* bad[] = {&a, &section, &b, &b};
    std::vector<SyncObject*> many(65, &b);
    EXPECT_EQ(MultiLock(bad, 2, false).Lock(0), MultiLock::Failed);
    EXPECT_EQ(MultiLock(bad, 0, false).Lock(0), MultiLock::Failed);
    EXPECT_EQ(MultiLock(bad + 2, 2, false).Lock(0, true), MultiLock::Failed) << "one object twice";
    EXPECT_EQ(MultiLock(bad + 2, 2, false).Lock(0), MultiLock::Signalled);
    EXPECT_EQ(MultiLock(many.data(), 65, false).Lock(0), MultiLock::Failed);
    EXPECT_EQ(MultiLock(many.data(), 64, false).Lock(0), MultiLock::Signalled);

    // A time-out comes neither early nor never, and leaves nothing behind in the objects.
    const auto start = std::chrono::steady_clock::now();
    SyncObject* dead[] = {&a, &c};
    EXPECT_EQ(MultiLock(dead, 2, false).Lock(30), MultiLock::TimedOut);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(30));
    EXPECT_TRUE(c.Unlock() && c.Lock(0));
}

// One thread, so that the model is exact: every answer of random operations is compared with plain numbers. Bit n of
// the parameter gives object n a name. The last object is a thread: by itself it stands for its end, among others for
// its quit event.
class Waits : public testing::TestWithParam<unsigned>
{
};

TEST_P(Waits, AnswerAsAModelOfNumbers)
{
    auto random = ::Test::Random(4 + GetParam());
    const std::string names[] = {::Test::UniqueName("mutex"), ::Test::UniqueName("semaphore"),
                                 ::Test::UniqueName("once"), ::Test::UniqueName("manual")};
    const auto name = [&](unsigned n) { return GetParam() >> n & 1 ? names[n].c_str() : nullptr; };
    Mutex mutex(false, name(0));
    Semaphore semaphore(2, 5, name(1));
    WEvent once(false, false, name(2)), manual(true, false, name(3));
    WEvent mayEnd(true);
    const auto body = [](void* data) -> unsigned { return static_cast<WEvent*>(data)->Lock(600000) ? 17 : 18; };
    std::unique_ptr<Zem::Thread> thread;
    SyncObject* objects[] = {&mutex, &semaphore, &once, &manual, nullptr};
    int depth = 0, count = 2;
    bool signals[3] = {false, false, false}; // of the events, and of the quit event
    bool hasEnded = false;
    const auto start = [&](bool now)
    {
        mayEnd.Reset();
        thread = std::make_unique<Zem::Thread>(body, &mayEnd, now);
        objects[4] = thread.get();
        signals[2] = hasEnded = false;
    };
    const auto end = [&]
    {
        EXPECT_EQ(thread->Resume(), !hasEnded);
        mayEnd.Set();
        EXPECT_EQ(thread->Terminate(), 17u);
        signals[2] = hasEnded = true;
    };
    start(true);
    const auto available = [&](int n) { return n == 0 || (n == 1 ? count > 0 : signals[n - 2]); };
    const auto take = [&](int n)
    {
        depth += n == 0;
        count -= n == 1;
        if (n == 2)
            signals[0] = false;
    };
    for (int step = 0; step < 20000; ++step)
    {
        const int what = static_cast<int>(random() % 11);
        SCOPED_TRACE("step " + std::to_string(step) + ", operation " + std::to_string(what));
        const int n = static_cast<int>(random() % 4);
        switch (what)
        {
        case 0:
            ASSERT_EQ(mutex.Unlock(), depth > 0);
            depth -= depth > 0;
            break;
        case 1:
        {
            const auto add = static_cast<std::uint32_t>(random() % 4);
            const bool fits = add > 0 && count + static_cast<int>(add) <= 5;
            ASSERT_EQ(semaphore.Unlock(add), fits);
            count += fits ? static_cast<int>(add) : 0;
            break;
        }
        case 2:
        case 3:
            (what == 2 ? once : manual).Set();
            signals[what - 2] = true;
            break;
        case 4:
        case 5:
            random() % 2 ? (what == 4 ? once : manual).Reset() : (what == 4 ? once : manual).Pulse();
            signals[what - 4] = false;
            break;
        case 6:
        case 7:
            ASSERT_EQ(objects[n]->Lock(0), available(n));
            if (available(n))
                take(n);
            ASSERT_EQ(thread->Lock(0), hasEnded);
            break;
        case 8:
            ASSERT_EQ(thread->IsAlive(), !hasEnded);
            switch (random() % 8)
            {
            case 0:
                hasEnded ? start(random() % 2 != 0) : end();
                break;
            case 1:
                end();
                break;
            case 2:
                ASSERT_EQ(thread->Suspend(), !hasEnded);
                ASSERT_EQ(thread->Resume(), !hasEnded);
                break;
            default:
                ASSERT_EQ(thread->IsDone(), signals[2]);
                signals[2] = false;
                break;
            }
            break;
        default:
        {
            // From object n on, as many as there are.
            MultiLock wait(objects + n, static_cast<std::uint32_t>(5 - n), false);
            const bool all = what == 10;
            std::uint32_t expected = MultiLock::TimedOut;
            bool whole = true;
            for (int i = 4; i >= n; --i)
            {
                whole = whole && available(i);
                if (available(i))
                    expected = MultiLock::Signalled + static_cast<std::uint32_t>(i - n);
            }
            if (all)
                expected = whole ? MultiLock::Signalled : MultiLock::TimedOut;
            ASSERT_EQ(static_cast<std::uint32_t>(wait.Lock(0, all)), expected);
            // The guard gives back the mutex and the semaphore, and keeps the signal of an event that resets itself.
            for (const int event : {2, 4})
                if (event >= n &&
                    (all ? whole : expected == MultiLock::Signalled + static_cast<std::uint32_t>(event - n)))
                    signals[event - 2] = false;
        }
        }
    }
    end();
}

INSTANTIATE_TEST_SUITE_P(Named, Waits, testing::Values(0u, 15u, 5u, 10u, 9u));

// Waits for all of three mutexes and a semaphore by four threads, with short time-outs: each wait sees all or nothing,
// plain data under the mutexes stays whole, and everything is there at the end.
TEST(WaitsAmongThreads, TakeAllAsOneStepAmongThreads)
{
    Mutex mutexes[3];
    Semaphore semaphore(2, 2);
    int guarded[3] = {0, 0, 0};
    std::atomic<int> inside{0}, most{0}, served{0}, ready{0};
    std::atomic<int> done[3] = {};
    std::vector<std::thread> workers;
    for (unsigned t = 0; t < 4; ++t)
        workers.emplace_back(
            [&, t]
            {
                auto random = ::Test::Random(100 + t);
                ++ready;
                while (ready < 4)
                    std::this_thread::yield();
                for (int round = 0; round < 4000; ++round)
                {
                    const unsigned skip = static_cast<unsigned>(random() % 3);
                    SyncObject* objects[3];
                    unsigned at = 0;
                    for (unsigned m = 0; m < 3; ++m)
                        if (m != skip)
                            objects[at++] = &mutexes[m];
                    objects[at++] = &semaphore;
                    MultiLock wait(objects, at, false);
                    if (wait.Lock(static_cast<std::uint32_t>(random() % 3), true) != MultiLock::Signalled)
                        continue;
                    const int now = ++inside;
                    for (int seen = most; now > seen && !most.compare_exchange_weak(seen, now);)
                    {
                    }
                    for (unsigned m = 0; m < 3; ++m)
                        if (m != skip)
                        {
                            ++guarded[m];
                            ++done[m];
                        }
                    ++served;
                    if (random() % 8 == 0)
                        std::this_thread::yield(); // the others pile up
                    --inside;
                }
            });
    for (auto& worker : workers)
        worker.join();
    for (int m = 0; m < 3; ++m)
    {
        EXPECT_EQ(guarded[m], done[m].load());
        EXPECT_TRUE(mutexes[m].Lock(0) && mutexes[m].Unlock());
    }
    EXPECT_EQ(most, 1) << "any two of three mutexes have one in common";
    EXPECT_GT(served, 0);
    EXPECT_TRUE(semaphore.Lock(0) && semaphore.Lock(0));
    EXPECT_FALSE(semaphore.Lock(0));
}

// Signals are neither lost nor doubled on their way through a semaphore, with waiters that give up at random.
TEST(WaitsAmongThreads, LoseNoSignal)
{
    Semaphore items(0, 0x7FFFFFFF);
    WEvent quit(true);
    constexpr int producers = 2, each = 20000;
    std::atomic<int> count{0};
    std::vector<std::thread> consumers, makers;
    for (int c = 0; c < 2; ++c)
        consumers.emplace_back(
            [&]
            {
                while (!quit.Lock(0))
                    count += items.Lock(1);
            });
    for (int p = 0; p < producers; ++p)
        makers.emplace_back(
            [&]
            {
                for (int n = 0; n < each; ++n)
                    items.Unlock();
            });
    for (auto& maker : makers)
        maker.join();
    quit.Set();
    for (auto& consumer : consumers)
        consumer.join();
    while (items.Lock(0))
        ++count;
    EXPECT_EQ(count, producers * each);

    // Two threads answer each other: a wake-up that is lost would stop them.
    WEvent there, back;
    std::thread other(
        [&]
        {
            for (int n = 0; n < 20000; ++n)
            {
                there.Lock();
                back.Set();
            }
        });
    bool answered = true;
    for (int n = 0; n < 20000; ++n)
    {
        there.Set();
        answered = answered && back.Lock(60000);
    }
    other.join();
    EXPECT_TRUE(answered);
}

} // namespace
