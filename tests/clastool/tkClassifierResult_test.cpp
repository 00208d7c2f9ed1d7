#include "clss/clastool/clastool/tkClassifierResult.h"

#include "tests/golden/dataModel.h"
#include "tkAllocations.h"
#include "tkTest.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "foundation/tkArchiveOperators.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <map>
#include <random>
#include <string>
#include <typeindex>
#include <utility>
#include <vector>

namespace
{
using Categories = std::vector<tkClassifierCategoryResult>;

const wchar_t labelsNotNegative[] = L"Category labels must be >= 0";
const wchar_t scoresInUnitRange[] = L"Scores must be >= 0.0 and <= 1.0";
const wchar_t costsNotNegative[] = L"Costs must be >= 0.0";
const wchar_t labelsUnique[] = L"The category labels of the match results must be unique.";
const wchar_t noClassScore[] = L"At least one of the classification scores must be > 0.";
const wchar_t noFrequency[] = L"At least one of the category frequencies must be > 0.";
const wchar_t noJointScore[] = L"At least one of the resulting classification scores must be > 0.";

const double infinity = std::numeric_limits<double>::infinity();
const double notANumber = std::numeric_limits<double>::quiet_NaN();

/// A category as plain numbers, which may be any.
struct Row
{
    long label;
    double match;
    double score;
    double cost;
};

struct CostOverride
{
    long first;
    long second;
    double cost;
};

using Rows = std::vector<Row>;
using FrequencyOverrides = std::vector<std::pair<long, double>>;
using CostOverrides = std::vector<CostOverride>;

/// Objects with these contents, valid or not: nothing is checked when they are loaded.
Categories categories(const Rows& rows)
{
    std::ostringstream stream;
    tkArchive archive(stream);
    archive.exchangeVersion();
    archive << static_cast<unsigned long>(rows.size());
    for (Row row : rows)
    {
        archive.exchangeVersion();
        archive || row.label || row.match || row.score || row.cost;
    }
    Categories loaded;
    loadFromBytes(stream.str(), loaded);
    return loaded;
}

tkClassifierFrequencies frequencies(double defaultFrequency, const FrequencyOverrides& overrides)
{
    std::vector<long> labels;
    std::vector<double> values;
    for (const auto& [label, value] : overrides)
    {
        labels.push_back(label);
        values.push_back(value);
    }
    std::ostringstream stream;
    tkArchive archive(stream);
    archive.exchangeVersion();
    archive || defaultFrequency || labels || values;
    tkClassifierFrequencies loaded;
    loadFromBytes(stream.str(), loaded);
    return loaded;
}

tkClassifierCosts costs(double defaultCost, const CostOverrides& overrides)
{
    std::vector<long> first;
    std::vector<long> second;
    std::vector<double> values;
    for (const CostOverride& o : overrides)
    {
        first.push_back(o.first);
        second.push_back(o.second);
        values.push_back(o.cost);
    }
    std::ostringstream stream;
    tkArchive archive(stream);
    archive.exchangeVersion();
    archive || defaultCost || first || second || values;
    tkClassifierCosts loaded;
    loadFromBytes(stream.str(), loaded);
    return loaded;
}

/// What a constructor gave: rows, or an exception's class and text.
struct Outcome
{
    std::type_index thrown = typeid(void);
    std::wstring text;
    Rows rows;
};

template <class Error>
[[noreturn]] void refuse(const wchar_t* text)
{
    throw Outcome{typeid(Error), text, {}};
}

Row checked(const Row& row)
{
    if (row.label < 0)
        refuse<tkClassifierDefs::BadLabel>(labelsNotNegative);
    if (row.match < 0.0 || row.match > 1.0 || row.score < 0.0 || row.score > 1.0)
        refuse<tkClassifierDefs::BadParams>(scoresInUnitRange);
    if (row.cost < 0.0)
        refuse<tkClassifierDefs::BadParams>(costsNotNegative);
    return row;
}

void requireUnique(const Rows& rows)
{
    for (std::size_t i = 0; i < rows.size(); ++i)
        for (std::size_t j = i + 1; j < rows.size(); ++j)
            if (rows[i].label == rows[j].label)
                refuse<tkClassifierDefs::BadParams>(labelsUnique);
}

/// Selection sort: each time the cheapest of those that remain, of equal ones that with the lowest label.
Rows cheapestFirst(Rows rows)
{
    Rows sorted;
    while (!rows.empty())
    {
        auto best = rows.begin();
        for (auto row = rows.begin(); row != rows.end(); ++row)
        {
            const bool bothNaN = std::isnan(row->cost) && std::isnan(best->cost);
            const bool cheaper = row->cost < best->cost || (std::isnan(best->cost) && !std::isnan(row->cost));
            if (cheaper || ((row->cost == best->cost || bothNaN) && row->label < best->label))
                best = row;
        }
        sorted.push_back(*best);
        rows.erase(best);
    }
    return sorted;
}

/// The product rounded on its own, also where the compiler may fuse it with an addition.
double product(double a, double b)
{
    const volatile double rounded = a * b;
    return rounded;
}

/// The class-score constructor, written from its definition.
Rows definedByScores(const Rows& rows)
{
    requireUnique(rows);
    Rows sorted = cheapestFirst(rows);
    double sum = 0.0;
    for (const Row& row : sorted)
        sum += row.score;
    if (sum == 0.0)
        refuse<tkClassifierDefs::BadParams>(noClassScore);
    for (Row& row : sorted)
        row = checked({row.label, row.match, row.score / sum, row.cost});
    return sorted;
}

/// The match-score constructor, written from its definition; the first override of a label or pair wins.
Rows definedByMatches(const Rows& rows, double defaultFrequency, const FrequencyOverrides& frequencyOverrides,
                      double defaultCost, const CostOverrides& costOverrides)
{
    std::map<long, double> frequency;
    for (const auto& [label, value] : frequencyOverrides)
        frequency.emplace(label, value);
    std::map<std::pair<long, long>, double> cost;
    for (const CostOverride& o : costOverrides)
        cost.emplace(std::make_pair(o.first, o.second), o.cost);

    requireUnique(rows);
    const std::size_t n = rows.size();
    std::vector<double> p(n);
    double P = 0.0;
    for (std::size_t i = 0; i < n; ++i)
    {
        if (rows[i].label < 0)
            refuse<tkClassifierDefs::BadLabel>(labelsNotNegative);
        const auto found = frequency.find(rows[i].label);
        p[i] = found != frequency.end() ? found->second : defaultFrequency;
        P += p[i];
    }
    if (P == 0.0)
        refuse<tkClassifierDefs::BadParams>(noFrequency);

    std::vector<double> q(n);
    double Q = 0.0;
    for (std::size_t i = 0; i < n; ++i)
    {
        q[i] = product(rows[i].match, p[i]) / P;
        Q += q[i];
    }
    if (Q == 0.0)
        refuse<tkClassifierDefs::BadParams>(noJointScore);

    Rows results;
    for (std::size_t i = 0; i < n; ++i)
    {
        double C = 0.0;
        for (std::size_t j = 0; j < n; ++j)
        {
            if (j == i)
                continue;
            const auto found = cost.find({rows[j].label, rows[i].label});
            C += product(found != cost.end() ? found->second : defaultCost, q[j]);
        }
        results.push_back(checked({rows[i].label, rows[i].match, q[i] / Q, C / Q}));
    }
    return cheapestFirst(results);
}

template <class Definition>
Outcome defined(const Definition& definition)
{
    try
    {
        return {typeid(void), L"", definition()};
    }
    catch (const Outcome& refused)
    {
        return refused;
    }
}

template <class Construction>
Outcome constructed(const Construction& construction)
{
    try
    {
        const tkClassifierResult result = construction();
        Outcome outcome;
        for (const tkClassifierCategoryResult& r : result.categoryResults())
            outcome.rows.push_back({r.categoryLabel(), r.matchScore(), r.classScore(), r.expectedCost()});
        return outcome;
    }
    catch (const tkException& thrown)
    {
        return {typeid(thrown), thrown.message(), {}};
    }
}

/// The same bits, but any NaN is like any other: which one an operation gives is the processor's choice.
bool sameBits(double a, double b)
{
    return (std::isnan(a) && std::isnan(b)) || std::memcmp(&a, &b, sizeof a) == 0;
}

bool sameBits(const Row& a, const Row& b)
{
    return a.label == b.label && sameBits(a.match, b.match) && sameBits(a.score, b.score) && sameBits(a.cost, b.cost);
}

::testing::AssertionResult sameOutcome(const Outcome& expected, const Outcome& actual)
{
    if (expected.thrown != actual.thrown || expected.text != actual.text)
        return ::testing::AssertionFailure() << "expected " << ::testing::PrintToString(expected.text) << ", got "
                                             << ::testing::PrintToString(actual.text);
    if (expected.rows.size() != actual.rows.size())
        return ::testing::AssertionFailure() << actual.rows.size() << " categories";
    for (std::size_t i = 0; i < expected.rows.size(); ++i)
        if (!sameBits(expected.rows[i], actual.rows[i]))
            return ::testing::AssertionFailure() << "place " << i << ": expected label " << expected.rows[i].label
                                                 << " at cost " << expected.rows[i].cost << ", got label "
                                                 << actual.rows[i].label << " at cost " << actual.rows[i].cost;
    return ::testing::AssertionSuccess();
}

/// Random contents: mostly such as the setters accept, with many ties, now and then anything that an archive can hold.
class Dice
{
public:
    explicit Dice(std::uint64_t seed) : generator_(seed) {}

