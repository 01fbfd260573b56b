#pragma once

#include <Bedrock/Export.h>
#include <Bedrock/host/Exception.h>

#include <cstdarg>
#include <cstdint>

namespace Zem
{

/// The report of one failure, from its first line to the user's answer.
///
/// It gathers the lines of the list in a buffer of its own and then has a program of its own show them (see
/// ReportLayout.h for what that does with them). Nothing here uses the heap or a lock. A report of more lines than the
/// buffer holds ends early, with a line that says so.
///
/// Whoever reports serialises the reports, and keeps the object in static storage: it is too large for the stack that
/// is left to a failed thread.
///
///     static constinit ReportDialog dialog;
///     dialog.Init(failure, LogReportLine, EndLog);
///     const int result = dialog.Show();
class ReportDialog
{
public:
    /// Gets each line as it is added to the list: terminated, without its end of line, never empty.
    using LineSink = void (*)(const char* line);

    constexpr ReportDialog() noexcept = default;
    ReportDialog(const ReportDialog&) = delete;
    ReportDialog& operator=(const ReportDialog&) = delete;

    /// Fills the empty list: rows for the file, the line, the class and the reason, then the description; calls
    /// `endLog` behind the last line. A file or a description that is not there, and a line of 0, have no row. What
    /// `log` or `endLog` throws ends the filling and goes to the caller; the lines so far stay.
    ///
    /// Between `Init` and the end of `Show` the list is in use. A failure that is reported then, as when the report of
    /// one fails itself, leaves it alone: its own `Show` has the one line on that problem, and nothing is logged.
    void Init(const Exception& failure, LineSink log, void (*endLog)());

    /// Adds a printed text of up to 8,191 characters, the rest is cut. It is a group: lines end at any mix of "\r" and
    /// "\n", and empty lines are left out; a line that is to stay visible as empty holds a blank.
    void LogLine(LineSink log, const char* format, ...) ZEM_PRINTF(3, 4);
    void VLogLine(LineSink log, const char* format, std::va_list args) ZEM_PRINTF(3, 0);

    /// Shows the report, waits for the answer and empties the list. Returns: 0 to continue, 1 to terminate.
    int Show() noexcept;

    /// Empties the list in place of `Show`, when the frame that filled it was abandoned.
    void Clear() noexcept;

    /// The report as it is handed on: lines ended by "\n", each group ended by an empty line. For tests.
    const char* Text() const noexcept { return list; }
    std::uint32_t Length() const noexcept { return used; }

    static constexpr std::uint32_t ListSize = 65536;

private:
    void AddText(char* cut, LineSink log);
    void AddLine(const char* line);
    void Append(const char* bytes, std::uint32_t count) noexcept;

    std::uint32_t inits = 0;   // `Init` without the end of its `Show`; above 1 a report within a report
    bool isFull = false;       // the list takes no more lines
    std::uint32_t used = 0;    // bytes of `list`
    char text[8192]{};         // the text in hand
    char list[ListSize + 1]{}; // terminated
};

} // namespace Zem
