#include "clss/clastool/bayes/tk_ClassifierBayesian.h"

#include "clss/clastool/bayes/tkClassifierTrainParamsBayesian.h"
#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/clastool/clastool/tkClassifierTool.h"
#include "clss/clastool/clastool/tkClassifierTrainParamsKNN.h"
#include "foundation/tkArchiveOperators.h"
#include "foundation/tkAssert.h"
#include "foundation/tkException.h"
#include "tests/golden/bayes.h"
#include "tkAllocations.h"
#include "tkTest.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <numeric>
#include <random>
#include <sstream>
#include <thread>
#include <utility>
#include <vector>

namespace
{
using Types = tkClassifierDistributionTypes;
using Params = tkClassifierTrainParamsBayesian;
using Rows = std::vector<std::vector<double>>;
using Sets = std::vector<std::vector<long>>;
using Density = tkPtrHandle<tk_ProbabilityDensityFunction>;
using Densities = std::vector<Density>;

tkClassifierDataProviderMemory provider(const Rows& rows, const std::vector<long>& labels)
{
    std::vector<tkPtrHandle_const<tkFeaturePattern>> patterns;
    for (const std::vector<double>& row : rows)
        patterns.emplace_back(new tkFeaturePattern(row));
    tkClassifierDataProviderMemory data;
    data.data(patterns, labels);
    return data;
}

/// Three overlapping categories of dependent measurements.
void randomData(std::size_t count, std::size_t dimension, unsigned seed, Rows& rows, std::vector<long>& labels)
{
    std::mt19937_64 generator(seed);
    std::normal_distribution<double> deviate;
    for (std::size_t i = 0; i < count; ++i)
    {
        const long label = static_cast<long>(i % 3);
        const double common = deviate(generator);
        std::vector<double> row(dimension);
        for (std::size_t j = 0; j < dimension; ++j)
            row[j] = common * (label == 1 ? 1.0 : 0.2) + deviate(generator) + 0.3 * static_cast<double>(label);
        rows.push_back(row);
        labels.push_back(label * 10);
    }
}

Types joint(std::size_t dimension)
{
    Types types(Types::eNormal);
    std::vector<long> all;
    for (std::size_t j = 0; j < dimension; ++j)
        all.push_back(static_cast<long>(j));
    for (const long label : {0, 10, 20})
        types.setDependent(label, all);
    return types;
}

const tk_CategoryModelBayesian& model(const tk_ClassifierBayesian& classifier, std::size_t i)
{
    return dynamic_cast<const tk_CategoryModelBayesian&>(*classifier.categoryModels()[i]);
}

tkClassifierResult run(const tk_Classifier& classifier, const std::vector<double>& row)
{
    tkClassifierResult result;
    classifier.run(tkFeaturePattern(row), result);
    return result;
}
} // namespace

TEST(tk_CategoryModelBayesian, buildsADensityForEachSet)
{
    const tk_CategoryModelBayesian built(4, {{2, 0}, {1}, {9}}, {Types::eNormal, Types::eBinomial, Types::eBinomial},
                                         tkFeaturePattern({5.0, 7.0}));
    EXPECT_EQ(built.categoryLabel(), 4);
    EXPECT_EQ(built.numMeasurements(), 4);
    EXPECT_TRUE(built.densities()[0]->isEquivalent(tk_PDFMultivariateNormal()));
    EXPECT_TRUE(built.densities()[1]->isEquivalent(tk_PDFBinomial(tkFeaturePattern({7.0}))));
    EXPECT_TRUE(built.densities()[2]->isEquivalent(tk_PDFBinomial(tkFeaturePattern({1.0}))));
}

TEST(tk_CategoryModelBayesian, refusesTypesInTheOrderOfTheSets)
{
    const auto build = [](Types::DistributionType first, Types::DistributionType second) {
        tk_CategoryModelBayesian(0, {{0}, {1}}, {first, second}, tkFeaturePattern());
    };
    EXPECT_TK_THROW(build(Types::ePoisson, Types::eUniform), tkClassifierDefs::NotImplemented,
                    L"Poisson distribution is not implemented");
    EXPECT_TK_THROW(build(Types::eUniform, Types::ePoisson), tkClassifierDefs::NotImplemented,
                    L"Uniform distribution is not implemented");
    EXPECT_TK_THROW(build(static_cast<Types::DistributionType>(4), Types::ePoisson), tkClassifierDefs::BadParams,
                    L"Unknown distribution type");
    EXPECT_TK_THROW(build(static_cast<Types::DistributionType>(-1), Types::ePoisson), tkClassifierDefs::BadParams,
                    L"Unknown distribution type");
    EXPECT_THROW(tk_CategoryModelBayesian(0, {{0}}, {}, tkFeaturePattern()), tkAssertionFailure);
}

TEST(tk_CategoryModelBayesian, scoresTheSumInSetOrderAndNamesTheCategory)
{
    tk_CategoryModelBayesian built(3, {{1, 0}, {2}}, {Types::eNormal, Types::eNormal}, tkFeaturePattern());
    EXPECT_TK_THROW(built.matchScore(tkFeaturePattern({1.0, 2.0, 3.0})), tkClassifierDefs::InsufficientTrainData,
                    L"No valid data has been used to train the distribution for category 3");
    for (const std::vector<double>& row : Rows{{1, 2, 3}, {2, 2, 5}, {4, 1, 1}, {0, 0, 2}})
        built.adapt(tkFeaturePattern(row));
    const tkFeaturePattern pattern({1.0, 1.0, 1.0}, {1});
    double sum = 0.0;
    for (std::size_t i = 0; i < 2; ++i)
        sum += built.densities()[i]->logValue(
            tk_ProbabilityDensityFunction::restriction(pattern, built.dependencySets()[i]));
    EXPECT_EQ(built.matchScore(pattern), sum);
}

TEST(tk_CategoryModelBayesian, copiesShareTheirDensitiesAndRecordsKeepThem)
{
    tk_CategoryModelBayesian built(3, {{0}, {1}}, {Types::eNormal, Types::eBinomial}, tkFeaturePattern({1.0, 4.0}));
    const tk_CategoryModelBayesian copy(built);
    built.adapt(tkFeaturePattern({1.0, 2.0}));
    built.adapt(tkFeaturePattern({2.0, 4.0}));
    EXPECT_EQ(copy.densities()[0].get(), built.densities()[0].get());
    EXPECT_TRUE(copy == built);
    tk_CategoryModelBayesian loaded;
    loadFromBytes(storeToBytes(built), loaded);
    EXPECT_TRUE(loaded == built);
    EXPECT_EQ(loaded.dependencySets(), built.dependencySets());
    loaded.adapt(tkFeaturePattern({3.0, 1.0}));
    EXPECT_FALSE(loaded == built);
    for (const std::size_t level : {0u, 1u, 2u})
    {
        std::string bytes = storeToBytes(built);
        bytes[level] = 1;
        EXPECT_THROW(loadFromBytes(bytes, loaded), tkArchive::UnknownVersion);
    }
}

TEST(tk_CategoryModelBayesian, equalityComparesDensitiesAndNotSets)
{
    const auto build = [](long label, std::vector<std::vector<long>> sets)
    {
        return tk_CategoryModelBayesian(label, sets, std::vector<Types::DistributionType>(sets.size(), Types::eNormal),
                                        tkFeaturePattern());
    };
    EXPECT_TRUE(build(1, {{0}, {1}}) == build(1, {{7}, {5}}));
    EXPECT_FALSE(build(1, {{0}, {1}}) == build(2, {{0}, {1}}));
    EXPECT_FALSE(build(1, {{0}, {1}}) == build(1, {{0}}));
    EXPECT_FALSE(build(1, {{0}, {1}}) == build(1, {{0, 1}}));
}

