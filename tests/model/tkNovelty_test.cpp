#include "clss/model/tkNovelty.h"

#include "modelTestData.h"
#include "tests/golden/model.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/clastool/clastool/tkClassifierTrainParamsKNN.h"
#include "clss/clastool/clastool/tkDecisionTree.h"
#include "clss/model/tk_NoveltyEvidence.h"
#include "foundation/tkArchiveOperators.h"

#include <algorithm>
#include <functional>
#include <limits>
#include <thread>

namespace
{
using Data = tkClassifierDataProviderMemory;
using Types = tkClassifierDistributionTypes;

const double infinity = std::numeric_limits<double>::infinity();
const double notANumber = std::numeric_limits<double>::quiet_NaN();

/// A pattern of one of the categories 3, 4 and 9, with three measurements that depend on one another.
std::vector<double> randomPattern(tkRandomUniform& uniform, long label)
{
    const auto deviate = [&]
    { return uniform.next(-1.0, 1.0) + uniform.next(-1.0, 1.0) + uniform.next(-1.0, 1.0) + uniform.next(-1.0, 1.0); };
    const double a = deviate();
    const double shift = static_cast<double>(label);
    return {a + shift, 0.8 * a + 0.4 * deviate() - shift, 50.0 * deviate() + 10.0 * shift};
}

Data randomData(long numPatterns, long seed = 5)
{
    tkRandomUniform uniform(seed);
    Data data;
    for (long i = 0; i < numPatterns; ++i)
    {
        const long label = i % 3 == 0 ? 9 : i % 3 == 1 ? 3 : 4;
        data.addData(randomPattern(uniform, label), label);
    }
    return data;
}

tkClassifierTrainParamsBayesian jointParams()
{
    Types types(Types::eNormal);
    for (const long label : {3L, 4L, 9L})
        types.setDependent(label, {0, 1, 2});
    return tkClassifierTrainParamsBayesian(types);
}

/// The data as novelty holds them.
tk_NoveltyData heldData(const Data& data)
{
    tk_NoveltyData held;
    held.numMeasurements = 3;
    for (const long label : {3L, 4L, 9L})
    {
        for (std::size_t i = 0; i < data.patterns().size(); ++i)
            if (data.labels()[i] == label)
            {
                const std::vector<double>& x = data.patterns()[i]->featureMeasurements(false);
                held.measurements.insert(held.measurements.end(), x.begin(), x.end());
            }
        held.labels.push_back(label);
        held.ends.push_back(static_cast<long>(held.measurements.size() / 3));
    }
    return held;
}

/// The ranks by definition, among known patterns of the numbers `ranked`.
void expectRanks(const Data& data, const tkClassifierTrainParams& params, const tkFeaturePattern& pattern,
                 const std::vector<long>& measurements, const std::vector<std::size_t>& ranked)
{
    const tk_NoveltyData held = heldData(data);
    const auto evidence = tk_NoveltyEvidence::make(held, params);
    const auto view = evidence->view(measurements);
    std::vector<double> own(3);
    view->fill(pattern.featureMeasurements(false).data(), own.data());
    const double best = *std::max_element(own.begin(), own.end());
    double count = 0.0;
    std::vector<double> counts(3);
    std::vector<double> sizes(3);
    std::vector<double> other(3);
    for (const std::size_t i : ranked)
    {
        view->fillLeftOut(i, other.data());
        count += *std::max_element(other.begin(), other.end()) <= best ? 1.0 : 0.0;
        const std::size_t c = i < held.end(0) ? 0 : i < held.end(1) ? 1 : 2;
        counts[c] += other[c] <= own[c] ? 1.0 : 0.0;
        sizes[c] += 1.0;
    }
    const tkNovelty novelty(data, params);
    const tkNovelty::Judgement judgement = novelty.judge(pattern);
    EXPECT_EQ((1.0 + count) / (1.0 + static_cast<double>(ranked.size())), judgement.pValue);
    EXPECT_EQ(judgement.pValue, novelty.pValue(pattern));
    EXPECT_EQ(best, judgement.evidence);
    ASSERT_EQ(3u, judgement.categoryPValues.size());
    for (std::size_t c = 0; c < 3; ++c)
        EXPECT_EQ((1.0 + counts[c]) / (1.0 + sizes[c]), judgement.categoryPValues[c]) << c;
}

std::vector<std::size_t> all(std::size_t count)
{
    std::vector<std::size_t> numbers;
    for (std::size_t i = 0; i < count; ++i)
        numbers.push_back(i);
    return numbers;
}

/// The record of a novelty whose parts are these.
std::string recordOf(const tkPtrHandle<tkClassifierTrainParams>& params, long numMeasurements,
                     const std::vector<long>& labels, const std::vector<long>& ends,
                     const std::vector<double>& measurements, const std::vector<double>& best,
                     const std::vector<double>& own)
{
    std::ostringstream stream;
    {
        tkArchive archive(stream);
        archive.exchangeVersion();
        auto copies = std::make_tuple(params, numMeasurements, labels, ends, measurements, best, own);
        std::apply([&](auto&... part) { (archive || ... || part); }, copies);
    }
    return stream.str();
}

/// The record is refused with a text that begins so, and what was there stays.
void expectRefused(const std::string& record, const std::wstring& text)
{
    tkNovelty loaded = golden::novelty();
    try
    {
        loadFromBytes(record, loaded);
        ADD_FAILURE() << "loaded";
    }
    catch (const tkArchive::Errors& error)
    {
        EXPECT_EQ(text, error.message().substr(0, text.size()));
    }
    EXPECT_TRUE(loaded == golden::novelty());
}

tkPtrHandle<tkClassifierTrainParams> handleTo(const tkClassifierTrainParams& params)
{
    return params.clone();
}
} // namespace

