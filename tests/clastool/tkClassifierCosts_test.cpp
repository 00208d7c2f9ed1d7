#include "clss/clastool/clastool/tkClassifierCosts.h"

#include "tests/golden/dataModel.h"
#include "tkAllocations.h"
#include "tkTest.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "foundation/tkArchiveOperators.h"
#include "foundation/tkAssert.h"

#include <cmath>
#include <limits>
#include <string>
#include <vector>

namespace
{
const wchar_t costsNotNegative[] = L"Costs must be >= 0.0";
const wchar_t labelsNotNegative[] = L"Category labels must be >= 0";
const wchar_t labelsDifferent[] = L"Category labels must be different";

const double infinity = std::numeric_limits<double>::infinity();
const double notANumber = std::numeric_limits<double>::quiet_NaN();

/// Default 2, (1, 2) costs 20 and (0, 5) nothing.
tkClassifierCosts example()
{
    tkClassifierCosts costs(2.0);
    costs.misclassificationCostOverride(1, 2, 20.0);
    costs.misclassificationCostOverride(0, 5, 0.0);
    return costs;
}

/// The record of example().
const std::string exampleRecord = literalBytes("\0"
                                               "\0\0\0\0\0\0\0\x40"
                                               "\0\2\0\0\0"
                                               "\1\0\0\0\0\0\0\0"
                                               "\0\2\0\0\0"
                                               "\2\0\0\0\5\0\0\0"
                                               "\0\2\0\0\0"
                                               "\0\0\0\0\0\0\x34\x40"
                                               "\0\0\0\0\0\0\0\0");

/// The record of costs with any contents.
std::string recordOf(double defaultCost, std::vector<long> first, std::vector<long> second, std::vector<double> costs)
{
    std::ostringstream stream;
    tkArchive archive(stream);
    archive.exchangeVersion();
    archive || defaultCost || first || second || costs;
    return stream.str();
}
} // namespace

TEST(tkClassifierCosts, everyConfusionCostsOneAtFirst)
{
    const tkClassifierCosts costs;
    EXPECT_EQ(1.0, costs.defaultMisclassificationCost());
    EXPECT_EQ(1.0, costs.misclassificationCost(0, 1));
    EXPECT_EQ(1.0, costs.misclassificationCost(2147483647, 0));
    EXPECT_EQ(0, costs.numMisclassificationOverrides());
}

TEST(tkClassifierCosts, defaultMustNotBeNegative)
{
    EXPECT_EQ(0.0, tkClassifierCosts(0.0).misclassificationCost(1, 2));
    EXPECT_EQ(infinity, tkClassifierCosts(infinity).misclassificationCost(1, 2));
    EXPECT_TRUE(std::isnan(tkClassifierCosts(notANumber).misclassificationCost(1, 2)));
    EXPECT_TK_THROW(tkClassifierCosts(-1e-300), tkClassifierDefs::BadParams, costsNotNegative);

    tkClassifierCosts costs = example();
    for (const double cost : {-1e-300, -5e-324, -1.0, -infinity})
        EXPECT_TK_THROW(costs.defaultMisclassificationCost(cost), tkClassifierDefs::BadParams, costsNotNegative);
    EXPECT_TRUE(costs == example());
    costs.defaultMisclassificationCost(-0.0);
    EXPECT_EQ(0.0, costs.misclassificationCost(3, 4));
    costs.defaultMisclassificationCost(7.5);
    EXPECT_EQ(7.5, costs.defaultMisclassificationCost());
    EXPECT_EQ(7.5, costs.misclassificationCost(3, 4));
    EXPECT_EQ(20.0, costs.misclassificationCost(1, 2));
    costs.defaultMisclassificationCost(notANumber);
    EXPECT_TRUE(std::isnan(costs.misclassificationCost(3, 4)));
}

TEST(tkClassifierCosts, overridesAreDirectional)
{
    const tkClassifierCosts costs = example();
    EXPECT_EQ(20.0, costs.misclassificationCost(1, 2));
    EXPECT_EQ(2.0, costs.misclassificationCost(2, 1));
    EXPECT_EQ(0.0, costs.misclassificationCost(0, 5));
    EXPECT_EQ(2.0, costs.misclassificationCost(5, 0));
    EXPECT_EQ(2.0, costs.misclassificationCost(1, 5));
    EXPECT_EQ(2.0, costs.misclassificationCost(0, 2));
}

