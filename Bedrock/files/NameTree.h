#pragma once

#include <Bedrock/Export.h>

#include <cstdint>

namespace Zem
{

/// A set of names without case, in ascending order of their lower-case bytes: a red-black tree.
///
/// It remembers where the last name went. A name that follows or equals a neighbour of that place, as the names of a
/// sorted listing do, costs a few comparisons; every other one costs as many as the tree is deep.
/// Threads: one at a time.
class ZEM_API NameTree
{
public:
    constexpr NameTree() noexcept = default;
    NameTree(const NameTree& other);
    NameTree& operator=(const NameTree& other);
    ~NameTree() { Clear(); }

    enum class Added : std::uint8_t
    {
        New,
        Known,   // it is there already, in this or another case
        NoSpace, // the heap is exhausted; the set is as it was
    };

    /// Adds a name of at most 259 bytes. A `silent` one is not among those that `Walk` shows.
    Added Add(const char* name, bool silent = false);

    std::uint32_t Count() const noexcept { return count; }
    void Clear() noexcept;

    /// Calls `see(name)` for each name in ascending order, in lower case.
    template <class See>
    void Walk(See see) const
    {
        for (const Node* node = Lowest(); node; node = Next(node))
            if (const char* shown = Shown(node))
                see(shown);
    }

    /// Whether order, colours and links are right.
    bool CheckInvariants() const;

private:
    struct Node;

    const Node* Lowest() const noexcept;
    static const Node* Next(const Node* node) noexcept;
    static const char* Shown(const Node* node) noexcept;
    void Link(Node* node, Node* parent, bool right) noexcept;
    void Rotate(Node* node, bool right) noexcept;

    Node* root = nullptr;
    Node* finger = nullptr; // found or added last
    std::uint32_t count = 0;
};

} // namespace Zem