TEST(tkNovelty, newOneKnowsNothingAndRefusesNothing)
{
    const tkNovelty novelty;
    EXPECT_EQ(0, novelty.numMeasurements());
    EXPECT_EQ(0, novelty.numPatterns());
    EXPECT_TRUE(novelty.categoryLabels().empty());
    const tkNovelty::Judgement judgement = novelty.judge(tkFeaturePattern({1.0, 2.0}));
    EXPECT_EQ(1.0, judgement.pValue);
    EXPECT_EQ(0.0, judgement.evidence);
    EXPECT_TRUE(judgement.categoryPValues.empty());
}

TEST(tkNovelty, sizesAreThoseOfTheDataAndLabelsAscend)
{
    const tkNovelty novelty(randomData(20), jointParams());
    EXPECT_EQ(3, novelty.numMeasurements());
    EXPECT_EQ(20, novelty.numPatterns());
    EXPECT_EQ((std::vector<long>{3, 4, 9}), novelty.categoryLabels());
}

TEST(tkNovelty, pValuesAreRanksAmongKnownPatternsLeftOut)
{
    const Data data = randomData(40);
    for (const std::vector<double>& x :
         {std::vector<double>{3.0, -2.5, 30.0}, {5.0, -5.0, 120.0}, {6.0, -3.0, 0.0}, {9.0, -9.0, 1e9}})
    {
        expectRanks(data, jointParams(), tkFeaturePattern(x), {0, 1, 2}, all(40));
        expectRanks(data, tkClassifierTrainParamsBayesian(), tkFeaturePattern(x), {0, 1, 2}, all(40));
        expectRanks(data, tkClassifierTrainParamsKNN(2), tkFeaturePattern(x), {0, 1, 2}, all(40));
    }
}

TEST(tkNovelty, pValuesWithInvalidMeasurementsAreRanksByTheOthers)
{
    const Data data = randomData(40);
    const tkFeaturePattern pattern({4.0, 5.0, 60.0}, {1});
    for (const tkPtrHandle<tkClassifierTrainParams>& params :
         {handleTo(jointParams()), handleTo(tkClassifierTrainParamsBayesian()),
          handleTo(tkClassifierTrainParamsKNN(3))})
        expectRanks(data, *params, pattern, {0, 2}, all(40));
}

