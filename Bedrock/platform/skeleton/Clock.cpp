#include <Bedrock/platform/Clock.h>

namespace Zem::Platform
{

std::int64_t Counter() noexcept
{
    return 0;
}

// Never 0: clocks divide by it.
std::int64_t CounterFrequency() noexcept
{
    return 1000;
}

std::uint32_t Milliseconds() noexcept
{
    return 0;
}

void Sleep(std::uint32_t) noexcept
{
}

LocalTime LocalTimeNow() noexcept
{
    return {1970, 1, 1, 0, 0, 0};
}

} // namespace Zem::Platform
