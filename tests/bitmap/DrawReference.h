#pragma once

// A slow second opinion on everything that a bitmap draws: one pixel at a time, bounds tested at each, written from the
// definitions and sharing no code with the library but its value types.

#include <Bedrock/Types.h>
#include <Bedrock/bitmap/Bitmap.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <utility>
#include <vector>

namespace Test
{

using Zem::Bitmap;
using Zem::PackedColor;
using Zem::Point;
using Zem::Rect;
using Zem::Size;

/// An image of pixels in one of the four drawable formats, each pixel a raw little-endian number.
class Model
{
public:
    Model(Bitmap::Format pixelFormat, int columns, int rows)
        : format(pixelFormat), width(columns), height(rows), raw(static_cast<std::size_t>(columns) * rows)
    {
    }

    const Bitmap::Format format;
    const int width, height;
    std::vector<std::uint32_t> raw;

    Rect Bounds() const { return Rect(0, 0, width, height); }
    std::uint32_t& At(int x, int y) { return raw.at(static_cast<std::size_t>(y) * width + x); }
    std::uint32_t At(int x, int y) const { return raw.at(static_cast<std::size_t>(y) * width + x); }

    /// The pixel as a colour: 5-6-5 widened without replicating bits, no alpha means 255.
    static std::uint32_t ToWord(Bitmap::Format format, std::uint32_t p)
    {
        if (format == Bitmap::RGB16)
            return 0xFF000000 | (p >> 8 & 0xF8) << 16 | (p >> 3 & 0xFC) << 8 | (p << 3 & 0xF8);
        if (format == Bitmap::RGB24)
            return 0xFF000000 | p;
        return p;
    }
    static std::uint32_t Narrow(std::uint32_t word)
    {
        return (word >> 19 & 31) << 11 | (word >> 10 & 63) << 5 | (word >> 3 & 31);
    }

    /// `fill` and `blendFill` of one pixel.
    void Put(int x, int y, std::uint32_t c, bool blend = false)
    {
        if (x < 0 || y < 0 || x >= width || y >= height)
            return;
        std::uint32_t& d = At(x, y);
        const std::uint32_t a = c >> 24, w = a + 1;
        switch (format)
        {
        case Bitmap::RGB24:
            if (a == 255)
                d = c & 0xFFFFFF;
            else if (a)
                d = Channels(c, d, w, 255 - w);
            break;
        case Bitmap::RGB16:
            if (a == 255)
                d = Narrow(c);
            else if (a)
            {
                const std::uint32_t dw = 255 - w;
                const std::uint32_t r = ((c >> 16 & 255) * w >> 11) + ((d >> 11) * dw >> 8);
                const std::uint32_t g = ((c >> 8 & 255) * w >> 10) + (((d >> 5 & 63) << 2) * dw >> 10);
                const std::uint32_t b = ((c & 255) * w >> 11) + ((d & 31) * dw >> 8);
                d = ((r << 11) + (g << 5) + b) & 0xFFFF;
            }
            break;
        default:
            if (blend)
                BlendWord(c, d);
            else
                d = c;
        }
    }

    /// `from16`, `from24`, `from32` (blend false) or `blendFrom32` (blend true) of one source pixel.
    void Take(int x, int y, Bitmap::Format from, std::uint32_t p, bool blend)
    {
        std::uint32_t& d = At(x, y);
        const bool source32 = from == Bitmap::ARGB32 || from == Bitmap::XRGB32;
        const std::uint32_t word = ToWord(from, p);
        if (!source32)
        {
            if (from == format)
                d = p;
            else if (format == Bitmap::RGB16)
                d = Narrow(word);
            else if (format == Bitmap::RGB24)
                d = word & 0xFFFFFF;
            else
                d = word;
            return;
        }
        const std::uint32_t a = p >> 24, w = a + 1;
        if (format == Bitmap::RGB24)
        {
            if (a == 255)
                d = p & 0xFFFFFF;
            else if (a)
                d = Channels(p, d, w, 256 - w);
        }
        else if (format == Bitmap::RGB16)
        {
            if (a == 255)
                d = Narrow(p);
            else if (a)
            {
                // As Put, but a carry out of the low halves of the two words may raise the result by one.
                const std::uint32_t dw = 255 - w;
                const std::uint32_t r = ((p >> 16 & 255) * w >> 11) + ((d >> 11) * dw >> 8);
                const std::uint32_t g = ((p >> 8 & 255) * w >> 10) + (((d >> 5 & 63) << 2) * dw >> 10);
                const std::uint32_t b = ((p & 255) * w >> 11) + ((d & 31) * dw >> 8);
                const std::uint32_t carry = (((p & 255) * w << 5) & 0xFFFF) + w > 0xFFFF;
                d = ((r << 11) + (g << 5) + b + carry) & 0xFFFF;
            }
        }
        else if (blend)
            BlendWord(p, d);
        else
            d = p;
    }

