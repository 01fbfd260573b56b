#include <Bedrock/platform/Desktop.h>

#include <Bedrock/platform/Module.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>

namespace Zem::Platform
{

namespace
{

constinit Desktop* desktop = nullptr;
constinit ModuleHandle desktopModule{0};
constinit char problem[256] = "";

constexpr DesktopSize usualHeadless{{1280, 1024}, 32};

// The module lies beside the code that loads it, or where the loader looks for libraries.
ModuleHandle OpenBeside(const char* name)
{
    char path[PATH_MAX];
    Dl_info info;
    if (dladdr(&desktopModule, &info) && info.dli_fname)
        if (const char* slash = std::strrchr(info.dli_fname, '/'))
        {
            const int folder = static_cast<int>(slash + 1 - info.dli_fname);
            if (std::snprintf(path, sizeof(path), "%.*s%s", folder, info.dli_fname, name) <
                static_cast<int>(sizeof(path)))
                if (const ModuleHandle module = OpenModule(path); module.value != 0)
                    return module;
        }
    return OpenModule(name);
}

Desktop* OpenX11()
{
    const char* display = std::getenv("DISPLAY");
    if (!display || !*display)
    {
        std::snprintf(problem, sizeof(problem), "DISPLAY names no X server");
        return nullptr;
    }
    const ModuleHandle module = OpenBeside("bedrock-x11.so");
    if (module.value == 0)
    {
        std::snprintf(problem, sizeof(problem), "bedrock-x11.so cannot be loaded");
        return nullptr;
    }
    auto* const open = reinterpret_cast<OpenDesktopFunction*>(FindSymbol(module, openDesktopSymbol));
    if (Desktop* opened = open ? open(desktopVersion) : nullptr)
    {
        desktopModule = module;
        return opened;
    }
    CloseModule(module);
    std::snprintf(problem, sizeof(problem), "the X server %.200s cannot be reached", display);
    return nullptr;
}

Desktop* OpenHeadless()
{
    Desktop* opened = OpenHeadlessDesktop(usualHeadless);
    if (!opened)
        std::snprintf(problem, sizeof(problem), "memory is exhausted");
    return opened;
}

// The desktops of this platform, in the order in which they are tried. The last one always opens.
constexpr struct
{
    const char* name;
    Desktop* (*open)();
} backends[] = {{"x11", OpenX11}, {"headless", OpenHeadless}};

// A whole number of 1 to `largest` at the start of `text`, which then stands behind it; 0 if there is none.
std::int32_t TakeNumber(const char*& text, std::int32_t largest)
{
    std::int32_t number = 0;
    for (; *text >= '0' && *text <= '9'; ++text)
    {
        number = number * 10 + (*text - '0');
        if (number > largest)
            return 0;
    }
    return number;
}

// "1024x768x16"
bool ParseSize(const char* text, DesktopSize& size)
{
    size.size.width = TakeNumber(text, 32767);
    if (size.size.width == 0 || *text++ != 'x')
        return false;
    size.size.height = TakeNumber(text, 32767);
    if (size.size.height == 0 || *text++ != 'x')
        return false;
    size.bits = TakeNumber(text, 32);
    return size.bits != 0 && !*text;
}

Desktop* Choose()
{
    const char* wish = std::getenv("BEDROCK_DESKTOP");
    if (!wish || !*wish)
    {
        for (const auto& backend : backends)
            if (Desktop* opened = backend.open())
                return opened;
        return nullptr;
    }
    for (const auto& backend : backends)
        if (std::strcmp(wish, backend.name) == 0)
            return backend.open();
    DesktopSize size;
    if (ParseSize(wish, size))
        return OpenHeadlessDesktop(size);
    std::snprintf(problem, sizeof(problem), "BEDROCK_DESKTOP is neither x11 nor headless nor WxHxB: %.150s", wish);
    return nullptr;
}

} // namespace

Desktop* OpenDesktop() noexcept
{
    if (!desktop)
        desktop = Choose();
    return desktop;
}

Desktop* OpenedDesktop() noexcept
{
    return desktop;
}

const char* DesktopProblem() noexcept
{
    return problem;
}

void CloseDesktop() noexcept
{
    if (!desktop)
        return;
    desktop->Close();
    desktop = nullptr;
    if (desktopModule.value != 0)
        CloseModule(desktopModule);
    desktopModule = {0};
}

} // namespace Zem::Platform
