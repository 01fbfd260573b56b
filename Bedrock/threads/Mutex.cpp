#include <Bedrock/threads/Mutex.h>

#include <Bedrock/platform/Wait.h>

namespace Zem
{

Mutex::Mutex(bool owned, const char* name) noexcept
{
    handle = Platform::CreateMutex(owned, name);
}

Mutex::~Mutex() = default;

bool Mutex::Unlock() noexcept
{
    return Platform::ReleaseMutex(static_cast<Platform::Waitable*>(handle));
}

bool Mutex::Unlock(std::uint32_t) noexcept
{
    return Unlock();
}

} // namespace Zem
