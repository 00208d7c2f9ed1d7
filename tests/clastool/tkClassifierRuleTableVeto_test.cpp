#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/clastool/clastool/tkClassifierRuleTable.h"
#include "foundation/tkArchiveOperators.h"
#include "tests/definition/definition.h"
#include "tkAllocations.h"
#include "tkReports.h"
#include "tkTest.h"

#include <array>
#include <cfenv>
#include <cmath>
#include <functional>
#include <limits>
#include <numeric>
#include <random>
#include <thread>

// A value outside of a function's support vetoes the rule, and the rule is not scored. Tables must answer, throw and
// report as if each rule were.

namespace
{
using Functions = std::vector<tkPtrHandle<tkClsFtSc>>;
using OneSided = tkClassifierFeatureScoreOneSided;
using TwoSided = tkClassifierFeatureScoreTwoSided;
using Random = std::mt19937;

constexpr double inf = std::numeric_limits<double>::infinity();
constexpr double quietNaN = std::numeric_limits<double>::quiet_NaN();

constexpr wchar_t x1Between[] = L"x1 must lie between x0 and xc";

using definition::ruleScore;

/// What a table of these rules answers by definition: the label, or the text of what is thrown.
std::wstring plainAnswer(const std::vector<tkClassifierRule>& rules, const std::vector<double>& values,
                         double threshold)
{
    try
    {
        return std::to_wstring(definition::classifyByRules(rules, values, threshold));
    }
    catch (const definition::Failure& failure)
    {
        return failure.text;
    }
    catch (const tkBadPointer&)
    {
        return L"null";
    }
}

std::wstring answer(const tkClassifierRuleTable& table, const tkClassifierFeatureVector& values, double threshold)
{
    try
    {
        return std::to_wstring(table.classifyHardThreshold(values, threshold));
    }
    catch (const tkClassifierDefs::BadParams& failure)
    {
        return failure.message();
    }
    catch (const tkBadPointer&)
    {
        return L"null";
    }
}

// ---- random tables --------------------------------------------------------------------------------------------------

double pick(Random& random, const std::vector<double>& values)
{
    return values[random() % values.size()];
}

/// A position: often one that others have too, at times an extreme one.
double position(Random& random)
{
    switch (random() % 16)
    {
    case 0:
        return pick(random, {-inf, inf, 1e300, -1e300, 1e-320, -0.0, 0.0, std::numeric_limits<double>::max()});
    case 1:
    case 2:
    case 3:
        return static_cast<double>(random() % 7) - 3.0;
    default:
        return std::uniform_real_distribution<double>(-3.0, 3.0)(random);
    }
}

double level(Random& random)
{
    return random() % 3 == 0 ? std::uniform_real_distribution<double>(0.0, 1.0)(random)
                             : pick(random, {0.0, -0.0, 1.0, 1.0, 0.5, 1e-200, 5e-324});
}

std::array<double, 6> sortedPositions(Random& random)
{
    std::array<double, 6> x;
    for (double& c : x)
        c = position(random);
    if (random() % 4 == 0)
        x[random() % 6] = x[random() % 6];
    if (random() % 8 == 0)
        x.fill(x[0]);
    std::sort(x.begin(), x.end());
    return x;
}

/// The fields in the order of a record, which is loaded unchecked: a fifth of them are whatever comes.
template <class Function>
tkPtrHandle<tkClsFtSc> loaded(const std::vector<double>& fields)
{
    std::string bytes;
    for (const double field : fields)
        bytes += storeToBytes(field);
    auto* const function = new Function;
    const tkPtrHandle<tkClsFtSc> handle(function);
    loadFromBytes(bytes, *function);
    return handle;
}

tkPtrHandle<tkClsFtSc> randomFunction(Random& random, bool hostile)
{
    const std::array<double, 6> x = sortedPositions(random);
    std::vector<double> y;
    for (int i = 0; i < 4; ++i)
        y.push_back(hostile && random() % 8 == 0 ? pick(random, {quietNaN, inf, -1.0, 2.0, -0.5, 1e300})
                                                 : level(random));
    std::vector<double> fields;
    const auto kind = random() % 8;
    if (kind == 0)
        return tkClassifierFeatureScoreIgnore().clone();
    if (kind <= 2)
        fields = random() % 2 ? std::vector<double>{x[0], x[2], x[5], y[0], y[1]}
                              : std::vector<double>{x[5], x[2], x[0], y[0], y[1]};
    else
    {
        const bool lowRises = random() % 6 == 0;
        const bool highFalls = random() % 6 == 0;
        fields = {x[lowRises ? 0 : 2],  x[1], x[lowRises ? 2 : 0],  y[0], y[1],
                  x[highFalls ? 5 : 3], x[4], x[highFalls ? 3 : 5], y[2], y[3]};
    }
    if (hostile && random() % 40 == 0)
        fields[random() % fields.size()] = random() % 4 ? position(random) : quietNaN;
    return kind <= 2 ? loaded<OneSided>(fields) : loaded<TwoSided>(fields);
}

/// Values on and beside the corners of the table's functions, anywhere, and extreme ones.
double randomValue(Random& random, const tkClsFtSc* function)
{
    std::vector<double> corners = {0.0, 1.0};
    if (const auto* const f = dynamic_cast<const OneSided*>(function))
        corners = {f->x0(), f->x1(), f->xc()};
    if (const auto* const f = dynamic_cast<const TwoSided*>(function))
        corners = {f->x0(), f->x1(), f->xc(), f->x0h(), f->x1h(), f->xch()};
    const double corner = pick(random, corners);
    switch (random() % 8)
    {
    case 0:
        return corner;
    case 1:
        return std::nextafter(corner, random() % 2 ? inf : -inf);
    case 2:
        return position(random);
    case 3:
        return random() % 4 ? position(random) : quietNaN;
    default: // between two corners: most rules would score 0 otherwise
        return 0.5 * corner + 0.5 * pick(random, corners);
    }
}

tkClassifierRule rule(const Functions& functions, long label)
{
    tkClassifierRule r;
    r.init(functions, label);
    return r;
}

tkClassifierRuleTable table(const std::vector<tkClassifierRule>& rules)
{
    tkClassifierRuleTable t;
    t.train(rules);
    return t;
}

tkPtrHandle<TwoSided> trapezoid(double from, double to)
{
    const tkPtrHandle<TwoSided> f(new TwoSided);
    const double flank = (to - from) / 4.0;
    f->init(from + flank, from, from, to - flank, to, to, 1.0, 0.0, 1.0, 0.0);
    return f;
}

tkClassifierFeatureVector values(std::vector<double> v)
{
    return tkClassifierFeatureVector(v);
}

/// A host's own function; it does what it is told to when it is asked.
class Host : public tkClsFtSc
{
public:
    explicit Host(std::function<double(double)> score) : score_(std::move(score)) {}
    double score(double value) const override { return score_(value); }
    tkPtrHandle<tkClsFtSc> clone() const override { return tkPtrHandle<tkClsFtSc>(new Host(*this)); }
    bool operator==(const tkClsFtSc& other) const override { return this == &other; }

private:
    std::function<double(double)> score_;
};

/// A trapezoid that its class makes score 1 everywhere.
class Indifferent : public TwoSided
{
public:
    double score(double) const override { return 1.0; }
    tkPtrHandle<tkClsFtSc> clone() const override { return tkPtrHandle<tkClsFtSc>(new Indifferent(*this)); }
};

/// Sets how results are rounded, for one test.
class Rounding
{
public:
    explicit Rounding(int mode) : before_(std::fegetround()) { std::fesetround(mode); }
    ~Rounding() { std::fesetround(before_); }

private:
    int before_;
};

/// The outcomes of a comparison; a label, an exception, no rule, reports to the assertion handler.
struct Outcomes
{
    long passed = 0;
    long failed = 0;
    long none = 0;
    long reported = 0;
};

/// Tables are trained in one rounding mode and classify in another.
void compareWithDefinition(unsigned seed, bool hostile, int rounds, Outcomes& outcomes, int trainMode = FE_TONEAREST,
                           int runMode = FE_TONEAREST)
{
    auto& [passed, failed, none, reported] = outcomes;
    Random random(seed);
    for (int round = 0; round < rounds; ++round)
    {
        const std::size_t features = round % 50 == 7 ? 80 : 1 + random() % 6;
        const std::size_t numRules = round % 10 == 0 ? 130 + random() % 70 : 1 + random() % 12;
        std::vector<tkClassifierRule> rules;
        for (std::size_t r = 0; r < numRules; ++r)
        {
            Functions functions;
            for (std::size_t f = 0; f < features; ++f)
                functions.push_back(hostile && random() % 500 == 0 ? tkPtrHandle<tkClsFtSc>()
                                                                   : randomFunction(random, hostile));
            rules.push_back(rule(functions, static_cast<long>(r)));
        }
        const tkClassifierRuleTable t = [&]
        {
            const Rounding rounding(trainMode);
            return table(rules);
        }();
        const Rounding rounding(runMode);
        for (int i = 0; i < 100; ++i)
        {
            const tkClassifierRule& target = rules[random() % numRules];
            std::vector<double> v;
            for (std::size_t f = 0; f < features; ++f)
                v.push_back(randomValue(random, target.scoringMethods()[f].get()));
            double threshold = pick(random, {0.0, 1.0, 0.5, 0.1, 1e-3, std::nextafter(1.0, 0.0)});
            if (random() % 2)
                try
                {
                    const double score = ruleScore(target, v); // and one unit beside it
                    if (score >= 0.0 && score <= 1.0)
                        threshold = random() % 2 ? score : std::max(0.0, std::nextafter(score, -1.0));
                }
                catch (...) // has no score
                {
                }
            definition::reports = 0;
            const std::wstring expected = plainAnswer(rules, v, threshold);
            const CountedReports reports;
            ASSERT_EQ(expected, answer(t, values(v), threshold)) << "round " << round << ", vector " << i;
            ASSERT_EQ(definition::reports, reports.count()) << "round " << round << ", vector " << i;
            reported += definition::reports;
            ++(expected == L"-1" ? none : std::iswdigit(static_cast<std::wint_t>(expected[0])) ? passed : failed);
        }
    }
}
} // namespace

