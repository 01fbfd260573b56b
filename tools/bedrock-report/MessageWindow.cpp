#include "MessageWindow.h"

#include <FL/fl_draw.H>

#include <algorithm>

namespace Report
{

namespace
{

constexpr int IconSide = 32;

// The text's width and height with lines broken at 240 dialog units, at most what a screen holds.
Zem::Size Measure(const Zem::ReportLayout::DialogUnits& units, const std::string& text)
{
    int width = units.X(240), height = 0;
    fl_measure(text.c_str(), width, height, 0);
    return {std::min(width, units.X(300)), std::min(height, units.Y(300))};
}

} // namespace

MessageWindow::MessageWindow(const Zem::ReportLayout::DialogUnits& units, MessageKind kindShown,
                             const std::string& title, const std::string& message)
    : Dialog({1, 1}, nullptr), kind(kindShown), titleText(title), text(message)
{
    const int margin = units.X(7);
    const Zem::Size button{units.X(50), units.Y(14)};
    const Zem::Size measured = Measure(units, text);
    const int buttons = kind == MessageKind::Confirm ? 2 : 1;
    const int iconWidth = kind == MessageKind::Plain ? 0 : IconSide + margin;
    const int buttonsWidth = buttons * button.width + (buttons - 1) * units.X(4);
    const int inner = std::max(iconWidth + measured.width, buttonsWidth);
    const int rows = std::max(measured.height, kind == MessageKind::Plain ? 0 : IconSide);
    iconPlace = Zem::Rect(margin, margin, IconSide, IconSide);
    textPlace = Zem::Rect(margin + iconWidth, margin + (rows - measured.height) / 2, measured.width, measured.height);

    const int width = inner + 2 * margin, height = rows + button.height + 3 * margin;
    Fl_Double_Window::size(width, height);
    copy_label(titleText.c_str());
    int x = (width - buttonsWidth) / 2;
    const int y = height - margin - button.height;
    if (kind == MessageKind::Confirm)
    {
        AddButton(Zem::Rect(x, y, button.width, button.height), "Yes", 0);
        x += button.width + units.X(4);
        AddButton(Zem::Rect(x, y, button.width, button.height), "No", 1);
    }
    else
    {
        AddButton(Zem::Rect(x, y, button.width, button.height), "OK", 0);
        cancelResult = 0;
    }
    isOnTop = true;
    end();
    resizable(nullptr);
}

void MessageWindow::draw()
{
    if (damage() & ~FL_DAMAGE_CHILD)
    {
        draw_box(box(), 0, 0, w(), h(), color());
        if (kind != MessageKind::Plain)
        {
            fl_color(kind == MessageKind::Error ? fl_rgb_color(200, 30, 30) : fl_rgb_color(48, 96, 160));
            fl_pie(iconPlace.x, iconPlace.y, iconPlace.width, iconPlace.height, 0, 360);
            fl_color(FL_WHITE);
            fl_font(FL_HELVETICA_BOLD, 22);
            fl_draw(kind == MessageKind::Error ? "\xC3\x97" : "?", iconPlace.x, iconPlace.y, iconPlace.width,
                    iconPlace.height, FL_ALIGN_CENTER, nullptr, 0);
        }
        fl_color(FL_BLACK);
        fl_font(FL_FREE_FONT, child(0)->labelsize());
        fl_draw(text.c_str(), textPlace.x, textPlace.y, textPlace.width, textPlace.height,
                FL_ALIGN_LEFT | FL_ALIGN_TOP | FL_ALIGN_WRAP | FL_ALIGN_CLIP, nullptr, 0);
        draw_children();
        return;
    }
    Dialog::draw();
}

} // namespace Report
