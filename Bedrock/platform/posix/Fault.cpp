// Protected calls. A thrown object that nobody within catches meets the personality of ZemProtectedCall's frame in the
// unwinder's search phase, when no destructor has run yet; a fault of the processor arrives by a signal handler
// (FaultSignals.cpp). Both ask the frame's filter, and a fault then jumps to where the frame was entered.

#include <Bedrock/platform/Fault.h>

#include <Bedrock/platform/Lock.h>
#include <Bedrock/platform/posix/FaultFrame.h>

#include <atomic>
#include <cstring>
#include <cxxabi.h>
#include <pthread.h>

// The two symbols that the assembler file needs, and the two that it defines.
extern "C" __attribute__((visibility("hidden"))) int ZemProtectedCall(void (*body)(void*), void* frame);
extern "C" __attribute__((visibility("hidden"))) char ZemLanding[];
extern "C" __attribute__((visibility("hidden"))) void ZemCaught(_Unwind_Exception* thrown);
extern "C" __attribute__((visibility("hidden"))) _Unwind_Reason_Code ZemPersonality(int version, _Unwind_Action actions,
                                                                                    _Unwind_Exception_Class kind,
                                                                                    _Unwind_Exception* thrown,
                                                                                    _Unwind_Context* context);

namespace Zem::Platform
{

namespace
{

struct ThreadFrames
{
    FaultFrame* innermost;
    FaultThread* thread;
};

constinit thread_local ThreadFrames frames __attribute__((tls_model("initial-exec"))) = {};

// The words that the C++ runtime keeps for a thread: the stack of caught objects and the count of those in flight.
struct ExceptionGlobals
{
    void* caught;
    unsigned int uncaught;
};

ExceptionGlobals& Globals()
{
    return *reinterpret_cast<ExceptionGlobals*>(abi::__cxa_get_globals());
}

// A frame is on the list as long as the scope lives, also when the stack is unwound through it.
class FrameScope
{
public:
    explicit FrameScope(FaultAnswer (*filter)(const Fault&)) { frame.Enter(filter); }
    ~FrameScope() { frame.Leave(); }
    FrameScope(const FrameScope&) = delete;
    FrameScope& operator=(const FrameScope&) = delete;

    FaultFrame frame;
};

struct ProtectedBody
{
    FaultFrame* frame; // first: what ZemProtectedCall gets is a pointer to this
    int (*body)(void*);
    void* argument;
    int result;
};

void RunProtected(void* call)
{
    auto& protectedBody = *static_cast<ProtectedBody*>(call);
    protectedBody.result = protectedBody.body(protectedBody.argument);
}

bool IsCpp(_Unwind_Exception_Class kind)
{
    // "GNUCC++" and a byte that tells a first throw from a rethrown copy.
    return kind >> 8 == 0x474E5543432B2BULL;
}

} // namespace

void FaultFrame::Enter(FaultAnswer (*asked)(const Fault&))
{
    outer = frames.innermost;
    filter = asked;
    isAsking = false;
    hasDeclined = false;
    heldLocks = HeldLocks();
    __asm__ volatile("stmxcsr %0" : "=m"(mxcsr));
    __asm__ volatile("fnstcw %0" : "=m"(x87Control));
    const ExceptionGlobals& globals = Globals();
    caughtExceptions = globals.caught;
    uncaughtExceptions = globals.uncaught;
    if (!outer)
    {
        OpenThreadFaults(thread);
        frames.thread = &thread;
    }
    // A signal handler of this thread reads the list at any time: nothing of the body may be moved before this.
    std::atomic_signal_fence(std::memory_order_seq_cst);
    frames.innermost = this;
    std::atomic_signal_fence(std::memory_order_seq_cst);
}

void FaultFrame::Leave()
{
    std::atomic_signal_fence(std::memory_order_seq_cst);
    frames.innermost = outer;
    std::atomic_signal_fence(std::memory_order_seq_cst);
    if (!outer)
    {
        frames.thread = nullptr;
        CloseThreadFaults(thread);
    }
}

void FaultFrame::Restore()
{
    __asm__ volatile("ldmxcsr %0" : : "m"(mxcsr));
    __asm__ volatile("fldcw %0" : : "m"(x87Control));
    ExceptionGlobals& globals = Globals();
    globals.caught = caughtExceptions;
    globals.uncaught = static_cast<unsigned int>(uncaughtExceptions);
}

// A thread that somebody cancels ends behind the report, not amid it.
FaultAnswer FaultFrame::Ask(const Fault& fault)
{
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancelState);
    isAsking = true;
    const FaultAnswer answer = filter(fault);
    isAsking = false;
    pthread_setcancelstate(cancelState, nullptr);
    return answer;
}

