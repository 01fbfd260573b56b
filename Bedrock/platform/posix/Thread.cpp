// Threads on the C library's.
//
// A thread is suspended by a signal, whose handler sleeps until the count of suspensions is 0 again; a thread that was
// made suspended sleeps so before its body. The state tells the suspender when the thread stands. Between two such
// sleeps the thread looks at the count after it says that it runs, and the suspender at the state after he counts: one
// of them sees the other.

#include <Bedrock/platform/Thread.h>

#include <Bedrock/platform/Fault.h>
#include <Bedrock/platform/Lock.h>
#include <Bedrock/platform/Process.h>
#include <Bedrock/platform/SuspendGuard.h>
#include <Bedrock/platform/posix/Futex.h>
#include <Bedrock/platform/posix/Waitable.h>

#include <cerrno>
#include <csetjmp>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <linux/capability.h>
#include <new>
#include <pthread.h>
#include <sys/resource.h>

namespace Zem::Platform
{

constinit thread_local SuspendGuard::State SuspendGuard::mine __attribute__((tls_model("initial-exec"))) = {0, false};

namespace
{

constexpr std::uint32_t StillActive = 259;
constexpr std::uint32_t MostSuspensions = 127;

// Where a thread stands, as its suspender sees it.
constexpr std::uint32_t Running = 0;
constexpr std::uint32_t Standing = 1;
constexpr std::uint32_t Ended = 2;

struct ThreadObject : Waitable
{
    unsigned (*body)(void*);
    void* argument;
    pthread_t native;
    std::uint32_t exitCode;                 // before the end is signalled, the thread's own
    std::atomic<std::uint32_t> suspensions; // the thread sleeps on it
    std::atomic<std::uint32_t> state;       // the suspender sleeps on it

    Lock lock;             // guards what follows; its holder is not suspended
    bool hasEnded;         // nobody may suspend or change it any more
    std::uint32_t id;      // 0 until the thread runs
    std::int32_t priority; // what was set
    bool isSystemPriority; // `usual` is known
    int usual;             // the system's figure for priority 0
};

struct OwnThread
{
    ThreadObject* object; // null in threads that others made
    sigjmp_buf* base;     // where the body was called
    volatile bool stands; // it looks at its suspensions, and needs no signal for it
};
constinit thread_local OwnThread own __attribute__((tls_model("initial-exec"))) = {nullptr, nullptr, false};

constinit std::atomic<std::uint32_t> threads{0};

constinit Lock signalLock;
constinit bool hasHandler = false; // guarded by signalLock
struct sigaction formerAction;     // guarded by signalLock

// A real-time signal in the middle of the range: the C library and debuggers take the first ones.
int SuspendSignal()
{
    return SIGRTMIN + 7;
}

std::uint32_t* KernelWord(std::atomic<std::uint32_t>& word)
{
    return reinterpret_cast<std::uint32_t*>(&word);
}

// Stands until nobody wants the thread suspended. The last look comes when a signal is heeded again.
void StandStill(ThreadObject& thread)
{
    const int saved = errno;
    while (thread.suspensions.load(std::memory_order_seq_cst) != 0)
    {
        own.stands = true;
        thread.state.store(Standing, std::memory_order_seq_cst);
        Futex(KernelWord(thread.state), FUTEX_WAKE, 0x7FFFFFFF, nullptr);
        while (const std::uint32_t count = thread.suspensions.load(std::memory_order_seq_cst))
            Futex(KernelWord(thread.suspensions), FUTEX_WAIT, count, nullptr);
        thread.state.store(Running, std::memory_order_seq_cst);
        own.stands = false;
    }
    errno = saved;
}

} // namespace

// The way from the signal to the guard.
class Suspension
{
public:
    static void Handle(int)
    {
        if (!own.object || own.stands)
            return;
        if (SuspendGuard::mine.depth != 0)
            SuspendGuard::mine.isWanted = true;
        else
            StandStill(*own.object);
    }
};

void SuspendGuard::Stand() noexcept
{
    mine.isWanted = false;
    if (own.object)
        StandStill(*own.object);
}

namespace
{

bool InstallHandler()
{
    const SuspendGuard suspension;
    const LockGuard guard(signalLock);
    if (hasHandler)
        return true;
    struct sigaction action = {};
    action.sa_handler = Suspension::Handle;
    action.sa_flags = SA_RESTART;
    sigfillset(&action.sa_mask); // a suspended thread serves no other signal
    hasHandler = sigaction(SuspendSignal(), &action, &formerAction) == 0;
    return hasHandler;
}

class ThreadGuard
{
public:
    explicit ThreadGuard(ThreadObject& thread) : guard(thread.lock) {}

private:
    const SuspendGuard suspension;
    const LockGuard guard;
};

bool MayRaise(int nice)
{
    rlimit limit;
    if (getrlimit(RLIMIT_NICE, &limit) == 0 && limit.rlim_cur >= static_cast<rlim_t>(20 - nice))
        return true;
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct sets[_LINUX_CAPABILITY_U32S_3] = {};
    return syscall(SYS_capget, &header, sets) == 0 && (sets[0].effective & (1u << CAP_SYS_NICE)) != 0;
}

// Tells the system, under the thread's lock. The priority of one thread is a matter of its number.
void ApplyPriority(ThreadObject& thread)
{
    if (thread.id == 0)
        return;
    if (!thread.isSystemPriority)
    {
        errno = 0;
        thread.usual = getpriority(PRIO_PROCESS, thread.id);
        if (errno != 0)
            return;
        thread.isSystemPriority = true;
    }
    int nice = thread.usual - 5 * thread.priority;
    nice = nice < -20 ? -20 : nice > 19 ? 19 : nice;
    if (nice <= thread.usual || MayRaise(thread.usual))
        setpriority(PRIO_PROCESS, thread.id, nice);
}

void* Run(void* data)
{
    auto& thread = *static_cast<ThreadObject*>(data);
    own.object = &thread;
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SuspendSignal());
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr); // a thread inherits what its maker blocked
    {
        const ThreadGuard guard(thread);
        thread.id = CurrentThreadId();
        if (thread.priority != 0)
            ApplyPriority(thread);
    }
    const bool isWatched = WatchThread();
    StandStill(thread);

