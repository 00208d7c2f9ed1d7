#include "clss/clastool/bayes/tk_BayesAccelerator.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "foundation/tkArchiveOperators.h"
#include "foundation/tkException.h"
#include "numerics/tkNMDecision.h"
#include "numerics/tkNMElementary.h"
#include "tests/bayes/bayesTestData.h"
#include "tkTest.h"

#include <algorithm>
#include <iterator>
#include <sstream>
#include <thread>

using namespace bayesTest;

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
    // None, a quarter, half, three quarters or all of the measurements.
    if (generator() % 4 == 0)
        for (std::size_t j = 0, share = generator() % 5; j < dimension; ++j)
            if (generator() % 4 < share)
                invalid.push_back(static_cast<long>(j));
    return tkFeaturePattern(values, invalid);
}

tkFeaturePattern magnitudesOf(const tkFeaturePattern& pattern)
{
    std::vector<double> values = pattern.featureMeasurements(false);
    std::vector<long> invalid;
    for (long j = 0; j < pattern.numMeasurements(); ++j)
    {
        values[static_cast<std::size_t>(j)] = std::fabs(values[static_cast<std::size_t>(j)]);
        if (!pattern.isValid(j))
            invalid.push_back(j);
    }
    return tkFeaturePattern(values, invalid);
}

