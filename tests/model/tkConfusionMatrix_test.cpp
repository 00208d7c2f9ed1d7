#include "clss/model/tkConfusionMatrix.h"

#include "modelTestData.h"
#include "tests/golden/model.h"
#include "tkAllocations.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/model/tkDecisionRule.h"
#include "foundation/tkArchiveOperators.h"
#include "foundation/tkAssert.h"

#include <limits>

namespace
{
constexpr long noneOfThese = tkDecisionRule::noneOfThese;
constexpr long cannotTell = tkDecisionRule::cannotTell;

/// Five patterns of category 3, four of category 8; one taken for a category 5 that no pattern has.
tkConfusionMatrix example()
{
    return {{3, 3, 3, 3, 3, 8, 8, 8, 8}, {3, 3, 8, noneOfThese, 3, 8, cannotTell, 5, cannotTell}};
}
} // namespace

TEST(tkConfusionMatrix, countsPairsOfTruthAndDecision)
{
    const tkConfusionMatrix matrix = example();
    EXPECT_EQ((std::vector<long>{3, 5, 8}), matrix.categories());
    EXPECT_EQ(9, matrix.numPatterns());
    const std::vector<long> decisions = {3, 5, 8, noneOfThese, cannotTell};
    const std::map<long, std::vector<long>> rows = {{3, {3, 0, 1, 1, 0}}, {5, {0, 0, 0, 0, 0}}, {8, {0, 1, 1, 0, 2}}};
    for (const auto& [truth, counts] : rows)
        for (std::size_t d = 0; d < decisions.size(); ++d)
            EXPECT_EQ(counts[d], matrix.count(truth, decisions[d])) << truth << " " << decisions[d];
    EXPECT_EQ(5, matrix.numTrue(3));
    EXPECT_EQ(0, matrix.numTrue(5));
    EXPECT_EQ(3, matrix.numDecided(3));
    EXPECT_EQ(1, matrix.numDecided(5));
    EXPECT_EQ(2, matrix.numDecided(8));
    EXPECT_EQ(1, matrix.numDecided(noneOfThese));
    EXPECT_EQ(2, matrix.numDecided(cannotTell));
}

TEST(tkConfusionMatrix, labelsThatNeverOccurredHaveNoCounts)
{
    const tkConfusionMatrix matrix = example();
    EXPECT_EQ(0, matrix.count(4, 3));
    EXPECT_EQ(0, matrix.count(3, 4));
    EXPECT_EQ(0, matrix.count(noneOfThese, 3));
    EXPECT_EQ(0, matrix.count(3, -7));
    EXPECT_EQ(0, matrix.numTrue(9));
    EXPECT_EQ(0, matrix.numDecided(9));
}

TEST(tkConfusionMatrix, rates)
{
    const tkConfusionMatrix matrix = example();
    EXPECT_EQ(0.6, matrix.recall(3).value);
    EXPECT_EQ(0.25, matrix.recall(8).value);
    EXPECT_EQ(1.0, matrix.precision(3).value);
    EXPECT_EQ(0.5, matrix.precision(8).value);
    EXPECT_EQ(0.0, matrix.precision(5).value);
    EXPECT_EQ(4, matrix.accuracy().hits);
    EXPECT_EQ(9, matrix.accuracy().total);
}

TEST(tkConfusionMatrix, expectedCostWeighsCategoriesByTheRulesFrequencies)
{
    tkClassifierFrequencies frequencies(3.0);
    frequencies.categoryFrequencyOverride(8, 1.0);
    frequencies.categoryFrequencyOverride(5, 100.0); // of no pattern: does not count
    tkClassifierCosts costs(1.0);
    costs.misclassificationCostOverride(3, 8, 10.0);
    tkDecisionRule rule(frequencies, costs);
    rule.refusalCost(0.5);
    // Category 3: one for 8, one refused; category 8: one for 5, two refused.
    EXPECT_DOUBLE_EQ(0.75 * (10.5 / 5.0) + 0.25 * (2.0 / 4.0), example().expectedCost(rule));
}

TEST(tkConfusionMatrix, refusalsThatDidNotOccurCostNothingEvenIfTheyCostInfinitelyMuch)
{
    const tkDecisionRule rule;
    EXPECT_EQ(0.25, tkConfusionMatrix({0, 0, 1}, {0, 1, 1}).expectedCost(rule));
    EXPECT_EQ(std::numeric_limits<double>::infinity(), example().expectedCost(rule));
}

TEST(tkConfusionMatrix, withoutPatternsThereAreNoCosts)
{
    const tkConfusionMatrix matrix({}, {});
    EXPECT_TRUE(matrix.categories().empty());
    EXPECT_EQ(0, matrix.numPatterns());
    EXPECT_EQ(0.0, matrix.expectedCost(tkDecisionRule()));
    EXPECT_EQ(0.0, matrix.accuracy().value);
    EXPECT_EQ(1.0, matrix.accuracy().high);
}

TEST(tkConfusionMatrix, needsADecisionForEachPattern)
{
    EXPECT_THROW(tkConfusionMatrix({1}, {}), tkAssertionFailure);
}

