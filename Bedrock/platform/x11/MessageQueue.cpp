#include <Bedrock/platform/x11/MessageQueue.h>

#include <cstdlib>

namespace Zem::Platform::X11
{

MessageQueue::~MessageQueue()
{
    std::free(ring);
}

bool MessageQueue::Grow()
{
    constexpr std::size_t most = 65536;
    const std::size_t wanted = capacity ? capacity * 2 : 64;
    if (wanted > most)
        return false;
    auto* const larger = static_cast<DesktopMessage*>(std::malloc(wanted * sizeof(DesktopMessage)));
    if (larger == nullptr)
        return false;
    for (std::size_t i = 0; i < count; ++i)
        larger[i] = At(i);
    std::free(ring);
    ring = larger;
    capacity = wanted;
    first = 0;
    return true;
}

void MessageQueue::Push(const DesktopMessage& message)
{
    if (count == capacity && !Grow())
        return;
    At(count++) = message;
}

template <class Wanted>
void MessageQueue::RemoveIf(const Wanted& wanted)
{
    std::size_t kept = 0;
    for (std::size_t i = 0; i < count; ++i)
        if (!wanted(At(i).message))
            At(kept++) = At(i);
    count = kept;
}

void MessageQueue::Remove(std::uintptr_t window, std::uintptr_t number)
{
    RemoveIf([&](const WindowMessage& other) { return other.window == window && other.number == number; });
}

void MessageQueue::PushLatest(const DesktopMessage& message)
{
    Remove(message.message.window, message.message.number);
    Push(message);
}

DesktopMessage* MessageQueue::Newest()
{
    return count ? &At(count - 1) : nullptr;
}

bool MessageQueue::Pop(DesktopMessage& result)
{
    if (count == 0)
        return false;
    result = At(0);
    first = (first + 1) & (capacity - 1);
    --count;
    return true;
}

void MessageQueue::Forget(std::uintptr_t window)
{
    RemoveIf([&](const WindowMessage& other) { return other.window == window; });
}

} // namespace Zem::Platform::X11