    std::size_t below(std::size_t end) { return end == 0 ? 0 : generator_() % end; }
    bool once(std::size_t times) { return below(times) == 0; }

    double unit() { return static_cast<double>(generator_() >> 11) / 9007199254740992.0; }

    /// In [0, 1], half of the time one of five values.
    double score() { return once(2) ? static_cast<double>(below(5)) / 4.0 : unit(); }

    double anything()
    {
        const double values[] = {0.0, -0.0,  notANumber, infinity, -infinity,  -1.0,
                                 2.0, 1e308, 5e-324,     -5e-324,  1.0 + 1e-15};
        return values[below(std::size(values))];
    }

    std::size_t count() { return once(40) ? below(201) : below(13); }

    /// `count` different labels from 0 to count + 2, in any order.
    std::vector<long> labels(std::size_t count)
    {
        std::vector<long> labels;
        for (std::size_t label = 0; label < count + 3; ++label)
            labels.push_back(static_cast<long>(label));
        for (std::size_t i = labels.size(); i > 1; --i)
            std::swap(labels[i - 1], labels[below(i)]);
        labels.resize(count);
        return labels;
    }

    Rows rows(bool wild)
    {
        Rows rows;
        const bool zero = once(30);
        std::vector<long> given = labels(count());
        if (once(2))
            std::sort(given.begin(), given.end()); // as classifiers give them
        for (const long label : given)
        {
            Row row{label, zero ? 0.0 : score(), zero ? 0.0 : score(), 4.0 * score()};
            if (wild && once(8))
                row.match = anything();
            if (wild && once(8))
                row.score = anything();
            if (wild && once(4))
                row.cost = anything();
            if (wild && once(40))
                row.label = -1 - static_cast<long>(below(3));
            if (wild && once(60))
                row.label = static_cast<long>(below(3));
            rows.push_back(row);
        }
        return rows;
    }

private:
    std::mt19937_64 generator_;
};

/// Three of every four random cases hold nothing but valid values.
bool isWild(int round)
{
    return round % 4 == 3;
}
} // namespace

