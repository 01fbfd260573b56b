// Drawing on 1024x768x32 beside SDL2's software renderer and cairo. Every shape lies wholly or partly on the image; both
// sides draw the same list with the same opaque colours (antialiased ones with cairo's default filter). cairo works on
// premultiplied pixels, which for opaque colours are the same.

#include <Bedrock/bitmap/Bitmap.h>

#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#if defined(BENCH_HAS_SDL2)
#include <SDL.h>
#endif
#if defined(BENCH_HAS_CAIRO)
#include <cairo.h>
#endif

namespace
{

using namespace Zem;

constexpr int width = 1024, height = 768, shapes = 10000;

struct Shape
{
    Point a, b, c;
    int radius;
    std::uint32_t color;
};

// Seed and ranges are fixed: lines of all lengths, triangles of about 60 pixels, circles of radius 2 to 33.
const std::vector<Shape>& List()
{
    static const std::vector<Shape> list = []
    {
        std::mt19937 random(7);
        std::vector<Shape> made;
        for (int i = 0; i < shapes; ++i)
        {
            const auto at = [&] {
                return Point{static_cast<int>(random() % width), static_cast<int>(random() % height)};
            };
            const Point a = at();
            const auto near = [&] {
                return Point{a.x + static_cast<int>(random() % 121) - 60, a.y + static_cast<int>(random() % 121) - 60};
            };
            const Point b = near(), c = near();
            made.push_back(
                {a, b, c, 2 + static_cast<int>(random() % 32), static_cast<std::uint32_t>(random()) | 0xFF000000});
        }
        return made;
    }();
    return list;
}

template <class Draw>
void Ours(benchmark::State& state, Draw draw)
{
    Bitmap image(Size{width, height}, Bitmap::ARGB32, nullptr);
    image.Clear(0xFF000000u);
    for (auto _ : state)
    {
        for (const Shape& s : List())
            draw(image, s);
        benchmark::DoNotOptimize(image.GetPtr());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * shapes);
}

void LinesOurs(benchmark::State& state)
{
    Ours(state, [](Bitmap& image, const Shape& s) { image.Line(s.a, s.b, s.color, 0); });
}
void SmoothOurs(benchmark::State& state)
{
    Ours(state, [](Bitmap& image, const Shape& s) { image.Line(s.a, s.b, s.color, Bitmap::StyleAntialiased); });
}
void CirclesOurs(benchmark::State& state)
{
    Ours(state, [](Bitmap& image, const Shape& s) { image.Circle(s.a, s.radius, s.color, Bitmap::StyleFilled); });
}
void TrianglesOurs(benchmark::State& state)
{
    Ours(state, [](Bitmap& image, const Shape& s) { image.Triangle(s.a, s.b, s.c, s.color, Bitmap::StyleFilled); });
}

constexpr int textureSize = 64;

Bitmap& Texture()
{
    static Bitmap texture = []
    {
        Bitmap made(Size{textureSize, textureSize}, Bitmap::ARGB32, nullptr);
        for (int y = 0; y < textureSize; ++y)
            for (int x = 0; x < textureSize; ++x)
                made.Pixel({x, y},
                           PackedColor(0xFF000000u | static_cast<std::uint32_t>(x * 4 << 16 | y * 4 << 8 | (x ^ y))));
        return made;
    }();
    return texture;
}

void TexturedOurs(benchmark::State& state)
{
    const Point corners[3] = {{0, 0}, {textureSize - 1, 0}, {0, textureSize - 1}};
    Ours(state,
         [&](Bitmap& image, const Shape& s)
         {
             const Point points[3] = {s.a, s.b, s.c};
             image.MapPolygon(3, points, Texture(), corners, textureSize - 1, textureSize - 1, false);
         });
}

BENCHMARK(LinesOurs)->Name("Draw/lines/Bedrock");
BENCHMARK(SmoothOurs)->Name("Draw/antialiased lines/Bedrock");
BENCHMARK(CirclesOurs)->Name("Draw/filled circles/Bedrock");
BENCHMARK(TrianglesOurs)->Name("Draw/filled triangles/Bedrock");
BENCHMARK(TexturedOurs)->Name("Draw/textured triangles/Bedrock");

#if defined(BENCH_HAS_CAIRO)

template <class Path>
void Cairo(benchmark::State& state, bool smooth, bool stroke, Path path)
{
    cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height);
    cairo_t* cr = cairo_create(surface);
    cairo_set_antialias(cr, smooth ? CAIRO_ANTIALIAS_DEFAULT : CAIRO_ANTIALIAS_NONE);
    cairo_set_line_width(cr, 1);
    for (auto _ : state)
    {
        for (const Shape& s : List())
        {
            cairo_set_source_rgb(cr, (s.color >> 16 & 255) / 255.0, (s.color >> 8 & 255) / 255.0,
                                 (s.color & 255) / 255.0);
            path(cr, s);
            stroke ? cairo_stroke(cr) : cairo_fill(cr);
        }
        cairo_surface_flush(surface);
        benchmark::ClobberMemory();
    }
    cairo_destroy(cr);
    cairo_surface_destroy(surface);
}

