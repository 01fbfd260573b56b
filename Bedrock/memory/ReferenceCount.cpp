#include <Bedrock/memory/ReferenceCount.h>

namespace Zem
{

ReferenceCount::~ReferenceCount() = default;

void ReferenceCount::DeleteThis() const
{
    delete this;
}

} // namespace Zem
