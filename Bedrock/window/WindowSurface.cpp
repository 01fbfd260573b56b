#include <Bedrock/window/WindowSurface.h>

#include <Bedrock/platform/Desktop.h>
#include <Bedrock/window/Window.h>

namespace Zem
{

using Platform::Desktop;
using Platform::OpenedDesktop;
using Platform::PictureMemory;
using Platform::WindowHandle;

namespace
{

WindowHandle HandleOf(const Window& window)
{
    return {reinterpret_cast<std::uintptr_t>(window.GetHandle())};
}

} // namespace

WindowSurface::WindowSurface(Window& shown) : window(shown)
{
    window.RegisterWindowHook(&Hook, this); // without memory for it uncovered parts stay black until the next frame
}

WindowSurface::~WindowSurface()
{
    window.ClearWindowHook(this);
    Release();
}

// Gives back the pixels; a desktop that has gone took those that were its own along.
void WindowSurface::Release()
{
    picture = Bitmap();
    if (Desktop* const desktop = OpenedDesktop(); desktop && shared)
        desktop->ClosePicture({shared, 0, Size{0, 0}, number});
    shared = nullptr;
}

bool WindowSurface::Hook(void* surface, void* message, int&)
{
    auto& self = *static_cast<WindowSurface*>(surface);
    const auto& told = *static_cast<const WindowMessage*>(message);
    if (told.number == MessagePaint && told.window == HandleOf(self.window).value && !self.fresh)
        self.PresentAll();
    return false; // others may want to draw too
}

Bitmap* WindowSurface::Begin()
{
    const Rect client = window.GetClientArea();
    Desktop* const desktop = OpenedDesktop();
    if (client.IsEmpty() || !desktop)
        return nullptr;
    const WindowHandle handle = HandleOf(window);
    if (picture.IsValid() && Size(picture) == Size(client) && shownIn == handle.value)
    {
        if (shared)
            desktop->WaitPicture({shared, 0, Size{0, 0}, number});
        return &picture;
    }
    Release();
    fresh = true;
    shownIn = handle.value;
    PictureMemory memory;
    if (desktop->OpenPicture(handle, client, memory))
    {
        shared = memory.first;
        number = memory.number;
        picture.Init(client, static_cast<int>(memory.pitch), Bitmap::XRGB32, static_cast<unsigned char*>(shared), 0);
    }
    else
        picture.Init(client, 0, Bitmap::XRGB32, nullptr, 0);
    if (!picture.IsValid())
        return nullptr;
    picture.Clear();
    return &picture;
}

bool WindowSurface::Present(const Rect* dirty, std::size_t count)
{
    return fresh ? PresentAll() : PresentParts(dirty, count);
}

bool WindowSurface::PresentAll()
{
    const Rect all = picture;
    if (!PresentParts(&all, 1))
        return false;
    fresh = false;
    return true;
}

bool WindowSurface::PresentParts(const Rect* rects, std::size_t count)
{
    Desktop* const desktop = OpenedDesktop();
    const WindowHandle handle = HandleOf(window);
    if (!desktop || !picture.IsValid() || handle.value != shownIn)
        return false;
    const Rect all = picture;
    const auto pitch = static_cast<std::int32_t>(picture.GetPitch());
    if (shared)
        return desktop->PresentPicture(handle, {shared, pitch, all, number}, rects, count);
    bool shown = true;
    for (std::size_t i = 0; i < count; ++i)
    {
        const Rect part = rects[i].Intersect(all);
        if (!part.IsEmpty())
            shown = desktop->Present(handle, {picture.GetPtr(part), pitch, part}, part) && shown;
    }
    return shown;
}

} // namespace Zem
