// One record per class holds the free list that all threads share. Before it, each thread has a magazine for the smaller
// classes: a stack of the blocks it freed last, which it alone touches. A thread leases the room of its magazine from
// the class's limit, so that magazines and list together never hold more than the limit, and one thread alone can fill
// it to the last block. A full magazine gives its older half to the list, an empty one takes as many back: so the blocks
// of one thread come out last in, first out, as if there was only the list.

#include <Bedrock/memory/Alloc.h>
#include <Bedrock/memory/AllocReport.h>
#include <Bedrock/platform/AddressSpace.h>
#include <Bedrock/platform/Debug.h>
#include <Bedrock/platform/Pause.h>
#include <Bedrock/platform/Poison.h>
#include <Bedrock/platform/SuspendGuard.h>
#include <Bedrock/platform/ThreadExit.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <type_traits>

namespace Zem
{

namespace
{

// ---- blocks

// What stands before the caller's memory, ending with the header. In a 32-bit process there is no room for more, and
// the link of a cached block lies in its first word.
struct WidePrefix
{
    WidePrefix* next;   // in a cached block
    std::uint32_t wide; // class of a large block, whose number the header may not hold
    std::uint32_t header;
};
struct NarrowPrefix
{
    std::uint32_t header;
    NarrowPrefix* next; // in a cached block
};

constexpr bool isWide = sizeof(void*) == 8;
using Block = std::conditional_t<isWide, WidePrefix, NarrowPrefix>;
constexpr std::size_t prefixBytes = isWide ? 16 : 4;
static_assert(sizeof(Block) == (isWide ? 16 : 8));
static_assert(isWide || offsetof(NarrowPrefix, next) == prefixBytes);

constexpr std::uint32_t classBits = 23;
constexpr std::uint32_t largestHeaderClass = (1u << classBits) - 1;
constexpr std::size_t largestRequest = isWide ? 0xFFFFFFF4u : (largestHeaderClass << 3) - 4;

constexpr std::uint32_t ClassOf(std::size_t size)
{
    return static_cast<std::uint32_t>((size + 11) >> 3);
}
constexpr std::size_t UsableBytes(std::uint32_t c)
{
    return std::size_t{c} * 8 - 4;
}
constexpr std::size_t HeapBytes(std::uint32_t c)
{
    return UsableBytes(c) + prefixBytes;
}
constexpr std::uint32_t HeaderOf(std::uint32_t c)
{
    c = std::min(c, largestHeaderClass);
    return c << 9 | ((c ^ 0x155) & 0x1FF);
}
constexpr std::uint32_t LimitOf(std::uint32_t c)
{
    return c == 0 ? 1 : 8192 / (8 * c) + 1;
}
static_assert(HeapBytes(1) == (isWide ? 20 : 8) && HeapBytes(511) == (isWide ? 4100 : 4088));
static_assert(LimitOf(1) == 1025 && LimitOf(3) == 342 && LimitOf(256) == 5 && LimitOf(511) == 3);

// The class of a block, with what the header cannot hold.
[[maybe_unused]] void SetClass(WidePrefix* block, std::uint32_t c)
{
    block->wide = c;
    block->header = HeaderOf(c);
}
[[maybe_unused]] void SetClass(NarrowPrefix* block, std::uint32_t c)
{
    block->header = HeaderOf(c);
}
[[maybe_unused]] std::uint32_t LargeClass(const WidePrefix* block)
{
    return block->wide;
}
[[maybe_unused]] std::uint32_t LargeClass(const NarrowPrefix* block)
{
    return block->header >> 9;
}

Block* BlockOf(void* memory)
{
    return reinterpret_cast<Block*>(static_cast<char*>(memory) - prefixBytes);
}
void* MemoryOf(Block* block)
{
    return reinterpret_cast<char*>(block) + prefixBytes;
}
std::uint32_t HeaderBefore(const void* memory)
{
    std::uint32_t header;
    std::memcpy(&header, static_cast<const char*>(memory) - sizeof header, sizeof header);
    return header;
}

// Under AddressSanitizer the whole of a cached block is poisoned, and the prefix of one in use with what lies behind the
// bytes that were asked for.
void PoisonCached(void* memory, std::uint32_t c)
{
    if constexpr (isWide)
        Platform::Poison(memory, UsableBytes(c));
}
void PoisonUnasked(void* memory, std::uint32_t c, std::size_t size)
{
    if constexpr (isWide)
    {
        Platform::Poison(BlockOf(memory), prefixBytes);
        Platform::Unpoison(memory, size);
        Platform::Poison(static_cast<char*>(memory) + size, UsableBytes(c) - size);
    }
}
void UnpoisonPrefix(void* memory)
{
    if constexpr (isWide)
        Platform::Unpoison(BlockOf(memory), prefixBytes);
}

// ---- classes

// The counters of a thread or class are written under its lock or by its thread, and read by everybody.
using Counter = std::atomic<std::uint32_t>;

std::uint32_t Get(const Counter& counter)
{
    return counter.load(std::memory_order_relaxed);
}
void Put(Counter& counter, std::uint32_t value)
{
    counter.store(value, std::memory_order_relaxed);
}
void Step(Counter& counter, std::uint32_t step)
{
    Put(counter, Get(counter) + step);
}

struct alignas(64) ClassRecord
{
    std::atomic<std::uint32_t> lock{0}; // 1 while held; guards all below
    std::uint32_t leased = 0;           // room that magazines hold of `limit`
    Block* head = nullptr;
    Counter count{0}; // blocks on the list
    std::uint32_t limit = 0;
    Counter hits{0};
    Counter misses{0};
    Counter blocks{0};
    Counter peak{0};

