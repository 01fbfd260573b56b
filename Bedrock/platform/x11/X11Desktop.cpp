#include <Bedrock/platform/x11/X11Desktop.h>

#include <xcb/randr.h>

#include <cstdlib>
#include <ctime>
#include <new>
#include <poll.h>
#include <sys/eventfd.h>
#include <type_traits>
#include <unistd.h>

namespace Zem::Platform::X11
{

// ------------------------------------------------------------------------------------------------------------ Opening

extern "C" __attribute__((visibility("default"))) Desktop* BedrockOpenDesktop(std::uint32_t version)
{
    return version == desktopVersion ? X11Desktop::Open() : nullptr;
}

static_assert(std::is_same_v<decltype(BedrockOpenDesktop), OpenDesktopFunction>);

Desktop* X11Desktop::Open()
{
    void* const place = std::malloc(sizeof(X11Desktop));
    if (place == nullptr)
        return nullptr;
    X11Desktop* const desktop = new (place) X11Desktop;
    if (!desktop->connection.Lost() && desktop->wake >= 0)
        return desktop;
    desktop->Close();
    return nullptr;
}

X11Desktop::X11Desktop() : keyboard(connection), pictures(connection), wake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    if (connection.Lost())
        return;
    // Root events tell of other monitors; property changes wake nobody, they are looked up when it matters.
    if (connection.extensions.randr)
        xcb_randr_select_input(connection.xcb, connection.screen->root, XCB_RANDR_NOTIFY_MASK_SCREEN_CHANGE);
    connection.Flush();
}

X11Desktop::~X11Desktop()
{
    while (windows)
    {
        OwnWindow* const own = windows;
        windows = own->next;
        if (own->parent == 0 || !Find(own->parent))
            xcb_destroy_window(connection.xcb, own->id);
        std::free(own);
    }
    if (!connection.Lost())
        Sync(); // gone from the screen when this returns
    if (wake >= 0)
        close(wake);
}

void X11Desktop::Close() noexcept
{
    this->~X11Desktop();
    std::free(this);
}

// ------------------------------------------------------------------------------------------------------------ Monitor

const Rect& X11Desktop::Monitor()
{
    if (!monitorStale)
        return monitor;
    monitorStale = false;
    const auto root = XCB_ASK(connection.xcb, get_geometry, connection.screen->root);
    monitor = root ? Rect(0, 0, root->width, root->height)
                   : Rect(0, 0, connection.screen->width_in_pixels, connection.screen->height_in_pixels);
    if (!connection.extensions.randr)
        return monitor;
    const auto monitors = XCB_ASK(connection.xcb, randr_get_monitors, connection.screen->root, 1);
    if (!monitors)
        return monitor;
    bool found = false;
    for (auto at = xcb_randr_get_monitors_monitors_iterator(monitors.Get()); at.rem; xcb_randr_monitor_info_next(&at))
        if (at.data->width > 0 && at.data->height > 0 && (at.data->primary || !found))
        {
            monitor = Rect(at.data->x, at.data->y, at.data->width, at.data->height);
            found = true;
            if (at.data->primary)
                break;
        }
    return monitor;
}

Point X11Desktop::Origin()
{
    return connection.Lost() ? Point{0, 0} : Point(Monitor());
}

Rect X11Desktop::ToDesktop(Rect rect)
{
    const Point origin = Origin();
    rect.x -= origin.x;
    rect.y -= origin.y;
    return rect;
}

bool X11Desktop::Measure(DesktopSize& result) noexcept
{
    Pump();
    if (lost)
        return false;
    const xcb_setup_t* const setup = xcb_get_setup(connection.xcb);
    result.size = Monitor();
    result.bits = connection.screen->root_depth;
    for (auto formats = xcb_setup_pixmap_formats_iterator(setup); formats.rem; xcb_format_next(&formats))
        if (formats.data->depth == connection.screen->root_depth)
            result.bits = formats.data->bits_per_pixel;
    return true;
}

// ------------------------------------------------------------------------------------------------------------ Waiting

bool X11Desktop::Sync()
{
    return static_cast<bool>(XCB_ASK(connection.xcb, get_input_focus));
}

std::int64_t X11Desktop::Milliseconds()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

// Until the server says something, or for so long.
void X11Desktop::Sleep(int milliseconds)
{
    pollfd server{xcb_get_file_descriptor(connection.xcb), POLLIN, 0};
    connection.Flush();
    poll(&server, 1, milliseconds);
}

bool X11Desktop::Next(DesktopMessage& result) noexcept
{
    if (queue.IsEmpty())
        Pump();
    if (queue.Pop(result))
    {
        OwnWindow* const own = Find(result.message.window);
        if (own && result.message.number == MessageSize)
        {
            own->sizeTold = true;
            own->toldKind = result.message.first;
            own->toldSize = result.message.second;
        }
        else if (own && result.message.number == MessageMove)
        {
            own->placeTold = true;
            own->toldPlace = result.message.second;
        }
        return true;
    }
    for (OwnWindow* own = windows; own; own = own->next)
        if (own->paint && OnScreen(*own))
        {
            own->paint = false;
            result = {{own->id, MessagePaint, 0, 0}, ""};
            return true;
        }
    return false;
}