TEST(tk_CategoryModelBayesian, assignmentIsWholeOrNotAtAll)
{
    const tk_CategoryModelBayesian other(1, {{0}, {1}, {2}}, {Types::eNormal, Types::eNormal, Types::eNormal},
                                         tkFeaturePattern());
    const tk_CategoryModelBayesian before = golden::categoryModel();
    bool failed = true;
    std::size_t allowed = 0;
    for (; failed; ++allowed)
    {
        tk_CategoryModelBayesian assigned(before);
        failed = false;
        {
            const tkAllocations limited(allowed);
            try
            {
                assigned = other;
            }
            catch (const std::bad_alloc&)
            {
                failed = true;
            }
        }
        EXPECT_TRUE(assigned == (failed ? before : other));
        EXPECT_EQ(assigned.dependencySets(), (failed ? before : other).dependencySets()); // which == does not compare
    }
    EXPECT_GT(allowed, 3u);
}

TEST(tk_CategoryModelBayesian, itsNumberGrowsWithItsDensitiesAndGoesWithThem)
{
    using Model = tk_CategoryModelBayesian;
    const auto build = [] { return Model(2, {{0}, {1}}, {Types::eNormal, Types::eNormal}, tkFeaturePattern()); };
    Model model = build();
    const tkPtrHandle<tkNMChangeNumber> number = model.changeNumber();
    ASSERT_FALSE(number.isNull());
    EXPECT_NE(build().changeNumber().get(), number.get());
    EXPECT_TRUE(Model().changeNumber().isNull());

    std::uint64_t noted = number->value();
    const auto hasGrown = [&] { return std::exchange(noted, number->value()) != noted; };
    EXPECT_TRUE(model == Model(model));
    EXPECT_FALSE(hasGrown());
    model.adapt(tkFeaturePattern({1.0, 2.0}));
    EXPECT_TRUE(hasGrown());
    Model copy(model); // of the same densities
    EXPECT_EQ(copy.changeNumber().get(), number.get());
    copy.adapt(tkFeaturePattern({1.0, 2.0}));
    EXPECT_TRUE(hasGrown());
    model.densities()[1]->clear();
    EXPECT_TRUE(hasGrown());

    copy = build();
    EXPECT_NE(copy.changeNumber().get(), number.get());
    loadFromBytes(storeToBytes(build()), model);
    EXPECT_NE(model.changeNumber().get(), number.get());
    model.adapt(tkFeaturePattern({1.0, 2.0}));
    EXPECT_FALSE(hasGrown());
}

TEST(tk_CategoryModelBayesian, densitiesBeforeTheOneThatRefusesHaveLearned)
{
    tk_CategoryModelBayesian built(3, {{0}, {1}, {2}}, {Types::eNormal, Types::eBinomial, Types::eNormal},
                                   tkFeaturePattern({0.0, 4.0}));
    EXPECT_TK_THROW(built.adapt(tkFeaturePattern({1.0, 5.0, 2.0})), tkClassifierDefs::BadParams,
                    L"Train data measurement cannot exceed its maximum value when using binomial distribution");
    tk_PDFMultivariateNormal learned;
    learned.updateWithData({tkFeaturePattern({1.0})});
    EXPECT_TRUE(built.densities()[0]->isEquivalent(learned));
    EXPECT_TRUE(built.densities()[1]->isEquivalent(tk_PDFBinomial(tkFeaturePattern({4.0}))));
    EXPECT_TRUE(built.densities()[2]->isEquivalent(tk_PDFMultivariateNormal()));
}

namespace
{
/// The record of a category model of label 3, its densities those of `densities`.
std::string modelRecord(long numMeasurements, Sets sets, Densities densities)
{
    std::ostringstream stream;
    {
        tkArchive archive(stream);
        unsigned char version = 0;
        long label = 3;
        archive || version || version || version || label || numMeasurements || sets || densities;
    }
    return stream.str();
}

Density trainedDensity(tk_ProbabilityDensityFunction* density)
{
    Density handle(density);
    for (const double value : {0.0, 1.0, 1.0})
        handle->updateWithData({tkFeaturePattern({value})});
    return handle;
}
} // namespace

TEST(tk_CategoryModelBayesian, recordsWhoseSetsDoNotFitAreRefusedAndLeaveNoDensity)
{
    const Density normal = trainedDensity(new tk_PDFMultivariateNormal);
    const wchar_t incomplete[] = L"A stored category model has not one density for each dependency set";
    const wchar_t otherSize[] = L"A stored category model has another number of measurements than its dependency sets";
    const auto refuses = [](const std::string& record, const wchar_t* text)
    {
        tk_CategoryModelBayesian loaded = golden::categoryModel();
        EXPECT_TK_THROW(loadFromBytes(record, loaded), tkArchive::Errors, text);
        EXPECT_TRUE(loaded.densities().empty());
        EXPECT_TRUE(loaded.dependencySets().empty());
    };
    refuses(modelRecord(1, {{0}}, {}), incomplete);
    refuses(modelRecord(0, {}, {normal}), incomplete);
    refuses(modelRecord(7, {{0}}, {Density()}), incomplete); // before the number of measurements
    for (const long numMeasurements : {-1L, 0L, 2L, 2147483647L})
        refuses(modelRecord(numMeasurements, {{0}}, {normal}), otherSize);

    tk_CategoryModelBayesian loaded;
    loadFromBytes(modelRecord(1, {{0}}, {normal}), loaded);
    EXPECT_EQ(loaded.densities().size(), 1u);
}

TEST(tk_CategoryModelBayesian, anArchiveThatEndsEarlyLeavesAsManySetsAsDensities)
{
    const std::string record = modelRecord(1, {{0}}, {trainedDensity(new tk_PDFMultivariateNormal)});
    for (std::size_t size = 0; size < record.size(); ++size)
    {
        tk_CategoryModelBayesian loaded = golden::categoryModel();
        EXPECT_THROW(loadFromBytes(record.substr(0, size), loaded), tkArchive::Errors) << size;
        EXPECT_EQ(loaded.dependencySets().size(), loaded.densities().size()) << size;
    }
}

TEST(tk_CategoryModelBayesian, storedSetsOfAnyIndicesHaveTheirErrors)
{
    const auto load = [](const std::vector<long>& set, const Density& density)
    {
        tk_CategoryModelBayesian loaded;
        loadFromBytes(modelRecord(static_cast<long>(set.size()), {set}, {density}), loaded);
        return loaded;
    };
    const Density normal = trainedDensity(new tk_PDFMultivariateNormal);
    const Density binomial = trainedDensity(new tk_PDFBinomial(tkFeaturePattern({1.0})));
    const Density untrained(new tk_PDFBinomial(tkFeaturePattern({1.0})));
    const tkFeaturePattern pattern({1.0, 1.0});
    const wchar_t badIndex[] = L"Feature measurement indices must be >= 0";
    for (const Density& density : {normal, binomial, untrained})
        for (const std::vector<long>& set : Sets{{-1}, {0, -2147483647}})
        {
            tk_CategoryModelBayesian loaded = load(set, density);
            EXPECT_TK_THROW(loaded.matchScore(pattern), tkClassifierDefs::BadIndex, badIndex);
            EXPECT_TK_THROW(loaded.adapt(pattern), tkClassifierDefs::BadIndex, badIndex);
        }
    EXPECT_EQ(load({2147483647}, normal).matchScore(pattern), 0.0); // beyond the end: invalid
    EXPECT_EQ(load({2147483647}, binomial).matchScore(pattern), 0.0);
    EXPECT_THROW(load({0, 1}, normal).matchScore(pattern), tkFailure);
    EXPECT_THROW(load({}, normal).matchScore(pattern), tkFailure);
    EXPECT_THROW(load({}, binomial).matchScore(pattern), tkClassifierDefs::NotImplemented);
    EXPECT_THROW(load({}, binomial).adapt(pattern), tkClassifierDefs::NotImplemented);
}

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
            matches.emplace_back(static_cast<long>(i) * 10, std::exp(scores[i] - best), 0.0, 0.0);
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
    EXPECT_TK_THROW(tool.train(provider({{1}}, {0}), Params(Types(Types::eUniform))), tkClassifierDefs::NotImplemented,
                    L"Uniform distribution is not implemented");
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
                    L"A Bayesian classifier has parameters of another technique");
    EXPECT_FALSE(classifier.isTrained());
}

