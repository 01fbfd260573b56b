// JPEG files, through the platform's decoder.

#include <Bedrock/bitmap/Bitmap.h>

#include <Bedrock/bitmap/ImageRows.h>
#include <Bedrock/platform/Jpeg.h>

namespace Zem
{

bool Bitmap::GetInfoJPG(const char* name, Format& found, std::uint32_t& columns, std::uint32_t& rows)
{
    File source;
    if (!name || !source.Open(name, File::ModeRead) || source.Size() == 0)
        return false;
    Platform::JpegReader reader;
    MemoryFile file(source);
    if (!Platform::PrepareJpeg(reader))
        return false;
    std::uint32_t w, h;
    const bool read = Platform::ReadJpegHeader(reader, file.Data(), file.Size(), w, h);
    if (!Platform::ReleaseJpeg(reader) || !read)
        return false;
    found = XRGB32;
    columns = w;
    rows = h;
    return true;
}

bool Bitmap::LoadJPG(MemoryFile& file)
{
    Platform::JpegReader reader;
    if (!Platform::PrepareJpeg(reader))
        return false;
    std::uint32_t w, h;
    bool read = Platform::ReadJpegHeader(reader, Cursor(file), BytesLeft(file), w, h);
    if (read)
    {
        Init(Size{static_cast<std::int32_t>(w), static_cast<std::int32_t>(h)}, 0, XRGB32, nullptr, 0);
        read = pixels && Platform::ReadJpegImage(reader, pixels, pitch);
    }
    return Platform::ReleaseJpeg(reader) && read;
}

} // namespace Zem
