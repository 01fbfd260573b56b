// Locks: a critical section beside the standard library's recursive mutex, alone, entered again, and fought over.

#include <Bedrock/threads/CriticalSection.h>

#include <benchmark/benchmark.h>

#include <mutex>
#include <thread>

namespace
{

struct Section
{
    void Lock() { section.Lock(); }
    void Unlock() { section.Unlock(); }
    Zem::CriticalSection section;
};

struct StdRecursive
{
    void Lock() { mutex.lock(); }
    void Unlock() { mutex.unlock(); }
    std::recursive_mutex mutex;
};

// The C library's mutexes drop their atomic operations while a process has never had a second thread. A real-time
// application has threads, so this program has had one too before anything is measured.
const bool hadThread = (std::thread([] {}).join(), true);

// Behind a pointer that the compiler cannot see through, as a lock inside somebody's object is.
template <class T>
void Uncontended(benchmark::State& state)
{
    T object;
    T* lock = &object;
    benchmark::DoNotOptimize(lock);
    int counter = 0;
    for (auto _ : state)
    {
        lock->Lock();
        benchmark::DoNotOptimize(++counter);
        lock->Unlock();
    }
}

template <class T>
void Recursive(benchmark::State& state)
{
    T object;
    T* lock = &object;
    benchmark::DoNotOptimize(lock);
    int counter = 0;
    lock->Lock();
    for (auto _ : state)
    {
        lock->Lock();
        benchmark::DoNotOptimize(++counter);
        lock->Unlock();
    }
    lock->Unlock();
}

template <class T>
void Contended(benchmark::State& state)
{
    static T lock;
    static int counter = 0;
    for (auto _ : state)
    {
        lock.Lock();
        benchmark::DoNotOptimize(++counter);
        lock.Unlock();
    }
}

} // namespace

BENCHMARK(Uncontended<Section>)->Name("Sync/critical section, free/Bedrock");
BENCHMARK(Uncontended<StdRecursive>)->Name("Sync/critical section, free/std::recursive_mutex");
BENCHMARK(Recursive<Section>)->Name("Sync/critical section, entered again/Bedrock");
BENCHMARK(Recursive<StdRecursive>)->Name("Sync/critical section, entered again/std::recursive_mutex");
BENCHMARK(Contended<Section>)->Name("Sync/critical section, two threads/Bedrock")->Threads(2)->UseRealTime();
BENCHMARK(Contended<StdRecursive>)
    ->Name("Sync/critical section, two threads/std::recursive_mutex")
    ->Threads(2)
    ->UseRealTime();
