// Waitable objects of one process, and waits for these and named ones together.
//
// The state of an object is one word: the owner of a mutex, the count of a semaphore, the signal of an event, and flags
// in the lowest bits. As long as nobody waits, taking and giving is one compare-and-swap on that word.
//
// Everything else happens under the one dispatcher lock. Who holds it first sets `Slow` in the words of the objects
// concerned; from then on only holders of the lock change these words, for a swap from a word without `Slow` fails.
// So a wait for all of several objects looks at them and takes them as one step. An object keeps `Slow` while somebody
// waits for it. A waiter links one block for each object into the object's list, first come first served, and sleeps on a
// word of its own; who signals an object takes it, and all else that the waiter wants, in the waiter's name, writes the
// result and wakes exactly that one. What a waiter can have it thus has before it wakes.
//
// A thread keeps a list of the mutexes it owns, which it alone touches; at its end they are left behind. A thread of the
// library is an object itself, which its end signals.
//
// The state of a named object is guarded by a lock of its own, which other processes take too. A wait with named objects
// looks at everything under the dispatcher lock and these locks, and sleeps on several words. Who signals an object of
// the process serves such a wait if that one is enough for it; otherwise he only wakes it, and it looks again.

#include <Bedrock/platform/Wait.h>

#include <Bedrock/platform/Lock.h>
#include <Bedrock/platform/SuspendGuard.h>
#include <Bedrock/platform/posix/Futex.h>
#include <Bedrock/platform/posix/NamedObject.h>
#include <Bedrock/platform/posix/ThreadIdentity.h>
#include <Bedrock/platform/posix/Waitable.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <new>
#include <pthread.h>

