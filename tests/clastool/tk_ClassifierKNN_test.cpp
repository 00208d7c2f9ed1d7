#include "scriptedMethod.h"
#include "tests/definition/neighbours.h"
#include "tests/golden/nearestNeighbors.h"
#include "tkAllocations.h"
#include "tkTest.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/clastool/clastool/tkClassifierTool.h"
#include "clss/clastool/clastool/tk_ClassifierKNN.h"
#include "foundation/tkArchiveOperators.h"
#include "foundation/tkAssert.h"

#include <algorithm>
#include <fstream>
#include <random>
#include <set>
#include <stdexcept>
#include <thread>

namespace
{
using Params = tkClassifierTrainParamsKNN;
using Handle = tkPtrHandle_const<tkFeaturePattern>;
using Memory = tkClassifierDataProviderMemory;

const wchar_t invalidMeasurements[] = L"K-nearest neighbor classification does not support invalid measurements";
const wchar_t noValidData[] = L"No valid data was provided for training.";
const wchar_t labelsNotNegative[] = L"Category labels must be >= 0";

const double infinity = std::numeric_limits<double>::infinity();
const double notANumber = std::numeric_limits<double>::quiet_NaN();

Handle patternOf(const std::vector<double>& measurements, const std::vector<long>& invalid = {})
{
    return Handle(new tkFeaturePattern(measurements, invalid));
}

Memory providerOf(const definition::LabelledRows& data)
{
    Memory provider;
    for (std::size_t i = 0; i < data.patterns.size(); ++i)
        provider.addData(patternOf(data.patterns[i]), data.labels[i]);
    return provider;
}

/// n patterns whose one measurement is their index and whose label is their index as well.
Memory numberedProvider(long n)
{
    Memory provider;
    for (long i = 0; i < n; ++i)
        provider.addData(patternOf({static_cast<double>(i)}), i);
    return provider;
}

/// A metric of the test's: the distance of a stored pattern stands in a table under its first measurement. Logs each
/// call as the first measurements of its arguments.
class TableMetric : public tkPatternDistanceMetric
{
public:
    using Calls = std::vector<std::pair<double, double>>;

    explicit TableMetric(std::vector<double> table, std::shared_ptr<Calls> calls = nullptr)
        : table_(std::move(table)),
          calls_(std::move(calls))
    {
    }

    double distance(const tkFeaturePattern& p1, const tkFeaturePattern& p2) const override
    {
        const double first = p1.featureMeasurement(0, false);
        const double second = p2.featureMeasurement(0, false);
        if (calls_)
            calls_->emplace_back(first, second);
        const double distance = table_.at(static_cast<std::size_t>(second));
        if (distance == thrown)
            throw std::runtime_error("metric");
        return distance;
    }

    tkPtrHandle<tkPatternDistanceMetric> clone() const override
    {
        return tkPtrHandle<tkPatternDistanceMetric>(new TableMetric(*this));
    }

    static constexpr double thrown = -12345.0;

private:
    std::vector<double> table_;
    std::shared_ptr<Calls> calls_;
};

tkClassifierResult run(const tk_Classifier& classifier, const std::vector<double>& query)
{
    tkClassifierResult result;
    classifier.run(tkFeaturePattern(query), result);
    return result;
}

tkClassifierResult run(const tkClassifierTool& tool, const std::vector<double>& query)
{
    tkClassifierResult result;
    tool.run(tkFeaturePattern(query), result);
    return result;
}

/// Match scores by label.
std::map<long, double> shares(const tkClassifierResult& result)
{
    std::map<long, double> shares;
    for (const tkClassifierCategoryResult& category : result.categoryResults())
        shares[category.categoryLabel()] = category.matchScore();
    return shares;
}

/// The labels among the neighbours: their indices, where every pattern has its index for a label.
std::set<long> labelsOf(const tkClassifierResult& result)
{
    std::set<long> labels;
    for (const tkClassifierCategoryResult& category : result.categoryResults())
        labels.insert(category.categoryLabel());
    return labels;
}

/// The neighbours that the classifier finds when the stored patterns are at the given distances.
std::set<long> neighboursAt(const std::vector<double>& distances, long k)
{
    tk_ClassifierKNN classifier;
    classifier.train(numberedProvider(static_cast<long>(distances.size())),
                     Params(k, TableMetric(distances), tkClassifierCosts()));
    return labelsOf(run(classifier, {-1.0}));
}

/// A provider that logs how it is read and keeps what it is told to keep, sound or not.
class LoggingProvider : public tkClassifierDataProvider
{
public:
    std::wstring name() override
    {
        log.push_back("name");
        return L"the name";
    }
    std::wstring description() override
    {
        log.push_back("description");
        return L"the description";
    }
    long numMeasurements() const override { return 0; }
    long numPatterns() const override
    {
        log.push_back("numPatterns");
        return count;
    }
    Handle featurePattern(long index) override
    {
        log.push_back("pattern " + std::to_string(index));
        return patterns.at(static_cast<std::size_t>(index));
    }
    long categoryLabel(long index) const override
    {
        log.push_back("label " + std::to_string(index));
        return labels.at(static_cast<std::size_t>(index));
    }

    void add(const Handle& pattern, long label)
    {
        patterns.push_back(pattern);
        labels.push_back(label);
        ++count;
    }

    std::vector<Handle> patterns;
    std::vector<long> labels;
    long count = 0;
    mutable std::vector<std::string> log;
};

using Log = std::vector<std::string>;

/// The bytes of parameters whose k is what no setter accepts.
Params paramsWithLoadedK(long k)
{
    std::string bytes = storeToBytes(Params());
    bytes.replace(3, 4, storeToBytes(k));
    Params params;
    loadFromBytes(bytes, params);
    return params;
}

Params paramsWithLoadedNullMetric()
{
    const std::string bytes =
        std::string(3, '\0') + std::string("\x01\0\0\0", 4) + std::string(4, '\0') + storeToBytes(tkClassifierCosts());
    Params params;
    loadFromBytes(bytes, params);
    return params;
}

tkClassifierCosts someCosts()
{
    tkClassifierCosts costs(1.0);
    costs.misclassificationCostOverride(0, 1, 20.0);
    return costs;
}
} // namespace

// ---- Training

TEST(tk_ClassifierKNN, isUntrainedAtFirst)
{
    tk_ClassifierKNN classifier;
    EXPECT_FALSE(classifier.isTrained());
    tkClassifierResult result;
    EXPECT_TK_THROW(classifier.run(tkFeaturePattern({1.0}), result), tkClassifierDefs::NotTrained,
                    L"Classifier tool must be trained before running.");
}

TEST(tk_ClassifierKNN, trainReadsEachPatternThenItsLabelInOrder)
{
    LoggingProvider provider;
    provider.add(patternOf({0.0}), 4);
    provider.add(patternOf({1.0}), -1);
    provider.add(patternOf({2.0}), 5);
    tk_ClassifierKNN classifier;
    classifier.train(provider, Params());
    EXPECT_EQ(provider.log, (Log{"name", "description", "numPatterns", "pattern 0", "label 0", "pattern 1", "label 1",
                                 "pattern 2", "label 2"}));
}

