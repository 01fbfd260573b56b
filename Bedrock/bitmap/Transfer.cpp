// Transfers between bitmaps: composite, copy, and repeat, a row at a time through one kernel.

#include <Bedrock/bitmap/Bitmap.h>

namespace Zem
{

void Bitmap::Transfer(TransferKernel kernel, const Bitmap& source, Point at, Point corner, const Rect& sourceRect,
                      const Rect& clip)
{
    if (format == Blob || !pixels || !source.pixels || !kernel)
        return;
    const Rect dest = Rect(corner, sourceRect).Intersect(clip);
    const Rect src = sourceRect.Intersect(source);
    if (dest.IsEmpty() || src.IsEmpty())
        return;
    // What clipping took off the destination's left and top is skipped in the source too.
    const std::int64_t sourceX = std::int64_t{src.x} + dest.x - at.x, sourceY = std::int64_t{src.y} + dest.y - at.y;
    const auto least = [](std::int64_t a, std::int64_t b, std::int64_t c)
    { return a < b ? (a < c ? a : c) : (b < c ? b : c); };
    const std::int64_t columns = least(dest.width, src.width, source.width - sourceX);
    const std::int64_t rows = least(dest.height, src.height, source.height - sourceY);
    if (columns <= 0 || sourceX < 0 || sourceY < 0)
        return;
    const unsigned char* from =
        source.GetPtr(Point{static_cast<std::int32_t>(sourceX), static_cast<std::int32_t>(sourceY)});
    unsigned char* to = GetPtr(dest);
    for (std::int64_t y = 0; y < rows; ++y, from += source.pitch, to += pitch)
        kernel(to, from, static_cast<int>(columns));
}

void Bitmap::Image(const Bitmap& source, const Point& at, int flags)
{
    Image(source, at, source, flags, *this);
}

void Bitmap::Image(const Bitmap& source, const Point& at, const Rect& sourceRect, int flags)
{
    Image(source, at, sourceRect, flags, *this);
}

void Bitmap::Image(const Bitmap& source, const Point& at, const Rect& sourceRect, int, const Rect& clip)
{
    Transfer(GetBlitter(source.format, true), source, at, at, sourceRect, clip);
}

void Bitmap::CopyImage(const Bitmap& source, const Point& at, int flags)
{
    CopyImage(source, at, source, flags, *this);
}

void Bitmap::CopyImage(const Bitmap& source, const Point& at, const Rect& sourceRect, int flags)
{
    CopyImage(source, at, sourceRect, flags, *this);
}

void Bitmap::CopyImage(const Bitmap& source, const Point& at, const Rect& sourceRect, int, const Rect& clip)
{
    // A source rectangle that starts left of or above the source moves the destination by that overhang.
    const auto moved = [](std::int32_t place, std::int32_t start)
    {
        const std::int64_t sum = start < 0 ? std::int64_t{place} - start : place;
        return static_cast<std::int32_t>(sum > INT32_MAX ? INT32_MAX : sum);
    };
    const Point corner{moved(at.x, sourceRect.x), moved(at.y, sourceRect.y)};
    Transfer(GetBlitter(source.format, false), source, at, corner, sourceRect, clip);
}

void Bitmap::Image(const Bitmap& source, const Rect& target, const Rect& tile, int flags, const Rect& clip)
{
    const Rect area = target.Intersect(clip);
    if (format == Blob || !pixels || area.IsEmpty() || tile.IsEmpty())
        return;
    // The last repeat that starts before the area's first column (row) and reaches it.
    const auto firstRepeat = [](std::int64_t start, std::int64_t size, std::int64_t areaStart)
    {
        const std::int64_t gap = areaStart - start - size;
        return gap > 0 ? start + (gap + size - 1) / size * size : start;
    };
    const std::int64_t tx = firstRepeat(target.x, tile.width, area.x);
    const std::int64_t ty = firstRepeat(target.y, tile.height, area.y);
    const std::int64_t right = std::int64_t{area.x} + area.width, bottom = std::int64_t{area.y} + area.height;

    std::int64_t x = tx;
    for (; x < std::int64_t{area.x} + tile.width; x += tile.width)
        for (std::int64_t y = ty; y < bottom; y += tile.height)
            if (x < right) // further right nothing of the area is left
                Image(source, Point{static_cast<std::int32_t>(x), static_cast<std::int32_t>(y)}, tile, flags, area);
    if (x >= right)
        return;
    // The band that is done repeats itself: the kernel copies in ascending order, over its own output.
    const auto pixel = static_cast<std::ptrdiff_t>(bytesPerPixel);
    unsigned char* to = GetPtr(Point{static_cast<std::int32_t>(x), area.y});
    for (std::int32_t y = 0; y < area.height; ++y, to += pitch)
        kernels.copySame(to, to - tile.width * pixel, static_cast<int>(right - x));
}

} // namespace Zem
