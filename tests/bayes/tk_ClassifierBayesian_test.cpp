#include "clss/clastool/bayes/tk_ClassifierBayesian.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/clastool/clastool/tkClassifierTool.h"
#include "clss/clastool/clastool/tkClassifierTrainParamsKNN.h"
#include "foundation/tkArchiveOperators.h"
#include "foundation/tkAssert.h"
#include "foundation/tkException.h"
#include "numerics/tkNMElementary.h"
#include "tests/bayes/bayesTestData.h"
#include "tests/golden/bayes.h"
#include "tkAllocations.h"
#include "tkTest.h"

#include <algorithm>
#include <sstream>
#include <thread>

using namespace bayesTest;

namespace
{
struct CheckedClassifier : tk_ClassifierBayesian
{
    using tk_ClassifierBayesian::checkRunnable_;
};
} // namespace

TEST(tk_ClassifierBayesian, dependencySetsComeWithTheirFirstMeasurement)
{
    Types types(Types::eNormal);
    types.setDependent(5, {2, 0, 9});
    types.setDependent(5, {1});
    types.distributionTypeOverride(5, 3, Types::eBinomial);
    types.setDependent(6, {0, 1});
    tk_ClassifierBayesian classifier;
    classifier.train(provider({{1, 2, 3, 1}, {1, 2, 3, 0}}, {5, 6}), Params(types));
    EXPECT_EQ(model(classifier, 0).dependencySets(), (std::vector<std::vector<long>>{{2, 0, 9}, {1}, {3}}));
    EXPECT_TRUE(dynamic_cast<const tk_PDFBinomial*>(model(classifier, 0).densities()[2].get()));
    EXPECT_EQ(model(classifier, 1).dependencySets(), (std::vector<std::vector<long>>{{0, 1}, {2}, {3}}));
}

/// What run_ and the result do, written out.
TEST(tk_ClassifierBayesian, ranksByLikelihoodFrequencyAndCost)
{
    Rows rows;
    std::vector<long> labels;
    randomData(150, 4, 1, rows, labels);
    tkClassifierFrequencies frequencies(1.0);
    frequencies.categoryFrequencyOverride(10, 3.0);
    tkClassifierCosts costs(1.0);
    costs.misclassificationCostOverride(20, 0, 7.0);
    tk_ClassifierBayesian classifier;
    classifier.train(provider(rows, labels), Params(joint(4), frequencies, costs));
    for (const std::vector<double>& row : rows)
    {
        std::vector<double> scores;
        for (const auto& handle : classifier.categoryModels())
            scores.push_back(handle->matchScore(tkFeaturePattern(row)));
        const double best = *std::max_element(scores.begin(), scores.end());
        std::vector<tkClassifierCategoryResult> matches;
        for (std::size_t i = 0; i < scores.size(); ++i)
            matches.emplace_back(static_cast<long>(i) * 10, tkNMElementary::exp(scores[i] - best), 0.0, 0.0);
        EXPECT_EQ(run(classifier, row), tkClassifierResult(matches, frequencies, costs, -best));
    }
}

