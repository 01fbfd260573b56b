#pragma once

// Ways to fail, at the level of the processor: what a compiler or a sanitizer would see coming is done by hand.

#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#if defined(__SANITIZE_ADDRESS__)
#define TEST_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define TEST_ASAN 1
#endif
#endif
#if defined(__SANITIZE_THREAD__)
#define TEST_TSAN 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define TEST_TSAN 1
#endif
#endif
#if !defined(TEST_ASAN)
#define TEST_ASAN 0
#endif
#if !defined(TEST_TSAN)
#define TEST_TSAN 0
#endif

#if TEST_ASAN
#include <sanitizer/lsan_interface.h>
#endif

namespace Test
{

/// What is allocated while it lives may leak: frames that a fault drops do not free what they have.
struct LeakAllowed
{
#if TEST_ASAN
    LeakAllowed()
    {
        __lsan_disable();
    }
    ~LeakAllowed()
    {
        __lsan_enable();
    }
#else
    LeakAllowed()
    {
    }
#endif
    LeakAllowed(const LeakAllowed&) = delete;
    LeakAllowed& operator=(const LeakAllowed&) = delete;
};

[[gnu::noinline]] inline void WriteAt(std::uintptr_t address)
{
    __asm__ volatile("movb $1, (%0)" : : "r"(address) : "memory");
}

[[gnu::noinline]] inline void ReadAt(std::uintptr_t address)
{
    __asm__ volatile("movb (%0), %%al" : : "r"(address) : "memory", "eax");
}

[[gnu::noinline]] inline void JumpTo(std::uintptr_t address)
{
    __asm__ volatile("call *%0" : : "r"(address) : "memory");
}

/// 7 / 0, or INT_MIN / -1 as the processor sees it.
[[gnu::noinline]] inline void Divide()
{
    __asm__ volatile("xorl %%ecx, %%ecx\n\tmovl $7, %%eax\n\tcltd\n\tidivl %%ecx" : : : "eax", "ecx", "edx", "cc");
}

[[gnu::noinline]] inline void Illegal()
{
    __asm__ volatile("ud2");
}

[[gnu::noinline]] inline void Breakpoint()
{
    __asm__ volatile("int3");
}

[[gnu::noinline]] inline void Step()
{
    __asm__ volatile("pushf\n\torl $0x100, (%%esp)\n\tpopf\n\tnop" : : : "memory", "cc");
}

[[gnu::noinline]] inline void Privileged()
{
    __asm__ volatile("hlt");
}

/// Unmasks one exception of SSE (a bit of MXCSR) and computes a / b.
[[gnu::noinline]] inline void DivideFloats(float a, float b, std::uint32_t exception)
{
    std::uint32_t mxcsr = 0x1F80 & ~(exception << 7);
    __asm__ volatile("ldmxcsr %0" : : "m"(mxcsr));
    __asm__ volatile("divss %1, %0" : "+x"(a) : "x"(b));
}

/// A mapping whose file has been cut short under it.
[[gnu::noinline]] inline void Truncated()
{
    char name[] = "/tmp/bedrock-cut-XXXXXX";
    const int file = mkstemp(name);
    unlink(name);
    if (ftruncate(file, 4096) != 0)
        return;
    void* page = mmap(nullptr, 4096, PROT_READ, MAP_SHARED, file, 0);
    if (ftruncate(file, 0) != 0)
        return;
    close(file);
    ReadAt(reinterpret_cast<std::uintptr_t>(page));
}

// Each frame is below the one before it, until there is no stack left.
[[gnu::noinline]] inline int Overflow(int depth)
{
    volatile char frame[2000];
    frame[0] = static_cast<char>(depth);
    return depth == 0 ? 0 : Overflow(depth + 1) + frame[0];
}

} // namespace Test
