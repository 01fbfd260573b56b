#pragma once

#include <cstdint>

/// Memory shared between processes by name. Blocks of different users never meet.
namespace Zem::Platform
{

/// An open block; 0 is none.
struct SharedBlockHandle
{
    std::intptr_t value;
};

/// Opens the block `name`, or makes it with `size` bytes of zeros if no living process has it open; 0 if that fails, if
/// `size` is 0, or if the existing block is smaller. Null makes a block without a name. Any other text is a name.
SharedBlockHandle OpenSharedBlock(const char* name, std::uint32_t size) noexcept;

/// Closes one opening of the block `name`; the block goes with the last one of all processes. False if that fails, and
/// the handle is open still.
bool CloseSharedBlock(SharedBlockHandle block, const char* name) noexcept;

/// Maps the first `size` bytes, to read and write; null if that fails. A mapping does not need its handle, but a block
/// whose last handle closes is no longer found by its name.
void* MapSharedBlock(SharedBlockHandle block, std::uint32_t size) noexcept;

/// Takes back a mapping; false if there is none there.
bool UnmapSharedBlock(void* data, std::uint32_t size) noexcept;

} // namespace Zem::Platform
