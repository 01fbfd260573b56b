#include "support/Support.h"

#include <Bedrock/memory/AllocReport.h>
#include <Bedrock/memory/PString.h>

#include <atomic>
#include <map>
#include <sstream>
#include <thread>

namespace Zem
{

// Looks at what the cache keeps to itself.
struct PStringCacheForTest
{
    explicit PStringCacheForTest(PStringCache& cache) : c(cache) {}
    std::array<std::uint32_t, 4> Counters() const // live nodes, references, hits, misses
    {
        return {c.liveNodes, c.references, c.hits, c.misses};
    }
    // All nodes by their text, chains and indices checked on the way.
    std::map<std::string, PStringCache::Node*> Nodes() const
    {
        std::map<std::string, PStringCache::Node*> all;
        std::uint32_t live = 0;
        for (std::uint32_t i = 0; i < c.tableSize; ++i)
        {
            const auto& bucket = c.table[i];
            PStringCache::Node* prev = nullptr;
            std::uint32_t count = 0;
            for (auto* node = bucket.head; node; prev = node, node = node->next, ++count)
            {
                EXPECT_EQ(node->prev, prev);
                EXPECT_EQ(PStringCache::GetHash(node->Text(), node->length) % c.tableSize, i);
                EXPECT_EQ(node->Text()[node->length], 0);
                EXPECT_GT(node->size, node->length);
                EXPECT_EQ((node->size + sizeof(*node)) % 16, 0u);
                live += node->refCount != 0;
                const std::string text(reinterpret_cast<const char*>(node->Text()), node->length);
                EXPECT_TRUE(all.emplace(text, node).second) << "twice in the table: " << text;
                if (bucket.Capacity())
                {
                    const auto entry = c.KeyOf(node).tag | reinterpret_cast<std::uintptr_t>(node);
                    EXPECT_EQ(std::count(bucket.Entries(), bucket.Entries() + bucket.Capacity(), entry), 1);
                }
            }
            EXPECT_EQ(bucket.tail, prev);
            EXPECT_EQ(bucket.count, count);
            EXPECT_EQ(std::count(bucket.Entries(), bucket.Entries() + bucket.Capacity(), 0u),
                      bucket.Capacity() ? bucket.Capacity() - count : 0);
        }
        EXPECT_EQ(c.liveNodes, live);
        return all;
    }
    PStringCache& c;
};

} // namespace Zem