TEST(tkClassifierCategoryResult, keepsItsFourValues)
{
    const tkClassifierCategoryResult byDefault;
    EXPECT_EQ(0, byDefault.categoryLabel());
    EXPECT_EQ(0.0, byDefault.matchScore());
    EXPECT_EQ(0.0, byDefault.classScore());
    EXPECT_EQ(0.0, byDefault.expectedCost());

    const tkClassifierCategoryResult result(2147483647, 1.0, 0.25, 1e300);
    EXPECT_EQ(2147483647, result.categoryLabel());
    EXPECT_EQ(1.0, result.matchScore());
    EXPECT_EQ(0.25, result.classScore());
    EXPECT_EQ(1e300, result.expectedCost());
}

TEST(tkClassifierCategoryResult, checksLabelThenScoresThenCost)
{
    using Result = tkClassifierCategoryResult;
    EXPECT_TK_THROW(Result(-1, 2.0, 2.0, -1.0), tkClassifierDefs::BadLabel, labelsNotNegative);
    EXPECT_TK_THROW(Result(-1), tkClassifierDefs::BadLabel, labelsNotNegative);
    EXPECT_TK_THROW(Result(0, 2.0, 0.5, -1.0), tkClassifierDefs::BadParams, scoresInUnitRange);
    EXPECT_TK_THROW(Result(0, 0.5, 2.0, -1.0), tkClassifierDefs::BadParams, scoresInUnitRange);
    EXPECT_TK_THROW(Result(0, 0.5, 0.5, -5e-324), tkClassifierDefs::BadParams, costsNotNegative);
    for (const double score : {-5e-324, std::nextafter(1.0, 2.0), -infinity, infinity})
    {
        EXPECT_TK_THROW(Result(0, score), tkClassifierDefs::BadParams, scoresInUnitRange);
        EXPECT_TK_THROW(Result(0, 0.5, score), tkClassifierDefs::BadParams, scoresInUnitRange);
    }
    EXPECT_NO_THROW(Result(0, -0.0, -0.0, -0.0));
    EXPECT_NO_THROW(Result(0, 1.0, 1.0, infinity));
}

TEST(tkClassifierCategoryResult, NaNPassesEveryCheck)
{
    EXPECT_TRUE(std::isnan(tkClassifierCategoryResult(0, notANumber).matchScore()));
    EXPECT_TRUE(std::isnan(tkClassifierCategoryResult(0, 0.0, notANumber).classScore()));
    EXPECT_TRUE(std::isnan(tkClassifierCategoryResult(0, 0.0, 0.0, notANumber).expectedCost()));
}

