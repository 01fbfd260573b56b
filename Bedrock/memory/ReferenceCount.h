#pragma once

#include <Bedrock/memory/HeapOperators.h>

#include <atomic>
#include <cstdint>

namespace Zem
{

/// The base of objects that live as long as somebody counts a reference on them.
///
/// A new object has count 0: whoever makes it takes the first reference. The last `Release` calls `DeleteThis`, which
/// deletes the object; a derived class may replace it, for instance to keep the object in a pool. References may be
/// taken and released on any thread; what one thread did to the object before its `Release` is seen by the thread that
/// deletes it.
///
///     class Texture : public ReferenceCount { ... };
///     Texture* texture = new Texture;
///     texture->AddRef();
///     ...
///     texture->Release(); // the last one: gone
class ZEM_API ReferenceCount
{
    ZEM_HEAP_OPERATORS
public:
    void AddRef() const noexcept { count.fetch_add(1, std::memory_order_relaxed); }

    /// Returns the references that are left; at 0 the object must not be touched any more.
    std::uint32_t Release() const noexcept
    {
        const std::uint32_t left = count.fetch_sub(1, std::memory_order_acq_rel) - 1;
        if (left == 0)
            DeleteThis();
        return left;
    }

    /// References at this moment; another thread may change it at once.
    std::uint32_t References() const noexcept { return count.load(std::memory_order_relaxed); }

protected:
    constexpr ReferenceCount() noexcept = default;
    /// A copy is a new object: nobody holds a reference on it yet.
    constexpr ReferenceCount(const ReferenceCount&) noexcept {}
    ReferenceCount& operator=(const ReferenceCount&) noexcept { return *this; }

    virtual void DeleteThis() const;
    virtual ~ReferenceCount();

    /// `DeleteThis` of `object`, which may be null.
    static void Delete(const ReferenceCount* object)
    {
        if (object)
            object->DeleteThis();
    }

private:
    mutable std::atomic<std::uint32_t> count{0};
};

} // namespace Zem
