#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>

/// Text functions whose answer depends on the process's character locale, or whose bounds differ from system to system.
///
/// Text is bytes with a terminating zero; a byte counts as 0 to 255. Case follows LC_CTYPE as it is at the call, one
/// byte at a time: in a UTF-8 locale no byte from 128 on has a case. The `Ascii` forms know A to Z alone and give the
/// same answer in every locale: use them for keys and words that are part of a format. Nothing here allocates on
/// purpose, blocks, or sets an error that a caller could see.
namespace Zem::Platform
{

/// Prints to `buffer` of `capacity` bytes, at least 1; the result is always terminated.
///
/// Returns: characters written, the terminator not counted, at most `capacity - 1`; -1 if the output does not fit or
/// `format` is in error, and then `buffer` holds the characters that fitted, maybe none.
int FormatBounded(char* buffer, std::size_t capacity, const char* format, std::va_list args) noexcept;

/// The same for an array: up to `N - 1` characters.
template <std::size_t N>
int FormatBounded(char (&buffer)[N], const char* format, std::va_list args) noexcept
{
    return FormatBounded(buffer, N, format, args);
}

/// The digits of `value` in `radix`, 2 to 36, small letters. Only radix 10 has a sign, the others show the 32 bits. A
/// radix outside gives an empty text. Returns: characters written, the terminator not counted.
int FormatInt(char (&buffer)[34], std::int32_t value, unsigned radix) noexcept;

/// One byte, 0 to 255, in its other case, or itself.
unsigned ToLower(unsigned byte) noexcept;
unsigned ToUpper(unsigned byte) noexcept;

/// The same for every byte of a text up to its terminator.
void LowerInPlace(char* text) noexcept;
void UpperInPlace(char* text) noexcept;

/// Order of two texts by their lower-case bytes: below 0, 0 or above 0. The second form looks at no more than `count`
/// bytes.
int CompareIgnoreCase(const char* a, const char* b) noexcept;
int CompareIgnoreCase(const char* a, const char* b, std::size_t count) noexcept;

constexpr unsigned char ToLowerAscii(unsigned char byte) noexcept
{
    return byte >= 'A' && byte <= 'Z' ? static_cast<unsigned char>(byte + 32) : byte;
}

/// As `CompareIgnoreCase`, in every locale alike.
constexpr int CompareIgnoreCaseAscii(const char* a, const char* b) noexcept
{
    for (;; ++a, ++b)
    {
        const unsigned char x = ToLowerAscii(static_cast<unsigned char>(*a));
        const unsigned char y = ToLowerAscii(static_cast<unsigned char>(*b));
        if (x != y)
            return x < y ? -1 : 1;
        if (x == 0)
            return 0;
    }
}

} // namespace Zem::Platform
