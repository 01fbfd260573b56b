// `Bitmap::Scale` and `Bitmap::Crop`: new bitmaps made of parts of another.

#include <Bedrock/bitmap/Bitmap.h>

#include <bit>
#include <cstring>

namespace Zem
{

namespace
{

// Vectors of the compiler: 16 bytes, which every processor of ours has, written without a word of assembler.
using Bytes16 = std::uint8_t __attribute__((vector_size(16)));
using Bytes8 = std::uint8_t __attribute__((vector_size(8)));
using Words4 = std::uint16_t __attribute__((vector_size(8)));
using Words8 = std::uint16_t __attribute__((vector_size(16)));
using Sums4 = std::uint32_t __attribute__((vector_size(16)));

// A source is walked in parts of up to this many pixels of up to this many rows. Column sums of a part fit 16 bits
// (255 * 256), and the part's sums stay in the nearest cache.
constexpr std::uint32_t PartPixels = 1024;
constexpr std::uint32_t PartRows = 256;

template <class Vector>
Vector Load(const void* from)
{
    Vector vector;
    std::memcpy(&vector, from, sizeof vector);
    return vector;
}

template <class Vector>
void Store(void* to, Vector vector)
{
    std::memcpy(to, &vector, sizeof vector);
}

// Sums of 16 columns of bytes, as 8 numbers of 16 bits for the bytes at odd places and 8 for whole pairs. A pair's sum
// may wrap; the even byte's comes out of it all the same, as it has 16 bits at most.
struct ColumnSums
{
    Words8 pairs = {};
    Words8 odd = {};

