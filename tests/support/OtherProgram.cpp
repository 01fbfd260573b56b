#include "support/OtherProgram.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Test
{

struct OtherProgram::Command
{
    enum What
    {
        MakeWindow,
        ResizeWindow
    } what;
    xcb_window_t window;
    Zem::Rect client;
    bool visible;
    char title[64];
};

namespace
{

// The child's descriptors, at fixed numbers.
constexpr int channelNumber = 3, notesNumber = 4;

std::uintptr_t MouseBits(int state)
{
    return (state & XCB_BUTTON_MASK_1 ? Zem::MouseLeft : 0u) | (state & XCB_BUTTON_MASK_2 ? Zem::MouseMiddle : 0u) |
           (state & XCB_BUTTON_MASK_3 ? Zem::MouseRight : 0u) | (state & XCB_MOD_MASK_SHIFT ? Zem::MouseShift : 0u) |
           (state & XCB_MOD_MASK_CONTROL ? Zem::MouseControl : 0u);
}

bool Translate(const xcb_generic_event_t& event, Zem::WindowMessage& message)
{
    using namespace Zem;
    const auto& input = reinterpret_cast<const xcb_key_press_event_t&>(event); // moves and buttons have its layout
    message.window = input.event;
    message.second = Pack(input.event_x, input.event_y);
    const std::uint8_t type = event.response_type & 0x7F; // sent ones count too
    switch (type)
    {
    case XCB_KEY_PRESS:
    case XCB_KEY_RELEASE:
    {
        constexpr char letters[] = "QWERTYUIOP....ASDFGHJKL.....ZXCVBNM";
        const unsigned scan = input.detail - 8u;
        message.number = type == XCB_KEY_PRESS ? MessageKeyDown : MessageKeyUp;
        message.first = scan >= 16 && scan < 16 + sizeof(letters) - 1 ? static_cast<unsigned char>(letters[scan - 16])
                                                                      : std::uintptr_t{KeyUnknown};
        message.second =
            KeyBitsCount | scan << KeyBitsScanShift | (type == XCB_KEY_RELEASE ? KeyBitsHeld | KeyBitsReleased : 0u);
        return true;
    }
    case XCB_BUTTON_PRESS:
    case XCB_BUTTON_RELEASE:
    {
        const bool down = type == XCB_BUTTON_PRESS;
        message.number = input.detail == 1   ? (down ? MessageLeftDown : MessageLeftUp)
                         : input.detail == 2 ? (down ? MessageMiddleDown : MessageMiddleUp)
                                             : (down ? MessageRightDown : MessageRightUp);
        message.first = MouseBits(input.state) | (!down               ? 0u
                                                  : input.detail == 1 ? MouseLeft
                                                  : input.detail == 2 ? MouseMiddle
                                                                      : MouseRight);
        return input.detail <= 3;
    }
    case XCB_MOTION_NOTIFY:
        message.number = MessageMouseMove;
        message.first = MouseBits(input.state);
        return true;
    default:
        return false;
    }
}

} // namespace

OtherProgram::OtherProgram()
{
    int both[2], lines[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, both), 0);
    EXPECT_EQ(pipe2(lines, O_CLOEXEC | O_NONBLOCK), 0);
    process = fork();
    if (process == 0)
    {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        // No descriptor of the test's stays, its connections to the server above all.
        const int from = fcntl(both[1], F_DUPFD, 10), to = fcntl(lines[1], F_DUPFD, 10);
        dup2(from, channelNumber);
        dup2(to, notesNumber);
        for (int other = notesNumber + 1; other < 256; ++other)
            close(other);
        Run(channelNumber);
    }
    close(both[1]);
    close(lines[1]);
    channel = both[0];
    notes = lines[0];
}

