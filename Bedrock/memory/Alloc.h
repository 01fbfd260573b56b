#pragma once

#include <Bedrock/Export.h>

#include <cstddef>
#include <cstdint>

namespace Zem
{

/// The allocator behind every allocation of the library: the system's heap with a cache of freed small blocks before
/// it, per class of sizes.
///
/// A request of `size` bytes belongs to class `c = (size + 11) >> 3` and gets a block with `8 * c - 4` usable bytes.
/// Blocks of the classes 1 to 511 are small: freed ones are kept, about 8 KiB of each class, and given out again last
/// in, first out. Larger ones go straight back to the heap.
///
///     64 bits:  | next 8 | wide class 4 | header 4 | the caller's memory, aligned to 16 ...
///     32 bits:                          | header 4 | the caller's memory ...              (`next` is its first word)
///     header:   class << 9 | ((class ^ 0x155) & 0x1FF)
///
/// Memory is not cleared. Everything here may be called on any thread, before the library is attached and after it is
/// detached too. A thread keeps the few blocks it freed last to itself, without a lock; what it keeps counts into the
/// limits, and goes back to all when it ends. The memory of a class never goes back to the heap by itself.
///
///     void* block = Alloc::New(100);
///     ...
///     Alloc::Delete(block);
class ZEM_API Alloc
{
public:
    /// Counters of one class or, summed up, of all; each runs in 32 bits.
    struct Statistics
    {
        std::uint32_t cached;    // blocks free for the next one
        std::uint32_t limit;     // most blocks that may be cached
        std::uint32_t hits;      // small requests served from the cache
        std::uint32_t misses;    // small requests that went to the heap
        std::uint32_t blocks;    // small blocks taken from the heap and not given back, in use or cached
        std::uint32_t peak;      // most blocks there have been; the sum of the classes' peaks
        std::uint32_t large;     // large requests, in the sum alone
        std::uint32_t allocated; // bytes asked of the heap, less those of large blocks freed, in the sum alone
    };

    static constexpr unsigned classes = 512; // small ones

    /// Sets up what needs the platform; the library has one instance, the first of its statics.
    Alloc() noexcept;
    ~Alloc();
    Alloc(const Alloc&) = delete;
    Alloc& operator=(const Alloc&) noexcept = default;

    /// At least `size` usable bytes. Null when the heap is exhausted, and for more than 4 GiB - 12 (in a 32-bit process
    /// 64 MiB - 12) bytes.
    [[nodiscard]] static void* New(std::size_t size) noexcept;

    /// Gives back a block from `New`; null does nothing. A pointer that cannot be one, for its address alone, stops in
    /// the debugger.
    static void Delete(void* block) noexcept;

    /// Sends the counters to `Debugger::Output`, as text.
    static void Dump() noexcept;

    /// The counters at this moment, exact as far as the calling thread's own requests go.
    static Statistics Total() noexcept;
    /// Those of one class, below `classes`.
    static Statistics OfClass(unsigned c) noexcept;
};

} // namespace Zem
