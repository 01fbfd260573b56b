#pragma once

namespace Zem
{

/// A rotation or another linear map: three rows of three, row `i` and column `j` at `m[3 * i + j]`.
///
/// Vectors are rows, v' = v * M, so row `i` is the image of axis `i`, and in A * B the map A acts first. Rotations are
/// right-handed: a positive angle about Z turns X toward Y.
struct Matrix3
{
    float m[9];

    friend bool operator==(const Matrix3&, const Matrix3&) = default;
};

} // namespace Zem
