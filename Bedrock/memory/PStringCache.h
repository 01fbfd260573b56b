#pragma once

#include <Bedrock/memory/HeapOperators.h>

#include <atomic>
#include <cstdarg>
#include <cstdint>

namespace Zem
{

/// The table of interned texts behind `PString`: one node for each text of the process.
///
///     bucket -> node <-> node <-> node         the text used last at the head
///
/// A node whose count has fallen to 0 stays and is found again by the next one who makes that text, until
/// `CollectGarbage` sweeps its bucket. The table has a fixed number of buckets; chains get longer. A bucket of more
/// than a few nodes has an index beside its chain, by a hash of the whole text, so that a look-up costs the same however
/// long the chain is.
///
/// Operations that take and give a node take over the caller's reference on the one and hand out a reference on the
/// other; store the result in place of the argument. When the heap is exhausted they give the node back unchanged, and
/// `Create` and `GetUnique` of null give null.
///
/// Threads: everything takes the one lock where it needs it. Only `GetUnique` of a node, `Insert` and `Next` want it
/// held by the caller (`Lock`, `Unlock`; recursive). The text of a node in the table never changes, so reading it needs
/// no lock while a reference is held. References may be added and released without the lock at any time.
class ZEM_API PStringCache
{
    ZEM_HEAP_OPERATORS
public:
    /// Header of an interned text; the text and its terminator follow.
    struct Node
    {
        Node* next;                          // toward the tail
        Node* prev;                          // toward the head
        std::uint32_t length;                // bytes of text, which may hold any bytes
        std::uint32_t size;                  // bytes of room behind the header, terminator included
        std::atomic<std::uint32_t> refCount; // handles on this node; 0: dead but still found
        std::uint32_t id;                    // for clients to mark a node with; 0 at first

        unsigned char* Text() noexcept { return reinterpret_cast<unsigned char*>(this + 1); }
        const unsigned char* Text() const noexcept { return reinterpret_cast<const unsigned char*>(this + 1); }
    };

    explicit PStringCache(unsigned tableSize) noexcept;
    /// Frees every node, also those with handles.
    ~PStringCache();
    PStringCache(const PStringCache&) = delete;
    PStringCache& operator=(const PStringCache&) = delete;

    static void Lock() noexcept;
    static void Unlock() noexcept;

    /// A node off the table with `size` bytes behind its header, its other fields 0; null when the heap is exhausted.
    static Node* Alloc(unsigned size) noexcept;
    static unsigned GetHash(const unsigned char* text, unsigned length) noexcept;

    /// A reference on the node of a text: up to its terminator, of `length` bytes, or `n` copies of the low byte of `c`.
    /// Null for a null text and for `n` 0; the empty text has a node.
    Node* Create(const unsigned char* text) noexcept;
    Node* Create(const unsigned char* text, unsigned length) noexcept;
    Node* Create(unsigned c, unsigned n) noexcept;

    /// A node off the table that the caller alone may change, with room for `length` bytes and the old text in it. Write
    /// the text with its terminator, set `length`, and give it to `Insert`.
    Node* GetUnique(Node* node, unsigned length) noexcept;
    /// Puts a node from `GetUnique` into the table. Returns: it, or the node that has this text already.
    Node* Insert(Node* node) noexcept;

    void AddReference(Node* node) noexcept
    {
        node->refCount.fetch_add(1, std::memory_order_relaxed);
        Count(references, 1);
    }
    /// Releases one reference. The node stays in the table.
    void Destroy(Node* node) noexcept
    {
        Count(references, 0u - 1);
        if (node->refCount.fetch_sub(1, std::memory_order_release) == 1)
            Count(liveNodes, 0u - 1);
    }

    Node* Ins(Node* node, unsigned c, unsigned pos, unsigned n) noexcept;
    Node* Ins(Node* node, const unsigned char* s, unsigned pos) noexcept;
    Node* Del(Node* node, unsigned pos, unsigned n) noexcept;
    Node* Set(Node* node, const unsigned char* format, std::va_list args) noexcept;
    Node* Set(Node* node, int value, unsigned radix) noexcept;
    Node* ToLower(Node* node) noexcept;
    Node* ToUpper(Node* node) noexcept;
    Node* Strip(Node* node, const unsigned char* chars) noexcept;
    static int Find(const Node* node, unsigned c, unsigned start) noexcept;
    static int Find(const Node* node, const unsigned char* s, unsigned start) noexcept;

