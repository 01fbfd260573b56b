#include <Bedrock/platform/Process.h>

namespace Zem::Platform
{

std::uint32_t CurrentThreadId() noexcept
{
    return 0;
}

std::uint32_t ProcessId() noexcept
{
    return 0;
}

void ProgramPath(char* buffer, std::size_t) noexcept
{
    buffer[0] = '\0';
}

const char* Environment(const char*) noexcept
{
    return nullptr;
}

bool IsProcessAlive(std::uint32_t) noexcept
{
    return false;
}

} // namespace Zem::Platform
