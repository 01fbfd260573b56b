// JPEG files made here by the JPEG library itself, and what it decodes from them by its plain interface.

#include <Bedrock/bitmap/Bitmap.h>
#include <Bedrock/files/MemoryFile.h>
#include <Bedrock/memory/PString.h>

#include "support/Images.h"
#include "support/Support.h"

#include <cstdio>
#include <functional>

#include <jpeglib.h>

using namespace Zem;
using Test::Bytes;
using Test::Loader;

namespace
{

// `components` 1, 3 or 4 of a smooth picture with noise; `adjust` sets what is special.
Bytes Compress(int width, int height, int components, const std::function<void(jpeg_compress_struct&)>& adjust = {})
{
    jpeg_compress_struct coder;
    jpeg_error_mgr errors;
    coder.err = jpeg_std_error(&errors);
    jpeg_create_compress(&coder);
    unsigned char* data = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&coder, &data, &size);
    coder.image_width = static_cast<JDIMENSION>(width);
    coder.image_height = static_cast<JDIMENSION>(height);
    coder.input_components = components;
    coder.in_color_space = components == 1 ? JCS_GRAYSCALE : components == 3 ? JCS_RGB : JCS_CMYK;
    jpeg_set_defaults(&coder);
    if (adjust)
        adjust(coder);
    jpeg_start_compress(&coder, TRUE);
    Bytes row(static_cast<std::size_t>(width * components));
    for (int y = 0; y < height; ++y)
    {
        for (std::size_t i = 0; i < row.size(); ++i)
            row[i] = static_cast<std::uint8_t>(i * 7 / static_cast<std::size_t>(components) +
                                               static_cast<std::size_t>(y) * 5 * (1 + i % 3) + i * i % 11);
        JSAMPROW rows[1] = {row.data()};
        jpeg_write_scanlines(&coder, rows, 1);
    }
    jpeg_finish_compress(&coder);
    jpeg_destroy_compress(&coder);
    Bytes bytes(data, data + size);
    std::free(data);
    return bytes;
}

// Red, green, blue as the library's documentation shows it.
std::vector<std::uint32_t> Decode(const Bytes& bytes)
{
    jpeg_decompress_struct decoder;
    jpeg_error_mgr errors;
    decoder.err = jpeg_std_error(&errors);
    jpeg_create_decompress(&decoder);
    jpeg_mem_src(&decoder, bytes.data(), static_cast<unsigned long>(bytes.size()));
    jpeg_read_header(&decoder, TRUE);
    decoder.out_color_space = JCS_RGB;
    jpeg_start_decompress(&decoder);
    std::vector<std::uint32_t> words;
    Bytes row(std::size_t{decoder.output_width} * 3);
    while (decoder.output_scanline < decoder.output_height)
    {
        JSAMPROW rows[1] = {row.data()};
        jpeg_read_scanlines(&decoder, rows, 1);
        for (std::size_t x = 0; x < row.size(); x += 3)
            words.push_back(0xFF000000u | static_cast<std::uint32_t>(row[x]) << 16 |
                            static_cast<std::uint32_t>(row[x + 1]) << 8 | row[x + 2]);
    }
    jpeg_finish_decompress(&decoder);
    jpeg_destroy_decompress(&decoder);
    return words;
}

bool Load(Loader& bitmap, const Bytes& bytes, std::size_t size)
{
    const auto block = ::Test::Exact(bytes.data(), size);
    MemoryFile file(block.get(), static_cast<std::uint32_t>(size));
    return bitmap.LoadJPG(file);
}

// A progressive script of one scan for each coefficient, component and bit: far more than a real file has.
std::vector<jpeg_scan_info> ManyScans(int bits)
{
    std::vector<jpeg_scan_info> scans = {{3, {0, 1, 2, 0}, 0, 0, 0, 0}};
    for (int low = bits - 1; low >= 0; --low)
        for (int component = 0; component < 3; ++component)
            for (int k = 1; k < 64; ++k)
                scans.push_back({1, {component, 0, 0, 0}, k, k, low == bits - 1 ? 0 : low + 1, low});
    return scans;
}

