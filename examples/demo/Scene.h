#pragma once

#include "Content.h"

#include <Bedrock/Bedrock.h>

// The picture of the demo: a still landscape and, above it, things that move. A frame repaints only the rectangles in which
// something has changed, each pixel of them once.

namespace Demo
{

/// A glowing dot or a comet: an image with alpha at a place.
struct Sprite
{
    Zem::Bitmap image;
    float x = 0, y = 0; // centre
    float speedX = 0, speedY = 0;
    float phase = 0;

    Zem::Rect Bounds() const;
};

class Scene
{
public:
    static constexpr int width = 960, height = 600;
    static constexpr Zem::Rect panelPlace{width - 274, height - 140, 258, 124};

    explicit Scene(const Content& shown);

    /// What the user does.
    void Turn(float x, float y) { spin.x += x, spin.y += y; }
    void Lead(int x, int y) { planetX = static_cast<float>(x), planetY = static_cast<float>(y); }
    void SwitchDirty() { showDirty = !showDirty, everything = true; }
    void SwitchPause() { paused = !paused; }

    /// A text in the lower line; a comet that crosses the sky.
    void Say(const char* text);
    void StartComet(std::uint32_t random);

    /// Moves everything by `seconds`.
    void Move(float seconds);
    /// Figures that the panel shows: frames a second, and milliseconds that the last frame took to draw.
    void SetFigures(float rate, float milliseconds);

    /// Repaints what has changed since the last call, and puts the rectangles into `dirty`. `all` repaints everything, as a new
    /// picture needs.
    void Draw(Zem::Bitmap& picture, Zem::OptimalRects& dirty, bool all);

private:
    static constexpr int dots = 14, history = 96;
    static constexpr int cubeSize = 400, tailWidth = 96, tailHeight = 28;

    struct Corner
    {
        float x, y, z;
    };

    void PaintBackground();
    Zem::Rect Cube() const;
    void Paint(Zem::Bitmap& part, const Zem::Rect& rect);
    void PaintCube(Zem::Bitmap& part, Zem::Point origin);
    void PaintSide(Zem::Bitmap& part, Zem::Point origin, const Corner (&corners)[4], const Zem::Bitmap& texture);
    void PaintOrbit();
    Zem::Rect TailPlace() const;
    void PaintTail();
    void PaintPanel(Zem::Bitmap& part, Zem::Point origin);

    const Content& content;
    Zem::Bitmap background;
    Zem::Bitmap orbit; // antialiased, transparent where nothing is drawn
    Sprite dot[dots];
    Sprite comet;
    Zem::Bitmap tail, cube; // as they are in this frame, transparent where nothing is drawn
    float cometLife = 0;    // seconds left
    Zem::Quaternion attitude;
    Zem::Vector3 spin{0.35f, 0.6f, 0.1f}; // radians a second
    float planetX = 700, planetY = 190;   // where it wants to be
    float planetAtX = 760, planetAtY = 150;
    float time = 0;
    char text[96] = "";
    float rate = 0;
    float milliseconds[history] = {};
    int newest = 0;
    float share = 0; // of the picture that the last frame repainted
    bool showDirty = false, paused = false, everything = true;

    // Where things were when they were painted last.
    Zem::Rect oldCube, oldPlanet, oldOrbit, oldDot[dots], oldComet;
    bool newText = true, newPanel = true;
};

} // namespace Demo
