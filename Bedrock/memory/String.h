#pragma once

#include <Bedrock/memory/HeapOperators.h>

#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <utility>

namespace Zem
{

/// Mutable text: bytes with a terminating zero, owned by one object.
///
/// An empty string exists in two forms, *no buffer* (a null pointer) and *empty with a buffer*; the comparisons and the
/// conversion to a pointer tell them apart. The buffer grows in steps of 16 bytes and never shrinks: room for `n`
/// characters takes `(n + 17) & ~15` bytes. Code that knows the final length calls `SetLength` first.
///
/// Positions and lengths are bytes. Case follows the process's character locale; `<`, `==` and their kin know case.
/// When the heap is exhausted, or a text would pass 4 GiB, the string stays as it was. Sources may lie in the string
/// itself. A string belongs to one thread at a time; two strings never share anything.
///
///     String path = "C:";
///     path += "\\textures";
///     path.Addf("\\%03d.tga", number);
///     if (path.FindIgnoreCase(".TGA", 0) >= 0)
///         ...
class ZEM_API String
{
    ZEM_HEAP_OPERATORS
public:
    constexpr String() noexcept = default;
    String(const String& s) noexcept;
    String(String&& s) noexcept
        : data(std::exchange(s.data, nullptr)), allocSize(std::exchange(s.allocSize, 0)),
          length(std::exchange(s.length, 0))
    {
    }
    String(const char* s) noexcept;
    /// Exactly `n` bytes of `s`, whatever they hold.
    String(const char* s, unsigned n) noexcept;
    /// `n` copies of the low byte of `c`; no buffer with `n` 0.
    String(unsigned c, unsigned n) noexcept;
    ~String() { Release(); }

    /// A source with no buffer, or null, releases the buffer.
    String& operator=(const String& s) noexcept;
    String& operator=(String&& s) noexcept;
    String& operator=(const char* s) noexcept;

    /// Replaces the text by printed text of up to 8,192 characters; an empty or longer output makes the string empty,
    /// and the buffer stays.
    void Set(const char* format, std::va_list args) noexcept;
    void Setf(const char* format, ...) noexcept __attribute__((format(printf, 2, 3)));
    /// Replaces the text by up to `n` bytes of `s`, which must not be null, ending at its terminator.
    void Setn(const char* s, unsigned n) noexcept;
    /// Replaces the text by the digits of `value`, small letters; only radix 10 has a sign.
    void Set(int value, unsigned radix) noexcept;

    /// Appends printed text of up to 8,192 characters. Returns: characters added; 0 for an empty output and -1 for a
    /// longer one, and then nothing is added.
    int Add(const char* format, std::va_list args) noexcept;
    int Addf(const char* format, ...) noexcept __attribute__((format(printf, 2, 3)));
    /// Append a text up to its terminator; null adds nothing.
    String& operator+=(const char* s) noexcept;
    String& operator+=(const String& s) noexcept;

    /// Inserts `s`, or `n` copies of the low byte of `c`, before `pos`, 0 to `Length()`; a position behind that
    /// changes nothing.
    void Ins(const char* s, unsigned pos) noexcept;
    void Ins(unsigned c, unsigned pos, unsigned n) noexcept;
    /// Deletes up to `n` bytes at `pos`.
    void Del(unsigned pos, unsigned n) noexcept;
    /// Keep the first or the last `n` bytes.
    void Left(unsigned n) noexcept;
    void Right(unsigned n) noexcept;
    /// Makes room for `n` characters and cuts the text to at most as many; it never gets longer.
    void SetLength(unsigned n) noexcept;
    /// Makes the text `n` bytes long for the caller to fill: bytes behind the old text are whatever the buffer holds.
    /// Returns: the text, terminated; null when the heap is exhausted.
    char* Fill(unsigned n) noexcept;
    /// Removes every byte that occurs in `chars`.
    void Strip(const char* chars) noexcept;
    /// Cuts the next token off the front and returns it; no buffer when there is none. Delimiters ahead of it go too,
    /// the one behind it stays.
    String Token(const char* delims) noexcept;
    void ToLower() noexcept;
    void ToUpper() noexcept;

    unsigned Length() const noexcept { return length; }
    /// Bytes of the buffer.
    unsigned AllocSize() const noexcept { return allocSize; }
    /// Bytes of the text with its terminator; 0 with no buffer.
    unsigned Size() const noexcept { return allocSize == 0 ? 0 : length + 1; }
    /// The text, good until the next change; null with no buffer.
    operator char const*() const noexcept { return data; }
    /// The byte at an index that must lie inside the buffer, 0 to 255 if the string is constant.
    unsigned operator[](int index) const noexcept { return static_cast<unsigned char>(data[index]); }
    unsigned operator[](unsigned index) const noexcept { return static_cast<unsigned char>(data[index]); }
    char& operator[](int index) noexcept { return data[index]; }
    char& operator[](unsigned index) noexcept { return data[index]; }

