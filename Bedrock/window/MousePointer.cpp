#include <Bedrock/window/MousePointer.h>

#include <Bedrock/platform/Desktop.h>

namespace Zem
{

constinit int MousePointer::count = 0;

void MousePointer::Hide()
{
    Count(-1);
}

void MousePointer::Show()
{
    Count(1);
}

void MousePointer::Count(int step)
{
    const bool visible = count >= 0;
    count += step;
    if ((count >= 0) == visible)
        return;
    if (Platform::Desktop* const desktop = Platform::OpenDesktop())
        desktop->ShowPointer(!visible);
}

} // namespace Zem
