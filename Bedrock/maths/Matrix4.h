#pragma once

#include <Bedrock/Export.h>

namespace Zem
{

/// Sixteen floats, four rows of four; single precision throughout. A plain record: fill it as you like.
///
///     Matrix4 view = camera;
///     view.Invert(); // world to camera
struct ZEM_API Matrix4
{
    float m[16];

    /// Inverts in place, by Cramer's rule. Returns: this matrix.
    ///
    /// A singular matrix is not reported: its elements are then not finite. Where that can happen, ask
    /// `GetDeterminant` first.
    Matrix4& Invert();

    float GetDeterminant() const;

    friend bool operator==(const Matrix4&, const Matrix4&) = default;
};

} // namespace Zem
