#include <Bedrock/memory/String.h>
#include <Bedrock/platform/Text.h>

#include <algorithm>
#include <cstdlib>
#include <limits>

namespace Zem
{

static_assert(sizeof(String) == sizeof(char*) + 8);

namespace
{

constexpr std::size_t formatBytes = 8192 + 1; // the longest printed text and its terminator

int Sign(int order)
{
    return (order > 0) - (order < 0);
}

// The two cases of a byte.
struct Cases
{
    unsigned char lower;
    unsigned char upper;

    bool Has(unsigned char byte) const { return byte == lower || byte == upper; }
};

Cases LocaleCases(unsigned char c)
{
    return {static_cast<unsigned char>(Platform::ToLower(c)), static_cast<unsigned char>(Platform::ToUpper(c))};
}

// Below 128 by ASCII rules whatever the locale is.
Cases CasesOf(unsigned char c)
{
    if (c >= 128)
        return LocaleCases(c);
    Cases cases = {c, c};
    if (c >= 'A' && c <= 'Z')
        cases.lower = static_cast<unsigned char>(c | 0x20);
    else if (c >= 'a' && c <= 'z')
        cases.upper = static_cast<unsigned char>(c & ~0x20u);
    return cases;
}

// The first place from `at` to before `end` whose byte is one of `first` and the following one of `second`; null if there
// is none. With no `second` the first byte decides, otherwise the byte at `end` can be read.
const char* FindPair(const char* at, const char* end, Cases first, const Cases* second)
{
    // 16 places at a time, in the compiler's own vectors: a comparison makes bytes of all ones.
    using Bytes = unsigned char __attribute__((vector_size(16)));
    const auto load = [](const char* from)
    {
        Bytes bytes;
        std::memcpy(&bytes, from, sizeof bytes);
        return bytes;
    };
    const auto match = [](Bytes bytes, Cases cases) { return (bytes == cases.lower) | (bytes == cases.upper); };
    for (; end - at >= 16; at += 16)
    {
        auto hits = match(load(at), first);
        if (second)
            hits &= match(load(at + 1), *second);
        std::uint64_t halves[2];
        std::memcpy(halves, &hits, sizeof halves);
        if ((halves[0] | halves[1]) != 0)
            break;
    }
    for (; at < end; ++at)
        if (first.Has(static_cast<unsigned char>(*at)) && (!second || second->Has(static_cast<unsigned char>(at[1]))))
            return at;
    return nullptr;
}

} // namespace

String::String(const String& s) noexcept
{
    SetBytes(s.data, s.length);
}

String::String(const char* s) noexcept
{
    Set(reinterpret_cast<const unsigned char*>(s), -1, -1);
}

String::String(const char* s, unsigned n) noexcept
{
    SetBytes(s, n);
}

String::String(unsigned c, unsigned n) noexcept
{
    Ins(c, 0, n);
}

String& String::operator=(const String& s) noexcept
{
    SetBytes(s.data, s.length);
    return *this;
}

String& String::operator=(String&& s) noexcept
{
    std::swap(data, s.data);
    std::swap(allocSize, s.allocSize);
    std::swap(length, s.length);
    if (&s != this)
        s.SetBytes(nullptr, 0);
    return *this;
}

String& String::operator=(const char* s) noexcept
{
    Set(reinterpret_cast<const unsigned char*>(s), -1, -1);
    return *this;
}

void String::Set(const unsigned char* s, int a, int b) noexcept
{
    const char* text = reinterpret_cast<const char*>(s);
    const int given = a >= 0 ? a : b;
    SetBytes(text, given >= 0 ? static_cast<std::uint64_t>(given) : text ? std::strlen(text) : 0);
}

// The new buffer is there before the old one goes, so that the source may lie in the string and an exhausted heap
// changes nothing.
void String::SetBytes(const char* s, std::uint64_t n) noexcept
{
    if (!s)
    {
        Release();
        allocSize = 0;
        length = 0;
        return;
    }
    if (n > longest)
        return;
    const auto bytes = static_cast<unsigned>(n);
    if (NewSize(bytes) > allocSize)
    {
        char* fresh = Alloc(NewSize(bytes));
        if (!fresh)
            return;
        std::memcpy(fresh, s, bytes);
        Release();
        data = fresh;
        allocSize = NewSize(bytes);
    }
    else
        std::memmove(data, s, bytes);
    length = bytes;
    data[length] = '\0';
}

// Room for `n` characters with the old text kept; false when there is none.
bool String::Reserve(std::uint64_t n) noexcept
{
    if (n > longest)
        return false;
    const unsigned size = NewSize(static_cast<unsigned>(n));
    if (size <= allocSize)
        return true;
    char* fresh = Alloc(size);
    if (!fresh)
        return false;
    if (data)
        std::memcpy(fresh, data, std::size_t{length} + 1);
    else
        fresh[0] = '\0';
    Release();
    data = fresh;
    allocSize = size;
    return true;
}

void String::Set(const char* format, std::va_list args) noexcept
{
    char text[formatBytes];
    const int n = Platform::FormatBounded(text, format, args);
    if (n >= 1)
        SetBytes(text, static_cast<unsigned>(n));
    else
    {
        length = 0;
        if (data)
            data[0] = '\0';
    }
}

void String::Setf(const char* format, ...) noexcept
{
    std::va_list args;
    va_start(args, format);
    Set(format, args);
    va_end(args);
}

void String::Setn(const char* s, unsigned n) noexcept
{
    const void* end = std::memchr(s, 0, n);
    SetBytes(s, end ? static_cast<std::uint64_t>(static_cast<const char*>(end) - s) : n);
}

void String::Set(int value, unsigned radix) noexcept
{
    char text[34];
    SetBytes(text, static_cast<unsigned>(Platform::FormatInt(text, value, radix)));
}

int String::Add(const char* format, std::va_list args) noexcept
{
    char text[formatBytes];
    const int n = Platform::FormatBounded(text, format, args);
    if (n < 1)
        return n;
    const unsigned before = length;
    Append(text, static_cast<unsigned>(n));
    return length == before ? -1 : n;
}

int String::Addf(const char* format, ...) noexcept
{
    std::va_list args;
    va_start(args, format);
    const int n = Add(format, args);
    va_end(args);
    return n;
}

void String::AppendSlow(const char* s, std::size_t n) noexcept
{
    if (n == 0 || n > longest || std::uint64_t{length} + n > longest)
        return;
    const auto total = length + static_cast<unsigned>(n);
    if (NewSize(total) <= allocSize)
        std::memmove(data + length, s, n);
    else
    {
        char* fresh = Alloc(NewSize(total));
        if (!fresh)
            return;
        if (length)
            std::memcpy(fresh, data, length);
        std::memcpy(fresh + length, s, n);
        Release();
        data = fresh;
        allocSize = NewSize(total);
    }
    length = total;
    data[length] = '\0';
}

// Moves the tail from `pos` on by `n` bytes, whose contents the caller writes.
bool String::OpenGap(unsigned pos, std::uint64_t n) noexcept
{
    if (!Reserve(length + n))
        return false;
    std::memmove(data + pos + n, data + pos, std::size_t{length} - pos + 1);
    length += static_cast<unsigned>(n);
    return true;
}

void String::Ins(const char* s, unsigned pos) noexcept
{
    if (!s || *s == '\0' || pos > length)
        return;
    const std::size_t n = std::strlen(s);
    if (pos == length)
        return Append(s, n);
    if (s >= data && s <= data + length)
    {
        const String copy(s, static_cast<unsigned>(n));
        if (copy.length == n && OpenGap(pos, n))
            std::memcpy(data + pos, copy.data, n);
    }
    else if (OpenGap(pos, n))
        std::memcpy(data + pos, s, n);
}

void String::Ins(unsigned c, unsigned pos, unsigned n) noexcept
{
    if (n != 0 && pos <= length && OpenGap(pos, n))
        std::memset(data + pos, static_cast<int>(c & 0xFF), n);
}

void String::Del(unsigned pos, unsigned n) noexcept
{
    if (n == 0 || pos >= length)
        return;
    n = std::min(n, length - pos);
    length -= n;
    std::memmove(data + pos, data + pos + n, std::size_t{length} - pos + 1);
}

void String::Left(unsigned n) noexcept
{
    if (n >= length)
        return;
    length = n;
    data[length] = '\0';
}

void String::Right(unsigned n) noexcept
{
    if (n < length)
        Del(0, length - n);
}

void String::SetLength(unsigned n) noexcept
{
    if (!Reserve(n))
        return;
    length = std::min(n, length);
    data[length] = '\0';
}

char* String::Fill(unsigned n) noexcept
{
    if (!Reserve(n))
        return nullptr;
    length = n;
    data[length] = '\0';
    return data;
}

void String::Strip(const char* chars) noexcept
{
    if (length == 0 || !chars)
        return;
    unsigned kept = 0;
    for (unsigned i = 0; i < length; ++i)
        if (data[i] == '\0' || !std::strchr(chars, data[i]))
            data[kept++] = data[i];
    length = kept;
    data[length] = '\0';
}

String String::Token(const char* delims) noexcept
{
    const auto isDelimiter = [delims](char c) { return c != '\0' && std::strchr(delims, c) != nullptr; };
    String token;
    unsigned i = 0;
    while (i < length && isDelimiter(data[i]))
        ++i;
    unsigned j = i;
    while (j < length && !isDelimiter(data[j]))
        ++j;
    if (j > i)
    {
        token.Setn(data + i, j - i);
        if (!token.data)
            return token; // an exhausted heap: the token is still here to be cut
    }
    if (j > 0)
        Del(0, j);
    return token;
}

void String::ToLower() noexcept
{
    if (data)
        Platform::LowerInPlace(data);
}

void String::ToUpper() noexcept
{
    if (data)
        Platform::UpperInPlace(data);
}

int String::GetInt(int radix) const noexcept
{
    if (!data)
        return 0;
    const long long value = std::strtoll(data, nullptr, radix);
    return static_cast<int>(
        std::clamp<long long>(value, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
}

// The 32-bit answer of strtoul: a minus sign negates in 32 bits, and a magnitude that does not fit gives the largest.
unsigned String::GetUInt(int radix) const noexcept
{
    if (!data)
        return 0;
    const long long value = std::strtoll(data, nullptr, radix);
    constexpr long long most = std::numeric_limits<unsigned>::max();
    return value > most || value < -most ? std::numeric_limits<unsigned>::max() : static_cast<unsigned>(value);
}

float String::GetFloat() const noexcept
{
    return static_cast<float>(GetDouble());
}

double String::GetDouble() const noexcept
{
    return data ? std::atof(data) : 0;
}

int String::Find(unsigned c, unsigned start) const noexcept
{
    const char* hit = data && start <= length ? std::strchr(data + start, static_cast<int>(c & 0xFF)) : nullptr;
    return hit ? static_cast<int>(hit - data) : -1;
}

int String::Find(const char* s, unsigned start) const noexcept
{
    const char* hit = data && s && start <= length ? std::strstr(data + start, s) : nullptr;
    return hit ? static_cast<int>(hit - data) : -1;
}

int String::FindIgnoreCase(const char* text, unsigned c, unsigned start) noexcept
{
    if (!text || (c & 0xFF) == 0)
        return -1;
    const char* at = text + start;
    const char* hit = FindPair(at, at + std::strlen(at), CasesOf(static_cast<unsigned char>(c)), nullptr);
    return hit ? static_cast<int>(hit - text) : -1;
}

// Two bytes are looked for at once, so that few places are left to be compared as a whole.
int String::FindIgnoreCase(const char* text, unsigned textLength, const char* s, unsigned start) noexcept
{
    if (!text || !s)
        return -1;
    if (*s == '\0')
        return static_cast<int>(start);
    if (start > textLength)
        return -1;
    const void* zero = std::memchr(text + start, 0, textLength - start);
    const char* textEnd = zero ? static_cast<const char*>(zero) : text + textLength;
    const std::size_t n = std::strlen(s);
    if (static_cast<std::size_t>(textEnd - (text + start)) < n)
        return -1;
    const Cases first = CasesOf(static_cast<unsigned char>(s[0]));
    const Cases second = LocaleCases(static_cast<unsigned char>(s[1]));
    const char* end = textEnd - n + 1; // behind the last place where it could begin
    for (const char* at = text + start; (at = FindPair(at, end, first, n > 1 ? &second : nullptr)) != nullptr; ++at)
        if (Platform::CompareIgnoreCase(at, s, n) == 0)
            return static_cast<int>(at - text);
    return -1;
}

int String::Compare(const String& x) const noexcept
{
    return Compare(x.data);
}

int String::Compare(const char* x) const noexcept
{
    return Sign(std::strcmp(data ? data : "", x ? x : ""));
}

int String::CompareIgnoreCase(const String& x) const noexcept
{
    return CompareIgnoreCase(x.data);
}

int String::CompareIgnoreCase(const char* x) const noexcept
{
    if (data && x)
        return Platform::CompareIgnoreCase(data, x);
    return Compare(x); // at most one of them has text, which makes it the greater one
}

String::CompareResult String::CompareWith(const char* x) const noexcept
{
    if (!data || !x)
        return static_cast<CompareResult>(Equal + (data != nullptr) - (x != nullptr));
    return static_cast<CompareResult>(Equal + Sign(Platform::CompareIgnoreCase(data, x)));
}

String::CompareResult String::CompareWithMatchCase(const char* x) const noexcept
{
    if (!data || !x)
        return static_cast<CompareResult>(Equal + (data != nullptr) - (x != nullptr));
    return static_cast<CompareResult>(Equal + Sign(std::strcmp(data, x)));
}

} // namespace Zem
