#include "clss/model/tk_CovariancePool.h"

#include "tests/model/poolingTestData.h"

#include "clss/model/tkAssessment.h"
#include "clss/model/tkCovariancePooling.h"

using namespace poolingTest;

TEST(tk_CovariancePool, judgesAPatternAsATrainingWithoutItDoes)
{
    for (const auto& params : {jointParams(), jointParams({0, 2}), jointParams({1})})
    {
        const Data data = wine(6);
        const tk_LabelledPatterns labelled(data);
        const auto classifier = trained<tk_ClassifierBayesian>(data, params);
        const tk_CovariancePool pool(classifier->categoryModels());
        for (const double amount : {0.0, 0.1, 0.7, 1.0})
        {
            const tk_CovariancePool::Figures figures = pool.judge(labelled, params.categoryFrequencies(), amount);
            ASSERT_TRUE(figures.areValid);
            const tkAssessment assessment = tkAssessment::leaveOneOut(data, tkCovariancePooling(params, amount));
            const tkRate accuracy = assessment.confusion(params).accuracy();
            EXPECT_EQ(accuracy.total - accuracy.hits, figures.errors) << amount;
            EXPECT_NEAR(assessment.logLoss(params) * static_cast<double>(accuracy.total), figures.logLoss, 1e-7)
                << amount;
        }
    }
}

TEST(tk_CovariancePool, poolsTheGroupsOfTwoOrMoreAndLeavesTheOthers)
{
    const Data data = wine(6);
    const auto params = jointParams({0, 2}); // category 1 has four sets of its own
    for (const double amount : {0.25, 1.0})
    {
        const auto before = trained<tk_ClassifierBayesian>(data, params);
        const auto after = trained<tk_ClassifierBayesian>(data, params);
        const tk_CovariancePool pool(after->categoryModels());
        pool.pool(amount);
        const double degrees[] = {static_cast<double>(normalOf(*before, 0, 0).count()) - 1.0,
                                  static_cast<double>(normalOf(*before, 2, 0).count()) - 1.0};
        for (long i = 0; i < 4; ++i)
            for (long j = 0; j < 4; ++j)
            {
                const double of0 = normalOf(*before, 0, 0).covariance()(i, j);
                const double of2 = normalOf(*before, 2, 0).covariance()(i, j);
                const double shared = (degrees[0] * of0 + degrees[1] * of2) / (degrees[0] + degrees[1]);
                EXPECT_LT(relative((1.0 - amount) * of0 + amount * shared, normalOf(*after, 0, 0).covariance()(i, j)),
                          1e-12);
                EXPECT_LT(relative((1.0 - amount) * of2 + amount * shared, normalOf(*after, 2, 0).covariance()(i, j)),
                          1e-12);
            }
        for (std::size_t set = 0; set < 4; ++set)
            EXPECT_TRUE(normalOf(*before, 1, set) == normalOf(*after, 1, set));
    }
}

TEST(tk_CovariancePool, singularCovariancesHaveNoFigures)
{
    Data data;
    for (const long label : {0L, 1L})
        for (int i = 0; i < 6; ++i)
        {
            const double x = static_cast<double>(i * i) + 3.0 * static_cast<double>(label);
            data.addData({x, 2.0 * x, 1.0 - x, 0.5 * x}, label);
        }
    const auto classifier = trained<tk_ClassifierBayesian>(data, jointParams());
    const tk_CovariancePool pool(classifier->categoryModels());
    for (const double amount : {0.0, 0.5, 1.0})
    {
        const tk_CovariancePool::Figures figures =
            pool.judge(tk_LabelledPatterns(data), tkClassifierFrequencies(), amount);
        EXPECT_FALSE(figures.areValid);
        EXPECT_EQ(0, figures.errors);
        EXPECT_EQ(0.0, figures.logLoss);
    }
}

TEST(tk_CovariancePool, patternsThatAreAloneInTheirCategoryAreNotJudged)
{
    Data data = wine(6);
    Data withOne(data);
    withOne.addData({1e3, -1e3, 5e3, 7.0}, 9); // far from all others, whose scores it does not change
    const auto params = jointParams({0, 1, 2, 9});
    const auto plain = trained<tk_ClassifierBayesian>(data, params);
    const auto other = trained<tk_ClassifierBayesian>(withOne, params);
    for (const double amount : {0.1, 1.0})
    {
        const auto figures = tk_CovariancePool(plain->categoryModels())
                                 .judge(tk_LabelledPatterns(data), params.categoryFrequencies(), amount);
        const auto same = tk_CovariancePool(other->categoryModels())
                              .judge(tk_LabelledPatterns(withOne), params.categoryFrequencies(), amount);
        ASSERT_TRUE(figures.areValid);
        ASSERT_TRUE(same.areValid);
        EXPECT_EQ(figures.errors, same.errors);
        EXPECT_NEAR(figures.logLoss, same.logLoss, 1e-9);
    }
}

TEST(tk_CovariancePool, theLogLossOfAPatternIsLimited)
{
    Data data;
    for (int i = 0; i < 20; ++i)
    {
        data.addData({static_cast<double>(i % 5)}, 0);
        data.addData({1000.0 + static_cast<double>(i % 5)}, 1);
    }
    data.addData({1002.0}, 0); // without it nothing of its category is near
    const auto classifier = trained<tk_ClassifierBayesian>(data, tkClassifierTrainParamsBayesian());
    const auto figures = tk_CovariancePool(classifier->categoryModels())
                             .judge(tk_LabelledPatterns(data), tkClassifierFrequencies(), 0.0);
    ASSERT_TRUE(figures.areValid);
    EXPECT_EQ(1, figures.errors);
    EXPECT_GE(figures.logLoss, 36.04);
    EXPECT_LT(figures.logLoss, 37.0);
}

TEST(tk_CovariancePool, choosesWhatTheParametersChoose)
{
    for (const std::size_t step : {3u, 8u, 20u})
    {
        const Data data = wine(step);
        const auto classifier = trained<tk_ClassifierBayesian>(data, jointParams());
        EXPECT_EQ(tkCovariancePooling::choose(data, jointParams()),
                  tk_CovariancePool(classifier->categoryModels())
                      .choose(tk_LabelledPatterns(data), jointParams().categoryFrequencies()));
    }
}
