#include <Bedrock/platform/Text.h>

#include <cctype>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <strings.h>

namespace Zem::Platform
{

namespace
{

// The digits of a number, written so that they end before `end`; where they begin.
char* PutDecimal(char* end, std::uint32_t number) noexcept
{
    do
        *--end = static_cast<char>('0' + number % 10);
    while ((number /= 10) != 0);
    return end;
}

char* PutHexadecimal(char* end, std::uint32_t number, const char* digits) noexcept
{
    do
        *--end = digits[number & 15];
    while ((number >>= 4) != 0);
    return end;
}

char* Fill(char* to, char c, std::size_t count) noexcept
{
    std::memset(to, c, count);
    return to + count;
}

// What a "%" asks for, of the common forms.
struct Conversion
{
    bool left = false; // to the left end of the field
    bool zeros = false;
    std::size_t width = 0;
    std::size_t precision = SIZE_MAX; // of a text
    char kind = 0;
};

std::size_t ParseNumber(const char*& at) noexcept
{
    std::size_t number = 0;
    for (; *at >= '0' && *at <= '9' && number < 100000; ++at)
        number = number * 10 + static_cast<std::size_t>(*at - '0');
    return number;
}

// Reads one behind its "%", whose kind stays 0 when the form is another.
Conversion Parse(const char*& at) noexcept
{
    Conversion conversion;
    if (*at == '-')
        conversion.left = *at++ == '-';
    else if (*at == '0')
        conversion.zeros = *at++ == '0';
    if (*at >= '1' && *at <= '9')
        conversion.width = ParseNumber(at);
    if (at[0] == '.' && at[1] >= '0' && at[1] <= '9')
    {
        conversion.precision = ParseNumber(++at);
        if (*at != 's')
            return conversion;
    }
    const bool plain = !conversion.left && !conversion.zeros && conversion.width == 0;
    if (*at && std::strchr("diuxX", *at))
        conversion.kind = *at++;
    else if (*at == 's' && !conversion.zeros)
        conversion.kind = *at++;
    else if ((*at == 'c' || *at == '%') && plain)
        conversion.kind = *at++;
    return conversion;
}

// Prints formats that hold only %d, %i, %u, %x, %X, %s with a width, %c and %%: most of all that is printed. -1 for every
// other format, and for an output that does not fit; what `buffer` holds then says nothing.
int FormatSimply(char* const buffer, std::size_t capacity, const char* format, std::va_list& args) noexcept
{
    char* to = buffer;
    char* const end = buffer + capacity - 1;
    for (;;)
    {
        while (*format && *format != '%')
        {
            if (to == end)
                return -1;
            *to++ = *format++;
        }
        if (!*format)
        {
            *to = '\0';
            return to - buffer <= INT_MAX ? static_cast<int>(to - buffer) : -1;
        }
        const Conversion conversion = Parse(++format);
        char digits[16];
        char* const behind = digits + sizeof digits;
        const char* text = behind;
        std::size_t length = 0;
        bool negative = false;
        switch (conversion.kind)
        {
        case 'd':
        case 'i':
        {
            const int number = va_arg(args, int);
            negative = number < 0;
            text = PutDecimal(behind, negative ? 0u - static_cast<unsigned>(number) : static_cast<unsigned>(number));
            break;
        }
        case 'u':
            text = PutDecimal(behind, va_arg(args, unsigned));
            break;
        case 'x':
            text = PutHexadecimal(behind, va_arg(args, unsigned), "0123456789abcdef");
            break;
        case 'X':
            text = PutHexadecimal(behind, va_arg(args, unsigned), "0123456789ABCDEF");
            break;
        case 'c':
            behind[-1] = static_cast<char>(va_arg(args, int));
            text = behind - 1;
            break;
        case 's':
            text = va_arg(args, const char*);
            if (!text)
                return -1;
            length = conversion.precision == SIZE_MAX ? std::strlen(text) : strnlen(text, conversion.precision);
            break;
        case '%':
            behind[-1] = '%';
            text = behind - 1;
            break;
        default:
            return -1;
        }
        if (conversion.kind != 's')
            length = static_cast<std::size_t>(behind - text);
        const std::size_t whole = length + negative;
        const std::size_t fill = conversion.width > whole ? conversion.width - whole : 0;
        if (whole + fill > static_cast<std::size_t>(end - to))
            return -1;
        if (fill > 0 && !conversion.left && !conversion.zeros)
            to = Fill(to, ' ', fill);
        if (negative)
            *to++ = '-';
        if (fill > 0 && conversion.zeros)
            to = Fill(to, '0', fill);
        std::memcpy(to, text, length);
        to += length;
        if (fill > 0 && conversion.left)
            to = Fill(to, ' ', fill);
    }
}

} // namespace

int FormatBounded(char* buffer, std::size_t capacity, const char* format, std::va_list args) noexcept
{
    std::va_list simple;
    va_copy(simple, args);
    const int printed = FormatSimply(buffer, capacity, format, simple);
    va_end(simple);
    if (printed >= 0)
        return printed;
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
