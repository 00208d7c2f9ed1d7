#include "clss/model/tkDecisionRule.h"

#include "tests/golden/model.h"
#include "tkAllocations.h"
#include "tkTest.h"

#include "clss/clastool/bayes/tkClassifierTrainParamsBayesian.h"
#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/clastool/clastool/tkClassifierTrainParamsKNN.h"

#include <cmath>
#include <limits>

namespace
{
const double infinity = std::numeric_limits<double>::infinity();
const double notANumber = std::numeric_limits<double>::quiet_NaN();

/// Parameters of no known technique.
class OtherParams : public tkClassifierTrainParams
{
public:
    tkPtrHandle<tkClassifierTrainParams> clone() const override { return {}; }

protected:
    bool isSameTechnique_(const tkClassifierTrainParams&) const override { return false; }
    tk_Classifier* newClassifier_() const override { return nullptr; }
};
} // namespace

TEST(tkDecisionRule, refusesNothingAtFirst)
{
    const tkDecisionRule rule;
    EXPECT_TRUE(rule.frequencies() == tkClassifierFrequencies());
    EXPECT_TRUE(rule.costs() == tkClassifierCosts());
    EXPECT_EQ(infinity, rule.refusalCost());
    EXPECT_EQ(0.0, rule.alpha());
}

TEST(tkDecisionRule, takesFrequenciesAndCostsOfTrainingParameters)
{
    const tkClassifierTrainParamsBayesian bayesian(
        tkClassifierDistributionTypes(tkClassifierDistributionTypes::eNormal), golden::frequencies(), golden::costs());
    EXPECT_TRUE(tkDecisionRule(bayesian) == tkDecisionRule(golden::frequencies(), golden::costs()));
    const tkClassifierTrainParamsKNN neighbours(5, golden::costs());
    EXPECT_TRUE(tkDecisionRule(neighbours) == tkDecisionRule(tkClassifierFrequencies(), golden::costs()));
    EXPECT_TRUE(tkDecisionRule(OtherParams()) == tkDecisionRule());
}

TEST(tkDecisionRule, refusalCostIsNotNegative)
{
    tkDecisionRule rule = golden::decisionRule();
    for (const double cost : {-5e-324, -infinity, notANumber})
        EXPECT_TK_THROW(rule.refusalCost(cost), tkClassifierDefs::BadParams, L"The cost of a refusal must be >= 0.0");
    EXPECT_TRUE(rule == golden::decisionRule());
    for (const double cost : {0.0, 7.0, infinity})
    {
        rule.refusalCost(cost);
        EXPECT_EQ(cost, rule.refusalCost());
    }
}

TEST(tkDecisionRule, alphaIsAShare)
{
    tkDecisionRule rule = golden::decisionRule();
    for (const double alpha : {-5e-324, std::nextafter(1.0, 2.0), notANumber})
        EXPECT_TK_THROW(rule.alpha(alpha), tkClassifierDefs::BadParams,
                        L"The share of false alarms must be >= 0.0 and <= 1.0");
    EXPECT_TRUE(rule == golden::decisionRule());
    for (const double alpha : {0.0, 0.05, 1.0})
    {
        rule.alpha(alpha);
        EXPECT_EQ(alpha, rule.alpha());
    }
}

TEST(tkDecisionRule, equalityIsThatOfTheFourValues)
{
    const tkDecisionRule rule = golden::decisionRule();
    std::vector<tkDecisionRule> others(4, rule);
    others[0].frequencies(tkClassifierFrequencies());
    others[1].costs(tkClassifierCosts());
    others[2].refusalCost(0.25);
    others[3].alpha(0.0);
    for (const tkDecisionRule& other : others)
    {
        EXPECT_FALSE(rule == other);
        EXPECT_TRUE(rule != other);
    }
    EXPECT_TRUE(rule == golden::decisionRule());
    EXPECT_FALSE(rule != golden::decisionRule());
}

TEST(tkDecisionRule, settersWithoutMemoryChangeNothing)
{
    tkClassifierFrequencies frequencies;
    tkClassifierCosts costs;
    for (long label = 0; label < 20; ++label)
    {
        frequencies.categoryFrequencyOverride(label, 2.0);
        costs.misclassificationCostOverride(label, label + 1, 2.0);
    }
    expectUnchangedWithoutMemory(golden::decisionRule(), [&](tkDecisionRule& rule) { rule.frequencies(frequencies); });
    expectUnchangedWithoutMemory(golden::decisionRule(), [&](tkDecisionRule& rule) { rule.costs(costs); });
    const tkDecisionRule other(frequencies, costs);
    expectUnchangedWithoutMemory(golden::decisionRule(), [&](tkDecisionRule& rule) { rule = other; });
}

TEST(tkDecisionRule, goldenArchiveComesBackEqualAndStoresToTheSameBytes)
{
    const std::string bytes = goldenBytes("tkDecisionRule.v0.bin");
    tkDecisionRule loaded;
    loadFromBytes(bytes, loaded);
    EXPECT_TRUE(loaded == golden::decisionRule());
    EXPECT_EQ(bytes, storeToBytes(loaded));
    EXPECT_EQ(bytes, storeToBytes(golden::decisionRule()));
}

TEST(tkDecisionRule, otherVersionAndTruncatedRecordsAreRefused)
{
    tkDecisionRule loaded = golden::decisionRule();
    EXPECT_THROW(loadFromBytes("\1", loaded), tkArchive::UnknownVersion);
    EXPECT_TRUE(loaded == golden::decisionRule());
    const std::string bytes = goldenBytes("tkDecisionRule.v0.bin");
    for (std::size_t length = 0; length < bytes.size(); ++length)
        EXPECT_THROW(loadFromBytes(bytes.substr(0, length), loaded), tkArchive::Errors) << length;
}
