#include <Bedrock/files/BPE.h>

#include <Bedrock/memory/Alloc.h>

#include <bit>
#include <cstddef>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace Zem
{

namespace
{

constexpr std::uint32_t blockLimit = 2048; // bytes loaded into a block
constexpr unsigned valueLimit = 210;       // distinct byte values after which a block is full
constexpr unsigned slotCount = 4096;       // slots of the pair table
constexpr unsigned leastCount = 3;         // occurrences that make a pair worth a code
constexpr unsigned groupSize = 64;         // slots of a group, of which the highest count is known
constexpr unsigned groupCount = slotCount / groupSize;
constexpr unsigned stretch = 64; // bytes that are searched at once; buffers have room for it at their end
constexpr unsigned lane = 16;    // bytes that an expansion writes at once

// ---------------------------------------------------------------------------------------------- 64 bytes at a time

// The highest of 64 bytes.
inline std::uint8_t Highest(const std::uint8_t* bytes)
{
#if defined(__SSE2__)
    const auto* v = reinterpret_cast<const __m128i*>(bytes);
    __m128i high = _mm_max_epu8(_mm_max_epu8(_mm_load_si128(v), _mm_load_si128(v + 1)),
                                _mm_max_epu8(_mm_load_si128(v + 2), _mm_load_si128(v + 3)));
    high = _mm_max_epu8(high, _mm_srli_si128(high, 8));
    high = _mm_max_epu8(high, _mm_srli_si128(high, 4));
    const auto four = static_cast<std::uint32_t>(_mm_cvtsi128_si32(_mm_max_epu8(high, _mm_srli_si128(high, 2))));
    const std::uint8_t a = four & 0xFF, b = (four >> 8) & 0xFF;
    return a > b ? a : b;
#else
    std::uint8_t high = 0;
    for (unsigned i = 0; i < 64; ++i)
        high = bytes[i] > high ? bytes[i] : high;
    return high;
#endif
}

// Index of the first of 64 bytes that has this value; one has it.
inline unsigned FirstOf(const std::uint8_t* bytes, std::uint8_t value)
{
#if defined(__SSE2__)
    const __m128i wanted = _mm_set1_epi8(static_cast<char>(value));
    for (unsigned i = 0;; i += 16)
    {
        const __m128i v = _mm_load_si128(reinterpret_cast<const __m128i*>(bytes + i));
        if (const int hits = _mm_movemask_epi8(_mm_cmpeq_epi8(v, wanted)))
            return i + static_cast<unsigned>(std::countr_zero(static_cast<unsigned>(hits)));
    }
#else
    unsigned i = 0;
    while (bytes[i] != value)
        ++i;
    return i;
#endif
}

// Copies from `src` to `dst` up to the first pair (l, h) and gives its index, or one from `limit` on if no pair begins
// before. Whole stretches of 64 bytes are read and written, and one byte more is read.
inline unsigned CopyUpToPair(std::uint8_t* dst, const std::uint8_t* src, unsigned limit, std::uint8_t l, std::uint8_t h)
{
    unsigned i = 0;
#if defined(__SSE2__)
    const __m128i left = _mm_set1_epi8(static_cast<char>(l)), right = _mm_set1_epi8(static_cast<char>(h));
    const auto step = [&](unsigned at)
    {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + at));
        const __m128i behind = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + at + 1));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + at), v);
        return _mm_and_si128(_mm_cmpeq_epi8(v, left), _mm_cmpeq_epi8(behind, right));
    };
    // A branch that is foreseen, not an index that is waited for, takes this from stretch to stretch.
    for (; i < limit; i += 64)
    {
        const __m128i a = step(i), b = step(i + 16), c = step(i + 32), d = step(i + 48);
        if (_mm_movemask_epi8(_mm_or_si128(_mm_or_si128(a, b), _mm_or_si128(c, d))) == 0)
            continue;
        const std::uint64_t hits = static_cast<std::uint64_t>(_mm_movemask_epi8(a)) |
                                   static_cast<std::uint64_t>(_mm_movemask_epi8(b)) << 16 |
                                   static_cast<std::uint64_t>(_mm_movemask_epi8(c)) << 32 |
                                   static_cast<std::uint64_t>(_mm_movemask_epi8(d)) << 48;
        return i + static_cast<unsigned>(std::countr_zero(hits));
    }