    /// Sets `id` of every node to 0. It is a walk by `Next` from start to end, so it leaves that walk at its end.
    void ClearIDs() noexcept;
    /// The next node of the table, head to tail, bucket by bucket; null at the end, and then until `Rewind`. A node that
    /// leaves the table between two steps is no trouble; one that moves in its chain may be met twice or not at all.
    Node* Next() noexcept;
    /// Starts the walk of `Next` anew; the caller holds the lock.
    void Rewind() noexcept;

    /// Frees the dead nodes in the next thirty-second of the buckets; 33 calls sweep all. Bounded work, for a frame that
    /// has time to spare; a table of fewer than 32 buckets is never swept.
    void CollectGarbage() noexcept;

    /// Visits every node under the lock, as a walk in a debugger would; reports nothing.
    void Dump() noexcept;

    /// For the frame that catches a fault: gives back the lock if the calling thread holds it, after the chains have
    /// been walked; a chain that is broken is cut where it breaks.
    void RecoverAfterFault() noexcept;

private:
    friend struct PStringCacheForTest;

    // The index of a long chain is a hash table of its own: `capacity` entries, a power of two, of which at most three
    // quarters are used. An entry is 0 or a node with the tag of its text in the upper 16 bits; it lies at `tag` modulo
    // `capacity` or, if that is taken, at the next free place.
    struct Bucket
    {
        Node* head;
        Node* tail;
        std::uint32_t count;
        // Written under the lock, and looked at before it to fetch the memory ahead of time.
        std::atomic<std::uint32_t> capacity; // 0 without an index
        std::atomic<std::uint64_t*> entries;

        std::uint32_t Capacity() const noexcept { return capacity.load(std::memory_order_relaxed); }
        std::uint64_t* Entries() const noexcept { return entries.load(std::memory_order_relaxed); }
        void Unlink(Node* node) noexcept;
        void PushHead(Node* node) noexcept;
        void Leave(std::uint64_t entry) noexcept;
        void SetIndex(std::uint64_t* block, std::uint32_t size) noexcept;
    };

    // A text with what its look-up needs.
    struct Key
    {
        const unsigned char* text;
        std::uint32_t length;
        std::uint64_t tag;
        Bucket& bucket;
    };

    // The counters may lose counts when threads meet: nothing depends on them.
    static void Count(std::atomic<std::uint32_t>& counter, std::uint32_t step) noexcept
    {
        counter.store(counter.load(std::memory_order_relaxed) + step, std::memory_order_relaxed);
    }

    static unsigned RoomFor(unsigned length) noexcept;
    static Node* NewNode(unsigned length) noexcept;
    static std::uint64_t TagOf(const unsigned char* text, unsigned length) noexcept;
    Key KeyOf(const unsigned char* text, unsigned length) const noexcept;
    Key KeyOf(const Node* node) const noexcept { return KeyOf(node->Text(), node->length); }
    static bool Holds(const Node* node, const Key& key) noexcept;
    Node* Lookup(const Key& key) noexcept;
    Node* LookupChain(const Key& key) noexcept;
    Node* LookupIndex(const Key& key) noexcept;
    static bool GrowIndex(Bucket& bucket) noexcept;
    static void Add(const Key& key, Node* node) noexcept;
    void Remove(Node* node) noexcept;
    void TakeReference(Node* node) noexcept;
    template <class Change>
    Node* Edit(Node* node, std::uint64_t length, Change change) noexcept;

    std::atomic<std::uint32_t> liveNodes{0};   // nodes with references
    std::atomic<std::uint32_t> references{0};  // handed out and not yet released
    std::atomic<std::uint32_t> hits{0};        // look-ups that found a node
    std::atomic<std::uint32_t> misses{0};      // nodes added to the table
    std::atomic<std::uint32_t> searchSteps{0}; // nodes looked at in vain
    std::uint32_t tableSize = 0;
    std::uint32_t sweepBucket = 0; // swept last
    Bucket* table = nullptr;       // guarded by `cacheLock`, as is all below
    std::int32_t walkBucket = -1;
    Node* walkNode = nullptr;
};

} // namespace Zem
