#include "tkAllocations.h"
#include "tkTest.h"

#include "clss/clastool/clastool/tk_ClassifierKNN.h"

// The assignments of nearest-neighbour parameters and of their classifier were the compiler's: member by member, k and
// the metric before the costs, which allocate. When memory ran out there, the object had the new k and the old costs;
// the classifier had the new parameters or data beside the old ones. What can fail now comes first.

namespace
{
tkClassifierTrainParamsKNN costlyParams()
{
    tkClassifierCosts costs(2.0);
    costs.misclassificationCostOverride(0, 1, 20.0);
    costs.misclassificationCostOverride(1, 0, 3.0);
    tkClassifierTrainParamsKNN params(7, tkPatternDistanceMetricNorm(1.0), costs);
    params.throwIfNotReady(false);
    return params;
}

/// Trained with k = `k` on as many patterns of two categories, at 0, 1, 2, ...
tk_ClassifierKNN trained(const tkClassifierTrainParamsKNN& params, long numPatterns)
{
    tkClassifierDataProviderMemory data;
    for (long i = 0; i < numPatterns; ++i)
        data.addData({static_cast<double>(i)}, i % 2);
    tk_ClassifierKNN classifier;
    classifier.train(data, params);
    return classifier;
}
} // namespace

TEST(neighborParamsWereHalfAssigned, parametersStayAsTheyWere)
{
    const tkClassifierTrainParamsKNN other = costlyParams();
    expectUnchangedWithoutMemory(tkClassifierTrainParamsKNN(3), [&](auto& params) { params = other; });
    tkClassifierTrainParamsKNN params(3);
    params = other;
    EXPECT_TRUE(params == other);
    EXPECT_FALSE(params.throwIfNotReady());
    EXPECT_EQ(params.distanceMetric(), other.distanceMetric());
}

TEST(neighborParamsWereHalfAssigned, aClassifierStaysAsItWas)
{
    const tk_ClassifierKNN other = trained(costlyParams(), 9);
    const tk_ClassifierKNN before = trained(tkClassifierTrainParamsKNN(3), 5);
    expectUnchangedWithoutMemory(before, [&](auto& classifier) { classifier = other; });

    // Equality does not see the classifier's own parameters, but a run does.
    for (std::size_t allowed = 0; allowed < 3; ++allowed)
    {
        tk_ClassifierKNN classifier(before);
        bool failed = false;
        {
            const tkAllocations limited(allowed);
            try
            {
                classifier = other;
            }
            catch (const std::bad_alloc&)
            {
                failed = true;
            }
        }
        EXPECT_TRUE(failed) << allowed;
        tkClassifierResult expected, result;
        before.run(tkFeaturePattern({0.0}), expected);
        classifier.run(tkFeaturePattern({0.0}), result);
        EXPECT_TRUE(result == expected) << allowed;
    }
}
