// Life cycle, single pixels and whole-image operations. Files are in Image*.cpp, the pixel loops in kernels/.

#include <Bedrock/bitmap/Bitmap.h>

#include <Bedrock/bitmap/kernels/Kernels.h>

#include <cstdlib>
#include <cstring>

namespace Zem
{

namespace
{

constexpr std::int64_t maxBlock =
    0x7FFFFFFF; // bytes of one bitmap: what a signed 32-bit product of pitch and height holds

unsigned long long Magnitude(std::int32_t value)
{
    return static_cast<unsigned long long>(std::llabs(static_cast<long long>(value)));
}

} // namespace

Bitmap::Bitmap() : kernels(Kernels::noKernels)
{
}

Bitmap::Bitmap(const Size& size, Format newFormat, unsigned char* memory) : Bitmap()
{
    Init(size, 0, newFormat, memory, 0);
}

Bitmap::Bitmap(const Bitmap& source, const Rect& rect) : Bitmap()
{
    const Rect all = source;
    const bool inside = !rect.IsEmpty() && rect.Intersect(all) == rect;
    const auto step = static_cast<std::int32_t>(Magnitude(source.pitch));
    if (!inside || !source.pixels || source.format == Blob)
    {
        Init(Size{rect.width, rect.height}, step, source.format, DescribeOnly(), 0);
        return;
    }
    Init(Size{rect.width, rect.height}, step, source.format, nullptr, 0);
    if (!pixels)
        return;
    const std::size_t rowBytes = static_cast<std::size_t>(width) * bytesPerPixel;
    for (std::int32_t row = 0; row < height; ++row)
        std::memcpy(GetPtr(Point{0, row}), source.GetPtr(Point{rect.x, rect.y + row}), rowBytes);
}

Bitmap::Bitmap(const Bitmap& source) : Bitmap()
{
    ViewOf(source);
}

Bitmap& Bitmap::operator=(const Bitmap& source)
{
    if (this != &source)
    {
        Done();
        ViewOf(source);
    }
    return *this;
}

Bitmap::Bitmap(Bitmap&& source) noexcept : Bitmap()
{
    TakeFrom(source);
}

Bitmap& Bitmap::operator=(Bitmap&& source) noexcept
{
    if (this != &source)
    {
        Done();
        TakeFrom(source);
    }
    return *this;
}

Bitmap::~Bitmap()
{
    Done();
}

void Bitmap::ViewOf(const Bitmap& source)
{
    width = source.width;
    height = source.height;
    pixels = source.pixels;
    pitch = source.pitch;
    bytesPerPixel = source.bytesPerPixel;
    format = source.format;
    kernels = source.kernels;
    numBytes = source.numBytes;
    ownsPixels = false;
    palette = nullptr;
    if (source.palette && AllocatePalette())
        std::memcpy(palette, source.palette, 256 * sizeof(PackedColor));
}

void Bitmap::TakeFrom(Bitmap& source) noexcept
{
    width = source.width;
    height = source.height;
    palette = source.palette;
    pixels = source.pixels;
    pitch = source.pitch;
    bytesPerPixel = source.bytesPerPixel;
    format = source.format;
    ownsPixels = source.ownsPixels;
    kernels = source.kernels;
    numBytes = source.numBytes;
    source.palette = nullptr;
    source.pixels = nullptr;
    source.ownsPixels = false;
    source.Done();
}

bool Bitmap::AllocatePalette()
{
    if (!palette)
        palette = static_cast<PackedColor*>(Alloc::New(256 * sizeof(PackedColor)));
    return palette != nullptr;
}

void Bitmap::Init(const Size& size, int newPitch, Format newFormat, unsigned char* memory, int blockBytes)
{
    const Size shape = size; // may be this bitmap's own, which `Done` clears
    Done();
    width = shape.width;
    height = shape.height;
    pixels = memory == DescribeOnly() ? nullptr : memory;
    pitch = newPitch;
    format = newFormat;
    numBytes = static_cast<std::uint32_t>(blockBytes);
    Install(newFormat);

    std::int64_t step = newPitch;
    if (step == 0)
        step = (static_cast<std::int64_t>(width) * bytesPerPixel + 3) & ~std::int64_t{3};
    const std::int64_t rowBytes = static_cast<std::int64_t>(width) * bytesPerPixel;
    const std::int64_t magnitude = step < 0 ? -step : step;
    pitch = static_cast<std::int32_t>(step);

    if (format == Blob)
    {
        if (!pixels && memory == nullptr && blockBytes >= 0)
        {
            pixels = static_cast<unsigned char*>(Alloc::New(numBytes));
            ownsPixels = pixels != nullptr;
        }
        return;
    }

    const bool hasArea = width >= 1 && height >= 1;
    const bool tooLarge = hasArea && (magnitude > maxBlock || rowBytes > maxBlock || magnitude * height > maxBlock ||
                                      magnitude * (height - 1) + rowBytes > maxBlock);
    if (blockBytes == 0)
        numBytes = tooLarge ? 0 : static_cast<std::uint32_t>(step * height);
    if (!hasArea || tooLarge || magnitude < width)
    {
        pixels = nullptr;
        return;
    }
    if (memory != nullptr)
        return;
    if (step < 0 || blockBytes < 0)
        return; // no block of ours starts in its middle
    // The rows fit what is allocated, also when the caller names fewer bytes or a pitch shorter than a row.
    const std::int64_t needed = magnitude * (height - 1) + rowBytes;
    const std::size_t bytes = needed > std::int64_t{numBytes} ? static_cast<std::size_t>(needed) : numBytes;
    pixels = static_cast<unsigned char*>(Alloc::New(bytes));
    ownsPixels = pixels != nullptr;
}

void Bitmap::Install(Format newFormat)
{
    kernels = Kernels::For(newFormat);
    switch (newFormat)
    {
    case Indexed8:
        bytesPerPixel = 1;
        break;
    case RGB24:
        bytesPerPixel = 3;
        break;
    case ARGB32:
    case XRGB32:
        bytesPerPixel = 4;
        break;
    case RGB16:
        bytesPerPixel = 2;
        break;
    case Blob:
        bytesPerPixel = 0;
        break;
    }
}

void Bitmap::Done()
{
    if (ownsPixels)
    {
        Alloc::Delete(pixels);
        pixels = nullptr;
        ownsPixels = false;
    }
    Alloc::Delete(palette);
    palette = nullptr;
    width = 0;
    height = 0;
    kernels = Kernels::noKernels;
}

PackedColor Bitmap::Pixel(const Point& p) const
{
    std::uint32_t word = PackedColor::white;
    if (pixels && Rect(*this).Contains(p))
        kernels.readARGB(&word, GetPtr(p), 1);
    return PackedColor(word);
}

void Bitmap::Pixel(const Point& p, PackedColor c)
{
    Pixel(p, c, *this);
}

void Bitmap::Pixel(const Point& p, PackedColor c, const Rect& clip)
{
    if (clip.Contains(p))
        kernels.fill(GetPtr(p), c, 1, 0);
}

void Bitmap::BlendPixel(const Point& p, PackedColor c)
{
    Pixel(p, c, *this);
}

void Bitmap::BlendPixel(const Point& p, PackedColor c, const Rect& clip)
{
    Pixel(p, c, clip);
}

void Bitmap::Clear()
{
    if (format == Blob || !pixels || height < 1)
        return;
    if (pitch >= 0)
    {
        std::memset(pixels, 0, static_cast<std::size_t>(pitch) * static_cast<std::size_t>(height));
        return;
    }
    // Row 0 is the last in memory: the padding behind it is not known to be ours.
    for (std::int32_t row = 0; row < height; ++row)
        std::memset(GetPtr(Point{0, row}), 0, static_cast<std::size_t>(width) * bytesPerPixel);
}

void Bitmap::Clear(std::uint32_t color)
{
    if (format == Blob || !pixels)
        return;
    for (std::int32_t row = 0; row < height; ++row)
        kernels.fill(GetPtr(Point{0, row}), PackedColor(color), width, 0);
}

void Bitmap::Colorize(PackedColor color)
{
    if ((format != ARGB32 && format != XRGB32) || !pixels)
        return;
    const std::uint32_t paint = ARGBToRGB24(color) & 0xFFFFFF;
    for (std::int32_t row = 0; row < height; ++row)
    {
        unsigned char* at = GetPtr(Point{0, row});
        for (std::int32_t i = 0; i < width; ++i, at += 4)
        {
            std::uint32_t word;
            std::memcpy(&word, at, 4);
            word = word ? word << 24 | paint : 0;
            std::memcpy(at, &word, 4);
        }
    }
}

bool Bitmap::SetTransparency(float amount)
{
    if (format != ARGB32 && format != XRGB32)
        return false;
    if (!(amount > 0.0f)) // a NaN too
        amount = 0.0f;
    if (amount > 1.0f)
        amount = 1.0f;
    const auto factor = static_cast<std::uint32_t>(amount * 255.0f);
    if (!pixels)
        return true;
    for (std::int32_t row = 0; row < height; ++row)
    {
        unsigned char* at = GetPtr(Point{0, row});
        for (std::int32_t i = 0; i < width; ++i, at += 4)
        {
            std::uint32_t word;
            std::memcpy(&word, at, 4);
            word = (word & 0xFFFFFF) | ((word >> 24) * factor >> 8) << 24;
            std::memcpy(at, &word, 4);
        }
    }
    return true;
}

TransferKernel Bitmap::GetBlitter(Format source, bool alpha) const
{
    switch (source)
    {
    case RGB16:
        return kernels.from16;
    case RGB24:
        return kernels.from24;
    case ARGB32:
    case XRGB32:
        return alpha ? kernels.blendFrom32 : kernels.from32;
    case Indexed8:
    case Blob:
        break;
    }
    return nullptr;
}

} // namespace Zem
