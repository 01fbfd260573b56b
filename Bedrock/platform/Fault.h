#pragma once

#include <cstddef>
#include <cstdint>

/// Protected calls: what the processor faults on, and what nobody within catches, is brought before a filter while the
/// stack on which it happened still stands.
///
/// Nothing here calls the heap, except that a thread's outermost call may, on its way in. A filter may run on a small
/// stack of its own, in the middle of any function of the program.
namespace Zem::Platform
{

/// The numbers of the kinds of faults.
enum FaultCode : std::uint32_t
{
    FaultAccessViolation = 0xC0000005,
    FaultArrayBounds = 0xC000008C,
    FaultBreakpoint = 0x80000003,
    FaultMisalignment = 0x80000002,
    FaultFloatDenormal = 0xC000008D,
    FaultFloatDivide = 0xC000008E,
    FaultFloatInexact = 0xC000008F,
    FaultFloatInvalid = 0xC0000090,
    FaultFloatOverflow = 0xC0000091,
    FaultFloatStack = 0xC0000092,
    FaultFloatUnderflow = 0xC0000093,
    FaultIllegalInstruction = 0xC000001D,
    FaultInPage = 0xC0000006,
    FaultIntegerDivide = 0xC0000094,
    FaultIntegerOverflow = 0xC0000095,
    FaultInvalidDisposition = 0xC0000026,
    FaultNonContinuable = 0xC0000025,
    FaultPrivilegedInstruction = 0xC0000096,
    FaultSingleStep = 0x80000004,
    FaultStackOverflow = 0xC00000FD,
    FaultThrown = 0xE06D7363, // a thrown object that the frame's body let out
    FaultAbort = 0x40000015,  // the process was about to end itself: a failed check of the heap, an unhandled failure
};

/// The registers at the fault, in the widest form; what the processor lacks or the system does not tell is 0.
struct FaultRegisters
{
    enum Processor : std::uint32_t
    {
        X86, // the first eight general ones, 32 bits wide
        X64
    };

    Processor processor;
    std::uint32_t flags;
    std::uint64_t ax, bx, cx, dx, sp, bp, si, di; // general registers by their old names
    std::uint64_t high[8];                        // r8 to r15
    std::uint64_t ip;
    std::uint16_t cs, ss, ds, es, fs, gs;
};

struct Fault
{
    std::uint32_t code;     // a `FaultCode`
    std::uint32_t flags;    // 0: the processor could go on if the cause were mended
    std::uintptr_t address; // of the instruction, or where the object was thrown
    FaultRegisters registers;
    const void* thrown; // the platform's record of a thrown object, null for a fault of the processor
    const void* native; // the platform's own record; null in one that was made up
};

/// What becomes of a fault.
enum class FaultAnswer
{
    GoOn, // the next outer frame is asked, then whoever handled faults before, then the system does as it always does
    Abandon, // the frame's body is given up and its call ends
};

/// Runs `body(argument)` and stores its result; calls nest, on any number of threads.
///
/// A fault of the processor within the body, and a thrown object that no handler within catches, call `filter` on the
/// thread that failed, ahead of any destructor. On `Abandon` a thrown object's stack is unwound; after a fault the
/// frames are dropped as they stand, and what they held of `LockGuard` is given back. `filter` lets nothing out; where
/// it may fail itself it uses `CallGuarded`. Leaving the thread from within the body is no fault.
///
/// Returns: true if the body returned; false if it was abandoned, and `result` is unchanged.
bool CallProtected(int (*body)(void*), void* argument, FaultAnswer (*filter)(const Fault&), int& result);

/// Runs `body(argument)`; a fault or a thrown object ends it, silently. Returns: true if it ended by itself.
bool CallGuarded(void (*body)(void*), void* argument);

/// True while the calling thread is within a protected call.
bool IsProtected() noexcept;

/// For a thread that is about to jump to its base: its protected and guarded calls will not return. Not to be called
/// from a filter or within one.
void AbandonProtectedCalls() noexcept;

/// From here on faults are left to the system, in calls under way too.
void CloseFaults() noexcept;

/// Writes what was thrown: the type and, for a standard failure, ": " and its text; "" if nothing is known. It calls
/// the object's own code, so only within `CallGuarded`.
void DescribeThrown(const Fault& fault, char* buffer, std::size_t capacity);

/// Stores the code addresses of the failed stack, innermost first, by the platform's own knowledge of frames. Reads the
/// stack unseen, so only within `CallGuarded`. Returns: how many, 0 if the platform cannot tell.
std::uint32_t WalkFailedStack(const Fault& fault, std::uintptr_t* addresses, std::uint32_t capacity);

/// Where code lies in its module.
struct CodePlace
{
    char module[260];      // file name, cut to fit
    std::uint32_t section; // loaded part of the module, from 1
    std::uintptr_t offset; // within that part
};

/// False for an address in no module. Takes no lock and can be asked while a module is loaded.
bool FindCode(std::uintptr_t address, CodePlace& place) noexcept;

} // namespace Zem::Platform
