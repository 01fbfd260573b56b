// Kernels of 256 bits. The pixels and their formulas are those of KernelsScalar.cpp; the comments here speak of lanes.
//
// This file is compiled for AVX2, so it must not emit anything that another file could emit too: the linker keeps one
// copy, and a processor without AVX2 would run it. Hence only static functions, no std, no accessors. Each kernel ends
// with `vzeroupper`, or SSE code that runs next is slowed down; tails are left to the scalar kernels after it.

#include <Bedrock/bitmap/kernels/Kernels.h>

#include <immintrin.h>

#define ALWAYS static inline __attribute__((always_inline))

namespace Zem::Kernels
{

extern const Set avx2Set;

namespace
{

using Byte = unsigned char;

ALWAYS __m256i Load(const void* at)
{
    return _mm256_loadu_si256(static_cast<const __m256i*>(at));
}

ALWAYS __m128i LoadHalf(const void* at)
{
    return _mm_loadu_si128(static_cast<const __m128i*>(at));
}

ALWAYS void Store(void* at, __m256i v)
{
    _mm256_storeu_si256(static_cast<__m256i*>(at), v);
}

ALWAYS void StoreHalf(void* at, __m128i v)
{
    _mm_storeu_si128(static_cast<__m128i*>(at), v);
}

// An ascending walk reads what it wrote before where the destination starts inside the source; only there do whole
// vectors differ from single pixels, and the scalar kernel does the work.
ALWAYS bool WritesAhead(const void* dst, const void* src, int count, int dstPixel, int srcPixel)
{
    const __UINTPTR_TYPE__ d = reinterpret_cast<__UINTPTR_TYPE__>(dst);
    const __UINTPTR_TYPE__ s = reinterpret_cast<__UINTPTR_TYPE__>(src);
    const __UINTPTR_TYPE__ n = static_cast<__UINTPTR_TYPE__>(static_cast<unsigned>(count));
    if (dstPixel == srcPixel && d <= s)
        return false;
    return d < s + n * static_cast<unsigned>(srcPixel) && s < d + n * static_cast<unsigned>(dstPixel);
}

// Eight pixels of three bytes from 28 bytes at `at`:  b g r b | g r b g | r b g r  to  b g r 0 | b g r 0 | ...
ALWAYS __m256i Expand24(const Byte* at)
{
    const __m256i order = _mm256_setr_epi8(0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1, //
                                           0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1);
    return _mm256_shuffle_epi8(_mm256_inserti128_si256(_mm256_castsi128_si256(LoadHalf(at)), LoadHalf(at + 12), 1),
                               order);
}

// The reverse: exactly 24 bytes are written.
ALWAYS void StorePacked24(Byte* at, __m256i v)
{
    const __m256i order = _mm256_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1, //
                                           0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1);
    v = _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(v, order), _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 7, 7));
    StoreHalf(at, _mm256_castsi256_si128(v));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(at + 16), _mm256_extracti128_si256(v, 1));
}

// Sixteen 5-6-5 pixels as two vectors of words. `p` comes with its middle quarters swapped, so that unpacking inside
// the halves gives ascending pixels.
ALWAYS void Widen16(__m256i p, __m256i& first, __m256i& second)
{
    p = _mm256_permute4x64_epi64(p, 0xD8);
    const __m256i low = _mm256_or_si256(_mm256_and_si256(_mm256_slli_epi16(p, 5), _mm256_set1_epi16(-0x0400)),
                                        _mm256_and_si256(_mm256_slli_epi16(p, 3), _mm256_set1_epi16(0x00F8))); // g b
    const __m256i high = _mm256_or_si256(_mm256_and_si256(_mm256_srli_epi16(p, 8), _mm256_set1_epi16(0x00F8)),
                                         _mm256_set1_epi16(-0x0100)); // 255 r
    first = _mm256_unpacklo_epi16(low, high);
    second = _mm256_unpackhi_epi16(low, high);
}

