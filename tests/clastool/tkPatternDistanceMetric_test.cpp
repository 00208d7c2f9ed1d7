#include "tests/golden/nearestNeighbors.h"
#include "tkTest.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/clastool/clastool/tkFeaturePattern.h"
#include "clss/clastool/clastool/tkPatternDistanceMetric.h"
#include "foundation/tkArchiveOperators.h"
#include "numerics/tkNMElementary.h"

#include <cmath>
#include <limits>

namespace
{
const wchar_t unequalLengths[] =
    L"Pattern distance function requires the number of measurementsin the two patterns to be equal";
const wchar_t invalidMeasurements[] = L"Access to full feature vector requires that all features are valid.";
const wchar_t badOrder[] = L"Order of norm distance must be > 0";

const double infinity = std::numeric_limits<double>::infinity();
const double notANumber = std::numeric_limits<double>::quiet_NaN();

/// A host's metric that says nothing of its own about equivalence.
class ZeroMetric : public tkPatternDistanceMetric
{
public:
    double distance(const tkFeaturePattern&, const tkFeaturePattern&) const override { return 0.0; }
    tkPtrHandle<tkPatternDistanceMetric> clone() const override
    {
        return tkPtrHandle<tkPatternDistanceMetric>(new ZeroMetric(*this));
    }
};

/// A host's variation of the norm.
class HalvedNorm : public tkPatternDistanceMetricNorm
{
public:
    double distance(const tkFeaturePattern& a, const tkFeaturePattern& b) const override
    {
        return tkPatternDistanceMetricNorm::distance(a, b) / 2.0;
    }
};

double norm(double order, const std::vector<double>& a, const std::vector<double>& b)
{
    return tkPatternDistanceMetricNorm(order).distance(tkFeaturePattern(a), tkFeaturePattern(b));
}
} // namespace

TEST(tkPatternDistanceMetric, theBaseFindsAllMetricsEquivalent)
{
    const ZeroMetric metric;
    EXPECT_TRUE(metric.isEquivalent(tkPatternDistanceMetricNorm(3.0)));
}

TEST(tkPatternDistanceMetric, recordOfTheBaseHoldsNoField)
{
    EXPECT_EQ(storeToBytes(ZeroMetric()), std::string(2, '\0'));
}

TEST(tkPatternDistanceMetricNorm, isEuclideanUnlessToldOtherwise)
{
    EXPECT_EQ(tkPatternDistanceMetricNorm().order(), 2.0);
    EXPECT_EQ(norm(2.0, {0.0, 0.0}, {3.0, 4.0}), 5.0);
}

TEST(tkPatternDistanceMetricNorm, givesTheNormOfItsOrder)
{
    EXPECT_EQ(norm(1.0, {0.0, 0.0}, {3.0, 4.0}), 7.0);
    EXPECT_DOUBLE_EQ(norm(0.5, {0.0, 0.0}, {3.0, 4.0}), tkNMElementary::pow(std::sqrt(3.0) + 2.0, 2.0));
    EXPECT_EQ(norm(3.0, {1.0, 1.0, 1.0}, {1.0, 1.0, -1.0}), 2.0);
    EXPECT_EQ(norm(7.5, {-2.0}, {-2.0}), 0.0);
}

TEST(tkPatternDistanceMetricNorm, isTheTransformedSumOfPowersBitForBit)
{
    const std::vector<double> a = {0.1, -7.25, 1e-3, 12345.678, 0.0};
    const std::vector<double> b = {0.7, 3.5, -2e-3, 12345.0, -0.0};
    for (const double order : {1e-300, 0.5, 1.0, 1.5, 2.0, 3.0, 7.5, 400.0, 1e300})
    {
        double sum = 0.0;
        for (std::size_t i = 0; i < a.size(); ++i)
            sum += tkNMElementary::pow(std::fabs(a[i] - b[i]), order);
        const double expected = tkNMElementary::pow(sum, 1.0 / order);
        EXPECT_EQ(norm(order, a, b), expected) << order;
        EXPECT_EQ(norm(order, b, a), expected) << order;
    }
}