    // ---- shapes -----------------------------------------------------------------------------------------------------

    /// Cuts a-b to `clip`, side by side; false when nothing is left.
    static bool Clip(Point& a, Point& b, const Rect& clip)
    {
        const int sides[4] = {clip.y, clip.y + clip.height - 1, clip.x, clip.x + clip.width - 1};
        for (int s = 0; s < 4; ++s)
        {
            const bool vertical = s < 2;
            const int sign = s % 2 ? 1 : -1;
            int &am = vertical ? a.y : a.x, &bm = vertical ? b.y : b.x, &ac = vertical ? a.x : a.y,
                &bc = vertical ? b.x : b.y;
            const int oa = sign * (am - sides[s]), ob = sign * (bm - sides[s]); // above 0: beyond
            if (oa >= 0 && ob >= 0 && (oa || ob))
            {
                a.x = b.x = -1;
                return false;
            }
            const float t = static_cast<float>(sides[s] - bm) / static_cast<float>(am - bm);
            if (oa > 0 && ob < 0)
            {
                ac = static_cast<int>(t * static_cast<float>(ac - bc) + static_cast<float>(bc));
                am = sides[s];
            }
            else if (ob > 0 && oa < 0)
            {
                bc = static_cast<int>(t * static_cast<float>(ac - bc) + static_cast<float>(bc));
                bm = sides[s];
            }
        }
        return true;
    }

    void Line(Point a, Point b, std::uint32_t c, int style, const Rect& clip)
    {
        if (!Clip(a, b, clip))
            return;
        if (a.y > b.y)
            std::swap(a, b);
        const int dx = std::abs(b.x - a.x), dy = b.y - a.y, dir = b.x < a.x ? -1 : 1;
        if (style & 2)
            return Wu(a, b, dx, dy, dir, c);
        const bool blend = style & 4;
        if (!dx || !dy || dx == dy)
        {
            for (int i = 0; i <= (dx > dy ? dx : dy); ++i)
                Put(a.x + (dx ? i * dir : 0), a.y + (dy ? i : 0), c, blend);
            return;
        }
        const int major = dx > dy ? dx : dy, minor = dx > dy ? dy : dx, step = major / minor;
        std::vector<int> runs(static_cast<std::size_t>(minor) + 1, step);
        int up = major % minor * 2, error = major % minor - minor * 2;
        runs.front() = runs.back() = step / 2 + 1;
        if (up == 0 && step % 2 == 0)
            --runs.front();
        if (step % 2)
            error += minor;
        for (int i = 1; i < minor; ++i)
            if ((error += up) > 0)
            {
                ++runs[static_cast<std::size_t>(i)];
                error -= minor * 2;
            }
        int along = 0, across = 0;
        for (int run : runs)
        {
            for (int i = 0; i < run; ++i, ++along)
                dx > dy ? Put(a.x + along * dir, a.y + across, c, blend)
                        : Put(a.x + across * dir, a.y + along, c, blend);
            ++across;
        }
    }

    void Box(Rect r, std::uint32_t c, int style, const Rect& clip)
    {
        if (style & 1)
        {
            for (int y = clip.y; y < clip.y + clip.height; ++y)
                for (int x = clip.x; x < clip.x + clip.width; ++x)
                    if (r.Contains({x, y}))
                        Put(x, y, c, style & 4);
            return;
        }
        // Four lines, each clipped by itself: one that only touches a side of the clip with its end is gone.
        const int right = r.x + r.width - 1, bottom = r.y + r.height - 1, ls = style & 4;
        if (r.width > 0 && r.height > 0)
            Line({r.x, r.y}, {right, r.y}, c, ls, clip);
        if (r.width > 0 && r.height > 1)
            Line({r.x, bottom}, {right, bottom}, c, ls, clip);
        for (int x : {right, r.x})
            if (r.width > 0 && r.height > 2)
                Line({x, r.y + 1}, {x, bottom - 1}, c, ls, clip);
    }