// Sixteen words as 16-bit lanes, `high` = a r and `low` = g b. The pixels are in the order of the quarters 0 2 1 3.
ALWAYS void Split(__m256i first, __m256i second, __m256i& high, __m256i& low)
{
    const __m256i mask = _mm256_set1_epi32(0xFFFF);
    high = _mm256_packus_epi32(_mm256_srli_epi32(first, 16), _mm256_srli_epi32(second, 16));
    low = _mm256_packus_epi32(_mm256_and_si256(first, mask), _mm256_and_si256(second, mask));
}

ALWAYS __m256i Narrow16(__m256i high, __m256i low)
{
    return _mm256_or_si256(_mm256_and_si256(_mm256_slli_epi16(high, 8), _mm256_set1_epi16(-0x0800)),
                           _mm256_or_si256(_mm256_and_si256(_mm256_srli_epi16(low, 5), _mm256_set1_epi16(0x07E0)),
                                           _mm256_and_si256(_mm256_srli_epi16(low, 3), _mm256_set1_epi16(0x001F))));
}

// Destination part of a 5-6-5 mix: each field times dw, shifted right by 8, in its place. `dw256` is dw << 8, so the
// high half of each product is the field, still shifted as it was, times dw >> 8.
ALWAYS __m256i Scale16(__m256i d, __m256i dw256)
{
    const __m256i red = _mm256_set1_epi16(-0x0800);
    const __m256i green = _mm256_set1_epi16(0x07E0);
    const __m256i blue = _mm256_set1_epi16(0x001F);
    const __m256i r = _mm256_and_si256(_mm256_mulhi_epu16(_mm256_and_si256(d, red), dw256), red);
    const __m256i g = _mm256_and_si256(_mm256_mulhi_epu16(_mm256_and_si256(d, green), dw256), green);
    const __m256i b = _mm256_mulhi_epu16(_mm256_and_si256(d, blue), dw256);
    return _mm256_add_epi16(r, _mm256_add_epi16(g, b));
}

// (s * w >> 8) + (d * v >> 8) on all bytes, with weights in 16-bit lanes: even bytes and odd bytes apart.
ALWAYS __m256i Mix(__m256i s, __m256i d, __m256i w, __m256i v)
{
    const __m256i even = _mm256_set1_epi16(0x00FF);
    const __m256i s0 = _mm256_srli_epi16(_mm256_mullo_epi16(_mm256_and_si256(s, even), w), 8);
    const __m256i d0 = _mm256_srli_epi16(_mm256_mullo_epi16(_mm256_and_si256(d, even), v), 8);
    const __m256i s1 = _mm256_andnot_si256(even, _mm256_mullo_epi16(_mm256_srli_epi16(s, 8), w));
    const __m256i d1 = _mm256_andnot_si256(even, _mm256_mullo_epi16(_mm256_srli_epi16(d, 8), v));
    return _mm256_or_si256(_mm256_add_epi16(s0, d0), _mm256_add_epi16(s1, d1));
}

// The alpha of each word in both of its 16-bit lanes.
ALWAYS __m256i AlphaLanes(__m256i s)
{
    const __m256i order = _mm256_setr_epi8(3, -1, 3, -1, 7, -1, 7, -1, 11, -1, 11, -1, 15, -1, 15, -1, //
                                           3, -1, 3, -1, 7, -1, 7, -1, 11, -1, 11, -1, 15, -1, 15, -1);
    return _mm256_shuffle_epi8(s, order);
}

ALWAYS __m256i AlphaMask()
{
    return _mm256_set1_epi32(static_cast<int>(0xFF000000));
}

// Eight words over eight words whose alpha is 255. Opaque sources come out unchanged: their weight is 256.
ALWAYS __m256i OverOpaque(__m256i s, __m256i d)
{
    const __m256i a = AlphaLanes(s);
    const __m256i w = _mm256_add_epi16(a, _mm256_set1_epi16(1));
    const __m256i v = _mm256_sub_epi16(_mm256_set1_epi16(255), a);
    const __m256i mixed = _mm256_or_si256(Mix(s, d, w, v), AlphaMask());
    return _mm256_blendv_epi8(mixed, d, _mm256_cmpeq_epi16(a, _mm256_setzero_si256()));
}

