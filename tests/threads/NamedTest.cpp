// Waitable objects that processes share by name: their rules, their life time, and what is left when a process is killed.

#include <Bedrock/host/SharedMemory.h>
#include <Bedrock/threads/MultiLock.h>
#include <Bedrock/threads/Mutex.h>
#include <Bedrock/threads/Semaphore.h>
#include <Bedrock/threads/Thread.h>
#include <Bedrock/threads/WEvent.h>

#include "support/Child.h"
#include "support/Support.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <memory>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <thread>

namespace
{

using Zem::MultiLock;
using Zem::Mutex;
using Zem::Semaphore;
using Zem::SyncObject;
using Zem::Thread;
using Zem::WEvent;

constexpr std::uint32_t patience = 30000;

// No test leaves a file: the names of a run are told apart by the process that made them up.
class Named : public testing::Test
{
protected:
    void TearDown() override
    {
        for (const char* folder : {"/dev/shm", "/tmp"})
            for (const auto& entry : std::filesystem::directory_iterator(folder))
                EXPECT_EQ(entry.path().string().find(".w.bedrock%20test%20" + std::to_string(getpid()) + "%2F"),
                          std::string::npos)
                    << entry.path();
    }
};

TEST_F(Named, ObjectIsOneForAllWhoOpenIt)
{
    const std::string name = ::Test::UniqueName("shared"), event = ::Test::UniqueName("there");
    const std::string ready = ::Test::UniqueName("ready");
    const pid_t child = ::Test::Fork(
        [&]
        {
            Semaphore semaphore(2, 3, name.c_str());
            WEvent there(true, true, event.c_str()), isReady(false, false, ready.c_str());
            isReady.Set();
            // The parent takes both, then gives one back.
            for (int turn = 0; turn < 30000 && there.Lock(0); ++turn)
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            return semaphore.Lock(patience) && !semaphore.Lock(0) ? 5 : 6;
        });
    ASSERT_TRUE(WEvent(false, false, ready.c_str()).Lock(patience));
    WEvent there(false, false, event.c_str()); // what it asks for does not count any more
    Semaphore semaphore(0, 1, name.c_str());
    EXPECT_TRUE(there.Lock(0) && there.Lock(0)) << "a manual one, signalled";
    EXPECT_TRUE(semaphore.Lock(0) && semaphore.Lock(0) && !semaphore.Lock(0));
    EXPECT_FALSE(semaphore.Unlock(4));
    there.Reset();
    EXPECT_TRUE(semaphore.Unlock());
    EXPECT_EQ(::Test::WaitFor(child), 5);

    // Another kind under the same name, and names that cannot be.
    const std::string longest(259 - name.size(), '/'), tooLong = name + longest + "x";
    EXPECT_TRUE(static_cast<void*>(Mutex(false, (name + longest).c_str())));
    const struct
    {
        const char* what;
        std::unique_ptr<SyncObject> object;
        bool works;
    } rows[] = {
        {"mutex under a semaphore's name", std::make_unique<Mutex>(false, name.c_str()), false},
        {"event under a semaphore's name", std::make_unique<WEvent>(true, true, name.c_str()), false},
        {"semaphore", std::make_unique<Semaphore>(1, 1, name.c_str()), true},
        {"semaphore that cannot be", std::make_unique<Semaphore>(2, 1, name.c_str()), false},
        {"manual event as one that resets itself", std::make_unique<WEvent>(false, true, event.c_str()), true},
        {"260 bytes", std::make_unique<WEvent>(false, true, tooLong.c_str()), false},
        {"case counts", std::make_unique<Mutex>(false, (name + "A").c_str()), true},
        {"case counts", std::make_unique<WEvent>(true, false, (name + "a").c_str()), true},
        {"no name", std::make_unique<Mutex>(true, ""), true},
        {"no name either", std::make_unique<WEvent>(true, false, ""), true},
    };
    for (const auto& row : rows)
        EXPECT_EQ(static_cast<void*>(*row.object) != nullptr, row.works) << row.what;
    EXPECT_FALSE(rows[0].object->Lock(0) || rows[0].object->Unlock());

    // Two handles of one process are one object, which a wait for all refuses to take twice.
    Semaphore again(0, 1, name.c_str());
    SyncObject* twice[] = {&semaphore, &again};
    EXPECT_EQ(MultiLock(twice, 2, false).Lock(0, true), MultiLock::Failed);
    EXPECT_TRUE(again.Unlock() && semaphore.Lock(0));
}

TEST_F(Named, MutexOfAProcessThatIsKilledIsLeftBehind)
{
    const std::string name = ::Test::UniqueName("mutex"), ready = ::Test::UniqueName("ready");
    const struct
    {
        const char* what;
        int signal; // 0: the child ends by itself
        bool isMixed, isLocked;
    } rows[] = {
        {"a single wait, killed", SIGKILL, false, true},
        {"among private objects, killed", SIGKILL, true, false},
        {"among private objects, ended", 0, true, false},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.what);
        const pid_t child = ::Test::Fork(
            [&]
            {
                Mutex mutex(false, name.c_str());
                WEvent isReady(false, false, ready.c_str());
                if (!mutex.Lock(patience) || !mutex.Lock(0))
                    return 1;
                isReady.Set();
                std::this_thread::sleep_for(std::chrono::milliseconds(row.signal ? 30000 : 60));
                return 0; // as the owner, twice
            });
        WEvent isReady(false, false, ready.c_str()), never;
        Mutex mutex(false, name.c_str());
        ASSERT_TRUE(isReady.Lock(patience));
        EXPECT_FALSE(mutex.Lock(30) || mutex.Unlock());
        std::thread killer(
            [&]
            {
                std::this_thread::sleep_for(std::chrono::milliseconds(40));
                if (row.signal)
                    kill(child, row.signal);
            });
        SyncObject* objects[] = {&never, &mutex};
        const auto start = std::chrono::steady_clock::now();
        if (row.isLocked)
            EXPECT_FALSE(mutex.Lock(patience)) << "taken, and told so";
        else
            EXPECT_EQ(MultiLock(objects, 2, false).Lock(patience, false), MultiLock::Abandoned + 1u);
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10)) << "long before the time-out";
        killer.join();
        EXPECT_EQ(::Test::WaitFor(child), row.signal ? -row.signal : 0);
        EXPECT_TRUE(mutex.Unlock() && !mutex.Unlock());
        EXPECT_TRUE(mutex.Lock(0) && mutex.Unlock()) << "told once";
    }
}