    void Circle(Point center, int radius, std::uint32_t c, int style, const Rect& clip)
    {
        const int cx = center.x, cy = center.y;
        if (cx + radius < clip.x || cx - radius > clip.x + clip.width - 1 || cy + radius < clip.y ||
            cy - radius > clip.y + clip.height - 1)
            return;
        const auto eight = [&](int x, int y, std::uint32_t color)
        {
            const int places[8][2] = {{x, y}, {-x, y}, {x, -y}, {-x, -y}, {y, x}, {-y, x}, {y, -x}, {-y, -x}};
            for (const auto& p : places)
                if (clip.Contains({cx + p[0], cy + p[1]}))
                    Put(cx + p[0], cy + p[1], color);
        };
        const auto row = [&](int x0, int x1, int y)
        {
            for (int x = x0; x <= x1; ++x)
                if (clip.Contains({x, y}))
                    Put(x, y, c);
        };
        const auto shade = [&](double a)
        { return (c & 0xFFFFFF) | static_cast<std::uint32_t>(static_cast<int>(a)) << 24; };
        const bool filled = style & 1, smooth = style & 2;
        const double alpha = c >> 24;
        if (smooth && !filled)
            eight(0, radius, shade((c >> 24) / 2));
        if (smooth)
            eight(0, radius + 1, shade((c >> 24) / 2));
        if (!smooth && !filled)
            eight(0, radius, c);
        int x = 0, y = radius, d = 1 - radius, e = 3, se = 5 - 2 * radius;
        bool cap = false;
        while (radius > 0)
        {
            if (d < 0)
            {
                d += e;
                se += 2;
            }
            else
            {
                d += se;
                se += 4;
                --y;
                cap = x < y;
            }
            e += 2;
            ++x;
            const double f = std::sqrt(double(x) * x + double(y) * y) + 0.5 - radius;
            if (smooth && !filled)
                eight(x, y, shade(alpha * f));
            if (smooth)
                eight(x, y + 1, shade((1.0 - f) * alpha));
            if (filled)
            {
                if (cap)
                {
                    row(cx - x + 1, cx + x - 1, cy + y + 1);
                    row(cx - x + 1, cx + x - 1, cy - y - 1);
                }
                row(cx - y, cx + y, cy + x);
                row(cx - y, cx + y, cy - x);
                cap = false;
            }
            else if (!smooth)
                eight(x, y, c);
            if (y <= x)
                break;
        }
        if (filled)
            row(cx - radius, cx + radius, cy);
    }

