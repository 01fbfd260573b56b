#include <Bedrock/host/ReportLayout.h>

namespace Zem
{

ReportLayout::ReportLayout(const DialogUnits& units, Size outer) noexcept : smallest(outer), client(InitialSize(units))
{
    for (int i = 0; i < 5; ++i)
        places[i] = units.Pixels(Controls[i].units);
}

Rect ReportLayout::Place(Item item) const noexcept
{
    for (int i = 0; i < 5; ++i)
    {
        if (Controls[i].item == item)
            return places[i];
    }
    return Rect();
}

int ReportLayout::Resize(SizeKind kind, Size newClient, Rect (&strips)[3]) noexcept
{
    if (kind == Minimised || kind == Hidden)
        return 0;
    const std::int32_t dx = newClient.width - client.width;
    const std::int32_t dy = newClient.height - client.height;
    const std::int32_t w = client.width;
    const std::int32_t h = client.height;
    client = newClient;
    if (dx == 0 && dy == 0)
        return 0;
    for (int i = 0; i < 5; ++i)
    {
        switch (Controls[i].item)
        {
        case ContinueButton:
        case TerminateButton:
            places[i].x += dx;
            break;
        case List:
            places[i].width += dx;
            places[i].height += dy;
            break;
        default:
            break;
        }
    }
    // The right edge beside the list, the lower edge, and the buttons' corner: in the old size and what was added to it.
    const std::int32_t right = w + (dx > 0 ? dx : 0);
    const std::int32_t bottom = h + (dy > 0 ? dy : 0);
    strips[0] = Rect(w - 32, 85, right - (w - 32), h - 85);
    strips[1] = Rect(0, h - 32, w - 32, bottom - (h - 32));
    strips[2] = Rect(w - 140, 0, right - (w - 140), 85);
    return 3;
}

Rect ReportLayout::Grip(SizeKind state) const noexcept
{
    if (state != Shown)
        return Rect();
    return Rect(client.width - GripSize, client.height - GripSize, GripSize, GripSize);
}

bool ReportReader::Next(Line& line) noexcept
{
    bool startsGroup = isFirst;
    isFirst = false;
    const auto isEnd = [](char c) { return c == '\n' || c == '\r'; };
    bool afterLine = false;
    for (; at != end && isEnd(*at); ++at)
    {
        if (*at == '\n')
        {
            startsGroup = startsGroup || afterLine;
            afterLine = true;
        }
    }
    if (at == end)
        return false;
    line.text = at;
    while (at != end && !isEnd(*at))
        ++at;
    line.length = static_cast<std::uint32_t>(at - line.text);
    line.startsGroup = startsGroup;
    return true;
}

} // namespace Zem
