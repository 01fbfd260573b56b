#pragma once

#include <Bedrock/Export.h>
#include <Bedrock/memory/HeapOperators.h>

#include <cstdint>

namespace Zem
{

/// A cursor for reading and writing in memory that somebody else owns and whose end only he knows: nothing here checks
/// a bound. Positions are bytes from the start. Reading moves the cursor and is `const` all the same.
/// Threads: one object belongs to one thread.
///
///     DynamicPtr out(block);
///     out.Write(name, 16);
///     out.Write(pixels, 4 * count);
class ZEM_API DynamicPtr
{
    ZEM_HEAP_OPERATORS

public:
    constexpr DynamicPtr() noexcept = default;
    explicit DynamicPtr(void* p) noexcept : data(static_cast<unsigned char*>(p)) {}
    DynamicPtr(const DynamicPtr&) noexcept = default;
    DynamicPtr& operator=(const DynamicPtr&) noexcept = default;

    void Rewind() noexcept { position = 0; }

    /// Copy `n` bytes at the cursor and move it behind them. False, and nothing done, if there is no memory, `p` is null
    /// or `n` is 0.
    bool Write(const unsigned char* p, std::uint32_t n) noexcept;
    bool Read(unsigned char* p, std::uint32_t n) const noexcept;

protected:
    void* IncPtr(void* p, std::uint32_t n) const noexcept { return static_cast<unsigned char*>(p) + n; }

    unsigned char* data = nullptr;
    mutable std::uint32_t position = 0; // of the cursor, from `data`
};

} // namespace Zem