TEST(tkClassifierCosts, secondOverrideOfAPairReplacesTheCostInPlace)
{
    tkClassifierCosts costs = example();
    costs.misclassificationCostOverride(1, 2, 3.0);
    costs.misclassificationCostOverride(2, 1, notANumber);
    ASSERT_EQ(3, costs.numMisclassificationOverrides());
    EXPECT_EQ(1, costs.misclassificationOverride(0).first);
    EXPECT_EQ(2, costs.misclassificationOverride(0).second);
    EXPECT_EQ(3.0, costs.misclassificationOverride(0).cost);
    EXPECT_EQ(0, costs.misclassificationOverride(1).first);
    EXPECT_EQ(5, costs.misclassificationOverride(1).second);
    EXPECT_EQ(0.0, costs.misclassificationOverride(1).cost);
    EXPECT_EQ(2, costs.misclassificationOverride(2).first);
    EXPECT_EQ(1, costs.misclassificationOverride(2).second);
    EXPECT_TRUE(std::isnan(costs.misclassificationOverride(2).cost));
    EXPECT_EQ(3.0, costs.misclassificationCost(1, 2));
    EXPECT_TRUE(std::isnan(costs.misclassificationCost(2, 1)));
}

TEST(tkClassifierCosts, listedOverrideMustExist)
{
    const tkClassifierCosts costs = example();
    EXPECT_THROW(costs.misclassificationOverride(-1), tkAssertionFailure);
    EXPECT_THROW(costs.misclassificationOverride(2), tkAssertionFailure);
}

TEST(tkClassifierCosts, overrideChecksCostThenDifferenceThenSigns)
{
    tkClassifierCosts costs = example();
    EXPECT_TK_THROW(costs.misclassificationCostOverride(-1, -1, -5.0), tkClassifierDefs::BadParams, costsNotNegative);
    EXPECT_TK_THROW(costs.misclassificationCostOverride(-1, 2, -5.0), tkClassifierDefs::BadParams, costsNotNegative);
    EXPECT_TK_THROW(costs.misclassificationCostOverride(1, 2, -5e-324), tkClassifierDefs::BadParams, costsNotNegative);
    EXPECT_TK_THROW(costs.misclassificationCostOverride(-1, -1, 5.0), tkClassifierDefs::BadLabel, labelsDifferent);
    EXPECT_TK_THROW(costs.misclassificationCostOverride(3, 3, 5.0), tkClassifierDefs::BadLabel, labelsDifferent);
    EXPECT_TK_THROW(costs.misclassificationCostOverride(-1, 2, 5.0), tkClassifierDefs::BadLabel, labelsNotNegative);
    EXPECT_TK_THROW(costs.misclassificationCostOverride(2, -1, 5.0), tkClassifierDefs::BadLabel, labelsNotNegative);
    EXPECT_TK_THROW(costs.misclassificationCostOverride(-2, -1, 5.0), tkClassifierDefs::BadLabel, labelsNotNegative);
    EXPECT_TRUE(costs == example());
}

TEST(tkClassifierCosts, costIsAskedOfDifferentKnownCategories)
{
    const tkClassifierCosts costs = example();
    EXPECT_TK_THROW(tkClassifierCosts().misclassificationCost(3, 3), tkClassifierDefs::BadLabel, labelsDifferent);
    EXPECT_TK_THROW(costs.misclassificationCost(1, 1), tkClassifierDefs::BadLabel, labelsDifferent);
    EXPECT_TK_THROW(costs.misclassificationCost(-1, -1), tkClassifierDefs::BadLabel, labelsDifferent);
    EXPECT_TK_THROW(costs.misclassificationCost(-1, 1), tkClassifierDefs::BadLabel, labelsNotNegative);
    EXPECT_TK_THROW(costs.misclassificationCost(1, -1), tkClassifierDefs::BadLabel, labelsNotNegative);
    EXPECT_TK_THROW(costs.misclassificationCost(std::numeric_limits<long>::min(), 1), tkClassifierDefs::BadLabel,
                    labelsNotNegative);
}

