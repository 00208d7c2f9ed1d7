#include "clss/clastool/clastool/tkDecisionTree.h"

#include "foundation/tkArchiveOperators.h"

#include <unordered_map>
#include <unordered_set>
#include <utility>

namespace
{
using Tree = tkPtrHandle_const<tkDecisionTree>;

/// Equivalence classes of trees that were found equal (union-find; Tarjan, Journal of the ACM 22, 1975): two trees that
/// are equal to a third need no comparison. A tree in a class equals itself; one with a NaN in it does not.
class EqualTrees
{
public:
    /// Whether `a` and `b` are known to be equal. If not, assumes from now on that they are: the caller has to compare
    /// them and to give up if they differ. Trees with one handle are met only once, and are not recorded.
    bool known(const tkDecisionTree* a, const tkDecisionTree* b)
    {
        if (a->referenceCount() <= 1 && b->referenceCount() <= 1)
            return false;
        const auto [entryOfA, isNew] = classes_.try_emplace(a);
        Class* const classOfA = root_(&entryOfA->second);
        Class* const classOfB = root_(&classes_[b]);
        if (classOfA == classOfB)
            return !isNew;
        classOfA->parent = classOfB;
        return false;
    }

private:
    /// The node of a tree in the forest.
    struct Class
    {
        Class* parent = nullptr; // null: the root, which represents the class
    };

    static Class* root_(Class* c)
    {
        while (c->parent)
        {
            if (c->parent->parent)
                c->parent = c->parent->parent; // path halving
            c = c->parent;
        }
        return c;
    }

    std::unordered_map<const tkDecisionTree*, Class> classes_; // pointers to entries stay valid as it grows
};
} // namespace

long tkDecisionTree::numCategories() const
{
    return static_cast<long>(categoryLabels().size());
}

bool tkDecisionTree::isEqual(const tkDecisionTree&) const
{
    return true;
}

TK_DEFINE_RECORD(tkDecisionTree, 0)

void tkDecisionTree::serialize_(tkArchive& archive, unsigned char)
{
    tkPersistent::dispatchSerialize(archive);
}

tkDecisionTreeNode::tkDecisionTreeNode()
    : trueTree_(new tkDecisionTreeLeaf),
      falseTree_(trueTree_),
      predicateFunction_(new tkRangePredicate)
{
}

tkDecisionTreeNode::tkDecisionTreeNode(const tkPredicateFunction& predicate, const tkDecisionTree& trueTree,
                                       const tkDecisionTree& falseTree)
    : trueTree_(trueTree.clone()),
      falseTree_(falseTree.clone()),
      predicateFunction_(predicate.clone())
{
}

tkDecisionTreeNode::~tkDecisionTreeNode()
{
    destroy_(takeLast_(trueTree_));
    destroy_(takeLast_(falseTree_));
}

tkDecisionTreeNode& tkDecisionTreeNode::operator=(const tkDecisionTreeNode& other) noexcept
{
    // Releasing a subtree may destroy the other node: it is copied first and not read afterwards.
    tkDecisionTreeNode copy(other);
    trueTree_.swap(copy.trueTree_);
    falseTree_.swap(copy.falseTree_);
    predicateFunction_.swap(copy.predicateFunction_);
    return *this;
}

void tkDecisionTreeNode::trueTree(const tkDecisionTree& tree)
{
    trueTree_ = tree.clone();
}

void tkDecisionTreeNode::falseTree(const tkDecisionTree& tree)
{
    falseTree_ = tree.clone();
}

void tkDecisionTreeNode::predicateFunction(const tkPredicateFunction& predicate)
{
    predicateFunction_ = predicate.clone();
}

std::vector<long> tkDecisionTreeNode::categoryLabels() const
{
    // By definition the list of a node is that of its false subtree, then what the list of the true subtree adds.
    // So it is what the first leaf lists, then what each further leaf adds; a leaf met again adds nothing.
    std::vector<long> labels;
    std::unordered_set<long> listed;
    std::unordered_set<const tkDecisionTree*> visited; // of the trees that may be met again
    bool isFirstLeaf = true;
    std::vector<const Tree*> open{&trueTree_, &falseTree_};
    while (!open.empty())
    {
        const tkDecisionTree& tree = **open.back();
        open.pop_back();
        if (tree.referenceCount() > 1 && !visited.insert(&tree).second)
            continue;
        if (typeid(tree) == typeid(tkDecisionTreeNode))
        {
            const auto& node = static_cast<const tkDecisionTreeNode&>(tree);
            open.push_back(&node.trueTree_);
            open.push_back(&node.falseTree_);
            continue;
        }
        for (const long label : tree.categoryLabels())
            if (listed.insert(label).second || isFirstLeaf)
                labels.push_back(label);
        isFirstLeaf = false;
    }
    return labels;
}

