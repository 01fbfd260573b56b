#pragma once

#include <Bedrock/Types.h>
#include <Bedrock/platform/Desktop.h>
#include <Bedrock/platform/x11/Connection.h>

#include <cstddef>
#include <cstdint>

namespace Zem::Platform::X11
{

/// How pixels of b, g, r, x bytes become those of a window.
struct PixelForm
{
    std::uint8_t depth;
    std::uint8_t bytes;             ///< of a pixel: 2, 3 or 4
    std::uint8_t rowPad;            ///< rows are padded to this many bytes
    bool same;                      ///< the words are taken as they are
    bool highFirst;                 ///< the server's order of the bytes of a pixel
    std::uint32_t red, green, blue; ///< masks
    std::uint32_t opaque;           ///< bits of a pixel that are alpha, set in every one

    /// The form of a window's pixels; `depth` is 0 if it has a palette, or the window is gone.
    static PixelForm Of(const Connection& connection, xcb_window_t window);

    /// Bytes from a row to the next.
    std::size_t Pitch(std::int32_t width) const
    {
        return (static_cast<std::size_t>(width) * bytes + rowPad - 1U) / rowPad * rowPad;
    }

    void Convert(std::uint8_t* dst, const std::uint8_t* src, std::int32_t count) const;
};

/// The way of pictures into windows.
///
/// A server on this machine maps the memory that rows are copied to, and copies them from there itself. There are two
/// such blocks, so that one is filled, picture behind picture, while the server still reads the other. Any other server
/// is sent the rows.
class Pictures
{
public:
    explicit Pictures(Connection& server) : connection(server) {}
    ~Pictures();
    Pictures(const Pictures&) = delete;
    Pictures& operator=(const Pictures&) = delete;

    /// Shows the part of a picture that is at `place` in the window, where the picture's corner is at `corner`. `place`
    /// lies within both.
    bool Show(xcb_window_t window, xcb_gcontext_t gc, const PixelForm& form, const PixelRows& picture, Point corner,
              const Rect& place);

    /// Pictures that the application draws in the shared memory itself, where the pixels are taken as they are.
    bool Open(const PixelForm& form, Size size, PictureMemory& result);
    void Close(const PictureMemory& picture);
    bool Show(xcb_window_t window, xcb_gcontext_t gc, const PixelForm& form, const PictureMemory& picture,
              const Rect& bounds, const Rect* parts, std::size_t count);
    void Wait(const PictureMemory& picture);

private:
    struct Block
    {
        std::uint8_t* memory;
        std::size_t size, used;
        std::uint32_t segment;
        bool reading;                       // the server may not have read it yet
        xcb_get_input_focus_cookie_t fence; // answered when it has
    };
    struct Drawn
    {
        Drawn* next;
        Block block;
        std::uintptr_t number;
    };
    Drawn* Find(const PictureMemory& picture);
    void Fence(Block& block);
    std::uint8_t* Take(std::size_t size);
    bool Share(Block& block, std::size_t size);
    void Release(Block& block);
    void Wait(Block& block);
    bool Send(xcb_window_t window, xcb_gcontext_t gc, const PixelForm& form, const PixelRows& picture, Point corner,
              const Rect& place);

    Connection& connection;
    Block blocks[2] = {};
    unsigned current = 0;
    Drawn* drawn = nullptr;
    std::uintptr_t lastNumber = 0;
    bool refused = false; // the server does not share
};

} // namespace Zem::Platform::X11
