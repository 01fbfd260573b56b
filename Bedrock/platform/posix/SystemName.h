#pragma once

#include <Bedrock/platform/Files.h>

#include <cerrno>
#include <cstddef>
#include <cstring>

namespace Zem::Platform
{

/// The only place where errors of the system become ours.
Status FromErrno(int error) noexcept;

/// Repeats a call that a signal cut off before it did anything.
template <class Call>
auto Restart(Call call) noexcept
{
    for (;;)
    {
        const auto result = call();
        if (result >= 0 || errno != EINTR)
            return result;
    }
}

/// A name as the system wants it. The common name has no backslash and is used where it lies.
class SystemName
{
public:
    explicit SystemName(const char* name) noexcept : text(name ? name : "")
    {
        if (!std::strchr(text, '\\'))
            return;
        std::size_t n = 0;
        for (; text[n] && n < sizeof(copy) - 1; ++n)
            copy[n] = text[n] == '\\' ? '/' : text[n];
        // A name that is too long stays empty: the system finds nothing under it.
        copy[text[n] ? 0 : n] = '\0';
        text = copy;
    }
    SystemName(const SystemName&) = delete;
    SystemName& operator=(const SystemName&) = delete;
    operator const char*() const noexcept { return text; }

private:
    const char* text;
    char copy[1024];
};

} // namespace Zem::Platform