    /// A filled triangle (style 1 or 3): edges write the columns of their rows into a map, then the rows are filled.
    void Triangle(Point a, Point b, Point c, std::uint32_t color, int style, const Rect& clip)
    {
        if (a.y > b.y)
            std::swap(a, b);
        if (a.y > c.y)
            std::swap(a, c);
        if (b.y > c.y)
            std::swap(b, c);
        const bool inside = clip.Contains(a) && clip.Contains(b) && clip.Contains(c);
        const std::int64_t cross =
            static_cast<std::int64_t>(c.x - a.x) * (b.y - a.y) - static_cast<std::int64_t>(b.x - a.x) * (c.y - a.y);
        const int tall = c.y - a.y;
        Point from[3] = {a, b, c}, to[3] = {b, c, a}; // the edges a-b, b-c, c-a, each clipped by itself
        bool visible[3];
        for (int i = 0; i < 3; ++i)
            visible[i] = Clip(from[i], to[i], clip);
        if (!visible[0] && !visible[1] && !visible[2])
            return;
        if (cross == 0)
            return Line(visible[0] ? from[0] : a, visible[2] ? from[2] : c, color, style & 2, clip);

        int top = a.y, count = tall + 1;
        if (!inside)
        {
            top = clip.y;
            int bottom = clip.y;
            if (visible[0])
                top = std::max(top, from[0].y), bottom = std::max(bottom, to[0].y);
            if (visible[1])
                bottom = std::max({bottom, from[1].y, to[1].y});
            if (visible[2])
                top = std::max(top, to[2].y), bottom = std::max(bottom, from[2].y);
            count = std::min(bottom - top, tall + 1);
        }
        std::map<int, std::pair<int, int>> rows; // row of the table -> left, right
        for (int i = 0; i < count; ++i)
            rows[i] = {clip.x, clip.x + clip.width - 1};
        const auto set = [&](int row, int x, bool right)
        {
            if (rows.count(row))
                (right ? rows[row].second : rows[row].first) = x;
        };
        const auto trace = [&](Point p, Point q, int row, bool right)
        {
            const int dy = q.y - p.y, dx = std::abs(q.x - p.x), dir = q.x < p.x ? -1 : 1;
            if (row >= count || (!(style & 2) && dy < 0))
                return;
            set(row, p.x, right);
            if (dy <= 0)
                return;
            if (!(style & 2) || dx == 0 || dx == dy)
            {
                for (int i = 1; i <= dy; ++i)
                    set(row + i, p.x + dir * static_cast<int>(static_cast<std::int64_t>(i) * dx / dy), right);
                return;
            }
            const bool wide = dx > dy;
            const unsigned mask = wide ? ((dir > 0) == right ? 254 : 0) : ((dir > 0) == right ? 0 : 254);
            const unsigned adjust =
                (static_cast<unsigned>(wide ? dy : dx) << 16) / static_cast<unsigned>(wide ? dx : dy) & 0xFFFF;
            unsigned acc = 0;
            int x = p.x, y = p.y, n = 1;
            const auto fringe = [&](int px, int py)
            { Put(px, py, (color & 0xFFFFFF) | (((acc >> 8) ^ mask) * (color >> 24) >> 8) << 24); };
            for (int i = 1; i < (wide ? dx : dy); ++i)
            {
                acc += adjust;
                const bool carry = acc > 65535;
                acc &= 65535;
                if (wide)
                {
                    if (carry)
                    {
                        set(row + n, x, right);
                        ++n;
                        ++y;
                    }
                    x += dir;
                    if (right == (dir > 0))
                        fringe(x, y);
                    else
                        fringe(right ? x + 1 : x - 1, y + 1);
                }
                else
                {
                    x += carry ? dir : 0;
                    set(row + i, x, right);
                    ++y;
                    fringe(right ? x + 1 : x - 1, y);
                }
            }
            set(row + (wide ? n : dy), x, right);
        };
        if (visible[2])
            trace(to[2], from[2], 0, cross > 0);
        if (visible[0])
            trace(from[0], to[0], 0, cross < 0);
        if (visible[1])
            trace(from[1], to[1], std::max(0, std::max(to[0].y, from[1].y) - top), cross < 0);
        for (const auto& [row, ends] : rows)
            for (int x = ends.first; x <= ends.second; ++x)
                Put(x, top + row, color);
    }

    // ---- transfers --------------------------------------------------------------------------------------------------

    void Transfer(const Model& source, Point at, Rect from, bool blend, const Rect& clip)
    {
        // `from` starts inside the source here; each pixel that exists on both sides moves.
        for (int y = 0; y < from.height; ++y)
            for (int x = 0; x < from.width; ++x)
                if (clip.Contains({at.x + x, at.y + y}) && source.Bounds().Contains({from.x + x, from.y + y}))
                    Take(at.x + x, at.y + y, source.format, source.At(from.x + x, from.y + y), blend);
    }

