#include "Content.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

namespace Demo
{

using namespace Zem;
namespace fs = std::filesystem;

namespace
{

LogClient* Client()
{
    static LogClient* const client = Log::GetClient("Demo");
    return client;
}

// The sides of the cube and the sprite, in files of every kind the library reads.
constexpr const char* sideNames[Content::sides] = {"plasma.tga", "tiles.bmp",   "lagoon.jpeg",
                                                   "rings.tga",  "fractal.bmp", "dunes.pcx"};
constexpr const char* planetName = "planet.tga";

// The middle of an image in the size and format of a texture.
void ToTexture(const Bitmap& image, Bitmap& texture)
{
    const Rect area = image;
    texture.Init({Texture::size, Texture::size}, 0, Bitmap::XRGB32, nullptr, 0);
    if (!texture.IsValid())
        return;
    const int step = std::max(1, std::min(area.width, area.height) / Texture::size);
    const Point first{(area.width - step * Texture::size) / 2, (area.height - step * Texture::size) / 2};
    for (int y = 0; y < Texture::size; ++y)
        for (int x = 0; x < Texture::size; ++x)
        {
            int r = 0, g = 0, b = 0;
            for (int i = 0; i < step * step; ++i)
            {
                const PackedColor c = image.Pixel(Point{std::clamp(first.x + x * step + i % step, 0, area.width - 1),
                                                        std::clamp(first.y + y * step + i / step, 0, area.height - 1)});
                r += c.r, g += c.g, b += c.b;
            }
            const int n = step * step;
            texture.Pixel(Point{x, y},
                          PackedColor(0xFF000000u | static_cast<std::uint32_t>(r / n) << 16 |
                                      static_cast<std::uint32_t>(g / n) << 8 | static_cast<std::uint32_t>(b / n)));
        }
}

void Arrived(Content& content, const char* name)
{
    ++content.loaded;
    std::snprintf(content.last, sizeof content.last, "%s", name);
    if (LogClient::Wants(Client(), LogClient::Diag))
        Client()->Write(LogClient::Diag, "%s is there, %d of %d", name, content.loaded, content.wanted);
}

// All the work is done on the worker; the hand-over only moves pointers.
class LoadSide final : public Job
{
public:
    LoadSide(Content& target, int number) : content(target), side(number) {}
    const char* GetName() override { return sideNames[side]; }

protected:
    void Process() override
    {
        Bitmap image, plain;
        if (!image.Load(sideNames[side], "demo", false))
            return;
        ToTexture(image, plain);
        for (int s = 0; s < Texture::shades && plain.IsValid(); ++s)
        {
            const int light = 256 * (s + 2) / (Texture::shades + 1);
            Bitmap& shade = texture.shade[s];
            shade.Init({Texture::size, Texture::size}, 0, Bitmap::XRGB32, nullptr, 0);
            for (int y = 0; y < Texture::size && shade.IsValid(); ++y)
                for (int x = 0; x < Texture::size; ++x)
                {
                    PackedColor c = plain.Pixel(Point{x, y});
                    c.r = static_cast<std::uint8_t>(std::min(255, c.r * light >> 8));
                    c.g = static_cast<std::uint8_t>(std::min(255, c.g * light >> 8));
                    c.b = static_cast<std::uint8_t>(std::min(255, c.b * light >> 8));
                    shade.Pixel(Point{x, y}, c);
                }
            SetProgress(static_cast<float>(s + 1) / Texture::shades);
        }
        Time::Delay(40); // so that the progress can be seen: the images are small
    }
    void Dispatch() override
    {
        for (int s = 0; s < Texture::shades; ++s)
            content.side[side].shade[s] = std::move(texture.shade[s]);
        Arrived(content, sideNames[side]);
    }

private:
    Content& content;
    int side;
    Texture texture;
};

class LoadPlanet final : public Job
{
public:
    explicit LoadPlanet(Content& target) : content(target) {}
    const char* GetName() override { return planetName; }

protected:
    void Process() override
    {
        Bitmap image;
        if (!image.Load(planetName, "demo", false))
            return;
        const Rect area = image;
        Bitmap* small = image.Scale(area.width / 2, area.height / 2);
        if (small)
            planet = std::move(*small);
        delete small;
        Time::Delay(40);
    }
    void Dispatch() override
    {
        content.planet = std::move(planet);
        Arrived(content, planetName);
    }

private:
    Content& content;
    Bitmap planet;
};

} // namespace

Mount::Mount(const char* assets)
{
    std::string name = (fs::temp_directory_path() / "bedrock-demo-XXXXXX").string();
    if (!mkdtemp(name.data()))
        throw FileEx(__FILE__, __LINE__, "No temporary folder can be made");
    folder = name + '/';
    try
    {
        File::Subst("demo", (folder + "demo.arc").c_str(), true); // a path with no "/" at its end is an archive
        for (const char* side : sideNames)
            Pack(assets, side);
        Pack(assets, planetName);
        Overlay();
    }
    catch (...)
    {
        Remove();
        throw;
    }
}

Mount::~Mount()
{
    Remove();
}

void Mount::Remove() noexcept
{
    File::Subst("demo", nullptr, false);
    std::error_code ignored;
    fs::remove_all(folder, ignored);
}

// A member is compressed when it is closed.
void Mount::Pack(const char* assets, const char* name)
{
    MemoryFile image;
    if (!image.Open((std::string(assets) + '/' + name).c_str(), File::ModeRead))
    {
        std::fprintf(stderr, "demo: %s/%s cannot be read\n", assets, name);
        throw FileEx(__FILE__, __LINE__, "An image of the demo is missing");
    }
    File member;
    if (!member.Open("demo", name, File::ModeCreate | File::ModeWriteCompressed))
        throw FileEx(__FILE__, __LINE__, "The archive takes no members");
    member.Write(image.Data(), 1, image.Size());
    member.Close();
    ++packed;
    bytes += image.Size();
}

// The wall of the archive with a word on it, in a folder above: from now on this is "demo:tiles.bmp".
void Mount::Overlay()
{
    Bitmap tiles;
    if (!tiles.Load("tiles.bmp", "demo", false))
        throw FileEx(__FILE__, __LINE__, "The archive has no tiles.bmp");
    const Rect area = tiles;
    DrawText(tiles, {area.width / 2 - 54, area.height / 2 - 10}, "OVERLAY", PackedColor(0xFF000000), area, 2);
    DrawText(tiles, {area.width / 2 - 56, area.height / 2 - 12}, "OVERLAY", PackedColor(0xFFFFD870), area, 2);
    const std::string overlay = folder + "overlay/";
    fs::create_directory(overlay);
    if (!tiles.Save((overlay + "tiles.bmp").c_str()))
        throw FileEx(__FILE__, __LINE__, "The overlay cannot be written");
    File::Subst("demo", overlay.c_str(), false);
}

void QueueLoading(Jobs& jobs, Content& content)
{
    content.wanted = Content::sides + 1;
    for (int side = 0; side < Content::sides; ++side)
        jobs.Add(new LoadSide(content, side));
    jobs.Add(new LoadPlanet(content));
}

} // namespace Demo
