#pragma once

#include <Bedrock/platform/Fault.h>

#include <csetjmp>
#include <csignal>
#include <cstdint>
#include <ucontext.h>
#include <unwind.h>

namespace Zem::Platform
{

/// What a thread's outermost frame has set up for it.
struct FaultThread
{
    std::uintptr_t stackLow; // lowest address of its stack, 0 when unknown
    std::uintptr_t guard;    // bytes below it that are kept unmapped
    void* ownStack;          // the signal stack's mapping, null when the thread had one already
    stack_t oldStack;
};

/// A protected or a guarded call under way. Those of a thread form a list, the innermost first, which is how a signal
/// handler finds whom to ask.
struct FaultFrame
{
    FaultFrame* outer;
    FaultAnswer (*filter)(const Fault&); // null: a guarded call, which takes everything
    bool isAsking;                       // its filter runs
    bool hasDeclined;                    // its filter let a thrown object go on
    int cancelState;                     // of the thread, while the filter runs
    std::uint32_t heldLocks;             // how many the thread held on entry

    // What a jump out of a handler does not restore by itself.
    std::uint32_t mxcsr;
    std::uint16_t x87Control;
    void* caughtExceptions; // the two words of __cxa_get_globals()
    std::uintptr_t uncaughtExceptions;

    sigjmp_buf jump;
    FaultThread thread; // of the outermost frame

    void Enter(FaultAnswer (*asked)(const Fault&));
    void Leave();
    /// Calls the filter. What fails in it unguarded does not come back to it.
    FaultAnswer Ask(const Fault& fault);
    /// After the jump, ahead of everything else.
    void Restore();
    /// Gives up what is within.
    [[noreturn]] void Jump();
};

/// The calling thread's innermost frame; null outside of all.
FaultFrame* InnermostFrame() noexcept;

/// Sets up the calling thread, and the process for its first thread; and takes that back.
void OpenThreadFaults(FaultThread& thread);
void CloseThreadFaults(FaultThread& thread);
FaultThread* CurrentFaultThread() noexcept;

/// Fills code, address and registers from what a signal handler gets.
void DescribeSignal(Fault& fault, int number, const siginfo_t& info, const ucontext_t& context);

/// Fills the same for a thrown object; called by the personality, whose callers are the C++ runtime and the thrower.
void DescribeThrow(Fault& fault, const _Unwind_Exception& thrown);

} // namespace Zem::Platform