TEST(tk_ClassifierKNN, trainSharesThePatternsWithTheProviderAndUntrainReleasesThem)
{
    const Handle kept = patternOf({0.0});
    const Handle unknown = patternOf({1.0});
    Memory provider;
    provider.data({kept, unknown}, {4, -1});
    EXPECT_EQ(kept->referenceCount(), 2);

    tk_ClassifierKNN classifier;
    classifier.train(provider, Params());
    EXPECT_EQ(kept->referenceCount(), 3);
    EXPECT_EQ(unknown->referenceCount(), 2) << "a pattern of unknown category is not stored";
    classifier.untrain();
    EXPECT_EQ(kept->referenceCount(), 2);
}

TEST(tk_ClassifierKNN, trainKeepsWhatItReadAndNotTheProvider)
{
    Memory provider = numberedProvider(2);
    tk_ClassifierKNN classifier;
    classifier.train(provider, Params(9));
    provider.addData(patternOf({7.0}), 7);
    EXPECT_EQ(labelsOf(run(classifier, {0.0})), (std::set<long>{0, 1}));
}

TEST(tk_ClassifierKNN, trainKeepsNameAndDescription)
{
    Memory named = numberedProvider(2);
    named.setName(L"name");
    Memory described = numberedProvider(2);
    described.setDescription(L"description");
    tk_ClassifierKNN plain, withName, withDescription, withNameToo;
    plain.train(numberedProvider(2), Params());
    withName.train(named, Params());
    withNameToo.train(named, Params());
    withDescription.train(described, Params());
    EXPECT_TRUE(plain != withName);
    EXPECT_TRUE(plain != withDescription);
    EXPECT_TRUE(withName == withNameToo);
}

TEST(tk_ClassifierKNN, trainSkipsUnknownLabelsAndAllUnknownIsTrainedButCannotRun)
{
    Memory provider;
    provider.addData(patternOf({0.0}), -1);
    provider.addData(patternOf({1.0}), -1);
    tk_ClassifierKNN classifier;
    classifier.train(provider, Params());
    EXPECT_TRUE(classifier.isTrained());
    tkClassifierResult result;
    for (int time = 0; time < 2; ++time)
        EXPECT_TK_THROW(classifier.run(tkFeaturePattern({0.0}), result), tkClassifierDefs::InsufficientTrainData,
                        noValidData);
    EXPECT_TK_THROW(classifier.run(tkFeaturePattern({0.0}, {0}), result), tkClassifierDefs::InsufficientTrainData,
                    noValidData);

    tkClassifierTool tool;
    EXPECT_TK_THROW(tool.train(provider, Params()), tkClassifierDefs::InsufficientTrainData, noValidData);
    EXPECT_FALSE(tool.isTrained());
    Params patient;
    patient.throwIfNotReady(false);
    tool.train(provider, patient);
    EXPECT_TRUE(tool.isTrained());
    EXPECT_TK_THROW(run(tool, {0.0}), tkClassifierDefs::InsufficientTrainData, noValidData);
    EXPECT_TK_THROW(tool.retrain(Params()), tkClassifierDefs::InsufficientTrainData, noValidData);
    EXPECT_FALSE(tool.isTrained());
}

TEST(tk_ClassifierKNN, trainRefusesAnInvalidMeasurementBeforeItAsksForTheLabel)
{
    LoggingProvider provider;
    provider.add(patternOf({0.0}), 1);
    provider.add(patternOf({0.0}, {0}), -1); // its label would have it skipped
    provider.add(patternOf({0.0}), 1);
    tk_ClassifierKNN classifier;
    EXPECT_TK_THROW(classifier.train(provider, Params()), tkClassifierDefs::BadFeatures, invalidMeasurements);
    EXPECT_EQ(provider.log, (Log{"name", "description", "numPatterns", "pattern 0", "label 0", "pattern 1"}));

    tkClassifierTool tool;
    tool.train(numberedProvider(1), Params());
    EXPECT_TK_THROW(tool.train(provider, Params()), tkClassifierDefs::BadFeatures, invalidMeasurements);
    EXPECT_FALSE(tool.isTrained());
}

TEST(tk_ClassifierKNN, aFailingTrainLeavesEmptyStoredDataWithoutParameters)
{
    LoggingProvider provider;
    provider.add(patternOf({0.0}), 1);
    provider.add(patternOf({0.0}, {0}), 1);
    tk_ClassifierKNN classifier;
    classifier.train(numberedProvider(3), Params());
    EXPECT_TK_THROW(classifier.train(provider, Params()), tkClassifierDefs::BadFeatures, invalidMeasurements);

    EXPECT_TRUE(classifier.isTrained());
    EXPECT_TK_THROW(classifier.trainParams(), tkClassifierDefs::BadMethod,
                    L"Classifier tool was not automatically trained.");
    EXPECT_TK_THROW(classifier.retrain(Params()), tkClassifierDefs::BadMethod,
                    L"Cannot retrain with a different classification technique.");
    EXPECT_TK_THROW(run(classifier, {0.0}), tkClassifierDefs::InsufficientTrainData, noValidData);
    const std::string bytes = storeToBytes(classifier);
    EXPECT_NE(bytes.find("the name"), std::string::npos);
    EXPECT_NE(bytes.find("the description"), std::string::npos);
}

TEST(tk_ClassifierKNN, trainRefusesWhatTheStoredDataRefuse)
{
    tk_ClassifierKNN classifier;
    LoggingProvider unequal;
    unequal.add(patternOf({0.0}), 1);
    unequal.add(patternOf({0.0, 1.0}), 1);
    EXPECT_TK_THROW(classifier.train(unequal, Params()), tkClassifierDefs::BadFeatures,
                    L"Feature patterns must all have the same number of measurements");
    LoggingProvider badLabel;
    badLabel.add(patternOf({0.0}), -2);
    EXPECT_TK_THROW(classifier.train(badLabel, Params()), tkClassifierDefs::BadLabel,
                    L"Category labels must be >= 0 or unknown");
    LoggingProvider null;
    null.add(Handle(), 1);
    EXPECT_THROW(classifier.train(null, Params()), tkBadPointer);
}

TEST(tk_ClassifierKNN, aProvidersNumberOfPatternsTakesNoMemoryBeforeTheyAreThere)
{
    LoggingProvider provider;
    provider.add(patternOf({0.0}), 1);
    tk_ClassifierKNN classifier;
    provider.count = std::numeric_limits<long>::max();
    EXPECT_THROW(classifier.train(provider, Params()), std::out_of_range) << "what the provider itself throws";
    provider.count = -5;
    classifier.train(provider, Params());
    EXPECT_TK_THROW(run(classifier, {0.0}), tkClassifierDefs::InsufficientTrainData, noValidData);
}

TEST(tk_ClassifierKNN, parametersOfAnotherClassAreABug)
{
    tk_ClassifierKNN classifier;
    EXPECT_THROW(classifier.train(numberedProvider(1), ScriptedParams()), tkAssertionFailure);
    EXPECT_FALSE(classifier.isTrained());
    classifier.train(numberedProvider(1), Params());
    EXPECT_TK_THROW(classifier.retrain(ScriptedParams()), tkClassifierDefs::BadMethod,
                    L"Cannot retrain with a different classification technique.");
}

