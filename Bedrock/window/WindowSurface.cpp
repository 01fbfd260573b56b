#include <Bedrock/window/WindowSurface.h>

#include <Bedrock/platform/Desktop.h>
#include <Bedrock/window/Window.h>

namespace Zem
{

WindowSurface::WindowSurface(Window& shown) : window(shown)
{
    window.RegisterWindowHook(&Hook, this); // without memory for it uncovered parts stay black until the next frame
}

WindowSurface::~WindowSurface()
{
    window.ClearWindowHook(this);
}

bool WindowSurface::Hook(void* surface, void* message, int&)
{
    auto& self = *static_cast<WindowSurface*>(surface);
    const auto& told = *static_cast<const WindowMessage*>(message);
    if (told.number == MessagePaint && told.window == reinterpret_cast<std::uintptr_t>(self.window.GetHandle()) &&
        !self.fresh)
        self.PresentAll();
    return false; // others may want to draw too
}

Bitmap* WindowSurface::Begin()
{
    const Rect client = window.GetClientArea();
    if (client.IsEmpty())
        return nullptr;
    if (!picture.IsValid() || !(Size(picture) == Size(client)))
    {
        fresh = true;
        picture.Init(client, 0, Bitmap::XRGB32, nullptr, 0);
        if (!picture.IsValid())
            return nullptr;
        picture.Clear();
    }
    return &picture;
}

bool WindowSurface::Present(const Rect* dirty, std::size_t count)
{
    if (fresh)
        return PresentAll();
    bool shown = picture.IsValid();
    for (std::size_t i = 0; i < count; ++i)
        shown = PresentPart(dirty[i]) && shown;
    return shown;
}

bool WindowSurface::PresentAll()
{
    if (!PresentPart(picture))
        return false;
    fresh = false;
    return true;
}

bool WindowSurface::PresentPart(const Rect& rect)
{
    Platform::Desktop* const desktop = Platform::OpenedDesktop();
    const Platform::WindowHandle handle{reinterpret_cast<std::uintptr_t>(window.GetHandle())};
    if (!desktop || handle.value == 0 || !picture.IsValid())
        return false;
    const Rect part = rect.Intersect(Rect({0, 0}, picture));
    if (part.IsEmpty())
        return true;
    return desktop->Present(handle, {picture.GetPtr(part), static_cast<std::int32_t>(picture.GetPitch()), part}, part);
}

} // namespace Zem
