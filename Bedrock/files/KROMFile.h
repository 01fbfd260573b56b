#pragma once

#include <Bedrock/Export.h>
#include <Bedrock/files/File.h>
#include <Bedrock/host/ResultClass.h>

#include <cstdint>

namespace Zem
{

/// A file of tagged blocks: a header with the type of the file, then blocks of an id and a size, which may hold blocks.
///
///     header   | "KROM" 4 | size 4 | type 4 |        size: bytes behind this field, so the file's length less 8
///     block    | id 4 | size 4 | body ... |          size: bytes of the body; blocks follow each other without a gap
///
///     padded text   | 0 4 |                                          no text (a null handle, a string with no buffer)
///                   | 0xFFFFFFFF 4 |                                 the empty text
///                   | n + 1 4 | n characters | 0 to 3 zero bytes |   up to a multiple of 4 characters
///
/// All numbers are 32 bits, little-endian. Type and ids are the caller's, and so is which blocks hold blocks.
///
/// Sizes stand in front of what they measure: a writer leaves a hole and fills it when the block is complete. The guards
/// `KROMWriteHeader` and `KROMWriteBlock` do so at the end of their scope. The hole is filled in place, with at most one
/// write of 4 bytes; the position stays, also when that fails. A stream written with `ModeWriteCompressed` or
/// `ModeAppend` has no hole to fill: that throws.
///
/// What a file of others says is never believed further than the file goes: texts and bodies end with it. Failures of
/// the disk are thrown as by `File`. An object belongs to one thread.
///
///     KROMFile file;
///     if (!file.Open("level.krom", File::ModeCreate | File::ModeWrite))
///         return false;
///     KROMWriteHeader header(file, levelType);
///     {
///         KROMWriteBlock names(file, namesId);
///         file.WritePadded(title);
///     }                                             // the size of `names` is known here
class ZEM_API KROMFile : public File
{
    ZEM_HEAP_OPERATORS

public:
    enum Results : std::int32_t
    {
        RES_OK,
        RES_UNKNOWN,
        RES_NOTKROM, // another magic
        RES_OTHERID, // another type of file, another block
    };
    static const ResultTable results[4];
    using Result = ResultClass<results, Results>;

    // ----------------------------------------------------------------------------------------------- writing

    /// Writes a header with a size of 0. Returns: the offset of its size field, for `WriteSizeAt`.
    std::uint32_t WriteHeader(std::uint32_t id);
    /// Writes a block of `bytes` bytes at `data`; with null `data` its id and size alone. Returns: the offset of its size
    /// field.
    std::uint32_t WriteBlock(std::uint32_t id, std::uint32_t bytes, const void* data);

    /// Writes 4 bytes at the offset `at`; the position stays.
    void WriteAt(std::uint32_t at, std::uint32_t value);
    /// Writes to the field at `at` how many bytes lie between it and the position.
    void WriteAt(std::uint32_t at) { WriteAt(at, Tell() - at - 4); }
    void WriteSizeAt(std::uint32_t at) { WriteAt(at); }

    // What is stored is 32 bits wide: a wider value does not compile.
    template <class T>
    requires(sizeof(T) > 4) std::uint32_t WriteBlock(std::uint32_t, T, const void*)
    = delete;
    template <class T>
    requires(sizeof(T) > 4) void WriteAt(std::uint32_t, T) = delete;

    void WritePadded(const PString& text);
    void WritePadded(const String& text);

    // ----------------------------------------------------------------------------------------------- reading

    /// Reads a header. RES_NOTKROM, RES_OTHERID when the type is not `id`.
    Result ReadHeader(std::uint32_t id);
    /// The same; `bytes` gets the stored number of bytes behind the header in any case, 0 if the header is torn.
    Result ReadHeader(std::uint32_t id, std::uint32_t& bytes);

    /// Reads id and size of a block; what the end of the file cuts off is left as it was. Always RES_OK.
    Result ReadBlockHeader(std::uint32_t& id, std::uint32_t& bytes);

    /// Reads the block `id` that stands at the position: up to `bytes` bytes of it to `data`, and the position moves behind
    /// it. With null `data` the position moves to its body. `bytes` gets the stored size.
    /// Returns: RES_OTHERID if another block stands there; then the position is at its body, for a caller who skips it.
    /// Throws: "Read() n*size == 0" for an empty block and for `bytes` 0, unless `data` is null.
    Result ReadBlock(std::uint32_t id, std::uint32_t& bytes, void* data);

    /// Always RES_OK. A text keeps its old value when there is no memory for the new one.
    Result ReadPadded(PString& text);
    Result ReadPadded(String& text);

private:
    friend class KROMWriteSize;

    void WritePadded(const char* text, std::uint32_t length);
    bool ReadText(std::uint32_t n, String& text);
    void Skip(std::uint32_t bytes);
};

/// Fills a size field at the end of its scope. What it measures must be written by then, and the file still open. A
/// failure is thrown, unless the scope ends because of another exception; then it is reported.
class ZEM_API KROMWriteSize
{
public:
    KROMWriteSize(KROMFile& target, std::uint32_t at) : file(target), sizeAt(at) {}
    ~KROMWriteSize() noexcept(false);
    KROMWriteSize(const KROMWriteSize&) = delete;
    KROMWriteSize& operator=(const KROMWriteSize&) = delete;

private:
    KROMFile& file;
    std::uint32_t sizeAt; // offset of the field
};

/// The header of a file, whose size is known at the end of the scope.
class ZEM_API KROMWriteHeader : public KROMWriteSize
{
public:
    KROMWriteHeader(KROMFile& target, std::uint32_t id) : KROMWriteSize(target, target.WriteHeader(id)) {}
};

/// A block, whose size is known at the end of the scope. Blocks within are written by guards in inner scopes.
class ZEM_API KROMWriteBlock : public KROMWriteSize
{
public:
    KROMWriteBlock(KROMFile& target, std::uint32_t id) : KROMWriteSize(target, target.WriteBlock(id, 0u, nullptr)) {}
};

} // namespace Zem
