#pragma once

namespace Zem
{

/// The last word about data that could not be stored, where no exception may tell: a destructor that runs because of
/// another exception, a step that was taken back. Hidden.
///
/// Who loses data stands below the log, so the line is handed upwards to whoever is there to take it; until the log is,
/// it goes to standard error. Nothing here allocates, and what the taker cannot do he must not throw.
void ReportLoss(const char* format, ...) noexcept __attribute__((format(printf, 1, 2)));

/// Who takes the lines, terminated and without a line end; null: standard error.
void SetLossTaker(void (*taker)(const char* text)) noexcept;

/// Prints to standard error, for a taker that cannot help either.
void PrintLoss(const char* text) noexcept;

} // namespace Zem
