#pragma once

#include <Bedrock/Export.h>
#include <Bedrock/memory/HeapOperators.h>

namespace Zem
{

class Bitmap;

/// One curve of brightness for all three colours of an image, built up step by step and then applied; and a change of
/// saturation beside it. Works on `Bitmap::ARGB32` images alone; alpha is never touched.
///
/// Threads: applying only reads the curve: one object serves several threads that work on different images.
///
///     ImageProcessing curve;
///     curve.SetupContrast(1.2f);   // first stretched about the middle,
///     curve.SetupBrightness(0.9f); // then shifted down
///     curve.Process(photo);
class ZEM_API ImageProcessing
{
    ZEM_HEAP_OPERATORS

public:
    ImageProcessing() { SetupIdentity(); }

    /// Starts again with the curve that changes nothing.
    void SetupIdentity();

    /// Shifts the curve as it is, by `level` from 0 (all black) to 2 (all white), clamped; 1 changes nothing.
    void SetupBrightness(float level);

    /// Stretches the curve as it is about 128, by `level` from 0 (all 128) to 2, clamped; 1 changes nothing.
    void SetupContrast(float level);

    /// Applies the curve to each colour of each pixel.
    /// Returns: false, with nothing changed, for another format or an image without pixels.
    bool Process(Bitmap& image);

    /// Spreads the colours of each pixel about their mean, by `amount`: 0 gives grey, 1 changes nothing, more saturates.
    /// Results are cut to 0 to 255; the curve plays no part.
    /// Returns: as `Process`.
    bool AdjustColor(float amount, Bitmap& image);

private:
    unsigned char table[256]; // output for each input
};

} // namespace Zem
