#pragma once

#include <atomic>
#include <cstdint>

namespace Zem
{

/// What the library knows about itself while it is loaded; Library.cpp holds its start and its end. Hidden.
class Library
{
public:
    /// The platform's handle of the library's own module; 0 until it is attached.
    static std::intptr_t Module() noexcept { return module; }

    /// Every thread that the library makes counts itself from its start to its end.
    static void ThreadStarted() noexcept { threads.fetch_add(1, std::memory_order_relaxed); }
    static void ThreadEnded() noexcept { threads.fetch_sub(1, std::memory_order_release); }

    /// True when a thread of the library still runs. At the end of the process such a thread goes on for a while: what
    /// it may use is then left to the system and not freed under its hands.
    static bool HasThreads() noexcept { return threads.load(std::memory_order_acquire) != 0; }

private:
    friend struct Attachment;

    static std::intptr_t module;
    static std::atomic<std::int32_t> threads;
};

} // namespace Zem
