#pragma once

#include <Bedrock/bitmap/Bitmap.h>

#include <cstdint>

namespace Zem::Kernels
{

/// Entry [a][c] is (a * c + 127) / 255: a component scaled by an alpha, to nearest. It starts at a multiple of 256, so
/// that alpha and component are the two low bytes of an entry's offset.
extern const std::uint8_t (&premultiplied)[256][256];

/// Copies are the system's memmove and memcpy at every level: they choose for the processor by themselves.
void CopyARGB(void* dst, const void* src, int count);
void CopyRGB24(void* dst, const void* src, int count);
void CopyRGB16(void* dst, const void* src, int count);

/// Every pixel loop by name, for one level of processor. README.md of this folder says which format uses which.
struct Set
{
    TransferKernel copyARGB;
    TransferKernel copyRGB24;
    TransferKernel copyRGB16;
    TransferKernel rgb24ToARGB;
    TransferKernel rgb16ToARGB;
    TransferKernel rgb16ToRGB24;
    TransferKernel rgb24ToRGB16;
    TransferKernel blendARGB;
    TransferKernel blendARGBToRGB16;
    TransferKernel blendARGBToRGB24;
    FillKernel fillARGB;
    FillKernel fillRGB16;
    FillKernel fillRGB24;
    FillKernel blendFillARGB;
};

enum class Level
{
    Scalar,
    Sse2,
    Avx2
};

/// The reference: every other level gives the same bytes.
extern const Set scalarSet;

/// The set of a level, or null where the build or this processor does not have it.
const Set* SetOf(Level level);

/// The set in use. The first call chooses it: the best of this processor, or what BEDROCK_KERNELS names (scalar, sse2,
/// avx2). Any thread may be first.
const Set& Current();

/// The level in use.
Level CurrentLevel();

/// Puts bitmaps that are made from now on at `level`, for tests and benchmarks; false if there is no such set here.
bool SetLevel(Level level);

/// The eight kernels of a format from the set in use; `Indexed8`, `Blob` and unknown numbers get kernels that return
/// at once.
PixelKernels For(Bitmap::Format format);

/// Kernels that return at once, for every entry.
extern const PixelKernels noKernels;

} // namespace Zem::Kernels
