#include <Bedrock/memory/PStringCache.h>
#include <Bedrock/platform/Pause.h>
#include <Bedrock/platform/SuspendGuard.h>
#include <Bedrock/platform/Text.h>

#include <cstring>
#include <new>
#include <utility>

namespace Zem
{

static_assert(sizeof(PStringCache::Node) == 2 * sizeof(void*) + 16);

namespace
{

// 1 while a thread holds it. Nearly always that is for the few instructions of a look-up, so it is given back by a plain
// store, which cannot wake anybody: who waits spins, then yields, then sleeps shortly.
constinit std::atomic<std::uint32_t> cacheLock{0};

// How often the calling thread has entered: the lock is recursive, and a frame that catches a fault sees what was left.
constinit thread_local volatile unsigned lockDepth __attribute__((tls_model("initial-exec"))) = 0;

[[gnu::noinline]] void WaitForLock() noexcept
{
    for (unsigned turn = 0;; ++turn)
    {
        Platform::PauseTurn(turn);
        if (cacheLock.load(std::memory_order_relaxed) == 0 && cacheLock.exchange(1, std::memory_order_acquire) == 0)
            return;
    }
}

constexpr unsigned indexFrom = 1;         // a chain of more nodes gets an index
constexpr unsigned longest = 0xFFFFFF00u; // the longest text whose block size fits 32 bits
constexpr std::size_t localBytes = 8192;  // local work buffers
constexpr unsigned globalBuckets = 4093;

constexpr std::uint32_t smallestIndex = 4; // entries
constexpr unsigned tagShift = 48;          // addresses of a process have fewer bits
constexpr std::uint64_t addressMask = (std::uint64_t{1} << tagShift) - 1;

const char* Chars(const unsigned char* text)
{
    return reinterpret_cast<const char*>(text);
}

// Puts an entry of an index into its place.
void Enter(std::uint64_t* entries, std::uint32_t capacity, std::uint64_t entry)
{
    const std::uint64_t mask = capacity - 1;
    std::uint64_t at = (entry >> tagShift) & mask;
    while (entries[at] != 0)
        at = (at + 1) & mask;
    entries[at] = entry;
}

std::uint64_t Word(const unsigned char* at, std::size_t bytes)
{
    std::uint64_t word = 0;
    std::memcpy(&word, at, bytes);
    return word;
}

} // namespace

PStringCache::PStringCache(unsigned buckets) noexcept
{
    static_assert(sizeof(Bucket) <= 32);
    constexpr std::size_t line = 64; // no bucket lies across two cache lines
    if (void* block = NewAligned(std::size_t{buckets} * sizeof(Bucket), line))
    {
        table = static_cast<Bucket*>(block);
        tableSize = buckets;
        for (unsigned i = 0; i < buckets; ++i)
            new (static_cast<void*>(table + i)) Bucket{nullptr, nullptr, 0, 0, nullptr};
    }
}

PStringCache::~PStringCache()
{
    for (std::uint32_t i = 0; i < tableSize; ++i)
    {
        for (Node* node = table[i].head; node;)
        {
            Node* next = node->next;
            ::Zem::Alloc::Delete(node);
            node = next;
        }
        ::Zem::Alloc::Delete(table[i].Entries());
    }
    DeleteAligned(table);
}

void PStringCache::Lock() noexcept
{
    const unsigned depth = lockDepth;
    Platform::SuspendGuard::Begin();
    if (depth == 0 && cacheLock.exchange(1, std::memory_order_acquire) != 0)
        WaitForLock();
    lockDepth = depth + 1;
}

void PStringCache::Unlock() noexcept
{
    const unsigned depth = lockDepth - 1;
    lockDepth = depth;
    if (depth == 0)
        cacheLock.store(0, std::memory_order_release);
    Platform::SuspendGuard::End();
}

// ---- nodes

unsigned PStringCache::RoomFor(unsigned length) noexcept
{
    constexpr unsigned header = sizeof(Node);
    return ((length + header + 16) & ~15u) - header;
}

PStringCache::Node* PStringCache::Alloc(unsigned size) noexcept
{
    void* block = ::Zem::Alloc::New(std::size_t{size} + sizeof(Node));
    return block ? new (block) Node{nullptr, nullptr, 0, size, 0, 0} : nullptr;
}

PStringCache::Node* PStringCache::NewNode(unsigned length) noexcept
{
    Node* node = length <= longest ? Alloc(RoomFor(length)) : nullptr;
    if (node)
        node->refCount.store(1, std::memory_order_relaxed);
    return node;
}

// `h = (h << 3) ^ byte` over the last 16 bytes. A byte is shifted out of the 32 bits by the eleventh that follows, so
// the last 11 are enough, and each one's shift is known beforehand: no step waits for the one before.
unsigned PStringCache::GetHash(const unsigned char* text, unsigned length) noexcept
{
    constexpr int counted = 11;
    const unsigned char* end = text + length;
    std::uint32_t hash = 0;
    if (length >= unsigned{counted})
        return [end]<int... Back>(std::integer_sequence<int, Back...>)
        {
            return ((std::uint32_t{end[-1 - Back]} << (3 * Back)) ^ ...);
        }
    (std::make_integer_sequence<int, counted>());
    for (; text != end; ++text)
        hash = (hash << 3) ^ *text;
    return hash;
}

// 16 well-mixed bits of the whole text, which `GetHash` does not know, in the place that they have in an entry.
std::uint64_t PStringCache::TagOf(const unsigned char* text, unsigned length) noexcept
{
    constexpr std::uint64_t factor = 0x9E3779B97F4A7C15u;
    std::uint64_t hash = length * factor;
    const auto mix = [&hash](std::uint64_t word)
    {
        hash = (hash ^ word) * factor;
        hash ^= hash >> 29;
    };
    if (length >= 8)
    {
        for (unsigned at = 0; at + 8 < length; at += 8)
            mix(Word(text + at, 8));
        mix(Word(text + length - 8, 8)); // may overlap the one before
    }
    else if (length >= 4)
        mix(Word(text, 4) | Word(text + length - 4, 4) << 32);
    else if (length > 0)
        mix(text[0] | std::uint64_t{text[length / 2]} << 8 | std::uint64_t{text[length - 1]} << 16);
    return (hash * factor) & ~addressMask;
}

bool PStringCache::Holds(const Node* node, const Key& key) noexcept
{
    return node->length == key.length && std::memcmp(node->Text(), key.text, key.length) == 0;
}

// ---- chains

PStringCache::Key PStringCache::KeyOf(const unsigned char* text, unsigned length) const noexcept
{
    const unsigned hash = GetHash(text, length);
    // The size that nearly every table has is a constant here: no division.
    Bucket& bucket = table[tableSize == globalBuckets ? hash % globalBuckets : hash % tableSize];
    return {text, length, TagOf(text, length), bucket};
}

void PStringCache::Bucket::PushHead(Node* node) noexcept
{
    node->prev = nullptr;
    node->next = head;
    (head ? head->prev : tail) = node;
    head = node;
}

void PStringCache::Bucket::Unlink(Node* node) noexcept
{
    (node->prev ? node->prev->next : head) = node->next;
    (node->next ? node->next->prev : tail) = node->prev;
}

// Moves what it finds to the head of its chain, if the chain is what the next look-up walks.
PStringCache::Node* PStringCache::Lookup(const Key& key) noexcept
{
    Node* node = key.bucket.Capacity() != 0 ? LookupIndex(key) : LookupChain(key);
    if (node)
        Count(hits, 1);
    return node;
}

PStringCache::Node* PStringCache::LookupChain(const Key& key) noexcept
{
    for (Node* node = key.bucket.head; node; node = node->next)
    {
        if (!Holds(node, key))
        {
            Count(searchSteps, 1);
            continue;
        }
        if (node != key.bucket.head)
        {
            key.bucket.Unlink(node);
            key.bucket.PushHead(node);
        }
        return node;
    }
    return nullptr;
}

PStringCache::Node* PStringCache::LookupIndex(const Key& key) noexcept
{
    const std::uint64_t* entries = key.bucket.Entries();
    const std::uint64_t mask = key.bucket.Capacity() - 1;
    for (std::uint64_t at = (key.tag >> tagShift) & mask; entries[at] != 0; at = (at + 1) & mask)
    {
        if (((entries[at] ^ key.tag) & ~addressMask) != 0)
            continue;
        Node* node = reinterpret_cast<Node*>(static_cast<std::uintptr_t>(entries[at] & addressMask));
        if (Holds(node, key))
            return node;
        Count(searchSteps, 1);
    }
    return nullptr;
}

// Closes the gap: what lies behind it up to the next free place moves back if its own place is not behind the gap.
void PStringCache::Bucket::Leave(std::uint64_t entry) noexcept
{
    std::uint64_t* all = Entries();
    const std::uint64_t mask = Capacity() - 1;
    std::uint64_t gap = (entry >> tagShift) & mask;
    while (all[gap] != entry)
        gap = (gap + 1) & mask;
    for (std::uint64_t at = (gap + 1) & mask; all[at] != 0; at = (at + 1) & mask)
    {
        const std::uint64_t home = (all[at] >> tagShift) & mask;
        if (((at - home) & mask) < ((at - gap) & mask))
            continue;
        all[gap] = all[at];
        gap = at;
    }
    all[gap] = 0;
}

void PStringCache::Bucket::SetIndex(std::uint64_t* block, std::uint32_t size) noexcept
{
    ::Zem::Alloc::Delete(Entries());
    entries.store(block, std::memory_order_relaxed);
    capacity.store(size, std::memory_order_relaxed);
}

// Doubles the index of a bucket, or builds its first one. The tags in the entries are all it takes.
bool PStringCache::GrowIndex(Bucket& bucket) noexcept
{
    const std::uint32_t old = bucket.Capacity();
    std::uint32_t capacity = old ? 2 * old : smallestIndex;
    while (bucket.count >= capacity / 4 * 3)
        capacity *= 2;
    const std::size_t bytes = capacity * sizeof(std::uint64_t);
    auto* entries = static_cast<std::uint64_t*>(::Zem::Alloc::New(bytes));
    if (!entries)
        return false;
    std::memset(entries, 0, bytes);
    for (std::uint32_t i = 0; i < old; ++i)
        if (bucket.Entries()[i] != 0)
            Enter(entries, capacity, bucket.Entries()[i]);
    if (old == 0)
        for (Node* node = bucket.head; node; node = node->next)
            Enter(entries, capacity, TagOf(node->Text(), node->length) | reinterpret_cast<std::uintptr_t>(node));
    bucket.SetIndex(entries, capacity);
    return true;
}

// Takes a node into its chain. With no memory for the index the bucket goes on without one, and its chain is walked.
void PStringCache::Add(const Key& key, Node* node) noexcept
{
    Bucket& bucket = key.bucket;
    if (bucket.count >= indexFrom && bucket.count >= bucket.Capacity() / 4 * 3 && !GrowIndex(bucket))
        bucket.SetIndex(nullptr, 0);
    if (bucket.Capacity() != 0)
        Enter(bucket.Entries(), bucket.Capacity(), key.tag | reinterpret_cast<std::uintptr_t>(node));
    bucket.PushHead(node);
    ++bucket.count;
}

void PStringCache::Remove(Node* node) noexcept
{
    if (node == walkNode) // the walk stands in front of the node's follower again
    {
        walkNode = node->prev;
        if (!walkNode)
            --walkBucket;
    }
    const Key key = KeyOf(node);
    key.bucket.Unlink(node);
    node->next = nullptr;
    node->prev = nullptr;
    --key.bucket.count;
    if (key.bucket.Capacity() == 0)
        return;
    if (key.bucket.count == 0)
        key.bucket.SetIndex(nullptr, 0);
    else
        key.bucket.Leave(key.tag | reinterpret_cast<std::uintptr_t>(node));
}

// ---- interning

// One more reference on a node of the table, under the lock; a dead node lives again.
void PStringCache::TakeReference(Node* node) noexcept
{
    if (node->refCount.fetch_add(1, std::memory_order_relaxed) == 0)
        Count(liveNodes, 1);
}

PStringCache::Node* PStringCache::Create(const unsigned char* text) noexcept
{
    if (!text)
        return nullptr;
    const std::size_t length = std::strlen(Chars(text));
    return length <= longest ? Create(text, static_cast<unsigned>(length)) : nullptr;
}

PStringCache::Node* PStringCache::Create(const unsigned char* text, unsigned length) noexcept
{
    if (!text || tableSize == 0)
        return nullptr;
    const Key key = KeyOf(text, length);
    const std::uint64_t place = (key.tag >> tagShift) & (key.bucket.Capacity() - 1);
    __builtin_prefetch(reinterpret_cast<const void*>(reinterpret_cast<std::uintptr_t>(key.bucket.Entries()) +
                                                     static_cast<std::uintptr_t>(place * sizeof(std::uint64_t))));
    Lock();
    Node* node = Lookup(key);
    if (node)
        TakeReference(node);
    else if ((node = NewNode(length)) != nullptr)
    {
        std::memcpy(node->Text(), text, length);
        node->Text()[length] = 0;
        node->length = length;
        Count(misses, 1);
        Count(liveNodes, 1);
        Add(key, node);
    }
    if (node)
        Count(references, 1);
    Unlock();
    return node;
}

PStringCache::Node* PStringCache::Create(unsigned c, unsigned n) noexcept
{
    Node* node = n && tableSize ? GetUnique(nullptr, n) : nullptr;
    if (!node)
        return nullptr;
    std::memset(node->Text(), static_cast<int>(c & 0xFF), n);
    node->length = n;
    Lock();
    node = Insert(node);
    Unlock();
    return node;
}

PStringCache::Node* PStringCache::GetUnique(Node* node, unsigned length) noexcept
{
    if (node && length <= longest && node->refCount.load(std::memory_order_acquire) <= 1 &&
        node->size >= RoomFor(length))
    {
        Remove(node);
        Count(liveNodes, 0u - 1);
        Count(references, 0u - 1);
        return node;
    }
    Node* fresh = NewNode(length);
    if (!fresh)
        return nullptr;
    fresh->Text()[length] = 0;
    if (node)
    {
        // The old text may be longer than what the caller wants room for; it is cut then.
        fresh->length = node->length < length ? node->length : length;
        std::memcpy(fresh->Text(), node->Text(), fresh->length);
        fresh->Text()[fresh->length] = 0;
        Destroy(node);
    }
    return fresh;
}

PStringCache::Node* PStringCache::Insert(Node* node) noexcept
{
    Count(references, 1);
    const Key key = KeyOf(node);
    if (Node* found = Lookup(key))
    {
        TakeReference(found);
        ::Zem::Alloc::Delete(node);
        return found;
    }
    Count(misses, 1);
    Count(liveNodes, 1);
    Add(key, node);
    return node;
}

// ---- edits

// Gives `change` a private node with room for `length` bytes and interns what it makes of it.
template <class Change>
PStringCache::Node* PStringCache::Edit(Node* node, std::uint64_t length, Change change) noexcept
{
    if (length > longest)
        return node;
    Lock();
    Node* result = node;
    if (Node* own = GetUnique(node, static_cast<unsigned>(length)))
    {
        change(own);
        result = Insert(own);
    }
    Unlock();
    return result;
}

PStringCache::Node* PStringCache::Ins(Node* node, unsigned c, unsigned pos, unsigned n) noexcept
{
    if (!node)
        return Create(c, n);
    if (n == 0 || pos > node->length)
        return node;
    return Edit(node, std::uint64_t{node->length} + n,
                [=](Node* own)
                {
                    unsigned char* text = own->Text();
                    std::memmove(text + pos + n, text + pos, std::size_t{own->length} - pos + 1);
                    std::memset(text + pos, static_cast<int>(c & 0xFF), n);
                    own->length += n;
                });
}

PStringCache::Node* PStringCache::Ins(Node* node, const unsigned char* s, unsigned pos) noexcept
{
    if (!node)
        return Create(s);
    if (!s || *s == 0 || pos > node->length)
        return node;
    const std::size_t n = std::strlen(Chars(s));
    if (s >= node->Text() && s <= node->Text() + node->length)
    {
        // The source lies in the text that is about to move. A reference makes the edit work on another node.
        AddReference(node);
        Node* result = Edit(node, std::uint64_t{node->length} + n,
                            [=](Node* own)
                            {
                                unsigned char* text = own->Text();
                                std::memmove(text + pos + n, text + pos, std::size_t{own->length} - pos + 1);
                                std::memcpy(text + pos, s, n);
                                own->length += static_cast<unsigned>(n);
                            });
        Destroy(node);
        return result;
    }
    return Edit(node, std::uint64_t{node->length} + n,
                [=](Node* own)
                {
                    unsigned char* text = own->Text();
                    std::memmove(text + pos + n, text + pos, std::size_t{own->length} - pos + 1);
                    std::memcpy(text + pos, s, n);
                    own->length += static_cast<unsigned>(n);
                });
}

PStringCache::Node* PStringCache::Del(Node* node, unsigned pos, unsigned n) noexcept
{
    if (!node || n == 0 || pos >= node->length)
        return node;
    return Edit(node, node->length,
                [=](Node* own)
                {
                    const unsigned gone = n < own->length - pos ? n : own->length - pos;
                    unsigned char* text = own->Text();
                    own->length -= gone;
                    std::memmove(text + pos, text + pos + gone, std::size_t{own->length} - pos + 1);
                });
}

PStringCache::Node* PStringCache::Set(Node* node, const unsigned char* format, std::va_list args) noexcept
{
    char text[localBytes + 1];
    const int length = Platform::FormatBounded(text, Chars(format), args);
    Node* made = nullptr;
    if (length > 0)
    {
        made = Create(reinterpret_cast<const unsigned char*>(text), static_cast<unsigned>(length));
        if (!made)
            return node;
    }
    if (node)
        Destroy(node);
    return made;
}

PStringCache::Node* PStringCache::Set(Node* node, int value, unsigned radix) noexcept
{
    char text[34];
    const int length = Platform::FormatInt(text, value, radix);
    Node* made = Create(reinterpret_cast<const unsigned char*>(text), static_cast<unsigned>(length));
    if (!made)
        return node;
    if (node)
        Destroy(node);
    return made;
}

PStringCache::Node* PStringCache::ToLower(Node* node) noexcept
{
    if (!node || node->length == 0)
        return node;
    return Edit(node, node->length, [](Node* own) { Platform::LowerInPlace(reinterpret_cast<char*>(own->Text())); });
}

PStringCache::Node* PStringCache::ToUpper(Node* node) noexcept
{
    if (!node || node->length == 0)
        return node;
    return Edit(node, node->length, [](Node* own) { Platform::UpperInPlace(reinterpret_cast<char*>(own->Text())); });
}

PStringCache::Node* PStringCache::Strip(Node* node, const unsigned char* chars) noexcept
{
    if (!node || node->length == 0 || !chars)
        return node;
    unsigned char local[localBytes];
    unsigned char* work = local;
    if (node->length >= localBytes)
    {
        work = static_cast<unsigned char*>(::Zem::Alloc::New(std::size_t{node->length} + 1));
        if (!work)
            return node;
    }
    unsigned kept = 0;
    for (unsigned i = 0; i < node->length; ++i)
    {
        const unsigned char byte = node->Text()[i];
        if (byte == 0 || !std::strchr(Chars(chars), byte))
            work[kept++] = byte;
    }
    Node* result = node;
    if (kept != node->length)
    {
        work[kept] = 0;
        if (Node* made = Create(work, kept))
        {
            Destroy(node);
            result = made;
        }
    }
    if (work != local)
        ::Zem::Alloc::Delete(work);
    return result;
}

int PStringCache::Find(const Node* node, unsigned c, unsigned start) noexcept
{
    if (node->length == 0 || start > node->length)
        return -1;
    const char* text = Chars(node->Text());
    const char* hit = std::strchr(text + start, static_cast<int>(c & 0xFF));
    return hit ? static_cast<int>(hit - text) : -1;
}

int PStringCache::Find(const Node* node, const unsigned char* s, unsigned start) noexcept
{
    if (node->length == 0 || start > node->length || !s)
        return -1;
    const char* text = Chars(node->Text());
    const char* hit = std::strstr(text + start, Chars(s));
    return hit ? static_cast<int>(hit - text) : -1;
}

// ---- the table as a whole

void PStringCache::Rewind() noexcept
{
    walkBucket = -1;
    walkNode = nullptr;
}

void PStringCache::ClearIDs() noexcept
{
    Lock();
    Rewind();
    while (Node* node = Next())
        node->id = 0;
    Unlock();
}

PStringCache::Node* PStringCache::Next() noexcept
{
    do
    {
        if (walkNode)
            walkNode = walkNode->next;
        else if (walkBucket + 1 < static_cast<std::int32_t>(tableSize))
            walkNode = table[++walkBucket].head;
        else
            return nullptr;
    } while (!walkNode);
    return walkNode;
}

void PStringCache::CollectGarbage() noexcept
{
    Lock();
    for (std::uint32_t left = tableSize >> 5; left > 0; --left)
    {
        sweepBucket = sweepBucket + 1 < tableSize ? sweepBucket + 1 : 0;
        Bucket& bucket = table[sweepBucket];
        for (Node* node = bucket.tail; node;)
        {
            Node* prev = node->prev;
            if (node->refCount.load(std::memory_order_acquire) == 0)
            {
                Remove(node);
                ::Zem::Alloc::Delete(node);
            }
            node = prev;
        }
    }
    Unlock();
}

void PStringCache::Dump() noexcept
{
    Lock();
    for (std::uint32_t i = 0; i < tableSize; ++i)
        for (const Node* node = table[i].head; node; node = node->next)
            static_cast<void>(node->length);
    Unlock();
}

// A fault can only leave a chain half linked: the order of the stores in PushHead and Unlink keeps every `next` chain
// walkable, so it is the truth, and the rest is put right after it.
void PStringCache::RecoverAfterFault() noexcept
{
    if (lockDepth == 0)
        return;
    for (std::uint32_t i = 0; i < tableSize; ++i)
    {
        Bucket& bucket = table[i];
        bucket.tail = nullptr;
        bucket.count = 0;
        for (Node* node = bucket.head; node; node = node->next)
        {
            node->prev = bucket.tail;
            bucket.tail = node;
            ++bucket.count;
        }
        // The index is built anew by the next node that comes; the block of the old one is not trusted, and left alone.
        bucket.entries.store(nullptr, std::memory_order_relaxed);
        bucket.capacity.store(0, std::memory_order_relaxed);
    }
    Rewind();
    while (lockDepth > 0)
        Unlock();
}

} // namespace Zem
