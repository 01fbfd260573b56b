#pragma once

#include <cstdint>

namespace Zem
{

/// What the library knows about itself while it is loaded; Library.cpp holds its start and its end. Hidden.
class Library
{
public:
    /// The platform's handle of the library's own module; 0 until it is attached.
    static std::intptr_t Module() noexcept { return module; }

private:
    friend struct Attachment;

    static std::intptr_t module;
};

} // namespace Zem
