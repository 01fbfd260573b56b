#include <Bedrock/threads/CriticalSection.h>

namespace Zem
{

CriticalSection::CriticalSection(const char*) noexcept
{
}

CriticalSection::~CriticalSection() = default;

bool CriticalSection::Lock(std::uint32_t) noexcept
{
    return section.Enter();
}

bool CriticalSection::Unlock() noexcept
{
    return section.Leave();
}

} // namespace Zem