TEST(tk_ClassifierKNN, retrainReplacesKMetricAndCostsOnTheSameData)
{
    tk_ClassifierKNN classifier;
    classifier.train(numberedProvider(6), Params());
    EXPECT_EQ(labelsOf(run(classifier, {1.2})), std::set<long>{1});
    classifier.retrain(Params(5));
    EXPECT_EQ(labelsOf(run(classifier, {1.2})), (std::set<long>{0, 1, 2, 3, 4}));
    classifier.retrain(Params(2, TableMetric({9, 8, 7, 6, 5, 4}), tkClassifierCosts()));
    EXPECT_EQ(labelsOf(run(classifier, {1.2})), (std::set<long>{4, 5}));

    classifier.retrain(Params(2));
    EXPECT_EQ(run(classifier, {0.1}).categoryResults()[0].categoryLabel(), 0);
    classifier.retrain(Params(2, tkPatternDistanceMetricNorm(),
                              []
                              {
                                  tkClassifierCosts costs;
                                  costs.misclassificationCostOverride(1, 0, 20.0);
                                  return costs;
                              }()));
    const tkClassifierResult costly = run(classifier, {0.1});
    EXPECT_EQ(costly.categoryResults()[0].categoryLabel(), 1);
    EXPECT_EQ(costly.categoryResults()[1].expectedCost(), 10.0);
}

TEST(tk_ClassifierKNN, laterChangesOfTheCallersParametersDoNotReachTheClassifier)
{
    Params params(1);
    tk_ClassifierKNN classifier;
    classifier.train(numberedProvider(3), params);
    params.k(3);
    EXPECT_EQ(labelsOf(run(classifier, {0.0})).size(), 1u);
    classifier.retrain(params);
    params.k(2);
    EXPECT_EQ(labelsOf(run(classifier, {0.0})).size(), 3u);
}

TEST(tk_ClassifierKNN, trainStartLeavesTheClassifierUntrained)
{
    tk_ClassifierKNN classifier;
    classifier.trainStart(Params());
    EXPECT_FALSE(classifier.isTrained());
    EXPECT_TK_THROW(classifier.trainIncremental(tkFeaturePattern({0.0}), 1), tkClassifierDefs::NotTrained,
                    L"Classifier tool must be trained before incremental training.");
    classifier.train(numberedProvider(1), Params());
    classifier.trainStart(Params());
    EXPECT_FALSE(classifier.isTrained());
}

// ---- Incremental training

TEST(tk_ClassifierKNN, trainIncrementalStoresACopyOfThePattern)
{
    tk_ClassifierKNN classifier;
    classifier.train(numberedProvider(2), Params(1));
    const Handle added = patternOf({5.0});
    classifier.trainIncremental(*added, 8);
    EXPECT_EQ(added->referenceCount(), 1);
    EXPECT_EQ(labelsOf(run(classifier, {4.0})), std::set<long>{8});

    classifier.train(Memory(), Params());
    classifier.trainIncremental(tkFeaturePattern({1.0, 2.0, 3.0}), 2);
    EXPECT_EQ(labelsOf(run(classifier, {0.0, 0.0, 0.0})), std::set<long>{2}) << "the first one may have any length";
}

TEST(tk_ClassifierKNN, trainIncrementalRefusesLengthThenLabelAndStoresNothing)
{
    tk_ClassifierKNN classifier;
    classifier.train(numberedProvider(2), Params(9));
    EXPECT_TK_THROW(classifier.trainIncremental(tkFeaturePattern({1.0, 2.0}), -2), tkClassifierDefs::BadFeatures,
                    L"Feature pattern must have the same number of measurements as the rest of the data.");
    EXPECT_TK_THROW(classifier.trainIncremental(tkFeaturePattern({1.0}), -2), tkClassifierDefs::BadLabel,
                    L"Category labels must be >= 0 or unknown");
    EXPECT_EQ(labelsOf(run(classifier, {0.0})), (std::set<long>{0, 1}));
}

TEST(tk_ClassifierKNN, anInvalidMeasurementAddedIncrementallyFailsInTheDistanceOfEveryRun)
{
    tk_ClassifierKNN classifier;
    classifier.train(numberedProvider(3), Params(1));
    classifier.trainIncremental(tkFeaturePattern({99.0}, {0}), 1);
    tkClassifierResult result;
    EXPECT_TK_THROW(classifier.run(tkFeaturePattern({0.0}), result), tkClassifierDefs::BadFeatures,
                    L"Access to full feature vector requires that all features are valid.");
    EXPECT_TRUE(result == tkClassifierResult());

    // A metric that can do without the measurement decides for itself.
    classifier.retrain(Params(1, TableMetric(std::vector<double>(100, 1.0)), tkClassifierCosts()));
    EXPECT_EQ(labelsOf(run(classifier, {0.0})), std::set<long>{0});
}

TEST(tk_ClassifierKNN, anUnknownLabelAddedIncrementallyIsRefusedByTheResultWheneverAmongTheNeighbours)
{
    tk_ClassifierKNN classifier;
    classifier.train(numberedProvider(4), Params(1));
    classifier.trainIncremental(tkFeaturePattern({10.0}), -1);
    EXPECT_EQ(labelsOf(run(classifier, {0.0})), std::set<long>{0});
    tkClassifierResult result;
    EXPECT_TK_THROW(classifier.run(tkFeaturePattern({9.0}), result), tkClassifierDefs::BadLabel, labelsNotNegative);
    classifier.retrain(Params(2));
    EXPECT_TK_THROW(classifier.run(tkFeaturePattern({9.0}), result), tkClassifierDefs::BadLabel, labelsNotNegative);
    EXPECT_EQ(labelsOf(run(classifier, {0.0})), (std::set<long>{0, 1}));
    classifier.retrain(Params(5));
    EXPECT_TK_THROW(classifier.run(tkFeaturePattern({0.0}), result), tkClassifierDefs::BadLabel, labelsNotNegative);
    EXPECT_TRUE(result == tkClassifierResult());
}

// ---- Copies

TEST(tk_ClassifierKNN, copiesShareTheStoredDataObject)
{
    const Handle pattern = patternOf({0.0});
    Memory provider;
    provider.addData(pattern, 1);
    tk_ClassifierKNN classifier;
    classifier.train(provider, Params());
    const long count = pattern->referenceCount();
    const tk_ClassifierKNN copy(classifier);
    tk_ClassifierKNN assigned;
    assigned = classifier;
    const tkPtrHandle<tk_Classifier> clone = classifier.clone();
    EXPECT_EQ(pattern->referenceCount(), count);
    EXPECT_TRUE(copy == classifier);
    EXPECT_TRUE(assigned == classifier);
    EXPECT_TRUE(clone->isEquivalent(classifier));
}

TEST(tk_ClassifierKNN, whatOneCopyLearnsIncrementallyServesAll)
{
    tk_ClassifierKNN classifier;
    classifier.train(numberedProvider(2), Params(1));
    const tkPtrHandle<tk_Classifier> clone = classifier.clone();
    tk_ClassifierKNN assigned;
    assigned = classifier;
    EXPECT_EQ(labelsOf(run(*clone, {100.0})), std::set<long>{1}) << "also after it has been run";

    classifier.trainIncremental(tkFeaturePattern({90.0}), 7);
    EXPECT_EQ(labelsOf(run(*clone, {100.0})), std::set<long>{7});
    clone->trainIncremental(tkFeaturePattern({95.0}), 8);
    EXPECT_EQ(labelsOf(run(classifier, {100.0})), std::set<long>{8});
    EXPECT_EQ(labelsOf(run(assigned, {100.0})), std::set<long>{8});
}

