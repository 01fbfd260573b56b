// Pixel kernels on images of three sizes, beside memset and memcpy, pixman and SDL2.
//
// Each side converts or blends whole images whose rows follow each other. Fill and copy of 32 bits meet memset and
// memcpy of as many bytes. pixman blends premultiplied pixels: its source is the same picture, premultiplied before the
// clock starts. SDL2 blends pixels that are not premultiplied, as ours; its rounding differs. SDL2 and pixman convert
// from pixels without alpha where ours composites opaque ones ("32 to 565"), which gives the same result.

#include <Bedrock/bitmap/kernels/Kernels.h>

#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <vector>

#if defined(BENCH_HAS_PIXMAN_1)
#include <pixman.h>
#endif
#if defined(BENCH_HAS_SDL2)
#include <SDL.h>
#endif

namespace
{

using namespace Zem;

struct Extent
{
    int width, height;
};

constexpr Extent extents[] = {{64, 64}, {640, 480}, {1920, 1080}};

enum class Picture
{
    Opaque,
    Noise,  // every alpha alike
    Sprite, // runs of 5 to 60 pixels: half clear, three in ten opaque, the rest between
};

std::vector<std::uint32_t> Make(Picture picture, std::size_t pixels)
{
    std::mt19937 random(5);
    std::vector<std::uint32_t> words(pixels);
    for (std::size_t i = 0; i < pixels;)
    {
        const unsigned kind = random() % 10;
        for (std::size_t end = std::min(pixels, i + 5 + random() % 56); i < end; ++i)
        {
            const std::uint32_t color = static_cast<std::uint32_t>(random()) & 0xFFFFFF;
            std::uint32_t alpha = static_cast<std::uint32_t>(random()) >> 24;
            if (picture == Picture::Opaque || (picture == Picture::Sprite && kind >= 5 && kind < 8))
                alpha = 255;
            else if (picture == Picture::Sprite && kind < 5)
                alpha = 0;
            words[i] = alpha << 24 | color;
        }
    }
    return words;
}

std::size_t Pixels(const benchmark::State& state)
{
    const Extent e = extents[state.range(0)];
    return static_cast<std::size_t>(e.width) * static_cast<std::size_t>(e.height);
}

void Count(benchmark::State& state)
{
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(Pixels(state)));
}

// One call a row, as a transfer between bitmaps does it.
void Ours(benchmark::State& state, TransferKernel kernel, int dstPixel, int srcPixel, Picture picture)
{
    const Extent e = extents[state.range(0)];
    const auto source = Make(picture, Pixels(state));
    std::vector<std::uint8_t> target(Pixels(state) * 4, 0xFF);
    for (auto _ : state)
    {
        for (int y = 0; y < e.height; ++y)
            kernel(target.data() + static_cast<std::size_t>(y) * static_cast<std::size_t>(e.width * dstPixel),
                   reinterpret_cast<const std::uint8_t*>(source.data()) +
                       static_cast<std::size_t>(y) * static_cast<std::size_t>(e.width * srcPixel),
                   e.width);
        benchmark::DoNotOptimize(target.data());
        benchmark::ClobberMemory();
    }
    Count(state);
}

void FillOurs(benchmark::State& state)
{
    const auto fill = Kernels::Current().fillARGB;
    std::vector<std::uint32_t> target(Pixels(state));
    for (auto _ : state)
    {
        fill(target.data(), PackedColor(0xFF123456), static_cast<int>(target.size()), 0);
        benchmark::DoNotOptimize(target.data());
        benchmark::ClobberMemory();
    }
    Count(state);
}

void FillMemset(benchmark::State& state)
{
    std::vector<std::uint32_t> target(Pixels(state));
    for (auto _ : state)
    {
        std::memset(target.data(), 0x5A, target.size() * 4);
        benchmark::DoNotOptimize(target.data());
        benchmark::ClobberMemory();
    }
    Count(state);
}

void CopyOurs(benchmark::State& state)
{
    const auto copy = Kernels::Current().copyARGB;
    const auto source = Make(Picture::Noise, Pixels(state));
    std::vector<std::uint32_t> target(Pixels(state));
    for (auto _ : state)
    {
        copy(target.data(), source.data(), static_cast<int>(target.size()));
        benchmark::DoNotOptimize(target.data());
        benchmark::ClobberMemory();
    }
    Count(state);
}