#else
    for (; i < limit; ++i)
    {
        if (src[i] == l && src[i + 1] == h)
            break;
        dst[i] = src[i];
    }
#endif
    return i;
}

// ---------------------------------------------------------------------------------------------- compression

// One block while it is being compressed.
//
// A pair has a slot: the first free one from a place that its bytes give. The slot decides which of equally frequent
// pairs is replaced first, so it is part of the format. Three things save the long walks over slots:
// - Each of the 65,536 pairs knows its slot, and a bit set finds the first free slot for one that has none.
// - Each group of 64 slots knows its highest count: an increase raises it at once, and a decrease of the highest marks
//   the group, which is then looked through before the next choice.
// - Replacing copies from one buffer to the other, 64 bytes at a time.
// Counts change one by one and in the order of the block all the same, because they saturate: another order would give
// other bytes.
//
// Slots never run out. A block begins with at most 2,047 pairs, and each replacement makes two at most; but what repeats
// is what gets replaced, so all that ever were are fewer than 3,700.
class Block
{
public:
    void Start()
    {
        std::memset(this, 0, sizeof *this);
        std::memset(free, 0xFF, sizeof free);
    }

    // Takes bytes from `src` until the block is full or `end` is reached; gives where it stopped.
    const std::uint8_t* Load(const std::uint8_t* src, const std::uint8_t* end);

    void Compress();

    // Bytes that the stored block needs in all; `Write` writes them.
    std::uint32_t StoredSize()
    {
        tableSize = WriteTable();
        return tableSize + 2 + size;
    }
    void Write(std::uint8_t* dst) const;

private:
    static unsigned Key(std::uint8_t a, std::uint8_t b) { return a | unsigned{b} << 8; }

    // A slot for a pair that has none: the first free one from its place on.
    unsigned Take(std::uint8_t a, std::uint8_t b)
    {
        const unsigned place = ((b & 0x7Fu) << 5) ^ a;
        unsigned word = place / 64;
        std::uint64_t candidates = free[word] & ~std::uint64_t{0} << place % 64;
        while (candidates == 0)
        {
            word = (word + 1) % (slotCount / 64);
            candidates = free[word];
        }
        free[word] &= ~(candidates & -candidates);
        return word * 64 + static_cast<unsigned>(std::countr_zero(candidates));
    }

    // Counts a pair once more; gives its slot.
    unsigned Count(std::uint8_t a, std::uint8_t b)
    {
        const unsigned key = Key(a, b);
        if (slots[key] == 0)
        {
            const unsigned slot = Take(a, b);
            slots[key] = static_cast<std::uint16_t>(slot + 1);
            keys[slot] = static_cast<std::uint16_t>(key);
            counts[slot] = 1;
            return slot;
        }
        const unsigned slot = slots[key] - 1u;
        counts[slot] = static_cast<std::uint8_t>(counts[slot] + (counts[slot] != 255));
        return slot;
    }

    void Increase(std::uint8_t a, std::uint8_t b)
    {
        const unsigned slot = Count(a, b);
        std::uint8_t& high = highest[slot / groupSize];
        high = counts[slot] > high ? counts[slot] : high;
    }

    void Decrease(std::uint8_t a, std::uint8_t b)
    {
        const unsigned key = Key(a, b);
        if (slots[key] == 0)
            return;
        const unsigned slot = slots[key] - 1u;
        const std::uint8_t count = counts[slot];
        counts[slot] = static_cast<std::uint8_t>(count - (count > 1));
        marked |= std::uint64_t{count == highest[slot / groupSize]} << (slot / groupSize);
    }

    unsigned BestSlot();
    void Replace(std::uint8_t l, std::uint8_t h, std::uint8_t code);
    bool IsPair(unsigned code) const { return leftCode[code] != code; }
    std::uint32_t WriteTable();

