// Locks and waits: a critical section beside the standard library's recursive mutex; mutex, semaphore and event beside
// POSIX ones; a wait for any of two beside eventfd and poll.

#include <Bedrock/threads/CriticalSection.h>
#include <Bedrock/threads/MultiLock.h>
#include <Bedrock/threads/Mutex.h>
#include <Bedrock/threads/Semaphore.h>
#include <Bedrock/threads/WEvent.h>

#include <benchmark/benchmark.h>

#include <atomic>
#include <mutex>
#include <poll.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/eventfd.h>
#include <thread>
#include <unistd.h>

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

struct BedrockMutex
{
    void Lock() { mutex.Lock(); }
    void Unlock() { mutex.Unlock(); }
    Zem::Mutex mutex;
};

struct PosixMutex
{
    PosixMutex()
    {
        pthread_mutexattr_t attributes;
        pthread_mutexattr_init(&attributes);
        pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
        pthread_mutex_init(&mutex, &attributes);
    }
    void Lock() { pthread_mutex_lock(&mutex); }
    void Unlock() { pthread_mutex_unlock(&mutex); }
    pthread_mutex_t mutex;
};

struct BedrockSemaphore
{
    void Lock() { semaphore.Lock(); }
    void Unlock() { semaphore.Unlock(); }
    Zem::Semaphore semaphore{1, 1};
};

struct PosixSemaphore
{
    explicit PosixSemaphore(unsigned initial = 1) { sem_init(&semaphore, 0, initial); }
    void Lock()
    {
        while (sem_wait(&semaphore) != 0)
        {
        }
    }
    void Unlock() { sem_post(&semaphore); }
    sem_t semaphore;
};

struct BedrockEvent
{
    void Lock() { event.Lock(); }
    void Unlock() { event.Set(); }
    Zem::WEvent event;
};

struct PosixSignal : PosixSemaphore
{
    PosixSignal() : PosixSemaphore(0) {}
};

// A round trip between two threads.
template <class T>
void PingPong(benchmark::State& state)
{
    T there, back;
    std::atomic<bool> quit{false};
    std::thread other(
        [&]
        {
            for (;;)
            {
                there.Lock();
                if (quit)
                    return;
                back.Unlock();
            }
        });
    for (auto _ : state)
    {
        there.Unlock();
        back.Lock();
    }
    quit = true;
    there.Unlock();
    other.join();
}

// The second of two is signalled; each round signals, waits and takes it.
void AnyBedrock(benchmark::State& state)
{
    Zem::WEvent first, second;
    Zem::SyncObject* objects[] = {&first, &second};
    Zem::MultiLock wait(objects, 2, false);
    for (auto _ : state)
    {
        second.Set();
        benchmark::DoNotOptimize(wait.Lock(1000, false));
    }
}

void AnyEventFd(benchmark::State& state)
{
    const int first = eventfd(0, 0), second = eventfd(0, 0);
    for (auto _ : state)
    {
        eventfd_write(second, 1);
        pollfd both[] = {{first, POLLIN, 0}, {second, POLLIN, 0}};
        poll(both, 2, 1000);
        eventfd_t value = 0;
        eventfd_read(both[0].revents ? first : second, &value);
        benchmark::DoNotOptimize(value);
    }
    close(first);
    close(second);
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
BENCHMARK(Uncontended<BedrockMutex>)->Name("Sync/mutex, free/Bedrock");
BENCHMARK(Uncontended<PosixMutex>)->Name("Sync/mutex, free/pthread recursive mutex");
BENCHMARK(Uncontended<BedrockSemaphore>)->Name("Sync/semaphore, free/Bedrock");
BENCHMARK(Uncontended<PosixSemaphore>)->Name("Sync/semaphore, free/sem_t");
BENCHMARK(PingPong<BedrockEvent>)->Name("Sync/event, round trip of two threads/Bedrock")->UseRealTime();
BENCHMARK(PingPong<PosixSignal>)->Name("Sync/event, round trip of two threads/sem_t")->UseRealTime();
BENCHMARK(AnyBedrock)->Name("Sync/any of two/Bedrock");
BENCHMARK(AnyEventFd)->Name("Sync/any of two/eventfd and poll");
