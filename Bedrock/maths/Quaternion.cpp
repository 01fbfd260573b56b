#include <Bedrock/maths/Quaternion.h>

#include <cmath>

namespace Zem
{

namespace
{

float Length(const Vector3& v)
{
    return std::sqrt(v.x * v.x + v.y * v.y + v.z * v.z);
}

Vector3 Cross(const Vector3& a, const Vector3& b)
{
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

Vector3 operator/(const Vector3& v, float divisor)
{
    return {v.x / divisor, v.y / divisor, v.z / divisor};
}

Vector3 operator-(const Vector3& v)
{
    return {-v.x, -v.y, -v.z};
}

void Normalise(Quaternion& q)
{
    const float length = std::sqrt(q.x * q.x + q.y * q.y + q.z * q.z + q.w * q.w);
    q.x /= length;
    q.y /= length;
    q.z /= length;
    q.w /= length;
}

struct Turn
{
    float cos = 1.0f;
    float sin = 0.0f;

    explicit Turn(float angle)
    {
        if (angle != 0.0f) // most rotations are about one axis
        {
            cos = std::cos(angle);
            sin = std::sin(angle);
        }
    }
};

// The axis `a` that is asked for, and two axes to go with it: `b` at right angles to it and to `up`, `d` completing
// them. Where `axis` and `up` lie along one line, b and d are X and Y.
struct Frame
{
    Vector3 a;
    Vector3 b{1.0f, 0.0f, 0.0f};
    Vector3 d{0.0f, 1.0f, 0.0f};

    Frame(const Vector3& axis, const Vector3& up) : a(axis / Length(axis))
    {
        const Vector3 v = Cross(a, up);
        const float length = Length(v);
        if (length <= 0.0001f)
            return;
        b = v / length;
        d = Cross(a, b);
    }
};

// The arc cosine of `d`, 0 to 1, and the sine of an angle from 0 to a right angle, without the branches of the general
// functions: arguments of interpolation are as good as random, and a branch on them is a coin tossed. Both are computed
// in double precision from polynomials fitted at the Chebyshev nodes, with relative errors below 3e-9 and 3e-11, a
// twentieth of what single precision rounds away.
double ArcCosine(double d)
{
    const double d2 = d * d, d4 = d2 * d2;
    const double low =
        (1.5707963231771747 - 0.2146012262498024 * d) + (0.08903147164287545 - 0.050604003729251223 * d) * d2;
    const double high =
        (0.03261138405706454 - 0.020812150673599206 * d) + (0.011126960078684078 - 0.004034589369723562 * d) * d2;
    return std::sqrt(1.0 - d) * (low + high * d4 + 0.000699396129220986 * (d4 * d4));
}

double Sine(double angle)
{
    const double y = angle * angle, y2 = y * y;
    const double low = (0.9999999999829653 - 0.16666666616907308 * y);
    const double middle = (0.008333330977128035 - 0.00019840861504591422 * y);
    const double high = (2.7525284594781187e-06 - 2.388945283122099e-08 * y);
    return angle * (low + middle * y2 + high * (y2 * y2));
}

Matrix3 Rows(const Vector3& x, const Vector3& y, const Vector3& z)
{
    return {{x.x, x.y, x.z, y.x, y.y, y.z, z.x, z.y, z.z}};
}

} // namespace

Quaternion& Quaternion::Set(float angleX, float angleY, float angleZ)
{
    const Turn tx(angleX), ty(angleY), tz(angleZ);
    // The rows of Rx * Ry, each then turned about Z.
    const Vector3 rows[3] = {{ty.cos, 0.0f, -ty.sin},
                             {tx.sin * ty.sin, tx.cos, tx.sin * ty.cos},
                             {tx.cos * ty.sin, -tx.sin, tx.cos * ty.cos}};
    Matrix3 product;
    for (int i = 0; i < 3; ++i)
    {
        product.m[3 * i] = rows[i].x * tz.cos - rows[i].y * tz.sin;
        product.m[3 * i + 1] = rows[i].x * tz.sin + rows[i].y * tz.cos;
        product.m[3 * i + 2] = rows[i].z;
    }
    return Set(product);
}

// Shepperd's method: the largest of the four components is taken from the diagonal, so that the divisor of the others
// is never small.
Quaternion& Quaternion::Set(const Matrix3& rotation)
{
    const float* m = rotation.m;
    const float trace = m[0] + (m[8] + m[4]);
    if (trace >= 0.0f)
    {
        const float s = std::sqrt(trace + 1.0f);
        const float h = 0.5f / s;
        w = s / 2.0f;
        x = (m[5] - m[7]) * h;
        y = (m[6] - m[2]) * h;
        z = (m[1] - m[3]) * h;
    }
    else
    {
        int largest = m[0] >= m[4] ? 0 : 1;
        if (m[4 * largest] < m[8])
            largest = 2;
        if (largest == 0)
        {
            const float s = std::sqrt(m[0] - (m[8] + m[4]) + 1.0f);
            const float h = 0.5f / s;
            x = s / 2.0f;
            y = (m[3] + m[1]) * h;
            z = (m[6] + m[2]) * h;
            w = (m[5] - m[7]) * h;
        }
        else if (largest == 1)
        {
            const float s = std::sqrt(m[4] - (m[0] + m[8]) + 1.0f);
            const float h = 0.5f / s;
            y = s / 2.0f;
            z = (m[7] + m[5]) * h;
            x = (m[3] + m[1]) * h;
            w = (m[6] - m[2]) * h;
        }
        else
        {
            const float s = std::sqrt(m[8] - (m[0] + m[4]) + 1.0f);
            const float h = 0.5f / s;
            z = s / 2.0f;
            x = (m[6] + m[2]) * h;
            y = (m[7] + m[5]) * h;
            w = (m[1] - m[3]) * h;
        }
    }
    Normalise(*this);
    return *this;
}

Quaternion& Quaternion::Slerp(const Quaternion& a, const Quaternion& b, float t)
{
    if (a == b)
        return *this = a;

    const float dot = a.x * b.x + a.y * b.y + a.z * b.z + a.w * b.w;
    const float d = std::fabs(dot);
    float s0 = 1.0f - t;
    float s1 = t;
    if (1.0f - d > 0.001f)
    {
        if (t >= 0.0f && t <= 1.0f)
        {
            // All three sines from the same function: at either end of the arc one weight is exactly 1.
            const double theta = ArcCosine(d);
            const double scale = 1.0 / Sine(theta);
            const double part = theta * t;
            s0 = static_cast<float>(Sine(theta - part) * scale);
            s1 = static_cast<float>(Sine(part) * scale);
        }
        else
        {
            const float theta = std::acos(d);
            const float sine = std::sin(theta);
            s0 = std::sin((1.0f - t) * theta) / sine;
            s1 = std::sin(theta * t) / sine;
        }
    }
    constexpr float Signs[] = {1.0f, -1.0f}; // b and -b are the same rotation: the nearer one counts
    s1 *= Signs[dot < 0.0f];
    return *this = {s0 * a.x + s1 * b.x, s0 * a.y + s1 * b.y, s0 * a.z + s1 * b.z, s0 * a.w + s1 * b.w};
}

Quaternion& Quaternion::Update(const Vector3& omega, float dt)
{
    const Vector3 v{x, y, z};
    const Vector3 cross = Cross(omega, v);
    const float dot = omega.x * v.x + omega.y * v.y + omega.z * v.z;
    x += (cross.x + w * omega.x) * 0.5f * dt;
    y += (cross.y + w * omega.y) * 0.5f * dt;
    z += (cross.z + w * omega.z) * 0.5f * dt;
    w += -dot * 0.5f * dt;
    return *this;
}

Vector3 Quaternion::GetEulerAngles() const
{
    Quaternion q = *this;
    Normalise(q);
    const float m00 = 1.0f - 2.0f * q.y * q.y - 2.0f * q.z * q.z;
    const float m01 = 2.0f * q.x * q.y + 2.0f * q.z * q.w;
    const float m02 = 2.0f * q.x * q.z - 2.0f * q.y * q.w;
    const float m11 = 1.0f - 2.0f * q.x * q.x - 2.0f * q.z * q.z;
    const float m12 = 2.0f * q.y * q.z + 2.0f * q.x * q.w;
    const float m22 = 1.0f - 2.0f * q.x * q.x - 2.0f * q.y * q.y;

    // Rounding may carry a sine or cosine a little past 1, where there is no angle.
    const auto clamp = [](float value) { return value < -1.0f ? -1.0f : value > 1.0f ? 1.0f : value; };
    constexpr float Pole = 3.1415927f * 0.5f;
    const float angleY = std::asin(clamp(-m02));
    if (std::fabs(angleY - Pole) < 1e-12f)
        return {0.0f, Pole, std::acos(clamp(m11))};
    return {std::atan2(m12, m22), angleY, std::atan2(m01, m00)};
}

Quaternion& Quaternion::SetXAxis(const Vector3& axis, const Vector3& up)
{
    const Frame frame(axis, up);
    return Set(Rows(frame.a, -frame.b, -frame.d));
}

Quaternion& Quaternion::SetYAxis(const Vector3& axis, const Vector3& up)
{
    const Frame frame(axis, up);
    return Set(Rows(frame.b, frame.a, -frame.d));
}

Quaternion& Quaternion::SetZAxis(const Vector3& axis, const Vector3& up)
{
    const Frame frame(axis, up);
    return Set(Rows(frame.b, frame.d, frame.a));
}

} // namespace Zem
