#include "clss/clastool/clastool/tkClassifierRuleTable.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "foundation/tkArchiveOperators.h"
#include "numerics/tkNMElementary.h"
#include "tests/golden/ruleTable.h"
#include "tkAllocations.h"
#include "tkTest.h"

#include <cmath>
#include <limits>
#include <random>

namespace
{
using BadParams = tkClassifierDefs::BadParams;
using Functions = std::vector<tkPtrHandle<tkClsFtSc>>;

constexpr double quietNaN = std::numeric_limits<double>::quiet_NaN();

/// A function that scores whatever it is told to, and counts how often it is asked.
class Constant : public tkClsFtSc
{
public:
    explicit Constant(double score, int* calls = nullptr) : score_(score), calls_(calls) {}
    double score(double) const override
    {
        if (calls_)
            ++*calls_;
        return score_;
    }
    tkPtrHandle<tkClsFtSc> clone() const override { return tkPtrHandle<tkClsFtSc>(new Constant(*this)); }
    bool operator==(const tkClsFtSc& other) const override
    {
        const auto* const constant = dynamic_cast<const Constant*>(&other);
        return constant && constant->score_ == score_;
    }

private:
    double score_;
    int* calls_;
};

Functions constants(const std::vector<double>& scores)
{
    Functions functions;
    for (const double score : scores)
        functions.emplace_back(new Constant(score));
    return functions;
}

tkClassifierRule rule(const Functions& functions, long label)
{
    tkClassifierRule r;
    r.init(functions, label);
    return r;
}

/// A rule whose functions score these constants.
tkClassifierRule scoring(const std::vector<double>& scores, long label)
{
    return rule(constants(scores), label);
}

tkClassifierRuleTable table(const std::vector<tkClassifierRule>& rules)
{
    tkClassifierRuleTable t;
    t.train(rules);
    return t;
}

tkClassifierFeatureVector values(std::size_t count)
{
    return tkClassifierFeatureVector(std::vector<double>(count, 0.5));
}

double scoreOf(const std::vector<double>& scores)
{
    return scoring(scores, 0).score(values(scores.size()));
}
} // namespace

TEST(tkClassifierFeatureVector, copiesItsValues)
{
    std::vector<double> source = {1.0, 2.0};
    const tkClassifierFeatureVector v(source);
    source[0] = 9.0;
    EXPECT_EQ((std::vector<double>{1.0, 2.0}), v.featureValues());
    EXPECT_EQ((std::vector<double>{1.0, 2.0}), tkClassifierFeatureVector(v).featureValues());
}

TEST(tkClassifierRule, defaultHasNoMethodsAndLabelZero)
{
    const tkClassifierRule r;
    EXPECT_TRUE(r.scoringMethods().empty());
    EXPECT_EQ(0, r.label());
}

TEST(tkClassifierRule, initChecksLabelThenMethodsAndChangesNothingOnFailure)
{
    tkClassifierRule r = scoring({0.5}, 3);
    const tkClassifierRule before(r);
    EXPECT_TK_THROW(r.init({}, -1), BadParams, L"label < 0");
    EXPECT_TK_THROW(r.init(constants({1.0}), -1), BadParams, L"label < 0");
    EXPECT_TK_THROW(r.init({}, 0), BadParams, L"scoringMethods.size() == 0");
    EXPECT_TRUE(r == before);
}

TEST(tkClassifierRule, initThatRunsOutOfMemoryChangesNothing)
{
    const Functions functions = constants({0.25, 0.5, 0.75});
    expectUnchangedWithoutMemory(scoring({0.5}, 3), [&](tkClassifierRule& r) { r.init(functions, 4); });
}

TEST(tkClassifierRule, takesItsOwnFunctionsUnderAnotherLabel)
{
    tkClassifierRule r = scoring({0.25, 0.5}, 3);
    r.init(r.scoringMethods(), 4);
    EXPECT_TRUE(r == scoring({0.25, 0.5}, 4));
}

TEST(tkClassifierRule, sharesItsFunctionsWithTheCallerAndWithCopies)
{
    const Functions functions = constants({0.5, 1.0});
    const tkClassifierRule r = rule(functions, 1);
    const tkClassifierRule copy(r);
    EXPECT_TRUE(r.scoringMethods()[1] == functions[1]);
    EXPECT_TRUE(copy.scoringMethods()[1] == functions[1]);
}

