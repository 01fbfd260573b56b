#pragma once

#include <cstdint>

namespace Zem
{

/// While it lives, `Alloc` serves the calling thread from a static arena of 256 KiB, with no lock and no call of the
/// heap: a thread that reports a failure may have been stopped inside either.
///
/// Blocks of the arena may outlive the scope and may be freed on any thread; the arena starts anew when none is left.
/// Ordinary blocks that are freed within the scope are put aside and freed at its end. Scopes nest.
class AllocReportScope
{
public:
    enum Cause
    {
        Failure,   // the thread itself is sound
        AfterFault // the heap may be what broke: what is put aside stays there
    };

    explicit AllocReportScope(Cause cause = Failure) noexcept;
    ~AllocReportScope();
    AllocReportScope(const AllocReportScope&) = delete;
    AllocReportScope& operator=(const AllocReportScope&) = delete;

    /// Bytes of the arena that are in use, for tests.
    static std::uint32_t Used() noexcept;

private:
    bool isSound;
};

/// For the frame that catches a fault: if the fault stopped the calling thread inside a list of `Alloc`, forgets the
/// blocks of that list, which cannot be trusted any more, and gives back its lock.
void RecoverAllocAfterFault() noexcept;

/// Makes requests of the calling thread fail, to test what becomes of those who asked.
class AllocFailureForTest
{
public:
    /// The first `after` requests are served, all others fail, as long as the object lives.
    explicit AllocFailureForTest(std::uint32_t after = 0) noexcept;
    ~AllocFailureForTest();
    AllocFailureForTest(const AllocFailureForTest&) = delete;
    AllocFailureForTest& operator=(const AllocFailureForTest&) = delete;

    /// True once a request has failed.
    static bool HasFailed() noexcept;
};

} // namespace Zem
