// Any bytes as a TGA file: refused or loaded, and what was loaded has all its pixels.

#include "ImageFuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    for (bool keepIndexed : {false, true})
        FuzzImage(data, size,
                  [&](FuzzedBitmap& bitmap, Zem::MemoryFile& file) { return bitmap.LoadTGA(file, keepIndexed); });
    return 0;
}