TEST(tkClassifierRule, scoreIsTheGeometricMeanOfWhatIsNotIgnored)
{
    EXPECT_EQ(0.5, scoreOf({0.25, 1.0}));
    EXPECT_EQ(0.25, scoreOf({0.25, -1.0}));
    EXPECT_EQ(0.0, scoreOf({0.0, 1.0}));
    EXPECT_EQ(0.25, scoreOf({quietNaN, 0.25}));
    EXPECT_EQ(1.0, scoreOf({-1.0, -1.0}));
    EXPECT_EQ(1.0, scoreOf({quietNaN}));
    EXPECT_EQ(-0.5, scoreOf({-0.5, 1.0})); // no mean of what is not positive
    EXPECT_EQ(1.0, rule(Functions(3, tkClassifierFeatureScoreIgnore().clone()), 0).score(values(3)));
}

TEST(tkClassifierRule, scoreChecksSizesBeforeEmptiness)
{
    EXPECT_TK_THROW(scoring({0.5, 0.5}, 0).score(values(3)), BadParams, L"MismatchedFeatureVectorSize");
    EXPECT_TK_THROW(scoring({0.5, 0.5}, 0).score(values(0)), BadParams, L"MismatchedFeatureVectorSize");
    EXPECT_TK_THROW(tkClassifierRule().score(values(1)), BadParams, L"MismatchedFeatureVectorSize");
    EXPECT_TK_THROW(tkClassifierRule().score(values(0)), BadParams, L"featureVector.featureValues().size() == 0");
}

TEST(tkClassifierRule, nullFunctionIsABadPointerWhenItScoresAndWhenItIsCompared)
{
    const tkClassifierRule r = rule(Functions(1), 0);
    EXPECT_THROW(r.score(values(1)), tkBadPointer);
    EXPECT_THROW(table({r}).classifyHardThreshold(values(1), 0.5), tkBadPointer);
    EXPECT_THROW(static_cast<void>(r == scoring({0.5}, 0)), tkBadPointer);
}

TEST(tkClassifierRule, aFunctionsOwnFailurePassesThrough)
{
    tkClassifierFeatureScoreOneSided f;
    f.x1(2.0);
    const tkClassifierRule r = rule({f.clone()}, 0);
    EXPECT_TK_THROW(r.score(values(1)), BadParams, L"x1 must lie between x0 and xc");
    EXPECT_TK_THROW(table({r}).classifyHardThreshold(values(1), 0.5), BadParams, L"x1 must lie between x0 and xc");
}

TEST(tkClassifierRule, equalityComparesFunctionsByValueAndLabel)
{
    EXPECT_TRUE(scoring({0.5, 1.0}, 2) == scoring({0.5, 1.0}, 2));
    EXPECT_FALSE(scoring({0.5, 1.0}, 2) == scoring({0.5, 1.0}, 3));
    EXPECT_FALSE(scoring({0.5, 1.0}, 2) == scoring({1.0, 0.5}, 2));
    EXPECT_FALSE(scoring({0.5, 1.0}, 2) == scoring({0.5}, 2));
    EXPECT_FALSE(scoring({0.5}, 2) == scoring({0.5, 1.0}, 2));
    EXPECT_TRUE(scoring({0.5}, 2) != scoring({0.5, 1.0}, 2));
}

TEST(tkClassifierRuleTable, trainChecksAndKeepsTheOldRulesOnFailure)
{
    tkClassifierRuleTable t = table({scoring({0.5}, 1)});
    const tkClassifierRuleTable before(t);
    EXPECT_TK_THROW(t.train({}), BadParams, L"rules.size() == 0");
    EXPECT_TK_THROW(t.train({scoring({1, 1, 1}, 0), scoring({1, 1, 1}, 1), scoring({1, 1}, 2)}), BadParams,
                    L"rules[i].scoringMethods().size() != ruleSize");
    EXPECT_TRUE(t == before);
    t.train({scoring({1, 1}, 7)});
    EXPECT_EQ(7, t.rules().at(0).label());
}

TEST(tkClassifierRuleTable, trainThatRunsOutOfMemoryKeepsTheOldRules)
{
    const std::vector<tkClassifierRule> rules = {scoring({0.25, 0.5}, 4), scoring({0.75, 1.0}, 5)};
    expectUnchangedWithoutMemory(table({scoring({0.5}, 1), scoring({0.25}, 2), scoring({1.0}, 3)}),
                                 [&](tkClassifierRuleTable& t) { t.train(rules); });
}