tkPtrHandle<tkDecisionTree> tkDecisionTreeNode::clone() const
{
    return tkPtrHandle<tkDecisionTree>(new tkDecisionTreeNode(*this));
}

bool tkDecisionTreeNode::isEqual(const tkDecisionTree& other) const
{
    std::vector<std::pair<const Tree*, const Tree*>> open;
    const auto equalButForSubtrees = [&open](const tkDecisionTreeNode& a, const tkDecisionTree& tree)
    {
        if (!a.tkDecisionTree::isEqual(tree) || typeid(a) != typeid(tree))
            return false;
        const auto& b = static_cast<const tkDecisionTreeNode&>(tree);
        if (!a.predicateFunction_->isEqual(*b.predicateFunction_))
            return false;
        open.emplace_back(&a.falseTree_, &b.falseTree_);
        open.emplace_back(&a.trueTree_, &b.trueTree_);
        return true;
    };

    if (!equalButForSubtrees(*this, other))
        return false;
    EqualTrees equalTrees;
    while (!open.empty())
    {
        const tkDecisionTree& a = **open.back().first;
        const tkDecisionTree& b = **open.back().second;
        open.pop_back();
        if (equalTrees.known(&a, &b))
            continue;
        const bool isNode = typeid(a) == typeid(tkDecisionTreeNode);
        if (!(isNode ? equalButForSubtrees(static_cast<const tkDecisionTreeNode&>(a), b) : a.isEqual(b)))
            return false;
    }
    return true;
}

/// Releases the reference. If it was the last one, returns the node for the caller to destroy, or destroys a tree of
/// another class here.
tkDecisionTreeNode* tkDecisionTreeNode::takeLast_(tkPtrHandle_const<tkDecisionTree>& tree) noexcept
{
    const tkDecisionTree* const released = tree.detach();
    if (!released || !released->dropReference())
        return nullptr;
    if (typeid(*released) == typeid(tkDecisionTreeNode))
        return static_cast<tkDecisionTreeNode*>(const_cast<tkDecisionTree*>(released));
    delete released;
    return nullptr;
}

/// Destroys a node without references (or null), and all subtrees whose last reference it has, without recursion.
///
/// Nodes to destroy form a chain, linked by their false subtrees. A node with a true subtree to destroy is rotated: the
/// subtree comes before it in the chain and gives it its own false subtree in exchange. Each node is rotated before
/// another at most once, so that the time is linear.
void tkDecisionTreeNode::destroy_(tkDecisionTreeNode* node) noexcept
{
    while (node)
    {
        if (tkDecisionTreeNode* const subtree = takeLast_(node->trueTree_))
        {
            node->trueTree_ = std::move(subtree->falseTree_);
            subtree->falseTree_ = Tree(node);
            node = subtree;
        }
        else
        {
            tkDecisionTreeNode* const next = takeLast_(node->falseTree_);
            delete node;
            node = next;
        }
    }
}

TK_DEFINE_FACTORY_RECORD(tkDecisionTreeNode, 0)

void tkDecisionTreeNode::serialize_(tkArchive& archive, unsigned char)
{
    tkDecisionTree::dispatchSerialize(archive);
    archive || trueTree_ || falseTree_ || predicateFunction_;
}

tkDecisionTreeLeaf::tkDecisionTreeLeaf(const tkClassifierResult& result) : classifierResult_(result) {}

std::vector<long> tkDecisionTreeLeaf::categoryLabels() const
{
    std::vector<long> labels;
    labels.reserve(classifierResult_.categoryResults().size());
    for (const tkClassifierCategoryResult& result : classifierResult_.categoryResults())
        labels.push_back(result.categoryLabel());
    return labels;
}

tkPtrHandle<tkDecisionTree> tkDecisionTreeLeaf::clone() const
{
    return tkPtrHandle<tkDecisionTree>(new tkDecisionTreeLeaf(*this));
}

bool tkDecisionTreeLeaf::isEqual(const tkDecisionTree& other) const
{
    if (!tkDecisionTree::isEqual(other) || typeid(*this) != typeid(other))
        return false;
    return classifierResult_ == static_cast<const tkDecisionTreeLeaf&>(other).classifierResult_;
}

TK_DEFINE_FACTORY_RECORD(tkDecisionTreeLeaf, 0)

void tkDecisionTreeLeaf::serialize_(tkArchive& archive, unsigned char)
{
    tkDecisionTree::dispatchSerialize(archive);
    archive || classifierResult_;
}
