// The job worker: random programs against a model that knows only the rules, hand-over, failures, the consoles.

#include <Bedrock/host/ExceptionHandler.h>
#include <Bedrock/host/Options.h>
#include <Bedrock/threads/Jobs.h>
#include <Bedrock/threads/Thread.h>
#include <Bedrock/threads/WEvent.h>

#include "support/Support.h"

#include <chrono>
#include <deque>
#include <functional>
#include <list>
#include <mutex>
#include <stdexcept>
#include <thread>

using namespace Zem;

namespace
{

// Polls until it holds; false after 20 seconds, which only a hang takes.
bool Until(const std::function<bool()>& holds)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!holds())
    {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::yield();
    }
    return true;
}

// What a job of a program does: `spawns` are the jobs that its `Process` adds.
struct Plan
{
    int parent = -1;
    bool gate = false; // its `Process` waits until all of its batch is in the queue
    std::vector<int> spawns;
};

// A trace of letters and numbers: "p3" processed, "d3" dispatched, "x3" deleted.
using Trace = std::vector<std::string>;

// The rules on plain lists: the worker runs until the queue is empty, then one update dispatches.
struct Model
{
    const std::vector<Plan>& plans;
    std::vector<int> locks;
    std::deque<int> queue, finished;
    std::list<int> pending;
    Trace trace;

    explicit Model(const std::vector<Plan>& program) : plans(program), locks(program.size()) {}

    void Make(int job)
    {
        if (plans[job].parent >= 0)
            ++locks[plans[job].parent];
    }
    void Drain()
    {
        while (!queue.empty())
        {
            const int job = queue.front();
            queue.pop_front();
            trace.push_back("p" + std::to_string(job));
            for (const int child : plans[job].spawns)
            {
                Make(child);
                queue.push_back(child);
            }
            if (locks[job] == 0)
                finished.push_back(job);
            else
                pending.push_back(job);
            for (auto at = pending.begin(); at != pending.end();)
                if (locks[*at] == 0)
                {
                    finished.push_back(*at);
                    at = pending.erase(at);
                }
                else
                    ++at;
        }
    }
    void Update()
    {
        for (; !finished.empty(); finished.pop_front())
        {
            const int job = finished.front();
            trace.push_back("d" + std::to_string(job));
            trace.push_back("x" + std::to_string(job));
            if (plans[job].parent >= 0)
                --locks[plans[job].parent];
        }
    }
};

struct Program
{
    std::vector<Plan> plans;
    std::vector<Job*> made;
    Trace trace;
    std::mutex mutex;
    std::atomic<int> processed{0};
    WEvent open;
    std::thread::id owner = std::this_thread::get_id();
    Jobs jobs;

    void Note(char what, int job, bool onOwner)
    {
        std::lock_guard lock(mutex);
        trace.push_back(what + std::to_string(job));
        if ((std::this_thread::get_id() == owner) != onOwner)
            trace.push_back("on the wrong thread");
    }
    void Make(int job);
};

struct Planned final : Job
{
    Program& program;
    int number;

    Planned(Program& owner, int which, Job* waiting) : Job(waiting), program(owner), number(which) {}
    ~Planned() override { program.Note('x', number, true); }
    const char* GetName() override { return "Planned"; }
    void Process() override
    {
        program.Note('p', number, false);
        if (program.plans[static_cast<std::size_t>(number)].gate)
            program.open.Lock();
        for (const int child : program.plans[number].spawns)
            program.Make(child);
        for (const int child : program.plans[number].spawns)
            program.jobs.Add(program.made[child]);
        ++program.processed;
    }
    void Dispatch() override
    {
        program.Note('d', number, true);
        Job::Dispatch();
    }
};

void Program::Make(int job)
{
    made[job] = new Planned(*this, job, plans[job].parent >= 0 ? made[plans[job].parent] : nullptr);
}

