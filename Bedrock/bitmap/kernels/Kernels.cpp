// The choice of the level, and which kernel serves which entry of a format's table.

#include <Bedrock/bitmap/kernels/Kernels.h>

#include <atomic>
#include <cstdlib>
#include <cstring>

namespace Zem::Kernels
{

namespace
{

constexpr struct
{
    Level level;
    const char* name;
} levels[] = {{Level::Avx2, "avx2"}, {Level::Sse2, "sse2"}, {Level::Scalar, "scalar"}}; // best first

// Null until the first use. The choice has the same result on every thread, so threads that make it together all store
// the same pointer, and no lock is needed.
constinit std::atomic<const Set*> current{nullptr};

const Set* Choose()
{
    const char* wanted = std::getenv("BEDROCK_KERNELS");
    if (wanted)
        for (const auto& entry : levels)
            if (std::strcmp(entry.name, wanted) == 0)
                if (const Set* set = SetOf(entry.level))
                    return set;
    for (const auto& entry : levels)
        if (const Set* set = SetOf(entry.level))
            return set;
    return &scalarSet;
}

void NoTransfer(void*, const void*, int)
{
}

void NoFill(void*, PackedColor, int, int)
{
}

} // namespace

constinit const PixelKernels noKernels = {NoTransfer, NoFill,     NoFill,     NoTransfer,
                                          NoTransfer, NoTransfer, NoTransfer, NoTransfer};

const Set& Current()
{
    const Set* set = current.load(std::memory_order_acquire);
    if (!set)
    {
        const Set* chosen = Choose();
        if (current.compare_exchange_strong(set, chosen, std::memory_order_acq_rel))
            set = chosen;
    }
    return *set;
}

Level CurrentLevel()
{
    const Set* set = &Current();
    for (const auto& entry : levels)
        if (SetOf(entry.level) == set)
            return entry.level;
    return Level::Scalar;
}

bool SetLevel(Level level)
{
    const Set* set = SetOf(level);
    if (set)
        current.store(set, std::memory_order_release);
    return set != nullptr;
}

PixelKernels For(Bitmap::Format format)
{
    const Set& set = Current();
    switch (format)
    {
    case Bitmap::RGB24:
        return {set.rgb24ToARGB,  set.fillRGB24, set.fillRGB24,        set.copyRGB24,
                set.rgb16ToRGB24, set.copyRGB24, set.blendARGBToRGB24, set.blendARGBToRGB24};
    case Bitmap::ARGB32:
    case Bitmap::XRGB32:
        return {set.copyARGB,    set.fillARGB,    set.blendFillARGB, set.copyARGB,
                set.rgb16ToARGB, set.rgb24ToARGB, set.copyARGB,      set.blendARGB};
    case Bitmap::RGB16:
        return {set.rgb16ToARGB, set.fillRGB16,    set.fillRGB16,        set.copyRGB16,
                set.copyRGB16,   set.rgb24ToRGB16, set.blendARGBToRGB16, set.blendARGBToRGB16};
    case Bitmap::Indexed8:
    case Bitmap::Blob:
        break;
    }
    return noKernels;
}

} // namespace Zem::Kernels
