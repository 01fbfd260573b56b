// The allocator beside the heaps that a program could use instead. All get the same sequence of sizes and the same order
// of frees, and write to each block. The peers are loaded by hand, so that none takes the place of malloc here.

#include <Bedrock/memory/Alloc.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <dlfcn.h>
#include <random>
#include <thread>
#include <vector>

namespace
{

struct Heap
{
    const char* name;
    void* (*allocate)(std::size_t);
    void (*release)(void*);
};

// The C library's heap skips its atomics in a process that never had a second thread.
const bool hadThread = (std::thread([] {}).join(), true);

constexpr std::size_t steps = 1024;

std::vector<std::size_t> Sizes(std::size_t from, std::size_t to)
{
    std::mt19937 random(1);
    std::vector<std::size_t> sizes(steps);
    for (auto& size : sizes)
        size = from + random() % (to - from + 1);
    return sizes;
}

void Use(void* block)
{
    *static_cast<volatile char*>(block) = 1;
}

// A pair at a time, sizes of 8 to 512 bytes in mixed order.
void Mixed(benchmark::State& state, Heap heap)
{
    const auto sizes = Sizes(8, 512);
    for (auto _ : state)
        for (const std::size_t size : sizes)
        {
            void* block = heap.allocate(size);
            Use(block);
            heap.release(block);
        }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(steps));
}

// 64 blocks live at any time, each new one takes the place of a random old one.
void Churn(benchmark::State& state, Heap heap)
{
    const auto sizes = Sizes(8, 512);
    std::array<void*, 64> live = {};
    std::mt19937 random(2);
    std::vector<std::size_t> places(steps);
    for (auto& place : places)
        place = random() % live.size();
    for (auto _ : state)
        for (std::size_t i = 0; i < steps; ++i)
        {
            void*& block = live[places[i]];
            heap.release(block);
            block = heap.allocate(sizes[i]);
            Use(block);
        }
    for (void* block : live)
        heap.release(block);
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(steps));
}

// 1,000 blocks at once, freed in random order. Sizes of 1 to `to` bytes, all within the limits of their classes.
void Burst(benchmark::State& state, Heap heap)
{
    constexpr std::size_t count = 1000;
    const auto sizes = Sizes(1, static_cast<std::size_t>(state.range(0)));
    std::vector<std::size_t> order(count);
    for (std::size_t i = 0; i < count; ++i)
        order[i] = i;
    std::shuffle(order.begin(), order.end(), std::mt19937(3));
    std::vector<void*> blocks(count);
    for (auto _ : state)
    {
        for (std::size_t i = 0; i < count; ++i)
        {
            blocks[i] = heap.allocate(sizes[i]);
            Use(blocks[i]);
        }
        for (const std::size_t i : order)
            heap.release(blocks[i]);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(count));
}

// Two threads at once, each with its own blocks.
void TwoThreads(benchmark::State& state, Heap heap)
{
    const auto sizes = Sizes(8, 512);
    for (auto _ : state)
        for (const std::size_t size : sizes)
        {
            void* block = heap.allocate(size);
            Use(block);
            heap.release(block);
        }
}

// Two threads: one makes blocks, the other frees them.
void Remote(benchmark::State& state, Heap heap)
{
    const auto sizes = Sizes(8, 512);
    static std::array<std::atomic<void*>, 256> ring;
    for (auto& slot : ring)
        slot = nullptr;
    std::atomic<bool> stop{false};
    std::thread other(
        [&]
        {
            for (std::size_t i = 0;; ++i)
            {
                auto& slot = ring[i % ring.size()];
                void* block;
                while (!(block = slot.load(std::memory_order_acquire)))
                    if (stop.load(std::memory_order_relaxed))
                        return;
                    else
                        std::this_thread::yield();
                slot.store(nullptr, std::memory_order_release);
                heap.release(block);
            }
        });
    std::size_t at = 0;
    for (auto _ : state)
        for (const std::size_t size : sizes)
        {
            void* block = heap.allocate(size);
            Use(block);
            auto& slot = ring[at++ % ring.size()];
            while (slot.load(std::memory_order_acquire))
                std::this_thread::yield();
            slot.store(block, std::memory_order_release);
        }
    while (ring[(at - 1) % ring.size()].load())
        std::this_thread::yield();
    stop = true;
    other.join();
}

template <class F>
F Find(void* library, const char* name)
{
    return library ? reinterpret_cast<F>(dlsym(library, name)) : nullptr;
}

void Register(const Heap& heap)
{
    const auto name = [&](const char* work) { return std::string("Alloc/") + work + "/" + heap.name; };
    benchmark::RegisterBenchmark(name("mixed").c_str(), Mixed, heap);
    benchmark::RegisterBenchmark(name("mixed-churn").c_str(), Churn, heap);
    benchmark::RegisterBenchmark(name("burst").c_str(), Burst, heap)->Arg(64)->Arg(128)->Arg(256);
    benchmark::RegisterBenchmark(name("threads-own").c_str(), TwoThreads, heap)->Threads(2)->UseRealTime();
    benchmark::RegisterBenchmark(name("threads-remote").c_str(), Remote, heap)->UseRealTime();
}

} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    Register({"Bedrock", Zem::Alloc::New, Zem::Alloc::Delete});
    Register({"glibc", std::malloc, std::free});
    void* mimalloc = dlopen("libmimalloc.so.2.0", RTLD_NOW | RTLD_LOCAL | RTLD_DEEPBIND);
    if (const auto allocate = Find<void* (*)(std::size_t)>(mimalloc, "mi_malloc"))
        Register({"mimalloc", allocate, Find<void (*)(void*)>(mimalloc, "mi_free")});
    void* jemalloc = dlopen("libjemalloc.so.2", RTLD_NOW | RTLD_LOCAL | RTLD_DEEPBIND);
    if (const auto allocate = Find<void* (*)(std::size_t)>(jemalloc, "malloc"))
        Register({"jemalloc", allocate, Find<void (*)(void*)>(jemalloc, "free")});
    benchmark::RunSpecifiedBenchmarks();
}