TEST(tk_ClassifierBayesian, unitsOfPowersOfTwoLeaveEveryBit)
{
    for (const bool degenerate : {false, true})
        for (const bool independent : {false, true})
        {
            Rows rows;
            std::vector<long> labels;
            randomData(90, 5, 2, rows, labels);
            if (degenerate)
                for (std::size_t i = 0; i < rows.size(); ++i)
                {
                    rows[i][1] = i % 3 == 1 ? 2.5 : rows[i][1];              // constant in one category,
                    rows[i][2] = i % 3 == 2 ? 0.0 : rows[i][2];              // zero in another,
                    rows[i][3] = 4.0;                                        // constant in all,
                    rows[i][4] = i % 3 == 0 ? 3.0 * rows[i][0] : rows[i][4]; // and collinear in the third
                }
            const Params params(independent ? Types(Types::eNormal) : joint(5));
            tk_ClassifierBayesian classifier;
            classifier.train(provider(rows, labels), params);
            for (const int k : {-40, 17, 40})
            {
                Rows scaled(rows);
                for (std::vector<double>& row : scaled)
                    for (std::size_t j = 0; j < row.size(); ++j)
                        row[j] = std::ldexp(row[j], j % 2 ? k : -k);
                tk_ClassifierBayesian other;
                other.train(provider(scaled, labels), params);
                for (std::size_t i = 0; i < rows.size(); ++i)
                    EXPECT_EQ(run(classifier, rows[i]).categoryResults(), run(other, scaled[i]).categoryResults())
                        << i << " " << k << " " << degenerate << independent;
            }
            for (const double factor : {1e-12, 0.3, 1e12})
            {
                Rows scaled(rows);
                for (std::vector<double>& row : scaled)
                    for (double& x : row)
                        x *= factor;
                tk_ClassifierBayesian other;
                other.train(provider(scaled, labels), params);
                for (std::size_t i = 0; i < rows.size(); ++i)
                    EXPECT_EQ(run(classifier, rows[i]).categoryResults()[0].categoryLabel(),
                              run(other, scaled[i]).categoryResults()[0].categoryLabel());
            }
        }
}

TEST(tk_ClassifierBayesian, equalLikelihoodsBothGetOne)
{
    tk_ClassifierBayesian classifier;
    classifier.train(provider({{1}, {3}, {1}, {3}}, {0, 0, 1, 1}), Params());
    const tkClassifierResult result = run(classifier, {2.0});
    EXPECT_EQ(result.categoryResults()[0].matchScore(), 1.0);
    EXPECT_EQ(result.categoryResults()[1].matchScore(), 1.0);
}

TEST(tk_ClassifierBayesian, unlabelledDataLeaveItUntrained)
{
    tk_ClassifierBayesian classifier;
    classifier.train(provider({{1}, {3}}, {-1, -1}), Params());
    EXPECT_FALSE(classifier.isTrained());
    tkClassifierTool tool;
    EXPECT_TK_THROW(tool.train(provider({{1}, {3}}, {-1, -1}), Params()), tkClassifierDefs::InsufficientTrainData,
                    L"No valid data was provided for training.");
    EXPECT_FALSE(tool.isTrained());
}

TEST(tk_ClassifierBayesian, oneBinomialPatternFailsTheCheckOfRunnability)
{
    Params params((Types(Types::eBinomial)));
    tkClassifierTool tool;
    EXPECT_TK_THROW(tool.train(provider({{1}, {0}, {1}}, {7, 8, 8}), params), tkClassifierDefs::InsufficientTrainData,
                    L"Insufficient data has been used to train the distribution for category 7");
    EXPECT_FALSE(tool.isTrained());
    params.throwIfNotReady(false);
    tool.train(provider({{1}, {0}, {1}}, {7, 8, 8}), params);
    EXPECT_TRUE(tool.isTrained());
}

TEST(tk_ClassifierBayesian, retrainingKeepsTheModelsAndRefusesOtherShapes)
{
    Rows rows;
    std::vector<long> labels;
    randomData(60, 2, 5, rows, labels);
    Params params(joint(2), tkClassifierFrequencies(), tkClassifierCosts(), tkFeaturePattern({1.0}));
    tk_ClassifierBayesian classifier;
    classifier.train(provider(rows, labels), params);
    const tk_CategoryModel* const kept = classifier.categoryModels()[0].get();

    Params other(params);
    other.distributionTypes(Types(Types::eBinomial));
    other.maxMeasurementValues(tkFeaturePattern({2.0}));
    EXPECT_TK_THROW(classifier.retrain(other), tkClassifierDefs::BadParams,
                    L"Cannot retrain a Bayesian classifier with different distribution types.");
    other.distributionTypes(params.distributionTypes());
    EXPECT_TK_THROW(classifier.retrain(other), tkClassifierDefs::BadParams,
                    L"Cannot retrain a Bayesian classifier with different maximum measurements values.");
    EXPECT_TK_THROW(classifier.retrain(tkClassifierTrainParamsKNN()), tkClassifierDefs::BadMethod,
                    L"Cannot retrain with a different classification technique.");
    tkClassifierFrequencies frequencies(1.0);
    frequencies.categoryFrequencyOverride(20, 1e6);
    params.categoryFrequencies(frequencies);
    classifier.retrain(params);
    EXPECT_EQ(classifier.categoryModels()[0].get(), kept);
    EXPECT_EQ(run(classifier, rows[0]).categoryResults()[0].categoryLabel(), 20);
}

