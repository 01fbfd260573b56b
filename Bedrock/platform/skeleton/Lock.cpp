#include <Bedrock/platform/Lock.h>

namespace Zem::Platform
{

// A platform of one thread: who comes is the holder.

bool Lock::Enter() noexcept
{
    ++depth;
    return true;
}

bool Lock::TryEnter() noexcept
{
    ++depth;
    return true;
}

bool Lock::Leave() noexcept
{
    --depth;
    return true;
}

} // namespace Zem::Platform
