// A frame drawn in software on its way into a window, on a virtual X server of 24 bits that this program starts: the
// application fills what is new of its picture, then shows it. Real time, the server's share included. Both let the
// server read the pixels where the application drew them, and wait until it has before they are drawn over.

#include <Bedrock/bitmap/Bitmap.h>
#include <Bedrock/platform/Desktop.h>
#include <Bedrock/window/Window.h>
#include <Bedrock/window/WindowSurface.h>

#include <benchmark/benchmark.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <sys/prctl.h>
#include <unistd.h>

#ifdef BENCH_HAS_SDL2
#include <SDL.h>
#endif

namespace
{

using namespace Zem;

// Starts the server once; false if there is none.
bool HasServer()
{
    static const bool started = []
    {
        int ends[2];
        if (pipe(ends) != 0)
            return false;
        const std::string number = std::to_string(ends[1]);
        if (fork() == 0)
        {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            execlp("Xvfb", "Xvfb", "-displayfd", number.c_str(), "-screen", "0", "1280x1024x24", "-noreset",
                   "-nolisten", "tcp", static_cast<char*>(nullptr));
            _exit(127);
        }
        close(ends[1]);
        char text[16] = ":";
        const ssize_t length = read(ends[0], text + 1, sizeof(text) - 2);
        if (length <= 0)
            return false;
        text[std::strcspn(text, "\n")] = 0;
        setenv("DISPLAY", text, 1);
        setenv("BEDROCK_DESKTOP", "x11", 1);
        setenv("SDL_VIDEODRIVER", "x11", 1);
        return true;
    }();
    return started;
}

// What is new in a frame: all of it, or 24 pieces of 64 by 64 pixels.
std::vector<Rect> News(const benchmark::State& state)
{
    const auto width = static_cast<std::int32_t>(state.range(0)), height = static_cast<std::int32_t>(state.range(1));
    if (state.range(2) == 0)
        return {Rect(0, 0, width, height)};
    std::vector<Rect> pieces;
    for (int i = 0; i < state.range(2); ++i)
        pieces.emplace_back(i * 197 % (width - 64), i * 89 % (height - 64), 64, 64);
    return pieces;
}

void Fill(void* pixels, std::size_t pitch, const std::vector<Rect>& news, int frame)
{
    for (const Rect& rect : news)
        for (std::int32_t y = rect.y; y < rect.y + rect.height; ++y)
            std::memset(static_cast<std::uint8_t*>(pixels) + static_cast<std::size_t>(y) * pitch +
                            static_cast<std::size_t>(rect.x) * 4,
                        frame, static_cast<std::size_t>(rect.width) * 4);
}

void Bedrock(benchmark::State& state)
{
    if (!HasServer())
        return state.SkipWithError("no X server");
    Window window(nullptr);
    if (!window.Open("bench", nullptr) ||
        !window.CreateWindowedHost(0, 0, static_cast<int>(state.range(0)), static_cast<int>(state.range(1)), nullptr))
        return state.SkipWithError(Platform::DesktopProblem());
    window.Show(true);
    window.HandleMessages();
    const std::vector<Rect> news = News(state);
    {
        WindowSurface surface(window);
        surface.Begin();
        surface.Present();
        int frame = 0;
        for (auto _ : state)
        {
            Bitmap* const picture = surface.Begin();
            Fill(picture->GetPtr(), picture->GetPitch(), news, ++frame);
            if (!surface.Present(news))
                return state.SkipWithError("not shown");
        }
        Point anywhere;
        Platform::OpenedDesktop()->Pointer(anywhere);
    }
    Platform::OpenedDesktop()->DestroyWindow({reinterpret_cast<std::uintptr_t>(window.GetHandle())});
}

#ifdef BENCH_HAS_SDL2
void Sdl(benchmark::State& state)
{
    // Its own choice here would be a texture of a software OpenGL, 16 times slower.
    SDL_SetHint(SDL_HINT_FRAMEBUFFER_ACCELERATION, "0");
    if (!HasServer() || SDL_InitSubSystem(SDL_INIT_VIDEO) != 0)
        return state.SkipWithError("no X server");
    SDL_Window* const window = SDL_CreateWindow("bench", 0, 0, static_cast<int>(state.range(0)),
                                                static_cast<int>(state.range(1)), SDL_WINDOW_SHOWN);
    const std::vector<Rect> news = News(state);
    std::vector<SDL_Rect> rects;
    for (const Rect& rect : news)
        rects.push_back({rect.x, rect.y, rect.width, rect.height});
    SDL_GetWindowSurface(window);
    SDL_UpdateWindowSurface(window);
    int frame = 0;
    for (auto _ : state)
    {
        SDL_Surface* const surface = SDL_GetWindowSurface(window);
        Fill(surface->pixels, static_cast<std::size_t>(surface->pitch), news, ++frame);
        if (SDL_UpdateWindowSurfaceRects(window, rects.data(), static_cast<int>(rects.size())) != 0)
            return state.SkipWithError(SDL_GetError());
    }
    SDL_DestroyWindow(window);
    SDL_QuitSubSystem(SDL_INIT_VIDEO);
}
#endif

void Sizes(benchmark::internal::Benchmark* b)
{
    b->Args({320, 240, 0})->Args({1024, 768, 0})->Args({1280, 1024, 0})->Args({1024, 768, 24})->UseRealTime();
}

BENCHMARK(Bedrock)->Name("Present/frame/Bedrock")->Apply(Sizes);
#ifdef BENCH_HAS_SDL2
BENCHMARK(Sdl)->Name("Present/frame/sdl2")->Apply(Sizes);
#endif

} // namespace
