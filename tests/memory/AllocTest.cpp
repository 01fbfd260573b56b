#include "support/Support.h"

#include <Bedrock/memory/Alloc.h>
#include <Bedrock/memory/AllocReport.h>
#include <Bedrock/memory/HeapOperators.h>

#include <array>
#include <atomic>
#include <cmath>
#include <csignal>
#include <set>
#include <thread>

namespace
{

using Zem::Alloc;

// A class that nothing else in this program uses at the time, with its counters before the test.
struct Watched
{
    explicit Watched(unsigned number) : c(number), before(Alloc::OfClass(number)) {}
    // hits, misses, blocks and cached blocks since then
    std::array<int, 4> Change() const
    {
        const auto now = Alloc::OfClass(c);
        return {static_cast<int>(now.hits - before.hits), static_cast<int>(now.misses - before.misses),
                static_cast<int>(now.blocks - before.blocks), static_cast<int>(now.cached - before.cached)};
    }
    unsigned c;
    Alloc::Statistics before;
};

[[maybe_unused]] std::uint32_t HeaderOf(const void* block)
{
    std::uint32_t header;
    std::memcpy(&header, static_cast<const char*>(block) - 4, 4);
    return header;
}

using Changes = std::array<int, 4>;

TEST(Alloc, SortsRequestsIntoClassesWithTheirLimits)
{
    const struct
    {
        std::size_t size;
        unsigned c, limit;
    } rows[] = {{0, 1, 1025},  {4, 1, 1025},  {5, 2, 513},    {12, 2, 513},   {13, 3, 342},   {28, 4, 257},
                {117, 16, 65}, {124, 16, 65}, {2037, 256, 5}, {2044, 256, 5}, {4077, 511, 3}, {4084, 511, 3}};
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.size);
        EXPECT_EQ(Alloc::OfClass(row.c).limit, row.limit);
        const Watched watched(row.c);
        void* block = Alloc::New(row.size);
        ASSERT_NE(block, nullptr);
        std::memset(block, 0xA5, row.size);
        const auto [hits, misses, blocks, cached] = watched.Change();
        EXPECT_EQ(hits + misses, 1);
        EXPECT_EQ(blocks, misses);
        EXPECT_EQ(cached, -hits);
#if !defined(__SANITIZE_ADDRESS__)
        EXPECT_EQ(HeaderOf(block), row.c << 9 | ((row.c ^ 0x155) & 0x1FF));
#endif
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % 16, sizeof(void*) == 8 ? 0 : 4);
        Alloc::Delete(block);
        EXPECT_EQ(watched.Change()[3], misses);
    }
}

TEST(Alloc, LargeBlocksAreCountedAndNeverCached)
{
    for (const std::size_t size : {std::size_t{4085}, std::size_t{1} << 20, std::size_t{60} << 20})
    {
        const auto before = Alloc::Total();
        void* block = Alloc::New(size);
        ASSERT_NE(block, nullptr);
        static_cast<char*>(block)[size - 1] = 1;
        EXPECT_EQ(Alloc::Total().large - before.large, 1u);
        EXPECT_EQ(Alloc::Total().allocated - before.allocated, ((size + 11) >> 3) * 8);
        Alloc::Delete(block);
        EXPECT_EQ(Alloc::Total().allocated, before.allocated);
        EXPECT_EQ(Alloc::Total().cached, before.cached);
    }
    if (sizeof(void*) == 8) // a texture that no class number in a header can name
    {
        const std::size_t size = std::size_t{300} << 20;
        const auto before = Alloc::Total();
        void* block = Alloc::New(size);
        ASSERT_NE(block, nullptr);
        Alloc::Delete(block);
        EXPECT_EQ(Alloc::Total().allocated, before.allocated);
    }
}

TEST(Alloc, RefusesWhatNoBlockCanHold)
{
    const auto before = Alloc::Total();
    for (const std::size_t size :
         {SIZE_MAX, SIZE_MAX - 11, SIZE_MAX / 2 + 1, std::size_t{0xFFFFFFFF}, std::size_t{0xFFFFFFF5}})
        EXPECT_EQ(Alloc::New(size), nullptr) << size;
    if (sizeof(void*) == 4)
    {
        EXPECT_EQ(Alloc::New(67'108'853), nullptr);
    }
    EXPECT_EQ(Alloc::Total().large, before.large);
    Alloc::Delete(nullptr);
    EXPECT_EQ(Alloc::Total().cached, before.cached);
}

