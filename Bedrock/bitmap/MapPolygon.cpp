// Affine texture mapping of a convex polygon: both outlines are walked into a table of rows, then each row samples the
// texture along a straight line. All interpolation is in 32-bit floats, one addition a pixel, so a pixel's texel does
// not depend on how the rows are cut.

#include <Bedrock/bitmap/Bitmap.h>
#include <Bedrock/memory/Alloc.h>

#include <cmath>
#include <cstdlib>
#include <cstring>

namespace Zem
{

namespace
{

// Where an outline crosses a row: the place in the destination and in the texture.
struct Edge
{
    float x, y, u, v;
};

std::int32_t Truncate(float value)
{
    if (!(value > -2147483648.0f))
        return INT32_MIN;
    if (value >= 2147483648.0f)
        return INT32_MAX;
    return static_cast<std::int32_t>(value);
}

// How many texture steps a distance takes when there are no pixels to count: the larger of both, made positive.
std::int32_t TextureSteps(float u, float v)
{
    const std::int32_t steps = Truncate(u > v ? u : v);
    return steps < 0 ? (steps == INT32_MIN ? INT32_MAX : -steps) : steps;
}

constexpr std::int32_t edgesOnStack = 4096; // rows whose edges need no heap

// Samples `count` texels along (u, v) and hands them to the kernel in runs. `texelBytes` is a constant, so that each
// sample is one move.
template <std::size_t texelBytes>
void MapRow(TransferKernel kernel, unsigned char* to, std::size_t pixelBytes, const unsigned char* texture,
            std::int32_t texturePitch, float u, float v, float du, float dv, std::int32_t xMask, std::int32_t yMask,
            std::int32_t count, std::int32_t run)
{
    alignas(16) unsigned char texels[256 * texelBytes];
    while (count > 0)
    {
        const std::int32_t n = count < run ? count : run;
        for (std::int32_t i = 0; i < n; ++i)
        {
            const std::int32_t column = Truncate(u + 0.5f) & xMask, row = Truncate(v + 0.5f) & yMask;
            std::memcpy(texels + static_cast<std::size_t>(i) * texelBytes,
                        texture + static_cast<std::ptrdiff_t>(row) * texturePitch +
                            static_cast<std::ptrdiff_t>(column) * static_cast<std::ptrdiff_t>(texelBytes),
                        texelBytes);
            u += du;
            v += dv;
        }
        kernel(to, texels, n);
        to += static_cast<std::size_t>(n) * pixelBytes;
        count -= n;
    }
}

} // namespace

void Bitmap::MapPolygon(int count, const Point* points, const Bitmap& source, const Point* texture, int xMask,
                        int yMask, bool alpha)
{
    const TransferKernel kernel = GetBlitter(source.format, alpha);
    if (format == Blob || !kernel || count < 1 || !pixels || !source.pixels)
        return;
    // Masks that reach outside the texture would read behind it.
    if (xMask < 0 || yMask < 0 || xMask >= source.width || yMask >= source.height)
        return;
    int top = 0, bottom = 0;
    for (int i = 1; i < count; ++i)
    {
        if (points[i].y < points[top].y)
            top = i;
        if (points[i].y > points[bottom].y)
            bottom = i;
    }
    const std::int64_t topY = points[top].y, bottomY = points[bottom].y;
    if (bottomY < 0 || topY > height)
        return;

    // Rows outside the bitmap need no table. One row more on either side is kept, as a row's y is a rounded float.
    const std::int64_t firstRow = topY < -1 ? -1 : topY, lastRow = bottomY > std::int64_t{height} ? height : bottomY;
    const auto rows = static_cast<std::int32_t>(lastRow - firstRow + 1);
    Edge onStack[2 * edgesOnStack / 8];
    Edge* edges = onStack;
    if (rows > edgesOnStack / 8)
    {
        edges = static_cast<Edge*>(Alloc::New(2 * static_cast<std::size_t>(rows) * sizeof(Edge)));
        if (!edges)
            return;
    }
    for (std::int32_t i = 0; i < 2 * rows; ++i)
        edges[i] = {0, -1, 0, 0}; // a row that no edge reaches is skipped

    for (int side = 0; side < 2; ++side)
        for (int c = top; c != bottom;)
        {
            const int n = side ? (c + 1) % count : (c + count - 1) % count;
            const auto difference = [](std::int32_t a, std::int32_t b)
            { return static_cast<float>(std::int64_t{a} - b); };
            const std::int64_t dy = std::llabs(std::int64_t{points[n].y} - points[c].y);
            Edge at{static_cast<float>(points[c].x), static_cast<float>(points[c].y), static_cast<float>(texture[c].x),
                    static_cast<float>(texture[c].y)};
            Edge step{0, 0, 0, 0};
            if (dy)
            {
                const double reciprocal = 1.0 / static_cast<double>(dy);
                step.x = static_cast<float>(difference(points[n].x, points[c].x) * reciprocal);
                step.y = static_cast<float>(difference(points[n].y, points[c].y) * reciprocal);
            }
            const float du = difference(texture[n].x, texture[c].x), dv = difference(texture[n].y, texture[c].y);
            const std::int64_t steps = dy ? dy : TextureSteps(du, dv);
            if (steps)
            {
                step.u = du / static_cast<float>(steps);
                step.v = dv / static_cast<float>(steps);
            }
            std::int64_t row = points[c].y;
            for (std::int64_t i = 0; i <= dy && row <= lastRow; ++i, ++row)
            {
                if (row >= firstRow)
                    edges[2 * (row - firstRow) + side] = at;
                at.x += step.x;
                at.y += step.y;
                at.u += step.u;
                at.v += step.v;
            }
            c = n;
        }

    // A texture inside the destination could change under a run, so it is sampled pixel by pixel.
    const std::int32_t run = source.pixels == pixels ? 1 : 256;
    for (std::int32_t row = 0; row < rows; ++row)
    {
        const Edge* pair = edges + 2 * row;
        if (pair[0].y < 0 || !(pair[0].y < static_cast<float>(height)))
            continue;
        Edge left = pair[0].x < pair[1].x ? pair[0] : pair[1];
        Edge right = pair[0].x < pair[1].x ? pair[1] : pair[0];
        left.x = std::floor(left.x);
        right.x = std::ceil(right.x);
        if (!(left.x < static_cast<float>(width)) || right.x < 0)
            continue;
        std::int32_t span = Truncate(right.x - left.x);
        Edge step{0, 0, 0, 0};
        if (span)
        {
            step.x = (right.x - left.x) / static_cast<float>(span);
            step.y = (right.y - left.y) / static_cast<float>(span);
        }
        std::int32_t steps = span ? span : TextureSteps(right.u - left.u, right.v - left.v);
        if (steps)
        {
            step.u = (right.u - left.u) / static_cast<float>(steps);
            step.v = (right.v - left.v) / static_cast<float>(steps);
        }
        std::int32_t x = Truncate(left.x + 0.5f);
        if (x < 0)
        {
            const std::int32_t hidden = x == INT32_MIN ? INT32_MAX : -x;
            const std::int32_t textured = hidden < steps ? hidden : steps, moved = hidden < span ? hidden : span;
            left.u += step.u * static_cast<float>(textured);
            left.v += step.v * static_cast<float>(textured);
            left.x += step.x * static_cast<float>(moved);
            left.y += step.y * static_cast<float>(moved);
            span -= moved;
            x = Truncate(left.x + 0.5f);
        }
        const std::int32_t y = Truncate(left.y + 0.5f);
        if (x < 0 || x >= width || y < 0 || y >= height)
            continue;
        if (span > width - 1 - x)
            span = width - 1 - x;
        const auto map = source.bytesPerPixel == 4 ? MapRow<4> : source.bytesPerPixel == 3 ? MapRow<3> : MapRow<2>;
        map(kernel, GetPtr(Point{x, y}), bytesPerPixel, source.pixels, source.pitch, left.u, left.v, step.u, step.v,
            xMask, yMask, span + 1, run);
    }
    if (edges != onStack)
        Alloc::Delete(edges);
}

} // namespace Zem