    sigjmp_buf base;
    own.base = &base;
    if (sigsetjmp(base, 0) == 0)
        own.object->exitCode = own.object->body(own.object->argument);
    own.base = nullptr;
    if (!isWatched)
        LeaveThread();
    return nullptr;
}

ThreadObject* Of(Waitable* thread)
{
    return thread && thread->kind == WaitKind::Thread ? static_cast<ThreadObject*>(thread) : nullptr;
}

const ThreadObject* Of(const Waitable* thread)
{
    return Of(const_cast<Waitable*>(thread));
}

} // namespace

void CloseThreads() noexcept
{
    const SuspendGuard suspension;
    const LockGuard guard(signalLock);
    if (HasThreads() || !hasHandler)
        return;
    sigaction(SuspendSignal(), &formerAction, nullptr);
    hasHandler = false;
}

bool HasThreads() noexcept
{
    return threads.load(std::memory_order_acquire) != 0;
}

bool StartThread(unsigned (*body)(void*), void* argument, bool suspended, Waitable*& handle) noexcept
{
    handle = nullptr;
    const SuspendGuard suspension; // the heap and the C library's list of stacks have locks too
    void* memory = std::malloc(sizeof(ThreadObject));
    if (!memory || !InstallHandler())
    {
        std::free(memory);
        return false;
    }
    auto* thread = new (memory) ThreadObject{};
    thread->kind = WaitKind::Thread;
    thread->body = body;
    thread->argument = argument;
    thread->suspensions.store(suspended ? 1 : 0, std::memory_order_relaxed);
    thread->state.store(suspended ? Standing : Running, std::memory_order_relaxed);
    threads.fetch_add(1, std::memory_order_relaxed);
    handle = thread;
    pthread_t native;
    if (pthread_create(&native, nullptr, Run, thread) == 0)
    {
        thread->native = native;
        return true;
    }
    handle = nullptr;
    threads.fetch_sub(1, std::memory_order_relaxed);
    std::free(memory);
    return false;
}

void EndThread(std::uint32_t exitCode)
{
    if (!own.object || !own.base) // unwinds the stack: this function lets that pass
        pthread_exit(reinterpret_cast<void*>(static_cast<std::uintptr_t>(exitCode)));
    own.object->exitCode = exitCode;
    AbandonProtectedCalls();
    siglongjmp(*own.base, 1);
}

void EndOfOwnThread() noexcept
{
    ThreadObject* thread = own.object;
    if (!thread)
        return;
    {
        const ThreadGuard guard(*thread);
        thread->hasEnded = true;
        own.object = nullptr; // the signal of a suspension that was counted before finds no thread from here on
    }
    thread->state.store(Ended, std::memory_order_seq_cst);
    if (thread->suspensions.load(std::memory_order_seq_cst) != 0)
        Futex(KernelWord(thread->state), FUTEX_WAKE, 0x7FFFFFFF, nullptr);
    threads.fetch_sub(1, std::memory_order_release);
    SignalEnd(*thread);
}

