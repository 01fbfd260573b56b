#include <Bedrock/host/CrcKernels.h>

#include <immintrin.h>

namespace Zem::CrcKernels
{

namespace
{

// Each 128-bit part holds 16 bytes with the first in memory highest; part 0 is the first in memory.
inline __m512i Load(const std::uint8_t* data)
{
    const __m512i turn =
        _mm512_maskz_broadcast_i32x4(0xFFFF, _mm_set_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15));
    return _mm512_shuffle_epi8(_mm512_loadu_si512(data), turn);
}

// high * x^(n+64) + low * x^n + data in each part; see CrcClmul.cpp.
inline __m512i Fold(__m512i sum, __m512i powers, __m512i data)
{
    const __m512i high = _mm512_clmulepi64_epi128(sum, powers, 0x11);
    const __m512i low = _mm512_clmulepi64_epi128(sum, powers, 0x00);
    return _mm512_ternarylogic_epi64(high, low, data, 0x96); // a ^ b ^ c
}

} // namespace

std::uint32_t UpdateAvx512(std::uint32_t crc, const std::uint8_t* data, std::size_t size)
{
    if (size < 512)
        return UpdateClmul(crc, data, size);

    __m512i sum0 = _mm512_xor_si512(Load(data), _mm512_zextsi128_si512(_mm_set_epi32(static_cast<int>(crc), 0, 0, 0)));
    __m512i sum1 = Load(data + 64);
    __m512i sum2 = Load(data + 128);
    __m512i sum3 = Load(data + 192);
    data += 256;
    size -= 256;

    const __m512i over2048 = _mm512_maskz_broadcast_i32x4(0xFFFF, _mm_set_epi64x(PowerOfX(2048 + 64), PowerOfX(2048)));
    for (; size >= 256; data += 256, size -= 256)
    {
        sum0 = Fold(sum0, over2048, Load(data));
        sum1 = Fold(sum1, over2048, Load(data + 64));
        sum2 = Fold(sum2, over2048, Load(data + 128));
        sum3 = Fold(sum3, over2048, Load(data + 192));
    }

    const __m512i over512 = _mm512_maskz_broadcast_i32x4(0xFFFF, _mm_set_epi64x(PowerOfX(512 + 64), PowerOfX(512)));
    sum0 = Fold(sum0, over512, sum1);
    sum0 = Fold(sum0, over512, sum2);
    sum0 = Fold(sum0, over512, sum3);

    // The sum is 64 bytes that have the same remainder as all the data so far: the narrow kernel goes on from them.
    const __m512i turn =
        _mm512_maskz_broadcast_i32x4(0xFFFF, _mm_set_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15));
    std::uint8_t rest[64];
    _mm512_storeu_si512(rest, _mm512_shuffle_epi8(sum0, turn));
    _mm256_zeroupper(); // otherwise every SSE instruction afterwards would be slow
    return UpdateClmul(UpdateClmul(0, rest, sizeof rest), data, size);
}

} // namespace Zem::CrcKernels
