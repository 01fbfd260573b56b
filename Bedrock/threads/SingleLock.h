#pragma once

#include <Bedrock/Export.h>
#include <Bedrock/threads/SyncObject.h>

#include <cstdint>

namespace Zem
{

/// Holds one object for a scope: remembers whether it took it and gives it back at the end.
///
/// The object must outlive the guard. A guard belongs to one thread.
///
///     SingleLock guard(&section, true);   // waits and takes
///     ...                                 // the end of the scope gives it back
class ZEM_API SingleLock
{
public:
    /// A guard over `object`, not null; with `lockNow` it waits for it without end.
    SingleLock(SyncObject* object, bool lockNow) noexcept;
    ~SingleLock();
    SingleLock(const SingleLock&) = delete;
    SingleLock& operator=(const SingleLock&) = delete;

    /// True if the object was taken within `timeout` milliseconds.
    bool Lock(std::uint32_t timeout = SyncObject::Forever) noexcept;

    /// Gives the object back: true if that worked, and also if the guard holds nothing. `count` is for a semaphore.
    bool Unlock() noexcept;
    bool Unlock(std::uint32_t count) noexcept;

    bool IsLocked() const noexcept { return locked; }

private:
    SyncObject* object;
    bool locked;
};

} // namespace Zem