    std::uint32_t Room() const { return limit - leased - Get(count); }
};
static_assert(sizeof(ClassRecord) == 64);

struct ClassTable
{
    ClassRecord records[Alloc::classes];

    constexpr ClassTable()
    {
        for (std::uint32_t c = 0; c < Alloc::classes; ++c)
            records[c].limit = LimitOf(c);
    }
};

constinit ClassTable table;
constinit std::atomic<std::uint32_t> largeRequests{0};
constinit std::atomic<std::uint32_t> largeBytes{0};

// ---- magazines

constexpr std::uint32_t magazineClasses = 128; // those below have magazines: up to 1,012 bytes
constexpr std::uint32_t MagazineSlots(std::uint32_t c)
{
    return c == 0 ? 0 : std::clamp<std::uint32_t>(LimitOf(c) / 4, 2, 32);
}
constexpr std::uint32_t AllSlots()
{
    std::uint32_t slots = 0;
    for (std::uint32_t c = 0; c < magazineClasses; ++c)
        slots += MagazineSlots(c);
    return slots;
}

struct Magazine
{
    std::atomic<void**> top{nullptr}; // behind the block freed last
    void** end = nullptr;             // behind the room that is leased
    void** base = nullptr;
    Counter hits{0};

    std::uint32_t Blocks() const { return static_cast<std::uint32_t>(top.load(std::memory_order_relaxed) - base); }
    std::uint32_t Room() const { return static_cast<std::uint32_t>(end - base); }
};

// Lives for ever once made; a thread that ends leaves its cache to the next one.
struct ThreadCache
{
    Magazine magazines[magazineClasses];
    ThreadCache* next = nullptr; // in the list of all
    std::atomic<bool> isTaken{true};
    void* slots[AllSlots()];
};

constinit std::atomic<ThreadCache*> allCaches{nullptr};
constinit std::atomic<bool> isOpen{false}; // threads may take caches: the library is set up, and not yet torn down
constinit std::atomic<std::uint32_t> instances{0};

enum class ThreadState : std::uint8_t
{
    Fresh,  // may take a cache
    Cached, // `own` is its cache
    Plain   // has none, and takes none any more
};

struct Thread
{
    ThreadCache* cache; // the way of the fast path; null while anything special is on
    ThreadCache* own;
    ClassRecord* volatile held; // the record whose lock it holds
    std::uint32_t reports;      // nested report scopes
    std::uint32_t failures;     // nested failure objects
    std::uint32_t failIn;       // requests that are still served
    bool hasFailed;
    ThreadState state;
};

constinit thread_local Thread thread __attribute__((tls_model("initial-exec"))) = {};

// Holds a record for a few instructions and never across a call of the heap. Not recursive. A plain store gives it back,
// so nobody is woken: those who wait spin, then yield, then sleep shortly. Its holder is not suspended.
class Hold
{
public:
    explicit Hold(ClassRecord& held) noexcept : record(held)
    {
        Platform::SuspendGuard::Begin();
        if (record.lock.exchange(1, std::memory_order_acquire) != 0)
            Wait();
        thread.held = &record;
    }
    ~Hold()
    {
        thread.held = nullptr;
        record.lock.store(0, std::memory_order_release);
        Platform::SuspendGuard::End();
    }
    Hold(const Hold&) = delete;
    Hold& operator=(const Hold&) = delete;

private:
    void Wait() noexcept
    {
        for (unsigned turn = 0;; ++turn)
        {
            Platform::PauseTurn(turn);
            if (record.lock.load(std::memory_order_relaxed) == 0 &&
                record.lock.exchange(1, std::memory_order_acquire) == 0)
                return;
        }
    }