TEST(tkClassifierCategoryResult, equalityComparesAllFourExactly)
{
    const tkClassifierCategoryResult result(1, 0.5, 0.25, 2.0);
    EXPECT_TRUE(result == tkClassifierCategoryResult(1, 0.5, 0.25, 2.0));
    EXPECT_FALSE(result != tkClassifierCategoryResult(1, 0.5, 0.25, 2.0));
    for (const tkClassifierCategoryResult& other :
         {tkClassifierCategoryResult(2, 0.5, 0.25, 2.0), tkClassifierCategoryResult(1, 0.75, 0.25, 2.0),
          tkClassifierCategoryResult(1, 0.5, 0.5, 2.0), tkClassifierCategoryResult(1, 0.5, 0.25, 3.0),
          tkClassifierCategoryResult(1, notANumber, 0.25, 2.0)})
    {
        EXPECT_FALSE(result == other);
        EXPECT_TRUE(result != other);
    }
}

TEST(tkClassifierCategoryResult, recordHasFixedBytesAndComesBackEqual)
{
    const std::string bytes = literalBytes("\0"
                                           "\2\1\0\0"
                                           "\0\0\0\0\0\0\xe0\x3f"
                                           "\0\0\0\0\0\0\xd0\x3f"
                                           "\0\0\0\0\0\0\0\x40");
    const tkClassifierCategoryResult result(258, 0.5, 0.25, 2.0);
    EXPECT_EQ(bytes, storeToBytes(result));
    tkClassifierCategoryResult loaded;
    loadFromBytes(bytes, loaded);
    EXPECT_TRUE(loaded == result);
    for (std::size_t length = 0; length < bytes.size(); ++length)
        EXPECT_THROW(loadFromBytes(bytes.substr(0, length), loaded), tkArchive::Errors) << length;
}

TEST(tkClassifierCategoryResult, goldenArchiveComesBackEqualAndStoresToTheSameBytes)
{
    const std::string bytes = goldenBytes("tkClassifierCategoryResult.v0.bin");
    tkClassifierCategoryResult loaded;
    loadFromBytes(bytes, loaded);
    EXPECT_TRUE(loaded == golden::categoryResult());
    EXPECT_EQ(bytes, storeToBytes(loaded));
    EXPECT_EQ(bytes, storeToBytes(golden::categoryResult()));
}

TEST(tkClassifierCategoryResult, otherVersionIsRefusedBeforeFurtherReading)
{
    tkClassifierCategoryResult loaded(1, 0.5, 0.25, 2.0);
    try
    {
        loadFromBytes("\1", loaded);
        ADD_FAILURE() << "no exception";
    }
    catch (const tkArchive::UnknownVersion& unknown)
    {
        EXPECT_EQ("clss/clastool/clastool", unknown.where());
        EXPECT_EQ(346, unknown.number());
    }
    EXPECT_TRUE(loaded == tkClassifierCategoryResult(1, 0.5, 0.25, 2.0));
}

TEST(tkClassifierCategoryResult, loadingChecksNoValues)
{
    const Categories loaded = categories({{-7, 3.0, -3.0, -1.0}});
    EXPECT_EQ(-7, loaded[0].categoryLabel());
    EXPECT_EQ(3.0, loaded[0].matchScore());
    EXPECT_EQ(-3.0, loaded[0].classScore());
    EXPECT_EQ(-1.0, loaded[0].expectedCost());
}

TEST(tkClassifierResult, startsWithoutCategories)
{
    const tkClassifierResult result;
    EXPECT_TRUE(result.categoryResults().empty());
    EXPECT_EQ(0.0, result.matchScoreFactorLog());
}

TEST(tkClassifierResult, classScoresAreRescaledAndTheRestIsKept)
{
    const tkClassifierResult result({{5, 0.5, 0.25, 3.0}, {2, 0.75, 0.125, 1.0}, {9, 0.0, 0.125, 2.0}}, -4.5);
    EXPECT_EQ(-4.5, result.matchScoreFactorLog());
    EXPECT_TRUE(result.categoryResults() ==
                Categories({{2, 0.75, 0.25, 1.0}, {9, 0.0, 0.25, 2.0}, {5, 0.5, 0.5, 3.0}}));
}

TEST(tkClassifierResult, classScoresAreAddedInTheSortedOrder)
{
    // 4e-17 is lost when it is added to 0.5, twice as much is not.
    const Rows rows = {{0, 0.0, 0.5, 3.0}, {1, 0.0, 4e-17, 1.0}, {2, 0.0, 4e-17, 2.0}};
    const double sum = (4e-17 + 4e-17) + 0.5;
    ASSERT_NE(sum, (0.5 + 4e-17) + 4e-17);
    const tkClassifierResult result(categories(rows), 0.0);
    EXPECT_TRUE(sameBits(0.5 / sum, result.categoryResults()[2].classScore()));
}

