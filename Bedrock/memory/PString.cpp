#include <Bedrock/memory/PString.h>
#include <Bedrock/platform/Text.h>

#include <cstring>
#include <istream>
#include <ostream>

namespace Zem
{

static_assert(sizeof(PString) == sizeof(void*));

constinit PStringCache* PString::cache = nullptr;

namespace
{

int Sign(int order)
{
    return (order > 0) - (order < 0);
}

// The order in which null and empty are one.
int CompareTexts(const char* a, const char* b)
{
    return Sign(std::strcmp(a ? a : "", b ? b : ""));
}

int CompareTextsIgnoreCase(const char* a, const char* b)
{
    return a && b ? Platform::CompareIgnoreCase(a, b) : CompareTexts(a, b);
}

} // namespace

void PString::Init() noexcept
{
    if (cache)
        return;
    constexpr unsigned buckets = 4093;
    cache = new PStringCache(buckets);
}

void PString::Done() noexcept
{
    delete std::exchange(cache, nullptr);
}

int PString::SortPtr(const void* a, const void* b) noexcept
{
    std::uintptr_t x;
    std::uintptr_t y;
    std::memcpy(&x, a, sizeof x);
    std::memcpy(&y, b, sizeof y);
    return (x > y) - (x < y);
}

void PString::Setf(const char* format, ...) noexcept
{
    std::va_list args;
    va_start(args, format);
    Set(format, args);
    va_end(args);
}

int PString::Add(const char* format, std::va_list args) noexcept
{
    char text[8192];
    const int n = Platform::FormatBounded(text, format, args);
    if (n >= 1)
        Ins(text, Length());
    return n;
}

int PString::Addf(const char* format, ...) noexcept
{
    std::va_list args;
    va_start(args, format);
    const int n = Add(format, args);
    va_end(args);
    return n;
}

// The order of two texts of known length, zero bytes in them included.
int PString::Order(const PString& s) const noexcept
{
    const unsigned common = node->length < s.node->length ? node->length : s.node->length;
    const int order = std::memcmp(node->Text(), s.node->Text(), common);
    return order != 0 ? Sign(order) : (node->length > s.node->length) - (node->length < s.node->length);
}

bool PString::operator<(const PString& s) const noexcept
{
    return node && s.node ? node != s.node && Order(s) < 0 : !node && s.node;
}

bool PString::operator>(const PString& s) const noexcept
{
    return s < *this;
}

int PString::Compare(const PString& s) const noexcept
{
    if (node && s.node)
        return node == s.node ? 0 : Order(s);
    return (Length() != 0) - (s.Length() != 0);
}

int PString::Compare(const char* text) const noexcept
{
    return CompareTexts(*this, text);
}

int PString::CompareIgnoreCase(const PString& s) const noexcept
{
    return node == s.node ? 0 : CompareTextsIgnoreCase(*this, s);
}

int PString::CompareIgnoreCase(const char* text) const noexcept
{
    return CompareTextsIgnoreCase(*this, text);
}

bool PString::EqualsIgnoreCase(const PString& s) const noexcept
{
    if (node == s.node)
        return true;
    return node && s.node && Platform::CompareIgnoreCase(*this, s) == 0;
}

std::ostream& operator<<(std::ostream& out, const PString& s)
{
    const char* text = s;
    return out << (text ? text : "<uninitialized>");
}

std::istream& operator>>(std::istream& in, PString& s)
{
    char word[4096];
    word[0] = '\0';
    in >> word;
    s = word;
    return in;
}

} // namespace Zem
