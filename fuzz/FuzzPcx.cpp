// Any bytes as a PCX file: refused or loaded, and what was loaded has all its pixels.

#include "ImageFuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    for (bool keepIndexed : {false, true})
        FuzzImage(data, size,
                  [&](FuzzedBitmap& bitmap, Zem::MemoryFile& file) { return bitmap.LoadPCX(file, keepIndexed); });
    return 0;
}
