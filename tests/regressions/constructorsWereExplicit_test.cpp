#include "clss/clastool/clastool/tkClassifierRuleTable.h"
#include "clss/clastool/clastool/tkClassifierTrainParamsKNN.h"
#include "clss/clastool/clastool/tkDecisionTree.h"
#include "clss/clastool/clastool/tk_DataGenerator.h"
#include "tkTest.h"

#include <type_traits>

// Constructors were explicit though their stated signatures are not, so that `tkClassifierFeatureVector v = values;`
// and `tree.falseTree(result)` did not compile.
TEST(regressions, constructorsWereExplicit)
{
    EXPECT_TRUE((std::is_convertible_v<std::vector<double>, tkClassifierFeatureVector>));
    EXPECT_TRUE((std::is_convertible_v<long, tkClassifierTrainParamsKNN>));
    EXPECT_TRUE((std::is_convertible_v<tkClassifierResult, tkDecisionTreeLeaf>));
    EXPECT_TRUE((std::is_convertible_v<double, tkPatternDistanceMetricNorm>));
    EXPECT_TRUE((std::is_convertible_v<std::vector<long>, tkValidityPredicate>));
    EXPECT_TRUE((std::is_convertible_v<long, tkComparisonPredicate>));
    EXPECT_TRUE((std::is_convertible_v<std::vector<tkPair<double>>, tk_ClassDataGenerator>));
    EXPECT_TRUE((std::is_convertible_v<std::vector<tk_ClassDataGenerator>, tk_TotalDataGenerator>));
}