TEST(tkClassifierRuleTable, assignmentThatRunsOutOfMemoryChangesNothing)
{
    const tkClassifierRuleTable other = table({scoring({0.25, 0.5}, 4), scoring({0.75, 1.0}, 5)});
    expectUnchangedWithoutMemory(table({scoring({0.5}, 1), scoring({0.25}, 2), scoring({1.0}, 3)}),
                                 [&](tkClassifierRuleTable& t) { t = other; });
    tkClassifierRuleTable t(other);
    t = tkClassifierRuleTable(); // the way to clear a table
    EXPECT_TRUE(t.rules().empty());
}

TEST(tkClassifierRuleTable, trainsWithItsOwnRulesAndSharesTheirFunctions)
{
    tkClassifierRuleTable t = table({scoring({0.5}, 1), scoring({0.25}, 2)});
    const tkClassifierRuleTable before(t);
    t.train(t.rules());
    EXPECT_TRUE(t == before);
    EXPECT_TRUE(t.rules()[1].scoringMethods()[0] == before.rules()[1].scoringMethods()[0]);
}

TEST(tkClassifierRuleTable, rulesWithoutMethodsAreStoredAndFailWhenTheyClassify)
{
    const tkClassifierRuleTable t = table({tkClassifierRule(), tkClassifierRule()});
    EXPECT_EQ(2u, t.rules().size());
    EXPECT_TK_THROW(t.classifyHardThreshold(values(0), 0.5), BadParams, L"featureVector.featureValues().size() == 0");
    EXPECT_TK_THROW(t.classifyHardThreshold(values(1), 0.5), BadParams,
                    L"featureVector.featureValues().size() != rules_[0].scoringMethods().size())");
}

TEST(tkClassifierRuleTable, scoringAndClassifyingAllocateNothing)
{
    const tkClassifierRuleTable t = golden::ruleTable();
    const tkClassifierFeatureVector v = golden::featureVector();
    const tkAllocations allocations;
    double sum = 0.0;
    for (const tkClassifierRule& r : t.rules())
        sum += r.score(v);
    const long label = t.classifyHardThreshold(v, 0.999);
    EXPECT_EQ(0u, allocations.count());
    EXPECT_TRUE(std::isfinite(sum));
    EXPECT_EQ(-1, label); // all rules were scored
}

TEST(tkClassifierRuleTable, classifyChecksInOrder)
{
    const tkClassifierRuleTable untrained;
    const tkClassifierRuleTable t = table({scoring({0.5, 0.5}, 1)});
    constexpr wchar_t threshold[] = L"hardThreshold < 0 || hardThreshold > 1";
    for (const double bad : {2.0, -0.1, quietNaN})
    {
        EXPECT_TK_THROW(untrained.classifyHardThreshold(values(0), bad), BadParams, threshold);
        EXPECT_TK_THROW(t.classifyHardThreshold(values(2), bad), BadParams, threshold);
    }
    EXPECT_TK_THROW(untrained.classifyHardThreshold(values(0), 0.5), tkClassifierDefs::NotTrained,
                    L"the rule table needs to be trained before it can classify");
    EXPECT_TK_THROW(t.classifyHardThreshold(values(0), 0.5), BadParams, L"featureVector.featureValues().size() == 0");
    EXPECT_TK_THROW(t.classifyHardThreshold(values(3), 0.5), BadParams,
                    L"featureVector.featureValues().size() != rules_[0].scoringMethods().size())");
}

TEST(tkClassifierRuleTable, firstRuleAboveTheThresholdWinsAndLaterOnesAreNotScored)
{
    int calls = 0;
    const Functions counted = {tkPtrHandle<tkClsFtSc>(new Constant(1.0, &calls))};
    const tkClassifierRuleTable t = table({scoring({0.3}, 1), scoring({0.6}, 2), rule(counted, 3)});
    EXPECT_EQ(2, t.classifyHardThreshold(values(1), 0.5));
    EXPECT_EQ(0, calls);
    EXPECT_EQ(3, t.classifyHardThreshold(values(1), 0.75));
    EXPECT_EQ(1, calls);
    EXPECT_EQ(1, t.classifyHardThreshold(values(1), 0.0));
}

TEST(tkClassifierRuleTable, aScoreEqualToTheThresholdDoesNotPass)
{
    const tkClassifierRuleTable t = table({scoring({0.25, 1.0}, 4)}); // scores 0.5
    EXPECT_EQ(-1, t.classifyHardThreshold(values(2), 0.5));
    EXPECT_EQ(4, t.classifyHardThreshold(values(2), std::nextafter(0.5, 0.0)));
}

