// bedrock image: scale, crop, adjust, draw.

#include "Commands.h"
#include "ImageFiles.h"
#include "Sources.h"

#include <Bedrock/bitmap/Bitmap.h>
#include <Bedrock/bitmap/ImageProcessing.h>
#include <Bedrock/files/BlockReader.h>
#include <Bedrock/files/File.h>
#include <Bedrock/memory/PString.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <vector>

namespace Tool
{

namespace
{

using namespace Zem;

/// Loads, lets `edit` change the image, saves.
Exit Edit(const char* command, Mounts& mounts, const EditOptions& options,
          const std::function<void(Bitmap&, Messages&)>& edit)
{
    Messages messages(command);
    CheckImageOutput(options.output);
    if (std::optional<Bitmap> image = LoadImage(mounts, options.input, messages))
    {
        edit(*image, messages);
        SaveImage(mounts, *image, options.output, options.force, messages);
    }
    return messages.Worst();
}

bool IsPowerOfTwo(int n)
{
    return n > 0 && (n & (n - 1)) == 0;
}

void Require(bool made, const std::string& name)
{
    if (!made)
        Fail(Exit::Disk, name, "out of memory");
}

// One list of shapes being drawn: where it stands, for messages, and what it draws on.
class Drawing
{
public:
    Drawing(Bitmap& target, Mounts& mountTable, const std::string& listName)
        : image(target), mounts(mountTable), name(listName), clip(target)
    {
    }

    void Draw(BlockReader& reader)
    {
        for (PString key; reader.Next(key);)
        {
            ++entry;
            shape = static_cast<const char*>(key);
            if (shape == "line")
            {
                const auto p = Numbers(reader, 4);
                const PackedColor color = Color(reader);
                Smooth(Style(reader, Bitmap::StyleAntialiased | Bitmap::StyleBlend), color,
                       [&](Bitmap& on, int style) {
                           on.Line({p[0], p[1]}, {p[2], p[3]}, color, style, clip);
                       });
            }
            else if (shape == "box")
            {
                const auto p = Numbers(reader, 4);
                const PackedColor color = Color(reader);
                image.Box(Rect(p[0], p[1], p[2], p[3]), color, Style(reader, Bitmap::StyleFilled | Bitmap::StyleBlend),
                          clip);
            }
            else if (shape == "circle")
            {
                const auto p = Numbers(reader, 3);
                const PackedColor color = Color(reader);
                if (p[2] < 0 || p[2] > 32767)
                    Refuse("a radius lies between 0 and 32767");
                Smooth(Style(reader, Bitmap::StyleFilled | Bitmap::StyleAntialiased), color,
                       [&](Bitmap& on, int style) {
                           on.Circle({p[0], p[1]}, p[2], color, style, clip);
                       });
            }
            else if (shape == "triangle")
            {
                const auto p = Numbers(reader, 6);
                const PackedColor color = Color(reader);
                Smooth(Style(reader, Bitmap::StyleFilled | Bitmap::StyleAntialiased), color,
                       [&](Bitmap& on, int style) {
                           on.Triangle({p[0], p[1]}, {p[2], p[3]}, {p[4], p[5]}, color, style, clip);
                       });
            }
            else if (shape == "gray" || shape == "dim")
            {
                const auto p = Numbers(reader, 4);
                image.GrayScale(Rect(p[0], p[1], p[2], p[3]), shape == "dim", clip);
            }
            else if (shape == "stipple")
            {
                const auto p = Numbers(reader, 4);
                image.Stipple(Rect(p[0], p[1], p[2], p[3]), Color(reader), clip);
            }
            else if (shape == "clip")
            {
                const auto p = Numbers(reader, 4);
                clip = Rect(p[0], p[1], p[2], p[3]).Intersect(image);
            }
            else if (shape == "image" || shape == "copy")
            {
                const Bitmap source = Source(reader);
                const auto p = Numbers(reader, 2);
                if (shape == "image")
                    image.Image(source, Point{p[0], p[1]}, source, 0, clip);
                else
                    image.CopyImage(source, Point{p[0], p[1]}, source, 0, clip);
            }
            else if (shape == "tile")
            {
                const Bitmap source = Source(reader);
                const auto p = Numbers(reader, 4);
                image.Image(source, Rect(p[0], p[1], p[2], p[3]), source, 0, clip);
            }
            else if (shape == "polygon")
                Polygon(reader);
            else
                Refuse(
                    "unknown shape; there are line, box, circle, triangle, polygon, gray, dim, stipple, image, copy, "
                    "tile and clip");
            std::string rest(256, '\0');
            if (reader.ReadString(rest.data(), static_cast<int>(rest.size())) && std::strcmp(rest.c_str(), "{") != 0)
                Refuse("does not understand \"" + Shown(rest.c_str()) + '"');
        }
    }

private:
    [[noreturn]] void Refuse(const std::string& why) const
    {
        Fail(Exit::Bad, name, "entry " + std::to_string(entry) + " (" + Shown(shape) + "): " + why);
    }