// The cache as one thread sees it: last in, first out, by class and not by request, over the whole of the limit.
TEST(Alloc, GivesTheBlockFreedLastAndKeepsToTheLimit)
{
    void* block = Alloc::New(5);
    Alloc::Delete(block);
    void* again = Alloc::New(12);
    EXPECT_EQ(again, block);
    Alloc::Delete(again);

    const struct
    {
        std::size_t size;
        unsigned c, limit;
    } rows[] = {{4, 1, 1025}, {124, 16, 65}, {620, 78, 14}, {1300, 163, 7}, {4084, 511, 3}};
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.size);
        std::vector<void*> blocks;
        for (unsigned i = 0; i < row.limit + 40; ++i)
            blocks.push_back(Alloc::New(row.size));
        const Watched watched(row.c);
        ASSERT_EQ(watched.before.cached, 0u);
        for (std::size_t i = 0; i < blocks.size(); ++i)
        {
            Alloc::Delete(blocks[i]);
            ASSERT_EQ(watched.Change()[3], static_cast<int>(std::min<std::size_t>(i + 1, row.limit))) << i;
        }
        EXPECT_EQ(watched.Change(), (Changes{0, 0, -40, static_cast<int>(row.limit)}));
        for (unsigned i = row.limit; i-- > 0;)
            ASSERT_EQ(Alloc::New(row.size), blocks[i]) << i;
        EXPECT_EQ(watched.Change(), (Changes{static_cast<int>(row.limit), 0, -40, 0}));
        for (unsigned i = 0; i < row.limit; ++i)
            Alloc::Delete(blocks[i]);
    }
}

