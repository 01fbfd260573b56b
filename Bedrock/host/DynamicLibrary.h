#pragma once

#include <Bedrock/Export.h>
#include <Bedrock/memory/HeapOperators.h>

#include <cstdint>

namespace Zem
{

/// A module of code that is loaded by name at run time.
///
/// Failures are told by the result and change nothing but what is said. A copy shares the module without owning a load
/// of its own: of the copies, only one may close it. Threads: an object belongs to one thread at a time.
///
///     DynamicLibrary plugin;
///     void (*run)() = nullptr;
///     if (plugin.Open("plugin.so") && plugin.Import(reinterpret_cast<void**>(&run), "Run"))
///         run();
class ZEM_API DynamicLibrary
{
    ZEM_HEAP_OPERATORS
public:
    DynamicLibrary() noexcept = default;
    DynamicLibrary(const DynamicLibrary&) noexcept = default;
    DynamicLibrary& operator=(const DynamicLibrary&) = delete; // would lose the module that is open here

    /// Closes what is open, then loads module `name` (searched as the platform does; a path is used as it stands).
    /// Returns: true if it is loaded. On false nothing is open.
    virtual bool Open(const char* name);

    /// Unloads the module, if any: addresses imported from it are dead then.
    virtual void Close();

    /// Stores the address of `symbol` in `*target`, null if the module lacks it or none is open.
    /// Returns: true if it was found.
    virtual bool Import(void** target, const char* symbol);

    /// Closes what is open, by the `Close` of this class.
    virtual ~DynamicLibrary();

private:
    std::intptr_t handle = 0; // the platform's module; 0 when none is open
};

} // namespace Zem
