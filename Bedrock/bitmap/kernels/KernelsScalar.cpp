// The reference kernels: one pixel at a time, each with its formula in integers. Every other level gives the same bytes.
//
// `s` is a component of the source, `d` of the destination, `a` the source's alpha, `w` is a + 1. Each >> truncates by
// itself: two products are shifted first and added then, so their lost halves do not meet. The weight of the
// destination is 255 - w where a colour fills RGB24 and RGB16 or pixels meet RGB16, and 256 - w elsewhere.

#include <Bedrock/bitmap/kernels/Kernels.h>

#include <cstring>

namespace Zem::Kernels
{

namespace
{

using Byte = unsigned char;

std::uint32_t Load32(const Byte* at)
{
    std::uint32_t word;
    std::memcpy(&word, at, 4);
    return word;
}

void Store32(Byte* at, std::uint32_t word)
{
    std::memcpy(at, &word, 4);
}

std::uint32_t Load16(const Byte* at)
{
    std::uint16_t word;
    std::memcpy(&word, at, 2);
    return word;
}

void Store16(Byte* at, std::uint32_t word)
{
    const auto low = static_cast<std::uint16_t>(word);
    std::memcpy(at, &low, 2);
}

// Narrowing cuts each component to its high bits.
std::uint32_t Narrow(std::uint32_t r, std::uint32_t g, std::uint32_t b)
{
    return r >> 3 << 11 | g >> 2 << 5 | b >> 3;
}

// An ascending copy, byte by byte as far as the result tells: where the destination begins inside the source, the
// bytes between their starts repeat. The repeated stretch doubles with each turn, so that this runs at memcpy's speed.
void CopyAscending(Byte* dst, const Byte* src, std::size_t bytes)
{
    const std::size_t distance = static_cast<std::size_t>(dst - src); // wraps to a large number for dst < src
    if (distance >= bytes)
    {
        std::memmove(dst, src, bytes);
        return;
    }
    if (distance == 0)
        return;
    std::size_t step = distance; // bytes from `src` to `dst`, all of them already final
    while (bytes > step)
    {
        std::memcpy(dst, src, step);
        dst += step;
        bytes -= step;
        step *= 2;
    }
    std::memcpy(dst, src, bytes);
}

// b, g, r and alpha 255.
void RGB24ToARGB(void* dst, const void* src, int count)
{
    auto to = static_cast<Byte*>(dst);
    auto from = static_cast<const Byte*>(src);
    for (; count > 0; --count, to += 4, from += 3)
        Store32(to, 0xFF000000u | static_cast<std::uint32_t>(from[2]) << 16 | static_cast<std::uint32_t>(from[1]) << 8 |
                        from[0]);
}

// Widening leaves the low bits of each component zero: 0xFFFF becomes 0xFFF8FCF8.
void RGB16ToARGB(void* dst, const void* src, int count)
{
    auto to = static_cast<Byte*>(dst);
    auto from = static_cast<const Byte*>(src);
    for (; count > 0; --count, to += 4, from += 2)
    {
        const std::uint32_t p = Load16(from);
        Store32(to, 0xFF000000u | (p << 8 & 0xF80000) | (p << 5 & 0xFC00) | (p << 3 & 0xF8));
    }
}

void RGB16ToRGB24(void* dst, const void* src, int count)
{
    auto to = static_cast<Byte*>(dst);
    auto from = static_cast<const Byte*>(src);
    for (; count > 0; --count, to += 3, from += 2)
    {
        const std::uint32_t p = Load16(from);
        to[0] = static_cast<Byte>(p << 3 & 0xF8);
        to[1] = static_cast<Byte>(p >> 3 & 0xFC);
        to[2] = static_cast<Byte>(p >> 8 & 0xF8);
    }
}

void RGB24ToRGB16(void* dst, const void* src, int count)
{
    auto to = static_cast<Byte*>(dst);
    auto from = static_cast<const Byte*>(src);
    for (; count > 0; --count, to += 2, from += 3)
        Store16(to, Narrow(from[2], from[1], from[0]));
}

// a = 0 keeps the destination. a = 255, or a destination with alpha 0, stores the source word whole. Otherwise:
//
//     da = 255:  w = a + 1                      new alpha 255
//     else:      w = (a + 1 + 255 - da) >> 1    new alpha (65536 - (255 - a) * (255 - da)) >> 8
//     colour     (s * w >> 8) + (d * (256 - w) >> 8)
std::uint32_t BlendWords(std::uint32_t s, std::uint32_t d)
{
    const std::uint32_t a = s >> 24;
    const std::uint32_t da = d >> 24;
    if (a == 0)
        return d;
    if (a == 255 || da == 0)
        return s;
    std::uint32_t w = a + 1;
    std::uint32_t alpha = 255;
    if (da != 255)
    {
        w = (a + 1 + 255 - da) >> 1;
        alpha = (65536 - (255 - a) * (255 - da)) >> 8;
    }
    std::uint32_t result = alpha << 24;
    for (int shift = 0; shift < 24; shift += 8)
        result |= (((s >> shift & 255) * w >> 8) + ((d >> shift & 255) * (256 - w) >> 8)) << shift;
    return result;
}

void BlendARGB(void* dst, const void* src, int count)
{
    auto to = static_cast<Byte*>(dst);
    auto from = static_cast<const Byte*>(src);
    for (; count > 0; --count, to += 4, from += 4)
        Store32(to, BlendWords(Load32(from), Load32(to)));
}

// Fields of a 5-6-5 pixel under a colour, with dw = 255 - w:
//
//     red    (R * w >> 11) + (dr * dw >> 8)
//     green  (G * w >> 10) + (dg * dw >> 8)
//     blue   (B * w >> 11) + (db * dw >> 8)
std::uint32_t Mix16(std::uint32_t s, std::uint32_t d, std::uint32_t w)
{
    const std::uint32_t dw = 255 - w;
    const std::uint32_t red = ((s >> 16 & 255) * w >> 11) + ((d >> 11) * dw >> 8);
    const std::uint32_t green = ((s >> 8 & 255) * w >> 10) + ((d >> 5 & 63) * dw >> 8);
    const std::uint32_t blue = ((s & 255) * w >> 11) + ((d & 31) * dw >> 8);
    return (red << 11) + (green << 5) + blue;
}

// As a fill of RGB16 for each pixel, but that the parts of a pixel below its lowest bit count: where the cut-off part of
// the blue term, plus w, reaches 65536, the pixel is one higher.
void BlendARGBToRGB16(void* dst, const void* src, int count)
{
    auto to = static_cast<Byte*>(dst);
    auto from = static_cast<const Byte*>(src);
    for (; count > 0; --count, to += 2, from += 4)
    {
        const std::uint32_t s = Load32(from);
        const std::uint32_t a = s >> 24;
        if (a == 0)
            continue;
        if (a == 255)
        {
            Store16(to, Narrow(s >> 16 & 255, s >> 8 & 255, s & 255));
            continue;
        }
        const std::uint32_t w = a + 1;
        const std::uint32_t cut = ((s & 255) * w << 5) & 0xFFFF;
        Store16(to, Mix16(s, Load16(to), w) + (cut + w > 0xFFFF ? 1 : 0));
    }
}

// (s * w >> 8) + (d * (256 - w) >> 8); the fill below has 255 - w.
void BlendARGBToRGB24(void* dst, const void* src, int count)
{
    auto to = static_cast<Byte*>(dst);
    auto from = static_cast<const Byte*>(src);
    for (; count > 0; --count, to += 3, from += 4)
    {
        const std::uint32_t s = Load32(from);
        const std::uint32_t a = s >> 24;
        if (a == 0)
            continue;
        const std::uint32_t w = a + 1; // 256 gives the source's bytes unchanged
        for (int i = 0; i < 3; ++i)
            to[i] = static_cast<Byte>(((s >> 8 * i & 255) * w >> 8) + (to[i] * (256 - w) >> 8));
    }
}

void FillARGB(void* dst, PackedColor color, int count, int stride)
{
    auto to = static_cast<Byte*>(dst);
    const std::ptrdiff_t step = stride == 0 ? 4 : stride;
    for (; count > 0; --count, to += step)
        Store32(to, color);
}

void FillRGB16(void* dst, PackedColor color, int count, int stride)
{
    auto to = static_cast<Byte*>(dst);
    const std::ptrdiff_t step = stride == 0 ? 2 : stride;
    const std::uint32_t w = color.a + 1u;
    if (color.a == 0)
        return;
    if (color.a == 255)
    {
        const std::uint32_t narrow = Narrow(color.r, color.g, color.b);
        for (; count > 0; --count, to += step)
            Store16(to, narrow);
        return;
    }
    for (; count > 0; --count, to += step)
        Store16(to, Mix16(color, Load16(to), w));
}

// (s * w >> 8) + (d * (255 - w) >> 8)
void FillRGB24(void* dst, PackedColor color, int count, int stride)
{
    auto to = static_cast<Byte*>(dst);
    const std::ptrdiff_t step = stride == 0 ? 3 : stride;
    if (color.a == 0)
        return;
    if (color.a == 255)
    {
        for (; count > 0; --count, to += step)
        {
            to[0] = color.b;
            to[1] = color.g;
            to[2] = color.r;
        }
        return;
    }
    const std::uint32_t w = color.a + 1u;
    const std::uint32_t term[3] = {color.b * w >> 8, color.g * w >> 8, color.r * w >> 8};
    for (; count > 0; --count, to += step)
        for (int i = 0; i < 3; ++i)
            to[i] = static_cast<Byte>(term[i] + (to[i] * (255 - w) >> 8));
}

void BlendFillARGB(void* dst, PackedColor color, int count, int stride)
{
    auto to = static_cast<Byte*>(dst);
    const std::ptrdiff_t step = stride == 0 ? 4 : stride;
    if (color.a == 0)
        return;
    if (color.a == 255)
        return FillARGB(dst, color, count, stride);
    for (; count > 0; --count, to += step)
        Store32(to, BlendWords(color, Load32(to)));
}

} // namespace

void CopyARGB(void* dst, const void* src, int count)
{
    CopyAscending(static_cast<Byte*>(dst), static_cast<const Byte*>(src), static_cast<std::size_t>(count) * 4);
}

void CopyRGB24(void* dst, const void* src, int count)
{
    CopyAscending(static_cast<Byte*>(dst), static_cast<const Byte*>(src), static_cast<std::size_t>(count) * 3);
}

void CopyRGB16(void* dst, const void* src, int count)
{
    CopyAscending(static_cast<Byte*>(dst), static_cast<const Byte*>(src), static_cast<std::size_t>(count) * 2);
}

constinit const Set scalarSet = {
    CopyARGB,  CopyRGB24,        CopyRGB16,        RGB24ToARGB, RGB16ToARGB, RGB16ToRGB24, RGB24ToRGB16,
    BlendARGB, BlendARGBToRGB16, BlendARGBToRGB24, FillARGB,    FillRGB16,   FillRGB24,    BlendFillARGB,
};

} // namespace Zem::Kernels
