#include <Bedrock/platform/Text.h>

namespace Zem::Platform
{

int FormatBounded(char* buffer, std::size_t, const char*, std::va_list) noexcept
{
    buffer[0] = '\0';
    return -1;
}

int FormatInt(char (&buffer)[34], std::int32_t, unsigned) noexcept
{
    buffer[0] = '\0';
    return 0;
}

// Without a locale only A to Z have a case.

unsigned ToLower(unsigned byte) noexcept
{
    return ToLowerAscii(static_cast<unsigned char>(byte));
}

unsigned ToUpper(unsigned byte) noexcept
{
    return (byte & 0xFF) >= 'a' && (byte & 0xFF) <= 'z' ? (byte & 0xFF) - 32 : byte & 0xFF;
}

void LowerInPlace(char* text) noexcept
{
    for (; *text; ++text)
        *text = static_cast<char>(ToLower(static_cast<unsigned char>(*text)));
}

void UpperInPlace(char* text) noexcept
{
    for (; *text; ++text)
        *text = static_cast<char>(ToUpper(static_cast<unsigned char>(*text)));
}

int CompareIgnoreCase(const char* a, const char* b) noexcept
{
    return CompareIgnoreCaseAscii(a, b);
}

int CompareIgnoreCase(const char* a, const char* b, std::size_t count) noexcept
{
    for (; count > 0; --count, ++a, ++b)
    {
        const unsigned char x = ToLowerAscii(static_cast<unsigned char>(*a));
        const unsigned char y = ToLowerAscii(static_cast<unsigned char>(*b));
        if (x != y)
            return x < y ? -1 : 1;
        if (x == 0)
            break;
    }
    return 0;
}

} // namespace Zem::Platform
