#pragma once

#include <FL/Fl_Browser_.H>

#include <string>
#include <string_view>
#include <vector>

namespace Report
{

/// The list of the dialog: lines as they are, scrolled both ways, nothing to select.
///
/// Bytes that are no UTF-8 are drawn as Latin-1 letters, control characters as blanks. A line is drawn in pieces, since
/// the display's coordinates have 16 bits and a line may be far longer.
class ReportList : public Fl_Browser_
{
public:
    /// `text`, a report, belongs to the caller and stays where it is.
    ReportList(int x, int y, int width, int height, std::string_view text);

    /// Scrolls by lines and pages, or to an end. Returns: false if the key means nothing here.
    bool HandleKey(int key);

    /// Three lines a notch of the wheel, and across with Shift or a second wheel.
    int handle(int event) override;

    /// The lines, each with its end, as they would be pasted.
    std::string Copied() const;

private:
    struct Piece
    {
        std::string text;
        int x;     // from the start of the line
        int width; // pixels
    };

    struct Line
    {
        std::string_view text;
        std::vector<Piece> pieces;
    };

    int Measure(Line& line) const;
    /// By so many pixels, as far as it goes.
    void ScrollBy(int across, int down);

    void* item_first() const override;
    void* item_next(void* item) const override;
    void* item_prev(void* item) const override;
    void* item_at(int index) const override;
    int item_height(void* item) const override;
    int item_width(void* item) const override;
    void item_draw(void* item, int x, int y, int w, int h) const override;
    int full_width() const override;
    int full_height() const override;

    std::vector<Line> lines;
    int lineHeight;
    int extent = 0; // how far the list scrolls across
};

} // namespace Report