TEST(tkClassifierRuleTableVeto, tablesClassifyAsTheDefinition)
{
    Outcomes outcomes;
    compareWithDefinition(1, false, 1500, outcomes);
    EXPECT_EQ(0, outcomes.failed);
    EXPECT_EQ(0, outcomes.reported);
    EXPECT_GT(outcomes.passed, 20000);
    EXPECT_GT(outcomes.none, 20000);
}

TEST(tkClassifierRuleTableVeto, tablesOfUncheckedFunctionsClassifyAndFailAsTheDefinition)
{
    Outcomes outcomes;
    compareWithDefinition(2, true, 1000, outcomes);
    EXPECT_GT(outcomes.passed, 10000);
    EXPECT_GT(outcomes.failed, 10000);
    EXPECT_GT(outcomes.none, 10000);
    EXPECT_GT(outcomes.reported, 1000);
}

TEST(tkClassifierRuleTableVeto, tablesClassifyAsTheDefinitionInEveryRoundingMode)
{
    bool hostile = false;
    for (const int trainMode : {FE_TONEAREST, FE_DOWNWARD, FE_UPWARD, FE_TOWARDZERO})
        for (const int runMode : {FE_TONEAREST, FE_DOWNWARD, FE_UPWARD, FE_TOWARDZERO})
        {
            Outcomes outcomes;
            compareWithDefinition(3, hostile, 100, outcomes, trainMode, runMode);
            hostile = !hostile;
            EXPECT_GT(outcomes.passed, 500);
            EXPECT_GT(outcomes.none, 500);
        }
}

