// Image files read from memory, 1920x1080 and 256x256, beside stb_image, SDL_LoadBMP and libjpeg-turbo called directly.
//
// Every side allocates its image, decodes it and frees it. stb_image is asked for 4 channels, as ours always gives; it
// leaves red first. SDL_LoadBMP keeps 24 and 8 bits as they are: at 24 it writes three quarters of our bytes, and at 8
// ours is asked to keep the indices too. Nobody else here reads
// PCX; its peer is the plain loop over the same runs.

#include <Bedrock/bitmap/Bitmap.h>
#include <Bedrock/files/MemoryFile.h>

#include "tests/support/Images.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>

#if defined(BENCH_HAS_SDL2)
#include <SDL.h>
#endif
#if defined(BENCH_HAS_STB)
#include <stb/stb_image.h>
#endif
#if defined(BENCH_HAS_LIBJPEG)
#include <jpeglib.h>
#endif

namespace
{

using namespace Zem;
using Test::Bytes;

constexpr int widths[] = {256, 1920}, heights[] = {256, 1080};

// Smooth colours with some noise, so that runs and transforms meet what they meet in pictures.
Bytes Picture(int which, int channels)
{
    std::mt19937 random(3);
    const int width = widths[which], height = heights[which];
    Bytes bytes;
    bytes.reserve(static_cast<std::size_t>(width * height * channels));
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            for (int c = 0; c < channels; ++c)
                bytes.push_back(static_cast<std::uint8_t>((x * (c + 1) + y * 2) / 8 + static_cast<int>(random() & 3)));
    return bytes;
}

Bytes Indices(int which) // runs of 1 to 40
{
    std::mt19937 random(4);
    Bytes bytes(static_cast<std::size_t>(widths[which] * heights[which]));
    for (std::size_t i = 0; i < bytes.size();)
    {
        const auto index = static_cast<std::uint8_t>(random());
        for (std::size_t end = std::min(bytes.size(), i + 1 + random() % 40 / (1 + random() % 8)); i < end; ++i)
            bytes[i] = index;
    }
    return bytes;
}

Bytes Runs(const Bytes& indices)
{
    Bytes stream;
    for (std::size_t i = 0; i < indices.size();)
    {
        std::size_t n = 1;
        while (i + n < indices.size() && n < 63 && indices[i + n] == indices[i])
            ++n;
        if (n > 1 || indices[i] >= 0xC0)
            stream.push_back(static_cast<std::uint8_t>(0xC0 | n));
        stream.push_back(indices[i]);
        i += n;
    }
    return stream;
}

#if defined(BENCH_HAS_LIBJPEG)
Bytes Jpeg(int which)
{
    const Bytes pixels = Picture(which, 3);
    jpeg_compress_struct coder;
    jpeg_error_mgr errors;
    coder.err = jpeg_std_error(&errors);
    jpeg_create_compress(&coder);
    unsigned char* data = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&coder, &data, &size);
    coder.image_width = static_cast<JDIMENSION>(widths[which]);
    coder.image_height = static_cast<JDIMENSION>(heights[which]);
    coder.input_components = 3;
    coder.in_color_space = JCS_RGB;
    jpeg_set_defaults(&coder);
    jpeg_set_quality(&coder, 85, TRUE);
    jpeg_start_compress(&coder, TRUE);
    for (int y = 0; y < heights[which]; ++y)
    {
        JSAMPROW row = const_cast<unsigned char*>(pixels.data()) + static_cast<std::size_t>(y * widths[which]) * 3;
        jpeg_write_scanlines(&coder, &row, 1);
    }
    jpeg_finish_compress(&coder);
    jpeg_destroy_compress(&coder);
    Bytes bytes(data, data + size);
    std::free(data);
    return bytes;
}

void LibJpeg(benchmark::State& state)
{
    const Bytes bytes = Jpeg(static_cast<int>(state.range(0)));
    for (auto _ : state)
    {
        jpeg_decompress_struct decoder;
        jpeg_error_mgr errors;
        decoder.err = jpeg_std_error(&errors);
        jpeg_create_decompress(&decoder);
        jpeg_mem_src(&decoder, bytes.data(), static_cast<unsigned long>(bytes.size()));
        jpeg_read_header(&decoder, TRUE);
        decoder.out_color_space = JCS_EXT_BGRA;
        jpeg_start_decompress(&decoder);
        const std::size_t rowBytes = std::size_t{decoder.output_width} * 4;
        auto pixels = static_cast<unsigned char*>(std::malloc(rowBytes * decoder.output_height));
        while (decoder.output_scanline < decoder.output_height)
        {
            JSAMPROW rows[16];
            JDIMENSION count = 0;
            for (; count < 16 && decoder.output_scanline + count < decoder.output_height; ++count)
                rows[count] = pixels + (decoder.output_scanline + count) * rowBytes;
            jpeg_read_scanlines(&decoder, rows, count);
        }
        jpeg_finish_decompress(&decoder);
        jpeg_destroy_decompress(&decoder);
        benchmark::DoNotOptimize(pixels);
        benchmark::ClobberMemory();
        std::free(pixels);
    }
}
#endif

void Ours(benchmark::State& state, bool (*load)(Test::Loader&, MemoryFile&, bool), Bytes (*make)(int), bool keepIndexed)
{
    Bytes bytes = make(static_cast<int>(state.range(0)));
    for (auto _ : state)
    {
        MemoryFile file(bytes.data(), static_cast<std::uint32_t>(bytes.size()));
        Test::Loader bitmap;
        if (!load(bitmap, file, keepIndexed))
            state.SkipWithError("refused");
        benchmark::DoNotOptimize(bitmap.GetPtr());
        benchmark::ClobberMemory();
    }
}

