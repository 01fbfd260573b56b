// Own windows: making, showing, focus and capture.

#include <Bedrock/platform/x11/X11Desktop.h>

#include <cstdlib>
#include <cstring>
#include <new>
#include <unistd.h>

namespace Zem::Platform::X11
{

namespace
{

// How long a call waits for a window manager: it has a millisecond's work, and may be swapped out, stopped or dying.
constexpr int managerMs = 250;
constexpr int focusMs = 100;

std::int32_t Side(std::int32_t wanted)
{
    return wanted < 1 ? 1 : wanted > 32767 ? 32767 : wanted;
}

// The protocol's coordinates have 16 bits.
std::int32_t Place(std::int64_t wanted)
{
    return static_cast<std::int32_t>(wanted < -32768 ? -32768 : wanted > 32767 ? 32767 : wanted);
}

constexpr std::uint32_t windowEvents = XCB_EVENT_MASK_EXPOSURE | XCB_EVENT_MASK_STRUCTURE_NOTIFY |
                                       XCB_EVENT_MASK_FOCUS_CHANGE | XCB_EVENT_MASK_PROPERTY_CHANGE |
                                       XCB_EVENT_MASK_BUTTON_PRESS | XCB_EVENT_MASK_BUTTON_RELEASE |
                                       XCB_EVENT_MASK_POINTER_MOTION | XCB_EVENT_MASK_ENTER_WINDOW;
constexpr std::uint32_t keyEvents = XCB_EVENT_MASK_KEY_PRESS | XCB_EVENT_MASK_KEY_RELEASE;
constexpr std::uint16_t grabbedEvents =
    XCB_EVENT_MASK_BUTTON_PRESS | XCB_EVENT_MASK_BUTTON_RELEASE | XCB_EVENT_MASK_POINTER_MOTION;

// A copy of a text in UTF-8: bytes that are none are taken as Latin-1. And its Latin-1, with '?' for what that lacks.
class Text
{
public:
    explicit Text(const char* text)
    {
        const std::size_t length = std::strlen(text);
        utf8 = static_cast<char*>(std::malloc(length * 2 + 1));
        latin = static_cast<char*>(std::malloc(length + 1));
        if (!utf8 || !latin)
            return;
        char *u = utf8, *l = latin;
        for (const auto* at = reinterpret_cast<const unsigned char*>(text); *at;)
        {
            std::uint32_t code = *at;
            const int bytes = Decode(at, code);
            if (bytes == 1 && code >= 0x80)
            {
                *u++ = static_cast<char>(0xC0 | code >> 6);
                *u++ = static_cast<char>(0x80 | (code & 0x3F));
            }
            for (int i = 0; i < bytes && !(bytes == 1 && code >= 0x80); ++i)
                *u++ = static_cast<char>(at[i]);
            *l++ = static_cast<char>(code < 0x100 ? code : '?');
            at += bytes;
        }
        *u = *l = 0;
    }
    ~Text()
    {
        std::free(utf8);
        std::free(latin);
    }
    Text(const Text&) = delete;
    Text& operator=(const Text&) = delete;

    const char* Utf8() const { return utf8 && latin ? utf8 : ""; }
    const char* Latin() const { return utf8 && latin ? latin : ""; }

private:
    // Bytes of the character at `at`, 1 where none is well formed.
    static int Decode(const unsigned char* at, std::uint32_t& code)
    {
        constexpr std::uint32_t least[] = {0, 0, 0x80, 0x800, 0x10000};
        const int bytes = at[0] >= 0xF0 && at[0] < 0xF8   ? 4
                          : at[0] >= 0xE0 && at[0] < 0xF0 ? 3
                          : at[0] >= 0xC0 && at[0] < 0xE0 ? 2
                                                          : 1;
        if (bytes == 1)
            return 1;
        std::uint32_t value = at[0] & (0xFFU >> (bytes + 1));
        for (int i = 1; i < bytes; ++i)
        {
            if ((at[i] & 0xC0) != 0x80) // the terminator too
                return 1;
            value = value << 6 | (at[i] & 0x3FU);
        }
        if (value < least[bytes] || value > 0x10FFFF || (value >= 0xD800 && value < 0xE000))
            return 1;
        code = value;
        return bytes;
    }