/// A function that vetoes `value`, a change of it, and what the table answers then.
template <class Function>
struct Change
{
    const char* name;
    Function before;
    double value;
    std::function<void(Function&)> change;
    std::wstring after = L"7";
};

template <class Function>
void expectSeen(const std::vector<Change<Function>>& changes)
{
    for (const Change<Function>& c : changes)
    {
        const tkPtrHandle<Function> f(new Function(c.before));
        const tkClassifierRuleTable t = table({rule({f}, 7)});
        const tkClassifierRuleTable copy(t);
        EXPECT_EQ(L"-1", answer(t, values({c.value}), 0.0)) << c.name;
        c.change(*f);
        EXPECT_EQ(c.after, plainAnswer(t.rules(), {c.value}, 0.0)) << c.name;
        EXPECT_EQ(c.after, answer(t, values({c.value}), 0.0)) << c.name;
        EXPECT_EQ(c.after, answer(copy, values({c.value}), 0.0)) << c.name;
    }
}

TEST(tkClassifierRuleTableVeto, everyChangeOfAOneSidedFunctionIsSeenAtOnce)
{
    OneSided up, down, wide;
    up.init(0, 1, 2, 0, 1);
    down.init(0, 1, 2, 1, 0);
    wide.init(0, 1, 9, 1, 1);
    const std::string record = storeToBytes(wide);
    expectSeen<OneSided>({
        {"init", up, 3, [](OneSided& f) { f.init(0, 1, 9, 1, 1); }},
        {"x0", up, -0.5, [](OneSided& f) { f.x0(-1); }},
        {"x1", down, 1.5, [](OneSided& f) { f.x1(2); }},
        {"xc", up, 3, [](OneSided& f) { f.xc(4); }},
        {"y0", up, -0.5, [](OneSided& f) { f.y0(0.5); }},
        {"y1", down, 1.5, [](OneSided& f) { f.y1(0.5); }},
        {"out of order", up, 3, [](OneSided& f) { f.x1(5); }, x1Between},
        {"assignment", up, 3, [&](OneSided& f) { f = wide; }},
        {"loading", up, 3, [&](OneSided& f) { loadFromBytes(record, f); }},
        {"part of a record", up, -9,
         [&](OneSided& f) { EXPECT_THROW(loadFromBytes(record.substr(0, 39), f), tkArchive::Errors); }, L"7"},
    });
}

