#include <Bedrock/platform/Module.h>

#include <dlfcn.h>

namespace Zem::Platform
{

ModuleHandle OpenModule(const char* name) noexcept
{
    return {reinterpret_cast<std::intptr_t>(dlopen(name, RTLD_NOW | RTLD_LOCAL))};
}

void CloseModule(ModuleHandle module) noexcept
{
    dlclose(reinterpret_cast<void*>(module.value));
}

void* FindSymbol(ModuleHandle module, const char* symbol) noexcept
{
    return dlsym(reinterpret_cast<void*>(module.value), symbol);
}

ModuleHandle ModuleAt(const void* address) noexcept
{
    Dl_info info;
    if (!dladdr(address, &info))
        return {0};
    return {reinterpret_cast<std::intptr_t>(info.dli_fbase)};
}

} // namespace Zem::Platform
