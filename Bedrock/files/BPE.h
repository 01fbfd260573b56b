#pragma once

#include <Bedrock/Export.h>

#include <cstdint>

namespace Zem
{

/// The byte pair codec: replaces the most frequent pair of neighbouring bytes by a byte value that a block lacks, again
/// and again, and stores the table of replacements in front of the block.
///
/// Compressed data is a sequence of blocks, each of at most 2,048 logical bytes, with no header and no end mark:
///
///     pair table   groups that cover the codes 0 to 255, each group begins with a byte L:
///                    L 0..127     explicit run of L + 1 codes; for code c one byte `left`, and if it differs from c,
///                                 a byte `right`: c stands for left and right, which may be pair codes themselves
///                    L 128..255   the next L - 127 codes are literals, they stand for themselves
///     2 bytes      number of data bytes, most significant byte first
///     data         codes
///
/// The format is stored in files: the same input gives the same bytes for ever. Nothing marks data as compressed, so
/// callers note whether `Comp` gave fewer bytes than it took.
///
///     std::uint32_t stored = BPE::Comp(packed, text, n); // packed has n bytes
///     if (stored < n)
///         n = BPE::Decomp(text, packed, stored);
///
/// No state: all operations may run on several threads at once.
class ZEM_API BPE
{
public:
    BPE() = delete;

    /// Compresses `n` bytes at `src` to `dst`, which holds `n` bytes and does not overlap `src`.
    ///
    /// Returns: bytes in `dst`. Fewer than `n`: compressed. Exactly `n`: a verbatim copy, because nothing was gained
    /// (or the heap had no room for the work area).
    static std::uint32_t Comp(void* dst, const void* src, std::uint32_t n);

    /// Expands `n` bytes that `Comp` did compress; `dst` holds all that comes out and does not overlap `src`.
    ///
    /// Nothing outside the `n` bytes is read; data that `Comp` never wrote ends the expansion where it goes wrong.
    /// Returns: bytes written to `dst`.
    static std::uint32_t Decomp(void* dst, const void* src, std::uint32_t n);

    /// The same for data that may come from anywhere. Nothing is written beyond `capacity` bytes at `dst`; bytes behind
    /// the expanded ones and inside the capacity may change.
    ///
    /// Returns: true with the expanded length in `written`. False, with `written` 0 and the contents of `dst`
    /// undefined, if a table or its data runs out, a table goes past code 255 or has a code that contains itself, or
    /// the result does not fit.
    static bool DecompBounded(void* dst, std::uint32_t capacity, const void* src, std::uint32_t n,
                              std::uint32_t& written);

    /// A length of 64 bits would lose its upper half: say where it is cut.
    template <class Wide>
    requires(sizeof(Wide) > sizeof(std::uint32_t)) static std::uint32_t
        Comp(void* dst, const void* src, Wide n) = delete;
    template <class Wide>
    requires(sizeof(Wide) > sizeof(std::uint32_t)) static std::uint32_t
        Decomp(void* dst, const void* src, Wide n) = delete;
};

} // namespace Zem
