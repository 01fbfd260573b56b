// Image files by name: which format the extension means, and the way from a file to its loader.

#include <Bedrock/bitmap/Bitmap.h>

#include <Bedrock/bitmap/ImageRows.h>
#include <Bedrock/memory/PString.h>
#include <Bedrock/platform/Text.h>

#include <cstring>

namespace Zem
{

namespace
{

enum class ImageFile
{
    None,
    Tga,
    Bmp,
    Pcx,
    Jpeg
};

// What follows the last dot begins with `text`, in either case.
bool Begins(const char* extension, const char* text)
{
    for (; *text; ++text, ++extension)
        if (Platform::ToLowerAscii(static_cast<unsigned char>(*extension)) != static_cast<unsigned char>(*text))
            return false;
    return true;
}

ImageFile KindOf(const char* name)
{
    const char* dot = name ? std::strrchr(name, '.') : nullptr;
    if (!dot)
        return ImageFile::None;
    constexpr struct
    {
        const char* extension;
        ImageFile kind;
    } kinds[] = {{"tga", ImageFile::Tga},
                 {"bmp", ImageFile::Bmp},
                 {"pcx", ImageFile::Pcx},
                 {"jpg", ImageFile::Jpeg},
                 {"jpeg", ImageFile::Jpeg}};
    for (const auto& entry : kinds)
        if (Begins(dot + 1, entry.extension))
            return entry.kind;
    return ImageFile::None;
}

} // namespace

bool Bitmap::GetInfo(const char* name, Format& found, std::uint32_t& columns, std::uint32_t& rows)
{
    switch (KindOf(name))
    {
    case ImageFile::Tga:
        return GetInfoTGA(name, found, columns, rows);
    case ImageFile::Bmp:
        return GetInfoBMP(name, found, columns, rows);
    case ImageFile::Pcx:
        return GetInfoPCX(name, found, columns, rows);
    case ImageFile::Jpeg:
        return GetInfoJPG(name, found, columns, rows);
    case ImageFile::None:
        break;
    }
    return false;
}

bool Bitmap::Load(const PString& name, const PString& substitute, bool keepIndexed)
{
    Done();
    pixels = nullptr; // of a caller, who keeps them; this bitmap is empty until the file is in it
    const char* text = name;
    if (!text || !std::strchr(text, '.'))
        return false;
    bool loaded = false;
    {
        MemoryFile file;
        {
            File source;
            const bool open = substitute.Length() > 0 ? bool(source.Open(substitute, text, File::ModeRead))
                                                      : bool(source.Open(text, File::ModeRead));
            if (!open || source.Size() == 0)
                return false;
            file.Open(source);
        }
        switch (KindOf(text))
        {
        case ImageFile::Tga:
            loaded = LoadTGA(file, keepIndexed);
            break;
        case ImageFile::Bmp:
            loaded = LoadBMP(file, keepIndexed);
            break;
        case ImageFile::Pcx:
            loaded = LoadPCX(file, keepIndexed);
            break;
        case ImageFile::Jpeg:
            loaded = LoadJPG(file);
            break;
        case ImageFile::None:
            break;
        }
    }
    if (!loaded)
        Done();
    return loaded;
}

bool Bitmap::LoadAlpha(const char* image, const char* alpha)
{
    return Load(PString(image), PString(), false) && AddAlpha(alpha);
}

bool Bitmap::Save(const char* name) const
{
    switch (KindOf(name))
    {
    case ImageFile::Tga:
        return SaveTGA(name);
    case ImageFile::Bmp:
        return SaveBMP(name, false);
    default:
        return false;
    }
}

} // namespace Zem
