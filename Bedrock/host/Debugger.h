#pragma once

#include <Bedrock/Export.h>

#include <cstdint>

namespace Zem
{

/// What a debugger that watches the process can be told or asked. All members may be called from any thread.
class ZEM_API Debugger
{
public:
    /// Hands `text` to the debugger. Without one the text is dropped, unless BEDROCK_DEBUG_OUTPUT is set: to "1" or
    /// "stderr", or to the name of a file that texts are appended to.
    static void Output(const char* text) noexcept;

    /// True if `size` bytes can be read at `address`; nothing is touched by the question. Of 0 bytes always true.
    /// Another thread may unmap the bytes the moment after.
    static bool IsReadValid(const void* address, std::uint32_t size) noexcept;

    /// The place for a stop in a debugger; does nothing.
    static void Break() noexcept;
};

} // namespace Zem
