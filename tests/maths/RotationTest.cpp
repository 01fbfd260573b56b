#include <Bedrock/maths/Matrix4.h>
#include <Bedrock/maths/Quaternion.h>

#include "support/Support.h"

#include <array>
#include <cmath>
#include <vector>

namespace Zem
{
namespace
{

constexpr double Pi = 3.14159265358979323846;
constexpr double Eps = 0x1p-24; // relative error of one operation in single precision

using M3 = std::array<double, 9>;
using Q = std::array<double, 4>;

M3 operator*(const M3& a, const M3& b)
{
    M3 c{};
    for (std::size_t i = 0; i < 3; ++i)
        for (std::size_t j = 0; j < 3; ++j)
            for (std::size_t k = 0; k < 3; ++k)
                c[3 * i + j] += a[3 * i + k] * b[3 * k + j];
    return c;
}

M3 FromAngles(double x, double y, double z)
{
    const M3 rx{1, 0, 0, 0, std::cos(x), std::sin(x), 0, -std::sin(x), std::cos(x)};
    const M3 ry{std::cos(y), 0, -std::sin(y), 0, 1, 0, std::sin(y), 0, std::cos(y)};
    const M3 rz{std::cos(z), std::sin(z), 0, -std::sin(z), std::cos(z), 0, 0, 0, 1};
    return rx * ry * rz;
}

M3 FromQuaternion(const Quaternion& q)
{
    const double x = q.x, y = q.y, z = q.z, w = q.w;
    return {1 - 2 * y * y - 2 * z * z, 2 * x * y + 2 * z * w,     2 * x * z - 2 * y * w,
            2 * x * y - 2 * z * w,     1 - 2 * x * x - 2 * z * z, 2 * y * z + 2 * x * w,
            2 * x * z + 2 * y * w,     2 * y * z - 2 * x * w,     1 - 2 * x * x - 2 * y * y};
}

void ExpectNear(const M3& a, const M3& b, double bound)
{
    for (std::size_t i = 0; i < 9; ++i)
        ASSERT_NEAR(a[i], b[i], bound) << "element " << i;
}

void ExpectIs(const Quaternion& q, const Quaternion& expected, double bound = 0)
{
    EXPECT_NEAR(q.x, expected.x, bound);
    EXPECT_NEAR(q.y, expected.y, bound);
    EXPECT_NEAR(q.z, expected.z, bound);
    EXPECT_NEAR(q.w, expected.w, bound);
}

class Rotation : public testing::Test
{
protected:
    std::mt19937_64 random = ::Test::Random(0x720);

