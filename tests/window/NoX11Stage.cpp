#include "window/Stage.h"

namespace Test
{

std::unique_ptr<Stage> OpenX11Stage(bool, std::string& reason)
{
    reason = "built without X11";
    return nullptr;
}

} // namespace Test