// Eight words over eight words of any alpha.
ALWAYS __m256i OverAny(__m256i s, __m256i d)
{
    const __m256i full = _mm256_set1_epi32(255);
    const __m256i zero = _mm256_setzero_si256();
    const __m256i a = _mm256_srli_epi32(s, 24);
    const __m256i da = _mm256_srli_epi32(d, 24);
    const __m256i opaque = _mm256_cmpeq_epi32(da, full);
    const __m256i partly = _mm256_srli_epi32(_mm256_sub_epi32(_mm256_add_epi32(a, _mm256_set1_epi32(256)), da),
                                             1); // (a + 1 + 255 - da) / 2
    __m256i w = _mm256_blendv_epi8(partly, _mm256_add_epi32(a, _mm256_set1_epi32(1)), opaque);
    w = _mm256_or_si256(w, _mm256_slli_epi32(w, 16));
    const __m256i v = _mm256_sub_epi16(_mm256_set1_epi16(256), w);
    const __m256i x = _mm256_mullo_epi16(_mm256_sub_epi32(full, a), _mm256_sub_epi32(full, da));
    // 256 where the destination is opaque, which becomes 255.
    const __m256i alpha = _mm256_min_epi16(_mm256_srli_epi32(_mm256_sub_epi32(_mm256_set1_epi32(65536), x), 8), full);
    __m256i mixed = _mm256_blendv_epi8(Mix(s, d, w, v), _mm256_slli_epi32(alpha, 24), AlphaMask());
    mixed = _mm256_blendv_epi8(mixed, s, _mm256_or_si256(_mm256_cmpeq_epi32(a, full), _mm256_cmpeq_epi32(da, zero)));
    return _mm256_blendv_epi8(mixed, d, _mm256_cmpeq_epi32(a, zero));
}

ALWAYS bool AllOpaque(__m256i s)
{
    return _mm256_testc_si256(s, AlphaMask());
}

ALWAYS bool AllClear(__m256i s)
{
    return _mm256_testz_si256(s, AlphaMask());
}

void RGB24ToARGB(void* dst, const void* src, int count)
{
    auto to = static_cast<Byte*>(dst);
    auto from = static_cast<const Byte*>(src);
    if (!WritesAhead(dst, src, count, 4, 3))
    {
        const __m256i alpha = AlphaMask();
        for (; count >= 34; count -= 32, to += 128, from += 96) // the last load reaches 4 bytes past its pixels
        {
            Store(to, _mm256_or_si256(Expand24(from), alpha));
            Store(to + 32, _mm256_or_si256(Expand24(from + 24), alpha));
            Store(to + 64, _mm256_or_si256(Expand24(from + 48), alpha));
            Store(to + 96, _mm256_or_si256(Expand24(from + 72), alpha));
        }
        for (; count >= 10; count -= 8, to += 32, from += 24)
            Store(to, _mm256_or_si256(Expand24(from), alpha));
        _mm256_zeroupper();
    }
    if (count > 0)
        scalarSet.rgb24ToARGB(to, from, count);
}

void RGB16ToARGB(void* dst, const void* src, int count)
{
    auto to = static_cast<Byte*>(dst);
    auto from = static_cast<const Byte*>(src);
    if (!WritesAhead(dst, src, count, 4, 2))
    {
        __m256i first, second;
        for (; count >= 32; count -= 32, to += 128, from += 64)
        {
            __m256i third, fourth;
            Widen16(Load(from), first, second);
            Widen16(Load(from + 32), third, fourth);
            Store(to, first);
            Store(to + 32, second);
            Store(to + 64, third);
            Store(to + 96, fourth);
        }
        for (; count >= 16; count -= 16, to += 64, from += 32)
        {
            Widen16(Load(from), first, second);
            Store(to, first);
            Store(to + 32, second);
        }
        _mm256_zeroupper();
    }
    if (count > 0)
        scalarSet.rgb16ToARGB(to, from, count);
}