namespace
{
struct CheckedClassifier : tk_ClassifierBayesian
{
    using tk_ClassifierBayesian::checkRunnable_;
};
} // namespace

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

TEST(tkClassifierTrainParamsBayesian, recordKeepsCostsAndFrequenciesApart)
{
    tkClassifierFrequencies frequencies(0.25);
    tkClassifierCosts costs(8.0);
    const Params params(joint(2), frequencies, costs, tkFeaturePattern({3.0}, {0}));
    Params loaded;
    loadFromBytes(storeToBytes(params), loaded);
    EXPECT_TRUE(loaded == params);
    EXPECT_EQ(loaded.categoryFrequencies().defaultCategoryFrequency(), 0.25);
    for (const std::size_t level : {0u, 1u, 2u})
    {
        std::string bytes = storeToBytes(params);
        bytes[level] = 1;
        EXPECT_THROW(loadFromBytes(bytes, loaded), tkArchive::UnknownVersion);
    }
}

TEST(tkClassifierTrainParamsBayesian, everyFieldTakesPartInEquality)
{
    const Params params;
    Params other;
    EXPECT_TRUE(params == other);
    other.distributionTypes(Types(Types::eBinomial));
    EXPECT_FALSE(params == other);
    other = params;
    other.misclassificationCosts(tkClassifierCosts(2.0));
    EXPECT_FALSE(params == other);
    other = params;
    other.categoryFrequencies(tkClassifierFrequencies(2.0));
    EXPECT_FALSE(params == other);
    other = params;
    other.maxMeasurementValues(tkFeaturePattern({2.0}));
    EXPECT_FALSE(params == other);
    EXPECT_FALSE(params == tkClassifierTrainParamsKNN());
}

namespace
{
/// The object that a golden file holds behind a handle.
template <class T>
tkPtrHandle<T> goldenObject(const std::string& file)
{
    tkPtrHandle<T> object;
    loadFromBytes(goldenBytes(file), object);
    EXPECT_FALSE(object.isNull()) << file;
    return object;
}
} // namespace

TEST(goldenBayes, storedRecordsAreReadAndWrittenAsTheyWere)
{
    tkClassifierDistributionTypes types(Types::eBinomial);
    loadFromBytes(goldenBytes("tkClassifierDistributionTypes.v0.bin"), types);
    EXPECT_TRUE(types == golden::distributionTypes());
    EXPECT_EQ(storeToBytes(types), goldenBytes("tkClassifierDistributionTypes.v0.bin"));

    const auto params = goldenObject<Params>("tkClassifierTrainParamsBayesian.v0.bin");
    EXPECT_TRUE(*params == golden::trainParamsBayesian());
    EXPECT_EQ(storeToBytes(params), goldenBytes("tkClassifierTrainParamsBayesian.v0.bin"));

    const auto normal = goldenObject<tk_ProbabilityDensityFunction>("tk_PDFMultivariateNormal.v0.bin");
    EXPECT_TRUE(normal->isEquivalent(golden::normalDensity()));
    EXPECT_EQ(storeToBytes(normal), goldenBytes("tk_PDFMultivariateNormal.v0.bin"));

    const auto binomial = goldenObject<tk_ProbabilityDensityFunction>("tk_PDFBinomial.v0.bin");
    EXPECT_TRUE(binomial->isEquivalent(golden::binomialDensity()));
    EXPECT_EQ(storeToBytes(binomial), goldenBytes("tk_PDFBinomial.v0.bin"));

    const auto category = goldenObject<tk_CategoryModelBayesian>("tk_CategoryModelBayesian.v0.bin");
    EXPECT_TRUE(*category == golden::categoryModel());
    EXPECT_EQ(storeToBytes(category), goldenBytes("tk_CategoryModelBayesian.v0.bin"));

    const auto classifier = goldenObject<tk_ClassifierBayesian>("tk_ClassifierBayesian.v0.bin");
    EXPECT_TRUE(*classifier == golden::classifierBayesian());
    EXPECT_EQ(storeToBytes(classifier), goldenBytes("tk_ClassifierBayesian.v0.bin"));
    EXPECT_EQ(run(*classifier, {2.0, 3.0, 3.0}), run(golden::classifierBayesian(), {2.0, 3.0, 3.0}));
}

namespace
{
/// Mean and sums of squares of one set, by the recursion as it is written down.
struct PlainNormal
{
    double count = 0.0;
    std::vector<double> mean;
    std::vector<double> remainder;
    std::vector<std::vector<double>> squares;

    void learn(const std::vector<double>& x)
    {
        const std::size_t d = x.size();
        mean.resize(d);
        remainder.resize(d);
        squares.resize(d, std::vector<double>(d));
        count += 1.0;
        std::vector<double> before(d);
        std::vector<double> after(d);
        for (std::size_t j = 0; j < d; ++j)
        {
            before[j] = (x[j] - mean[j]) - remainder[j];
            const double step = before[j] / count + remainder[j];
            const double sum = mean[j] + step;
            const double added = sum - mean[j];
            remainder[j] = (mean[j] - (sum - added)) + (step - added);
            mean[j] = sum;
            after[j] = (x[j] - mean[j]) - remainder[j];
        }
        for (std::size_t i = 0; i < d; ++i)
            for (std::size_t j = 0; j <= i; ++j)
                squares[i][j] += before[i] * after[j];
    }
};

/// A measurement of one of eight kinds of data.
double measurement(std::size_t kind, std::size_t j, std::mt19937_64& generator)
{
    std::normal_distribution<double> deviate;
    const double v = deviate(generator);
    switch (kind)
    {
    case 0:
        return v;
    case 1:
        return std::round(2.0 * v);
    case 2:
        return 0.1 * static_cast<double>(j); // always the same
    case 3:
        return 1e8 + v;
    case 4:
        return std::ldexp(v, static_cast<int>(j % 60) - 30);
    case 5:
        return v > 0.0 ? 1.0 : std::nextafter(1.0, 2.0);
    case 6:
        return 4e146 * v;
    default:
        return 1e-170 * v;
    }
}

bool haveSameBits(double a, double b)
{
    return std::isnan(a) ? std::isnan(b) : a == b && std::signbit(a) == std::signbit(b);
}

/// Hands out one pattern object, with other contents each time.
class ReusingProvider : public tkClassifierDataProvider
{
public:
    explicit ReusingProvider(tkClassifierDataProviderMemory& data) : data_(data), pattern_(new tkFeaturePattern) {}
    std::wstring name() override { return L""; }
    std::wstring description() override { return L""; }
    long numMeasurements() const override { return data_.numMeasurements(); }
    long numPatterns() const override { return data_.numPatterns(); }
    tkPtrHandle_const<tkFeaturePattern> featurePattern(long index) override
    {
        *pattern_ = *data_.featurePattern(index);
        return pattern_;
    }
    long categoryLabel(long index) const override { return data_.categoryLabel(index); }

private:
    tkClassifierDataProviderMemory& data_;
    tkPtrHandle<tkFeaturePattern> pattern_;
};
} // namespace

