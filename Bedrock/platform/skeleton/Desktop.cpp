#include <Bedrock/platform/Desktop.h>

namespace Zem::Platform
{

namespace
{

constinit Desktop* desktop = nullptr;

} // namespace

// The desktop in memory, until the platform has one of its own.
Desktop* OpenDesktop() noexcept
{
    if (!desktop)
        desktop = OpenHeadlessDesktop({{1280, 1024}, 32});
    return desktop;
}

Desktop* OpenedDesktop() noexcept
{
    return desktop;
}

const char* DesktopProblem() noexcept
{
    return "this platform has no desktop of its own, and memory is exhausted";
}

void CloseDesktop() noexcept
{
    if (desktop)
        desktop->Close();
    desktop = nullptr;
}

} // namespace Zem::Platform
