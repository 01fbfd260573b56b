#pragma once

// What both windows need of the desktop and FLTK does not have: the foreground, the state of a window, sizing by a
// grip, keys that were held down before, and a clipboard that outlives the dialog.

#include <FL/Fl.H>
#include <FL/Fl_Button.H>
#include <FL/Fl_Double_Window.H>

#include <Bedrock/host/ReportLayout.h>

#include <string>

namespace Report
{

/// Opens the display, or ends the program with an error and exit code 2. From here on the loss of the display ends it
/// in the same way, whatever it does, so that nobody takes it for an answer.
void OpenDisplay();

/// Colours, and the dialog's font for the calls that measure. Returns: the font's dialog units.
Zem::ReportLayout::DialogUnits UseDialogFont();

/// Shows the window in the middle of the screen where the pointer is, in front, with the keyboard's focus.
void ShowInFront(Fl_Window& window);

/// Keeps the window over all others from now on.
void KeepOnTop(const Fl_Window& window);

bool IsMaximised(const Fl_Window& window);

/// Hands the sizing by the lower right corner, under the pressed button, to the window manager.
void StartSizing(const Fl_Window& window);

/// Keys that were down when the dialog came up, from whatever the user did in the program that failed. They answer
/// nothing until they are pressed anew.
class HeldKeys
{
public:
    void Look();
    /// Forgets those that have been released.
    void LookAgain();
    bool Contains(int key) const;

private:
    bool enter = false;
    bool escape = false;
    bool space = false;
};

/// Puts a text on the clipboard.
void Copy(const std::string& text);

/// Called when the answer is given and the windows are gone: if a copied text is still ours to hand out, a process of
/// its own stays behind and does so until somebody else copies something, an hour at most.
void LeaveClipboardBehind(int answerFd);

/// A button with its label as it stands, and a frame if Enter presses it.
class Button : public Fl_Button
{
public:
    using Fl_Button::Fl_Button;
    int handle(int event) override;
    void draw() override;
};

/// A window whose buttons give its result: Enter presses the one with the focus, Escape and the close box cancel.
class Dialog : public Fl_Double_Window
{
public:
    Dialog(Zem::Size size, const char* title);

    /// Shows the window and waits. Returns: the result.
    int Run();

    int handle(int event) override;

    /// True for a press of a key that has been down since before the window came up.
    bool IsHeld(int key) const { return held.Contains(key); }

protected:
    Button* AddButton(const Zem::Rect& place, const char* text, int result);
    /// Closes the window with a result.
    void End(int answer);

    int cancelResult = 1;
    bool isOnTop = false; // stays over all other windows

private:
    static void OnButton(Fl_Widget* button, void* answer);

    int result = -1; // -1: open
    HeldKeys held;
};

} // namespace Report