const auto cairoLine = [](cairo_t* cr, const Shape& s)
{
    cairo_move_to(cr, s.a.x + 0.5, s.a.y + 0.5);
    cairo_line_to(cr, s.b.x + 0.5, s.b.y + 0.5);
};
const auto cairoCircle = [](cairo_t* cr, const Shape& s)
{ cairo_arc(cr, s.a.x + 0.5, s.a.y + 0.5, s.radius, 0, 6.283185307179586); };
const auto cairoTriangle = [](cairo_t* cr, const Shape& s)
{
    cairo_move_to(cr, s.a.x, s.a.y);
    cairo_line_to(cr, s.b.x, s.b.y);
    cairo_line_to(cr, s.c.x, s.c.y);
    cairo_close_path(cr);
};

void LinesCairo(benchmark::State& state)
{
    Cairo(state, false, true, cairoLine);
}
void SmoothCairo(benchmark::State& state)
{
    Cairo(state, true, true, cairoLine);
}
void CirclesCairo(benchmark::State& state)
{
    Cairo(state, false, false, cairoCircle);
}
void TrianglesCairo(benchmark::State& state)
{
    Cairo(state, false, false, cairoTriangle);
}
BENCHMARK(LinesCairo)->Name("Draw/lines/cairo");
BENCHMARK(SmoothCairo)->Name("Draw/antialiased lines/cairo");
BENCHMARK(CirclesCairo)->Name("Draw/filled circles/cairo");
BENCHMARK(TrianglesCairo)->Name("Draw/filled triangles/cairo");
#endif

#if defined(BENCH_HAS_SDL2)

template <class Draw>
void Sdl(benchmark::State& state, Draw draw)
{
    SDL_Surface* surface = SDL_CreateRGBSurfaceWithFormat(0, width, height, 32, SDL_PIXELFORMAT_ARGB8888);
    SDL_Renderer* renderer = SDL_CreateSoftwareRenderer(surface);
    for (auto _ : state)
    {
        draw(renderer);
        SDL_RenderFlush(renderer);
        benchmark::ClobberMemory();
    }
    SDL_DestroyRenderer(renderer);
    SDL_FreeSurface(surface);
}

SDL_Color ColorOf(std::uint32_t c)
{
    return SDL_Color{static_cast<Uint8>(c >> 16), static_cast<Uint8>(c >> 8), static_cast<Uint8>(c), 255};
}

void LinesSdl(benchmark::State& state)
{
    Sdl(state,
        [](SDL_Renderer* renderer)
        {
            for (const Shape& s : List())
            {
                const SDL_Color c = ColorOf(s.color);
                SDL_SetRenderDrawColor(renderer, c.r, c.g, c.b, 255);
                SDL_RenderDrawLine(renderer, s.a.x, s.a.y, s.b.x, s.b.y);
            }
        });
}

SDL_Vertex Vertex(Point p, SDL_Color c, float u, float v)
{
    return SDL_Vertex{SDL_FPoint{static_cast<float>(p.x), static_cast<float>(p.y)}, c, SDL_FPoint{u, v}};
}

void TrianglesSdl(benchmark::State& state)
{
    Sdl(state,
        [](SDL_Renderer* renderer)
        {
            for (const Shape& s : List())
            {
                const SDL_Color c = ColorOf(s.color);
                const SDL_Vertex corners[3] = {Vertex(s.a, c, 0, 0), Vertex(s.b, c, 0, 0), Vertex(s.c, c, 0, 0)};
                SDL_RenderGeometry(renderer, nullptr, corners, 3, nullptr, 0);
            }
        });
}

void TexturedSdl(benchmark::State& state)
{
    Sdl(state,
        [](SDL_Renderer* renderer)
        {
            Bitmap& t = Texture();
            SDL_Surface* surface = SDL_CreateRGBSurfaceWithFormatFrom(
                t.GetPtr(), textureSize, textureSize, 32, static_cast<int>(t.GetPitch()), SDL_PIXELFORMAT_ARGB8888);
            SDL_Texture* texture = SDL_CreateTextureFromSurface(renderer, surface);
            SDL_SetTextureBlendMode(texture, SDL_BLENDMODE_NONE);
            const SDL_Color white{255, 255, 255, 255};
            for (const Shape& s : List())
            {
                const SDL_Vertex corners[3] = {Vertex(s.a, white, 0, 0), Vertex(s.b, white, 1, 0),
                                               Vertex(s.c, white, 0, 1)};
                SDL_RenderGeometry(renderer, texture, corners, 3, nullptr, 0);
            }
            SDL_RenderFlush(renderer);
            SDL_DestroyTexture(texture);
            SDL_FreeSurface(surface);
        });
}
BENCHMARK(LinesSdl)->Name("Draw/lines/SDL2");
BENCHMARK(TrianglesSdl)->Name("Draw/filled triangles/SDL2");
BENCHMARK(TexturedSdl)->Name("Draw/textured triangles/SDL2");
#endif

} // namespace