    ClassRecord& record;
};

// The heap's locks are not to be held by a suspended thread either.
void* HeapNew(std::size_t bytes)
{
    const Platform::SuspendGuard suspension;
    return std::malloc(bytes);
}

void HeapDelete(void* block)
{
    const Platform::SuspendGuard suspension;
    std::free(block);
}

void Push(ClassRecord& record, Block* block)
{
    block->next = record.head;
    record.head = block;
    Step(record.count, 1);
}

Block* Pop(ClassRecord& record)
{
    Block* block = record.head;
    record.head = block->next;
    Step(record.count, 0u - 1);
    return block;
}

// Lets a magazine that has less room than it is meant to have take what is left of the class's limit.
void Lease(ClassRecord& record, Magazine& magazine, std::uint32_t c)
{
    const std::uint32_t more = std::min(MagazineSlots(c) - magazine.Room(), record.Room());
    record.leased += more;
    magazine.end += more;
}

// The end of a thread: its blocks go to the lists, its counts into the records, and its cache to the next thread.
void LeaveCache(void* value)
{
    auto* cache = static_cast<ThreadCache*>(value);
    thread.cache = nullptr;
    thread.own = nullptr;
    thread.state = ThreadState::Plain;
    for (std::uint32_t c = 1; c < magazineClasses; ++c)
    {
        Magazine& magazine = cache->magazines[c];
        if (magazine.Room() == 0 && Get(magazine.hits) == 0)
            continue;
        ClassRecord& record = table.records[c];
        Hold hold(record);
        record.leased -= magazine.Room();
        for (void** slot = magazine.base; slot != magazine.top.load(std::memory_order_relaxed); ++slot)
            Push(record, BlockOf(*slot));
        Step(record.hits, Get(magazine.hits));
        Put(magazine.hits, 0);
        magazine.end = magazine.base;
        magazine.top.store(magazine.base, std::memory_order_relaxed);
    }
    cache->isTaken.store(false, std::memory_order_release);
}

ThreadCache* MakeCache()
{
    for (ThreadCache* cache = allCaches.load(std::memory_order_acquire); cache; cache = cache->next)
    {
        bool free = false;
        if (!cache->isTaken.load(std::memory_order_relaxed) &&
            cache->isTaken.compare_exchange_strong(free, true, std::memory_order_acq_rel))
            return cache;
    }
    void* memory = HeapNew(sizeof(ThreadCache));
    if (!memory)
        return nullptr;
    auto* cache = new (memory) ThreadCache;
    void** slot = cache->slots;
    for (std::uint32_t c = 0; c < magazineClasses; ++c)
    {
        Magazine& magazine = cache->magazines[c];
        magazine.base = magazine.end = slot;
        magazine.top.store(slot, std::memory_order_relaxed);
        slot += MagazineSlots(c);
    }
    cache->next = allCaches.load(std::memory_order_relaxed);
    while (!allCaches.compare_exchange_weak(cache->next, cache, std::memory_order_acq_rel))
    {
    }
    return cache;
}

// Out of the fast path: a thread that has no cache yet gets one, if it can.
void TakeCache()
{
    if (thread.state != ThreadState::Fresh || !isOpen.load(std::memory_order_acquire))
        return;
    thread.state = ThreadState::Plain; // also for what the platform may allocate meanwhile
    ThreadCache* cache = MakeCache();
    if (!cache)
        return;
    if (!Platform::SetThreadExit(cache))
    {
        cache->isTaken.store(false, std::memory_order_release);
        return;
    }
    thread.state = ThreadState::Cached;
    thread.own = cache;
    thread.cache = cache;
}

// ---- the arena of a report

constexpr std::uint32_t arenaBytes = 256 * 1024;
constexpr std::uint32_t arenaHeader = 0; // class 0, which no other block has

alignas(16) constinit unsigned char arena[arenaBytes] = {};
constinit std::atomic<std::uint64_t> arenaState{0}; // blocks in use << 32 | bytes given out
constinit std::atomic<Block*> putAside{nullptr};    // ordinary blocks freed in a report

void* ArenaNew(std::size_t size)
{
    if (size > arenaBytes)
        return nullptr;
    const auto bytes = static_cast<std::uint32_t>((size + 31) & ~std::size_t{15}); // with 16 for the header
    std::uint64_t state = arenaState.load(std::memory_order_relaxed);
    std::uint32_t at;
    do
    {
        at = static_cast<std::uint32_t>(state);
        if (bytes > arenaBytes - at)
            return nullptr;
    } while (!arenaState.compare_exchange_weak(state, state + (std::uint64_t{1} << 32) + bytes,
                                               std::memory_order_acquire, std::memory_order_relaxed));
    unsigned char* memory = arena + at + 16;
    std::memcpy(memory - sizeof arenaHeader, &arenaHeader, sizeof arenaHeader);
    return memory;
}

bool IsInArena(const void* memory)
{
    const auto at = reinterpret_cast<std::uintptr_t>(memory);
    const auto start = reinterpret_cast<std::uintptr_t>(arena);
    return at >= start && at - start < arenaBytes;
}

void ArenaDelete()
{
    std::uint64_t state = arenaState.load(std::memory_order_relaxed);
    std::uint64_t left;
    do
        left = state >> 32 == 1 ? 0 : state - (std::uint64_t{1} << 32);
    while (!arenaState.compare_exchange_weak(state, left, std::memory_order_release, std::memory_order_relaxed));
}

// ---- the slow paths

void* FromHeap(std::size_t size, std::uint32_t c)
{
    auto* block = static_cast<Block*>(HeapNew(HeapBytes(c)));
    if (!block)
        return nullptr;
    SetClass(block, c);
    void* memory = MemoryOf(block);
    PoisonUnasked(memory, c, size);
    return memory;
}

// Takes a block from the list, and some more into an empty magazine, the newest on top.
void* FromList(ClassRecord& record, Magazine* magazine, std::uint32_t c)
{
    if (magazine && magazine->Room() == 0)
        Lease(record, *magazine, c);
    const std::uint32_t listed = Get(record.count);
    if (listed == 0)
        return nullptr;
    void* memory = MemoryOf(Pop(record));
    Step(magazine ? magazine->hits : record.hits, 1);
    if (magazine)
    {
        const std::uint32_t more = std::min((magazine->Room() + 1) / 2, listed - 1);
        for (void** slot = magazine->base + more; slot != magazine->base;)
            *--slot = MemoryOf(Pop(record));
        magazine->top.store(magazine->base + more, std::memory_order_relaxed);
    }
    return memory;
}

[[gnu::noinline]] void* NewSlow(std::size_t size)
{
    if (size > largestRequest)
        return nullptr;
    if (thread.failures != 0 && thread.failIn-- == 0)
    {
        thread.failIn = 0;
        thread.hasFailed = true;
        return nullptr;
    }
    if (thread.reports != 0)
        return ArenaNew(size);
    const std::uint32_t c = ClassOf(size);
    if (c >= Alloc::classes)
    {
        largeRequests.fetch_add(1, std::memory_order_relaxed);
        largeBytes.fetch_add(8 * c, std::memory_order_relaxed);
        return FromHeap(size, c);
    }
    if (!thread.cache && thread.failures == 0)
        TakeCache();
    Magazine* magazine = thread.cache && c < magazineClasses ? &thread.cache->magazines[c] : nullptr;
    ClassRecord& record = table.records[c];
    {
        Hold hold(record);
        if (void* memory = FromList(record, magazine, c))
        {
            UnpoisonPrefix(memory);
            PoisonUnasked(memory, c, size);
            return memory;
        }
        Step(record.misses, 1);
        Step(record.blocks, 1);
        if (static_cast<std::int32_t>(Get(record.blocks)) > static_cast<std::int32_t>(Get(record.peak)))
            Put(record.peak, Get(record.blocks));
    }
    return FromHeap(size, c);
}

// Back to the heap, which must find nothing poisoned.
void ToHeap(Block* block, std::uint32_t c)
{
    if constexpr (isWide)
        Platform::Unpoison(block, HeapBytes(c));
    HeapDelete(block);
}

// False if the class is full, with the block counted out of it.
bool Keep(ClassRecord& record, Magazine* magazine, void* memory, std::uint32_t c)
{
    Hold hold(record);
    if (magazine && magazine->Room() < MagazineSlots(c))
        Lease(record, *magazine, c);
    const std::uint32_t room = record.Room();
    if (magazine && magazine->Room() != 0)
    {
        void** top = magazine->top.load(std::memory_order_relaxed);
        if (top == magazine->end)
        {
            // The list is older than all in the magazine, so the oldest of the magazine come next on it.
            const std::uint32_t moved = std::min((magazine->Room() + 1) / 2, room);
            for (std::uint32_t i = 0; i < moved; ++i)
                Push(record, BlockOf(magazine->base[i]));
            top = std::copy(magazine->base + moved, magazine->end, magazine->base);
        }
        if (top != magazine->end)
        {
            *top = memory;
            magazine->top.store(top + 1, std::memory_order_relaxed);
            return true;
        }
    }
    else if (room != 0)
    {
        Push(record, BlockOf(memory));
        return true;
    }
    Step(record.blocks, 0u - 1);
    return false;
}

[[gnu::noinline]] void DeleteSlow(void* memory)
{
    if (!memory)
        return;
    const auto address = reinterpret_cast<std::uintptr_t>(memory);
    if (address < Platform::lowestAddress || address > Platform::highestAddress)
        Platform::BreakpointTrap();
    if (IsInArena(memory))
        return ArenaDelete();
    UnpoisonPrefix(memory);
    Block* block = BlockOf(memory);
    if (thread.reports != 0)
    {
        block->next = putAside.load(std::memory_order_relaxed);
        while (!putAside.compare_exchange_weak(block->next, block, std::memory_order_acq_rel))
        {
        }
        return;
    }
    const std::uint32_t c = HeaderBefore(memory) >> 9;
    if (c >= Alloc::classes)
    {
        const std::uint32_t whole = LargeClass(block);
        largeBytes.fetch_sub(8 * whole, std::memory_order_relaxed);
        return ToHeap(block, whole);
    }
    if (!thread.cache && thread.failures == 0)
        TakeCache();
    Magazine* magazine = thread.cache && c < magazineClasses ? &thread.cache->magazines[c] : nullptr;
    PoisonCached(memory, c);
    if (!Keep(table.records[c], magazine, memory, c))
        ToHeap(block, c);
}

void Sum(Alloc::Statistics& total, const Alloc::Statistics& one)
{
    total.cached += one.cached;
    total.limit += one.limit;
    total.hits += one.hits;
    total.misses += one.misses;
    total.blocks += one.blocks;
    total.peak += one.peak;
}

} // namespace

// ---- the fast paths

void* Alloc::New(std::size_t size) noexcept
{
    if (ThreadCache* cache = thread.cache; cache && size <= UsableBytes(magazineClasses - 1)) [[likely]]
    {
        const std::uint32_t c = ClassOf(size);
        Magazine& magazine = cache->magazines[c];
        void** top = magazine.top.load(std::memory_order_relaxed);
        if (top != magazine.base) [[likely]]
        {
            void* memory = *--top;
            magazine.top.store(top, std::memory_order_relaxed);
            Step(magazine.hits, 1);
            PoisonUnasked(memory, c, size);
            return memory;
        }
    }
    return NewSlow(size);
}

void Alloc::Delete(void* block) noexcept
{
    ThreadCache* cache = thread.cache;
    const auto address = reinterpret_cast<std::uintptr_t>(block);
    if (cache && address - Platform::lowestAddress <= Platform::highestAddress - Platform::lowestAddress) [[likely]]
    {
        UnpoisonPrefix(block);
        const std::uint32_t c = HeaderBefore(block) >> 9;
        if (c < magazineClasses) [[likely]]
        {
            Magazine& magazine = cache->magazines[c];
            void** top = magazine.top.load(std::memory_order_relaxed);
            if (top != magazine.end) [[likely]]
            {
                *top = block;
                magazine.top.store(top + 1, std::memory_order_relaxed);
                PoisonCached(block, c);
                return;
            }
        }
    }
    DeleteSlow(block);
}

// ---- the class itself

Alloc::Alloc() noexcept
{
    if (instances.fetch_add(1) == 0)
        isOpen.store(Platform::OpenThreadExit(LeaveCache), std::memory_order_release);
}

Alloc::~Alloc()
{
    if (instances.fetch_sub(1) != 1)
        return;
    isOpen.store(false, std::memory_order_release);
    Platform::CloseThreadExit();
}

Alloc::Statistics Alloc::OfClass(unsigned c) noexcept
{
    if (c >= classes)
        return {};
    const ClassRecord& record = table.records[c];
    Statistics result = {Get(record.count),
                         record.limit,
                         Get(record.hits),
                         Get(record.misses),
                         Get(record.blocks),
                         Get(record.peak),
                         0,
                         0};
    if (c < magazineClasses)
        for (const ThreadCache* cache = allCaches.load(std::memory_order_acquire); cache; cache = cache->next)
        {
            result.cached += cache->magazines[c].Blocks();
            result.hits += Get(cache->magazines[c].hits);
        }
    return result;
}

Alloc::Statistics Alloc::Total() noexcept
{
    Statistics total = {};
    total.large = largeRequests.load(std::memory_order_relaxed);
    total.allocated = largeBytes.load(std::memory_order_relaxed);
    for (unsigned c = 0; c < classes; ++c)
    {
        const Statistics one = OfClass(c);
        Sum(total, one);
        total.allocated += 8 * c * one.misses;
    }
    return total;
}

void Alloc::Dump() noexcept
{
    const Statistics now = Total();
    const std::uint32_t search = 0; // blocks are found by their class; nothing is ever searched
    const std::uint32_t total = now.hits + now.misses + now.large;
    const auto percent = [total](std::uint32_t part) { return total != 0 ? part * 100.0 / total : 0; };
    char text[1024];
    std::snprintf(text, sizeof text,
                  "\nAllocator:\nHits  : %8u - %5.1f%%\nMisses: %8u\nLarge : %8u - %5.1f%%\n"
                  "Search: %8u - Maximum %u\nAlloc : %8u bytes, %u no.\n",
                  now.hits, percent(now.hits), now.misses, now.large, percent(now.large), search, search, now.allocated,
                  total);
    Platform::WriteDebugOutput(text);
}

// ---- reports, faults, tests

AllocReportScope::AllocReportScope(Cause cause) noexcept : isSound(cause == Failure)
{
    ++thread.reports;
    thread.cache = nullptr;
}

AllocReportScope::~AllocReportScope()
{
    if (--thread.reports != 0)
        return;
    if (thread.failures == 0)
        thread.cache = thread.own;
    if (!isSound)
        return;
    for (Block* block = putAside.exchange(nullptr, std::memory_order_acq_rel); block;)
    {
        Block* next = block->next;
        Alloc::Delete(MemoryOf(block));
        block = next;
    }
}

std::uint32_t AllocReportScope::Used() noexcept
{
    return static_cast<std::uint32_t>(arenaState.load(std::memory_order_relaxed));
}

void RecoverAllocAfterFault() noexcept
{
    ClassRecord* record = thread.held;
    if (!record)
        return;
    record->head = nullptr;
    Put(record->count, 0);
    thread.held = nullptr;
    record->lock.store(0, std::memory_order_release);
    Platform::SuspendGuard::End();
}

AllocFailureForTest::AllocFailureForTest(std::uint32_t after) noexcept
{
    ++thread.failures;
    thread.failIn = after;
    thread.hasFailed = false;
    thread.cache = nullptr;
}

AllocFailureForTest::~AllocFailureForTest()
{
    if (--thread.failures == 0 && thread.reports == 0)
        thread.cache = thread.own;
}

bool AllocFailureForTest::HasFailed() noexcept
{
    return thread.hasFailed;
}

} // namespace Zem
