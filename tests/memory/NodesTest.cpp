#include "support/Support.h"

#include <Bedrock/memory/AllocReport.h>
#include <Bedrock/memory/DynamicArray.h>
#include <Bedrock/memory/Nodes.h>
#include <Bedrock/memory/ReferenceCount.h>
#include <Bedrock/memory/String.h>

#include <list>
#include <thread>

namespace
{

using namespace Zem;

struct Tree : DLTreeNode
{
    void Add(Tree& child)
    {
        child.parent = this;
        child.prev = lastChild;
        (lastChild ? lastChild->next : firstChild) = &child;
        lastChild = &child;
        ++count;
    }
};

//        root
//       a    b    c
//      d e       f
//                g
TEST(DLTreeNode, WalksInDepthAndRoundSiblings)
{
    Tree root, a, b, c, d, e, f, g;
    root.Add(a);
    root.Add(b);
    root.Add(c);
    a.Add(d);
    a.Add(e);
    c.Add(f);
    f.Add(g);
    const DLTreeNode* const depthFirst[] = {&root, &a, &d, &e, &b, &c, &f, &g, nullptr};
    const DLTreeNode* node = &root;
    for (const DLTreeNode* expected : depthFirst)
    {
        ASSERT_EQ(node, expected);
        if (node)
            node = node->Walk();
    }
    EXPECT_EQ(c.WalkNext(), &a);
    EXPECT_EQ(a.WalkPrev(), &c);
    EXPECT_EQ(b.WalkNext(), &c);
    EXPECT_EQ(d.WalkPrev(), &e);
    EXPECT_EQ(e.NextNode(), &b);
    EXPECT_EQ(g.NextNode(), nullptr);
    EXPECT_EQ(g.WalkNext(), &g);
    EXPECT_EQ(root.WalkNext(), nullptr);
    EXPECT_EQ(root.WalkPrev(), nullptr);
    EXPECT_EQ(root.NextNode(), nullptr);
    EXPECT_EQ(Tree().Walk(), nullptr);
}

TEST(NodeList, LinksAsAModelDoes)
{
    auto random = ::Test::Random(4);
    std::array<DLListNode, 12> nodes;
    NodeList list;
    std::list<DLListNode*> model;
    for (int round = 0; round < 5000; ++round)
    {
        DLListNode* node = &nodes[random() % nodes.size()];
        const auto at = std::find(model.begin(), model.end(), node);
        if (at != model.end())
        {
            list.Remove(node);
            model.erase(at);
            EXPECT_TRUE(!node->Next() && !node->Prev());
        }
        else if (const auto way = random() % 3; way == 0)
        {
            list.AddHead(node);
            model.push_front(node);
        }
        else if (way == 1)
        {
            list.AddTail(node);
            model.push_back(node);
        }
        else
        {
            const auto place = std::next(model.begin(), static_cast<long>(random() % (model.size() + 1)));
            list.AddBefore(node, place == model.end() ? nullptr : *place);
            model.insert(place, node);
        }
        ASSERT_EQ(list.Count(), model.size());
        std::vector<DLListNode*> forward, backward;
        for (DLListNode* n = list.Head(); n; n = n->Next())
            forward.push_back(n);
        for (DLListNode* n = list.Tail(); n; n = n->Prev())
            backward.push_back(n);
        ASSERT_TRUE(std::equal(forward.begin(), forward.end(), model.begin(), model.end()));
        ASSERT_TRUE(std::equal(backward.begin(), backward.end(), model.rbegin(), model.rend()));
    }
}

struct Counted : ReferenceCount
{
    explicit Counted(int& counter) : gone(counter) {}
    ~Counted() override { ++gone; }
    static void DeleteNull() { Delete(nullptr); }
    int& gone;
};

TEST(ReferenceCount, LastReleaseOnAnyThreadDeletesOnce)
{
    int gone = 0;
    Counted* object = new Counted(gone);
    object->AddRef();
    const Counted copy(*object);
    EXPECT_EQ(copy.References(), 0u);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
    {
        object->AddRef();
        threads.emplace_back(
            [object]
            {
                for (int i = 0; i < 10'000; ++i)
                {
                    object->AddRef();
                    object->Release();
                }
                object->Release();
            });
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(gone, 0);
    EXPECT_EQ(object->Release(), 0u);
    EXPECT_EQ(gone, 1);
    Counted::DeleteNull();
}

TEST(DynamicArray, GrowsByChunksAndNeverMovesAnElement)
{
    DynamicArray<String, 41> array;
    EXPECT_EQ(array.Count(), 0u);
    EXPECT_TRUE(array.Begin().IsEnd() && array.Last().IsEnd());
    std::vector<const String*> places;
    for (int i = 0; i < 41 * 3 + 5; ++i)
    {
        const auto before = Alloc::Total();
        String text;
        text.Set(i, 10);
        const auto made = Alloc::Total();
        places.push_back(array.Add(std::move(text)));
        const auto after = Alloc::Total();
        // One chunk for 41 elements, and not a block more.
        EXPECT_EQ(after.hits + after.misses + after.large - made.hits - made.misses - made.large,
                  i % 41 == 0 ? 1u : 0u);
        EXPECT_EQ(made.hits + made.misses - before.hits - before.misses, 1u);
        EXPECT_EQ(array.Count(), static_cast<unsigned>(i + 1));
        EXPECT_EQ(array.Last()->GetInt(), i);
    }
    int expected = 0;
    for (const String& text : array)
    {
        EXPECT_EQ(&text, places[static_cast<std::size_t>(expected)]);
        EXPECT_EQ(text.GetInt(), expected++);
    }
    EXPECT_EQ(expected, 128);
    auto at = array.Begin();
    at += 83;
    EXPECT_EQ(at->GetInt(), 83);
    at += 1000;
    EXPECT_TRUE(at.IsEnd());
    EXPECT_TRUE((++at).IsEnd());

    String* last = array.Last().Get();
    while (array.Count() < 164)
        array.Add(*last); // an element of the array itself
    {
        const AllocFailureForTest failure;
        EXPECT_EQ(array.Add(String()), nullptr);
    }
    EXPECT_EQ(array.Count(), 164u);
    DynamicArray<String, 41> moved = std::move(array);
    EXPECT_EQ(moved.Count(), 164u);
    EXPECT_TRUE(array.IsEmpty());
}

#if !defined(__LP64__)
struct FourFields
{
    std::uint32_t a, b, c, d;
};
// A chunk is its three fields and its slots, in one block.
TEST(DynamicArray, ChunksHaveTheirStatedSize)
{
    const auto grown = [](auto& array, auto value)
    {
        const auto before = Alloc::Total();
        array.Add(value);
        return Alloc::Total().allocated - before.allocated;
    };
    DynamicArray<String, 41> strings;
    DynamicArray<std::uint32_t, 61> words;
    DynamicArray<FourFields, 400> records; // large, so that every request is seen
    EXPECT_EQ(grown(records, FourFields{}), ((12u + 400 * 16 + 11) >> 3) * 8);
    (void)strings;
    (void)words;
}
#endif

} // namespace