    void Add(const std::uint8_t* source)
    {
        const auto words = Load<Words8>(source);
        pairs += words;
        odd += words >> 8;
    }
    void Put(std::uint16_t* sums) const
    {
        const Words8 even = pairs - (odd << 8);
        Store(sums, __builtin_shufflevector(even, odd, 0, 8, 1, 9, 2, 10, 3, 11));
        Store(sums + 8, __builtin_shufflevector(even, odd, 4, 12, 5, 13, 6, 14, 7, 15));
    }
};
static_assert(std::endian::native == std::endian::little);

// A cache line wide, with all sums in registers.
void SumLine(std::uint16_t* sums, const std::uint8_t* source, std::ptrdiff_t pitch, std::uint32_t rows)
{
    ColumnSums first, second, third, fourth;
    for (std::uint32_t row = 0; row < rows; ++row, source += pitch)
    {
        first.Add(source);
        second.Add(source + 16);
        third.Add(source + 32);
        fourth.Add(source + 48);
    }
    first.Put(sums);
    second.Put(sums + 16);
    third.Put(sums + 32);
    fourth.Put(sums + 48);
}

// The sums of `count` columns of bytes over `rows` rows, at most `PartRows`. Each cache line of the source is taken
// whole, and once.
void SumColumns(std::uint16_t* sums, const std::uint8_t* source, std::ptrdiff_t pitch, std::uint32_t count,
                std::uint32_t rows)
{
    std::uint32_t at = 0;
    for (; at + 64 <= count; at += 64)
        SumLine(sums + at, source + at, pitch, rows);
    for (; at + 16 <= count; at += 16)
    {
        ColumnSums group;
        const std::uint8_t* line = source + at;
        for (std::uint32_t row = 0; row < rows; ++row, line += pitch)
            group.Add(line);
        group.Put(sums + at);
    }
    for (; at < count; ++at)
    {
        std::uint32_t sum = 0;
        for (std::uint32_t row = 0; row < rows; ++row)
            sum += source[static_cast<std::ptrdiff_t>(row) * pitch + at];
        sums[at] = static_cast<std::uint16_t>(sum);
    }
}

// The sum of `count` pixels' column sums, a lane for each channel. The fourth lane of three channels is of no use.
template <int Channels>
Sums4 SumPixels(const std::uint16_t* sums, std::uint32_t count)
{
    Sums4 total = {};
    for (std::uint32_t i = 0; i < count; ++i)
        total += __builtin_convertvector(Load<Words4>(sums + i * Channels), Sums4);
    return total;
}

// The low byte of each number; the others are 0, as they are in any mean.
Bytes8 Narrow(Words8 words)
{
    const auto bytes = reinterpret_cast<Bytes16>(words);
    const Bytes16 packed = __builtin_shufflevector(bytes, bytes, 0, 2, 4, 6, 8, 10, 12, 14, 0, 2, 4, 6, 8, 10, 12, 14);
    return Load<Bytes8>(&packed);
}

template <int Channels>
void PutPixel(std::uint8_t* to, Sums4 mean)
{
    for (int channel = 0; channel < Channels; ++channel)
        to[channel] = static_cast<std::uint8_t>(mean[channel]);
}

// The means of `count` columns of bytes: blocks one pixel wide.
void PutColumns(std::uint8_t* to, const std::uint16_t* sums, std::uint32_t count, std::uint32_t shift)
{
    std::uint32_t at = 0;
    for (; at + 8 <= count; at += 8)
        Store(to + at, Narrow(Load<Words8>(sums + at) >> static_cast<std::uint16_t>(shift)));
    for (; at < count; ++at)
        to[at] = static_cast<std::uint8_t>(sums[at] >> shift);
}

// The means of `count` blocks of `stepX` pixels, 2 and more, whose sums fit 16 bits: blocks of up to 256 pixels.
template <int Channels>
void PutSmallBlocks(std::uint8_t* to, const std::uint16_t* sums, std::uint32_t count, std::uint32_t stepX,
                    std::uint32_t shift)
{
    const auto places = static_cast<std::uint16_t>(shift);
    if constexpr (Channels == 4)
    {
        // Two pixels in a vector, and two blocks at a time.
        for (; count >= 2; count -= 2, to += 8)
        {
            Words8 first = {}, second = {};
            for (std::uint32_t i = 0; i < stepX; i += 2, sums += 8)
            {
                first += Load<Words8>(sums);
                second += Load<Words8>(sums + stepX * 4);
            }
            sums += stepX * 4;
            const Words8 both = __builtin_shufflevector(first, second, 0, 1, 2, 3, 8, 9, 10, 11) +
                                __builtin_shufflevector(first, second, 4, 5, 6, 7, 12, 13, 14, 15);
            Store(to, Narrow(both >> places));
        }
    }
    for (; count; --count, to += Channels)
    {
        Words4 total = {};
        for (std::uint32_t i = 0; i < stepX; ++i, sums += Channels)
            total += Load<Words4>(sums);
        total >>= places;
        for (int channel = 0; channel < Channels; ++channel)
            to[channel] = static_cast<std::uint8_t>(total[channel]);
    }
}

struct Source
{
    std::uint8_t* row; // the first
    std::ptrdiff_t pitch;
};

// One row of the result, from the `stepY` rows at `source`, whose `width` pixels make blocks of `stepX`.
template <int Channels>
void ScaleRow(std::uint8_t* to, Source source, std::uint32_t width, std::uint32_t stepX, std::uint32_t stepY,
              std::uint32_t shift)
{
    alignas(16) std::uint16_t columns[PartPixels * Channels + 1]; // three channels are read four at a time
    columns[PartPixels * Channels] = 0;
    const std::uint32_t part = width < PartPixels ? width : PartPixels;
    if (stepX <= part && stepY <= PartRows)
    {
        for (std::uint32_t x = 0; x < width; x += part)
        {
            SumColumns(columns, source.row + std::size_t{x} * Channels, source.pitch, part * Channels, stepY);
            if (stepX == 1)
                PutColumns(to, columns, part * Channels, shift);
            else if (stepX * stepY <= 256)
                PutSmallBlocks<Channels>(to, columns, part / stepX, stepX, shift);
            else
                for (std::uint32_t at = 0; at < part; at += stepX)
                    PutPixel<Channels>(to + at / stepX * Channels,
                                       SumPixels<Channels>(columns + at * Channels, stepX) >> shift);
            to += part / stepX * Channels;
        }
        return;
    }
    // Blocks larger than a part, one after the other; those of 2^32 and more are too much for a lane.
    for (std::uint32_t x = 0; x < width; x += stepX, to += Channels)
    {
        std::uint64_t totals[4] = {};
        const std::uint32_t across = stepX < part ? stepX : part;
        const std::uint32_t down = stepY < PartRows ? stepY : PartRows;
        for (std::uint32_t y = 0; y < stepY; y += down)
            for (std::uint32_t inner = 0; inner < stepX; inner += across)
            {
                SumColumns(columns,
                           source.row + static_cast<std::ptrdiff_t>(y) * source.pitch +
                               (std::size_t{x} + inner) * Channels,
                           source.pitch, across * Channels, down);
                const Sums4 sums = SumPixels<Channels>(columns, across);
                for (int channel = 0; channel < Channels; ++channel)
                    totals[channel] += sums[channel];
            }
        for (int channel = 0; channel < Channels; ++channel)
            to[channel] = static_cast<std::uint8_t>(totals[channel] >> shift);
    }
}

// Zero passes, and so does the least of all numbers: both are refused as sizes.
bool IsPowerOfTwo(std::int32_t x)
{
    const auto bits = static_cast<std::uint32_t>(x);
    return (bits & (bits - 1)) == 0;
}

} // namespace

Bitmap* Bitmap::Scale(int newWidth, int newHeight) const
{
    const bool hasChannels = format == RGB24 || format == ARGB32 || format == XRGB32;
    const bool arePowers =
        IsPowerOfTwo(width) && IsPowerOfTwo(height) && IsPowerOfTwo(newWidth) && IsPowerOfTwo(newHeight);
    if (!hasChannels || !arePowers || newWidth > width || newHeight > height || newWidth < 1 || newHeight < 1 ||
        pitch % 4 != 0 || !pixels)
        return nullptr;

    auto* result = new Bitmap(Size{newWidth, newHeight}, format, nullptr);
    if (!result || !result->pixels)
    {
        delete result;
        return nullptr;
    }
    const auto stepX = static_cast<std::uint32_t>(width / newWidth);
    const auto stepY = static_cast<std::uint32_t>(height / newHeight);
    const auto shift = static_cast<std::uint32_t>(std::countr_zero(stepX) + std::countr_zero(stepY));
    for (std::int32_t y = 0; y < newHeight; ++y)
    {
        std::uint8_t* to = result->GetPtr(Point{0, y});
        const Source source{GetPtr(Point{0, y * static_cast<std::int32_t>(stepY)}), pitch};
        if (shift == 0)
            std::memcpy(to, source.row, static_cast<std::size_t>(width) * bytesPerPixel);
        else if (format == RGB24)
            ScaleRow<3>(to, source, static_cast<std::uint32_t>(width), stepX, stepY, shift);
        else
            ScaleRow<4>(to, source, static_cast<std::uint32_t>(width), stepX, stepY, shift);
    }
    return result;
}

Bitmap* Bitmap::Crop(const Rect& rect)
{
    const Rect all = *this;
    if (rect.IsEmpty() || !(rect.Intersect(all) == rect) || (!pixels && format != Blob))
        return nullptr;
    auto* result = new Bitmap(rect, format, nullptr);
    if (!result || (!result->pixels && format != Blob))
    {
        delete result;
        return nullptr;
    }
    const std::size_t rowBytes = static_cast<std::size_t>(rect.width) * bytesPerPixel;
    for (std::int32_t row = 0; rowBytes && row < rect.height; ++row)
        std::memcpy(result->GetPtr(Point{0, row}), GetPtr(Point{rect.x, rect.y + row}), rowBytes);
    return result;
}

} // namespace Zem
