#pragma once

#include <cstdint>

namespace Zem::Platform
{

/// Bounds of what a pointer of a process can hold on this platform, for cheap sanity tests.
constexpr std::uintptr_t lowestAddress = 0x10000;
constexpr std::uintptr_t highestAddress =
    sizeof(void*) == 8 ? static_cast<std::uintptr_t>(0x7FFFFFFFFFFFu) : static_cast<std::uintptr_t>(0xFFFFE000u);

/// Stops in the debugger; without one the process gets the platform's breakpoint failure. Goes on when told to.
void BreakpointTrap() noexcept;

} // namespace Zem::Platform