TEST(tkClassifierRuleTable, extremeThresholds)
{
    const tkClassifierRuleTable t = table({scoring({0.0}, 1), scoring({1e-300}, 2), scoring({1.0}, 3)});
    EXPECT_EQ(-1, t.classifyHardThreshold(values(1), 1.0));
    EXPECT_EQ(2, t.classifyHardThreshold(values(1), 0.0));
    const tkClassifierRuleTable ignoring = table({scoring({-1.0}, 5)});
    EXPECT_EQ(5, ignoring.classifyHardThreshold(values(1), std::nextafter(1.0, 0.0)));
    EXPECT_EQ(-1, ignoring.classifyHardThreshold(values(1), 1.0));
}

TEST(tkClassifierRuleTable, negativeProductsPassNothingAndNanDegreesAreLeftOut)
{
    // A negative product has no mean and passes nothing; a NaN degree is left out.
    EXPECT_EQ(-1, table({scoring({-0.5, 0.5}, 1)}).classifyHardThreshold(values(2), 0.0));
    EXPECT_EQ(1, table({scoring({quietNaN, 0.5}, 1)}).classifyHardThreshold(values(2), 0.4));
}

TEST(tkClassifierRuleTable, classifiesAsTheDefinitionOnRandomTables)
{
    std::mt19937 random(11);
    const std::vector<double> degrees = {0.0, 0.1, 0.25, 0.5, 0.9, 1.0, -1.0, quietNaN};
    for (int round = 0; round < 2000; ++round)
    {
        const std::size_t features = 1 + random() % 5;
        std::vector<tkClassifierRule> rules;
        std::vector<double> scores;
        for (std::size_t r = 0; r < 1 + random() % 6; ++r)
        {
            std::vector<double> of(features);
            double product = 1.0;
            int used = 0;
            for (double& degree : of)
            {
                degree = degrees[random() % degrees.size()];
                if (degree == -1.0 || std::isnan(degree))
                    continue;
                product = product * degree;
                used = used + 1;
            }
            scores.push_back(product > 0.0 ? tkNMElementary::pow(product, 1.0 / used) : product);
            rules.push_back(scoring(of, static_cast<long>(r)));
        }
        const double threshold = 0.1 * static_cast<double>(random() % 11);
        long expected = -1;
        for (std::size_t r = 0; r < rules.size() && expected == -1; ++r)
        {
            EXPECT_EQ(scores[r], rules[r].score(values(features)));
            if (scores[r] > threshold)
                expected = static_cast<long>(r);
        }
        EXPECT_EQ(expected, table(rules).classifyHardThreshold(values(features), threshold));
    }
}

TEST(tkClassifierRuleTable, equalityDependsOnTheOrderOfTheRules)
{
    EXPECT_TRUE(table({scoring({0.5}, 1), scoring({1.0}, 2)}) == table({scoring({0.5}, 1), scoring({1.0}, 2)}));
    EXPECT_TRUE(table({scoring({0.5}, 1), scoring({1.0}, 2)}) != table({scoring({1.0}, 2), scoring({0.5}, 1)}));
    EXPECT_FALSE(table({scoring({0.5}, 1)}) == tkClassifierRuleTable());
    EXPECT_TRUE(tkClassifierRuleTable() == tkClassifierRuleTable());
}

TEST(tkClassifierRuleTable, recordsComeBackEqualAndCarryOnlyTheVersionBytesOfTheirVectors)
{
    tkClassifierFeatureScoreTwoSided trapezoid;
    trapezoid.init(1, 0, -1, 2, 3, 4, 0.9, 0.5, 0.8, 0.25);
    const tkClassifierRuleTable stored =
        table({rule({trapezoid.clone(), tkClassifierFeatureScoreIgnore().clone()}, 7),
               rule({tkClassifierFeatureScoreOneSided().clone(), trapezoid.clone()}, 2)});
    tkClassifierRuleTable loaded;
    loadFromBytes(storeToBytes(stored), loaded);
    EXPECT_TRUE(loaded == stored);

    EXPECT_EQ(std::string("\0\0\0\0\0", 5), storeToBytes(tkClassifierRuleTable()));
    // Vector of one handle (tag 0x1632), then the label 7.
    EXPECT_EQ(std::string("\0\x01\0\0\0\x32\x16\0\0\x07\0\0\0", 13),
              storeToBytes(rule({tkClassifierFeatureScoreIgnore().clone()}, 7)));
    EXPECT_EQ(std::string("\0\x01\0\0\0\0\0\0\0\0\0\xE0\x3F", 13), storeToBytes(values(1)));
    tkClassifierFeatureVector vector;
    loadFromBytes(storeToBytes(values(3)), vector);
    EXPECT_EQ(values(3).featureValues(), vector.featureValues());
}

