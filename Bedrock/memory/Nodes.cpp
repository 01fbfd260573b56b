#include <Bedrock/memory/Nodes.h>

namespace Zem
{

static_assert(sizeof(DLListNode) == 2 * sizeof(void*) && sizeof(IListNode) == 2 * sizeof(void*));
static_assert(sizeof(ISingleListNode) == sizeof(void*));
static_assert(sizeof(DLTreeNode) == 6 * sizeof(void*) && sizeof(RBTreeNode) == 4 * sizeof(void*));

DLTreeNode* DLTreeNode::NextNode() const noexcept
{
    for (const DLTreeNode* node = this; node; node = node->parent)
        if (node->next)
            return node->next;
    return nullptr;
}

DLTreeNode* DLTreeNode::Walk() const noexcept
{
    return firstChild ? firstChild : NextNode();
}

DLTreeNode* DLTreeNode::WalkNext() const noexcept
{
    if (next)
        return next;
    return parent ? parent->firstChild : nullptr;
}

DLTreeNode* DLTreeNode::WalkPrev() const noexcept
{
    if (prev)
        return prev;
    return parent ? parent->lastChild : nullptr;
}

RBTreeNode::~RBTreeNode() = default;

} // namespace Zem
