// Background jobs beside a queue of a mutex and a condition variable with one worker, and beside TBB with one worker:
// from submission to the hand-over on the submitting thread. All sides allocate a job with a virtual operation, process it on
// another thread, give it back through a queue, and delete it on the thread that made it.

#include <Bedrock/threads/Jobs.h>

#include <benchmark/benchmark.h>

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#ifdef BENCH_HAS_TBB
#include <oneapi/tbb/concurrent_queue.h>
#include <oneapi/tbb/global_control.h>
#include <oneapi/tbb/task_arena.h>
#endif

namespace
{

std::int64_t dispatched = 0;

struct Empty final : Zem::Job
{
    void Dispatch() override { ++dispatched; }
};

class Bedrock
{
public:
    Bedrock() { jobs.Init(nullptr); }
    void Add() { jobs.Add(new Empty); }
    void Update() { jobs.Update(); }

private:
    Zem::Jobs jobs;
};

struct Task
{
    virtual ~Task() = default;
    virtual void Process() {}
    virtual void Dispatch() { ++dispatched; }
};

class Condition
{
public:
    Condition() : worker([this] { Work(); }) {}
    ~Condition()
    {
        {
            std::lock_guard lock(queueMutex);
            quit = true;
        }
        wake.notify_one();
        worker.join();
    }
    void Add()
    {
        auto task = std::make_unique<Task>();
        {
            std::lock_guard lock(queueMutex);
            queue.push_back(std::move(task));
        }
        wake.notify_one();
    }
    // Waits for a finished task like `Jobs::Update`, for a millisecond at most.
    void Update()
    {
        std::unique_lock lock(doneMutex);
        if (!ready.wait_for(lock, std::chrono::milliseconds(1), [this] { return !done.empty(); }))
            return;
        while (!done.empty())
        {
            const auto task = std::move(done.front());
            done.pop_front();
            task->Dispatch();
        }
    }

private:
    void Work()
    {
        for (;;)
        {
            std::unique_ptr<Task> task;
            {
                std::unique_lock lock(queueMutex);
                wake.wait(lock, [this] { return quit || !queue.empty(); });
                if (quit)
                    return;
                task = std::move(queue.front());
                queue.pop_front();
            }
            task->Process();
            {
                std::lock_guard lock(doneMutex);
                done.push_back(std::move(task));
            }
            ready.notify_one();
        }
    }

    std::mutex queueMutex, doneMutex;
    std::condition_variable wake, ready;
    std::deque<std::unique_ptr<Task>> queue, done;
    bool quit = false;
    std::thread worker;
};

#ifdef BENCH_HAS_TBB
class Tbb
{
public:
    Tbb() : arena(1, 0) { done.set_capacity(10'000'000); }
    void Add()
    {
        auto* task = new Task;
        arena.enqueue(
            [this, task]
            {
                task->Process();
                done.push(task);
            });
    }
    void Update()
    {
        Task* task = nullptr;
        done.pop(task); // waits; there is no time-out
        do
        {
            task->Dispatch();
            delete task;
        } while (done.try_pop(task));
    }

private:
    tbb::task_arena arena;
    tbb::concurrent_bounded_queue<Task*> done;
};
#endif

template <class Queue>
void Throughput(benchmark::State& state)
{
    Queue queue;
    for (auto _ : state)
    {
        dispatched = 0;
        for (std::int64_t i = 0; i < state.range(0); ++i)
            queue.Add();
        while (dispatched < state.range(0))
            queue.Update();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

// One job at a time: the worker sleeps before each.
template <class Queue>
void Latency(benchmark::State& state)
{
    Queue queue;
    for (auto _ : state)
    {
        dispatched = 0;
        queue.Add();
        while (dispatched < 1)
            queue.Update();
    }
}

#define SIZES ->Arg(1000)->Arg(10000)->Arg(100000)->UseRealTime()->Unit(benchmark::kMicrosecond)
BENCHMARK(Throughput<Bedrock>)->Name("Jobs/throughput/Bedrock") SIZES;
BENCHMARK(Throughput<Condition>)->Name("Jobs/throughput/mutex and condition") SIZES;
#ifdef BENCH_HAS_TBB
BENCHMARK(Throughput<Tbb>)->Name("Jobs/throughput/TBB") SIZES;
#endif
BENCHMARK(Latency<Bedrock>)->Name("Jobs/latency/Bedrock")->UseRealTime();
BENCHMARK(Latency<Condition>)->Name("Jobs/latency/mutex and condition")->UseRealTime();
#ifdef BENCH_HAS_TBB
BENCHMARK(Latency<Tbb>)->Name("Jobs/latency/TBB")->UseRealTime();
#endif

} // namespace
