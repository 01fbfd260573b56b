#pragma once

#include <Bedrock/threads/SyncObject.h>

namespace Zem
{

/// A lock with an owner: the thread that locked it, who may lock it again and alone may unlock it, once for each.
///
/// Who comes first is served first. A mutex whose owner ends without unlocking it is left behind: the next `Lock` takes
/// it and still answers false, once, for what it guards may be half done; `MultiLock` tells such a mutex apart.
///
///     Mutex mutex;
///     if (mutex.Lock(100))   // waits 100 milliseconds at most
///     {
///         ...
///         mutex.Unlock();
///     }
class ZEM_API Mutex : public SyncObject
{
public:
    /// With `owned` the calling thread owns it at once. A `name` shares it between processes (SyncObject.h).
    explicit Mutex(bool owned = false, const char* name = nullptr) noexcept;
    ~Mutex() override;

    /// True if the calling thread owned it. The count of the second form is not used.
    bool Unlock() noexcept override;
    bool Unlock(std::uint32_t count) noexcept override;
};

} // namespace Zem