TEST_F(Named, ObjectGoesWithItsLastUser)
{
    const std::string name = ::Test::UniqueName("event");
    for (const bool isKilled : {true, false})
    {
        const pid_t child = ::Test::Fork(
            [&]
            {
                WEvent event(true, true, name.c_str());
                if (isKilled)
                    raise(SIGKILL); // what it made stays behind, for nobody
                return 0;
            });
        EXPECT_EQ(::Test::WaitFor(child), isKilled ? -SIGKILL : 0);
        EXPECT_FALSE(Semaphore(0, 2, name.c_str()).Lock(0)) << "of another kind, and new";
        EXPECT_FALSE(WEvent(true, false, name.c_str()).Lock(0)) << "new again";
    }

    // Closed by its owner, a mutex stays his until he ends; then it was left behind.
    {
        WEvent closed, seen;
        std::thread owner(
            [&]
            {
                std::make_unique<Mutex>(true, name.c_str()).reset();
                closed.Set();
                seen.Lock(patience);
            });
        closed.Lock(patience);
        Mutex mutex(false, name.c_str());
        EXPECT_FALSE(mutex.Lock(20));
        seen.Set();
        SyncObject* objects[] = {&mutex};
        EXPECT_EQ(MultiLock(objects, 1, false).Lock(patience), MultiLock::Abandoned);
        EXPECT_TRUE(mutex.Unlock());
        owner.join();
    }

    // Opened and closed at once by many: nobody gets a handle on what another one has just removed.
    std::vector<pid_t> children;
    for (int c = 0; c < 4; ++c)
        children.push_back(::Test::Fork(
            [&]
            {
                for (int round = 0; round < 1000; ++round)
                {
                    Mutex mutex(false, name.c_str());
                    if (!mutex.Lock(patience) || !mutex.Unlock())
                        return 1;
                }
                return 0;
            }));
    for (const pid_t child : children)
        EXPECT_EQ(::Test::WaitFor(child), 0);
}