TEST(tkClassifierRuleTableVeto, everyChangeOfATwoSidedFunctionIsSeenAtOnce)
{
    TwoSided feet, edges, wide, risingLow, fallingHigh;
    feet.init(-1, -2, -4, 1, 2, 4, 1, 0, 1, 0);
    edges.init(-1, -2, -2, 1, 2, 2, 1, 1, 1, 1);
    wide.init(-10, -20, -30, 10, 20, 30, 1, 1, 1, 1);
    risingLow.init(-4, -2, -1, 1, 2, 4, 0, 1, 1, 0);
    fallingHigh.init(-1, -2, -4, 4, 2, 1, 1, 0, 0, 1);
    const std::string record = storeToBytes(wide);
    expectSeen<TwoSided>({
        {"init", feet, 3, [](TwoSided& f) { f.init(-10, -20, -30, 10, 20, 30, 1, 1, 1, 1); }},
        {"x0", feet, -3, [](TwoSided& f) { f.x0(2); }, L"Bad x values"},
        {"x1", feet, -3, [](TwoSided& f) { f.x1(-4); }},
        {"xc", edges, -3, [](TwoSided& f) { f.xc(-4); }},
        {"y0", risingLow, -5, [](TwoSided& f) { f.y0(0.5); }},
        {"y1", feet, -3, [](TwoSided& f) { f.y1(0.5); }},
        {"x0h", feet, 3, [](TwoSided& f) { f.x0h(-2); }, L"Bad x values"},
        {"x1h", feet, 3, [](TwoSided& f) { f.x1h(4); }},
        {"xch", edges, 3, [](TwoSided& f) { f.xch(4); }},
        {"y0h", fallingHigh, 5, [](TwoSided& f) { f.y0h(0.5); }},
        {"y1h", feet, 3, [](TwoSided& f) { f.y1h(0.5); }},
        {"assignment", feet, 3, [&](TwoSided& f) { f = wide; }},
        {"loading", feet, 3, [&](TwoSided& f) { loadFromBytes(record, f); }},
        {"half a record", feet, -15,
         [&](TwoSided& f) { EXPECT_THROW(loadFromBytes(record.substr(0, 40), f), tkArchive::Errors); }},
    });
}

TEST(tkClassifierRuleTableVeto, changesOfCopiesAndClonesAreTheirOwn)
{
    const tkPtrHandle<TwoSided> f = trapezoid(0, 1);
    const tkClassifierRuleTable t = table({rule({f}, 7)});
    TwoSided copy(*f);
    const tkPtrHandle<tkClsFtSc> clone = f->clone();
    const tkClassifierRuleTable other = table({rule({clone}, 8)});
    copy = *trapezoid(2, 3);
    static_cast<TwoSided&>(*clone) = *trapezoid(2, 3);
    EXPECT_EQ(L"-1", answer(t, values({2.5}), 0.0));
    EXPECT_EQ(L"7", answer(t, values({0.5}), 0.0));
    EXPECT_EQ(L"8", answer(other, values({2.5}), 0.0));
    EXPECT_EQ(L"-1", answer(other, values({0.5}), 0.0));
}

TEST(tkClassifierRuleTableVeto, changesAreSeenByAllTablesOfAFunctionAndTrainingCatchesUp)
{
    const tkPtrHandle<TwoSided> a = trapezoid(0, 1);
    const tkPtrHandle<TwoSided> b = trapezoid(0, 1);
    const tkClassifierRuleTable ofA = table({rule({a}, 1)});
    const tkClassifierRuleTable ofB = table({rule({b}, 2)});
    tkClassifierRuleTable ofBoth = table({rule({a}, 1), rule({b}, 2)});
    *b = *trapezoid(4, 5);
    EXPECT_EQ(L"-1", answer(ofA, values({4.5}), 0.0));
    EXPECT_EQ(L"2", answer(ofB, values({4.5}), 0.0));
    EXPECT_EQ(L"2", answer(ofBoth, values({4.5}), 0.0));
    ofBoth.train(ofBoth.rules());
    *a = *trapezoid(7, 8);
    EXPECT_EQ(L"1", answer(ofA, values({7.5}), 0.0));
    EXPECT_EQ(L"1", answer(ofBoth, values({7.5}), 0.0));
    EXPECT_EQ(L"2", answer(ofBoth, values({4.5}), 0.0));
    EXPECT_EQ(L"-1", answer(ofBoth, values({0.5}), 0.0));
}

