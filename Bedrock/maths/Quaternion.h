#pragma once

#include <Bedrock/Export.h>
#include <Bedrock/maths/Matrix3.h>
#include <Bedrock/maths/Vector3.h>

namespace Zem
{

/// A rotation as a quaternion of unit length: vector part `x`, `y`, `z`, then the scalar part `w`. Single precision;
/// angles are in radians.
///
/// It stands for the matrix (vectors are rows, see `Matrix3`)
///
///     1 - 2yy - 2zz    2xy + 2zw        2xz - 2yw
///     2xy - 2zw        1 - 2xx - 2zz    2yz + 2xw
///     2xz + 2yw        2yz - 2xw        1 - 2xx - 2yy
///
/// Nothing is reported: an axis or a quaternion of length 0 gives values that are not finite. `Slerp` and `Update` do
/// not bring the length back to 1; over long runs the caller does.
///
///     Quaternion from, to, now;
///     from.Set(0, 0, 0);
///     to.SetZAxis(target, {0, 1, 0});
///     now.Slerp(from, to, 0.25f); // a quarter of the way
struct ZEM_API Quaternion
{
    float x;
    float y;
    float z;
    float w;

    /// The rotation about X by `angleX`, then about Y, then about Z (the fixed axes).
    Quaternion& Set(float angleX, float angleY, float angleZ);

    /// The rotation `rotation`, which must be one: rows of unit length at right angles. The result has unit length.
    Quaternion& Set(const Matrix3& rotation);

    /// The place `t` of the way from `a` (0) to `b` (1) along the shorter arc, at constant speed. Nearly equal
    /// quaternions (within some 2.6 degrees as 4-vectors) are blended linearly; the result is then up to 0.025 percent
    /// short. Equal ones give `a` exactly. Returns: this.
    Quaternion& Slerp(const Quaternion& a, const Quaternion& b, float t);

    /// Turns by the angular velocity `omega`, in radians per unit of time, over `dt`: one Euler step. Returns: this.
    Quaternion& Update(const Vector3& omega, float dt);

    /// The angles that `Set` takes: `x` and `z` from -pi to pi, `y` from -pi/2 to pi/2.
    ///
    /// Near the poles (`y` at plus or minus pi/2) `x` and `z` are not determined apart, and `y` has half the digits
    /// only. At exactly plus pi/2, `x` is 0.
    Vector3 GetEulerAngles() const;

    /// The rotation that puts the axis along `axis`; `up` says how it is turned about it. `SetXAxis` and `SetYAxis` turn
    /// the Z axis toward `up`, `SetZAxis` turns the Y axis away from it. Lengths do not matter, but where `axis` and
    /// `up` lie along one line (or `up` is shorter than 0.0001), the turn is arbitrary and the three axes do not
    /// always stand at right angles. Returns: this.
    Quaternion& SetXAxis(const Vector3& axis, const Vector3& up);
    Quaternion& SetYAxis(const Vector3& axis, const Vector3& up);
    Quaternion& SetZAxis(const Vector3& axis, const Vector3& up);

    friend bool operator==(const Quaternion&, const Quaternion&) = default;
};

} // namespace Zem
