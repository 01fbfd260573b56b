#pragma once

#include <Bedrock/platform/Text.h>

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

inline bool Same(const char* a, const char* b)
{
    for (; *a && (*a == *b || Fold(*a) == Fold(*b)); ++a, ++b)
    {
    }
    return *a == *b;
}

} // namespace Zem::FoldedName
