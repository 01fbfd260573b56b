// Opens a window where and how the user's options say, and paints where the mouse is dragged. Escape or the close button
// end it; -Frames=N ends it after so many frames, so that it can be tried without anybody watching.
//
//     window -640 -WindowCentered -ShowFPS
//     BEDROCK_DESKTOP=headless window -Frames=3

#include <Bedrock/Bedrock.h>

#include <cstdio>

using namespace Zem;

namespace
{

struct Canvas
{
    Bitmap picture{Size{640, 480}, Bitmap::XRGB32, nullptr};
    bool changed = true; // the window does not show it yet
    bool done = false;
};

// Sees every message first. The answer true would keep it from the window and from other hooks.
bool Paint(void* data, void* block, int&)
{
    Canvas& canvas = *static_cast<Canvas*>(data);
    const WindowMessage& message = *static_cast<const WindowMessage*>(block);
    const Point at{PackedX(message.second), PackedY(message.second)};
    switch (message.number)
    {
    case MessageKeyDown:
        canvas.done |= message.first == KeyEscape;
        break;
    case MessageMouseMove:
    case MessageLeftDown:
        if (message.first & MouseLeft)
            canvas.picture.Circle(at, 6, PackedColor(0xFFFFC914), Bitmap::StyleFilled);
        canvas.changed = true;
        break;
    case MessagePaint: // something lay over the window
        canvas.changed = true;
        break;
    }
    return false;
}

} // namespace

int main(int argc, char** argv)
{
    Options options;
    options.Init("Window", argc, argv);
    Log::Init(&options);
    int frames = 0;
    options.Get("Frames", frames, 0);

    Window window(nullptr);
    if (!window.Open("Paint", &options))
        return std::puts("No window can be opened; the log says why."), 1;
    bool full = false, tooLarge = false, whole = false;
    int x = Window::NoPosition, y = Window::NoPosition, width = 320, height = 240, bits = 32, frequency = 0;
    window.GetUserWindowConfig(&options, full, x, y, width, height, bits, frequency, tooLarge, whole);
    if (tooLarge)
        return std::puts("The desktop is too small for that."), 1;
    if (!(full ? window.CreateFullscreenHost(width, height, nullptr)
               : window.CreateWindowedHost(x, y, width, height, nullptr)))
        return std::puts("No window can be made; the log says why."), 1;

    Canvas canvas;
    canvas.picture.Clear(0xFF17507A);
    window.RegisterWindowHook(&Paint, &canvas);
    window.Show(window.GetVisible());
    const Rect area = window.GetClientArea();
    std::printf("%s: %d x %d pixels of %d bits\n", window.GetTitle(), area.width, area.height,
                window.GetHostBitsPerPixel());

    for (int frame = 1; window.HandleMessages() && !canvas.done && frame != frames; ++frame)
    {
        if (canvas.changed)
            canvas.changed = !window.Present(canvas.picture);
        Time::Delay(10);
    }
    window.ClearWindowHook(&canvas);
}
