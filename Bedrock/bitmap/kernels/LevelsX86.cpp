// Which kernels an x86 processor can run. The SSE2 and AVX2 sources are compiled for their level and hold nothing but
// kernels; what looks at the processor stands here, in code that every processor runs.

#include <Bedrock/bitmap/kernels/Kernels.h>
#include <Bedrock/platform/Processor.h>

namespace Zem::Kernels
{

extern const Set sse2Set;
extern const Set avx2Set;

const Set* SetOf(Level level)
{
    switch (level)
    {
    case Level::Avx2:
        return Platform::Processor().avx2 ? &avx2Set : nullptr;
    case Level::Sse2:
        return Platform::Processor().sse2 ? &sse2Set : nullptr;
    case Level::Scalar:
        break;
    }
    return &scalarSet;
}

} // namespace Zem::Kernels
