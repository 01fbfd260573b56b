#pragma once

#include <Bedrock/Export.h>
#include <Bedrock/bitmap/Bitmap.h>
#include <Bedrock/maths/Console.h>

namespace Zem
{

/// Draws text in the console's font, 8 by 8 pixels a character times `scale`, its upper left corner at `at`; "\n" goes on in
/// the next line. Only lit pixels are drawn, in `color`, blended if its alpha is below 255, and only inside `clip` (and the
/// bitmap). A `scale` below 1 draws nothing.
///
///     DrawText(frame, {8, 8}, "Bedrock", PackedColor::white, frame, 2);
ZEM_API void DrawText(Bitmap& target, Point at, const char* text, PackedColor color, const Rect& clip, int scale = 1);

/// Draws what a console shows, all its cells, with the upper left corner at `at`: the text in `color` on `back`. A `back`
/// of alpha 0 leaves what is behind the text.
ZEM_API void DrawConsole(Bitmap& target, Point at, const Console& console, PackedColor color, PackedColor back,
                         int scale = 1);

} // namespace Zem
