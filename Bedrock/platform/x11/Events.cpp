// From the server's events to messages, and what is known of the windows from them.

#include <Bedrock/platform/x11/X11Desktop.h>

#include <cstdlib>
#include <cstring>

namespace Zem::Platform::X11
{

namespace
{

constexpr std::uint8_t left = 1, middle = 2, right = 3, wheelUp = 4, wheelDown = 5, wheelLeft = 6, wheelRight = 7;

std::uint32_t MouseState(std::uint16_t state)
{
    return (state & XCB_BUTTON_MASK_1 ? MouseLeft : 0U) | (state & XCB_BUTTON_MASK_2 ? MouseMiddle : 0U) |
           (state & XCB_BUTTON_MASK_3 ? MouseRight : 0U) | (state & XCB_MOD_MASK_SHIFT ? MouseShift : 0U) |
           (state & XCB_MOD_MASK_CONTROL ? MouseControl : 0U);
}

} // namespace

// ------------------------------------------------------------------------------------------------------------ Telling

void X11Desktop::Tell(const OwnWindow& own, std::uint32_t number, std::uintptr_t first, std::uintptr_t second)
{
    queue.Push({{own.id, number, first, second}, ""});
}

// A Size or a Move in place of one that waits, unless it is what was told last.
void X11Desktop::TellLatest(OwnWindow& own, std::uint32_t number, std::uintptr_t first, std::uintptr_t second)
{
    const bool known = number == MessageSize ? own.sizeTold && own.toldKind == first && own.toldSize == second
                                             : own.placeTold && own.toldPlace == second;
    if (known)
        queue.Remove(own.id, number);
    else
        queue.PushLatest({{own.id, number, first, second}, ""});
}

// A window's own shape; to a child, but at its first showing, that of its parent.
void X11Desktop::TellShape(OwnWindow& own, bool first)
{
    if (!own.everShown || (!first && !own.told))
        return;
    own.told = true;
    Size size = own.client;
    bool minimised = own.minimised, maximised = own.maximised;
    const Point origin = Origin();
    Point place{own.client.x - origin.x, own.client.y - origin.y};
    if (own.kind == WindowKind::Child)
    {
        place = own.corner;
        const OwnWindow* const parent = ParentOf(own);
        minimised = parent && parent->minimised && !first;
        maximised = parent && parent->maximised && !first;
        if (!first)
            size = parent ? Size(parent->client) : own.parentSize;
    }
    if (!minimised)
        TellLatest(own, MessageMove, 0, Pack(place.x, place.y));
    TellLatest(own, MessageSize,
               minimised   ? SizeMinimised
               : maximised ? SizeMaximised
                           : SizeRestored,
               minimised ? 0 : Pack(size.width, size.height));
}

// The window that has the keyboard now, null for none of ours.
void X11Desktop::GiveKeyboard(OwnWindow* own)
{
    focusLost = false;
    focus = own;
    if (!focusHeld)
        TellFocus();
}

// Tells who has lost the keyboard since the last time, and who has got it.
void X11Desktop::TellFocus()
{
    OwnWindow* const before = focusTold;
    OwnWindow* const own = focus;
    if (own == before)
        return;
    focusTold = own;
    const xcb_window_t topBefore = TopOf(before), top = TopOf(own);
    if (before)
    {
        if (const OwnWindow* const active = Find(topBefore); active && topBefore != top)
            Tell(*active, MessageActivate, 0, 0);
        Tell(*before, MessageFocusLost, 0, 0);
        if (before->kind == WindowKind::Child)
            SelectEvents(*before, false);
    }
    if (own)
    {
        if (const OwnWindow* const active = Find(top); active && topBefore != top)
            Tell(*active, MessageActivate, 1, 0);
        Tell(*own, MessageFocus, 0, 0);
        if (own->kind == WindowKind::Child)
            SelectEvents(*own, true);
    }
    else
        keyboard.ForgetKeys();
}

// ------------------------------------------------------------------------------------------------------------ Reading

// Takes all that has arrived, without waiting.
void X11Desktop::Pump()
{
    if (lost)
        return;
    for (;;)
    {
        if (Reply<xcb_generic_event_t> event(xcb_poll_for_event(connection.xcb)); event)
            Handle(*event);
        else if (anyStale && !connection.Lost())
            RefreshStale(); // asks the server, and further events may arrive with its answer
        else
            break;
    }
    if (focusLost)
        GiveKeyboard(nullptr);
    if (connection.Lost())
        HandleLoss();
    else
        connection.Flush();
}

void X11Desktop::HandleLoss()
{
    lost = true;
    while (windows)
    {
        OwnWindow* own = windows;
        while (OwnWindow* const parent = ParentOf(*own)) // a whole family at once, its children told first
            own = parent;
        Forget(own, true);
    }
}

void X11Desktop::Handle(const xcb_generic_event_t& event)
{
    const auto as = [&]<class T>(const T*) -> const T& { return reinterpret_cast<const T&>(event); };
    const std::uint8_t type = event.response_type & 0x7F;
    // What programs send, and not the server: input is taken as forwarded, places and messages as a manager's. What
    // becomes of a window only the server knows.
    if ((event.response_type & 0x80) && type > XCB_MOTION_NOTIFY && type != XCB_CONFIGURE_NOTIFY &&
        type != XCB_CLIENT_MESSAGE)
        return;
    switch (type)
    {
    case 0: // an error: what it was about is gone, and its going is told otherwise
        return;
    case XCB_KEY_PRESS:
    case XCB_KEY_RELEASE:
        HandleKey(as(static_cast<xcb_key_press_event_t*>(nullptr)), type == XCB_KEY_PRESS);
        return;
    case XCB_BUTTON_PRESS:
    case XCB_BUTTON_RELEASE:
        HandleButton(as(static_cast<xcb_button_press_event_t*>(nullptr)), type == XCB_BUTTON_PRESS);
        return;
    case XCB_MOTION_NOTIFY:
    {
        const auto& motion = as(static_cast<xcb_motion_notify_event_t*>(nullptr));
        HandleMove(motion.event, motion.child, motion.state, {motion.event_x, motion.event_y});
        return;
    }
    case XCB_ENTER_NOTIFY:
    {
        const auto& enter = as(static_cast<xcb_enter_notify_event_t*>(nullptr));
        const bool under = enter.detail == XCB_NOTIFY_DETAIL_ANCESTOR || enter.detail == XCB_NOTIFY_DETAIL_INFERIOR ||
                           enter.detail == XCB_NOTIFY_DETAIL_NONLINEAR;
        if (under && enter.mode != XCB_NOTIFY_MODE_GRAB)
            HandleMove(enter.event, 0, enter.state, {enter.event_x, enter.event_y});
        return;
    }
    case XCB_FOCUS_IN:
    case XCB_FOCUS_OUT:
        HandleFocus(as(static_cast<xcb_focus_in_event_t*>(nullptr)), type == XCB_FOCUS_IN);
        return;
    case XCB_EXPOSE:
        if (OwnWindow* const own = Find(as(static_cast<xcb_expose_event_t*>(nullptr)).window))
            own->paint = true;
        return;
    case XCB_CONFIGURE_NOTIFY:
        HandleConfigure(as(static_cast<xcb_configure_notify_event_t*>(nullptr)));
        return;
    case XCB_REPARENT_NOTIFY:
        if (OwnWindow* const own = Find(as(static_cast<xcb_reparent_notify_event_t*>(nullptr)).window))
        {
            own->reparented = as(static_cast<xcb_reparent_notify_event_t*>(nullptr)).parent != connection.screen->root;
            own->placeStale = anyStale = true;
        }
        return;
    case XCB_MAP_NOTIFY:
        if (OwnWindow* const own = Find(as(static_cast<xcb_map_notify_event_t*>(nullptr)).window))
        {
            own->mapped = true;
            if (!own->told)
                own->placeStale = anyStale = true;
        }
        return;
    case XCB_UNMAP_NOTIFY:
        if (OwnWindow* const own = Find(as(static_cast<xcb_unmap_notify_event_t*>(nullptr)).window))
        {
            own->mapped = false;
            if (capture && IsInside(*capture, *own))
                capture = nullptr; // the server ended it
        }
        return;
    case XCB_DESTROY_NOTIFY:
        if (OwnWindow* const own = Find(as(static_cast<xcb_destroy_notify_event_t*>(nullptr)).window))
            Forget(own, true);
        return;
    case XCB_PROPERTY_NOTIFY:
        HandleProperty(as(static_cast<xcb_property_notify_event_t*>(nullptr)));
        return;
    case XCB_CLIENT_MESSAGE:
        HandleClient(as(static_cast<xcb_client_message_event_t*>(nullptr)));
        return;
    case XCB_MAPPING_NOTIFY:
        keyboard.MapChanged();
        return;
    default:
        if (connection.extensions.xkb && type == connection.extensions.xkbEvent)
            keyboard.MapChanged();
        else if (connection.extensions.randr && type == connection.extensions.randrEvent)
            monitorStale = true;
        return;
    }
}

// ------------------------------------------------------------------------------------------------------------ Shape

void X11Desktop::HandleConfigure(const xcb_configure_notify_event_t& event)
{
    const Size size{event.width ? event.width : 1, event.height ? event.height : 1};
    if (OwnWindow* const own = Find(event.window))
    {
        static_cast<Size&>(own->client) = size;
        if (own->kind == WindowKind::Child)
            own->corner = {event.x, event.y};
        else if (!own->reparented || (event.response_type & 0x80))
        {
            // In the terms of the root window also when the manager sends it about a window in a frame. While a manager
            // plays with the frame, the window is elsewhere for a moment: only this is where it belongs.
            static_cast<Point&>(own->client) = {event.x, event.y};
            UpdateNormal(*own);
            TellFamily(*own);
            return;
        }
        own->placeStale = anyStale = true;
        return;
    }
    for (OwnWindow* own = windows; own; own = own->next)
        if (own->parent == event.window && !(own->parentSize == size))
        {
            own->parentSize = size;
            TellShape(*own, false);
        }
}

// The place on the root window, frame and state of a window.
void X11Desktop::Refresh(OwnWindow& own)
{
    own.placeStale = false;
    const auto place = XCB_ASK(connection.xcb, translate_coordinates, own.id, connection.screen->root, 0, 0);
    if (!place)
        return; // destroyed, and that will be told
    own.client.x = place->dst_x;
    own.client.y = place->dst_y;
    own.frame = own.kind != WindowKind::Child && own.managed ? FrameOf(own.id) : Frame{};
    UpdateNormal(own);
}

void X11Desktop::UpdateNormal(OwnWindow& own)
{
    if (own.kind != WindowKind::Child && !own.minimised && !own.maximised)
        own.normal = Rect(own.client.x - own.frame.left, own.client.y - own.frame.top,
                          own.client.width + own.frame.left + own.frame.right,
                          own.client.height + own.frame.top + own.frame.bottom);
}

// Tells a window and its own children what is new of its shape.
void X11Desktop::TellFamily(OwnWindow& own)
{
    if (own.mapped || own.told)
        TellShape(own, !own.told);
    for (OwnWindow* child = windows; child; child = child->next)
        if (child->parent == own.id)
            TellShape(*child, false);
}

void X11Desktop::RefreshStale()
{
    anyStale = false;
    for (OwnWindow* own = windows; own; own = own->next)
    {
        if (!own->placeStale)
            continue;
        Refresh(*own);
        TellFamily(*own);
    }
}

void X11Desktop::HandleProperty(const xcb_property_notify_event_t& event)
{
    OwnWindow* const own = Find(event.window);
    if (!own || own->kind == WindowKind::Child)
        return;
    if (event.atom == connection.Atom(WM_STATE) || event.atom == connection.Atom(_NET_WM_STATE))
        ReadState(*own);
    else if (event.atom == connection.Atom(_NET_FRAME_EXTENTS))
        own->placeStale = anyStale = true;
}

void X11Desktop::ReadState(OwnWindow& own)
{
    constexpr std::uint32_t iconic = 3;
    const Words state = connection.WordsOf(own.id, WM_STATE, XCB_ATOM_ANY, 2);
    const Words states = connection.WordsOf(own.id, _NET_WM_STATE, XCB_ATOM_ATOM, 64);
    const bool managed = state.Count() > 0 && state[0] != 0;
    if (managed != own.managed)
        own.placeStale = anyStale = true; // a frame came or went
    own.managed = managed;
    if (!own.shown)
        return;
    // A manager with several desktops calls windows of the others iconic too; it marks those that are minimised.
    own.minimised = states.Contains(connection.Atom(_NET_WM_STATE_HIDDEN)) ||
                    (own.managed && state[0] == iconic && !connection.ManagerHeeds(_NET_WM_STATE_HIDDEN));
    own.maximised = states.Contains(connection.Atom(_NET_WM_STATE_MAXIMIZED_HORZ)) &&
                    states.Contains(connection.Atom(_NET_WM_STATE_MAXIMIZED_VERT));
    if (own.told)
        TellFamily(own);
}

// ------------------------------------------------------------------------------------------------ Focus and protocols

void X11Desktop::HandleFocus(const xcb_focus_in_event_t& event, bool in)
{
    // A grab, as for a manager's shortcuts, takes keys for a while and no keyboard; virtual ones pass through.
    const bool real = event.detail == XCB_NOTIFY_DETAIL_ANCESTOR || event.detail == XCB_NOTIFY_DETAIL_INFERIOR ||
                      event.detail == XCB_NOTIFY_DETAIL_NONLINEAR;
    OwnWindow* const own = Find(event.event);
    if (!own || !real || event.mode == XCB_NOTIFY_MODE_GRAB || event.mode == XCB_NOTIFY_MODE_UNGRAB)
        return;
    if (in)
    {
        if (own->kind != WindowKind::Child && !own->told)
        {
            Refresh(*own); // it learns how large it is before it is told to work
            TellFamily(*own);
        }
        GiveKeyboard(own);
    }
    else if (own == focus)
        focusLost = true; // unless another of our windows gets it next
}

void X11Desktop::HandleClient(const xcb_client_message_event_t& event)
{
    const OwnWindow* const own = Find(event.window);
    if (!own || event.type != connection.Atom(WM_PROTOCOLS) || event.format != 32)
        return;
    if (event.data.data32[0] == connection.Atom(WM_DELETE_WINDOW))
    {
        Point place{0, 0};
        Pointer(place);
        Tell(*own, MessageSystemCommand, CommandClose, Pack(place.x, place.y));
    }
    else if (event.data.data32[0] == connection.Atom(_NET_WM_PING))
    {
        xcb_client_message_event_t answer = event;
        answer.window = connection.screen->root;
        xcb_send_event(connection.xcb, 0, connection.screen->root,
                       XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT,
                       reinterpret_cast<const char*>(&answer));
    }
}

// ------------------------------------------------------------------------------------------------------------ Input

void X11Desktop::HandleKey(const xcb_key_press_event_t& event, bool pressed)
{
    modifiers = event.state;
    time = event.time;
    const KeyStroke stroke =
        pressed ? keyboard.Press(event.detail, event.state) : keyboard.Release(event.detail, event.state);
    // The server hands keys to what lies under the pointer inside of the window that has the keyboard.
    if (!focus || focusLost)
        return;
    std::uint32_t bits = KeyBitsCount | std::uint32_t{stroke.scanCode} << KeyBitsScanShift;
    bits |= stroke.extended ? KeyBitsExtended : 0U;
    bits |= stroke.alt ? KeyBitsAlt : 0U;
    bits |= stroke.repeated || !pressed ? KeyBitsHeld : 0U;
    bits |= pressed ? 0U : KeyBitsReleased;
    const std::uint32_t number =
        stroke.system ? (pressed ? MessageSysKeyDown : MessageSysKeyUp) : (pressed ? MessageKeyDown : MessageKeyUp);
    DesktopMessage message{{focus->id, number, stroke.virtualKey, bits}, ""};
    if (pressed)
        std::memcpy(message.text, stroke.text, sizeof(message.text));
    queue.Push(message);
    if (pressed)
        connection.SetWords(TopOf(focus), connection.Atom(_NET_WM_USER_TIME), XCB_ATOM_CARDINAL, &time, 1);
}

void X11Desktop::HandleMove(xcb_window_t window, xcb_window_t child, std::uint16_t state, Point client)
{
    modifiers = state;
    const OwnWindow* const own = Find(window);
    if (!own || (capture ? own != capture : child != 0 || !Rect({0, 0}, own->client).Contains(client)))
        return; // outside, after a press of a button; or on somebody else's window in ours
    const WindowMessage told{own->id, MessageMouseMove, MouseState(state), Pack(client.x, client.y)};
    if (DesktopMessage* const last = queue.Newest();
        last && last->message.window == told.window && last->message.number == told.number)
        last->message = told;
    else if (std::memcmp(&told, &lastMove, sizeof(told)) != 0)
        queue.Push({told, ""});
    lastMove = told;
}

void X11Desktop::HandleButton(const xcb_button_press_event_t& event, bool pressed)
{
    modifiers = event.state;
    time = event.time;
    OwnWindow* const own = Find(event.event);
    if (!own)
        return;
    const bool wheel = event.detail >= wheelUp && event.detail <= wheelRight;
    if (pressed && !capture)
    {
        // The server would send all that follows to this window until the release.
        xcb_ungrab_pointer(connection.xcb, event.time);
        if (!wheel && TopOf(focus) != TopOf(own) && Find(TopOf(own)) && !connection.HasManager())
            Activate(TopOf(own));
    }
    const Point client{event.event_x, event.event_y};
    if (capture ? own != capture : event.child != 0 || !Rect({0, 0}, own->client).Contains(client))
        return;
    lastMove = {};
    const std::uint32_t state = MouseState(event.state);
    const auto numbers = [&](std::uint32_t down, std::uint32_t up, std::uint32_t bit)
    { Tell(*own, pressed ? down : up, pressed ? state | bit : state & ~bit, Pack(client.x, client.y)); };
    switch (event.detail)
    {
    case left:
        numbers(MessageLeftDown, MessageLeftUp, MouseLeft);
        break;
    case middle:
        numbers(MessageMiddleDown, MessageMiddleUp, MouseMiddle);
        break;
    case right:
        numbers(MessageRightDown, MessageRightUp, MouseRight);
        break;
    case wheelUp:
    case wheelDown:
    case wheelLeft:
    case wheelRight:
        if (pressed)
        {
            const bool across = event.detail >= wheelLeft;
            const std::int32_t notch = event.detail == wheelUp || event.detail == wheelRight ? 120 : -120;
            const Point origin = Origin();
            Tell(*own, across ? MessageWheelAcross : MessageWheel,
                 state | static_cast<std::uint32_t>(notch & 0xFFFF) << 16,
                 Pack(event.root_x - origin.x, event.root_y - origin.y));
        }
        break;
    default:
        break;
    }
    if (pressed && Find(TopOf(own)))
        connection.SetWords(TopOf(own), connection.Atom(_NET_WM_USER_TIME), XCB_ATOM_CARDINAL, &time, 1);
}

// Input for somebody else's window: the event as the server would have made it.
bool X11Desktop::Forward(WindowHandle window, const WindowMessage& message) noexcept
{
    Pump();
    const auto id = static_cast<xcb_window_t>(window.value);
    if (lost || id != window.value || Find(id))
        return false;
    const auto number = static_cast<std::uint32_t>(message.number);
    if (number != message.number)
        return false;
    xcb_key_press_event_t event{}; // of the same layout for keys, buttons and moves
    std::uint32_t mask = 0;
    bool place = true;
    switch (number)
    {
    case MessageKeyDown:
    case MessageSysKeyDown:
    case MessageKeyUp:
    case MessageSysKeyUp:
    {
        const bool down = number == MessageKeyDown || number == MessageSysKeyDown;
        event.response_type = down ? XCB_KEY_PRESS : XCB_KEY_RELEASE;
        event.detail = static_cast<std::uint8_t>((message.second >> KeyBitsScanShift & 0xFF) + 8);
        event.state = modifiers;
        mask = down ? XCB_EVENT_MASK_KEY_PRESS : XCB_EVENT_MASK_KEY_RELEASE;
        place = false;
        break;
    }
    case MessageChar: // typed by the key there
    case MessageSysChar:
        return static_cast<bool>(XCB_ASK(connection.xcb, get_geometry, id));
    case MessageMouseMove:
        event.response_type = XCB_MOTION_NOTIFY;
        mask = XCB_EVENT_MASK_POINTER_MOTION;
        break;
    case MessageLeftDown:
    case MessageRightDown:
    case MessageMiddleDown:
    case MessageLeftUp:
    case MessageRightUp:
    case MessageMiddleUp:
    {
        const bool down = number == MessageLeftDown || number == MessageRightDown || number == MessageMiddleDown;
        event.response_type = down ? XCB_BUTTON_PRESS : XCB_BUTTON_RELEASE;
        event.detail = number <= MessageLeftUp ? left : number <= MessageRightUp ? right : middle;
        mask = down ? XCB_EVENT_MASK_BUTTON_PRESS : XCB_EVENT_MASK_BUTTON_RELEASE;
        break;
    }
    case MessageWheel:
    case MessageWheelAcross:
        event.response_type = XCB_BUTTON_PRESS;
        event.detail = (message.first >> 16 & 0x8000) ? (number == MessageWheel ? wheelDown : wheelLeft)
                                                      : (number == MessageWheel ? wheelUp : wheelRight);
        mask = XCB_EVENT_MASK_BUTTON_PRESS;
        place = false;
        break;
    default:
        return false;
    }
    Rect client;
    if (!ClientOf(id, client))
        return false;
    const Point origin = Origin();
    Point at{PackedX(message.second), PackedY(message.second)};
    if (number == MessageWheel || number == MessageWheelAcross)
        at = {at.x + origin.x - client.x, at.y + origin.y - client.y};
    else if (!place)
    {
        if (Point pointer; Pointer(pointer))
            at = {pointer.x + origin.x - client.x, pointer.y + origin.y - client.y};
    }
    if (event.detail < 8) // a mouse message carries its own buttons, before the event
    {
        const auto bits = static_cast<std::uint32_t>(message.first);
        const std::uint32_t own = event.response_type != XCB_BUTTON_PRESS ? 0U
                                  : event.detail == left                  ? MouseLeft
                                  : event.detail == middle                ? MouseMiddle
                                  : event.detail == right                 ? MouseRight
                                                                          : 0U;
        const std::uint32_t held = bits & ~own;
        event.state = static_cast<std::uint16_t>(
            (held & MouseLeft ? XCB_BUTTON_MASK_1 : 0) | (held & MouseMiddle ? XCB_BUTTON_MASK_2 : 0) |
            (held & MouseRight ? XCB_BUTTON_MASK_3 : 0) | (held & MouseShift ? XCB_MOD_MASK_SHIFT : 0) |
            (held & MouseControl ? XCB_MOD_MASK_CONTROL : 0));
    }
    event.time = time;
    event.root = connection.screen->root;
    event.event = id;
    event.same_screen = 1;
    event.event_x = static_cast<std::int16_t>(at.x);
    event.event_y = static_cast<std::int16_t>(at.y);
    event.root_x = static_cast<std::int16_t>(at.x + client.x);
    event.root_y = static_cast<std::int16_t>(at.y + client.y);
    const auto send = [&](std::uint32_t events)
    {
        const auto sent = xcb_send_event_checked(connection.xcb, 1, id, events, reinterpret_cast<const char*>(&event));
        return !Reply<xcb_generic_error_t>(xcb_request_check(connection.xcb, sent)) && !connection.Lost();
    };
    if (!send(mask))
        return false;
    if (number == MessageWheel || number == MessageWheelAcross)
    {
        event.response_type = XCB_BUTTON_RELEASE;
        return send(XCB_EVENT_MASK_BUTTON_RELEASE);
    }
    return true;
}

} // namespace Zem::Platform::X11
