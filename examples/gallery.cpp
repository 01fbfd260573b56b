// The gallery: every shape, blend and transfer in every drawable format, on one picture.
//
//   gallery [NAME]     writes NAME.tga and NAME.bmp ("gallery" by default)

#include <Bedrock/Bedrock.h>

#include <cmath>
#include <cstdio>
#include <string>

namespace
{

using namespace Zem;

constexpr int cell = 150, columns = 7;

// A calm background with a slow gradient, opaque.
void Backdrop(Bitmap& image)
{
    const Rect all = image;
    for (int y = 0; y < all.height; ++y)
    {
        const auto shade = static_cast<std::uint32_t>(26 + y * 26 / all.height);
        image.Box(Rect(0, y, all.width, 1), 0xFF000000u | shade << 16 | (shade + 4) << 8 | (shade + 16),
                  Bitmap::StyleFilled);
    }
}

// A soft ball with an alpha that falls off at the rim: the source of the transfers.
Bitmap Ball(int size)
{
    Bitmap ball(Size{size, size}, Bitmap::ARGB32, nullptr);
    for (int y = 0; y < size; ++y)
        for (int x = 0; x < size; ++x)
        {
            const double u = (x + 0.5) / size * 2 - 1, v = (y + 0.5) / size * 2 - 1, r = std::sqrt(u * u + v * v);
            const double light = 1 - std::hypot(u + 0.35, v + 0.35) * 0.7;
            const auto level = [&](double c)
            { return static_cast<std::uint32_t>(std::fmax(0, std::fmin(255, c * light))); };
            const auto alpha = static_cast<std::uint32_t>(255 * std::fmax(0, std::fmin(1, (1 - r) * 4)));
            ball.Pixel(Point{x, y}, PackedColor(alpha << 24 | level(255) << 16 | level(150) << 8 | level(60)));
        }
    return ball;
}

Bitmap Checker()
{
    Bitmap texture(Size{32, 32}, Bitmap::XRGB32, nullptr);
    for (int y = 0; y < 32; ++y)
        for (int x = 0; x < 32; ++x)
            texture.Pixel(Point{x, y}, (x / 8 + y / 8) % 2 ? PackedColor(0xFF2E86ABu) : PackedColor(0xFFF6F5AEu));
    return texture;
}

// One row of the gallery: the seven cells in one format.
Bitmap Row(Bitmap::Format format)
{
    Bitmap image(Size{columns * cell, cell}, format, nullptr);
    Backdrop(image);
    const PackedColor ink = 0xFFEDE6DBu, warm = 0xFFE4572Eu, cool = 0xFF17BEBBu, glass = 0x80FFC914u;
    const auto at = [](int column, int x, int y) { return Point{column * cell + x, y}; };

    for (int i = 0; i <= 12; ++i) // lines in all directions, the upper half antialiased
    {
        const double angle = 3.14159265358979 * i / 12;
        const int dx = static_cast<int>(60 * std::cos(angle)), dy = static_cast<int>(60 * std::sin(angle));
        image.Line(at(0, 75, 75), at(0, 75 + dx, 75 + dy), warm, 0);
        image.Line(at(0, 75, 75), at(0, 75 - dx, 75 - dy), ink, Bitmap::StyleAntialiased);
    }

    const Point boxes = at(1, 0, 0);
    image.Box(Rect(boxes.x + 15, 15, 75, 75), cool, Bitmap::StyleFilled);
    image.Box(Rect(boxes.x + 45, 45, 75, 75), glass, Bitmap::StyleFilled | Bitmap::StyleBlend);
    image.Box(Rect(boxes.x + 10, 10, 130, 130), ink, 0);

    image.Circle(at(2, 55, 55), 40, warm, Bitmap::StyleFilled);
    image.Circle(at(2, 95, 55), 40, ink, 0);
    image.Circle(at(2, 75, 98), 40, cool, Bitmap::StyleAntialiased);
    image.Circle(at(2, 75, 72), 14, ink, Bitmap::StyleFilled | Bitmap::StyleAntialiased);

    image.Triangle(at(3, 12, 130), at(3, 52, 20), at(3, 70, 120), warm, 1);
    image.Triangle(at(3, 60, 25), at(3, 138, 60), at(3, 84, 135), cool, 3);
    image.Triangle(at(3, 20, 12), at(3, 140, 12), at(3, 135, 45), ink, 2);

    const Bitmap ball = Ball(64);
    image.Image(ball, at(4, 8, 8), 0);
    image.CopyImage(ball, at(4, 78, 8), 0);
    image.Image(ball, Rect(at(4, 8, 82), Size{134, 60}), Rect(8, 8, 30, 30), 0, image);

    const Bitmap texture = Checker();
    Point polygon[6], uv[6];
    for (int i = 0; i < 6; ++i)
    {
        const double angle = 3.14159265358979 * (i + 0.3) / 3;
        polygon[i] = at(5, 75 + static_cast<int>(62 * std::cos(angle)), 75 + static_cast<int>(62 * std::sin(angle)));
        uv[i] = Point{32 + static_cast<int>(48 * std::cos(angle)), 32 + static_cast<int>(48 * std::sin(angle))};
    }
    image.MapPolygon(6, polygon, texture, uv, 31, 31, false);

    image.Image(Ball(130), at(6, 10, 10), 0);
    image.GrayScale(Rect(at(6, 75, 0), Size{75, 75}));
    image.Stipple(Rect(at(6, 0, 75), Size{75, 75}), 0xFF17BEBBu, image);
    image.GrayScale(Rect(at(6, 75, 75), Size{75, 75}), true);
    return image;
}

} // namespace

int main(int argc, char** argv)
{
    const std::string name = argc > 1 ? argv[1] : "gallery";
    const Bitmap::Format formats[] = {Bitmap::ARGB32, Bitmap::XRGB32, Bitmap::RGB24, Bitmap::RGB16};
    Bitmap picture(Size{columns * cell, 4 * cell}, Bitmap::ARGB32, nullptr);
    Backdrop(picture);
    // Composited, the reduced alphas that antialiasing leaves in 32-bit formats let the backdrop show through.
    for (int i = 0; i < 4; ++i)
        picture.Image(Row(formats[i]), Point{0, i * cell}, 0);
    for (const char* ending : {".tga", ".bmp"})
    {
        if (!picture.Save((name + ending).c_str()))
        {
            std::fprintf(stderr, "gallery: cannot write %s%s\n", name.c_str(), ending);
            return 1;
        }
        std::printf("%s%s\n", name.c_str(), ending);
    }
}
