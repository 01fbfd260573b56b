#include <Bedrock/platform/Wait.h>

namespace Zem::Platform
{

void OpenWaits() noexcept
{
}

void CloseWaits() noexcept
{
}

Waitable* CreateMutex(bool, const char*) noexcept
{
    return nullptr;
}

Waitable* CreateSemaphore(std::int32_t, std::int32_t, const char*) noexcept
{
    return nullptr;
}

Waitable* CreateEvent(bool, bool, const char*) noexcept
{
    return nullptr;
}

void CloseWaitable(Waitable*) noexcept
{
}

bool ReleaseMutex(Waitable*) noexcept
{
    return false;
}

bool ReleaseSemaphore(Waitable*, std::uint32_t) noexcept
{
    return false;
}

bool SetEvent(Waitable*) noexcept
{
    return false;
}

bool PulseEvent(Waitable*) noexcept
{
    return false;
}

bool ResetEvent(Waitable*) noexcept
{
    return false;
}

std::uint32_t WaitForOne(Waitable*, std::uint32_t) noexcept
{
    return WaitFailed;
}

std::uint32_t WaitForMany(Waitable* const*, std::uint32_t, bool, std::uint32_t) noexcept
{
    return WaitFailed;
}

} // namespace Zem::Platform
