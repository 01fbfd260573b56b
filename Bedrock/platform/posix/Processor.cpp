#include <Bedrock/platform/Processor.h>

namespace Zem::Platform
{

ProcessorFeatures Processor() noexcept
{
#if defined(__x86_64__) || defined(__i386__)
    // These ask for the system's support of the wide registers too, not for the instructions alone.
    __builtin_cpu_init();
    ProcessorFeatures features{};
    features.sse2 = __builtin_cpu_supports("sse2");
    features.avx2 = __builtin_cpu_supports("avx2");
    features.clmul =
        __builtin_cpu_supports("pclmul") && __builtin_cpu_supports("ssse3") && __builtin_cpu_supports("sse4.1");
    features.avx512 = __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
                      __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("vpclmulqdq");
    return features;
#else
    return {};
#endif
}

} // namespace Zem::Platform