TEST(tkClassifierResult, classScoresAreCheckedInOrder)
{
    const auto construct = [](const Rows& rows) { return tkClassifierResult(categories(rows), 0.0); };
    using Defs = tkClassifierDefs;
    EXPECT_TK_THROW(construct({}), Defs::BadParams, noClassScore);
    EXPECT_TK_THROW(construct({{1, 0.5, 0.0, 1.0}, {2, 0.5, 0.0, 1.0}}), Defs::BadParams, noClassScore);
    EXPECT_TK_THROW(construct({{1, 0.5, 0.5, 1.0}, {2, 0.5, 0.5, 1.0}, {1, 0.5, 0.5, 1.0}}), Defs::BadParams,
                    labelsUnique);
    EXPECT_TK_THROW(construct({{1, 0.5, 0.0, 1.0}, {1, 0.5, 0.0, 1.0}}), Defs::BadParams, labelsUnique);
    EXPECT_TK_THROW(construct({{-1, 0.5, 0.5, 1.0}, {-1, 0.5, 0.5, 1.0}}), Defs::BadParams, labelsUnique);
    EXPECT_TK_THROW(construct({{-1, 0.5, 1.5, 1.0}, {2, 0.5, -1.5, 1.0}}), Defs::BadParams, noClassScore);
    EXPECT_TK_THROW(construct({{-1, 7.0, 0.5, 1.0}}), Defs::BadLabel, labelsNotNegative);
    EXPECT_TK_THROW(construct({{1, 7.0, 0.5, -1.0}}), Defs::BadParams, scoresInUnitRange);
    EXPECT_TK_THROW(construct({{1, 0.5, 0.5, -1.0}}), Defs::BadParams, costsNotNegative);
    EXPECT_TK_THROW(construct({{1, 0.5, 2.0, 1.0}, {2, 0.5, -1.0, 1.0}}), Defs::BadParams, scoresInUnitRange);
    // The first in the sorted order is reported.
    EXPECT_TK_THROW(construct({{-1, 0.5, 0.5, 2.0}, {2, 7.0, 0.5, 1.0}}), Defs::BadParams, scoresInUnitRange);
    EXPECT_TK_THROW(construct({{2, 7.0, 0.5, 2.0}, {-1, 0.5, 0.5, 1.0}}), Defs::BadLabel, labelsNotNegative);
}

TEST(tkClassifierResult, frequenciesDecideBetweenEqualMatches)
{
    const tkClassifierFrequencies weights = frequencies(1.0, {{1, 3.0}});
    const tkClassifierResult result({{0, 0.5}, {1, 0.5}}, weights, tkClassifierCosts(), 2.0);
    EXPECT_EQ(2.0, result.matchScoreFactorLog());
    EXPECT_TRUE(result.categoryResults() == Categories({{1, 0.5, 0.75, 0.25}, {0, 0.5, 0.25, 0.75}}));
}

TEST(tkClassifierResult, costsAreTakenFromTheTruthToTheDecision)
{
    // Taking 0 for 1 is dear, taking 1 for 0 is not.
    const tkClassifierResult result({{0, 0.25}, {1, 0.75}}, tkClassifierFrequencies(), costs(1.0, {{0, 1, 20.0}}), 0.0);
    EXPECT_TRUE(result.categoryResults() == Categories({{0, 0.25, 0.25, 0.75}, {1, 0.75, 0.75, 5.0}}));
}

TEST(tkClassifierResult, oneCategoryIsCertainAndCostsNothing)
{
    const tkClassifierResult result({{8, 1e-300, 0.3, 17.0}}, tkClassifierFrequencies(7.0), tkClassifierCosts(9.0),
                                    0.0);
    EXPECT_TRUE(result.categoryResults() == Categories({{8, 1e-300, 1.0, 0.0}}));
}

TEST(tkClassifierResult, matchScoresAreCheckedInOrder)
{
    using Defs = tkClassifierDefs;
    const tkClassifierFrequencies none = frequencies(0.0, {});
    const auto construct = [](const Rows& rows, const tkClassifierFrequencies& f = tkClassifierFrequencies(),
                              const tkClassifierCosts& c = tkClassifierCosts())
    { return tkClassifierResult(categories(rows), f, c, 0.0); };
    EXPECT_TK_THROW(construct({}), Defs::BadParams, noFrequency);
    EXPECT_TK_THROW(construct({{1, 0.0, 1.0, 0.0}, {2, 0.0, 1.0, 0.0}}), Defs::BadParams, noJointScore);
    EXPECT_TK_THROW(construct({{1, 1.0, 0.0, 0.0}, {2, 1.0, 0.0, 0.0}, {1, 1.0, 0.0, 0.0}}), Defs::BadParams,
                    labelsUnique);
    EXPECT_TK_THROW(construct({{-1, 1.0, 0.0, 0.0}, {-1, 1.0, 0.0, 0.0}}, none), Defs::BadParams, labelsUnique);
    EXPECT_TK_THROW(construct({{1, 1.0, 0.0, 0.0}, {-1, 1.0, 0.0, 0.0}}, none), Defs::BadLabel, labelsNotNegative);
    EXPECT_TK_THROW(construct({{1, 0.0, 0.0, 0.0}, {2, 0.0, 0.0, 0.0}}, none), Defs::BadParams, noFrequency);
    EXPECT_TK_THROW(construct({{1, 2.0, 0.0, 0.0}, {2, -2.0, 0.0, 0.0}}), Defs::BadParams, noJointScore);
    EXPECT_TK_THROW(construct({{1, 2.0, 0.0, 0.0}, {2, 1.0, 0.0, 0.0}}), Defs::BadParams, scoresInUnitRange);
    EXPECT_TK_THROW(construct({{1, 0.5, 0.0, 0.0}, {2, 0.5, 0.0, 0.0}}, frequencies(1.0, {{1, -0.5}})), Defs::BadParams,
                    scoresInUnitRange);
    EXPECT_TK_THROW(construct({{1, 0.5, 0.0, 0.0}, {2, 0.5, 0.0, 0.0}}, tkClassifierFrequencies(), costs(-1.0, {})),
                    Defs::BadParams, costsNotNegative);
}

