#ifndef TESTS_GOLDEN_RULETABLE_H
#define TESTS_GOLDEN_RULETABLE_H

#include "clss/clastool/clastool/tkClassifierRuleTable.h"

#include <vector>

/// What the stored rule tables of this folder hold.
namespace golden
{
inline tkPtrHandle<tkClsFtSc> ignore()
{
    return tkClassifierFeatureScoreIgnore().clone();
}

inline tkPtrHandle<tkClsFtSc> oneSided()
{
    tkClassifierFeatureScoreOneSided f;
    f.init(0.5, 2.0, 1000.25, 1.0, 0.125);
    return f.clone();
}

inline tkPtrHandle<tkClsFtSc> twoSided()
{
    tkClassifierFeatureScoreTwoSided f;
    f.init(-1.0, -2.5, -3.0, 4.0, 5.5, 6.0, 1.0, 0.25, 0.75, 0.0);
    return f.clone();
}

inline tkClassifierFeatureVector featureVector()
{
    return tkClassifierFeatureVector({1.5, -0.0, 1e300});
}

inline tkClassifierRule rule()
{
    tkClassifierRule r;
    r.init({ignore(), oneSided(), twoSided()}, 70000);
    return r;
}

inline tkClassifierRuleTable ruleTable()
{
    tkClassifierRule second;
    second.init({twoSided(), ignore(), oneSided()}, 0);
    tkClassifierRuleTable table;
    table.train({rule(), second});
    return table;
}
} // namespace golden

#endif