TEST(tk_ClassifierKNN, trainingOrUntrainingOneCopyLeavesTheOthers)
{
    tk_ClassifierKNN classifier;
    classifier.train(numberedProvider(2), Params(1));
    const tkPtrHandle<tk_Classifier> trainedAnew = classifier.clone();
    const tkPtrHandle<tk_Classifier> untrained = classifier.clone();
    Memory other;
    other.addData(patternOf({0.0}), 77);
    trainedAnew->train(other, Params());
    untrained->untrain();
    EXPECT_EQ(labelsOf(run(classifier, {100.0})), std::set<long>{1});
    EXPECT_EQ(labelsOf(run(*trainedAnew, {100.0})), std::set<long>{77});
    classifier.trainIncremental(tkFeaturePattern({100.0}), 5);
    EXPECT_EQ(labelsOf(run(*trainedAnew, {100.0})), std::set<long>{77});
}

TEST(tk_ClassifierKNN, retrainingOneCopyLeavesTheParametersOfTheOthers)
{
    tk_ClassifierKNN classifier;
    classifier.train(numberedProvider(3), Params(1));
    const tkPtrHandle<tk_Classifier> clone = classifier.clone();
    clone->retrain(Params(3));
    EXPECT_EQ(labelsOf(run(classifier, {0.0})).size(), 1u);
    EXPECT_EQ(labelsOf(run(*clone, {0.0})).size(), 3u);
    EXPECT_FALSE(clone->isEquivalent(classifier));
}

TEST(tk_ClassifierKNN, copiesOfAToolTrainIndependently)
{
    tkClassifierTool tool;
    tool.train(numberedProvider(2), Params(1));
    tkClassifierTool copy(tool);
    EXPECT_TRUE(copy == tool);
    copy.train(numberedProvider(5), Params(1));
    EXPECT_EQ(labelsOf(run(tool, {4.0})), std::set<long>{1});
    EXPECT_EQ(labelsOf(run(copy, {4.0})), std::set<long>{4});
    EXPECT_TRUE(copy != tool);
}

// ---- Running

TEST(tk_ClassifierKNN, refusesAnInvalidMeasurementOrAWrongLengthWithOneText)
{
    tk_ClassifierKNN classifier;
    classifier.train(numberedProvider(2), Params(1));
    tkClassifierResult result = run(classifier, {0.0});
    const tkClassifierResult before = result;
    for (const tkFeaturePattern& query : {tkFeaturePattern({0.0}, {0}), tkFeaturePattern({0.0, 1.0}),
                                          tkFeaturePattern(), tkFeaturePattern({0.0, 1.0}, {1})})
        EXPECT_TK_THROW(classifier.run(query, result), tkClassifierDefs::BadFeatures, invalidMeasurements);
    EXPECT_TRUE(result == before);
}

TEST(tk_ClassifierKNN, scoresLabelsByTheirShareOfTheNeighbours)
{
    const definition::LabelledRows data = {{{0.0}, {1.0}, {2.0}, {50.0}}, {5, 0, 5, 9}};
    tk_ClassifierKNN classifier;
    classifier.train(providerOf(data), Params(3));
    const tkClassifierResult result = run(classifier, {0.0});
    EXPECT_EQ(shares(result), (std::map<long, double>{{0, 1.0 / 3.0}, {5, 2.0 / 3.0}}));
    EXPECT_EQ(result.categoryResults()[0].categoryLabel(), 5);
    EXPECT_EQ(result.matchScoreFactorLog(), 0.0);
}

TEST(tk_ClassifierKNN, givesTheCostsOfItsParametersToTheResult)
{
    const definition::LabelledRows data = {{{0.0}, {1.0}, {2.0}}, {0, 0, 1}};
    tk_ClassifierKNN classifier;
    classifier.train(providerOf(data), Params(3, tkPatternDistanceMetricNorm(), someCosts()));
    const tkClassifierResult result = run(classifier, {0.0});
    EXPECT_TRUE(result == definition::classifyByNeighbours(data, {0.0}, 2.0, 3, someCosts()));
    EXPECT_EQ(result.categoryResults()[1].expectedCost(), 20.0 * (2.0 / 3.0 * 1.0 / 2.0) / (1.0 / 2.0));
}

TEST(tk_ClassifierKNN, moreNeighboursThanPatternsMeansAllOfThem)
{
    tk_ClassifierKNN classifier;
    classifier.train(numberedProvider(2), Params(3));
    EXPECT_EQ(shares(run(classifier, {0.0})), (std::map<long, double>{{0, 0.5}, {1, 0.5}}));
}

TEST(tk_ClassifierKNN, aHugeKCostsNothing)
{
    const long n = 10;
    tk_ClassifierKNN classifier;
    const auto allocationsWith = [&](long k)
    {
        classifier.retrain(Params(k));
        const tkFeaturePattern query({3.0});
        tkClassifierResult result;
        const tkAllocations allocations;
        classifier.run(query, result);
        return allocations.count();
    };
    classifier.train(numberedProvider(n), Params());
    EXPECT_EQ(allocationsWith(2147483647), allocationsWith(n));
    EXPECT_EQ(labelsOf(run(classifier, {3.0})).size(), 10u);
    classifier.retrain(Params(std::numeric_limits<long>::max()));
    EXPECT_EQ(labelsOf(run(classifier, {3.0})).size(), 10u);
}

TEST(tk_ClassifierKNN, labelsOfAnySizeVote)
{
    std::mt19937_64 random(5);
    for (const long largest : {0L, 1L, 15L, 16L, 63L, 64L, 65L, 1000L, 2147483647L, std::numeric_limits<long>::max()})
    {
        definition::LabelledRows data;
        for (int i = 0; i < 300; ++i)
        {
            data.patterns.push_back({static_cast<double>(random() % 40), static_cast<double>(random() % 40)});
            const auto some = static_cast<long>(random() % 5);
            data.labels.push_back(i % 3 == 0 ? largest : i % 3 == 1 ? largest / 2 : std::min(some, largest));
        }
        tk_ClassifierKNN classifier;
        for (const long k : {1, 2, 7, 8, 9, 30, 300})
        {
            classifier.train(providerOf(data), Params(k));
            const tkClassifierResult result = run(classifier, {17.0, 21.5});
            EXPECT_TRUE(result == definition::classifyByNeighbours(data, {17.0, 21.5}, 2.0, k))
                << largest << ", k " << k;
        }
    }
}

TEST(tk_ClassifierKNN, aRunAllocatesNothingButTheVectorOfItsResult)
{
    tkClassifierDataProviderMemory data;
    for (int i = 0; i < 3000; ++i)
        data.addData(tkPtrHandle_const<tkFeaturePattern>(new tkFeaturePattern({std::sin(i), std::cos(3.0 * i)})),
                     i % 7);
    const tkFeaturePattern query({0.25, -0.5});
    for (const long k : {1L, 5L, 32L, 128L})
        for (const double order : {0.5, 1.0, 2.0, 3.0})
        {
            tkClassifierTool tool;
            tool.train(data, tkClassifierTrainParamsKNN(k, tkPatternDistanceMetricNorm(order), tkClassifierCosts()));
            tkClassifierResult result;
            const tkAllocations allocations;
            tool.run(query, result);
            EXPECT_EQ(1u, allocations.count()) << "k " << k << ", order " << order;
            tool.run(query, result);
            EXPECT_EQ(1u, allocations.count()) << "again, k " << k << ", order " << order;
        }
}

