#include "sorting_tree.h"

#include "known_surfaces.h"
#include "text.h"

#include "clss/clastool/clastool/tkClassifierTool.h"
#include "clss/clastool/clastool/tkDecisionTree.h"
#include "clss/clastool/clastool/tkFeaturePattern.h"
#include "clss/clastool/clastool/tkPredicateFunction.h"

#include <stdexcept>

namespace inspector
{

namespace
{

// Chosen by looking at the tiles of the left halves.
//
// A brick changes little from line to line except at a joint: mean |dy| is at most 5.8 on tiles of brick and at least
// 9.7 on all others.
constexpr double brickMaxDy = 8.0;
// Grass is full of fine detail, gravel has larger stones. So the Laplacian of grass is above its standard deviation (on
// 119 tiles of 128), that of gravel below (on 127 of 128). Five of the nine tiles of grass that stay behind come
// apart from gravel where the Laplacian itself is high.
constexpr double gravelMaxLaplacian = 36.5;

tkDecisionTreeLeaf leaf(long label)
{
    return tkDecisionTreeLeaf(tkClassifierResult({{label, 1.0, 1.0, 0.0}}, 0.0));
}

/// The tree, from its leaves to its root, in grey levels. A predicate is false for an invalid measurement, whatever it
/// asks: so the first question sorts those tiles out.
tkDecisionTreeNode sortingTree(const KnownSurfaces& known, long measureAgain)
{
    const tkDecisionTreeNode byDetail(tkRangePredicate(tkRange(0.0, gravelMaxLaplacian), {meanLaplacian}),
                                      leaf(known.gravel), leaf(known.grass));
    const tkDecisionTreeNode byRoughness(tkComparisonPredicate(standardDeviation, meanLaplacian), byDetail,
                                         leaf(known.grass));
    const tkDecisionTreeNode bySmoothness(tkRangePredicate(tkRange(0.0, brickMaxDy), {meanDy}), leaf(known.brick),
                                          byRoughness);
    return tkDecisionTreeNode(
        tkValidityPredicate({greyMean, standardDeviation, meanDx, meanDy, meanLaplacian, skewness}), bySmoothness,
        leaf(measureAgain));
}

std::string measurementName(long index)
{
    return measurementNames[static_cast<std::size_t>(index)];
}

/// What the predicate asks, in words.
void describe(const tkPredicateFunction& predicate, Branch& branch)
{
    if (const auto* range = dynamic_cast<const tkRangePredicate*>(&predicate))
    {
        branch.question = measurementName(range->indices().front());
        branch.condition = "within " + fixed(range->range().low(), 1) + " to " + fixed(range->range().high(), 1) + "?";
    }
    else if (const auto* comparison = dynamic_cast<const tkComparisonPredicate*>(&predicate))
    {
        branch.question = measurementName(comparison->index1());
        branch.condition = "above " + measurementName(comparison->index2()) + "?";
    }
    else if (const auto* validity = dynamic_cast<const tkValidityPredicate*>(&predicate))
    {
        branch.question = "all " + std::to_string(validity->indices().size()) + " measurements";
        branch.condition = "valid?";
    }
    else
    {
        throw std::logic_error("no words for this predicate");
    }
}

/// A tile on its way through the tree.
struct Traveller
{
    long label;
    Pattern pattern;
};

/// Sends tiles through the tree as the classifier does, and counts them on the way.
Branch fall(const tkDecisionTree& tree, const std::vector<Traveller>& tiles, std::size_t numSurfaces)
{
    Branch branch;
    branch.counts.assign(numSurfaces, 0);
    for (const Traveller& tile : tiles)
        ++branch.counts[static_cast<std::size_t>(tile.label)];

    const auto* node = dynamic_cast<const tkDecisionTreeNode*>(&tree);
    if (!node)
    {
        branch.label = tree.categoryLabels().front();
        return branch;
    }
    describe(*node->predicateFunction(), branch);
    std::vector<Traveller> yes;
    std::vector<Traveller> no;
    for (const Traveller& tile : tiles)
        (node->predicateFunction()->outcome(*tile.pattern) ? yes : no).push_back(tile);
    branch.branches = {fall(*node->trueTree(), yes, numSurfaces), fall(*node->falseTree(), no, numSurfaces)};
    return branch;
}

} // namespace

std::optional<TreeFindings> sortWithTree(const Dataset& dataset, const Measurements& flatTile)
{
    const std::optional<KnownSurfaces> known = knownSurfaces(dataset);
    if (!known)
        return std::nullopt;

    TreeFindings findings;
    findings.measureAgain = static_cast<long>(dataset.surfaces.size());
    tkClassifierTool tool;
    tool.train(sortingTree(*known, findings.measureAgain));

    findings.learned =
        confusionOf(dataset, dataset.train, decideAll(tool, patternsOf(dataset.train), "Left halves, tree"));
    const std::vector<Pattern> tests = patternsOf(dataset.test);
    findings.confusion = confusionOf(dataset, dataset.test, decideAll(tool, tests, "Right halves, tree"));
    findings.flatTile = decide(tool, *patternOf(flatTile));

    std::vector<Traveller> tiles;
    for (std::size_t i = 0; i < tests.size(); ++i)
        tiles.push_back({dataset.test[i].label, tests[i]});
    findings.root = fall(*tool.decisionTree(), tiles, dataset.surfaces.size());
    return findings;
}

} // namespace inspector
