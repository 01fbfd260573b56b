// Timed events beside a heap and an ordered map: with N events live, each step of the clock fires those that are due, and
// each schedules itself anew. All three call a virtual operation per firing.

#include <Bedrock/threads/Events.h>

#include <benchmark/benchmark.h>

#include <map>
#include <memory>
#include <queue>
#include <random>
#include <vector>

namespace
{

std::uint64_t firings = 0;

// Intervals from 1 to 2 N: so about one event is due at each step of the clock, whatever N is.
std::vector<std::uint32_t> Intervals(std::size_t events)
{
    std::mt19937 random(7);
    std::vector<std::uint32_t> intervals(events);
    for (auto& interval : intervals)
        interval = 1 + random() % static_cast<std::uint32_t>(2 * events);
    return intervals;
}

struct Repeating final : Zem::Events::Event
{
    using Event::Event;
    bool Update() override
    {
        ++firings;
        UpdateNext();
        return false;
    }
};

class Bedrock
{
public:
    void Add(std::uint32_t interval) { events.Add(new Repeating(interval, interval)); }
    void Update(std::uint32_t now) { events.Update(now); }

private:
    Zem::Events events;
};

struct Callback
{
    std::uint32_t interval, next;
    explicit Callback(std::uint32_t period) : interval(period), next(period) {}
    virtual ~Callback() = default;
    virtual bool Update()
    {
        ++firings;
        next += interval;
        return false;
    }
};

class Heap
{
public:
    void Add(std::uint32_t interval)
    {
        owned.push_back(std::make_unique<Callback>(interval));
        queue.push({interval, owned.back().get()});
    }
    void Update(std::uint32_t now)
    {
        while (!queue.empty() && queue.top().first <= now)
        {
            Callback* callback = queue.top().second;
            queue.pop();
            if (!callback->Update())
                queue.push({callback->next, callback});
        }
    }

private:
    using Entry = std::pair<std::uint32_t, Callback*>;
    struct Later
    {
        bool operator()(const Entry& a, const Entry& b) const { return a.first > b.first; }
    };
    std::vector<std::unique_ptr<Callback>> owned;
    std::priority_queue<Entry, std::vector<Entry>, Later> queue;
};

class Map
{
public:
    void Add(std::uint32_t interval)
    {
        owned.push_back(std::make_unique<Callback>(interval));
        map.emplace(interval, owned.back().get());
    }
    void Update(std::uint32_t now)
    {
        while (!map.empty() && map.begin()->first <= now)
        {
            Callback* callback = map.begin()->second;
            map.erase(map.begin());
            if (!callback->Update())
                map.emplace(callback->next, callback);
        }
    }

private:
    std::vector<std::unique_ptr<Callback>> owned;
    std::multimap<std::uint32_t, Callback*> map;
};

template <class Scheduler>
void Fire(benchmark::State& state)
{
    Scheduler scheduler;
    for (const std::uint32_t interval : Intervals(static_cast<std::size_t>(state.range(0))))
        scheduler.Add(interval);
    std::uint32_t now = 0;
    for (std::uint32_t warm = static_cast<std::uint32_t>(state.range(0)) * 2; warm > 0; --warm)
        scheduler.Update(++now);
    firings = 0;
    for (auto _ : state)
        scheduler.Update(++now);
    state.counters["firings"] = benchmark::Counter(static_cast<double>(firings), benchmark::Counter::kIsRate);
}

template <class Scheduler>
void Fill(benchmark::State& state)
{
    const auto intervals = Intervals(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state)
    {
        Scheduler scheduler;
        for (const std::uint32_t interval : intervals)
            scheduler.Add(interval);
        benchmark::DoNotOptimize(scheduler);
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * intervals.size()));
}

#define SIZES ->Arg(10)->Arg(1000)->Arg(100000)
BENCHMARK(Fire<Bedrock>)->Name("Events/fire/Bedrock") SIZES;
BENCHMARK(Fire<Heap>)->Name("Events/fire/std::priority_queue") SIZES;
BENCHMARK(Fire<Map>)->Name("Events/fire/std::multimap") SIZES;
BENCHMARK(Fill<Bedrock>)->Name("Events/add/Bedrock") SIZES;
BENCHMARK(Fill<Heap>)->Name("Events/add/std::priority_queue") SIZES;
BENCHMARK(Fill<Map>)->Name("Events/add/std::multimap") SIZES;

} // namespace
