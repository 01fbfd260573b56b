#pragma once

#include <Bedrock/host/Exception.h>

#include <cstdint>

namespace Zem
{

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"

/// A fault of the processor, or a thrown object that is no `Exception`, as the report shows it: the reason is the kind
/// of fault, the description the registers and the call stack. Never thrown.
///
/// Building one uses no heap. Its line under construction is static, so one is built at a time.
class ZEM_API HardwareException : public Exception
{
public:
    /// A kind of fault.
    struct Type
    {
        std::uint32_t code;
        const char* name;
    };

    static constexpr int exceptionTypeCount = 21;
    static const Type exceptionTypes[exceptionTypeCount];

    /// Describes a fault; `information` is the platform's record of it (a `Platform::Fault`) and is kept by pointer.
    /// Whatever goes wrong on the way keeps what has been written and says so at the end of the description.
    explicit HardwareException(void* information);
    HardwareException(const HardwareException&) noexcept = default;
    HardwareException& operator=(const HardwareException&) noexcept = default;

    const char* Class() const noexcept override;

private:
    void Describe();
    void GetCallStack(void* information);
    void FollowFramePointers(std::uintptr_t address, std::uintptr_t frame, std::uintptr_t stack);
    bool AddLine(std::uintptr_t address);

    static char tmpDescription[1024]; // the line under construction

    void* information;
};

#pragma GCC diagnostic pop

} // namespace Zem
