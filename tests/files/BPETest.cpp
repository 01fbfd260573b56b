#include <Bedrock/files/BPE.h>

#include "files/PlainBPE.h"
#include "support/Support.h"

#include <functional>

namespace
{

using Zem::BPE;
using Bytes = std::vector<std::uint8_t>;

// Blocks of exactly the sizes that the contract names, so that AddressSanitizer sees one byte too far.
Bytes Compress(const Bytes& input)
{
    const auto n = static_cast<std::uint32_t>(input.size());
    const auto src = ::Test::Exact(input);
    const auto dst = std::make_unique<std::uint8_t[]>(n);
    const std::uint32_t size = BPE::Comp(dst.get(), src.get(), n);
    EXPECT_LE(size, n);
    return Bytes(dst.get(), dst.get() + size);
}

Bytes Expand(const Bytes& packed, std::size_t length)
{
    const auto src = ::Test::Exact(packed);
    const auto dst = std::make_unique<std::uint8_t[]>(length);
    const std::uint32_t size = BPE::Decomp(dst.get(), src.get(), static_cast<std::uint32_t>(packed.size()));
    EXPECT_EQ(size, length);
    return Bytes(dst.get(), dst.get() + length);
}

Bytes Repeat(const Bytes& part, unsigned times)
{
    Bytes all;
    for (unsigned i = 0; i < times; ++i)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

// Same bytes as the plain codec, and back again by each way.
void ExpectAsPlain(const Bytes& input)
{
    const auto n = static_cast<std::uint32_t>(input.size());
    const Bytes packed = Compress(input);
    Bytes plain(n);
    plain.resize(Plain::Comp(plain.data(), input.data(), n));
    ASSERT_EQ(packed, plain);
    if (packed.size() == n)
    {
        ASSERT_EQ(packed, input);
        return;
    }
    ASSERT_EQ(Expand(packed, n), input);
    const auto src = ::Test::Exact(packed);
    const auto dst = std::make_unique<std::uint8_t[]>(n);
    std::uint32_t written = 0;
    ASSERT_TRUE(BPE::DecompBounded(dst.get(), n, src.get(), static_cast<std::uint32_t>(packed.size()), written));
    ASSERT_EQ(Bytes(dst.get(), dst.get() + written), input);
    ASSERT_FALSE(BPE::DecompBounded(dst.get(), n - 1, src.get(), static_cast<std::uint32_t>(packed.size()), written));
    ASSERT_EQ(written, 0u);
}

} // namespace

TEST(BPE, StoresTheseBytes)
{
    Bytes ascending(256);
    for (unsigned i = 0; i < 256; ++i)
        ascending[i] = static_cast<std::uint8_t>(i);
    Bytes twice = ascending; // each pair twice: nothing to replace
    twice.insert(twice.end(), ascending.begin(), ascending.end());

    const struct
    {
        const char* what;
        Bytes input, stored;
    } rows[] = {
        {"nothing", {}, {}},
        {"one byte", {7}, {7}},
        {"no gain", {1, 1, 1, 1}, {1, 1, 1, 1}},
        {"pairs that come twice", twice, twice},
        {"ab 64 times", Repeat({'a', 'b'}, 64), {0xFE, 0xF9, 0x05, 0xFA, 0xFA, 0xFB, 0xFB, 0xFC, 0xFC, 0xFD,
                                                 0xFD, 0xFE, 0xFE, 0x61, 0x62, 0x80, 0x00, 0x02, 0xF9, 0xF9}},
        {"254 is taken",
         Repeat({254}, 17),
         {0xFE, 0xFB, 0x02, 0xFC, 0xFC, 0xFD, 0xFD, 0xFE, 0xFE, 0x81, 0x00, 0x03, 0xFB, 0xFB, 0xFE}},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.what);
        EXPECT_EQ(Compress(row.input), row.stored);
    }
}