#if defined(BENCH_HAS_STB)
void Stb(benchmark::State& state, Bytes (*make)(int))
{
    const Bytes bytes = make(static_cast<int>(state.range(0)));
    for (auto _ : state)
    {
        int width, height, channels;
        stbi_uc* pixels =
            stbi_load_from_memory(bytes.data(), static_cast<int>(bytes.size()), &width, &height, &channels, 4);
        if (!pixels)
            state.SkipWithError("refused");
        benchmark::DoNotOptimize(pixels);
        benchmark::ClobberMemory();
        stbi_image_free(pixels);
    }
}
#endif

#if defined(BENCH_HAS_SDL2)
void Sdl(benchmark::State& state, Bytes (*make)(int))
{
    const Bytes bytes = make(static_cast<int>(state.range(0)));
    for (auto _ : state)
    {
        SDL_Surface* image = SDL_LoadBMP_RW(SDL_RWFromConstMem(bytes.data(), static_cast<int>(bytes.size())), 1);
        if (!image)
            state.SkipWithError("refused");
        benchmark::DoNotOptimize(image);
        benchmark::ClobberMemory();
        SDL_FreeSurface(image);
    }
}
#endif

// The same runs with one store a pixel.
void PlainPcx(benchmark::State& state)
{
    const int which = static_cast<int>(state.range(0));
    const Bytes bytes = Test::Pcx(widths[which], heights[which], Runs(Indices(which)));
    const std::size_t count = static_cast<std::size_t>(widths[which] * heights[which]);
    for (auto _ : state)
    {
        std::uint32_t words[256];
        for (int i = 0; i < 256; ++i)
        {
            const std::uint8_t* entry = bytes.data() + bytes.size() - 768 + 3 * i;
            words[i] = 0xFF000000u | static_cast<std::uint32_t>(entry[0]) << 16 |
                       static_cast<std::uint32_t>(entry[1]) << 8 | entry[2];
        }
        auto pixels = static_cast<std::uint32_t*>(std::malloc(count * 4));
        const std::uint8_t* at = bytes.data() + 128;
        for (std::size_t i = 0; i < count;)
        {
            std::uint8_t index = *at++;
            std::size_t n = 1;
            if (index >= 0xC0)
            {
                n = index & 63;
                index = *at++;
            }
            for (; n > 0 && i < count; --n)
                pixels[i++] = words[index];
        }
        benchmark::DoNotOptimize(pixels);
        benchmark::ClobberMemory();
        std::free(pixels);
    }
}

const int registered = []
{
    struct
    {
        const char* name;
        bool (*load)(Test::Loader&, MemoryFile&, bool);
        Bytes (*make)(int);
        bool stb, sdl, keepIndexed;
    } const works[] = {
        {"TGA_32", Test::LoadTga, [](int i) { return Test::Tga(widths[i], heights[i], 32, Picture(i, 4), true); }, true,
         false, false},
        {"TGA_32_bottom_first", Test::LoadTga,
         [](int i) { return Test::Tga(widths[i], heights[i], 32, Picture(i, 4), false); }, true, false, false},
        {"TGA_24", Test::LoadTga, [](int i) { return Test::Tga(widths[i], heights[i], 24, Picture(i, 3), true); }, true,
         false, false},
        {"BMP_24", Test::LoadBmp, [](int i) { return Test::Bmp(widths[i], heights[i], 24, Picture(i, 3)); }, true, true,
         false},
        {"BMP_8", Test::LoadBmp, [](int i) { return Test::Bmp(widths[i], heights[i], 8, Picture(i, 1)); }, true, false,
         false},
        {"BMP_8_indexed", Test::LoadBmp, [](int i) { return Test::Bmp(widths[i], heights[i], 8, Picture(i, 1)); },
         false, true, true},
        {"PCX", Test::LoadPcx, [](int i) { return Test::Pcx(widths[i], heights[i], Runs(Indices(i))); }, false, false,
         false},
#if defined(BENCH_HAS_LIBJPEG)
        {"JPEG", Test::LoadJpg, Jpeg, true, false, false},
#endif
    };
    for (const auto& w : works)
    {
        const std::string name = std::string("Image/") + w.name + "/";
        benchmark::RegisterBenchmark((name + "Bedrock").c_str(), Ours, w.load, w.make, w.keepIndexed)->Arg(0)->Arg(1);
#if defined(BENCH_HAS_STB)
        if (w.stb)
            benchmark::RegisterBenchmark((name + "stb_image").c_str(), Stb, w.make)->Arg(0)->Arg(1);
#endif
#if defined(BENCH_HAS_SDL2)
        if (w.sdl)
            benchmark::RegisterBenchmark((name + "SDL_LoadBMP").c_str(), Sdl, w.make)->Arg(0)->Arg(1);
#endif
    }
#if defined(BENCH_HAS_LIBJPEG)
    benchmark::RegisterBenchmark("Image/JPEG/libjpeg-turbo", LibJpeg)->Arg(0)->Arg(1);
#endif
    benchmark::RegisterBenchmark("Image/PCX/plain", PlainPcx)->Arg(0)->Arg(1);
    return 0;
}();

} // namespace