TEST(tkNovelty, invalidMeasurementsAreRankedAmong256EvenlyChosen)
{
    const Data data = randomData(300);
    std::vector<std::size_t> ranked;
    for (std::size_t r = 0; r < 256; ++r)
        ranked.push_back((2 * r + 1) * 300 / 512);
    expectRanks(data, jointParams(), tkFeaturePattern({4.0, -3.0, 60.0}, {0}), {1, 2}, ranked);
}

TEST(tkNovelty, measurementsThatAreNotFiniteCountAsInvalidOnes)
{
    const tkNovelty novelty(randomData(30), jointParams());
    const tkNovelty::Judgement expected = novelty.judge(tkFeaturePattern({4.0, 5.0, 60.0}, {1}));
    for (const double value : {notANumber, infinity, -infinity})
        for (const tkFeaturePattern& pattern :
             {tkFeaturePattern({4.0, value, 60.0}), tkFeaturePattern({4.0, value, 60.0}, {1})})
        {
            EXPECT_EQ(expected.pValue, novelty.judge(pattern).pValue);
            EXPECT_EQ(expected.evidence, novelty.judge(pattern).evidence);
            EXPECT_EQ(expected.categoryPValues, novelty.judge(pattern).categoryPValues);
        }
}

TEST(tkNovelty, patternsWithoutMeasurementsAreNotNovel)
{
    const tkNovelty novelty(randomData(30), jointParams());
    const tkNovelty::Judgement judgement = novelty.judge(tkFeaturePattern({4.0, notANumber, 1e9}, {0, 2}));
    EXPECT_EQ(1.0, judgement.pValue);
    EXPECT_EQ(0.0, judgement.evidence);
    EXPECT_EQ((std::vector<double>{1.0, 1.0, 1.0}), judgement.categoryPValues);

    Data data;
    data.addData(std::vector<double>(), 2);
    for (const tkPtrHandle<tkClassifierTrainParams>& params :
         {handleTo(tkClassifierTrainParamsBayesian()), handleTo(tkClassifierTrainParamsKNN())})
        EXPECT_EQ(1.0, tkNovelty(data, *params).pValue(tkFeaturePattern()));
}

TEST(tkNovelty, measurementsThatAreTheSameEverywhereSayNothing)
{
    Data data;
    for (int i = 0; i < 6; ++i)
        data.addData({7.0}, i % 2);
    EXPECT_EQ(1.0, tkNovelty(data, tkClassifierTrainParamsBayesian()).pValue(tkFeaturePattern({1e9})));
}

TEST(tkNovelty, farPatternsHaveTheLeastPValue)
{
    const tkNovelty bayesian(randomData(40), jointParams());
    const tkNovelty neighbors(randomData(40), tkClassifierTrainParamsKNN(2));
    for (const double far : {1e4, 1e100, std::numeric_limits<double>::max()})
        for (const tkNovelty& novelty : {bayesian, neighbors})
        {
            const tkNovelty::Judgement judgement = novelty.judge(tkFeaturePattern({far, -far, 0.0}));
            EXPECT_EQ(1.0 / 41.0, judgement.pValue);
            EXPECT_EQ(1.0 / 14.0, judgement.categoryPValues[1]);
            EXPECT_EQ(1.0 / 41.0, novelty.pValue(tkFeaturePattern({far, -far, 0.0}, {2})));
        }
}

TEST(tkNovelty, shareOfKnownPatternsBelowAlphaIsNearAlpha)
{
    const long numTested = 1500;
    for (const tkPtrHandle<tkClassifierTrainParams>& params :
         {handleTo(jointParams()), handleTo(tkClassifierTrainParamsKNN(3))})
    {
        const tkNovelty novelty(randomData(300), *params);
        const Data tested = randomData(numTested, 77);
        for (const bool hasGaps : {false, true})
        {
            double below = 0.0;
            for (long i = 0; i < (hasGaps ? numTested / 10 : numTested); ++i)
            {
                const std::vector<double>& x =
                    tested.patterns()[static_cast<std::size_t>(i)]->featureMeasurements(false);
                const std::vector<long> invalid = hasGaps ? std::vector<long>{i % 3} : std::vector<long>();
                below += novelty.pValue(tkFeaturePattern(x, invalid)) < 0.1 ? 1.0 : 0.0;
            }
            EXPECT_NEAR(0.1, below / static_cast<double>(hasGaps ? numTested / 10 : numTested), hasGaps ? 0.06 : 0.04);
        }
    }
}

