#include "clss/clastool/clastool.h"

#include <exception>
#include <iostream>
#include <limits>
#include <vector>

namespace
{
// What the camera measures on each bolt, and where the bolt goes.
enum Measurement : long
{
    length, // mm
    head,   // width of the head, mm
    shaft,  // width of the shaft, mm
};
enum Bin : long
{
    scrap,
    shortBolts,
    longBolts,
    measureAgain,
};
const char* const binNames[] = {"scrap", "short bolts", "long bolts", "measure again"};

/// A leaf for bolts that go into one bin. It holds the result that they get: one category, certain and free of cost.
tkDecisionTreeLeaf to(Bin bin)
{
    return tkDecisionTreeLeaf(tkClassifierResult({{bin, 1.0, 1.0, 0.0}}, 0.0));
}

/// The tree, from its leaves to its root:
///
///     all measured? -- no --> measure again
///       | yes
///     head wider than shaft? -- no --> scrap
///       | yes
///     length in [18, 22]? -- yes --> short bolts
///       | no
///     length > 22? -- yes --> long bolts
///       | no
///     scrap
tkDecisionTreeNode sortingTree()
{
    // Every predicate is false for an invalid measurement, whatever it asks. So the first question sorts those out;
    // otherwise a bolt that was not measured would end among the scrap.
    const tkRangePredicate isLong(tkRange(22.0, std::numeric_limits<double>::infinity()), {length});
    const tkRangePredicate isShort(tkRange(18.0, 22.0), {length});
    const tkDecisionTreeNode byLength(isShort, to(shortBolts), tkDecisionTreeNode(isLong, to(longBolts), to(scrap)));
    const tkDecisionTreeNode byShape(tkComparisonPredicate(head, shaft), byLength, to(scrap));
    return tkDecisionTreeNode(tkValidityPredicate({length, head, shaft}), byShape, to(measureAgain));
}
} // namespace

int main()
{
    try
    {
        tkClassifierTool tool;
        tool.train(sortingTree());

        std::cout << "bins:";
        for (const long label : tool.decisionTree()->categoryLabels())
            std::cout << ' ' << binNames[label] << ';';
        std::cout << '\n';

        // The second argument lists the measurements that failed.
        const std::vector<tkFeaturePattern> bolts = {
            tkFeaturePattern({20.1, 8.0, 4.0}),         tkFeaturePattern({30.2, 8.1, 4.0}),
            tkFeaturePattern({20.0, 4.1, 4.1}),         tkFeaturePattern({15.0, 8.0, 4.0}),
            tkFeaturePattern({20.3, 0.0, 4.0}, {head}),
        };
        for (const tkFeaturePattern& bolt : bolts)
        {
            tkClassifierResult result;
            tool.run(bolt, result);
            std::cout << "length " << bolt.featureMeasurement(length, false) << ": "
                      << binNames[result.categoryResults().front().categoryLabel()] << '\n';
        }
    }
    catch (const std::exception& error)
    {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