namespace Zem::Platform
{

namespace
{

constexpr std::uintptr_t Slow = 1;      // in a word: only the holder of the dispatcher lock may change it
constexpr std::uintptr_t LeftOwner = 2; // in a mutex's word: its owner ended
constexpr std::uintptr_t One = 2;       // in the word of a semaphore or event: one signal

// Most looks at the own word before going to sleep: about as long as it takes to wake a thread on a processor that has
// gone to rest, which is ten microseconds and more. A thread whose looks find nothing, because what it waits for takes
// long or the processors have other work, looks a quarter as often the next time, and now and then tries again.
constexpr std::uint32_t SpinTurns = 1000;
constexpr std::uint32_t TryAgain = 256; // waits

// How far a wait is.
constexpr std::uint32_t Awake = 0;
constexpr std::uint32_t Asleep = 1; // the thread sleeps on the word, or is about to
constexpr std::uint32_t Done = 2;

} // namespace

// One call that waits. Everything but `done` is guarded by the dispatcher lock until it is `Done`.
struct Wait
{
    std::atomic<std::uint32_t> done{Awake};
    std::uint32_t result = WaitFailed;
    std::uintptr_t thread;
    Waitable* const* objects;
    std::uint32_t count;
    bool all;
    bool hasNamed;
    WaitBlock blocks[longestWait];
};

namespace
{

constinit Lock dispatcher;
constinit pthread_key_t endKey;
constinit std::atomic<bool> hasEndKey{false};

struct ThreadRecord
{
    Waitable* owned;     // mutexes, the one taken last first
    bool isWatched;      // the end of the thread will be noticed
    std::uint32_t turns; // to spin
    std::uint32_t vain;  // waits since the thread does not spin any more
};
constinit thread_local ThreadRecord mine __attribute__((tls_model("initial-exec"))) = {nullptr, false, SpinTurns, 0};

std::uintptr_t Owner(std::uintptr_t mutexWord)
{
    return mutexWord & ~(Slow | LeftOwner);
}

std::uintptr_t Signals(std::uintptr_t word)
{
    return word / One;
}

// ------------------------------------------------------------------------------------------------- owned mutexes

void LinkOwned(Waitable& object)
{
    object.prevOwned = nullptr;
    object.nextOwned = mine.owned;
    if (mine.owned)
        mine.owned->prevOwned = &object;
    mine.owned = &object;
    if (!mine.isWatched) [[unlikely]]
        WatchThread();
}

void UnlinkOwned(Waitable& object)
{
    if (object.nextOwned)
        object.nextOwned->prevOwned = object.prevOwned;
    (object.prevOwned ? object.prevOwned->nextOwned : mine.owned) = object.nextOwned;
}

// ------------------------------------------------------------------------------- under the dispatcher lock, `Slow` set

std::uintptr_t WordOf(const Waitable& object)
{
    return object.word.load(std::memory_order_relaxed);
}

void MarkSlow(Waitable& object)
{
    object.word.fetch_or(Slow, std::memory_order_acq_rel);
}

// Ends the dispatcher's hold on an object when nobody waits for it. May free it.
void Unmark(Waitable& object)
{
    if (object.first)
        return;
    const std::uintptr_t word = WordOf(object);
    if (!object.isClosed)
        object.word.store(word & ~Slow, std::memory_order_release);
    else if (object.kind == WaitKind::Mutex ? Owner(word) == 0 : object.kind != WaitKind::Thread || word >= One)
        std::free(&object);
    // A closed mutex that another thread owns keeps its mark: it goes when its owner releases it or ends. So does a
    // thread that runs.
}

bool IsAvailable(const Waitable& object, std::uintptr_t thread)
{
    const std::uintptr_t word = WordOf(object);
    if (object.kind != WaitKind::Mutex)
        return Signals(word) != 0;
    return Owner(word) == 0 || Owner(word) == thread;
}

// Takes an available object for a thread. Returns: whether it was left behind by its owner.
bool Take(Waitable& object, std::uintptr_t thread)
{
    const std::uintptr_t word = WordOf(object);
    switch (object.kind)
    {
    case WaitKind::Mutex:
        if (Owner(word) == thread)
            ++object.depth;
        else
        {
            object.word.store(thread | Slow, std::memory_order_relaxed);
            object.depth = 1;
        }
        return (word & LeftOwner) != 0;
    case WaitKind::Semaphore:
    case WaitKind::AutoEvent:
        object.word.store(word - One, std::memory_order_relaxed);
        return false;
    case WaitKind::ManualEvent:
    case WaitKind::Thread:
    case WaitKind::Named:
        break;
    }
    return false;
}

// Takes what the wait wants if it can have it now, and tells in its result.
bool TryTake(Wait& wait)
{
    if (!wait.all)
    {
        for (std::uint32_t n = 0; n < wait.count; ++n)
            if (wait.objects[n]->kind != WaitKind::Named && IsAvailable(*wait.objects[n], wait.thread))
            {
                wait.result = n + (Take(*wait.objects[n], wait.thread) ? WaitAbandoned : WaitSignalled);
                return true;
            }
        return false;
    }
    for (std::uint32_t n = 0; n < wait.count; ++n)
        if (!IsAvailable(*wait.objects[n], wait.thread))
            return false;
    wait.result = WaitSignalled;
    for (std::uint32_t n = wait.count; n-- > 0;)
        if (Take(*wait.objects[n], wait.thread))
            wait.result = WaitAbandoned + n;
    return true;
}

void LinkBlocks(Wait& wait)
{
    for (std::uint32_t n = 0; n < wait.count; ++n)
    {
        Waitable& object = *wait.objects[n];
        WaitBlock& block = wait.blocks[n];
        if (object.kind == WaitKind::Named)
            continue;
        block = {nullptr, object.last, &wait};
        (object.last ? object.last->next : object.first) = &block;
        object.last = &block;
    }
}

void UnlinkBlocks(Wait& wait)
{
    for (std::uint32_t n = 0; n < wait.count; ++n)
    {
        Waitable& object = *wait.objects[n];
        WaitBlock& block = wait.blocks[n];
        if (object.kind == WaitKind::Named)
            continue;
        (block.next ? block.next->prev : object.last) = block.prev;
        (block.prev ? block.prev->next : object.first) = block.next;
    }
}

// Holds the dispatcher lock; its holder is not suspended.
class DispatcherGuard
{
public:
    explicit DispatcherGuard(bool isWanted = true) : isHeld(isWanted && dispatcher.Enter()) {}
    ~DispatcherGuard()
    {
        if (isHeld)
            dispatcher.Leave();
    }
    DispatcherGuard(const DispatcherGuard&) = delete;
    DispatcherGuard& operator=(const DispatcherGuard&) = delete;

private:
    const SuspendGuard suspension; // before the lock, and after it
    const bool isHeld;
};

// Holds the dispatcher lock, and wakes after it is released whoever was served meanwhile.
class Dispatch
{
public:
    Dispatch() { dispatcher.Enter(); }
    ~Dispatch()
    {
        dispatcher.Leave();
        for (std::uint32_t n = 0; n < count; ++n)
            Wake(words[n]);
    }
    Dispatch(const Dispatch&) = delete;
    Dispatch& operator=(const Dispatch&) = delete;

