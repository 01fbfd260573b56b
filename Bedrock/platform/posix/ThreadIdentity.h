#pragma once

#include <cstdint>
#include <pthread.h>

namespace Zem::Platform
{

/// What tells the living threads of the process apart: never 0, a multiple of 16. Not the kernel's thread number: that
/// one costs a system call, and a remembered one would be wrong in a forked child. The address of the thread's control
/// block is both, and pthread_self() without a call.
inline std::uintptr_t ThreadIdentity() noexcept
{
#if defined(__x86_64__)
    std::uintptr_t self;
    __asm__("mov %%fs:0, %0" : "=r"(self));
    return self;
#elif defined(__i386__)
    std::uintptr_t self;
    __asm__("mov %%gs:0, %0" : "=r"(self));
    return self;
#else
    return static_cast<std::uintptr_t>(pthread_self());
#endif
}

/// Tells the processor that the thread waits for another one.
inline void EaseProcessor() noexcept
{
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#endif
}

} // namespace Zem::Platform
