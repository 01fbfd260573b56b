#include <Bedrock/memory/PStringCache.h>
#include <Bedrock/platform/Lock.h>
#include <Bedrock/platform/Text.h>

#include <cstring>
#include <new>

namespace Zem
{

static_assert(sizeof(PStringCache::Node) == 2 * sizeof(void*) + 16);

namespace
{

constinit Platform::Lock cacheLock;

// Entries of the calling thread, so that a frame that catches a fault knows what was left behind.
constinit thread_local volatile unsigned lockDepth __attribute__((tls_model("initial-exec"))) = 0;

constexpr unsigned indexFrom = 4;         // a chain of more nodes gets an index
constexpr unsigned longest = 0xFFFFFF00u; // the longest text whose block size fits 32 bits
constexpr std::size_t localBytes = 8192;  // local work buffers
constexpr unsigned globalBuckets = 4093;

using TagVector = std::uint16_t __attribute__((vector_size(16)));
constexpr unsigned tagsPerVector = 8;

const char* Chars(const unsigned char* text)
{
    return reinterpret_cast<const char*>(text);
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
    if (void* block = ::Zem::Alloc::New(std::size_t{buckets} * sizeof(Bucket)))
    {
        table = static_cast<Bucket*>(block);
        tableSize = buckets;
        std::memset(block, 0, std::size_t{buckets} * sizeof(Bucket));
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
        ::Zem::Alloc::Delete(table[i].nodes);
    }
    ::Zem::Alloc::Delete(table);
}

void PStringCache::Lock() noexcept
{
    cacheLock.Enter();
    lockDepth = lockDepth + 1;
}

void PStringCache::Unlock() noexcept
{
    lockDepth = lockDepth - 1;
    cacheLock.Leave();
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
    constexpr unsigned counted = 11;
    const unsigned char* end = text + length;
    std::uint32_t hash = 0;
    if (length >= counted)
    {
        for (unsigned i = 0; i < counted; ++i)
            hash ^= std::uint32_t{end[-1 - static_cast<int>(i)]} << (3 * i);
        return hash;
    }
    for (; text != end; ++text)
        hash = (hash << 3) ^ *text;
    return hash;
}

// 16 well-mixed bits of the whole text: `GetHash` knows only its end.
std::uint16_t PStringCache::TagOf(const unsigned char* text, unsigned length) noexcept
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
    return static_cast<std::uint16_t>((hash * factor) >> 48);
}

bool PStringCache::Holds(const Node* node, const unsigned char* text, unsigned length) noexcept
{
    return node->length == length && std::memcmp(node->Text(), text, length) == 0;
}

// ---- chains

PStringCache::Bucket& PStringCache::BucketOf(const unsigned char* text, unsigned length) noexcept
{
    const unsigned hash = GetHash(text, length);
    // The size that nearly every table has is a constant here: no division.
    return table[tableSize == globalBuckets ? hash % globalBuckets : hash % tableSize];
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

PStringCache::Node* PStringCache::Lookup(Bucket& bucket, const unsigned char* text, unsigned length) noexcept
{
    Node* node = bucket.head;
    if (!node)
        return nullptr;
    if (!Holds(node, text, length))
    {
        Count(searchSteps, 1);
        node = LookupBehindHead(bucket, text, length);
        if (!node)
            return nullptr;
        bucket.Unlink(node);
        bucket.PushHead(node);
    }
    Count(hits, 1);
    return node;
}

PStringCache::Node* PStringCache::LookupBehindHead(Bucket& bucket, const unsigned char* text, unsigned length) noexcept
{
    if (bucket.capacity == 0)
    {
        for (Node* node = bucket.head->next; node; node = node->next)
        {
            if (Holds(node, text, length))
                return node;
            Count(searchSteps, 1);
        }
        return nullptr;
    }
    const std::uint16_t tag = TagOf(text, length);
    const std::uint16_t* tags = bucket.Tags();
    for (unsigned first = 0; first < bucket.count; first += tagsPerVector)
    {
        TagVector group;
        std::memcpy(&group, tags + first, sizeof group);
        const auto equal = group == tag;
        std::uint64_t lanes[2];
        std::memcpy(lanes, &equal, sizeof lanes);
        if ((lanes[0] | lanes[1]) == 0)
            continue;
        for (unsigned i = first; i < first + tagsPerVector && i < bucket.count; ++i)
        {
            if (tags[i] != tag)
                continue;
            Node* node = bucket.nodes[i];
            if (Holds(node, text, length))
                return node;
            Count(searchSteps, 1);
        }
    }
    return nullptr;
}

// Doubles the index of a bucket, or builds its first one.
bool PStringCache::GrowIndex(Bucket& bucket) noexcept
{
    const std::uint32_t capacity = bucket.capacity ? 2 * bucket.capacity : 2 * tagsPerVector;
    Bucket grown = bucket;
    grown.capacity = capacity;
    grown.nodes =
        static_cast<Node**>(::Zem::Alloc::New(std::size_t{capacity} * (sizeof(Node*) + sizeof(std::uint16_t))));
    if (!grown.nodes)
        return false;
    std::memset(grown.Tags(), 0, std::size_t{capacity} * sizeof(std::uint16_t));
    if (bucket.capacity)
    {
        std::memcpy(grown.nodes, bucket.nodes, bucket.count * sizeof(Node*));
        std::memcpy(grown.Tags(), bucket.Tags(), bucket.count * sizeof(std::uint16_t));
    }
    else
    {
        std::uint32_t i = 0;
        for (Node* node = bucket.head; node; node = node->next, ++i)
        {
            grown.nodes[i] = node;
            grown.Tags()[i] = TagOf(node->Text(), node->length);
        }
    }
    ::Zem::Alloc::Delete(bucket.nodes);
    bucket = grown;
    return true;
}

// Takes a node into its chain. With no memory for the index the bucket goes on without one, and its chain is walked.
void PStringCache::Add(Bucket& bucket, Node* node) noexcept
{
    if (bucket.count >= indexFrom && (bucket.capacity == 0 || bucket.count == bucket.capacity) && !GrowIndex(bucket))
    {
        ::Zem::Alloc::Delete(bucket.nodes);
        bucket.nodes = nullptr;
        bucket.capacity = 0;
    }
    if (bucket.capacity)
    {
        bucket.nodes[bucket.count] = node;
        bucket.Tags()[bucket.count] = TagOf(node->Text(), node->length);
    }
    bucket.PushHead(node);
    ++bucket.count;
}

void PStringCache::Remove(Bucket& bucket, Node* node) noexcept
{
    if (node == walkNode) // the walk stands in front of the node's follower again
    {
        walkNode = node->prev;
        if (!walkNode)
            --walkBucket;
    }
    bucket.Unlink(node);
    node->next = nullptr;
    node->prev = nullptr;
    --bucket.count;
    if (bucket.capacity == 0)
        return;
    std::uint32_t i = 0;
    while (bucket.nodes[i] != node)
        ++i;
    bucket.nodes[i] = bucket.nodes[bucket.count];
    bucket.Tags()[i] = bucket.Tags()[bucket.count];
    if (bucket.count == 0)
    {
        ::Zem::Alloc::Delete(bucket.nodes);
        bucket.nodes = nullptr;
        bucket.capacity = 0;
    }
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
    Bucket& bucket = BucketOf(text, length);
    Lock();
    Node* node = Lookup(bucket, text, length);
    if (node)
        TakeReference(node);
    else if ((node = NewNode(length)) != nullptr)
    {
        std::memcpy(node->Text(), text, length);
        node->Text()[length] = 0;
        node->length = length;
        Count(misses, 1);
        Count(liveNodes, 1);
        Add(bucket, node);
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
        Remove(BucketOf(node->Text(), node->length), node);
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
    Bucket& bucket = BucketOf(node->Text(), node->length);
    if (Node* found = Lookup(bucket, node->Text(), node->length))
    {
        TakeReference(found);
        ::Zem::Alloc::Delete(node);
        return found;
    }
    Count(misses, 1);
    Count(liveNodes, 1);
    Add(bucket, node);
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
                Remove(bucket, node);
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
        bucket.capacity = 0; // an index is rebuilt by the next node that comes; the old one's block is not trusted
        bucket.nodes = nullptr;
    }
    Rewind();
    while (lockDepth > 0)
        Unlock();
}

} // namespace Zem
