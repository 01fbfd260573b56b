#pragma once

#include <Bedrock/Export.h>
#include <Bedrock/Types.h>
#include <Bedrock/bitmap/PackedColor.h>
#include <Bedrock/memory/HeapOperators.h>

#include <cstddef>
#include <cstdint>

namespace Zem
{

class MemoryFile;
class PString;

/// A transfer kernel: converts, copies or composites `count` pixels (at least 1) from `src` to `dst`, in ascending
/// address order. Neither address needs any alignment.
using TransferKernel = void (*)(void* dst, const void* src, int count);

/// A fill kernel: writes or composites `color` on `count` pixels (at least 1) that lie `stride` bytes apart; the stride
/// may be negative, and 0 means adjacent pixels.
using FillKernel = void (*)(void* dst, PackedColor color, int count, int stride);

/// The eight pixel loops of one pixel format, which is the destination of each of them.
struct PixelKernels
{
    TransferKernel readARGB;    ///< this format to 32-bit words
    FillKernel fill;            ///< store a colour; RGB16 and RGB24 composite it by its alpha
    FillKernel blendFill;       ///< composite a colour by its alpha
    TransferKernel copySame;    ///< copy; on overlapping memory the source's start repeats, as an ascending walk would
    TransferKernel from16;      ///< convert RGB16 pixels
    TransferKernel from24;      ///< convert RGB24 pixels
    TransferKernel from32;      ///< 32-bit formats copy the words, the others composite by source alpha
    TransferKernel blendFrom32; ///< composite 32-bit pixels by source alpha
};

/// A rectangle of pixels in memory, in one of six formats, with the operations that read, convert, load and save it.
///
///     pixels ─► row 0        ├── width * bytesPerPixel ──┤ padding │
///               row 1        ├───────────────────────────┤         │
///                            ├────────────── pitch ────────────────┤     pitch in bytes, a multiple of 4 by default
///
/// - A bitmap is *empty* (after the default constructor and `Done`), *valid* (`IsValid`: it has pixels), or *described
///   only* (it has a shape and no pixels, because the shape was unsound or the heap exhausted).
/// - It owns its palette always, and its pixels only if it allocated them; memory that the caller provides is wrapped,
///   must outlive the bitmap, and is never freed by it. A copy is a view: it shows the same pixels without owning them,
///   with a palette of its own. Moving hands everything over.
/// - Every pixel operation goes through a table of eight kernels held in the object, so no loop asks for the format.
///   `Indexed8` and `Blob` have kernels that do nothing: nothing is drawn into them or read from them.
/// - Nothing here throws but what the file layer throws. Positions outside the bitmap are ignored or read as white
///   where an operation says so; operations that take raw positions trust the caller.
/// - Threads: one bitmap belongs to one thread at a time, or to readers only.
///
///     Bitmap screen(Size{640, 480}, Bitmap::RGB16, nullptr);
///     screen.Clear(PackedColor::black);
///     screen.Pixel(Point{10, 20}, PackedColor::yellow);
///
///     Bitmap logo;
///     if (logo.Load(PString("logo.tga"), PString(), false))
///         use(logo.GetPtr(), logo.GetPitch());
class ZEM_API Bitmap
{
    ZEM_HEAP_OPERATORS

public:
    /// Pixel layouts, bytes in ascending address order. The numbers are part of the interface.
    enum Format
    {
        Indexed8 = 0, ///< one index into the palette of 256 colours
        RGB24 = 1,    ///< b, g, r; reads back as alpha 255
        ARGB32 = 2,   ///< b, g, r, a, as in `PackedColor`
        XRGB32 = 3,   ///< the same layout and kernels; an image without an alpha of its own (loaders store 255)
        RGB16 = 4,    ///< little-endian word: red in bits 15..11, green in 10..5, blue in 4..0
        Blob = 5      ///< a block of bytes without pixels
    };

    /// The value for `pixels` that describes a bitmap without giving or allocating memory for it.
    static unsigned char* DescribeOnly() { return reinterpret_cast<unsigned char*>(static_cast<std::intptr_t>(-1)); }

    /// An empty bitmap.
    Bitmap();

