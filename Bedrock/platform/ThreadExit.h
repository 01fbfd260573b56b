#pragma once

/// One call at the end of every thread that asked for it, after the destructors of its thread-local objects.
///
/// A plain `thread_local` with a destructor would keep a loaded library in memory until the last such thread has ended;
/// this hook is taken back by `CloseThreadExit`, so the library can be unloaded.
namespace Zem::Platform
{

/// Opens the hook for the process; `call` gets what the thread gave to `SetThreadExit`. False when the system has no
/// more of these, or it is open already.
bool OpenThreadExit(void (*call)(void*)) noexcept;

/// Asks for the call at the end of the calling thread; null takes it back. False when the hook is closed.
bool SetThreadExit(void* value) noexcept;

/// No thread that ends later is called for.
void CloseThreadExit() noexcept;

} // namespace Zem::Platform
