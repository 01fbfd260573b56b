#pragma once

#include <Bedrock/Export.h>
#include <Bedrock/Types.h>
#include <Bedrock/memory/HeapOperators.h>

#include <cstdint>

namespace Zem
{

/// A small text screen in memory: rows of one width in a ring, a cursor, printing that wraps and scrolls. What it holds
/// shows nowhere until it is copied out: into the memory of a monochrome adapter, or a buffer of that layout, by the two
/// blits; into a bitmap by `DrawConsole` (`Bedrock/bitmap/ConsoleBitmap.h`).
///
///     Console console;
///     console.Init({40, 10});
///     console.Printf("%d jobs\n", count);
///     console.Bar(level, 20);
///
/// A cell holds one character of the PC's character set, code page 437. Nothing is reported, and nothing written outside
/// the console's cells, whatever is printed. Before `Init`, and if `Init` found no memory, every operation does nothing.
/// A console belongs to one thread at a time.
class ZEM_API Console
{
    ZEM_HEAP_OPERATORS
public:
    static constexpr int glyphSize = 8; // pixels across and down

    Console() noexcept = default;
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;
    ~Console();

    /// Makes `size.width` columns and `size.height` rows, all blank, and frees what was there before. A size of 0 or less
    /// makes none.
    void Init(const Size& size) noexcept;
    void Done() noexcept;

    /// Becomes a copy of `other`: size, cells and cursor. False on an exhausted heap, nothing changed.
    bool CopyFrom(const Console& other) noexcept;

    /// All cells blank, the cursor at the first.
    void Clear() noexcept;

    /// Prints formatted text; what passes 1,023 characters is cut.
    [[gnu::format(printf, 2, 3)]] void Printf(const char* format, ...) noexcept;
    /// Prints text: each character goes to the cursor's cell; a full row goes on in the next, and "\n" begins the next row at
    /// once. In the last row the oldest row makes room.
    void Print(const char* text) noexcept;
    /// Prints `c` `count` times, "\n" as a character like others. Nothing if `count` is not above 0.
    void Print(char c, int count) noexcept;
    void Print(unsigned char c, int count) = delete; // would be printed as a number
    /// Writes the last `field` decimal digits of `value` right-aligned into the `field` cells behind the cursor's own, with
    /// blanks in front; 0 is all blanks. The cursor stays. Cells that lie outside the console are left out, and a negative
    /// `value` writes blanks.
    void Print(int value, int field) noexcept;
    /// Prints a level meter of `total` cells: a full block for each 2 of `value`, a half block for a remaining 1, blanks.
    /// `value` is limited to 0 to 2 `total`.
    void Bar(int value, int total) noexcept;

    /// Puts the cursor into column `x` of shown row `y`, both from 0; limited to the console. Meant for printing within that
    /// row: on a console that has scrolled, a new line may scroll from rows above the last too. The first row shown comes to
    /// stand last then, and the one that the cursor comes to is cleared.
    void Goto(int x, int y) noexcept;

    /// Writes the characters into a text screen of 80 columns at `address`, 2 bytes a cell and 160 a row; the attribute
    /// bytes stay. The screen must have room for all rows and columns.
    void BlitToMono(std::uintptr_t address) const noexcept;
    /// Draws the text in column `x` and row `y` of a graphics screen of 720 by 348 pixels at `address`: 90 bytes a line, 8
    /// pixels a byte, lines in four banks of 8,192 bytes. A cell is 1 byte wide and 8 lines tall, so there are 90 by 43.
    /// Nothing is clipped.
    void BlitToMono44(int x, int y, std::uintptr_t address) const noexcept;

    int Width() const noexcept { return width; }
    int Height() const noexcept { return height; }
    /// The character in column `x` of shown row `y`, which lie in the console.
    std::uint8_t At(int x, int y) const noexcept { return Row(y)[x]; }

    /// The 8 scan lines of a character from the top, the highest bit leftmost, set where lit.
    static const std::uint8_t* Glyph(std::uint8_t character) noexcept { return f50_font + character * glyphSize; }

private:
    static const std::uint8_t f50_font[256 * glyphSize];

    const std::uint8_t* Row(int y) const noexcept;
    void Put(std::uint8_t c) noexcept;
    void NewLine() noexcept;

    std::int32_t width = 0;
    std::int32_t height = 0;
    std::uint8_t* buffer = nullptr; // `width` cells a row, `height` rows
    std::int32_t topLine = 0;       // the row of `buffer` that is shown first
    std::uint8_t* cursor = nullptr;
    std::uint8_t* lineEnd = nullptr; // behind the cursor's row
};

} // namespace Zem
