#include <Bedrock/platform/Process.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Zem::Platform
{

namespace
{

constinit thread_local std::uint32_t threadId __attribute__((tls_model("initial-exec"))) = 0; // 0: not asked yet
constinit std::atomic<bool> forkHandler{false};

// A forked child goes on in a copy of the calling thread, which has a number of its own.
void ForgetThreadId()
{
    threadId = 0;
}

// The answer of a system that has no process descriptors: the state letter behind the name in /proc/<id>/stat.
bool IsAliveByStat(pid_t id)
{
    if (kill(id, 0) != 0 && errno != EPERM)
        return false;
    char path[32];
    std::snprintf(path, sizeof(path), "/proc/%d/stat", static_cast<int>(id));
    const int file = open(path, O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return true;
    char text[256];
    const ssize_t length = read(file, text, sizeof(text) - 1);
    close(file);
    text[length > 0 ? length : 0] = '\0';
    const char* name = std::strrchr(text, ')');
    return !name || name[1] != ' ' || (name[2] != 'Z' && name[2] != 'X');
}

} // namespace

std::uint32_t CurrentThreadId() noexcept
{
    if (threadId == 0)
    {
        if (!forkHandler.exchange(true))
            pthread_atfork(nullptr, nullptr, ForgetThreadId);
        threadId = static_cast<std::uint32_t>(syscall(SYS_gettid));
    }
    return threadId;
}

std::uint32_t ProcessId() noexcept
{
    return static_cast<std::uint32_t>(getpid());
}

void ProgramPath(char* buffer, std::size_t capacity) noexcept
{
    const ssize_t length = readlink("/proc/self/exe", buffer, capacity - 1);
    buffer[length > 0 ? length : 0] = '\0';
}

const char* Environment(const char* name) noexcept
{
    return secure_getenv(name);
}

bool IsProcessAlive(std::uint32_t processId) noexcept
{
    if (processId == 0 || processId > INT_MAX)
        return false;
    const auto id = static_cast<pid_t>(processId);
    const int process = static_cast<int>(syscall(SYS_pidfd_open, id, 0));
    if (process < 0)
        return errno == ESRCH || errno == EINVAL ? false : IsAliveByStat(id);
    pollfd ended = {process, POLLIN, 0}; // readable once the process has ended
    int ready;
    while ((ready = poll(&ended, 1, 0)) < 0 && errno == EINTR)
    {
    }
    close(process);
    return ready == 0;
}

} // namespace Zem::Platform
