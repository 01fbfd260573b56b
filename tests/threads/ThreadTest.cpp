// Threads: how they start, end, stop and are seen from outside.

#include <Bedrock/host/ExceptionHandler.h>
#include <Bedrock/memory/Alloc.h>
#include <Bedrock/memory/PString.h>
#include <Bedrock/platform/SuspendGuard.h>
#include <Bedrock/threads/MultiLock.h>
#include <Bedrock/threads/Mutex.h>
#include <Bedrock/threads/Semaphore.h>
#include <Bedrock/threads/Thread.h>

#include "support/Support.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <fstream>
#include <pthread.h>
#include <sys/resource.h>
#include <thread>

namespace
{

using Zem::ExceptionHandler;
using Zem::MultiLock;
using Zem::Mutex;
using Zem::Semaphore;
using Zem::SyncObject;
using Zem::Thread;
using Zem::WEvent;

constexpr std::uint32_t patience = 60000;

void Rest(int milliseconds)
{
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

// What a body leaves behind is seen by who waited for its end.
struct Life
{
    unsigned (*end)(Life&);
    Mutex mutex;
    bool hasLocals = false; // the destructor of a thread-local object ran
    bool isUnwound = false; // the destructor of a local object ran
};

struct Local
{
    ~Local()
    {
        if (!life)
            return;
        Rest(5); // late, and still before the end is told
        life->hasLocals = true;
    }
    Life* life = nullptr;
};
thread_local Local local;

struct Frame
{
    explicit Frame(bool& ran) : isUnwound(ran) {}
    ~Frame() { isUnwound = true; }
    bool& isUnwound;
};

[[noreturn]] void EndBelow(std::uint32_t code) noexcept
{
    Thread::End(code);
}

TEST(Thread, TellsItsEndAndLeavesNothingBehind)
{
    const struct
    {
        const char* what;
        unsigned (*end)(Life&);
        std::uint32_t code;
        bool isUnwound;
    } rows[] = {
        {"returns", [](Life& life) { return Frame(life.isUnwound), 7u; }, 7, true},
        {"returns the code of the living", [](Life&) { return 259u; }, 259, false},
        {"returns the code of a failure", [](Life&) { return 0xFFFFFFFFu; }, 0xFFFFFFFF, false},
        {"ends",
         [](Life& life) -> unsigned
         {
             const Frame frame(life.isUnwound);
             Thread::End(8);
         },
         8, false},
        {"ends where all is caught",
         [](Life& life) -> unsigned
         {
             try
             {
                 const Frame frame(life.isUnwound);
                 Thread::End(9);
             }
             catch (...)
             {
                 return 1;
             }
         },
         9, false},
        {"ends while something is caught",
         [](Life&) -> unsigned
         {
             try
             {
                 throw 1;
             }
             catch (int)
             {
                 static auto* kept = new std::vector<std::exception_ptr>; // nobody will free it
                 kept->push_back(std::current_exception());
                 EndBelow(10);
             }
             return 1;
         },
         10, false},
        {"ends within a protected call of its own",
         [](Life&) -> unsigned
         {
             const auto inner = [](void*) -> int { EndBelow(11); };
             ExceptionHandler::Main(inner, nullptr);
             return 1;
         },
         11, false},
        {"throws a failure",
         [](Life& life) -> unsigned
         {
             const Frame frame(life.isUnwound);
             throw Zem::Exception("ThreadTest", 1, "thrown on purpose");
         },
         0, true},
        {"throws anything",
         [](Life& life) -> unsigned
         {
             const Frame frame(life.isUnwound);
             throw 1;
         },
         0, true},
#if !defined(__SANITIZE_THREAD__) // counts what a report needs as a call that a handler of signals may not make
        {"reads from nowhere",
         [](Life&) -> unsigned
         {
             volatile int* const volatile nowhere = reinterpret_cast<int*>(64);
             return static_cast<unsigned>(*nowhere);
         },
         0, false},
#endif
    };
    Zem::ExceptionHandler::SetAssertions(false); // no dialog: a failure ends its thread
    for (const auto& row : rows)
        for (const bool isTold : {true, false})
        {
            SCOPED_TRACE(std::string(row.what) + (isTold ? ", waited for" : ", terminated"));
            Life life;
            life.end = row.end;
            const auto body = [](void* data) -> unsigned
            {
                auto& mine = *static_cast<Life*>(data);
                local.life = &mine;
                mine.mutex.Lock();
                return mine.end(mine);
            };
            Thread thread(body, &life, false);
            ASSERT_TRUE(thread.StartedOk());
            EXPECT_FALSE(thread.Lock(10));
            EXPECT_TRUE(thread.IsAlive() && thread.Resume()) << "made suspended";
            EXPECT_TRUE(!isTold || (thread.Lock(patience) && thread.Lock(0)));
            EXPECT_EQ(thread.Terminate(), row.code);
            EXPECT_TRUE(life.hasLocals && life.isUnwound == row.isUnwound);
            EXPECT_FALSE(thread.IsAlive() || thread.Suspend() || thread.Resume() ||
                         thread.SetPriority(Thread::PriorityNormal) || thread.SetName("gone"));
            EXPECT_EQ(thread.Terminate(), row.code) << "again";
            EXPECT_FALSE(life.mutex.Lock(0)) << "left behind";
            EXPECT_TRUE(life.mutex.Unlock());
        }
    Zem::ExceptionHandler::SetAssertions(true);

    Life life; // a thread of somebody else's
    std::thread(
        [&]
        {
            local.life = &life;
            life.mutex.Lock();
            const Frame frame(life.isUnwound);
            Thread::End(1);
        })
        .join();
    EXPECT_TRUE(life.hasLocals && life.isUnwound);
    EXPECT_TRUE(!life.mutex.Lock(0) && life.mutex.Unlock());
}

TEST(Thread, IsAskedToStopByAnEventThatItStandsForAmongOthers)
{
    struct Task
    {
        Thread* thread;
        WEvent ready;
        WEvent work;
        int done = 0, asked = 0;
    } task;
    const auto body = [](void* data) -> unsigned
    {
        auto& mine = *static_cast<Task*>(data);
        mine.asked += mine.thread->IsDone();
        mine.ready.Set();
        SyncObject* objects[] = {mine.thread, &mine.work};
        for (;;)
        {
            MultiLock wait(objects, 2, false);
            if (wait.Lock(patience, false) != MultiLock::Signalled + 1u)
                break;
            ++mine.done;
        }
        mine.asked += mine.thread->IsDone(); // the wait took the signal
        return 3;
    };
    Thread thread(body, &task, false);
    task.thread = &thread;
    SyncObject* objects[] = {&thread};
    EXPECT_EQ(MultiLock(objects, 1, false).Lock(0), MultiLock::TimedOut);
    thread.Resume();
    EXPECT_TRUE(task.ready.Lock(patience));
    task.work.Set();
    EXPECT_EQ(thread.Terminate(), 3u);
    EXPECT_EQ(task.asked, 0);
    EXPECT_LE(task.done, 1);

    // Once for each `Terminate`, also of an ended thread.
    EXPECT_FALSE(thread.IsDone());
    thread.Terminate();
    EXPECT_TRUE(thread.IsDone());
    EXPECT_FALSE(thread.IsDone());
}

TEST(Thread, OutlivesItsObjectOnlyWhenToldSo)
{
    std::atomic<int> state{0};
    const auto body = [](void* data) -> unsigned
    {
        auto& value = *static_cast<std::atomic<int>*>(data);
        value += 10; // from here on it does without its object
        while (value == 10)
            std::this_thread::yield();
        value = 2;
        return 0;
    };
    {
        Thread thread(body, &state, true);
        thread.DisableTermination();
        while (state == 0)
            Rest(1);
    }
    EXPECT_EQ(state.exchange(1), 10);
    for (int turn = 0; turn < 20000 && state != 2; ++turn)
        Rest(1);
    EXPECT_EQ(state, 2);

    state = 1;
    {
        Thread thread(body, &state, true);
    }
    EXPECT_EQ(state, 2) << "the destructor waited";
}

TEST(Thread, ThatCannotBeMadeFailsByResult)
{
    pthread_attr_t usual, huge;
    pthread_getattr_default_np(&usual);
    pthread_attr_init(&huge);
    pthread_attr_setstacksize(&huge, sizeof(void*) == 8 ? std::size_t{1} << 46 : std::size_t{3} << 30);
    ASSERT_EQ(pthread_setattr_default_np(&huge), 0);
    Thread thread([](void*) { return 0u; }, nullptr, true);
    pthread_setattr_default_np(&usual);
    EXPECT_FALSE(thread.StartedOk() || thread.IsAlive() || thread.Lock(0) || thread.Suspend() || thread.Resume() ||
                 thread.SetPriority(Thread::PriorityNormal) || thread.SetName("none"));
    EXPECT_EQ(thread.GetPriority(), Thread::PriorityUnknown);
    EXPECT_EQ(thread.Terminate(), 0xFFFFFFFFu);
    EXPECT_FALSE(thread.IsDone());
}

// What a thread that loops changes, and who stops it.
struct Loop
{
    static unsigned Body(void* data)
    {
        auto& mine = *static_cast<Loop*>(data);
        while (!mine.quit)
        {
            if (mine.step)
                mine.step(mine);
            ++mine.count;
        }
        return 0;
    }
    // Whether it goes on: false only after it stood for long.
    bool Goes()
    {
        const std::uint64_t before = count;
        for (int turn = 0; turn < 20000; ++turn, Rest(1))
            if (count != before)
                return true;
        return false;
    }
    bool Stands()
    {
        const std::uint64_t before = count;
        Rest(20);
        return count == before;
    }
    void (*step)(Loop&) = nullptr;
    std::atomic<std::uint64_t> count{0};
    std::atomic<bool> quit{false};
};

TEST(Thread, StandsWhileItIsSuspendedAndGoesOnAsOftenResumed)
{
    sigset_t all, before; // a thread must be stoppable even if its maker blocks every signal
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    Loop loop;
    Thread thread(Loop::Body, &loop, true);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    ASSERT_TRUE(loop.Goes());
    EXPECT_TRUE(thread.Resume()) << "of a running thread: nothing to do";
    for (int round = 0; round < 3; ++round)
    {
        EXPECT_TRUE(thread.Suspend());
        EXPECT_TRUE(loop.Stands());
        EXPECT_TRUE(thread.Suspend() && thread.Resume());
        EXPECT_TRUE(loop.Stands()) << "one suspension is left";
        EXPECT_TRUE(thread.IsAlive() && thread.Resume());
        EXPECT_TRUE(loop.Goes());
    }
    int most = 0;
    while (most < 1000 && thread.Suspend())
        ++most;
    EXPECT_EQ(most, 127);
    EXPECT_TRUE(loop.Stands());
    for (most = 127; most > 0; --most)
        EXPECT_TRUE(thread.Resume());
    EXPECT_TRUE(loop.Goes());
    loop.quit = true;
    thread.Terminate();
}

TEST(Thread, SuspendsItselfUntilAnotherResumesIt)
{
    struct Self
    {
        Thread* thread;
        std::atomic<int> step{0};
    } self;
    Thread thread(
        [](void* data) -> unsigned
        {
            auto& mine = *static_cast<Self*>(data);
            mine.step = 1;
            const bool worked = mine.thread->Suspend();
            mine.step = 2;
            return worked;
        },
        &self, false);
    self.thread = &thread;
    thread.Resume();
    while (self.step == 0)
        Rest(1);
    EXPECT_FALSE(thread.Lock(20));
    EXPECT_EQ(self.step, 1);
    while (!thread.Lock(1))
        thread.Resume();
    EXPECT_EQ(thread.Terminate(), 1u);
}

// A thread that is stopped while it holds one of the library's own locks would stop whoever stopped it.
TEST(Thread, IsNeverStoppedInsideWhatOthersNeed)
{
    static Mutex shared;
    static Semaphore few(1, 2);
    const struct
    {
        const char* what;
        void (*step)(Loop&);
    } rows[] = {
        {"large blocks", [](Loop&) { Zem::Alloc::Delete(Zem::Alloc::New(100000)); }},
        {"small blocks",
         [](Loop&)
         {
             void* blocks[40];
             for (auto& block : blocks)
                 block = Zem::Alloc::New(2000);
             for (auto* block : blocks)
                 Zem::Alloc::Delete(block);
         }},
        {"text", [](Loop& loop) { Zem::PString(("text " + std::to_string(loop.count % 64)).c_str()); }},
        {"a mutex that others want",
         [](Loop&)
         {
             if (shared.Lock(0))
                 shared.Unlock();
         }},
        {"a wait for several",
         [](Loop&)
         {
             SyncObject* objects[] = {&few, &shared};
             MultiLock(objects, 2, false).Lock(0, true);
         }},
        {"objects made and closed", [](Loop&) { WEvent(true).Set(); }},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.what);
        Loop loop;
        loop.step = row.step;
        Thread thread(Loop::Body, &loop, true);
        ASSERT_TRUE(loop.Goes());
        for (int round = 0; round < 100; ++round)
        {
            ASSERT_TRUE(thread.Suspend());
            for (const auto& other : rows)
                other.step(loop); // must come back
            ASSERT_TRUE(thread.Resume());
        }
        loop.quit = true;
        thread.Terminate();
    }
    EXPECT_FALSE(shared.IsLocked());
}

#if !defined(__SANITIZE_THREAD__)
// A fault that ends a body inside the heap leaves the thread as stoppable as any.
TEST(Thread, CanBeStoppedAfterAFaultInsideWhatOthersNeed)
{
    Loop loop;
    loop.step = [](Loop& mine)
    {
        if (mine.count == 0)
            ExceptionHandler::Main(
                [](void*) -> int
                {
                    const Zem::Platform::SuspendGuard heap;
                    const volatile int* const volatile nowhere = reinterpret_cast<int*>(64);
                    return *nowhere;
                },
                nullptr);
    };
    ExceptionHandler::SetAssertions(false);
    Thread thread(Loop::Body, &loop, true);
    EXPECT_TRUE(loop.Goes() && loop.count > 0);
    EXPECT_TRUE(thread.Suspend());
    EXPECT_TRUE(loop.Stands());
    EXPECT_TRUE(thread.Resume());
    loop.quit = true;
    thread.Terminate();
    ExceptionHandler::SetAssertions(true);
}
#endif

// A wait goes on through a suspension: it is neither cut short nor does it lose what it was given meanwhile.
TEST(Thread, KeepsItsWaitsThroughASuspension)
{
    struct Waiter
    {
        WEvent event;
        std::chrono::steady_clock::duration waited{};
        std::atomic<bool> isReady{false};
    } waiter;
    const auto body = [](void* data) -> unsigned
    {
        auto& mine = *static_cast<Waiter*>(data);
        const auto start = std::chrono::steady_clock::now();
        mine.isReady = true;
        const bool taken = mine.event.Lock(100);
        mine.waited = std::chrono::steady_clock::now() - start;
        return taken;
    };
    for (const bool isSet : {true, false})
    {
        waiter.isReady = false;
        Thread thread(body, &waiter, true);
        while (!waiter.isReady)
            Rest(1);
        Rest(5);
        ASSERT_TRUE(thread.Suspend());
        if (isSet)
            waiter.event.Set();
        Rest(10);
        ASSERT_TRUE(thread.Resume());
        EXPECT_EQ(thread.Terminate(), isSet ? 1u : 0u);
        EXPECT_TRUE(isSet || waiter.waited >= std::chrono::milliseconds(100));
    }
}

TEST(Thread, HasAPriorityAndANameThatTheSystemShows)
{
    struct Seen
    {
        std::uint32_t id = 0;
        int nice = 0;
    } seen;
    Thread thread(
        [](void* data) -> unsigned
        {
            auto& mine = *static_cast<Seen*>(data);
            mine.id = Thread::GetCurrentId();
            mine.nice = getpriority(PRIO_PROCESS, mine.id);
            return 0;
        },
        &seen, false);
    // Whether this user may lower a thread and raise it again.
    const int usual = getpriority(PRIO_PROCESS, 0);
    bool mayRaise = false;
    std::thread(
        [&]
        {
            const auto self = Thread::GetCurrentId();
            mayRaise = setpriority(PRIO_PROCESS, self, usual + 1) == 0 && setpriority(PRIO_PROCESS, self, usual) == 0;
        })
        .join();
    EXPECT_EQ(thread.GetPriority(), Thread::PriorityNormal);
    const struct
    {
        int priority;
        bool isOne;
    } rows[] = {{-15, true}, {-2, true}, {-1, true},  {0, true},    {1, true},          {2, true},
                {15, true},  {3, false}, {-3, false}, {-16, false}, {0x7FFFFFFF, false}};
    int last = 0;
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.priority);
        EXPECT_EQ(thread.SetPriority(static_cast<Thread::Priority>(row.priority)), row.isOne);
        last = row.isOne ? row.priority : last;
        EXPECT_EQ(thread.GetPriority(), last) << "also before it runs";
    }
    thread.SetPriority(Thread::PriorityLowest);
    EXPECT_TRUE(thread.SetName("a name longer than fits"));
    // It waits to be resumed; its number is the one that is not ours.
    std::string task;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task"))
    {
        std::string name;
        std::getline(std::ifstream(entry.path() / "comm"), name);
        if (name == "a name longer t")
            task = entry.path().filename();
    }
    ASSERT_FALSE(task.empty());
    thread.Resume();
    EXPECT_TRUE(thread.Lock(patience));
    EXPECT_EQ(std::to_string(seen.id), task);
    EXPECT_EQ(seen.nice, mayRaise ? std::min(usual + 10, 19) : usual);
    EXPECT_EQ(thread.GetPriority(), Thread::PriorityLowest) << "still known";
}

} // namespace
