#include <Bedrock/window/Window.h>

#include <Bedrock/bitmap/Bitmap.h>
#include <Bedrock/host/Exception.h>
#include <Bedrock/host/ExceptionHandler.h>
#include <Bedrock/host/Log.h>
#include <Bedrock/host/Options.h>
#include <Bedrock/platform/ReportDialog.h>
#include <Bedrock/threads/Time.h>
#include <Bedrock/window/MessageQueue.h>

#include <cstdio>
#include <cstring>

namespace Zem
{

using Platform::Desktop;
using Platform::OpenDesktop;
using Platform::OpenedDesktop;
using Platform::WindowHandle;

constinit Window* Window::self = nullptr;

namespace
{

WindowHandle Native(const void* handle)
{
    return {reinterpret_cast<std::uintptr_t>(handle)};
}

// Modulo 2 to the 32nd.
std::int32_t Sum(std::int32_t a, std::int32_t b)
{
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) + static_cast<std::uint32_t>(b));
}

// Half of what is left over, towards zero.
int Centre(int desktop, int window)
{
    return static_cast<int>((std::int64_t{desktop} - window) / 2);
}

// The sizes that have a key of their own, in the order in which they are looked at.
constexpr struct
{
    const char* key;
    int width, height;
} sizeKeys[] = {
    {"320", 320, 240},   {"400", 400, 300},    {"640", 640, 480},    {"800", 800, 600},
    {"1024", 1024, 768}, {"1280", 1280, 1024}, {"1600", 1600, 1200}, {"1920", 1920, 1440},
};

} // namespace

Window::Window(void* window)
    : handle(nullptr), title{}, active(false), hooks{&hooks, nullptr, nullptr}, hookCount(0), parent(window),
      flags(Visible), frames(0), rate(0.0F), rateTime(0), hostBits(0), shutdownId(0), walks(0)
{
    self = this;
}

Window::~Window()
{
    Close();
    if (self == this)
        self = nullptr;
    while (hooks.next != &hooks)
    {
        HookNode* const node = hooks.next;
        hooks.next = node->next;
        delete node;
    }
}

// -------------------------------------------------------------------------------------------------- Opening and closing

bool Window::Open(const char* name, const Options* options)
{
    if (shutdownId == 0)
        shutdownId = ExceptionHandler::AddCriticalShutdown(&CriticalShutdown, this);
    if (!MessageQueue::RegisterClass(&WindowProc, this))
    {
        Error("Failed to register class");
        return false;
    }

    SetTitle(name);
    if (options && options->Get("ShowFPS"))
    {
        flags |= ShowFrameRate;
        frames = 0;
        rate = 0.0F;
        rateTime = Time::Ms();
    }
    return true;
}

void Window::SetTitle(const char* name)
{
    // The closing bracket stands whatever the length, and no character of several bytes is cut.
    constexpr std::size_t longest = sizeof(title) - sizeof("ZEM []");
    if (!name)
        name = "";
    std::size_t length = std::strlen(name);
    if (length > longest)
        for (length = longest; length > 0 && (name[length] & 0xC0) == 0x80;)
            --length;
    std::snprintf(title, sizeof(title), "ZEM [%.*s]", static_cast<int>(length), name);
    if (Desktop* const desktop = OpenedDesktop(); desktop && handle)
        desktop->SetTitle(Native(handle), title);
}

void Window::Close()
{
    ExceptionHandler::RemoveCriticalShutdown(shutdownId);
    shutdownId = 0;
    MessageQueue::UnregisterClass(this);
    Show(false);
}

int Window::CriticalShutdown(void* window)
{
    MessageQueue::UnregisterClass(window);
    return 0;
}

