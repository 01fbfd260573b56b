#pragma once

#include <cstddef>

// Tells AddressSanitizer, in a build that has it, which bytes nobody may touch at the moment; nothing in other builds.
#if defined(__SANITIZE_ADDRESS__)
#define ZEM_HAS_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ZEM_HAS_ASAN 1
#endif
#endif

#if defined(ZEM_HAS_ASAN)
#include <sanitizer/asan_interface.h>
#endif

namespace Zem::Platform
{

#if defined(ZEM_HAS_ASAN)

inline void Poison(const volatile void* bytes, std::size_t size) noexcept
{
    __asan_poison_memory_region(bytes, size);
}
inline void Unpoison(const volatile void* bytes, std::size_t size) noexcept
{
    __asan_unpoison_memory_region(bytes, size);
}

#else

inline void Poison(const volatile void*, std::size_t) noexcept
{
}
inline void Unpoison(const volatile void*, std::size_t) noexcept
{
}

#endif

} // namespace Zem::Platform
