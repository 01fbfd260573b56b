// A processor without kernels of its own: the scalar ones serve.

#include <Bedrock/bitmap/kernels/Kernels.h>

namespace Zem::Kernels
{

const Set* SetOf(Level level)
{
    return level == Level::Scalar ? &scalarSet : nullptr;
}

} // namespace Zem::Kernels
