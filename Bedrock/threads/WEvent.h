#pragma once

#include <Bedrock/threads/SyncObject.h>

namespace Zem
{

/// A signal that threads wait for.
///
/// One that resets itself (the default) lets one `Lock` through for each `Set`; several signals without a wait between
/// them are one. A manual one lets every `Lock` through from `Set` to `Reset`.
///
///     WEvent wake;
///     wake.Set();                     // on one thread
///     if (wake.Wait(1000)) ...        // on another, within a second
class ZEM_API WEvent : public SyncObject
{
public:
    /// A `name` shares it between processes (SyncObject.h).
    explicit WEvent(bool manualReset = false, bool signalled = false, const char* name = nullptr) noexcept;
    ~WEvent() override;

    void Set() noexcept;
    /// Lets through who waits at this moment (one thread if the event resets itself) and leaves the event reset.
    void Pulse() noexcept;
    void Reset() noexcept;

    /// There is nothing to give back: always true.
    bool Unlock() noexcept override;
    using SyncObject::Unlock;
};

} // namespace Zem