TEST(tk_ClassifierKNN, asksTheMetricOncePerStoredPatternInStorageOrderWithTheQueryFirst)
{
    const auto calls = std::make_shared<TableMetric::Calls>();
    tk_ClassifierKNN classifier;
    classifier.train(numberedProvider(4), Params(2, TableMetric({3, 1, 1, 2}, calls), tkClassifierCosts()));
    EXPECT_TRUE(calls->empty()) << "training measures nothing";
    const TableMetric::Calls expected = {{-1, 0}, {-1, 1}, {-1, 2}, {-1, 3}};
    for (int time = 0; time < 2; ++time)
    {
        run(classifier, {-1.0});
        EXPECT_EQ(*calls, expected);
        calls->clear();
    }
    classifier.trainIncremental(tkFeaturePattern({3.0}), 3);
    run(classifier, {-1.0});
    EXPECT_EQ(calls->size(), 5u);
}

TEST(tk_ClassifierKNN, asksAMetricDerivedFromTheNormToo)
{
    // The farthest instead of the nearest.
    class Inverted : public tkPatternDistanceMetricNorm
    {
    public:
        double distance(const tkFeaturePattern& a, const tkFeaturePattern& b) const override
        {
            return -tkPatternDistanceMetricNorm::distance(a, b);
        }
        tkPtrHandle<tkPatternDistanceMetric> clone() const override
        {
            return tkPtrHandle<tkPatternDistanceMetric>(new Inverted(*this));
        }
    };
    tk_ClassifierKNN classifier;
    classifier.train(numberedProvider(9), Params(2, Inverted(), tkClassifierCosts()));
    EXPECT_EQ(labelsOf(run(classifier, {1.0})), (std::set<long>{7, 8}));
}

TEST(tk_ClassifierKNN, passesOnWhatTheMetricThrowsAndLeavesTheResult)
{
    tk_ClassifierKNN classifier;
    classifier.train(numberedProvider(3), Params(1, TableMetric({1.0, TableMetric::thrown, 0.0}), tkClassifierCosts()));
    tkClassifierResult result({{3, 1.0, 1.0, 0.0}}, 1.0);
    const tkClassifierResult before = result;
    EXPECT_THROW(classifier.run(tkFeaturePattern({-1.0}), result), std::runtime_error);
    EXPECT_TRUE(result == before);
}

// ---- The neighbour search

TEST(tk_ClassifierKNN, atEqualDistancesTheEarlierPatternWinsAtTheBoundary)
{
    EXPECT_EQ(neighboursAt({4, 4, 4}, 1), std::set<long>{0});
    EXPECT_EQ(neighboursAt({4, 4, 4}, 2), (std::set<long>{0, 1}));
    EXPECT_EQ(neighboursAt({4, 4, 4}, 3), (std::set<long>{0, 1, 2}));
}

TEST(tk_ClassifierKNN, insideTheListTheLaterPatternWinsSoAStableSortWouldBeWrong)
{
    EXPECT_EQ(neighboursAt({5, 5, 3}, 2), (std::set<long>{1, 2}));
    EXPECT_EQ(neighboursAt({5, 5, 5, 3, 3}, 3), (std::set<long>{2, 3, 4}) /* 0 was last, then 1 */);
    EXPECT_EQ(neighboursAt({5, 5, 3, 5}, 2), (std::set<long>{1, 2}));
}

TEST(tk_ClassifierKNN, aNaNDistanceIsNeverTurnedAway)
{
    EXPECT_EQ(neighboursAt({1, notANumber}, 1), std::set<long>{1});
    EXPECT_EQ(neighboursAt({notANumber, 1}, 1), std::set<long>{1}) << "but it does not hold its place either";
    EXPECT_EQ(neighboursAt({1, 2, notANumber}, 2), (std::set<long>{0, 2}));
    EXPECT_EQ(neighboursAt({notANumber, notANumber, notANumber}, 2), (std::set<long>{1, 2}));
}

TEST(tk_ClassifierKNN, anInfiniteDistanceCompetesLikeAnyOther)
{
    EXPECT_EQ(neighboursAt({infinity, infinity}, 1), std::set<long>{0});
    EXPECT_EQ(neighboursAt({infinity, 1, infinity}, 2), (std::set<long>{0, 1}));
    EXPECT_EQ(neighboursAt({infinity, infinity, 1}, 2), (std::set<long>{1, 2}));
    EXPECT_EQ(neighboursAt({-infinity, -1, 0}, 1), std::set<long>{0});
}

TEST(tk_ClassifierKNN, findsTheDefinedNeighboursForEverySmallTableOfDistances)
{
    const double values[] = {1.0, 2.0, 3.0, infinity, notANumber};
    for (std::size_t n = 1; n <= 5; ++n)
    {
        tk_ClassifierKNN classifier;
        classifier.train(numberedProvider(static_cast<long>(n)), Params());
        std::vector<std::size_t> digits(n, 0);
        for (bool more = true; more;)
        {
            std::vector<double> distances;
            for (const std::size_t digit : digits)
                distances.push_back(values[digit]);
            const TableMetric metric(distances);
            for (long k = 1; k <= static_cast<long>(n) + 3; ++k)
            {
                classifier.retrain(Params(k, metric, tkClassifierCosts()));
                const std::vector<long> expected = definition::neighbours(distances, k).indices();
                ASSERT_EQ(labelsOf(run(classifier, {-1.0})), std::set<long>(expected.begin(), expected.end()))
                    << ::testing::PrintToString(distances) << " k " << k;
            }
            more = false;
            for (std::size_t i = 0; i < n && !more; ++i)
            {
                digits[i] = (digits[i] + 1) % std::size(values);
                more = digits[i] != 0;
            }
        }
    }
}

namespace
{
/// Classifies every query with every order and k from 1 to n + 3, by the classifier and by the oracle.
void expectAsDefined(const definition::LabelledRows& data, const std::vector<std::vector<double>>& queries)
{
    const tkClassifierCosts costs = someCosts();
    tkClassifierTool tool;
    tool.train(providerOf(data), Params());
    for (const double order : {0.5, 1.0, 2.0, 3.0, 7.5})
        for (long k = 1; k <= static_cast<long>(data.patterns.size()) + 3; ++k)
        {
            tool.retrain(Params(k, tkPatternDistanceMetricNorm(order), costs));
            for (const std::vector<double>& query : queries)
                ASSERT_TRUE(run(tool, query) == definition::classifyByNeighbours(data, query, order, k, costs))
                    << "order " << order << " k " << k << " query " << ::testing::PrintToString(query) << " data "
                    << ::testing::PrintToString(data.patterns);
        }
}

/// Vectors of `n` numbers drawn from `values`.
std::vector<double> draw(std::mt19937& random, const std::vector<double>& values, std::size_t n)
{
    std::vector<double> drawn;
    for (std::size_t i = 0; i < n; ++i)
        drawn.push_back(values[random() % values.size()]);
    return drawn;
}

/// Data and queries from the given values: with `distinct`, every pattern has its own label, so that the result
/// tells the neighbours; otherwise there are four labels.
void expectAsDefinedOn(const std::vector<double>& values, unsigned seed)
{
    std::mt19937 random(seed);
    for (const bool distinct : {true, false})
        for (const std::size_t dimensions : {std::size_t{1}, std::size_t{2}, std::size_t{5}})
            for (const std::size_t n : {std::size_t{1}, std::size_t{4}, std::size_t{17}})
            {
                definition::LabelledRows data;
                std::vector<std::vector<double>> queries;
                for (std::size_t i = 0; i < n; ++i)
                {
                    data.patterns.push_back(draw(random, values, dimensions));
                    data.labels.push_back(static_cast<long>(distinct ? i : random() % 4));
                }
                for (int i = 0; i < 4; ++i)
                    queries.push_back(draw(random, values, dimensions));
                queries.push_back(data.patterns.front());
                ASSERT_NO_FATAL_FAILURE(expectAsDefined(data, queries));
            }
}
} // namespace

