#include <Bedrock/maths/Color.h>

namespace Zem
{

Color& Color::Convert(const HSVColor& c)
{
    a = 1.0f;
    const float s = c.s, v = c.v;
    if (s == 0.0f)
    {
        r = g = b = v;
        return *this;
    }
    const float t = c.h == 1.0f ? 0.0f : c.h * 6.0f;
    if (!(t > -1.0f && t < 6.0f)) // no sixth of the circle; nor is what is no number
        return *this;
    const int sixth = static_cast<int>(t);
    const float f = t - static_cast<float>(sixth);
    const float p = (1.0f - s) * v;
    const float q = (1.0f - f * s) * v;
    const float u = (1.0f - (1.0f - f) * s) * v;
    switch (sixth)
    {
    case 0:
        r = v, g = u, b = p;
        break;
    case 1:
        r = q, g = v, b = p;
        break;
    case 2:
        r = p, g = v, b = u;
        break;
    case 3:
        r = p, g = q, b = v;
        break;
    case 4:
        r = u, g = p, b = v;
        break;
    default:
        r = v, g = p, b = q;
        break;
    }
    return *this;
}

HSVColor& HSVColor::Convert(const Color& c)
{
    const float most = c.r > c.g ? (c.r > c.b ? c.r : c.b) : (c.g > c.b ? c.g : c.b);
    const float least = c.r < c.g ? (c.r < c.b ? c.r : c.b) : (c.g < c.b ? c.g : c.b);
    const float d = most - least;
    v = most;
    s = v != 0.0f ? d / v : 0.0f;
    if (s == 0.0f)
    {
        h = -1.0f;
        return *this;
    }
    if (v == c.r)
        h = (c.g - c.b) / d;
    else if (v == c.g)
        h = (c.b - c.r) / d + 2.0f;
    else
        h = (c.r - c.g) / d + 4.0f;
    h *= 60.0f;
    if (h < 0.0f)
        h += 360.0f;
    h *= 0.0027777778f; // 1 / 360
    return *this;
}

} // namespace Zem
