#include <Bedrock/host/OS.h>

#include <Bedrock/host/DynamicLibrary.h>
#include <Bedrock/host/Options.h>
#include <Bedrock/window/Window.h>

namespace Zem
{

OS::OS(void* own, const char* line, void* outer) noexcept
    : instance(own), window(nullptr), commandLine(line), options(new Options), parent(outer)
{
}

OS::~OS()
{
    delete options;
    options = nullptr;
}

DynamicLibrary* OS::CreateDynamicLibrary()
{
    return new DynamicLibrary;
}

Window* OS::CreateNewWindow()
{
    return new Window(parent);
}

} // namespace Zem
