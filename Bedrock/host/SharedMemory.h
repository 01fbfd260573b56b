#pragma once

#include <Bedrock/Export.h>

#include <cstdint>

namespace Zem
{

/// A block of memory that processes of one user share by its name; all zeros when the first of them attaches.
///
/// The block lives as long as anybody is attached; a process that dies is detached by the system, and the next one that
/// attaches alone starts with zeros again. A null name makes a block that nobody else can find. The name is kept by
/// pointer and must outlive the object. A child of `fork` that does not run a new program keeps the block alive.
/// Threads: an object belongs to one thread at a time; nothing orders accesses to the bytes.
///
///     SharedMemory block("Telemetry", 4096);
///     if (block.ProcessAttach())
///         std::memcpy(block.Data(), &sample, sizeof(sample));
class ZEM_API SharedMemory
{
public:
    /// Stores both; nothing is attached yet. `size` is in bytes.
    SharedMemory(const char* name, std::uint32_t size) noexcept;
    /// Detaches.
    ~SharedMemory();
    SharedMemory(const SharedMemory&) = delete;
    SharedMemory& operator=(const SharedMemory&) = delete;

    /// Makes or opens the block and maps it.
    /// Returns: false if either fails: size 0, no room, an existing block that is smaller; also while attached already.
    bool ProcessAttach() noexcept;

    /// Unmaps and closes the block; true also if nothing was attached. On false, what could not be released stays.
    bool ProcessDetach() noexcept;

    /// The bytes; null while not attached. At the same offset all processes see the same bytes.
    void* Data() const noexcept { return data; }

private:
    void* data;
    const char* name;
    std::uint32_t size;
    std::intptr_t mapping; // the platform's block; 0 when none is open
};

} // namespace Zem
