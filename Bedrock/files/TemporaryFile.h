#pragma once

#include <Bedrock/platform/Files.h>

#include <cstddef>

namespace Zem
{

/// Names of temporary files: "%08X.T%02X" of the process's number and a counter of the process that wraps at 256.
struct TemporaryFile
{
    static constexpr std::size_t nameSize = 13; // terminator included

    /// Makes an empty hidden file of the next free such name, exclusively, open for reading and writing, and stores the
    /// name. It lies in the current folder, or beside `neighbour` if that is given; `capacity` bytes are at `name`.
    static Platform::Status Make(Platform::FileHandle& out, char* name, std::size_t capacity,
                                 const char* neighbour = nullptr) noexcept;
};

} // namespace Zem
