#pragma once

namespace Zem::Platform
{

/// What this machine's processor can do, and its system lets it do; kernels are chosen by it at run time.
struct ProcessorFeatures
{
    bool sse2;
    bool avx2;
    bool clmul;  // PCLMULQDQ with SSSE3 and SSE4.1
    bool avx512; // AVX-512 F, BW and VL with VPCLMULQDQ
};

/// Asks the processor; environment variables have no say here. Callable from any thread at any time, also before the
/// library's own start-up has run. Cheap, but not free: callers keep what they derive from it.
ProcessorFeatures Processor() noexcept;

} // namespace Zem::Platform
