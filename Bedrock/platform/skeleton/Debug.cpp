#include <Bedrock/platform/Debug.h>

namespace Zem::Platform
{

void WriteDebugOutput(const char*) noexcept
{
}

void SetDebugSinkForTest(void (*)(const char*)) noexcept
{
}

bool IsReadable(const void*, std::size_t) noexcept
{
    return false;
}

} // namespace Zem::Platform