TEST_F(Named, ObjectsAreWaitedForTogetherWithPrivateOnes)
{
    const std::string names[] = {::Test::UniqueName("event"), ::Test::UniqueName("semaphore"),
                                 ::Test::UniqueName("mutex")};
    WEvent event(false, false, names[0].c_str()), own, pulsed(true);
    Semaphore semaphore(0, 1, names[1].c_str()), ownCount(0, 1);
    Mutex mutex(false, names[2].c_str()), ownMutex;
    SyncObject* objects[] = {&own, &event, &ownCount, &semaphore, &pulsed};
    const struct
    {
        const char* what;
        std::uint32_t taken;
        void (*signal)(SyncObject** objects);
    } any[] = {
        {"private event", 0, [](SyncObject** all) { static_cast<WEvent*>(all[0])->Set(); }},
        {"named event", 1, [](SyncObject** all) { static_cast<WEvent*>(all[1])->Set(); }},
        {"private semaphore", 2, [](SyncObject** all) { all[2]->Unlock(); }},
        {"named semaphore", 3, [](SyncObject** all) { all[3]->Unlock(); }},
        {"pulse of a private event", 4, [](SyncObject** all) { static_cast<WEvent*>(all[4])->Pulse(); }},
        {"pulse of a named event", 1, [](SyncObject** all) { static_cast<WEvent*>(all[1])->Pulse(); }},
    };
    for (const auto& row : any)
    {
        SCOPED_TRACE(row.what);
        std::atomic<bool> isOver{false};
        std::thread signaller(
            [&]
            {
                // A pulse meets only who waits already: it is repeated.
                do
                {
                    std::this_thread::sleep_for(std::chrono::milliseconds(10));
                    row.signal(objects);
                } while (std::string(row.what).starts_with("pulse") && !isOver);
            });
        EXPECT_EQ(MultiLock(objects, 5, false).Lock(patience, false), MultiLock::Signalled + row.taken);
        isOver = true;
        signaller.join();
        semaphore.Lock(0); // the guard gave it back
        ownCount.Lock(0);
        EXPECT_EQ(MultiLock(objects, 5, false).Lock(0, false), MultiLock::TimedOut) << "nothing stays";
    }

    // All at one moment: whatever comes first is not taken before the last is there.
    SyncObject* whole[] = {&event, &own, &mutex, &semaphore, &ownMutex};
    for (int last = 0; last < 4; ++last)
    {
        SCOPED_TRACE(last);
        WEvent isHeld, letGo;
        std::thread holder( // of the named mutex
            [&]
            {
                mutex.Lock();
                isHeld.Set();
                letGo.Lock(patience);
                mutex.Unlock();
            });
        isHeld.Lock(patience);
        std::thread signaller(
            [&]
            {
                for (int step = 1; step <= 4; ++step)
                {
                    std::this_thread::sleep_for(std::chrono::milliseconds(5));
                    if (step > 1)
                    {
                        ownMutex.Lock();
                        EXPECT_TRUE(ownMutex.Unlock()) << "free";
                    }
                    switch ((last + step) % 4)
                    {
                    case 0:
                        event.Set();
                        break;
                    case 1:
                        own.Set();
                        break;
                    case 2:
                        letGo.Set();
                        break;
                    default:
                        semaphore.Unlock();
                        break;
                    }
                }
            });
        {
            MultiLock wait(whole, 5, false);
            EXPECT_EQ(wait.Lock(1, true), MultiLock::TimedOut);
            EXPECT_EQ(wait.Lock(patience, true), MultiLock::Signalled);
            EXPECT_TRUE(wait.IsLocked(0) && wait.IsLocked(4));
            EXPECT_FALSE(event.Lock(0) || own.Lock(0) || semaphore.Lock(0));
        }
        signaller.join();
        holder.join();
        EXPECT_TRUE(semaphore.Lock(0) && mutex.Lock(0) && ownMutex.Lock(0));
        EXPECT_TRUE(mutex.Unlock() && ownMutex.Unlock() && !mutex.Unlock());
    }
}

// On a system that cannot let a thread sleep on several words, everything works, only later.
TEST_F(Named, ObjectsAreWaitedForTogetherWhereTheSystemDoesNotHelp)
{
    const std::string names[] = {::Test::UniqueName("event"), ::Test::UniqueName("semaphore")};
    const pid_t child = ::Test::Fork(
        [&]
        {
            sock_filter rules[] = {
                BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
                BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_futex_waitv, 0, 1),
                BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS),
                BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
            };
            sock_fprog program = {4, rules};
            if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
                prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0)
                return 2;
            if (syscall(SYS_futex_waitv, nullptr, 0, 0, nullptr, 0) == 0 || errno != ENOSYS)
                return 3;
            WEvent event(false, false, names[0].c_str()), own;
            Semaphore semaphore(0, 1, names[1].c_str());
            SyncObject* objects[] = {&own, &event, &semaphore};
            MultiLock wait(objects, 3, false);
            const auto start = std::chrono::steady_clock::now();
            if (wait.Lock(30, false) != MultiLock::TimedOut ||
                std::chrono::steady_clock::now() - start < std::chrono::milliseconds(30))
                return 4;
            semaphore.Unlock(); // the parent takes it, and signals the event
            if (MultiLock(objects, 2, false).Lock(patience, false) != MultiLock::Signalled + 1u)
                return 5;
            own.Set();
            event.Set();
            return MultiLock(objects, 2, false).Lock(patience, true) == MultiLock::Signalled ? 0 : 6;
        });
    Semaphore semaphore(0, 1, names[1].c_str());
    WEvent event(false, false, names[0].c_str());
    EXPECT_TRUE(semaphore.Lock(patience));
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    event.Set();
    EXPECT_EQ(::Test::WaitFor(child), 0);
}

