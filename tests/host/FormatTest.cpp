// Printing into a bounded buffer beside the C library's: the common formats take a way of their own.

#include <Bedrock/platform/Text.h>

#include "support/Support.h"

#include <climits>
#include <cstdarg>
#include <cstdio>
#include <string>
#include <vector>

namespace
{

struct Printed
{
    int length;
    std::string text;
    bool operator==(const Printed&) const = default;
};

// In a heap block of exactly `capacity` bytes.
Printed Ours(std::size_t capacity, const char* format, ...)
{
    const auto block = ::Test::Exact(std::vector<char>(capacity, '#'));
    std::va_list args;
    va_start(args, format);
    const int length = Zem::Platform::FormatBounded(reinterpret_cast<char*>(block.get()), capacity, format, args);
    va_end(args);
    return {length, reinterpret_cast<char*>(block.get())};
}

Printed Theirs(std::size_t capacity, const char* format, ...)
{
    std::vector<char> block(capacity);
    std::va_list args;
    va_start(args, format);
    const int length = std::vsnprintf(block.data(), capacity, format, args);
    va_end(args);
    return {length >= static_cast<int>(capacity) ? -1 : length, block.data()};
}

TEST(Format, AgreesWithTheCLibrary)
{
    auto random = ::Test::Random(3);
    const char* const parts[] = {"%d",  "%i",   "%u",    "%x",   "%X",    "%c",     "%%",   "abc",   " ",
                                 "%5d", "-",    "x",     "%08X", "%-4u",  "%%%d%%", "%.3d", "% d%%", "0",
                                 "%+d", "%hhu", "%-12d", "%03i", "%012u", "%0x",    "%-0d", "%1X"};
    const int numbers[] = {0, 1, -1, 9, 10, -10, 12345, INT_MAX, INT_MIN, 'A', 255};
    const char* const texts[] = {"", "a", "a longer text", "100%", nullptr};
    for (int round = 0; round < 50000; ++round)
    {
        // A text in front and behind, and up to three numbers between.
        std::string format = random() % 2 ? "%s" : "<%s>";
        int count = 0;
        for (std::size_t n = random() % 6; n > 0; --n)
        {
            const std::string part = parts[random() % std::size(parts)];
            const bool takes = part.find_first_of("dixXuc") != std::string::npos && part[0] == '%';
            if (takes && count == 3)
                continue;
            count += takes;
            format += part;
        }
        for (; count < 3; ++count)
            format += "%d";
        format += random() % 2   ? "%s"
                  : random() % 2 ? "%.2s."
                  : random() % 2 ? "%-9s|%%"
                  : random() % 2 ? "%9.3s"
                                 : "%-.0s%%";
        const int a = numbers[random() % std::size(numbers)];
        const int b = numbers[random() % std::size(numbers)];
        const int c = numbers[random() % std::size(numbers)];
        const char* const front = texts[random() % std::size(texts)];
        const char* const back = texts[random() % std::size(texts)];
        const std::size_t capacity = 1 + random() % 100;
        // A zero from %c would hide what is behind it.
        const bool hides = format.find("%c") != std::string::npos && (!(a & 255) || !(b & 255) || !(c & 255));
        const auto ours = Ours(capacity, format.c_str(), front, a, b, c, back);
        const auto theirs = Theirs(capacity, format.c_str(), front, a, b, c, back);
        ASSERT_EQ(ours.length, theirs.length) << format << " " << capacity;
        ASSERT_TRUE(hides || ours == theirs) << format << ": " << ours.text << " for " << theirs.text;
    }
}

} // namespace
