#include <Bedrock/platform/Module.h>

namespace Zem::Platform
{

ModuleHandle OpenModule(const char*) noexcept
{
    return {0};
}

void CloseModule(ModuleHandle) noexcept
{
}

void* FindSymbol(ModuleHandle, const char*) noexcept
{
    return nullptr;
}

ModuleHandle ModuleAt(const void*) noexcept
{
    return {0};
}

} // namespace Zem::Platform
