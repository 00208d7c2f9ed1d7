#include "tkAllocations.h"
#include "tkTest.h"

#include "clss/clastool/clastool/tk_ClassifierKNN.h"
#include "clss/clastool/clastool/tk_NeighborIndex.h"

// addData() of data that a nearest-neighbour classifier has indexed stored the pattern and then updated the index. When
// memory ran out there, it threw with the pattern stored, so that a caller who tried again had it twice. The index does
// without the memory now, and the call succeeds: either it throws and has stored nothing, or it has stored the pattern.

namespace
{
tkClassifierDataProviderMemory indexedData(long numPatterns)
{
    tkClassifierDataProviderMemory data;
    for (long i = 0; i < numPatterns; ++i)
        data.addData({static_cast<double>(i % 17), static_cast<double>(i % 23)}, i % 3);
    data.indexNeighbors();
    return data;
}
} // namespace

TEST(addedPatternWasStoredByACallThatThrew, addDataStoresAndSucceedsOrStoresNothing)
{
    const tkPtrHandle_const<tkFeaturePattern> pattern(new tkFeaturePattern({1.5, 2.5}));
    bool hasFailed = false;
    // At 128 patterns the index takes its first measure of them, at 256 and 512 a new one; blocks end at multiples
    // of 64.
    for (const long size : {127, 128, 191, 255, 511, 1023})
        for (std::size_t allowed = 0; allowed < 12; ++allowed)
        {
            tkClassifierDataProviderMemory data = indexedData(size);
            bool failed = false;
            {
                const tkAllocations limited(allowed);
                try
                {
                    data.addData(pattern, 1);
                }
                catch (const std::bad_alloc&)
                {
                    failed = true;
                }
            }
            EXPECT_EQ(data.numPatterns(), failed ? size : size + 1) << size << " patterns, " << allowed;
            hasFailed = hasFailed || failed;
            if (failed)
                continue;
            EXPECT_TRUE(data.neighborIndex()->covers(data.patterns()));
            long nearest = -1;
            double distances[2] = {};
            EXPECT_EQ(data.neighborIndex()->nearest(data.patterns(), *pattern, 2.0, 1, true, &nearest, distances), 1);
            EXPECT_EQ(nearest, size) << "the added pattern is the nearest to itself";
            EXPECT_EQ(distances[0], 0.0);
        }
    EXPECT_TRUE(hasFailed) << "nothing was out of memory";
}

TEST(addedPatternWasStoredByACallThatThrew, trainingIncrementallyInALoopLearnsEachPatternOnce)
{
    tkClassifierDataProviderMemory empty;
    empty.addData({0.0, 0.0}, 0);
    tk_ClassifierKNN classifier;
    classifier.train(empty, tkClassifierTrainParamsKNN(1));
    tkClassifierDataProviderMemory expected;
    expected.addData({0.0, 0.0}, 0);
    for (long i = 1; i < 300; ++i)
    {
        const tkFeaturePattern pattern({static_cast<double>(i), 1.0});
        expected.addData(tkPtrHandle_const<tkFeaturePattern>(new tkFeaturePattern(pattern)), i % 2);
        for (std::size_t allowed = 0;; ++allowed) // until there is memory for it
        {
            const tkAllocations limited(allowed);
            try
            {
                classifier.trainIncremental(pattern, i % 2);
                break;
            }
            catch (const std::bad_alloc&)
            {
            }
        }
    }
    tk_ClassifierKNN once;
    once.train(expected, tkClassifierTrainParamsKNN(1));
    EXPECT_TRUE(classifier == once);
}