    double Uniform(double lo, double hi) { return std::uniform_real_distribution<double>(lo, hi)(random); }
    float Float(double lo, double hi) { return static_cast<float>(Uniform(lo, hi)); }
    Quaternion Unit()
    {
        std::normal_distribution<double> normal;
        const double x = normal(random), y = normal(random), z = normal(random), w = normal(random);
        const double length = std::sqrt(x * x + y * y + z * z + w * w);
        return {static_cast<float>(x / length), static_cast<float>(y / length), static_cast<float>(z / length),
                static_cast<float>(w / length)};
    }
};

TEST_F(Rotation, FromAnglesAndBack)
{
    ExpectIs(Quaternion{9, 9, 9, 9}.Set(0, 0, 0), {0, 0, 0, 1});
    for (int i = 0; i < 20000; ++i)
    {
        // One angle in four is exactly 0.
        const auto angle = [&](double most) { return random() % 4 ? Float(-most, most) : 0.0f; };
        const float x = angle(Pi), y = angle(1.56), z = angle(Pi);
        Quaternion q;
        q.Set(x, y, z);
        SCOPED_TRACE(testing::Message() << x << ' ' << y << ' ' << z);
        // Every element passes through some ten roundings; the square root in `Set` doubles them at worst.
        ExpectNear(FromQuaternion(q), FromAngles(x, y, z), 20 * Eps);

        q.x *= 3; // the length does not matter
        q.y *= 3;
        q.z *= 3;
        q.w *= 3;
        const Vector3 angles = q.GetEulerAngles();
        // Toward the poles the sine of y flattens, and x and z have less to go by.
        const double flat = 40 * Eps / std::cos(y);
        ASSERT_NEAR(angles.x, x, flat);
        ASSERT_NEAR(angles.y, y, flat);
        ASSERT_NEAR(angles.z, z, flat);
    }
}

TEST_F(Rotation, AnglesAtThePoles)
{
    const float h = std::sqrt(0.5f); // a little more than the root: the sine comes out past 1
    const Vector3 up = Quaternion{0, h, 0, h}.GetEulerAngles();
    EXPECT_EQ(up, (Vector3{0, 3.1415927f * 0.5f, 0}));
    const Vector3 turned = Quaternion{-0.5f, 0.5f, 0.5f, 0.5f}.GetEulerAngles();
    EXPECT_EQ(turned.y, 3.1415927f * 0.5f);
    EXPECT_EQ(turned.x, 0);
    EXPECT_NEAR(turned.z, Pi / 2, 1e-6);
    for (int i = 0; i < 20000; ++i) // nothing near a pole falls out of the domain of the arc sine
    {
        Quaternion q;
        const double pole = i % 2 ? Pi / 2 : -Pi / 2;
        q.Set(Float(-Pi, Pi), static_cast<float>(pole + Uniform(-1e-3, 1e-3)), Float(-Pi, Pi));
        const Vector3 a = q.GetEulerAngles();
        ASSERT_TRUE(std::isfinite(a.x) && std::isfinite(a.z));
        ASSERT_NEAR(a.y, pole, 2.5e-3);
    }
}

// All four branches: the trace, and each diagonal element as the largest.
TEST_F(Rotation, FromMatrix)
{
    int branches[4] = {};
    for (int i = 0; i < 20000; ++i)
    {
        const Quaternion from = Unit();
        const M3 exact = FromQuaternion(from);
        Matrix3 m;
        for (std::size_t k = 0; k < 9; ++k)
            m.m[k] = static_cast<float>(exact[k]);
        Quaternion q;
        q.Set(m);
        const float* largest = m.m[0] + (m.m[8] + m.m[4]) >= 0        ? &q.w
                               : m.m[0] >= m.m[4] && m.m[0] >= m.m[8] ? &q.x
                               : m.m[4] >= m.m[8]                     ? &q.y
                                                                      : &q.z;
        ++branches[largest - &q.x];
        ASSERT_GE(*largest, 0.49f); // positive, which settles the sign of all
        const double dot = double{q.x} * from.x + double{q.y} * from.y + double{q.z} * from.z + double{q.w} * from.w;
        ASSERT_NEAR(std::fabs(dot), 1, 20 * Eps);
        ExpectNear(FromQuaternion(q), exact, 20 * Eps);
    }
    for (const int n : branches)
        EXPECT_GT(n, 1000);
}

TEST_F(Rotation, SlerpTakesTheShorterArcAtConstantSpeed)
{
    for (int i = 0; i < 20000; ++i)
    {
        const Quaternion a = Unit();
        Quaternion b = Unit();
        if (i % 4 == 0) // near a, where the blend is linear
            b = {a.x + Float(-.03, .03), a.y + Float(-.03, .03), a.z + Float(-.03, .03), a.w + Float(-.03, .03)};
        const float t = i % 10 == 0 ? 0.0f : i % 10 == 1 ? 1.0f : Float(0, 1);
        const float single = a.x * b.x + a.y * b.y + a.z * b.z + a.w * b.w;
        const double exact = double{a.x} * b.x + double{a.y} * b.y + double{a.z} * b.z + double{a.w} * b.w;
        const double d = std::fmin(std::fabs(exact), 1);
        const double sign = exact < 0 ? -1 : 1;
        if (std::fabs(1 - std::fabs(single) - 0.001f) < 1e-6 || (single < 0) != (exact < 0))
            continue; // too near the border to tell the branch
        const bool linear = 1 - std::fabs(single) <= 0.001f;
        const double theta = std::acos(d);
        const double s0 = linear ? 1 - double{t} : std::sin((1 - t) * theta) / std::sin(theta);
        const double s1 = sign * (linear ? double{t} : std::sin(theta * t) / std::sin(theta));
        Quaternion q;
        ASSERT_EQ(&q.Slerp(a, b, t), &q);
        // The angle of a cosine near 1 is known to Eps / sin(theta), and it moves the weights by its own size over theta.
        const double bound = 12 * Eps + (linear ? 0 : 4 * Eps / std::sin(theta));
        ASSERT_NEAR(q.x, s0 * a.x + s1 * b.x, bound);
        ASSERT_NEAR(q.y, s0 * a.y + s1 * b.y, bound);
        ASSERT_NEAR(q.z, s0 * a.z + s1 * b.z, bound);
        ASSERT_NEAR(q.w, s0 * a.w + s1 * b.w, bound);
        if (t == 0)
        {
            ASSERT_EQ(q, a);
        }
    }
    const Quaternion a{0.1f, 0.2f, 0.3f, 5};
    EXPECT_EQ(Quaternion().Slerp(a, a, 17.5f), a);
    EXPECT_EQ(Quaternion().Slerp({0, 0, 0, 1}, {0, 0, 0, -1}, 0.5f), (Quaternion{0, 0, 0, 1}));

    const auto lengthAt = [](double d)
    {
        const Quaternion q = Quaternion().Slerp(
            {0, 0, 0, 1}, {static_cast<float>(std::sqrt(1 - d * d)), 0, 0, static_cast<float>(d)}, 0.5f);
        return std::sqrt(double{q.x} * q.x + double{q.w} * q.w);
    };
    EXPECT_NEAR(lengthAt(0.9995), std::sqrt((1 + 0.9995) / 2), 1e-6); // the chord
    EXPECT_NEAR(lengthAt(0.99), 1, 1e-6);
}

TEST_F(Rotation, UpdateIsOneEulerStep)
{
    for (int i = 0; i < 5000; ++i)
    {
        const Quaternion before = Unit();
        const Vector3 o{Float(-9, 9), Float(-9, 9), Float(-9, 9)};
        const float dt = Float(-0.1, 0.1);
        const double h = double{dt} / 2, x = before.x, y = before.y, z = before.z, w = before.w;
        Quaternion q = before;
        ASSERT_EQ(&q.Update(o, dt), &q);
        const double bound = 12 * Eps;
        ASSERT_NEAR(q.x, x + h * (o.y * z - o.z * y + w * o.x), bound);
        ASSERT_NEAR(q.y, y + h * (o.z * x - o.x * z + w * o.y), bound);
        ASSERT_NEAR(q.z, z + h * (o.x * y - o.y * x + w * o.z), bound);
        ASSERT_NEAR(q.w, w - h * (o.x * x + o.y * y + o.z * z), bound);
        EXPECT_EQ(Quaternion(before).Update({0, 0, 0}, dt), before);
        EXPECT_EQ(Quaternion(before).Update(o, 0), before);
    }
}

TEST_F(Rotation, PutsAnAxisWhereAsked)
{
    using Setter = Quaternion& (Quaternion::*)(const Vector3&, const Vector3&);
    // The row that is `axis`, and the row that `up` leans along, with its sign.
    const struct
    {
        Setter set;
        std::size_t axis, up;
        double sign;
    } rows[] = {{&Quaternion::SetXAxis, 0, 2, 1}, {&Quaternion::SetYAxis, 1, 2, 1}, {&Quaternion::SetZAxis, 2, 1, -1}};
    for (const auto& row : rows)
        for (int i = 0; i < 5000; ++i)
        {
            const Vector3 axis{Float(-3, 3), Float(-3, 3), Float(-3, 3)}, up{Float(-3, 3), Float(-3, 3), Float(-3, 3)};
            const double aa = double{axis.x} * axis.x + double{axis.y} * axis.y + double{axis.z} * axis.z;
            const double au = (double{axis.x} * up.x + double{axis.y} * up.y + double{axis.z} * up.z) / aa;
            const double lean[] = {up.x - au * axis.x, up.y - au * axis.y, up.z - au * axis.z};
            const double length = std::sqrt(lean[0] * lean[0] + lean[1] * lean[1] + lean[2] * lean[2]);
            if (length < 0.1 || aa < 0.01)
                continue;
            Quaternion q;
            (q.*row.set)(axis, up);
            const M3 m = FromQuaternion(q);
            const double a[] = {axis.x, axis.y, axis.z};
            for (std::size_t k = 0; k < 3; ++k)
            {
                ASSERT_NEAR(m[3 * row.axis + k], a[k] / std::sqrt(aa), 60 * Eps / length);
                ASSERT_NEAR(m[3 * row.up + k], row.sign * lean[k] / length, 60 * Eps / length);
            }
        }
    const Quaternion identity{0, 0, 0, 1};
    EXPECT_EQ(Quaternion().SetXAxis({1, 0, 0}, {0, 0, 1}), identity);
    EXPECT_EQ(Quaternion().SetYAxis({0, 1, 0}, {0, 0, 1}), identity);
    EXPECT_EQ(Quaternion().SetZAxis({0, 0, 1}, {0, -1, 0}), identity);
    // One line: the other two axes are made of X and Y, whatever the axis.
    EXPECT_EQ(Quaternion().SetXAxis({0, 0, 1}, {0, 0, 1}), Quaternion().Set(Matrix3{{0, 0, 1, -1, 0, 0, 0, -1, 0}}));
}

// Determinant of the rows and columns given; with absolute values and no signs, the bound of its rounding.
double Expand(const double* m, std::vector<int> rows, std::vector<int> columns, bool bound)
{
    if (rows.empty())
        return 1;
    const int row = rows.front();
    rows.erase(rows.begin());
    double sum = 0;
    for (std::size_t k = 0; k < columns.size(); ++k)
    {
        std::vector<int> others = columns;
        others.erase(others.begin() + static_cast<std::ptrdiff_t>(k));
        const double term = m[4 * row + columns[k]] * Expand(m, rows, others, bound);
        sum += bound ? std::fabs(term) : k % 2 ? -term : term;
    }
    return sum;
}

TEST_F(Rotation, InvertsFourByFour)
{
    for (int i = 0; i < 3000; ++i)
    {
        Matrix4 m;
        double exact[16], absolute[16];
        for (int k = 0; k < 16; ++k)
        {
            m.m[k] = Float(-2, 2);
            exact[k] = m.m[k];
            absolute[k] = std::fabs(exact[k]);
        }
        const double det = Expand(exact, {0, 1, 2, 3}, {0, 1, 2, 3}, false);
        const double detBound = 12 * Eps * Expand(absolute, {0, 1, 2, 3}, {0, 1, 2, 3}, true);
        ASSERT_NEAR(m.GetDeterminant(), det, detBound);
        if (std::fabs(det) < 100 * detBound)
            continue;
        Matrix4 inverse = m;
        ASSERT_EQ(&inverse.Invert(), &inverse);
        for (int r = 0; r < 4; ++r)
            for (int c = 0; c < 4; ++c)
            {
                std::vector<int> rows{0, 1, 2, 3}, columns{0, 1, 2, 3};
                rows.erase(rows.begin() + c); // transposed
                columns.erase(columns.begin() + r);
                const double value = Expand(exact, rows, columns, false) * ((r + c) % 2 ? -1 : 1) / det;
                const double bound = 8 * Eps * Expand(absolute, rows, columns, true) / std::fabs(det) +
                                     std::fabs(value) * (1.02 * detBound / std::fabs(det) + 4 * Eps);
                ASSERT_NEAR(inverse.m[4 * r + c], value, bound) << r << ' ' << c;
            }
    }
    const Matrix4 identity{{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}};
    EXPECT_EQ(Matrix4(identity).Invert(), identity);
    Matrix4 singular{{1, 2, 3, 4, 2, 4, 6, 8, 0, 0, 1, 0, 0, 0, 0, 1}};
    EXPECT_EQ(singular.GetDeterminant(), 0);
    EXPECT_FALSE(std::isfinite(singular.Invert().m[0]));
}

} // namespace
} // namespace Zem
