#include <Bedrock/platform/Pause.h>

namespace Zem::Platform
{

void PauseTurn(unsigned) noexcept
{
}

} // namespace Zem::Platform
