#include <Bedrock/platform/ReportDialog.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Zem::Platform
{

namespace
{

constexpr int AnswerFd = 3; // in the dialog's process

constinit char helperPath[PATH_MAX]{}; // of the executable; empty: there is none
constinit bool isHelperNamed = false;  // by the user, who then knows whether it needs a display

bool IsExecutable(const char* path)
{
    return access(path, X_OK) == 0;
}

// The path of `name` beside or relative to the file `module`, if it can be executed there.
bool FindFrom(const char* module, const char* name)
{
    const char* slash = std::strrchr(module, '/');
    if (!slash)
        return false;
    char path[PATH_MAX];
    const int length = std::snprintf(path, sizeof(path), "%.*s/%s", static_cast<int>(slash - module), module, name);
    return length > 0 && static_cast<std::size_t>(length) < sizeof(path) && IsExecutable(path) &&
           realpath(path, helperPath);
}

// ------------------------------------------------------------------------------------------------- starting a dialog

struct Blocked
{
    Blocked() noexcept
    {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before);
    }
    ~Blocked() { pthread_sigmask(SIG_SETMASK, &before, nullptr); }
    Blocked(const Blocked&) = delete;
    Blocked& operator=(const Blocked&) = delete;

    sigset_t before;
};

// What follows up to `Reap` runs in the child, in the parent's memory, while the parent's thread stands still: it calls
// the kernel and nothing else, and leaves no object behind. Sanitizers would note its stack in the parent's books.
#define ZEM_UNWATCHED __attribute__((no_sanitize("address", "thread", "undefined")))

struct Start
{
    const char* const* arguments;
    const char* report;
    std::size_t size;
    int answer; // the pipe's writing end, or -1
};

constexpr std::size_t ChildStackSize = 16384;
alignas(64) constinit char childStack[ChildStackSize]{};
constinit std::atomic<bool> isStackInUse{false};

ZEM_UNWATCHED void ResetSignals()
{
    for (int number = 1; number < NSIG; ++number)
    {
        struct sigaction action;
        if (sigaction(number, nullptr, &action) != 0 ||
            (action.sa_handler == SIG_IGN && number != SIGCHLD && number != SIGPIPE))
            continue;
        action = {};
        action.sa_handler = SIG_DFL;
        sigaction(number, &action, nullptr);
    }
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
}

ZEM_UNWATCHED int BecomeHelper(void* data)
{
    const Start& start = *static_cast<const Start*>(data);
    const int answer = start.answer;
    // Everything but the standard descriptors is closed first: the process may have none left for the report.
    if (answer >= 0 && answer != AnswerFd)
        dup2(answer, AnswerFd);
    else if (answer == AnswerFd)
        fcntl(AnswerFd, F_SETFD, 0);
    syscall(SYS_close_range, answer >= 0 ? AnswerFd + 1u : unsigned{AnswerFd}, ~0u, 0u);

    const int input = static_cast<int>(syscall(SYS_memfd_create, "report", 0u));
    if (input < 0)
        return 127;
    for (std::size_t done = 0; done < start.size;)
    {
        const ssize_t written = write(input, start.report + done, start.size - done);
        if (written <= 0)
            return 127;
        done += static_cast<std::size_t>(written);
    }
    lseek(input, 0, SEEK_SET);
    if (input != STDIN_FILENO)
    {
        dup2(input, STDIN_FILENO);
        close(input);
    }
    // A display's connection must not become the standard error that something prints to.
    for (int fd = STDOUT_FILENO; fd <= STDERR_FILENO; ++fd)
    {
        if (fcntl(fd, F_GETFD) == 0)
            continue;
        const int nowhere = open("/dev/null", O_RDWR);
        if (nowhere >= 0 && nowhere != fd)
        {
            dup2(nowhere, fd);
            close(nowhere);
        }
    }
    ResetSignals();
    execve(start.arguments[0], const_cast<char* const*>(start.arguments), environ);
    return 127; // as its exit code
}

// Not fork, whose handlers take the heap's locks, and this thread may hold them; the child's stack is its own, since
// AddressSanitizer cannot follow vfork on a stack for signals.
pid_t StartHelper(Start& start)
{
    while (isStackInUse.exchange(true, std::memory_order_acquire))
        sched_yield(); // for the time that another thread takes to start its own
    pid_t child;
    {
        const Blocked blocked;
        child = clone(BecomeHelper, childStack + ChildStackSize, CLONE_VM | CLONE_VFORK | SIGCHLD, &start);
    }
    isStackInUse.store(false, std::memory_order_release);
    return child;
}

int Reap(pid_t child)
{
    int status = 0;
    pid_t reaped;
    do
    {
        reaped = waitpid(child, &status, 0);
    } while (reaped < 0 && errno == EINTR);
    return reaped == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Runs the dialog. Returns: 0 or 1, its answer; -1 if there is none.
int Ask(const char* const* arguments, const char* report, std::size_t size)
{
    int ends[2] = {-1, -1}; // without a pipe the exit code alone must do
    if (pipe2(ends, O_CLOEXEC) != 0)
        ends[0] = ends[1] = -1;

    Start start = {arguments, report, size, ends[1]};
    const pid_t child = StartHelper(start);
    char answer = 0;
    if (ends[1] >= 0)
    {
        close(ends[1]);
        while (child > 0 && read(ends[0], &answer, 1) < 0 && errno == EINTR)
        {
        }
        close(ends[0]);
    }
    if (child < 0)
        return -1;
    // An application that ignores SIGCHLD, or collects all children by itself, takes the exit code from us.
    const int code = Reap(child);
    if (answer == '0' || answer == '1')
        return answer - '0';
    return code == 0 || code == 1 ? code : -1;
}

// ------------------------------------------------------------------------------------------------ without a dialog

// Writes to standard error; a pipe that nobody reads any more must not end the process, nor a full one stop it.
void WriteError(const char* text, std::size_t size)
{
    sigset_t pipe, before, pending;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    sigpending(&pending);
    pthread_sigmask(SIG_BLOCK, &pipe, &before);
    while (size > 0)
    {
        const ssize_t written = write(STDERR_FILENO, text, size);
        if (written > 0)
        {
            text += written;
            size -= static_cast<std::size_t>(written);
            continue;
        }
        pollfd wait = {STDERR_FILENO, POLLOUT, 0};
        if (written < 0 && (errno == EINTR || (errno == EAGAIN && poll(&wait, 1, 1000) > 0)))
            continue;
        if (written < 0 && errno == EPIPE && !sigismember(&pending, SIGPIPE))
        {
            const timespec now = {0, 0};
            sigtimedwait(&pipe, nullptr, &now);
        }
        break;
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

void WriteError(const char* text)
{
    WriteError(text, std::strlen(text));
}

// The lines without the marks between groups. Control characters, which could drive a terminal, become '?'.
void PrintLines(const char* text, std::size_t size)
{
    char part[512];
    std::size_t used = 0;
    bool atStart = true;
    for (std::size_t i = 0; i < size; ++i)
    {
        const char c = text[i];
        if (c != '\n' || !atStart)
            part[used++] = (static_cast<unsigned char>(c) < ' ' && c != '\n' && c != '\t') || c == 0x7F ? '?' : c;
        atStart = c == '\n';
        if (used == sizeof(part))
        {
            WriteError(part, used);
            used = 0;
        }
    }
    if (!atStart && used < sizeof(part))
        part[used++] = '\n';
    WriteError(part, used);
}

bool HasTerminal()
{
    return isatty(STDIN_FILENO) && isatty(STDERR_FILENO) && tcgetpgrp(STDIN_FILENO) == getpgrp();
}

// Asks until a line begins with one of the two letters. Returns: true for `yes`; false for `no` and where nobody answers.
bool AskTerminal(const char* question, char yes, char no)
{
    for (;;)
    {
        WriteError(question);
        char first = 0;
        for (char c = 0; c != '\n' && c != '\r';)
        {
            const ssize_t count = read(STDIN_FILENO, &c, 1);
            if (count < 0 && errno == EINTR)
                continue;
            if (count <= 0)
            {
                WriteError("\n");
                return false;
            }
            if (!first && c != ' ')
                first = static_cast<char>(c | 0x20);
        }
        if (first == yes || first == no)
            return first == yes;
    }
}

enum class Preset
{
    None,
    Continue,
    Terminate,
};

Preset PresetAnswer()
{
    const char* setting = secure_getenv("BEDROCK_REPORT");
    if (setting && std::strcmp(setting, "continue") == 0)
        return Preset::Continue;
    if (setting && std::strcmp(setting, "terminate") == 0)
        return Preset::Terminate;
    return Preset::None;
}

bool HasDialog()
{
    if (!helperPath[0])
        return false;
    const char* display = std::getenv("DISPLAY");
    return isHelperNamed || (display && *display);
}

} // namespace

void PrepareReport() noexcept
{
    const int saved = errno;
    helperPath[0] = '\0';
    const char* named = secure_getenv("BEDROCK_REPORT_HELPER");
    isHelperNamed = named && *named;
    Dl_info self;
    char module[PATH_MAX];
    if (isHelperNamed)
    {
        // A name that leads nowhere stays as it is: the report then goes to standard error, not to another dialog.
        if (!realpath(named, helperPath) && std::strlen(named) < sizeof(helperPath))
            std::strcpy(helperPath, named);
    }
    else if (dladdr(helperPath, &self) && realpath(self.dli_fname, module))
    {
        if (!FindFrom(module, BEDROCK_LIBRARY_TO_LIBEXEC "/bedrock-report"))
            FindFrom(module, "bedrock-report");
    }
    errno = saved;
}

ReportAnswer ShowReport(const char* report, std::size_t size) noexcept
{
    const int saved = errno;
    const Preset preset = PresetAnswer();
    int answer = -1;
    if (preset == Preset::None && HasDialog())
    {
        const char* const arguments[] = {helperPath, "--answer-fd", "3", nullptr};
        answer = Ask(arguments, report, size);
    }
    if (answer < 0)
    {
        WriteError("Fatal Error: A fatal error has occured.\n");
        PrintLines(report, size);
        if (preset != Preset::None)
            answer = preset == Preset::Continue ? 0 : 1;
        else
            answer = HasTerminal() && AskTerminal("Continue or terminate? [c/t] ", 'c', 't') ? 0 : 1;
    }
    errno = saved;
    return answer == 0 ? ReportAnswer::Continue : ReportAnswer::Terminate;
}

bool ShowMessage(MessageKind kind, const char* title, const char* text) noexcept
{
    const int saved = errno;
    const Preset preset = PresetAnswer();
    int answer = -1;
    if (preset == Preset::None && HasDialog())
    {
        const char* const option = kind == MessageKind::Error   ? "--error"
                                   : kind == MessageKind::Plain ? "--message"
                                                                : "--confirm";
        const char* const arguments[] = {helperPath, "--answer-fd", "3", option, title, nullptr};
        answer = Ask(arguments, text, std::strlen(text));
    }
    if (answer < 0)
    {
        WriteError(title);
        WriteError(": ");
        PrintLines(text, std::strlen(text));
        if (kind != MessageKind::Confirm || preset != Preset::None)
            answer = preset == Preset::Terminate ? 1 : 0;
        else
            answer = HasTerminal() && AskTerminal("Yes or no? [y/n] ", 'y', 'n') ? 0 : 1;
    }
    errno = saved;
    return answer == 0;
}

void SetReportHelperForTest(const char* path) noexcept
{
    helperPath[0] = '\0';
    isHelperNamed = path != nullptr;
    if (path && std::strlen(path) < sizeof(helperPath))
        std::strcpy(helperPath, path);
}

} // namespace Zem::Platform