void CopyMemcpy(benchmark::State& state)
{
    const auto source = Make(Picture::Noise, Pixels(state));
    std::vector<std::uint32_t> target(Pixels(state));
    for (auto _ : state)
    {
        std::memcpy(target.data(), source.data(), target.size() * 4);
        benchmark::DoNotOptimize(target.data());
        benchmark::ClobberMemory();
    }
    Count(state);
}

enum class Work
{
    Fill,
    Copy,
    From565,
    From24,
    To565,
    Over32,
    Over565,
    Over24
};

#if defined(BENCH_HAS_PIXMAN_1)
void Pixman(benchmark::State& state, Work work, Picture picture)
{
    const Extent e = extents[state.range(0)];
    auto source = Make(picture, Pixels(state));
    std::vector<std::uint32_t> target(Pixels(state), 0xFFFFFFFF);
    pixman_format_code_t from = PIXMAN_a8r8g8b8, to = PIXMAN_a8r8g8b8;
    int fromPixel = 4, toPixel = 4;
    pixman_op_t op = PIXMAN_OP_SRC;
    switch (work)
    {
    case Work::From565:
        from = PIXMAN_r5g6b5;
        fromPixel = 2;
        break;
    case Work::From24:
        from = PIXMAN_r8g8b8;
        fromPixel = 3;
        break;
    case Work::To565:
        from = PIXMAN_x8r8g8b8;
        to = PIXMAN_r5g6b5;
        toPixel = 2;
        break;
    case Work::Over32:
        op = PIXMAN_OP_OVER;
        to = PIXMAN_x8r8g8b8;
        break;
    case Work::Over565:
        op = PIXMAN_OP_OVER;
        to = PIXMAN_r5g6b5;
        toPixel = 2;
        break;
    case Work::Over24:
        op = PIXMAN_OP_OVER;
        to = PIXMAN_r8g8b8;
        toPixel = 3;
        break;
    case Work::Fill:
    case Work::Copy:
        break;
    }
    if (op == PIXMAN_OP_OVER)
        for (std::uint32_t& word : source)
            word = (word & 0xFF000000) | (ARGBToRGB24(word) & 0xFFFFFF);
    // pixman wants rows of whole words; every width here is a multiple of 4.
    pixman_image_t* s = pixman_image_create_bits(from, e.width, e.height, source.data(), e.width * fromPixel);
    pixman_image_t* d = pixman_image_create_bits(to, e.width, e.height, target.data(), e.width * toPixel);
    for (auto _ : state)
    {
        if (work == Work::Fill)
            pixman_fill(target.data(), e.width, 32, 0, 0, e.width, e.height, 0xFF123456);
        else
            pixman_image_composite32(op, s, nullptr, d, 0, 0, 0, 0, 0, 0, e.width, e.height);
        benchmark::DoNotOptimize(target.data());
        benchmark::ClobberMemory();
    }
    pixman_image_unref(s);
    pixman_image_unref(d);
    Count(state);
}
#endif