// A job that calls functions.
struct Calls final : Job
{
    std::function<void()> process, dispatch, gone;
    explicit Calls(std::function<void()> work, std::function<void()> handOver = {}, std::function<void()> end = {})
        : process(std::move(work)), dispatch(std::move(handOver)), gone(std::move(end))
    {
    }
    ~Calls() override
    {
        if (gone)
            gone();
    }
    const char* GetName() override { return "Calls"; }
    void Process() override { process(); }
    void Dispatch() override
    {
        if (dispatch)
            dispatch();
    }
};

} // namespace

TEST(Jobs, RandomProgramsMatchTheRules)
{
    std::mt19937_64 random = ::Test::Random(44);
    for (int run = 0; run < 60; ++run)
    {
        Program program;
        const int count = 1 + static_cast<int>(random() % 30);
        std::vector<std::vector<int>> batches(1 + random() % 4);
        program.plans.resize(count);
        program.made.resize(count);
        for (int job = 0; job < count; ++job)
        {
            // A parent must not have been dispatched when its child is made: from a job's `Process` it may be the job
            // itself or what that job waits behind; in a batch, a job of the same batch.
            const int by = job > 0 && random() % 2 ? static_cast<int>(random() % job) : -1;
            if (by >= 0)
            {
                program.plans[by].spawns.push_back(job);
                if (random() % 2)
                    program.plans[job].parent = by;
                continue;
            }
            std::vector<int>& batch = batches[random() % batches.size()];
            if (!batch.empty() && random() % 2)
                program.plans[job].parent = batch[random() % batch.size()];
            batch.push_back(job);
        }

        Model model(program.plans);
        program.jobs.Init(nullptr);
        int expected = 0;
        for (std::size_t round = 0; round < batches.size() + 40; ++round)
        {
            // The first of each batch holds the worker; after the batches it comes alone, to make the worker look at what
            // is pending.
            std::vector<int> batch = {static_cast<int>(program.plans.size())};
            program.plans.emplace_back().gate = true;
            program.made.push_back(nullptr);
            model.locks.push_back(0);
            if (round < batches.size())
                batch.insert(batch.end(), batches[round].begin(), batches[round].end());
            expected -= static_cast<int>(model.trace.size());
            for (const int job : batch)
                model.Make(job), model.queue.push_back(job);
            model.Drain();
            expected += static_cast<int>(model.trace.size());

            for (const int job : batch)
                program.Make(job);
            for (const int job : batch)
                program.jobs.Add(program.made[job]);
            program.open.Set();
            ASSERT_TRUE(Until([&] { return program.processed == expected && !program.jobs.IsActive(); }))
                << "run " << run;

            if (random() % 3)
            {
                model.Update();
                program.jobs.Update();
                while (program.trace.size() < model.trace.size()) // what was finished after the first count
                    program.jobs.Update();
            }
        }
        program.jobs.Done();
        ASSERT_EQ(program.trace, model.trace) << "run " << run;
    }
}

TEST(Jobs, NoWakeUpIsLost)
{
    // One job at a time, each added while the worker is on its way to sleep, awake, or somewhere between.
    constexpr int runs = 100000;
    Jobs jobs;
    jobs.Init(nullptr);
    int dispatched = 0;
    std::mt19937_64 random = ::Test::Random(4);
    for (int run = 0; run < runs; ++run)
    {
        jobs.Add(new Calls([] {}, [&dispatched] { ++dispatched; }));
        ASSERT_TRUE(Until(
            [&]
            {
                jobs.Update();
                return dispatched == run + 1;
            }))
            << "run " << run;
        const auto pause = std::chrono::steady_clock::now() + std::chrono::nanoseconds(random() % 3000);
        while (std::chrono::steady_clock::now() < pause)
            ;
    }
}

