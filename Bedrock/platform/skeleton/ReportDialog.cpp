#include <Bedrock/platform/ReportDialog.h>

namespace Zem::Platform
{

void PrepareReport() noexcept
{
}

ReportAnswer ShowReport(const char*, std::size_t) noexcept
{
    return ReportAnswer::Terminate;
}

bool ShowMessage(MessageKind, const char*, const char*) noexcept
{
    return false;
}

void SetReportHelperForTest(const char*) noexcept
{
}

} // namespace Zem::Platform
