#include <Bedrock/platform/x11/Pictures.h>

#include <xcb/shm.h>

#include <bit>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Zem::Platform::X11
{

namespace
{

// A descriptor travels over a local socket alone; through any other the connection would break.
bool IsLocal(xcb_connection_t* xcb)
{
    sockaddr_storage address{};
    socklen_t length = sizeof(address);
    return getsockname(xcb_get_file_descriptor(xcb), reinterpret_cast<sockaddr*>(&address), &length) == 0 &&
           address.ss_family == AF_UNIX;
}

// A channel of 8 bits at the place and width of a mask; more bits repeat the upper ones, so that 255 fills the mask.
std::uint32_t Channel(std::uint32_t value, std::uint32_t mask)
{
    const int width = std::popcount(mask);
    const std::uint32_t scaled = width <= 8 ? value >> (8 - width) : value << (width - 8) | value >> (16 - width);
    return scaled << std::countr_zero(mask);
}

} // namespace

PixelForm PixelForm::Of(const Connection& connection, xcb_window_t window)
{
    PixelForm form{};
    const auto geometry = XCB_ASK(connection.xcb, get_geometry, window);
    const auto attributes = XCB_ASK(connection.xcb, get_window_attributes, window);
    if (!geometry || !attributes)
        return form;
    const xcb_setup_t* const setup = xcb_get_setup(connection.xcb);
    for (auto formats = xcb_setup_pixmap_formats_iterator(setup); formats.rem; xcb_format_next(&formats))
        if (formats.data->depth == geometry->depth)
        {
            form.bytes = formats.data->bits_per_pixel / 8;
            form.rowPad = formats.data->scanline_pad / 8;
        }
    for (auto depths = xcb_screen_allowed_depths_iterator(connection.screen); depths.rem; xcb_depth_next(&depths))
        for (auto visuals = xcb_depth_visuals_iterator(depths.data); visuals.rem; xcb_visualtype_next(&visuals))
            if (visuals.data->visual_id == attributes->visual && visuals.data->_class >= XCB_VISUAL_CLASS_TRUE_COLOR)
            {
                form.red = visuals.data->red_mask;
                form.green = visuals.data->green_mask;
                form.blue = visuals.data->blue_mask;
            }
    if (form.bytes < 2 || form.bytes > 4 || form.rowPad == 0 || !form.red || !form.green || !form.blue)
        return form;
    form.depth = geometry->depth;
    form.highFirst = setup->image_byte_order != XCB_IMAGE_ORDER_LSB_FIRST;
    if (form.depth == 32)
        form.opaque = ~(form.red | form.green | form.blue);
    form.same = form.bytes == 4 && form.opaque == 0 && form.red == 0xFF0000 && form.green == 0xFF00 &&
                form.blue == 0xFF && !form.highFirst;
    return form;
}

void PixelForm::Convert(std::uint8_t* dst, const std::uint8_t* src, std::int32_t count) const
{
    if (same)
    {
        std::memcpy(dst, src, static_cast<std::size_t>(count) * 4);
        return;
    }
    for (; count > 0; --count, src += 4, dst += bytes)
    {
        const std::uint32_t pixel = Channel(src[2], red) | Channel(src[1], green) | Channel(src[0], blue) | opaque;
        for (int i = 0; i < bytes; ++i)
            dst[i] = static_cast<std::uint8_t>(pixel >> 8 * (highFirst ? bytes - 1 - i : i));
    }
}

Pictures::~Pictures()
{
    for (Block& block : blocks)
        Release(block);
    while (drawn)
    {
        Drawn* const gone = drawn;
        drawn = gone->next;
        Release(gone->block);
        std::free(gone);
    }
}

void Pictures::Release(Block& block)
{
    Wait(block);
    if (block.segment)
        xcb_shm_detach(connection.xcb, block.segment);
    if (block.memory)
        munmap(block.memory, block.size);
    block = {};
}

void Pictures::Wait(Block& block)
{
    if (block.reading)
        Reply<xcb_get_input_focus_reply_t>(xcb_get_input_focus_reply(connection.xcb, block.fence, nullptr));
    block.reading = false;
    block.used = 0;
}

// The answer comes when the server has read what was shown before.
void Pictures::Fence(Block& block)
{
    if (block.reading)
        xcb_discard_reply(connection.xcb, block.fence.sequence);
    block.fence = xcb_get_input_focus(connection.xcb);
    block.reading = true;
}

// So many bytes of the current block; null if the server does not share memory.
std::uint8_t* Pictures::Take(std::size_t size)
{
    Block* block = &blocks[current];
    if (block->size - block->used < size)
    {
        if (block->segment)
            Fence(*block);
        current ^= 1;
        block = &blocks[current];
        if (block->size >= size)
            Wait(*block);
        else
            Release(*block);
        block->used = 0;
        constexpr std::size_t least = 262144; // many small pictures share a block
        if (!block->segment && !Share(*block, size < least ? least : size))
            return nullptr;
    }
    std::uint8_t* const taken = block->memory + block->used;
    block->used += (size + 63) / 64 * 64;
    if (block->used > block->size)
        block->used = block->size;
    return taken;
}

// Memory that the server maps too.
bool Pictures::Share(Block& block, std::size_t size)
{
    if (refused || !connection.extensions.shm || !IsLocal(connection.xcb))
        return false;
    const int file = memfd_create("bedrock-picture", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    if (file < 0)
        return false;
    void* memory = MAP_FAILED;
    // Reserved now, so that a machine without memory is known here and not by a signal at the first pixel; and sealed,
    // so that the server never finds less than it was told.
    if (posix_fallocate(file, 0, static_cast<off_t>(size)) == 0 && fcntl(file, F_ADD_SEALS, F_SEAL_SHRINK) == 0)
        memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    if (memory == MAP_FAILED)
    {
        close(file);
        return false;
    }
    const std::uint32_t segment = xcb_generate_id(connection.xcb);
    // The request takes the descriptor over.
    const xcb_void_cookie_t attached = xcb_shm_attach_fd_checked(connection.xcb, segment, file, 1);
    const Reply<xcb_generic_error_t> error(xcb_request_check(connection.xcb, attached));
    if (error || connection.Lost())
    {
        refused = true;
        munmap(memory, size);
        return false;
    }
    block = {static_cast<std::uint8_t*>(memory), size, 0, segment, false, {}};
    return true;
}

bool Pictures::Show(xcb_window_t window, xcb_gcontext_t gc, const PixelForm& form, const PixelRows& picture,
                    Point corner, const Rect& place)
{
    const std::size_t pitch = form.Pitch(place.width);
    std::uint8_t* const shared = Take(pitch * static_cast<std::size_t>(place.height));
    if (!shared)
        return Send(window, gc, form, picture, corner, place);

    const auto* row = static_cast<const std::uint8_t*>(picture.first) + (place.y - corner.y) * picture.pitch +
                      std::ptrdiff_t{place.x - corner.x} * 4;
    std::uint8_t* dst = shared;
    if (form.same && picture.pitch == static_cast<std::ptrdiff_t>(pitch))
        std::memcpy(dst, row, pitch * static_cast<std::size_t>(place.height));
    else
        for (std::int32_t y = 0; y < place.height; ++y, row += picture.pitch, dst += pitch)
            form.Convert(dst, row, place.width);

    const auto u = [](std::size_t value) { return static_cast<std::uint16_t>(value); };
    const auto width = static_cast<std::size_t>(place.width), height = static_cast<std::size_t>(place.height);
    // The server takes the row's width in pixels and pads it as every image of this depth.
    xcb_shm_put_image(connection.xcb, window, gc, u(width), u(height), 0, 0, u(width), u(height),
                      static_cast<std::int16_t>(place.x), static_cast<std::int16_t>(place.y), form.depth,
                      XCB_IMAGE_FORMAT_Z_PIXMAP, 0, blocks[current].segment,
                      static_cast<std::uint32_t>(shared - blocks[current].memory));
    connection.Flush();
    return true;
}

// ------------------------------------------------------------------------------------------ Drawn in shared memory

Pictures::Drawn* Pictures::Find(const PictureMemory& picture)
{
    Drawn* at = drawn;
    while (at && (at->number != picture.number || at->block.memory != picture.first))
        at = at->next;
    return at;
}

bool Pictures::Open(const PixelForm& form, Size size, PictureMemory& result)
{
    if (!form.same || size.width < 1 || size.height < 1 || size.width > 32767 || size.height > 32767)
        return false;
    auto* const fresh = static_cast<Drawn*>(std::calloc(1, sizeof(Drawn)));
    if (!fresh)
        return false;
    const std::size_t pitch = static_cast<std::size_t>(size.width) * 4;
    if (!Share(fresh->block, pitch * static_cast<std::size_t>(size.height)))
    {
        std::free(fresh);
        return false;
    }
    fresh->number = ++lastNumber;
    fresh->next = drawn;
    drawn = fresh;
    result = {fresh->block.memory, static_cast<std::ptrdiff_t>(pitch), size, fresh->number};
    return true;
}

void Pictures::Close(const PictureMemory& picture)
{
    Drawn* const gone = Find(picture);
    if (!gone)
        return;
    Drawn** at = &drawn;
    while (*at != gone)
        at = &(*at)->next;
    *at = gone->next;
    Release(gone->block);
    std::free(gone);
}

bool Pictures::Show(xcb_window_t window, xcb_gcontext_t gc, const PixelForm& form, const PictureMemory& picture,
                    const Rect& bounds, const Rect* parts, std::size_t count)
{
    Drawn* const shown = Find(picture);
    if (!shown || !form.same)
        return false;
    const auto u = [](std::int32_t value) { return static_cast<std::uint16_t>(value); };
    const auto s = [](std::int32_t value) { return static_cast<std::int16_t>(value); };
    const Rect all = Rect({0, 0}, picture.size).Intersect(bounds);
    for (std::size_t i = 0; i < count; ++i)
    {
        const Rect part = parts[i].Intersect(all);
        if (!part.IsEmpty())
            xcb_shm_put_image(connection.xcb, window, gc, u(picture.size.width), u(picture.size.height), u(part.x),
                              u(part.y), u(part.width), u(part.height), s(part.x), s(part.y), form.depth,
                              XCB_IMAGE_FORMAT_Z_PIXMAP, 0, shown->block.segment, 0);
    }
    Fence(shown->block);
    connection.Flush();
    return !connection.Lost();
}

void Pictures::Wait(const PictureMemory& picture)
{
    if (Drawn* const shown = Find(picture))
        Wait(shown->block);
}

// ------------------------------------------------------------------------------------------------------------ Sent

// Strips of rows, each a request of moderate size: a large one would hold up everything else on the connection.
bool Pictures::Send(xcb_window_t window, xcb_gcontext_t gc, const PixelForm& form, const PixelRows& picture,
                    Point corner, const Rect& place)
{
    const std::size_t pitch = form.Pitch(place.width);
    const std::size_t limit = (std::size_t{xcb_get_maximum_request_length(connection.xcb)} - 8) * 4;
    const std::size_t most = limit < 262144 ? limit : 262144; // the widest row, 32,767 pixels, has 128 KiB
    if (most < pitch)
        return false;
    const std::int32_t rows = static_cast<std::int32_t>(most / pitch);
    auto* const strip = static_cast<std::uint8_t*>(std::calloc(static_cast<std::size_t>(rows), pitch));
    if (strip == nullptr)
        return false;
    const auto* row = static_cast<const std::uint8_t*>(picture.first) + (place.y - corner.y) * picture.pitch +
                      std::ptrdiff_t{place.x - corner.x} * 4;
    for (std::int32_t y = 0; y < place.height; y += rows)
    {
        const std::int32_t count = place.height - y < rows ? place.height - y : rows;
        for (std::int32_t i = 0; i < count; ++i, row += picture.pitch)
            form.Convert(strip + static_cast<std::size_t>(i) * pitch, row, place.width);
        xcb_put_image(connection.xcb, XCB_IMAGE_FORMAT_Z_PIXMAP, window, gc, static_cast<std::uint16_t>(place.width),
                      static_cast<std::uint16_t>(count), static_cast<std::int16_t>(place.x),
                      static_cast<std::int16_t>(place.y + y), 0, form.depth,
                      static_cast<std::uint32_t>(static_cast<std::size_t>(count) * pitch), strip);
    }
    std::free(strip);
    connection.Flush();
    return !connection.Lost();
}

} // namespace Zem::Platform::X11
