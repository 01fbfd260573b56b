#pragma once

#include <cstdint>

/// Loaded modules of code. Names are terminated and not null.
namespace Zem::Platform
{

/// A loaded module; 0 is none.
struct ModuleHandle
{
    std::intptr_t value;
};

/// Loads a module, or counts one more user if it is loaded; 0 if that fails. All its references are bound at once, so
/// that a missing one is known here.
ModuleHandle OpenModule(const char* name) noexcept;

/// Takes back one `OpenModule`; the last one unloads.
void CloseModule(ModuleHandle module) noexcept;

/// The address of an exported symbol, null if there is none.
void* FindSymbol(ModuleHandle module, const char* symbol) noexcept;

/// The module whose code or data lies at `address`, without counting a user; 0 if none does. The value names the module
/// as long as it is loaded and is no argument for `CloseModule`.
ModuleHandle ModuleAt(const void* address) noexcept;

} // namespace Zem::Platform