void RGB16ToRGB24(void* dst, const void* src, int count)
{
    auto to = static_cast<Byte*>(dst);
    auto from = static_cast<const Byte*>(src);
    if (!WritesAhead(dst, src, count, 3, 2))
    {
        for (; count >= 16; count -= 16, to += 48, from += 32)
        {
            __m256i first, second;
            Widen16(Load(from), first, second);
            StorePacked24(to, first);
            StorePacked24(to + 24, second);
        }
        _mm256_zeroupper();
    }
    if (count > 0)
        scalarSet.rgb16ToRGB24(to, from, count);
}

void RGB24ToRGB16(void* dst, const void* src, int count)
{
    auto to = static_cast<Byte*>(dst);
    auto from = static_cast<const Byte*>(src);
    if (!WritesAhead(dst, src, count, 2, 3))
    {
        for (; count >= 18; count -= 16, to += 32, from += 48)
        {
            __m256i high, low;
            Split(Expand24(from), Expand24(from + 24), high, low);
            Store(to, _mm256_permute4x64_epi64(Narrow16(high, low), 0xD8));
        }
        _mm256_zeroupper();
    }
    if (count > 0)
        scalarSet.rgb24ToRGB16(to, from, count);
}

void BlendARGB(void* dst, const void* src, int count)
{
    auto to = static_cast<Byte*>(dst);
    auto from = static_cast<const Byte*>(src);
    if (!WritesAhead(dst, src, count, 4, 4))
    {
        for (; count >= 8; count -= 8, to += 32, from += 32)
        {
            const __m256i s = Load(from);
            if (AllClear(s))
                continue;
            if (AllOpaque(s))
            {
                Store(to, s);
                continue;
            }
            const __m256i d = Load(to);
            Store(to, AllOpaque(d) ? OverOpaque(s, d) : OverAny(s, d));
        }
        _mm256_zeroupper();
    }
    if (count > 0)
        scalarSet.blendARGB(to, from, count);
}

void BlendARGBToRGB16(void* dst, const void* src, int count)
{
    auto to = static_cast<Byte*>(dst);
    auto from = static_cast<const Byte*>(src);
    if (!WritesAhead(dst, src, count, 2, 4))
    {
        const __m256i one = _mm256_set1_epi16(1);
        const __m256i byte = _mm256_set1_epi16(255);
        for (; count >= 16; count -= 16, to += 32, from += 64)
        {
            const __m256i first = Load(from);
            const __m256i second = Load(from + 32);
            if (AllClear(_mm256_or_si256(first, second)))
                continue;
            __m256i high, low;
            Split(first, second, high, low);
            const __m256i narrow = Narrow16(high, low);
            if (AllOpaque(_mm256_and_si256(first, second)))
            {
                Store(to, _mm256_permute4x64_epi64(narrow, 0xD8));
                continue;
            }
            const __m256i d = _mm256_permute4x64_epi64(Load(to), 0xD8);
            const __m256i a = _mm256_srli_epi16(high, 8);
            const __m256i w = _mm256_add_epi16(a, one);
            const __m256i v = _mm256_sub_epi16(byte, w); // wrong where a is 255; those lanes are replaced below
            const __m256i r = _mm256_mullo_epi16(_mm256_and_si256(high, byte), w);
            const __m256i g = _mm256_mullo_epi16(_mm256_srli_epi16(low, 8), w);
            const __m256i b = _mm256_mullo_epi16(_mm256_and_si256(low, byte), w);
            __m256i mixed =
                _mm256_add_epi16(_mm256_and_si256(r, _mm256_set1_epi16(-0x0800)),
                                 _mm256_add_epi16(_mm256_and_si256(_mm256_srli_epi16(g, 5), _mm256_set1_epi16(0x07E0)),
                                                  _mm256_srli_epi16(b, 11)));
            mixed = _mm256_add_epi16(mixed, Scale16(d, _mm256_slli_epi16(v, 8)));
            // The carry from below: b << 5 is above 65535 - w exactly where the saturating difference is not 0.
            const __m256i room = _mm256_xor_si256(w, _mm256_set1_epi16(-1));
            const __m256i none =
                _mm256_cmpeq_epi16(_mm256_subs_epu16(_mm256_slli_epi16(b, 5), room), _mm256_setzero_si256());
            mixed = _mm256_add_epi16(_mm256_add_epi16(mixed, one), none);
            mixed = _mm256_blendv_epi8(mixed, narrow, _mm256_cmpeq_epi16(a, byte));
            mixed = _mm256_blendv_epi8(mixed, d, _mm256_cmpeq_epi16(a, _mm256_setzero_si256()));
            Store(to, _mm256_permute4x64_epi64(mixed, 0xD8));
        }
        _mm256_zeroupper();
    }
    if (count > 0)
        scalarSet.blendARGBToRGB16(to, from, count);
}

