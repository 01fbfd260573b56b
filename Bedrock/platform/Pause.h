#pragma once

namespace Zem::Platform
{

/// One turn of waiting for a lock that is held for a few instructions: `turn` counts from 0. The first turns only ease
/// the processor, then the thread lets others run, then it sleeps for 50 microseconds a turn.
void PauseTurn(unsigned turn) noexcept;

} // namespace Zem::Platform