TEST(tkClassifierRuleTableVeto, tablesJoinedFromManyTablesSeeEveryChange)
{
    for (const int count : {2, 64, 65, 200})
    {
        std::vector<tkClassifierRule> rules;
        std::vector<tkPtrHandle<TwoSided>> functions;
        for (int i = 0; i < count; ++i)
        {
            functions.push_back(trapezoid(2 * i, 2 * i + 1));
            rules.push_back(table({rule({functions.back()}, i)}).rules().front());
        }
        const tkClassifierRuleTable joined = table(rules);
        EXPECT_EQ(std::to_wstring(count - 1), answer(joined, values({2 * count - 1.5}), 0.0));
        *functions.back() = *trapezoid(-2, -1);
        EXPECT_EQ(std::to_wstring(count - 1), answer(joined, values({-1.5}), 0.0));
        EXPECT_EQ(L"-1", answer(joined, values({2 * count - 1.5}), 0.0));
    }
}

TEST(tkClassifierRuleTableVeto, functionsOutliveTablesAndTablesFunctionsTheyNoLongerHold)
{
    const tkPtrHandle<TwoSided> f = trapezoid(0, 1);
    tkClassifierRuleTable t;
    {
        t = table({rule({f}, 1)});
        t = tkClassifierRuleTable();
    }
    f->x0(0.3); // reports to a count that no table looks at any more
    t.train({rule({trapezoid(0, 1)}, 2)});
    EXPECT_EQ(L"2", answer(t, values({0.5}), 0.0));
    t.train({rule({f}, 3)});
    EXPECT_EQ(L"3", answer(t, values({0.5}), 0.0));
}

TEST(tkClassifierRuleTableVeto, copiedMovedAssignedAndLoadedTablesClassifyByTheirOwnRules)
{
    const tkClassifierRuleTable near = table({rule({trapezoid(0, 1)}, 1)});
    const tkClassifierRuleTable far = table({rule({trapezoid(4, 5)}, 2), rule({trapezoid(6, 7)}, 3)});
    const auto expectFar = [](const tkClassifierRuleTable& t)
    {
        EXPECT_EQ(L"-1", answer(t, values({0.5}), 0.0));
        EXPECT_EQ(L"2", answer(t, values({4.5}), 0.0));
        EXPECT_EQ(L"3", answer(t, values({6.5}), 0.0));
    };
    tkClassifierRuleTable t(near);
    t = far;
    expectFar(t);
    expectFar(far);
    tkClassifierRuleTable moved(std::move(t));
    expectFar(moved);
    EXPECT_TK_THROW(t.classifyHardThreshold(values({0.5}), 0.0), tkClassifierDefs::NotTrained,
                    L"the rule table needs to be trained before it can classify");
    t = near;
    t = std::move(moved);
    expectFar(t);
    t = near;
    loadFromBytes(storeToBytes(far), t);
    expectFar(t);
    t.train(near.rules());
    EXPECT_EQ(L"1", answer(t, values({0.5}), 0.0));
    EXPECT_EQ(L"-1", answer(t, values({4.5}), 0.0));
    EXPECT_TRUE(t == near);
    loadFromBytes(storeToBytes(tkClassifierRuleTable()), t);
    EXPECT_TK_THROW(t.classifyHardThreshold(values({0.5}), 0.0), tkClassifierDefs::NotTrained,
                    L"the rule table needs to be trained before it can classify");
}

TEST(tkClassifierRuleTableVeto, afterALoadThatFailsTheTableClassifiesByWhatItHolds)
{
    const std::vector<tkClassifierRule> before = {rule({trapezoid(0, 1)}, 1), rule({trapezoid(2, 3)}, 2)};
    const std::string bytes = storeToBytes(table({rule({trapezoid(4, 5)}, 3), rule({trapezoid(6, 7)}, 4)}));
    for (std::size_t length = 0; length < bytes.size(); ++length)
    {
        tkClassifierRuleTable t = table(before);
        EXPECT_THROW(loadFromBytes(bytes.substr(0, length), t), tkArchive::Errors);
        for (double v = -0.5; v < 8.0 && !t.rules().empty(); v += 1.0)
            EXPECT_EQ(plainAnswer(t.rules(), {v}, 0.0), answer(t, values({v}), 0.0)) << length << " at " << v;
    }
}

