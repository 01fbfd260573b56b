#pragma once

#include <Bedrock/platform/Text.h>

#include <cstddef>
#include <cstdint>

/// Names as look-ups compare them: without case and without a difference between the separators. Letters of ASCII are
/// the same in every locale, the others follow the process's.
namespace Zem::FoldedName
{

inline unsigned char Fold(char c)
{
    const auto byte = static_cast<unsigned char>(c);
    if (byte == '\\')
        return '/';
    return byte < 128 ? Platform::ToLowerAscii(byte) : static_cast<unsigned char>(Platform::ToLower(byte));
}

/// FNV-1a over the folded name, its upper half mixed into the lower, which picks the slot.
inline std::uint32_t Hash(const char* name)
{
    std::uint32_t hash = 0x811C9DC5;
    for (; *name; ++name)
        hash = (hash ^ Fold(*name)) * 0x01000193;
    return hash ^ hash >> 15;
}

/// The same over its first `length` bytes.
inline std::uint32_t Hash(const char* name, std::size_t length)
{
    std::uint32_t hash = 0x811C9DC5;
    for (std::size_t i = 0; i < length; ++i)
        hash = (hash ^ Fold(name[i])) * 0x01000193;
    return hash ^ hash >> 15;
}

inline bool Same(const char* a, const char* b)
{
    for (; *a && (*a == *b || Fold(*a) == Fold(*b)); ++a, ++b)
    {
    }
    return *a == *b;
}

/// Whether the first `length` bytes are the same.
inline bool Same(const char* a, const char* b, std::size_t length)
{
    for (std::size_t i = 0; i < length; ++i)
        if (a[i] != b[i] && Fold(a[i]) != Fold(b[i]))
            return false;
    return true;
}

} // namespace Zem::FoldedName
