#pragma once

#include <Bedrock/Export.h>

#include <cstdint>

namespace Zem
{

/// What a thread can ask about itself and its process. Every member may be called from any thread, also from threads
/// that the library did not make.
class ZEM_API Thread
{
public:
    /// The number of the calling thread, which no other living thread of the system has.
    static std::uint32_t GetCurrentId() noexcept;
    /// The number of the process.
    static std::uint32_t GetProcessId() noexcept;

    /// Writes the file name of the process's program, whole path and terminator, into `buffer` of 256 bytes; a longer
    /// one is cut. Empty if the system does not tell.
    static void GetProcessName(char* buffer) noexcept;

    /// True while that process runs; false for one that has ended, even if its parent has not asked for its end yet.
    static bool IsProcessAlive(std::uint32_t processId) noexcept;
};

} // namespace Zem
