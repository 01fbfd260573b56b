// Reduction by a box filter: square noise of 32 and of 24 bits, from the first size to the second. Each side makes the
// new image anew and frees it, as a caller would.
//
// stb_image_resize: box filter, linear space, all channels alike (no weighting by alpha). pixman: its separable box
// filter (exact for whole factors), 32 and 24 bits without alpha. Bedrock cuts means to whole numbers, the peers round.

#include <Bedrock/bitmap/Bitmap.h>

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <random>
#include <vector>

#if __has_include(<stb/stb_image_resize.h>)
#define BENCH_HAS_STB
#define STB_IMAGE_RESIZE_IMPLEMENTATION
#define STB_IMAGE_RESIZE_STATIC
#include <stb/stb_image_resize.h>
#endif
#ifdef BENCH_HAS_PIXMAN_1
#include <pixman.h>
#endif

namespace
{

std::vector<std::uint32_t> Noise(std::int64_t side, int channels)
{
    std::mt19937 random(1);
    std::vector<std::uint32_t> words(static_cast<std::size_t>(side * side * channels / 4));
    for (std::uint32_t& word : words)
        word = static_cast<std::uint32_t>(random());
    return words;
}

void Count(benchmark::State& state, int channels)
{
    state.SetBytesProcessed(state.iterations() * state.range(0) * state.range(0) * channels);
}

void Bedrock(benchmark::State& state, int channels)
{
    auto source = Noise(state.range(0), channels);
    const int from = static_cast<int>(state.range(0)), to = static_cast<int>(state.range(1));
    const Zem::Bitmap image(Zem::Size{from, from}, channels == 4 ? Zem::Bitmap::XRGB32 : Zem::Bitmap::RGB24,
                            reinterpret_cast<unsigned char*>(source.data()));
    for (auto _ : state)
    {
        Zem::Bitmap* result = image.Scale(to, to);
        benchmark::DoNotOptimize(result->GetPtr());
        benchmark::ClobberMemory();
        delete result;
    }
    Count(state, channels);
}

#define SIZES ->Args({256, 32})->Args({512, 256})->Args({2048, 256})->Args({2048, 1024})->Args({4096, 256})
BENCHMARK_CAPTURE(Bedrock, 32, 4)->Name("Scale/32/Bedrock") SIZES;
BENCHMARK_CAPTURE(Bedrock, 24, 3)->Name("Scale/24/Bedrock") SIZES;

#ifdef BENCH_HAS_STB
void Stb(benchmark::State& state, int channels)
{
    const auto source = Noise(state.range(0), channels);
    const int from = static_cast<int>(state.range(0)), to = static_cast<int>(state.range(1));
    for (auto _ : state)
    {
        auto* result = static_cast<unsigned char*>(
            std::malloc(static_cast<std::size_t>(to) * static_cast<std::size_t>(to * channels)));
        stbir_resize_uint8_generic(reinterpret_cast<const unsigned char*>(source.data()), from, from, from * channels,
                                   result, to, to, to * channels, channels, STBIR_ALPHA_CHANNEL_NONE, 0,
                                   STBIR_EDGE_CLAMP, STBIR_FILTER_BOX, STBIR_COLORSPACE_LINEAR, nullptr);
        benchmark::DoNotOptimize(result);
        benchmark::ClobberMemory();
        std::free(result);
    }
    Count(state, channels);
}
BENCHMARK_CAPTURE(Stb, 32, 4)->Name("Scale/32/stb_image_resize") SIZES;
BENCHMARK_CAPTURE(Stb, 24, 3)->Name("Scale/24/stb_image_resize") SIZES;
#endif

#ifdef BENCH_HAS_PIXMAN_1
void Pixman(benchmark::State& state, int channels)
{
    auto source = Noise(state.range(0), channels);
    const int from = static_cast<int>(state.range(0)), to = static_cast<int>(state.range(1));
    const auto format = channels == 4 ? PIXMAN_x8r8g8b8 : PIXMAN_r8g8b8;
    pixman_image_t* image = pixman_image_create_bits(format, from, from, source.data(), from * channels);
    const pixman_fixed_t step = pixman_int_to_fixed(from / to);
    pixman_transform_t transform;
    pixman_transform_init_scale(&transform, step, step);
    pixman_image_set_transform(image, &transform);
    int count = 0;
    pixman_fixed_t* filter = pixman_filter_create_separable_convolution(
        &count, step, step, PIXMAN_KERNEL_IMPULSE, PIXMAN_KERNEL_IMPULSE, PIXMAN_KERNEL_BOX, PIXMAN_KERNEL_BOX, 0, 0);
    pixman_image_set_filter(image, PIXMAN_FILTER_SEPARABLE_CONVOLUTION, filter, count);
    for (auto _ : state)
    {
        pixman_image_t* result = pixman_image_create_bits(format, to, to, nullptr, to * channels);
        pixman_image_composite32(PIXMAN_OP_SRC, image, nullptr, result, 0, 0, 0, 0, 0, 0, to, to);
        benchmark::DoNotOptimize(pixman_image_get_data(result));
        benchmark::ClobberMemory();
        pixman_image_unref(result);
    }
    std::free(filter);
    pixman_image_unref(image);
    Count(state, channels);
}
BENCHMARK_CAPTURE(Pixman, 32, 4)->Name("Scale/32/pixman") SIZES;
BENCHMARK_CAPTURE(Pixman, 24, 3)->Name("Scale/24/pixman") SIZES;
#endif

} // namespace
