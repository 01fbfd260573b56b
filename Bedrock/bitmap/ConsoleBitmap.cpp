#include <Bedrock/bitmap/ConsoleBitmap.h>

#include <bit>

namespace Zem
{

namespace
{

// Each run of lit pixels in a scan line is one filled box.
void DrawGlyph(Bitmap& target, Point at, std::uint8_t character, PackedColor color, const Rect& clip, int scale)
{
    const int style = Bitmap::StyleFilled | (color.a == 255 ? 0 : Bitmap::StyleBlend);
    const std::uint8_t* glyph = Console::Glyph(character);
    for (int y = 0; y < Console::glyphSize; ++y)
        for (unsigned row = glyph[y]; row != 0;)
        {
            const int x = std::countl_zero(static_cast<std::uint8_t>(row));
            const int length = std::countl_one(static_cast<std::uint8_t>(row << x));
            target.Box({at.x + x * scale, at.y + y * scale, length * scale, scale}, color, style, clip);
            row &= 0xFFu >> (x + length);
        }
}

} // namespace

void DrawText(Bitmap& target, Point at, const char* text, PackedColor color, const Rect& clip, int scale)
{
    if (scale < 1)
        return;
    Point place = at;
    for (; *text; ++text)
        if (*text == '\n')
            place = {at.x, place.y + Console::glyphSize * scale};
        else
        {
            DrawGlyph(target, place, static_cast<std::uint8_t>(*text), color, clip, scale);
            place.x += Console::glyphSize * scale;
        }
}

void DrawConsole(Bitmap& target, Point at, const Console& console, PackedColor color, PackedColor back, int scale)
{
    if (scale < 1)
        return;
    const int cell = Console::glyphSize * scale;
    const Rect clip = target;
    if (back.a != 0)
        target.Box({at.x, at.y, console.Width() * cell, console.Height() * cell}, back,
                   Bitmap::StyleFilled | (back.a == 255 ? 0 : Bitmap::StyleBlend), clip);
    for (int y = 0; y < console.Height(); ++y)
        for (int x = 0; x < console.Width(); ++x)
            DrawGlyph(target, {at.x + x * cell, at.y + y * cell}, console.At(x, y), color, clip, scale);
}

} // namespace Zem
