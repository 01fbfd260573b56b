// The text console against a model that scrolls lines of text, and its pictures against the font.

#include <Bedrock/bitmap/ConsoleBitmap.h>

#include "support/Support.h"

#include <deque>

using namespace Zem;

namespace
{

// Rows of text; the cursor goes down, and in the last row the first is dropped.
struct Screen
{
    int width, height, x = 0, row = 0;
    std::deque<std::string> rows;

    Screen(int columns, int lines)
        : width(columns), height(lines),
          rows(static_cast<std::size_t>(lines), std::string(static_cast<std::size_t>(columns), ' '))
    {
    }

    void NewLine()
    {
        x = 0;
        if (++row < height)
            return;
        row = height - 1;
        rows.pop_front();
        rows.emplace_back(width, ' ');
    }
    void Put(char c)
    {
        rows[row][x++] = c;
        if (x == width)
            NewLine();
    }
};

std::string Shown(const Console& console)
{
    std::string text;
    for (int y = 0; y < console.Height(); ++y)
    {
        for (int x = 0; x < console.Width(); ++x)
            text += static_cast<char>(console.At(x, y));
        text += '|';
    }
    return text;
}

std::string Shown(const Screen& screen)
{
    std::string text;
    for (const std::string& row : screen.rows)
        text += row + '|';
    return text;
}

} // namespace

TEST(Console, RandomPrintingMatchesAScrollingScreen)
{
    std::mt19937_64 random = ::Test::Random(75);
    for (int run = 0; run < 400; ++run)
    {
        const int width = 2 + static_cast<int>(random() % 20), height = 1 + static_cast<int>(random() % 8);
        Console console;
        console.Init({width, height});
        Screen screen(width, height);
        for (int step = 0; step < 60; ++step)
        {
            const int count = static_cast<int>(random() % 30);
            const char c = static_cast<char>('!' + random() % 90);
            std::string text;
            for (int i = 0; i < count; ++i)
                text += random() % 12 == 0 ? '\n' : static_cast<char>('!' + random() % 200);
            switch (random() % 4)
            {
            case 0:
                console.Print(c, count);
                for (int i = 0; i < count; ++i)
                    screen.Put(c);
                break;
            case 1:
                console.Printf("%d%%%s", count, text.c_str());
                text = std::to_string(count) + '%' + text;
                for (const char letter : text)
                    letter == '\n' ? screen.NewLine() : screen.Put(letter);
                break;
            case 2: // elsewhere and back
            {
                const int x = static_cast<int>(random() % width), y = static_cast<int>(random() % height);
                console.Goto(x, y);
                console.Print(c, std::min(count, width - x - 1));
                for (int i = 0; i < std::min(count, width - x - 1); ++i)
                    screen.rows[y][x + i] = c;
                console.Goto(screen.x, screen.row);
                break;
            }
            default:
                console.Print(text.c_str());
                for (const char letter : text)
                    letter == '\n' ? screen.NewLine() : screen.Put(letter);
            }
            ASSERT_EQ(Shown(console), Shown(screen)) << "run " << run << " step " << step;
        }
    }
}

// The ring as it is: a new line clears a row only where it meets the rows that are shown from the top.
TEST(Console, NewLinesFromAnywhereKeepToTheRing)
{
    std::mt19937_64 random = ::Test::Random(76);
    for (int run = 0; run < 200; ++run)
    {
        const int width = 1 + static_cast<int>(random() % 5), height = 1 + static_cast<int>(random() % 6);
        Console console;
        console.Init({width, height});
        std::vector<std::string> rows(height, std::string(width, ' '));
        int top = 0, row = 0, x = 0;
        for (int step = 0; step < 80; ++step)
        {
            const char c = static_cast<char>('a' + random() % 26);
            const auto what = random() % 8;
            if (what == 0)
            {
                x = static_cast<int>(random() % width);
                row = static_cast<int>(random() % height);
                console.Goto(x, row);
                row = (top + row) % height;
            }
            else if (what < 6)
                console.Print(c, 1), rows[row][x++] = c;
            else
                console.Print("\n"), x = width;
            if (x == width)
            {
                x = 0;
                row = (row + 1) % height;
                if (row <= top)
                {
                    top = (top + 1) % height;
                    rows[row].assign(width, ' ');
                }
            }
            std::string shown;
            for (int y = 0; y < height; ++y)
                shown += rows[(top + y) % height] + '|';
            ASSERT_EQ(Shown(console), shown) << "run " << run << " step " << step;
        }
    }
}

TEST(Console, NumbersAndBarsFillTheirCells)
{
    Console console;
    console.Init({12, 2});
    const struct
    {
        int value, field;
        const char* shown;
    } numbers[] = {
        {0, 3, ">   *"},   {7, 3, ">  7*"},  {1234, 3, ">234*"}, {1204, 3, ">204*"},
        {100, 3, ">100*"}, {-5, 3, ">   *"}, {9, 0, ">***"},
    };
    for (const auto& number : numbers)
    {
        console.Clear();
        console.Print(">****");
        console.Goto(0, 0);
        console.Print(number.value, number.field);
        EXPECT_EQ(Shown(console).substr(0, std::strlen(number.shown)), number.shown) << number.value;
    }
    console.Goto(9, 1); // the cells that would lie behind the last are left out
    console.Print(12345678, 8);
    EXPECT_EQ(Shown(console).substr(13), "          12|");

    const struct
    {
        int value, total;
        const char* shown;
    } bars[] = {
        {0, 4, "    <"},
        {1, 4, "\xDD   <"},
        {2, 4, "\xDB   <"},
        {5, 4, "\xDB\xDB\xDD <"},
        {8, 4, "\xDB\xDB\xDB\xDB<"},
        {99, 4, "\xDB\xDB\xDB\xDB<"},
        {-3, 2, "  <"},
        {3, 0, "<"},
    };
    for (const auto& bar : bars)
    {
        console.Clear();
        console.Bar(bar.value, bar.total);
        console.Print("<");
        EXPECT_EQ(Shown(console).substr(0, std::strlen(bar.shown)), bar.shown) << bar.value;
    }
}

