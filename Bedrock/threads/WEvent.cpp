#include <Bedrock/threads/WEvent.h>

#include <Bedrock/platform/Wait.h>

namespace Zem
{

WEvent::WEvent(bool manualReset, bool signalled, const char* name) noexcept
{
    handle = Platform::CreateEvent(manualReset, signalled, name);
}

WEvent::~WEvent() = default;

void WEvent::Set() noexcept
{
    Platform::SetEvent(static_cast<Platform::Waitable*>(handle));
}

void WEvent::Pulse() noexcept
{
    Platform::PulseEvent(static_cast<Platform::Waitable*>(handle));
}

void WEvent::Reset() noexcept
{
    Platform::ResetEvent(static_cast<Platform::Waitable*>(handle));
}

bool WEvent::Unlock() noexcept
{
    return true;
}

} // namespace Zem
