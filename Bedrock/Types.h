#pragma once

#include <cstdint>

namespace Zem
{

/// A place in pixels: `x` to the right, `y` downward.
struct Point
{
    std::int32_t x;
    std::int32_t y;

    friend bool operator==(const Point&, const Point&) = default;
};

/// An extent in pixels. Nothing keeps either number from being 0 or negative: such an extent is empty.
struct Size
{
    std::int32_t width;
    std::int32_t height;

    friend bool operator==(const Size&, const Size&) = default;
};

/// A rectangle of pixels: columns `x` to `x + width - 1`, rows `y` to `y + height - 1`.
///
/// A rectangle with no width or no height is empty. All arithmetic on edges is done in 64 bits, so that no pair of
/// 32-bit numbers overflows.
struct Rect : Point, Size
{
    constexpr Rect() : Point{0, 0}, Size{0, 0} {}
    constexpr Rect(Point corner, Size size) : Point(corner), Size(size) {}
    constexpr Rect(std::int32_t left, std::int32_t top, std::int32_t columns, std::int32_t rows)
        : Point{left, top}, Size{columns, rows}
    {
    }

    constexpr bool IsEmpty() const { return width <= 0 || height <= 0; }

    constexpr bool Contains(Point p) const
    {
        return p.x >= x && p.y >= y && std::int64_t{p.x} < std::int64_t{x} + width &&
               std::int64_t{p.y} < std::int64_t{y} + height;
    }

    /// The common part of both rectangles; empty (all 0) when they do not meet.
    constexpr Rect Intersect(const Rect& other) const
    {
        const std::int64_t left = x > other.x ? x : other.x;
        const std::int64_t top = y > other.y ? y : other.y;
        const std::int64_t right = Min(std::int64_t{x} + width, std::int64_t{other.x} + other.width);
        const std::int64_t bottom = Min(std::int64_t{y} + height, std::int64_t{other.y} + other.height);
        if (right <= left || bottom <= top)
            return Rect();
        return Rect(static_cast<std::int32_t>(left), static_cast<std::int32_t>(top),
                    static_cast<std::int32_t>(right - left), static_cast<std::int32_t>(bottom - top));
    }

    friend constexpr bool operator==(const Rect& a, const Rect& b)
    {
        return a.x == b.x && a.y == b.y && a.width == b.width && a.height == b.height;
    }

private:
    static constexpr std::int64_t Min(std::int64_t a, std::int64_t b) { return a < b ? a : b; }
};

} // namespace Zem