TEST(tk_ClassifierBayesian, learnsAndScoresWithTheBitsOfThePlainDefinition)
{
    std::mt19937_64 generator(77);
    std::size_t comparisons = 0;
    for (std::size_t round = 0; round < 160; ++round)
    {
        const std::size_t kind = round % 8;
        const std::size_t dimension = 1 + (round * 7) % 37;
        const bool hasGaps = round % 3 == 1;
        Types types(Types::eNormal);
        std::vector<long> set;
        for (std::size_t j = 0; j < dimension; ++j)
            set.push_back(static_cast<long>(j));
        if (round % 5 == 1)
            types.setDependent(10, set);
        if (round % 5 == 2 && dimension > 3)
            types.setDependent(10, std::vector<long>(set.begin() + 1, set.begin() + 3));
        if (round % 5 == 3)
            types.setDependent(10, std::vector<long>(set.rbegin(), set.rend()));

        tkClassifierDataProviderMemory data;
        for (std::size_t i = 0; i < 150 + round; ++i)
        {
            std::vector<double> row;
            for (std::size_t j = 0; j < dimension; ++j)
                row.push_back(measurement(kind, j, generator));
            std::vector<long> invalid;
            if (hasGaps && i % 11 == 5)
                invalid.push_back(static_cast<long>(i % dimension));
            if (hasGaps && i % 13 == 6)
                row[i % dimension] = i % 2 ? HUGE_VAL : std::nan("");
            data.addData(tkPtrHandle_const<tkFeaturePattern>(new tkFeaturePattern(row, invalid)),
                         static_cast<long>(i % 7 % 3) * 10);
        }
        Params params;
        params.distributionTypes(types);
        tk_ClassifierBayesian classifier;
        classifier.train(data, params);

        for (const tkPtrHandle<tk_CategoryModel>& handle : classifier.categoryModels())
        {
            const auto& model = dynamic_cast<const tk_CategoryModelBayesian&>(*handle);
            std::vector<const tkNMNormal*> normals;
            for (std::size_t s = 0; s < model.densities().size(); ++s)
            {
                const std::vector<long>& indices = model.dependencySets()[s];
                PlainNormal plain;
                for (long p = 0; p < data.numPatterns(); ++p)
                {
                    if (data.categoryLabel(p) != model.categoryLabel())
                        continue;
                    std::vector<double> x;
                    for (const long index : indices)
                        if (data.featurePattern(p)->isValid(index) &&
                            std::isfinite(data.featurePattern(p)->featureMeasurement(index, true)))
                            x.push_back(data.featurePattern(p)->featureMeasurement(index, true));
                    if (x.size() == indices.size())
                        plain.learn(x);
                }
                const auto& density = dynamic_cast<const tk_PDFMultivariateNormal&>(*model.densities()[s]);
                normals.push_back(&density.normal());
                ASSERT_EQ(plain.count, static_cast<double>(density.normal().count()));
                const tkNMMatrix mean = density.mean();
                const tkNMMatrix covariance = density.covariance();
                for (std::size_t i = 0; i < indices.size(); ++i)
                {
                    const long row = static_cast<long>(i);
                    ASSERT_TRUE(haveSameBits(plain.mean[i], mean(row, 0)));
                    ASSERT_TRUE(haveSameBits(plain.remainder[i], mean.remainder(row, 0)));
                    for (std::size_t j = 0; j <= i; ++j, ++comparisons)
                        ASSERT_TRUE(haveSameBits(plain.squares[i][j] / (plain.count - 1.0),
                                                 covariance(row, static_cast<long>(j))));
                }
            }

            // The densities one by one go another way, and have the same bits.
            for (long p = 0; p < 2 * data.numPatterns(); ++p)
            {
                const tkFeaturePattern& taught = *data.featurePattern(p % data.numPatterns());
                std::vector<double> values = taught.featureMeasurements(false);
                if (p >= data.numPatterns())
                    for (double& v : values)
                        v *= p % 2 ? -3.0 : 1e200;
                const bool isValid[64] = {true, true, true, true, true, true, true, true, true, true,
                                          true, true, true, true, true, true, true, true, true, true,
                                          true, true, true, true, true, true, true, true, true, true,
                                          true, true, true, true, true, true, true, true, true, true};
                double expected = 0.0;
                for (std::size_t s = 0; s < normals.size(); ++s)
                {
                    std::vector<double> x;
                    for (const long index : model.dependencySets()[s])
                        x.push_back(values[static_cast<std::size_t>(index)]);
                    double logDensity = 0.0;
                    ASSERT_EQ(tkNMNormal::eOk,
                              normals[s]->logMarginal(x.data(), isValid, static_cast<long>(x.size()), logDensity));
                    const bool areFinite = std::isfinite(expected) && std::isfinite(logDensity);
                    expected += logDensity;
                    if (areFinite) // far away from many densities, the largest double stands for what overflows
                        expected = std::max(expected, -std::numeric_limits<double>::max());
                }
                ASSERT_TRUE(haveSameBits(expected, model.matchScore(tkFeaturePattern(values))));
                ++comparisons;
            }
        }
    }
    EXPECT_GE(comparisons, 200000U);
}

TEST(tk_ClassifierBayesian, learnsFromAProviderThatReusesItsPattern)
{
    Rows rows;
    std::vector<long> labels;
    randomData(200, 5, 3, rows, labels);
    tkClassifierDataProviderMemory data = provider(rows, labels);
    ReusingProvider reusing(data);
    tk_ClassifierBayesian expected;
    expected.train(data, Params());
    tk_ClassifierBayesian classifier;
    classifier.train(reusing, Params());
    EXPECT_TRUE(classifier == expected);
}

TEST(tk_ClassifierBayesian, learnsEveryPatternBeforeTheOneThatFails)
{
    Rows rows;
    std::vector<long> labels;
    randomData(40, 5, 4, rows, labels);
    tk_ClassifierBayesian expected;
    expected.train(provider(rows, labels), Params());
    rows.push_back({0.0, 1e200, 0.0, 0.0, 0.0});
    labels.push_back(10);
    tk_ClassifierBayesian classifier;
    EXPECT_THROW(classifier.train(provider(rows, labels), Params()), tkFailure);

    ASSERT_EQ(3U, classifier.categoryModels().size());
    for (std::size_t c = 0; c < 3; ++c)
    {
        const auto& model = dynamic_cast<const tk_CategoryModelBayesian&>(*classifier.categoryModels()[c]);
        const auto& other = dynamic_cast<const tk_CategoryModelBayesian&>(*expected.categoryModels()[c]);
        for (std::size_t j = 0; j < 5; ++j)
        {
            // The failing pattern taught the set before its own bad measurement.
            const bool learnedOneMore = c == 1 && j == 0;
            EXPECT_EQ(!learnedOneMore, model.densities()[j]->isEquivalent(*other.densities()[j]));
        }
    }
}

