#include <Bedrock/window/MessageQueue.h>

#include <atomic>
#include <cstring>

namespace Zem
{

namespace
{

constexpr std::uint32_t postedCapacity = 1024; // a power of two

// All of it is the window thread's, but for `classOwner`.
struct State
{
    std::atomic<const void*> classOwner{nullptr}; // null: not registered
    MessageQueue::Procedure procedure = nullptr;  // of all windows; kept when the class goes
    bool quit = false;
    bool paintHeld = false; // the desktop had nothing but `paint` when quit went first
    WindowMessage paint{};
    std::uint32_t first = 0, count = 0; // of `posted`
    WindowMessage posted[postedCapacity]{};
};

constinit State state;

WindowMessage& Posted(std::uint32_t i)
{
    return state.posted[(state.first + i) & (postedCapacity - 1)];
}

void RemovePosted(Platform::WindowHandle window)
{
    std::uint32_t kept = 0;
    for (std::uint32_t i = 0; i < state.count; ++i)
        if (Posted(i).window != window.value)
            Posted(kept++) = Posted(i);
    state.count = kept;
    state.paintHeld = state.paintHeld && state.paint.window != window.value;
}

} // namespace

bool MessageQueue::RegisterClass(Procedure procedure, const void* owner) noexcept
{
    const void* nobody = nullptr;
    if (!state.classOwner.compare_exchange_strong(nobody, owner))
        return false;
    state.procedure = procedure;
    return true;
}

void MessageQueue::UnregisterClass(const void* owner) noexcept
{
    state.classOwner.compare_exchange_strong(owner, nullptr);
}

Platform::WindowHandle MessageQueue::CreateWindow(const Platform::WindowRequest& request, void* parameter) noexcept
{
    Platform::Desktop* const desktop = state.classOwner.load() ? Platform::OpenDesktop() : nullptr;
    if (!desktop)
        return {0};
    const Platform::WindowHandle window = desktop->CreateWindow(request);
    if (window.value == 0)
        return {0};
    WindowCreation creation{parameter};
    if (Send({window.value, MessageCreate, 0, reinterpret_cast<std::uintptr_t>(&creation)}) != -1)
        return window;
    RemovePosted(window);
    desktop->DestroyWindow(window);
    return {0};
}

void MessageQueue::DestroyWindow(Platform::WindowHandle window)
{
    Platform::Desktop* const desktop = Platform::OpenedDesktop();
    if (!desktop || !desktop->DestroyWindow(window))
        return;
    RemovePosted(window);
    Send({window.value, MessageDestroy, 0, 0});
}

bool MessageQueue::Peek(Platform::DesktopMessage& result) noexcept
{
    if (state.count > 0)
    {
        result = {Posted(0), ""};
        ++state.first;
        --state.count;
        return true;
    }
    Platform::Desktop* const desktop = Platform::OpenedDesktop();
    bool found = desktop && desktop->Next(result);
    if (found && result.message.number == MessageDestroy)
        RemovePosted({result.message.window});
    const bool painting = found && result.message.number == MessagePaint;
    if (found && !painting)
        return true;
    if (painting && state.quit)
    {
        // The desktop tells an exposure once; several windows of one process are told again when they are shown.
        state.paintHeld = true;
        state.paint = result.message;
    }
    if (state.quit)
    {
        state.quit = false;
        result = {{0, MessageQuit, 0, 0}, ""};
        return true;
    }
    if (!found && state.paintHeld)
    {
        state.paintHeld = false;
        result = {state.paint, ""};
        found = true;
    }
    return found;
}

void MessageQueue::Wait(std::uint32_t milliseconds) noexcept
{
    Platform::Desktop* const desktop = Platform::OpenedDesktop();
    if (desktop && state.count == 0 && !state.quit && !state.paintHeld)
        desktop->Wait(milliseconds);
}

void MessageQueue::Translate(const Platform::DesktopMessage& message) noexcept
{
    const std::uint32_t number = static_cast<std::uint32_t>(message.message.number);
    if (number != MessageKeyDown && number != MessageSysKeyDown)
        return;
    const auto length = static_cast<std::uint32_t>(std::strlen(message.text));
    if (length > postedCapacity - state.count)
        return;
    for (std::uint32_t i = 0; i < length; ++i)
        Posted(state.count++) = {message.message.window, number + (MessageChar - MessageKeyDown),
                                 static_cast<std::uint8_t>(message.text[i]), message.message.second};
}

int MessageQueue::Dispatch(const WindowMessage& message)
{
    return state.procedure && message.window != 0 ? state.procedure(message) : 0;
}

bool MessageQueue::Post(const WindowMessage& message) noexcept
{
    const Platform::WindowHandle window{message.window};
    Platform::Desktop* const desktop = Platform::OpenedDesktop();
    if (!desktop || window.value == 0)
        return false;
    if (!desktop->IsOwn(window))
        return desktop->Forward(window, message);
    if (state.count == postedCapacity)
        return false;
    Posted(state.count++) = message;
    return true;
}

void MessageQueue::PostQuit() noexcept
{
    state.quit = true;
}

int MessageQueue::Default(const WindowMessage& message)
{
    switch (message.number)
    {
    case MessageClose:
        DestroyWindow({message.window});
        break;
    case MessageSystemCommand:
        if (message.first == CommandClose)
            Send({message.window, MessageClose, 0, 0});
        break;
    case MessageSysKeyDown:
        if (message.first == KeyF4 && (message.second & KeyBitsAlt))
            Post({message.window, MessageSystemCommand, CommandClose, 0});
        break;
    default:
        break;
    }
    return 0;
}

void MessageQueue::ResetForTest() noexcept
{
    Platform::CloseDesktop();
    state.classOwner = nullptr;
    state.procedure = nullptr;
    state.quit = state.paintHeld = false;
    state.first = state.count = 0;
}

} // namespace Zem
