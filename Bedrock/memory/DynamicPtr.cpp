#include <Bedrock/memory/DynamicPtr.h>

#include <cstring>

namespace Zem
{

static_assert(sizeof(DynamicPtr) == (sizeof(void*) == 4 ? 8 : 16));

bool DynamicPtr::Write(const unsigned char* p, std::uint32_t n) noexcept
{
    if (!data || !p || n == 0)
        return false;
    std::memcpy(data + position, p, n);
    position += n;
    return true;
}

bool DynamicPtr::Read(unsigned char* p, std::uint32_t n) const noexcept
{
    if (!data || !p || n == 0)
        return false;
    std::memcpy(p, data + position, n);
    position += n;
    return true;
}

} // namespace Zem