void Window::GetUserWindowConfig(const Options* options, bool& fullscreen, int& x, int& y, int& width, int& height,
                                 int& colorBits, int& frequency, bool& tooLarge, bool& equalsDesktop)
{
    if (options)
    {
        if (options->Get("Fullscreen"))
            fullscreen = true;
        else if (options->Get("Windowed"))
            fullscreen = false;
        if (options->Get("HideWindow"))
            flags &= ~std::uint32_t{Visible};
        for (const auto& row : sizeKeys)
            if (options->Get(row.key))
            {
                width = row.width;
                height = row.height;
            }
        options->Get("Width", width, width);
        options->Get("Height", height, height);
        options->Get("ColorBits", colorBits, colorBits);
        if (options->Get("Frequency", frequency, frequency))
            fullscreen = true;
    }

    Desktop* const desktop = OpenDesktop();
    Platform::DesktopSize screen;
    if (desktop && desktop->Measure(screen))
    {
        if (screen.bits < 15 || screen.size.width < width || screen.size.height < height)
            tooLarge = true;
        if (screen.size == Size{width, height})
            equalsDesktop = true;
        if (options && (options->Get("WindowCentered") || options->Get("WindowHorizontalCentered") ||
                        options->Get("WindowVerticalCentered")))
        {
            x = Centre(screen.size.width, width);
            y = Centre(screen.size.height, height);
        }
    }

    if (options)
    {
        options->Get("WindowPosX", x, x);
        options->Get("WindowPosY", y, y);
        if ((x == NoPosition) != (y == NoPosition))
            (x == NoPosition ? x : y) = 0;
    }

    Rect area;
    if (!fullscreen && parent && desktop && desktop->Area(Native(parent), area))
    {
        x = y = 0;
        width = area.width;
        height = area.height;
    }
}

// ------------------------------------------------------------------------------------------------------ Making a window

bool Window::CreateDefault()
{
    return CreateWindowedHost(NoPosition, NoPosition, NoPosition, NoPosition, parent);
}

bool Window::CreateWindowedHost(int x, int y, int width, int height, void* parameter)
{
    Desktop* const desktop = OpenDesktop();
    Rect area;
    if (parent && !(desktop && desktop->ClientArea(Native(parent), area)))
    {
        Error("Failed to create window - invalid parent");
        return false;
    }
    if (parent)
    {
        width = area.width;
        height = area.height;
    }
    Platform::DesktopSize screen;
    if ((width == NoPosition || height == NoPosition) && desktop && desktop->Measure(screen))
    {
        // Three quarters of the desktop leave room for the frame, and for others.
        width = width == NoPosition ? screen.size.width / 4 * 3 : width;
        height = height == NoPosition ? screen.size.height / 4 * 3 : height;
    }
    const bool placed = x != NoPosition;
    const Point corner{placed ? x : 0, placed && y != NoPosition ? y : 0};
    return Create({parent ? Platform::WindowKind::Child : Platform::WindowKind::Framed, GetInternalName(), title,
                   Native(parent), placed, corner, Size{width, height}},
                  parameter, "Failed to create window");
}

bool Window::CreateFullscreenHost(int width, int height, void* parameter)
{
    return Create({Platform::WindowKind::FullScreen, GetInternalName(), title, Native(parent), true, Point{0, 0},
                   Size{width, height}},
                  parameter, "Failed to create fullscreen window");
}

bool Window::Create(const Platform::WindowRequest& request, void* parameter, const char* failure)
{
    const WindowHandle made = MessageQueue::CreateWindow(request, parameter);
    if (made.value == 0)
    {
        Error(failure);
        if (!OpenDesktop())
            Error(Platform::DesktopProblem());
        return false;
    }
    // A window that this one replaces stays, like any, until the process ends.
    if (handle)
        OpenedDesktop()->Show(Native(handle), false);
    handle = reinterpret_cast<void*>(made.value);
    return HandleMessages();
}

void Window::Show(bool visible)
{
    flags = visible ? flags | Visible : flags & ~std::uint32_t{Visible};
    if (Desktop* const desktop = OpenedDesktop(); desktop && handle)
        desktop->Show(Native(handle), visible);
}

// ------------------------------------------------------------------------------------------------------------- Messages