TEST(tk_ClassifierBayesian, secondTrainingStartsFromNoCategories)
{
    tk_ClassifierBayesian classifier;
    classifier.train(provider({{1}, {3}, {5}, {6}}, {0, 0, 1, 1}), Params());
    classifier.train(provider({{5}, {6}}, {1, 1}), Params());
    tk_ClassifierBayesian fresh;
    fresh.train(provider({{5}, {6}}, {1, 1}), Params());
    EXPECT_TRUE(classifier == fresh);
    EXPECT_EQ(run(classifier, {5.0}), run(fresh, {5.0}));
    classifier.untrain();
    EXPECT_TRUE(classifier == tk_ClassifierBayesian());
}

TEST(tk_ClassifierBayesian, cannotLearnIncrementally)
{
    tk_ClassifierBayesian classifier;
    classifier.trainStart(Params());
    EXPECT_FALSE(classifier.isTrained());
    classifier.train(provider({{1}, {3}}, {0, 0}), Params());
    EXPECT_THROW(classifier.trainIncremental(tkFeaturePattern({1.0}), 0), tkAssertionFailure);
    EXPECT_THROW(classifier.train(provider({{1}}, {0}), tkClassifierTrainParamsKNN()), tkAssertionFailure);
}

TEST(tk_ClassifierBayesian, typesThatCannotBeTrainedEndTheTraining)
{
    tkClassifierTool tool;
    const auto unknown = static_cast<Types::DistributionType>(-1);
    EXPECT_TK_THROW(tool.train(provider({{1}}, {0}), Params(Types(unknown))), tkClassifierDefs::BadParams,
                    L"Unknown distribution type");
    EXPECT_FALSE(tool.isTrained());
}

TEST(tk_ClassifierBayesian, copiesShareModelsAndRecordsComeBackBitForBit)
{
    Rows rows;
    std::vector<long> labels;
    randomData(90, 3, 6, rows, labels);
    for (std::size_t i = 0; i < rows.size(); i += 3)
        rows[i][2] = 0.0; // gets its unit from the other categories, also after loading
    tk_ClassifierBayesian classifier;
    classifier.train(provider(rows, labels), Params(joint(3)));
    const tkPtrHandle<tk_Classifier> copy = classifier.clone();
    EXPECT_EQ(dynamic_cast<const tk_ClassifierBayesian&>(*copy).categoryModels()[1].get(),
              classifier.categoryModels()[1].get());
    EXPECT_TRUE(classifier.isEquivalent(*copy));

    const std::string bytes = storeToBytes(classifier);
    tk_ClassifierBayesian loaded;
    loadFromBytes(bytes, loaded);
    EXPECT_TRUE(loaded == classifier);
    EXPECT_EQ(storeToBytes(loaded), bytes);
    for (const std::vector<double>& row : rows)
        EXPECT_EQ(run(loaded, row), run(classifier, row));
    for (const std::size_t level : {0u, 1u, 2u})
    {
        std::string damaged(bytes);
        damaged[level] = 1;
        EXPECT_THROW(loadFromBytes(damaged, loaded), tkArchive::UnknownVersion);
    }
}

