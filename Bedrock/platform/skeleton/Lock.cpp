#include <Bedrock/platform/Lock.h>

namespace Zem::Platform
{

// A platform of one thread: who comes is the holder.

void Lock::Enter() noexcept
{
    ++depth;
}

bool Lock::TryEnter() noexcept
{
    ++depth;
    return true;
}

void Lock::Leave() noexcept
{
    --depth;
}

} // namespace Zem::Platform