    /// `Init(size, 0, format, pixels, 0)`.
    Bitmap(const Size& size, Format format, unsigned char* pixels);

    /// A copy of the pixels of `source` in `rect`, in its format and with its pitch (without its sign). The palette is
    /// not copied. A rectangle that does not lie inside `source` gives an invalid bitmap.
    Bitmap(const Bitmap& source, const Rect& rect);

    /// A view of the pixels of `source`, valid as long as these are, with a palette of its own.
    Bitmap(const Bitmap& source);
    Bitmap& operator=(const Bitmap& source);

    /// Takes over pixels and palette; `source` is empty afterwards.
    Bitmap(Bitmap&& source) noexcept;
    Bitmap& operator=(Bitmap&& source) noexcept;

    ~Bitmap();

    /// Makes the bitmap anew, from any state: `Done`, then a bitmap of `size` pixels in `format`.
    ///
    /// `pitch` is the distance in bytes from a row to the next, negative for wrapped memory that is stored bottom-up
    /// (then `pixels` addresses row 0 all the same); 0 takes the row rounded up to 4 bytes. `pixels` is memory to wrap,
    /// null to allocate, or `DescribeOnly()`. `numBytes` is the size of the block, 0 for `pitch * height`; a `Blob`
    /// keeps what it is given.
    ///
    /// The bitmap is invalid (shape set, no pixels) when width or height is below 1, when the magnitude of `pitch` is
    /// below the width, when the block would pass 2 GiB, when pixels are to be allocated for a negative pitch, or when
    /// the heap is exhausted. Wrapped memory is then dropped, not freed. New pixels are not cleared.
    void Init(const Size& size, int pitch, Format format, unsigned char* pixels, int numBytes);

    /// Frees what is owned. Width and height become 0 and the kernels do nothing; wrapped pixels are left alone, and
    /// `IsValid` stays true for them.
    void Done();

    /// Loads a file in place of what the bitmap held; the extension of the name picks the format ("tga", "bmp", "pcx",
    /// "jpg", "jpeg", in either case, a longer extension that begins so included).
    ///
    /// `substitute` names the substitute that the file is looked up in; without text the name stands alone. The result
    /// is `ARGB32` for a TGA of 32 bits, else `XRGB32` with alpha 255; with `keepIndexed` an 8-bit image stays
    /// `Indexed8` and has a palette. README.md of this folder lists which files of each format are read.
    /// Returns: false, with the bitmap empty, for a file that cannot be opened, is refused, or ends too early.
    /// Throws: FileEx when reading an open file fails.
    bool Load(const PString& name, const PString& substitute, bool keepIndexed);

    /// `Load` of `image`, then `AddAlpha` of `alpha`. False with the image loaded when only the alpha was refused.
    bool LoadAlpha(const char* image, const char* alpha);

    /// Takes the pixels of an 8-bit BMP file of the same size as alpha of this 32-bit bitmap; the first row in the file
    /// is always the bottom row, and the file's palette plays no part. The format does not change.
    /// Returns: false, with the bitmap unchanged, for another format, a file that cannot be opened, or is refused.
    bool AddAlpha(const char* name);

    /// Writes a file of the format that the extension names: "tga" for `ARGB32`, "bmp" (24 bits, alpha dropped) for
    /// `ARGB32` and `XRGB32`.
    /// Returns: false for another extension or format, an invalid bitmap, and a file that cannot be created.
    /// Throws: FileEx when writing fails.
    bool Save(const char* name) const;

    /// What a file holds, from its header alone (a JPEG is read whole). A TGA that `Load` does not know has the format
    /// `Blob`.
    /// Returns: false, with the arguments unchanged, when the file cannot be opened or has no such header.
    static bool GetInfo(const char* name, Format& format, std::uint32_t& width, std::uint32_t& height);

    /// The colour at `p`; white (0xFFFFFFFF) outside, and everywhere in `Indexed8` and `Blob`.
    PackedColor Pixel(const Point& p) const;

    /// Stores a colour at `p`, if that lies inside the bitmap, or inside `clip`, which is trusted to lie in the bitmap.
    /// The 32-bit formats take the word unchanged; `RGB16` and `RGB24` composite it by its alpha.
    void Pixel(const Point& p, PackedColor c);
    void Pixel(const Point& p, PackedColor c, const Rect& clip);

