#include <Bedrock/platform/ThreadExit.h>

namespace Zem::Platform
{

bool OpenThreadExit(void (*)(void*)) noexcept
{
    return false;
}

bool SetThreadExit(void*) noexcept
{
    return false;
}

void CloseThreadExit() noexcept
{
}

} // namespace Zem::Platform