void FaultFrame::Jump()
{
    // Filters that are given up too, since they failed: only the first of them has found cancellation as it was.
    for (const FaultFrame* frame = frames.innermost; frame != this; frame = frame->outer)
        if (frame->isAsking && frame->cancelState == PTHREAD_CANCEL_ENABLE)
            pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
    ReleaseHeldLocks(heldLocks);
    frames.innermost = this;
    siglongjmp(jump, 1);
}

FaultFrame* InnermostFrame() noexcept
{
    return frames.innermost;
}

FaultThread* CurrentFaultThread() noexcept
{
    return frames.thread;
}

bool IsProtected() noexcept
{
    for (const FaultFrame* frame = frames.innermost; frame; frame = frame->outer)
        if (frame->filter)
            return true;
    return false;
}

bool CallProtected(int (*body)(void*), void* argument, FaultAnswer (*filter)(const Fault&), int& result)
{
    FrameScope scope(filter);
    ProtectedBody call = {&scope.frame, body, argument, 0};
    if (sigsetjmp(scope.frame.jump, 1) != 0)
    {
        scope.frame.Restore();
        return false;
    }
    if (ZemProtectedCall(&RunProtected, &call) == 0)
        return false;
    result = call.result;
    return true;
}

bool CallGuarded(void (*body)(void*), void* argument)
{
    FrameScope scope(nullptr);
    if (sigsetjmp(scope.frame.jump, 1) != 0)
    {
        scope.frame.Restore();
        return false;
    }
    try
    {
        body(argument);
    }
    catch (abi::__forced_unwind&)
    {
        throw; // the thread ends
    }
    catch (...)
    {
        return false;
    }
    return true;
}

void AbandonProtectedCalls() noexcept
{
    FaultFrame* frame = frames.innermost;
    if (!frame)
        return;
    while (frame->outer)
        frame = frame->outer;
    ReleaseHeldLocks(frame->heldLocks);
    frame->Leave();
}

} // namespace Zem::Platform

using namespace Zem::Platform;

extern "C" _Unwind_Reason_Code ZemPersonality(int version, _Unwind_Action actions, _Unwind_Exception_Class kind,
                                              _Unwind_Exception* thrown, _Unwind_Context* context)
{
    if (version != 1)
        return _URC_FATAL_PHASE1_ERROR;
    if (actions & _UA_SEARCH_PHASE)
    {
        // `ZemProtectedCall` keeps its argument 8 bytes above the stack pointer of its call.
        void* argument;
        std::memcpy(&argument, reinterpret_cast<void*>(_Unwind_GetCFA(context) + 8), sizeof argument);
        FaultFrame& frame = *static_cast<ProtectedBody*>(argument)->frame;
        Fault fault;
        DescribeThrow(fault, *thrown);
        if (!IsCpp(kind))
            fault.thrown = nullptr;
        if (frame.Ask(fault) == FaultAnswer::Abandon)
            return _URC_HANDLER_FOUND;
        frame.hasDeclined = true;
        return _URC_CONTINUE_UNWIND;
    }
    if (!(actions & _UA_HANDLER_FRAME) || (actions & _UA_FORCE_UNWIND))
        return _URC_CONTINUE_UNWIND;
    _Unwind_SetGR(context, __builtin_eh_return_data_regno(0), reinterpret_cast<_Unwind_Word>(thrown));
    _Unwind_SetIP(context, reinterpret_cast<_Unwind_Ptr>(ZemLanding));
    return _URC_INSTALL_CONTEXT;
}

extern "C" void ZemCaught(_Unwind_Exception* thrown)
{
    if (IsCpp(thrown->exception_class))
    {
        abi::__cxa_begin_catch(thrown);
        abi::__cxa_end_catch();
    }
    else
        _Unwind_DeleteException(thrown);
}
