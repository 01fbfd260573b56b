#include "Scene.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace Demo
{

using namespace Zem;

namespace
{

constexpr float pi = 3.14159265f;
constexpr int horizon = 440;
constexpr Rect textPlace(0, Scene::height - 20, Scene::width - 280, 20);
constexpr Rect loadingPlace(Scene::width / 2 - 210, Scene::height / 2 - 60, 420, 104);
constexpr int orbitX = 118, orbitY = 34; // half axes of the ring round the planet
constexpr int moonRadius = 4;

PackedColor Mix(PackedColor a, PackedColor b, float t)
{
    const auto part = [t](int x, int y)
    { return static_cast<std::uint32_t>(std::lround(static_cast<float>(x) + static_cast<float>(y - x) * t)) & 255; };
    return 0xFF000000 | part(a.r, b.r) << 16 | part(a.g, b.g) << 8 | part(a.b, b.b);
}

PackedColor WithAlpha(PackedColor color, float alpha)
{
    color.a = static_cast<std::uint8_t>(std::lround(255 * std::clamp(alpha, 0.0f, 1.0f)));
    return color;
}

int Round(float x)
{
    return static_cast<int>(std::lround(x));
}

// The pixels of `rect` as a bitmap of their own: what is drawn on it is clipped to them.
Bitmap View(Bitmap& picture, const Rect& rect)
{
    Bitmap view;
    const int pitch = static_cast<int>(picture.GetPitch());
    const int bytes = static_cast<int>(picture.GetBytesPerPixel());
    view.Init({rect.width, rect.height}, pitch, picture.GetFormat(), picture.GetPtr() + rect.y * pitch + rect.x * bytes,
              0);
    return view;
}

// A round spot that fades out.
Bitmap Glow(int radius, PackedColor color, float strength)
{
    Bitmap glow({2 * radius + 1, 2 * radius + 1}, Bitmap::ARGB32, nullptr);
    for (int y = -radius; y <= radius; ++y)
        for (int x = -radius; x <= radius; ++x)
        {
            const float d = std::sqrt(static_cast<float>(x * x + y * y)) / static_cast<float>(radius);
            const float fade = d < 1 ? (1 - d) * (1 - d) : 0;
            glow.Pixel(Point{x + radius, y + radius}, WithAlpha(color, strength * fade));
        }
    return glow;
}

Vector3 Rotate(const Quaternion& q, const Vector3& v)
{
    const Vector3 t{2 * (q.y * v.z - q.z * v.y), 2 * (q.z * v.x - q.x * v.z), 2 * (q.x * v.y - q.y * v.x)};
    return {v.x + q.w * t.x + q.y * t.z - q.z * t.y, v.y + q.w * t.y + q.z * t.x - q.x * t.z,
            v.z + q.w * t.z + q.x * t.y - q.y * t.x};
}

} // namespace

Rect Sprite::Bounds() const
{
    const Rect area = image;
    return {Round(x) - area.width / 2, Round(y) - area.height / 2, area.width, area.height};
}

Scene::Scene(const Content& shown) : content(shown)
{
    attitude.Set(0.5f, 0.4f, 0.1f);
    PaintBackground();
    PaintOrbit();
    LCRand random(20);
    for (Sprite& d : dot)
    {
        const PackedColor color = random.NextBool() ? PackedColor(0xFFFFD890) : PackedColor(0xFFFF9C70);
        d.image = Glow(random.NextInt(9, 26), color, 0.95f);
        d.x = random.NextFloat(40, width - 40);
        d.y = random.NextFloat(horizon - 30, height - 60);
        d.speedX = random.NextFloat(-14, 14);
        d.phase = random.NextFloat(2 * pi);
    }
    comet.image = Glow(12, PackedColor(0xFFE8F4FF), 1);
    tail.Init({tailWidth, tailHeight}, 0, Bitmap::ARGB32, nullptr, 0);
    cube.Init({cubeSize, cubeSize}, 0, Bitmap::ARGB32, nullptr, 0);
}

void Scene::PaintBackground()
{
    background.Init({width, height}, 0, Bitmap::XRGB32, nullptr, 0);

    // The sky at dusk.
    const struct
    {
        int y;
        PackedColor color;
    } sky[] = {{0, 0xFF080C22},   {170, 0xFF1E1A4A},     {310, 0xFF5C2C66},
               {390, 0xFFC05458}, {horizon, 0xFFFFC07C}, {height, 0xFFFFC07C}};
    for (std::size_t i = 0; i + 1 < std::size(sky); ++i)
        for (int y = sky[i].y; y < sky[i + 1].y; ++y)
            background.Line({0, y}, {width - 1, y},
                            Mix(sky[i].color, sky[i + 1].color,
                                static_cast<float>(y - sky[i].y) / static_cast<float>(sky[i + 1].y - sky[i].y)),
                            0);
    LCRand random(7);
    for (int i = 0; i < 260; ++i)
    {
        const Point at{random.NextInt(width), random.NextInt(340)};
        const float light = random.NextFloat(0.15f, 1) * (1 - static_cast<float>(at.y) / 360);
        background.BlendPixel(at, WithAlpha(PackedColor(0xFFFFF4E0), light));
        if (i % 9 == 0) // a few are larger
            for (const Point d : {Point{1, 0}, Point{-1, 0}, Point{0, 1}, Point{0, -1}})
                background.BlendPixel(Point{at.x + d.x, at.y + d.y}, WithAlpha(PackedColor(0xFFC8D8FF), light * 0.45f));
    }
    const Bitmap halo = Glow(210, PackedColor(0xFFFFD8A0), 0.6f), sun = Glow(44, PackedColor(0xFFFFF8E0), 1);
    background.Image(halo, {650 - 210, horizon - 60 - 210}, 0);
    background.Image(sun, {650 - 44, horizon - 52 - 44}, 0);

    // Dunes, the nearer the darker; the fraction of a row that a crest covers is blended.
    const struct
    {
        float base, swing, length, phase;
        PackedColor light, dark;
    } dunes[] = {{424, 10, 310, 0.4f, 0xFF9C4A58, 0xFF5E2C48},
                 {452, 16, 420, 2.1f, 0xFF6A3050, 0xFF38193A},
                 {492, 20, 300, 4.0f, 0xFF40203E, 0xFF1E1028},
                 {546, 18, 520, 1.2f, 0xFF1E1226, 0xFF0C0714}};
    for (const auto& dune : dunes)
        for (int x = 0; x < width; ++x)
        {
            const float t = static_cast<float>(x) / dune.length * pi + dune.phase;
            const float crest = dune.base + dune.swing * (std::sin(t) + 0.4f * std::sin(2.3f * t + 1));
            const int top = static_cast<int>(std::ceil(crest));
            background.BlendPixel({x, top - 1}, WithAlpha(dune.light, static_cast<float>(top) - crest));
            for (int y = top; y < height; ++y)
                background.Pixel(Point{x, y},
                                 Mix(dune.light, dune.dark, std::min(1.0f, static_cast<float>(y - top) / 60)));
        }

    const Rect all = background;
    DrawText(background, {30, 29}, "BEDROCK", PackedColor(0xC0000010), all, 4);
    DrawText(background, {27, 26}, "BEDROCK", PackedColor(0xFFFFE2B0), all, 4);
    DrawText(background, {28, 68}, "arrows turn the cube   the mouse leads the planet", PackedColor(0xB0FFE8D0), all);
    DrawText(background, {28, 82}, "D shows what is repainted   space halts   Esc ends", PackedColor(0xB0FFE8D0), all);

    // Blending keeps an alpha of what it was blended with; from here on this is an opaque picture.
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            background.Pixel(Point{x, y}, WithAlpha(background.Pixel(Point{x, y}), 1));
}

// An ellipse of antialiased lines, of which only the alpha is soft: a sprite.
void Scene::PaintOrbit()
{
    orbit.Init({2 * orbitX + 5, 2 * orbitY + 5}, 0, Bitmap::ARGB32, nullptr, 0);
    orbit.Clear(0);
    const auto at = [](float angle) {
        return Point{Round(orbitX + 2 + orbitX * std::cos(angle)), Round(orbitY + 2 + orbitY * std::sin(angle))};
    };
    constexpr int parts = 72;
    for (int i = 0; i < parts; ++i)
        orbit.Line(at(2 * pi * i / parts), at(2 * pi * (i + 1) / parts), PackedColor(0xFFB8D8FF),
                   Bitmap::StyleAntialiased);
}

void Scene::Say(const char* words)
{
    std::snprintf(text, sizeof text, "%s", words);
    newText = true;
}

void Scene::StartComet(std::uint32_t random)
{
    comet.x = static_cast<float>(random % 500);
    comet.y = 110 + static_cast<float>(random / 500 % 60);
    comet.speedX = 420;
    comet.speedY = 90;
    cometLife = 1.6f;
}

void Scene::SetFigures(float framesPerSecond, float drawing)
{
    rate = framesPerSecond;
    newest = (newest + 1) % history;
    milliseconds[newest] = drawing;
    newPanel |= newest % 6 == 0;
}

void Scene::Move(float seconds)
{
    if (paused)
        return;
    time += seconds;
    attitude.Update(spin, seconds);
    const float length = std::sqrt(attitude.x * attitude.x + attitude.y * attitude.y + attitude.z * attitude.z +
                                   attitude.w * attitude.w);
    attitude.x /= length, attitude.y /= length, attitude.z /= length, attitude.w /= length;

    const float pull = 1 - std::exp(-3 * seconds);
    planetAtX += (planetX + 14 * std::sin(time * 0.7f) - planetAtX) * pull;
    planetAtY += (planetY + 9 * std::cos(time * 0.9f) - planetAtY) * pull;
    for (Sprite& d : dot)
    {
        d.x += d.speedX * seconds;
        d.y += 10 * std::sin(time * 0.8f + d.phase) * seconds;
        if (d.x < -30 || d.x > width + 30)
            d.x = d.x < 0 ? width + 30.0f : -30.0f;
    }
    if (cometLife > 0)
    {
        comet.x += comet.speedX * seconds;
        comet.y += comet.speedY * seconds;
        cometLife -= seconds;
    }
}

Rect Scene::Cube() const
{
    return content.Ready() ? Rect(40, 108, cubeSize, cubeSize) : Rect();
}

void Scene::Draw(Bitmap& picture, OptimalRects& dirty, bool all)
{
    Sprite planet, ring;
    planet.image = content.planet; // a view
    planet.x = ring.x = planetAtX;
    planet.y = ring.y = planetAtY;
    ring.image = orbit;
    const bool ready = content.Ready();
    const Rect nowPlanet = ready ? planet.Bounds() : Rect(), nowCube = Cube();
    Rect nowOrbit = ready ? ring.Bounds() : Rect();
    if (ready) // the moon stands out from the ring
        nowOrbit = {nowOrbit.x - moonRadius, nowOrbit.y - moonRadius, nowOrbit.width + 2 * moonRadius,
                    nowOrbit.height + 2 * moonRadius};
    Rect nowComet = cometLife > 0 ? comet.Bounds() : Rect();
    if (cometLife > 0) // with its tail
        nowComet = Rect(TailPlace().x, TailPlace().y, tailWidth + 13, tailHeight + 13);

    dirty.Clear();
    const Rect whole = Rect(picture).Intersect(Rect(0, 0, width, height));
    const auto add = [&](const Rect& r)
    {
        if (const Rect part = r.Intersect(whole); !part.IsEmpty())
            dirty.Invalidate(part);
    };
    if (all || everything || showDirty)
        add(whole);
    everything = !ready;
    const auto note = [&](Rect& before, const Rect& now)
    {
        add(before);
        add(now);
        before = now;
    };
    if (!paused)
    {
        note(oldCube, nowCube);
        note(oldOrbit, nowOrbit); // the moon moves along it
        if (!(oldPlanet == nowPlanet))
            note(oldPlanet, nowPlanet);
        for (int i = 0; i < dots; ++i)
            if (const Rect now = dot[i].Bounds(); !(oldDot[i] == now))
                note(oldDot[i], now);
        note(oldComet, nowComet);
    }
    if (newText)
        add(textPlace);
    if (newPanel)
        add(panelPlace);
    newText = newPanel = false;

    // What would look otherwise where it is cut, lines and textures, is drawn as a whole and then copied in parts.
    if (ready)
    {
        cube.Clear(0);
        PaintCube(cube, {nowCube.x, nowCube.y});
    }
    if (cometLife > 0)
        PaintTail();

    std::int64_t pixels = 0;
    for (const Rect& rect : dirty)
    {
        Bitmap part = View(picture, rect);
        Paint(part, rect);
        pixels += std::int64_t{rect.width} * rect.height;
    }
    if (!all)
        share = static_cast<float>(pixels) / (width * height);
    if (showDirty)
        for (const Rect& r : {oldCube, oldPlanet, oldOrbit, oldComet})
            if (!r.IsEmpty())
                picture.Box(r, PackedColor(0xFF60FF90), 0);
    if (showDirty)
        for (const Rect& r : oldDot)
            picture.Box(r, PackedColor(0xFF60FF90), 0);
}

// Everything that shows in `rect`, from back to front.
void Scene::Paint(Bitmap& part, const Rect& rect)
{
    const Point origin{rect.x, rect.y};
    const auto shows = [&rect](const Rect& r) { return !rect.Intersect(r).IsEmpty(); };
    const auto sprite = [&](const Bitmap& image, const Rect& place)
    {
        if (shows(place))
            part.Image(image, {place.x - origin.x, place.y - origin.y}, 0);
    };
    part.CopyImage(background, {0, 0}, rect, 0);

    if (cometLife > 0)
    {
        sprite(tail, TailPlace());
        sprite(comet.image, comet.Bounds());
    }
    if (content.Ready())
    {
        // The far half of the ring, the planet, the near half with its moon.
        const Rect area = orbit;
        const Point at{Round(planetAtX) - area.width / 2, Round(planetAtY) - area.height / 2};
        const Rect far(0, 0, area.width, area.height / 2),
            near(0, area.height / 2, area.width, area.height - area.height / 2);
        const float angle = time * 1.1f;
        const bool behind = std::sin(angle) < 0;
        const Rect moon(Round(planetAtX + orbitX * std::cos(angle)) - 5,
                        Round(planetAtY + orbitY * std::sin(angle)) - 5, 11, 11);
        const auto paintMoon = [&]
        {
            if (shows(moon))
                part.Circle({moon.x + 5 - origin.x, moon.y + 5 - origin.y}, moonRadius, PackedColor(0xFFE8E4D8),
                            Bitmap::StyleFilled);
        };
        part.Image(orbit, {at.x - origin.x, at.y - origin.y}, far, 0);
        if (behind)
            paintMoon();
        const Rect size = content.planet;
        sprite(content.planet,
               {Round(planetAtX) - size.width / 2, Round(planetAtY) - size.height / 2, size.width, size.height});
        part.Image(orbit, {at.x - origin.x, at.y + near.y - origin.y}, near, 0);
        if (!behind)
            paintMoon();
        sprite(cube, Cube());
    }
    for (const Sprite& d : dot)
        sprite(d.image, d.Bounds());
    if (shows(panelPlace) && content.Ready())
        PaintPanel(part, origin);
    if (shows(textPlace))
        DrawText(part, {16 - origin.x, textPlace.y + 4 - origin.y}, text, PackedColor(0xFFE8C8B0), part);
    if (!content.Ready() && shows(loadingPlace))
    {
        const Rect box(loadingPlace.x - origin.x, loadingPlace.y - origin.y, loadingPlace.width, loadingPlace.height);
        part.Box(box, PackedColor(0xB0100A20), Bitmap::StyleFilled | Bitmap::StyleBlend);
        part.Box(box, PackedColor(0xFFE0A878), 0);
        char line[96];
        std::snprintf(line, sizeof line, "loading   %d of %d", content.loaded, content.wanted);
        DrawText(part, {box.x + 20, box.y + 18}, line, PackedColor(0xFFFFE8D0), part, 2);
        DrawText(part, {box.x + 20, box.y + 44}, content.last, PackedColor(0xFFD0A890), part);
        const int full = box.width - 40;
        part.Box({box.x + 20, box.y + 64, full, 20}, PackedColor(0xFF302038), Bitmap::StyleFilled);
        part.Box({box.x + 22, box.y + 66, (full - 4) * content.loaded / std::max(1, content.wanted), 16},
                 PackedColor(0xFFFFB060), Bitmap::StyleFilled);
    }
}

Rect Scene::TailPlace() const
{
    return {Round(comet.x) - tailWidth + 1, Round(comet.y) - tailHeight + 1, tailWidth, tailHeight};
}

// Lines from where the comet was to where it is, the later the brighter; the comet is in the lower right corner.
void Scene::PaintTail()
{
    tail.Clear(0);
    for (int i = 12; i > 0; i -= 2)
    {
        const float ago = 0.014f * static_cast<float>(i);
        tail.Line({tailWidth - 1 - Round(comet.speedX * ago), tailHeight - 1 - Round(comet.speedY * ago)},
                  {tailWidth - 1, tailHeight - 1},
                  WithAlpha(PackedColor(0xFFD8ECFF), 0.08f * static_cast<float>(13 - i)), 0);
    }
}

void Scene::PaintCube(Bitmap& part, Point origin)
{
    // The corner numbers of each side, in the order in which its texture goes round.
    static constexpr int corners[Content::sides][4] = {{0, 1, 3, 2}, {5, 4, 6, 7}, {4, 0, 2, 6},
                                                       {1, 5, 7, 3}, {4, 5, 1, 0}, {2, 3, 7, 6}};
    static constexpr Vector3 normals[Content::sides] = {{0, 0, -1}, {0, 0, 1},  {-1, 0, 0},
                                                        {1, 0, 0},  {0, -1, 0}, {0, 1, 0}};
    constexpr float distance = 4.6f;
    Corner turned[8];
    for (int i = 0; i < 8; ++i)
    {
        const Vector3 v = Rotate(attitude, {i & 1 ? 1.0f : -1.0f, i & 2 ? 1.0f : -1.0f, i & 4 ? 1.0f : -1.0f});
        turned[i] = {v.x, v.y, v.z + distance};
    }
    for (int side = 0; side < Content::sides; ++side)
    {
        const Vector3 n = Rotate(attitude, normals[side]);
        const Corner& c = turned[corners[side][0]];
        if (n.x * c.x + n.y * c.y + n.z * c.z >= 0)
            continue; // it looks away
        const float light = std::max(0.0f, n.x * 0.45f - n.y * 0.35f - n.z * 0.75f);
        const int shade = std::clamp(Round(3 + light * (Texture::shades - 3)), 0, Texture::shades - 1);
        const Bitmap& texture = content.side[side].shade[shade];
        const Corner face[4] = {turned[corners[side][0]], turned[corners[side][1]], turned[corners[side][2]],
                                turned[corners[side][3]]};
        if (texture.IsValid())
            PaintSide(part, origin, face, texture);
    }
}

// `MapPolygon` maps straight; cut into squares, a side looks right in perspective.
void Scene::PaintSide(Bitmap& part, Point origin, const Corner (&corners)[4], const Bitmap& texture)
{
    constexpr int cuts = 6;
    constexpr float scale = 430;
    const Rect place = Cube();
    const Point centre{place.x + place.width / 2 - origin.x, place.y + place.height / 2 - origin.y};
    Point grid[cuts + 1][cuts + 1];
    for (int j = 0; j <= cuts; ++j)
        for (int i = 0; i <= cuts; ++i)
        {
            const float u = static_cast<float>(i) / cuts, v = static_cast<float>(j) / cuts;
            const auto between = [&](float Corner::*m) {
                return (corners[0].*m * (1 - u) + corners[1].*m * u) * (1 - v) +
                       (corners[3].*m * (1 - u) + corners[2].*m * u) * v;
            };
            const float z = between(&Corner::z);
            grid[j][i] = {centre.x + Round(scale * between(&Corner::x) / z),
                          centre.y + Round(scale * between(&Corner::y) / z)};
        }
    const auto texel = [](int i) { return std::min(i * Texture::size / cuts, Texture::size - 1); };
    for (int j = 0; j < cuts; ++j)
        for (int i = 0; i < cuts; ++i)
        {
            const Point points[4] = {grid[j][i], grid[j][i + 1], grid[j + 1][i + 1], grid[j + 1][i]};
            const Point map[4] = {
                {texel(i), texel(j)}, {texel(i + 1), texel(j)}, {texel(i + 1), texel(j + 1)}, {texel(i), texel(j + 1)}};
            part.MapPolygon(4, points, texture, map, Texture::size - 1, Texture::size - 1, false);
        }
}

void Scene::PaintPanel(Bitmap& part, Point origin)
{
    const Rect box(panelPlace.x - origin.x, panelPlace.y - origin.y, panelPlace.width, panelPlace.height);
    part.Box(box, PackedColor(0xA0080612), Bitmap::StyleFilled | Bitmap::StyleBlend);
    part.Box(box, PackedColor(0xFF80586A), 0);
    const struct
    {
        const char* format;
        float figure;
    } lines[] = {{"%6.1f frames a second", rate},
                 {"%6.2f ms to draw one", milliseconds[newest]},
                 {"%6.1f %% repainted", 100 * share}};
    for (int i = 0; i < 3; ++i)
    {
        char line[64];
        std::snprintf(line, sizeof line, lines[i].format, static_cast<double>(lines[i].figure));
        DrawText(part, {box.x + 10, box.y + 10 + 13 * i}, line, PackedColor(0xFFF0D8C0), part);
    }
    for (int i = 0; i < history; ++i)
    {
        const float ms = milliseconds[(newest + 1 + i) % history];
        const int tall = std::clamp(Round(ms * 40), 1, 56);
        const Rect bar(box.x + 10 + i * 5 / 2, box.y + box.height - 10 - tall, 2, tall);
        part.Box(bar, ms > 8 ? PackedColor(0xFFFF7050) : PackedColor(0xFFFFB868), Bitmap::StyleFilled);
    }
}

} // namespace Demo
