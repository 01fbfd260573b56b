#include <Bedrock/platform/Debug.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

namespace Zem::Platform
{

namespace
{

constexpr int Unknown = -2; // the setting has not been read yet
constexpr int Nowhere = -1;

constinit std::atomic<void (*)(const char*)> testSink{nullptr};
constinit std::atomic<int> userFile{Unknown};    // where BEDROCK_DEBUG_OUTPUT sends the texts
constinit std::atomic<bool> isTraced{false};     // as seen at `tracedAt`
constinit std::atomic<std::int64_t> tracedAt{0}; // second of the coarse clock, 0: never

int OpenUserFile()
{
    const char* setting = secure_getenv("BEDROCK_DEBUG_OUTPUT");
    if (!setting || !*setting)
        return Nowhere;
    if (std::strcmp(setting, "1") == 0 || std::strcmp(setting, "stderr") == 0)
        return STDERR_FILENO;
    return open(setting, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY, 0666);
}

int UserFile()
{
    int file = userFile.load(std::memory_order_acquire);
    if (file != Unknown)
        return file;
    const int opened = OpenUserFile();
    if (userFile.compare_exchange_strong(file, opened))
        return opened;
    if (opened > STDERR_FILENO)
        close(opened); // another thread was first
    return file;
}

bool AskForTracer()
{
    const int file = open("/proc/self/status", O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return false;
    char text[4096];
    const ssize_t length = read(file, text, sizeof(text) - 1);
    close(file);
    text[length > 0 ? length : 0] = '\0';
    const char* line = std::strstr(text, "\nTracerPid:");
    return line && std::strtol(line + std::strlen("\nTracerPid:"), nullptr, 10) != 0;
}

// A read of the process's status costs 8 us, so its answer holds for about a second, of a clock that costs next to
// nothing: every line of the log comes by.
bool IsTraced()
{
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &time);
    const std::int64_t now = time.tv_sec + std::int64_t{1}; // never 0
    const std::int64_t then = tracedAt.load(std::memory_order_relaxed);
    if (now != then)
    {
        isTraced.store(AskForTracer(), std::memory_order_relaxed);
        tracedAt.store(now, std::memory_order_relaxed);
    }
    return isTraced.load(std::memory_order_relaxed);
}

void WriteAll(int file, const char* text, std::size_t size)
{
    while (size > 0)
    {
        const ssize_t written = write(file, text, size);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return; // nobody is there to be told
        text += written;
        size -= static_cast<std::size_t>(written);
    }
}

// Asks the kernel to copy one byte of each page of [address, address + size). A byte that cannot be read ends the copy.
enum class Answer
{
    Readable,
    Unreadable,
    Refused // the system does not answer such questions
};

Answer AskByCopy(std::uintptr_t address, std::uintptr_t last, std::uintptr_t page)
{
    constexpr int Batch = 256;
    char sink[Batch];
    iovec parts[Batch];
    const pid_t self = getpid();
    for (bool more = true; more;)
    {
        int count = 0;
        for (; count < Batch && more; ++count)
        {
            parts[count] = {reinterpret_cast<void*>(address), 1};
            more = (address & ~(page - 1)) != (last & ~(page - 1)); // this is not the last page
            address = (address & ~(page - 1)) + page;
        }
        iovec target = {sink, static_cast<std::size_t>(count)};
        const ssize_t copied = process_vm_readv(self, &target, 1, parts, static_cast<unsigned long>(count), 0);
        if (copied < 0 && errno != EFAULT)
            return Answer::Refused;
        if (copied != count)
            return Answer::Unreadable;
    }
    return Answer::Readable;
}

// The same by a pipe: writing an unreadable byte fails instead of faulting.
bool AskByPipe(std::uintptr_t address, std::uintptr_t last, std::uintptr_t page)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0)
        return false;
    bool readable = true;
    for (bool more = true; more && readable;)
    {
        char sink;
        readable = write(ends[1], reinterpret_cast<void*>(address), 1) == 1 && read(ends[0], &sink, 1) == 1;
        more = (address & ~(page - 1)) != (last & ~(page - 1));
        address = (address & ~(page - 1)) + page;
    }
    close(ends[0]);
    close(ends[1]);
    return readable;
}

} // namespace

void WriteDebugOutput(const char* text) noexcept
{
    if (const auto sink = testSink.load(std::memory_order_acquire))
        return sink(text);
    const int saved = errno;
    int file = UserFile();
    if (file < 0 && IsTraced())
        file = STDERR_FILENO;
    if (file >= 0)
        WriteAll(file, text, std::strlen(text));
    errno = saved;
}

void SetDebugSinkForTest(void (*sink)(const char* text)) noexcept
{
    testSink.store(sink, std::memory_order_release);
}

bool IsReadable(const void* address, std::size_t size) noexcept
{
    if (size == 0)
        return true;
    const auto first = reinterpret_cast<std::uintptr_t>(address);
    const std::uintptr_t last = first + (size - 1);
    if (last < first)
        return false;
    const int saved = errno;
    const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    const Answer answer = AskByCopy(first, last, page);
    const bool readable = answer == Answer::Readable || (answer == Answer::Refused && AskByPipe(first, last, page));
    errno = saved;
    return readable;
}

} // namespace Zem::Platform