TEST(tkPatternDistanceMetricNorm, hasNoMaximumNormAtAnInfiniteOrder)
{
    EXPECT_EQ(norm(infinity, {0.25, 0.0}, {0.0, 0.5}), 1.0);
    EXPECT_EQ(norm(infinity, {3.0}, {0.0}), 1.0);
}

TEST(tkPatternDistanceMetricNorm, emptyPatternsAreAtDistanceZero)
{
    for (const double order : {0.5, 1.0, 2.0, 3.0})
        EXPECT_EQ(norm(order, {}, {}), 0.0);
}

TEST(tkPatternDistanceMetricNorm, takesNaNAndInfiniteMeasurementsAsTheyCome)
{
    EXPECT_TRUE(std::isnan(norm(2.0, {notANumber, 1.0}, {0.0, 1.0})));
    EXPECT_EQ(norm(2.0, {infinity, 1.0}, {0.0, 1.0}), infinity);
    EXPECT_TRUE(std::isnan(norm(2.0, {infinity}, {infinity}))) << "infinity minus infinity";
    EXPECT_EQ(norm(2.0, {1e200}, {0.0}), infinity) << "the square overflows";
}

TEST(tkPatternDistanceMetricNorm, refusesPatternsOfUnequalLength)
{
    const tkPatternDistanceMetricNorm metric;
    EXPECT_TK_THROW(metric.distance(tkFeaturePattern({1, 2, 3}), tkFeaturePattern({1, 2, 3, 4})),
                    tkClassifierDefs::BadFeatures, unequalLengths);
    EXPECT_TK_THROW(metric.distance(tkFeaturePattern(), tkFeaturePattern({1})), tkClassifierDefs::BadFeatures,
                    unequalLengths);
}

TEST(tkPatternDistanceMetricNorm, refusesUnequalLengthsBeforeInvalidMeasurements)
{
    const tkPatternDistanceMetricNorm metric;
    EXPECT_TK_THROW(metric.distance(tkFeaturePattern({1, 2}, {0}), tkFeaturePattern({1}, {0})),
                    tkClassifierDefs::BadFeatures, unequalLengths);
}

TEST(tkPatternDistanceMetricNorm, refusesAnInvalidMeasurementInEitherPattern)
{
    const tkPatternDistanceMetricNorm metric;
    const tkFeaturePattern valid({1, 2});
    const tkFeaturePattern invalid({1, 2}, {1});
    EXPECT_TK_THROW(metric.distance(invalid, valid), tkClassifierDefs::BadFeatures, invalidMeasurements);
    EXPECT_TK_THROW(metric.distance(valid, invalid), tkClassifierDefs::BadFeatures, invalidMeasurements);
    EXPECT_TK_THROW(metric.distance(invalid, invalid), tkClassifierDefs::BadFeatures, invalidMeasurements);
}

TEST(tkPatternDistanceMetricNorm, refusesAnOrderThatIsNotPositiveAndKeepsTheOldOne)
{
    tkPatternDistanceMetricNorm metric(3.0);
    for (const double order : {0.0, -0.0, -1.0, -infinity, notANumber})
    {
        EXPECT_TK_THROW(metric.order(order), tkClassifierDefs::BadParams, badOrder);
        EXPECT_EQ(metric.order(), 3.0);
        EXPECT_TK_THROW(tkPatternDistanceMetricNorm{order}, tkClassifierDefs::BadParams, badOrder);
    }
}

TEST(tkPatternDistanceMetricNorm, acceptsEveryPositiveOrder)
{
    tkPatternDistanceMetricNorm metric;
    for (const double order : {1e-300, std::numeric_limits<double>::denorm_min(), 1.0, 1e300, infinity})
    {
        metric.order(order);
        EXPECT_EQ(metric.order(), order);
        EXPECT_EQ(tkPatternDistanceMetricNorm(order).order(), order);
    }
}

