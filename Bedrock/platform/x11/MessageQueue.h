#pragma once

#include <Bedrock/platform/Desktop.h>

#include <cstddef>

namespace Zem::Platform::X11
{

/// Messages that wait to be fetched, the oldest first.
class MessageQueue
{
public:
    MessageQueue() = default;
    ~MessageQueue();
    MessageQueue(const MessageQueue&) = delete;
    MessageQueue& operator=(const MessageQueue&) = delete;

    /// Appends; a message that finds no memory, or 65,536 before it, is lost.
    void Push(const DesktopMessage& message);
    /// Appends in place of what waits for the same window under the same number.
    void PushLatest(const DesktopMessage& message);
    /// The newest one that waits, null if none does.
    DesktopMessage* Newest();
    bool Pop(DesktopMessage& result);
    void Forget(std::uintptr_t window);
    void Remove(std::uintptr_t window, std::uintptr_t number);
    bool IsEmpty() const { return count == 0; }

private:
    bool Grow();
    DesktopMessage& At(std::size_t index) { return ring[(first + index) & (capacity - 1)]; }
    template <class Wanted>
    void RemoveIf(const Wanted& wanted);

    DesktopMessage* ring = nullptr;
    std::size_t capacity = 0; // a power of two, or 0
    std::size_t first = 0;
    std::size_t count = 0;
};

} // namespace Zem::Platform::X11
