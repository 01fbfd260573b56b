#include <Bedrock/memory/Alloc.h>

#include <cstdlib>

namespace Zem
{

void* Alloc::New(std::size_t size) noexcept
{
    return std::malloc(size);
}

void Alloc::Delete(void* block) noexcept
{
    std::free(block);
}

} // namespace Zem
