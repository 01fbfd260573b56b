#pragma once

#include <Bedrock/Export.h>
#include <Bedrock/Types.h>
#include <Bedrock/bitmap/Bitmap.h>
#include <Bedrock/memory/HeapOperators.h>

#include <cstddef>

namespace Zem
{

class Window;

/// The picture of a window, for applications that draw with `Bitmap` and not with graphics hardware.
///
/// It is as large as the client area and keeps what was drawn, so that a frame draws only what is new, and shows only
/// that. When a part of the window is uncovered, the surface shows it again by a hook of its own.
///
/// - The window outlives the surface. What the application draws is seen after `Present`; it draws only between `Begin`
///   and `Present`, because the desktop may read the picture at other times.
/// - Memory: one 32-bit bitmap, shared with an X server on this machine or from `Alloc`.
/// - Threads: the window's.
///
///     WindowSurface surface(window);
///     while (window.HandleMessages())
///         if (Bitmap* const picture = surface.Begin())
///         {
///             Draw(*picture, dirty); // an OptimalRects
///             surface.Present(dirty);
///         }
class ZEM_API WindowSurface
{
    ZEM_HEAP_OPERATORS
public:
    explicit WindowSurface(Window& shown);
    ~WindowSurface();
    WindowSurface(const WindowSurface&) = delete;
    WindowSurface& operator=(const WindowSurface&) = delete;

    /// The picture to draw on, `XRGB32`, of the size of the client area: after a change of that, and at first, it is a new
    /// one, black, and `IsNew` until it is shown. Null without a window, or without memory.
    Bitmap* Begin();
    bool IsNew() const { return fresh; }

    /// Shows the whole picture. False if there is none, or nowhere to show it.
    bool Present() { return PresentAll(); }

    /// Shows the parts of the picture that lie in these rectangles, and all of it if it is new. False as above.
    bool Present(const Rect* dirty, std::size_t count);

    /// The same for anything that a loop can walk over and that gives `Rect`s, an `OptimalRects` for one.
    template <class Rects>
    bool Present(const Rects& dirty)
    {
        Rect some[32];
        std::size_t count = 0;
        bool shown = true;
        for (const Rect& rect : dirty)
        {
            some[count++] = rect;
            if (count < sizeof(some) / sizeof(*some))
                continue;
            shown = Present(some, count) && shown;
            count = 0;
        }
        return Present(some, count) && shown;
    }

private:
    static bool Hook(void* surface, void* message, int& result);
    bool PresentAll();
    bool PresentParts(const Rect* rects, std::size_t count);
    void Release();

    Window& window;
    Bitmap picture;
    void* shared = nullptr;     // the picture's pixels where they are the desktop's
    std::uintptr_t number = 0;  // by which the desktop knows them
    std::uintptr_t shownIn = 0; // the window that they belong to
    bool fresh = true;          // nothing of it was shown
};

} // namespace Zem
