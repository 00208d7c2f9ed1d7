#include "peers.h"
#include "tests/definition/definition.h"
#include "workloads.h"

#include "clss/clastool/clastool/tk_ClassifierDecisionTree.h"

#include <limits>

namespace
{
constexpr long depth = 10;

tkClassifierResult leafResult(long leaf)
{
    return tkClassifierResult(
        {tkClassifierCategoryResult(leaf, 0.0, 0.75, 0.25), tkClassifierCategoryResult(leaf + 1, 0.0, 0.25, 0.75)},
        0.0);
}

tkPtrHandle<tkDecisionTree> treeFrom(long level, long leaf)
{
    if (level == depth)
        return tkPtrHandle<tkDecisionTree>(new tkDecisionTreeLeaf(leafResult(leaf)));
    const tkRangePredicate predicate(tkRange(0.5, std::numeric_limits<double>::infinity()), {level});
    return tkPtrHandle<tkDecisionTree>(
        new tkDecisionTreeNode(predicate, *treeFrom(level + 1, 2 * leaf + 1), *treeFrom(level + 1, 2 * leaf)));
}

tkPtrHandle_const<definition::Tree> naiveTreeFrom(long level, long leaf)
{
    if (level == depth)
        return tkPtrHandle_const<definition::Tree>(
            new definition::Leaf({{leaf, 0.0, 0.75, 0.25}, {leaf + 1, 0.0, 0.25, 0.75}}));
    return tkPtrHandle_const<definition::Tree>(
        new definition::Node(tkPtrHandle_const<definition::Predicate>(
                                 new definition::RangePredicate(0.5, std::numeric_limits<double>::infinity(), {level})),
                             naiveTreeFrom(level + 1, 2 * leaf + 1), naiveTreeFrom(level + 1, 2 * leaf)));
}
} // namespace

void decisionTrees(Harness& harness)
{
    Table queryTable{4096, depth, {}, {}};
    tkRandomUniform uniform(13);
    for (long i = 0; i < queryTable.rows * depth; ++i)
        queryTable.values.push_back(uniform.next(0.0, 1.0));
    const std::vector<tkFeaturePattern> queries = patternsOf(queryTable);

    tk_ClassifierDecisionTree classifier;
    classifier.trainManual(*treeFrom(0, 0));
    const tkPtrHandle_const<definition::Tree> naiveTree = naiveTreeFrom(0, 0);
    tkClassifierResult result;
    for (const tkFeaturePattern& query : queries)
    {
        classifier.run(query, result);
        harness.check(definition::agrees(definition::classifyByTree(naiveTree, query), result),
                      "TREE gives the result of the definition");
    }
    const long allocated = allocations().count;
    classifier.run(queries.front(), result);
    harness.figure("TREE", "allocations of one run", static_cast<double>(allocations().count - allocated));

    std::vector<Tool> tools{
        {"clastool", Role::Library,
         [&](long first, long count)
         {
             for (long i = first; i < first + count; ++i)
                 classifier.run(queries[static_cast<std::size_t>(i) % queries.size()], result);
             keep(result);
         }},
        {"naive", Role::Naive,
         [&](long first, long count)
         {
             for (long i = first; i < first + count; ++i)
                 keep(definition::classifyByTree(naiveTree, queries[static_cast<std::size_t>(i) % queries.size()]));
         }}};
    for (Peer* peer : peers())
        peer->addTree(tools, depth, queryTable);
    harness.measure("TREE", "one pattern", tools);
}
