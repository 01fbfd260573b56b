#include <Bedrock/platform/x11/Connection.h>
#include <Bedrock/platform/x11/Xkb.h>

#include <xcb/randr.h>
#include <xcb/shm.h>

#include <cstring>

namespace Zem::Platform::X11
{

namespace
{

constexpr const char* atomNames[] = {
    "WM_PROTOCOLS",
    "WM_DELETE_WINDOW",
    "WM_STATE",
    "WM_CHANGE_STATE",
    "UTF8_STRING",
    "_NET_SUPPORTED",
    "_NET_SUPPORTING_WM_CHECK",
    "_NET_CLIENT_LIST_STACKING",
    "_NET_ACTIVE_WINDOW",
    "_NET_FRAME_EXTENTS",
    "_NET_MOVERESIZE_WINDOW",
    "_NET_WM_NAME",
    "_NET_WM_PID",
    "_NET_WM_PING",
    "_NET_WM_STATE",
    "_NET_WM_STATE_ABOVE",
    "_NET_WM_STATE_FULLSCREEN",
    "_NET_WM_STATE_HIDDEN",
    "_NET_WM_STATE_MAXIMIZED_HORZ",
    "_NET_WM_STATE_MAXIMIZED_VERT",
    "_NET_WM_USER_TIME",
    "_MOTIF_WM_HINTS",
};
static_assert(sizeof(atomNames) / sizeof(*atomNames) == AtomCount);

} // namespace

Words::Words(xcb_connection_t* xcb, xcb_window_t window, xcb_atom_t property, xcb_atom_t type, std::uint32_t most)
    : reply(XCB_ASK(xcb, get_property, 0, window, property, type, 0, most))
{
    if (!reply || reply->format != 32)
        return;
    items = static_cast<const std::uint32_t*>(xcb_get_property_value(reply.Get()));
    count = static_cast<std::uint32_t>(xcb_get_property_value_length(reply.Get())) / 4;
}

bool Words::Contains(std::uint32_t value) const
{
    for (const std::uint32_t item : *this)
        if (item == value)
            return true;
    return false;
}

Connection::Connection()
{
    int number = 0;
    xcb = xcb_connect(nullptr, &number);
    if (xcb_connection_has_error(xcb))
        return;
    xcb_screen_iterator_t screens = xcb_setup_roots_iterator(xcb_get_setup(xcb));
    for (; screens.rem > 1 && number > 0; --number)
        xcb_screen_next(&screens);
    screen = screens.data;
    InternAtoms();
    QueryExtensions();
}

Connection::~Connection()
{
    xcb_disconnect(xcb);
}

void Connection::InternAtoms()
{
    xcb_intern_atom_cookie_t cookies[AtomCount];
    for (std::size_t i = 0; i < AtomCount; ++i)
        cookies[i] = xcb_intern_atom(xcb, 0, static_cast<std::uint16_t>(std::strlen(atomNames[i])), atomNames[i]);
    for (std::size_t i = 0; i < AtomCount; ++i)
        if (const Reply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(xcb, cookies[i], nullptr)); reply)
            atoms[i] = reply->atom;
}

void Connection::QueryExtensions()
{
    xcb_extension_t* const wanted[] = {&xcb_randr_id, &xcb_shm_id, &xcb_xkb_id};
    for (xcb_extension_t* const extension : wanted)
        xcb_prefetch_extension_data(xcb, extension);
    const auto find = [&](xcb_extension_t& extension)
    {
        const xcb_query_extension_reply_t* const data = xcb_get_extension_data(xcb, &extension);
        return data && data->present ? data : nullptr;
    };
    if (const auto* const data = find(xcb_randr_id))
    {
        const auto version = XCB_ASK(xcb, randr_query_version, 1, 5); // 1.5 knows monitors
        extensions.randrEvent = static_cast<std::uint8_t>(data->first_event + XCB_RANDR_SCREEN_CHANGE_NOTIFY);
        extensions.randr = version && (version->major_version > 1 || version->minor_version >= 5);
    }
    if (find(xcb_shm_id))
    {
        const auto version = XCB_ASK(xcb, shm_query_version); // 1.2 takes segments as descriptors
        extensions.shm = version && (version->major_version > 1 || version->minor_version >= 2);
    }
    if (const auto* const data = find(xcb_xkb_id))
    {
        const auto version = XCB_ASK(xcb, xkb_use_extension, 1, 0);
        extensions.xkb = version && version->supported;
        extensions.xkbEvent = data->first_event;
    }
}

bool Connection::HasManager() const
{
    if (screen == nullptr)
        return false;
    // The property outlives a manager that was killed; the window that it names does not.
    const Words check = WordsOf(screen->root, _NET_SUPPORTING_WM_CHECK, XCB_ATOM_WINDOW, 1);
    if (check.Count() == 0)
        return false;
    const Words itself = WordsOf(check[0], _NET_SUPPORTING_WM_CHECK, XCB_ATOM_WINDOW, 1);
    return itself.Count() == 1 && itself[0] == check[0];
}

bool Connection::ManagerHeeds(AtomName hint) const
{
    return HasManager() && WordsOf(screen->root, _NET_SUPPORTED, XCB_ATOM_ATOM, 1024).Contains(Atom(hint));
}

void Connection::SetWords(xcb_window_t window, xcb_atom_t property, xcb_atom_t type, const std::uint32_t* items,
                          std::uint32_t count) const
{
    xcb_change_property(xcb, XCB_PROP_MODE_REPLACE, window, property, type, 32, count, items);
}

void Connection::SetText(xcb_window_t window, xcb_atom_t property, xcb_atom_t type, const char* text) const
{
    // A longer request than the server allows would end the connection.
    xcb_change_property(xcb, XCB_PROP_MODE_REPLACE, window, property, type, 8,
                        static_cast<std::uint32_t>(strnlen(text, 65535)), text);
}

void Connection::AskManager(xcb_window_t window, AtomName what, const std::uint32_t (&data)[5]) const
{
    xcb_client_message_event_t event{};
    event.response_type = XCB_CLIENT_MESSAGE;
    event.format = 32;
    event.window = window;
    event.type = Atom(what);
    std::memcpy(event.data.data32, data, sizeof(data));
    xcb_send_event(xcb, 0, screen->root, XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT,
                   reinterpret_cast<const char*>(&event));
}

} // namespace Zem::Platform::X11
