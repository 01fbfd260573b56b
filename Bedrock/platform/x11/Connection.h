#pragma once

#include <xcb/xcb.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <utility>

/// The connection to the X server, and what every other file of this folder asks of it.
///
/// Requests are sent without waiting for their errors: an error comes back as an event that nobody looks at, so a
/// window of another program that went away a moment ago is no failure of ours. A lost server shows in `Lost` alone.
namespace Zem::Platform::X11
{

/// The atoms that are used, each by its name in the protocols.
enum AtomName : std::size_t
{
    WM_PROTOCOLS,
    WM_DELETE_WINDOW,
    WM_STATE,
    WM_CHANGE_STATE,
    UTF8_STRING,
    _NET_SUPPORTED,
    _NET_SUPPORTING_WM_CHECK,
    _NET_CLIENT_LIST_STACKING,
    _NET_ACTIVE_WINDOW,
    _NET_FRAME_EXTENTS,
    _NET_MOVERESIZE_WINDOW,
    _NET_WM_NAME,
    _NET_WM_PID,
    _NET_WM_PING,
    _NET_WM_STATE,
    _NET_WM_STATE_ABOVE,
    _NET_WM_STATE_FULLSCREEN,
    _NET_WM_STATE_HIDDEN,
    _NET_WM_STATE_MAXIMIZED_HORZ,
    _NET_WM_STATE_MAXIMIZED_VERT,
    _NET_WM_USER_TIME,
    _MOTIF_WM_HINTS,
    AtomCount
};

/// What the server answered, freed with `free` as xcb allocates it; null when there was an error or no server.
template <class T>
class Reply
{
public:
    explicit Reply(T* taken = nullptr) : reply(taken) {}
    Reply(Reply&& other) noexcept : reply(std::exchange(other.reply, nullptr)) {}
    Reply& operator=(Reply&& other) noexcept
    {
        std::swap(reply, other.reply);
        return *this;
    }
    ~Reply() { std::free(reply); }
    explicit operator bool() const { return reply != nullptr; }
    T* operator->() const { return reply; }
    T& operator*() const { return *reply; }
    T* Get() const { return reply; }
    T* Take() { return std::exchange(reply, nullptr); }

private:
    T* reply;
};

/// `XCB_ASK(connection.xcb, get_geometry, window)`: a request and its reply.
#define XCB_ASK(xcb, request, ...)                                                                                     \
    ::Zem::Platform::X11::Reply<xcb_##request##_reply_t>(                                                              \
        xcb_##request##_reply(xcb, xcb_##request(xcb __VA_OPT__(, ) __VA_ARGS__), nullptr))

/// The 32-bit items of a property, up to a limit.
class Words
{
public:
    Words(xcb_connection_t* xcb, xcb_window_t window, xcb_atom_t property, xcb_atom_t type, std::uint32_t most);
    std::uint32_t Count() const { return count; }
    std::uint32_t operator[](std::uint32_t index) const { return items[index]; }
    const std::uint32_t* begin() const { return items; }
    const std::uint32_t* end() const { return items + count; }
    bool Contains(std::uint32_t value) const;

private:
    Reply<xcb_get_property_reply_t> reply;
    const std::uint32_t* items = nullptr;
    std::uint32_t count = 0;
};

/// Which extensions the server has, each in the version that is needed.
struct Extensions
{
    bool randr;
    bool shm; ///< with segments passed as descriptors: the server is on this machine
    bool xkb;
    std::uint8_t xkbEvent;   ///< number of its one event
    std::uint8_t randrEvent; ///< number of the event that the screen has changed
};

class Connection
{
public:
    /// Connects to the server that the environment names. `Lost` tells whether that failed.
    Connection();
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    /// The server is gone, or was never there.
    bool Lost() const { return xcb_connection_has_error(xcb) != 0 || screen == nullptr; }

    xcb_atom_t Atom(AtomName name) const { return atoms[name]; }

    /// Whether a window manager runs now and says that it heeds a hint. One look costs two round trips.
    bool HasManager() const;
    bool ManagerHeeds(AtomName hint) const;

    Words WordsOf(xcb_window_t window, AtomName property, xcb_atom_t type, std::uint32_t most) const
    {
        return Words(xcb, window, Atom(property), type, most);
    }
    void SetWords(xcb_window_t window, xcb_atom_t property, xcb_atom_t type, const std::uint32_t* items,
                  std::uint32_t count) const;
    void SetText(xcb_window_t window, xcb_atom_t property, xcb_atom_t type, const char* text) const;

    /// A client message about `window` to the root, as window managers want them.
    void AskManager(xcb_window_t window, AtomName what, const std::uint32_t (&data)[5]) const;

    void Flush() const { xcb_flush(xcb); }

    xcb_connection_t* xcb;
    xcb_screen_t* screen = nullptr; ///< null when there is no connection
    Extensions extensions{};

private:
    void InternAtoms();
    void QueryExtensions();

    xcb_atom_t atoms[AtomCount]{};
};

} // namespace Zem::Platform::X11