TEST(Jobs, DoneLeavesQueuedJobsAndTheObjectDeletesThem)
{
    int processed = 0, dispatched = 0, deleted = 0;
    {
        WEvent started, release;
        std::thread releaser;
        Jobs jobs;
        jobs.Init(nullptr);
        for (int i = 0; i < 6; ++i)
            jobs.Add(new Calls(
                [&]
                {
                    ++processed;
                    started.Set();
                    release.Lock();
                },
                [&] { ++dispatched; }, [&] { ++deleted; }));
        started.Lock();
        EXPECT_TRUE(jobs.IsActive());
        releaser = std::thread(
            [&release]
            {
                std::this_thread::sleep_for(std::chrono::milliseconds(30)); // `Done` waits meanwhile
                release.Set();
            });
        jobs.Done();
        releaser.join();
        EXPECT_EQ(processed, 1);
        jobs.Update(); // the one that was finished
        EXPECT_EQ(dispatched, 1);
        EXPECT_EQ(deleted, 1);
        EXPECT_FALSE(jobs.IsActive());
    }
    EXPECT_EQ(deleted, 6);
}

TEST(Jobs, ALaterWorkerGoesOnWithTheQueue)
{
    ExceptionHandler::SetAssertions(false);
    for (const char* option : {"", "-JobsConsole"}) // with the consoles it takes one job at a time
        for (const bool fails : {false, true})
        {
            SCOPED_TRACE(testing::Message() << option << " fails " << fails);
            Options options;
            options.Init("JobsTest", option);
            WEvent started, release;
            std::vector<int> handed;
            int failed = 0;
            {
                std::vector<std::uint8_t> display(Jobs::displaySize); // goes before the object does
                Jobs jobs;
                jobs.Init(&options); // draws into memory of its own
                jobs.Add(new Calls(
                    [&]
                    {
                        started.Set();
                        release.Lock();
                        if (fails)
                            throw Exception();
                    },
                    [&] { handed.push_back(0); }, [&] { ++failed; }));
                for (int i = 1; i < 4; ++i)
                    jobs.Add(new Calls([] {}, [&handed, i] { handed.push_back(i); }));
                started.Lock();
                std::thread releaser(
                    [&]
                    {
                        std::this_thread::sleep_for(std::chrono::milliseconds(10)); // `Done` waits meanwhile
                        release.Set();
                    });
                jobs.Done();
                releaser.join();
                jobs.SetDisplay(display.data());
                jobs.Init(&options);
                ASSERT_TRUE(Until(
                    [&]
                    {
                        jobs.Update();
                        return handed.size() == (fails ? 3u : 4u);
                    }));
                jobs.Done();
                EXPECT_EQ(handed, fails ? (std::vector<int>{1, 2, 3}) : (std::vector<int>{0, 1, 2, 3}));
                EXPECT_EQ(failed, fails ? 0 : 1);
                EXPECT_EQ(jobs.GetDisplay(), display.data());
            }
            EXPECT_EQ(failed, 1);
        }
    ExceptionHandler::SetAssertions(true);
}

TEST(Jobs, AJobThatFailsEndsTheWorkerAndNothingElse)
{
    ExceptionHandler::SetAssertions(false); // no report on the screen
    int deleted = 0;
    bool later = false;
    {
        Jobs jobs;
        jobs.Init(nullptr);
        jobs.Add(new Calls([] { throw Exception(); }, {}, [&] { ++deleted; }));
        jobs.Add(new Calls([&] { later = true; }, {}, [&] { ++deleted; }));
        ASSERT_TRUE(Until([&] { return !jobs.IsActive(); }));
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        jobs.Add(new Calls([&] { later = true; }, {}, [&] { ++deleted; }));
        jobs.Update();
        jobs.Done();
        EXPECT_EQ(deleted, 0);
    }
    EXPECT_FALSE(later);
    EXPECT_EQ(deleted, 3);

    // A hand-over that throws passes through, and the next one goes on.
    Jobs jobs;
    jobs.Init(nullptr);
    int handed = 0;
    std::atomic<int> worked{0};
    jobs.Add(new Calls([&] { ++worked; }, [] { throw std::runtime_error("no"); }, [&] { ++deleted; }));
    jobs.Add(new Calls([&] { ++worked; }, [&] { ++handed; }, [&] { ++deleted; }));
    ASSERT_TRUE(Until([&] { return worked == 2 && !jobs.IsActive(); }));
    EXPECT_THROW(jobs.Update(), std::runtime_error);
    jobs.Update();
    EXPECT_EQ(handed, 1);
    EXPECT_EQ(deleted, 5);
    ExceptionHandler::SetAssertions(true);
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) // they take processor faults for themselves
TEST(Jobs, AProcessorFaultEndsTheWorkerAndNothingElse)
{
    ExceptionHandler::SetAssertions(false);
    Jobs jobs;
    jobs.Init(nullptr);
    int handed = 0;
    static int* volatile nowhere = nullptr;
    jobs.Add(new Calls([] {}, [&handed] { ++handed; }));
    jobs.Add(new Calls([] { *nowhere = 1; }, [&handed] { ++handed; }));
    jobs.Add(new Calls([] {}, [&handed] { ++handed; }));
    ASSERT_TRUE(Until(
        [&]
        {
            jobs.Update();
            return handed == 1 && !jobs.IsActive();
        }));
    std::this_thread::sleep_for(std::chrono::milliseconds(50)); // the worker has come to the fault now, if not before
    ASSERT_TRUE(Until([&] { return !jobs.IsActive(); }));
    jobs.Update();
    EXPECT_EQ(handed, 1);
    jobs.Done();

    Jobs next; // a worker that starts afterwards is as good as ever
    next.Init(nullptr);
    next.Add(new Calls([] {}, [&handed] { ++handed; }));
    ASSERT_TRUE(Until(
        [&]
        {
            next.Update();
            return handed == 2;
        }));
    ExceptionHandler::SetAssertions(true);
}
#endif