TEST(Jpeg, DecodesAsTheLibraryDoes)
{
    const struct
    {
        const char* what;
        int width, height, components;
        std::function<void(jpeg_compress_struct&)> adjust;
    } rows[] = {
        {"colour of even size", 64, 48, 3, {}},
        {"colour of odd size", 37, 21, 3, {}},
        {"grey", 19, 33, 1, {}},
        {"one pixel", 1, 1, 3, {}},
        {"no subsampling", 33, 17, 3, [](auto& c) { c.comp_info[0].h_samp_factor = c.comp_info[0].v_samp_factor = 1; }},
        {"progressive", 50, 50, 3, [](auto& c) { jpeg_simple_progression(&c); }},
        {"restarts", 50, 50, 3, [](auto& c) { c.restart_interval = 2; }},
        {"red, green and blue without conversion", 20, 20, 3, [](auto& c) { jpeg_set_colorspace(&c, JCS_RGB); }},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.what);
        const Bytes bytes = Compress(row.width, row.height, row.components, row.adjust);
        Loader bitmap;
        ASSERT_TRUE(Load(bitmap, bytes, bytes.size()));
        EXPECT_EQ(bitmap.GetFormat(), Bitmap::XRGB32);
        EXPECT_EQ(static_cast<Rect>(bitmap), Rect(0, 0, row.width, row.height));
        const auto words = Decode(bytes);
        ASSERT_EQ(words.size(), static_cast<std::size_t>(row.width * row.height));
        EXPECT_EQ(std::memcmp(words.data(), bitmap.GetPtr(), words.size() * 4), 0);
    }
}

TEST(Jpeg, RefusesWhatIsDamagedOrUnreasonable)
{
    const Bytes good = Compress(40, 40, 3);
    for (std::size_t size = 0; size < good.size(); ++size)
    {
        Loader bitmap;
        EXPECT_FALSE(Load(bitmap, good, size)) << "cut at " << size;
    }
    const auto frame = [](Bytes bytes, std::uint8_t high) { // a width and height of 256 * high and more
        for (std::size_t i = 0; i + 8 < bytes.size(); ++i)
            if (bytes[i] == 0xFF && bytes[i + 1] == 0xC0)
                bytes[i + 5] = bytes[i + 7] = high;
        return bytes;
    };
    const auto scans = [](int bits)
    {
        return Compress(16, 16, 3,
                        [bits](jpeg_compress_struct& coder)
                        {
                            static std::vector<jpeg_scan_info> script;
                            script = ManyScans(bits);
                            coder.scan_info = script.data();
                            coder.num_scans = static_cast<int>(script.size());
                        });
    };
    const struct
    {
        const char* what;
        Bytes bytes;
        bool expected;
    } rows[] = {
        {"good", good, true},
        {"nothing", {}, false},
        {"another format", ::Test::Tga(4, 4, 32, Bytes(64, 1), true), false},
        {"four components", Compress(16, 16, 4), false},
        {"a size that a few bytes cannot hold", frame(good, 0xFF), false},
        {"379 scans", scans(2), true},
        {"568 scans", scans(3), false},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.what);
        Loader bitmap;
        EXPECT_EQ(Load(bitmap, row.bytes, row.bytes.size()), row.expected);
    }
}

TEST(Jpeg, LoadsUnderBothExtensions)
{
    PString::Init();
    ::Test::Directory directory;
    const Bytes bytes = Compress(24, 10, 3);
    for (const char* name : {"a.jpg", "a.JPEG"})
    {
        ::Test::WriteFile(name, bytes);
        Bitmap::Format format = Bitmap::Blob;
        std::uint32_t width = 0, height = 0;
        EXPECT_TRUE(Bitmap::GetInfo(name, format, width, height));
        EXPECT_EQ(format, Bitmap::XRGB32);
        EXPECT_EQ(width, 24u);
        EXPECT_EQ(height, 10u);
        Bitmap bitmap;
        EXPECT_TRUE(bitmap.Load(PString(name), PString(), true));
        ::Test::WriteFile(name, bytes.data(), bytes.size() / 2);
        EXPECT_FALSE(bitmap.Load(PString(name), PString(), false));
        EXPECT_FALSE(bitmap.IsValid());
        ::Test::WriteFile(name, Bytes());
        EXPECT_FALSE(bitmap.Load(PString(name), PString(), false));
        width = 5;
        EXPECT_FALSE(Bitmap::GetInfo(name, format, width, height));
        EXPECT_EQ(width, 5u);
    }
}

} // namespace
