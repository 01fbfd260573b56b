#pragma once

#include <cstddef>

/// The report of a fatal error, shown by a program of its own while the broken process waits.
///
/// Nothing here allocates, takes a lock of this process or runs code of the application: the calls are good on a thread
/// that has just faulted inside the heap, on a small signal stack, and with no file descriptor left. Texts are bytes.
///
/// The dialog is the executable `bedrock-report`. It is looked for where the library is installed, then beside the
/// library; BEDROCK_REPORT_HELPER, if set when the library is loaded, names another one. It gets the report as its
/// standard input and answers by a byte, '0' to continue and '1' to terminate, on the descriptor that its option
/// `--answer-fd` names; its exit code 0 or 1 serves where no byte comes.
namespace Zem::Platform
{

/// Finds the executable; called once, while the library is attached, since names may change their meaning later.
void PrepareReport() noexcept;

enum class ReportAnswer
{
    Continue = 0,
    Terminate = 1,
};

/// Shows a report and waits for the user's answer.
///
/// `report` holds lines, each ended by "\n"; an empty line ends a group of lines (see ReportDialog.h of the host).
///
/// BEDROCK_REPORT set to "continue" or "terminate" answers at once, and the report goes to standard error. So it does
/// when there is no display or the dialog cannot be had; the question is then asked on the terminal if the process
/// stands in front of one, and otherwise the answer is `Terminate`.
ReportAnswer ShowReport(const char* report, std::size_t size) noexcept;

/// What a message box shows beside its text.
enum class MessageKind
{
    Error,   // the icon of an error, one button
    Plain,   // one button
    Confirm, // "Yes" and "No"
};

/// Shows a message and waits until it is put away. Both texts are terminated and not null. Without a dialog it is
/// handled as a report is. Returns: true for "Yes" and for the one button; false for "No", for a question that nobody
/// can answer, and under BEDROCK_REPORT=terminate.
bool ShowMessage(MessageKind kind, const char* title, const char* text) noexcept;

/// Names another executable, as an absolute path; null for none.
void SetReportHelperForTest(const char* path) noexcept;

} // namespace Zem::Platform
