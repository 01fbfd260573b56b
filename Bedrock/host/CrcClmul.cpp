#include <Bedrock/host/CrcKernels.h>

#include <immintrin.h>

namespace Zem::CrcKernels
{

namespace
{

// A register holds 16 bytes as one polynomial: the first byte in memory is the highest, so loads turn the bytes round.
inline __m128i Load(const std::uint8_t* data)
{
    const __m128i turn = _mm_set_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
    return _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(data)), turn);
}

// Moves `sum` over a distance of n bits and adds `data`: high * x^(n+64) + low * x^n + data, congruent modulo the
// polynomial. `powers` holds x^(n+64) in its high half and x^n in its low one.
inline __m128i Fold(__m128i sum, __m128i powers, __m128i data)
{
    const __m128i high = _mm_clmulepi64_si128(sum, powers, 0x11);
    const __m128i low = _mm_clmulepi64_si128(sum, powers, 0x00);
    return _mm_xor_si128(_mm_xor_si128(high, low), data);
}

} // namespace

std::uint32_t UpdateClmul(std::uint32_t crc, const std::uint8_t* data, std::size_t size)
{
    if (size < 64)
        return UpdateTable(crc, data, size);

    // Four lanes, so that each multiplication has time to finish. The register joins the first four bytes.
    __m128i sum0 = _mm_xor_si128(Load(data), _mm_set_epi32(static_cast<int>(crc), 0, 0, 0));
    __m128i sum1 = Load(data + 16);
    __m128i sum2 = Load(data + 32);
    __m128i sum3 = Load(data + 48);
    data += 64;
    size -= 64;

    const __m128i over512 = _mm_set_epi64x(PowerOfX(512 + 64), PowerOfX(512));
    for (; size >= 64; data += 64, size -= 64)
    {
        sum0 = Fold(sum0, over512, Load(data));
        sum1 = Fold(sum1, over512, Load(data + 16));
        sum2 = Fold(sum2, over512, Load(data + 32));
        sum3 = Fold(sum3, over512, Load(data + 48));
    }

    const __m128i over128 = _mm_set_epi64x(PowerOfX(128 + 64), PowerOfX(128));
    sum0 = Fold(sum0, over128, sum1);
    sum0 = Fold(sum0, over128, sum2);
    sum0 = Fold(sum0, over128, sum3);
    for (; size >= 16; data += 16, size -= 16)
        sum0 = Fold(sum0, over128, Load(data));

    // The sum is 16 bytes that have the same remainder as all the data: the tables finish it.
    const __m128i turn = _mm_set_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
    std::uint8_t rest[16];
    _mm_storeu_si128(reinterpret_cast<__m128i*>(rest), _mm_shuffle_epi8(sum0, turn));
    return UpdateTable(UpdateTable(0, rest, sizeof rest), data, size);
}

} // namespace Zem::CrcKernels
