#pragma once

#include <Bedrock/threads/SyncObject.h>

namespace Zem
{

/// A count: `Lock` waits until it is above 0 and takes 1, `Unlock` adds. Any thread may add.
///
///     Semaphore slots(4, 4);      // four at a time
///     slots.Lock();
///     ...
///     slots.Unlock();
class ZEM_API Semaphore : public SyncObject
{
public:
    /// Needs 0 <= `initial` <= `maximum` and `maximum` >= 1; otherwise there is no semaphore, and every operation fails.
    /// A `name` shares it between processes (SyncObject.h).
    explicit Semaphore(int initial = 0, int maximum = 1, const char* name = nullptr) noexcept;
    ~Semaphore() override;

    /// Adds 1 or `count`. False, and nothing is added, if that passes the maximum or `count` is 0.
    bool Unlock() noexcept override;
    bool Unlock(std::uint32_t count) noexcept override;
};

} // namespace Zem
