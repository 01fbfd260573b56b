// Where windows stand, those of other programs too.

#include <Bedrock/platform/x11/X11Desktop.h>

namespace Zem::Platform::X11
{

namespace
{

constexpr int placeMs = 50;  // a manager has moved a window by then, or doesn't want to
constexpr int stateMs = 250; // and minimised or maximised one
constexpr std::uint32_t iconicState = 3;
constexpr std::uint32_t fromPager = 2; // source of a request: a tool of the user

std::int32_t Side(std::int64_t wanted)
{
    return static_cast<std::int32_t>(wanted < 1 ? 1 : wanted > 32767 ? 32767 : wanted);
}

std::int32_t Cut(std::int64_t wanted)
{
    return static_cast<std::int32_t>(wanted < -32768 ? -32768 : wanted > 32767 ? 32767 : wanted);
}

Rect Around(const Rect& client, const Frame& frame)
{
    return Rect(client.x - frame.left, client.y - frame.top, client.width + frame.left + frame.right,
                client.height + frame.top + frame.bottom);
}

} // namespace

bool X11Desktop::IsTopLevel(xcb_window_t window)
{
    if (const OwnWindow* const own = Find(window))
        return own->kind != WindowKind::Child;
    const auto tree = XCB_ASK(connection.xcb, query_tree, window);
    if (!tree || tree->parent == 0)
        return false;
    return tree->parent == tree->root || connection.WordsOf(window, WM_STATE, XCB_ATOM_ANY, 1).Count() > 0;
}

bool X11Desktop::IsIconic(xcb_window_t window)
{
    if (const OwnWindow* const own = Find(window))
        return own->minimised;
    const Words state = connection.WordsOf(window, WM_STATE, XCB_ATOM_ANY, 1);
    if (state.Count() == 0 || state[0] != iconicState)
        return false;
    return connection.WordsOf(window, _NET_WM_STATE, XCB_ATOM_ATOM, 64)
               .Contains(connection.Atom(_NET_WM_STATE_HIDDEN)) ||
           !connection.ManagerHeeds(_NET_WM_STATE_HIDDEN);
}

// On the root window.
bool X11Desktop::ClientOf(xcb_window_t window, Rect& result)
{
    if (OwnWindow* const own = Find(window); own && own->kind != WindowKind::Child)
    {
        result = own->client;
        return !lost;
    }
    const auto geometry = XCB_ASK(connection.xcb, get_geometry, window);
    const auto place = XCB_ASK(connection.xcb, translate_coordinates, window, connection.screen->root, 0, 0);
    if (!geometry || !place)
        return false;
    result = Rect(place->dst_x, place->dst_y, geometry->width, geometry->height);
    return true;
}

Frame X11Desktop::FrameOf(xcb_window_t window)
{
    const Words extents = connection.WordsOf(window, _NET_FRAME_EXTENTS, XCB_ATOM_CARDINAL, 4);
    if (extents.Count() < 4)
        return Frame{};
    const auto side = [&](std::uint32_t index)
    { return extents[index] < 4096 ? static_cast<std::int32_t>(extents[index]) : 0; };
    return {side(0), side(1), side(2), side(3)};
}

bool X11Desktop::Area(WindowHandle window, Rect& result) noexcept
{
    Pump();
    const auto id = static_cast<xcb_window_t>(window.value);
    Rect client;
    if (lost || id != window.value || !ClientOf(id, client))
        return false;
    if (const OwnWindow* const own = Find(id))
        client = Around(client, own->frame);
    else
        client = Around(client, FrameOf(id));
    result = ToDesktop(client);
    return true;
}

bool X11Desktop::ClientArea(WindowHandle window, Rect& result) noexcept
{
    Pump();
    const auto id = static_cast<xcb_window_t>(window.value);
    Rect client;
    if (lost || id != window.value || !ClientOf(id, client))
        return false;
    result = ToDesktop(client);
    return true;
}

std::size_t X11Desktop::TopLevelWindows(WindowHandle* result, std::size_t capacity) noexcept
{
    Pump();
    if (lost)
        return 0;
    std::size_t count = 0;
    const auto add = [&](xcb_window_t window)
    {
        if (!IsVisible({window}))
            return;
        if (count < capacity)
            result[count] = {window};
        ++count;
    };
    const xcb_window_t root = connection.screen->root;
    if (connection.ManagerHeeds(_NET_CLIENT_LIST_STACKING))
    {
        const Words list = connection.WordsOf(root, _NET_CLIENT_LIST_STACKING, XCB_ATOM_WINDOW, 65536);
        for (std::uint32_t i = list.Count(); i-- > 0;)
            add(list[i]);
        return count;
    }
    const auto tree = XCB_ASK(connection.xcb, query_tree, root);
    if (!tree)
        return 0;
    const xcb_window_t* const children = xcb_query_tree_children(tree.Get());
    for (int i = xcb_query_tree_children_length(tree.Get()); i-- > 0;)
    {
        const auto attributes = XCB_ASK(connection.xcb, get_window_attributes, children[i]);
        if (attributes && !attributes->override_redirect)
            add(children[i]);
    }
    return count;
}

bool X11Desktop::Position(WindowHandle window, WindowPosition& result) noexcept
{
    Pump();
    const auto id = static_cast<xcb_window_t>(window.value);
    if (lost || id != window.value || !IsTopLevel(id))
        return false;
    if (const OwnWindow* const own = Find(id))
    {
        result.state = own->minimised   ? WindowState::Minimised
                       : own->maximised ? WindowState::Maximised
                                        : WindowState::Normal;
        result.normal = ToDesktop(own->normal);
        return true;
    }
    Rect client;
    if (!ClientOf(id, client))
        return false;
    const Words states = connection.WordsOf(id, _NET_WM_STATE, XCB_ATOM_ATOM, 64);
    const bool maximised = states.Contains(connection.Atom(_NET_WM_STATE_MAXIMIZED_HORZ)) &&
                           states.Contains(connection.Atom(_NET_WM_STATE_MAXIMIZED_VERT));
    result.state = IsIconic(id) ? WindowState::Minimised : maximised ? WindowState::Maximised : WindowState::Normal;
    // Where a maximised window would return to is its manager's secret.
    result.normal = ToDesktop(Around(client, FrameOf(id)));
    return true;
}

void X11Desktop::Iconify(xcb_window_t window)
{
    if (connection.HasManager())
    {
        connection.AskManager(window, WM_CHANGE_STATE, {iconicState, 0, 0, 0, 0});
        Settle(stateMs, [&] { return IsIconic(window); });
        return;
    }
    // Nobody keeps it for the user, but it returns when it is shown.
    if (OwnWindow* const own = Find(window))
    {
        xcb_unmap_window(connection.xcb, window);
        own->minimised = true;
        TellFamily(*own);
        Settle(placeMs,
               [&]
               {
                   const OwnWindow* const now = Find(window);
                   return !now || !now->mapped;
               });
    }
}

void X11Desktop::ChangeState(xcb_window_t window, bool add, AtomName one, AtomName two)
{
    connection.AskManager(window, _NET_WM_STATE,
                          {add ? 1U : 0U, connection.Atom(one), connection.Atom(two), fromPager, 0});
}

// `area` on the root window. The frame of a window that was maximised a moment ago may be read before it changes: the
// manager knows better once it has moved the window.
bool X11Desktop::MoveTop(xcb_window_t window, const Rect& area)
{
    for (int tries = 0; tries < 3; ++tries)
    {
        const OwnWindow* const own = Find(window);
        const Frame frame = own ? own->frame : FrameOf(window);
        if (!MoveTop(window, area, frame))
            return false;
        if (own || FrameOf(window) == frame)
            break;
    }
    return true;
}

bool X11Desktop::MoveTop(xcb_window_t window, const Rect& area, const Frame& frame)
{
    OwnWindow* own = Find(window);
    const Size client{Side(std::int64_t{area.width} - frame.left - frame.right),
                      Side(std::int64_t{area.height} - frame.top - frame.bottom)};
    const Point corner{Cut(area.x), Cut(area.y)};
    const Rect wanted(corner.x + frame.left, corner.y + frame.top, client.width, client.height);
    const bool visible = IsVisible({window});
    if (own)
    {
        const Rect before = own->client;
        own->placed = true;
        own->corner = corner;
        own->client = wanted;
        SetHints(*own);
        if (visible)
            own->client = before;
    }
    const auto u = [](std::int32_t value) { return static_cast<std::uint32_t>(value); };
    if (visible && connection.ManagerHeeds(_NET_MOVERESIZE_WINDOW))
    {
        constexpr std::uint32_t all = 0xF00; // x, y, width and height are given
        connection.AskManager(window, _NET_MOVERESIZE_WINDOW,
                              {XCB_GRAVITY_NORTH_WEST | all | fromPager << 12, u(corner.x), u(corner.y),
                               u(client.width), u(client.height)});
    }
    else
    {
        const std::uint32_t values[] = {u(corner.x), u(corner.y), u(client.width), u(client.height)};
        const auto asked = xcb_configure_window_checked(
            connection.xcb, window,
            XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y | XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT, values);
        if (Reply<xcb_generic_error_t>(xcb_request_check(connection.xcb, asked)))
            return false;
    }
    if (visible && !IsIconic(window))
        Settle(placeMs,
               [&]
               {
                   Rect now;
                   return !ClientOf(window, now) || now == wanted;
               });
    own = Find(window);
    if (own && own->minimised)
        own->normal = Around(wanted, frame);
    return !connection.Lost();
}

bool X11Desktop::Move(WindowHandle window, const Rect& area) noexcept
{
    Pump();
    const auto id = static_cast<xcb_window_t>(window.value);
    if (lost || id != window.value || !IsTopLevel(id))
        return false;
    const Point origin = Origin();
    return MoveTop(
        id, Rect(Cut(std::int64_t{area.x} + origin.x), Cut(std::int64_t{area.y} + origin.y), area.width, area.height));
}

bool X11Desktop::SetPosition(WindowHandle window, const WindowPosition& position) noexcept
{
    WindowPosition now;
    if (!Position(window, now))
        return false;
    const auto id = static_cast<xcb_window_t>(window.value);
    const bool visible = IsVisible(window);
    // A window that stays maximised keeps the normal area that its manager remembers, which is better than ours.
    if (now.state == WindowState::Maximised && position.state == WindowState::Maximised)
        return true;
    if (visible && now.state == WindowState::Minimised && position.state != WindowState::Minimised)
    {
        if (Find(id))
            Show(window, true);
        else
        {
            xcb_map_window(connection.xcb, id); // by convention the way back from an icon
            Activate(id);
            Settle(stateMs, [&] { return !IsIconic(id); });
        }
    }
    const auto isMaximised = [&]
    {
        const Words states = connection.WordsOf(id, _NET_WM_STATE, XCB_ATOM_ATOM, 64);
        return states.Contains(connection.Atom(_NET_WM_STATE_MAXIMIZED_HORZ)) &&
               states.Contains(connection.Atom(_NET_WM_STATE_MAXIMIZED_VERT));
    };
    if (now.state == WindowState::Maximised && position.state == WindowState::Normal)
    {
        ChangeState(id, false, _NET_WM_STATE_MAXIMIZED_HORZ, _NET_WM_STATE_MAXIMIZED_VERT);
        Settle(stateMs, [&] { return !isMaximised(); }); // the frame of a maximised window is another one
    }
    const bool moved = now.state == WindowState::Maximised && position.state == WindowState::Minimised
                           ? true // it is still maximised behind its icon
                           : Move(window, position.normal);
    if (visible && position.state == WindowState::Maximised)
    {
        ChangeState(id, true, _NET_WM_STATE_MAXIMIZED_HORZ, _NET_WM_STATE_MAXIMIZED_VERT);
        Settle(stateMs, isMaximised);
    }
    if (visible && position.state == WindowState::Minimised && now.state != WindowState::Minimised)
        Iconify(id);
    return moved;
}

} // namespace Zem::Platform::X11