TEST(tkNovelty, assessmentsRefuseByIt)
{
    const Data data = randomData(60);
    const tkClassifierTrainParamsBayesian params = jointParams();
    const tkTrainer trainer = [&](const tkClassifierDataProvider& training)
    {
        tkClassifierTool tool;
        tool.train(training, params);
        const tkNovelty novelty(training, params);
        return [tool, novelty](const tkFeaturePattern& p) { return tkJudgement(tool.run(p), novelty.pValue(p)); };
    };
    const tkAssessment assessment = tkAssessment::crossValidate(data, trainer, tkAssessment::stratifiedFolds(data, 4));
    const auto numRefused = [&](double alpha)
    {
        tkDecisionRule rule(params);
        rule.alpha(alpha);
        const std::vector<long> decisions = assessment.decisions(rule);
        return std::count(decisions.begin(), decisions.end(), tkDecisionRule::noneOfThese);
    };
    EXPECT_EQ(0, numRefused(0.0));
    EXPECT_NEAR(15.0, static_cast<double>(numRefused(0.25)), 10.0);
    EXPECT_EQ(60, numRefused(1.0) + std::count(assessment.pValues().begin(), assessment.pValues().end(), 1.0));
}

TEST(tkNovelty, unlabelledAndIncompletePatternsAreLeftOut)
{
    const tkClassifierTrainParamsBayesian params = jointParams();
    Data data = randomData(20);
    const tkNovelty expected(data, params);
    data.addData({1e9, 1e9, 1e9}, -1);
    data.addData(handleTo(tkFeaturePattern({1e9, 1e9, 1e9}, {1})), 3);
    data.addData({1e9, infinity, 1e9}, 9);
    data.addData({notANumber, 1e9, 1e9}, 4);
    EXPECT_TRUE(tkNovelty(data, params) == expected);
}

TEST(tkNovelty, frequenciesAndCostsHaveNoInfluence)
{
    const Data data = randomData(20);
    tkClassifierTrainParamsBayesian params = jointParams();
    const tkNovelty novelty(data, params);
    params.categoryFrequencies(golden::frequencies());
    params.misclassificationCosts(golden::costs());
    const tkNovelty other(data, params);
    for (const tkPtrHandle_const<tkFeaturePattern>& pattern : data.patterns())
        EXPECT_EQ(novelty.judge(*pattern).evidence, other.judge(*pattern).evidence);
}

TEST(tkNovelty, parametersOfDerivedClassesAreTakenForTheirBase)
{
    const Data data = randomData(20);
    const tkNovelty novelty(data, jointParams());
    const tkNovelty pooled(data, tkCovariancePooling(jointParams()));
    EXPECT_EQ(novelty.judge(tkFeaturePattern({1.0, 2.0, 3.0})).evidence,
              pooled.judge(tkFeaturePattern({1.0, 2.0, 3.0})).evidence);
    EXPECT_FALSE(novelty == pooled);
}

TEST(tkNovelty, learningChecksDataThenCategoriesThenParameters)
{
    const tkDecisionTreeLeaf other{tkClassifierResult()};
    UncheckedProvider data;
    data.measurements = 1;
    data.patterns = {::handleTo(tkFeaturePattern({1.0, 2.0})), tkPtrHandle_const<tkFeaturePattern>()};
    data.labels = {-2, 7};
    EXPECT_TK_THROW(tkNovelty(data, jointParams()), tkClassifierDefs::BadFeatures,
                    L"Pattern 0 has 2 measurements, the training data have 1.");
    data.measurements = 2;
    EXPECT_TK_THROW(tkNovelty(data, jointParams()), tkClassifierDefs::BadLabel,
                    L"Category labels must be >= 0 or unknown");
    data.labels[0] = 5;
    EXPECT_THROW(tkNovelty(data, jointParams()), tkBadPointer);
    data.patterns[1] = ::handleTo(tkFeaturePattern({1.0, 2.0}, {1}));
    EXPECT_TK_THROW(tkNovelty(data, tkClassifierTrainParamsKNN()), tkClassifierDefs::InsufficientTrainData,
                    L"No pattern of category 7 has all measurements.");
    data.labels = {-1, -1};
    EXPECT_TK_THROW(tkNovelty(data, jointParams()), tkClassifierDefs::InsufficientTrainData,
                    L"No valid data was provided for training.");
}