TEST(tkClassifierCosts, clearingLeavesTheDefault)
{
    tkClassifierCosts costs = example();
    costs.clearMisclassificationOverrides();
    EXPECT_EQ(0, costs.numMisclassificationOverrides());
    EXPECT_EQ(2.0, costs.misclassificationCost(1, 2));
    EXPECT_EQ(2.0, costs.misclassificationCost(0, 5));
    EXPECT_TRUE(costs == tkClassifierCosts(2.0));
}

TEST(tkClassifierCosts, equalityIsExactAndInOrder)
{
    const tkClassifierCosts costs = example();
    EXPECT_TRUE(costs == example());
    EXPECT_FALSE(costs != example());

    std::vector<tkClassifierCosts> others(6, example());
    others[0].defaultMisclassificationCost(std::nextafter(2.0, 3.0));
    others[1].misclassificationCostOverride(1, 2, std::nextafter(20.0, 3.0));
    others[2].misclassificationCostOverride(2, 1, 2.0);
    others[3] = tkClassifierCosts(2.0);
    others[3].misclassificationCostOverride(0, 5, 0.0);
    others[3].misclassificationCostOverride(1, 2, 20.0);
    others[4].clearMisclassificationOverrides();
    others[4].misclassificationCostOverride(1, 2, 20.0);
    others[4].misclassificationCostOverride(1, 5, 0.0);
    others[5].clearMisclassificationOverrides();
    others[5].misclassificationCostOverride(1, 2, 20.0);
    others[5].misclassificationCostOverride(0, 6, 0.0);
    for (const tkClassifierCosts& other : others)
    {
        EXPECT_FALSE(costs == other);
        EXPECT_TRUE(costs != other);
    }
    const tkClassifierCosts withNaN(notANumber);
    EXPECT_FALSE(withNaN == withNaN);
    EXPECT_TRUE(tkClassifierCosts(0.0) == tkClassifierCosts(-0.0));
}

TEST(tkClassifierCosts, copiesAreIndependent)
{
    const tkClassifierCosts original = example();
    tkClassifierCosts copy(original);
    tkClassifierCosts assigned;
    assigned = original;
    EXPECT_TRUE(copy == original);
    EXPECT_TRUE(assigned == original);
    copy.misclassificationCostOverride(1, 2, 1.0);
    assigned.clearMisclassificationOverrides();
    EXPECT_TRUE(original == example());
}

TEST(tkClassifierCosts, settersWithoutMemoryChangeNothing)
{
    expectUnchangedWithoutMemory(example(),
                                 [](tkClassifierCosts& costs) { costs.misclassificationCostOverride(8, 9, 1.0); });
    tkClassifierCosts other(3.0);
    for (long label = 1; label < 50; ++label)
        other.misclassificationCostOverride(0, label, 1.0);
    expectUnchangedWithoutMemory(example(), [&](tkClassifierCosts& costs) { costs = other; });
}

TEST(tkClassifierCosts, recordHasFixedBytesAndComesBackEqual)
{
    EXPECT_EQ(exampleRecord, storeToBytes(example()));
    tkClassifierCosts loaded(9.0);
    for (long label = 1; label < 6; ++label)
        loaded.misclassificationCostOverride(0, label, 1.0);
    loadFromBytes(exampleRecord, loaded);
    EXPECT_TRUE(loaded == example());

    const std::string empty = literalBytes("\0\0\0\0\0\0\0\xf0\x3f") + std::string(5 + 5 + 5, '\0');
    EXPECT_EQ(empty, storeToBytes(tkClassifierCosts()));
    loadFromBytes(empty, loaded);
    EXPECT_TRUE(loaded == tkClassifierCosts());
}

