#include "Desktop.h"

#include <FL/Fl_RGB_Image.H>
#include <FL/fl_draw.H>
#include <FL/x.H>

#include <X11/Xatom.h>
#include <X11/keysym.h>

#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace Report
{

namespace
{

// FLTK and Xlib end a program that has lost its display with code 1, which is an answer here.
[[noreturn]] void EndWithoutDisplay(const char* format, ...)
{
    std::fputs("bedrock-report: ", stderr);
    std::va_list args;
    va_start(args, format);
    std::vfprintf(stderr, format, args);
    va_end(args);
    std::fputc('\n', stderr);
    _exit(2);
}

int OnDisplayLost(Display*)
{
    EndWithoutDisplay("the display is gone");
}

Atom Named(const char* name)
{
    return XInternAtom(fl_display, name, False);
}

void SendToManager(const Fl_Window& window, const char* message, long a, long b, long c, long d, long e)
{
    XEvent event = {};
    event.xclient.type = ClientMessage;
    event.xclient.window = fl_xid(&window);
    event.xclient.message_type = Named(message);
    event.xclient.format = 32;
    const long data[] = {a, b, c, d, e};
    std::copy(data, data + 5, event.xclient.data.l);
    XSendEvent(fl_display, RootWindow(fl_display, fl_screen), False, SubstructureRedirectMask | SubstructureNotifyMask,
               &event);
}

// The atoms of a property; none if it is not there.
template <class See>
void ForEachAtom(Window window, const char* property, Atom type, See see)
{
    Atom realType;
    int format;
    unsigned long count, rest;
    unsigned char* data = nullptr;
    if (XGetWindowProperty(fl_display, window, Named(property), 0, 64, False, type, &realType, &format, &count, &rest,
                           &data) == Success &&
        data && realType == type && format == 32)
    {
        for (unsigned long i = 0; i < count; ++i)
            see(reinterpret_cast<unsigned long*>(data)[i]);
    }
    if (data)
        XFree(data);
}

bool HasManager()
{
    bool is = false;
    ForEachAtom(RootWindow(fl_display, fl_screen), "_NET_SUPPORTING_WM_CHECK", XA_WINDOW, [&](Atom) { is = true; });
    return is;
}

Window copiedFrom = None; // the window that hands out the copied text

// A white cross on a red disc, for the task bar.
const Fl_RGB_Image* Icon()
{
    constexpr int Side = 48;
    static unsigned char pixels[Side * Side * 4];
    for (int y = 0; y < Side; ++y)
    {
        for (int x = 0; x < Side; ++x)
        {
            const double dx = x - (Side - 1) / 2.0, dy = y - (Side - 1) / 2.0;
            const double distance = std::hypot(dx, dy);
            const bool isCross = distance < 15 && (std::fabs(dx - dy) < 5 || std::fabs(dx + dy) < 5);
            unsigned char* p = pixels + (y * Side + x) * 4;
            p[0] = isCross ? 255 : 200;
            p[1] = p[2] = isCross ? 255 : 30;
            p[3] = distance < 22.5 ? 255 : distance < 23.5 ? 128 : 0;
        }
    }
    static const Fl_RGB_Image image(pixels, Side, Side, 4);
    return &image;
}

} // namespace

void OpenDisplay()
{
    Fl::fatal = EndWithoutDisplay;
    fl_open_display();
    XSetIOErrorHandler(OnDisplayLost);
    // A window may be gone between a question of ours and its answer; nothing depends on it.
    XSetErrorHandler([](Display*, XErrorEvent*) { return 0; });
}

Zem::ReportLayout::DialogUnits UseDialogFont()
{
    Fl::scheme("gtk+");
    Fl::background(240, 240, 240);
    Fl::set_font(FL_FREE_FONT, Zem::ReportLayout::FontName);
    constexpr int Pixels = (Zem::ReportLayout::FontPoints * 96 + 36) / 72; // at 96 dots an inch
    fl_font(FL_FREE_FONT, Pixels);
    const double alphabet = fl_width("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz");
    return Zem::ReportLayout::DialogUnits(static_cast<int>(std::lround(alphabet)), fl_height());
}

void ShowInFront(Fl_Window& window)
{
    int pointerX, pointerY, x, y, width, height;
    Fl::get_mouse(pointerX, pointerY);
    Fl::screen_work_area(x, y, width, height, pointerX, pointerY);
    window.position(x + (width - window.w()) / 2, y + (height - window.h()) / 2);
    window.icon(Icon());
    Fl_Window::default_xclass("bedrock-report");
    window.show();
    window.wait_for_expose();
    if (HasManager())
    {
        // 2: as from a task bar, since no user's act led here that a manager could know of.
        SendToManager(window, "_NET_ACTIVE_WINDOW", 2, static_cast<long>(fl_event_time), 0, 0, 0);
        return;
    }
    XRaiseWindow(fl_display, fl_xid(&window));
    XSetInputFocus(fl_display, fl_xid(&window), RevertToParent, CurrentTime);
}

void KeepOnTop(const Fl_Window& window)
{
    constexpr long Add = 1, FromApplication = 1;
    SendToManager(window, "_NET_WM_STATE", Add, static_cast<long>(Named("_NET_WM_STATE_ABOVE")), 0, FromApplication, 0);
}

bool IsMaximised(const Fl_Window& window)
{
    bool across = false, down = false;
    ForEachAtom(fl_xid(&window), "_NET_WM_STATE", XA_ATOM,
                [&](Atom state)
                {
                    across = across || state == Named("_NET_WM_STATE_MAXIMIZED_HORZ");
                    down = down || state == Named("_NET_WM_STATE_MAXIMIZED_VERT");
                });
    return across && down;
}

void StartSizing(const Fl_Window& window)
{
    XUngrabPointer(fl_display, fl_event_time);
    constexpr long LowerRight = 4;
    SendToManager(window, "_NET_WM_MOVERESIZE", Fl::event_x_root(), Fl::event_y_root(), LowerRight, Button1, 1);
}

// ---------------------------------------------------------------------------------------------------------- HeldKeys

void HeldKeys::Look()
{
    enter = escape = space = true;
    LookAgain();
}

void HeldKeys::LookAgain()
{
    char keys[32];
    XQueryKeymap(fl_display, keys);
    const auto isDown = [&](KeySym symbol)
    {
        const KeyCode code = XKeysymToKeycode(fl_display, symbol);
        return code != 0 && (keys[code / 8] >> (code % 8) & 1) != 0;
    };
    enter = enter && (isDown(XK_Return) || isDown(XK_KP_Enter));
    escape = escape && isDown(XK_Escape);
    space = space && isDown(XK_space);
}

bool HeldKeys::Contains(int key) const
{
    return ((key == FL_Enter || key == FL_KP_Enter) && enter) || (key == FL_Escape && escape) || (key == ' ' && space);
}

// --------------------------------------------------------------------------------------------------------- clipboard

void Copy(const std::string& text)
{
    constexpr int Clipboard = 1;
    Fl::copy(text.data(), static_cast<int>(text.size()), Clipboard);
    copiedFrom = XGetSelectionOwner(fl_display, Named("CLIPBOARD"));
}

void LeaveClipboardBehind(int answerFd)
{
    const Atom clipboard = Named("CLIPBOARD");
    if (copiedFrom == None || XGetSelectionOwner(fl_display, clipboard) != copiedFrom)
        return;
    XSync(fl_display, False);
    const pid_t child = fork();
    if (child != 0)
    {
        // The connection belongs to the child from here on: this process must not speak on it, not even to close it.
        close(ConnectionNumber(fl_display));
        return;
    }
    setsid();
    for (int fd : {0, 1, 2, answerFd})
    {
        if (fd >= 0)
            close(fd);
    }
    for (int seconds = 0; seconds < 3600 && XGetSelectionOwner(fl_display, clipboard) == copiedFrom; ++seconds)
        Fl::wait(1.0);
    _exit(0);
}

// ------------------------------------------------------------------------------------------------------------ Button

int Button::handle(int event)
{
    // The focus frame marks the button that Enter presses, so both are drawn when it moves.
    if (event == FL_FOCUS || event == FL_UNFOCUS)
        redraw();
    if (event == FL_KEYBOARD && static_cast<Dialog*>(window())->IsHeld(Fl::event_key()))
        return 1;
    return Fl_Button::handle(event);
}

void Button::draw()
{
    const bool isDefault = Fl::focus() == this;
    fl_rectf(x(), y(), w(), h(), color());
    if (isDefault)
        fl_rect(x(), y(), w(), h(), fl_rgb_color(48, 96, 160));
    draw_box(value() ? FL_DOWN_BOX : FL_UP_BOX, x() + 1, y() + 1, w() - 2, h() - 2, color());
    fl_font(labelfont(), labelsize());
    fl_color(labelcolor());
    fl_draw(label(), x(), y(), w(), h(), FL_ALIGN_CENTER, nullptr, 0);
    if (isDefault)
        draw_focus(FL_UP_BOX, x() + 2, y() + 2, w() - 4, h() - 4);
}

// ------------------------------------------------------------------------------------------------------------ Dialog

Dialog::Dialog(Zem::Size size, const char* title) : Fl_Double_Window(size.width, size.height, title)
{
    callback(
        [](Fl_Widget* self, void*)
        {
            auto* dialog = static_cast<Dialog*>(self);
            dialog->End(dialog->cancelResult);
        });
}

Button* Dialog::AddButton(const Zem::Rect& place, const char* text, int answer)
{
    auto* button = new Button(place.x, place.y, place.width, place.height, text);
    button->labelfont(FL_FREE_FONT);
    button->labelsize(fl_size());
    button->callback(OnButton, reinterpret_cast<void*>(static_cast<std::intptr_t>(answer)));
    return button;
}

void Dialog::OnButton(Fl_Widget* button, void* answer)
{
    static_cast<Dialog*>(button->window())->End(static_cast<int>(reinterpret_cast<std::intptr_t>(answer)));
}

void Dialog::End(int answer)
{
    result = answer;
    hide();
}

int Dialog::Run()
{
    held.Look();
    ShowInFront(*this);
    if (isOnTop)
        KeepOnTop(*this);
    while (result < 0 && Fl::wait() >= 0)
    {
    }
    return result;
}

int Dialog::handle(int event)
{
    const int key = Fl::event_key();
    if (event == FL_KEYUP)
        held.LookAgain(); // what the display repeats comes as releases too
    if ((event == FL_KEYBOARD || event == FL_SHORTCUT) && IsHeld(key))
        return 1;
    if (event == FL_KEYBOARD && (key == FL_Enter || key == FL_KP_Enter))
    {
        if (Fl::focus() && Fl::focus() != this)
            Fl::focus()->do_callback();
        return 1;
    }
    if (event == FL_KEYBOARD && key == FL_Escape)
    {
        do_callback();
        return 1;
    }
    return Fl_Double_Window::handle(event);
}

} // namespace Report
