#include <Bedrock/platform/AddressSpace.h>

namespace Zem::Platform
{

void BreakpointTrap() noexcept
{
}

} // namespace Zem::Platform
