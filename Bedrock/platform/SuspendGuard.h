#pragma once

#include <cstdint>

namespace Zem::Platform
{

/// Keeps the calling thread from being suspended while it holds something that every other thread may need, such as a
/// lock of the allocator: who suspended it would wait for that lock himself. A suspension that comes meanwhile takes
/// effect at the end of the outermost guard.
class SuspendGuard
{
public:
    SuspendGuard() noexcept { Begin(); }
    ~SuspendGuard() { End(); }
    SuspendGuard(const SuspendGuard&) = delete;
    SuspendGuard& operator=(const SuspendGuard&) = delete;

    /// The two ends by hand, for locks that are not taken and left in one scope.
    static void Begin() noexcept { mine.depth = mine.depth + 1; }
    static void End() noexcept
    {
        const std::uint32_t depth = mine.depth - 1;
        mine.depth = depth;
        if (depth == 0 && mine.isWanted) [[unlikely]]
            Stand();
    }

    /// For a frame that gave up a body together with the guards in it: none is left on this thread.
    static void Forget() noexcept
    {
        mine.depth = 1;
        End();
    }

private:
    friend class Suspension;
    static void Stand() noexcept;

    // Read by a signal handler on the same thread.
    struct State
    {
        volatile std::uint32_t depth;
        volatile bool isWanted;
    };
    static constinit thread_local State mine __attribute__((tls_model("initial-exec")));
};

} // namespace Zem::Platform
