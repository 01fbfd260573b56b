#include <Bedrock/host/Debugger.h>

#include <Bedrock/platform/Debug.h>

namespace Zem
{

void Debugger::Output(const char* text) noexcept
{
    if (text)
        Platform::WriteDebugOutput(text);
}

bool Debugger::IsReadValid(const void* address, std::uint32_t size) noexcept
{
    return Platform::IsReadable(address, size);
}

void Debugger::Break() noexcept
{
}

} // namespace Zem