    /// Exactly what the writing forms of `Pixel` do.
    void BlendPixel(const Point& p, PackedColor c);
    void BlendPixel(const Point& p, PackedColor c, const Rect& clip);

    /// Sets every byte to zero, padding included: transparent black in the 32-bit formats. Not for a `Blob`.
    void Clear();

    /// Fills every row with a colour as `Pixel` writes it.
    void Clear(std::uint32_t color);

    /// Recolours a mask in a 32-bit bitmap: the blue byte of each pixel that is not all zero becomes its alpha, and
    /// `color`, flattened onto black, its colour. Other formats do not change.
    void Colorize(PackedColor color);

    /// Multiplies every alpha of a 32-bit bitmap by `amount`, 0.0 to 1.0 (clamped): alpha * factor / 256, where the
    /// factor is 255 at most, so 1.0 turns 255 into 254.
    /// Returns: false for the other formats.
    bool SetTransparency(float amount);

    /// The image reduced to `newWidth` by `newHeight` pixels, each the mean of its block, channel by channel (alpha like
    /// the others), cut to whole numbers. All four sizes are powers of two, and the new ones no larger than the old;
    /// the format is `RGB24`, `ARGB32` or `XRGB32`, and the pitch a multiple of 4.
    /// Returns: a bitmap of the same format, which the caller deletes; null if refused, or if the heap is exhausted.
    /// Cost: every byte of the source is read once.
    Bitmap* Scale(int newWidth, int newHeight) const;

    /// A copy of the pixels in `rect`, in the format of this bitmap and with a pitch of its own, without a palette.
    /// Returns: a bitmap that the caller deletes; null if `rect` is empty or reaches out of the image, or if the heap is
    /// exhausted.
    Bitmap* Crop(const Rect& rect);

    // ---- Shapes. A form without `clip` draws on the whole bitmap; a `clip` is trusted to lie inside it. Coordinates may
    // lie anywhere. Nothing is drawn on a `Blob`.

    /// Flag bits of `style`, read where a shape says so.
    enum Style
    {
        StyleFilled = 1,      ///< `Box`, `Circle`, `Triangle`
        StyleAntialiased = 2, ///< `Line`, `Circle`, `Triangle`
        StyleBlend = 4        ///< `Line`, `Box`: composite with `blendFill`
    };

    /// A line with both end points. Antialiased (Wu's algorithm), it stores pixels with reduced alpha, so that a 32-bit
    /// bitmap can be composited later.
    void Line(Point a, Point b, PackedColor color, int style);
    void Line(Point a, Point b, PackedColor color, int style, const Rect& clip);

    /// A rectangle, as outline or filled; no corner is written twice.
    void Box(Rect rect, PackedColor color, int style);
    void Box(Rect rect, PackedColor color, int style, const Rect& clip);

    /// A midpoint circle of `radius` pixels around `center`. Filled, every pixel is written once.
    void Circle(Point center, int radius, PackedColor color, int style);
    void Circle(Point center, int radius, PackedColor color, int style, const Rect& clip);

    /// A triangle in the styles 0 to 3; of other values the low two bits count. One that crosses the clip loses the last
    /// of its rows, as its table ends before it.
    void Triangle(Point pa, Point pb, Point pc, PackedColor color, int style);
    void Triangle(Point pa, Point pb, Point pc, PackedColor color, int style, const Rect& clip);

    /// Sets each channel to the mean of the three. With `dim` the pixels of a checkerboard fixed to absolute coordinates
    /// get half their alpha; `RGB16` and `RGB24` then keep half of the old colour there.
    void GrayScale(const Rect& rect);
    void GrayScale(const Rect& rect, bool dim);
    void GrayScale(const Rect& rect, const Rect& clip);
    void GrayScale(const Rect& rect, bool dim, const Rect& clip);

    /// Writes `color` to the pixels whose column plus row is even; nothing on a rectangle narrower than 2 pixels.
    void Stipple(const Rect& rect, PackedColor color, const Rect& clip);

