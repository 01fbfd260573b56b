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

// The bytes of `vector` as numbers of 16 bits, the first eight and the last.
Words8 Low(Bytes16 vector)
{
    const Bytes16 wide =
        __builtin_shufflevector(vector, Bytes16{}, 0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23);
    return reinterpret_cast<Words8>(wide);
}

Words8 High(Bytes16 vector)
{
    const Bytes16 wide =
        __builtin_shufflevector(vector, Bytes16{}, 8, 24, 9, 25, 10, 26, 11, 27, 12, 28, 13, 29, 14, 30, 15, 31);
    return reinterpret_cast<Words8>(wide);
}

// Adds up `Count` vectors of bytes, one below the other in `rows` rows, in registers.
template <int Count>
void SumVectors(std::uint16_t* sums, const std::uint8_t* source, std::ptrdiff_t pitch, std::uint32_t rows)
{
    Words8 low[Count] = {};
    Words8 high[Count] = {};
    for (std::uint32_t row = 0; row < rows; ++row, source += pitch)
        for (int i = 0; i < Count; ++i)
        {
            const auto bytes = Load<Bytes16>(source + 16 * i);
            low[i] += Low(bytes);
            high[i] += High(bytes);
        }
    for (int i = 0; i < Count; ++i)
    {
        Store(sums + 16 * i, low[i]);
        Store(sums + 16 * i + 8, high[i]);
    }
}

// The sums of `count` columns of bytes over `rows` rows, at most `PartRows`. Each cache line of the source is taken
// whole, and once.
void SumColumns(std::uint16_t* sums, const std::uint8_t* source, std::ptrdiff_t pitch, std::uint32_t count,
                std::uint32_t rows)
{
    std::uint32_t at = 0;
    for (; at + 64 <= count; at += 64)
        SumVectors<4>(sums + at, source + at, pitch, rows);
    for (; at + 16 <= count; at += 16)
        SumVectors<1>(sums + at, source + at, pitch, rows);
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
    using Words4 = std::uint16_t __attribute__((vector_size(8)));
    Sums4 total = {};
    for (std::uint32_t i = 0; i < count; ++i)
        total += __builtin_convertvector(Load<Words4>(sums + i * Channels), Sums4);
    return total;
}

template <int Channels>
void PutMean(std::uint8_t* to, Sums4 sums, std::uint32_t shift)
{
    sums >>= shift;
    for (int channel = 0; channel < Channels; ++channel)
        to[channel] = static_cast<std::uint8_t>(sums[channel]);
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
            for (std::uint32_t at = 0; at < part; at += stepX, to += Channels)
                PutMean<Channels>(to, SumPixels<Channels>(columns + at * Channels, stepX), shift);
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
