#pragma once

#include <cstddef>

namespace Zem::Platform
{

/// Hands a text to the debugger that is attached or to where the user has debug output sent; otherwise drops it. One
/// call is one piece of output: the texts of several threads do not mix.
void WriteDebugOutput(const char* text) noexcept;

/// Sends debug output to `sink` instead; null ends that.
void SetDebugSinkForTest(void (*sink)(const char* text)) noexcept;

/// True if every byte can be read. Neither faults nor takes a lock.
bool IsReadable(const void* address, std::size_t size) noexcept;

} // namespace Zem::Platform
