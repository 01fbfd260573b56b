// bedrock image: info, convert.

#include "Commands.h"
#include "ImageFiles.h"
#include "ImageReason.h"
#include "Output.h"
#include "Sources.h"

#include <Bedrock/bitmap/Bitmap.h>
#include <Bedrock/files/File.h>
#include <Bedrock/host/Exception.h>
#include <Bedrock/memory/PString.h>

#include <cerrno>
#include <cstring>
#include <strings.h>

namespace Tool
{

namespace
{

const char* FormatName(Zem::Bitmap::Format format)
{
    constexpr const char* names[] = {"Indexed8", "RGB24", "ARGB32", "XRGB32", "RGB16", "Blob"};
    return static_cast<unsigned>(format) < std::size(names) ? names[format] : "unknown";
}

std::string Extension(const std::string& name)
{
    const std::size_t dot = name.rfind('.');
    return dot == std::string::npos || name.find('/', dot) != std::string::npos ? std::string() : name.substr(dot + 1);
}

bool IsExtension(const std::string& name, const char* extension)
{
    return strcasecmp(Extension(name).c_str(), extension) == 0;
}

// An input that is not there is a failure of the disk, any other image that is refused is bad.
void ComplainOfImage(Messages& messages, const Mounts& mounts, const std::string& name, const std::string& opened)
{
    if (const std::string why = mounts.IsMounted(name) ? "" : WhyNotReadable(name); !why.empty())
        messages.Complain(Exit::Disk, name, "cannot open: " + why);
    else if (mounts.IsMounted(name) && !Zem::File::Exists(opened.c_str()))
        messages.Complain(Exit::Disk, name, "cannot open: no location of this mount has it");
    else
        messages.Complain(Exit::Bad, name, "cannot be loaded: " + WhyNotLoaded(opened));
}

bool HasTransparency(const Zem::Bitmap& image)
{
    const Zem::Rect area = image;
    for (std::int32_t y = 0; y < area.height; ++y)
        for (std::int32_t x = 0; x < area.width; ++x)
            if (image.GetPtr({x, y})[3] != 255)
                return true;
    return false;
}

} // namespace

Exit ImageInfo(Mounts& mounts, const FileOptions& options)
{
    Messages messages("image info");
    Json json;
    if (options.json)
        json.Array();
    else
        std::printf("%-8s  %6s %6s  %s\n", "FORMAT", "WIDTH", "HEIGHT", "NAME");
    for (const std::string& name : options.inputs)
    {
        const std::string opened = mounts.ForReading(name);
        Zem::Bitmap::Format format;
        std::uint32_t width = 0, height = 0;
        bool known = false;
        try
        {
            known = Zem::Bitmap::GetInfo(opened.c_str(), format, width, height) && format != Zem::Bitmap::Blob;
        }
        catch (const Zem::FileEx&)
        {
            known = false; // the complaint reads the file again, and says what is wrong with it
        }
        if (!known)
            ComplainOfImage(messages, mounts, name, opened);
        else if (options.json)
            json.Object()
                .Text("name", name)
                .Text("format", FormatName(format))
                .Number("width", width)
                .Number("height", height)
                .End();
        else
            std::printf("%-8s  %6u %6u  %s\n", FormatName(format), width, height, Shown(name).c_str());
    }
    if (options.json)
        json.End();
    return messages.Worst();
}

bool IsWritableImage(const std::string& name)
{
    return IsExtension(name, "tga") || IsExtension(name, "bmp");
}

// The same pixels as a format that has an alpha channel: the loaders set it to 255 where the file has none.
Zem::Bitmap WithAlpha(const Zem::Bitmap& image)
{
    const Zem::Rect area = image;
    Zem::Bitmap copy(area, Zem::Bitmap::ARGB32, nullptr);
    if (copy.IsValid())
        for (std::int32_t y = 0; y < area.height; ++y)
            std::memcpy(copy.GetPtr({0, y}), image.GetPtr({0, y}), static_cast<std::size_t>(area.width) * 4);
    return copy;
}

std::optional<Zem::Bitmap> LoadImage(Mounts& mounts, const std::string& name, Messages& messages)
{
    const std::string opened = mounts.ForReading(name);
    Zem::Bitmap image;
    if (image.Load(Zem::PString(opened.c_str()), Zem::PString(), false))
        return image;
    ComplainOfImage(messages, mounts, name, opened);
    return std::nullopt;
}

void CheckImageOutput(const std::string& name)
{
    if (!IsWritableImage(name))
        Fail(Exit::Usage, name, "cannot be written: images are written as .tga (32 bits) or .bmp (24 bits)");
}

void SaveImage(Mounts& mounts, Zem::Bitmap& image, const std::string& name, bool force, Messages& messages)
{
    const bool toTga = IsExtension(name, "tga");
    const Zem::Rect area = image;
    if (toTga && image.GetFormat() != Zem::Bitmap::ARGB32)
    {
        image = WithAlpha(image);
        if (!image.IsValid())
            Fail(Exit::Disk, name, "out of memory");
    }
    if (!toTga && image.GetFormat() == Zem::Bitmap::ARGB32 && HasTransparency(image))
        messages.Note(name, "a BMP has no transparency: it is dropped");
    if (!toTga && area.width % 4 != 0)
        messages.Note(name, "its width, " + std::to_string(area.width) +
                                ", is no multiple of 4: other programs read such a BMP, this library does not");

    const std::string path = mounts.ForWriting(name);
    if (path.empty()) // into an archive, which takes a member as a whole or not at all
    {
        if (Zem::File::Exists(name.c_str()))
            Fail(Exit::Usage, name,
                 "the mounted archive has this member already, and the old version stays the one found");
        if (!image.Save(name.c_str()))
            Fail(Exit::Disk, name, "cannot create");
        return;
    }
    Replacement out(path, force);
    if (!image.Save(mounts.ForFile(out.Path(), true).c_str()))
        Fail(Exit::Disk, path,
             std::string("cannot create: ") + (errno ? std::strerror(errno) : "the file cannot be made"));
    out.Commit();
}

Exit ImageConvert(Mounts& mounts, const FileOptions& options)
{
    Messages messages("image convert");
    CheckImageOutput(options.output);
    if (std::optional<Zem::Bitmap> image = LoadImage(mounts, options.input, messages))
        SaveImage(mounts, *image, options.output, options.force, messages);
    return messages.Worst();
}

} // namespace Tool
