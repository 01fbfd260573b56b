// Triangles by a table of rows: each edge writes its column into the left or right field of the rows that it crosses,
// then every row is one kernel run.

#include <Bedrock/bitmap/Bitmap.h>
#include <Bedrock/memory/Alloc.h>

#include <cstdlib>
#include <utility>

namespace Zem
{

namespace
{

constexpr std::int32_t tableRowsOnStack = 4096;

bool Rejected(const Point& p)
{
    return p.x == -1;
}

std::int32_t Max(std::int32_t a, std::int32_t b)
{
    return a > b ? a : b;
}

// Twice the signed area; exact for coordinates below 2^30, and beyond those only its sign is asked for.
double Cross(Point a, Point b, Point c)
{
    const auto d = [](std::int32_t p, std::int32_t q) { return static_cast<double>(std::int64_t{p} - q); };
    const double first = d(c.x, a.x) * d(b.y, a.y), second = d(b.x, a.x) * d(c.y, a.y);
    if (std::abs(first) < 4503599627370496.0 && std::abs(second) < 4503599627370496.0)
        return first - second;
    const auto wide = [](std::int32_t p, std::int32_t q) { return static_cast<long double>(std::int64_t{p} - q); };
    const long double exact = wide(c.x, a.x) * wide(b.y, a.y) - wide(b.x, a.x) * wide(c.y, a.y);
    return exact > 0 ? 1 : exact < 0 ? -1 : 0;
}

} // namespace

void Bitmap::Sort(Point& a, Point& b, Point& c)
{
    if (a.y > b.y)
        std::swap(a, b);
    if (a.y > c.y)
        std::swap(a, c);
    if (b.y > c.y)
        std::swap(b, c);
}

void Bitmap::Fill(const ScanTable* table, PackedColor color)
{
    if (format == Blob)
        return;
    unsigned char* row = GetPtr(Point{0, table->top});
    for (std::int32_t i = 0; i < table->count; ++i, row += pitch)
    {
        const std::int32_t left = table->lines[i].left, count = table->lines[i].right - left + 1;
        if (count > 0)
            kernels.fill(row + static_cast<std::ptrdiff_t>(left) * static_cast<std::ptrdiff_t>(bytesPerPixel), color,
                         count, 0);
    }
}

void Bitmap::TraceLine(Point a, Point b, ScanLine* lines, std::int32_t rows, bool side)
{
    std::int32_t ScanLine::*const field = side ? &ScanLine::right : &ScanLine::left;
    const std::int32_t dy = b.y - a.y;
    if (dy < 0 || rows <= 0)
        return;
    lines[0].*field = a.x;
    if (dy == 0)
        return;
    // Row i stands at floor(i * dx / dy): the quotient is carried from row to row with its remainder.
    const std::int32_t dx = std::abs(b.x - a.x), xdir = b.x < a.x ? -1 : 1;
    const std::int32_t whole = dx / dy, part = dx % dy;
    std::int32_t x = a.x, remainder = 0;
    for (std::int32_t i = 1; i <= dy && i < rows; ++i)
    {
        x += whole * xdir;
        remainder += part;
        if (remainder >= dy)
        {
            remainder -= dy;
            x += xdir;
        }
        lines[i].*field = x;
    }
}

void Bitmap::TraceLineAlpha(Point a, Point b, PackedColor color, ScanLine* lines, std::int32_t rows, bool side)
{
    std::int32_t ScanLine::*const field = side ? &ScanLine::right : &ScanLine::left;
    const auto store = [&](std::int32_t row, std::int32_t x)
    {
        if (row < rows)
            lines[row].*field = x;
    };
    store(0, a.x);
    const std::int32_t dx = std::abs(b.x - a.x), xdir = b.x < a.x ? -1 : 1, dy = b.y - a.y;
    if (dy <= 0)
        return;
    if (dx == 0 || dx == dy)
    {
        for (std::int32_t k = 1; k <= dy; ++k)
            store(k, dx ? a.x + k * xdir : a.x);
        return;
    }

    const std::uint32_t alpha = color.a;
    const std::uint32_t mask = (dx > dy) == ((xdir > 0) == side) ? 254 : 0;
    std::uint32_t acc = 0;
    std::int32_t x = a.x, y = a.y;
    const auto fringe = [&](std::int32_t px, std::int32_t py)
    {
        color.a = static_cast<unsigned char>(((acc >> 8) ^ mask) * alpha >> 8);
        Pixel(Point{px, py}, color);
    };
    if (dy > dx)
    {
        const std::uint32_t adjust = static_cast<std::uint32_t>((static_cast<std::uint64_t>(dx) << 16) / dy) & 0xFFFF;
        for (std::int32_t row = 1; row < dy; ++row)
        {
            acc += adjust;
            if (acc > 0xFFFF)
            {
                acc &= 0xFFFF;
                x += xdir;
            }
            store(row, x);
            ++y;
            fringe(side ? x + 1 : x - 1, y);
        }
        // The last row takes the column that the walk has reached.
        store(dy, x);
        return;
    }

    const std::uint32_t adjust = static_cast<std::uint32_t>((static_cast<std::uint64_t>(dy) << 16) / dx) & 0xFFFF;
    std::int32_t row = 1;
    for (std::int32_t i = 1; i < dx; ++i)
    {
        acc += adjust;
        if (acc > 0xFFFF)
        {
            acc &= 0xFFFF;
            store(row, x);
            ++row;
            ++y;
        }
        x += xdir;
        if (!side && xdir > 0)
            fringe(x - 1, y + 1);
        else if (side && xdir < 0)
            fringe(x + 1, y + 1);
        else
            fringe(x, y);
    }
    store(row, x);
}

void Bitmap::Triangle(Point pa, Point pb, Point pc, PackedColor color, int style)
{
    Triangle(pa, pb, pc, color, style, *this);
}

void Bitmap::Triangle(Point pa, Point pb, Point pc, PackedColor color, int style, const Rect& clip)
{
    if (format == Blob)
        return;
    style &= 3;
    if (!(style & 1))
    {
        Line(pa, pb, color, style, clip);
        Line(pb, pc, color, style, clip);
        Line(pc, pa, color, style, clip);
        return;
    }

    Sort(pa, pb, pc);
    const Point oa = pa, oc = pc; // as given, for the degenerate case
    Point ca = pa, cb = pb, cc = pc;
    const bool inside = clip.Contains(pa) && clip.Contains(pb) && clip.Contains(pc);
    const double cross = Cross(pa, pb, pc);
    const std::int64_t height64 = std::int64_t{pc.y} - pa.y;

    ClipLine(pa, cb, clip);
    ClipLine(pb, cc, clip);
    ClipLine(pc, ca, clip);
    if (Rejected(pa) && Rejected(cb) && Rejected(pb) && Rejected(cc) && Rejected(pc) && Rejected(ca))
        return;
    if (cross == 0)
        return Line(Rejected(pa) ? oa : pa, Rejected(pc) ? oc : pc, color, (style & 2) | 1, clip);

    std::int32_t top, count;
    if (inside)
    {
        top = pa.y;
        count = static_cast<std::int32_t>(height64) + 1;
    }
    else
    {
        top = clip.y;
        for (const Point& p : {pa, ca})
            top = Rejected(p) ? top : Max(top, p.y);
        std::int32_t bottom = clip.y;
        for (const Point& p : {pc, cc, pb, cb})
            bottom = Rejected(p) ? bottom : Max(bottom, p.y);
        count = bottom - top;
        // Where only the edge b-c is visible the rows from the clip's top may outnumber the triangle's own.
        if (count > height64 + 1)
            count = static_cast<std::int32_t>(height64 + 1);
        if (count <= 0)
            return;
    }

    ScanLine onStack[tableRowsOnStack];
    ScanTable table{top, count, onStack};
    if (count > tableRowsOnStack)
    {
        table.lines = static_cast<ScanLine*>(Alloc::New(static_cast<std::size_t>(count) * sizeof(ScanLine)));
        if (!table.lines)
            return;
    }
    for (std::int32_t i = 0; i < count; ++i)
        table.lines[i] = {clip.x, clip.x + clip.width - 1};

    const bool longSide = cross > 0;
    const auto trace = [&](Point a, Point b, std::int32_t row, bool side)
    {
        if (Rejected(a) && Rejected(b))
            return;
        if (row < 0)
            row = 0;
        if (row >= count)
            return;
        if (style & 2)
            TraceLineAlpha(a, b, color, table.lines + row, count - row, side);
        else
            TraceLine(a, b, table.lines + row, count - row, side);
    };
    trace(ca, pc, 0, longSide);
    trace(pa, cb, 0, !longSide);
    trace(pb, cc, Max(cb.y, pb.y) - top, !longSide);
    Fill(&table, color);
    if (table.lines != onStack)
        Alloc::Delete(table.lines);
}

} // namespace Zem
