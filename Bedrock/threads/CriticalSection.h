#pragma once

#include <Bedrock/platform/Lock.h>
#include <Bedrock/threads/SyncObject.h>

namespace Zem
{

/// The cheapest lock between the threads of one process; the thread that holds it may enter again.
///
/// It cannot time out: `Lock` waits as long as it takes, whatever the time-out says, and so does `IsLocked`. It has no
/// handle, so a `MultiLock` cannot wait for it.
///
///     SingleLock guard(&section, true);
///     list.Add(node);
class ZEM_API CriticalSection : public SyncObject
{
public:
    /// `name` is not used: a critical section never leaves its process.
    explicit CriticalSection(const char* name = nullptr) noexcept;
    /// Nobody may hold or want the section any more.
    ~CriticalSection() override;

    /// Enters; always true.
    bool Lock(std::uint32_t timeout = Forever) noexcept override;
    /// Leaves; only the holder may, once for each `Lock`. Always true.
    bool Unlock() noexcept override;
    using SyncObject::Unlock;

private:
    Platform::Lock section;
};

} // namespace Zem