TEST(Alloc, AgreesWithAModelUnderRandomRequests)
{
    auto random = ::Test::Random(1);
    constexpr std::size_t size = 300; // class 38
    const Watched watched(38);
    std::vector<void*> cached; // filled below as the stack that the class is
    std::vector<void*> used;
    while (Alloc::OfClass(38).cached != 0)
        used.push_back(Alloc::New(size));
    for (int i = 0; i < 20'000; ++i)
    {
        if (used.empty() || random() % 100 < (i / 1000 % 2 ? 60 : 40))
        {
            void* block = Alloc::New(size);
            if (!cached.empty())
            {
                ASSERT_EQ(block, cached.back());
                cached.pop_back();
            }
            used.push_back(block);
        }
        else
        {
            std::swap(used[random() % used.size()], used.back());
            if (cached.size() < watched.before.limit)
                cached.push_back(used.back());
            Alloc::Delete(used.back());
            used.pop_back();
        }
        ASSERT_EQ(Alloc::OfClass(38).cached, cached.size());
        ASSERT_EQ(Alloc::OfClass(38).blocks, cached.size() + used.size());
    }
    for (void* block : used)
        Alloc::Delete(block);
}

// Blocks wander from thread to thread; none may be lost, given out twice, or kept beyond the limit.
TEST(Alloc, SharesBlocksAmongThreadsAndTakesThemBackAtTheirEnd)
{
    constexpr unsigned c = 20;
    constexpr std::size_t size = 8 * c - 4;
    const Watched watched(c);
    std::array<std::atomic<std::uint32_t*>, 64> pool = {};
    std::atomic<int> made{0};
    {
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t)
            threads.emplace_back(
                [&, t]
                {
                    auto random = ::Test::Random(static_cast<std::uint64_t>(t) + 10);
                    for (int i = 0; i < 20'000; ++i)
                    {
                        auto* block = static_cast<std::uint32_t*>(Alloc::New(size));
                        std::fill_n(block, size / 4, static_cast<std::uint32_t>(t * 100'000 + i));
                        made.fetch_add(1, std::memory_order_relaxed);
                        block = pool[random() % pool.size()].exchange(block, std::memory_order_acq_rel);
                        if (!block)
                            continue;
                        ASSERT_EQ(std::count(block, block + size / 4, block[0]), static_cast<std::ptrdiff_t>(size / 4));
                        Alloc::Delete(block);
                    }
                });
        for (auto& thread : threads)
            thread.join();
    }
    for (auto& slot : pool)
        Alloc::Delete(slot.load());
    const auto [hits, misses, blocks, cached] = watched.Change();
    EXPECT_EQ(hits + misses, made);
    EXPECT_EQ(blocks, cached); // nothing is in use any more
    EXPECT_LE(Alloc::OfClass(c).cached, Alloc::OfClass(c).limit);

    // What the ended threads kept serves this one: all of it, before the heap is asked again.
    std::set<void*> all;
    const auto left = Alloc::OfClass(c).cached;
    for (std::uint32_t i = 0; i < left; ++i)
        all.insert(Alloc::New(size));
    EXPECT_EQ(all.size(), left);
    EXPECT_EQ(watched.Change()[1], misses);
    for (void* block : all)
        Alloc::Delete(block);
}

TEST(Alloc, ServesAReportWithoutTheHeap)
{
    void* ordinary = Alloc::New(40);
    void* kept = nullptr;
    const auto before = Alloc::Total();
    const Watched watched(6);
    {
        const Zem::AllocReportScope report;
        const Zem::AllocReportScope nested;
        auto* small = static_cast<char*>(Alloc::New(40));
        auto* large = static_cast<char*>(Alloc::New(100'000));
        ASSERT_TRUE(small && large);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(large) % 16, 0u);
        std::memset(large, 1, 100'000);
        std::memset(small, 2, 40);
        EXPECT_EQ(large[0], 1);
        EXPECT_EQ(Alloc::New(200'000), nullptr); // the arena is full
        EXPECT_EQ(Alloc::New(SIZE_MAX - 20), nullptr);
        Alloc::Delete(large);
        kept = small;
        Alloc::Delete(ordinary);
        EXPECT_EQ(watched.Change()[3], 0); // put aside
    }
    EXPECT_EQ(Alloc::Total().hits, before.hits);
    EXPECT_EQ(Alloc::Total().misses, before.misses);
    EXPECT_EQ(Alloc::Total().large, before.large);
    EXPECT_EQ(watched.Change()[3], 1);
    EXPECT_NE(Zem::AllocReportScope::Used(), 0u);
    std::thread([kept] { Alloc::Delete(kept); }).join();
    EXPECT_EQ(Zem::AllocReportScope::Used(), 0u);
}

struct Plain
{
    ZEM_HEAP_OPERATORS
    Plain() { ++made; }
    static inline int made = 0;
    char bytes[24];
};
struct alignas(64) Aligned : Plain
{
};

TEST(Alloc, ServesTheOperatorsOfAClass)
{
    Plain::made = 0;
    const Watched watched(4);
    delete new Plain;
    auto* aligned = new Aligned[3];
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(aligned) % 64, 0u);
    delete[] aligned;
    alignas(Plain) unsigned char place[sizeof(Plain)];
    (new (place) Plain)->~Plain();
    EXPECT_EQ(Plain::made, 5);
    const auto change = watched.Change();
    EXPECT_EQ(change[0] + change[1], 1);
    const Zem::AllocFailureForTest failure(1);
    Plain* served = new Plain;
    EXPECT_NE(served, nullptr);
    EXPECT_EQ(new Plain, nullptr); // and no constructor runs
    EXPECT_EQ(new Aligned, nullptr);
    EXPECT_EQ(Plain::made, 6);
    EXPECT_TRUE(Zem::AllocFailureForTest::HasFailed());
    delete served;
}

TEST(AllocDeathTest, StopsAtAPointerThatCannotBeABlock)
{
    for (const std::uintptr_t address : {std::uintptr_t{8}, std::uintptr_t{0xFFFF}, UINTPTR_MAX - 0xFF})
        EXPECT_EXIT(Alloc::Delete(reinterpret_cast<void*>(address)), testing::KilledBySignal(SIGTRAP), "");
}

#if defined(__SANITIZE_ADDRESS__)
TEST(AllocDeathTest, FindsUseOfACachedBlock)
{
    auto* block = static_cast<volatile char*>(Alloc::New(30));
    EXPECT_DEATH(block[30] = 1, "poison|overflow");
    EXPECT_DEATH(block[-1] = 1, "poison|overflow");
    Alloc::Delete(const_cast<char*>(block));
    EXPECT_DEATH(block[0] = 1, "use-after-poison");
    auto* again = static_cast<volatile char*>(Alloc::New(30));
    again[29] = 1;
    EXPECT_DEATH(again[30] = 1, "poison");
    Alloc::Delete(const_cast<char*>(again));
}
#endif

} // namespace
