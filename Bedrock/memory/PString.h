#pragma once

#include <Bedrock/memory/PStringCache.h>

#include <cstdarg>
#include <iosfwd>
#include <utility>

namespace Zem
{

/// A handle on an interned text: one pointer wide, and all handles of a process with equal text point at the same node.
///
/// So copying is counting, and `==` compares pointers. A null handle is the uninitialised string, which is not the same
/// as the empty text; only `Compare` calls them equal. An edit never touches the shared text: it makes another one and
/// moves this handle to it.
///
/// Text is bytes; positions and lengths are bytes; case follows the process's character locale. When the heap is
/// exhausted the handle keeps its old text. Different handles may be used on different threads, also when they share a
/// text; one handle belongs to one thread at a time. Before the library is attached and after it is detached there is
/// no cache: handles from text are then null.
///
///     PString name = "Player";
///     PString same = name;          // counts
///     name.ToUpper();               // "PLAYER"; `same` is still "Player"
///     if (name == PString("PLAYER")) ...
class ZEM_API PString
{
    ZEM_HEAP_OPERATORS
public:
    constexpr PString() noexcept = default;
    PString(const PString& s) noexcept : node(s.node)
    {
        if (node)
            cache->AddReference(node);
    }
    PString(PString&& s) noexcept : node(std::exchange(s.node, nullptr)) {}
    /// Null text gives a null handle, an empty one the empty text.
    PString(const char* text) noexcept : node(cache ? cache->Create(Bytes(text)) : nullptr) {}
    /// `length` bytes, whatever they hold.
    PString(const char* text, unsigned length) noexcept : node(cache ? cache->Create(Bytes(text), length) : nullptr) {}
    /// `n` copies of the low byte of `c`; null with `n` 0.
    PString(unsigned c, unsigned n) noexcept : node(cache ? cache->Create(c, n) : nullptr) {}
    ~PString()
    {
        if (node && cache)
            cache->Destroy(node);
    }

    PString& operator=(const PString& s) noexcept
    {
        PString copy(s);
        std::swap(node, copy.node);
        return *this;
    }
    PString& operator=(PString&& s) noexcept
    {
        std::swap(node, s.node);
        return *this;
    }
    PString& operator=(const char* text) noexcept
    {
        PString made(text);
        if (made.node || !text)
            std::swap(node, made.node);
        return *this;
    }

    /// Creates the cache behind all handles, if there is none. The attach step of the library calls it.
    static void Init() noexcept;
    /// Destroys the cache with all its texts; handles that are left are stale, and their destructors do nothing. The
    /// detach step of the library calls it.
    static void Done() noexcept;
    /// The cache behind all handles, or null.
    static PStringCache* Cache() noexcept { return cache; }

    /// For sorting an array of handles by the address of their text: equal texts stand together, in no order that a
    /// reader would know. -1, 0 or 1.
    static int SortPtr(const void* a, const void* b) noexcept;

    /// The text, good as long as a handle on it lives; null for a null handle.
    operator const char*() const noexcept { return node ? reinterpret_cast<const char*>(node->Text()) : nullptr; }
    unsigned Length() const noexcept { return node ? node->length : 0; }
    bool IsNull() const noexcept { return node == nullptr; }
    /// The shared node, for those who mark nodes with `id`; it stays the handle's.
    PStringCache::Node* GetNode() const noexcept { return node; }

    /// Replaces the text by printed text of up to 8,192 characters; an empty or longer output gives a null handle.
    /// Arguments may point into the old text.
    void Set(const char* format, std::va_list args) noexcept
    {
        if (cache)
            node = cache->Set(node, Bytes(format), args);
    }
    void Setf(const char* format, ...) noexcept __attribute__((format(printf, 2, 3)));
    /// Replaces the text by the digits of `value`, small letters; only radix 10 has a sign.
    void Set(int value, unsigned radix) noexcept
    {
        if (cache)
            node = cache->Set(node, value, radix);
    }
    /// Appends printed text of up to 8,191 characters. Returns: characters printed; 0 or -1 (too long) if nothing was
    /// added.
    int Add(const char* format, std::va_list args) noexcept;
    int Addf(const char* format, ...) noexcept __attribute__((format(printf, 2, 3)));

