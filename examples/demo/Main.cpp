// bedrock-demo: a running application, from the first line of main to the last.
//
//     bedrock-demo [-Assets=FOLDER] [-Frames=N] [-Picture=FILE] [-ShowFPS] [-Fullscreen] [-Log=Demo:Prog] ...
//
// Packs images into an archive, puts a folder with a changed one above it, opens a window, loads the images by jobs, and runs
// a frame loop that repaints only what moves. Ends by the close button, Escape, or after N frames; prints what it measured.
// Without a display it runs 600 frames on the desktop in memory and saves the last as bedrock-demo.bmp.

#include "Content.h"
#include "Scene.h"

#include <Bedrock/Bedrock.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

using namespace Zem;

namespace
{

constexpr double step = 1.0 / 60; // seconds a frame

struct Arguments
{
    int count;
    char** values;
    int exit = 1;
};

LogClient* Client()
{
    static LogClient* const client = Log::GetClient("Demo");
    return client;
}

[[gnu::format(printf, 1, 2)]] void Note(const char* format, ...)
{
    if (!LogClient::Wants(Client(), LogClient::Diag))
        return;
    char line[128];
    std::va_list values;
    va_start(values, format);
    std::vsnprintf(line, sizeof line, format, values);
    va_end(values);
    Client()->Write(LogClient::Diag, "%s", line);
}

// ---- Input: a hook sees each message first.

struct Input
{
    Demo::Scene& scene;
    bool quit = false;
    std::uintptr_t pointer = 0; // where it was, packed
};

bool Handle(void* data, void* block, int&)
{
    Input& input = *static_cast<Input*>(data);
    const auto& message = *static_cast<const WindowMessage*>(block);
    constexpr float push = 0.25f;
    switch (message.number)
    {
    case MessageKeyDown:
        switch (message.first)
        {
        case KeyEscape:
            input.quit = true;
            break;
        case KeyLeft:
            input.scene.Turn(0, push);
            break;
        case KeyRight:
            input.scene.Turn(0, -push);
            break;
        case KeyUp:
            input.scene.Turn(push, 0);
            break;
        case KeyDown:
            input.scene.Turn(-push, 0);
            break;
        case KeySpace:
            input.scene.SwitchPause();
            break;
        case 'D':
            input.scene.SwitchDirty();
            break;
        }
        break;
    case MessageMouseMove:
        if (input.pointer != message.second && input.pointer != 0) // the first one only tells where the mouse is
            input.scene.Lead(PackedX(message.second), PackedY(message.second));
        input.pointer = message.second;
        break;
    }
    return false; // the window handles it too
}

// ---- Timed events, in milliseconds of the frame clock.

struct Comet final : Events::Event
{
    Demo::Scene& scene;
    LCRand random{1};
    explicit Comet(Demo::Scene& sky) : Event(3500, 1500), scene(sky) {}
    bool Update() override
    {
        scene.StartComet(random.GetRandom());
        UpdateNext();
        return false;
    }
};

struct Tip final : Events::Event
{
    Demo::Scene& scene;
    unsigned next = 0;
    explicit Tip(Demo::Scene& sky) : Event(4000, 0), scene(sky) {}
    bool Update() override
    {
        static constexpr const char* tips[] = {
            "the images come out of an archive, the wall from a folder above it",
            "six textures at twelve brightnesses, each side cut into 36 polygons",
            "glows and the ring are bitmaps with alpha, blended eight pixels at a time",
            "only where something moves is painted, each pixel once",
        };
        scene.Say(tips[next++ % std::size(tips)]);
        UpdateNext();
        return false;
    }
};

// ---- Figures.

struct Figures
{
    std::vector<float> drawing; // milliseconds a frame
    std::uint64_t repainted = 0;
    int differences = 0; // pixels of the last frame that a full repaint would have made otherwise

