// Repaints a scene of moving discs by dirty rectangles: each frame touches the pixels that changed, each of them once.
// Prints what that saves beside painting everything, checks the last frame against a full repaint, and writes it as
// dirty-rects.tga, with what the last frame repainted tinted.

#include <Bedrock/Bedrock.h>

#include <cstdint>
#include <cstdio>
#include <vector>

using namespace Zem;

namespace
{

constexpr Rect Screen(0, 0, 640, 480);
constexpr int Frames = 100;

struct Disc
{
    int x, y, radius, speedX, speedY;
    std::uint32_t colour;

    Rect Bounds() const { return Rect(x - radius, y - radius, 2 * radius + 1, 2 * radius + 1); }
};

using Pixels = std::vector<std::uint32_t>; // rows from the top, Screen.width words each

std::uint32_t& At(Pixels& pixels, int x, int y)
{
    return pixels[static_cast<std::size_t>(y) * Screen.width + static_cast<std::size_t>(x)];
}

// The background and all discs, inside `clip` and nowhere else.
void Paint(Pixels& pixels, const std::vector<Disc>& discs, const Rect& clip)
{
    for (int y = clip.y; y < clip.y + clip.height; ++y)
        for (int x = clip.x; x < clip.x + clip.width; ++x)
            At(pixels, x, y) = (x / 32 + y / 32) % 2 ? 0xFF203040 : 0xFF283848;
    for (const Disc& disc : discs)
    {
        const Rect part = disc.Bounds().Intersect(clip);
        for (int y = part.y; y < part.y + part.height; ++y)
            for (int x = part.x; x < part.x + part.width; ++x)
                if ((x - disc.x) * (x - disc.x) + (y - disc.y) * (y - disc.y) <= disc.radius * disc.radius)
                    At(pixels, x, y) = disc.colour;
    }
}

bool SaveTGA(const char* name, const Pixels& pixels)
{
    const std::uint8_t header[18] = {0,
                                     0,
                                     2,
                                     0,
                                     0,
                                     0,
                                     0,
                                     0,
                                     0,
                                     0,
                                     0,
                                     0,
                                     Screen.width & 255,
                                     Screen.width >> 8,
                                     Screen.height & 255,
                                     Screen.height >> 8,
                                     32,
                                     0x28};
    std::FILE* file = std::fopen(name, "wb");
    if (!file)
        return false;
    bool good = std::fwrite(header, sizeof header, 1, file) == 1;
    for (const std::uint32_t pixel : pixels)
    {
        const std::uint8_t bytes[4] = {static_cast<std::uint8_t>(pixel), static_cast<std::uint8_t>(pixel >> 8),
                                       static_cast<std::uint8_t>(pixel >> 16), static_cast<std::uint8_t>(pixel >> 24)};
        good = good && std::fwrite(bytes, sizeof bytes, 1, file) == 1;
    }
    return std::fclose(file) == 0 && good;
}

} // namespace

int main()
{
    LCRand rand(42);
    std::vector<Disc> discs;
    for (int i = 0; i < 24; ++i)
        discs.push_back({rand.NextInt(40, 600), rand.NextInt(40, 440), rand.NextInt(6, 24), rand.NextInt(1, 5),
                         rand.NextInt(1, 4), 0xFF000000u | (rand.GetRandom() >> 8)});

    Pixels pixels(static_cast<std::size_t>(Screen.width) * Screen.height);
    Paint(pixels, discs, Screen);

    OptimalRects dirty;
    std::int64_t asked = 0, painted = 0, rects = 0;
    for (int frame = 0; frame < Frames; ++frame)
    {
        dirty.Clear();
        for (Disc& disc : discs)
        {
            const Rect before = disc.Bounds().Intersect(Screen);
            if (disc.x + disc.speedX < 0 || disc.x + disc.speedX >= Screen.width)
                disc.speedX = -disc.speedX;
            if (disc.y + disc.speedY < 0 || disc.y + disc.speedY >= Screen.height)
                disc.speedY = -disc.speedY;
            disc.x += disc.speedX;
            disc.y += disc.speedY;
            const Rect after = disc.Bounds().Intersect(Screen);
            for (const Rect& r : {before, after})
            {
                dirty.Invalidate(r);
                asked += std::int64_t{r.width} * r.height;
            }
        }
        for (const Rect& r : dirty)
        {
            Paint(pixels, discs, r);
            painted += std::int64_t{r.width} * r.height;
            ++rects;
        }
    }

    const double all = static_cast<double>(Frames) * Screen.width * Screen.height;
    std::printf("%d frames of %zu discs on %dx%d: %.1f rectangles a frame\n", Frames, discs.size(), Screen.width,
                Screen.height, static_cast<double>(rects) / Frames);
    std::printf("repainted %.1f%% of all pixels; old and new places one by one would be %.1f%%\n",
                100.0 * static_cast<double>(painted) / all, 100.0 * static_cast<double>(asked) / all);

    Pixels whole(pixels.size());
    Paint(whole, discs, Screen);
    const bool same = pixels == whole;
    std::printf("last frame %s a full repaint\n", same ? "equals" : "DIFFERS from");

    for (const Rect& r : dirty)
        for (int y = r.y; y < r.y + r.height; ++y)
            for (int x = r.x; x < r.x + r.width; ++x)
                At(pixels, x, y) |= x == r.x || y == r.y ? 0xFFFFFFu : 0x400000u;
    if (!SaveTGA("dirty-rects.tga", pixels))
    {
        std::fprintf(stderr, "dirty-rects.tga cannot be written\n");
        return 1;
    }
    return same ? 0 : 1;
}
