#include <Bedrock/host/HardwareException.h>

#include <Bedrock/platform/Fault.h>

#include "host/Faults.h"

#include <cstdio>
#include <cstring>
#include <exception>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <sys/mman.h>
#include <vector>

namespace
{

using namespace Zem;
using Platform::Fault;

Fault MadeUp(std::uint32_t code, Platform::FaultRegisters::Processor processor)
{
    Fault fault = {};
    fault.code = code;
    fault.address = 0x1234;
    Platform::FaultRegisters& r = fault.registers;
    r.processor = processor;
    r.ip = 0x1234;
    r.ax = 0xA0000001;
    r.bx = 0xB0000002;
    r.cx = 0xC0000003;
    r.dx = 0xD0000004;
    r.sp = 0x15; // no place for a word
    r.bp = 0x16;
    r.si = 0xABCDEF17;
    r.di = 0x18;
    for (unsigned i = 0; i < 8; ++i)
        r.high[i] = 0x1111111100000000u + i;
    r.cs = 0x23;
    r.ss = 0x2B;
    r.ds = 0x2C;
    r.es = 0x2D;
    r.fs = 0x2E;
    r.gs = 0x63;
    r.flags = 0x10081; // carry and sign
    return fault;
}

std::string Described(const Fault& fault)
{
    return HardwareException(const_cast<Fault*>(&fault)).Description();
}

// The lines of the call stack, without what precedes them.
std::vector<std::string> Lines(const std::string& description)
{
    std::vector<std::string> lines;
    const std::string head = "Call Stack:\r\n \r\n";
    for (std::size_t at = description.find(head) + head.size(), end; at < description.size(); at = end + 2)
    {
        end = description.find("\r\n", at);
        lines.push_back(description.substr(at, end - at));
    }
    return lines;
}

TEST(HardwareException, Reasons)
{
    const struct
    {
        std::uint32_t code;
        const char* reason;
    } rows[] = {{0xC0000005, "Access Violation"},
                {0xC000008C, "Array Bounds Exceeded"},
                {0x80000003, "Breakpoint"},
                {0x80000002, "Data Type Misalignment"},
                {0xC000008D, "Floating Point Denormal Operation"},
                {0xC000008E, "Floating Point Divide By Zero"},
                {0xC000008F, "Floating Point Inexact Result"},
                {0xC0000090, "Floating Point Invalid Operaton"},
                {0xC0000091, "Floating Point Overflow"},
                {0xC0000092, "Floating Point Stack Check"},
                {0xC0000093, "Floating Point Underflow"},
                {0xC000001D, "Illegal Instruction"},
                {0xC0000006, "In Page Error"},
                {0xC0000094, "Integer Divide By Zero"},
                {0xC0000095, "Integer Overflow"},
                {0xC0000026, "Invalid Disposition"},
                {0xC0000025, "Non-continuable Exception"},
                {0xC0000096, "Privileged Instruction"},
                {0x80000004, "Single Step"},
                {0xC00000FD, "Stack Overflow"},
                {0xE06D7363, "C++ Exception"},
                {0xC0DEABCD, "Unknown Exception - c0deabcdh"},
                {0x00000001, "Unknown Exception - 00000001h"}};
    static_assert(std::size(rows) == HardwareException::exceptionTypeCount + 2);
    for (const auto& row : rows)
    {
        Fault fault = MadeUp(row.code, Platform::FaultRegisters::X86);
        const HardwareException failure(&fault);
        EXPECT_STREQ(failure.Reason(), row.reason);
        EXPECT_STREQ(static_cast<const Exception&>(failure).Class(), "Hardware");
        EXPECT_FALSE(failure.IsHardwareException());
        EXPECT_EQ(failure.File(), nullptr);
        EXPECT_EQ(failure.Line(), 0);
        EXPECT_STREQ(HardwareException(failure).Description(), failure.Description());
    }
}

// A stack overflow has registers and no lines.
TEST(HardwareException, Registers)
{
    EXPECT_EQ(Described(MadeUp(0xC00000FD, Platform::FaultRegisters::X86)),
              " \r\nException @ 00001234 in Unknown\r\n \r\nRecoverable exception: Yes\r\n \r\n"
              "  EAX: A0000001     EBX: B0000002     ECX: C0000003     EDX: D0000004\r\n"
              "  ESP: 00000015     EBP: 00000016     ESI: ABCDEF17     EDI: 00000018\r\n"
              " \r\n   DS: 0000002C      FS: 0000002E\r\n   ES: 0000002D      GS: 00000063\r\n"
              "   SS: 0000002B  CS:EIP: 0023:00001234\r\n"
              " \r\nFlags: 00010081 (CF:1 ZF:0 SF:1)\r\n \r\nCall Stack:\r\n \r\n");
    Fault wide = MadeUp(0xC00000FD, Platform::FaultRegisters::X64);
    wide.flags = 1;
    wide.registers.flags = 0x40;
    wide.registers.ip = 0x7FFF12345678ABCD;
    EXPECT_EQ(
        Described(wide),
        " \r\nException @ 0000000000001234 in Unknown\r\n \r\nRecoverable exception: No\r\n \r\n"
        "  RAX: 00000000A0000001     RBX: 00000000B0000002     RCX: 00000000C0000003     RDX: 00000000D0000004\r\n"
        "  RSP: 0000000000000015     RBP: 0000000000000016     RSI: 00000000ABCDEF17     RDI: 0000000000000018\r\n"
        "   R8: 1111111100000000      R9: 1111111100000001     R10: 1111111100000002     R11: 1111111100000003\r\n"
        "  R12: 1111111100000004     R13: 1111111100000005     R14: 1111111100000006     R15: 1111111100000007\r\n"
        " \r\n   DS: 0000002C      FS: 0000002E\r\n   ES: 0000002D      GS: 00000063\r\n"
        "   SS: 0000002B  CS:RIP: 0023:7FFF12345678ABCD\r\n"
        " \r\nFlags: 00000040 (CF:0 ZF:1 SF:0)\r\n \r\nCall Stack:\r\n \r\n");
}

// Chains of frames that are made up: {frame of the caller, address in the caller}, one behind the other.
class Chain
{
public:
    explicit Chain(std::size_t count, std::uintptr_t address = 0x5000) : words(2 * count + 2)
    {
        for (std::size_t i = 0; i < count; ++i)
        {
            words[2 * i] = Frame(i + 1);
            words[2 * i + 1] = address + i;
        }
    }
    std::uintptr_t Frame(std::size_t i) const { return reinterpret_cast<std::uintptr_t>(&words[2 * i]); }
    std::uintptr_t& Next(std::size_t i) { return words[2 * i]; }
    std::uintptr_t& Caller(std::size_t i) { return words[2 * i + 1]; }