    void Print(const Demo::Mount& mount, const Demo::Content& content, double loading) const
    {
        std::printf("images   %d packed into the archive, %u bytes; %d loaded by jobs in %.0f ms\n", mount.Packed(),
                    mount.Bytes(), content.loaded, loading * 1000);
        if (drawing.empty())
            return;
        std::vector<float> sorted = drawing;
        std::sort(sorted.begin(), sorted.end());
        const double pixels = static_cast<double>(sorted.size()) * Demo::Scene::width * Demo::Scene::height;
        std::printf("frames   %zu of %d x %d, %.1f %% of the pixels repainted, %d of the last one wrong\n",
                    sorted.size(), Demo::Scene::width, Demo::Scene::height,
                    100.0 * static_cast<double>(repainted) / pixels, differences);
        std::printf("drawing  %.2f ms a frame in the middle, %.2f ms at most for 99 of 100\n",
                    static_cast<double>(sorted[sorted.size() / 2]),
                    static_cast<double>(sorted[sorted.size() * 99 / 100]));
    }
};

// How many pixels of `picture`, which was repainted in parts, are not as in a picture that is painted as a whole. The panel
// does not count: it shows figures of the moment.
int Differences(Demo::Scene& scene, Bitmap& picture)
{
    Bitmap whole({Demo::Scene::width, Demo::Scene::height}, Bitmap::XRGB32, nullptr);
    OptimalRects dirty;
    scene.Draw(picture, dirty, false); // what has changed since the last frame
    scene.Draw(whole, dirty, true);
    const Rect seen = Rect(picture).Intersect(whole);
    int count = 0;
    for (int y = 0; y < seen.height; ++y)
        for (int x = 0; x < seen.width; ++x)
            if (const Point at{x, y}; !Demo::Scene::panelPlace.Contains(at))
                count += (picture.Pixel(at) & 0xFFFFFF) != (whole.Pixel(at) & 0xFFFFFF);
    return count;
}

// ---- The loop.

int Loop(Window& window, Jobs& jobs, Demo::Content& content, Demo::Scene& scene, Figures& figures, int frames,
         bool watched, double& loading)
{
    WindowSurface surface(window);
    Input input{scene};
    window.RegisterWindowHook(&Handle, &input);
    Events events;
    events.Add(new Comet(scene));
    events.Add(new Tip(scene));
    OptimalRects dirty;

    Time::SetFrameLockTime(step);
    const double start = Time::GetSeconds();
    double due = start, rateFrom = start;
    float rate = 0;
    int rateFrames = 0, drawn = 0;
    while (window.HandleMessages() && !input.quit && (frames == 0 || drawn < frames))
    {
        jobs.Update(); // hands over what the worker has loaded
        if (!content.Ready())
            loading = Time::GetSeconds() - start;
        else
        {
            Time::IncFrame(); // the frame clock stands until there is something to show
            events.Update(Time::FrameLockMs() * static_cast<std::uint32_t>(drawn));
            scene.Move(static_cast<float>(step));
            ++drawn;
        }

        Bitmap* const picture = surface.Begin();
        if (!picture)
            continue;
        const double before = Time::GetSeconds();
        scene.Draw(*picture, dirty, surface.IsNew());
        const auto took = static_cast<float>((Time::GetSeconds() - before) * 1000);
        surface.Present(dirty);
        if (content.Ready())
        {
            figures.drawing.push_back(took);
            for (const Rect& r : dirty)
                figures.repainted += static_cast<std::uint64_t>(r.width) * static_cast<std::uint64_t>(r.height);
        }

        const double now = Time::GetSeconds();
        ++rateFrames;
        if (now - rateFrom > 0.25)
        {
            rate = static_cast<float>(rateFrames / (now - rateFrom));
            rateFrames = 0;
            rateFrom = now;
        }
        scene.SetFigures(rate, took);
        due = std::max(due + step, now - step); // a late frame is not made up for by a hurry
        if (watched && due > now)
            Time::Delay(static_cast<std::uint32_t>((due - now) * 1000));
    }
    if (Bitmap* const picture = surface.Begin(); picture && !surface.IsNew())
        figures.differences = Differences(scene, *picture);
    window.ClearWindowHook(&input);
    return drawn;
}

int Play(const Arguments& arguments)
{
    // 1. The options of the process, from the environment, files and the command line.
    OS os(nullptr, "", nullptr);
    Options& options = *os.GetOptions();
    options.ProcessRaw("-Log=Demo:Diag"); // unless the user says otherwise
    options.Init("Demo", arguments.count, arguments.values);

    // 2. The log, which takes its settings from them.
    Log::Init(&options);
    Note("options and log are there");

    // 3. The names: an archive, and a folder above it.
    String assets;
    options.Get("Assets", assets, String(DEMO_ASSETS));
    const bool watched = std::strcmp(Window::GetDesktopName(), "x11") == 0;
    int frames = 0;
    options.Get("Frames", frames, watched ? 0 : 600);
    String pictureName;
    options.Get("Picture", pictureName, String(watched ? "" : "bedrock-demo.bmp"));
    const char* const picturePath = pictureName;
    const Demo::Mount mount(static_cast<const char*>(assets));
    Note("%d images are packed and mounted as \"demo\"", mount.Packed());

    // 4. The window.
    const std::unique_ptr<Window> owned(os.CreateNewWindow());
    Window& window = *owned;
    os.SetWindow(&window);
    bool full = false, tooLarge = false, equal = false;
    int x = Window::NoPosition, y = x, width = Demo::Scene::width, height = Demo::Scene::height, bits = 32,
        frequency = 0;
    if (!window.Open("Bedrock demo", &options))
        return std::puts("demo: no window can be opened; the log says why"), 1;
    window.GetUserWindowConfig(&options, full, x, y, width, height, bits, frequency, tooLarge, equal);
    if (!(full ? window.CreateFullscreenHost(width, height, nullptr)
               : window.CreateWindowedHost(x, y, width, height, nullptr)))
        return std::puts("demo: no window can be made; the log says why"), 1;
    window.Show(window.GetVisible());
    Note("the window is open, %d bits a pixel", window.GetHostBitsPerPixel());

    // 5. The worker, and its work.
    Demo::Content content; // outlives the jobs
    Jobs jobs;
    jobs.Init(&options);
    Demo::QueueLoading(jobs, content);
    Note("the worker has %d images to load", content.wanted);

    // 6. The loop.
    Demo::Scene scene(content);
    Figures figures;
    double loading = 0;
    const int drawn = Loop(window, jobs, content, scene, figures, frames, watched, loading);
    Note("the loop has ended after %d frames", drawn);

    // 7. Back, in the opposite order.
    if (*picturePath)
    {
        Bitmap picture({Demo::Scene::width, Demo::Scene::height}, Bitmap::XRGB32, nullptr);
        OptimalRects dirty;
        scene.Draw(picture, dirty, true);
        if (!picture.Save(picturePath))
            return std::printf("demo: %s cannot be written\n", picturePath), 1;
        std::printf("picture  %s\n", picturePath);
    }
    jobs.Done();
    Note("the worker has ended");
    window.Close();
    Note("the window is closed");
    figures.Print(mount, content, loading);
    return content.Ready() && figures.differences == 0 ? 0 : 1;
}

int Run(void* data)
{
    auto& arguments = *static_cast<Arguments*>(data);
    return arguments.exit = Play(arguments);
}

} // namespace

int main(int count, char** values)
{
    for (int i = 1; i < count; ++i)
        if (std::strcmp(values[i], "--help") == 0 || std::strcmp(values[i], "-h") == 0)
        {
            std::puts("bedrock-demo: a landscape that moves, drawn by Bedrock\n\n"
                      "  -Assets=FOLDER   where the images are\n"
                      "  -Frames=N        ends after N frames (0: never; 600 without a display)\n"
                      "  -Picture=FILE    saves the last frame, as .bmp\n"
                      "  -ShowFPS         the frame rate in the title\n"
                      "  -Fullscreen, -WindowCentered, -Width=N, -Height=N ...   the options of every window\n"
                      "  -Log=Demo:None, -LogFile=FILE, -NoLog                   the options of every log\n"
                      "  -JobsConsole                                            the worker keeps its consoles\n\n"
                      "Exit codes: 0 done, 1 something failed; the log says what.");
            return 0;
        }
    Arguments arguments{count, values};
    ExceptionHandler::Main(Run, &arguments);
    return arguments.exit; // a failure that was reported leaves it at 1
}
