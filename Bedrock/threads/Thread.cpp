#include <Bedrock/threads/Thread.h>

#include <Bedrock/host/ExceptionHandler.h>
#include <Bedrock/platform/Process.h>
#include <Bedrock/platform/Thread.h>

namespace Zem
{

Thread::Thread(Function body, void* given, bool startNow) noexcept : isTerminated(true), function(body), argument(given)
{
    // The body may use the object: the handle is there before it runs.
    static_assert(sizeof(Platform::Waitable*) == sizeof(void*));
    Platform::StartThread(Start, this, !startNow, reinterpret_cast<Platform::Waitable*&>(handle));
}

Thread::~Thread()
{
    if (isTerminated)
        Terminate();
}

std::uint32_t Thread::Terminate() noexcept
{
    if (!handle)
        return 0xFFFFFFFF;
    quit.Set();
    Lock(Forever);
    return Platform::ThreadExitCode(static_cast<Platform::Waitable*>(handle));
}

void Thread::End(std::uint32_t exitCode)
{
    Platform::EndThread(exitCode);
}

bool Thread::IsDone() noexcept
{
    return !quit.IsLocked();
}

bool Thread::SetPriority(Priority priority) noexcept
{
    return Platform::SetThreadPriority(static_cast<Platform::Waitable*>(handle), priority);
}

Thread::Priority Thread::GetPriority() const noexcept
{
    static_assert(Platform::noPriority == PriorityUnknown);
    return static_cast<Priority>(Platform::ThreadPriority(static_cast<Platform::Waitable*>(handle)));
}

bool Thread::SetName(const char* name) noexcept
{
    return Platform::NameThread(static_cast<Platform::Waitable*>(handle), name);
}

bool Thread::IsAlive() const noexcept
{
    return Platform::IsThreadAlive(static_cast<Platform::Waitable*>(handle));
}

bool Thread::Suspend() noexcept
{
    return Platform::SuspendThread(static_cast<Platform::Waitable*>(handle));
}

bool Thread::Resume() noexcept
{
    return Platform::ResumeThread(static_cast<Platform::Waitable*>(handle));
}

Thread::operator void*() noexcept
{
    return quit;
}

unsigned int Thread::Start(void* thread)
{
    return static_cast<unsigned int>(ExceptionHandler::Main(SafeStart, thread));
}

int Thread::SafeStart(void* data)
{
    auto& thread = *static_cast<Thread*>(data);
    return static_cast<int>(thread.function(thread.argument));
}

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
