#pragma once

#include <Bedrock/Types.h>

#include <cstdint>

namespace Zem
{

/// The fatal error dialog without its drawing: its controls, where they stand at any size, and what its commands mean.
///
/// The layout is told in dialog units, a quarter of the average width and an eighth of the height of a character in the
/// dialog's font; everything else here is in pixels of the client area. A program that shows the dialog makes one
/// `ReportLayout` when its window is there, reports each event to it, and does as it says:
///
///     ReportLayout layout(DialogUnits(widthOfAlphabet, fontHeight), outerSize);
///     layout.OnSize(ReportLayout::Shown, clientSize, [&](const Rect& strip) { Invalidate(strip); });
///     MoveButton(layout.Place(ReportLayout::ContinueButton));
class ReportLayout
{
public:
    /// The controls by their ids; the two texts have none of their own in a dialog and are told apart here by value.
    enum Item : std::int32_t
    {
        Cancel = 2, // a command and no control: the close box, the Escape key
        List = 1002,
        ContinueButton = 1003, // the default button
        TerminateButton = 1004,
        Heading = -1,     // above the list
        Explanation = -2, // beside the buttons
    };

    struct Control
    {
        Item item;
        Rect units; // place and size in dialog units
        const char* text;
    };

    static constexpr const char* Title = "Fatal Error";
    static constexpr const char* Problem = "Problem creating exception report"; // the list's text if there is no report
    static constexpr const char* FontName = "Verdana";
    static constexpr std::int32_t FontPoints = 8;
    static constexpr Size UnitSize{342, 257}; // of the client area
    static constexpr std::int32_t GripSize = 15;
    /// In the order of the Tab key.
    static constexpr Control Controls[5] = {
        {ContinueButton, {284, 6, 51, 13}, "Continue"},
        {TerminateButton, {284, 20, 51, 13}, "Terminate"},
        {Heading, {7, 39, 70, 8}, "Description:"},
        {Explanation, {7, 6, 270, 29}, "A fatal error has occured."},
        {List, {7, 51, 328, 199}, ""},
    };

    /// Pixels of four dialog units across and eight down.
    struct DialogUnits
    {
        /// From the font: the width of the letters A to Z and a to z side by side, and the height of a line.
        constexpr DialogUnits(std::int32_t alphabetWidth, std::int32_t fontHeight)
            : across((alphabetWidth / 26 + 1) / 2), down(fontHeight)
        {
        }

        /// Edges are rounded to the nearest pixel, halves up.
        constexpr std::int32_t X(std::int32_t units) const { return (units * across + 2) / 4; }
        constexpr std::int32_t Y(std::int32_t units) const { return (units * down + 4) / 8; }
        constexpr Rect Pixels(const Rect& r) const { return Rect(X(r.x), Y(r.y), X(r.width), Y(r.height)); }

        std::int32_t across;
        std::int32_t down;
    };

    /// What a change of size is due to.
    enum SizeKind
    {
        Shown,
        Minimised,
        Maximised,
        Hidden,
    };

    /// The size of the client area before the user changes it.
    static constexpr Size InitialSize(const DialogUnits& units)
    {
        return {units.X(UnitSize.width), units.Y(UnitSize.height)};
    }

    /// The dialog as it opens. `outer` is its size with caption and border, or the client's where these are not known.
    ReportLayout(const DialogUnits& units, Size outer) noexcept;

    /// The smallest size, as `outer` was, that the user may give to the window.
    Size SmallestSize() const noexcept { return smallest; }

    /// Where a control stands now.
    Rect Place(Item item) const noexcept;

    /// The window has got another size, or is gone from sight. Buttons keep their distance to the right edge, the list
    /// keeps its distances to the right and lower edges. Calls `invalidate(const Rect&)` for up to three strips that
    /// must be drawn anew with their background, the list not among what asks for it.
    template <class Invalidate>
    void OnSize(SizeKind kind, Size newClient, Invalidate invalidate)
    {
        Rect strips[3];
        const int count = Resize(kind, newClient, strips);
        for (int i = 0; i < count; ++i)
            invalidate(strips[i]);
    }

    /// The square of the size grip; empty if the window has none in this state.
    Rect Grip(SizeKind state) const noexcept;

    /// The dialog's result after a command: 0 to continue, 1 to terminate, -1 if the dialog stays open.
    static constexpr int ResultOf(std::int32_t command)
    {
        return command == ContinueButton ? 0 : command == TerminateButton || command == Cancel ? 1 : -1;
    }

private:
    int Resize(SizeKind kind, Size newClient, Rect (&strips)[3]) noexcept;

    Size smallest;
    Size client;
    Rect places[5]; // of the controls, in their order
};

/// How far the list can be scrolled across. Each group of lines sets it anew: the first line of a group always, the
/// others if they are wider than all before them in the group.
class ReportExtent
{
public:
    /// `borderWidth` is the width of a window's border in pixels; with 0 the extent is never set.
    explicit ReportExtent(std::int32_t borderWidth) noexcept : border(borderWidth) {}

    void BeginGroup() noexcept { widest = 0; }
    void Add(std::int32_t lineWidth) noexcept
    {
        if (lineWidth > widest && border != 0)
        {
            extent = lineWidth + 3 * border;
            widest = lineWidth;
        }
    }

    /// Pixels; 0 until a line has set it.
    std::int32_t Extent() const noexcept { return extent; }

private:
    std::int32_t border;
    std::int32_t widest = 0; // of the group
    std::int32_t extent = 0;
};

/// Walks over a report as it is handed from the broken process to the one that shows it: lines ended by "\n", groups of
/// lines by an empty line. Any text is a report: "\r" counts as an end of line too, and the last line needs none.
class ReportReader
{
public:
    ReportReader(const char* text, std::uint32_t size) noexcept : at(text), end(text + size) {}

    struct Line
    {
        const char* text; // not terminated
        std::uint32_t length;
        bool startsGroup;
    };

    /// False at the end of the report.
    bool Next(Line& line) noexcept;

private:
    const char* at;
    const char* end;
    bool isFirst = true;
};

} // namespace Zem