void OtherProgram::Run(int commands)
{
    xcb_connection_t* const xcb = xcb_connect(nullptr, nullptr);
    if (xcb_connection_has_error(xcb))
        _exit(1);
    const xcb_screen_t* const screen = xcb_setup_roots_iterator(xcb_get_setup(xcb)).data;
    pollfd sources[] = {{commands, POLLIN, 0}, {xcb_get_file_descriptor(xcb), POLLIN, 0}};
    xcb_window_t awaited = 0; // is to be mapped before the answer
    for (;;)
    {
        while (xcb_generic_event_t* const event = xcb_poll_for_event(xcb))
        {
            Zem::WindowMessage message{};
            if (Translate(*event, message))
                (void)!write(notesNumber, &message, sizeof(message));
            if (event->response_type == XCB_MAP_NOTIFY && awaited)
            {
                send(commands, &awaited, sizeof(awaited), 0);
                awaited = 0;
            }
            std::free(event);
        }
        if (xcb_connection_has_error(xcb))
            _exit(1);
        xcb_flush(xcb);
        poll(sources, 2, -1);
        if (!sources[0].revents)
            continue;
        Command command;
        if (recv(commands, &command, sizeof(command), 0) != sizeof(command))
            _exit(0); // the test is gone
        const auto u = [](std::int32_t value) { return static_cast<std::uint32_t>(value); };
        if (command.what == Command::ResizeWindow)
        {
            const std::uint32_t size[] = {u(command.client.width), u(command.client.height)};
            xcb_configure_window(xcb, command.window, XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT, size);
            continue;
        }
        const xcb_window_t window = xcb_generate_id(xcb);
        const std::uint32_t values[] = {screen->white_pixel,
                                        XCB_EVENT_MASK_STRUCTURE_NOTIFY | XCB_EVENT_MASK_KEY_PRESS |
                                            XCB_EVENT_MASK_KEY_RELEASE | XCB_EVENT_MASK_BUTTON_PRESS |
                                            XCB_EVENT_MASK_BUTTON_RELEASE | XCB_EVENT_MASK_POINTER_MOTION};
        xcb_create_window(xcb, XCB_COPY_FROM_PARENT, window, screen->root, static_cast<std::int16_t>(command.client.x),
                          static_cast<std::int16_t>(command.client.y), static_cast<std::uint16_t>(command.client.width),
                          static_cast<std::uint16_t>(command.client.height), 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
                          XCB_COPY_FROM_PARENT, XCB_CW_BACK_PIXEL | XCB_CW_EVENT_MASK, values);
        xcb_change_property(xcb, XCB_PROP_MODE_REPLACE, window, XCB_ATOM_WM_NAME, XCB_ATOM_STRING, 8,
                            static_cast<std::uint32_t>(std::strlen(command.title)), command.title);
        const std::uint32_t hints[18] = {1 | 4}; // the place is the user's wish
        xcb_change_property(xcb, XCB_PROP_MODE_REPLACE, window, XCB_ATOM_WM_NORMAL_HINTS, XCB_ATOM_WM_SIZE_HINTS, 32,
                            18, hints);
        if (command.visible)
        {
            xcb_map_window(xcb, window);
            awaited = window;
        }
        else
        {
            std::free(xcb_get_input_focus_reply(xcb, xcb_get_input_focus(xcb), nullptr));
            send(commands, &window, sizeof(window), 0);
        }
    }
}

xcb_window_t OtherProgram::Open(const Zem::Rect& client, bool visible, const char* title)
{
    Command command{Command::MakeWindow, 0, client, visible, ""};
    std::strncpy(command.title, title, sizeof(command.title) - 1);
    EXPECT_EQ(send(channel, &command, sizeof(command), MSG_NOSIGNAL), static_cast<ssize_t>(sizeof(command)));
    xcb_window_t window = 0;
    pollfd answer{channel, POLLIN, 0};
    EXPECT_EQ(poll(&answer, 1, 10000), 1) << "the other program does not answer";
    EXPECT_EQ(recv(channel, &window, sizeof(window), MSG_DONTWAIT), static_cast<ssize_t>(sizeof(window)));
    return window;
}

void OtherProgram::Resize(xcb_window_t window, Zem::Size client)
{
    Command command{Command::ResizeWindow, window, Zem::Rect({0, 0}, client), false, ""};
    EXPECT_EQ(send(channel, &command, sizeof(command), MSG_NOSIGNAL), static_cast<ssize_t>(sizeof(command)));
}

bool OtherProgram::Take(Zem::WindowMessage& message)
{
    return notes >= 0 && read(notes, &message, sizeof(message)) == static_cast<ssize_t>(sizeof(message));
}

void OtherProgram::Kill()
{
    if (process > 0)
    {
        kill(process, SIGKILL);
        waitpid(process, nullptr, 0);
    }
    if (channel >= 0)
        close(channel);
    if (notes >= 0)
        close(notes);
    process = channel = notes = -1;
}

} // namespace Test
