#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "foundation/tkArchiveOperators.h"
#include "foundation/tkException.h"
#include "numerics/tkNMNormal.h"
#include "tests/bayes/bayesTestData.h"
#include "tkTest.h"

#include <algorithm>
#include <limits>
#include <sstream>
#include <utility>

using namespace bayesTest;

namespace
{
/// Mean and sums of squares of one set, by the recursion as it is written down.
struct PlainNormal
{
    double count = 0.0;
    std::vector<double> mean;
    std::vector<double> compensation;
    std::vector<std::vector<double>> squares;

    void learn(const std::vector<double>& x)
    {
        const std::size_t d = x.size();
        mean.resize(d);
        compensation.resize(d);
        squares.resize(d, std::vector<double>(d));
        count += 1.0;
        std::vector<double> before(d);
        std::vector<double> after(d);
        for (std::size_t j = 0; j < d; ++j)
        {
            before[j] = (x[j] - mean[j]) - compensation[j];
            const double step = before[j] / count + compensation[j];
            const double sum = mean[j] + step;
            const double added = sum - mean[j];
            compensation[j] = (mean[j] - (sum - added)) + (step - added);
            mean[j] = sum;
            after[j] = (x[j] - mean[j]) - compensation[j];
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

TEST(tk_BayesTrainer, learnsAndScoresWithTheBitsOfThePlainDefinition)
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
                    ASSERT_TRUE(haveSameBits(plain.compensation[i], mean.compensation(row, 0)));
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

TEST(tk_BayesTrainer, learnsFromAProviderThatReusesItsPattern)
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

TEST(tk_BayesTrainer, learnsEveryPatternBeforeTheOneThatFails)
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

TEST(tk_BayesTrainer, aDensityThatRefusesEndsTheTrainingWhereTheModelWould)
{
    for (const long binomial : {0L, 2L, 4L})
        for (const double bad : {100.5, 1e200})
        {
            Types types(Types::eNormal);
            types.distributionTypeOverride(1, binomial, Types::eBinomial);
            const Params params(types, tkClassifierFrequencies(), tkClassifierCosts(),
                                tkFeaturePattern(std::vector<double>(5, 100.0)));
            ListProvider data;
            data.measurements = 5;
            std::mt19937_64 generator(11);
            for (long p = 0; p < 40; ++p)
            {
                std::vector<double> row(5);
                for (double& v : row)
                    v = static_cast<double>(generator() % 100);
                data.add(tkFeaturePattern(row), p % 3);
            }
            std::vector<tk_CategoryModelBayesian> expected = learnedOneByOne(data, params, data.patterns.size());
            std::vector<double> last(5, 3.0);
            last[static_cast<std::size_t>(binomial)] = bad;
            data.add(tkFeaturePattern(last), 1);
            EXPECT_THROW(expected[1].adapt(tkFeaturePattern(last)), tkClassifierDefs::BadParams);
            tk_ClassifierBayesian classifier;
            EXPECT_THROW(classifier.train(data, params), tkClassifierDefs::BadParams);
            expectModels(classifier, expected);
        }
}

TEST(tk_BayesTrainer, learnsEveryKindOfCategoryAsPatternByPattern)
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
        for (std::size_t kind = 0; kind < 9; ++kind)
        {
            Types types(Types::eNormal);
            if (kind < kinds.size())
                for (const std::vector<long>& set : kinds[kind].front())
                    for (const long label : {0L, 1L})
                        types.setDependent(label, set);
            else if (kind < 8) // the last measurement, or the first one before a set
                types.distributionTypeOverride(1, kind == 6 ? d - 1 : 0, Types::eBinomial);
            else
                for (long j = 0; j < d; j += 2)
                    types.distributionTypeOverride(j % 3, j, Types::eBinomial);
            if (kind == 7 && d > 2)
                types.setDependent(1, {1, 2});
            ListProvider data = randomProvider(d, 400, 4, static_cast<unsigned>(d) * 10 + static_cast<unsigned>(kind));
            expectLearnsAsOneByOne(data,
                                   Params(types, tkClassifierFrequencies(), tkClassifierCosts(),
                                          tkFeaturePattern(std::vector<double>(static_cast<std::size_t>(d), 2e8))));
        }
    }
}

TEST(tk_BayesTrainer, learnsFromOnePatternAndFromNone)
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

TEST(tk_BayesTrainer, anyNumberOfLabelsIsToldApart)
{
    ListProvider data = randomProvider(3, 6000, 1500, 5);
    for (std::size_t p = 0; p < data.labels.size(); p += 3)
        data.labels[p] = data.labels[p] % 5 == 0 ? 2147483647L - data.labels[p] : data.labels[p];
    expectLearnsAsOneByOne(data, Params());
}

TEST(tk_BayesTrainer, patternsOfOtherLengthsAreLearnedAsTheyAre)
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

TEST(tk_BayesTrainer, aProviderIsAskedForEachPatternInTurnUntilOneFails)
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

TEST(tk_BayesTrainer, aNullHandleFailsUnlessItsCategoryIsUnknown)
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

TEST(tk_BayesTrainer, aNewCategoryIsModelledBeforeItsPatternIsLookedAt)
{
    ListProvider data = randomProvider(2, 10, 3, 8);
    data.patterns.emplace_back();
    data.labels.push_back(77);
    Types types(Types::eNormal);
    types.distributionTypeOverride(77, 0, static_cast<Types::DistributionType>(-1));
    const Params params(types, tkClassifierFrequencies(), tkClassifierCosts(), tkFeaturePattern());
    tk_ClassifierBayesian classifier;
    EXPECT_TK_THROW(classifier.train(data, params), tkClassifierDefs::BadParams, L"Unknown distribution type");
}

TEST(tk_BayesTrainer, aClassDerivedFromTheMemoryProviderIsAsked)
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
