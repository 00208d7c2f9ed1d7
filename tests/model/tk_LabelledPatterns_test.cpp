#include "clss/model/tk_LabelledPatterns.h"

#include "modelTestData.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"

TEST(tk_LabelledPatterns, leavesOutPatternsWithoutALabelAndSharesTheOthers)
{
    tkClassifierDataProviderMemory data;
    data.addData({1.0, 2.0}, 7);
    data.addData({3.0, 4.0}, -1);
    data.addData({5.0, 6.0}, 0);
    const tk_LabelledPatterns labelled(data);
    EXPECT_EQ(2, labelled.numMeasurements);
    ASSERT_EQ(2u, labelled.patterns.size());
    EXPECT_EQ(data.patterns()[0].get(), labelled.patterns[0].get());
    EXPECT_EQ(data.patterns()[2].get(), labelled.patterns[1].get());
    EXPECT_EQ((std::vector<long>{7, 0}), labelled.labels);
    EXPECT_EQ((std::vector<long>{0, 2}), labelled.indices);
}

TEST(tk_LabelledPatterns, checksPatternByPatternTheHandleTheNumberOfMeasurementsAndTheLabel)
{
    UncheckedProvider data;
    data.measurements = 2;
    data.patterns = {handleTo(tkFeaturePattern({1.0, 2.0})), tkPtrHandle_const<tkFeaturePattern>(),
                     handleTo(tkFeaturePattern({1.0}))};
    data.labels = {0, -2, -2};
    EXPECT_THROW(tk_LabelledPatterns{data}, tkBadPointer);
    data.patterns[1] = handleTo(tkFeaturePattern({1.0, 2.0, 3.0}));
    EXPECT_TK_THROW(tk_LabelledPatterns{data}, tkClassifierDefs::BadFeatures,
                    L"Pattern 1 has 3 measurements, the training data have 2.");
    data.patterns[1] = data.patterns[0];
    EXPECT_TK_THROW(tk_LabelledPatterns{data}, tkClassifierDefs::BadLabel, L"Category labels must be >= 0 or unknown");
    data.labels[1] = -1;
    EXPECT_TK_THROW(tk_LabelledPatterns{data}, tkClassifierDefs::BadFeatures,
                    L"Pattern 2 has 1 measurements, the training data have 2.");
}

TEST(tk_LabelledPatterns, usableOnesHaveALabelAndTheNumberOfMeasurements)
{
    UncheckedProvider data;
    data.measurements = 2;
    data.patterns = {handleTo(tkFeaturePattern({1.0})), tkPtrHandle_const<tkFeaturePattern>(),
                     handleTo(tkFeaturePattern({1.0, 2.0})), handleTo(tkFeaturePattern({1.0, 2.0, 3.0}))};
    data.labels = {4, -1, 5, 6};
    const tk_LabelledPatterns usable = tk_LabelledPatterns::usable(data);
    EXPECT_EQ(2, usable.numMeasurements);
    ASSERT_EQ(1u, usable.patterns.size());
    EXPECT_EQ(data.patterns[2].get(), usable.patterns[0].get());
    EXPECT_EQ(std::vector<long>{5}, usable.labels);
    EXPECT_EQ(std::vector<long>{2}, usable.indices);
    data.labels[1] = 0;
    EXPECT_THROW(tk_LabelledPatterns::usable(data), tkBadPointer);
    data.labels = {4, -1, -1, 6};
    EXPECT_TRUE(tk_LabelledPatterns::usable(data).patterns.empty());
}

TEST(tk_LabelledPatterns, needsAPatternWithALabel)
{
    tkClassifierDataProviderMemory data;
    EXPECT_TK_THROW(tk_LabelledPatterns{data}, tkClassifierDefs::InsufficientTrainData,
                    L"No valid data was provided for training.");
    data.addData({1.0}, -1);
    EXPECT_TK_THROW(tk_LabelledPatterns{data}, tkClassifierDefs::InsufficientTrainData,
                    L"No valid data was provided for training.");
    data.addData({1.0}, 0);
    EXPECT_EQ(1u, tk_LabelledPatterns(data).labels.size());
}
