#include <Bedrock/host/HardwareException.h>

#include <Bedrock/platform/Debug.h>
#include <Bedrock/platform/Fault.h>
#include <Bedrock/platform/Text.h>

#include <cinttypes>
#include <cstdarg>
#include <cstring>

namespace Zem
{

constinit const HardwareException::Type HardwareException::exceptionTypes[exceptionTypeCount] = {
    {Platform::FaultAccessViolation, "Access Violation"},
    {Platform::FaultArrayBounds, "Array Bounds Exceeded"},
    {Platform::FaultBreakpoint, "Breakpoint"},
    {Platform::FaultMisalignment, "Data Type Misalignment"},
    {Platform::FaultFloatDenormal, "Floating Point Denormal Operation"},
    {Platform::FaultFloatDivide, "Floating Point Divide By Zero"},
    {Platform::FaultFloatInexact, "Floating Point Inexact Result"},
    {Platform::FaultFloatInvalid, "Floating Point Invalid Operaton"}, // spelled so in every log there is
    {Platform::FaultFloatOverflow, "Floating Point Overflow"},
    {Platform::FaultFloatStack, "Floating Point Stack Check"},
    {Platform::FaultFloatUnderflow, "Floating Point Underflow"},
    {Platform::FaultIllegalInstruction, "Illegal Instruction"},
    {Platform::FaultInPage, "In Page Error"},
    {Platform::FaultIntegerDivide, "Integer Divide By Zero"},
    {Platform::FaultIntegerOverflow, "Integer Overflow"},
    {Platform::FaultInvalidDisposition, "Invalid Disposition"},
    {Platform::FaultNonContinuable, "Non-continuable Exception"},
    {Platform::FaultPrivilegedInstruction, "Privileged Instruction"},
    {Platform::FaultSingleStep, "Single Step"},
    {Platform::FaultStackOverflow, "Stack Overflow"},
    {Platform::FaultThrown, "C++ Exception"},
};

constinit char HardwareException::tmpDescription[1024] = {};

namespace
{

constexpr std::uint32_t maxLines = 51;
constexpr char unknown[] = "Unknown";

template <class Body>
bool Guarded(Body body)
{
    return Platform::CallGuarded([](void* call) { (*static_cast<Body*>(call))(); }, &body);
}

template <std::size_t N>
void Print(char (&buffer)[N], const char* format, ...) ZEM_PRINTF(2, 3);

template <std::size_t N>
void Print(char (&buffer)[N], const char* format, ...)
{
    std::va_list args;
    va_start(args, format);
    Platform::FormatBounded(buffer, format, args);
    va_end(args);
}

// Any place of any stack, on which the sanitizers have views of their own.
__attribute__((noinline, no_sanitize("address", "undefined", "thread"))) std::uintptr_t WordAt(std::uintptr_t address)
{
    return *reinterpret_cast<const volatile std::uintptr_t*>(address);
}

// Registers of 32 bits.
#define ZEM_REGISTERS_X86                                                                                              \
    " \r\nException @ %08X in %s\r\n \r\nRecoverable exception: %s\r\n \r\n"                                           \
    "  EAX: %08X     EBX: %08X     ECX: %08X     EDX: %08X\r\n"                                                        \
    "  ESP: %08X     EBP: %08X     ESI: %08X     EDI: %08X\r\n \r\n"                                                   \
    "   DS: %08X      FS: %08X\r\n"                                                                                    \
    "   ES: %08X      GS: %08X\r\n"                                                                                    \
    "   SS: %08X  CS:EIP: %04X:%08X\r\n \r\n"                                                                          \
    "Flags: %08X (CF:%d ZF:%d SF:%d)\r\n \r\nCall Stack:\r\n \r\n"

// The same rows, wider, and two more of them.
#define ZEM_REGISTERS_X64                                                                                              \
    " \r\nException @ %016" PRIX64 " in %s\r\n \r\nRecoverable exception: %s\r\n \r\n"                                 \
    "  RAX: %016" PRIX64 "     RBX: %016" PRIX64 "     RCX: %016" PRIX64 "     RDX: %016" PRIX64 "\r\n"                \
    "  RSP: %016" PRIX64 "     RBP: %016" PRIX64 "     RSI: %016" PRIX64 "     RDI: %016" PRIX64 "\r\n"                \
    "   R8: %016" PRIX64 "      R9: %016" PRIX64 "     R10: %016" PRIX64 "     R11: %016" PRIX64 "\r\n"                \
    "  R12: %016" PRIX64 "     R13: %016" PRIX64 "     R14: %016" PRIX64 "     R15: %016" PRIX64 "\r\n \r\n"           \
    "   DS: %08X      FS: %08X\r\n"                                                                                    \
    "   ES: %08X      GS: %08X\r\n"                                                                                    \
    "   SS: %08X  CS:RIP: %04X:%016" PRIX64 "\r\n \r\n"                                                                \
    "Flags: %08X (CF:%d ZF:%d SF:%d)\r\n \r\nCall Stack:\r\n \r\n"

} // namespace

HardwareException::HardwareException(void* faultInformation) : information(faultInformation)
{
    if (Guarded([&] { Describe(); }))
        return;
    constexpr char incomplete[] = "\r\nUnable to gather full diagnostics\r\n";
    description[DescriptionSize - 1] = '\0';
    const std::size_t length = std::strlen(description);
    const std::size_t room = DescriptionSize - 1 - length;
    const std::size_t count = sizeof(incomplete) - 1 < room ? sizeof(incomplete) - 1 : room;
    std::memcpy(description + length, incomplete, count);
    description[length + count] = '\0';
}

const char* HardwareException::Class() const noexcept
{
    return "Hardware";
}

void HardwareException::Describe()
{
    const auto& fault = *static_cast<const Platform::Fault*>(information);
    const char* name = nullptr;
    for (const Type& type : exceptionTypes)
        if (type.code == fault.code)
            name = type.name;
    if (name)
        SetReasonf("%s", name);
    else
        SetReasonf("Unknown Exception - %08xh", static_cast<unsigned>(fault.code));
    // What was thrown is asked of the object itself, which may fail without a loss for the rest.
    if (fault.thrown)
    {
        tmpDescription[0] = '\0';
        Guarded([&] { Platform::DescribeThrown(fault, tmpDescription, sizeof tmpDescription); });
        if (tmpDescription[0])
            AddReasonf("%s", tmpDescription);
    }
    GetCallStack(information);
}

void HardwareException::GetCallStack(void* faultInformation)
{
    const auto& fault = *static_cast<const Platform::Fault*>(faultInformation);
    const Platform::FaultRegisters& r = fault.registers;
    Platform::CodePlace place;
    const char* module = Platform::FindCode(fault.address, place) ? place.module : unknown;
    const char* recoverable = fault.flags == 0 ? "Yes" : "No";
    const int carry = r.flags & 1;
    const int zero = (r.flags >> 6) & 1;
    const int sign = (r.flags >> 7) & 1;
    if (r.processor == Platform::FaultRegisters::X64)
        SetDescriptionf(ZEM_REGISTERS_X64, static_cast<std::uint64_t>(fault.address), module, recoverable, r.ax, r.bx,
                        r.cx, r.dx, r.sp, r.bp, r.si, r.di, r.high[0], r.high[1], r.high[2], r.high[3], r.high[4],
                        r.high[5], r.high[6], r.high[7], r.ds, r.fs, r.es, r.gs, r.ss, r.cs, r.ip, r.flags, carry, zero,
                        sign);
    else
    {
        const auto low = [](std::uint64_t value) { return static_cast<unsigned>(value); };
        SetDescriptionf(ZEM_REGISTERS_X86, low(fault.address), module, recoverable, low(r.ax), low(r.bx), low(r.cx),
                        low(r.dx), low(r.sp), low(r.bp), low(r.si), low(r.di), r.ds, r.fs, r.es, r.gs, r.ss, r.cs,
                        low(r.ip), r.flags, carry, zero, sign);
    }
    if (fault.code == Platform::FaultStackOverflow)
        return; // it would be one function over and over

    // The platform knows frames that keep no frame pointer, where it knows the stack at all.
    std::uintptr_t addresses[maxLines];
    std::uint32_t count = 0;
    if (!Guarded([&] { count = Platform::WalkFailedStack(fault, addresses, maxLines); }))
        count = 0;
    if (count > 1)
    {
        for (std::uint32_t i = 0; i < count; ++i)
            if (addresses[i] == 0 || !AddLine(addresses[i]))
                return;
        return;
    }
    FollowFramePointers(static_cast<std::uintptr_t>(r.ip), static_cast<std::uintptr_t>(r.bp),
                        static_cast<std::uintptr_t>(r.sp));
}

// A frame is two words: the frame of the caller, which lies above it, and the address in the caller's code.
void HardwareException::FollowFramePointers(std::uintptr_t address, std::uintptr_t frame, std::uintptr_t stack)
{
    constexpr std::uintptr_t word = sizeof(std::uintptr_t);
    std::uint32_t lines = 0;
    // A call to nowhere has left its caller's address on the top of the stack, and made no frame.
    Platform::CodePlace place;
    if (!Platform::FindCode(address, place) && stack % word == 0 &&
        Platform::IsReadable(reinterpret_cast<const void*>(stack), word) && Platform::FindCode(WordAt(stack), place))
    {
        if (!AddLine(address))
            return;
        ++lines;
        address = WordAt(stack);
    }
    for (; lines < maxLines; ++lines)
    {
        if (!AddLine(address))
            return;
        address = WordAt(frame + word);
        if (address == 0)
            return;
        const std::uintptr_t next = WordAt(frame);
        if (next % word != 0 || next <= frame || !Platform::IsReadable(reinterpret_cast<const void*>(next), 2 * word))
            return;
        frame = next;
    }
}

bool HardwareException::AddLine(std::uintptr_t address)
{
    Platform::CodePlace place;
    const bool isKnown = Platform::FindCode(address, place);
    const char* module = isKnown ? place.module : unknown;
    const std::uint64_t offset = isKnown ? place.offset : 0;
    const std::uint64_t wide = address;
    const auto narrow = static_cast<std::uint32_t>(address);
    if (static_cast<const Platform::Fault*>(information)->registers.processor == Platform::FaultRegisters::X86)
        Print(tmpDescription, " %08X - %08X(+%X) %s\r\n", narrow, isKnown ? place.section : narrow,
              static_cast<std::uint32_t>(offset), module);
    else if (isKnown)
        Print(tmpDescription, " %016" PRIX64 " - %08X(+%" PRIX64 ") %s\r\n", wide, place.section, offset, module);
    else
        Print(tmpDescription, " %016" PRIX64 " - %016" PRIX64 "(+0) %s\r\n", wide, wide, module);
    const std::size_t length = std::strlen(description);
    const std::size_t added = std::strlen(tmpDescription);
    if (length + added > DescriptionSize - 1)
        return false;
    std::memcpy(description + length, tmpDescription, added + 1);
    return true;
}

} // namespace Zem
