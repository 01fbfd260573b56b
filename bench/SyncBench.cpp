// Locks and waits: a critical section beside the standard library's recursive mutex; mutex, semaphore and event beside
// POSIX ones; a wait for any of two beside eventfd and poll; a mutex that processes share beside a robust POSIX one; a
// thread beside the standard library's.

#include <Bedrock/host/ExceptionHandler.h>
#include <Bedrock/threads/CriticalSection.h>
#include <Bedrock/threads/MultiLock.h>
#include <Bedrock/threads/Mutex.h>
#include <Bedrock/threads/Semaphore.h>
#include <Bedrock/threads/Thread.h>
#include <Bedrock/threads/WEvent.h>

#include <benchmark/benchmark.h>

#include <atomic>
#include <mutex>
#include <poll.h>
#include <pthread.h>
#include <semaphore.h>
#include <string>
#include <sys/eventfd.h>
#include <sys/mman.h>
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

struct BedrockNamed
{
    void Lock() { mutex.Lock(); }
    void Unlock() { mutex.Unlock(); }
    Zem::Mutex mutex{false, ("bedrock bench " + std::to_string(getpid())).c_str()};
};

// As a program without the library would share it: in memory that processes share, and told when its owner dies.
struct PosixRobust
{
    PosixRobust()
    {
        pthread_mutexattr_t attributes;
        pthread_mutexattr_init(&attributes);
        pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
        pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
        pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
        pthread_mutex_init(mutex, &attributes);
    }
    ~PosixRobust() { munmap(mutex, sizeof(pthread_mutex_t)); }
    void Lock() { pthread_mutex_lock(mutex); }
    void Unlock() { pthread_mutex_unlock(mutex); }
    pthread_mutex_t* mutex = static_cast<pthread_mutex_t*>(
        mmap(nullptr, sizeof(pthread_mutex_t), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
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

// Bedrock's runs its body under protection: what it throws or faults on ends the thread and not the process. The main
// thread is protected too, as in every application.
void ThreadBedrock(benchmark::State& state)
{
    static int ran;
    ran = 0;
    const auto loop = [](void* data)
    {
        for (auto _ : *static_cast<benchmark::State*>(data))
        {
            Zem::Thread thread(
                [](void* count) -> unsigned { return static_cast<unsigned>(++*static_cast<int*>(count)); }, &ran, true);
            benchmark::DoNotOptimize(thread.Terminate());
        }
        return 0;
    };
    Zem::ExceptionHandler::Main(loop, &state);
    if (ran != static_cast<int>(state.iterations()))
        state.SkipWithError("a thread did not run");
}

void ThreadStd(benchmark::State& state)
{
    int ran = 0;
    for (auto _ : state)
        std::thread([&ran] { ++ran; }).join();
    if (ran != static_cast<int>(state.iterations()))
        state.SkipWithError("a thread did not run");
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
BENCHMARK(Uncontended<BedrockNamed>)->Name("Sync/shared between processes, free/Bedrock");
BENCHMARK(Uncontended<PosixRobust>)->Name("Sync/shared between processes, free/robust pthread mutex");
BENCHMARK(ThreadBedrock)->Name("Sync/thread, start and join/Bedrock")->UseRealTime();
BENCHMARK(ThreadStd)->Name("Sync/thread, start and join/std::thread")->UseRealTime();
BENCHMARK(PingPong<BedrockEvent>)->Name("Sync/event, round trip of two threads/Bedrock")->UseRealTime();
BENCHMARK(PingPong<PosixSignal>)->Name("Sync/event, round trip of two threads/sem_t")->UseRealTime();
BENCHMARK(AnyBedrock)->Name("Sync/any of two/Bedrock");
BENCHMARK(AnyEventFd)->Name("Sync/any of two/eventfd and poll");
