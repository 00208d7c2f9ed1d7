#include "tests/definition/neighbours.h"
#include "tkTest.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/clastool/clastool/tk_ClassifierKNN.h"
#include "clss/clastool/clastool/tk_NeighborIndex.h"
#include "foundation/tkArchiveOperators.h"

#include <random>

// A record names a pattern again in a few bytes. The index of a nearest-neighbour classifier took a byte per
// measurement for each of these, and every query computed a distance for each: a record of 1 MB took 229 MB and 4 s.
// The index now takes memory and time for the distinct patterns alone where most of them repeat others, with the same
// neighbours.

namespace
{
using Handle = tkPtrHandle_const<tkFeaturePattern>;

/// `numPatterns` handles to `numDistinct` patterns of `columns` measurements, the labels in turn 0, 1, 2.
tkClassifierDataProviderMemory repeated(long numPatterns, long numDistinct, long columns, std::mt19937_64& random)
{
    std::uniform_int_distribution<int> value(-3, 3);
    std::vector<Handle> distinct;
    for (long i = 0; i < numDistinct; ++i)
    {
        std::vector<double> measurements;
        for (long c = 0; c < columns; ++c)
            measurements.push_back(value(random));
        distinct.emplace_back(new tkFeaturePattern(measurements));
    }
    tkClassifierDataProviderMemory data;
    for (long i = 0; i < numPatterns; ++i)
        data.addData(distinct[random() % distinct.size()], i % 3);
    return data;
}

definition::LabelledRows plainOf(const tkClassifierDataProviderMemory& data)
{
    definition::LabelledRows plain;
    for (const Handle& pattern : data.patterns())
        plain.patterns.push_back(pattern->featureMeasurements(false));
    plain.labels = data.labels();
    return plain;
}
} // namespace

TEST(repeatedPatternWasIndexedManyTimes, theIndexIsBoundedByTheRecord)
{
    std::mt19937_64 random(1);
    for (const long numDistinct : {1, 2, 5})
    {
        const std::string bytes = storeToBytes(repeated(20000, numDistinct, 4096, random));
        tkClassifierDataProviderMemory data;
        loadFromBytes(bytes, data);
        data.indexNeighbors();
        EXPECT_LE(data.neighborIndex()->memory(), bytes.size()) << numDistinct;
        EXPECT_TRUE(data.neighborIndex()->covers(data.patterns()));
    }
}

TEST(repeatedPatternWasIndexedManyTimes, theNeighboursAreThoseOfAllPatterns)
{
    std::mt19937_64 random(2);
    for (const long numPatterns : {5, 40, 700})
        for (const long numDistinct : {1, 3, 100})
            for (const double order : {0.5, 1.0, 2.0, 3.5})
            {
                const tkClassifierDataProviderMemory data = repeated(numPatterns, numDistinct, 3, random);
                const definition::LabelledRows plain = plainOf(data);
                for (const long k : {1, 2, 7, 1000})
                {
                    tk_ClassifierKNN classifier;
                    classifier.train(data, tkClassifierTrainParamsKNN(k, tkPatternDistanceMetricNorm(order), {}));
                    for (int added = 0; added < 3; ++added)
                    {
                        definition::LabelledRows now = plain;
                        for (int i = 0; i < added; ++i)
                        {
                            now.patterns.push_back({1.0 * i, 1.0, 0.0});
                            now.labels.push_back(1);
                        }
                        const std::vector<double> query = {0.5, -1.0, 2.0};
                        tkClassifierResult result;
                        classifier.run(tkFeaturePattern(query), result);
                        EXPECT_TRUE(result == definition::classifyByNeighbours(now, query, order, k))
                            << numPatterns << " " << numDistinct << " " << order << " " << k;
                        classifier.trainIncremental(tkFeaturePattern({1.0 * added, 1.0, 0.0}), 1);
                    }
                }
            }
}

TEST(repeatedPatternWasIndexedManyTimes, theFirstPatternWithoutADistanceFailsAsIfAllHadBeenCompared)
{
    const Handle sound(new tkFeaturePattern({1.0, 2.0}));
    tkClassifierDataProviderMemory data;
    for (int i = 0; i < 100; ++i)
        data.addData(sound, 0);
    tk_ClassifierKNN classifier;
    classifier.train(data, tkClassifierTrainParamsKNN());
    classifier.trainIncremental(tkFeaturePattern({1.0, 2.0}, {1}), 0);
    tkClassifierResult result;
    EXPECT_TK_THROW(classifier.run(*sound, result), tkClassifierDefs::BadFeatures,
                    L"Access to full feature vector requires that all features are valid.");
}