#if defined(BENCH_HAS_SDL2)
void Sdl(benchmark::State& state, Work work, Picture picture)
{
    const Extent e = extents[state.range(0)];
    auto source = Make(picture, Pixels(state));
    std::vector<std::uint32_t> target(Pixels(state), 0xFFFFFFFF);
    Uint32 from = SDL_PIXELFORMAT_ARGB8888, to = SDL_PIXELFORMAT_ARGB8888;
    int fromPixel = 4, toPixel = 4;
    bool blend = false;
    switch (work)
    {
    case Work::From565:
        from = SDL_PIXELFORMAT_RGB565;
        fromPixel = 2;
        break;
    case Work::From24:
        from = SDL_PIXELFORMAT_BGR24;
        fromPixel = 3;
        break;
    case Work::To565:
        from = SDL_PIXELFORMAT_RGB888;
        to = SDL_PIXELFORMAT_RGB565;
        toPixel = 2;
        break;
    case Work::Over32:
        blend = true;
        to = SDL_PIXELFORMAT_RGB888;
        break;
    case Work::Over565:
        blend = true;
        to = SDL_PIXELFORMAT_RGB565;
        toPixel = 2;
        break;
    case Work::Over24:
        blend = true;
        to = SDL_PIXELFORMAT_BGR24;
        toPixel = 3;
        break;
    case Work::Fill:
    case Work::Copy:
        break;
    }
    SDL_Surface* s = SDL_CreateRGBSurfaceWithFormatFrom(source.data(), e.width, e.height, 0, e.width * fromPixel, from);
    SDL_Surface* d = SDL_CreateRGBSurfaceWithFormatFrom(target.data(), e.width, e.height, 0, e.width * toPixel, to);
    SDL_SetSurfaceBlendMode(s, blend ? SDL_BLENDMODE_BLEND : SDL_BLENDMODE_NONE);
    for (auto _ : state)
    {
        if (work == Work::Fill)
            SDL_FillRect(d, nullptr, 0xFF123456);
        else
            SDL_BlitSurface(s, nullptr, d, nullptr);
        benchmark::DoNotOptimize(target.data());
        benchmark::ClobberMemory();
    }
    SDL_FreeSurface(s);
    SDL_FreeSurface(d);
    Count(state);
}
#endif

void Sizes(benchmark::internal::Benchmark* b)
{
    b->Arg(0)->Arg(1)->Arg(2);
}

const int registered = []
{
    const Kernels::Set& set = Kernels::Current();
    struct
    {
        const char* name;
        Work work;
        TransferKernel kernel;
        int dstPixel, srcPixel;
        Picture picture;
    } const works[] = {
        {"fill32", Work::Fill, nullptr, 4, 4, Picture::Opaque},
        {"copy32", Work::Copy, nullptr, 4, 4, Picture::Noise},
        {"convert_565_to_32", Work::From565, set.rgb16ToARGB, 4, 2, Picture::Noise},
        {"convert_24_to_32", Work::From24, set.rgb24ToARGB, 4, 3, Picture::Noise},
        {"convert_32_to_565", Work::To565, set.blendARGBToRGB16, 2, 4, Picture::Opaque},
        {"blend_over_32_noise", Work::Over32, set.blendARGB, 4, 4, Picture::Noise},
        {"blend_over_32_sprite", Work::Over32, set.blendARGB, 4, 4, Picture::Sprite},
        {"blend_over_565_noise", Work::Over565, set.blendARGBToRGB16, 2, 4, Picture::Noise},
        {"blend_over_565_sprite", Work::Over565, set.blendARGBToRGB16, 2, 4, Picture::Sprite},
        {"blend_over_24_noise", Work::Over24, set.blendARGBToRGB24, 3, 4, Picture::Noise},
        {"blend_over_24_sprite", Work::Over24, set.blendARGBToRGB24, 3, 4, Picture::Sprite},
    };
    for (const auto& w : works)
    {
        const std::string name = std::string("Kernel/") + w.name + "/";
        if (w.work == Work::Fill)
        {
            benchmark::RegisterBenchmark((name + "Bedrock").c_str(), FillOurs)->Apply(Sizes);
            benchmark::RegisterBenchmark((name + "memset").c_str(), FillMemset)->Apply(Sizes);
        }
        else if (w.work == Work::Copy)
        {
            benchmark::RegisterBenchmark((name + "Bedrock").c_str(), CopyOurs)->Apply(Sizes);
            benchmark::RegisterBenchmark((name + "memcpy").c_str(), CopyMemcpy)->Apply(Sizes);
        }
        else
            benchmark::RegisterBenchmark((name + "Bedrock").c_str(), Ours, w.kernel, w.dstPixel, w.srcPixel, w.picture)
                ->Apply(Sizes);
#if defined(BENCH_HAS_PIXMAN_1)
        benchmark::RegisterBenchmark((name + "pixman").c_str(), Pixman, w.work, w.picture)->Apply(Sizes);
#endif
#if defined(BENCH_HAS_SDL2)
        benchmark::RegisterBenchmark((name + "SDL2").c_str(), Sdl, w.work, w.picture)->Apply(Sizes);
#endif
    }
    return 0;
}();

} // namespace