TEST(tk_ClassifierKNN, findsTheDefinedNeighboursOnLatticesFullOfTies)
{
    expectAsDefinedOn({0.0, 1.0, 2.0}, 1);
    expectAsDefinedOn({-0.3, -0.1, 0.0, 0.1, 0.2, 0.3}, 2); // differences that round differently
}

TEST(tk_ClassifierKNN, findsTheDefinedNeighboursWherePowersOverflowUnderflowOrAreNaN)
{
    expectAsDefinedOn({0.0, 1.0, 1e-320, 1e-170, 1e-30, 1e30, 1e160, 1e308, -1e308}, 3);
    expectAsDefinedOn({0.0, 1.0, 2.0, infinity, -infinity, notANumber}, 4);
}

TEST(tk_ClassifierKNN, distancesThatRoundToOneValueAreTiesThoughTheirSumsDiffer)
{
    // 1 + 2^-52 is more than 1, but its square root rounds to 1: the farther pattern, stored first, stays.
    const double tiny = std::ldexp(1.0, -26);
    ASSERT_NE(1.0 + tiny * tiny, 1.0);
    ASSERT_EQ(std::sqrt(1.0 + tiny * tiny), 1.0);
    const definition::LabelledRows data = {{{1.0, tiny}, {1.0, 0.0}}, {0, 1}};
    tk_ClassifierKNN classifier;
    classifier.train(providerOf(data), Params(1));
    EXPECT_EQ(labelsOf(run(classifier, {0.0, 0.0})), std::set<long>{0});
    expectAsDefined(data, {{0.0, 0.0}, {-tiny, 0.0}, {0.0, 1.0}});
    expectAsDefinedOn({0.0, 1.0, tiny, -tiny, 1.0 + tiny, 2.0 * tiny}, 5);
}

TEST(tk_ClassifierKNN, findsTheDefinedNeighboursAfterIncrementalTraining)
{
    std::mt19937 random(6);
    const std::vector<double> values = {0.0, 1.0, 2.0};
    definition::LabelledRows data;
    tk_ClassifierKNN classifier;
    classifier.train(Memory(), Params());
    const tkPtrHandle<tk_Classifier> clone = classifier.clone();
    for (long i = 0; i < 40; ++i)
    {
        data.patterns.push_back(draw(random, values, 3));
        data.labels.push_back(i);
        (i % 2 ? static_cast<tk_Classifier&>(classifier) : *clone)
            .trainIncremental(tkFeaturePattern(data.patterns.back()), i);
        classifier.retrain(Params(1 + i % 7));
        const std::vector<double> query = draw(random, values, 3);
        ASSERT_TRUE(run(classifier, query) == definition::classifyByNeighbours(data, query, 2.0, 1 + i % 7)) << i;
        ASSERT_TRUE(run(*clone, query) == definition::classifyByNeighbours(data, query, 2.0, 1)) << i;
    }
}

TEST(tk_ClassifierKNN, patternsWithoutMeasurementsAreAllAtDistanceZero)
{
    Memory provider;
    for (long i = 0; i < 3; ++i)
        provider.addData(patternOf({}), i);
    tk_ClassifierKNN classifier;
    classifier.train(provider, Params(2));
    EXPECT_EQ(labelsOf(run(classifier, {})), (std::set<long>{0, 1}));
}

TEST(tk_ClassifierKNN, agreesWithTheOracleOnManyPatterns)
{
    std::mt19937 random(7);
    std::vector<double> values;
    for (int i = 0; i < 60; ++i)
        values.push_back(i * 0.37);
    definition::LabelledRows data;
    for (int i = 0; i < 1500; ++i)
    {
        data.patterns.push_back(draw(random, values, 7));
        data.labels.push_back(static_cast<long>(random() % 10));
    }
    tkClassifierTool tool;
    tool.train(providerOf(data), Params());
    for (const double order : {1.0, 2.0, 2.5})
        for (const long k : {1L, 15L, 200L})
        {
            tool.retrain(Params(k, tkPatternDistanceMetricNorm(order), tkClassifierCosts()));
            for (int i = 0; i < 3; ++i)
            {
                const std::vector<double> query = draw(random, values, 7);
                ASSERT_TRUE(run(tool, query) == definition::classifyByNeighbours(data, query, order, k))
                    << order << " " << k;
            }
        }
}

TEST(tk_ClassifierKNN, aToolMayBeRunFromManyThreadsAtOnce)
{
    std::mt19937 random(8);
    definition::LabelledRows data;
    std::vector<std::vector<double>> queries;
    for (int i = 0; i < 60; ++i)
    {
        data.patterns.push_back(draw(random, {0.0, 1.0, 2.0, 3.0}, 4));
        data.labels.push_back(static_cast<long>(random() % 5));
        queries.push_back(draw(random, {0.0, 1.0, 2.0, 3.0}, 4));
    }
    tkClassifierTool trained;
    trained.train(providerOf(data), Params(7, tkPatternDistanceMetricNorm(), someCosts()));
    const tkClassifierTool& tool = trained;
    std::vector<tkClassifierResult> serial;
    for (const std::vector<double>& query : queries)
        serial.push_back(run(tool, query));

    constexpr std::size_t numThreads = 6;
    std::vector<std::vector<tkClassifierResult>> results(numThreads);
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < numThreads; ++t)
        threads.emplace_back(
            [&, t]
            {
                for (int round = 0; round < 5; ++round)
                {
                    results[t].clear();
                    for (const std::vector<double>& query : queries)
                        results[t].push_back(run(tool, query));
                }
            });
    for (std::thread& thread : threads)
        thread.join();
    for (const std::vector<tkClassifierResult>& result : results)
        EXPECT_TRUE(result == serial);
}

TEST(tk_ClassifierKNN, copiesOfAToolMayBeRunOnDifferentThreads)
{
    tkClassifierTool tool;
    tool.train(numberedProvider(20), Params(3));
    const tkClassifierResult serial = run(tool, {4.2});
    std::vector<tkClassifierTool> copies(4, tool);
    std::vector<tkClassifierResult> results(copies.size());
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < copies.size(); ++t)
        threads.emplace_back(
            [&, t]
            {
                results[t] = run(copies[t], {4.2});
                copies[t].retrain(Params(1));
                copies[t].train(numberedProvider(2), Params(1));
            });
    for (std::thread& thread : threads)
        thread.join();
    for (const tkClassifierResult& result : results)
        EXPECT_TRUE(result == serial);
    EXPECT_TRUE(run(tool, {4.2}) == serial);
}