    /// Walks from `from` toward `to` along a row or a column and returns the count of pixels read, from 1, at the first
    /// that differs from `color`; 0 when `to`, which is not read, comes first, and off axis.
    int LineScan(const Point& from, const Point& to, std::uint32_t color);

    // ---- Transfers. `flags` has no effect. The source is cut to its bitmap, the destination to `clip`, which is trusted.
    // An `Indexed8` or `Blob` source draws nothing. A bitmap transferred onto itself is processed from the top row down,
    // each row from the left.

    /// Composites the pixels of `sourceRect` by their alpha, the first at `at`.
    void Image(const Bitmap& source, const Point& at, int flags);
    void Image(const Bitmap& source, const Point& at, const Rect& sourceRect, int flags);
    void Image(const Bitmap& source, const Point& at, const Rect& sourceRect, int flags, const Rect& clip);

    /// The same, but a 32-bit bitmap takes 32-bit pixels unchanged, alpha included.
    void CopyImage(const Bitmap& source, const Point& at, int flags);
    void CopyImage(const Bitmap& source, const Point& at, const Rect& sourceRect, int flags);
    void CopyImage(const Bitmap& source, const Point& at, const Rect& sourceRect, int flags, const Rect& clip);

    /// Repeats the pixels of `tile` across `target`. Only the first band, about a tile wide, is composited; the rest
    /// repeats that finished band, background included.
    void Image(const Bitmap& source, const Rect& target, const Rect& tile, int flags, const Rect& clip);

    /// Maps a texture onto a convex polygon of `count` points: affine, nearest texel, `texture` giving the place in
    /// `source` of each corner. Column and row of a texel are masked with `xMask` and `yMask` (width - 1 and height - 1
    /// of a source of powers of two repeat it); masks that reach outside the source draw nothing. `alpha` composites
    /// onto a 32-bit bitmap in place of copying. A concave outline is drawn within bounds, with undefined insides.
    void MapPolygon(int count, const Point* points, const Bitmap& source, const Point* texture, int xMask, int yMask,
                    bool alpha);

    bool IsValid() const { return pixels != nullptr; }
    Format GetFormat() const { return format; }
    std::uint32_t GetNumBytes() const { return numBytes; }
    /// Bytes from a row to the next; a negative pitch shows as its two's complement.
    std::uint32_t GetPitch() const { return static_cast<std::uint32_t>(pitch); }
    std::uint32_t GetBytesPerPixel() const { return bytesPerPixel; }
    /// 256 colours, or null; the bitmap keeps them.
    PackedColor* GetPalette() const { return palette; }
    /// The first byte of the top row.
    unsigned char* GetPtr() const { return pixels; }
    /// The first byte of the pixel at `p`, which nothing checks.
    unsigned char* GetPtr(const Point& p) const
    {
        return pixels + static_cast<std::ptrdiff_t>(p.y) * pitch +
               static_cast<std::ptrdiff_t>(p.x) * static_cast<std::ptrdiff_t>(bytesPerPixel);
    }
    /// (0, 0, width, height).
    operator Rect() const { return Rect(0, 0, width, height); }
    /// Bytes of a row of `count` pixels, rounded up to a multiple of 4.
    unsigned int CalcPitch(unsigned int count) const { return (bytesPerPixel * count + 3) & ~3u; }

protected:
    /// The kernel that takes pixels of `source` into this bitmap, composited by their alpha if `alpha` is set; null for
    /// a format that cannot be a source.
    TransferKernel GetBlitter(Format source, bool alpha) const;

    // Fields of a 16-bit pixel, not widened.
    static unsigned char R16(std::uint32_t pixel) { return static_cast<unsigned char>(pixel >> 11 & 31); }
    static unsigned char G16(std::uint32_t pixel) { return static_cast<unsigned char>(pixel >> 5 & 63); }
    static unsigned char B16(std::uint32_t pixel) { return static_cast<unsigned char>(pixel & 31); }
    static unsigned char R15(std::uint32_t pixel) { return static_cast<unsigned char>(pixel >> 10 & 31); }
    static unsigned char G15(std::uint32_t pixel) { return static_cast<unsigned char>(pixel >> 5 & 31); }
    static unsigned char B15(std::uint32_t pixel) { return static_cast<unsigned char>(pixel & 31); }