void BlendARGBToRGB24(void* dst, const void* src, int count)
{
    auto to = static_cast<Byte*>(dst);
    auto from = static_cast<const Byte*>(src);
    if (!WritesAhead(dst, src, count, 3, 4))
    {
        for (; count >= 10; count -= 8, to += 24, from += 32) // the load of the destination reaches 4 bytes too far
        {
            const __m256i s = Load(from);
            if (AllClear(s))
                continue;
            StorePacked24(to, AllOpaque(s) ? s : OverOpaque(s, Expand24(to)));
        }
        _mm256_zeroupper();
    }
    if (count > 0)
        scalarSet.blendARGBToRGB24(to, from, count);
}

// `bytes` bytes, at least 32 and a multiple of the pattern's length of 2 or 4 bytes.
ALWAYS void FillPattern(Byte* to, __m256i pattern, __SIZE_TYPE__ bytes)
{
    Byte* const end = to + bytes;
    // The first vector as it comes, the rest at multiples of the pattern behind it, near an aligned address. The last
    // vector ends with the block; both ends overlap their neighbours with the same bytes.
    Store(to, pattern);
    Byte* at = to + ((32 - (reinterpret_cast<__UINTPTR_TYPE__>(to) & 31)) & 28);
    for (; end - at >= 128; at += 128)
    {
        Store(at, pattern);
        Store(at + 32, pattern);
        Store(at + 64, pattern);
        Store(at + 96, pattern);
    }
    for (; end - at >= 32; at += 32)
        Store(at, pattern);
    Store(end - 32, pattern);
}

// Rows of a screen and more: the processor's own string store, which avoids reading the lines that it replaces.
constexpr __SIZE_TYPE__ stringStoreBytes = 1u << 15;

ALWAYS void FillWords(Byte* to, unsigned word, __SIZE_TYPE__ words)
{
    if (words * 4 >= stringStoreBytes)
    {
        void* at = to;
        asm volatile("rep stosl" : "+D"(at), "+c"(words) : "a"(word) : "memory");
        return;
    }
    FillPattern(to, _mm256_set1_epi32(static_cast<int>(word)), words * 4);
    _mm256_zeroupper();
}

void FillARGB(void* dst, PackedColor color, int count, int stride)
{
    if ((stride != 0 && stride != 4) || count < 8)
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
    const __m256i source = _mm256_set1_epi16(static_cast<short>(term));
    const __m256i v = _mm256_set1_epi16(static_cast<short>((255 - w) << 8));
    for (; count >= 16; count -= 16, to += 32)
        Store(to, _mm256_add_epi16(source, Scale16(Load(to), v)));
    _mm256_zeroupper();
    if (count > 0)
        scalarSet.fillRGB16(to, color, count, 0);
}

