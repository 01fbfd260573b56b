#include <Bedrock/threads/Thread.h>

#include <Bedrock/platform/Process.h>

namespace Zem
{

std::uint32_t Thread::GetCurrentId() noexcept
{
    return Platform::CurrentThreadId();
}

std::uint32_t Thread::GetProcessId() noexcept
{
    return Platform::ProcessId();
}

void Thread::GetProcessName(char* buffer) noexcept
{
    Platform::ProgramPath(buffer, 256);
}

bool Thread::IsProcessAlive(std::uint32_t processId) noexcept
{
    return Platform::IsProcessAlive(processId);
}

} // namespace Zem