    /// Insert `s`, or `n` copies of the low byte of `c`, before `pos`; a null handle becomes the text alone, wherever
    /// `pos` is. A position behind the end changes nothing.
    void Ins(const char* s, unsigned pos) noexcept
    {
        if (cache)
            node = cache->Ins(node, Bytes(s), pos);
    }
    void Ins(unsigned c, unsigned pos, unsigned n) noexcept
    {
        if (cache)
            node = cache->Ins(node, c, pos, n);
    }
    PString& operator+=(const char* s) noexcept
    {
        Ins(s, Length());
        return *this;
    }
    /// Deletes up to `n` bytes at `pos`.
    void Del(unsigned pos, unsigned n) noexcept
    {
        if (cache)
            node = cache->Del(node, pos, n);
    }
    void ToLower() noexcept
    {
        if (cache)
            node = cache->ToLower(node);
    }
    void ToUpper() noexcept
    {
        if (cache)
            node = cache->ToUpper(node);
    }
    /// Removes every byte that occurs in `chars`.
    void Strip(const char* chars) noexcept
    {
        if (cache)
            node = cache->Strip(node, Bytes(chars));
    }

    /// Index of the first hit from `start`, at most `Length()`, on, or -1.
    int Find(unsigned c, unsigned start = 0) const noexcept { return node ? PStringCache::Find(node, c, start) : -1; }
    int Find(const char* s, unsigned start = 0) const noexcept
    {
        return node ? PStringCache::Find(node, Bytes(s), start) : -1;
    }

    /// The same text, by its node: a null handle equals null handles alone.
    bool operator==(const PString& s) const noexcept { return node == s.node; }
    /// Both null, or the same bytes.
    bool operator==(const char* text) const noexcept { return node && text ? Compare(text) == 0 : !node && !text; }
    /// Order by bytes as unsigned; null stands before the empty text.
    bool operator<(const PString& s) const noexcept;
    bool operator>(const PString& s) const noexcept;
    bool operator<=(const PString& s) const noexcept { return !(*this > s); }
    bool operator>=(const PString& s) const noexcept { return !(*this < s); }

    /// Order by bytes as unsigned: -1, 0 or 1. Null and empty are equal here.
    int Compare(const PString& s) const noexcept;
    int Compare(const char* text) const noexcept;
    /// Order with letters of either case equal: below 0, 0 or above 0. Null and empty are equal here.
    int CompareIgnoreCase(const PString& s) const noexcept;
    int CompareIgnoreCase(const char* text) const noexcept;
    /// Both null, or both texts equal but for case: null and empty differ here.
    bool EqualsIgnoreCase(const PString& s) const noexcept;

    /// Takes over a reference that `PStringCache` handed out.
    static PString FromNode(PStringCache::Node* owned) noexcept
    {
        PString s;
        s.node = owned;
        return s;
    }

private:
    static const unsigned char* Bytes(const char* text) noexcept
    {
        return reinterpret_cast<const unsigned char*>(text);
    }

    int Order(const PString& s) const noexcept;

    PStringCache::Node* node = nullptr; // counts one reference; null is the uninitialised string

    static PStringCache* cache;
};

/// Writes the text, or "<uninitialized>" for a null handle.
ZEM_API std::ostream& operator<<(std::ostream& out, const PString& s);

/// Reads one word, ended by white space, of at most 4,095 characters; what is left of a longer word stays in the
/// stream. When nothing can be read the handle gets the empty text.
ZEM_API std::istream& operator>>(std::istream& in, PString& s);

} // namespace Zem