    // Serves the waiters of an object whose state has grown, in their order, as far as it goes.
    void Serve(Waitable& object)
    {
        for (WaitBlock* block = object.first; block;)
        {
            Wait& wait = *block->wait;
            WaitBlock* next = block->next;
            if (wait.hasNamed && wait.all)
                WakeUp(wait, Awake); // and look again
            else if (TryTake(wait))
            {
                // A wait may name one object twice; its second block goes together with the first.
                while (next && next->wait == &wait)
                    next = next->next;
                UnlinkBlocks(wait);
                for (std::uint32_t n = 0; n < wait.count; ++n)
                    if (wait.objects[n] != &object && IsFirstMention(wait, n))
                        Unmark(*wait.objects[n]);
                WakeUp(wait, Done);
            }
            if (!CanServe(object))
                break;
            block = next;
        }
    }

    static bool IsFirstMention(const Wait& wait, std::uint32_t n)
    {
        for (std::uint32_t earlier = 0; earlier < n; ++earlier)
            if (wait.objects[earlier] == wait.objects[n])
                return false;
        return true;
    }

private:
    // From here on the waiter's stack may go, if it is done: only the address of its word is kept, and a wake that comes
    // too late finds nobody there.
    void WakeUp(Wait& wait, std::uint32_t state)
    {
        auto* word = reinterpret_cast<std::uint32_t*>(&wait.done);
        const bool isAsleep = wait.done.exchange(state, std::memory_order_acq_rel) == Asleep;
        if (isAsleep && count < sizeof(words) / sizeof(words[0]))
            words[count++] = word;
        else if (isAsleep)
            Wake(word);
    }

    static bool CanServe(const Waitable& object)
    {
        // The owner of a mutex may wait for it together with something else: he alone could be served still, and he
        // will be when that other thing is signalled.
        return IsAvailable(object, 0);
    }

    static void Wake(std::uint32_t* word) { Futex(word, FUTEX_WAKE, 1, nullptr); }