namespace
{

using Zem::PString;
using Zem::PStringCache;
using Zem::PStringCacheForTest;
using Node = PStringCache::Node;

const unsigned char* U(const char* text)
{
    return reinterpret_cast<const unsigned char*>(text);
}

std::string Text(const Node* node)
{
    return node ? std::string(reinterpret_cast<const char*>(node->Text()), node->length) : "(null)";
}

TEST(PString, SharesOneNodePerText)
{
    const PString a = "share me";
    const PString b("share me, but not this", 8);
    EXPECT_EQ(a.GetNode(), b.GetNode());
    EXPECT_EQ(a.GetNode()->refCount, 2u);
    PString c = a;
    EXPECT_EQ(a.GetNode()->refCount, 3u);
    c.ToUpper();
    EXPECT_STREQ(c, "SHARE ME");
    EXPECT_STREQ(a, "share me");
    c.ToLower(); // merges with the node that is there
    EXPECT_TRUE(c == a);
    EXPECT_EQ(a.GetNode()->refCount, 3u);
    EXPECT_TRUE(PString('z', 3u) == "zzz");
    EXPECT_TRUE(PString('z', 0u).IsNull());
    const PString null;
    const PString empty = "";
    EXPECT_FALSE(null == empty);
    EXPECT_EQ(empty.Length(), 0u);
    EXPECT_TRUE(PString(static_cast<const char*>(nullptr)) == null);
}

TEST(PString, HashesTheLastSixteenBytes)
{
    auto random = ::Test::Random(5);
    for (int round = 0; round < 2000; ++round)
    {
        std::string text(random() % 40, ' ');
        for (char& c : text)
            c = static_cast<char>(random());
        std::uint32_t expected = 0;
        for (std::size_t i = text.size() > 16 ? text.size() - 16 : 0; i < text.size(); ++i)
            expected = (expected << 3) ^ static_cast<unsigned char>(text[i]);
        ASSERT_EQ(PStringCache::GetHash(U(text.data()), static_cast<unsigned>(text.size())), expected);
    }
}

TEST(PString, RoomForATextFillsSixteens)
{
    PStringCache cache(1);
    const unsigned header = sizeof(Node);
    for (const unsigned n : {0u, 7u, 8u, 23u, 24u, 39u, 40u, 1000u})
    {
        Node* node = cache.Create(U(std::string(n, 'x').c_str()), n);
        EXPECT_EQ(node->size, ((n + header + 16) & ~15u) - header);
        if (sizeof(void*) == 4 && n < 40)
        {
            EXPECT_EQ(node->size, n < 8 ? 8u : n < 24 ? 24u : 40u);
        }
    }
}

TEST(PString, OrdersNullEmptyAndText)
{
    const char* const sides[] = {nullptr, "", "abc", "abd", "ABC", "ab", "\xE4"};
    for (const char* x : sides)
        for (const char* y : sides)
        {
            SCOPED_TRACE(std::string(x ? x : "(null)") + " against " + (y ? y : "(null)"));
            const PString a(x);
            const PString b(y);
            const std::string p = x ? x : "";
            const std::string q = y ? y : "";
            const int order = p < q ? -1 : p > q;
            const int strict = x && y ? order : (x != nullptr) - (y != nullptr);
            const auto sign = [](int n) { return (n > 0) - (n < 0); };
            const int folded = sign(strcasecmp(p.c_str(), q.c_str()));
            EXPECT_EQ(a.Compare(b), order);
            EXPECT_EQ(a.Compare(y), order);
            EXPECT_EQ(sign(a.CompareIgnoreCase(b)), folded);
            EXPECT_EQ(sign(a.CompareIgnoreCase(y)), folded);
            EXPECT_EQ((std::array{a<b, a> b, a <= b, a >= b}),
                      (std::array{strict<0, strict> 0, strict <= 0, strict >= 0}));
            EXPECT_EQ(a.EqualsIgnoreCase(b), x && y ? folded == 0 : !x && !y);
            EXPECT_EQ(a == b, strict == 0);
            EXPECT_EQ(a == y, strict == 0);
        }
    const PString zeros[] = {PString("a\0b", 3), PString("a\0c", 3), PString("a", 1)};
    EXPECT_LT(zeros[0].Compare(zeros[1]), 0);
    EXPECT_GT(zeros[1].Compare(zeros[2]), 0);
    EXPECT_FALSE(zeros[0] == zeros[1]);
}

TEST(PString, PrintsUpToItsBounds)
{
    const std::string most(8192, 'm');
    PString s = "old";
    s.Setf("%s", most.c_str());
    EXPECT_EQ(s.Length(), 8192u);
    s.Setf("%s", (most + "x").c_str());
    EXPECT_TRUE(s.IsNull());
    EXPECT_EQ(s.Addf("%d", 5), 1);
    EXPECT_STREQ(s, "5");
    EXPECT_EQ(s.Addf("%s", ""), 0);
    EXPECT_EQ(s.Addf("%s", most.c_str()), -1);
    EXPECT_STREQ(s, "5");
    EXPECT_EQ(s.Addf("%s", most.c_str() + 1), 8191);
    EXPECT_EQ(s.Length(), 8192u);
    s = "self";
    s.Setf("<%s>", static_cast<const char*>(s));
    EXPECT_STREQ(s, "<self>");
    s.Setf("%s", "");
    EXPECT_TRUE(s.IsNull());
    s.Set(-255, 16);
    EXPECT_STREQ(s, "ffffff01");
}

TEST(PString, StreamsWords)
{
    std::ostringstream out;
    out << PString("one") << ' ' << PString();
    EXPECT_EQ(out.str(), "one <uninitialized>");
    std::istringstream in("  word " + std::string(5000, 'w'));
    PString s;
    in >> s;
    EXPECT_STREQ(s, "word");
    in >> s;
    EXPECT_EQ(s.Length(), 4095u);
    in >> s;
    EXPECT_EQ(s.Length(), 905u);
    in >> s;
    EXPECT_STREQ(s, "");
    EXPECT_FALSE(s.IsNull());
}

// Dead texts stay until their bucket is swept; 33 calls sweep all; handles are left alone.
TEST(PStringCache, RevivesDeadNodesAndSweepsASlice)
{
    PStringCache cache(64); // two buckets a call
    const PStringCacheForTest look(cache);
    Node* live = cache.Create(U("live"));
    Node* dead = cache.Create(U("dead"));
    cache.Destroy(dead);
    const auto misses = look.Counters()[3];
    EXPECT_EQ(look.Counters()[0], 1u);
    EXPECT_EQ(cache.Create(U("dead")), dead);
    EXPECT_EQ(look.Counters(), (std::array{2u, 2u, 1u, misses}));
    cache.Destroy(dead);
    for (int i = 0; i < 300; ++i)
        cache.Destroy(cache.Create(U(std::to_string(i).c_str())));
    for (unsigned call = 0; call < 32; ++call)
    {
        const auto before = look.Nodes();
        cache.CollectGarbage();
        const auto after = look.Nodes();
        for (const auto& [text, node] : before)
        {
            const unsigned bucket = PStringCache::GetHash(U(text.data()), static_cast<unsigned>(text.size())) % 64;
            const bool swept = bucket == (2 * call + 1) % 64 || bucket == (2 * call + 2) % 64;
            ASSERT_EQ(after.count(text) != 0, text == "live" || !swept) << text << " in call " << call;
        }
    }
    EXPECT_EQ(look.Nodes().size(), 1u);
    EXPECT_EQ(Text(live), "live");

    PStringCache small(31);
    small.Destroy(small.Create(U("stays")));
    small.CollectGarbage();
    EXPECT_EQ(PStringCacheForTest(small).Nodes().size(), 1u);
}

TEST(PStringCache, WalksEveryNodeAndMarksThem)
{
    PStringCache cache(7);
    const PStringCacheForTest look(cache);
    for (int i = 0; i < 100; ++i)
        cache.Create(U(std::to_string(i).c_str()))->id = 5;
    cache.Rewind();
    Node* previous = nullptr;
    int met = 0;
    while (Node* node = cache.Next())
    {
        ++met;
        if (met % 10 == 0)
            cache.Del(node, 0, 2); // the walk's own node leaves the table
        previous = node;
    }
    EXPECT_NE(previous, nullptr);
    EXPECT_GE(met, 100);
    EXPECT_EQ(cache.Next(), nullptr);
    cache.ClearIDs();
    for (const auto& [text, node] : look.Nodes())
        EXPECT_EQ(node->id, 0u) << text;
    EXPECT_EQ(cache.Next(), nullptr);
}

// Random edits on many handles against a map of texts, in few buckets, so that chains get long and their index is used;
// now and then an exhausted heap, which must leave the handle as it was.
TEST(PStringCache, EditsAsAModelDoes)
{
    auto random = ::Test::Random(6);
    PStringCache cache(37);
    const PStringCacheForTest look(cache);
    struct Handle
    {
        Node* node = nullptr;
        std::string text = "(null)";
    };
    std::vector<Handle> handles(60);
    for (int round = 0; round < 20'000; ++round)
    {
        Handle& h = handles[random() % handles.size()];
        const Handle old = h;
        const bool isNull = !h.node;
        std::string model = isNull ? "" : h.text;
        const unsigned length = static_cast<unsigned>(model.size());
        const unsigned pos = static_cast<unsigned>(random() % (length + 2));
        const unsigned n = random() % 10 == 0 ? 0xFFFFFFF0u : static_cast<unsigned>(random() % 5);
        std::string source(random() % 4, ' ');
        for (char& c : source)
            c = static_cast<char>("aAbB"[random() % 4]);
        const unsigned operation = static_cast<unsigned>(random() % 11);
        SCOPED_TRACE(testing::Message() << "round " << round << " operation " << operation << " on '" << h.text
                                        << "' pos " << pos << " n " << n << " source '" << source << "'");
        bool nullAfter = isNull;
        bool failed = false;
        {
            std::unique_ptr<Zem::AllocFailureForTest> failure;
            if (random() % 20 == 0)
                failure = std::make_unique<Zem::AllocFailureForTest>(static_cast<std::uint32_t>(random() % 2));
            switch (operation)
            {
            case 0:
                h.node = cache.Ins(h.node, U(source.c_str()), pos);
                if (isNull || pos <= length)
                    model.insert(isNull ? 0 : pos, source);
                nullAfter = false;
                break;
            case 1:
                if (n > 10 && (isNull || pos <= length))
                    break;
                h.node = cache.Ins(h.node, 'a', pos, n);
                if (isNull || pos <= length)
                    model.insert(isNull ? 0 : pos, n, 'a');
                nullAfter = isNull && n == 0;
                break;
            case 2:
                h.node = cache.Del(h.node, pos, n);
                if (pos < length)
                    model.erase(pos, n);
                break;
            case 3:
                h.node = cache.ToUpper(h.node);
                for (char& c : model)
                    c = static_cast<char>(std::toupper(c));
                break;
            case 4:
                h.node = cache.ToLower(h.node);
                for (char& c : model)
                    c = static_cast<char>(std::tolower(c));
                break;
            case 5:
                h.node = cache.Strip(h.node, U("aB"));
                std::erase_if(model, [](char c) { return c == 'a' || c == 'B'; });
                break;
            case 6:
            {
                Node* made = cache.Create(U(source.c_str()));
                if (!made)
                    break;
                if (h.node)
                    cache.Destroy(h.node);
                h.node = made;
                model = source;
                nullAfter = false;
                break;
            }
            case 7:
            {
                const Handle& other = handles[random() % handles.size()];
                if (other.node)
                    cache.AddReference(other.node);
                if (h.node)
                    cache.Destroy(h.node);
                h.node = other.node;
                model = other.node ? other.text : "";
                nullAfter = !other.node;
                break;
            }
            case 8:
                if (h.node)
                    cache.Destroy(h.node);
                h.node = nullptr;
                nullAfter = true;
                break;
            case 9:
                cache.CollectGarbage();
                break;
            case 10:
                if (h.node) // its own tail before itself
                {
                    const unsigned from = std::min(pos, length);
                    h.node = cache.Ins(h.node, h.node->Text() + from, from / 2);
                    model.insert(from / 2, std::string(model, from));
                }
                break;
            }
            failed = failure && Zem::AllocFailureForTest::HasFailed();
        }
        h.text = nullAfter ? "(null)" : model;
        // With the heap exhausted the edit is done whole or not at all: an index that could not grow hinders nobody.
        if (failed && Text(h.node) == old.text)
            h.text = old.text;
        ASSERT_EQ(Text(h.node), h.text);
        if (h.text.size() > 30)
        {
            h.node = cache.Del(h.node, 3, 100);
            h.text.resize(3);
        }
        if (round % 100 == 0)
        {
            std::map<std::string, std::uint32_t> counts;
            std::uint32_t references = 0;
            for (const Handle& handle : handles)
                if (handle.node)
                {
                    ++counts[handle.text];
                    ++references;
                }
            for (const auto& [text, node] : look.Nodes())
                ASSERT_EQ(node->refCount, counts[text]) << text;
            ASSERT_EQ(look.Counters()[1], references);
        }
    }
}

TEST(PStringCache, EditsASingleHandleInPlace)
{
    PStringCache cache(4093);
    Node* node = cache.Create(U("0123456789"));
    EXPECT_EQ(cache.Del(node, 0, 5), node); // enough room: the same block under another hash
    EXPECT_EQ(Text(node), "56789");
    cache.AddReference(node);
    Node* other = cache.Ins(node, 'x', 0, 1);
    EXPECT_NE(other, node);
    EXPECT_EQ(node->refCount, 1u);
    EXPECT_EQ(cache.Strip(other, U("?")), other);
    for (const unsigned length : {8191u, 8192u}) // the work buffer's edge
    {
        Node* big = cache.Create('b', length);
        big = cache.Ins(big, U("-"), 0);
        big = cache.Strip(big, U("-"));
        EXPECT_EQ(Text(big), std::string(length, 'b'));
        big = cache.Strip(big, U("b"));
        ASSERT_NE(big, nullptr);
        EXPECT_EQ(big->length, 0u);
        EXPECT_EQ(PStringCache::Find(big, 0u, 0), -1);
    }
}

// Handles of a few texts are copied, released, made and edited on four threads while a fifth sweeps all the time.
TEST(PStringCache, CountsHandlesOnManyThreadsWhileItSweeps)
{
    std::atomic<bool> stop{false};
    std::thread sweeper(
        [&]
        {
            while (!stop.load())
            {
                PString::Cache()->CollectGarbage();
                std::this_thread::yield();
            }
        });
    const PString shared = "shared by all";
    const auto before = shared.GetNode()->refCount.load();
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back(
            [&, t]
            {
                auto random = ::Test::Random(static_cast<std::uint64_t>(t) + 20);
                std::vector<PString> mine(8);
                for (int i = 0; i < 5'000; ++i)
                {
                    PString& s = mine[random() % mine.size()];
                    switch (random() % 4)
                    {
                    case 0:
                        s = shared;
                        break;
                    case 1:
                        s.Setf("common %u", static_cast<unsigned>(random() % 16));
                        break;
                    case 2:
                        s.ToUpper();
                        break;
                    default:
                        s = PString();
                    }
                    const char* text = s;
                    ASSERT_TRUE(!text || std::strchr("sScC", text[0])) << text;
                }
            });
    for (auto& thread : threads)
        thread.join();
    stop = true;
    sweeper.join();
    EXPECT_EQ(shared.GetNode()->refCount.load(), before);
    EXPECT_STREQ(shared, "shared by all");
}

TEST(PString, SortsByAddress)
{
    PString handles[] = {"x", "y", "x", "z", "y", "x"};
    std::qsort(handles, std::size(handles), sizeof handles[0], PString::SortPtr);
    EXPECT_EQ(std::unique(std::begin(handles), std::end(handles)) - std::begin(handles), 3);
}

} // namespace