namespace
{
/// The log likelihood as it is defined: densities[i] at the restriction of the pattern to set i, summed in the order of
/// the sets. NaN stands for a density that refuses.
double plainScore(const tk_CategoryModelBayesian& model, const tkFeaturePattern& pattern)
{
    double score = 0.0;
    for (std::size_t i = 0; i < model.densities().size(); ++i)
        score += model.densities()[i]->logValue(
            tk_ProbabilityDensityFunction::restriction(pattern, model.dependencySets()[i]));
    return score;
}

/// Values from the data, far from them, and such as no camera gives.
tkFeaturePattern strangePattern(std::size_t dimension, std::mt19937_64& generator)
{
    const double strange[] = {HUGE_VAL, -HUGE_VAL, std::nan(""), 1e300, -1e200, 1e155, 5e-324, -0.0, 1e17};
    std::normal_distribution<double> deviate;
    std::vector<double> values(dimension);
    for (double& value : values)
        value = std::min(deviate(generator) * std::exp(2.0 * deviate(generator)), 90.0);
    std::vector<long> invalid;
    if (generator() % 3 == 0)
        values[generator() % dimension] = strange[generator() % std::size(strange)];
    for (std::size_t j = 7; j < dimension; j += 12)
        values[j] = std::fabs(values[j]); // a binomial measurement in some categories
    if (generator() % 4 == 0)
        invalid.push_back(static_cast<long>(generator() % dimension));
    return tkFeaturePattern(values, invalid);
}

/// Returns how many scores, compared for `count` strange patterns with the definition, were not refused.
int compareScores(const tk_ClassifierBayesian& classifier, std::size_t dimension, int count, std::mt19937_64& generator)
{
    int scored = 0;
    for (int i = 0; i < count; ++i)
    {
        const tkFeaturePattern pattern = strangePattern(dimension - generator() % 2, generator);
        for (std::size_t c = 0; c < classifier.categoryModels().size(); ++c)
        {
            const tk_CategoryModelBayesian& category = model(classifier, c);
            double expected = 0.0;
            try
            {
                expected = plainScore(category, pattern);
            }
            catch (const tkClassifierDefs::Errors& error)
            {
                EXPECT_TK_THROW(category.matchScore(pattern), tkClassifierDefs::BadParams, error.message());
                continue;
            }
            EXPECT_TRUE(haveSameBits(expected, category.matchScore(pattern)));
            ++scored;
        }
    }
    return scored;
}

/// Categories of 20 measurements: 0, all apart; 10, runs of single ones between sets and binomials; 20, one set, its
/// measurements in reverse, between single ones.
tk_ClassifierBayesian mixedClassifier(unsigned seed)
{
    Rows rows;
    std::vector<long> labels;
    randomData(200, 20, seed, rows, labels);
    for (std::vector<double>& row : rows)
        for (const std::size_t j : {7u, 19u})
            row[j] = 1.0 + std::fabs(row[j]);
    Types types(Types::eNormal);
    types.setDependent(10, {3, 4, 5});
    types.setDependent(10, {12, 9});
    types.setDependent(20, {8, 7, 6, 5, 4, 3, 2, 1});
    types.distributionTypeOverride(10, 7, Types::eBinomial);
    types.distributionTypeOverride(20, 19, Types::eBinomial);
    tk_ClassifierBayesian classifier;
    classifier.train(provider(rows, labels), Params(types, tkClassifierFrequencies(), tkClassifierCosts(),
                                                    tkFeaturePattern(std::vector<double>(20, 100.0))));
    return classifier;
}
} // namespace

TEST(tk_ClassifierBayesian, scoresMixedModelsWithTheBitsOfTheirDensities)
{
    std::mt19937_64 generator(21);
    for (unsigned seed = 1; seed <= 4; ++seed)
    {
        const tk_ClassifierBayesian classifier = mixedClassifier(seed);
        EXPECT_GT(compareScores(classifier, 20, 2000, generator), 4000);
        tk_ClassifierBayesian loaded;
        loadFromBytes(storeToBytes(classifier), loaded);
        EXPECT_GT(compareScores(loaded, 20, 500, generator), 1000);
        const tkFeaturePattern pattern(std::vector<double>(20, 0.25));
        for (std::size_t c = 0; c < 3; ++c)
            EXPECT_EQ(model(loaded, c).matchScore(pattern), model(classifier, c).matchScore(pattern));
    }
}

namespace
{
/// What a run gives, or the message with which it is refused.
struct Outcome
{
    std::wstring message;
    tkClassifierResult result;
};

template <class Run>
Outcome outcomeOf(const Run& run)
{
    Outcome outcome;
    try
    {
        run(outcome.result);
    }
    catch (const tkException& error)
    {
        outcome.message = error.message();
    }
    return outcome;
}

void runByDefinition(const tk_ClassifierBayesian& classifier, const tkFeaturePattern& pattern,
                     tkClassifierResult& result)
{
    std::vector<double> scores;
    for (std::size_t c = 0; c < classifier.categoryModels().size(); ++c)
        scores.push_back(plainScore(model(classifier, c), pattern));
    double best = -HUGE_VAL;
    for (const double score : scores)
        best = best >= score ? best : score;
    std::vector<tkClassifierCategoryResult> matches;
    for (std::size_t c = 0; c < scores.size(); ++c)
        matches.emplace_back(model(classifier, c).categoryLabel(), std::exp(scores[c] + (0.0 - best)), 0.0, 0.0);
    const auto& params = dynamic_cast<const Params&>(*classifier.trainParams());
    result = tkClassifierResult(matches, params.categoryFrequencies(), params.misclassificationCosts(), 0.0 - best);
}

/// Returns how many runs, compared for `count` strange patterns with the definition, were not refused.
int compareRuns(const tk_ClassifierBayesian& classifier, std::size_t dimension, int count, std::mt19937_64& generator)
{
    int classified = 0;
    for (int i = 0; i < count; ++i)
    {
        const tkFeaturePattern pattern = strangePattern(dimension - generator() % 8 / 7, generator);
        const Outcome expected =
            outcomeOf([&](tkClassifierResult& result) { runByDefinition(classifier, pattern, result); });
        const Outcome actual = outcomeOf([&](tkClassifierResult& result) { classifier.run(pattern, result); });
        EXPECT_EQ(expected.message, actual.message);
        const auto& expectedResults = expected.result.categoryResults();
        const auto& actualResults = actual.result.categoryResults();
        EXPECT_EQ(expectedResults.size(), actualResults.size());
        EXPECT_TRUE(haveSameBits(expected.result.matchScoreFactorLog(), actual.result.matchScoreFactorLog()));
        for (std::size_t c = 0; c < std::min(expectedResults.size(), actualResults.size()); ++c)
        {
            EXPECT_EQ(expectedResults[c].categoryLabel(), actualResults[c].categoryLabel());
            EXPECT_TRUE(haveSameBits(expectedResults[c].matchScore(), actualResults[c].matchScore()));
        }
        classified += actual.message.empty();
    }
    return classified;
}

/// 27 categories of 20 measurements, by label: 0 to 10, sets of neighbours and single ones; 11 to 18, all apart; 19 and
/// 20, all in one set; 21, the same with others; 22 and 23, not neighbours; 24 to 26 with a binomial one, if asked for.
tk_ClassifierBayesian manyCategories(unsigned seed, bool withBinomials)
{
    Rows rows;
    std::vector<long> labels;
    randomData(600, 20, seed, rows, labels);
    for (std::size_t i = 0; i < labels.size(); ++i)
    {
        labels[i] = static_cast<long>(i % 27);
        rows[i][7] = 1.0 + std::fabs(rows[i][7]);
    }
    Types types(Types::eNormal);
    std::vector<long> all(20);
    std::iota(all.begin(), all.end(), 0L);
    for (long label = 0; label <= 10; ++label)
    {
        types.setDependent(label, {0, 1, 2, 3, 4});
        types.setDependent(label, {6, 7, 8, 9, 10, 11, 12, 13, 14});
    }
    for (const long label : {19L, 20L})
        types.setDependent(label, all);
    types.setDependent(21, std::vector<long>(all.begin(), all.end() - 1));
    for (const long label : {22L, 23L})
        types.setDependent(label, {9, 3});
    for (const long label : {24L, 25L, 26L})
        if (withBinomials)
            types.distributionTypeOverride(label, 7, Types::eBinomial);
    tk_ClassifierBayesian classifier;
    classifier.train(provider(rows, labels), Params(types, tkClassifierFrequencies(1.0), tkClassifierCosts(1.0),
                                                    tkFeaturePattern(std::vector<double>(20, 100.0))));
    return classifier;
}

tk_CategoryModelBayesian& changeable(tk_ClassifierBayesian& classifier, std::size_t i)
{
    return dynamic_cast<tk_CategoryModelBayesian&>(*classifier.categoryModels()[i]);
}
} // namespace