TEST(tkClassifierResult, scoresAndCostsGivenBesidesTheMatchesAreIgnored)
{
    const tkClassifierFrequencies f;
    const tkClassifierCosts c;
    EXPECT_TRUE(tkClassifierResult(categories({{1, 0.5, notANumber, -1.0}, {2, 0.25, 7.0, notANumber}}), f, c, 0.0) ==
                tkClassifierResult({{1, 0.5}, {2, 0.25}}, f, c, 0.0));
}

TEST(tkClassifierResult, categoriesOfEqualCostStandByLabel)
{
    const tkClassifierResult result({{7, 0.5}, {2, 0.5}, {9, 0.5}, {0, 0.5}}, tkClassifierFrequencies(),
                                    tkClassifierCosts(), 0.0);
    const Categories& sorted = result.categoryResults();
    ASSERT_EQ(4u, sorted.size());
    EXPECT_EQ(0, sorted[0].categoryLabel());
    EXPECT_EQ(2, sorted[1].categoryLabel());
    EXPECT_EQ(7, sorted[2].categoryLabel());
    EXPECT_EQ(9, sorted[3].categoryLabel());
}

TEST(tkClassifierResult, everyOrderOfTheSameCategoriesIsSortedAlikeWithNaNLast)
{
    Rows rows = {{0, 0.0, 0.125, notANumber}, {1, 0.0, 0.125, 0.0},        {2, 0.0, 0.125, -0.0},
                 {3, 0.0, 0.125, infinity},   {4, 0.0, 0.125, notANumber}, {5, 0.0, 0.125, 1.0}};
    const long expected[] = {1, 2, 5, 3, 0, 4};
    do
    {
        const tkClassifierResult result(categories(rows), 0.0);
        for (std::size_t i = 0; i < rows.size(); ++i)
            ASSERT_EQ(expected[i], result.categoryResults()[i].categoryLabel());
    } while (
        std::next_permutation(rows.begin(), rows.end(), [](const Row& a, const Row& b) { return a.label < b.label; }));
}

TEST(tkClassifierResult, classScoreConstructorFollowsItsDefinitionBitForBit)
{
    Dice dice(20240601);
    std::map<std::wstring, int> texts;
    for (int round = 0; round < 6000; ++round)
    {
        const Rows rows = dice.rows(isWild(round));
        const Outcome expected = defined([&] { return definedByScores(rows); });
        ++texts[expected.text];
        ASSERT_TRUE(sameOutcome(expected, constructed([&] { return tkClassifierResult(categories(rows), 0.0); })))
            << "round " << round;
    }
    EXPECT_GT(texts[L""], 3000);
    for (const wchar_t* text : {labelsUnique, noClassScore, labelsNotNegative, scoresInUnitRange, costsNotNegative})
        EXPECT_GT(texts[text], 10) << ::testing::PrintToString(text);
}

TEST(tkClassifierResult, matchScoreConstructorFollowsItsDefinitionBitForBit)
{
    Dice dice(20240602);
    std::map<std::wstring, int> texts;
    for (int round = 0; round < 8000; ++round)
    {
        const bool wild = isWild(round);
        const Rows rows = dice.rows(wild);
        const std::size_t labels = rows.size() + 3;
        const auto label = [&] {
            return wild && dice.once(30) ? -1 - static_cast<long>(dice.below(3))
                                         : static_cast<long>(dice.below(labels));
        };

        const double defaultFrequency = wild && dice.once(6) ? dice.anything() : 0.1 + dice.score();
        FrequencyOverrides frequencyOverrides;
        for (std::size_t k = dice.below(labels + 2); k > 0; --k)
        {
            const double value = wild && dice.once(8) ? dice.anything() : 0.1 + 9.0 * dice.score();
            frequencyOverrides.emplace_back(label(), value);
        }
        const double defaultCost = wild && dice.once(8) ? dice.anything() : 2.0 * dice.score();
        CostOverrides costOverrides;
        for (std::size_t k = dice.below(2 * labels); k > 0; --k)
        {
            const long first = label();
            const double value = wild && dice.once(8) ? dice.anything() : 20.0 * dice.score();
            costOverrides.push_back({first, label(), value});
        }

        const Outcome expected = defined(
            [&] { return definedByMatches(rows, defaultFrequency, frequencyOverrides, defaultCost, costOverrides); });
        ++texts[expected.text];
        ASSERT_TRUE(sameOutcome(expected, constructed(
                                              [&]
                                              {
                                                  return tkClassifierResult(
                                                      categories(rows),
                                                      frequencies(defaultFrequency, frequencyOverrides),
                                                      costs(defaultCost, costOverrides), 0.0);
                                              })))
            << "round " << round;
    }
    EXPECT_GT(texts[L""], 4000);
    for (const wchar_t* text :
         {labelsUnique, noFrequency, noJointScore, labelsNotNegative, scoresInUnitRange, costsNotNegative})
        EXPECT_GT(texts[text], 10) << ::testing::PrintToString(text);
}