TEST(tkConfusionMatrix, equalityIsThatOfTheCounts)
{
    EXPECT_TRUE(example() == example());
    EXPECT_FALSE(example() != example());
    EXPECT_TRUE(tkConfusionMatrix({1, 2}, {1, 1}) == tkConfusionMatrix({2, 1}, {1, 1}));
    EXPECT_TRUE(tkConfusionMatrix({1, 2}, {1, 1}) != tkConfusionMatrix({1, 2}, {2, 1}));
    EXPECT_TRUE(tkConfusionMatrix({1}, {1}) != tkConfusionMatrix({2}, {2}));
}

TEST(tkConfusionMatrix, newOneHasNoPatterns)
{
    const tkConfusionMatrix matrix;
    EXPECT_EQ(0, matrix.numPatterns());
    EXPECT_TRUE(matrix.categories().empty());
    EXPECT_EQ(0, matrix.count(noneOfThese, cannotTell));
    EXPECT_TRUE(matrix == tkConfusionMatrix({}, {}));
}

TEST(tkConfusionMatrix, assigningWithoutMemoryChangesNothing)
{
    const tkConfusionMatrix other = example();
    expectUnchangedWithoutMemory(golden::confusionMatrix(), [&](tkConfusionMatrix& matrix) { matrix = other; });
    EXPECT_TRUE(other == example());
}

TEST(tkConfusionMatrix, goldenArchiveComesBackEqualAndStoresToTheSameBytes)
{
    const std::string bytes = goldenBytes("tkConfusionMatrix.v0.bin");
    tkConfusionMatrix loaded = example();
    loadFromBytes(bytes, loaded);
    EXPECT_TRUE(loaded == golden::confusionMatrix());
    EXPECT_EQ(5, loaded.numPatterns());
    EXPECT_EQ(0.4, loaded.accuracy().value);
    EXPECT_EQ(bytes, storeToBytes(loaded));
    EXPECT_EQ(bytes, storeToBytes(golden::confusionMatrix()));
}

TEST(tkConfusionMatrix, failedLoadingChangesNothing)
{
    tkConfusionMatrix loaded = example();
    EXPECT_THROW(loadFromBytes("\1", loaded), tkArchive::UnknownVersion);
    const std::string bytes = goldenBytes("tkConfusionMatrix.v0.bin");
    for (std::size_t length = 1; length < bytes.size(); ++length)
        EXPECT_THROW(loadFromBytes(bytes.substr(0, length), loaded), tkArchive::Errors) << length;
    EXPECT_TRUE(loaded == example());
}

TEST(tkConfusionMatrix, recordsThatAreNoneAreRefused)
{
    const auto expectRefused = [](std::vector<long> categories, std::vector<long> counts, const wchar_t* message)
    {
        std::ostringstream stream;
        {
            tkArchive archive(stream);
            archive.exchangeVersion();
            archive || categories || counts;
        }
        tkConfusionMatrix loaded = example();
        try
        {
            loadFromBytes(stream.str(), loaded);
            ADD_FAILURE() << "was loaded";
        }
        catch (const tkArchive::Errors& error)
        {
            EXPECT_EQ(0u, error.message().find(std::wstring(message) + L" (reading, at byte "));
        }
        EXPECT_TRUE(loaded == example());
    };
    const wchar_t* const order = L"The categories of a confusion matrix do not ascend from 0 on";
    expectRefused({4, 4}, std::vector<long>(8), order);
    expectRefused({5, 4}, std::vector<long>(8), order);
    expectRefused({-1}, std::vector<long>(3), order);
    const wchar_t* const size = L"A confusion matrix has not the counts of its categories";
    expectRefused({4}, {1, 2}, size);
    expectRefused({}, {1}, size);
    const wchar_t* const counts = L"A confusion matrix has negative counts, or too many patterns";
    expectRefused({4}, {1, -1, 0}, counts);
    expectRefused({4}, {0x7fffffff, 0, 1}, counts);
}

TEST(tkRate, intervalsAreThoseOfSciPy)
{
    int compared = 0;
    for (const Line& line : linesOf("assessment.csv"))
    {
        if (line.word != "wilson")
            continue;
        ++compared;
        const tkRate rate(static_cast<long>(line.numbers[0]), static_cast<long>(line.numbers[1]));
        EXPECT_EQ(line.numbers[0] / line.numbers[1], rate.value);
        EXPECT_NEAR(line.numbers[2], rate.low, 1e-12);
        EXPECT_NEAR(line.numbers[3], rate.high, 1e-12);
    }
    EXPECT_EQ(5, compared);
}

TEST(tkRate, ofNothingIsUnknown)
{
    const tkRate rate(0, 0);
    EXPECT_EQ(0.0, rate.value);
    EXPECT_EQ(0.0, rate.low);
    EXPECT_EQ(1.0, rate.high);
}

TEST(tkRate, withoutDeviationsTheIntervalIsTheRate)
{
    const tkRate rate(1, 4, 0.0);
    EXPECT_EQ(0.25, rate.low);
    EXPECT_EQ(0.25, rate.high);
}

TEST(tkRate, hitsLieBetweenZeroAndTheTotal)
{
    EXPECT_THROW(tkRate(1, 2, std::numeric_limits<double>::infinity()), tkAssertionFailure);
    EXPECT_THROW(tkRate(-1, 4), tkAssertionFailure);
    EXPECT_THROW(tkRate(5, 4), tkAssertionFailure);
    EXPECT_THROW(tkRate(1, 4, -1.0), tkAssertionFailure);
}
