#include "ReportWindow.h"

#include <FL/Fl_Box.H>
#include <FL/Fl_Menu_Item.H>
#include <FL/fl_draw.H>

namespace Report
{

using Zem::Rect;
using Layout = Zem::ReportLayout;

ReportWindow::ReportWindow(const Layout::DialogUnits& units, std::string_view report)
    : Dialog(Layout::InitialSize(units), Layout::Title), layout(units, Layout::InitialSize(units))
{
    cancelResult = Layout::ResultOf(Layout::Cancel);
    for (int index = 0; index < 5; ++index)
        widgets[index] = Make(Layout::Controls[index], report);
    end();
    resizable(nullptr); // the layout moves what moves
    const Zem::Size least = layout.SmallestSize();
    size_range(least.width, least.height);
}

Fl_Widget* ReportWindow::Make(const Layout::Control& control, std::string_view report)
{
    const Rect place = layout.Place(control.item);
    switch (control.item)
    {
    case Layout::ContinueButton:
    case Layout::TerminateButton:
        return AddButton(place, control.text, Layout::ResultOf(control.item));
    case Layout::List:
        return list = new ReportList(place.x, place.y, place.width, place.height, report);
    default:
        break;
    }
    auto* text = new Fl_Box(FL_NO_BOX, place.x, place.y, place.width, place.height, control.text);
    text->labelfont(FL_FREE_FONT);
    text->labelsize(fl_size());
    text->align(FL_ALIGN_LEFT | FL_ALIGN_TOP | FL_ALIGN_INSIDE | FL_ALIGN_WRAP);
    return text;
}

Layout::SizeKind ReportWindow::State()
{
    return !shown() || !visible() ? Layout::Hidden : IsMaximised(*this) ? Layout::Maximised : Layout::Shown;
}

void ReportWindow::resize(int x, int y, int width, int height)
{
    Dialog::resize(x, y, width, height);
    layout.OnSize(State(), {width, height},
                  [&](const Rect& strip) { damage(FL_DAMAGE_ALL, strip.x, strip.y, strip.width, strip.height); });
    for (int index = 0; index < 5; ++index)
    {
        const Rect place = layout.Place(Layout::Controls[index].item);
        widgets[index]->resize(place.x, place.y, place.width, place.height);
    }
}

void ReportWindow::draw()
{
    if (damage() & ~FL_DAMAGE_CHILD)
    {
        draw_box(box(), 0, 0, w(), h(), color());
        const Rect grip = layout.Grip(State());
        for (int ridge = 0; !grip.IsEmpty() && ridge < 3; ++ridge)
        {
            const int reach = 4 * ridge + 3;
            const int right = grip.x + grip.width - 2, bottom = grip.y + grip.height - 2;
            fl_color(fl_rgb_color(140, 140, 140));
            fl_line(right - reach, bottom, right, bottom - reach);
            fl_line(right - reach + 1, bottom, right, bottom - reach + 1);
            fl_color(FL_WHITE);
            fl_line(right - reach - 1, bottom, right, bottom - reach - 1);
        }
        draw_children();
        return;
    }
    Dialog::draw();
}

int ReportWindow::handle(int event)
{
    const Rect grip = layout.Grip(State());
    const bool isOnGrip = !grip.IsEmpty() && grip.Contains({Fl::event_x(), Fl::event_y()});
    switch (event)
    {
    case FL_MOVE:
    case FL_ENTER:
        fl_cursor(isOnGrip ? FL_CURSOR_SE : FL_CURSOR_DEFAULT);
        break;
    case FL_PUSH:
        if (isOnGrip && Fl::event_button() == FL_LEFT_MOUSE)
        {
            StartSizing(*this);
            return 1;
        }
        if (Fl::event_button() == FL_RIGHT_MOUSE && Fl::event_inside(list))
        {
            const Fl_Menu_Item menu[] = {
                {"Copy the report", FL_CTRL + 'c', nullptr, nullptr, 0, 0, FL_FREE_FONT, fl_size(), 0}, {}};
            if (menu->popup(Fl::event_x(), Fl::event_y()))
                Copy(list->Copied());
            return 1;
        }
        break;
    case FL_KEYBOARD:
        if (Fl::event_state(FL_CTRL) && (Fl::event_key() == 'c' || Fl::event_key() == FL_Insert))
        {
            Copy(list->Copied());
            return 1;
        }
        if (!Fl::event_state(FL_CTRL | FL_ALT | FL_META) && list->HandleKey(Fl::event_key()))
            return 1;
        break;
    default:
        break;
    }
    return Dialog::handle(event);
}

} // namespace Report