    /// The number at the start of the text behind blanks, as `strtol` reads it, held to 32 bits; 0 with no buffer.
    int GetInt(int radix = 10) const noexcept;
    unsigned GetUInt(int radix = 10) const noexcept;
    float GetFloat() const noexcept;
    double GetDouble() const noexcept;

    /// Index of the first hit from `start`, at most `Length()`, on; -1 if there is none. The search ends at a zero byte;
    /// `c` 0 finds that byte, an empty text is found at `start`.
    int Find(unsigned c, unsigned start = 0) const noexcept;
    int Find(const char* s, unsigned start = 0) const noexcept;
    /// The same with letters of either case equal; here `c` 0 is never found.
    int FindIgnoreCase(unsigned c, unsigned start = 0) const noexcept { return FindIgnoreCase(data, c, start); }
    int FindIgnoreCase(const char* s, unsigned start = 0) const noexcept
    {
        return FindIgnoreCase(data, length, s, start);
    }
    static int FindIgnoreCase(const char* text, unsigned c, unsigned start) noexcept;
    static int FindIgnoreCase(const char* text, unsigned textLength, const char* s, unsigned start) noexcept;

    /// Order by bytes as unsigned: -1, 0 or 1. No buffer, null and empty are all equal here.
    int Compare(const String& x) const noexcept;
    int Compare(const char* x) const noexcept;
    /// Order with letters of either case equal: below 0, 0 or above 0.
    int CompareIgnoreCase(const String& x) const noexcept;
    int CompareIgnoreCase(const char* x) const noexcept;

    /// Unlike `Compare`, these put no buffer (or null) before the empty text.
    bool EqualsIgnoreCase(const String& x) const noexcept { return CompareWith(x.data) == Equal; }
    bool EqualsIgnoreCase(const char* x) const noexcept { return CompareWith(x) == Equal; }
    bool operator<(const String& x) const noexcept { return CompareWithMatchCase(x.data) == Less; }
    bool operator<(const char* x) const noexcept { return CompareWithMatchCase(x) == Less; }
    bool operator>(const String& x) const noexcept { return CompareWithMatchCase(x.data) == Greater; }
    bool operator>(const char* x) const noexcept { return CompareWithMatchCase(x) == Greater; }
    bool operator==(const String& x) const noexcept { return CompareWithMatchCase(x.data) == Equal; }
    bool operator==(const char* x) const noexcept { return CompareWithMatchCase(x) == Equal; }
    bool operator!=(const String& x) const noexcept { return CompareWithMatchCase(x.data) != Equal; }
    bool operator!=(const char* x) const noexcept { return CompareWithMatchCase(x) != Equal; }
    bool operator<=(const String& x) const noexcept { return CompareWithMatchCase(x.data) != Greater; }
    bool operator<=(const char* x) const noexcept { return CompareWithMatchCase(x) != Greater; }
    bool operator>=(const String& x) const noexcept { return CompareWithMatchCase(x.data) != Less; }
    bool operator>=(const char* x) const noexcept { return CompareWithMatchCase(x) != Less; }

private:
    enum CompareResult
    {
        Less,
        Equal,
        Greater
    };

    static constexpr unsigned longest = 0xFFFFFFF0u - 17; // the longest text whose buffer size fits 32 bits

    static constexpr unsigned NewSize(unsigned n) noexcept { return (n + 17) & ~15u; }
    static char* Alloc(unsigned n) noexcept { return static_cast<char*>(::Zem::Alloc::New(n)); }
    void Release() noexcept
    {
        if (data)
            ::Zem::Alloc::Delete(std::exchange(data, nullptr));
    }
    bool Reserve(std::uint64_t n) noexcept;
    void Set(const unsigned char* s, int a, int b) noexcept;
    void SetBytes(const char* s, std::uint64_t n) noexcept;
    bool OpenGap(unsigned pos, std::uint64_t n) noexcept;
    void Append(const char* s, std::size_t n) noexcept;
    void AppendSlow(const char* s, std::size_t n) noexcept;
    CompareResult CompareWith(const char* x) const noexcept;
    CompareResult CompareWithMatchCase(const char* x) const noexcept;

    char* data = nullptr;   // null: no buffer
    unsigned allocSize = 0; // bytes at `data`, a multiple of 16, at least `length + 1`; 0 with no buffer
    unsigned length = 0;    // bytes of text; `data[length]` is 0
};

// The common case, room enough, is copied in the caller: there a literal's length is known.
inline void String::Append(const char* s, std::size_t n) noexcept
{
    if (n + 1 >= allocSize - length) // exactly when the buffer must grow, and with no buffer
        return AppendSlow(s, n);
    std::memmove(data + length, s, n);
    length += static_cast<unsigned>(n);
    data[length] = '\0';
}

inline String& String::operator+=(const char* s) noexcept
{
    if (s)
        Append(s, std::strlen(s));
    return *this;
}

inline String& String::operator+=(const String& s) noexcept
{
    return *this += s.data;
}

} // namespace Zem