    /// A convex polygon, textured.
    void MapPolygon(const std::vector<Point>& points, const Model& source, const std::vector<Point>& texture, int xMask,
                    int yMask, bool alpha)
    {
        struct Edge
        {
            float x = 0, y = -1, u = 0, v = 0;
        };
        const int count = static_cast<int>(points.size());
        int top = 0, bottom = 0;
        for (int i = 1; i < count; ++i)
        {
            top = points[i].y < points[top].y ? i : top;
            bottom = points[i].y > points[bottom].y ? i : bottom;
        }
        const int topY = points[top].y, bottomY = points[bottom].y;
        if (bottomY < 0 || topY > height)
            return;
        std::vector<Edge> sides[2];
        for (int side = 0; side < 2; ++side)
        {
            sides[side].resize(static_cast<std::size_t>(bottomY - topY) + 1);
            for (int c = top; c != bottom;)
            {
                const int n = (c + (side ? 1 : count - 1)) % count;
                const int dy = std::abs(points[n].y - points[c].y);
                Edge at{float(points[c].x), float(points[c].y), float(texture[c].x), float(texture[c].y)},
                    step{0, 0, 0, 0};
                int steps = dy;
                if (dy)
                {
                    step.x = float((points[n].x - points[c].x) * (1.0 / dy));
                    step.y = float((points[n].y - points[c].y) * (1.0 / dy));
                }
                else
                    steps = std::abs(std::max(texture[n].x - texture[c].x, texture[n].y - texture[c].y));
                if (steps)
                {
                    step.u = float(texture[n].x - texture[c].x) / float(steps);
                    step.v = float(texture[n].y - texture[c].y) / float(steps);
                }
                for (int i = 0; i <= dy; ++i)
                {
                    sides[side].at(static_cast<std::size_t>(points[c].y - topY + i)) = at;
                    at = {at.x + step.x, at.y + step.y, at.u + step.u, at.v + step.v};
                }
                c = n;
            }
        }
        for (std::size_t row = 0; row < sides[0].size(); ++row)
        {
            const Edge &zero = sides[0][row], &one = sides[1][row];
            if (zero.y < 0 || zero.y >= float(height))
                continue;
            Edge l = zero.x < one.x ? zero : one, r = zero.x < one.x ? one : zero;
            l.x = std::floor(l.x);
            r.x = std::ceil(r.x);
            if (l.x >= float(width) || r.x < 0)
                continue;
            int span = int(r.x - l.x), steps = span;
            float dx = 0, dy = 0, du = 0, dv = 0;
            if (span)
                dx = (r.x - l.x) / float(span), dy = (r.y - l.y) / float(span);
            else
                steps = std::abs(int(std::max(r.u - l.u, r.v - l.v)));
            if (steps)
                du = (r.u - l.u) / float(steps), dv = (r.v - l.v) / float(steps);
            int x = int(l.x + 0.5f);
            if (x < 0)
            {
                l.u += du * float(std::min(-x, steps));
                l.v += dv * float(std::min(-x, steps));
                const int moved = std::min(-x, span);
                l.x += dx * float(moved);
                l.y += dy * float(moved);
                span -= moved;
                x = int(l.x + 0.5f);
            }
            const int y = int(l.y + 0.5f);
            if (y >= height)
                continue;
            for (int i = 0; i <= std::min(span, width - 1 - x); ++i, l.u += du, l.v += dv)
                Take(x + i, y, source.format, source.At(int(l.u + 0.5f) & xMask, int(l.v + 0.5f) & yMask), alpha);
        }
    }

private:
    static std::uint32_t Channels(std::uint32_t s, std::uint32_t d, std::uint32_t ws, std::uint32_t wd)
    {
        std::uint32_t result = 0;
        for (int shift = 0; shift < 24; shift += 8)
            result |= (((s >> shift & 255) * ws >> 8) + ((d >> shift & 255) * wd >> 8)) << shift;
        return result;
    }

    static void BlendWord(std::uint32_t s, std::uint32_t& d)
    {
        const std::uint32_t a = s >> 24, da = d >> 24;
        if (a == 0)
            return;
        if (a == 255 || da == 0)
        {
            d = s;
            return;
        }
        std::uint32_t w = a + 1, newAlpha = 255;
        if (da != 255)
        {
            newAlpha = (65536 - (255 - a) * (255 - da)) >> 8;
            w = (a + 1 + 255 - da) >> 1;
        }
        d = Channels(s, d, w, 256 - w) | newAlpha << 24;
    }

    void Wu(Point a, Point b, int dx, int dy, int dir, std::uint32_t c)
    {
        const std::uint32_t alpha = c >> 24, rgb = c & 0xFFFFFF;
        Put(a.x, a.y, c);
        const int major = dx > dy ? dx : dy, minor = dx > dy ? dy : dx;
        if (!minor || dx == dy)
        {
            for (int i = 1; i <= major; ++i)
                Put(a.x + (dx ? i * dir : 0), a.y + (dy ? i : 0), c);
            return;
        }
        const unsigned adjust = ((static_cast<unsigned>(minor) << 16) / static_cast<unsigned>(major)) & 0xFFFF;
        unsigned acc = 0;
        int across = 0;
        for (int i = 1; i < major; ++i)
        {
            acc += adjust;
            if (acc > 65535)
            {
                acc -= 65536;
                ++across;
            }
            const std::uint32_t w = acc >> 8, near = rgb | ((w ^ 254) * alpha >> 8) << 24,
                                far = rgb | (w * alpha >> 8) << 24;
            if (dx > dy)
            {
                Put(a.x + i * dir, a.y + across, near);
                Put(a.x + i * dir, a.y + across + 1, far);
            }
            else
            {
                Put(a.x + across * dir, a.y + i, near);
                Put(a.x + (across + 1) * dir, a.y + i, far);
            }
        }
        Put(b.x, b.y, c);
    }
};

} // namespace Test
