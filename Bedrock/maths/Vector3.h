#pragma once

namespace Zem
{

/// Three floats: a direction, a place, an angular velocity or three angles in radians, as its user says.
struct Vector3
{
    float x;
    float y;
    float z;

    friend bool operator==(const Vector3&, const Vector3&) = default;
};

} // namespace Zem
