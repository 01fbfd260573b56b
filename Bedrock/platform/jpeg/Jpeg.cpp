// JPEG through libjpeg-turbo, which writes our byte order by itself.
//
// The decoder reports errors by a call that must not return; it jumps back into the function of ours that is running.
// No object with a destructor may live across such a jump, so these functions hold plain values only.

#include <Bedrock/platform/Jpeg.h>

#include <csetjmp>
#include <cstdio>
#include <new>

#include <jpeglib.h>

namespace Zem::Platform
{

namespace
{

constexpr int maxScans = 500; // a few bytes can describe a scan over the whole image; real files have about ten

struct State
{
    jpeg_decompress_struct decoder;
    jpeg_error_mgr errors;
    jpeg_progress_mgr progress;
    std::jmp_buf back;
};

static_assert(sizeof(State) <= sizeof(JpegReader::record) && alignof(State) <= alignof(JpegReader));

State& StateOf(JpegReader& reader)
{
    return *std::launder(reinterpret_cast<State*>(reader.record));
}

[[noreturn]] void Fail(j_common_ptr decoder)
{
    std::longjmp(static_cast<State*>(decoder->client_data)->back, 1);
}

// Levels below 0 are warnings: damaged data that the decoder would fill up with grey.
void OnMessage(j_common_ptr decoder, int level)
{
    if (level < 0)
        Fail(decoder);
}

void OnOutput(j_common_ptr)
{
}

void OnProgress(j_common_ptr decoder)
{
    if (reinterpret_cast<j_decompress_ptr>(decoder)->input_scan_number > maxScans)
        Fail(decoder);
}

} // namespace

bool PrepareJpeg(JpegReader& reader) noexcept
{
    State& state = *new (reader.record) State();
    state.decoder.err = jpeg_std_error(&state.errors);
    state.errors.error_exit = Fail;
    state.errors.emit_message = OnMessage;
    state.errors.output_message = OnOutput;
    state.decoder.client_data = &state;
    if (setjmp(state.back))
        return false;
    jpeg_create_decompress(&state.decoder); // keeps `err` and `client_data`
    state.progress.progress_monitor = OnProgress;
    state.decoder.progress = &state.progress;
    return true;
}

bool ReadJpegHeader(JpegReader& reader, const void* data, std::size_t size, std::uint32_t& width,
                    std::uint32_t& height) noexcept
{
    State& state = StateOf(reader);
    jpeg_decompress_struct& decoder = state.decoder;
    if (!data || size == 0 || setjmp(state.back))
        return false;
    jpeg_mem_src(&decoder, static_cast<const unsigned char*>(data), static_cast<unsigned long>(size));
    if (jpeg_read_header(&decoder, TRUE) != JPEG_HEADER_OK)
        return false;
    if (decoder.jpeg_color_space != JCS_GRAYSCALE && decoder.jpeg_color_space != JCS_YCbCr &&
        decoder.jpeg_color_space != JCS_RGB)
        return false;
    // Each block of 8 by 8 pixels of the finest component takes a bit at least, so a few bytes cannot claim the memory
    // of a huge image. Arithmetic coding has no such bound.
    const std::uint64_t blocks = ((std::uint64_t{decoder.image_width} + 7) / 8) * ((decoder.image_height + 7) / 8);
    if (!decoder.arith_code && blocks / 8 > size)
        return false;
    width = decoder.image_width;
    height = decoder.image_height;
    return true;
}

bool ReadJpegImage(JpegReader& reader, unsigned char* pixels, std::ptrdiff_t pitch) noexcept
{
    State& state = StateOf(reader);
    jpeg_decompress_struct& decoder = state.decoder;
    if (setjmp(state.back))
        return false;
    decoder.out_color_space = JCS_EXT_BGRA; // alpha comes as 255
    if (!jpeg_start_decompress(&decoder))
        return false;
    while (decoder.output_scanline < decoder.output_height)
    {
        JSAMPROW rows[16]; // as many as one row of blocks may give at once
        JDIMENSION count = 0;
        for (; count < 16 && decoder.output_scanline + count < decoder.output_height; ++count)
            rows[count] = pixels + static_cast<std::ptrdiff_t>(decoder.output_scanline + count) * pitch;
        if (jpeg_read_scanlines(&decoder, rows, count) == 0)
            return false;
    }
    return jpeg_finish_decompress(&decoder) != FALSE;
}

bool ReleaseJpeg(JpegReader& reader) noexcept
{
    State& state = StateOf(reader);
    if (setjmp(state.back))
        return false;
    jpeg_destroy_decompress(&state.decoder);
    return true;
}

} // namespace Zem::Platform
