// Any bytes as a JPEG file: refused or loaded, and what was loaded has all its pixels.

#include "ImageFuzz.h"

#include <Bedrock/platform/Jpeg.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Zem::Platform::JpegReader reader;
    if (!Zem::Platform::PrepareJpeg(reader))
        return 0;
    std::uint32_t width = 0, height = 0;
    const bool read = Zem::Platform::ReadJpegHeader(reader, data, size, width, height);
    Zem::Platform::ReleaseJpeg(reader);
    if (read && std::uint64_t{width} * height > 1 << 20)
        return 0; // sound, and too slow to be worth the time here
    FuzzImage(data, size, [](FuzzedBitmap& bitmap, Zem::MemoryFile& file) { return bitmap.LoadJPG(file); });
    return 0;
}
