#include "tests/bayes/bayesTestData.h"
#include "tkAllocatedBytes.h"
#include "tkTest.h"

#include "foundation/tkArchiveOperators.h"

#include <sstream>

// A record names a density again in a few bytes, in other models or for other sets of one model. A run copied the
// factors of the density for each of these: loading took 125 times the size of the record. They are now copied for one
// set, and the others evaluate the density itself. All of them see a change of it, whichever of the models makes it.

using namespace bayesTest;

namespace
{
using Models = std::vector<tkPtrHandle<tk_CategoryModel>>;

std::vector<long> firstIndices(long size)
{
    std::vector<long> set(static_cast<std::size_t>(size));
    std::iota(set.begin(), set.end(), 0L);
    return set;
}

/// A density of `size` measurements.
Density trainedNormal(long size)
{
    std::mt19937_64 generator(3);
    std::normal_distribution<double> deviate;
    const Density density(new tk_PDFMultivariateNormal);
    for (long i = 0; i < size + 5; ++i)
    {
        std::vector<double> row;
        for (long j = 0; j < size; ++j)
            row.push_back(deviate(generator));
        density->updateWithData({tkFeaturePattern(row)});
    }
    return density;
}

/// The record of a classifier of `numModels` models, all of them with `numSets` sets that share one density.
std::string record(long numModels, long numSets, long size)
{
    std::ostringstream stream;
    tkArchive archive(stream);
    unsigned char version = 0;
    tkPtrHandle_const<tkClassifierTrainParams> params(new Params);
    std::vector<long> labels(static_cast<std::size_t>(numModels));
    std::iota(labels.begin(), labels.end(), 0L);

    std::ostringstream modelStream;
    {
        tkArchive modelArchive(modelStream);
        long label = 0;
        long measurements = numSets * size;
        Sets sets(static_cast<std::size_t>(numSets), firstIndices(size));
        Densities densities(static_cast<std::size_t>(numSets), trainedNormal(size));
        modelArchive || version || version || version || label || measurements || sets || densities;
    }
    const tkPtrHandle<tk_CategoryModelBayesian> first(new tk_CategoryModelBayesian);
    loadFromBytes(modelStream.str(), *first);
    Models models;
    for (const long label : labels)
    {
        models.emplace_back(new tk_CategoryModelBayesian(*first)); // which shares the densities
        models.back()->categoryLabel(label);
    }
    archive || version || version || version || params || labels || models;
    return stream.str();
}
} // namespace

TEST(sharedDensityOfManyModels, memoryIsBoundedByTheRecord)
{
    const long shapes[][3] = {{2000, 1, 40}, {1, 800, 100}, {40, 20, 100}, {3000, 1, 1}};
    for (const auto& shape : shapes)
    {
        const std::string bytes = record(shape[0], shape[1], shape[2]);
        tk_ClassifierBayesian loaded;
        const std::size_t before = tkAllocatedBytes();
        loadFromBytes(bytes, loaded);
        EXPECT_LE(tkAllocatedBytes(), before + 16 * bytes.size() + 65536) << shape[0] << ' ' << shape[1];
    }
}

TEST(sharedDensityOfManyModels, everyModelSeesAChangeOfTheDensity)
{
    for (const long numSets : {1L, 3L})
    {
        tk_ClassifierBayesian classifier;
        loadFromBytes(record(9, numSets, 4), classifier);
        const tkFeaturePattern pattern({0.5, -0.5, 1.0, 0.0});
        for (std::size_t changing = 0; changing < 9; changing += 4)
        {
            changeable(classifier, changing).adapt(tkFeaturePattern({3.0, 2.0, 1.0, 0.0}));
            const tkClassifierResult result = run(classifier, pattern.featureMeasurements(false));
            EXPECT_EQ(result.matchScoreFactorLog(), 0.0 - classifier.categoryModels()[0]->matchScore(pattern));
            for (const tkClassifierCategoryResult& each : result.categoryResults())
                EXPECT_EQ(each.matchScore(), 1.0); // all models are alike
        }
    }
}