TEST(tkClassifierRuleTableVeto, hostsFunctionsAreAskedAtTheirTurnWhateverTheOthersScore)
{
    int calls = 0;
    const tkPtrHandle<tkClsFtSc> host(new Host([&](double) { return ++calls, 1.0; }));
    const tkClassifierRuleTable t =
        table({rule({trapezoid(0, 1), trapezoid(0, 1)}, 1), rule({trapezoid(0, 1), host}, 2),
               rule({host, trapezoid(4, 5)}, 3), rule({trapezoid(4, 5), trapezoid(4, 5)}, 4)});
    EXPECT_EQ(L"1", answer(t, values({0.5, 0.5}), 0.0));
    EXPECT_EQ(0, calls);
    EXPECT_EQ(L"-1", answer(t, values({4.5, 9.0}), 0.0)); // each is asked where the other function scores 0
    EXPECT_EQ(2, calls);
    EXPECT_EQ(L"3", answer(t, values({4.5, 4.5}), 0.0));
    EXPECT_EQ(4, calls);
}

TEST(tkClassifierRuleTableVeto, derivedClassesScoreByTheirOwnDefinition)
{
    const tkClassifierRuleTable t =
        table({rule({trapezoid(0, 1)}, 1), rule({tkPtrHandle<tkClsFtSc>(new Indifferent)}, 2)});
    EXPECT_EQ(L"2", answer(t, values({99}), 0.5));
}

TEST(tkClassifierRuleTableVeto, aHostsFunctionMayChangeTheRulesBehindIt)
{
    const tkPtrHandle<TwoSided> f = trapezoid(0, 1);
    const tkPtrHandle<tkClsFtSc> host(new Host([&](double) { return *f = *trapezoid(4, 5), 0.0; }));
    const tkClassifierRuleTable t = table({rule({host}, 1), rule({f}, 2)});
    EXPECT_EQ(L"2", answer(t, values({4.5}), 0.0));
}

TEST(tkClassifierRuleTableVeto, functionsBehindAVetoThrowAndReport)
{
    const tkPtrHandle<TwoSided> f = trapezoid(0, 1);
    const tkClassifierRuleTable t = table({rule({trapezoid(0, 1), f}, 1)});
    EXPECT_EQ(L"-1", answer(t, values({9.0, 0.5}), 0.0));
    f->x1(0.9);
    EXPECT_EQ(x1Between, answer(t, values({9.0, 0.5}), 0.0));
    f->x1(0.0);
    f->x0(0.95);
    EXPECT_EQ(L"Bad x values", answer(t, values({9.0, 0.5}), 0.0));
    f->x0(0.25);
    f->xch(quietNaN);
    const CountedReports reports;
    EXPECT_EQ(L"-1", answer(t, values({9.0, 0.8}), 0.0));
    EXPECT_EQ(1, reports.count());
}

TEST(tkClassifierRuleTableVeto, rulesThatThrowDoSoAtTheirTurn)
{
    const tkPtrHandle<TwoSided> crooked = trapezoid(0, 1);
    crooked->x1(0.9);
    const tkClassifierRuleTable t =
        table({rule({trapezoid(0, 1), trapezoid(0, 1)}, 1), rule({trapezoid(0, 1), crooked}, 2),
               rule({trapezoid(2, 3), trapezoid(2, 3)}, 3), rule({tkPtrHandle<tkClsFtSc>(), trapezoid(0, 1)}, 4)});
    EXPECT_EQ(L"1", answer(t, values({0.5, 0.5}), 0.0));
    EXPECT_EQ(x1Between, answer(t, values({2.5, 2.5}), 0.0)); // the first function would have been a veto
    crooked->x1(0.0);
    EXPECT_EQ(L"3", answer(t, values({2.5, 2.5}), 0.0));
    EXPECT_EQ(L"null", answer(t, values({9.0, 9.0}), 0.0));
}

TEST(tkClassifierRuleTableVeto, loadedRulesOfAnotherSizeThrowAtTheirTurn)
{
    std::string bytes("\0\x03\0\0\0", 5);
    bytes += storeToBytes(rule({trapezoid(0, 1)}, 1));
    bytes += storeToBytes(rule({trapezoid(0, 1), trapezoid(0, 1)}, 2));
    bytes += storeToBytes(rule({trapezoid(2, 3)}, 3));
    tkClassifierRuleTable t;
    loadFromBytes(bytes, t);
    EXPECT_EQ(L"1", answer(t, values({0.5}), 0.0));
    EXPECT_EQ(L"MismatchedFeatureVectorSize", answer(t, values({2.5}), 0.0));
}

