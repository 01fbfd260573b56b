#pragma once

#include <Bedrock/Export.h>
#include <Bedrock/memory/Nodes.h>

#include <cstdint>

namespace Zem
{

/// Notes where the visible top-level windows of the desktop stand, those of all programs, and puts them back later: a
/// change of the desktop's mode may have moved them.
///
/// Notes stay until the process ends. Restoring may be repeated. Saving again adds notes, so that restoring goes through
/// the older places to the newer ones. Windows that are gone, or do not want to be moved, are passed over; none is
/// brought to the front. Threads: the window's.
///
///     WindowPlacement::SaveWindowPositions();
///     PlayInAnotherMode();
///     WindowPlacement::RestoreWindowPositions();
class ZEM_API WindowPlacement
{
public:
    WindowPlacement() = delete;

    static void SaveWindowPositions();
    static void RestoreWindowPositions();

    /// Windows noted so far, one that was saved twice counted twice.
    static std::uint32_t Count() { return records.Count(); }

private:
    struct Record;

    // Frees its records when the library goes, once.
    struct Records : NodeList
    {
        constexpr Records() noexcept = default;
        ~Records();
        Records(const Records&) = delete;
        Records& operator=(const Records&) = delete;
    };

    static Records records; // stands in Library.cpp
};

} // namespace Zem