    alignas(64) std::uint8_t counts[slotCount]; // occurrences, saturating at 255; 0 marks a free slot
    std::uint8_t highest[groupCount];           // highest count of each group; of a marked one, at least that
    std::uint64_t free[slotCount / 64];         // bit s: slot s has no pair yet
    std::uint16_t keys[slotCount];              // pair of each slot that has one: left + 256 * right
    std::uint16_t slots[256 * 256];             // 1 + slot of each pair that has one, else 0
    std::uint64_t marked;                       // bit g: a highest count of group g may have fallen
    std::uint8_t buffers[2][blockLimit + 2 * stretch];
    unsigned current;                      // which of the two holds the block
    std::uint32_t size;                    // bytes in it
    std::uint32_t tableSize;               // bytes in `table`
    std::uint8_t leftCode[256];            // equal to the code: a literal
    std::uint8_t rightCode[256];           // of pair codes
    bool present[256];                     // values that were loaded
    std::uint8_t table[2 * 256 + 4 + 256]; // the stored pair table: two bytes a code, and a byte a group
};

const std::uint8_t* Block::Load(const std::uint8_t* src, const std::uint8_t* end)
{
    for (unsigned word = 0; word < slotCount / 64; ++word) // the pairs of the last block lose their slots
        for (std::uint64_t taken = ~free[word]; taken != 0; taken &= taken - 1)
            slots[keys[word * 64 + static_cast<unsigned>(std::countr_zero(taken))]] = 0;
    std::memset(free, 0xFF, sizeof free);
    std::memset(counts, 0, sizeof counts);
    std::memset(present, 0, sizeof present);
    for (unsigned i = 0; i < 256; ++i)
        leftCode[i] = static_cast<std::uint8_t>(i);
    current = 0;
    std::uint8_t* buffer = buffers[0];

    const std::uint8_t* start = src;
    if (static_cast<std::size_t>(end - src) > blockLimit)
        end = src + blockLimit;
    unsigned used = 0;
    if (src < end)
    {
        buffer[0] = *src;
        present[*src] = true;
        used = 1;
        ++src;
    }
    for (std::uint8_t* out = buffer + 1; src < end && used < valueLimit; ++src, ++out)
    {
        const std::uint8_t c = *src;
        Count(src[-1], c);
        *out = c;
        used += !present[c];
        present[c] = true;
    }
    size = static_cast<std::uint32_t>(src - start);
    marked = ~std::uint64_t{0};
    return src;
}

void Block::Compress()
{
    for (int code = 254; code >= 0; --code)
    {
        if (present[code])
            continue;
        const unsigned slot = BestSlot();
        if (counts[slot] < leastCount)
            return;
        const std::uint8_t l = static_cast<std::uint8_t>(keys[slot]);
        const std::uint8_t h = static_cast<std::uint8_t>(keys[slot] >> 8);
        Replace(l, h, static_cast<std::uint8_t>(code));
        leftCode[code] = l;
        rightCode[code] = h;
        counts[slot] = 1; // it can win no more
        marked |= std::uint64_t{1} << (slot / groupSize);
    }
}

// The lowest of the slots with the highest count.
unsigned Block::BestSlot()
{
    for (; marked != 0; marked &= marked - 1)
    {
        const unsigned group = static_cast<unsigned>(std::countr_zero(marked));
        highest[group] = Highest(counts + group * groupSize);
    }
    const std::uint8_t best = Highest(highest);
    const unsigned group = FirstOf(highest, best);
    return group * groupSize + FirstOf(counts + group * groupSize, best);
}

void Block::Replace(std::uint8_t l, std::uint8_t h, std::uint8_t code)
{
    const std::uint8_t* buffer = buffers[current];
    current ^= 1;
    std::uint8_t* out = buffers[current];
    const std::uint32_t old = size - 1; // the last byte, with which no pair begins

    std::uint32_t r = 0, w = 0;
    while (r < old)
    {
        const unsigned step = CopyUpToPair(out + w, buffer + r, old - r, l, h);
        r += step;
        w += step;
        if (r >= old)
            break;
        if (r > 0)
        {
            Decrease(out[w - 1], l);
            Increase(out[w - 1], code);
        }
        if (r < old - 1)
        {
            Decrease(h, buffer[r + 2]);
            Increase(code, buffer[r + 2]);
        }
        out[w] = code;
        ++w;
        r += 2;
    }
    // The last stretch may have taken bytes from behind the end along, or have ended on the last byte.
    const std::uint32_t total = size;
    if (r > total)
    {
        w -= r - total;
        r = total;
    }
    if (r < total)
        out[w++] = buffer[r];
    size = w;
}