TEST(tkClassifierRuleTableVeto, degreesAboveOneAndInfiniteOnesPassAsTheDefinitionSays)
{
    const std::vector<tkClassifierRule> rules = {
        rule({loaded<OneSided>({0, 1, 2, 1e300, 1e300}), loaded<OneSided>({0, 1, 2, 1e300, 1e300})}, 1),
        rule({loaded<OneSided>({0, 1, 2, inf, 3}), loaded<OneSided>({0, 1, 2, 0, 1})}, 2),
        rule({loaded<OneSided>({0, 1, 2, -2, -2}), loaded<OneSided>({0, 1, 2, -2, 0})}, 3)};
    const tkClassifierRuleTable t = table(rules);
    for (const double a : {-1.0, 0.5, 1.5, 2.5})
        for (const double b : {-1.0, 0.5, 1.5, 2.5, quietNaN})
            for (const double threshold : {0.0, 0.5, 1.0})
                EXPECT_EQ(plainAnswer(rules, {a, b}, threshold), answer(t, values({a, b}), threshold)) << a << " " << b;
    EXPECT_EQ(L"1", answer(t, values({0.5, 0.5}), 1.0)); // infinite
}

TEST(tkClassifierRuleTableVeto, manySmallDegreesAreComparedByTheirMean)
{
    // 300 degrees of 0.05 multiply to 0, 200 of 0.1 to 1e-200; powers of such thresholds underflow as well.
    for (const double degree : {0.05, 0.1, 0.5, 0.9, 1.0})
        for (const std::size_t count : {1, 100, 200, 300, 2000})
        {
            const tkPtrHandle<tkClsFtSc> f = loaded<OneSided>({0, 0, 1, degree, degree});
            const std::vector<tkClassifierRule> rules = {rule(Functions(count, f), 5)};
            const std::vector<double> v(count, 0.5);
            const tkClassifierRuleTable t = table(rules);
            const double score = ruleScore(rules[0], v);
            for (double threshold : {0.0, 0.01, degree, score, score * (1 + 1e-13), score * (1 - 1e-13),
                                     score * (1 + 1e-11), score * (1 - 1e-11), std::nextafter(score, 0.0), 1.0})
            {
                threshold = std::min(threshold, 1.0);
                EXPECT_EQ(plainAnswer(rules, v, threshold), answer(t, values(v), threshold)) << degree << " " << count;
            }
        }
}

TEST(tkClassifierRuleTableVeto, productsNearTheSmallestDoubleAreComparedByTheirMean)
{
    std::mt19937_64 generator(3);
    std::uniform_real_distribution<double> part(0.0, 1.0);
    std::uniform_real_distribution<double> logOfProduct(-745.0, -690.0); // e^-745 is the smallest double
    int exceeded = 0;
    for (int round = 0; round < 200; ++round)
    {
        std::vector<double> logs(1000 + generator() % 2000);
        for (double& log : logs)
            log = part(generator);
        const double scale = logOfProduct(generator) / std::accumulate(logs.begin(), logs.end(), 0.0);
        Functions functions;
        for (const double log : logs)
        {
            const double degree = std::exp(scale * log);
            functions.push_back(loaded<OneSided>({0, 0, 1, degree, degree}));
        }
        const std::vector<tkClassifierRule> rules = {rule(functions, 5)};
        const std::vector<double> v(logs.size(), 0.5);
        const tkClassifierRuleTable t = table(rules);
        const double score = ruleScore(rules[0], v);
        for (const double threshold :
             {score, std::nextafter(score, 0.0), std::nextafter(score, 1.0), score * (1 - 1e-12), score * (1 + 1e-12),
              score * (1 - 3e-12), score * (1 + 3e-12), 0.0})
        {
            const std::wstring expected = plainAnswer(rules, v, threshold);
            EXPECT_EQ(expected, answer(t, values(v), threshold));
            exceeded += expected == L"5";
        }
    }
    EXPECT_GT(exceeded, 400);
    EXPECT_LT(exceeded, 1200);
}

