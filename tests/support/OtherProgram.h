#pragma once

#include <Bedrock/platform/Desktop.h>

#include <sys/types.h>
#include <xcb/xcb.h>

namespace Test
{

/// A program of its own on the X server that DISPLAY names: a child process with windows, which notes what their user
/// does to them. It dies with the object.
class OtherProgram
{
public:
    OtherProgram();
    ~OtherProgram() { Kill(); }
    OtherProgram(const OtherProgram&) = delete;
    OtherProgram& operator=(const OtherProgram&) = delete;

    /// A top-level window that wishes its corner to be there; mapped, and answered for, when this returns.
    xcb_window_t Open(const Zem::Rect& client, bool visible, const char* title);
    void Resize(xcb_window_t window, Zem::Size client);
    /// What a window was told next of mouse and keyboard, in the words of window messages: moves, buttons with the button
    /// itself among the held ones, and keys as those of a US keyboard. False if nothing came yet.
    bool Take(Zem::WindowMessage& message);
    /// Ends it, and its windows with it, before this returns.
    void Kill();

private:
    struct Command;
    [[noreturn]] static void Run(int channel);

    pid_t process = -1;
    int channel = -1; // commands to it and answers from it
    int notes = -1;   // messages from it
};

} // namespace Test