std::uint32_t Block::WriteTable()
{
    std::uint8_t* out = table;
    unsigned c = 0;
    while (c < 256)
    {
        if (!IsPair(c))
        {
            unsigned run = 0;
            for (; c < 256 && run < 127 && !IsPair(c); ++c)
                ++run;
            *out++ = static_cast<std::uint8_t>(run + 127);
            continue;
        }
        // One literal between pair codes stays in their run: it costs the byte that a new group would cost.
        const unsigned first = c++;
        unsigned more = 0;
        while ((more < 127 && c < 256 && IsPair(c)) || (more < 125 && c < 254 && IsPair(c + 1)))
        {
            ++more;
            ++c;
        }
        *out++ = static_cast<std::uint8_t>(more);
        for (unsigned i = first; i < c; ++i)
        {
            *out++ = leftCode[i];
            if (IsPair(i))
                *out++ = rightCode[i];
        }
    }
    return static_cast<std::uint32_t>(out - table);
}

void Block::Write(std::uint8_t* dst) const
{
    std::memcpy(dst, table, tableSize);
    dst += tableSize;
    *dst++ = static_cast<std::uint8_t>(size >> 8);
    *dst++ = static_cast<std::uint8_t>(size);
    std::memcpy(dst, buffers[current], size);
}

// ---------------------------------------------------------------------------------------------- expansion

// Expands block after block. A code of up to 16 bytes has its whole text in a table, made once a block from the texts
// of its halves, and is written by one copy of a lane, of which the next code overwrites what is too much. A longer one
// is expanded where it first comes up, and copied from there afterwards. So no text is ever longer than what is written
// anyhow.
class Expander
{
public:
    Expander();

    // What may be written behind a block's own bytes.
    enum class Slack
    {
        None,    // nothing: the block is measured first
        Capacity // whatever lies inside the capacity
    };

    // Expands the block at `src` and moves `src` behind it, `dst` behind what was written; `room` falls by as much.
    // False if the block is not sound or needs more than `room` bytes; what `dst` and `room` say is then as before.
    bool Expand(const std::uint8_t*& src, const std::uint8_t* srcEnd, std::uint8_t*& dst, std::uint32_t& room,
                Slack slack);

private:
    bool ReadTable(const std::uint8_t*& src, const std::uint8_t* srcEnd);
    bool MakeTexts();
    bool MakeText(unsigned code);
    std::uint8_t* WriteLong(std::uint8_t* dst, const std::uint8_t* dstEnd, unsigned code);

    static constexpr std::uint32_t unknown = 0;          // length of a pair code that has no text yet
    static constexpr std::uint32_t longest = 0xFFFFFFFF; // and of one that fits nowhere
    static constexpr std::uint8_t isLong = 0x80;         // step of a code of more than a lane

    alignas(16) std::uint8_t texts[256][2 * lane]; // text of each code of up to 16 bytes; the rest is room for lanes
    std::uint8_t steps[256];                       // length of such a text, or `isLong`
    std::uint32_t lengths[256];                    // length of each code's text, in bytes
    const std::uint8_t* firsts[256];               // where a longer one was first written in this block, or null
    std::uint8_t left[256];
    std::uint8_t right[256];
    std::uint8_t pairs[256]; // the pair codes of this block, ascending
    unsigned pairCount;
};

