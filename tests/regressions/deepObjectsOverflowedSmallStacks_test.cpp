#include "clss/clastool/clastool.h"
#include "tests/foundation/archiveTestObjects.h"
#include "tkSmallStack.h"
#include "tkTest.h"

#include <sstream>

// The default limit of 1,024 nested objects took 580 KiB of stack, and 1.2 MiB without optimisation: on a thread with
// 256 KiB a legal tree, or a file of 11 KB, ended the program. The limit is met before the stack ends now, in both
// directions and in everything else that goes through a tree from its root to a leaf.

namespace
{
constexpr long deepest = tkArchive::defaultNestingLimit;

#if defined(__OPTIMIZE__)
constexpr std::size_t stackSize = 256;
#else
constexpr std::size_t stackSize = 512;
#endif

using Tree = tkPtrHandle_const<tkDecisionTree>;

/// A tree of so many objects one below the other. The longer side lies on the true and on the false side in turn.
Tree chain(long objects)
{
    const tkRangePredicate predicate(tkRange(0.0, 1.0), {0});
    const tkDecisionTreeLeaf leaf;
    Tree tree(new tkDecisionTreeLeaf);
    for (long i = 1; i < objects; ++i)
    {
        const tkPtrHandle<tkDecisionTreeNode> node(new tkDecisionTreeNode(predicate, leaf, leaf));
        i % 2 == 0 ? node->trueTree(*tree) : node->falseTree(*tree);
        tree = node;
    }
    return tree;
}

tkPtrHandle<ArchiveNode> nodes(long objects)
{
    tkPtrHandle<ArchiveNode> first;
    for (long i = 0; i < objects; ++i)
    {
        const tkPtrHandle<ArchiveNode> node(new ArchiveNode(i));
        if (first)
            node->children.push_back(first);
        first = node;
    }
    return first;
}

/// The bytes of what is too deep for an archive that does not say otherwise.
template <class Handle>
std::string deepBytes(Handle handle)
{
    std::ostringstream stream;
    tkArchive archive(stream);
    archive.nestingLimit(100000);
    archive || handle;
    return stream.str();
}
} // namespace

TEST(deepObjectsOverflowedSmallStacks, deepestTreeIsStoredLoadedCopiedComparedRunAndDestroyed)
{
    tkOnSmallStack(
        []
        {
            const Tree tree = chain(deepest);
            const std::string bytes = storeToBytes(tree);
            Tree loaded;
            loadFromBytes(bytes, loaded);
            EXPECT_TRUE(*loaded == *tree);
            const Tree copy = loaded->clone();
            loaded = Tree();
            EXPECT_TRUE(*copy == *tree);
            EXPECT_TRUE(copy->categoryLabels().empty());
            tkClassifierTool tool;
            tool.train(*copy);
            tkClassifierResult result;
            tool.run(tkFeaturePattern({0.5}), result);
            EXPECT_TRUE(result.categoryResults().empty());
        },
        stackSize);
}

TEST(deepObjectsOverflowedSmallStacks, toolOfTheDeepestTreeIsStoredAndLoaded)
{
    tkOnSmallStack(
        []
        {
            tkClassifierTool tool;
            tool.train(*chain(deepest - 1)); // the classifier is an object too
            tkClassifierTool loaded;
            loadFromBytes(storeToBytes(tool), loaded);
            EXPECT_TRUE(loaded == tool);
            tkClassifierTool deeper;
            deeper.train(*chain(deepest));
            EXPECT_THROW(storeToBytes(deeper), tkArchive::Errors);
        },
        stackSize);
}

TEST(deepObjectsOverflowedSmallStacks, deepestVectorsOfHandlesAreStoredAndLoaded)
{
    tkOnSmallStack(
        []
        {
            tkPtrHandle<ArchiveNode> loaded;
            loadFromBytes(storeToBytes(nodes(deepest)), loaded);
            EXPECT_EQ(deepest - 1, loaded->number);
        },
        stackSize);
}

TEST(deepObjectsOverflowedSmallStacks, deeperObjectsAreRefusedInBothDirections)
{
    const std::string trees = deepBytes(chain(5 * deepest));
    const std::string vectors = deepBytes(nodes(5 * deepest));
    tkOnSmallStack(
        [&]
        {
            Tree tree;
            EXPECT_THROW(loadFromBytes(trees, tree), tkArchive::Errors);
            EXPECT_TRUE(tree.isNull());
            tkPtrHandle<ArchiveNode> node;
            EXPECT_THROW(loadFromBytes(vectors, node), tkArchive::Errors);
            EXPECT_THROW(storeToBytes(nodes(deepest + 1)), tkArchive::Errors);
            EXPECT_THROW(storeToBytes(chain(deepest + 1)), tkArchive::Errors);
        },
        stackSize);
}
