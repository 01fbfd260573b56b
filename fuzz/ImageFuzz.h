#pragma once

#include <Bedrock/bitmap/Bitmap.h>
#include <Bedrock/files/MemoryFile.h>

#include <cstdint>
#include <cstdlib>

// What the fuzz targets of the image formats share: the loaders read from memory, without a file.

struct FuzzedBitmap : Zem::Bitmap
{
    using Bitmap::LoadBMP;
    using Bitmap::LoadJPG;
    using Bitmap::LoadPCX;
    using Bitmap::LoadTGA;
};

template <class Load>
void FuzzImage(const std::uint8_t* data, std::size_t size, Load load)
{
    const Zem::MemoryFile wrapped;
    wrapped.Open(data, static_cast<std::uint32_t>(size));
    Zem::MemoryFile file(wrapped);
    FuzzedBitmap bitmap;
    if (!load(bitmap, file))
        return;
    const Zem::Rect all = bitmap;
    if (!bitmap.IsValid() || all.width < 1 || all.height < 1 ||
        (bitmap.GetFormat() == Zem::Bitmap::Indexed8) != (bitmap.GetPalette() != nullptr))
        std::abort();
    volatile std::uint8_t last = *bitmap.GetPtr(Zem::Point{all.width - 1, all.height - 1});
    (void)last;
}
