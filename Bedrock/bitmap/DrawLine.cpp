// Lines, boxes and the walk along a row or column: the shapes that are made of straight kernel runs.

#include <Bedrock/bitmap/Bitmap.h>

#include <cstdlib>
#include <cstring>
#include <limits>
#include <utility>

namespace Zem
{

namespace
{

// One coordinate of a segment end, moved along the segment by `t`; cut toward zero. The arithmetic is in 32-bit floats.
std::int32_t Along(float t, std::int32_t a, std::int32_t b)
{
    const float moved = t * static_cast<float>(std::int64_t{a} - b) + static_cast<float>(b);
    if (!(moved > -2147483648.0f))
        return std::numeric_limits<std::int32_t>::min();
    if (!(moved < 2147483648.0f))
        return std::numeric_limits<std::int32_t>::max();
    return static_cast<std::int32_t>(moved);
}

// Clips the segment against one side. `axis` and `cross` name the coordinate that the side limits and the other one;
// `beyond` orders a coordinate against the side: above 0 outside, 0 on it. False: nothing of the segment is left.
template <class Beyond>
bool ClipSide(Point& a, Point& b, std::int32_t side, std::int32_t Point::*axis, std::int32_t Point::*cross,
              Beyond beyond)
{
    const std::int64_t outA = beyond(a.*axis), outB = beyond(b.*axis);
    if (outA >= 0 && outB >= 0)
        return outA == 0 && outB == 0;
    if (outA <= 0 && outB <= 0)
        return true;
    const float t =
        static_cast<float>(std::int64_t{side} - b.*axis) / static_cast<float>(std::int64_t{a.*axis} - b.*axis);
    Point& moved = outA > 0 ? a : b;
    moved.*cross = Along(t, a.*cross, b.*cross);
    moved.*axis = side;
    return true;
}

std::int32_t Saturate(std::int64_t value)
{
    if (value < std::numeric_limits<std::int32_t>::min())
        return std::numeric_limits<std::int32_t>::min();
    if (value > std::numeric_limits<std::int32_t>::max())
        return std::numeric_limits<std::int32_t>::max();
    return static_cast<std::int32_t>(value);
}

} // namespace

void Bitmap::ClipLine(Point& a, Point& b, Rect clip)
{
    const std::int32_t top = clip.y, bottom = Saturate(std::int64_t{clip.y} + clip.height - 1);
    const std::int32_t left = clip.x, right = Saturate(std::int64_t{clip.x} + clip.width - 1);
    const auto below = [](std::int32_t side) { return [side](std::int32_t v) { return std::int64_t{side} - v; }; };
    const auto above = [](std::int32_t side) { return [side](std::int32_t v) { return std::int64_t{v} - side; }; };
    if (!ClipSide(a, b, top, &Point::y, &Point::x, below(top)) ||
        !ClipSide(a, b, bottom, &Point::y, &Point::x, above(bottom)) ||
        !ClipSide(a, b, left, &Point::x, &Point::y, below(left)) ||
        !ClipSide(a, b, right, &Point::x, &Point::y, above(right)))
        a.x = b.x = -1;
}

void Bitmap::Line(Point a, Point b, PackedColor color, int style)
{
    Line(a, b, color, style, *this);
}

void Bitmap::Line(Point a, Point b, PackedColor color, int style, const Rect& clip)
{
    if (format == Blob)
        return;
    ClipLine(a, b, clip);
    if (a.y > b.y)
        std::swap(a, b);
    if (a.x == -1 || b.x == -1)
        return;
    if (style & 2)
        return AntialiasedLine(a, b, color, clip);

    const FillKernel kernel = style & 4 ? kernels.blendFill : kernels.fill;
    const std::int32_t dx = std::abs(b.x - a.x), dy = b.y - a.y, xdir = b.x < a.x ? -1 : 1;
    const std::int32_t pixel = static_cast<std::int32_t>(bytesPerPixel);
    unsigned char* at = GetPtr(a);
    if (dx == 0)
        return kernel(at, color, dy + 1, pitch);
    if (dy == 0)
        return kernel(xdir > 0 ? at : GetPtr(b), color, dx + 1, 0);
    if (dx == dy)
        return kernel(at, color, dy + 1, pixel * xdir + pitch);

    // Bresenham's run-length slices: `minor + 1` runs of `step` or `step + 1` pixels, the first and the last of half
    // that length, each one kernel call.
    const std::int32_t major = dx > dy ? dx : dy, minor = dx > dy ? dy : dx;
    const std::int32_t step = major / minor;
    const std::int32_t adjustUp = major % minor * 2, adjustDown = minor * 2;
    std::int32_t error = major % minor - minor * 2;
    std::int32_t first = step / 2 + 1;
    const std::int32_t last = first;
    if (adjustUp == 0 && step % 2 == 0)
        --first;
    if (step % 2 != 0)
        error += minor;

    const auto slices = [&](auto run)
    {
        run(first);
        for (std::int32_t i = 1; i < minor; ++i)
        {
            error += adjustUp;
            std::int32_t length = step;
            if (error > 0)
            {
                ++length;
                error -= adjustDown;
            }
            run(length);
        }
        run(last);
    };
    // Words that are just stored need no call for a run: most runs are a few pixels.
    const bool stores = !(style & 4) && (format == ARGB32 || format == XRGB32);
    if (stores)
    {
        const std::ptrdiff_t along = dx > dy ? 4 * xdir : pitch, across = dx > dy ? pitch : 4 * xdir;
        slices(
            [&](std::int32_t length)
            {
                for (; length > 0; --length, at += along)
                    std::memcpy(at, &color, 4);
                at += across;
            });
    }
    else if (dx > dy)
        slices(
            [&](std::int32_t length)
            {
                // A run to the left is the `length` pixels that end at the current one.
                kernel(xdir > 0 ? at : at - (length - 1) * pixel, color, length, 0);
                at += length * xdir * pixel + pitch;
            });
    else
        slices(
            [&](std::int32_t length)
            {
                kernel(at, color, length, pitch);
                at += static_cast<std::ptrdiff_t>(length) * pitch + xdir * pixel;
            });
}

void Bitmap::AntialiasedLine(Point a, Point b, PackedColor color, Rect)
{
    if (format == Blob)
        return;
    if (a.y > b.y)
        std::swap(a, b);
    Pixel(a, color);
    const std::int32_t dx = std::abs(b.x - a.x), dy = b.y - a.y, xdir = b.x < a.x ? -1 : 1;
    const bool wide = dx > dy;
    const std::int32_t major = wide ? dx : dy, minor = wide ? dy : dx;
    if (minor == 0 || dx == dy)
    {
        for (std::int32_t i = 0; i < major; ++i)
        {
            a.x += dx ? xdir : 0;
            a.y += dy ? 1 : 0;
            Pixel(a, color);
        }
        return;
    }

    // Wu's line: `acc` is the distance to the ideal line in 1/65536 pixels, shared by the two pixels beside it. Line has
    // clipped both ends, so only the neighbour can lie outside.
    const std::uint32_t adjust = static_cast<std::uint32_t>((static_cast<std::uint64_t>(minor) << 16) / major) & 0xFFFF;
    const std::uint32_t alpha = color.a;
    const std::int32_t pixel = static_cast<std::int32_t>(bytesPerPixel);
    const std::ptrdiff_t stepX = xdir * pixel, alongMajor = wide ? stepX : pitch, alongMinor = wide ? pitch : stepX;
    const bool words = format == ARGB32 || format == XRGB32;
    unsigned char* at = GetPtr(a);
    std::int32_t minorPlace = wide ? a.y : a.x;
    const std::int32_t minorStep = wide ? 1 : xdir, minorEnd = wide ? height : width;
    std::uint32_t acc = 0;
    const auto put = [&](unsigned char* place, std::uint32_t level)
    {
        color.a = static_cast<unsigned char>(level * alpha >> 8);
        if (words)
            std::memcpy(place, &color, 4);
        else
            kernels.fill(place, color, 1, 0);
    };
    for (std::int32_t i = 1; i < major; ++i)
    {
        acc += adjust;
        if (acc > 0xFFFF)
        {
            acc &= 0xFFFF;
            at += alongMinor;
            minorPlace += minorStep;
        }
        at += alongMajor;
        const std::uint32_t w = acc >> 8;
        put(at, w ^ 254);
        const std::int32_t neighbour = minorPlace + minorStep;
        if (neighbour >= 0 && neighbour < minorEnd)
            put(at + alongMinor, w);
    }
    color.a = static_cast<unsigned char>(alpha);
    Pixel(b, color);
}

void Bitmap::Box(Rect rect, PackedColor color, int style)
{
    Box(rect, color, style, *this);
}

void Bitmap::Box(Rect rect, PackedColor color, int style, const Rect& clip)
{
    if (format == Blob)
        return;
    if (style & 1)
    {
        const Rect area = rect.Intersect(clip);
        if (area.IsEmpty())
            return;
        const FillKernel kernel = style & 4 ? kernels.blendFill : kernels.fill;
        unsigned char* row = GetPtr(area);
        for (std::int32_t y = 0; y < area.height; ++y, row += pitch)
            kernel(row, color, area.width, 0);
        return;
    }
    if (rect.width <= 0)
        return;
    const std::int32_t right = Saturate(std::int64_t{rect.x} + rect.width - 1);
    const std::int32_t bottom = Saturate(std::int64_t{rect.y} + rect.height - 1);
    const int lineStyle = (style & 4) | 1;
    if (rect.height > 0)
        Line({rect.x, rect.y}, {right, rect.y}, color, lineStyle, clip);
    if (rect.height > 1)
        Line({right, bottom}, {rect.x, bottom}, color, lineStyle, clip);
    if (rect.height > 2)
    {
        Line({right, rect.y + 1}, {right, bottom - 1}, color, lineStyle, clip);
        Line({rect.x, bottom - 1}, {rect.x, rect.y + 1}, color, lineStyle, clip);
    }
}

int Bitmap::LineScan(const Point& from, const Point& to, std::uint32_t color)
{
    if (from.x != to.x && from.y != to.y)
        return 0; // off axis the walk would never meet `to`
    const auto direction = [](std::int32_t a, std::int32_t b) { return a < b ? 1 : a > b ? -1 : 0; };
    const Point step{direction(from.x, to.x), direction(from.y, to.y)};
    int count = 0;
    for (Point p = from; p != to; p.x += step.x, p.y += step.y)
    {
        ++count;
        if (static_cast<std::uint32_t>(Pixel(p)) != color)
            return count;
    }
    return 0;
}

} // namespace Zem