TEST(tkPatternDistanceMetricNorm, clonesAndCopiesAreIndependentAndEqual)
{
    tkPatternDistanceMetricNorm metric(3.0);
    const tkPtrHandle<tkPatternDistanceMetric> clone = metric.clone();
    const tkPatternDistanceMetricNorm copy(metric);
    tkPatternDistanceMetricNorm assigned;
    assigned = metric;
    EXPECT_TRUE(copy == metric);
    EXPECT_TRUE(assigned == metric);
    EXPECT_TRUE(metric.isEquivalent(*clone));
    EXPECT_NE(clone.get(), &metric);
    EXPECT_EQ(clone->referenceCount(), 1);

    metric.order(4.0);
    EXPECT_EQ(copy.order(), 3.0);
    EXPECT_EQ(assigned.order(), 3.0);
    EXPECT_FALSE(metric.isEquivalent(*clone));
    EXPECT_TRUE(copy != metric);
}

TEST(tkPatternDistanceMetricNorm, equivalentMetricsAreOfOneClassAndOrder)
{
    EXPECT_TRUE(tkPatternDistanceMetricNorm(2.0).isEquivalent(tkPatternDistanceMetricNorm(2.0)));
    EXPECT_FALSE(tkPatternDistanceMetricNorm(2.0).isEquivalent(tkPatternDistanceMetricNorm(3.0)));
    EXPECT_FALSE(tkPatternDistanceMetricNorm(3.0).isEquivalent(tkPatternDistanceMetricNorm(2.0)));
    EXPECT_FALSE(tkPatternDistanceMetricNorm(2.0).isEquivalent(ZeroMetric()));
    EXPECT_FALSE(tkPatternDistanceMetricNorm(2.0).isEquivalent(HalvedNorm()));
    EXPECT_FALSE(HalvedNorm().isEquivalent(tkPatternDistanceMetricNorm(2.0)));
    EXPECT_TRUE(HalvedNorm().isEquivalent(HalvedNorm()));
}

TEST(tkPatternDistanceMetricNorm, recordIsTwoBaseRecordsThenTheOrder)
{
    EXPECT_EQ(storeToBytes(tkPatternDistanceMetricNorm(1.0)), std::string("\0\0\0\0\0\0\0\0\0\xF0\x3F", 11));
}

TEST(tkPatternDistanceMetricNorm, roundTripsThroughAHandleToTheBase)
{
    const tkPtrHandle<tkPatternDistanceMetric> stored(new tkPatternDistanceMetricNorm(0.125));
    tkPtrHandle<tkPatternDistanceMetric> loaded;
    loadFromBytes(storeToBytes(stored), loaded);
    EXPECT_TRUE(stored->isEquivalent(*loaded));
    EXPECT_EQ(dynamic_cast<const tkPatternDistanceMetricNorm&>(*loaded).order(), 0.125);
}

TEST(tkPatternDistanceMetricNorm, loadsAnOrderUnchecked)
{
    std::string bytes = storeToBytes(tkPatternDistanceMetricNorm(1.0));
    bytes.back() = '\xBF'; // -1.0
    tkPatternDistanceMetricNorm metric;
    loadFromBytes(bytes, metric);
    EXPECT_EQ(metric.order(), -1.0);
}

TEST(tkPatternDistanceMetricNorm, refusesAnUnknownVersionAtEachLevel)
{
    const std::string bytes = storeToBytes(tkPatternDistanceMetricNorm(5.0));
    for (std::size_t level = 0; level < 3; ++level)
    {
        std::string damaged = bytes;
        damaged[level] = 1;
        tkPatternDistanceMetricNorm metric(3.0);
        EXPECT_THROW(loadFromBytes(damaged, metric), tkArchive::UnknownVersion) << level;
        EXPECT_EQ(metric.order(), 3.0) << level;
    }
}

TEST(tkPatternDistanceMetricNorm, goldenArchiveComesBackEqualAndStoresToTheSameBytes)
{
    const std::string bytes = goldenBytes("tkPatternDistanceMetricNorm.v0.bin");
    tkPtrHandle<tkPatternDistanceMetric> loaded;
    loadFromBytes(bytes, loaded);
    EXPECT_TRUE(golden::metric().isEquivalent(*loaded));
    EXPECT_EQ(storeToBytes(loaded), bytes);
}
