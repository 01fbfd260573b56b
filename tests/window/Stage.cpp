#include "window/Stage.h"

#include <Bedrock/platform/headless/HeadlessDesktop.h>

#include <cstdlib>
#include <vector>

namespace Test
{

namespace
{

using Zem::Platform::HeadlessDesktop;
using Zem::Platform::MouseButton;
using Zem::Platform::WindowHandle;

class HeadlessStage final : public Stage
{
public:
    bool IsManaged() const override { return true; }

    void MovePointer(Zem::Point place) override { Desk().UserMove(place); }

    void Button(int number, bool down) override
    {
        constexpr MouseButton buttons[] = {MouseButton::Left, MouseButton::Middle, MouseButton::Right};
        Desk().UserButton(buttons[number - 1], down);
    }

    void Wheel(int notches, bool across) override { Desk().UserWheel(notches, across); }
    void Key(KeyAt key, bool down) override { Desk().UserKey(key.code, down); }
    void Close(WindowHandle window) override { Desk().UserClose(window); }
    void Activate(WindowHandle window) override { Desk().UserActivate(window); }
    void Minimise(WindowHandle window) override { Desk().UserMinimise(window, true); }

    WindowHandle OpenForeign(const Zem::Rect& area, bool visible) override
    {
        foreign.push_back(Desk().AddForeign("Foreign", area, visible));
        return foreign.back();
    }

    void ResizeForeign(WindowHandle window, Zem::Size client) override { Desk().Resize(window, client); }

    void KillForeign() override
    {
        for (const WindowHandle window : foreign)
            Desk().RemoveForeign(window);
        foreign.clear();
    }

    bool TakeForwarded(Zem::WindowMessage& message) override
    {
        for (const WindowHandle window : foreign)
            if (Desk().TakeForwarded(window, message))
                return true;
        return false;
    }

    std::string Title(WindowHandle window) override { return Desk().Title(window); }
    std::uint32_t Pixel(WindowHandle window, Zem::Point at) override { return Desk().Pixel(window, at); }
    bool IsPointerVisible() override { return Desk().IsPointerVisible(); }

private:
    static HeadlessDesktop& Desk() { return static_cast<HeadlessDesktop&>(*Zem::Platform::OpenDesktop()); }

    std::vector<WindowHandle> foreign;
};

} // namespace

std::ostream& operator<<(std::ostream& out, StageKind kind)
{
    constexpr const char* names[] = {"Headless", "X11Managed", "X11Bare"};
    return out << names[static_cast<int>(kind)];
}

std::unique_ptr<Stage> Stage::Open(StageKind kind, std::string& reason)
{
    if (kind != StageKind::Headless)
        return OpenX11Stage(kind == StageKind::X11Managed, reason);
    setenv("BEDROCK_DESKTOP", "1280x1024x32", 1);
    auto stage = std::make_unique<HeadlessStage>();
    stage->MovePointer({size.width - 1, size.height - 1});
    return stage;
}

} // namespace Test