TEST(tkClassifierResult, everyNumberOfCategoriesFollowsTheDefinitionInEveryOrderOfLabels)
{
    Dice dice(20240604);
    for (const std::size_t n : {1, 2, 7, 8, 9, 15, 16, 17, 31, 32, 33, 63, 64, 65, 130})
        for (int round = 0; round < 60; ++round)
        {
            std::vector<long> labels = dice.labels(n);
            if (round % 3 != 0)
                std::sort(labels.begin(), labels.end());
            const bool apart = round % 3 == 2; // so that a label is not its place
            Rows rows;
            for (const long label : labels)
                rows.push_back({apart ? 5 + label * label : label, dice.score(), 0.0, 0.0});
            const auto label = [&] { return dice.once(9) ? 3L : rows[dice.below(n)].label; };
            FrequencyOverrides frequencyOverrides;
            for (std::size_t k = dice.below(n + 1); k > 0; --k)
                frequencyOverrides.emplace_back(label(), 0.1 + dice.score());
            CostOverrides costOverrides;
            for (std::size_t k = dice.once(3) ? 0 : dice.below(3 * n); k > 0; --k)
            {
                const double cost = dice.once(3 * n) ? notANumber : dice.once(3 * n) ? infinity : 3.0 * dice.score();
                costOverrides.push_back({label(), label(), cost});
                if (dice.once(4))
                    costOverrides.push_back({costOverrides.back().first, costOverrides.back().second, 7.0});
            }
            ASSERT_TRUE(sameOutcome(
                defined([&] { return definedByMatches(rows, 1.5, frequencyOverrides, 1.0, costOverrides); }),
                constructed(
                    [&]
                    {
                        return tkClassifierResult(categories(rows), frequencies(1.5, frequencyOverrides),
                                                  costs(1.0, costOverrides), 0.0);
                    })))
                << n << " categories, round " << round;
        }
}

TEST(tkClassifierResult, thousandCategoriesWithThousandOverridesFollowTheDefinition)
{
    Dice dice(20240603);
    Rows rows;
    FrequencyOverrides frequencyOverrides;
    CostOverrides costOverrides;
    for (const long label : dice.labels(1000))
    {
        rows.push_back({label, dice.unit(), 0.0, 0.0});
        frequencyOverrides.emplace_back(static_cast<long>(dice.below(1003)), 0.1 + dice.unit());
        costOverrides.push_back(
            {static_cast<long>(dice.below(1003)), static_cast<long>(dice.below(1003)), 20.0 * dice.unit()});
    }
    EXPECT_TRUE(
        sameOutcome(defined([&] { return definedByMatches(rows, 1.5, frequencyOverrides, 0.7, costOverrides); }),
                    constructed(
                        [&]
                        {
                            return tkClassifierResult(categories(rows), frequencies(1.5, frequencyOverrides),
                                                      costs(0.7, costOverrides), 0.0);
                        })));
}

TEST(tkClassifierResult, upTo64CategoriesNothingButTheResultTakesMemory)
{
    for (const long n : {1L, 2L, 64L})
    {
        Categories given;
        tkClassifierFrequencies weights;
        tkClassifierCosts prices;
        for (long label = 0; label < n; ++label)
        {
            given.emplace_back(n - label, 0.5);
            weights.categoryFrequencyOverride(label, 1.0 + static_cast<double>(label));
            prices.misclassificationCostOverride(label, label + 1, 2.0);
        }
        const Categories copy = given;
        const tkClassifierCategoryResult* const memory = given.data();
        {
            const tkAllocations allocations;
            const tkClassifierResult result(std::move(given), weights, prices, 0.0);
            EXPECT_EQ(0u, allocations.count()) << n;
            EXPECT_EQ(memory, result.categoryResults().data()) << n;
        }
        const tkAllocations allocations;
        const tkClassifierResult result(copy, weights, prices, 0.0);
        EXPECT_EQ(1u, allocations.count()) << n;
        EXPECT_EQ(n, copy.front().categoryLabel()) << n;
    }
}

