#pragma once

#include <cstddef>
#include <cstdint>

/// Decoding of JPEG images from memory.
///
/// One `JpegReader` decodes one image: prepare, read the header, read the image if wanted, release; the bytes stay where
/// they are and unchanged until then. Each function answers true on success. Bytes that the decoder has any complaint
/// about, also a mild one such as a missing end, are a failure, and so are CMYK images and ones of more than 500 scans.
/// Nothing is printed, thrown or left behind, whatever the bytes are. A build without JPEG answers false throughout.
namespace Zem::Platform
{

/// The decoder's state, so that preparing needs no heap of ours. Not to be copied or moved once prepared.
struct JpegReader
{
    alignas(16) unsigned char record[2048];
};

/// Makes `reader` ready. Only after success may, and must, it be released.
bool PrepareJpeg(JpegReader& reader) noexcept;

/// Reads the header at `data`. Width and height are pixels, at least 1 and below 65,536.
bool ReadJpegHeader(JpegReader& reader, const void* data, std::size_t size, std::uint32_t& width,
                    std::uint32_t& height) noexcept;

/// Reads the image whose header was read, top row first, as bytes blue, green, red, 255, into rows `pitch` bytes apart.
/// A failure leaves the rows partly written.
bool ReadJpegImage(JpegReader& reader, unsigned char* pixels, std::ptrdiff_t pitch) noexcept;

/// Gives back what the decoder holds; callable after a failure of the reads too.
bool ReleaseJpeg(JpegReader& reader) noexcept;

} // namespace Zem::Platform