TEST(tkNovelty, parametersOfOtherTechniquesAreRefused)
{
    class Other : public tkClassifierTrainParams
    {
    public:
        tkPtrHandle<tkClassifierTrainParams> clone() const override
        {
            return tkPtrHandle<tkClassifierTrainParams>(new Other);
        }

    protected:
        bool isSameTechnique_(const tkClassifierTrainParams&) const override { return false; }
        tk_Classifier* newClassifier_() const override { return nullptr; }
    };
    EXPECT_TK_THROW(tkNovelty(randomData(9), Other()), tkClassifierDefs::BadMethod,
                    L"Novelty needs the parameters of Bayesian or of nearest-neighbour classification.");
}

TEST(tkNovelty, whatTheTrainingRefusesIsRefused)
{
    const Data data = randomData(9);
    EXPECT_TK_THROW(tkNovelty(data, tkClassifierTrainParamsBayesian(Types(Types::ePoisson))),
                    tkClassifierDefs::NotImplemented, L"Poisson distribution is not implemented");
    Types types(Types::eNormal);
    types.setDependent(4, {1, 3});
    EXPECT_TK_THROW(tkNovelty(data, tkClassifierTrainParamsBayesian(types)), tkClassifierDefs::BadIndex,
                    L"A dependency set of category 4 has measurement 3, the patterns have 3.");
    Data large;
    large.addData({1e200}, 0);
    EXPECT_TK_THROW(tkNovelty(large, tkClassifierTrainParamsBayesian()), tkFailure,
                    L"A measurement is too large, or the patterns are too many, for a normal distribution");
    EXPECT_TK_THROW(tkNovelty(data, tkClassifierTrainParamsBayesian(Types(Types::eBinomial))),
                    tkClassifierDefs::BadParams,
                    L"Train data measurement cannot exceed its maximum value when using binomial distribution");
}

TEST(tkNovelty, patternsOfAnotherLengthAreRefused)
{
    const tkNovelty novelty(randomData(9), jointParams());
    EXPECT_TK_THROW(novelty.pValue(tkFeaturePattern({1.0})), tkClassifierDefs::BadFeatures,
                    L"The pattern has 1 measurements, the novelty 3.");
}

TEST(tkNovelty, copiesAreIndependentOfWhatTheyCameFrom)
{
    tkNovelty novelty(randomData(20), jointParams());
    const tkNovelty copy(novelty);
    const double pValue = copy.pValue(tkFeaturePattern({3.0, -2.0, 30.0}));
    novelty = golden::novelty();
    EXPECT_TRUE(novelty == golden::novelty());
    EXPECT_EQ(pValue, copy.pValue(tkFeaturePattern({3.0, -2.0, 30.0})));
    EXPECT_TRUE(copy == tkNovelty(randomData(20), jointParams()));
}

TEST(tkNovelty, equalityIsThatOfParametersAndPatterns)
{
    const tkNovelty novelty(randomData(20), jointParams());
    EXPECT_TRUE(novelty == tkNovelty(randomData(20), jointParams()));
    EXPECT_FALSE(novelty != tkNovelty(randomData(20), jointParams()));
    EXPECT_TRUE(tkNovelty() == tkNovelty());
    Data relabelled = randomData(20);
    relabelled.data(relabelled.patterns(), std::vector<long>(20, 3));
    for (const tkNovelty& other :
         {tkNovelty(), tkNovelty(randomData(21), jointParams()), tkNovelty(randomData(20, 6), jointParams()),
          tkNovelty(relabelled, jointParams()), tkNovelty(randomData(20), tkClassifierTrainParamsBayesian()),
          tkNovelty(randomData(20), tkClassifierTrainParamsKNN(2))})
    {
        EXPECT_FALSE(novelty == other);
        EXPECT_FALSE(other == novelty);
        EXPECT_TRUE(novelty != other);
    }
    EXPECT_FALSE(tkNovelty(randomData(20), tkClassifierTrainParamsKNN(2)) ==
                 tkNovelty(randomData(20), tkClassifierTrainParamsKNN(3)));
}