TEST(tkClassifierResult, equalityComparesCategoriesInOrderAndTheFactor)
{
    const tkClassifierResult result = golden::result();
    EXPECT_TRUE(result == golden::result());
    EXPECT_FALSE(result != golden::result());
    for (const tkClassifierResult& other :
         {tkClassifierResult(), tkClassifierResult({{0, 0.5, 0.25, 0.75}, {1, 0.5, 0.75, 0.25}}, -12.0),
          tkClassifierResult({{0, 0.5, 0.25, 0.75}, {1, 0.5, 0.75, 0.5}}, -12.5),
          tkClassifierResult({{0, 0.5, 0.25, 0.25}, {1, 0.5, 0.75, 0.75}}, -12.5),
          tkClassifierResult({{1, 0.5, 0.75, 0.25}}, -12.5)})
    {
        EXPECT_FALSE(result == other);
        EXPECT_TRUE(result != other);
    }
    tkClassifierResult copy;
    copy = result;
    EXPECT_TRUE(copy == result);
    EXPECT_TRUE(tkClassifierResult(result) == result);
    const tkClassifierResult withNaN({{0, 0.5, 0.5, 0.5}}, notANumber);
    EXPECT_FALSE(withNaN == withNaN);
}

TEST(tkClassifierResult, assignmentWithoutMemoryChangesNothing)
{
    Categories many;
    for (long label = 0; label < 100; ++label)
        many.emplace_back(label, 0.5, 0.5, 0.5);
    const tkClassifierResult other(many, 3.0);
    expectUnchangedWithoutMemory(golden::result(), [&](tkClassifierResult& result) { result = other; });
}

TEST(tkClassifierResult, recordHasFixedBytesAndComesBackEqual)
{
    const std::string bytes = literalBytes("\0"
                                           "\0\1\0\0\0"
                                           "\0\3\0\0\0"
                                           "\0\0\0\0\0\0\xe0\x3f"
                                           "\0\0\0\0\0\0\xf0\x3f"
                                           "\0\0\0\0\0\0\0\x40"
                                           "\0\0\0\0\0\0\xf8\xbf");
    const tkClassifierResult result({{3, 0.5, 0.25, 2.0}}, -1.5);
    EXPECT_EQ(bytes, storeToBytes(result));
    tkClassifierResult loaded = golden::result();
    loadFromBytes(bytes, loaded);
    EXPECT_TRUE(loaded == result);
    for (std::size_t length = 0; length < bytes.size(); ++length)
        EXPECT_THROW(loadFromBytes(bytes.substr(0, length), loaded), tkArchive::Errors) << length;

    const std::string empty(1 + 5 + 8, '\0');
    EXPECT_EQ(empty, storeToBytes(tkClassifierResult()));
    loadFromBytes(empty, loaded);
    EXPECT_TRUE(loaded == tkClassifierResult());
}

TEST(tkClassifierResult, goldenArchiveComesBackEqualAndStoresToTheSameBytes)
{
    const std::string bytes = goldenBytes("tkClassifierResult.v0.bin");
    tkClassifierResult loaded;
    loadFromBytes(bytes, loaded);
    EXPECT_TRUE(loaded == golden::result());
    EXPECT_EQ(bytes, storeToBytes(loaded));
    EXPECT_EQ(bytes, storeToBytes(golden::result()));
}

TEST(tkClassifierResult, otherVersionsAreRefusedAtEachLevelBeforeFurtherReading)
{
    const std::tuple<std::size_t, const char*, long> levels[] = {
        {0, "clss/clastool/clastool", 670}, {1, "", 0}, {6, "clss/clastool/clastool", 346}};
    for (const auto& [at, where, number] : levels)
    {
        tkClassifierResult loaded = golden::result();
        try
        {
            loadFromBytes(storeToBytes(golden::result()).substr(0, at) + '\1', loaded);
            ADD_FAILURE() << "no exception at byte " << at;
        }
        catch (const tkArchive::UnknownVersion& unknown)
        {
            EXPECT_EQ(where, unknown.where());
            EXPECT_EQ(number, unknown.number());
        }
        EXPECT_TRUE(loaded == golden::result());
    }
}

TEST(tkClassifierResult, loadingNeitherChecksNorSorts)
{
    const std::string record = storeToBytes(categories({{4, 0.5, 7.0, 3.0}, {-4, 0.5, 0.5, -1.0}, {4, 0.5, 0.5, 1.0}}));
    const std::string bytes = '\0' + record + std::string(8, '\0');
    tkClassifierResult loaded;
    loadFromBytes(bytes, loaded);
    ASSERT_EQ(3u, loaded.categoryResults().size());
    EXPECT_EQ(7.0, loaded.categoryResults()[0].classScore());
    EXPECT_EQ(-4, loaded.categoryResults()[1].categoryLabel());
    EXPECT_EQ(1.0, loaded.categoryResults()[2].expectedCost());
    EXPECT_EQ(bytes, storeToBytes(loaded));
}
