#pragma once

#include <Bedrock/Export.h>
#include <Bedrock/memory/HeapOperators.h>

#include <cstdint>

/// Intrusive nodes: links and nothing else. An object that goes on a list or into a tree has the node as a base, so
/// that no list operation allocates; the code that links them lives in the class that owns the list.
///
/// A new node has null links. Assigning a node copies its links as they are: the neighbours still point at the old
/// place, and putting that right is the owner's business. None of these types has a lock.
namespace Zem
{

/// The node of a doubly linked list; `NodeList` links it.
class DLListNode
{
public:
    constexpr DLListNode() noexcept = default;

    DLListNode* Next() const noexcept { return next; }
    DLListNode* Prev() const noexcept { return prev; }

    // For the owner of the list alone.
    DLListNode* next = nullptr;
    DLListNode* prev = nullptr;
};

/// A doubly linked list of `DLListNode`s that somebody else owns: nothing is freed with the list.
///
/// A node is on one list at most. Null `head` and `tail` and `count` 0 are the empty list.
class NodeList
{
public:
    constexpr NodeList() noexcept = default;

    DLListNode* Head() const noexcept { return head; }
    DLListNode* Tail() const noexcept { return tail; }
    std::uint32_t Count() const noexcept { return count; }

    void AddHead(DLListNode* node) noexcept
    {
        node->prev = nullptr;
        node->next = head;
        (head ? head->prev : tail) = node;
        head = node;
        ++count;
    }

    void AddTail(DLListNode* node) noexcept
    {
        node->next = nullptr;
        node->prev = tail;
        (tail ? tail->next : head) = node;
        tail = node;
        ++count;
    }

    /// Puts `node` before `place`, a node of this list, or at the tail if `place` is null.
    void AddBefore(DLListNode* node, DLListNode* place) noexcept
    {
        if (!place)
            return AddTail(node);
        node->next = place;
        node->prev = place->prev;
        (place->prev ? place->prev->next : head) = node;
        place->prev = node;
        ++count;
    }

    /// Takes out a node that is on this list; its links are null afterwards.
    void Remove(DLListNode* node) noexcept
    {
        (node->prev ? node->prev->next : head) = node->next;
        (node->next ? node->next->prev : tail) = node->prev;
        node->next = nullptr;
        node->prev = nullptr;
        --count;
    }

private:
    DLListNode* head = nullptr;
    DLListNode* tail = nullptr;
    std::uint32_t count = 0;
};

/// Two links whose owner links them by hand.
struct IListNode
{
    IListNode* next = nullptr;
    IListNode* prev = nullptr;
};

/// One link whose owner links it by hand.
struct ISingleListNode
{
    ISingleListNode* next = nullptr;
};

/// The node of a tree whose siblings form a doubly linked list.
///
/// A derived class fills the links; whoever does keeps `count`, `firstChild` and `lastChild` in step.
///
///     for (const DLTreeNode* node = root; node; node = node->Walk()) // the whole tree, parents first
///         ...
class ZEM_API DLTreeNode
{
public:
    constexpr DLTreeNode() noexcept = default;

    /// Children of this node.
    std::uint32_t Count() const noexcept { return count; }
    DLTreeNode* Next() const noexcept { return next; }
    DLTreeNode* Prev() const noexcept { return prev; }
    DLTreeNode* Child() const noexcept { return firstChild; }
    DLTreeNode* FirstChild() const noexcept { return firstChild; }
    DLTreeNode* LastChild() const noexcept { return lastChild; }
    DLTreeNode* Parent() const noexcept { return parent; }

    /// The next sibling, or that of the nearest ancestor that has one; null if none has.
    DLTreeNode* NextNode() const noexcept;

    /// The node after this one, depth first, parents before children; null behind the last.
    ///
    /// The walk does not know where it began: started at a node inside a tree, it goes on to the end of that tree.
    DLTreeNode* Walk() const noexcept;

    /// The next or previous sibling, round and round: the last is followed by the first. Null at a root's end.
    DLTreeNode* WalkNext() const noexcept;
    DLTreeNode* WalkPrev() const noexcept;

    // For the owner of the tree alone.
    std::uint32_t count = 0;
    DLTreeNode* next = nullptr;
    DLTreeNode* prev = nullptr;
    DLTreeNode* firstChild = nullptr;
    DLTreeNode* lastChild = nullptr;
    DLTreeNode* parent = nullptr;
};

/// The node of a red-black tree. It has no link to its parent, and its owner keeps the balance.
class ZEM_API RBTreeNode
{
    ZEM_HEAP_OPERATORS
public:
    constexpr RBTreeNode() noexcept = default;
    RBTreeNode(const RBTreeNode&) noexcept = default;
    RBTreeNode& operator=(const RBTreeNode&) noexcept = default;
    virtual ~RBTreeNode();

    RBTreeNode* Left() const noexcept { return left; }
    RBTreeNode* Right() const noexcept { return right; }

    // For the owner of the tree alone.
    RBTreeNode* left = nullptr;
    RBTreeNode* right = nullptr;
    std::uint8_t red = 0; // 0 black, 1 red
};

} // namespace Zem