TEST(tkNovelty, threadsThatShareOneSeeTheSame)
{
    const tkNovelty novelty(randomData(60), jointParams());
    const tkFeaturePattern complete({3.0, -2.0, 30.0});
    const tkFeaturePattern incomplete({3.0, -2.0, 30.0}, {1});
    const double expected = novelty.pValue(complete) + novelty.pValue(incomplete);
    std::vector<double> found(4);
    std::vector<std::thread> threads;
    for (double& each : found)
        threads.emplace_back([&] { each = novelty.pValue(complete) + novelty.pValue(incomplete); });
    for (std::thread& thread : threads)
        thread.join();
    for (const double each : found)
        EXPECT_EQ(expected, each);
}

TEST(tkNovelty, goldenArchivesComeBackEqualAndStoreToTheSameBytes)
{
    for (const auto& [file, expected] : {std::make_pair("tkNovelty.v0.bin", golden::novelty()),
                                         std::make_pair("tkNovelty.KNN.v0.bin", golden::noveltyOfNeighbors())})
    {
        const std::string bytes = goldenBytes(file);
        tkNovelty loaded;
        loadFromBytes(bytes, loaded);
        EXPECT_TRUE(loaded == expected) << file;
        EXPECT_EQ(bytes, storeToBytes(loaded)) << file;
        EXPECT_EQ(bytes, storeToBytes(expected)) << file;
        for (const tkFeaturePattern& pattern :
             {tkFeaturePattern({2.0, 3.0}), tkFeaturePattern({9.0, 9.0}), tkFeaturePattern({2.0, 3.0}, {0})})
        {
            EXPECT_EQ(expected.judge(pattern).evidence, loaded.judge(pattern).evidence) << file;
            EXPECT_EQ(expected.judge(pattern).pValue, loaded.judge(pattern).pValue) << file;
            EXPECT_EQ(expected.judge(pattern).categoryPValues, loaded.judge(pattern).categoryPValues) << file;
        }
    }
}

TEST(tkNovelty, oneThatKnowsNothingComesBack)
{
    tkNovelty loaded = golden::novelty();
    loadFromBytes(storeToBytes(tkNovelty()), loaded);
    EXPECT_TRUE(loaded == tkNovelty());
}

TEST(tkNovelty, neighborsOfLargeMeasurementsComeBack)
{
    Data data;
    for (const double x : {1e300, 2e300, -1e308})
        data.addData({x}, 0);
    const tkNovelty novelty(data, tkClassifierTrainParamsKNN());
    tkNovelty loaded;
    loadFromBytes(storeToBytes(novelty), loaded);
    EXPECT_TRUE(loaded == novelty);
}

TEST(tkNovelty, otherVersionAndTruncatedRecordsChangeNothing)
{
    tkNovelty loaded = golden::novelty();
    EXPECT_THROW(loadFromBytes("\1", loaded), tkArchive::UnknownVersion);
    for (const char* const file : {"tkNovelty.v0.bin", "tkNovelty.KNN.v0.bin"})
    {
        const std::string bytes = goldenBytes(file);
        for (std::size_t length = 0; length < bytes.size(); ++length)
            EXPECT_THROW(loadFromBytes(bytes.substr(0, length), loaded), tkArchive::Errors) << file << length;
    }
    EXPECT_TRUE(loaded == golden::novelty());
}