TEST(Console, BlitsWriteTheirCellsAndNothingElse)
{
    Console console;
    console.Init({40, 3});
    for (int i = 0; i < 4; ++i) // the ring has turned
        console.Printf("line %d\n", i);

    std::vector<std::uint8_t> text(160 * 3 + 8, 0xEE), expected = text;
    console.BlitToMono(reinterpret_cast<std::uintptr_t>(text.data()));
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 40; ++x)
            expected[160 * y + 2 * x] = console.At(x, y);
    EXPECT_EQ(text, expected);
    EXPECT_EQ(Shown(console).substr(0, 6), "line 2");

    std::vector<std::uint8_t> graphics(4 * 8192, 0xEE);
    expected = graphics;
    console.BlitToMono44(50, 40, reinterpret_cast<std::uintptr_t>(graphics.data()));
    for (int y = 0; y < 24; ++y)
        for (int x = 0; x < 40; ++x)
        {
            const int line = 40 * 8 + y;
            expected[line % 4 * 8192 + line / 4 * 90 + 50 + x] = Console::Glyph(console.At(x, y / 8))[y % 8];
        }
    EXPECT_TRUE(graphics == expected);
}

TEST(Console, TheFontHasTheGlyphsThatProgramsRelyOn)
{
    const auto glyph = [](int c)
    {
        return std::vector<int>(Console::Glyph(static_cast<std::uint8_t>(c)),
                                Console::Glyph(static_cast<std::uint8_t>(c)) + 8);
    };
    EXPECT_EQ(glyph(0), std::vector<int>(8, 0));
    EXPECT_EQ(glyph(' '), std::vector<int>(8, 0));
    EXPECT_EQ(glyph(0xDB), std::vector<int>(8, 0xFF));
    EXPECT_EQ(glyph(0xDD), std::vector<int>(8, 0xF0));
    EXPECT_EQ(glyph(0xDC), (std::vector<int>{0, 0, 0, 0, 255, 255, 255, 255}));

    // Frames join: what leaves one cell at an edge is what the next takes up.
    const std::string across = "\xC4\xC2\xC1\xC5", acrossTwice = "\xCD\xCB\xCA\xCE", down = "\xB3\xB4\xC3\xC5",
                      downTwice = "\xBA\xB9\xCC\xCE";
    for (const std::string& set : {across, acrossTwice})
        for (const char c : set)
            for (int y = 0; y < 8; ++y)
            {
                EXPECT_EQ(glyph(static_cast<std::uint8_t>(c))[y] >> 7, glyph(static_cast<std::uint8_t>(set[0]))[y] & 1)
                    << int(c) << " " << y;
                EXPECT_EQ(glyph(static_cast<std::uint8_t>(c))[y] & 1, glyph(static_cast<std::uint8_t>(set[0]))[y] & 1)
                    << int(c) << " " << y;
            }
    for (const std::string& set : {down, downTwice})
        for (const char c : set)
        {
            EXPECT_EQ(glyph(static_cast<std::uint8_t>(c))[0], glyph(static_cast<std::uint8_t>(set[0]))[0]) << int(c);
            EXPECT_EQ(glyph(static_cast<std::uint8_t>(c))[7], glyph(static_cast<std::uint8_t>(set[0]))[7]) << int(c);
        }
}

TEST(Console, DrawsIntoBitmapsPixelByPixel)
{
    for (const auto format : {Bitmap::ARGB32, Bitmap::RGB24, Bitmap::RGB16})
        for (const int scale : {1, 3})
        {
            Console console;
            console.Init({5, 2});
            console.Print("Ab\xDB~\nx");
            Bitmap bitmap({60 * scale / 2, 20 * scale}, format, nullptr);
            bitmap.Clear(PackedColor::blue);
            DrawConsole(bitmap, {-3, 2}, console, PackedColor::white, PackedColor::black, scale);
            for (int y = 0; y < 20 * scale; ++y)
                for (int x = 0; x < 60 * scale / 2; ++x)
                {
                    const int cx = (x + 3) / scale, cy = y < 2 ? -1 : (y - 2) / scale;
                    PackedColor expected = PackedColor::blue;
                    if (cx < 40 && cy >= 0 && cy < 16)
                        expected = Console::Glyph(console.At(cx / 8, cy / 8))[cy % 8] >> (7 - cx % 8) & 1
                                       ? PackedColor::white
                                       : PackedColor::black;
                    ASSERT_EQ(std::uint32_t(bitmap.Pixel(Point{x, y})) & 0xF8F8F8, std::uint32_t(expected) & 0xF8F8F8)
                        << x << " " << y;
                }
        }
}