// ---- Independent figures

namespace
{
/// Compares the shares with a table of tests/reference; returns the number of queries compared.
long expectAsInTable(const std::string& fileName)
{
    std::ifstream table(CLASTOOL_REFERENCE_DIR "/" + fileName);
    definition::LabelledRows data;
    std::vector<std::vector<double>> queries;
    tkClassifierTool tool;
    std::vector<double> trainedWith;
    long compared = 0;
    for (std::string line; std::getline(table, line);)
    {
        std::istringstream fields(line);
        std::string kind, field;
        std::getline(fields, kind, ',');
        std::vector<double> numbers;
        while (kind[0] != '#' && std::getline(fields, field, ','))
            numbers.push_back(std::stod(field));
        if (kind == "train")
        {
            data.labels.push_back(static_cast<long>(numbers[0]));
            data.patterns.emplace_back(numbers.begin() + 1, numbers.end());
        }
        else if (kind == "query")
            queries.push_back(numbers);
        else if (kind == "votes")
        {
            const long k = static_cast<long>(numbers[1]);
            const std::vector<double> wanted = {numbers[0], numbers[1]};
            if (trainedWith != wanted)
                tool.train(providerOf(data), Params(k, tkPatternDistanceMetricNorm(numbers[0]), tkClassifierCosts()));
            trainedWith = wanted;
            std::map<long, double> expected;
            for (std::size_t label = 0; label + 3 < numbers.size(); ++label)
                if (numbers[label + 3] > 0.0)
                    expected[static_cast<long>(label)] = numbers[label + 3] / static_cast<double>(k);
            EXPECT_EQ(shares(run(tool, queries.at(static_cast<std::size_t>(numbers[2])))), expected)
                << fileName << ": " << line;
            ++compared;
        }
    }
    return compared;
}
} // namespace

TEST(tk_ClassifierKNN, sharesAgreeWithAnIndependentImplementationOnIris)
{
    EXPECT_EQ(expectAsInTable("nearestNeighbors.iris.csv"), 707);
}

TEST(tk_ClassifierKNN, sharesAgreeWithAnIndependentImplementationOnWine)
{
    EXPECT_EQ(expectAsInTable("nearestNeighbors.wine.csv"), 1067);
}

TEST(tk_ClassifierKNN, sharesAgreeWithAnIndependentImplementationOnDigits)
{
    EXPECT_EQ(expectAsInTable("nearestNeighbors.digits.csv"), 1150);
}

// ---- Equality

TEST(tk_ClassifierKNN, equivalenceRegardsClassStateParametersAndData)
{
    tk_ClassifierKNN a, b;
    EXPECT_TRUE(a == b);
    EXPECT_TRUE(a.isEquivalent(b));
    EXPECT_FALSE(a.isEquivalent(ScriptedClassifier()));

    a.train(numberedProvider(2), Params(1));
    EXPECT_TRUE(a != b);
    EXPECT_FALSE(b.isEquivalent(a));
    b.train(numberedProvider(2), Params(1));
    EXPECT_TRUE(a.isEquivalent(b)) << "equal data need not be shared";
    b.retrain(Params(2));
    EXPECT_FALSE(a == b);
    b.retrain(Params(1));
    EXPECT_TRUE(a == b);
    b.trainIncremental(tkFeaturePattern({0.0}), 1);
    EXPECT_FALSE(a.isEquivalent(b));
}

// ---- Storing

TEST(tk_ClassifierKNN, recordIsTheBaseRecordThenTheStoredData)
{
    EXPECT_EQ(storeToBytes(tk_ClassifierKNN()), std::string(3 + 4 + 4, '\0'));
    Memory data = numberedProvider(1);
    tk_ClassifierKNN classifier;
    classifier.train(data, Params());
    const std::string bytes = storeToBytes(classifier);
    const auto params = bytes.find("tkClassifierTrainParamsKNN");
    const auto provider = bytes.find("tkClassifierDataProviderMemory");
    EXPECT_EQ(params, 3u + 12u);
    EXPECT_NE(provider, std::string::npos);
    EXPECT_LT(params, provider);
}

TEST(tk_ClassifierKNN, refusesAnUnknownVersionAtEachLevel)
{
    for (std::size_t level = 0; level < 3; ++level)
    {
        std::string damaged(11, '\0');
        damaged[level] = 1;
        tk_ClassifierKNN classifier;
        EXPECT_THROW(loadFromBytes(damaged, classifier), tkArchive::UnknownVersion) << level;
    }
}

TEST(tk_ClassifierKNN, aLoadedToolIsEqualButRunsWithDefaultsUntilItIsRetrainedWithItsOwnParameters)
{
    // Three changes against the defaults, each visible by itself: k, metric, costs.
    const definition::LabelledRows data = {{{0.0, 3.0}, {2.2, 2.2}, {2.9, 0.0}, {9.0, 9.0}}, {0, 1, 2, 3}};
    const std::vector<double> query = {0.0, 0.0};
    tkClassifierTool tool;
    tool.train(providerOf(data), Params(2, tkPatternDistanceMetricNorm(7.5), someCosts()));
    const tkClassifierResult trained = run(tool, query);
    EXPECT_TRUE(trained == definition::classifyByNeighbours(data, query, 7.5, 2, someCosts()));
    EXPECT_EQ(labelsOf(trained), (std::set<long>{1, 2}));

    tkClassifierTool loaded;
    loadFromBytes(storeToBytes(tool), loaded);
    EXPECT_TRUE(loaded == tool);
    EXPECT_TRUE(run(loaded, query) == definition::classifyByNeighbours(data, query, 2.0, 1));
    EXPECT_FALSE(run(loaded, query) == trained);

    loaded.retrain(*loaded.trainParams());
    EXPECT_TRUE(run(loaded, query) == trained);
    EXPECT_TRUE(loaded == tool);
}

TEST(tk_ClassifierKNN, retrainingALoadedToolRestoresEachParameterByItself)
{
    const definition::LabelledRows data = {{{0.0, 1.0}, {0.9, 0.9}, {2.0, 2.0}}, {0, 1, 2}};
    const std::vector<double> query = {0.0, 0.0};
    struct Case
    {
        long k;
        double order;
        tkClassifierCosts costs;
    };
    for (const Case& c : {Case{3, 2.0, tkClassifierCosts()}, Case{1, 0.5, tkClassifierCosts()},
                          Case{1, 7.5, tkClassifierCosts()}, Case{2, 2.0, someCosts()}})
    {
        tkClassifierTool tool;
        tool.train(providerOf(data), Params(c.k, tkPatternDistanceMetricNorm(c.order), c.costs));
        const tkClassifierResult expected = definition::classifyByNeighbours(data, query, c.order, c.k, c.costs);
        ASSERT_TRUE(run(tool, query) == expected);
        tkClassifierTool loaded;
        loadFromBytes(storeToBytes(tool), loaded);
        loaded.retrain(*loaded.trainParams());
        EXPECT_TRUE(run(loaded, query) == expected) << c.k << " " << c.order;
    }
}

