#include "scriptedMethod.h"
#include "tests/golden/nearestNeighbors.h"
#include "tkTest.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/clastool/clastool/tkClassifierTool.h"
#include "clss/clastool/clastool/tkClassifierTrainParamsKNN.h"
#include "clss/clastool/clastool/tk_ClassifierKNN.h"
#include "foundation/tkArchiveOperators.h"

namespace
{
/// Gives access to the steps, which are protected.
class OpenParams : public tkClassifierTrainParamsKNN
{
public:
    using tkClassifierTrainParamsKNN::isSameTechnique_;
    using tkClassifierTrainParamsKNN::newClassifier_;
    using tkClassifierTrainParamsKNN::tkClassifierTrainParamsKNN;
};

double orderOf(const tkClassifierTrainParamsKNN& params)
{
    return dynamic_cast<const tkPatternDistanceMetricNorm&>(*params.distanceMetric()).order();
}

tkClassifierTrainParamsKNN fullParams()
{
    tkClassifierCosts costs(2.0);
    costs.misclassificationCostOverride(1, 2, 20.0);
    return tkClassifierTrainParamsKNN(7, tkPatternDistanceMetricNorm(3.0), costs);
}

/// A metric that an archive cannot create and that records destruction in nothing: equivalent to every metric.
class HostMetric : public tkPatternDistanceMetric
{
public:
    double distance(const tkFeaturePattern&, const tkFeaturePattern&) const override { return 0.0; }
    tkPtrHandle<tkPatternDistanceMetric> clone() const override
    {
        return tkPtrHandle<tkPatternDistanceMetric>(new HostMetric(*this));
    }
};
} // namespace

TEST(tkClassifierTrainParamsKNN, defaultsToOneNeighbourTheEuclideanDistanceAndUnitCosts)
{
    const tkClassifierTrainParamsKNN params;
    EXPECT_EQ(params.k(), 1);
    EXPECT_EQ(orderOf(params), 2.0);
    EXPECT_TRUE(params.misclassificationCosts() == tkClassifierCosts(1.0));
    EXPECT_TRUE(params.throwIfNotReady());
    EXPECT_EQ(tkClassifierTrainParamsKNN(4).k(), 4);
    EXPECT_EQ(orderOf(tkClassifierTrainParamsKNN(4)), 2.0);
}

TEST(tkClassifierTrainParamsKNN, takesAllThreeAtConstruction)
{
    const tkClassifierTrainParamsKNN params = fullParams();
    EXPECT_EQ(params.k(), 7);
    EXPECT_EQ(orderOf(params), 3.0);
    EXPECT_EQ(params.misclassificationCosts().misclassificationCost(1, 2), 20.0);
    EXPECT_EQ(params.misclassificationCosts().misclassificationCost(2, 1), 2.0);
}

TEST(tkClassifierTrainParamsKNN, takesKAndCostsWithTheEuclideanDistance)
{
    tkClassifierCosts costs(2.0);
    costs.misclassificationCostOverride(0, 1, 5.0);
    const tkClassifierTrainParamsKNN params(3, costs);
    EXPECT_TRUE(params == tkClassifierTrainParamsKNN(3, tkPatternDistanceMetricNorm(2.0), costs));
    EXPECT_TK_THROW(tkClassifierTrainParamsKNN(0, costs), tkClassifierDefs::BadParams, L"K must be >= 1");
}

TEST(tkClassifierTrainParamsKNN, aNumberIsParametersWithoutMoreWords)
{
    const tkClassifierTrainParamsKNN params = 4;
    EXPECT_EQ(params.k(), 4);
    const tkPatternDistanceMetricNorm metric = 1.0;
    EXPECT_EQ(metric.order(), 1.0);
}

TEST(tkClassifierTrainParamsKNN, refusesAKBelowOneAndKeepsTheOldOne)
{
    tkClassifierTrainParamsKNN params(3);
    for (const long k : {0L, -1L, -2147483647L})
    {
        EXPECT_TK_THROW(params.k(k), tkClassifierDefs::BadParams, L"K must be >= 1");
        EXPECT_EQ(params.k(), 3);
        EXPECT_TK_THROW(tkClassifierTrainParamsKNN{k}, tkClassifierDefs::BadParams, L"K must be >= 1");
        EXPECT_TK_THROW(tkClassifierTrainParamsKNN(k, tkPatternDistanceMetricNorm(), tkClassifierCosts()),
                        tkClassifierDefs::BadParams, L"K must be >= 1");
    }
    params.k(1);
    EXPECT_EQ(params.k(), 1);
    params.k(2147483647);
    EXPECT_EQ(params.k(), 2147483647);
}