TEST(Jobs, TheConsolesTellWhatHappens)
{
    Options options;
    options.Init("JobsTest", "-JobsConsole");
    std::vector<std::uint8_t> display(Jobs::displaySize, 0xEE), expected = display;
    Jobs jobs;
    jobs.SetDisplay(display.data());
    jobs.Init(&options);
    WEvent go;
    struct Parent final : Job
    {
        const char* GetName() override { return "Parent"; }
    };
    auto* parent = new Parent;
    struct Child final : Job
    {
        WEvent& wait;
        Child(Job* waiting, WEvent& event) : Job(waiting), wait(event) {}
        const char* GetName() override { return "Child"; }
        void Process() override { wait.Lock(); }
    };
    auto* child = new Child(parent, go);
    jobs.Add(parent);
    jobs.Add(child);
    jobs.Add(new Calls([] {}));
    const auto text = [&jobs](Jobs::ConsoleKind kind)
    {
        Console copy;
        std::string all;
        if (jobs.CopyConsole(kind, copy))
            for (int y = 0; y < copy.Height(); ++y)
            {
                std::string row;
                for (int x = 0; x < copy.Width(); ++x)
                    row += static_cast<char>(copy.At(x, y));
                row.erase(row.find_last_not_of(' ') + 1);
                all += row.empty() ? "" : row + '\n';
            }
        return all;
    };
    ASSERT_TRUE(Until([&] { return text(Jobs::MainConsole).ends_with("Processing Job: Child\n"); }));
    EXPECT_NE(text(Jobs::MainConsole).find("Processing Job: Parent\nJob Pending: Parent\n"), std::string::npos);
    EXPECT_EQ(text(Jobs::QueueConsole), "0. Calls\n");
    go.Set();
    ASSERT_TRUE(Until([&] { return text(Jobs::MainConsole).ends_with("Job Complete: Calls (0 ms)\nWaiting...\n"); }));
    EXPECT_EQ(text(Jobs::QueueConsole), "");
    EXPECT_EQ(text(Jobs::DoneConsole), "0. Child\n1. Calls\n");

    Console shown[3];
    for (const auto kind : {Jobs::MainConsole, Jobs::QueueConsole, Jobs::DoneConsole})
        ASSERT_TRUE(jobs.CopyConsole(kind, shown[kind]));
    const int columns[] = {0, 40, 65};
    for (int kind = 0; kind < 3; ++kind)
        shown[kind].BlitToMono44(columns[kind], 28, reinterpret_cast<std::uintptr_t>(expected.data()));
    EXPECT_TRUE(display == expected);

    jobs.Done();
    Console none;
    EXPECT_FALSE(jobs.CopyConsole(Jobs::MainConsole, none));
}