TEST(tk_ClassifierBayesian, patternsBeforeTheOneThatIsRefusedStayLearned)
{
    const Params params(Types(Types::eBinomial), tkClassifierFrequencies(), tkClassifierCosts(),
                        tkFeaturePattern({1.0, 1.0}));
    tk_ClassifierBayesian classifier;
    EXPECT_TK_THROW(classifier.train(provider({{0, 0}, {5, 5}, {0, 1}, {1, 2}, {1, 1}}, {3, -1, 3, 3, 4}), params),
                    tkClassifierDefs::BadParams,
                    L"Train data measurement cannot exceed its maximum value when using binomial distribution");
    ASSERT_EQ(classifier.categoryModels().size(), 1u);
    const auto learned = [](const std::vector<double>& values)
    {
        tk_PDFBinomial density(tkFeaturePattern({1.0}));
        for (const double value : values)
            density.updateWithData({tkFeaturePattern({value})});
        return density;
    };
    EXPECT_TRUE(model(classifier, 0).densities()[0]->isEquivalent(learned({0, 0, 1})));
    EXPECT_TRUE(model(classifier, 0).densities()[1]->isEquivalent(learned({0, 1})));
}

TEST(tk_ClassifierBayesian, aCategoryWhoseFirstPatternIsRefusedDoesNotBecomeOne)
{
    const Params params((Types(Types::eBinomial)));
    tk_ClassifierBayesian classifier;
    EXPECT_THROW(classifier.train(provider({{1}, {2}}, {3, 4}), params), tkClassifierDefs::BadParams);
    EXPECT_EQ(classifier.categoryModels().size(), 1u);
}

TEST(tk_ClassifierBayesian, onlyTheUnknownLabelIsSkipped)
{
    struct Relabelled : tkClassifierDataProviderMemory
    {
        using tkClassifierDataProviderMemory::tkClassifierDataProviderMemory;
        long categoryLabel(long index) const override { return index - 2; } // which its own setters refuse
    };
    Relabelled data;
    static_cast<tkClassifierDataProviderMemory&>(data) = provider({{1}, {2}}, {0, 0});
    tk_ClassifierBayesian classifier;
    EXPECT_TK_THROW(classifier.train(data, Params()), tkClassifierDefs::BadLabel, L"Cateogory labels must be >= 0");
    EXPECT_FALSE(classifier.isTrained());
}

TEST(tk_ClassifierBayesian, runningAllocatesTheCategoriesOfANewResultAndNothingElse)
{
    for (const std::size_t dimension : {1u, 6u, 64u})
    {
        Rows rows;
        std::vector<long> labels;
        randomData(256, dimension, 9, rows, labels);
        for (std::size_t i = 0; i < labels.size(); ++i)
            labels[i] = static_cast<long>(i % 64);
        Types types(Types::eNormal);
        std::vector<long> even;
        for (std::size_t j = 0; j < dimension; j += 2)
            even.push_back(static_cast<long>(j));
        for (long label = 0; label < 64; ++label)
            types.setDependent(label, even);
        tk_ClassifierBayesian classifier;
        classifier.train(provider(rows, labels), Params(types));
        const tkFeaturePattern pattern(rows[0]);
        run(classifier, rows[0]); // factors what is evaluated one by one
        tkClassifierResult result;
        const tkAllocations allocations;
        classifier.run(pattern, result);
        EXPECT_EQ(allocations.count(), 1u) << dimension;
        classifier.run(pattern, result); // which has the memory now
        EXPECT_EQ(allocations.count(), 1u) << dimension;
    }
}

TEST(tk_ClassifierBayesian, runsWithInvalidMeasurementsAllocateNothingAndHaveTheMatchScoresOfTheModels)
{
    for (const std::size_t dimension : {6u, 16u, 64u})
    {
        Rows rows;
        std::vector<long> labels;
        randomData(900, dimension, 12, rows, labels);
        for (std::size_t i = 0; i < labels.size(); ++i)
            labels[i] = static_cast<long>(i % 10);
        std::vector<long> all(dimension);
        std::iota(all.begin(), all.end(), 0L);
        Types types(Types::eNormal);
        for (long label = 0; label < 10; ++label)
            types.setDependent(label, all);
        tk_ClassifierBayesian classifier;
        classifier.train(provider(rows, labels), Params(types));
        for (const std::size_t count : {std::size_t{1}, (dimension + 3) / 4})
        {
            std::vector<long> invalid;
            for (std::size_t j = 0; j < count; ++j)
                invalid.push_back(static_cast<long>((3 + 5 * j) % dimension));
            const tkFeaturePattern pattern(rows[7], invalid);
            tkClassifierResult result;
            classifier.run(pattern, result);
            const double offset = result.matchScoreFactorLog();
            for (const tkClassifierCategoryResult& each : result.categoryResults())
            {
                const auto c = static_cast<std::size_t>(each.categoryLabel());
                EXPECT_EQ(each.matchScore(), tkNMElementary::exp(model(classifier, c).matchScore(pattern) + offset));
            }
            const tkAllocations allocations;
            classifier.run(pattern, result);
            EXPECT_EQ(allocations.count(), 0u) << dimension << ' ' << count;
        }
    }
}