TEST(tk_ClassifierKNN, loadingIntoAnExistingClassifierPutsItsOwnParametersBackToTheDefaults)
{
    tk_ClassifierKNN stored;
    stored.train(numberedProvider(4), Params(4));
    tk_ClassifierKNN existing;
    existing.train(numberedProvider(9), Params(3, TableMetric(std::vector<double>(9, 1.0)), someCosts()));
    loadFromBytes(storeToBytes(stored), existing);
    EXPECT_TRUE(existing == stored);
    EXPECT_EQ(labelsOf(run(existing, {2.0})), std::set<long>{2});

    loadFromBytes(storeToBytes(tk_ClassifierKNN()), existing);
    EXPECT_FALSE(existing.isTrained());
    EXPECT_TRUE(existing == tk_ClassifierKNN());
}

TEST(tk_ClassifierKNN, storingChangesNothingInTheClassifier)
{
    tk_ClassifierKNN classifier;
    classifier.train(numberedProvider(4), Params(3));
    storeToBytes(classifier);
    EXPECT_EQ(labelsOf(run(classifier, {0.0})).size(), 3u);
}

TEST(tk_ClassifierKNN, copiesStillShareTheirDataAfterLoading)
{
    const tkPtrHandle<tk_Classifier> original(new tk_ClassifierKNN);
    original->train(numberedProvider(2), Params());
    const std::vector<tkPtrHandle<tk_Classifier>> stored = {original, original->clone()};
    std::vector<tkPtrHandle<tk_Classifier>> loaded;
    loadFromBytes(storeToBytes(stored), loaded);
    ASSERT_EQ(loaded.size(), 2u);
    ASSERT_NE(loaded[0], loaded[1]);
    EXPECT_EQ(loaded[0]->trainParams(), loaded[1]->trainParams());
    loaded[0]->trainIncremental(tkFeaturePattern({50.0}), 9);
    EXPECT_EQ(labelsOf(run(*loaded[1], {60.0})), std::set<long>{9});
}

TEST(tk_ClassifierKNN, aLoadedKBelowOneIsRefusedWhenItIsUsed)
{
    for (const long k : {0L, -1L, -2147483647L - 1L})
    {
        const Params bad = paramsWithLoadedK(k);
        EXPECT_EQ(bad.k(), k);
        tkClassifierTool tool;
        EXPECT_TK_THROW(tool.train(numberedProvider(2), bad), tkClassifierDefs::BadParams, L"K must be >= 1");
        EXPECT_FALSE(tool.isTrained());

        tool.train(numberedProvider(3), Params(2));
        EXPECT_TK_THROW(tool.retrain(bad), tkClassifierDefs::BadParams, L"K must be >= 1");
        EXPECT_EQ(labelsOf(run(tool, {0.0})), (std::set<long>{0, 1})) << "the tool stays as it was";
    }
}

TEST(tk_ClassifierKNN, aLoadedHugeKCostsNothing)
{
    const Params huge = paramsWithLoadedK(2147483647);
    tkClassifierTool tool;
    tool.train(numberedProvider(3), huge);
    EXPECT_EQ(labelsOf(run(tool, {0.0})).size(), 3u);
}

TEST(tk_ClassifierKNN, aLoadedNullMetricFailsWhenItIsUsed)
{
    const Params null = paramsWithLoadedNullMetric();
    EXPECT_TRUE(null.distanceMetric().isNull());
    tk_ClassifierKNN classifier;
    classifier.train(numberedProvider(2), null);
    tkClassifierResult result;
    EXPECT_THROW(classifier.run(tkFeaturePattern({0.0}), result), tkBadPointer);
    EXPECT_THROW(static_cast<void>(null == Params()), tkBadPointer);
    EXPECT_THROW(static_cast<void>(Params() == null), tkBadPointer);
}

TEST(tk_ClassifierKNN, refusesToLoadParametersOfAnotherTechnique)
{
    const tkPtrHandle<tkClassifierTrainParams> foreign(new ScriptedParams);
    const std::string bytes = std::string(3, '\0') + storeToBytes(foreign) + std::string(4, '\0');
    tk_ClassifierKNN classifier;
    EXPECT_TK_THROW(loadFromBytes(bytes, classifier), tkArchive::Errors,
                    L"A nearest-neighbor classifier has parameters of another technique (reading, at byte 35)");
}

TEST(tk_ClassifierKNN, storedDataOfAnotherClassLeaveTheClassifierUntrained)
{
    const tkPtrHandle<tkFeaturePattern> stray(new tkFeaturePattern({1.0}));
    const std::string bytes = std::string(3 + 4, '\0') + storeToBytes(stray);
    tk_ClassifierKNN classifier;
    loadFromBytes(bytes, classifier);
    EXPECT_FALSE(classifier.isTrained());
}

TEST(tk_ClassifierKNN, goldenArchiveComesBackEqualAndStoresToTheSameBytes)
{
    const std::string bytes = goldenBytes("tk_ClassifierKNN.v0.bin");
    tkPtrHandle<tk_Classifier> loaded;
    loadFromBytes(bytes, loaded);
    EXPECT_TRUE(golden::classifierKNN().isEquivalent(*loaded));
    EXPECT_EQ(storeToBytes(loaded), bytes);
}

TEST(tk_ClassifierKNN, nearestNeighborsAreThoseThatVoteNearestFirst)
{
    tk_ClassifierKNN classifier;
    classifier.train(numberedProvider(6), Params(2));
    const std::vector<tk_ClassifierKNN::Neighbor> neighbors = classifier.nearestNeighbors(*patternOf({3.25}), 3);
    ASSERT_EQ(3u, neighbors.size());
    EXPECT_EQ(3, neighbors[0].index);
    EXPECT_EQ(0.25, neighbors[0].distance);
    EXPECT_EQ(4, neighbors[1].index);
    EXPECT_EQ(0.75, neighbors[1].distance);
    EXPECT_EQ(2, neighbors[2].index);
    EXPECT_EQ(1.25, neighbors[2].distance);
    EXPECT_EQ(6u, classifier.nearestNeighbors(*patternOf({3.25}), std::numeric_limits<long>::max()).size());
}

TEST(tk_ClassifierKNN, nearestNeighborsThrowWhatARunThrows)
{
    tk_ClassifierKNN classifier;
    EXPECT_THROW(classifier.nearestNeighbors(*patternOf({1.0}), 1), tkAssertionFailure);
    classifier.train(Memory(), Params());
    EXPECT_TK_THROW(classifier.nearestNeighbors(*patternOf({1.0}), 1), tkClassifierDefs::InsufficientTrainData,
                    noValidData);
    classifier.train(numberedProvider(2), Params());
    EXPECT_THROW(classifier.nearestNeighbors(*patternOf({1.0}), 0), tkAssertionFailure);
    EXPECT_TK_THROW(classifier.nearestNeighbors(*patternOf({1.0}, {0}), 1), tkClassifierDefs::BadFeatures,
                    invalidMeasurements);
    EXPECT_TK_THROW(classifier.nearestNeighbors(*patternOf({1.0, 2.0}), 1), tkClassifierDefs::BadFeatures,
                    invalidMeasurements);
}
