#include "tests/bayes/bayesTestData.h"
#include "tkAllocations.h"

#include <gtest/gtest.h>

// The copy assignment of Bayesian parameters assigned field by field: if memory ran out, some had the new values and
// the others the old ones. It copies first and then moves, which cannot fail.

using namespace bayesTest;

TEST(bayesianParamsWereHalfAssigned, assignmentChangesNothingIfMemoryRunsOut)
{
    Types types(Types::eNormal);
    types.setDependent(1, {0, 1, 2});
    tkClassifierFrequencies frequencies(1.0);
    frequencies.categoryFrequencyOverride(1, 2.0);
    tkClassifierCosts costs(1.0);
    costs.misclassificationCostOverride(1, 2, 3.0);
    Params other(types, frequencies, costs, tkFeaturePattern({1.0, 2.0}, {1}));
    other.throwIfNotReady(false);
    expectUnchangedWithoutMemory(Params(), [&](Params& params) { params = other; });
    Params params;
    params = other;
    EXPECT_TRUE(params == other);
    EXPECT_EQ(params.throwIfNotReady(), other.throwIfNotReady());
}