TEST(tk_ClassifierBayesian, runsManyCategoriesWithTheBitsOfTheirDensities)
{
    std::mt19937_64 generator(23);
    for (const bool withBinomials : {false, true})
    {
        const tk_ClassifierBayesian classifier = manyCategories(1, withBinomials);
        EXPECT_GT(compareRuns(classifier, 20, 2000, generator), 1000);
        tk_ClassifierBayesian loaded;
        loadFromBytes(storeToBytes(classifier), loaded);
        EXPECT_GT(compareRuns(loaded, 20, 500, generator), 250);
    }
}

TEST(tk_ClassifierBayesian, runsFollowEveryChangeOfADensity)
{
    std::mt19937_64 generator(22);
    tk_ClassifierBayesian classifier = manyCategories(5, false);
    const tk_ClassifierBayesian shared(classifier); // the same models
    const tkFeaturePattern pattern(std::vector<double>(20, 0.5));
    for (const std::size_t c : {0u, 9u, 12u, 19u, 24u})
    {
        tk_CategoryModelBayesian& changed = changeable(classifier, c);
        tk_CategoryModelBayesian copy(changed); // other handles to the same densities
        const double before = changed.matchScore(pattern);
        changed.adapt(pattern); // through this model, ...
        const double afterAdapt = changed.matchScore(pattern);
        EXPECT_NE(before, afterAdapt);
        EXPECT_EQ(copy.matchScore(pattern), afterAdapt);
        EXPECT_GT(compareRuns(shared, 20, 100, generator), 50);

        copy.adapt(tkFeaturePattern(std::vector<double>(20, 0.75))); // ... through a copy of it, ...
        EXPECT_EQ(copy.matchScore(pattern), changed.matchScore(pattern));
        EXPECT_GT(compareRuns(shared, 20, 100, generator), 50);

        changed.densities()[0]->updateWithData( // ... and through a handle to one of them.
            {tkFeaturePattern(std::vector<double>(changed.dependencySets()[0].size(), 1.5))});
        EXPECT_GT(compareRuns(shared, 20, 100, generator), 50);
    }
    changeable(classifier, 3).densities()[0]->clear();
    tkClassifierResult result;
    EXPECT_TK_THROW(shared.run(pattern, result), tkClassifierDefs::InsufficientTrainData,
                    L"No valid data has been used to train the distribution for category 3");
}

TEST(tk_ClassifierBayesian, runsFollowAModelThatIsReplaced)
{
    std::mt19937_64 generator(24);
    tk_ClassifierBayesian classifier = manyCategories(6, false);
    const tk_CategoryModelBayesian kept(model(classifier, 1)); // so that its densities live on
    tk_CategoryModelBayesian& changed = changeable(classifier, 1);
    const auto expectFollowed = [&]
    {
        changed.categoryLabel(1);
        EXPECT_GT(compareRuns(classifier, 20, 100, generator), 50);
    };
    changed = model(classifier, 2); // of another product
    expectFollowed();
    changed = model(manyCategories(7, false), 1); // whose products are gone
    expectFollowed();
    changed = kept;
    expectFollowed();
    loadFromBytes(storeToBytes(model(manyCategories(8, false), 12)), changed);
    expectFollowed();
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

TEST(tk_ClassifierBayesian, productsOutliveNeitherTheClassifierNorTheirDensities)
{
    Density density;
    {
        const tk_ClassifierBayesian classifier = manyCategories(6, false);
        density = model(classifier, 12).densities()[3];
    }
    density->updateWithData({tkFeaturePattern({1.0})}); // what mirrored it has gone
    tk_ClassifierBayesian classifier = manyCategories(6, false);
    const tk_ClassifierBayesian copy(classifier);
    std::mt19937_64 generator(25);
    classifier.untrain();
    EXPECT_GT(compareRuns(copy, 20, 100, generator), 50);
}

TEST(tk_ClassifierBayesian, patternsShorterThanTheLastSetLackItsMeasurements)
{
    const tk_ClassifierBayesian classifier = manyCategories(9, false);
    for (std::size_t size = 0; size <= 21; ++size)
    {
        const tkFeaturePattern pattern(std::vector<double>(size, 0.25));
        const Outcome expected =
            outcomeOf([&](tkClassifierResult& result) { runByDefinition(classifier, pattern, result); });
        EXPECT_TRUE(expected.result == run(classifier, std::vector<double>(size, 0.25))) << size;
    }
}

namespace
{
/// Scores what it likes.
class ModelOfItsOwn : public tk_CategoryModelBayesian
{
public:
    using tk_CategoryModelBayesian::tk_CategoryModelBayesian;

    double matchScore(const tkFeaturePattern&, tkDiagObject*, unsigned long) const override { return score; }

    static double score;

private:
    static tkPersistent* make() { return new ModelOfItsOwn; }
    static const Registration registration_;
};
double ModelOfItsOwn::score = -7.0;
const tkPersistent::Registration ModelOfItsOwn::registration_(typeid(ModelOfItsOwn), &ModelOfItsOwn::make);

/// Categories 0, 1 and 2, the second one with a model of its own; the third one lies farther from 1.0 than the first.
tk_ClassifierBayesian classifierWithAModelOfItsOwn()
{
    using Model = tkPtrHandle<tk_CategoryModel>;
    const Sets sets{{0}, {1}};
    const std::vector<Types::DistributionType> types(2, Types::eNormal);
    std::vector<Model> models{Model(new tk_CategoryModelBayesian(0, sets, types, tkFeaturePattern())),
                              Model(new ModelOfItsOwn(1, sets, types, tkFeaturePattern())),
                              Model(new tk_CategoryModelBayesian(2, sets, types, tkFeaturePattern()))};
    for (std::size_t c = 0; c < 3; ++c)
        for (const double value : {0.0, 1.0, 3.0})
            models[c]->adapt(tkFeaturePattern({value + 5.0 * static_cast<double>(c), -value}));
    std::ostringstream stream;
    {
        tkArchive archive(stream);
        unsigned char version = 0;
        tkPtrHandle_const<tkClassifierTrainParams> params(
            new Params(Types(Types::eNormal), tkClassifierFrequencies(1.0), tkClassifierCosts(1.0), {}));
        std::vector<long> labels{0, 1, 2};
        archive || version || version || version || params || labels || models;
    }
    tk_ClassifierBayesian loaded;
    loadFromBytes(stream.str(), loaded);
    return loaded;
}
} // namespace

TEST(tk_ClassifierBayesian, aModelOfADerivedClassIsAsked)
{
    ModelOfItsOwn::score = -7.0;
    const tk_ClassifierBayesian classifier = classifierWithAModelOfItsOwn();
    const tkFeaturePattern pattern({1.0, 1.0});
    const double first = model(classifier, 0).matchScore(pattern);
    const double third = model(classifier, 2).matchScore(pattern);
    ASSERT_NE(first, -7.0);
    ASSERT_LT(third, first);
    const tkClassifierResult result = run(classifier, {1.0, 1.0});
    EXPECT_EQ(result.matchScoreFactorLog(), 0.0 - std::max(-7.0, first));
    ASSERT_EQ(result.categoryResults().size(), 3u);
    for (const tkClassifierCategoryResult& each : result.categoryResults())
    {
        const double scores[] = {first, -7.0, third};
        EXPECT_EQ(each.matchScore(), std::exp(scores[each.categoryLabel()] + result.matchScoreFactorLog()));
    }
}

TEST(tk_ClassifierBayesian, aCategoryIsCheckedBeforeTheNextOneAndAllBeforeTheyAreCompared)
{
    tk_ClassifierBayesian classifier = classifierWithAModelOfItsOwn();
    const tkFeaturePattern pattern({1.0, 1.0});
    tkClassifierResult result = run(classifier, {1.0, 1.0});
    const tkClassifierResult before(result);
    const wchar_t scores[] = L"Scores must be >= 0.0 and <= 1.0";
    const wchar_t labels[] = L"Category labels must be >= 0";
    ModelOfItsOwn::score = std::nan(""); // the maximum then is that of the third category, which the first one exceeds
    EXPECT_TK_THROW(classifier.run(pattern, result), tkClassifierDefs::BadParams, scores);
    for (const long second : {-5L, 0L, 2L})
    {
        changeable(classifier, 1).categoryLabel(second);
        EXPECT_TK_THROW(classifier.run(pattern, result), tkClassifierDefs::BadParams, scores);
    }
    changeable(classifier, 0).categoryLabel(-1);
    EXPECT_TK_THROW(classifier.run(pattern, result), tkClassifierDefs::BadLabel, labels);
    ModelOfItsOwn::score = -7.0;
    EXPECT_TK_THROW(classifier.run(pattern, result), tkClassifierDefs::BadLabel, labels);
    EXPECT_TRUE(result == before);
}

TEST(tk_ClassifierBayesian, productsRunInSeveralThreads)
{
    tk_ClassifierBayesian classifier = manyCategories(8, true);
    changeable(classifier, 2).adapt(tkFeaturePattern(std::vector<double>(20, 0.5))); // its densities leave their places
    const tk_ClassifierBayesian copy(classifier);
    std::vector<std::vector<tkClassifierResult>> results(4);
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < results.size(); ++t)
        threads.emplace_back(
            [&, t]
            {
                const tk_ClassifierBayesian& own = t % 2 ? classifier : copy;
                for (int i = 0; i < 200; ++i)
                    results[t].push_back(run(own, std::vector<double>(20, 0.01 * i)));
            });
    for (std::thread& thread : threads)
        thread.join();
    for (const std::vector<tkClassifierResult>& other : results)
        EXPECT_TRUE(other == results[0]);
}

