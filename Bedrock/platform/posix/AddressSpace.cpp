#include <Bedrock/platform/AddressSpace.h>

namespace Zem::Platform
{

void BreakpointTrap() noexcept
{
    asm volatile("int3");
}

} // namespace Zem::Platform
