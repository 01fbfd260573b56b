#pragma once

#include <Bedrock/platform/headless/HeadlessDesktop.h>

namespace Zem::Platform
{

/// One window.
struct HeadlessDesktop::Record
{
    WindowHandle handle;
    WindowKind kind;
    bool own;
    bool shown; // as asked for, whether or not minimised
    bool everShown;
    bool minimised;
    bool maximised;
    bool paint;     // Paint waits
    Record* parent; // of a child
    Rect area;      // a child: in its parent's client area
    Rect normal;    // likewise; what a maximised window goes back to
    char title[512];

    // What the last Size and Move told, once they are fetched.
    bool toldSize, toldPlace;
    std::uintptr_t sizeKind, sizeNumbers, placeNumbers;

    std::uint32_t* pixels; // null until the first picture
    Size pixelSize;
    Queue forwarded; // of a foreign window
};

} // namespace Zem::Platform
