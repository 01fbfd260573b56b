#include <Bedrock/host/ReportDialog.h>

#include <Bedrock/host/ReportLayout.h>
#include <Bedrock/platform/ReportDialog.h>
#include <Bedrock/platform/Text.h>

#include <cstring>

namespace Zem
{

namespace
{

constexpr char EarlyEnd[] = "The report is longer than the list.\n";

} // namespace

void ReportDialog::Init(const Exception& failure, LineSink log, void (*endLog)())
{
    if (++inits > 1)
        return;
    if (failure.File() && *failure.File())
        LogLine(log, "File: %s\r\n", failure.File());
    if (failure.Line() > 0)
        LogLine(log, "Line: %d\r\n", failure.Line());
    LogLine(log, "Class: %s\r\n", failure.Class());
    LogLine(log, "Reason: %s\r\n", failure.Reason());
    if (*failure.Description())
        LogLine(log, "%s", failure.Description());
    endLog();
}

void ReportDialog::LogLine(LineSink log, const char* format, ...)
{
    std::va_list args;
    va_start(args, format);
    VLogLine(log, format, args);
    va_end(args);
}

void ReportDialog::VLogLine(LineSink log, const char* format, std::va_list args)
{
    Platform::FormatBounded(text, format, args);
    AddText(text, log);
}

void ReportDialog::AddText(char* cut, LineSink log)
{
    constexpr const char* Ends = "\r\n";
    const std::uint32_t before = used;
    for (char* line = cut + std::strspn(cut, Ends); *line;)
    {
        char* end = line + std::strcspn(line, Ends);
        char* next = end + std::strspn(end, Ends);
        *end = '\0';
        log(line);
        AddLine(line);
        line = next;
    }
    if (used != before && !isFull)
        Append("\n", 1);
}

// The last bytes of the list are kept for the line that says that it is full.
void ReportDialog::AddLine(const char* line)
{
    const auto length = static_cast<std::uint32_t>(std::strlen(line));
    if (isFull)
        return;
    if (used + length + 2 > ListSize - (sizeof(EarlyEnd) - 1))
    {
        isFull = true;
        Append(EarlyEnd, sizeof(EarlyEnd) - 1);
        return;
    }
    Append(line, length);
    Append("\n", 1);
}

void ReportDialog::Append(const char* bytes, std::uint32_t count) noexcept
{
    std::memcpy(list + used, bytes, count);
    used += count;
    list[used] = '\0';
}

int ReportDialog::Show() noexcept
{
    if (inits > 1)
    {
        --inits;
        const auto length = static_cast<std::uint32_t>(std::strlen(ReportLayout::Problem));
        return static_cast<int>(Platform::ShowReport(ReportLayout::Problem, length));
    }
    const Platform::ReportAnswer answer = Platform::ShowReport(list, used);
    Clear();
    return static_cast<int>(answer);
}

void ReportDialog::Clear() noexcept
{
    inits = 0;
    isFull = false;
    used = 0;
    list[0] = '\0';
}

} // namespace Zem
