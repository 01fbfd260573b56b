#include <Bedrock/platform/posix/NamedObject.h>

#include <Bedrock/platform/posix/Futex.h>
#include <Bedrock/platform/posix/NamedFile.h>
#include <Bedrock/platform/posix/ThreadIdentity.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Zem::Platform
{

// What lies in the file. Processes of another width or build of the C library have another mark.
struct NamedSegment
{
    std::uint32_t mark; // last of all, when the rest is whole
    NamedKind kind;
    std::uint32_t isManual;
    std::uint32_t maximum;
    std::uint32_t count;                 // of a semaphore; 1 if an event is signalled
    std::uint32_t isLeftBehind;          // a mutex whose owner died, as a process learnt that did not take it
    std::uint32_t pulses;                // of an event, ever
    std::uint32_t pulsed;                // sleepers that a pulse still lets through
    std::atomic<std::uint32_t> changes;  // slept on
    std::atomic<std::uint32_t> sleepers; // at least as many as sleep: who dies asleep stays counted
    pthread_mutex_t guard;
    pthread_mutex_t held; // of a mutex
};

namespace
{

constexpr std::uint32_t Mark = 0x5A574F00 + sizeof(NamedSegment);
constexpr std::size_t TooLong = 260;

constinit Lock namesLock;
constinit NamedObject* names = nullptr; // guarded by namesLock: what this process has mapped

// A lock that every process can tell from a dead holder's.
bool InitRobust(pthread_mutex_t& mutex, int type)
{
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
    pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
    pthread_mutexattr_settype(&attributes, type);
    const bool works = pthread_mutex_init(&mutex, &attributes) == 0;
    pthread_mutexattr_destroy(&attributes);
    return works;
}

// Every change under the guard is one store of one word: what a dead holder left is whole.
void EnterGuard(NamedSegment& segment)
{
    if (pthread_mutex_lock(&segment.guard) == EOWNERDEAD)
        pthread_mutex_consistent(&segment.guard);
}

void LeaveGuard(NamedSegment& segment)
{
    pthread_mutex_unlock(&segment.guard);
}

class Guard
{
public:
    explicit Guard(NamedObject& object) : segment(*object.segment) { EnterGuard(segment); }
    ~Guard() { LeaveGuard(segment); }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;

private:
    const SuspendGuard suspension;
    NamedSegment& segment;
};

// Under the guard: something may be had now.
void TellChange(NamedSegment& segment)
{
    segment.changes.fetch_add(1, std::memory_order_seq_cst);
    if (segment.sleepers.load(std::memory_order_seq_cst) != 0)
        SharedFutex(reinterpret_cast<std::uint32_t*>(&segment.changes), FUTEX_WAKE, 0x7FFFFFFF, nullptr);
}

NamedAnswer TakeHeld(NamedObject& object)
{
    NamedSegment& segment = *object.segment;
    const int result = pthread_mutex_trylock(&segment.held);
    if (result == EOWNERDEAD)
        pthread_mutex_consistent(&segment.held);
    else if (result != 0)
        return NamedAnswer::Unavailable;
    const bool isAgain = result == 0 && object.owner == ThreadIdentity();
    object.owner = ThreadIdentity();
    object.depth = isAgain ? object.depth + 1 : 1;
    const bool isLeftBehind = result == EOWNERDEAD || segment.isLeftBehind != 0;
    segment.isLeftBehind = 0;
    return isLeftBehind ? NamedAnswer::TakenAbandoned : NamedAnswer::Taken;
}

bool GiveHeld(NamedObject& object)
{
    // The lock itself has the last word, by the number of its owner in the system: a thread that ended as the owner may
    // have had the same identity.
    if (object.owner != ThreadIdentity() || pthread_mutex_unlock(&object.segment->held) != 0)
        return false;
    if (--object.depth == 0)
        object.owner = 0;
    return true;
}

bool FillSegment(NamedObject& object, NamedKind kind, std::uint32_t count, std::uint32_t maximum, bool isManual,
                 bool isOwned)
{
    auto* segment = new (object.segment) NamedSegment{};
    segment->kind = kind;
    segment->isManual = isManual;
    segment->count = count;
    segment->maximum = maximum;
    if (!InitRobust(segment->guard, PTHREAD_MUTEX_NORMAL) || !InitRobust(segment->held, PTHREAD_MUTEX_RECURSIVE))
        return false;
    if (isOwned)
        TakeHeld(object);
    segment->mark = Mark;
    return true;
}

// With the gate held.
bool MapNamed(NamedObject& object, bool isAlone)
{
    struct stat status;
    if (isAlone)
    {
        int error;
        while ((error = posix_fallocate(object.file, 0, sizeof(NamedSegment))) == EINTR)
        {
        }
        if (error != 0)
            return false;
    }
    if (fstat(object.file, &status) != 0 || status.st_size < static_cast<off_t>(sizeof(NamedSegment)))
        return false;
    void* data = mmap(nullptr, sizeof(NamedSegment), PROT_READ | PROT_WRITE, MAP_SHARED, object.file, 0);
    if (data == MAP_FAILED)
        return false;
    object.segment = static_cast<NamedSegment*>(data);
    object.order = status.st_ino;
    return true;
}

// Whether no thread of this process owns the mutex: the system's list of what a thread holds would point nowhere.
bool CanUnmap(NamedObject& object)
{
    NamedSegment& segment = *object.segment;
    if (segment.kind != NamedKind::Mutex)
        return true;
    const Guard guard(object);
    const int result = pthread_mutex_trylock(&segment.held);
    if (result == EOWNERDEAD)
    {
        pthread_mutex_consistent(&segment.held);
        segment.isLeftBehind = 1;
    }
    else if (result != 0)
        return object.owner == 0;
    pthread_mutex_unlock(&segment.held);
    return result == EOWNERDEAD || object.owner != ThreadIdentity();
}

void CloseFile(NamedObject& object)
{
    if (object.file < 0)
        return;
    const NamedFile::Gate gate;
    if (gate.IsHeld())
        NamedFile::Close(object.file, object.path);
    else
        close(object.file);
    object.file = -1;
}

// Lets go of what nobody uses any more, with the names locked.
void SweepNames()
{
    for (NamedObject** link = &names; *link;)
    {
        NamedObject* object = *link;
        if (object->uses.load(std::memory_order_acquire) != 0 || !CanUnmap(*object))
        {
            link = &object->nextNamed;
            continue;
        }
        *link = object->nextNamed;
        munmap(object->segment, sizeof(NamedSegment));
        CloseFile(*object);
        std::free(object);
    }
}

NamedObject* FindName(const char* path)
{
    for (NamedObject* object = names; object; object = object->nextNamed)
        if (std::strcmp(object->path, path) == 0)
            return object;
    return nullptr;
}

NamedObject* OpenPath(const char* path, NamedKind kind, std::uint32_t count, std::uint32_t maximum, bool isManual,
                      bool isOwned)
{
    void* memory = std::malloc(sizeof(NamedObject));
    if (!memory)
        return nullptr;
    auto* object = new (memory) NamedObject{};
    object->kind = WaitKind::Named;
    object->uses.store(1, std::memory_order_relaxed);
    std::snprintf(object->path, sizeof(object->path), "%s", path);
    const NamedFile::Gate gate;
    bool isAlone = false;
    object->file = gate.IsHeld() ? NamedFile::Open(path, isAlone) : -1;
    if (object->file >= 0 && MapNamed(*object, isAlone))
    {
        if (isAlone ? FillSegment(*object, kind, count, maximum, isManual, isOwned)
                    : object->segment->mark == Mark && object->segment->kind == kind)
        {
            object->nextNamed = names;
            names = object;
            return object;
        }
        munmap(object->segment, sizeof(NamedSegment));
    }
    if (object->file >= 0)
        NamedFile::Close(object->file, path);
    std::free(memory);
    return nullptr;
}

} // namespace

NamedObject* OpenNamed(NamedKind kind, const char* name, std::uint32_t count, std::uint32_t maximum, bool isManual,
                       bool isOwned) noexcept
{
    char path[512];
    if (std::strlen(name) >= TooLong || !NamedFile::MakePath(path, 'w', name))
        return nullptr;
    const SuspendGuard suspension;
    const LockGuard guard(namesLock);
    SweepNames();
    NamedObject* object = FindName(path);
    if (!object)
        return OpenPath(path, kind, count, maximum, isManual, isOwned);
    if (object->segment->kind != kind)
        return nullptr;
    object->uses.fetch_add(1, std::memory_order_relaxed);
    return object;
}

void LeaveNamed(NamedObject& object) noexcept
{
    if (object.uses.fetch_sub(1, std::memory_order_acq_rel) != 1)
        return;
    // From here on the object may be gone: another thread may have found, used and left it meanwhile.
    const SuspendGuard suspension;
    const LockGuard guard(namesLock);
    SweepNames();
}

void CloseNames() noexcept
{
    const SuspendGuard suspension;
    const LockGuard guard(namesLock);
    SweepNames();
    for (NamedObject* object = names; object; object = object->nextNamed)
        CloseFile(*object);
}

bool ReleaseNamedMutex(NamedObject& object) noexcept
{
    if (object.segment->kind != NamedKind::Mutex)
        return false;
    const Guard guard(object);
    if (!GiveHeld(object))
        return false;
    TellChange(*object.segment);
    return true;
}

bool ReleaseNamedSemaphore(NamedObject& object, std::uint32_t count) noexcept
{
    NamedSegment& segment = *object.segment;
    if (segment.kind != NamedKind::Semaphore || count == 0)
        return false;
    const Guard guard(object);
    if (segment.maximum - segment.count < count)
        return false;
    segment.count += count;
    TellChange(segment);
    return true;
}

bool SetNamedEvent(NamedObject& object, bool isSignalled) noexcept
{
    NamedSegment& segment = *object.segment;
    if (segment.kind != NamedKind::Event)
        return false;
    const Guard guard(object);
    segment.count = isSignalled;
    if (isSignalled)
        TellChange(segment);
    return true;
}

bool PulseNamedEvent(NamedObject& object) noexcept
{
    NamedSegment& segment = *object.segment;
    if (segment.kind != NamedKind::Event)
        return false;
    const Guard guard(object);
    segment.count = 0;
    if (segment.pulsed < segment.sleepers.load(std::memory_order_seq_cst))
        ++segment.pulsed;
    ++segment.pulses;
    TellChange(segment);
    return true;
}

NamedGuards::NamedGuards(NamedWaiter** ordered, std::uint32_t number) noexcept : waiters(ordered), count(number)
{
    for (std::uint32_t n = 1; n < count; ++n)
        for (std::uint32_t at = n; at > 0 && waiters[at - 1]->object->order > waiters[at]->object->order; --at)
        {
            NamedWaiter* later = waiters[at - 1];
            waiters[at - 1] = waiters[at];
            waiters[at] = later;
        }
    for (std::uint32_t n = 0; n < count; ++n)
        if (n == 0 || waiters[n]->object != waiters[n - 1]->object)
            EnterGuard(*waiters[n]->object->segment);
}

NamedGuards::~NamedGuards()
{
    for (std::uint32_t n = count; n-- > 0;)
        if (n == 0 || waiters[n]->object != waiters[n - 1]->object)
            LeaveGuard(*waiters[n]->object->segment);
}

void BeginNamed(NamedWaiter& waiter) noexcept
{
    waiter.pulses = waiter.object->segment->pulses;
}

NamedAnswer TakeNamed(NamedWaiter& waiter) noexcept
{
    NamedSegment& segment = *waiter.object->segment;
    if (segment.kind == NamedKind::Mutex)
        return TakeHeld(*waiter.object);
    if (!CanTakeNamed(waiter))
        return NamedAnswer::Unavailable;
    if (!segment.isManual)
        --(segment.count != 0 ? segment.count : segment.pulsed);
    return NamedAnswer::Taken;
}

bool CanTakeNamed(const NamedWaiter& waiter) noexcept
{
    const NamedSegment& segment = *waiter.object->segment;
    return segment.kind == NamedKind::Mutex || segment.count != 0 ||
           (segment.pulses != waiter.pulses && (segment.isManual || segment.pulsed != 0));
}

void PutBackNamed(NamedWaiter& waiter, NamedAnswer taken) noexcept
{
    GiveHeld(*waiter.object);
    if (taken == NamedAnswer::TakenAbandoned)
        waiter.object->segment->isLeftBehind = 1;
}

void PrepareSleep(NamedWaiter& waiter) noexcept
{
    NamedSegment& segment = *waiter.object->segment;
    waiter.pulses = segment.pulses;
    waiter.changes = segment.changes.load(std::memory_order_seq_cst);
    if (!waiter.isCounted)
        segment.sleepers.fetch_add(1, std::memory_order_seq_cst);
    waiter.isCounted = true;
}

void EndNamed(NamedWaiter& waiter) noexcept
{
    if (waiter.isCounted)
        waiter.object->segment->sleepers.fetch_sub(1, std::memory_order_seq_cst);
    waiter.isCounted = false;
}

std::uint32_t* ChangesWord(NamedWaiter& waiter) noexcept
{
    return reinterpret_cast<std::uint32_t*>(&waiter.object->segment->changes);
}

bool IsNamedMutex(const NamedWaiter& waiter) noexcept
{
    return waiter.object->segment->kind == NamedKind::Mutex;
}

} // namespace Zem::Platform