TEST(tk_ClassifierBayesian, furtherPatternsOfACategoryAllocateNothing)
{
    Rows rows;
    std::vector<long> labels;
    randomData(300, 6, 10, rows, labels);
    Types types(Types::eNormal);
    for (const long label : {0L, 10L, 20L})
    {
        types.setDependent(label, {4, 0, 2});
        types.distributionTypeOverride(label, 5, Types::eBinomial);
    }
    const Params params(types, tkClassifierFrequencies(), tkClassifierCosts(),
                        tkFeaturePattern(std::vector<double>(6, 100.0)));
    const auto count = [&](std::size_t patterns)
    {
        const tkClassifierDataProviderMemory data =
            provider(Rows(rows.begin(), rows.begin() + static_cast<std::ptrdiff_t>(patterns)),
                     std::vector<long>(labels.begin(), labels.begin() + static_cast<std::ptrdiff_t>(patterns)));
        tk_ClassifierBayesian classifier;
        const tkAllocations allocations;
        classifier.train(data, params);
        return allocations.count();
    };
    EXPECT_GT(count(3), 0u);
    EXPECT_EQ(count(300), count(3));
}

TEST(tk_ClassifierBayesian, refusesToLoadParametersOfAnotherTechnique)
{
    const tkPtrHandle<tkClassifierTrainParams> foreign(new tkClassifierTrainParamsKNN);
    const std::string bytes = std::string(3, '\0') + storeToBytes(foreign) + std::string(10, '\0');
    tk_ClassifierBayesian classifier = golden::classifierBayesian();
    EXPECT_TK_THROW(loadFromBytes(bytes, classifier), tkArchive::Errors,
                    L"A Bayesian classifier has parameters of another technique (reading, at byte 132)");
    EXPECT_FALSE(classifier.isTrained());
}

TEST(tk_ClassifierBayesian, refusesToLoadACategoryWithoutABayesianModel)
{
    std::ostringstream stream;
    {
        tkArchive archive(stream);
        unsigned char version = 0;
        tkPtrHandle_const<tkClassifierTrainParams> params;
        std::vector<long> labels{4};
        std::vector<tkPtrHandle<tk_CategoryModel>> models(1);
        archive || version || version || version || params || labels || models;
    }
    tk_ClassifierBayesian classifier = golden::classifierBayesian();
    EXPECT_TK_THROW(loadFromBytes(stream.str(), classifier), tkArchive::Errors,
                    L"A stored Bayesian classifier has a category without a Bayesian model (reading, at byte 25)");
    EXPECT_FALSE(classifier.isTrained());
}

TEST(tk_ClassifierBayesian, damagedArchivesAreRefusedOrGiveSomethingThatRuns)
{
    const std::string bytes = storeToBytes(golden::classifierBayesian());
    for (std::size_t size = 3; size < bytes.size(); ++size) // from where its own version was read
    {
        tk_ClassifierBayesian classifier = golden::classifierBayesian();
        EXPECT_THROW(loadFromBytes(bytes.substr(0, size), classifier), tkArchive::Errors) << size;
        EXPECT_FALSE(classifier.isTrained()) << size;
    }

    std::mt19937_64 generator(11);
    const std::string extremes("\0\x01\x7f\x80\xff\xf0", 6);
    int loaded = 0;
    for (int i = 0; i < 4000; ++i)
    {
        std::string damaged(bytes);
        const std::size_t position = generator() % bytes.size();
        for (std::size_t k = 0; k <= generator() % 8 && position + k < damaged.size(); ++k)
            damaged[position + k] = extremes[generator() % extremes.size()];
        CheckedClassifier classifier;
        try
        {
            std::istringstream stream(damaged);
            tkArchive archive(stream);
            archive || classifier;
            ++loaded;
            classifier.checkRunnable_();
            run(classifier, {2.0, 3.0, 3.0});
            tkClassifierResult result;
            classifier.run(tkFeaturePattern({2.0, 0.0, 3.0}, {1}), result);
        }
        catch (const tkException&) // archive, result or densities: each says what it found
        {
        }
        catch (const tkAssertionFailure&) // a number of trials that is negative
        {
        }
    }
    EXPECT_GT(loaded, 400);
}

