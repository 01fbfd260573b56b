#pragma once

#include <concepts>
#include <cstdint>

namespace Zem
{

/// What one failure code is called and what it says. A table holds code N in entry N-1 and ends in null pointers; a
/// table of texts alone leaves `symbol` null.
struct ResultTable
{
    const char* symbol;
    const char* text;
};

/// An expected failure, returned by value: one code of `Enum`, described by the static table `Table`. Code 0 is success.
///
/// As a condition it is true on success. Anywhere else it is its code, so it compares with the members of `Enum` and
/// with 0; it never becomes a `bool` by the way, which could only be read the wrong way round.
///
///     if (auto result = file.Open(name, File::ModeRead); !result)
///         std::printf("%s: %s\n", name, result.Text());
///     if (file.Open(name, File::ModeRead) == File::RES_FILENOTFOUND) ...
template <const ResultTable* Table, class Enum>
class [[nodiscard]] ResultClass
{
public:
    constexpr ResultClass() noexcept : code(0) {}
    constexpr ResultClass(Enum result) noexcept : code(static_cast<std::int32_t>(result)) {}

    constexpr std::int32_t Code() const noexcept { return code; }

    /// The enumerator's name; "" for success, for a table of texts alone and for a code that the table lacks.
    constexpr const char* Symbol() const noexcept
    {
        const ResultTable* row = Row();
        return row && row->symbol ? row->symbol : "";
    }

    /// The message of the failure; "" for success and for a code that the table lacks.
    constexpr const char* Text() const noexcept
    {
        const ResultTable* row = Row();
        return row && row->text ? row->text : "";
    }

    constexpr operator Enum() const noexcept { return static_cast<Enum>(code); }
    constexpr explicit operator bool() const noexcept { return code == 0; }
    /// `bool ok = Open(...)` would be the code as a number, true on failure.
    template <std::same_as<bool> T>
    operator T() const = delete;

private:
    constexpr const ResultTable* Row() const noexcept
    {
        if (code <= 0)
            return nullptr;
        const ResultTable* row = Table;
        for (std::int32_t n = 1; n < code; ++n, ++row)
            if (!row->symbol && !row->text)
                return nullptr;
        return row;
    }

    std::int32_t code;
};

} // namespace Zem