TEST(tkClassifierRuleTableVeto, rulesOfDifferentSizesTakeNoMoreMemoryThanTheirRecord)
{
    const tkPtrHandle<tkClsFtSc> f = loaded<OneSided>({0, 0, 1, 1, 1});
    std::vector<tkClassifierRule> rules(20000);
    rules[0] = rule(Functions(64, f), 5);
    std::ostringstream stream;
    tkArchive archive(stream);
    archive || rules;
    tkClassifierRuleTable t;
    const std::string bytes = stream.str();
    {
        const tkAllocations watched;
        loadFromBytes(bytes, t);
        EXPECT_LE(watched.largest(), 2 * std::max(bytes.size(), rules.size() * sizeof(tkClassifierRule)));
    }
    EXPECT_EQ(L"MismatchedFeatureVectorSize", answer(t, values(std::vector<double>(64, 2.0)), 0.5));
}

TEST(tkClassifierRuleTableVeto, trainingAndLoadingThatRunOutOfMemoryLeaveARightTable)
{
    const std::vector<tkClassifierRule> rules = {rule({trapezoid(4, 5)}, 3), rule({trapezoid(6, 7)}, 4)};
    expectUnchangedWithoutMemory(table({rule({trapezoid(0, 1)}, 1)}),
                                 [&](tkClassifierRuleTable& t)
                                 {
                                     try
                                     {
                                         t.train(rules);
                                     }
                                     catch (const std::bad_alloc&)
                                     {
                                         EXPECT_EQ(1, t.rules().front().label());
                                         throw;
                                     }
                                 });
    const std::string bytes = storeToBytes(table(rules));
    bool failed = true;
    for (std::size_t allowed = 0; failed; ++allowed)
    {
        tkClassifierRuleTable t = table({rule({trapezoid(0, 1)}, 1)});
        failed = false;
        std::istringstream stream(bytes);
        tkArchive archive(stream);
        try
        {
            const tkAllocations limited(allowed);
            archive || t;
        }
        catch (const std::bad_alloc&)
        {
            failed = true;
        }
        for (const double v : {0.5, 4.5, 6.5})
            EXPECT_EQ(plainAnswer(t.rules(), {v}, 0.0), answer(t, values({v}), 0.0)) << allowed;
    }
}

TEST(tkClassifierRuleTableVeto, aRuleAssignedWithoutEnoughMemoryClassifiesByItsOwnFunctions)
{
    const tkClassifierRule other = rule({trapezoid(4, 5), trapezoid(4, 5), trapezoid(4, 5)}, 2);
    bool failed = true;
    for (std::size_t allowed = 0; failed; ++allowed)
    {
        tkClassifierRule r = rule({trapezoid(0, 1)}, 1);
        failed = false;
        try
        {
            const tkAllocations limited(allowed);
            r = other;
        }
        catch (const std::bad_alloc&)
        {
            failed = true;
        }
        ASSERT_EQ(failed ? 1u : 3u, r.scoringMethods().size());
        const std::size_t size = r.scoringMethods().size();
        EXPECT_EQ(failed ? L"1" : L"-1", answer(table({r}), values(std::vector<double>(size, 0.5)), 0.0));
        EXPECT_EQ(failed ? L"-1" : L"2", answer(table({r}), values(std::vector<double>(size, 4.5)), 0.0));
    }
}

TEST(tkClassifierRuleTableVeto, classifyingAllocatesNothing)
{
    std::vector<tkClassifierRule> rules;
    for (int r = 0; r < 200; ++r)
        rules.push_back(rule({trapezoid(r, r + 2), trapezoid(0, 1)}, r));
    const tkClassifierRuleTable t = table(rules);
    const tkClassifierFeatureVector v = values({150.5, 0.5});
    const tkAllocations allocations;
    const long label = t.classifyHardThreshold(v, 0.0);
    EXPECT_EQ(0u, allocations.count());
    EXPECT_EQ(149, label);
}

TEST(tkClassifierRuleTableVeto, threadsTrainAndClassifyWithSharedFunctions)
{
    std::vector<tkClassifierRule> rules;
    for (int r = 0; r < 100; ++r)
        rules.push_back(rule({trapezoid(r, r + 1)}, r));
    const tkClassifierRuleTable shared = table({rules[0], rules[50]});
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back(
            [&]
            {
                const tkClassifierRuleTable own = table(rules);
                for (int r = 0; r < 100; ++r)
                {
                    EXPECT_EQ(r, own.classifyHardThreshold(values({r + 0.5}), 0.5));
                    EXPECT_EQ(r == 0 || r == 50 ? r : -1, shared.classifyHardThreshold(values({r + 0.5}), 0.5));
                }
            });
    for (std::thread& thread : threads)
        thread.join();
    static_cast<TwoSided&>(*rules[7].scoringMethods()[0]) = *trapezoid(200, 201);
    EXPECT_EQ(7, table(rules).classifyHardThreshold(values({200.5}), 0.5));
}
