#pragma once

namespace Zem
{

/// Two numbers that bound something. Whether the ends belong to it is for the owner to say; nothing keeps `low` from
/// being above `high`.
template <class T>
struct Range
{
    T low;
    T high;

    friend bool operator==(const Range&, const Range&) = default;
};

} // namespace Zem