// Copies `length` bytes: whole lanes where the bytes up to `dstEnd` have room for them.
inline void CopyText(std::uint8_t* dst, const std::uint8_t* dstEnd, const std::uint8_t* text, std::uint32_t length)
{
    if (static_cast<std::size_t>(dstEnd - dst) >= std::size_t{length} + lane)
        for (std::uint32_t i = 0; i < length; i += lane)
            std::memcpy(dst + i, text + i, lane);
    else
        for (std::uint32_t i = 0; i < length; ++i)
            dst[i] = text[i];
}

Expander::Expander() : pairCount(0)
{
    for (unsigned i = 0; i < 256; ++i)
    {
        std::memset(texts[i], 0, sizeof texts[i]);
        texts[i][0] = static_cast<std::uint8_t>(i);
        steps[i] = 1;
        lengths[i] = 1;
    }
}

bool Expander::Expand(const std::uint8_t*& src, const std::uint8_t* srcEnd, std::uint8_t*& dst, std::uint32_t& room,
                      Slack slack)
{
    // What the last block made of its codes is taken back.
    for (unsigned i = 0; i < pairCount; ++i)
    {
        texts[pairs[i]][0] = pairs[i];
        steps[pairs[i]] = 1;
        lengths[pairs[i]] = 1;
    }
    pairCount = 0;

    if (!ReadTable(src, srcEnd) || srcEnd - src < 2)
        return false;
    const unsigned size = src[0] * 256u + src[1];
    src += 2;
    if (static_cast<std::size_t>(srcEnd - src) < size || !MakeTexts())
        return false;

    std::uint32_t limit = room < longest ? room : longest - 1;
    if (slack == Slack::None)
    {
        std::uint64_t total = 0;
        for (unsigned i = 0; i < size; ++i)
            total += lengths[src[i]];
        if (total > limit)
            return false;
        limit = static_cast<std::uint32_t>(total);
    }

    const std::uint8_t* codes = src;
    const std::uint8_t* codesEnd = src + size;
    std::uint8_t* out = dst;
    const std::uint8_t* outEnd = dst + limit;
    while (codes < codesEnd)
    {
        // Four short codes at once while they cannot reach the end.
        if (codesEnd - codes >= 4 && outEnd - out >= 4 * std::ptrdiff_t{lane})
        {
            const unsigned a = codes[0], b = codes[1], c = codes[2], d = codes[3];
            const unsigned stepA = steps[a], stepB = steps[b], stepC = steps[c], stepD = steps[d];
            if (((stepA | stepB | stepC | stepD) & isLong) == 0)
            {
                std::memcpy(out, texts[a], lane);
                out += stepA;
                std::memcpy(out, texts[b], lane);
                out += stepB;
                std::memcpy(out, texts[c], lane);
                out += stepC;
                std::memcpy(out, texts[d], lane);
                out += stepD;
                codes += 4;
                continue;
            }
        }
        const unsigned code = *codes++;
        const std::uint32_t length = lengths[code];
        if (static_cast<std::size_t>(outEnd - out) < length)
            return false;
        if (length > lane)
        {
            out = WriteLong(out, outEnd, code);
            continue;
        }
        CopyText(out, outEnd, texts[code], length);
        out += length;
    }
    src = codesEnd;
    room -= static_cast<std::uint32_t>(out - dst);
    dst = out;
    return true;
}

bool Expander::ReadTable(const std::uint8_t*& src, const std::uint8_t* srcEnd)
{
    const std::uint8_t* in = src;
    unsigned c = 0;
    while (c < 256)
    {
        if (in == srcEnd)
            return false;
        const unsigned group = *in++;
        if (group > 127)
        {
            c += group - 127; // past the end of the codes is as good as at it
            continue;
        }
        const unsigned end = c + group + 1;
        if (end > 256)
            return false;
        for (; c < end; ++c)
        {
            if (in == srcEnd)
                return false;
            left[c] = *in++;
            if (left[c] == c)
                continue;
            if (in == srcEnd)
                return false;
            right[c] = *in++;
            pairs[pairCount++] = static_cast<std::uint8_t>(c);
            lengths[c] = unknown;
            firsts[c] = nullptr;
        }
    }
    src = in;
    return true;
}

