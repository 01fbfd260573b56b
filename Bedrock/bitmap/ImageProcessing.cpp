#include <Bedrock/bitmap/ImageProcessing.h>

#include <Bedrock/bitmap/Bitmap.h>

namespace Zem
{

namespace
{

// Cut toward zero, 0 to 255; what is no number is 0.
template <class Real>
unsigned char ToByte(Real value)
{
    return value > Real{0} ? value < Real{255} ? static_cast<unsigned char>(value) : 255 : 0;
}

double Clamp(float level)
{
    return level > 0.0f ? level < 2.0f ? double{level} : 2.0 : 0.0;
}

} // namespace

void ImageProcessing::SetupIdentity()
{
    for (int i = 0; i < 256; ++i)
        table[i] = static_cast<unsigned char>(i);
}

void ImageProcessing::SetupBrightness(float level)
{
    const int delta = static_cast<int>((Clamp(level) - 1.0) * 255.0);
    for (unsigned char& entry : table)
    {
        const int shifted = entry + delta;
        entry = static_cast<unsigned char>(shifted < 0 ? 0 : shifted > 255 ? 255 : shifted);
    }
}

void ImageProcessing::SetupContrast(float level)
{
    const double stretch = Clamp(level);
    for (unsigned char& entry : table)
        entry = ToByte((entry - 128) * stretch + 128.0);
}

bool ImageProcessing::Process(Bitmap& image)
{
    if (image.GetFormat() != Bitmap::ARGB32 || !image.IsValid())
        return false;
    const Rect all = image;
    for (int y = 0; y < all.height; ++y)
    {
        unsigned char* at = image.GetPtr(Point{0, y});
        for (int x = 0; x < all.width; ++x, at += 4)
        {
            at[0] = table[at[0]];
            at[1] = table[at[1]];
            at[2] = table[at[2]];
        }
    }
    return true;
}

bool ImageProcessing::AdjustColor(float amount, Bitmap& image)
{
    if (image.GetFormat() != Bitmap::ARGB32 || !image.IsValid())
        return false;
    const Rect all = image;
    for (int y = 0; y < all.height; ++y)
    {
        unsigned char* at = image.GetPtr(Point{0, y});
        for (int x = 0; x < all.width; ++x, at += 4)
        {
            const int mean = (at[0] + at[1] + at[2]) / 3;
            const float middle = static_cast<float>(mean);
            at[0] = ToByte(static_cast<float>(at[0] - mean) * amount + middle);
            at[1] = ToByte(static_cast<float>(at[1] - mean) * amount + middle);
            at[2] = ToByte(static_cast<float>(at[2] - mean) * amount + middle);
        }
    }
    return true;
}

} // namespace Zem
