#include <Bedrock/threads/Semaphore.h>

#include <Bedrock/platform/Wait.h>

namespace Zem
{

Semaphore::Semaphore(int initial, int maximum, const char* name) noexcept
{
    handle = Platform::CreateSemaphore(initial, maximum, name);
}

Semaphore::~Semaphore() = default;

bool Semaphore::Unlock() noexcept
{
    return Platform::ReleaseSemaphore(static_cast<Platform::Waitable*>(handle), 1);
}

bool Semaphore::Unlock(std::uint32_t count) noexcept
{
    return Platform::ReleaseSemaphore(static_cast<Platform::Waitable*>(handle), count);
}

} // namespace Zem
