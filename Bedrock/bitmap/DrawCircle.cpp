// Midpoint circles: outline, filled, antialiased.

#include <Bedrock/bitmap/Bitmap.h>

#include <cmath>

namespace Zem
{

namespace
{

// A place that no 32-bit coordinate can hold lies outside every clip.
bool Fits(std::int64_t v)
{
    return v == static_cast<std::int32_t>(v);
}

} // namespace

void Bitmap::DrawCirclePoints(Point center, int x, int y, PackedColor color, Rect clip)
{
    if (format == Blob)
        return;
    const std::int64_t cx = center.x, cy = center.y;
    const auto point = [&](std::int64_t px, std::int64_t py)
    {
        if (Fits(px) && Fits(py))
            Pixel(Point{static_cast<std::int32_t>(px), static_cast<std::int32_t>(py)}, color, clip);
    };
    point(cx + x, cy + y);
    point(cx - x, cy + y);
    point(cx + x, cy - y);
    point(cx - x, cy - y);
    point(cx + y, cy + x);
    point(cx - y, cy + x);
    point(cx + y, cy - x);
    point(cx - y, cy - x);
}

void Bitmap::DrawHLine(std::int64_t x0, std::int64_t x1, std::int64_t y, PackedColor color, const Rect& clip)
{
    if (y < clip.y || y >= std::int64_t{clip.y} + clip.height)
        return;
    const std::int64_t last = std::int64_t{clip.x} + clip.width - 1;
    x0 = x0 < clip.x ? clip.x : x0;
    x1 = x1 > last ? last : x1;
    if (x0 <= x1)
        kernels.fill(GetPtr(Point{static_cast<std::int32_t>(x0), static_cast<std::int32_t>(y)}), color,
                     static_cast<int>(x1 - x0 + 1), 0);
}

// The rows of a filled circle that the step to (x, y) completes. A row near the top or bottom (`cap`) is drawn only
// when its final width is known, so that no row is written twice.
void Bitmap::DrawCircleLines(Point center, int x, int y, PackedColor color, bool& cap, const Rect& clip)
{
    const std::int64_t cx = center.x, cy = center.y;
    if (cap)
    {
        DrawHLine(cx - x + 1, cx + x - 1, cy + y + 1, color, clip);
        DrawHLine(cx - x + 1, cx + x - 1, cy - y - 1, color, clip);
    }
    DrawHLine(cx - y, cx + y, cy + x, color, clip);
    DrawHLine(cx - y, cx + y, cy - x, color, clip);
    cap = false;
}

void Bitmap::Circle(Point center, int radius, PackedColor color, int style)
{
    Circle(center, radius, color, style, *this);
}

void Bitmap::Circle(Point center, int radius, PackedColor color, int style, const Rect& clip)
{
    const std::int64_t cx = center.x, cy = center.y, r = radius;
    if (format == Blob || cx + r < clip.x || cx - r >= std::int64_t{clip.x} + clip.width || cy + r < clip.y ||
        cy - r >= std::int64_t{clip.y} + clip.height)
        return;
    const bool filled = style & 1, smooth = style & 2;
    int x = 0, y = radius;
    std::int64_t d = 1 - r, deltaE = 3, deltaSE = 5 - 2 * r;
    bool cap = false;

    if (smooth)
    {
        PackedColor half = color;
        half.a = static_cast<unsigned char>(color.a >> 1);
        if (!filled)
            DrawCirclePoints(center, 0, radius, half, clip);
        DrawCirclePoints(center, 0, radius + 1, half, clip);
    }
    else if (!filled)
        DrawCirclePoints(center, 0, radius, color, clip);

    if (radius > 0)
        do
        {
            if (d < 0)
            {
                d += deltaE;
                deltaSE += 2;
            }
            else
            {
                d += deltaSE;
                deltaSE += 4;
                --y;
                cap = x < y;
            }
            deltaE += 2;
            ++x;
            if (smooth)
            {
                // How far the true circle lies outside this pixel's ring decides how the two rings share the colour.
                const double f = std::sqrt(static_cast<double>(x) * x + static_cast<double>(y) * y) + 0.5 - radius;
                PackedColor shade = color;
                if (!filled)
                {
                    shade.a = static_cast<unsigned char>(static_cast<int>(color.a * f));
                    DrawCirclePoints(center, x, y, shade, clip);
                }
                shade.a = static_cast<unsigned char>(static_cast<int>((1.0 - f) * color.a));
                DrawCirclePoints(center, x, y + 1, shade, clip);
            }
            if (filled)
                DrawCircleLines(center, x, y, color, cap, clip);
            else if (!smooth)
                DrawCirclePoints(center, x, y, color, clip);
        } while (y > x);
    if (filled)
        DrawHLine(cx - r, cx + r, cy, color, clip);
}

} // namespace Zem
