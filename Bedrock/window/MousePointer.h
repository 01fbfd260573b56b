#pragma once

#include <Bedrock/Export.h>

namespace Zem
{

/// The system's pointer over the application's windows. Calls count: a pointer that was hidden twice must be shown twice.
///
/// The count starts at 0, and the pointer is seen while it is not below, so one `Show` too many takes a `Hide` more.
/// Threads: the window's.
class ZEM_API MousePointer
{
public:
    MousePointer() = delete;

    static void Hide();
    static void Show();

private:
    static void Count(int step);

    static int count; // the pointer is seen at 0 and above
};

} // namespace Zem
