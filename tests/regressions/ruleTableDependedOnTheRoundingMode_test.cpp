#include "clss/clastool/clastool/tkClassifierRuleTable.h"
#include "tkTest.h"

#include <cfenv>

// A trained table kept a bitmap of rules for each of 128 levels of a feature, and found the level of a value by
// (value - origin) * scale. Training had found the levels of the supports' ends in the rounding mode of its own time.
// In another mode a value at the end of a support could come to lie one level further out, where the bitmap had no bit
// for the rule: the rule was passed over though it scored 1. Now values are compared with the ends themselves.
TEST(regressions, ruleTableDependedOnTheRoundingMode)
{
    const int before = std::fegetround();
    // Supports from each of many values to one end. All levels are 0.1 wide, which no double is.
    std::vector<tkClassifierRule> rules;
    std::vector<double> ends;
    for (int i = 0; i < 124; ++i)
    {
        ends.push_back(i == 0 ? 0.0 : (i + 0.5) * 0.1);
        auto* const box = new tkClassifierFeatureScoreOneSided;
        const tkPtrHandle<tkClsFtSc> handle(box);
        box->init(ends.back(), ends.back(), 12.4, 0.0, 1.0);
        rules.emplace_back();
        rules.back().init({handle}, i);
    }
    for (const int trainMode : {FE_TONEAREST, FE_DOWNWARD, FE_UPWARD})
        for (const int runMode : {FE_TONEAREST, FE_DOWNWARD, FE_UPWARD})
        {
            int missed = 0;
            for (std::size_t i = 0; i < rules.size(); ++i)
            {
                std::fesetround(trainMode);
                tkClassifierRuleTable table;
                table.train({rules[i], rules[0]});
                std::fesetround(runMode);
                std::vector<double> values(1, ends[i]);
                missed += table.classifyHardThreshold(tkClassifierFeatureVector(values), 0.5) != rules[i].label();
                std::fesetround(before);
            }
            EXPECT_EQ(0, missed) << "trained in mode " << trainMode << ", run in mode " << runMode;
        }
}
