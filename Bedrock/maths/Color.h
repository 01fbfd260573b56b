#pragma once

#include <Bedrock/Export.h>

namespace Zem
{

struct HSVColor;

/// A colour to compute with: red, green, blue and alpha, each from 0 to 1. The colour of a pixel is `PackedColor`.
///
///     HSVColor hsv;
///     hsv.Convert(Color{0.2f, 0.4f, 0.9f, 1.0f});
///     hsv.v *= 0.5f; // half as bright, the same hue
///     Color darker;
///     darker.Convert(hsv);
struct ZEM_API Color
{
    float r;
    float g;
    float b;
    float a;

    /// Becomes the opaque colour `c`. Returns: this.
    ///
    /// A colour without saturation is grey, whatever its hue. With a hue above 1, or of -1/6 and less, `r`, `g` and `b`
    /// keep what they held.
    Color& Convert(const HSVColor& c);

    friend bool operator==(const Color&, const Color&) = default;
};

/// A colour as hue, saturation and value, each from 0 to 1; a hue of 1 is a full turn and the same red as 0. A colour
/// that has no hue, a grey, has the hue -1.
struct ZEM_API HSVColor
{
    float h;
    float s;
    float v;

    /// Becomes the colour `c`, whose alpha plays no part. Returns: this.
    HSVColor& Convert(const Color& c);

    friend bool operator==(const HSVColor&, const HSVColor&) = default;
};

} // namespace Zem
