// A build without a JPEG library: no JPEG is ever read.

#include <Bedrock/platform/Jpeg.h>

namespace Zem::Platform
{

bool PrepareJpeg(JpegReader&) noexcept
{
    return false;
}

bool ReadJpegHeader(JpegReader&, const void*, std::size_t, std::uint32_t&, std::uint32_t&) noexcept
{
    return false;
}

bool ReadJpegImage(JpegReader&, unsigned char*, std::ptrdiff_t) noexcept
{
    return false;
}

bool ReleaseJpeg(JpegReader&) noexcept
{
    return false;
}

} // namespace Zem::Platform