TEST(BPE, AsPlainOnEveryKindOfData)
{
    auto random = ::Test::Random(1);
    const auto upTo = [&](unsigned n) { return static_cast<unsigned>(random() % n); };
    const std::function<std::uint8_t(const Bytes&, unsigned)> kinds[] = {
        [&](const Bytes&, unsigned values) { return upTo(values); }, // even
        [&](const Bytes&, unsigned values)
        { return 255 - std::min(upTo(values), upTo(values)); }, // slanted, high values
        [&](const Bytes& b, unsigned) { return b.empty() || upTo(4) == 0 ? upTo(256) : b.back(); }, // runs
        [&](const Bytes& b, unsigned values) {                                                      // repeats
            return b.size() < 8 || upTo(9) == 0 ? upTo(values) : b[b.size() - 1 - upTo(3)];
        },
        [&](const Bytes& b, unsigned) { return b.size() < 3 ? upTo(256) : b[b.size() - 3] + upTo(3); }, // pixels
        [&](const Bytes& b, unsigned values) { return b.size() * 7 / 5 % values; }, // few pairs, often
    };
    for (int round = 0; round < 1500; ++round)
    {
        const unsigned kind = upTo(std::size(kinds));
        const unsigned values = std::vector<unsigned>{1, 2, 3, 5, 17, 60, 209, 210, 211, 256}[upTo(10)];
        const unsigned size = round % 16 == 0 ? 16384 : std::vector<unsigned>{40, 300, 2050, 5000}[upTo(4)];
        SCOPED_TRACE(testing::Message() << "round " << round << " kind " << kind << " values " << values);
        Bytes input;
        for (unsigned n = 1 + upTo(size); input.size() < n;)
            input.push_back(static_cast<std::uint8_t>(kinds[kind](input, values)));
        ASSERT_NO_FATAL_FAILURE(ExpectAsPlain(input));
    }
}

// Where blocks end, and data of this machine: its code and its words.
TEST(BPE, AsPlainAtBlockEndsAndOnRealFiles)
{
    for (const unsigned n : {2047u, 2048u, 2049u, 4096u, 16383u, 16384u})
    {
        SCOPED_TRACE(n);
        ASSERT_NO_FATAL_FAILURE(ExpectAsPlain(Bytes(n, 'x')));
        Bytes cycle(n);
        for (unsigned i = 0; i < n; ++i)
            cycle[i] = static_cast<std::uint8_t>(i % (n % 2 ? 210 : 211));
        ASSERT_NO_FATAL_FAILURE(ExpectAsPlain(cycle));
    }
    for (const char* name : {"/proc/self/exe", "/proc/self/maps"})
    {
        SCOPED_TRACE(name);
        const Bytes file = ::Test::ReadFile(name);
        for (std::size_t at = 0; at < file.size() && at < 40 * 16384; at += 16384)
            ASSERT_NO_FATAL_FAILURE(
                ExpectAsPlain(Bytes(file.begin() + at, file.begin() + std::min(at + 16384, file.size()))));
    }
}

// A lone literal at every place between many pair codes: in the run of the table, or the end of it.
TEST(BPE, AsPlainWithALiteralAmongThePairs)
{
    auto random = ::Test::Random(2);
    Bytes input(2048);
    for (auto& byte : input)
        byte = static_cast<std::uint8_t>(random() % 24); // more than 127 pair codes
    for (unsigned literal = 40; literal < 255; ++literal)
    {
        SCOPED_TRACE(literal);
        input[1000] = static_cast<std::uint8_t>(literal);
        ASSERT_NO_FATAL_FAILURE(ExpectAsPlain(input));
    }
}

