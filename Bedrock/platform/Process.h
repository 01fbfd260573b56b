#pragma once

#include <cstddef>
#include <cstdint>

namespace Zem::Platform
{

/// The calling thread's number. Only the first call of a thread asks the system.
std::uint32_t CurrentThreadId() noexcept;

std::uint32_t ProcessId() noexcept;

/// Writes the path of the running program, cut to `capacity - 1` bytes, and a terminator. Empty if it is not known.
void ProgramPath(char* buffer, std::size_t capacity) noexcept;

/// A variable of the environment, or null if it is not set. A process with raised privileges sees none: whoever started
/// it chose them. The text is good until the variable is changed.
const char* Environment(const char* name) noexcept;

/// True if that process runs; one that has ended and is not yet collected by its parent does not run.
bool IsProcessAlive(std::uint32_t processId) noexcept;

} // namespace Zem::Platform
