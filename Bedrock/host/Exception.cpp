#include <Bedrock/host/Exception.h>

#include <Bedrock/platform/Text.h>

#include <cstring>
#include <initializer_list>

namespace Zem
{

namespace
{

// Formatting goes to a scratch buffer first, so that an argument may be the very text that is replaced.
void Replace(char* target, std::size_t capacity, char* scratch, const char* format, std::va_list args)
{
    Platform::FormatBounded(scratch, capacity, format, args);
    std::strcpy(target, scratch);
}

} // namespace

Exception::Exception() noexcept
{
    InitMembers();
}

Exception::Exception(const char* sourceFile, int sourceLine) noexcept
{
    InitMembers();
    file = sourceFile;
    line = sourceLine;
    std::strcpy(description, "No call stack available\r\n");
}

Exception::Exception(const char* sourceFile, int sourceLine, const char* text) noexcept
    : Exception(sourceFile, sourceLine)
{
    if (!text)
        return;
    for (std::uint32_t n = 0; text[n] && n < ReasonSize - 1; ++n)
        reason[n] = text[n]; // the rest is cleared
}

void Exception::InitMembers() noexcept
{
    // Whole arrays: a copy takes them whole.
    std::memset(description, 0, sizeof(description));
    std::memset(reason, 0, sizeof(reason));
    hardware = false;
    line = 0;
    file = nullptr;
}

const char* Exception::Class() const noexcept
{
    return "Unknown";
}

bool Exception::IsHardwareException() const noexcept
{
    return hardware;
}

const char* Exception::Description() const noexcept
{
    return description;
}

const char* Exception::Reason() const noexcept
{
    return reason;
}

void Exception::VSetReasonf(const char* format, std::va_list args) noexcept
{
    char scratch[ReasonSize];
    Replace(reason, sizeof(scratch), scratch, format, args);
}

void Exception::SetReasonf(const char* format, ...) noexcept
{
    std::va_list args;
    va_start(args, format);
    VSetReasonf(format, args);
    va_end(args);
}

void Exception::AddReasonf(const char* format, ...) noexcept
{
    // The text is made before the separator lands: an argument may be the reason as it was.
    char text[ReasonSize];
    std::va_list args;
    va_start(args, format);
    Platform::FormatBounded(text, sizeof(text), format, args);
    va_end(args);

    std::size_t length = std::strlen(reason);
    for (const char* part : {"  -  ", static_cast<const char*>(text)})
        while (*part && length < ReasonSize - 1)
            reason[length++] = *part++;
    reason[length] = '\0';
}

void Exception::VSetDescriptionf(const char* format, std::va_list args) noexcept
{
    char scratch[DescriptionSize];
    Replace(description, sizeof(scratch), scratch, format, args);
}

void Exception::SetDescriptionf(const char* format, ...) noexcept
{
    std::va_list args;
    va_start(args, format);
    VSetDescriptionf(format, args);
    va_end(args);
}

FileEx::FileEx(const char* sourceFile, int sourceLine) noexcept : Exception(sourceFile, sourceLine)
{
}

FileEx::FileEx(const char* sourceFile, int sourceLine, const char* text) noexcept
    : Exception(sourceFile, sourceLine, text)
{
}

const char* FileEx::Class() const noexcept
{
    return "File";
}

} // namespace Zem
