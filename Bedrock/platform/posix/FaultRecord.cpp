// What a fault was: the kind, told from what the kernel says of it, the registers, the stack, the thrown object.

#include <Bedrock/platform/Debug.h>
#include <Bedrock/platform/Process.h>
#include <Bedrock/platform/posix/FaultFrame.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <cxxabi.h>
#include <dlfcn.h>
#include <elf.h>
#include <link.h>
#include <unistd.h>

namespace Zem::Platform
{

namespace
{

// Numbers of the processor's traps.
enum Trap
{
    TrapDivide = 0,
    TrapStep = 1,
    TrapBreakpoint = 3,
    TrapOverflow = 4,
    TrapBounds = 5,
    TrapProtection = 13,
    TrapX87 = 16,
    TrapAlignment = 17,
    TrapSimd = 19
};

struct FloatState
{
    std::uint32_t x87Control, x87Status, mxcsr;
};

FloatState FloatStateOf(const ucontext_t& context)
{
    FloatState state = {0x37F, 0, 0x1F80};
#if defined(__x86_64__)
    if (const auto* saved = context.uc_mcontext.fpregs)
        state = {saved->cwd, saved->swd, saved->mxcsr};
#else
    if (const auto* saved = context.uc_mcontext.fpregs)
    {
        state.x87Control = saved->cw & 0xFFFF;
        state.x87Status = saved->status & 0xFFFF;
        // Behind the old form lies a mark, 0 if the new one follows, and in that, the sixth word is the one wanted.
        const auto* bytes = reinterpret_cast<const char*>(saved);
        std::uint32_t statusAndMark;
        std::memcpy(&statusAndMark, bytes + 108, sizeof statusAndMark);
        if (statusAndMark >> 16 == 0)
            std::memcpy(&state.mxcsr, bytes + 136, sizeof state.mxcsr);
    }
#endif
    return state;
}

// The bits of MXCSR and of the x87 status are the same six: invalid, denormal, divide, overflow, underflow, inexact.
std::uint32_t FloatCode(const siginfo_t& info, int trap, const FloatState& state)
{
    const std::uint32_t raised =
        trap == TrapSimd ? state.mxcsr & ~(state.mxcsr >> 7) : state.x87Status & ~state.x87Control;
    switch (info.si_code)
    {
    case FPE_INTDIV:
        return FaultIntegerDivide;
    case FPE_INTOVF:
        return FaultIntegerOverflow;
    case FPE_FLTDIV:
        return FaultFloatDivide;
    case FPE_FLTOVF:
        return FaultFloatOverflow;
    case FPE_FLTRES:
        return FaultFloatInexact;
    case FPE_FLTUND:
        return raised & 0x10 ? FaultFloatUnderflow : FaultFloatDenormal;
    case FPE_FLTINV:
        return trap == TrapX87 && (state.x87Status & 0x40) ? FaultFloatStack : FaultFloatInvalid;
    case FPE_FLTSUB:
        return FaultArrayBounds;
    default:
        return trap == TrapDivide ? FaultIntegerDivide : FaultFloatInvalid;
    }
}

// Whether the instruction is one that only the system may use: such a one and a wild address share a trap.
bool IsPrivileged(std::uintptr_t address)
{
    unsigned char code[15];
    std::size_t size = 0;
    while (size < sizeof code && IsReadable(reinterpret_cast<const void*>(address + size), 1))
    {
        code[size] = *reinterpret_cast<const unsigned char*>(address + size);
        ++size;
    }
    std::size_t at = 0;
    const auto isPrefix = [](unsigned char byte)
    {
        return byte == 0x66 || byte == 0x67 || byte == 0xF0 || byte == 0xF2 || byte == 0xF3 || byte == 0x2E ||
               byte == 0x36 || byte == 0x3E || byte == 0x26 || byte == 0x64 || byte == 0x65 ||
               (sizeof(void*) == 8 && (byte & 0xF0) == 0x40);
    };
    while (at < size && isPrefix(code[at]))
        ++at;
    if (at == size)
        return false;
    const unsigned char byte = code[at];
    if (byte == 0xF4 || byte == 0xFA || byte == 0xFB || (byte >= 0x6C && byte <= 0x6F) ||
        (byte >= 0xE4 && byte <= 0xE7) || (byte >= 0xEC && byte <= 0xEF))
        return true;
    if (byte != 0x0F || at + 1 == size)
        return false;
    const unsigned char second = code[at + 1];
    return second == 0x00 || second == 0x01 || second == 0x06 || second == 0x08 || second == 0x09 ||
           (second >= 0x20 && second <= 0x23) || second == 0x30 || second == 0x32 || second == 0x33 || second == 0x35;
}

// An access just outside of the lower end of the stack, by a thread that stands close to it.
bool IsStackOverflow(std::uintptr_t accessed, std::uintptr_t sp)
{
    const FaultThread* thread = CurrentFaultThread();
    if (!thread || thread->stackLow == 0)
        return false;
    constexpr std::uintptr_t near = 64 * 1024;
    const std::uintptr_t low = thread->stackLow;
    return accessed >= low - thread->guard - near && accessed < low + 4096 && sp < low + near;
}

std::uint32_t CodeOf(int number, const siginfo_t& info, const ucontext_t& context, std::uintptr_t ip, std::uintptr_t sp)
{
    const int trap = static_cast<int>(context.uc_mcontext.gregs[REG_TRAPNO]);
    const auto accessed = reinterpret_cast<std::uintptr_t>(info.si_addr);
    switch (number)
    {
    case SIGABRT:
        return FaultAbort;
    case SIGILL:
        return FaultIllegalInstruction;
    case SIGTRAP:
        return trap == TrapStep ? FaultSingleStep : FaultBreakpoint;
    case SIGFPE:
        return FloatCode(info, trap, FloatStateOf(context));
    case SIGBUS:
        return trap == TrapAlignment || info.si_code == BUS_ADRALN ? FaultMisalignment
               : IsStackOverflow(accessed, sp)                     ? FaultStackOverflow
                                                                   : FaultInPage;
    default:
        break;
    }
    if (trap == TrapOverflow)
        return FaultIntegerOverflow;
    if (trap == TrapBounds)
        return FaultArrayBounds;
    if (trap == TrapProtection && IsPrivileged(ip))
        return FaultPrivilegedInstruction;
    return IsStackOverflow(accessed, sp) ? FaultStackOverflow : FaultAccessViolation;
}

} // namespace

void DescribeSignal(Fault& fault, int number, const siginfo_t& info, const ucontext_t& context)
{
    std::memset(&fault, 0, sizeof fault);
    FaultRegisters& to = fault.registers;
    const auto& from = context.uc_mcontext.gregs;
    const auto word = [&](int index) { return static_cast<std::uintptr_t>(from[index]); };
#if defined(__x86_64__)
    to.processor = FaultRegisters::X64;
    to.ax = word(REG_RAX);
    to.bx = word(REG_RBX);
    to.cx = word(REG_RCX);
    to.dx = word(REG_RDX);
    to.sp = word(REG_RSP);
    to.bp = word(REG_RBP);
    to.si = word(REG_RSI);
    to.di = word(REG_RDI);
    for (int i = 0; i < 8; ++i)
        to.high[i] = word(REG_R8 + i);
    to.ip = word(REG_RIP);
    const std::uint64_t segments = word(REG_CSGSFS);
    to.cs = static_cast<std::uint16_t>(segments);
    to.gs = static_cast<std::uint16_t>(segments >> 16);
    to.fs = static_cast<std::uint16_t>(segments >> 32);
    to.ss = static_cast<std::uint16_t>(segments >> 48);
#else
    to.processor = FaultRegisters::X86;
    to.ax = word(REG_EAX);
    to.bx = word(REG_EBX);
    to.cx = word(REG_ECX);
    to.dx = word(REG_EDX);
    to.sp = word(REG_UESP);
    to.bp = word(REG_EBP);
    to.si = word(REG_ESI);
    to.di = word(REG_EDI);
    to.ip = word(REG_EIP);
    to.cs = static_cast<std::uint16_t>(word(REG_CS));
    to.ss = static_cast<std::uint16_t>(word(REG_SS));
    to.ds = static_cast<std::uint16_t>(word(REG_DS));
    to.es = static_cast<std::uint16_t>(word(REG_ES));
    to.fs = static_cast<std::uint16_t>(word(REG_FS));
    to.gs = static_cast<std::uint16_t>(word(REG_GS));
#endif
    to.flags = static_cast<std::uint32_t>(word(REG_EFL));
    fault.code = CodeOf(number, info, context, static_cast<std::uintptr_t>(to.ip), static_cast<std::uintptr_t>(to.sp));
    // The processor reports a breakpoint from behind it.
    if (fault.code == FaultBreakpoint)
        --to.ip;
    fault.flags = fault.code == FaultAbort ? 1 : 0;
    fault.address = static_cast<std::uintptr_t>(to.ip);
    fault.native = &context;
}

// ---- the stack

namespace
{

// Frames of the stack as the unwinder tells them, from the caller of `visit`'s caller on.
template <class Visitor>
void VisitStack(Visitor visit)
{
    _Unwind_Backtrace([](_Unwind_Context* context, void* visitor)
                      { return (*static_cast<Visitor*>(visitor))(context) ? _URC_NO_REASON : _URC_END_OF_STACK; },
                      &visit);
}

const link_map* ModuleOf(std::uintptr_t address)
{
    dl_find_object found;
    if (_dl_find_object(reinterpret_cast<void*>(address), &found) != 0)
        return nullptr;
    return found.dlfo_link_map;
}

// Whether a frame belongs to the machinery of a throw: the unwinder, the C++ runtime, and what a sanitizer puts between.
// `unwinder` is the module that called the personality.
bool IsThrowing(std::uintptr_t address, const link_map* unwinder)
{
    const link_map* module = ModuleOf(address);
    return module == unwinder || module == ModuleOf(reinterpret_cast<std::uintptr_t>(&abi::__cxa_get_globals)) ||
           module == ModuleOf(reinterpret_cast<std::uintptr_t>(&abi::__cxa_throw));
}

} // namespace

void DescribeThrow(Fault& fault, const _Unwind_Exception& thrown)
{
    std::memset(&fault, 0, sizeof fault);
    fault.code = FaultThrown;
    fault.flags = 1; // a throw does not go on behind itself
    fault.thrown = &thrown;
    FaultRegisters& to = fault.registers;
#if defined(__x86_64__)
    to.processor = FaultRegisters::X64;
#else
    to.processor = FaultRegisters::X86;
#endif
    // This function, the personality, the unwinder, the C++ runtime, the thrower. Where all of these are one program, the
    // runtime cannot be told from the thrower by its module, and the report begins in the unwinder.
    int depth = 0;
    const link_map* own = ModuleOf(reinterpret_cast<std::uintptr_t>(&DescribeThrow));
    const link_map* unwinder = nullptr;
    VisitStack(
        [&](_Unwind_Context* context)
        {
            const std::uintptr_t ip = _Unwind_GetIP(context);
            if (!unwinder)
            {
                if (ModuleOf(ip) == own && depth++ < 8)
                    return true;
                unwinder = ModuleOf(ip);
            }
            if (unwinder != own && IsThrowing(ip, unwinder))
                return true;
            to.ip = ip;
            to.sp = _Unwind_GetCFA(context);
        // The registers that calls leave alone.
#if defined(__x86_64__)
            to.bx = _Unwind_GetGR(context, 3);
            to.bp = _Unwind_GetGR(context, 6);
            for (int i = 12; i < 16; ++i)
                to.high[i - 8] = _Unwind_GetGR(context, i);
#else
            to.bx = _Unwind_GetGR(context, 3);
            to.bp = _Unwind_GetGR(context, 5);
            to.si = _Unwind_GetGR(context, 6);
            to.di = _Unwind_GetGR(context, 7);
#endif
            return false;
        });
    fault.address = static_cast<std::uintptr_t>(to.ip);
}

std::uint32_t WalkFailedStack(const Fault& fault, std::uintptr_t* addresses, std::uint32_t capacity)
{
    std::uintptr_t start = fault.address; // where a thrown object's thrower called
    if (fault.native)
    {
        const auto& registers = static_cast<const ucontext_t*>(fault.native)->uc_mcontext.gregs;
#if defined(__x86_64__)
        start = static_cast<std::uintptr_t>(registers[REG_RIP]);
#else
        start = static_cast<std::uintptr_t>(registers[REG_EIP]);
#endif
    }
    else if (!fault.thrown)
        return 0;
    std::uint32_t count = 0;
    VisitStack(
        [&](_Unwind_Context* context)
        {
            const std::uintptr_t ip = _Unwind_GetIP(context);
            if (count != 0 || ip == start)
            {
                addresses[count] = count == 0 ? fault.address : ip;
                ++count;
            }
            return ip != 0 && count < capacity;
        });
    return count;
}

bool FindCode(std::uintptr_t address, CodePlace& place) noexcept
{
    dl_find_object found;
    if (_dl_find_object(reinterpret_cast<void*>(address), &found) != 0)
        return false;
    const link_map& module = *found.dlfo_link_map;
    const auto* header = static_cast<const ElfW(Ehdr)*>(found.dlfo_map_start);
    if (std::memcmp(header->e_ident, ELFMAG, SELFMAG) != 0)
        return false;
    const auto* parts = reinterpret_cast<const ElfW(Phdr)*>(reinterpret_cast<const char*>(header) + header->e_phoff);
    const std::uintptr_t relative = address - module.l_addr;
    std::uint32_t section = 0;
    for (int i = 0; i < header->e_phnum; ++i)
    {
        if (parts[i].p_type != PT_LOAD)
            continue;
        ++section;
        const std::uintptr_t size = parts[i].p_memsz > parts[i].p_filesz ? parts[i].p_memsz : parts[i].p_filesz;
        if (relative < parts[i].p_vaddr || relative - parts[i].p_vaddr > size)
            continue;
        place.section = section;
        place.offset = relative - parts[i].p_vaddr;
        if (module.l_name && *module.l_name)
            std::snprintf(place.module, sizeof place.module, "%s", module.l_name);
        else
            ProgramPath(place.module, sizeof place.module);
        return place.module[0] != '\0';
    }
    return false;
}

} // namespace Zem::Platform