/// Returns how many scores of the accelerator, compared for `count` strange patterns with the definition, were not
/// refused.
int compareScores(const tk_ClassifierBayesian& classifier, std::size_t dimension, int count, std::mt19937_64& generator)
{
    const tk_BayesAccelerator::Models& models = classifier.categoryModels();
    const tk_BayesAccelerator accelerator(models);
    std::vector<double> scores(tkNMDecision::roundUp(models.size()));
    int scored = 0;
    for (int i = 0; i < count; ++i)
    {
        const tkFeaturePattern pattern = strangePattern(dimension - generator() % 2, generator);
        std::vector<double> expected;
        try
        {
            for (std::size_t c = 0; c < models.size(); ++c)
                expected.push_back(plainScore(model(classifier, c), pattern));
        }
        catch (const tkClassifierDefs::Errors& error)
        {
            EXPECT_TK_THROW(accelerator.matchScores(models, pattern, scores.data()), tkClassifierDefs::BadParams,
                            error.message());
            EXPECT_TK_THROW(model(classifier, expected.size()).matchScore(pattern), tkClassifierDefs::BadParams,
                            error.message());
            continue;
        }
        accelerator.matchScores(models, pattern, scores.data());
        for (std::size_t c = 0; c < models.size(); ++c)
        {
            EXPECT_TRUE(haveSameBits(expected[c], scores[c])) << c;
            EXPECT_TRUE(haveSameBits(expected[c], model(classifier, c).matchScore(pattern))) << c;
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

/// Three categories of 12 measurements of their own, binomial where the sum of category and measurement is a multiple
/// of `period`.
tk_ClassifierBayesian alternatingClassifier(long period)
{
    Rows rows;
    std::vector<long> labels;
    randomData(90, 12, 31, rows, labels);
    Types types(Types::eNormal);
    for (std::size_t i = 0; i < rows.size(); ++i)
    {
        labels[i] /= 10;
        for (double& value : rows[i])
            value = std::fabs(value) + 1.0;
    }
    for (long label = 0; label < 3; ++label)
        for (long j = 0; j < 12; ++j)
            if ((label + j) % period == 0)
                types.distributionTypeOverride(label, j, Types::eBinomial);
    tk_ClassifierBayesian classifier;
    classifier.train(provider(rows, labels), Params(types, tkClassifierFrequencies(1.0), tkClassifierCosts(1.0),
                                                    tkFeaturePattern(std::vector<double>(12, 100.0))));
    return classifier;
}

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
        matches.emplace_back(model(classifier, c).categoryLabel(), tkNMElementary::exp(scores[c] + (0.0 - best)), 0.0,
                             0.0);
    const auto& params = dynamic_cast<const Params&>(*classifier.trainParams());
    result = tkClassifierResult(matches, params.categoryFrequencies(), params.misclassificationCosts(), 0.0 - best);
}

/// Returns how many runs, compared for `count` strange patterns with the definition, were not refused.
int compareRuns(const tk_ClassifierBayesian& classifier, std::size_t dimension, int count, std::mt19937_64& generator,
                bool areNegative = true)
{
    int classified = 0;
    for (int i = 0; i < count; ++i)
    {
        tkFeaturePattern pattern = strangePattern(dimension - generator() % 8 / 7, generator);
        if (!areNegative)
            pattern = magnitudesOf(pattern);
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

TEST(tk_BayesAccelerator, scoresMixedModelsWithTheBitsOfTheirDensities)
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

TEST(tk_BayesAccelerator, runsManyCategoriesWithTheBitsOfTheirDensities)
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

TEST(tk_BayesAccelerator, runsCategoriesOfAlternatingDensitiesWithTheBitsOfTheirSum)
{
    std::mt19937_64 generator(26);
    const tk_ClassifierBayesian three = mixedClassifier(2);
    EXPECT_GT(compareRuns(three, 20, 1000, generator), 500);
    for (const long period : {2L, 3L, 5L})
    {
        const tk_ClassifierBayesian classifier = alternatingClassifier(period);
        EXPECT_GT(compareRuns(classifier, 12, 1000, generator, false), 100);
    }
}

TEST(tk_BayesAccelerator, theFirstCategoryThatRefusesIsNamed)
{
    tk_ClassifierBayesian classifier = alternatingClassifier(3);
    const tkFeaturePattern pattern(std::vector<double>(12, 2.0));
    tkClassifierResult result;
    EXPECT_NO_THROW(classifier.run(pattern, result));
    const auto expectRefused = [&](long category)
    {
        EXPECT_TK_THROW(classifier.run(pattern, result), tkClassifierDefs::InsufficientTrainData,
                        L"Insufficient data has been used to train the distribution for category " +
                            std::to_wstring(category));
    };
    model(classifier, 2).densities()[1]->clear();
    expectRefused(2);
    model(classifier, 1).densities()[11]->clear();
    expectRefused(1);
    model(classifier, 0).densities()[1]->clear(); // a normal density: the category goes by its model
    EXPECT_TK_THROW(classifier.run(pattern, result), tkClassifierDefs::InsufficientTrainData,
                    L"No valid data has been used to train the distribution for category 0");
}

TEST(tk_BayesAccelerator, runsFollowEveryChangeOfADensity)
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

TEST(tk_BayesAccelerator, runsFollowAModelThatIsReplaced)
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

TEST(tk_BayesAccelerator, outlivesNeitherTheClassifiersNorTheModels)
{
    Density density;
    {
        const tk_ClassifierBayesian classifier = manyCategories(6, false);
        density = model(classifier, 12).densities()[3];
    }
    density->updateWithData({tkFeaturePattern({1.0})}); // the accelerator has gone
    tk_ClassifierBayesian classifier = manyCategories(6, false);
    const tk_ClassifierBayesian copy(classifier);
    std::mt19937_64 generator(25);
    classifier.untrain();
    EXPECT_GT(compareRuns(copy, 20, 100, generator), 50);
}

TEST(tk_BayesAccelerator, patternsShorterThanTheLastSetLackItsMeasurements)
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

TEST(tk_BayesAccelerator, aModelOfADerivedClassIsAsked)
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
        EXPECT_EQ(each.matchScore(), tkNMElementary::exp(scores[each.categoryLabel()] + result.matchScoreFactorLog()));
    }
}

TEST(tk_BayesAccelerator, aCategoryIsCheckedBeforeTheNextOneAndAllBeforeTheyAreCompared)
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

TEST(tk_BayesAccelerator, runsInSeveralThreads)
{
    tk_ClassifierBayesian classifier = manyCategories(8, true);
    changeable(classifier, 2).adapt(tkFeaturePattern(std::vector<double>(20, 0.5))); // which then goes by its model
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
