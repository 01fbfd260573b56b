#include <Bedrock/maths/Console.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace Zem
{

Console::~Console()
{
    Done();
}

void Console::Init(const Size& size) noexcept
{
    Done();
    if (size.width <= 0 || size.height <= 0)
        return;
    buffer = static_cast<std::uint8_t*>(
        Alloc::New(static_cast<std::size_t>(size.width) * static_cast<std::size_t>(size.height)));
    if (!buffer)
        return;
    width = size.width;
    height = size.height;
    Clear();
}

void Console::Done() noexcept
{
    Alloc::Delete(buffer);
    buffer = cursor = lineEnd = nullptr;
    width = height = topLine = 0;
}

bool Console::CopyFrom(const Console& other) noexcept
{
    if (this == &other)
        return true;
    std::uint8_t* cells = nullptr;
    if (other.buffer)
    {
        const std::size_t size = static_cast<std::size_t>(other.width) * static_cast<std::size_t>(other.height);
        cells = static_cast<std::uint8_t*>(Alloc::New(size));
        if (!cells)
            return false;
        std::memcpy(cells, other.buffer, size);
    }
    Done();
    buffer = cells;
    width = other.width;
    height = other.height;
    topLine = other.topLine;
    cursor = cells ? cells + (other.cursor - other.buffer) : nullptr;
    lineEnd = cells ? cells + (other.lineEnd - other.buffer) : nullptr;
    return true;
}

void Console::Clear() noexcept
{
    if (!buffer)
        return;
    std::memset(buffer, ' ', static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
    topLine = 0;
    cursor = buffer;
    lineEnd = buffer + width;
}

void Console::Printf(const char* format, ...) noexcept
{
    char text[1024];
    std::va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    if (length > 0)
        Print(text);
}

void Console::Print(const char* text) noexcept
{
    if (!buffer)
        return;
    for (; *text; ++text)
        if (*text == '\n')
            NewLine();
        else
            Put(static_cast<std::uint8_t>(*text));
}

void Console::Print(char c, int count) noexcept
{
    if (!buffer)
        return;
    for (; count > 0; --count)
        Put(static_cast<std::uint8_t>(c));
}

void Console::Print(int value, int field) noexcept
{
    if (!buffer)
        return;
    const std::uint8_t* end = buffer + static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    const std::ptrdiff_t room = end - cursor - 1;
    for (; field > 0; --field, value /= 10)
        if (field <= room)
            cursor[field] = value > 0 ? static_cast<std::uint8_t>('0' + value % 10) : ' ';
}

void Console::Bar(int value, int total) noexcept
{
    constexpr auto fullBlock = static_cast<char>(0xDB);
    constexpr auto halfBlock = static_cast<char>(0xDD);
    if (total <= 0)
        return;
    const int full = std::min(std::max(value, 0) / 2, total);
    const int half = full < total && value > 0 ? value % 2 : 0;
    Print(fullBlock, full);
    Print(halfBlock, half);
    Print(' ', total - full - half);
}

void Console::Goto(int x, int y) noexcept
{
    if (!buffer)
        return;
    const int row = (topLine + std::clamp(y, 0, height - 1)) % height;
    std::uint8_t* start = buffer + static_cast<std::size_t>(row) * static_cast<std::size_t>(width);
    cursor = start + std::clamp(x, 0, width - 1);
    lineEnd = start + width;
}

void Console::BlitToMono(std::uintptr_t address) const noexcept
{
    auto* screen = reinterpret_cast<volatile std::uint8_t*>(address); // an adapter, perhaps
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            screen[160 * y + 2 * x] = At(x, y);
}

void Console::BlitToMono44(int x, int y, std::uintptr_t address) const noexcept
{
    constexpr int bank = 8192, line = 90;
    auto* screen = reinterpret_cast<volatile std::uint8_t*>(address);
    for (int i = 0; i < height; ++i)
        for (int j = 0; j < width; ++j)
        {
            const std::uint8_t* glyph = Glyph(At(j, i));
            for (int k = 0; k < glyphSize; ++k)
                screen[(y + i) * 2 * line + x + j + k % 4 * bank + k / 4 * line] = glyph[k];
        }
}

const std::uint8_t* Console::Row(int y) const noexcept
{
    return buffer + static_cast<std::size_t>((topLine + y) % height) * static_cast<std::size_t>(width);
}

void Console::Put(std::uint8_t c) noexcept
{
    *cursor++ = c;
    if (cursor == lineEnd)
    {
        --cursor; // the row that was filled
        NewLine();
    }
}

void Console::NewLine() noexcept
{
    int row = static_cast<int>((cursor - buffer) / width) + 1;
    if (row == height)
        row = 0;
    cursor = buffer + static_cast<std::size_t>(row) * static_cast<std::size_t>(width);
    lineEnd = cursor + width;
    if (row <= topLine) // the ring is full: the oldest row makes room
    {
        topLine = topLine + 1 == height ? 0 : topLine + 1;
        std::memset(cursor, ' ', static_cast<std::size_t>(width));
    }
}

} // namespace Zem