std::uintptr_t NativeThread(const Waitable& thread) noexcept
{
    return static_cast<std::uintptr_t>(static_cast<const ThreadObject&>(thread).native);
}

void LetGo(std::uintptr_t nativeThread, bool hasEnded) noexcept
{
    const SuspendGuard suspension;
    const auto native = static_cast<pthread_t>(nativeThread);
    if (hasEnded && !pthread_equal(native, pthread_self()))
        pthread_join(native, nullptr);
    else
        pthread_detach(native);
}

bool SuspendThread(Waitable* handle) noexcept
{
    ThreadObject* thread = Of(handle);
    if (!thread)
        return false;
    {
        const ThreadGuard guard(*thread);
        const std::uint32_t count = thread->suspensions.load(std::memory_order_relaxed);
        if (thread->hasEnded || count == MostSuspensions)
            return false;
        thread->suspensions.store(count + 1, std::memory_order_seq_cst);
        if (thread != own.object && count == 0 && pthread_kill(thread->native, SuspendSignal()) != 0)
        {
            thread->suspensions.store(0, std::memory_order_seq_cst);
            return false;
        }
    }
    if (thread == own.object)
    {
        StandStill(*thread);
        return true;
    }
    // Until it stands, has ended, or somebody else resumed it. The signal is repeated, which does no harm: what delivers
    // it may be slow to do so while the thread sleeps.
    const timespec often = {0, 20'000'000};
    for (;;)
    {
        const std::uint32_t state = thread->state.load(std::memory_order_seq_cst);
        if (state != Running)
            return state == Standing;
        if (thread->suspensions.load(std::memory_order_seq_cst) == 0)
            return true;
        if (Futex(KernelWord(thread->state), FUTEX_WAIT, Running, &often) == 0 || errno != ETIMEDOUT)
            continue;
        const ThreadGuard guard(*thread);
        if (!thread->hasEnded)
            pthread_kill(thread->native, SuspendSignal());
    }
}

bool ResumeThread(Waitable* handle) noexcept
{
    ThreadObject* thread = Of(handle);
    if (!thread)
        return false;
    const ThreadGuard guard(*thread);
    const std::uint32_t count = thread->suspensions.load(std::memory_order_relaxed);
    if (thread->hasEnded || count == 0)
        return !thread->hasEnded;
    thread->suspensions.store(count - 1, std::memory_order_seq_cst);
    if (count == 1)
    {
        Futex(KernelWord(thread->suspensions), FUTEX_WAKE, 0x7FFFFFFF, nullptr);
        Futex(KernelWord(thread->state), FUTEX_WAKE, 0x7FFFFFFF, nullptr); // a suspender that still waits
    }
    return true;
}

bool SetThreadPriority(Waitable* handle, std::int32_t priority) noexcept
{
    ThreadObject* thread = Of(handle);
    if (!thread || (priority != -15 && priority != 15 && (priority < -2 || priority > 2)))
        return false;
    const int saved = errno;
    const ThreadGuard guard(*thread);
    if (thread->hasEnded)
        return false;
    thread->priority = priority;
    ApplyPriority(*thread);
    errno = saved;
    return true;
}

std::int32_t ThreadPriority(const Waitable* handle) noexcept
{
    auto* thread = const_cast<ThreadObject*>(Of(handle));
    if (!thread)
        return noPriority;
    const ThreadGuard guard(*thread);
    return thread->priority;
}

bool NameThread(Waitable* handle, const char* name) noexcept
{
    ThreadObject* thread = Of(handle);
    if (!thread)
        return false;
    char shortened[16];
    std::snprintf(shortened, sizeof(shortened), "%s", name);
    const ThreadGuard guard(*thread);
    return !thread->hasEnded && pthread_setname_np(thread->native, shortened) == 0;
}

bool IsThreadAlive(const Waitable* handle) noexcept
{
    const ThreadObject* thread = Of(handle);
    return thread && !HasEnded(*thread);
}

std::uint32_t ThreadExitCode(const Waitable* handle) noexcept
{
    const ThreadObject* thread = Of(handle);
    if (!thread)
        return 0;
    return HasEnded(*thread) ? thread->exitCode : StillActive;
}

} // namespace Zem::Platform
