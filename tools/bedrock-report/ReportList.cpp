#include "ReportList.h"

#include <Bedrock/host/ReportLayout.h>

#include <FL/Fl.H>
#include <FL/fl_draw.H>

#include <algorithm>
#include <cmath>

namespace Report
{

namespace
{

constexpr int BorderWidth = 1; // of a window, as the extent of the list counts it
constexpr std::size_t PieceLength = 200;

// The end of a piece of `text` from `start`: not within a character.
std::size_t PieceEnd(std::string_view text, std::size_t start)
{
    std::size_t end = std::min(start + PieceLength, text.size());
    for (int i = 0; i < 3 && end < text.size() && (text[end] & 0xC0) == 0x80; ++i)
        --end;
    return end;
}

} // namespace

ReportList::ReportList(int x, int y, int width, int height, std::string_view text)
    : Fl_Browser_(x, y, width, height), lineHeight(fl_height())
{
    type(FL_NORMAL_BROWSER);
    has_scrollbar(BOTH);
    box(FL_DOWN_BOX);
    color(FL_WHITE);
    textfont(FL_FREE_FONT);
    textsize(fl_size());
    end();

    if (text.empty())
        text = Zem::ReportLayout::Problem;
    Zem::ReportExtent measured(BorderWidth);
    Zem::ReportReader reader(text.data(), static_cast<std::uint32_t>(text.size()));
    for (Zem::ReportReader::Line read; reader.Next(read);)
    {
        Line& line = lines.emplace_back();
        line.text = std::string_view(read.text, read.length);
        if (read.startsGroup)
            measured.BeginGroup();
        measured.Add(Measure(line));
    }
    extent = measured.Extent();
    new_list();
}

int ReportList::Measure(Line& line) const
{
    int width = 0;
    for (std::size_t start = 0; start < line.text.size();)
    {
        const std::size_t end = PieceEnd(line.text, start);
        Piece piece{std::string(line.text.substr(start, end - start)), width, 0};
        for (char& c : piece.text)
        {
            if (static_cast<unsigned char>(c) < ' ' || c == 0x7F)
                c = ' ';
        }
        piece.width = static_cast<int>(std::lround(fl_width(piece.text.data(), static_cast<int>(piece.text.size()))));
        width += piece.width;
        line.pieces.push_back(std::move(piece));
        start = end;
    }
    return width;
}

std::string ReportList::Copied() const
{
    std::string text;
    for (const Line& line : lines)
        (text += line.text) += '\n';
    return text;
}

void ReportList::ScrollBy(int across, int down)
{
    int left, top, width, height;
    bbox(left, top, width, height);
    position(std::clamp(position() + down, 0, std::max(0, full_height() - height)));
    hposition(std::clamp(hposition() + across, 0, std::max(0, full_width() - width)));
}

bool ReportList::HandleKey(int key)
{
    int left, top, width, height;
    bbox(left, top, width, height);
    const int page = height - lineHeight;
    switch (key)
    {
    case FL_Up:
        ScrollBy(0, -lineHeight);
        return true;
    case FL_Down:
        ScrollBy(0, lineHeight);
        return true;
    case FL_Page_Up:
        ScrollBy(0, -page);
        return true;
    case FL_Page_Down:
        ScrollBy(0, page);
        return true;
    case FL_Home:
        ScrollBy(-hposition(), -position());
        return true;
    case FL_End:
        ScrollBy(0, full_height() - position());
        return true;
    case FL_Left:
        ScrollBy(-4 * lineHeight, 0);
        return true;
    case FL_Right:
        ScrollBy(4 * lineHeight, 0);
        return true;
    default:
        return false;
    }
}

int ReportList::handle(int event)
{
    if (event != FL_MOUSEWHEEL)
        return Fl_Browser_::handle(event);
    const int step = 3 * lineHeight;
    if (Fl::event_state(FL_SHIFT))
        ScrollBy(step * (Fl::event_dx() + Fl::event_dy()), 0);
    else
        ScrollBy(step * Fl::event_dx(), step * Fl::event_dy());
    return 1;
}

// An item is its line.

void* ReportList::item_first() const
{
    return item_at(0);
}

void* ReportList::item_next(void* item) const
{
    return item_at(static_cast<int>(static_cast<Line*>(item) - lines.data()) + 1);
}

void* ReportList::item_prev(void* item) const
{
    return item_at(static_cast<int>(static_cast<Line*>(item) - lines.data()) - 1);
}

void* ReportList::item_at(int index) const
{
    if (index < 0 || static_cast<std::size_t>(index) >= lines.size())
        return nullptr;
    return const_cast<Line*>(&lines[static_cast<std::size_t>(index)]);
}

int ReportList::item_height(void*) const
{
    return lineHeight;
}

int ReportList::item_width(void*) const
{
    return extent;
}

int ReportList::full_width() const
{
    return extent;
}

int ReportList::full_height() const
{
    return static_cast<int>(lines.size()) * lineHeight;
}

void ReportList::item_draw(void* item, int x, int y, int w, int h) const
{
    fl_font(textfont(), textsize());
    fl_color(textcolor());
    for (const Piece& piece : static_cast<Line*>(item)->pieces)
    {
        const int at = x + piece.x;
        if (at < x + hposition() + w && at + piece.width > x)
            fl_draw(piece.text.data(), static_cast<int>(piece.text.size()), at + BorderWidth, y + h - fl_descent());
    }
}

} // namespace Report