TEST(tkNovelty, recordsThatDoNotFitTogetherAreRefused)
{
    const tkPtrHandle<tkClassifierTrainParams> params = handleTo(tkClassifierTrainParamsBayesian());
    const tkPtrHandle<tkClassifierTrainParams> none;
    tkNovelty loaded;
    loadFromBytes(recordOf(params, 1, {2, 5}, {1, 3}, {1, 2, 3}, {0, 0, 0}, {0, 0, 0}), loaded);
    EXPECT_EQ(3, loaded.numPatterns());

    expectRefused(recordOf(params, 1, {2, 5}, {3}, {1, 2, 3}, {0, 0, 0}, {0, 0, 0}),
                  L"The categories of a novelty are not as many as their ends");
    expectRefused(recordOf(params, 1, {2, 5}, {1, 3}, {1, 2, 3}, {0, 0, 0}, {0, 0}),
                  L"A novelty has not as many evidences of each kind");
    for (const std::vector<long>& labels : {std::vector<long>{-1, 5}, {5, 5}, {5, 2}})
        expectRefused(recordOf(params, 1, labels, {1, 3}, {1, 2, 3}, {0, 0, 0}, {0, 0, 0}),
                      L"The categories of a novelty are not in ascending order");
    for (const std::vector<long>& ends : {std::vector<long>{0, 3}, {-1, 3}, {3, 3}, {3, 1}})
        expectRefused(recordOf(params, 1, {2, 5}, ends, {1, 2, 3}, {0, 0, 0}, {0, 0, 0}),
                      L"A category of a novelty ends before it begins");
    for (const long end : {2L, 4L, 2147483647L})
        expectRefused(recordOf(params, 1, {2, 5}, {1, end}, {1, 2, 3}, {0, 0, 0}, {0, 0, 0}),
                      L"A novelty has not as many evidences as patterns");
    for (const long numMeasurements : {0L, 2L, -1L, 2147483647L})
        expectRefused(recordOf(params, numMeasurements, {2, 5}, {1, 3}, {1, 2, 3}, {0, 0, 0}, {0, 0, 0}),
                      L"The patterns of a novelty have not as many measurements as it says");
    expectRefused(recordOf(params, 1, {2, 5}, {1, 3}, {1, 2, 3, 4}, {0, 0, 0}, {0, 0, 0}),
                  L"The patterns of a novelty have not as many measurements as it says");
    expectRefused(recordOf(none, 1, {}, {}, {}, {}, {}),
                  L"The patterns of a novelty have not as many measurements as it says");
    expectRefused(recordOf(none, 0, {}, {}, {1}, {}, {}),
                  L"The patterns of a novelty have not as many measurements as it says");
    expectRefused(recordOf(none, 1, {2}, {1}, {1}, {0}, {0}),
                  L"A novelty has patterns without parameters, or parameters without patterns");
    expectRefused(recordOf(params, 0, {}, {}, {}, {}, {}),
                  L"A novelty has patterns without parameters, or parameters without patterns");
    for (const double x : {notANumber, infinity, -infinity})
        expectRefused(recordOf(params, 1, {2, 5}, {1, 3}, {1, x, 3}, {0, 0, 0}, {0, 0, 0}),
                      L"A measurement of a novelty is not finite");
    expectRefused(recordOf(params, 1, {2}, {2}, {1, 2}, {0, notANumber}, {0, 0}),
                  L"An evidence of a novelty is not a number");
    expectRefused(recordOf(params, 1, {2}, {2}, {1, 2}, {0, 0}, {notANumber, 0}),
                  L"An evidence of a novelty is not a number");
}

TEST(tkNovelty, recordsWithParametersThatCannotBeLearnedWithAreRefused)
{
    expectRefused(
        recordOf(handleTo(tkClassifierTrainParamsBayesian(Types(Types::eUniform))), 1, {2}, {1}, {1}, {0}, {0}),
        L"A novelty cannot be learned with its parameters: Uniform distribution is not implemented");
    Types types(Types::eNormal);
    types.setDependent(2, {0, 1});
    expectRefused(recordOf(handleTo(tkClassifierTrainParamsBayesian(types)), 1, {2}, {1}, {1}, {0}, {0}),
                  L"A novelty cannot be learned with its parameters: A dependency set of category 2 has measurement 1");

    std::string neighbors = goldenBytes("tkNovelty.KNN.v0.bin");
    const std::string k = storeToBytes(2L);
    const std::size_t place = neighbors.find(k, neighbors.find("tkClassifierTrainParamsKNN"));
    ASSERT_NE(std::string::npos, place);
    neighbors.replace(place, k.size(), storeToBytes(0L));
    expectRefused(neighbors, L"A novelty cannot be learned with its parameters: K must be >= 1");
}