namespace
{
/// Hands out what it is given, as it is given, keeps account of what it is asked for, and may fail at one pattern.
class ListProvider : public tkClassifierDataProvider
{
public:
    struct Failure
    {
        long index;
    };

    void add(const tkFeaturePattern& pattern, long label)
    {
        patterns.emplace_back(new tkFeaturePattern(pattern));
        labels.push_back(label);
    }

    std::wstring name() override { return L""; }
    std::wstring description() override { return L""; }
    long numMeasurements() const override { return measurements; }
    long numPatterns() const override { return static_cast<long>(patterns.size()); }
    tkPtrHandle_const<tkFeaturePattern> featurePattern(long index) override
    {
        asked.push_back({'p', index});
        if (index == failingPattern)
            throw Failure{index};
        return patterns[static_cast<std::size_t>(index)];
    }
    long categoryLabel(long index) const override
    {
        asked.push_back({'l', index});
        if (index == failingLabel)
            throw Failure{index};
        return labels[static_cast<std::size_t>(index)];
    }

    long measurements = 0;
    long failingPattern = -1;
    long failingLabel = -1;
    std::vector<tkPtrHandle_const<tkFeaturePattern>> patterns;
    std::vector<long> labels;
    mutable std::vector<std::pair<char, long>> asked;
};

/// The models that pattern after pattern of the first `count` gives, in the order in which they occur.
std::vector<tk_CategoryModelBayesian> learnedOneByOne(const ListProvider& data, const Params& params, std::size_t count)
{
    std::vector<tk_CategoryModelBayesian> models;
    for (std::size_t p = 0; p < count; ++p)
    {
        const long label = data.labels[p];
        if (label == -1)
            continue;
        auto model = std::find_if(models.begin(), models.end(),
                                  [label](const tk_CategoryModelBayesian& m) { return m.categoryLabel() == label; });
        if (model == models.end())
        {
            // Its sets are those of a classifier that knows this pattern alone.
            ListProvider one;
            one.measurements = data.measurements;
            one.add(*data.patterns[p], label);
            tk_ClassifierBayesian classifier;
            classifier.train(one, params);
            const Sets sets = ::model(classifier, 0).dependencySets();
            std::vector<Types::DistributionType> types;
            for (const std::vector<long>& set : sets)
                types.push_back(params.distributionTypes().distributionType(label, set.front()));
            models.emplace_back(label, sets, types, params.maxMeasurementValues());
            model = models.end() - 1;
        }
        model->adapt(*data.patterns[p]);
    }
    return models;
}

void expectModels(const tk_ClassifierBayesian& classifier, const std::vector<tk_CategoryModelBayesian>& expected)
{
    ASSERT_EQ(classifier.categoryModels().size(), expected.size());
    for (std::size_t c = 0; c < expected.size(); ++c)
    {
        EXPECT_TRUE(model(classifier, c) == expected[c]) << c;
        EXPECT_EQ(storeToBytes(model(classifier, c)), storeToBytes(expected[c])) << c;
    }
}

/// A memory provider, whose patterns are learned where they stand, and another one give what one by one gives.
void expectLearnsAsOneByOne(ListProvider& data, const Params& params)
{
    const std::vector<tk_CategoryModelBayesian> expected = learnedOneByOne(data, params, data.patterns.size());
    tk_ClassifierBayesian classifier;
    classifier.train(data, params);
    expectModels(classifier, expected);

    tkClassifierDataProviderMemory memory;
    memory.data(data.patterns, data.labels);
    tk_ClassifierBayesian fromMemory;
    fromMemory.train(memory, params);
    expectModels(fromMemory, expected);
}

/// `count` patterns in random order of `labels` categories and the unknown one, some with gaps or infinities.
ListProvider randomProvider(long measurements, std::size_t count, long labels, unsigned seed)
{
    std::mt19937_64 generator(seed);
    ListProvider data;
    data.measurements = measurements;
    for (std::size_t i = 0; i < count; ++i)
    {
        std::vector<double> row;
        for (long j = 0; j < measurements; ++j)
            row.push_back(measurement(i % 6, static_cast<std::size_t>(j), generator));
        std::vector<long> invalid;
        if (generator() % 9 == 0)
            invalid.push_back(static_cast<long>(generator() % static_cast<unsigned long>(measurements)));
        if (generator() % 11 == 0)
            row[generator() % row.size()] = generator() % 2 == 0 ? -HUGE_VAL : std::nan("");
        data.add(tkFeaturePattern(row, invalid),
                 static_cast<long>(generator() % static_cast<unsigned long>(labels)) - 1);
    }
    return data;
}
} // namespace