// d * v >> 8 on all bytes, plus the source's bytes.
ALWAYS __m256i ScaleBytes(__m256i d, __m256i v, __m256i source)
{
    const __m256i even = _mm256_set1_epi16(0x00FF);
    const __m256i d0 = _mm256_srli_epi16(_mm256_mullo_epi16(_mm256_and_si256(d, even), v), 8);
    const __m256i d1 = _mm256_andnot_si256(even, _mm256_mullo_epi16(_mm256_srli_epi16(d, 8), v));
    return _mm256_add_epi8(_mm256_or_si256(d0, d1), source);
}

void FillRGB24(void* dst, PackedColor color, int count, int stride)
{
    const unsigned a = color.a;
    if ((stride != 0 && stride != 3) || count < 32 || a == 0)
        return scalarSet.fillRGB24(dst, color, count, stride);
    auto to = static_cast<Byte*>(dst);
    const unsigned w = a + 1; // 256 keeps the colour as it is
    const unsigned term[3] = {color.b * w >> 8, color.g * w >> 8, color.r * w >> 8};
    // 32 pixels are three vectors, which begin at blue, red and green.
    alignas(32) Byte pattern[96];
    for (unsigned i = 0; i < 96; ++i)
        pattern[i] = static_cast<Byte>(term[i % 3]);
    const __m256i p0 = Load(pattern);
    const __m256i p1 = Load(pattern + 32);
    const __m256i p2 = Load(pattern + 64);
    if (a == 255)
    {
        for (; count >= 32; count -= 32, to += 96)
        {
            Store(to, p0);
            Store(to + 32, p1);
            Store(to + 64, p2);
        }
    }
    else
    {
        const __m256i v = _mm256_set1_epi16(static_cast<short>(255 - w));
        for (; count >= 32; count -= 32, to += 96)
        {
            Store(to, ScaleBytes(Load(to), v, p0));
            Store(to + 32, ScaleBytes(Load(to + 32), v, p1));
            Store(to + 64, ScaleBytes(Load(to + 64), v, p2));
        }
    }
    _mm256_zeroupper();
    if (count > 0)
        scalarSet.fillRGB24(to, color, count, 0);
}

void BlendFillARGB(void* dst, PackedColor color, int count, int stride)
{
    const unsigned a = color.a;
    if (a == 255)
        return FillARGB(dst, color, count, stride);
    if ((stride != 0 && stride != 4) || count < 8 || a == 0)
        return scalarSet.blendFillARGB(dst, color, count, stride);
    auto to = static_cast<Byte*>(dst);
    unsigned word;
    __builtin_memcpy(&word, &color, 4);
    const __m256i s = _mm256_set1_epi32(static_cast<int>(word));
    // Over opaque pixels the source's part is the same for all; its alpha byte brings the sum to 255.
    const unsigned w = a + 1;
    const __m256i v = _mm256_set1_epi16(static_cast<short>(256 - w));
    const unsigned part = (color.r * w >> 8) << 16 | (color.g * w >> 8) << 8 | color.b * w >> 8;
    const __m256i source = _mm256_set1_epi32(static_cast<int>(part));
    for (; count >= 8; count -= 8, to += 32)
    {
        const __m256i d = Load(to);
        Store(to, AllOpaque(d) ? _mm256_or_si256(ScaleBytes(d, v, source), AlphaMask()) : OverAny(s, d));
    }
    _mm256_zeroupper();
    if (count > 0)
        scalarSet.blendFillARGB(to, color, count, 0);
}

} // namespace

constinit const Set avx2Set = {
    CopyARGB,  CopyRGB24,        CopyRGB16,        RGB24ToARGB, RGB16ToARGB, RGB16ToRGB24, RGB24ToRGB16,
    BlendARGB, BlendARGBToRGB16, BlendARGBToRGB24, FillARGB,    FillRGB16,   FillRGB24,    BlendFillARGB,
};

} // namespace Zem::Kernels
