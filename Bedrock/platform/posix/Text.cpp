#include <Bedrock/platform/Text.h>

#include <cctype>
#include <cstdio>
#include <strings.h>

namespace Zem::Platform
{

int FormatBounded(char* buffer, std::size_t capacity, const char* format, std::va_list args) noexcept
{
    const int length = std::vsnprintf(buffer, capacity, format, args);
    if (length < 0)
        buffer[0] = '\0';
    return length < 0 || static_cast<std::size_t>(length) >= capacity ? -1 : length;
}

int FormatInt(char (&buffer)[34], std::int32_t value, unsigned radix) noexcept
{
    char digits[32]; // from the last one on
    int count = 0;
    int length = 0;
    auto rest = static_cast<std::uint32_t>(value);
    if (radix >= 2 && radix <= 36)
    {
        if (radix == 10 && value < 0)
        {
            buffer[length++] = '-';
            rest = 0 - rest;
        }
        do
        {
            digits[count++] = "0123456789abcdefghijklmnopqrstuvwxyz"[rest % radix];
            rest /= radix;
        } while (rest != 0);
    }
    while (count > 0)
        buffer[length++] = digits[--count];
    buffer[length] = '\0';
    return length;
}

unsigned ToLower(unsigned byte) noexcept
{
    return static_cast<unsigned>(std::tolower(static_cast<int>(byte & 0xFF)));
}

unsigned ToUpper(unsigned byte) noexcept
{
    return static_cast<unsigned>(std::toupper(static_cast<int>(byte & 0xFF)));
}

void LowerInPlace(char* text) noexcept
{
    for (; *text; ++text)
        *text = static_cast<char>(std::tolower(static_cast<unsigned char>(*text)));
}

void UpperInPlace(char* text) noexcept
{
    for (; *text; ++text)
        *text = static_cast<char>(std::toupper(static_cast<unsigned char>(*text)));
}

int CompareIgnoreCase(const char* a, const char* b) noexcept
{
    return strcasecmp(a, b);
}

int CompareIgnoreCase(const char* a, const char* b, std::size_t count) noexcept
{
    return strncasecmp(a, b, count);
}

} // namespace Zem::Platform
