#pragma once

#include <Bedrock/memory/Alloc.h>

#include <cstddef>
#include <cstdint>
#include <new>

/// Puts `operator new` and `operator delete` of a class on `Alloc`: write `ZEM_HEAP_OPERATORS` as the first line of
/// the class. Single, array, over-aligned and placement forms; a null from the heap makes the `new` expression null
/// (the operators are `noexcept`). A class with two bases that bear the macro repeats it.
#define ZEM_HEAP_OPERATORS                                                                                             \
public:                                                                                                                \
    static void* operator new(std::size_t size) noexcept                                                               \
    {                                                                                                                  \
        return ::Zem::Alloc::New(size);                                                                                \
    }                                                                                                                  \
    static void* operator new[](std::size_t size) noexcept                                                             \
    {                                                                                                                  \
        return ::Zem::Alloc::New(size);                                                                                \
    }                                                                                                                  \
    static void* operator new(std::size_t, void* place) noexcept                                                       \
    {                                                                                                                  \
        return place;                                                                                                  \
    }                                                                                                                  \
    static void* operator new(std::size_t size, std::align_val_t align) noexcept                                       \
    {                                                                                                                  \
        return ::Zem::NewAligned(size, static_cast<std::size_t>(align));                                               \
    }                                                                                                                  \
    static void* operator new[](std::size_t size, std::align_val_t align) noexcept                                     \
    {                                                                                                                  \
        return ::Zem::NewAligned(size, static_cast<std::size_t>(align));                                               \
    }                                                                                                                  \
    static void operator delete(void* block) noexcept                                                                  \
    {                                                                                                                  \
        ::Zem::Alloc::Delete(block);                                                                                   \
    }                                                                                                                  \
    static void operator delete[](void* block) noexcept                                                                \
    {                                                                                                                  \
        ::Zem::Alloc::Delete(block);                                                                                   \
    }                                                                                                                  \
    static void operator delete(void*, void*) noexcept                                                                 \
    {                                                                                                                  \
    }                                                                                                                  \
    static void operator delete(void* block, std::align_val_t) noexcept                                                \
    {                                                                                                                  \
        ::Zem::DeleteAligned(block);                                                                                   \
    }                                                                                                                  \
    static void operator delete[](void* block, std::align_val_t) noexcept                                              \
    {                                                                                                                  \
        ::Zem::DeleteAligned(block);                                                                                   \
    }

namespace Zem
{

/// An `Alloc` block whose address is a multiple of `align`, a power of two above 8. The address that `Alloc` gave
/// stands in the word before the block.
inline void* NewAligned(std::size_t size, std::size_t align) noexcept
{
    if (size > SIZE_MAX - align - sizeof(void*))
        return nullptr;
    void* raw = Alloc::New(size + align + sizeof(void*));
    if (!raw)
        return nullptr;
    const auto address = (reinterpret_cast<std::uintptr_t>(raw) + sizeof(void*) + align - 1) & ~(align - 1);
    reinterpret_cast<void**>(address)[-1] = raw;
    return reinterpret_cast<void*>(address);
}

inline void DeleteAligned(void* block) noexcept
{
    if (block)
        Alloc::Delete(static_cast<void**>(block)[-1]);
}

} // namespace Zem
