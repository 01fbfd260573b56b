#include "ImageReason.h"

#include <Bedrock/files/File.h>
#include <Bedrock/host/Exception.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <strings.h>

namespace Tool
{

namespace
{

class Header
{
public:
    explicit Header(Zem::File& file)
    {
        count = file.Read(bytes.data(), bytes.size(), 1);
        count = count ? count : file.Tell();
    }
    std::uint32_t Count() const { return count; }
    unsigned At(std::size_t i) const { return bytes[i]; }
    unsigned Word(std::size_t i) const { return At(i) | At(i + 1) << 8; }
    std::uint32_t Long(std::size_t i) const { return Word(i) | static_cast<std::uint32_t>(Word(i + 2)) << 16; }

private:
    std::array<unsigned char, 128> bytes{};
    std::uint32_t count;
};

const char* const shortFile = "ends inside its header";
const char* const damagedPixels = "the header is fine, but the pixels behind it are damaged or end too early";

std::string WhyNotTga(const Header& header)
{
    if (header.Count() < 18)
        return shortFile;
    const unsigned type = header.At(2), depth = header.At(16), descriptor = header.At(17);
    if (type >= 9 && type <= 11)
        return "a run-length packed TGA";
    if (type != 1 && type != 2)
        return "a TGA of type " + std::to_string(type) + ", and only types 1 and 2 are read";
    if (descriptor & 0x10)
        return "a TGA that runs from right to left";
    if (descriptor & 0xC0)
        return "an interleaved TGA";
    if (header.At(1) != (type == 1 ? 1u : 0u))
        return "a TGA whose colour map does not fit its type";
    if (type == 1 && (depth != 8 || header.At(7) != 24))
        return "an indexed TGA of other than 8 bits with a map of 24";
    if (type == 2 && depth != 16 && depth != 24 && depth != 32)
        return "a TGA of " + std::to_string(depth) + " bits";
    if (header.Word(12) == 0 || header.Word(14) == 0)
        return "an image without pixels";
    return damagedPixels;
}

std::string WhyNotBmp(const Header& header)
{
    if (header.Count() < 54)
        return shortFile;
    const auto width = static_cast<std::int32_t>(header.Long(18));
    if (header.Word(0) != 0x4D42)
        return "not a BMP file";
    if (header.Long(14) != 40)
        return "a BMP with an info header of " + std::to_string(header.Long(14)) + " bytes, and only 40 are read";
    if (header.Word(26) != 1)
        return "a BMP with other than one plane";
    if (header.Long(30) != 0)
        return "a packed BMP";
    if (width % 4 != 0)
        return "a BMP of width " + std::to_string(width) + ", and only multiples of 4 are read";
    if (header.Word(28) != 8 && header.Word(28) != 24)
        return "a BMP of " + std::to_string(header.Word(28)) + " bits, and only 8 and 24 are read";
    if (width <= 0 || header.Long(22) == 0)
        return "an image without pixels";
    return damagedPixels;
}

std::string WhyNotPcx(const Header& header)
{
    if (header.Count() < 128)
        return shortFile;
    if (header.At(1) != 5 || header.At(2) != 1)
        return "a PCX of another version or encoding";
    if (header.At(3) != 8)
        return "a PCX of " + std::to_string(header.At(3)) + " bits, and only 8 are read";
    return "the header is fine, but the palette at the end is missing or the pixels end too early";
}

} // namespace

std::string WhyNotLoaded(const std::string& name)
{
    const std::size_t dot = name.rfind('.');
    const char* const extension = dot == std::string::npos ? "" : name.c_str() + dot + 1;
    try
    {
        Zem::File file;
        if (const auto result = file.Open(name.c_str(), Zem::File::ModeRead); !result)
            return "does not exist or cannot be opened";
        const Header header(file);
        if (strncasecmp(extension, "tga", 3) == 0)
            return WhyNotTga(header);
        if (strncasecmp(extension, "bmp", 3) == 0)
            return WhyNotBmp(header);
        if (strncasecmp(extension, "pcx", 3) == 0)
            return WhyNotPcx(header);
        if (strncasecmp(extension, "jpg", 3) == 0 || strncasecmp(extension, "jpeg", 4) == 0)
            return header.At(0) == 0xFF && header.At(1) == 0xD8
                       ? "a JPEG that is damaged, or of a kind that is not read (CMYK)"
                       : "not a JPEG file";
        return "the extension is none of .tga, .bmp, .pcx, .jpg and .jpeg";
    }
    catch (const Zem::FileEx& failure)
    {
        return std::string("cannot be read: ") + failure.Reason();
    }
}

} // namespace Tool
