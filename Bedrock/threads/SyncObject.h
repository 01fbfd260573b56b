#pragma once

#include <Bedrock/Export.h>
#include <Bedrock/memory/HeapOperators.h>

#include <cstdint>

namespace Zem
{

/// The common face of everything that can be waited for: critical section, mutex, semaphore, event, thread.
///
/// Time-outs are milliseconds; 0 tries once, `Forever` waits without end. Nothing throws: an object that could not be
/// made has a null handle, and every `Lock` on it answers false.
///
/// Names: a mutex, semaphore or event with a name, of 1 to 259 bytes, is shared by the user's processes: the first one
/// that opens the name makes it, with the state it asks for; later ones get it as it is, and it goes with the last. One
/// name is one object, so another kind under it fails. When a process dies, the mutexes that it held are left behind and
/// the rest stays as it is. Who waits for named objects learns within 100 milliseconds of a mutex's owner that died.
///
/// Threads: all operations may be called from any thread at once; making and destroying may not.
class ZEM_API SyncObject
{
    ZEM_HEAP_OPERATORS
public:
    static constexpr std::uint32_t Forever = 0xFFFFFFFF;

    /// Closes the handle.
    virtual ~SyncObject();
    SyncObject(const SyncObject&) = delete; // two owners would release one handle twice
    SyncObject& operator=(const SyncObject&) = delete;

    /// The native handle, which `MultiLock` waits on; null for a critical section and where creation failed.
    virtual operator void*() noexcept;

    /// Waits for the object and takes it. True only when it was signalled: a time-out, a failure and a mutex that its
    /// owner left behind give false.
    virtual bool Lock(std::uint32_t timeout = Forever) noexcept;

    /// Gives back what `Lock` took, where there is something to give back: true if that worked.
    virtual bool Unlock(std::uint32_t count) noexcept;
    virtual bool Unlock() noexcept;

    bool Wait(std::uint32_t timeout = Forever) noexcept { return Lock(timeout); }
    bool Signal() noexcept { return Unlock(); }

    /// Tries `Lock` with time-out 0 and gives back what it took: true if the try failed. The try is real: on an event
    /// that resets itself it consumes the signal, and on a critical section that another thread holds it waits.
    bool IsLocked() noexcept;

protected:
    SyncObject() noexcept = default;

    void* handle = nullptr;
};

} // namespace Zem
