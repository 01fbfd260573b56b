#include <Bedrock/platform/Pause.h>

#include <sched.h>
#include <time.h>

namespace Zem::Platform
{

void PauseTurn(unsigned turn) noexcept
{
    constexpr unsigned spins = 200;
    constexpr unsigned yields = 50;
    if (turn < spins)
        asm volatile("pause");
    else if (turn < spins + yields)
        sched_yield();
    else
    {
        const timespec rest = {0, 50'000};
        nanosleep(&rest, nullptr);
    }
}

} // namespace Zem::Platform
