#include "support/OtherProgram.h"
#include "support/XServer.h"
#include "window/Stage.h"

namespace Test
{

namespace
{

using Zem::Platform::WindowHandle;

class X11Stage final : public Stage
{
public:
    explicit X11Stage(bool withManager) : managed(withManager), server(withManager) {}

    bool IsManaged() const override { return managed; }

    void MovePointer(Zem::Point place) override { server.Move(place); }
    void Button(int number, bool down) override { server.Button(number, down); }

    void Wheel(int notches, bool across) override
    {
        const int forth = across ? 7 : 4, back = across ? 6 : 5;
        for (; notches != 0; notches += notches > 0 ? -1 : 1)
            server.Click(notches > 0 ? forth : back);
    }

    void Key(KeyAt key, bool down) override { server.KeyAt(static_cast<int>(key.scan), down); }
    void Close(WindowHandle window) override
    {
        if (managed)
            server.Ask(Id(window), "_NET_CLOSE_WINDOW", 0);
        else
            server.Tell(Id(window), "WM_PROTOCOLS", server.Atom("WM_DELETE_WINDOW"));
    }

    void Activate(WindowHandle window) override
    {
        if (managed)
            server.Ask(Id(window), "_NET_ACTIVE_WINDOW", 2);
        else
            server.Focus(Id(window));
    }

    void Minimise(WindowHandle window) override { server.Ask(Id(window), "WM_CHANGE_STATE", 3); }

    WindowHandle OpenForeign(const Zem::Rect& area, bool visible) override
    {
        return {program.Open(area, visible, "Foreign")};
    }

    void ResizeForeign(WindowHandle window, Zem::Size client) override { program.Resize(Id(window), client); }
    void KillForeign() override { program.Kill(); }
    bool TakeForwarded(Zem::WindowMessage& message) override { return program.Take(message); }

    std::string Title(WindowHandle window) override { return server.Text(Id(window), "_NET_WM_NAME"); }
    std::uint32_t Pixel(WindowHandle window, Zem::Point at) override { return server.Pixel(Id(window), at) & 0xFFFFFF; }
    bool IsPointerVisible() override { return server.IsPointerVisible(); }

private:
    static xcb_window_t Id(WindowHandle window) { return static_cast<xcb_window_t>(window.value); }

    const bool managed;
    XServer server;
    OtherProgram program; // connects to that server
};

} // namespace

std::unique_ptr<Stage> OpenX11Stage(bool managed, std::string& reason)
{
    if (!HasXServer())
    {
        reason = "Xvfb or openbox is not installed";
        return nullptr;
    }
    return std::make_unique<X11Stage>(managed);
}

} // namespace Test