TEST(tk_ClassifierBayesian, copiesRunInSeveralThreads)
{
    Rows rows;
    std::vector<long> labels;
    randomData(120, 6, 7, rows, labels);
    tk_ClassifierBayesian classifier;
    classifier.train(provider(rows, labels), Params(joint(6)));
    const tk_ClassifierBayesian copy(classifier); // shares factors that no run has asked for yet
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back(
            [&, t]
            {
                const tk_ClassifierBayesian& own = t % 2 ? classifier : copy;
                for (const std::vector<double>& row : rows)
                    EXPECT_EQ(run(own, row), run(classifier, row));
            });
    for (std::thread& thread : threads)
        thread.join();
}

TEST(tk_ClassifierBayesian, aThousandCategoriesOfSixtyFourMeasurements)
{
    std::mt19937_64 generator(8);
    std::normal_distribution<double> deviate;
    Rows rows;
    std::vector<long> labels;
    for (long label = 0; label < 1000; ++label)
        for (int i = 0; i < 3; ++i)
        {
            std::vector<double> row(64);
            for (double& x : row)
                x = static_cast<double>(label % 37) + deviate(generator);
            rows.push_back(row);
            labels.push_back(label);
        }
    Types types(Types::eNormal);
    std::vector<long> all;
    for (long j = 0; j < 64; ++j)
        all.push_back(j);
    for (long label = 0; label < 1000; ++label)
        types.setDependent(label, all);
    tk_ClassifierBayesian classifier;
    classifier.train(provider(rows, labels), Params(types));
    EXPECT_EQ(run(classifier, rows[1500]).categoryResults()[0].categoryLabel(), 500);
}

TEST(tk_ClassifierBayesian, aRunThatIsRefusedLeavesTheResult)
{
    tk_ClassifierBayesian classifier = manyCategories(10, false);
    tkClassifierResult result = run(classifier, std::vector<double>(20, 0.5));
    const tkClassifierResult before(result);
    const tkFeaturePattern pattern(std::vector<double>(20, 0.25));
    changeable(classifier, 3).categoryLabel(2);
    EXPECT_TK_THROW(classifier.run(pattern, result), tkClassifierDefs::BadParams,
                    L"The category labels of the match results must be unique.");
    EXPECT_TRUE(result == before);
    changeable(classifier, 9).categoryLabel(-1); // the first of two faults
    EXPECT_TK_THROW(classifier.run(pattern, result), tkClassifierDefs::BadLabel, L"Category labels must be >= 0");
    EXPECT_TRUE(result == before);
}

TEST(tk_ClassifierBayesian, aResultMayHaveHadAnyNumberOfCategories)
{
    const tk_ClassifierBayesian classifier = manyCategories(11, false);
    const std::vector<double> row(20, 0.5);
    const tkClassifierResult expected = run(classifier, row);
    for (long size : {0L, 1L, 26L, 27L, 28L, 100L})
    {
        std::vector<tkClassifierCategoryResult> categories;
        for (long label = 0; label < size; ++label)
            categories.emplace_back(label, 0.5, 0.5, 1.0);
        tkClassifierResult result;
        if (size > 0)
            result = tkClassifierResult(categories, 7.0);
        classifier.run(tkFeaturePattern(row), result);
        EXPECT_TRUE(result == expected) << size;
    }
}
