#pragma once

#include <Bedrock/Export.h>

#include <cstddef>
#include <cstdint>

namespace Zem
{

/// The allocator behind every allocation of the library.
class ZEM_API Alloc
{
public:
    /// At least `size` usable bytes, aligned to 16 on 64-bit, not cleared; null when the heap is exhausted.
    static void* New(std::size_t size) noexcept;

    /// Gives back a block from `New`; null does nothing.
    static void Delete(void* block) noexcept;
};

} // namespace Zem