TEST(tkClassifierTrainParamsKNN, setterKeepsACloneOfTheMetric)
{
    tkPatternDistanceMetricNorm metric(3.0);
    tkClassifierTrainParamsKNN params;
    params.distanceMetric(metric);
    metric.order(4.0);
    EXPECT_EQ(orderOf(params), 3.0);
    EXPECT_NE(params.distanceMetric().get(), &metric);

    const tkClassifierTrainParamsKNN constructed(1, metric, tkClassifierCosts());
    metric.order(5.0);
    EXPECT_EQ(orderOf(constructed), 4.0);
}

TEST(tkClassifierTrainParamsKNN, getterSharesTheMetricThatIsHeld)
{
    tkClassifierTrainParamsKNN params;
    const tkPtrHandle_const<tkPatternDistanceMetric> metric = params.distanceMetric();
    EXPECT_EQ(metric, params.distanceMetric());
    params.distanceMetric(*metric);
    EXPECT_NE(metric, params.distanceMetric()) << "setting its own metric clones it like any other";
    EXPECT_TRUE(metric->isEquivalent(*params.distanceMetric()));
}

TEST(tkClassifierTrainParamsKNN, copiesShareTheMetricAndOwnTheRest)
{
    tkClassifierTrainParamsKNN params = fullParams();
    params.throwIfNotReady(false);
    const tkClassifierTrainParamsKNN copy(params);
    tkClassifierTrainParamsKNN assigned;
    assigned = params;
    const tkPtrHandle<tkClassifierTrainParams> clone = params.clone();
    const auto& cloned = dynamic_cast<const tkClassifierTrainParamsKNN&>(*clone);

    for (const tkClassifierTrainParamsKNN* other :
         {&copy, const_cast<const tkClassifierTrainParamsKNN*>(&assigned), &cloned})
    {
        EXPECT_EQ(other->distanceMetric(), params.distanceMetric());
        EXPECT_TRUE(*other == params);
        EXPECT_FALSE(other->throwIfNotReady());
    }

    params.k(9);
    params.distanceMetric(tkPatternDistanceMetricNorm(1.0));
    params.misclassificationCosts(tkClassifierCosts(5.0));
    for (const tkClassifierTrainParamsKNN* other :
         {&copy, const_cast<const tkClassifierTrainParamsKNN*>(&assigned), &cloned})
        EXPECT_TRUE(*other == fullParams());
}

TEST(tkClassifierTrainParamsKNN, assigningToItselfChangesNothing)
{
    tkClassifierTrainParamsKNN params = fullParams();
    const tkClassifierTrainParamsKNN& self = params;
    params = self;
    EXPECT_TRUE(params == fullParams());
}

TEST(tkClassifierTrainParamsKNN, equalityRegardsClassKMetricAndCosts)
{
    const tkClassifierTrainParamsKNN params = fullParams();
    EXPECT_TRUE(params == fullParams());
    EXPECT_FALSE(params != fullParams());

    tkClassifierTrainParamsKNN other = fullParams();
    other.k(8);
    EXPECT_FALSE(params == other);

    other = fullParams();
    other.distanceMetric(tkPatternDistanceMetricNorm(2.0));
    EXPECT_FALSE(params == other);
    other.distanceMetric(HostMetric());
    EXPECT_FALSE(params == other);
    EXPECT_TRUE(other == params) << "the first one's metric is asked, and this one finds all equivalent";

    other = fullParams();
    other.misclassificationCosts(tkClassifierCosts(2.0));
    EXPECT_TRUE(params != other);

    other = fullParams();
    other.throwIfNotReady(false);
    EXPECT_TRUE(params == other);

    EXPECT_FALSE(params == ScriptedParams());
    EXPECT_FALSE(tkClassifierTrainParamsKNN() == OpenParams());
    EXPECT_FALSE(OpenParams() == tkClassifierTrainParamsKNN());
    EXPECT_TRUE(OpenParams() == OpenParams());
}

TEST(tkClassifierTrainParamsKNN, theTechniqueIsThatOfAllNearestNeighbourParameters)
{
    const OpenParams params(3);
    EXPECT_TRUE(params.isSameTechnique_(fullParams()));
    EXPECT_TRUE(params.isSameTechnique_(OpenParams()));
    EXPECT_FALSE(params.isSameTechnique_(ScriptedParams()));
}

