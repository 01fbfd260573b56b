// A frame's worth of dirty rectangles: all are put in, the disjoint result is walked, and the set is emptied.
//
// "random": corners anywhere on 1920x1080, sides of 1 to 64 pixels. "screen": on 3840x2160, sprites of 8 to 40 pixels that
// move by up to 6 (old place, then new place), every eighth a line of text 200 to 800 wide and 16 high on a raster of
// lines, every sixteenth a repeat of an earlier one. Peer: pixman's regions, which keep the union in bands.

#include <Bedrock/maths/OptimalRects.h>

#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#ifdef BENCH_HAS_PIXMAN_1
#include <pixman.h>
#endif

namespace
{

using Zem::Rect;

std::vector<Rect> Random(std::int64_t count)
{
    std::mt19937 random(1);
    const auto to = [&](unsigned n) { return static_cast<std::int32_t>(random() % n); };
    std::vector<Rect> result;
    while (static_cast<std::int64_t>(result.size()) < count)
    {
        const std::int32_t width = 1 + to(64), height = 1 + to(64);
        result.emplace_back(to(static_cast<unsigned>(1921 - width)), to(static_cast<unsigned>(1081 - height)), width,
                            height);
    }
    return result;
}

std::vector<Rect> Screen(std::int64_t count)
{
    std::mt19937 random(2);
    const auto to = [&](unsigned n) { return static_cast<std::int32_t>(random() % n); };
    std::vector<Rect> result;
    while (static_cast<std::int64_t>(result.size()) < count)
    {
        const std::size_t at = result.size();
        if (at % 16 == 15)
            result.push_back(result[random() % at]);
        else if (at % 8 == 7)
            result.emplace_back(to(3000), 20 * to(107), 200 + to(600), 16);
        else
        {
            const std::int32_t x = 6 + to(3780), y = 6 + to(2100), width = 8 + to(33), height = 8 + to(33);
            result.emplace_back(x, y, width, height);
            result.emplace_back(x - 6 + to(13), y - 6 + to(13), width, height);
        }
    }
    result.resize(static_cast<std::size_t>(count));
    return result;
}

void Bedrock(benchmark::State& state, std::vector<Rect> (*make)(std::int64_t))
{
    const std::vector<Rect> input = make(state.range(0));
    Zem::OptimalRects set;
    for (auto _ : state)
    {
        for (const Rect& r : input)
            set.Invalidate(r);
        std::int64_t area = 0;
        for (const Rect& r : set)
            area += std::int64_t{r.width} * r.height;
        benchmark::DoNotOptimize(area);
        state.counters["area"] = static_cast<double>(area);
        state.counters["rects"] = set.Count();
        set.Clear();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK_CAPTURE(Bedrock, random, Random)->Name("DirtyRects/random/Bedrock")->RangeMultiplier(10)->Range(10, 10000);
BENCHMARK_CAPTURE(Bedrock, screen, Screen)->Name("DirtyRects/screen/Bedrock")->RangeMultiplier(10)->Range(10, 10000);

#ifdef BENCH_HAS_PIXMAN_1
void Pixman(benchmark::State& state, std::vector<Rect> (*make)(std::int64_t))
{
    const std::vector<Rect> input = make(state.range(0));
    pixman_region32_t set;
    pixman_region32_init(&set);
    for (auto _ : state)
    {
        for (const Rect& r : input)
            pixman_region32_union_rect(&set, &set, r.x, r.y, static_cast<unsigned>(r.width),
                                       static_cast<unsigned>(r.height));
        int count = 0;
        const pixman_box32_t* boxes = pixman_region32_rectangles(&set, &count);
        std::int64_t area = 0;
        for (int i = 0; i < count; ++i)
            area += std::int64_t{boxes[i].x2 - boxes[i].x1} * (boxes[i].y2 - boxes[i].y1);
        benchmark::DoNotOptimize(area);
        state.counters["area"] = static_cast<double>(area);
        state.counters["rects"] = count;
        pixman_region32_clear(&set);
    }
    pixman_region32_fini(&set);
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK_CAPTURE(Pixman, random, Random)->Name("DirtyRects/random/pixman")->RangeMultiplier(10)->Range(10, 10000);
BENCHMARK_CAPTURE(Pixman, screen, Screen)->Name("DirtyRects/screen/pixman")->RangeMultiplier(10)->Range(10, 10000);
#endif

} // namespace