    const SuspendGuard suspension;
    std::uint32_t* words[32];
    std::uint32_t count = 0;
};

// ------------------------------------------------------------------------------------------------------- the quick way

// Takes an object that nobody waits for. False: not available at this moment, or the slow way must say.
bool TakeQuickly(Waitable& object)
{
    std::uintptr_t word = object.word.load(std::memory_order_relaxed);
    switch (object.kind)
    {
    case WaitKind::Mutex:
    {
        const std::uintptr_t self = ThreadIdentity();
        if (Owner(word) == self)
        {
            ++object.depth;
            return true;
        }
        word = 0;
        if (!object.word.compare_exchange_strong(word, self, std::memory_order_acquire, std::memory_order_relaxed))
            return false;
        object.depth = 1;
        LinkOwned(object);
        return true;
    }
    case WaitKind::Semaphore:
    case WaitKind::AutoEvent:
        while (word >= One && !(word & Slow))
            if (object.word.compare_exchange_weak(word, word - One, std::memory_order_acquire,
                                                  std::memory_order_relaxed))
                return true;
        return false;
    case WaitKind::ManualEvent:
    case WaitKind::Thread:
        return object.word.load(std::memory_order_acquire) == One;
    case WaitKind::Named:
        break;
    }
    return false;
}

// Sleeps until the wait is served or the time has come. False: the time came first.
bool SleepUntilDone(Wait& wait, const timespec* deadline)
{
    if (mine.turns == 0 && ++mine.vain >= TryAgain)
    {
        mine.turns = SpinTurns;
        mine.vain = 0;
    }
    const std::uint32_t turns = mine.turns;
    for (std::uint32_t turn = 0; turn < turns; ++turn)
    {
        if (wait.done.load(std::memory_order_acquire) == Done)
        {
            mine.turns = SpinTurns;
            return true;
        }
        EaseProcessor();
    }
    mine.turns = turns / 4;
    std::uint32_t state = Awake;
    if (!wait.done.compare_exchange_strong(state, Asleep, std::memory_order_acq_rel, std::memory_order_acquire))
        return true;
    while (wait.done.load(std::memory_order_acquire) != Done)
    {
        const long result = Futex(reinterpret_cast<std::uint32_t*>(&wait.done), FUTEX_WAIT_BITSET, Asleep, deadline);
        if (result != 0 && errno == ETIMEDOUT)
            return false;
    }
    return true;
}

timespec DeadlineAfter(std::uint32_t milliseconds)
{
    timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    time.tv_sec += static_cast<std::time_t>(milliseconds / 1000);
    time.tv_nsec += static_cast<long>(milliseconds % 1000) * 1'000'000;
    if (time.tv_nsec >= 1'000'000'000)
    {
        time.tv_nsec -= 1'000'000'000;
        ++time.tv_sec;
    }
    return time;
}

// Notes what was taken and is a mutex that was not the caller's before.
std::uint32_t Own(const Wait& wait)
{
    const std::uint32_t taken = wait.result >= WaitAbandoned ? wait.result - WaitAbandoned : wait.result;
    for (std::uint32_t n = wait.all ? 0 : taken; n < (wait.all ? wait.count : taken + 1); ++n)
        if (wait.objects[n]->kind == WaitKind::Mutex && wait.objects[n]->depth == 1)
            LinkOwned(*wait.objects[n]);
    return wait.result;
}

std::uint32_t WaitSlowly(Waitable* const* objects, std::uint32_t count, bool all, std::uint32_t timeout)
{
    const int saved = errno;
    timespec deadline;
    if (timeout != 0 && timeout != 0xFFFFFFFF)
        deadline = DeadlineAfter(timeout);
    Wait wait;
    wait.thread = ThreadIdentity();
    wait.objects = objects;
    wait.count = count;
    wait.all = all;
    wait.hasNamed = false;

    const auto unmarkAll = [&]
    {
        for (std::uint32_t n = 0; n < count; ++n)
            if (Dispatch::IsFirstMention(wait, n))
                Unmark(*objects[n]);
    };
    bool isServed;
    {
        const DispatcherGuard guard;
        for (std::uint32_t n = 0; n < count; ++n)
            MarkSlow(*objects[n]);
        isServed = TryTake(wait);
        if (isServed || timeout == 0)
            unmarkAll();
        else
            LinkBlocks(wait);
    }
    if (!isServed && timeout != 0)
    {
        isServed = SleepUntilDone(wait, timeout == 0xFFFFFFFF ? nullptr : &deadline);
        if (!isServed)
        {
            const DispatcherGuard guard;
            isServed = wait.done.load(std::memory_order_acquire) == Done; // served at the last moment
            if (!isServed)
            {
                UnlinkBlocks(wait);
                unmarkAll();
            }
        }
    }
    errno = saved;
    return isServed ? Own(wait) : WaitTimedOut;
}

// ------------------------------------------------------------------------------------------- together with named ones

// What `WaitWithNamed` knows beside `Wait`: `waiters[n]` belongs to object n if it is a named one, and `ordered` are these.
struct NamedWait
{
    NamedWaiter waiters[longestWait];
    NamedWaiter* ordered[longestWait];
    std::uint32_t count = 0;
};

// As TryTake, under all guards too.
bool TryTakeMixed(Wait& wait, NamedWait& named)
{
    const auto isNamed = [&](std::uint32_t n) { return wait.objects[n]->kind == WaitKind::Named; };
    if (!wait.all)
    {
        for (std::uint32_t n = 0; n < wait.count; ++n)
        {
            NamedAnswer answer = NamedAnswer::Unavailable;
            if (isNamed(n))
                answer = TakeNamed(named.waiters[n]);
            else if (IsAvailable(*wait.objects[n], wait.thread))
                answer = Take(*wait.objects[n], wait.thread) ? NamedAnswer::TakenAbandoned : NamedAnswer::Taken;
            if (answer == NamedAnswer::Unavailable)
                continue;
            wait.result = n + (answer == NamedAnswer::Taken ? WaitSignalled : WaitAbandoned);
            return true;
        }
        return false;
    }
    for (std::uint32_t n = 0; n < wait.count; ++n)
        if (!(isNamed(n) ? CanTakeNamed(named.waiters[n]) : IsAvailable(*wait.objects[n], wait.thread)))
            return false;
    // Only a mutex's own lock can tell whether it can be had.
    NamedAnswer answers[longestWait];
    for (std::uint32_t n = 0; n < wait.count; ++n)
    {
        if (!isNamed(n) || !IsNamedMutex(named.waiters[n]))
            continue;
        answers[n] = TakeNamed(named.waiters[n]);
        if (answers[n] != NamedAnswer::Unavailable)
            continue;
        while (n-- > 0)
            if (isNamed(n) && IsNamedMutex(named.waiters[n]))
                PutBackNamed(named.waiters[n], answers[n]);
        return false;
    }
    wait.result = WaitSignalled;
    for (std::uint32_t n = wait.count; n-- > 0;)
    {
        bool isLeftBehind = false;
        if (!isNamed(n))
            isLeftBehind = Take(*wait.objects[n], wait.thread);
        else if (IsNamedMutex(named.waiters[n]))
            isLeftBehind = answers[n] == NamedAnswer::TakenAbandoned;
        else
            TakeNamed(named.waiters[n]);
        if (isLeftBehind)
            wait.result = WaitAbandoned + n;
    }
    return true;
}

// Whether the system can let a thread sleep on several words; otherwise it looks again and again.
constinit std::atomic<bool> hasManyWords{true};

constexpr std::uint32_t LookEvery = 100;      // milliseconds, at a mutex whose owner may have died
constexpr std::uint32_t LookWithoutWords = 5; // milliseconds

bool IsEarlier(const timespec& a, const timespec& b)
{
    return a.tv_sec != b.tv_sec ? a.tv_sec < b.tv_sec : a.tv_nsec < b.tv_nsec;
}

// Sleeps until something changes, it is time to look, or the deadline. True: it was the deadline.
bool SleepOnWords(Wait& wait, bool hasPrivate, NamedWait& named, const timespec* deadline)
{
    futex_waitv words[longestWait + 1] = {};
    unsigned count = 0;
    const auto add = [&](std::uint32_t* word, std::uint32_t value, unsigned flags)
    {
        words[count].uaddr = reinterpret_cast<std::uintptr_t>(word);
        words[count].val = value;
        words[count++].flags = FUTEX_32 | flags;
    };
    if (hasPrivate)
        add(reinterpret_cast<std::uint32_t*>(&wait.done), Asleep, FUTEX_PRIVATE_FLAG);
    bool mustLook = false;
    for (std::uint32_t n = 0; n < named.count; ++n)
    {
        add(ChangesWord(*named.ordered[n]), named.ordered[n]->changes, 0);
        mustLook = mustLook || IsNamedMutex(*named.ordered[n]);
    }
    const bool isAlone = count > 1 && !hasManyWords.load(std::memory_order_relaxed);
    timespec look;
    const timespec* until = deadline;
    if (mustLook || isAlone)
    {
        look = DeadlineAfter(isAlone ? LookWithoutWords : LookEvery);
        if (!deadline || IsEarlier(look, *deadline))
            until = &look;
    }
    long result;
    if (count == 1 || isAlone)
        result = SharedFutex(reinterpret_cast<std::uint32_t*>(static_cast<std::uintptr_t>(words[0].uaddr)),
                             FUTEX_WAIT_BITSET | static_cast<int>(words[0].flags & FUTEX_PRIVATE_FLAG),
                             static_cast<std::uint32_t>(words[0].val), until);
    else
        result = syscall(SYS_futex_waitv, words, count, 0, until, CLOCK_MONOTONIC);
    if (result >= 0)
        return false;
    if (errno == ENOSYS || errno == EPERM)
        hasManyWords.store(false, std::memory_order_relaxed);
    return errno == ETIMEDOUT && until == deadline;
}

std::uint32_t WaitWithNamed(Waitable* const* objects, std::uint32_t count, bool all, std::uint32_t timeout)
{
    const int saved = errno;
    timespec deadline;
    if (timeout != 0 && timeout != 0xFFFFFFFF)
        deadline = DeadlineAfter(timeout);
    Wait wait;
    wait.thread = ThreadIdentity();
    wait.objects = objects;
    wait.count = count;
    wait.all = all;
    wait.hasNamed = true;
    NamedWait named;
    for (std::uint32_t n = 0; n < count; ++n)
        if (objects[n]->kind == WaitKind::Named)
        {
            named.waiters[n].object = static_cast<NamedObject*>(objects[n]);
            named.waiters[n].object->uses.fetch_add(1, std::memory_order_relaxed);
            named.ordered[named.count++] = &named.waiters[n];
        }
    const bool hasPrivate = named.count < count;

    bool isServed = false;
    bool isOver = timeout == 0; // and this look is the last one
    for (bool isFirst = true;; isFirst = false)
    {
        {
            const DispatcherGuard guard(hasPrivate);
            isServed = wait.done.load(std::memory_order_acquire) == Done;
            if (isServed)
                break;
            const NamedGuards guards(named.ordered, named.count);
            for (std::uint32_t n = 0; isFirst && n < count; ++n)
                if (objects[n]->kind == WaitKind::Named)
                    BeginNamed(named.waiters[n]);
                else
                    MarkSlow(*objects[n]);
            isServed = TryTakeMixed(wait, named);
            if (isServed || isOver)
            {
                if (!isFirst)
                    UnlinkBlocks(wait);
                for (std::uint32_t n = 0; n < count; ++n)
                    if (objects[n]->kind != WaitKind::Named && Dispatch::IsFirstMention(wait, n))
                        Unmark(*objects[n]);
                break;
            }
            if (isFirst)
                LinkBlocks(wait);
            for (std::uint32_t n = 0; n < named.count; ++n)
                PrepareSleep(*named.ordered[n]);
            wait.done.store(Asleep, std::memory_order_release);
        }
        isOver = SleepOnWords(wait, hasPrivate, named, timeout == 0xFFFFFFFF ? nullptr : &deadline);
    }
    for (std::uint32_t n = 0; n < named.count; ++n)
    {
        EndNamed(*named.ordered[n]);
        LeaveNamed(*named.ordered[n]->object);
    }
    errno = saved;
    return isServed ? Own(wait) : WaitTimedOut;
}

Waitable* Create(WaitKind kind, std::uintptr_t word, std::uint32_t maximum)
{
    const SuspendGuard suspension; // the heap has locks too
    void* memory = std::malloc(sizeof(Waitable));
    if (!memory)
        return nullptr;
    return new (memory) Waitable{word, kind, false, 0, maximum, nullptr, nullptr, nullptr, nullptr};
}

bool IsName(const char* name)
{
    return name && *name;
}

NamedObject* Named(Waitable* object)
{
    return object && object->kind == WaitKind::Named ? static_cast<NamedObject*>(object) : nullptr;
}

} // namespace

bool WatchThread() noexcept
{
    const SuspendGuard suspension; // the heap may be asked
    if (!mine.isWatched)
        mine.isWatched = hasEndKey.load(std::memory_order_acquire) && pthread_setspecific(endKey, &endKey) == 0;
    return mine.isWatched;
}

void LeaveThread() noexcept
{
    mine.isWatched = false;
    while (Waitable* object = mine.owned)
    {
        UnlinkOwned(*object);
        object->depth = 0;
        Dispatch dispatch;
        object->word.store(Slow | LeftOwner, std::memory_order_release);
        dispatch.Serve(*object);
        Unmark(*object);
    }
    EndOfOwnThread();
}

bool HasEnded(const Waitable& thread) noexcept
{
    return thread.word.load(std::memory_order_acquire) >= One;
}

void SignalEnd(Waitable& thread) noexcept
{
    Dispatch dispatch;
    MarkSlow(thread);
    thread.word.store(One | Slow, std::memory_order_release);
    dispatch.Serve(thread);
    Unmark(thread);
}

void OpenWaits() noexcept
{
    const auto end = [](void*) { LeaveThread(); };
    if (!hasEndKey.load() && pthread_key_create(&endKey, end) == 0)
        hasEndKey.store(true, std::memory_order_release);
}

void CloseWaits() noexcept
{
    CloseNames();
    if (hasEndKey.exchange(false))
        pthread_key_delete(endKey);
}

Waitable* CreateMutex(bool owned, const char* name) noexcept
{
    if (IsName(name))
        return OpenNamed(NamedKind::Mutex, name, 0, 0, false, owned);
    Waitable* object = Create(WaitKind::Mutex, 0, 0);
    if (object && owned)
        TakeQuickly(*object);
    return object;
}

Waitable* CreateSemaphore(std::int32_t initial, std::int32_t maximum, const char* name) noexcept
{
    if (maximum < 1 || initial < 0 || initial > maximum)
        return nullptr;
    const auto count = static_cast<std::uint32_t>(initial);
    const auto most = static_cast<std::uint32_t>(maximum);
    if (IsName(name))
        return OpenNamed(NamedKind::Semaphore, name, count, most, false, false);
    return Create(WaitKind::Semaphore, std::uintptr_t{count} * One, most);
}

Waitable* CreateEvent(bool manual, bool signalled, const char* name) noexcept
{
    if (IsName(name))
        return OpenNamed(NamedKind::Event, name, signalled, 1, manual, false);
    return Create(manual ? WaitKind::ManualEvent : WaitKind::AutoEvent, signalled ? One : 0, 1);
}

void CloseWaitable(Waitable* object) noexcept
{
    if (!object)
        return;
    if (NamedObject* named = Named(object))
        return LeaveNamed(*named);
    const bool isThread = object->kind == WaitKind::Thread;
    const std::uintptr_t native = isThread ? NativeThread(*object) : 0;
    bool hasEnded;
    {
        Dispatch dispatch;
        MarkSlow(*object);
        object->isClosed = true;
        if (object->kind == WaitKind::Mutex && Owner(WordOf(*object)) == ThreadIdentity())
        {
            UnlinkOwned(*object);
            object->depth = 0;
            object->word.store(Slow, std::memory_order_release);
            dispatch.Serve(*object);
        }
        hasEnded = HasEnded(*object);
        Unmark(*object);
    }
    if (isThread)
        LetGo(native, hasEnded);
}

bool ReleaseMutex(Waitable* object) noexcept
{
    if (NamedObject* named = Named(object))
        return ReleaseNamedMutex(*named);
    if (!object || object->kind != WaitKind::Mutex)
        return false;
    const std::uintptr_t self = ThreadIdentity();
    if (Owner(object->word.load(std::memory_order_relaxed)) != self)
        return false;
    if (object->depth > 1)
    {
        --object->depth;
        return true;
    }
    UnlinkOwned(*object);
    std::uintptr_t word = self;
    if (object->word.compare_exchange_strong(word, 0, std::memory_order_release, std::memory_order_relaxed))
        return true;
    Dispatch dispatch;
    object->word.store(Slow, std::memory_order_release);
    dispatch.Serve(*object);
    Unmark(*object);
    return true;
}

bool ReleaseSemaphore(Waitable* object, std::uint32_t count) noexcept
{
    if (NamedObject* named = Named(object))
        return ReleaseNamedSemaphore(*named, count);
    if (!object || object->kind != WaitKind::Semaphore || count == 0 || count > object->maximum)
        return false;
    std::uintptr_t word = object->word.load(std::memory_order_relaxed);
    while (!(word & Slow))
    {
        if (object->maximum - Signals(word) < count)
            return false;
        if (object->word.compare_exchange_weak(word, word + count * One, std::memory_order_release,
                                               std::memory_order_relaxed))
            return true;
    }
    Dispatch dispatch;
    MarkSlow(*object);
    word = WordOf(*object);
    const bool fits = object->maximum - Signals(word) >= count;
    if (fits)
    {
        object->word.store(word + count * One, std::memory_order_release);
        dispatch.Serve(*object);
    }
    Unmark(*object);
    return fits;
}

bool SetEvent(Waitable* object) noexcept
{
    if (NamedObject* named = Named(object))
        return SetNamedEvent(*named, true);
    if (!object || (object->kind != WaitKind::AutoEvent && object->kind != WaitKind::ManualEvent))
        return false;
    // Also when the event is signalled already: what the caller wrote before must be seen by who comes next.
    std::uintptr_t word = object->word.load(std::memory_order_relaxed);
    while (!(word & Slow))
        if (object->word.compare_exchange_weak(word, One, std::memory_order_release, std::memory_order_relaxed))
            return true;
    Dispatch dispatch;
    MarkSlow(*object);
    object->word.store(One | Slow, std::memory_order_release);
    dispatch.Serve(*object);
    Unmark(*object);
    return true;
}

bool PulseEvent(Waitable* object) noexcept
{
    if (NamedObject* named = Named(object))
        return PulseNamedEvent(*named);
    if (!object || (object->kind != WaitKind::AutoEvent && object->kind != WaitKind::ManualEvent))
        return false;
    Dispatch dispatch;
    MarkSlow(*object);
    object->word.store(One | Slow, std::memory_order_release);
    dispatch.Serve(*object);
    object->word.store(Slow, std::memory_order_release);
    Unmark(*object);
    return true;
}

bool ResetEvent(Waitable* object) noexcept
{
    if (NamedObject* named = Named(object))
        return SetNamedEvent(*named, false);
    if (!object || (object->kind != WaitKind::AutoEvent && object->kind != WaitKind::ManualEvent))
        return false;
    std::uintptr_t word = object->word.load(std::memory_order_relaxed);
    while (!(word & Slow))
        if (object->word.compare_exchange_weak(word, 0, std::memory_order_acq_rel, std::memory_order_relaxed))
            return true;
    const DispatcherGuard guard;
    MarkSlow(*object);
    object->word.store(Slow, std::memory_order_release);
    Unmark(*object);
    return true;
}

std::uint32_t WaitForOne(Waitable* object, std::uint32_t timeout) noexcept
{
    if (!object)
        return WaitFailed;
    if (TakeQuickly(*object))
        return WaitSignalled;
    if (object->kind == WaitKind::Named)
        return WaitWithNamed(&object, 1, false, timeout);
    return WaitSlowly(&object, 1, false, timeout);
}

std::uint32_t WaitForMany(Waitable* const* objects, std::uint32_t count, bool all, std::uint32_t timeout) noexcept
{
    if (count == 0 || count > longestWait)
        return WaitFailed;
    bool hasNamed = false;
    for (std::uint32_t n = 0; n < count; ++n)
    {
        if (!objects[n])
            return WaitFailed;
        hasNamed = hasNamed || objects[n]->kind == WaitKind::Named;
        for (std::uint32_t earlier = 0; all && earlier < n; ++earlier)
            if (objects[earlier] == objects[n])
                return WaitFailed;
    }
    if ((!all || count == 1) && TakeQuickly(*objects[0]))
        return WaitSignalled;
    return hasNamed ? WaitWithNamed(objects, count, all, timeout) : WaitSlowly(objects, count, all, timeout);
}

} // namespace Zem::Platform