    std::vector<int> Numbers(BlockReader& reader, int count) const
    {
        std::vector<int> numbers(static_cast<std::size_t>(count));
        if (reader.ReadIntv(numbers.data(), count) != count)
            Refuse("needs " + std::to_string(count) + " numbers");
        return numbers;
    }

    PackedColor Color(BlockReader& reader) const
    {
        char text[64];
        if (!reader.ReadString(text, sizeof text))
            Refuse("needs a colour");
        const struct
        {
            const char* word;
            PackedColor color;
        } named[] = {{"black", PackedColor::black},   {"blue", PackedColor::blue},    {"cyan", PackedColor::cyan},
                     {"gray", PackedColor::gray},     {"green", PackedColor::green},  {"magenta", PackedColor::magenta},
                     {"orange", PackedColor::orange}, {"pink", PackedColor::pink},    {"red", PackedColor::red},
                     {"white", PackedColor::white},   {"yellow", PackedColor::yellow}};
        for (const auto& entryOf : named)
            if (std::strcmp(text, entryOf.word) == 0)
                return entryOf.color;
        char* end;
        const auto word = static_cast<std::uint32_t>(std::strtoul(text + (*text == '#'), &end, 16));
        const std::size_t digits = std::strlen(text) - 1;
        if (*text != '#' || *end || (digits != 6 && digits != 8))
            Refuse("\"" + Shown(text) + "\" is no colour: a name, #RRGGBB or #AARRGGBB");
        return digits == 6 ? word | 0xFF000000u : word;
    }

    /// The words behind the numbers, as style bits; `allowed` are the ones that the shape has.
    int Style(BlockReader& reader, int allowed) const
    {
        int style = 0;
        for (char text[32]; reader.ReadString(text, sizeof text);)
        {
            const int bit = !std::strcmp(text, "filled")   ? Bitmap::StyleFilled
                            : !std::strcmp(text, "smooth") ? Bitmap::StyleAntialiased
                            : !std::strcmp(text, "blend")  ? Bitmap::StyleBlend
                                                           : 0;
            if (!(bit & allowed))
                Refuse("does not understand \"" + Shown(text) + '"');
            style |= bit;
        }
        return style;
    }

    /// Antialiased edges store reduced alphas, so such a shape is drawn on a layer of its own and composited.
    template <class Shape>
    void Smooth(int style, PackedColor color, Shape draw)
    {
        if (!(style & Bitmap::StyleAntialiased) && color.a == 255)
            return draw(image, style);
        Bitmap layer(static_cast<const Rect&>(Rect(image)), Bitmap::ARGB32, nullptr);
        Require(layer.IsValid(), name);
        layer.Clear();
        draw(layer, style);
        image.Image(layer, Point{0, 0}, 0);
    }

    Bitmap Source(BlockReader& reader) const
    {
        char text[512];
        if (!reader.ReadString(text, sizeof text))
            Refuse("needs the name of an image");
        Bitmap source;
        if (!source.Load(PString(mounts.ForReading(text).c_str()), PString(), false))
            Refuse("cannot load " + Shown(text));
        return source;
    }

