#pragma once

#include <Bedrock/Export.h>

#include <cstdint>

namespace Zem
{

/// One colour in 32 bits, passed by value.
///
///     address   +0  +1  +2  +3
///     byte       b   g   r   a        as a little-endian word: 0xAARRGGBB
///
/// Alpha 255 is opaque, alpha 0 fully transparent; the components are not premultiplied by alpha. A colour converts
/// freely to and from its word, and two colours compare as words.
///
///     PackedColor shade = PackedColor::orange;
///     shade.a = 128;                     // half transparent
///     std::uint32_t word = shade;        // 0x80FFC800
struct PackedColor
{
    std::uint8_t b;
    std::uint8_t g;
    std::uint8_t r;
    std::uint8_t a;

    PackedColor() = default; // not initialised, like a word

    constexpr PackedColor(std::uint32_t word)
        : b(static_cast<std::uint8_t>(word)), g(static_cast<std::uint8_t>(word >> 8)),
          r(static_cast<std::uint8_t>(word >> 16)), a(static_cast<std::uint8_t>(word >> 24))
    {
    }

    constexpr operator std::uint32_t() const
    {
        return static_cast<std::uint32_t>(b) | static_cast<std::uint32_t>(g) << 8 |
               static_cast<std::uint32_t>(r) << 16 | static_cast<std::uint32_t>(a) << 24;
    }

    static const PackedColor black;
    static const PackedColor blue;
    static const PackedColor cyan;
    static const PackedColor darkGray;
    static const PackedColor gray;
    static const PackedColor green;
    static const PackedColor lightGray;
    static const PackedColor magenta;
    static const PackedColor orange;
    static const PackedColor pink;
    static const PackedColor red;
    static const PackedColor white;
    static const PackedColor yellow;
};

static_assert(sizeof(PackedColor) == 4);

// Constant-initialised: right before any code runs, in every order of start.
inline constexpr PackedColor PackedColor::black{0xFF000000};
inline constexpr PackedColor PackedColor::blue{0xFF0000FF};
inline constexpr PackedColor PackedColor::cyan{0xFF00FFFF};
inline constexpr PackedColor PackedColor::darkGray{0xFF404040};
inline constexpr PackedColor PackedColor::gray{0xFF808080};
inline constexpr PackedColor PackedColor::green{0xFF00FF00};
inline constexpr PackedColor PackedColor::lightGray{0xFFC0C0C0};
inline constexpr PackedColor PackedColor::magenta{0xFFFF00FF};
inline constexpr PackedColor PackedColor::orange{0xFFFFC800};
inline constexpr PackedColor PackedColor::pink{0xFFFF40C8};
inline constexpr PackedColor PackedColor::red{0xFFFF0000};
inline constexpr PackedColor PackedColor::white{0xFFFFFFFF};
inline constexpr PackedColor PackedColor::yellow{0xFFFFFF00};

} // namespace Zem

// The only functions of the library outside its namespace. Both flatten a colour onto black: unless the word is opaque
// (0xFF000000 and above), each component `c` becomes (a * c + 127) / 255.
extern "C++"
{
    /// The colour as a 5-6-5 pixel in the low 16 bits; components are cut to their high bits. The high 16 bits are 0.
    ZEM_API std::uint32_t ARGBToRGB16(std::uint32_t argb);

    /// The colour with its alpha at 255.
    ZEM_API std::uint32_t ARGBToRGB24(std::uint32_t argb);
}