TEST(tkClassifierCosts, goldenArchiveComesBackEqualAndStoresToTheSameBytes)
{
    const std::string bytes = goldenBytes("tkClassifierCosts.v0.bin");
    tkClassifierCosts loaded;
    loadFromBytes(bytes, loaded);
    EXPECT_TRUE(loaded == golden::costs());
    EXPECT_EQ(bytes, storeToBytes(loaded));
    EXPECT_EQ(bytes, storeToBytes(golden::costs()));
}

TEST(tkClassifierCosts, otherVersionIsRefusedBeforeFurtherReading)
{
    tkClassifierCosts loaded = example();
    try
    {
        loadFromBytes("\1", loaded);
        ADD_FAILURE() << "no exception";
    }
    catch (const tkArchive::UnknownVersion& unknown)
    {
        EXPECT_EQ("clss/clastool/clastool", unknown.where());
        EXPECT_EQ(435, unknown.number());
    }
    EXPECT_TRUE(loaded == example());
    for (const std::size_t vectorAt : {9, 22, 35})
    {
        std::string bytes = exampleRecord;
        bytes[vectorAt] = '\1';
        EXPECT_THROW(loadFromBytes(bytes, loaded), tkArchive::UnknownVersion);
    }
}

TEST(tkClassifierCosts, failedLoadingLeavesNoLabelWithoutItsCost)
{
    for (std::size_t length = 0; length < exampleRecord.size(); ++length)
    {
        tkClassifierCosts loaded = golden::costs();
        loaded.misclassificationCostOverride(7, 8, 9.0);
        EXPECT_THROW(loadFromBytes(exampleRecord.substr(0, length), loaded), tkArchive::Errors) << length;
        EXPECT_EQ(length < 9 ? 3 : 0, loaded.numMisclassificationOverrides()) << length;
        EXPECT_EQ(loaded.defaultMisclassificationCost(), loaded.misclassificationCost(8, 7)) << length;
    }
}

TEST(tkClassifierCosts, recordWithVectorsOfUnequalLengthsIsRefused)
{
    for (const std::string& bytes : {recordOf(1.0, {1}, {2}, {}), recordOf(1.0, {1}, {}, {3.0}),
                                     recordOf(1.0, {}, {2}, {3.0}), recordOf(1.0, {}, {}, {3.0})})
    {
        tkClassifierCosts loaded = example();
        EXPECT_TK_THROW(loadFromBytes(bytes, loaded), tkArchive::Errors,
                        L"Cost overrides have not as many labels as costs (reading, at byte " +
                            std::to_wstring(bytes.size()) + L")");
        EXPECT_EQ(0, loaded.numMisclassificationOverrides());
    }
}

TEST(tkClassifierCosts, loadingChecksNoValuesAndTheFirstOverrideOfAPairWins)
{
    const std::string bytes = recordOf(-3.0, {1, 1, -4, 6}, {2, 2, 5, 6}, {10.0, 11.0, -12.0, notANumber});
    tkClassifierCosts loaded;
    loadFromBytes(bytes, loaded);
    EXPECT_EQ(bytes, storeToBytes(loaded));
    EXPECT_EQ(-3.0, loaded.misclassificationCost(2, 1));
    EXPECT_EQ(10.0, loaded.misclassificationCost(1, 2));
    EXPECT_TK_THROW(loaded.misclassificationCost(-4, 5), tkClassifierDefs::BadLabel, labelsNotNegative);
    EXPECT_TK_THROW(loaded.misclassificationCost(6, 6), tkClassifierDefs::BadLabel, labelsDifferent);
    loaded.misclassificationCostOverride(1, 2, 13.0);
    EXPECT_EQ(13.0, loaded.misclassificationCost(1, 2));
    EXPECT_EQ(11.0, loaded.misclassificationOverride(1).cost);
}

TEST(tkClassifierCosts, labelsBeyond32BitsAreNotStored)
{
    if (sizeof(long) > 4)
    {
        tkClassifierCosts costs;
        costs.misclassificationCostOverride(0, std::numeric_limits<long>::max(), 5.0);
        EXPECT_EQ(5.0, costs.misclassificationCost(0, std::numeric_limits<long>::max()));
        EXPECT_THROW(storeToBytes(costs), tkArchive::Errors);
        EXPECT_EQ(1, costs.numMisclassificationOverrides());
    }
}