TEST(tk_ClassifierBayesian, learnsEveryKindOfCategoryAsPatternByPattern)
{
    for (long d = 1; d <= 19; d += d < 3 ? 1 : 4)
    {
        const std::vector<std::vector<Sets>> kinds{
            {{}},                         // each measurement on its own
            {{{0, 1}}},                   // a pair
            {{{0, 1, 2, 3, 4, 5, 6, 7}}}, // a whole group of lanes
            {{{1, 2, 3}, {4, 5}}},        // sets that begin in the middle of one
            {{{2, 0}}},                   // not neighbours
            {{{0, 1}, {2, d + 3}}},       // beyond the end
        };
        for (std::size_t kind = 0; kind < 7; ++kind)
        {
            Types types(Types::eNormal);
            if (kind < kinds.size())
                for (const std::vector<long>& set : kinds[kind].front())
                    for (const long label : {0L, 1L})
                        types.setDependent(label, set);
            else
                types.distributionTypeOverride(1, d - 1, Types::eBinomial);
            ListProvider data = randomProvider(d, 400, 4, static_cast<unsigned>(d) * 10 + static_cast<unsigned>(kind));
            expectLearnsAsOneByOne(data,
                                   Params(types, tkClassifierFrequencies(), tkClassifierCosts(),
                                          tkFeaturePattern(std::vector<double>(static_cast<std::size_t>(d), 2e8))));
        }
    }
}

TEST(tk_ClassifierBayesian, learnsFromOnePatternAndFromNone)
{
    ListProvider none;
    expectLearnsAsOneByOne(none, Params());
    ListProvider one;
    one.measurements = 2;
    one.add(tkFeaturePattern({1.0, 2.0}), 7);
    expectLearnsAsOneByOne(one, Params());
    one.labels[0] = -1;
    expectLearnsAsOneByOne(one, Params());
}

TEST(tk_ClassifierBayesian, anyNumberOfLabelsIsToldApart)
{
    ListProvider data = randomProvider(3, 6000, 1500, 5);
    for (std::size_t p = 0; p < data.labels.size(); p += 3)
        data.labels[p] = data.labels[p] % 5 == 0 ? 2147483647L - data.labels[p] : data.labels[p];
    expectLearnsAsOneByOne(data, Params());
}

TEST(tk_ClassifierBayesian, patternsOfOtherLengthsAreLearnedAsTheyAre)
{
    ListProvider data = randomProvider(5, 300, 3, 6);
    for (std::size_t p = 0; p < data.patterns.size(); p += 7)
    {
        std::vector<double> row = data.patterns[p]->featureMeasurements(false);
        row.resize(p % 2 == 0 ? 3 : 9, 1.5);
        data.patterns[p] = tkPtrHandle_const<tkFeaturePattern>(new tkFeaturePattern(row));
    }
    tk_ClassifierBayesian classifier;
    classifier.train(data, Params());
    expectModels(classifier, learnedOneByOne(data, Params(), data.patterns.size()));
}

TEST(tk_ClassifierBayesian, aProviderIsAskedForEachPatternInTurnUntilOneFails)
{
    for (const bool dependent : {false, true})
        for (const long failing : {0L, 1L, 2L, 17L, 40L, 99L})
            for (int what = 0; what < 3; ++what)
            {
                ListProvider data = randomProvider(4, 100, 4, 7);
                Params params;
                if (dependent)
                {
                    Types types(Types::eNormal);
                    for (long label = 0; label < 3; ++label)
                        types.setDependent(label, {0, 1, 2, 3});
                    params.distributionTypes(types);
                }
                data.failingPattern = what == 0 ? failing : -1;
                data.failingLabel = what == 1 ? failing : -1;
                if (what == 2)
                {
                    // Refused by every density, but unlabelled patterns are not looked at.
                    data.patterns[static_cast<std::size_t>(failing)] =
                        tkPtrHandle_const<tkFeaturePattern>(new tkFeaturePattern({1e200, 1e200, 1e200, 1e200}));
                    data.labels[static_cast<std::size_t>(failing)] = 1;
                }
                tk_ClassifierBayesian classifier;
                if (what < 2)
                {
                    long index = -1;
                    try
                    {
                        classifier.train(data, params);
                    }
                    catch (const ListProvider::Failure& failure)
                    {
                        index = failure.index;
                    }
                    EXPECT_EQ(index, failing);
                }
                else
                    EXPECT_THROW(classifier.train(data, params), tkFailure);

                std::vector<std::pair<char, long>> expectedCalls;
                for (long p = 0; p <= failing; ++p)
                {
                    expectedCalls.push_back({'p', p});
                    if (what > 0 || p < failing)
                        expectedCalls.push_back({'l', p});
                }
                EXPECT_EQ(data.asked, expectedCalls);
                expectModels(classifier, learnedOneByOne(data, params, static_cast<std::size_t>(failing)));
                if (what < 2)
                    continue;
                tkClassifierDataProviderMemory memory;
                memory.data(data.patterns, data.labels);
                tk_ClassifierBayesian fromMemory;
                EXPECT_THROW(fromMemory.train(memory, params), tkFailure);
                expectModels(fromMemory, learnedOneByOne(data, params, static_cast<std::size_t>(failing)));
            }
}

TEST(tk_ClassifierBayesian, aNullHandleFailsUnlessItsCategoryIsUnknown)
{
    ListProvider data = randomProvider(2, 60, 3, 8);
    data.patterns[30] = tkPtrHandle_const<tkFeaturePattern>();
    data.labels[30] = -1;
    data.patterns[45] = tkPtrHandle_const<tkFeaturePattern>();
    data.labels[45] = 0;
    tk_ClassifierBayesian classifier;
    EXPECT_THROW(classifier.train(data, Params()), tkBadPointer);
    expectModels(classifier, learnedOneByOne(data, Params(), 45));
    EXPECT_EQ(data.asked.back(), std::make_pair('l', 45L));

    // A memory provider can only be loaded with one. Its record: versions, two texts, patterns, labels.
    std::ostringstream stream;
    tkArchive archive(stream);
    for (int level = 0; level < 3; ++level)
        archive.exchangeVersion();
    std::wstring text;
    archive || text || text || data.patterns || data.labels;
    tkClassifierDataProviderMemory memory;
    loadFromBytes(stream.str(), memory);
    ASSERT_TRUE(memory.featurePattern(45).isNull());
    tk_ClassifierBayesian fromMemory;
    EXPECT_THROW(fromMemory.train(memory, Params()), tkBadPointer);
    expectModels(fromMemory, learnedOneByOne(data, Params(), 45));
}

TEST(tk_ClassifierBayesian, aNewCategoryIsModelledBeforeItsPatternIsLookedAt)
{
    ListProvider data = randomProvider(2, 10, 3, 8);
    data.patterns.emplace_back();
    data.labels.push_back(77);
    Types types(Types::eNormal);
    types.distributionTypeOverride(77, 0, Types::ePoisson);
    const Params params(types, tkClassifierFrequencies(), tkClassifierCosts(), tkFeaturePattern());
    tk_ClassifierBayesian classifier;
    EXPECT_TK_THROW(classifier.train(data, params), tkClassifierDefs::NotImplemented,
                    L"Poisson distribution is not implemented");
}

TEST(tk_ClassifierBayesian, aClassDerivedFromTheMemoryProviderIsAsked)
{
    struct Doubled : tkClassifierDataProviderMemory
    {
        tkPtrHandle_const<tkFeaturePattern> featurePattern(long index) override
        {
            std::vector<double> row = tkClassifierDataProviderMemory::featurePattern(index)->featureMeasurements(false);
            for (double& v : row)
                v *= 2.0;
            return tkPtrHandle_const<tkFeaturePattern>(new tkFeaturePattern(row));
        }
    };
    Doubled doubled;
    static_cast<tkClassifierDataProviderMemory&>(doubled) = provider({{1}, {2}, {4}}, {0, 0, 0});
    tk_ClassifierBayesian classifier;
    classifier.train(doubled, Params());
    tk_ClassifierBayesian expected;
    expected.train(provider({{2}, {4}, {8}}, {0, 0, 0}), Params());
    EXPECT_TRUE(classifier == expected);
}