    // One operation a file format. The loaders read at the cursor of `file` and leave the bitmap as far as they came
    // when they answer false; `Load` empties it then.
    static bool GetInfoTGA(const char* name, Format& format, std::uint32_t& width, std::uint32_t& height);
    static bool GetInfoBMP(const char* name, Format& format, std::uint32_t& width, std::uint32_t& height);
    static bool GetInfoPCX(const char* name, Format& format, std::uint32_t& width, std::uint32_t& height);
    static bool GetInfoJPG(const char* name, Format& format, std::uint32_t& width, std::uint32_t& height);
    bool LoadTGA(MemoryFile& file, bool keepIndexed);
    bool LoadBMP(MemoryFile& file, bool keepIndexed);
    bool LoadPCX(MemoryFile& file, bool keepIndexed);
    bool LoadJPG(MemoryFile& file);
    bool SaveTGA(const char* name) const;
    bool SaveBMP(const char* name, bool unused) const;

    // Row decoders: they read at the cursor into a 32-bit bitmap (TGA8 and BMP8 also Indexed8) that `Init` prepared.
    // A positive `height` says that the file's first row is the bottom row; a negative one, that it is the top row, and
    // is made positive. The bytes of all rows must be there: the loaders look before they call.
    void Load32(MemoryFile& file);
    void Load24(MemoryFile& file);
    void Load16(MemoryFile& file);
    void Load15(MemoryFile& file);
    void TGA16(MemoryFile& file);
    void TGA8(MemoryFile& file, bool keepIndexed);
    void BMP8(MemoryFile& file, bool keepIndexed, unsigned int colours);

    // Parts of the shapes. A segment that clipping rejects has -1 for both x.

    /// One row of a filled shape: first and last column, both included.
    struct ScanLine
    {
        std::int32_t left;
        std::int32_t right;
    };

    /// The rows of a filled shape, from row `top` down.
    struct ScanTable
    {
        std::int32_t top;
        std::int32_t count;
        ScanLine* lines;
    };

    void Fill(const ScanTable* table, PackedColor color);
    static void Sort(Point& a, Point& b, Point& c);
    static void ClipLine(Point& a, Point& b, Rect clip);
    /// Records the column of an edge on every row, in the field that `side` picks (false left, true right); at most
    /// `rows` entries are there.
    static void TraceLine(Point a, Point b, ScanLine* lines, std::int32_t rows, bool side);
    /// The same, and paints the antialiased fringe just outside the span.
    void TraceLineAlpha(Point a, Point b, PackedColor color, ScanLine* lines, std::int32_t rows, bool side);
    void AntialiasedLine(Point a, Point b, PackedColor color, Rect clip);
    void DrawCirclePoints(Point center, int x, int y, PackedColor color, Rect clip);
    void DrawHLine(std::int64_t x0, std::int64_t x1, std::int64_t y, PackedColor color, const Rect& clip);
    void DrawCircleLines(Point center, int x, int y, PackedColor color, bool& cap, const Rect& clip);

private:
    void Install(Format newFormat);
    void TakeFrom(Bitmap& source) noexcept;
    void ViewOf(const Bitmap& source);
    bool AllocatePalette();
    void Transfer(TransferKernel kernel, const Bitmap& source, Point at, Point corner, const Rect& sourceRect,
                  const Rect& clip);
    unsigned char* FileRows(std::ptrdiff_t& step);

    std::int32_t width = 0;
    std::int32_t height = 0; // positive outside the loaders; see the row decoders
    PackedColor* palette = nullptr;
    unsigned char* pixels = nullptr;
    std::int32_t pitch = 0;
    std::uint32_t bytesPerPixel = 0;
    Format format = Indexed8;
    bool ownsPixels = false; // only for pixels from Alloc::New
    PixelKernels kernels;
    std::uint32_t numBytes = 0;
};

#if UINTPTR_MAX == 0xFFFFFFFF
static_assert(sizeof(Bitmap) == 68);
#endif

} // namespace Zem
