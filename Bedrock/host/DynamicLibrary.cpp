#include <Bedrock/host/DynamicLibrary.h>

#include <Bedrock/platform/Module.h>

namespace Zem
{

DynamicLibrary::~DynamicLibrary()
{
    if (handle)
        DynamicLibrary::Close(); // what a derived class adds to it has gone already
}

bool DynamicLibrary::Open(const char* name)
{
    if (handle)
        Close();
    handle = name ? Platform::OpenModule(name).value : 0;
    return handle != 0;
}

void DynamicLibrary::Close()
{
    if (!handle)
        return;
    Platform::CloseModule({handle});
    handle = 0;
}

bool DynamicLibrary::Import(void** target, const char* symbol)
{
    *target = handle ? Platform::FindSymbol({handle}, symbol) : nullptr;
    return *target != nullptr;
}

} // namespace Zem
