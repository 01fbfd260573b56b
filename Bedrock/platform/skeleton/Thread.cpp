#include <Bedrock/platform/Thread.h>

#include <Bedrock/platform/SuspendGuard.h>

#include <cstdlib>

namespace Zem::Platform
{

constinit thread_local SuspendGuard::State SuspendGuard::mine __attribute__((tls_model("initial-exec"))) = {0, false};

void SuspendGuard::Stand() noexcept
{
}

void CloseThreads() noexcept
{
}

bool HasThreads() noexcept
{
    return false;
}

bool StartThread(unsigned (*)(void*), void*, bool, Waitable*& handle) noexcept
{
    handle = nullptr;
    return false;
}

void EndThread(std::uint32_t)
{
    std::abort();
}

bool SuspendThread(Waitable*) noexcept
{
    return false;
}

bool ResumeThread(Waitable*) noexcept
{
    return false;
}

bool SetThreadPriority(Waitable*, std::int32_t) noexcept
{
    return false;
}

std::int32_t ThreadPriority(const Waitable*) noexcept
{
    return noPriority;
}

bool NameThread(Waitable*, const char*) noexcept
{
    return false;
}

bool IsThreadAlive(const Waitable*) noexcept
{
    return false;
}

std::uint32_t ThreadExitCode(const Waitable*) noexcept
{
    return 0;
}

} // namespace Zem::Platform