// Processes that wait for all of two mutexes and one of two places, some killed wherever they are, also inside a guard.
TEST_F(Named, WaitsForAllSurviveTheDeathOfAnyProcess)
{
    struct Numbers
    {
        std::atomic<std::uint32_t> served, abandoned, torn;
        std::uint32_t first, second; // equal whenever both mutexes are free
    };
    const auto work = [](const std::string& argument)
    {
        std::vector<std::string> parts;
        for (std::size_t at = 0, next; at < argument.size(); at = next + 1)
        {
            next = argument.find('|', at);
            parts.push_back(argument.substr(at, next - at));
        }
        Zem::SharedMemory shared(parts[3].c_str(), sizeof(Numbers));
        if (!shared.ProcessAttach())
            return;
        auto& mine = *static_cast<Numbers*>(shared.Data());
        Mutex first(false, parts[0].c_str()), second(false, parts[1].c_str());
        Semaphore place(0, 1, parts[2].c_str());
        SyncObject* orders[2][3] = {{&first, &place, &second}, {&second, &first, &place}};
        for (unsigned round = 0;; ++round)
        {
            MultiLock wait(orders[round % 2], 3, false);
            const std::uint32_t result = wait.Lock(round % 3 ? patience : 1, true);
            if (result == MultiLock::TimedOut)
                continue;
            if (result >= MultiLock::Abandoned)
            {
                ++mine.abandoned;
                mine.second = mine.first; // mends what the dead one left half done
            }
            else if (mine.first != mine.second)
                ++mine.torn;
            ++mine.first;
            for (int turn = 0; turn < 50; ++turn)
                std::atomic_signal_fence(std::memory_order_seq_cst);
            ++mine.second;
            ++mine.served;
            if (result >= MultiLock::Abandoned)
            {
                first.Unlock(); // the guard leaves these to who was told
                second.Unlock();
                place.Unlock();
            }
        }
    };
    if (const std::string argument = ::Test::ChildArgument(); !argument.empty())
        return work(argument);

    const std::string names[] = {::Test::UniqueName("a"), ::Test::UniqueName("b"), ::Test::UniqueName("places")};
    const std::string block = ::Test::UniqueName("numbers");
    Zem::SharedMemory memory(block.c_str(), sizeof(Numbers));
    ASSERT_TRUE(memory.ProcessAttach());
    auto& numbers = *static_cast<Numbers*>(memory.Data());
    Mutex a(false, names[0].c_str()), b(false, names[1].c_str());
    Semaphore places(100000, 1000000, names[2].c_str()); // a killed process keeps the one it took

    auto random = ::Test::Random(7);
    const auto start = [&]
    {
        return ::Test::RunSelf("Named.WaitsForAllSurviveTheDeathOfAnyProcess",
                               names[0] + '|' + names[1] + '|' + names[2] + '|' + block + '|');
    };
    pid_t children[3] = {start(), start(), start()};
    for (int deaths = 0; deaths < 30; ++deaths)
    {
        const std::uint32_t before = numbers.served;
        for (int turn = 0; turn < 30000 && numbers.served < before + 20; ++turn)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        ASSERT_GE(numbers.served, before + 20) << "they go on after " << deaths << " deaths";
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 3000));
        pid_t& child = children[random() % 3];
        kill(child, SIGKILL);
        EXPECT_EQ(::Test::WaitFor(child), -SIGKILL);
        child = start();
    }
    for (const pid_t child : children)
    {
        kill(child, SIGKILL);
        ::Test::WaitFor(child);
    }
    EXPECT_EQ(numbers.torn, 0u);
    EXPECT_GT(numbers.abandoned, 0u) << "of 30 some died inside";
    for (Mutex* mutex : {&a, &b})
    {
        mutex->Lock(1000);
        EXPECT_TRUE(mutex->Unlock());
    }
}

} // namespace