// Codes are given out downward, so halves have higher codes than the whole and one walk downward does. Foreign tables
// may have any order: walks go on as long as they find something; what is left then contains itself.
bool Expander::MakeTexts()
{
    unsigned open = pairCount;
    while (open > 0)
    {
        const unsigned before = open;
        for (unsigned i = pairCount; i-- > 0;)
            if (lengths[pairs[i]] == unknown)
                open -= MakeText(pairs[i]);
        if (open == before)
            return false;
    }
    return true;
}

bool Expander::MakeText(unsigned code)
{
    const unsigned l = left[code], r = right[code];
    const std::uint32_t leftLength = lengths[l], rightLength = lengths[r];
    if (leftLength == unknown || rightLength == unknown)
        return false;
    const std::uint32_t length = leftLength < longest - rightLength ? leftLength + rightLength : longest;
    lengths[code] = length;
    steps[code] = isLong;
    if (length <= lane)
    {
        steps[code] = static_cast<std::uint8_t>(length);
        std::uint8_t first[lane], second[lane];
        std::memcpy(first, texts[l], lane);
        std::memcpy(second, texts[r], lane);
        std::memcpy(texts[code], first, lane);
        std::memcpy(texts[code] + leftLength, second, lane);
    }
    return true;
}

// Writes a code of more than 16 bytes, all of which fits. Halves wait on a stack, at most one for each pair code on the
// way down.
std::uint8_t* Expander::WriteLong(std::uint8_t* dst, const std::uint8_t* dstEnd, unsigned code)
{
    std::uint8_t stack[256];
    unsigned depth = 0;
    for (;;)
    {
        const std::uint32_t length = lengths[code];
        if (length > lane && firsts[code] == nullptr)
        {
            firsts[code] = dst;
            stack[depth++] = right[code];
            code = left[code];
            continue;
        }
        CopyText(dst, dstEnd, length > lane ? firsts[code] : texts[code], length);
        dst += length;
        if (depth == 0)
            return dst;
        code = stack[--depth];
    }
}

} // namespace

std::uint32_t BPE::Comp(void* dst, const void* src, std::uint32_t n)
{
    if (n == 0)
        return 0;
    auto* area = Alloc::New(sizeof(Block) + alignof(Block));
    if (area)
    {
        const std::uintptr_t place = reinterpret_cast<std::uintptr_t>(area);
        auto* block = reinterpret_cast<Block*>((place + alignof(Block) - 1) & ~std::uintptr_t{alignof(Block) - 1});
        block->Start();

        auto* out = static_cast<std::uint8_t*>(dst);
        auto* in = static_cast<const std::uint8_t*>(src);
        const std::uint8_t* end = in + n;
        std::uint32_t written = 0;
        while (in < end)
        {
            in = block->Load(in, end);
            block->Compress();
            const std::uint32_t stored = block->StoredSize();
            if (stored >= n - written)
                break;
            block->Write(out + written);
            written += stored;
            if (in == end)
            {
                Alloc::Delete(area);
                return written;
            }
        }
        Alloc::Delete(area);
    }
    std::memcpy(dst, src, n);
    return n;
}

std::uint32_t BPE::Decomp(void* dst, const void* src, std::uint32_t n)
{
    auto* out = static_cast<std::uint8_t*>(dst);
    auto* in = static_cast<const std::uint8_t*>(src);
    const std::uint8_t* end = in + n;
    std::uint32_t room = 0xFFFFFFFF; // what comes out is known to fit
    Expander expander;
    while (in < end && expander.Expand(in, end, out, room, Expander::Slack::None))
    {
    }
    return 0xFFFFFFFF - room;
}

bool BPE::DecompBounded(void* dst, std::uint32_t capacity, const void* src, std::uint32_t n, std::uint32_t& written)
{
    auto* out = static_cast<std::uint8_t*>(dst);
    auto* in = static_cast<const std::uint8_t*>(src);
    const std::uint8_t* end = in + n;
    std::uint32_t room = capacity;
    Expander expander;
    while (in < end)
        if (!expander.Expand(in, end, out, room, Expander::Slack::Capacity))
        {
            written = 0;
            return false;
        }
    written = capacity - room;
    return true;
}

} // namespace Zem
