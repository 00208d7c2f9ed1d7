#include "clss/clastool/clastool/tkClassifierRuleTable.h"
#include "tkReports.h"
#include "tkTest.h"

#include <limits>

// Records of scoring functions are loaded unchecked. A corner that is NaN makes no check of score() fail and leads to
// an arrangement that has no score: tkAssertionFailure was thrown, so that a record could end a host that takes it for
// a bug in its own code. Now the assertion handler is told, the degree is 0, and the call goes on.
TEST(regressions, nanCornerEndedTheCall)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    std::string record;
    for (const double field : {nan, 1.0, 2.0, 1.0, 1.0})
        record += storeToBytes(field);
    auto* const function = new tkClassifierFeatureScoreOneSided;
    const tkPtrHandle<tkClsFtSc> handle(function);
    loadFromBytes(record, *function);

    auto* const guarded = new tkClassifierFeatureScoreTwoSided;
    const tkPtrHandle<tkClsFtSc> guardedHandle(guarded);
    guarded->xch(nan);
    guarded->x1h(-0.5);

    std::vector<tkClassifierRule> rules(3);
    rules[0].init({handle}, 1);
    rules[1].init({guardedHandle}, 2);
    rules[2].init({tkClassifierFeatureScoreIgnore().clone()}, 3);
    tkClassifierRuleTable table;
    table.train(rules);
    std::vector<double> values(1, 0.0);

    const CountedReports reports;
    EXPECT_EQ(0.0, function->score(1.5));
    EXPECT_EQ(0.0, guarded->score(0.0));
    EXPECT_EQ(2, reports.count());
    EXPECT_EQ(3, table.classifyHardThreshold(tkClassifierFeatureVector(values), 0.5));
    EXPECT_EQ(4, reports.count());
}