bool Window::HandleMessages()
{
    const bool wasHeard = self == this;
    CountFrame();
    Platform::DesktopMessage message;
    while (MessageQueue::Peek(message))
    {
        if (message.message.number == MessageQuit)
            return false;
        MessageQueue::Translate(message);
        MessageQueue::Dispatch(message.message);
        if (wasHeard && self != this)
            return self; // a hook has deleted this object, or has made another one
    }
    MessageQueue::Post({reinterpret_cast<std::uintptr_t>(handle), MessageFrame, 0, 0});
    if (MessageQueue::Peek(message))
        MessageQueue::Dispatch(message.message);
    return true;
}

void Window::WaitMessages(std::uint32_t milliseconds)
{
    MessageQueue::Wait(milliseconds);
}

void Window::CountFrame()
{
    if (!(flags & ShowFrameRate))
        return;
    ++frames;
    const std::uint32_t now = Time::Ms();
    const std::uint32_t passed = now - rateTime;
    if (passed <= 250)
        return;
    const auto current = static_cast<float>((frames * 1000.0 / passed + rate) * 0.5);
    if (current != rate)
    {
        char text[sizeof(title) + 64];
        std::snprintf(text, sizeof(text), "%s  (%0.1f)", title, static_cast<double>(current));
        if (Desktop* const desktop = OpenedDesktop(); desktop && handle)
            desktop->SetTitle(Native(handle), text);
        rate = current;
    }
    frames = 0;
    rateTime = now;
}

bool Window::RegisterWindowHook(Hook function, void* data)
{
    auto* const node = new HookNode{&hooks, function, data};
    if (!node)
        return false;
    HookNode* last = &hooks;
    while (last->next != &hooks)
        last = last->next;
    last->next = node;
    ++hookCount;
    return true;
}

void Window::ClearWindowHook(void* data)
{
    for (HookNode* node = hooks.next; node != &hooks; node = node->next)
        if (node->function && node->data == data)
        {
            node->function = nullptr;
            --hookCount;
            break;
        }
    if (walks == 0)
        SweepHooks();
}

// Frees the hooks that were cleared.
void Window::SweepHooks()
{
    for (HookNode* before = &hooks; before->next != &hooks;)
    {
        HookNode* const node = before->next;
        if (node->function)
        {
            before = node;
            continue;
        }
        before->next = node->next;
        delete node;
    }
}

// One walk over the hooks, which ends with the walk or with what a hook throws. A hook may even delete the window:
// then `self` has changed, and nothing of the window is touched any more.
struct Window::Walk
{
    explicit Walk(Window* walked) : window(walked) { ++window->walks; }
    ~Walk()
    {
        if (self == window && --window->walks == 0)
            window->SweepHooks();
    }
    Walk(const Walk&) = delete;
    Walk& operator=(const Walk&) = delete;

    Window* const window;
};

bool Window::CallHooks(const WindowMessage& message, int& result)
{
    const Walk walk(this);
    for (HookNode* node = hooks.next; node != &hooks; node = node->next)
    {
        if (!node->function)
            continue;
        WindowMessage block = message;
        result = 0;
        if (node->function(node->data, &block, result))
            return true;
        if (self != walk.window)
        {
            result = 0;
            return true; // nobody is left to handle it
        }
    }
    return false;
}

int Window::WindowProc(const WindowMessage& message)
{
    int result = 0;
    if (self)
    {
        if (self->CallHooks(message, result))
            return result;
        if (self->Handle(message))
            return 0;
    }
    return MessageQueue::Default(message);
}

// What the window itself does; false leaves the message to the default.
bool Window::Handle(const WindowMessage& message)
{
    switch (message.number)
    {
    case MessagePaint:
        return true; // drawing is the application's; the desktop tells each exposure once

    case MessageDestroy:
        if (!parent)
            MessageQueue::PostQuit();
        return true;

    case MessageSize:
        if (!parent)
            return false;
        if (message.first != SizeMinimised)
            if (Desktop* const desktop = OpenedDesktop())
                desktop->Resize({message.window}, {PackedX(message.second), PackedY(message.second)});
        return true;

    case MessageActivate:
        active = message.first != 0;
        return true;

    case MessageSystemCommand:
        if (parent)
            return false;
        if (message.first == CommandClose)
            MessageQueue::Send({message.window, MessageClose, 0, 0});
        return message.first == CommandClose || message.first == CommandKeyMenu ||
               message.first == CommandScreenSaver || message.first == CommandMonitorPower;

    default:
        // To the parent goes what the user does; but never round in a circle, should the parent be a window of ours.
        if (!parent || message.window == Native(parent).value || message.number < 256 ||
            (message.number > 264 && message.number < 512) || message.number > 521)
            return false;
        MessageQueue::Post({Native(parent).value, message.number, message.first, message.second});
        return true;
    }
}

