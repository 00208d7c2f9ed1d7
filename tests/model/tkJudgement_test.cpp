#include "clss/model/tkJudgement.h"

#include "tests/golden/dataModel.h"
#include "tkTest.h"

#include "clss/clastool/clastool/tkFeaturePattern.h"

TEST(tkJudgement, resultConvertsWithoutPValue)
{
    const tkJudgement judgement = golden::result();
    EXPECT_TRUE(judgement.result == golden::result());
    EXPECT_EQ(1.0, judgement.pValue);
    EXPECT_EQ(0.25, tkJudgement(golden::result(), 0.25).pValue);
}

TEST(tkJudgement, functionThatReturnsAResultIsAJudge)
{
    const tkJudge judge = [](const tkFeaturePattern& pattern)
    { return pattern.numMeasurements() == 2 ? golden::result() : tkClassifierResult(); };
    EXPECT_TRUE(judge(tkFeaturePattern({1.0, 2.0})).result == golden::result());
    EXPECT_TRUE(judge(tkFeaturePattern()).result == tkClassifierResult());
    EXPECT_EQ(1.0, judge(tkFeaturePattern()).pValue);
}
