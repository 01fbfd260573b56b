#include <Bedrock/threads/CriticalSection.h>

namespace Zem
{

CriticalSection::CriticalSection(const char*) noexcept
{
}

CriticalSection::~CriticalSection() = default;

bool CriticalSection::Lock(std::uint32_t) noexcept
{
    section.Enter();
    return true;
}

bool CriticalSection::Unlock() noexcept
{
    section.Leave();
    return true;
}

} // namespace Zem
