#include <Bedrock/files/NameTree.h>

#include <Bedrock/files/FoldedName.h>
#include <Bedrock/files/Path.h>
#include <Bedrock/memory/Alloc.h>
#include <Bedrock/memory/Nodes.h>

#include <cstring>
#include <initializer_list>
#include <new>

namespace Zem
{

// The text stands behind the node, in the same block.
struct NameTree::Node final : RBTreeNode
{
    Node(Node* above, bool isSilent) noexcept : parent(above), silent(isSilent) { red = 1; }

    Node* Left() const noexcept { return static_cast<Node*>(left); }
    Node* Right() const noexcept { return static_cast<Node*>(right); }
    const char* Text() const noexcept { return reinterpret_cast<const char*>(this + 1); }
    char* Text() noexcept { return reinterpret_cast<char*>(this + 1); }

    static Node* Make(const char* text, std::size_t length, Node* above, bool isSilent)
    {
        void* block = Alloc::New(sizeof(Node) + length + 1);
        if (!block)
            return nullptr;
        Node* node = new (block) Node(above, isSilent);
        std::memcpy(node->Text(), text, length + 1);
        return node;
    }

    Node* parent;
    bool silent;
};

namespace
{

// A step further than the neighbour is cheap; from the third on the way from the top is about as short.
constexpr int stepsFromFinger = 3;

} // namespace

NameTree::NameTree(const NameTree& other)
{
    *this = other;
}

NameTree& NameTree::operator=(const NameTree& other)
{
    if (this == &other)
        return *this;
    Clear();
    for (const Node* node = other.Lowest(); node; node = Next(node))
        Add(node->Text(), node->silent);
    return *this;
}

// Hangs the right subtrees under the way down to the left, so that no stack is needed.
void NameTree::Clear() noexcept
{
    for (Node* node = root; node;)
    {
        Node* next = node->Left();
        if (next)
        {
            node->left = next->right;
            next->right = node;
        }
        else
        {
            next = node->Right();
            delete node;
        }
        node = next;
    }
    root = nullptr;
    finger = nullptr;
    count = 0;
}

const NameTree::Node* NameTree::Lowest() const noexcept
{
    const Node* node = root;
    while (node && node->left)
        node = node->Left();
    return node;
}

const NameTree::Node* NameTree::Next(const Node* node) noexcept
{
    if (node->right)
    {
        for (node = node->Right(); node->left;)
            node = node->Left();
        return node;
    }
    while (node->parent && node->parent->right == node)
        node = node->parent;
    return node->parent;
}

const char* NameTree::Shown(const Node* node) noexcept
{
    return node->silent ? nullptr : node->Text();
}

NameTree::Added NameTree::Add(const char* name, bool silent)
{
    char folded[FilePath::capacity];
    std::size_t length = 0;
    for (; name[length] && length < sizeof folded - 1; ++length)
        folded[length] = static_cast<char>(FoldedName::Fold(name[length]));
    folded[length] = '\0';

    // From where the last one went.
    Node* parent = nullptr;
    bool right = false;
    bool placed = false;
    if (finger)
    {
        Node* below = finger;
        int order = std::strcmp(folded, below->Text());
        for (int step = 0; order > 0 && step < stepsFromFinger; ++step)
        {
            Node* above = const_cast<Node*>(Next(below));
            order = above ? std::strcmp(folded, above->Text()) : -1;
            if (order < 0)
            {
                // Between two neighbours one of the two has room on that side.
                right = below->right == nullptr;
                parent = right ? below : above;
                placed = true;
            }
            below = above;
        }
        if (order == 0)
        {
            finger = below;
            return Added::Known;
        }
    }
    for (Node* node = placed ? nullptr : root; node;)
    {
        const int order = std::strcmp(folded, node->Text());
        if (order == 0)
        {
            finger = node;
            return Added::Known;
        }
        parent = node;
        right = order > 0;
        node = right ? node->Right() : node->Left();
    }
    Node* made = Node::Make(folded, length, parent, silent);
    if (!made)
        return Added::NoSpace;
    Link(made, parent, right);
    finger = made;
    ++count;
    return Added::New;
}

// Hangs a red node in and restores the rules: no red below a red, and as many blacks on every way down.
void NameTree::Link(Node* node, Node* parent, bool toRight) noexcept
{
    if (parent)
        (toRight ? parent->right : parent->left) = node;
    else
        root = node;
    while (node->parent && node->parent->red)
    {
        Node* above = node->parent;
        Node* top = above->parent; // there is one, since the root is black
        const bool side = above == top->right;
        RBTreeNode* uncle = side ? top->left : top->right;
        if (uncle && uncle->red)
        {
            above->red = 0;
            uncle->red = 0;
            top->red = 1;
            node = top;
            continue;
        }
        if ((node == above->right) != side)
        {
            Rotate(above, side);
            above = node;
        }
        above->red = 0;
        top->red = 1;
        Rotate(top, !side);
        break;
    }
    root->red = 0;
}

// Turns the node down to the given side; its child on the other side comes up.
void NameTree::Rotate(Node* node, bool toRight) noexcept
{
    Node* up = toRight ? node->Left() : node->Right();
    Node* between = toRight ? up->Right() : up->Left();
    (toRight ? node->left : node->right) = between;
    if (between)
        between->parent = node;
    up->parent = node->parent;
    if (!node->parent)
        root = up;
    else
        (node == node->parent->right ? node->parent->right : node->parent->left) = up;
    (toRight ? up->right : up->left) = node;
    node->parent = up;
}

bool NameTree::CheckInvariants() const
{
    std::uint32_t seen = 0;
    int blacks = -1;
    const char* before = nullptr;
    for (const Node* node = Lowest(); node; node = Next(node))
    {
        ++seen;
        if (before && std::strcmp(before, node->Text()) >= 0)
            return false;
        before = node->Text();
        for (const Node* child : {node->Left(), node->Right()})
            if (child && (child->parent != node || (node->red && child->red)))
                return false;
        if (node->left && node->right)
            continue;
        int way = 0; // blacks from the open end to the root
        for (const Node* at = node; at; at = at->parent)
            way += !at->red;
        if (blacks >= 0 && way != blacks)
            return false;
        blacks = way;
    }
    return seen == count && (!root || (!root->red && !root->parent));
}

} // namespace Zem