void X11Desktop::Wait(std::uint32_t milliseconds) noexcept
{
    Pump();
    if (!queue.IsEmpty())
        return;
    for (OwnWindow* own = windows; own; own = own->next)
        if (own->paint && OnScreen(*own))
            return;
    pollfd sources[] = {{wake, POLLIN, 0}, {lost ? -1 : xcb_get_file_descriptor(connection.xcb), POLLIN, 0}};
    const int timeout = milliseconds <= INT32_MAX    ? static_cast<int>(milliseconds)
                        : milliseconds == 0xFFFFFFFF ? -1
                                                     : INT32_MAX;
    if (poll(sources, 2, timeout) > 0 && sources[0].revents)
    {
        std::uint64_t count = 0;
        [[maybe_unused]] const ssize_t taken = read(wake, &count, sizeof(count));
    }
}

void X11Desktop::Wake() noexcept
{
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t put = write(wake, &one, sizeof(one));
}

// ------------------------------------------------------------------------------------------------------------ Pointer

bool X11Desktop::Pointer(Point& result) noexcept
{
    if (connection.Lost())
        return false;
    const auto reply = XCB_ASK(connection.xcb, query_pointer, connection.screen->root);
    if (!reply)
        return false;
    const Point origin = Origin();
    result = {reply->root_x - origin.x, reply->root_y - origin.y};
    return true;
}

bool X11Desktop::MovePointer(Point place) noexcept
{
    if (connection.Lost())
        return false;
    const Point origin = Origin();
    const auto within = [](std::int64_t value) {
        return static_cast<std::int16_t>(value < -32768 ? -32768 : value > 32767 ? 32767 : value);
    };
    xcb_warp_pointer(connection.xcb, 0, connection.screen->root, 0, 0, 0, 0, within(std::int64_t{place.x} + origin.x),
                     within(std::int64_t{place.y} + origin.y));
    return Sync();
}

// A pointer without pixels on each top window and each child; what lies in them inherits it.
bool X11Desktop::ShowPointer(bool visible) noexcept
{
    if (connection.Lost())
        return false;
    if (visible == pointerShown)
        return true;
    if (blank == 0)
    {
        const std::uint32_t bitmap = xcb_generate_id(connection.xcb), clear = xcb_generate_id(connection.xcb);
        xcb_create_pixmap(connection.xcb, 1, bitmap, connection.screen->root, 1, 1);
        const std::uint32_t zero = 0;
        xcb_create_gc(connection.xcb, clear, bitmap, XCB_GC_FOREGROUND, &zero);
        const xcb_rectangle_t all{0, 0, 1, 1};
        xcb_poly_fill_rectangle(connection.xcb, bitmap, clear, 1, &all);
        blank = xcb_generate_id(connection.xcb);
        xcb_create_cursor(connection.xcb, blank, bitmap, bitmap, 0, 0, 0, 0, 0, 0, 0, 0);
        xcb_free_gc(connection.xcb, clear);
        xcb_free_pixmap(connection.xcb, bitmap);
    }
    pointerShown = visible;
    const std::uint32_t cursor = visible ? xcb_cursor_t{XCB_CURSOR_NONE} : blank;
    for (OwnWindow* own = windows; own; own = own->next)
        xcb_change_window_attributes(connection.xcb, own->id, XCB_CW_CURSOR, &cursor);
    connection.Flush();
    return true;
}

// ------------------------------------------------------------------------------------------------------------ Pictures

// An own window with what drawing needs; null if it is none, or has a palette.
OwnWindow* X11Desktop::Canvas(WindowHandle window)
{
    OwnWindow* const own = Find(window.value);
    if (!own || connection.Lost())
        return nullptr;
    if (own->gc == 0)
    {
        own->form = PixelForm::Of(connection, own->id);
        own->gc = xcb_generate_id(connection.xcb);
        const std::uint32_t noExposures = 0;
        xcb_create_gc(connection.xcb, own->gc, own->id, XCB_GC_GRAPHICS_EXPOSURES, &noExposures);
    }
    return own->form.depth ? own : nullptr;
}

bool X11Desktop::Present(WindowHandle window, const PixelRows& picture, Point at) noexcept
{
    OwnWindow* const own = Canvas(window);
    if (!own)
        return false;
    const Rect place = Rect(at, picture.size).Intersect(Rect({0, 0}, own->client));
    return place.IsEmpty() || pictures.Show(own->id, own->gc, own->form, picture, at, place);
}

bool X11Desktop::OpenPicture(WindowHandle window, Size size, PictureMemory& result) noexcept
{
    const OwnWindow* const own = Canvas(window);
    return own && pictures.Open(own->form, size, result);
}

void X11Desktop::ClosePicture(const PictureMemory& picture) noexcept
{
    pictures.Close(picture);
}

bool X11Desktop::PresentPicture(WindowHandle window, const PictureMemory& picture, const Rect* parts,
                                std::size_t count) noexcept
{
    const OwnWindow* const own = Canvas(window);
    return own && pictures.Show(own->id, own->gc, own->form, picture, Rect({0, 0}, own->client), parts, count);
}

void X11Desktop::WaitPicture(const PictureMemory& picture) noexcept
{
    pictures.Wait(picture);
}

} // namespace Zem::Platform::X11
