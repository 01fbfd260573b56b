// Effects over a rectangle: grey-scaling and stippling.

#include <Bedrock/bitmap/Bitmap.h>

namespace Zem
{

void Bitmap::GrayScale(const Rect& rect)
{
    GrayScale(rect, false, *this);
}

void Bitmap::GrayScale(const Rect& rect, bool dim)
{
    GrayScale(rect, dim, *this);
}

void Bitmap::GrayScale(const Rect& rect, const Rect& clip)
{
    GrayScale(rect, false, clip);
}

void Bitmap::GrayScale(const Rect& rect, bool dim, const Rect& clip)
{
    const Rect area = rect.Intersect(clip);
    if (format == Blob || area.IsEmpty())
        return;
    constexpr std::int32_t chunk = 1024; // pixels converted at a time, on the stack
    PackedColor buffer[chunk] = {};
    for (std::int32_t y = 0; y < area.height; ++y)
        for (std::int32_t x = 0; x < area.width; x += chunk)
        {
            const std::int32_t count = area.width - x < chunk ? area.width - x : chunk;
            unsigned char* at = GetPtr(Point{area.x + x, area.y + y});
            kernels.readARGB(buffer, at, count);
            // The checkerboard of halved alphas is fixed to absolute coordinates.
            std::uint32_t phase = static_cast<std::uint32_t>(area.x + x) ^ static_cast<std::uint32_t>(area.y + y);
            for (std::int32_t i = 0; i < count; ++i, ++phase)
            {
                PackedColor& c = buffer[i];
                c.r = c.g = c.b = static_cast<unsigned char>((c.r + c.g + c.b) / 3);
                if (dim && (phase & 1))
                    c.a = static_cast<unsigned char>(c.a >> 1);
            }
            kernels.from32(at, buffer, count);
        }
}

void Bitmap::Stipple(const Rect& rect, PackedColor color, const Rect& clip)
{
    const Rect area = rect.Intersect(clip);
    if (format == Blob || area.width < 2 || area.height < 1)
        return;
    for (std::int32_t y = 0; y < area.height; ++y)
    {
        const std::int32_t odd = (area.x ^ (area.y + y)) & 1;
        kernels.fill(GetPtr(Point{area.x + odd, area.y + y}), color, odd ? area.width / 2 : (area.width + 1) / 2,
                     2 * static_cast<int>(bytesPerPixel));
    }
}

} // namespace Zem