    void Polygon(BlockReader& reader)
    {
        const Bitmap source = Source(reader);
        const Rect area = source;
        if (!IsPowerOfTwo(area.width) || !IsPowerOfTwo(area.height))
            Refuse("needs a texture whose width and height are powers of two");
        std::vector<Point> points, texture;
        if (BlockReader* block = reader.Begin())
        {
            for (PString key; block->Next(key);)
            {
                int p[4];
                if (std::strcmp(key, "point") != 0 || block->ReadIntv(p, 4) != 4)
                    Refuse("holds lines \"point X Y U V\"");
                points.push_back({p[0], p[1]});
                texture.push_back({p[2], p[3]});
            }
            reader.End();
        }
        if (points.size() < 3)
            Refuse("needs a block of three points at least");
        image.MapPolygon(static_cast<int>(points.size()), points.data(), source, texture.data(), area.width - 1,
                         area.height - 1, true);
    }

    Bitmap& image;
    Mounts& mounts;
    const std::string& name;
    Rect clip;
    int entry = 0;
    std::string shape;
};

} // namespace

Exit ImageScale(Mounts& mounts, const EditOptions& options)
{
    return Edit("image scale", mounts, options,
                [&](Bitmap& image, Messages&)
                {
                    const Rect area = image;
                    const int width = options.size[0], height = options.size[1];
                    for (int n : {width, height, area.width, area.height})
                        if (!IsPowerOfTwo(n))
                            Fail(Exit::Usage, options.input,
                                 std::to_string(area.width) + " by " + std::to_string(area.height) +
                                     " pixels cannot be scaled to " + std::to_string(width) + " by " +
                                     std::to_string(height) + ": all sizes must be powers of two");
                    if (width > area.width || height > area.height)
                        Fail(Exit::Usage, options.input, "can only be reduced");
                    const std::unique_ptr<Bitmap> scaled(image.Scale(width, height));
                    Require(scaled != nullptr, options.input);
                    image = std::move(*scaled);
                });
}

Exit ImageCrop(Mounts& mounts, const EditOptions& options)
{
    return Edit("image crop", mounts, options,
                [&](Bitmap& image, Messages&)
                {
                    const Rect rect(options.rect[0], options.rect[1], options.rect[2], options.rect[3]);
                    const Rect area = image;
                    if (rect.IsEmpty() || !(rect.Intersect(area) == rect))
                        Fail(Exit::Usage, options.input,
                             "the rectangle must lie in the image, which has " + std::to_string(area.width) + " by " +
                                 std::to_string(area.height) + " pixels");
                    const std::unique_ptr<Bitmap> part(image.Crop(rect));
                    Require(part != nullptr, options.input);
                    image = std::move(*part);
                });
}

Exit ImageAdjust(Mounts& mounts, const EditOptions& options)
{
    return Edit("image adjust", mounts, options,
                [&](Bitmap& image, Messages&)
                {
                    if (image.GetFormat() != Bitmap::ARGB32)
                        image = WithAlpha(image);
                    Require(image.IsValid(), options.input);
                    ImageProcessing curve;
                    curve.SetupContrast(options.contrast);
                    curve.SetupBrightness(options.brightness);
                    curve.Process(image);
                    if (options.saturation != 1)
                        curve.AdjustColor(options.saturation, image);
                });
}

Exit ImageDraw(Mounts& mounts, const EditOptions& options)
{
    return Edit("image draw", mounts, options,
                [&](Bitmap& image, Messages&)
                {
                    const bool mounted = mounts.IsMounted(options.shapes);
                    if (const std::string why = mounted ? "" : WhyNotReadable(options.shapes); !why.empty())
                        Fail(Exit::Disk, options.shapes, "cannot open: " + why);
                    File list;
                    const File::Result result = list.Open(mounts.ForReading(options.shapes).c_str(), File::ModeRead);
                    if (!result)
                        Fail(Exit::Disk, options.shapes, std::string("cannot open: ") + result.Text());
                    BlockReader reader(list);
                    Drawing(image, mounts, options.shapes).Draw(reader);
                });
}

} // namespace Tool
