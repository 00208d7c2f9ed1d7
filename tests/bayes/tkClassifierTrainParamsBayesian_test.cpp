#include "clss/clastool/bayes/tkClassifierTrainParamsBayesian.h"

#include "clss/clastool/clastool/tkClassifierTrainParamsKNN.h"
#include "tests/bayes/bayesTestData.h"
#include "tkAllocations.h"
#include "tkTest.h"

using namespace bayesTest;

TEST(tkClassifierTrainParamsBayesian, recordKeepsCostsAndFrequenciesApart)
{
    tkClassifierFrequencies frequencies(0.25);
    tkClassifierCosts costs(8.0);
    const Params params(joint(2), frequencies, costs, tkFeaturePattern({3.0}, {0}));
    Params loaded;
    loadFromBytes(storeToBytes(params), loaded);
    EXPECT_TRUE(loaded == params);
    EXPECT_EQ(loaded.categoryFrequencies().defaultCategoryFrequency(), 0.25);
    for (const std::size_t level : {0u, 1u, 2u})
    {
        std::string bytes = storeToBytes(params);
        bytes[level] = 1;
        EXPECT_THROW(loadFromBytes(bytes, loaded), tkArchive::UnknownVersion);
    }
}

TEST(tkClassifierTrainParamsBayesian, everyFieldTakesPartInEquality)
{
    const Params params;
    Params other;
    EXPECT_TRUE(params == other);
    other.distributionTypes(Types(Types::eBinomial));
    EXPECT_FALSE(params == other);
    other = params;
    other.misclassificationCosts(tkClassifierCosts(2.0));
    EXPECT_FALSE(params == other);
    other = params;
    other.categoryFrequencies(tkClassifierFrequencies(2.0));
    EXPECT_FALSE(params == other);
    other = params;
    other.maxMeasurementValues(tkFeaturePattern({2.0}));
    EXPECT_FALSE(params == other);
    EXPECT_FALSE(params == tkClassifierTrainParamsKNN());
}
