#pragma once

#include <Bedrock/memory/Alloc.h>

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <new>
#include <utility>

namespace Zem
{

/// An array that grows by chunks of `N` elements and never moves one: a pointer to an element is good until the array
/// goes.
///
///     first -> chunk <-> chunk <-> chunk -> first ...     a ring; only the last chunk may be part-full
///
/// Elements are added and taken off at the end. When the heap is exhausted, `Add` says so and the array stays as it was. An array
/// belongs to one thread at a time. It owns its elements and is not copied, but may be moved.
///
///     DynamicArray<String, 41> names;
///     names.Add("first");
///     for (const String& name : names)
///         ...
template <class T, std::uint32_t N>
class DynamicArray
{
    static_assert(N > 0);

    struct Chunk
    {
        Chunk* next;
        Chunk* prev;
        std::uint32_t count; // elements in use, at most N
        alignas(T) unsigned char slots[N][sizeof(T)];

        T* Slot(std::uint32_t index) noexcept { return std::launder(reinterpret_cast<T*>(slots[index])); }
    };
    static_assert(alignof(Chunk) <= 2 * sizeof(void*), "a block of Alloc is no further aligned");

    template <class Element>
    class BasicIterator
    {
    public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = T;
        using difference_type = std::ptrdiff_t;
        using pointer = Element*;
        using reference = Element&;

        /// An end iterator.
        constexpr BasicIterator() noexcept = default;
        /// An iterator on constant elements from one on elements.
        operator BasicIterator<const T>() const noexcept { return BasicIterator<const T>(current, start, chunk); }

        Element& operator*() const noexcept { return *current; }
        Element* operator->() const noexcept { return current; }
        /// The element, or null at the end.
        Element* Get() const noexcept { return current; }
        bool IsEnd() const noexcept { return current == nullptr; }

        /// Moves to the next element, or to the end; at the end it stays there.
        BasicIterator& operator++() noexcept
        {
            if (current && ++current == chunk->Slot(0) + chunk->count)
            {
                chunk = chunk->next;
                current = chunk == start ? nullptr : chunk->Slot(0);
            }
            return *this;
        }
        BasicIterator operator++(int) noexcept
        {
            BasicIterator old = *this;
            ++*this;
            return old;
        }
        /// Moves on by `n` elements, or to the end.
        BasicIterator& operator+=(std::uint32_t n) noexcept
        {
            while (current && n-- > 0)
                ++*this;
            return *this;
        }

        friend bool operator==(const BasicIterator& a, const BasicIterator& b) noexcept
        {
            return a.current == b.current;
        }

    private:
        friend class DynamicArray;
        template <class>
        friend class BasicIterator;
        BasicIterator(Element* element, Chunk* ring, Chunk* home) noexcept : current(element), start(ring), chunk(home)
        {
        }

        Element* current = nullptr; // null at the end
        Chunk* start = nullptr;     // the first chunk, where the walk stops
        Chunk* chunk = nullptr;     // the chunk of `current`
    };

public:
    using Iterator = BasicIterator<T>;
    using ConstIterator = BasicIterator<const T>;
    using value_type = T;
    using iterator = Iterator;
    using const_iterator = ConstIterator;

    constexpr DynamicArray() noexcept = default;
    DynamicArray(DynamicArray&& other) noexcept : first(std::exchange(other.first, nullptr)) {}
    DynamicArray& operator=(DynamicArray&& other) noexcept
    {
        std::swap(first, other.first);
        return *this;
    }
    DynamicArray(const DynamicArray&) = delete;
    DynamicArray& operator=(const DynamicArray&) = delete;
    ~DynamicArray() { Clear(); }

    /// Appends a copy of `value`, which may be an element of the array itself. Returns the new element; null when the
    /// heap is exhausted.
    T* Add(const T& value) { return Emplace(value); }
    T* Add(T&& value) { return Emplace(std::move(value)); }

    /// Appends an element that is built from `args` in its place.
    template <class... Args>
    T* Emplace(Args&&... args)
    {
        Chunk* last = first ? first->prev : nullptr;
        Chunk* fresh = nullptr;
        if (!last || last->count == N)
        {
            fresh = NewChunk();
            if (!fresh)
                return nullptr;
            last = fresh;
        }
        T* element = new (static_cast<void*>(last->slots[last->count])) T(std::forward<Args>(args)...);
        if (fresh)
            Link(fresh);
        ++last->count;
        return element;
    }

    /// Destroys the last element; a chunk that it leaves empty is freed. Nothing in an empty array.
    void RemoveLast() noexcept
    {
        if (!first)
            return;
        Chunk* last = first->prev;
        last->Slot(--last->count)->~T();
        if (last->count > 0)
            return;
        if (last == first)
            first = nullptr;
        else
        {
            last->prev->next = first;
            first->prev = last->prev;
        }
        Alloc::Delete(last);
    }

    /// Elements in the array. Cost: one step a chunk.
    std::uint32_t Count() const noexcept
    {
        std::uint32_t total = 0;
        if (const Chunk* chunk = first)
            do
                total += chunk->count;
            while ((chunk = chunk->next) != first);
        return total;
    }
    bool IsEmpty() const noexcept { return first == nullptr; }

    /// Iterators on the first and on the last element; end iterators if the array is empty.
    Iterator Begin() noexcept { return first ? Iterator(first->Slot(0), first, first) : Iterator(); }
    Iterator Last() noexcept
    {
        return first ? Iterator(first->prev->Slot(first->prev->count - 1), first, first->prev) : Iterator();
    }
    ConstIterator Begin() const noexcept { return const_cast<DynamicArray*>(this)->Begin(); }
    ConstIterator Last() const noexcept { return const_cast<DynamicArray*>(this)->Last(); }

    Iterator begin() noexcept { return Begin(); }
    Iterator end() noexcept { return Iterator(); }
    ConstIterator begin() const noexcept { return Begin(); }
    ConstIterator end() const noexcept { return ConstIterator(); }

    /// Destroys every element and frees the chunks.
    void Clear() noexcept
    {
        Chunk* chunk = std::exchange(first, nullptr);
        if (!chunk)
            return;
        chunk->prev->next = nullptr; // opens the ring
        while (chunk)
        {
            Chunk* next = chunk->next;
            for (std::uint32_t i = 0; i < chunk->count; ++i)
                chunk->Slot(i)->~T();
            Alloc::Delete(chunk);
            chunk = next;
        }
    }

private:
    static Chunk* NewChunk() noexcept
    {
        void* block = Alloc::New(sizeof(Chunk));
        if (!block)
            return nullptr;
        Chunk* chunk = new (block) Chunk;
        chunk->count = 0;
        return chunk;
    }

    void Link(Chunk* chunk) noexcept
    {
        if (!first)
            first = chunk->prev = chunk;
        else
        {
            chunk->prev = first->prev;
            first->prev->next = chunk;
        }
        chunk->next = first;
        first->prev = chunk;
    }

    Chunk* first = nullptr; // null while the array is empty
};

} // namespace Zem
