// Faults of the processor arrive as signals. The handlers are there while any thread is within a protected or guarded
// call; whoever handled these signals before gets what no frame wants.

#include <Bedrock/platform/Lock.h>
#include <Bedrock/platform/posix/FaultFrame.h>
#include <Bedrock/platform/posix/ThreadIdentity.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Zem::Platform
{

namespace
{

constexpr int signals[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT};
constexpr int signalCount = sizeof(signals) / sizeof(signals[0]);

constinit Lock installLock;
constinit std::uint32_t users = 0;                     // threads within an outermost frame; guarded by installLock
constinit struct sigaction previous[signalCount] = {}; // who had the signals before
constinit std::atomic<bool> isClosed{false};

// Somebody's handler that was put over ours and was still there when ours was to go. It may call ours, so ours stays
// where it is then, and does not go on top of it again: the two would call each other without end.
constinit struct sigaction above[signalCount] = {};

bool IsHandler(const struct sigaction& action)
{
    return (action.sa_flags & SA_SIGINFO) || (action.sa_handler != SIG_DFL && action.sa_handler != SIG_IGN);
}

int IndexOf(int number)
{
    int i = 0;
    while (signals[i] != number)
        ++i;
    return i;
}

void Queue(int number, const siginfo_t& info)
{
    // Blocked here, so that it waits for the return from the handler, which brings back the mask of before.
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, number);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    siginfo_t copy = info;
    syscall(SYS_rt_tgsigqueueinfo, getpid(), syscall(SYS_gettid), number, &copy);
}

// A fault comes again when its instruction is tried again. A signal that somebody sent does not, and neither do traps,
// which arrive behind their instruction.
bool ComesAgain(const siginfo_t& info, const ucontext_t& context)
{
    const auto trap = context.uc_mcontext.gregs[REG_TRAPNO];
    return info.si_code > 0 && trap != 1 && trap != 3 && trap != 4;
}

void PassOn(int number, siginfo_t& info, ucontext_t& context)
{
    const struct sigaction& before = previous[IndexOf(number)];
    if (!IsHandler(before))
    {
        if (before.sa_handler == SIG_IGN && info.si_code <= 0)
            return; // sent, and not wanted
        struct sigaction none = {};
        none.sa_handler = SIG_DFL;
        sigaction(number, &none, nullptr);
        if (!ComesAgain(info, context))
            Queue(number, info);
        return;
    }
    pthread_sigmask(SIG_BLOCK, &before.sa_mask, nullptr);
    if (before.sa_flags & SA_SIGINFO)
        before.sa_sigaction(number, &info, &context);
    else
        before.sa_handler(number);
}

bool IsFault(int number, const siginfo_t& info)
{
    // abort() sends its signal to its own thread.
    if (number == SIGABRT)
        return info.si_code == SI_TKILL && info.si_pid == getpid();
    return info.si_code > 0;
}

void OnSignal(int number, siginfo_t* info, void* data)
{
#if defined(__x86_64__)
    // The program may have alignment checks on, under which the code here would fault.
    __builtin_ia32_writeeflags_u64(__builtin_ia32_readeflags_u64() & ~0x40000ULL);
#else
    __builtin_ia32_writeeflags_u32(__builtin_ia32_readeflags_u32() & ~0x40000U);
#endif
    const int saved = errno;
    auto& context = *static_cast<ucontext_t*>(data);
    FaultFrame* frame = InnermostFrame();
    if (frame && IsFault(number, *info) && !isClosed.load(std::memory_order_relaxed))
    {
        if (!frame->filter)
            frame->Jump();
        Fault fault;
        DescribeSignal(fault, number, *info, context);
        for (; frame; frame = frame->outer)
        {
            if (!frame->filter)
                frame->Jump();
            // A filter that fails itself is not asked about it. Nor is one that has let a thrown object go on, when
            // nobody wanted that and the process ends.
            if (frame->isAsking || (number == SIGABRT && frame->hasDeclined))
                continue;
            if (frame->Ask(fault) == FaultAnswer::Abandon)
                frame->Jump();
        }
    }
    PassOn(number, *info, context);
    errno = saved;
}

bool IsOurs(const struct sigaction& action)
{
    return (action.sa_flags & SA_SIGINFO) && action.sa_sigaction == OnSignal;
}

bool IsSame(const struct sigaction& a, const struct sigaction& b)
{
    return (a.sa_flags & SA_SIGINFO) == (b.sa_flags & SA_SIGINFO) &&
           (a.sa_flags & SA_SIGINFO ? a.sa_sigaction == b.sa_sigaction : a.sa_handler == b.sa_handler);
}

void Install()
{
    struct sigaction ours = {};
    ours.sa_sigaction = OnSignal;
    ours.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_NODEFER;
    sigemptyset(&ours.sa_mask);
    for (int i = 0; i < signalCount; ++i)
    {
        struct sigaction present;
        sigaction(signals[i], nullptr, &present);
        if (IsOurs(present) || (IsHandler(present) && IsSame(present, above[i])))
            continue;
        previous[i] = present;
        sigaction(signals[i], &ours, nullptr);
    }
}

void Uninstall()
{
    for (int i = 0; i < signalCount; ++i)
    {
        struct sigaction present;
        sigaction(signals[i], nullptr, &present);
        above[i] = {};
        if (IsOurs(present))
            sigaction(signals[i], &previous[i], nullptr);
        else
            above[i] = present;
    }
}

// ---- the stack that handlers run on

constexpr std::size_t signalStack = 256 * 1024;
constexpr std::size_t strip = 64 * 1024; // unmapped, on both sides

void TakeSignalStack(FaultThread& thread)
{
    thread.ownStack = nullptr;
    if (sigaltstack(nullptr, &thread.oldStack) != 0)
        return;
    if (!(thread.oldStack.ss_flags & SS_DISABLE) && thread.oldStack.ss_size >= 64 * 1024)
        return;
    void* mapping = mmap(nullptr, signalStack + 2 * strip, PROT_NONE,
                         MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_STACK, -1, 0);
    if (mapping == MAP_FAILED)
        return;
    stack_t stack = {};
    stack.ss_sp = static_cast<char*>(mapping) + strip;
    stack.ss_size = signalStack;
    if (mprotect(stack.ss_sp, stack.ss_size, PROT_READ | PROT_WRITE) != 0 || sigaltstack(&stack, nullptr) != 0)
    {
        munmap(mapping, signalStack + 2 * strip);
        return;
    }
    thread.ownStack = mapping;
}

void ReturnSignalStack(FaultThread& thread)
{
    if (!thread.ownStack)
        return;
    stack_t present;
    if (sigaltstack(nullptr, &present) == 0 && present.ss_sp == static_cast<char*>(thread.ownStack) + strip)
        sigaltstack(&thread.oldStack, nullptr);
    munmap(thread.ownStack, signalStack + 2 * strip);
    thread.ownStack = nullptr;
}

// The system finds the first thread's stack by reading the whole map of the process: asked once. Guarded by installLock.
constinit std::uintptr_t firstThread = 0;
constinit std::uintptr_t firstLow = 0;

void FindStack(FaultThread& thread)
{
    thread.stackLow = 0;
    thread.guard = 0;
    const std::uintptr_t self = ThreadIdentity();
    {
        const LockGuard guard(installLock);
        if (firstThread == self)
        {
            thread.stackLow = firstLow;
            return;
        }
    }
    pthread_attr_t attributes;
    if (pthread_getattr_np(pthread_self(), &attributes) != 0)
        return;
    void* low = nullptr;
    std::size_t size = 0;
    std::size_t guard = 0;
    if (pthread_attr_getstack(&attributes, &low, &size) == 0 && pthread_attr_getguardsize(&attributes, &guard) == 0)
    {
        thread.stackLow = reinterpret_cast<std::uintptr_t>(low);
        thread.guard = guard;
    }
    pthread_attr_destroy(&attributes);
    if (syscall(SYS_gettid) == getpid() && guard == 0)
    {
        const LockGuard hold(installLock);
        firstThread = self;
        firstLow = thread.stackLow;
    }
}

} // namespace

void OpenThreadFaults(FaultThread& thread)
{
    FindStack(thread);
    TakeSignalStack(thread);
    LockGuard guard(installLock);
    if (users++ == 0 && !isClosed.load(std::memory_order_relaxed))
        Install();
}

void CloseThreadFaults(FaultThread& thread)
{
    {
        LockGuard guard(installLock);
        if (--users == 0 && !isClosed.load(std::memory_order_relaxed))
            Uninstall();
    }
    ReturnSignalStack(thread);
}

void CloseFaults() noexcept
{
    LockGuard guard(installLock);
    if (!isClosed.exchange(true) && users != 0)
        Uninstall();
}

} // namespace Zem::Platform
