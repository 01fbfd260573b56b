#include <Bedrock/platform/Processor.h>

namespace Zem::Platform
{

ProcessorFeatures Processor() noexcept
{
    return {};
}

} // namespace Zem::Platform
