// Kernels of 128 bits, for x86 processors without AVX2. The pixels and their formulas are those of KernelsScalar.cpp,
// the plan of each kernel that of KernelsAvx2.cpp with vectors of half the width; the comments here say what SSE2 lacks.

#include <Bedrock/bitmap/kernels/Kernels.h>

#include <emmintrin.h>

#define ALWAYS static inline __attribute__((always_inline))

namespace Zem::Kernels
{

extern const Set sse2Set;

namespace
{

using Byte = unsigned char;

ALWAYS __m128i Load(const void* at)
{
    return _mm_loadu_si128(static_cast<const __m128i*>(at));
}

ALWAYS void Store(void* at, __m128i v)
{
    _mm_storeu_si128(static_cast<__m128i*>(at), v);
}

// Where the destination starts inside the source, or pixels of different sizes overlap, whole vectors differ from an
// ascending walk over single pixels, and the scalar kernel does the work.
ALWAYS bool WritesAhead(const void* dst, const void* src, int count, int dstPixel, int srcPixel)
{
    const __UINTPTR_TYPE__ d = reinterpret_cast<__UINTPTR_TYPE__>(dst);
    const __UINTPTR_TYPE__ s = reinterpret_cast<__UINTPTR_TYPE__>(src);
    const __UINTPTR_TYPE__ n = static_cast<__UINTPTR_TYPE__>(static_cast<unsigned>(count));
    if (dstPixel == srcPixel && d <= s)
        return false;
    return d < s + n * static_cast<unsigned>(srcPixel) && s < d + n * static_cast<unsigned>(dstPixel);
}

// b where the mask is set, else a.
ALWAYS __m128i Select(__m128i a, __m128i b, __m128i mask)
{
    return _mm_or_si128(_mm_andnot_si128(mask, a), _mm_and_si128(mask, b));
}

// Two vectors of numbers below 65536 as one of 16-bit lanes: the packing of SSE2 saturates as signed, so the numbers
// are sign-extended first.
ALWAYS __m128i PackLow(__m128i first, __m128i second)
{
    return _mm_packs_epi32(_mm_srai_epi32(_mm_slli_epi32(first, 16), 16),
                           _mm_srai_epi32(_mm_slli_epi32(second, 16), 16));
}

ALWAYS __m128i PackHigh(__m128i first, __m128i second)
{
    return _mm_packs_epi32(_mm_srai_epi32(first, 16), _mm_srai_epi32(second, 16));
}

ALWAYS __m128i Lane(int lane, int mask)
{
    return _mm_set_epi32(lane == 3 ? mask : 0, lane == 2 ? mask : 0, lane == 1 ? mask : 0, lane == 0 ? mask : 0);
}

// Four pixels of three bytes (16 bytes are read): the whole vector moves by one byte more for each word.
ALWAYS __m128i Expand24(const Byte* at)
{
    const __m128i v = Load(at);
    const int colour = 0xFFFFFF;
    const __m128i front =
        _mm_or_si128(_mm_and_si128(v, Lane(0, colour)), _mm_and_si128(_mm_slli_si128(v, 1), Lane(1, colour)));
    const __m128i back = _mm_or_si128(_mm_and_si128(_mm_slli_si128(v, 2), Lane(2, colour)),
                                      _mm_and_si128(_mm_slli_si128(v, 3), Lane(3, colour)));
    return _mm_or_si128(front, back);
}

// The reverse: exactly 12 bytes are written.
ALWAYS void StorePacked24(Byte* at, __m128i v)
{
    const int colour = 0xFFFFFF;
    const __m128i front =
        _mm_or_si128(_mm_and_si128(v, Lane(0, colour)), _mm_srli_si128(_mm_and_si128(v, Lane(1, colour)), 1));
    const __m128i back = _mm_or_si128(_mm_srli_si128(_mm_and_si128(v, Lane(2, colour)), 2),
                                      _mm_srli_si128(_mm_and_si128(v, Lane(3, colour)), 3));
    v = _mm_or_si128(front, back);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(at), v);
    const int last = _mm_cvtsi128_si32(_mm_srli_si128(v, 8));
    __builtin_memcpy(at + 8, &last, 4);
}

ALWAYS void Widen16(__m128i p, __m128i& first, __m128i& second)
{
    const __m128i low = _mm_or_si128(_mm_and_si128(_mm_slli_epi16(p, 5), _mm_set1_epi16(-0x0400)),
                                     _mm_and_si128(_mm_slli_epi16(p, 3), _mm_set1_epi16(0x00F8)));
    const __m128i high =
        _mm_or_si128(_mm_and_si128(_mm_srli_epi16(p, 8), _mm_set1_epi16(0x00F8)), _mm_set1_epi16(-0x0100));
    first = _mm_unpacklo_epi16(low, high);
    second = _mm_unpackhi_epi16(low, high);
}

ALWAYS __m128i Narrow16(__m128i high, __m128i low)
{
    return _mm_or_si128(_mm_and_si128(_mm_slli_epi16(high, 8), _mm_set1_epi16(-0x0800)),
                        _mm_or_si128(_mm_and_si128(_mm_srli_epi16(low, 5), _mm_set1_epi16(0x07E0)),
                                     _mm_and_si128(_mm_srli_epi16(low, 3), _mm_set1_epi16(0x001F))));
}

ALWAYS __m128i Scale16(__m128i d, __m128i dw256)
{
    const __m128i red = _mm_set1_epi16(-0x0800);
    const __m128i green = _mm_set1_epi16(0x07E0);
    const __m128i blue = _mm_set1_epi16(0x001F);
    const __m128i r = _mm_and_si128(_mm_mulhi_epu16(_mm_and_si128(d, red), dw256), red);
    const __m128i g = _mm_and_si128(_mm_mulhi_epu16(_mm_and_si128(d, green), dw256), green);
    const __m128i b = _mm_mulhi_epu16(_mm_and_si128(d, blue), dw256);
    return _mm_add_epi16(r, _mm_add_epi16(g, b));
}

// (s * w >> 8) + (d * v >> 8) on all bytes, even and odd ones apart.
ALWAYS __m128i Mix(__m128i s, __m128i d, __m128i w, __m128i v)
{
    const __m128i even = _mm_set1_epi16(0x00FF);
    const __m128i s0 = _mm_srli_epi16(_mm_mullo_epi16(_mm_and_si128(s, even), w), 8);
    const __m128i d0 = _mm_srli_epi16(_mm_mullo_epi16(_mm_and_si128(d, even), v), 8);
    const __m128i s1 = _mm_andnot_si128(even, _mm_mullo_epi16(_mm_srli_epi16(s, 8), w));
    const __m128i d1 = _mm_andnot_si128(even, _mm_mullo_epi16(_mm_srli_epi16(d, 8), v));
    return _mm_or_si128(_mm_add_epi16(s0, d0), _mm_add_epi16(s1, d1));
}

ALWAYS __m128i ScaleBytes(__m128i d, __m128i v, __m128i source)
{
    const __m128i even = _mm_set1_epi16(0x00FF);
    const __m128i d0 = _mm_srli_epi16(_mm_mullo_epi16(_mm_and_si128(d, even), v), 8);
    const __m128i d1 = _mm_andnot_si128(even, _mm_mullo_epi16(_mm_srli_epi16(d, 8), v));
    return _mm_add_epi8(_mm_or_si128(d0, d1), source);
}

ALWAYS __m128i AlphaMask()
{
    return _mm_set1_epi32(static_cast<int>(0xFF000000));
}

ALWAYS __m128i OverOpaque(__m128i s, __m128i d)
{
    const __m128i a32 = _mm_srli_epi32(s, 24);
    const __m128i a = _mm_or_si128(a32, _mm_slli_epi32(a32, 16));
    const __m128i w = _mm_add_epi16(a, _mm_set1_epi16(1));
    const __m128i v = _mm_sub_epi16(_mm_set1_epi16(255), a);
    const __m128i mixed = _mm_or_si128(Mix(s, d, w, v), AlphaMask());
    return Select(mixed, d, _mm_cmpeq_epi16(a, _mm_setzero_si128()));
}

ALWAYS __m128i OverAny(__m128i s, __m128i d)
{
    const __m128i full = _mm_set1_epi32(255);
    const __m128i zero = _mm_setzero_si128();
    const __m128i a = _mm_srli_epi32(s, 24);
    const __m128i da = _mm_srli_epi32(d, 24);
    const __m128i opaque = _mm_cmpeq_epi32(da, full);
    const __m128i partly = _mm_srli_epi32(_mm_sub_epi32(_mm_add_epi32(a, _mm_set1_epi32(256)), da), 1);
    __m128i w = Select(partly, _mm_add_epi32(a, _mm_set1_epi32(1)), opaque);
    w = _mm_or_si128(w, _mm_slli_epi32(w, 16));
    const __m128i v = _mm_sub_epi16(_mm_set1_epi16(256), w);
    const __m128i x = _mm_mullo_epi16(_mm_sub_epi32(full, a), _mm_sub_epi32(full, da));
    const __m128i alpha = _mm_min_epi16(_mm_srli_epi32(_mm_sub_epi32(_mm_set1_epi32(65536), x), 8), full);
    __m128i mixed = Select(Mix(s, d, w, v), _mm_slli_epi32(alpha, 24), AlphaMask());
    mixed = Select(mixed, s, _mm_or_si128(_mm_cmpeq_epi32(a, full), _mm_cmpeq_epi32(da, zero)));
    return Select(mixed, d, _mm_cmpeq_epi32(a, zero));
}

ALWAYS bool AllOpaque(__m128i s)
{
    return (_mm_movemask_epi8(_mm_cmpeq_epi8(s, _mm_set1_epi32(-1))) & 0x8888) == 0x8888;
}

ALWAYS bool AllClear(__m128i s)
{
    return (_mm_movemask_epi8(_mm_cmpeq_epi8(s, _mm_setzero_si128())) & 0x8888) == 0x8888;
}

void RGB24ToARGB(void* dst, const void* src, int count)
{
    auto to = static_cast<Byte*>(dst);
    auto from = static_cast<const Byte*>(src);
    if (!WritesAhead(dst, src, count, 4, 3))
        for (; count >= 6; count -= 4, to += 16, from += 12) // the load reaches 4 bytes past its pixels
            Store(to, _mm_or_si128(Expand24(from), AlphaMask()));
    if (count > 0)
        scalarSet.rgb24ToARGB(to, from, count);
}

void RGB16ToARGB(void* dst, const void* src, int count)
{
    auto to = static_cast<Byte*>(dst);
    auto from = static_cast<const Byte*>(src);
    if (!WritesAhead(dst, src, count, 4, 2))
        for (; count >= 8; count -= 8, to += 32, from += 16)
        {
            __m128i first, second;
            Widen16(Load(from), first, second);
            Store(to, first);
            Store(to + 16, second);
        }
    if (count > 0)
        scalarSet.rgb16ToARGB(to, from, count);
}

void RGB16ToRGB24(void* dst, const void* src, int count)
{
    auto to = static_cast<Byte*>(dst);
    auto from = static_cast<const Byte*>(src);
    if (!WritesAhead(dst, src, count, 3, 2))
        for (; count >= 8; count -= 8, to += 24, from += 16)
        {
            __m128i first, second;
            Widen16(Load(from), first, second);
            StorePacked24(to, first);
            StorePacked24(to + 12, second);
        }
    if (count > 0)
        scalarSet.rgb16ToRGB24(to, from, count);
}

void RGB24ToRGB16(void* dst, const void* src, int count)
{
    auto to = static_cast<Byte*>(dst);
    auto from = static_cast<const Byte*>(src);
    if (!WritesAhead(dst, src, count, 2, 3))
        for (; count >= 10; count -= 8, to += 16, from += 24)
        {
            const __m128i first = Expand24(from);
            const __m128i second = Expand24(from + 12);
            Store(to, Narrow16(PackHigh(first, second), PackLow(first, second)));
        }
    if (count > 0)
        scalarSet.rgb24ToRGB16(to, from, count);
}

void BlendARGB(void* dst, const void* src, int count)
{
    auto to = static_cast<Byte*>(dst);
    auto from = static_cast<const Byte*>(src);
    if (!WritesAhead(dst, src, count, 4, 4))
        for (; count >= 4; count -= 4, to += 16, from += 16)
        {
            const __m128i s = Load(from);
            if (AllClear(s))
                continue;
            if (AllOpaque(s))
            {
                Store(to, s);
                continue;
            }
            const __m128i d = Load(to);
            Store(to, AllOpaque(d) ? OverOpaque(s, d) : OverAny(s, d));
        }
    if (count > 0)
        scalarSet.blendARGB(to, from, count);
}

void BlendARGBToRGB16(void* dst, const void* src, int count)
{
    auto to = static_cast<Byte*>(dst);
    auto from = static_cast<const Byte*>(src);
    const __m128i one = _mm_set1_epi16(1);
    const __m128i byte = _mm_set1_epi16(255);
    if (!WritesAhead(dst, src, count, 2, 4))
        for (; count >= 8; count -= 8, to += 16, from += 32)
        {
            const __m128i first = Load(from);
            const __m128i second = Load(from + 16);
            if (AllClear(_mm_or_si128(first, second)))
                continue;
            const __m128i high = PackHigh(first, second); // a r
            const __m128i low = PackLow(first, second);   // g b
            const __m128i narrow = Narrow16(high, low);
            if (AllOpaque(_mm_and_si128(first, second)))
            {
                Store(to, narrow);
                continue;
            }
            const __m128i d = Load(to);
            const __m128i a = _mm_srli_epi16(high, 8);
            const __m128i w = _mm_add_epi16(a, one);
            const __m128i v = _mm_sub_epi16(byte, w); // wrong where a is 255; those lanes are replaced below
            const __m128i r = _mm_mullo_epi16(_mm_and_si128(high, byte), w);
            const __m128i g = _mm_mullo_epi16(_mm_srli_epi16(low, 8), w);
            const __m128i b = _mm_mullo_epi16(_mm_and_si128(low, byte), w);
            __m128i mixed = _mm_add_epi16(
                _mm_and_si128(r, _mm_set1_epi16(-0x0800)),
                _mm_add_epi16(_mm_and_si128(_mm_srli_epi16(g, 5), _mm_set1_epi16(0x07E0)), _mm_srli_epi16(b, 11)));
            mixed = _mm_add_epi16(mixed, Scale16(d, _mm_slli_epi16(v, 8)));
            // The carry from below: b << 5 is above 65535 - w exactly where the saturating difference is not 0.
            const __m128i room = _mm_xor_si128(w, _mm_set1_epi16(-1));
            const __m128i none = _mm_cmpeq_epi16(_mm_subs_epu16(_mm_slli_epi16(b, 5), room), _mm_setzero_si128());
            mixed = _mm_add_epi16(_mm_add_epi16(mixed, one), none);
            mixed = Select(mixed, narrow, _mm_cmpeq_epi16(a, byte));
            Store(to, Select(mixed, d, _mm_cmpeq_epi16(a, _mm_setzero_si128())));
        }
    if (count > 0)
        scalarSet.blendARGBToRGB16(to, from, count);
}

void BlendARGBToRGB24(void* dst, const void* src, int count)
{
    auto to = static_cast<Byte*>(dst);
    auto from = static_cast<const Byte*>(src);
    if (!WritesAhead(dst, src, count, 3, 4))
        for (; count >= 6; count -= 4, to += 12, from += 16) // the load of the destination reaches 4 bytes too far
        {
            const __m128i s = Load(from);
            if (AllClear(s))
                continue;
            StorePacked24(to, AllOpaque(s) ? s : OverOpaque(s, Expand24(to)));
        }
    if (count > 0)
        scalarSet.blendARGBToRGB24(to, from, count);
}

// `bytes` bytes, at least 16 and a multiple of 4, as the AVX2 kernels fill them.
ALWAYS void FillWords(Byte* to, unsigned word, __SIZE_TYPE__ words)
{
    if (words * 4 >= 1u << 15)
    {
        void* at = to;
        asm volatile("rep stosl" : "+D"(at), "+c"(words) : "a"(word) : "memory");
        return;
    }
    const __m128i pattern = _mm_set1_epi32(static_cast<int>(word));
    Byte* const end = to + words * 4;
    Store(to, pattern);
    Byte* at = to + ((16 - (reinterpret_cast<__UINTPTR_TYPE__>(to) & 15)) & 12);
    for (; end - at >= 64; at += 64)
    {
        Store(at, pattern);
        Store(at + 16, pattern);
        Store(at + 32, pattern);
        Store(at + 48, pattern);
    }
    for (; end - at >= 16; at += 16)
        Store(at, pattern);
    Store(end - 16, pattern);
}

void FillARGB(void* dst, PackedColor color, int count, int stride)
{
    if ((stride != 0 && stride != 4) || count < 4)
        return scalarSet.fillARGB(dst, color, count, stride);
    unsigned word;
    __builtin_memcpy(&word, &color, 4);
    FillWords(static_cast<Byte*>(dst), word, static_cast<unsigned>(count));
}

void FillRGB16(void* dst, PackedColor color, int count, int stride)
{
    const unsigned a = color.a;
    if ((stride != 0 && stride != 2) || count < 16 || a == 0)
        return scalarSet.fillRGB16(dst, color, count, stride);
    auto to = static_cast<Byte*>(dst);
    if (a == 255)
    {
        const unsigned narrow = (color.r >> 3u) << 11 | (color.g >> 2u) << 5 | color.b >> 3u;
        const unsigned pair = narrow << 16 | narrow;
        if (count & 1)
        {
            __builtin_memcpy(to + 2 * (static_cast<__SIZE_TYPE__>(static_cast<unsigned>(count)) - 1), &pair, 2);
            --count;
        }
        FillWords(to, pair, static_cast<unsigned>(count) / 2);
        return;
    }
    const unsigned w = a + 1;
    const unsigned term = ((color.r * w >> 11) << 11) + ((color.g * w >> 10) << 5) + (color.b * w >> 11);
    const __m128i source = _mm_set1_epi16(static_cast<short>(term));
    const __m128i v = _mm_set1_epi16(static_cast<short>((255 - w) << 8));
    for (; count >= 8; count -= 8, to += 16)
        Store(to, _mm_add_epi16(source, Scale16(Load(to), v)));
    if (count > 0)
        scalarSet.fillRGB16(to, color, count, 0);
}

void FillRGB24(void* dst, PackedColor color, int count, int stride)
{
    const unsigned a = color.a;
    if ((stride != 0 && stride != 3) || count < 16 || a == 0)
        return scalarSet.fillRGB24(dst, color, count, stride);
    auto to = static_cast<Byte*>(dst);
    const unsigned w = a + 1; // 256 keeps the colour as it is
    const unsigned term[3] = {color.b * w >> 8, color.g * w >> 8, color.r * w >> 8};
    Byte pattern[48]; // 16 pixels: three vectors, which begin at blue, green and red
    for (unsigned i = 0; i < 48; ++i)
        pattern[i] = static_cast<Byte>(term[i % 3]);
    const __m128i p0 = Load(pattern);
    const __m128i p1 = Load(pattern + 16);
    const __m128i p2 = Load(pattern + 32);
    const __m128i v = _mm_set1_epi16(static_cast<short>(a == 255 ? 0 : 255 - w));
    for (; count >= 16; count -= 16, to += 48)
    {
        Store(to, ScaleBytes(Load(to), v, p0));
        Store(to + 16, ScaleBytes(Load(to + 16), v, p1));
        Store(to + 32, ScaleBytes(Load(to + 32), v, p2));
    }
    if (count > 0)
        scalarSet.fillRGB24(to, color, count, 0);
}

void BlendFillARGB(void* dst, PackedColor color, int count, int stride)
{
    const unsigned a = color.a;
    if (a == 255)
        return FillARGB(dst, color, count, stride);
    if ((stride != 0 && stride != 4) || count < 4 || a == 0)
        return scalarSet.blendFillARGB(dst, color, count, stride);
    auto to = static_cast<Byte*>(dst);
    unsigned word;
    __builtin_memcpy(&word, &color, 4);
    const __m128i s = _mm_set1_epi32(static_cast<int>(word));
    for (; count >= 4; count -= 4, to += 16)
    {
        const __m128i d = Load(to);
        Store(to, AllOpaque(d) ? OverOpaque(s, d) : OverAny(s, d));
    }
    if (count > 0)
        scalarSet.blendFillARGB(to, color, count, 0);
}

} // namespace

constinit const Set sse2Set = {
    CopyARGB,  CopyRGB24,        CopyRGB16,        RGB24ToARGB, RGB16ToARGB, RGB16ToRGB24, RGB24ToRGB16,
    BlendARGB, BlendARGBToRGB16, BlendARGBToRGB24, FillARGB,    FillRGB16,   FillRGB24,    BlendFillARGB,
};

} // namespace Zem::Kernels