    std::string Described() const
    {
        Fault fault = MadeUp(0xC0000005, Platform::FaultRegisters::X86);
        fault.registers.bp = Frame(0);
        return ::Described(fault);
    }

private:
    std::vector<std::uintptr_t> words;
};

TEST(HardwareException, WalkAlongFrames)
{
    char expected[64];
    {
        const auto lines = Lines(Chain(80).Described());
        ASSERT_EQ(lines.size(), 51u);
        EXPECT_EQ(lines[0], " 00001234 - 00001234(+0) Unknown");
        EXPECT_EQ(lines[1], " 00005000 - 00005000(+0) Unknown");
        std::snprintf(expected, sizeof expected, " %08X - %08X(+0) Unknown", 0x5000 + 49, 0x5000 + 49);
        EXPECT_EQ(lines[50], expected);
    }
    {
        Chain chain(20); // the address behind frame 4 is 0
        chain.Caller(4) = 0;
        EXPECT_EQ(Lines(chain.Described()).size(), 5u);
    }
    const auto page = static_cast<char*>(mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    const std::uintptr_t unreadable = reinterpret_cast<std::uintptr_t>(page);
    const struct
    {
        const char* what;
        std::uintptr_t (*next)(const Chain&);
    } ends[] = {{"itself", [](const Chain& chain) { return chain.Frame(0); }},
                {"below", [](const Chain& chain) { return chain.Frame(0) - 2 * sizeof(void*); }},
                {"odd", [](const Chain& chain) { return chain.Frame(1) + 1; }},
                {"nowhere", [](const Chain&) { return std::uintptr_t{0}; }}};
    for (const auto& end : ends)
    {
        Chain chain(20);
        chain.Next(0) = end.next(chain);
        EXPECT_EQ(Lines(chain.Described()).size(), 1u) << end.what;
    }
    Chain chain(20);
    const bool isAbove = unreadable > chain.Frame(0);
    if (isAbove)
    {
        chain.Next(0) = unreadable;
        EXPECT_EQ(Lines(chain.Described()).size(), 1u);
    }
    munmap(page, 4096);
}

// Lines that name a module are long: the last one is the last that fits.
TEST(HardwareException, NeverOverflows)
{
    Chain chain(80, reinterpret_cast<std::uintptr_t>(&MadeUp) + 1);
    Fault fault = MadeUp(0xC0000005, Platform::FaultRegisters::X64);
    fault.registers.bp = chain.Frame(0);
    const std::string description = Described(fault);
    const auto lines = Lines(description);
    ASSERT_GT(lines.size(), 2u);
    const std::size_t longest = lines.back().size() + 2;
    EXPECT_LE(description.size(), 4095u);
    EXPECT_TRUE(lines.size() == 51 || description.size() + longest > 4095u) << description.size();

    char module[260] = {};
    unsigned long long address = 0, offset = 0;
    unsigned section = 0;
    ASSERT_EQ(std::sscanf(lines[1].c_str(), " %llx - %08X(+%llX) %259s", &address, &section, &offset, module), 4);
    EXPECT_EQ(address, reinterpret_cast<std::uintptr_t>(&MadeUp) + 1);
    EXPECT_GE(section, 1u);
    EXPECT_NE(std::strstr(module, "host-tests"), nullptr) << lines[1];
    unsigned long long nextOffset = 0;
    ASSERT_EQ(std::sscanf(lines[2].c_str(), " %llx - %08X(+%llX)", &address, &section, &nextOffset), 3);
    EXPECT_EQ(nextOffset, offset + 1);
}

// What was written before the walk broke stays.
TEST(HardwareException, BreaksOnTheWay)
{
    const std::string sorry = "\r\nUnable to gather full diagnostics\r\n";
    Fault fault = MadeUp(0xC0000005, Platform::FaultRegisters::X86);
    fault.registers.bp = 0x10; // its first read faults
    const std::string description = Described(fault);
    EXPECT_EQ(description.find(" \r\nException @ 00001234"), 0u);
    EXPECT_NE(description.find(" 00001234 - 00001234(+0) Unknown\r\n" + sorry), std::string::npos);
    EXPECT_EQ(description.substr(description.size() - sorry.size()), sorry);

    const HardwareException none(reinterpret_cast<void*>(std::uintptr_t{0x1000})); // nothing is there
    EXPECT_EQ(none.Description(), sorry);
    EXPECT_STREQ(none.Reason(), "");
}

// ---- thrown objects

struct Plain
{
};
template <class T>
struct Box
{
};
struct Silent : std::exception
{
    const char* what() const noexcept override
    {
        ::Test::WriteAt(0);
        return "";
    }
};

std::string reason;
std::string stack;

Platform::FaultAnswer Note(const Fault& fault)
{
    Platform::CallGuarded(
        [](void* data)
        {
            const HardwareException failure(data);
            reason = failure.Reason();
            stack = failure.Description();
        },
        const_cast<Fault*>(&fault));
    return Platform::FaultAnswer::Abandon;
}

[[gnu::noinline]] void ThrowInt()
{
    throw 42;
}

TEST(HardwareException, TellsWhatWasThrown)
{
    const struct
    {
        int (*body)(void*);
        const char* expected;
    } rows[] = {
        {[](void*) -> int { throw 42; }, "int"},
        {[](void*) -> int { throw 4u; }, "unsigned int"},
        {[](void*) -> int { throw "text"; }, "char const*"},
        {[](void*) -> int { throw std::runtime_error("50% off\r\n"); }, "std::runtime_error: 50% off\r\n"},
        {[](void*) -> int { throw Plain(); }, "(anonymous namespace)::Plain"},
        {[](void*) -> int { throw static_cast<Plain*>(nullptr); }, "(anonymous namespace)::Plain*"},
        {[](void*) -> int { throw Box<int>(); }, "N12_GLOBAL__N_13BoxIiEE"},
        {[](void*) -> int { throw Silent(); }, "(anonymous namespace)::Silent: "},
        {[](void*) -> int { std::rethrow_exception(std::make_exception_ptr(std::length_error("again"))); },
         "std::length_error: again"},
        {[](void*) -> int
         {
             try
             {
                 throw std::out_of_range("once");
             }
             catch (...)
             {
                 throw;
             }
         },
         "std::out_of_range: once"},
    };
    for (const auto& row : rows)
    {
        int result = 5;
        reason.clear();
        EXPECT_FALSE(Platform::CallProtected(row.body, nullptr, Note, result));
        EXPECT_EQ(reason, std::string("C++ Exception  -  ") + row.expected);
        EXPECT_EQ(result, 5);
        EXPECT_EQ(std::uncaught_exceptions(), 0);
        EXPECT_FALSE(std::current_exception());
    }
}

TEST(HardwareException, NamesTheThrower)
{
    int result = 0;
    const auto body = [](void*)
    {
        ThrowInt();
        return 1;
    };
    EXPECT_FALSE(Platform::CallProtected(body, nullptr, Note, result));
    const auto lines = Lines(stack);
    ASSERT_GT(lines.size(), 3u) << stack;
    unsigned long long address = 0;
    ASSERT_EQ(std::sscanf(lines[0].c_str(), " %llx", &address), 1);
    const auto function = reinterpret_cast<std::uintptr_t>(&ThrowInt);
    EXPECT_GT(address, function);
    EXPECT_LT(address, function + 256);
}

} // namespace