TEST(tkClassifierTrainParamsKNN, createsAnUntrainedNearestNeighbourClassifier)
{
    const OpenParams params(3);
    const tkPtrHandle<tk_Classifier> classifier(params.newClassifier_());
    EXPECT_NE(dynamic_cast<const tk_ClassifierKNN*>(classifier.get()), nullptr);
    EXPECT_FALSE(classifier->isTrained());
}

TEST(tkClassifierTrainParamsKNN, recordIsTheBaseRecordThenKMetricAndCosts)
{
    std::string expected;
    expected += std::string(3, '\0');                              // this level, tkClassifierTrainParams, tkPersistent
    expected += std::string("\x07\0\0\0", 4);                      // k
    expected += std::string("\x01\0\0\0\x01\0\0\0\x1B\0\0\0", 12); // object 1 of type 1, whose name follows
    expected += "tkPatternDistanceMetricNorm";
    expected += std::string("\0\0\0\0\0\0\0\0\0\x08\x40", 11); // three levels, order 3.0
    expected += storeToBytes(fullParams().misclassificationCosts());
    EXPECT_EQ(storeToBytes(fullParams()), expected);
}

TEST(tkClassifierTrainParamsKNN, roundTripsThroughAHandleToTheBase)
{
    const tkPtrHandle<tkClassifierTrainParams> stored(new tkClassifierTrainParamsKNN(fullParams()));
    const std::string bytes = storeToBytes(stored);
    tkPtrHandle<tkClassifierTrainParams> loaded;
    loadFromBytes(bytes, loaded);
    EXPECT_TRUE(dynamic_cast<const tkClassifierTrainParamsKNN&>(*loaded) == *stored);
    EXPECT_EQ(storeToBytes(loaded), bytes);
}

TEST(tkClassifierTrainParamsKNN, copiesStillShareOneMetricAfterLoading)
{
    const tkPtrHandle<tkClassifierTrainParamsKNN> first(new tkClassifierTrainParamsKNN(fullParams()));
    const tkPtrHandle<tkClassifierTrainParamsKNN> second(new tkClassifierTrainParamsKNN(*first));
    std::vector<tkPtrHandle<tkClassifierTrainParamsKNN>> stored = {first, second};
    std::vector<tkPtrHandle<tkClassifierTrainParamsKNN>> loaded;
    loadFromBytes(storeToBytes(stored), loaded);
    ASSERT_EQ(loaded.size(), 2u);
    EXPECT_NE(loaded[0], loaded[1]);
    EXPECT_EQ(loaded[0]->distanceMetric(), loaded[1]->distanceMetric());
}

TEST(tkClassifierTrainParamsKNN, refusesAnUnknownVersionAtEachLevel)
{
    const std::string bytes = storeToBytes(fullParams());
    const std::size_t metric = 3 + 4 + 12 + 27;
    const std::size_t costs = metric + 11;
    for (const std::size_t level :
         {std::size_t{0}, std::size_t{1}, std::size_t{2}, metric, metric + 1, metric + 2, costs})
    {
        ASSERT_EQ(bytes.at(level), '\0') << level;
        std::string damaged = bytes;
        damaged[level] = 1;
        tkClassifierTrainParamsKNN params;
        EXPECT_THROW(loadFromBytes(damaged, params), tkArchive::UnknownVersion) << level;
        EXPECT_EQ(params.k(), level < 3 ? 1 : 7) << level;
    }
}

TEST(tkClassifierTrainParamsKNN, refusesToStoreAKOfMoreThan32Bits)
{
    if constexpr (sizeof(long) > 4)
    {
        const tkClassifierTrainParamsKNN params(static_cast<long>(2147483648LL));
        EXPECT_THROW(storeToBytes(params), tkArchive::Errors);
    }
}

TEST(tkClassifierTrainParamsKNN, goldenArchiveComesBackEqualAndStoresToTheSameBytes)
{
    const std::string bytes = goldenBytes("tkClassifierTrainParamsKNN.v0.bin");
    tkPtrHandle<tkClassifierTrainParams> loaded;
    loadFromBytes(bytes, loaded);
    EXPECT_TRUE(golden::paramsKNN() == *loaded);
    EXPECT_EQ(storeToBytes(loaded), bytes);
}
