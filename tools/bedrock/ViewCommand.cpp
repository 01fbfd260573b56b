// bedrock view: images in a window.

#include "Commands.h"
#include "ImageFiles.h"

#include <Bedrock/bitmap/Bitmap.h>
#include <Bedrock/host/Exception.h>
#include <Bedrock/host/Options.h>
#include <Bedrock/window/Window.h>
#include <Bedrock/window/WindowSurface.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>

namespace Tool
{

namespace
{

using namespace Zem;

// A window in which names and hints are still to be read.
constexpr Size smallest{320, 240};

// What the image looks like in the window: its pixels times `zoom`, with `centre`, in the image, at the window's.
struct Look
{
    double zoom = 1;
    double x = 0, y = 0;
};

class Viewer
{
public:
    Viewer(Mounts& theMounts, const ViewOptions& theOptions) : mounts(theMounts), options(theOptions), window(nullptr)
    {
    }
    Exit Run();

private:
    bool Load(std::size_t index);
    bool Turn(std::ptrdiff_t from, int direction);
    Size Largest();
    void OpenWindow();
    void Fit();
    void Zoom(double factor, Point at);
    void Move(double dx, double dy);
    void Keep();
    bool IsLargerThanWindow() const;
    void ShowTitle();
    void Draw();
    static bool Hook(void* viewer, void* message, int& result);
    bool Key(std::uintptr_t key);
    bool Type(std::uintptr_t character);
    bool Mouse(const WindowMessage& message);
    Size Client() const { return window.GetClientArea(); }
    Point Middle() const { return {Client().width / 2, Client().height / 2}; }