TEST(tkClassifierRuleTable, loadingInPlaceKeepsFunctionsOfUnknownTagsAndLeavesCopiesAlone)
{
    const tkClassifierRule before = rule({golden::oneSided(), golden::twoSided()}, 3);
    tkClassifierRule loaded(before);
    // Two functions, the first of an unknown kind, the second an ignoring one, then the label 7.
    loadFromBytes(std::string("\0\x02\0\0\0\x07\0\0\0\x32\x16\0\0\x07\0\0\0", 17), loaded);
    EXPECT_TRUE(loaded.scoringMethods()[0] == before.scoringMethods()[0]);
    EXPECT_TRUE(*loaded.scoringMethods()[1] == tkClassifierFeatureScoreIgnore());
    EXPECT_EQ(7, loaded.label());
    EXPECT_TRUE(before == rule({golden::oneSided(), golden::twoSided()}, 3));

    tkClassifierRuleTable t = table({before});
    const tkClassifierRuleTable copy(t);
    // Two rules, each of one function of an unknown kind: the first rule was there, the second is new.
    loadFromBytes(std::string("\0\x02\0\0\0"
                              "\0\x01\0\0\0\x07\0\0\0\x01\0\0\0"
                              "\0\x01\0\0\0\x07\0\0\0\x02\0\0\0",
                              31),
                  t);
    ASSERT_EQ(2u, t.rules().size());
    EXPECT_TRUE(t.rules()[0].scoringMethods().at(0) == before.scoringMethods()[0]);
    EXPECT_TRUE(t.rules()[1].scoringMethods().at(0).isNull());
    EXPECT_TRUE(copy == table({before}));
}

TEST(tkClassifierRuleTable, vectorsInsideRecordsRefuseOtherVersions)
{
    std::string bytes = storeToBytes(table({rule({tkClassifierFeatureScoreIgnore().clone()}, 7)}));
    for (const std::size_t versionAt : {std::size_t{0}, std::size_t{5}})
    {
        std::string other = bytes;
        other[versionAt] = 1;
        tkClassifierRuleTable loaded;
        EXPECT_THROW(loadFromBytes(other, loaded), tkArchive::UnknownVersion);
    }
}

TEST(tkClassifierRuleTable, loadedRulesOfMixedSizesFailWhenTheyScore)
{
    // Three rules of one, two and no scoring methods, which train() would refuse.
    std::string bytes("\0\x03\0\0\0", 5);
    bytes += storeToBytes(rule(Functions(1, tkClassifierFeatureScoreTwoSided().clone()), 1));
    bytes += storeToBytes(rule(Functions(2, tkClassifierFeatureScoreIgnore().clone()), 2));
    bytes += storeToBytes(tkClassifierRule());
    tkClassifierRuleTable t;
    loadFromBytes(bytes, t);
    EXPECT_EQ(1, t.classifyHardThreshold(values(1), 0.4));
    EXPECT_TK_THROW(t.classifyHardThreshold(values(1), 0.6), BadParams, L"MismatchedFeatureVectorSize");
}

TEST(tkClassifierRuleTable, recordsStoredEarlierLoadAndAreStoredTheSame)
{
    tkClassifierFeatureVector vector;
    loadFromBytes(goldenBytes("tkClassifierFeatureVector.v0.bin"), vector);
    EXPECT_EQ(golden::featureVector().featureValues(), vector.featureValues());
    EXPECT_EQ(goldenBytes("tkClassifierFeatureVector.v0.bin"), storeToBytes(vector));

    tkClassifierRule r;
    loadFromBytes(goldenBytes("tkClassifierRule.v0.bin"), r);
    EXPECT_TRUE(r == golden::rule());
    EXPECT_EQ(goldenBytes("tkClassifierRule.v0.bin"), storeToBytes(r));

    tkClassifierRuleTable t;
    loadFromBytes(goldenBytes("tkClassifierRuleTable.v0.bin"), t);
    EXPECT_TRUE(t == golden::ruleTable());
    EXPECT_EQ(goldenBytes("tkClassifierRuleTable.v0.bin"), storeToBytes(t));
}