    char* utf8;
    char* latin;
};

} // namespace

// ------------------------------------------------------------------------------------------------------------ The list

OwnWindow* X11Desktop::Find(std::uintptr_t window)
{
    for (OwnWindow* own = windows; own; own = own->next)
        if (own->id == window)
            return own;
    return nullptr;
}

bool X11Desktop::IsInside(const OwnWindow& own, const OwnWindow& ancestor)
{
    for (const OwnWindow* at = &own; at; at = ParentOf(*at))
        if (at == &ancestor)
            return true;
    return false;
}

bool X11Desktop::OnScreen(const OwnWindow& own)
{
    for (const OwnWindow* at = &own; at; at = ParentOf(*at))
        if (!at->shown || at->minimised)
            return false;
    return true;
}

// The window that is active when this one has the keyboard; for the child of a foreign one that.
xcb_window_t X11Desktop::TopOf(const OwnWindow* own)
{
    while (own && own->parent)
    {
        const OwnWindow* const parent = ParentOf(*own);
        if (!parent)
            return own->parent;
        own = parent;
    }
    return own ? own->id : 0;
}

void X11Desktop::Unlink(OwnWindow* own)
{
    for (OwnWindow** at = &windows; *at; at = &(*at)->next)
        if (*at == own)
        {
            *at = own->next;
            break;
        }
    queue.Forget(own->id);
    if (focus == own)
    {
        focus = nullptr;
        focusLost = false;
    }
    if (focusTold == own)
        focusTold = nullptr;
    if (capture == own)
        capture = nullptr;
    if (own->gc)
        xcb_free_gc(connection.xcb, own->gc);
}

// Takes a window and its own children out of the list; with `tell` these and it are told that they are destroyed.
void X11Desktop::Forget(OwnWindow* own, bool tell)
{
    for (bool again = true; again;)
    {
        again = false;
        for (OwnWindow* child = windows; child && !again; child = child->next)
            if (child->parent == own->id)
            {
                Forget(child, tell);
                again = true;
            }
    }
    Unlink(own);
    if (tell)
        Tell(*own, MessageDestroy, 0, 0);
    std::free(own);
}

// ------------------------------------------------------------------------------------------------------------ Making

WindowHandle X11Desktop::CreateWindow(const WindowRequest& request) noexcept
{
    Pump();
    void* const memory = connection.Lost() ? nullptr : std::malloc(sizeof(OwnWindow));
    if (!memory)
        return {0};
    OwnWindow* const own = new (memory) OwnWindow{};
    own->id = xcb_generate_id(connection.xcb);
    own->kind = request.kind;
    own->client = Rect({0, 0}, Size{Side(request.client.width), Side(request.client.height)});
    own->placed = request.placed;
    if (request.kind == WindowKind::Child)
    {
        if (!CreateChild(*own, request))
        {
            std::free(own);
            return {0};
        }
    }
    else
        CreateTop(*own, request);
    if (!pointerShown)
        xcb_change_window_attributes(connection.xcb, own->id, XCB_CW_CURSOR, &blank);
    OwnWindow** end = &windows;
    while (*end)
        end = &(*end)->next;
    *end = own;
    if (SetTitle({own->id}, request.title))
        return {own->id};
    HandleLoss();
    return {0};
}

bool X11Desktop::CreateChild(OwnWindow& own, const WindowRequest& request)
{
    const auto id = static_cast<xcb_window_t>(request.parent.value);
    if (id != request.parent.value || id == 0)
        return false;
    const auto parent = XCB_ASK(connection.xcb, get_geometry, id);
    if (!parent)
        return false;
    own.parent = id;
    own.parentSize = {parent->width, parent->height};
    own.corner = request.placed ? Point{Place(request.corner.x), Place(request.corner.y)} : Point{0, 0};
    // In a parent whose pixels have an alpha black is opaque all the same.
    const std::uint32_t black = parent->depth == 32 ? 0xFF000000U : connection.screen->black_pixel;
    const std::uint32_t values[] = {black, XCB_GRAVITY_NORTH_WEST, windowEvents};
    const xcb_void_cookie_t made = xcb_create_window_checked(
        connection.xcb, XCB_COPY_FROM_PARENT, own.id, id, static_cast<std::int16_t>(own.corner.x),
        static_cast<std::int16_t>(own.corner.y), static_cast<std::uint16_t>(own.client.width),
        static_cast<std::uint16_t>(own.client.height), 0, XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT,
        XCB_CW_BACK_PIXEL | XCB_CW_BIT_GRAVITY | XCB_CW_EVENT_MASK, values);
    if (const Reply<xcb_generic_error_t> error(xcb_request_check(connection.xcb, made)); error || connection.Lost())
        return false;
    if (!Find(id)) // its size is told to the child
    {
        const std::uint32_t structure = XCB_EVENT_MASK_STRUCTURE_NOTIFY;
        xcb_change_window_attributes(connection.xcb, id, XCB_CW_EVENT_MASK, &structure);
    }
    own.placeStale = anyStale = true;
    return true;
}

void X11Desktop::CreateTop(OwnWindow& own, const WindowRequest& request)
{
    const Rect& screen = Monitor();
    if (own.kind == WindowKind::FullScreen)
    {
        // A manager makes it as large as the monitor, whatever it was; without one it is what was asked for.
        own.placed = true;
        own.corner = screen;
        own.client = Rect(own.corner, own.client);
    }
    else
    {
        own.corner = request.placed ? Point{Place(std::int64_t{request.corner.x} + screen.x),
                                            Place(std::int64_t{request.corner.y} + screen.y)}
                                    : Point(screen);
        own.client = Rect(own.corner, own.client);
    }
    own.normal = own.client;
    const std::uint32_t values[] = {connection.screen->black_pixel, XCB_GRAVITY_NORTH_WEST, windowEvents | keyEvents};
    xcb_create_window(connection.xcb, XCB_COPY_FROM_PARENT, own.id, connection.screen->root,
                      static_cast<std::int16_t>(own.corner.x), static_cast<std::int16_t>(own.corner.y),
                      static_cast<std::uint16_t>(own.client.width), static_cast<std::uint16_t>(own.client.height), 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT,
                      XCB_CW_BACK_PIXEL | XCB_CW_BIT_GRAVITY | XCB_CW_EVENT_MASK, values);

    const std::uint32_t protocols[] = {connection.Atom(WM_DELETE_WINDOW), connection.Atom(_NET_WM_PING)};
    connection.SetWords(own.id, connection.Atom(WM_PROTOCOLS), XCB_ATOM_ATOM, protocols, 2);
    // Flags: input and state are given. The window takes the keyboard as it is given it; it begins as a normal one.
    const std::uint32_t hints[9] = {3, 1, 1};
    connection.SetWords(own.id, XCB_ATOM_WM_HINTS, XCB_ATOM_WM_HINTS, hints, 9);
    // Functions 4 and 32, move and close; decorations 2, 8 and 16, border, title and menu, or none.
    const bool framed = own.kind == WindowKind::Framed;
    const std::uint32_t motif[5] = {framed ? 3U : 2U, 4 | 32, framed ? 2U | 8 | 16 : 0U, 0, 0};
    connection.SetWords(own.id, connection.Atom(_MOTIF_WM_HINTS), connection.Atom(_MOTIF_WM_HINTS), motif, 5);
    if (const auto owner = static_cast<xcb_window_t>(request.parent.value); owner && own.kind == WindowKind::FullScreen)
        connection.SetWords(own.id, XCB_ATOM_WM_TRANSIENT_FOR, XCB_ATOM_WINDOW, &owner, 1);

    // Instance and class, each with its terminator.
    const Text name(request.className);
    char both[512];
    const std::size_t length = std::strlen(name.Latin()) < 255 ? std::strlen(name.Latin()) : 255;
    for (std::size_t i = 0; i < 2; ++i)
    {
        std::memcpy(both + i * (length + 1), name.Latin(), length);
        both[i * (length + 1) + length] = 0;
    }
    xcb_change_property(connection.xcb, XCB_PROP_MODE_REPLACE, own.id, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 8,
                        static_cast<std::uint32_t>(2 * (length + 1)), both);
    // With the machine's name the number of the process lets a manager end it when it no longer answers.
    char machine[256] = "";
    if (gethostname(machine, sizeof(machine) - 1) == 0)
    {
        connection.SetText(own.id, XCB_ATOM_WM_CLIENT_MACHINE, XCB_ATOM_STRING, machine);
        const auto process = static_cast<std::uint32_t>(getpid());
        connection.SetWords(own.id, connection.Atom(_NET_WM_PID), XCB_ATOM_CARDINAL, &process, 1);
    }
    SetHints(own);
}

// Place, size and state as they are to be when the window is shown next.
void X11Desktop::SetHints(const OwnWindow& own)
{
    constexpr std::uint32_t userPlace = 1, programPlace = 4, programSize = 8, least = 16, most = 32, gravity = 512;
    const auto u = [](std::int32_t value) { return static_cast<std::uint32_t>(value); };
    const std::uint32_t width = u(own.client.width), height = u(own.client.height);
    const bool fixed = own.kind == WindowKind::Framed; // a full-screen one must be allowed to grow
    const std::uint32_t hints[18] = {programSize | gravity | (own.placed ? userPlace | programPlace : 0) |
                                         (fixed ? least | most : 0),
                                     u(own.corner.x),
                                     u(own.corner.y),
                                     width,
                                     height,
                                     width,
                                     height,
                                     width,
                                     height,
                                     0,
                                     0,
                                     0,
                                     0,
                                     0,
                                     0,
                                     0,
                                     0,
                                     XCB_GRAVITY_NORTH_WEST};
    connection.SetWords(own.id, XCB_ATOM_WM_NORMAL_HINTS, XCB_ATOM_WM_SIZE_HINTS, hints, 18);
    if (own.kind == WindowKind::FullScreen && Withdrawn(own))
    {
        const std::uint32_t states[] = {connection.Atom(_NET_WM_STATE_FULLSCREEN),
                                        connection.Atom(_NET_WM_STATE_ABOVE)};
        connection.SetWords(own.id, connection.Atom(_NET_WM_STATE), XCB_ATOM_ATOM, states, 2);
    }
}

bool X11Desktop::Withdrawn(const OwnWindow& own)
{
    return !own.shown || (!own.mapped && !own.minimised);
}

bool X11Desktop::DestroyWindow(WindowHandle window) noexcept
{
    Pump();
    OwnWindow* const own = Find(window.value);
    if (!own || lost)
        return false;
    Forget(own, false);
    xcb_destroy_window(connection.xcb, static_cast<xcb_window_t>(window.value));
    return Sync();
}

// Asked once a frame: what is not read yet has not happened.
bool X11Desktop::IsOwn(WindowHandle window) noexcept
{
    return Find(window.value) != nullptr;
}

bool X11Desktop::SetTitle(WindowHandle window, const char* title) noexcept
{
    const OwnWindow* const own = Find(window.value);
    if (!own || connection.Lost())
        return false;
    const Text text(title);
    connection.SetText(own->id, connection.Atom(_NET_WM_NAME), connection.Atom(UTF8_STRING), text.Utf8());
    connection.SetText(own->id, XCB_ATOM_WM_NAME, XCB_ATOM_STRING, text.Latin());
    return Sync();
}

// ------------------------------------------------------------------------------------------------------------ Showing

bool X11Desktop::Show(WindowHandle window, bool visible) noexcept
{
    Pump();
    OwnWindow* own = Find(window.value);
    if (!own || lost)
        return false;
    if (visible == (own->shown && !own->minimised))
        return true;
    if (!visible)
    {
        Hide(*own);
        return !connection.Lost();
    }
    const bool manager = own->kind != WindowKind::Child && connection.HasManager();
    SetHints(*own);
    const bool wasMinimised = own->minimised;
    own->shown = own->everShown = true;
    const auto again = [&]
    {
        own = Find(window.value);
        return own != nullptr;
    }; // events may have taken it
    if (wasMinimised && manager)
        Activate(own->id);
    xcb_map_window(connection.xcb, own->id);
    if (!manager)
        own->minimised = false;
    if (own->kind == WindowKind::Child)
    {
        Settle(managerMs, [&] { return !again() || own->mapped; });
        if (again() && !own->told)
            TellShape(*own, true);
        return own != nullptr;
    }
    if (!manager)
    {
        const std::uint32_t above = XCB_STACK_MODE_ABOVE;
        xcb_configure_window(connection.xcb, own->id, XCB_CONFIG_WINDOW_STACK_MODE, &above);
    }
    Settle(managerMs, [&] { return !again() || (own->mapped && !own->minimised && (!manager || own->managed)); });
    if (!again())
        return false;
    if (own->told)
        TellFamily(*own); // no longer minimised
    if (!manager)
        Activate(own->id);
    Settle(focusMs, [&] { return !again() || (focus && TopOf(focus) == own->id); });
    if (!again())
        return false;
    if (!own->told) // nobody has mapped it in time: its shape is what was asked for
        TellShape(*own, true);
    return true;
}

void X11Desktop::Hide(OwnWindow& hidden)
{
    OwnWindow* own = &hidden;
    const xcb_window_t id = own->id;
    own->shown = false;
    own->minimised = false;
    own->paint = false;
    if (capture && IsInside(*capture, *own))
    {
        xcb_ungrab_pointer(connection.xcb, XCB_CURRENT_TIME);
        capture = nullptr;
    }
    if (own->kind != WindowKind::Child)
        own->corner = Point{own->client.x - own->frame.left, own->client.y - own->frame.top};
    xcb_unmap_window(connection.xcb, id);
    if (own->kind != WindowKind::Child)
    {
        // A manager that had the window unmapped already learns from this that it is withdrawn.
        xcb_unmap_notify_event_t event{};
        event.response_type = XCB_UNMAP_NOTIFY;
        event.event = connection.screen->root;
        event.window = id;
        xcb_send_event(connection.xcb, 0, connection.screen->root,
                       XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT,
                       reinterpret_cast<const char*>(&event));
    }
    Settle(managerMs,
           [&]
           {
               own = Find(id);
               return !own || (!own->mapped && !own->managed);
           });
    Sync();
    Pump();
}

bool X11Desktop::IsVisible(WindowHandle window) noexcept
{
    Pump();
    if (lost)
        return false;
    const OwnWindow* own = Find(window.value);
    if (!own)
    {
        const auto id = static_cast<xcb_window_t>(window.value);
        const auto attributes = XCB_ASK(connection.xcb, get_window_attributes, id);
        return id == window.value && attributes && (attributes->map_state == XCB_MAP_STATE_VIEWABLE || IsIconic(id));
    }
    for (; own; own = ParentOf(*own))
    {
        if (!own->shown)
            return false;
        if (own->parent && !Find(own->parent))
            return IsVisible({own->parent});
    }
    return true;
}

bool X11Desktop::IsMinimised(WindowHandle window) noexcept
{
    Pump();
    if (lost)
        return false;
    if (const OwnWindow* const own = Find(window.value))
        return own->minimised;
    return IsIconic(static_cast<xcb_window_t>(window.value));
}

bool X11Desktop::Resize(WindowHandle window, Size wanted) noexcept
{
    Pump();
    const auto id = static_cast<xcb_window_t>(window.value);
    if (lost || id != window.value)
        return false;
    const Size size{Side(wanted.width), Side(wanted.height)};
    const std::uint32_t values[] = {static_cast<std::uint32_t>(size.width), static_cast<std::uint32_t>(size.height)};
    OwnWindow* own = Find(window.value);
    if (own)
    {
        if (Size(own->client) == size)
            return true;
        if (own->kind != WindowKind::Child)
        {
            const Size before = own->client;
            static_cast<Size&>(own->client) = size;
            SetHints(*own); // least and most size
            static_cast<Size&>(own->client) = before;
        }
    }
    const auto asked =
        xcb_configure_window_checked(connection.xcb, id, XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT, values);
    if (const Reply<xcb_generic_error_t> error(xcb_request_check(connection.xcb, asked)); error || connection.Lost())
        return false;
    if (own)
        return Settle(managerMs,
                      [&]
                      {
                          own = Find(window.value);
                          return !own || Size(own->client) == size;
                      }) &&
               own;
    Rect now;
    Settle(focusMs, [&] { return !ClientOf(id, now) || Size(now) == size; });
    return true;
}

// ------------------------------------------------------------------------------------------------ Focus and capture

WindowHandle X11Desktop::Focus() noexcept
{
    Pump();
    return {focus ? focus->id : 0};
}

// Brings a top-level window to the front with the keyboard.
void X11Desktop::Activate(xcb_window_t window)
{
    if (connection.ManagerHeeds(_NET_ACTIVE_WINDOW))
    {
        // Source 2, the user's own wish: what the application asks for here it asks for because of him.
        connection.AskManager(window, _NET_ACTIVE_WINDOW, {2, time, 0, 0, 0});
        return;
    }
    const std::uint32_t above = XCB_STACK_MODE_ABOVE;
    xcb_configure_window(connection.xcb, window, XCB_CONFIG_WINDOW_STACK_MODE, &above);
    xcb_set_input_focus(connection.xcb, XCB_INPUT_FOCUS_POINTER_ROOT, window, XCB_CURRENT_TIME);
}

bool X11Desktop::SetFocus(WindowHandle window) noexcept
{
    Pump();
    OwnWindow* own = Find(window.value);
    if (!own || lost || !OnScreen(*own))
        return false;
    if (own == focus && !focusLost)
        return true;
    const auto again = [&]
    {
        own = Find(window.value);
        return own != nullptr;
    };
    // The keyboard may reach a child by way of its top-level window: what is told is where it comes to.
    struct Hold
    {
        explicit Hold(X11Desktop& held) : desktop(held) { desktop.focusHeld = true; }
        ~Hold()
        {
            desktop.focusHeld = false;
            desktop.TellFocus();
        }
        Hold(const Hold&) = delete;
        Hold& operator=(const Hold&) = delete;

        X11Desktop& desktop;
    } const hold(*this);
    const xcb_window_t top = TopOf(own);
    if (!focus || TopOf(focus) != top)
    {
        xcb_window_t raised = top;
        while (own->kind == WindowKind::Child && !IsTopLevel(raised))
        {
            const auto tree = XCB_ASK(connection.xcb, query_tree, raised);
            if (!tree || tree->parent == 0)
                break;
            raised = tree->parent;
        }
        Activate(raised);
        Settle(focusMs, [&] { return !again() || (focus && TopOf(focus) == top) || raised != top; });
        if (!again())
            return false;
    }
    if (own != focus)
    {
        if (own->kind == WindowKind::Child)
            SelectEvents(*own, true);
        xcb_set_input_focus(connection.xcb, XCB_INPUT_FOCUS_PARENT, own->id, XCB_CURRENT_TIME);
        Settle(focusMs, [&] { return !again() || focus == own; });
    }
    return again() && focus == own;
}

// A child asks for keys while it has the keyboard alone; otherwise they go to the window that has it.
void X11Desktop::SelectEvents(const OwnWindow& own, bool keys)
{
    const std::uint32_t events = windowEvents | (keys ? keyEvents : 0);
    xcb_change_window_attributes(connection.xcb, own.id, XCB_CW_EVENT_MASK, &events);
}

bool X11Desktop::SetCapture(WindowHandle window) noexcept
{
    Pump();
    if (lost)
        return false;
    if (window.value == 0)
    {
        if (capture)
            xcb_ungrab_pointer(connection.xcb, XCB_CURRENT_TIME);
        capture = nullptr;
        return Sync();
    }
    const OwnWindow* const own = Find(window.value);
    if (!own || !OnScreen(*own))
        return false;
    // A window manager holds the pointer for a moment after a click that it looked at first.
    std::uint8_t status = XCB_GRAB_STATUS_NOT_VIEWABLE;
    for (int tries = 0; tries < 20; ++tries)
    {
        const auto grab = XCB_ASK(connection.xcb, grab_pointer, 0, own->id, grabbedEvents, XCB_GRAB_MODE_ASYNC,
                                  XCB_GRAB_MODE_ASYNC, XCB_NONE, XCB_NONE, XCB_CURRENT_TIME);
        if (!grab)
            return false;
        status = grab->status;
        if (status != XCB_GRAB_STATUS_ALREADY_GRABBED && status != XCB_GRAB_STATUS_FROZEN)
            break;
        usleep(5000);
    }
    if (status != XCB_GRAB_STATUS_SUCCESS)
        return false;
    capture = Find(window.value);
    return true;
}

WindowHandle X11Desktop::Capture() noexcept
{
    Pump();
    return {capture ? capture->id : 0};
}

} // namespace Zem::Platform::X11
