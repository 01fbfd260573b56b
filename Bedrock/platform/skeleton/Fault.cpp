#include <Bedrock/platform/Fault.h>

namespace Zem::Platform
{

// A platform that cannot catch anything: calls are plain calls.

bool CallProtected(int (*body)(void*), void* argument, FaultAnswer (*)(const Fault&), int& result)
{
    result = body(argument);
    return true;
}

bool CallGuarded(void (*body)(void*), void* argument)
{
    body(argument);
    return true;
}

bool IsProtected() noexcept
{
    return false;
}

void AbandonProtectedCalls() noexcept
{
}

void CloseFaults() noexcept
{
}

void DescribeThrown(const Fault&, char* buffer, std::size_t)
{
    buffer[0] = '\0';
}

std::uint32_t WalkFailedStack(const Fault&, std::uintptr_t*, std::uint32_t)
{
    return 0;
}

bool FindCode(std::uintptr_t, CodePlace&) noexcept
{
    return false;
}

} // namespace Zem::Platform