// Foreign data: each row is refused or understood, without a byte read or written outside.
TEST(BPE, BoundedTakesNothingOnTrust)
{
    // A table of literals but for codes from `first`, each a pair; then data.
    const auto block = [](unsigned first, const std::vector<std::pair<int, int>>& pairs, const Bytes& data)
    {
        Bytes all;
        unsigned c = 0;
        for (; first - c > 127; c += 127)
            all.push_back(254);
        if (c < first)
            all.push_back(static_cast<std::uint8_t>(127 + first - c));
        if (!pairs.empty())
        {
            all.push_back(static_cast<std::uint8_t>(pairs.size() - 1));
            for (const auto& [l, r] : pairs)
            {
                all.push_back(static_cast<std::uint8_t>(l));
                all.push_back(static_cast<std::uint8_t>(r));
            }
        }
        for (c = first + static_cast<unsigned>(pairs.size()); c < 256;)
        {
            const unsigned skip = std::min(256 - c, 127u);
            all.push_back(static_cast<std::uint8_t>(127 + skip));
            c += skip;
        }
        all.push_back(static_cast<std::uint8_t>(data.size() >> 8));
        all.push_back(static_cast<std::uint8_t>(data.size()));
        all.insert(all.end(), data.begin(), data.end());
        return all;
    };
    const auto cut = [](Bytes bytes, std::size_t n) { return Bytes(bytes.begin(), bytes.end() - n); };
    const auto text = [](const char* t) { return Bytes(t, t + std::strlen(t)); };

    std::vector<std::pair<int, int>> doubling, ascending, huge;
    for (int i = 0; i < 4; ++i)
        doubling.push_back({200 + i + 1, 200 + i + 1}); // 200 is 16 times 204
    for (int i = 0; i < 100; ++i)
        ascending.push_back({'x', i == 0 ? 'y' : 100 + i - 1 + 27}); // halves below the whole
    for (int i = 0; i < 100; ++i)
        huge.push_back({101 + i, 101 + i}); // 2 to the power of 100
    Bytes longText(101, 'x');
    longText[100] = 'y';

    const Bytes ab = block(254, {{'a', 'b'}}, {254, 'c', 254});
    const struct
    {
        const char* what;
        Bytes packed;
        std::uint32_t capacity;
        bool good;
        Bytes expanded;
    } rows[] = {
        {"nothing", {}, 0, true, {}},
        {"a pair", ab, 5, true, text("abcab")},
        {"one byte too small", ab, 4, false, {}},
        {"no room at all", ab, 0, false, {}},
        {"data cut", cut(ab, 1), 5, false, {}},
        {"size cut", cut(ab, 4), 5, false, {}},
        {"no size", cut(ab, 5), 5, false, {}},
        {"table cut in a skip", cut(ab, 6), 5, false, {}},
        {"table cut in a pair", cut(ab, 7), 5, false, {}},
        {"table cut before a pair", cut(ab, 8), 5, false, {}},
        {"second block cut",
         [&]
         {
             Bytes b = ab;
             b.push_back(254);
             return b;
         }(),
         99,
         false,
         {}},
        {"two blocks", Repeat(ab, 2), 10, true, text("abcababcab")},
        {"second block too long", Repeat(ab, 2), 9, false, {}},
        {"empty block", block(0, {}, {}), 0, true, {}},
        {"L of 255 skips 128", {255, 255, 0, 1, 'q'}, 1, true, text("q")},
        {"explicit literal", {254, 254, 1, 254, 255, 0, 1, 'q'}, 1, true, text("q")},
        {"explicit run past 255",
         [&]
         {
             Bytes b{254, 254, 127};
             b.resize(400, 9);
             return b;
         }(),
         999,
         false,
         {}},
        {"right half is itself", block(200, {{'a', 200}}, {200}), 99, false, {}},
        {"circle of two", block(200, {{201, 'a'}, {'b', 200}}, {201}), 99, false, {}},
        {"circle that no data uses", block(200, {{201, 'a'}, {'b', 200}}, {'a'}), 99, false, {}},
        {"halves of 16 bytes", block(200, doubling, {200}), 16, true, Bytes(16, 204)},
        {"halves below the whole", block(127, ascending, {226}), 101, true, longText},
        {"longer than memory", block(100, huge, {100}), 0xFFFFFFFF, false, {}},
        {"longer than memory, not used", block(100, huge, {'A', 200}), 2, true, {'A', 200}},
        {"2 to the power of 10", block(100, huge, {190}), 1024, true, Bytes(1024, 200)},
        {"the same twice", block(100, huge, {195, 'A', 195}), 65, true,
         [&]
         {
             Bytes b(65, 200);
             b[32] = 'A';
             return b;
         }()},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.what);
        const auto src = ::Test::Exact(row.packed);
        const auto dst = std::make_unique<std::uint8_t[]>(std::min(row.capacity, 4096u));
        std::uint32_t written = 77;
        const bool good = BPE::DecompBounded(dst.get(), row.capacity, src.get(),
                                             static_cast<std::uint32_t>(row.packed.size()), written);
        ASSERT_EQ(good, row.good);
        ASSERT_EQ(written, row.expanded.size());
        EXPECT_EQ(Bytes(dst.get(), dst.get() + written), row.expanded);
    }
}
