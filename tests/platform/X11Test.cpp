// The desktop of an X server, as its user, its window manager and its other programs see it.

#include "support/XServer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace Zem;
using namespace Zem::Platform;
using Test::Fetch;
using Test::FetchAll;
using Test::XServer;

namespace
{

TEST(X11, Probe)
{
    for (const bool manager : {false, true})
    {
        XServer server(manager);
        Desktop& desktop = server.Open();
        const WindowHandle w = desktop.CreateWindow({WindowKind::Framed, "ZEM", "Hallo", {0}, true, {120, 90}, {400, 300}});
        std::printf("w %lx\n", static_cast<unsigned long>(w.value));
        std::printf("show %d\n", desktop.Show(w, true));
        Rect a, c;
        desktop.Area(w, a);
        desktop.ClientArea(w, c);
        std::printf("area %d %d %d %d client %d %d %d %d focus %lx\n", a.x, a.y, a.width, a.height, c.x, c.y, c.width, c.height, static_cast<unsigned long>(desktop.Focus().value));
        for (const auto& m : FetchAll(desktop))
            std::printf("  %lu %lx %lx\n", static_cast<unsigned long>(m.message.number), static_cast<unsigned long>(m.message.first), static_cast<unsigned long>(m.message.second));
        server.Move({200, 200});
        server.Click(1);
        server.Key('a', true);
        server.Key('a', false);
        for (const auto& m : FetchAll(desktop))
            std::printf("  %lu %lx %lx '%s'\n", static_cast<unsigned long>(m.message.number), static_cast<unsigned long>(m.message.first), static_cast<unsigned long>(m.message.second), m.text);
        std::printf("resize %d\n", desktop.Resize(w, {200, 100}));
        std::printf("setpos %d\n", desktop.SetPosition(w, {WindowState::Minimised, {10, 20, 300, 200}}));
        std::printf("min %d\n", desktop.IsMinimised(w));
        for (const auto& m : FetchAll(desktop))
            std::printf("  %lu %lx %lx '%s'\n", static_cast<unsigned long>(m.message.number), static_cast<unsigned long>(m.message.first), static_cast<unsigned long>(m.message.second), m.text);
        std::printf("show %d\n", desktop.Show(w, true));
        for (const auto& m : FetchAll(desktop))
            std::printf("  %lu %lx %lx '%s'\n", static_cast<unsigned long>(m.message.number), static_cast<unsigned long>(m.message.first), static_cast<unsigned long>(m.message.second), m.text);
        server.Kill();
        for (const auto& m : FetchAll(desktop))
            std::printf("  %lu %lx %lx '%s'\n", static_cast<unsigned long>(m.message.number), static_cast<unsigned long>(m.message.first), static_cast<unsigned long>(m.message.second), m.text);
    }
}

} // namespace
