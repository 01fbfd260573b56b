#pragma once

#include <atomic>
#include <cstdint>
#include <ctime>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Zem::Platform
{

/// The kernel's call for words that threads sleep on, in the form whose times are as wide as `timespec`; the words of
/// `Futex` belong to the process, those of `SharedFutex` lie in memory that processes share.
inline long SharedFutex(std::uint32_t* word, int operation, std::uint32_t value, const timespec* time) noexcept
{
#if defined(SYS_futex_time64)
    constexpr long call = sizeof(std::time_t) > sizeof(long) ? SYS_futex_time64 : SYS_futex;
#else
    constexpr long call = SYS_futex;
#endif
    return syscall(call, word, operation, value, time, nullptr, FUTEX_BITSET_MATCH_ANY);
}

inline long Futex(std::uint32_t* word, int operation, std::uint32_t value, const timespec* time) noexcept
{
    return SharedFutex(word, operation | FUTEX_PRIVATE_FLAG, value, time);
}

} // namespace Zem::Platform