    Mounts& mounts;
    const ViewOptions& options;
    Messages messages{"view"};
    Window window;
    std::optional<WindowSurface> surface; // goes before the window does
    std::vector<bool> refused;            // images that cannot be loaded
    std::size_t current = 0;
    Bitmap image;
    Look look;
    bool fits = true;  // the zoom follows the window
    bool stale = true; // the window shows something else
    bool ended = false;
    bool dragging = false;
    Point dragged{0, 0};
};

bool Viewer::Load(std::size_t index)
{
    if (refused[index])
        return false;
    const std::string& name = options.images[index];
    try
    {
        if (std::optional<Bitmap> loaded = LoadImage(mounts, name, messages))
        {
            image = std::move(*loaded);
            current = index;
            return true;
        }
    }
    catch (const FileEx& exception)
    {
        messages.Complain(Exit::Disk, name, exception.Reason());
    }
    refused[index] = true; // told once
    return false;
}

// Shows the first image that can be loaded, looking from there in that direction and round the ends.
bool Viewer::Turn(std::ptrdiff_t from, int direction)
{
    const auto count = static_cast<std::ptrdiff_t>(options.images.size());
    for (std::ptrdiff_t i = 0; i < count; ++i)
    {
        const std::ptrdiff_t wanted = ((from + i * direction) % count + count) % count;
        if (!Load(static_cast<std::size_t>(wanted)))
            continue;
        Fit();
        return true;
    }
    return false;
}

// The size of the largest image, as far as their headers tell.
Size Viewer::Largest()
{
    Size largest = smallest;
    for (const std::string& name : options.images)
    {
        Bitmap::Format format;
        std::uint32_t width = 0, height = 0;
        try
        {
            if (!Bitmap::GetInfo(mounts.ForReading(name).c_str(), format, width, height) || format == Bitmap::Blob)
                continue;
        }
        catch (const Exception&)
        {
            continue; // told when it is to be shown
        }
        largest.width = std::max(largest.width, static_cast<std::int32_t>(std::min(width, 32767U)));
        largest.height = std::max(largest.height, static_cast<std::int32_t>(std::min(height, 32767U)));
    }
    return largest;
}

void Viewer::OpenWindow()
{
    // A desktop in memory would show nothing to anybody, for ever.
    const char* const display = std::getenv("DISPLAY");
    const char* const desktop = std::getenv("BEDROCK_DESKTOP");
    if (desktop && *desktop && std::strcmp(desktop, "x11") != 0)
        throw Failure{Exit::Disk, "there is no window to look at: BEDROCK_DESKTOP is " + Shown(desktop)};
    if (!display || !*display)
        throw Failure{Exit::Disk, "there is no display: DISPLAY is not set"};
    setenv("BEDROCK_DESKTOP", "x11", 1);
    const auto failed = [&]
    {
        return Failure{Exit::Disk, "cannot open a window on the display " + Shown(display) +
                                       ": no X server answers there, or the library has no X11 module beside it"};
    };

    // Where a window without extent is centred, there is the middle of the desktop.
    Options centred;
    centred.ProcessRaw("WindowCentered");
    int x = 0, y = 0, width = 0, height = 0, bits = 0, frequency = 0;
    bool full = false, tooLarge = false, equal = false;
    if (!window.Open("bedrock", nullptr))
        throw failed();
    window.GetUserWindowConfig(&centred, full, x, y, width, height, bits, frequency, tooLarge, equal);
    if (x == 0 || y == 0)
        throw failed();
    const Size largest = Largest();
    width = std::min(largest.width, 2 * x * 9 / 10); // the frame, and a bar of the desktop's, want room too
    height = std::min(largest.height, 2 * y * 8 / 10);
    window.RegisterWindowHook(&Hook, this);
    if (!(options.fullscreen ? window.CreateFullscreenHost(2 * x, 2 * y, nullptr)
                             : window.CreateWindowedHost(x - width / 2, y - height / 2, width, height, nullptr)))
        throw failed();
    surface.emplace(window);
}

Exit Viewer::Run()
{
    refused.resize(options.images.size());
    OpenWindow();
    if (!Turn(0, 1))
        return messages.Worst();
    ShowTitle();
    window.Show(true);
    while (!ended && window.HandleMessages())
    {
        CheckInterrupt();
        if (!ended && stale)
            Draw();
        if (!ended)
            Window::WaitMessages(500); // a signal ends the wait, but for one that comes just before it
    }
    surface.reset();
    return messages.Worst();
}

// ---------------------------------------------------------------------------------------------------- What is shown

// All of the image, no larger than it is.
void Viewer::Fit()
{
    const Rect area = image;
    const Size client = Client();
    look = {1, area.width / 2.0, area.height / 2.0};
    if (client.width > 0 && client.height > 0)
        look.zoom = std::min({1.0, double(client.width) / area.width, double(client.height) / area.height});
    fits = true;
    stale = true;
}

// What is at that place in the window stays there.
void Viewer::Zoom(double factor, Point at)
{
    const Size client = Client();
    const double zoom = std::clamp(look.zoom * factor, 1.0 / 64, 64.0);
    const double dx = at.x - client.width / 2.0, dy = at.y - client.height / 2.0;
    look.x += dx / look.zoom - dx / zoom;
    look.y += dy / look.zoom - dy / zoom;
    look.zoom = zoom;
    fits = false;
    Keep();
}

void Viewer::Move(double dx, double dy)
{
    look.x += dx / look.zoom;
    look.y += dy / look.zoom;
    fits = false;
    Keep();
}

// No further than the edges of the image; an image that is smaller than the window stays in its middle.
void Viewer::Keep()
{
    const Rect area = image;
    const Size client = Client();
    const auto within = [&](double centre, std::int32_t extent, std::int32_t room)
    {
        const double half = room / 2.0 / look.zoom;
        return half * 2 >= extent ? extent / 2.0 : std::clamp(centre, half, extent - half);
    };
    look.x = within(look.x, area.width, client.width);
    look.y = within(look.y, area.height, client.height);
    stale = true;
}

bool Viewer::IsLargerThanWindow() const
{
    const Rect area = image;
    return area.width * look.zoom > Client().width + 0.5 || area.height * look.zoom > Client().height + 0.5;
}

void Viewer::ShowTitle()
{
    const Rect area = image;
    char text[128];
    std::snprintf(text, sizeof(text), ", %d x %d, %.0f%%", area.width, area.height, look.zoom * 100);
    const std::string& name = options.images[current]; // its end alone: a frame is not wide
    std::string title = Shown(name.substr(name.rfind('/') + 1)) + text;
    if (options.images.size() > 1)
        title += ", " + std::to_string(current + 1) + " of " + std::to_string(options.images.size());
    window.SetTitle(title.c_str());
}

// Each pixel of the window is the mean of those pixels of the image that fall into it, or the one that it lies in, on a
// chequered ground where the image is not opaque.
void Viewer::Draw()
{
    Bitmap* const picture = surface->Begin();
    if (!picture)
        return;
    if (surface->IsNew() && fits)
        Fit();
    stale = false;
    const Rect area = image, client = *picture;
    struct Span
    {
        std::int32_t first, last; // of the image; first is last for none
    };
    const auto spans = [&](std::int32_t count, double centre, std::int32_t extent)
    {
        std::vector<Span> all(static_cast<std::size_t>(count));
        const double start = centre - count / 2.0 / look.zoom;
        for (std::int32_t i = 0; i < count; ++i)
        {
            const auto edge = [&](double at)
            { return static_cast<std::int32_t>(std::clamp(std::floor(at), -1.0, extent + 1.0)); };
            std::int32_t first = edge(start + i / look.zoom), last = edge(start + (i + 1) / look.zoom);
            if (last <= first)
            {
                first = edge(start + (i + 0.5) / look.zoom);
                last = first + 1;
            }
            first = std::clamp(first, 0, extent);
            all[static_cast<std::size_t>(i)] = {first, std::clamp(last, first, extent)};
        }
        return all;
    };
    const std::vector<Span> columns = spans(client.width, look.x, area.width);
    const std::vector<Span> rows = spans(client.height, look.y, area.height);
    for (std::int32_t y = 0; y < client.height; ++y)
    {
        const Span row = rows[static_cast<std::size_t>(y)];
        std::uint8_t* dst = picture->GetPtr(Point{0, y});
        for (std::int32_t x = 0; x < client.width; ++x, dst += 4)
        {
            const Span column = columns[static_cast<std::size_t>(x)];
            const std::uint64_t count = std::uint64_t(row.last - row.first) * std::uint64_t(column.last - column.first);
            if (count == 0)
            {
                std::memset(dst, 0x28, 4); // beside the image
                continue;
            }
            std::uint64_t blue = 0, green = 0, red = 0, alpha = 0;
            for (std::int32_t v = row.first; v < row.last; ++v)
            {
                const std::uint8_t* src = image.GetPtr(Point{column.first, v});
                for (std::int32_t u = column.first; u < column.last; ++u, src += 4)
                {
                    const std::uint32_t a = src[3];
                    blue += src[0] * a;
                    green += src[1] * a;
                    red += src[2] * a;
                    alpha += a;
                }
            }
            const std::uint64_t ground = ((x ^ y) & 8 ? 0x66U : 0x99U) * (count * 255 - alpha);
            const auto mean = [&](std::uint64_t sum)
            { return static_cast<std::uint8_t>((sum + ground + count * 127) / (count * 255)); };
            dst[0] = mean(blue);
            dst[1] = mean(green);
            dst[2] = mean(red);
            dst[3] = 255;
        }
    }
    surface->Present();
    ShowTitle();
}

// -------------------------------------------------------------------------------------------------- What the user does

bool Viewer::Hook(void* viewer, void* block, int&)
{
    auto& self = *static_cast<Viewer*>(viewer);
    const auto& message = *static_cast<const WindowMessage*>(block);
    switch (message.number)
    {
    case MessageKeyDown:
        return self.Key(message.first);
    case MessageChar:
        return self.Type(message.first);
    case MessageSize:
        self.stale = true;
        return false;
    default:
        return self.surface && self.Mouse(message);
    }
}

bool Viewer::Key(std::uintptr_t key)
{
    const auto at = static_cast<std::ptrdiff_t>(current), count = static_cast<std::ptrdiff_t>(options.images.size());
    constexpr double step = 64;
    switch (key)
    {
    case KeyEscape:
        ended = true;
        return true;
    case KeyPageDown:
        return Turn(at + 1, 1);
    case KeyPageUp:
        return Turn(at - 1, -1);
    case KeyHome:
        return Turn(0, 1);
    case KeyEnd:
        return Turn(count - 1, -1);
    case KeyLeft:
    case KeyRight:
        if (!IsLargerThanWindow())
            return key == KeyLeft ? Turn(at - 1, -1) : Turn(at + 1, 1);
        Move(key == KeyLeft ? -step : step, 0);
        return true;
    case KeyUp:
    case KeyDown:
        Move(0, key == KeyUp ? -step : step);
        return true;
    default:
        return false;
    }
}

bool Viewer::Type(std::uintptr_t character)
{
    constexpr double step = 1.25;
    const auto at = static_cast<std::ptrdiff_t>(current);
    switch (character)
    {
    case 'q':
        ended = true;
        return true;
    case 'n':
    case ' ':
        return Turn(at + 1, 1);
    case 'p':
    case '\b':
        return Turn(at - 1, -1);
    case '+':
    case '=': // on the same key as +
        Zoom(step, Middle());
        return true;
    case '-':
        Zoom(1 / step, Middle());
        return true;
    case '1':
        Zoom(1 / look.zoom, Middle());
        return true;
    case 'f':
        Fit();
        return true;
    default:
        return false;
    }
}

bool Viewer::Mouse(const WindowMessage& message)
{
    Point at{PackedX(message.second), PackedY(message.second)};
    switch (message.number)
    {
    case MessageLeftDown:
        dragged = at;
        dragging = true;
        window.SetCapture(true);
        return true;
    case MessageLeftUp:
        dragging = false;
        window.SetCapture(false);
        return true;
    case MessageMouseMove:
        if (!dragging)
            return false;
        Move(dragged.x - at.x, dragged.y - at.y);
        dragged = at;
        return true;
    case MessageWheel:
    {
        Point corner{0, 0}; // the wheel tells its place on the desktop
        window.LocalToGlobal(corner);
        Zoom(message.first >> 16 & 0x8000 ? 0.8 : 1.25, {at.x - corner.x, at.y - corner.y});
        return true;
    }
    default:
        return false;
    }
}

} // namespace

Exit View(Mounts& mounts, const ViewOptions& options)
{
    return Viewer(mounts, options).Run();
}

} // namespace Tool