// -------------------------------------------------------------------------------------------------- What the window shows

bool Window::Present(const Bitmap& picture, Point at)
{
    Desktop* const desktop = OpenedDesktop();
    if (!desktop || !handle || !picture.IsValid())
        return false;
    const Rect area = picture;
    switch (picture.GetFormat())
    {
    case Bitmap::ARGB32:
    case Bitmap::XRGB32:
        return desktop->Present(Native(handle),
                                {picture.GetPtr(), static_cast<std::int32_t>(picture.GetPitch()), Size{area}}, at);
    case Bitmap::RGB16:
    case Bitmap::RGB24:
    {
        Bitmap words(area, Bitmap::XRGB32, nullptr);
        if (!words.IsValid())
            return false;
        words.CopyImage(picture, Point{0, 0}, 0);
        return Present(words, at);
    }
    default:
        return false;
    }
}

void Window::Message(const char* text)
{
    Platform::ShowMessage(Platform::MessageKind::Plain, GetInternalName(), text ? text : "");
}

bool Window::MessageConfirm(const char* text)
{
    return Platform::ShowMessage(Platform::MessageKind::Confirm, GetInternalName(), text ? text : "");
}

void Window::Error(const char* text)
{
    LogClient* const client = Log::GetClient("Window");
    if (!LogClient::Wants(client, LogClient::Err))
        return;
    try
    {
        client->Write(LogClient::Err, "%s", text);
    }
    catch (const Exception&)
    {
        // A log on a full disk is no reason to fail otherwise than told.
    }
}

// ------------------------------------------------------------------------------------------------------------ Questions

Rect Window::GetClientArea() const
{
    Rect area;
    Desktop* const desktop = OpenedDesktop();
    if (!desktop || !handle || !desktop->ClientArea(Native(handle), area))
        return Rect();
    return {Point{0, 0}, area};
}

Rect Window::GetArea() const
{
    Rect area;
    Desktop* const desktop = OpenedDesktop();
    if (!desktop || !handle || !desktop->Area(Native(handle), area))
        return Rect();
    return area;
}

void Window::LocalToGlobal(Point& point) const
{
    Rect area;
    Desktop* const desktop = OpenedDesktop();
    if (!desktop || !handle || !desktop->ClientArea(Native(handle), area))
        return;
    point.x = Sum(point.x, area.x);
    point.y = Sum(point.y, area.y);
}

bool Window::IsIconic() const
{
    Desktop* const desktop = OpenedDesktop();
    return desktop && handle && desktop->IsMinimised(Native(handle));
}

bool Window::HasFocus() const
{
    Desktop* const desktop = OpenedDesktop();
    return desktop && handle && desktop->Focus() == Native(handle);
}

void Window::SetFocus()
{
    if (Desktop* const desktop = OpenedDesktop(); desktop && handle)
        desktop->SetFocus(Native(handle));
}

void Window::SetCapture(bool capture)
{
    if (Desktop* const desktop = OpenedDesktop(); desktop && handle)
        desktop->SetCapture(capture ? Native(handle) : WindowHandle{0});
}

int Window::GetHostBitsPerPixel()
{
    Platform::DesktopSize screen;
    if (hostBits == 0)
        if (Desktop* const desktop = OpenDesktop(); desktop && desktop->Measure(screen))
            hostBits = screen.bits;
    return hostBits;
}

const char* Window::GetDesktopName()
{
    const Desktop* const desktop = OpenDesktop();
    return desktop ? desktop->Name() : "";
}

} // namespace Zem
