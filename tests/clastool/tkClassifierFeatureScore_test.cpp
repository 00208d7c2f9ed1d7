#include "clss/clastool/clastool/tkClassifierFeatureScore.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "foundation/tkArchiveOperators.h"
#include "foundation/tkAssert.h"
#include "tests/definition/definition.h"
#include "tests/golden/ruleTable.h"
#include "tkReports.h"
#include "tkTest.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <random>

namespace
{
using BadParams = tkClassifierDefs::BadParams;

constexpr double quietNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double inf = std::numeric_limits<double>::infinity();

constexpr wchar_t x1Between[] = L"x1 must lie between x0 and xc";
constexpr wchar_t y0Range[] = L"y0 must be between 0 and 1";
constexpr wchar_t y1Range[] = L"y1 must be between 0 and 1";
constexpr wchar_t lowestText[] = L"x0 > lowest || x1 > lowest || xc > lowest";

tkClassifierFeatureScoreOneSided oneSided(double x0, double x1, double xc, double y0, double y1)
{
    tkClassifierFeatureScoreOneSided f;
    f.init(x0, x1, xc, y0, y1);
    return f;
}

std::array<double, 5> fields(const tkClassifierFeatureScoreOneSided& f)
{
    return {f.x0(), f.x1(), f.xc(), f.y0(), f.y1()};
}

std::array<double, 10> fields(const tkClassifierFeatureScoreTwoSided& f)
{
    return {f.x0(), f.x1(), f.xc(), f.y0(), f.y1(), f.x0h(), f.x1h(), f.xch(), f.y0h(), f.y1h()};
}

void expectSameBits(double expected, double actual, double v)
{
    if (std::isnan(expected))
        EXPECT_TRUE(std::isnan(actual)) << "at " << v;
    else
    {
        EXPECT_EQ(expected, actual) << "at " << v;
        EXPECT_EQ(std::signbit(expected), std::signbit(actual)) << "at " << v;
    }
}

/// Values to score: a dense grid, the corners and their neighbours, infinities and NaN.
std::vector<double> probes(const std::vector<double>& corners)
{
    std::vector<double> values = {quietNaN, inf,   -inf,   0.0,
                                  -0.0,     1e300, -1e300, std::numeric_limits<double>::denorm_min()};
    for (double v = -4.0; v <= 4.0; v += 0.0625)
        values.push_back(v);
    for (const double c : corners)
        for (const double towards : {-inf, inf})
        {
            values.push_back(c);
            values.push_back(std::nextafter(c, towards));
        }
    return values;
}

class OtherFunction : public tkClassifierFeatureScoreIgnore
{
public:
    tkPtrHandle<tkClsFtSc> clone() const override { return tkPtrHandle<tkClsFtSc>(new OtherFunction(*this)); }
};
} // namespace

TEST(tkClassifierFeatureScoreOneSided, defaultIsARampFromZeroToOne)
{
    const tkClassifierFeatureScoreOneSided f;
    EXPECT_EQ((std::array<double, 5>{0.0, 1.0, 1.0, 1.0, 0.0}), fields(f));
    EXPECT_EQ(1.0, f.score(-5.0));
    EXPECT_EQ(1.0, f.score(0.0));
    EXPECT_EQ(0.75, f.score(0.25));
    EXPECT_EQ(0.0, f.score(1.0));
    EXPECT_EQ(0.0, f.score(1.0001));
}

TEST(tkClassifierFeatureScoreOneSided, fallingOrientationIsTheMirrorImage)
{
    const tkClassifierFeatureScoreOneSided f = oneSided(0, -1, -2, 1, 0.5);
    EXPECT_EQ(1.0, f.score(1.0));
    EXPECT_EQ(0.75, f.score(-0.5));
    EXPECT_EQ(0.5, f.score(-1.0));
    EXPECT_EQ(0.5, f.score(-2.0));
    EXPECT_EQ(0.0, f.score(-2.5));
}

TEST(tkClassifierFeatureScoreOneSided, cutOffAndInnerEndBelongToTheInnerPlateau)
{
    const tkClassifierFeatureScoreOneSided rising = oneSided(0, 1, 2, 0.25, 0.75);
    EXPECT_EQ(0.75, rising.score(1.0));
    EXPECT_EQ(0.75, rising.score(2.0));
    EXPECT_EQ(0.0, rising.score(std::nextafter(2.0, 3.0)));
}

TEST(tkClassifierFeatureScoreOneSided, withoutARampThereIsNoDivisionByZero)
{
    const tkClassifierFeatureScoreOneSided rising = oneSided(1, 1, 2, 0.25, 0.75);
    EXPECT_EQ(0.25, rising.score(0.999));
    EXPECT_EQ(0.75, rising.score(1.0));
    const tkClassifierFeatureScoreOneSided point = oneSided(1, 1, 1, 0.25, 0.75); // the rising rules apply
    EXPECT_EQ(0.25, point.score(0.5));
    EXPECT_EQ(0.75, point.score(1.0));
    EXPECT_EQ(0.0, point.score(1.5));
}

TEST(tkClassifierFeatureScoreOneSided, initChecksInOrderAndStoresNothingOnFailure)
{
    tkClassifierFeatureScoreOneSided f = oneSided(1, 2, 3, 0.5, 0.25);
    const std::array<double, 5> before = fields(f);
    EXPECT_TK_THROW(f.init(0, 2, 1, 1.5, -1), BadParams, y0Range);
    EXPECT_TK_THROW(f.init(0, 2, 1, 1, 1.5), BadParams, y1Range);
    EXPECT_TK_THROW(f.init(0, 2, 1, 1, 0), BadParams, L"x1 must be lie between x0 and xc");
    EXPECT_TK_THROW(f.init(0, -1, 1, 1, 0), BadParams, L"x1 must be lie between x0 and xc");
    EXPECT_TK_THROW(f.init(0, 0.5, 1, 1.5, 0), BadParams, y0Range);
    EXPECT_TK_THROW(f.init(0, 0.5, 1, quietNaN, 0), BadParams, y0Range);
    EXPECT_TK_THROW(f.init(0, 0.5, 1, 0, quietNaN), BadParams, y1Range);
    EXPECT_TK_THROW(f.init(0, quietNaN, 1, 1, 0), BadParams, L"x1 must be lie between x0 and xc");
    EXPECT_EQ(before, fields(f));
}

TEST(tkClassifierFeatureScoreOneSided, levelSettersCheckAndPositionSettersDoNot)
{
    tkClassifierFeatureScoreOneSided f;
    for (const double bad : {-1e-300, 1.0000001, inf, -inf, quietNaN})
    {
        EXPECT_TK_THROW(f.y0(bad), BadParams, y0Range);
        EXPECT_TK_THROW(f.y1(bad), BadParams, y1Range);
    }
    EXPECT_EQ(1.0, f.y0());
    EXPECT_EQ(0.0, f.y1());
    f.y0(0.5);
    f.y1(1.0);
    f.xc(7.0);
    f.x0(-3.0);
    f.x1(2.0);
    EXPECT_EQ((std::array<double, 5>{-3.0, 2.0, 7.0, 0.5, 1.0}), fields(f));
    EXPECT_EQ(1.0, f.score(2.0));
    f.x1(8.0);
    EXPECT_TK_THROW(f.score(0.0), BadParams, x1Between);
    f.x1(-8.0);
    EXPECT_TK_THROW(f.score(0.0), BadParams, x1Between);
}

TEST(tkClassifierFeatureScoreOneSided, theEndsOfTheRangeAreLevels)
{
    tkClassifierFeatureScoreOneSided f = oneSided(0, 1, 2, 0.0, 1.0);
    f.y0(1.0);
    f.y1(0.0);
    EXPECT_EQ((std::array<double, 5>{0, 1, 2, 1, 0}), fields(f));
    f.init(0, 1, 2, -0.0, 1.0);
    EXPECT_EQ(0.0, f.y0());
    EXPECT_TK_THROW(f.y0(std::nextafter(1.0, 2.0)), BadParams, y0Range);
    EXPECT_TK_THROW(f.y1(-std::numeric_limits<double>::denorm_min()), BadParams, y1Range);
}

TEST(tkClassifierFeatureScoreOneSided, aPlateauWithoutEndHasAnInfiniteCutOff)
{
    const tkClassifierFeatureScoreOneSided rising = oneSided(0, 1, inf, 0, 1);
    EXPECT_EQ(0.5, rising.score(0.5));
    EXPECT_EQ(1.0, rising.score(1e300));
    EXPECT_EQ(1.0, rising.score(inf));
    const tkClassifierFeatureScoreOneSided falling = oneSided(0, -1, -inf, 0, 1);
    EXPECT_EQ(0.5, falling.score(-0.5));
    EXPECT_EQ(1.0, falling.score(-inf));
}

TEST(tkClassifierFeatureScoreOneSided, nanPositionIsReportedAndScoresZero)
{
    tkClassifierFeatureScoreOneSided f;
    f.x0(quietNaN);
    const CountedReports reports;
    EXPECT_EQ(0.0, f.score(0.5));
    EXPECT_EQ(1, reports.count());
}

TEST(tkClassifierFeatureScoreOneSided, nanValueScoresNan)
{
    EXPECT_TRUE(std::isnan(tkClassifierFeatureScoreOneSided().score(quietNaN)));
}

TEST(tkClassifierFeatureScoreOneSided, scoresAsTheDefinitionOnDenseGrids)
{
    std::mt19937 random(5);
    const std::vector<double> xs = {-2.0, -1.0, -0.3, 0.0, 0.1, 1.0, 2.5};
    const std::vector<double> ys = {0.0, 0.3, 0.5, 1.0};
    int functions = 0;
    for (const double x0 : xs)
        for (const double x1 : xs)
            for (const double xc : xs)
            {
                if (!((x0 <= x1 && x1 <= xc) || (xc <= x1 && x1 <= x0)))
                    continue;
                const double y0 = ys[random() % ys.size()];
                const double y1 = ys[random() % ys.size()];
                const tkClassifierFeatureScoreOneSided f = oneSided(x0, x1, xc, y0, y1);
                for (const double v : probes({x0, x1, xc}))
                    expectSameBits(definition::oneSidedScore(x0, x1, xc, y0, y1, v), f.score(v), v);
                ++functions;
            }
    EXPECT_GT(functions, 100);
}

TEST(tkClassifierFeatureScoreOneSided, equalityComparesAllFieldsAndNanEqualsAnything)
{
    const tkClassifierFeatureScoreOneSided f = oneSided(0, 1, 2, 0.25, 0.75);
    EXPECT_TRUE(f == oneSided(0, 1, 2, 0.25, 0.75));
    EXPECT_FALSE(f == oneSided(-1, 1, 2, 0.25, 0.75));
    EXPECT_FALSE(f == oneSided(0, 1.5, 2, 0.25, 0.75));
    EXPECT_FALSE(f == oneSided(0, 1, 2.5, 0.25, 0.75));
    EXPECT_FALSE(f == oneSided(0, 1, 2, 0.5, 0.75));
    EXPECT_FALSE(f == oneSided(0, 1, 2, 0.25, 0.5));
    tkClassifierFeatureScoreOneSided g = f;
    g.x0(quietNaN);
    EXPECT_TRUE(f == g);
    EXPECT_TRUE(g == f);
}

TEST(tkClassifierFeatureScoreTwoSided, defaultIsATriangle)
{
    const tkClassifierFeatureScoreTwoSided f;
    EXPECT_EQ((std::array<double, 10>{0, -1, -1, 1, 0, 0, 1, 1, 1, 0}), fields(f));
    EXPECT_EQ(1.0, f.score(0.0));
    EXPECT_EQ(0.5, f.score(-0.5));
    EXPECT_EQ(0.5, f.score(0.5));
    EXPECT_EQ(0.0, f.score(-1.0));
    EXPECT_EQ(0.0, f.score(1.0));
    EXPECT_EQ(0.0, f.score(2.0));
    EXPECT_EQ(0.0, f.score(-2.0));
}

TEST(tkClassifierFeatureScoreTwoSided, initChecksInOrderAndChangesNothingOnFailure)
{
    tkClassifierFeatureScoreTwoSided f;
    f.init(1, 0, -1, 2, 3, 4, 1, 0.5, 1, 0.25);
    const std::array<double, 10> before = fields(f);
    // The positions of the halves come before anything in a half.
    EXPECT_TK_THROW(f.init(0, -1, 0.5, 0.2, 1, 1, 9, 0, 1, 0), BadParams, lowestText);
    EXPECT_TK_THROW(f.init(0.5, -1, -1, 0.2, 1, 1, 1, 0, 1, 0), BadParams, lowestText);
    EXPECT_TK_THROW(f.init(0, 0.5, -1, 0.2, 1, 1, 1, 0, 1, 0), BadParams, lowestText);
    // Then the low half, then the high half, which speaks of y0 and y1 too.
    EXPECT_TK_THROW(f.init(0, -1, -1, 0, 1, 1, 9, 0, 9, 0), BadParams, y0Range);
    EXPECT_TK_THROW(f.init(0, -1, -1, 0, 1, 1, 1, 9, 9, 0), BadParams, y1Range);
    EXPECT_TK_THROW(f.init(0, -2, -1, 0, 2, 1, 1, 0, 9, 0), BadParams, L"x1 must be lie between x0 and xc");
    EXPECT_TK_THROW(f.init(0, -1, -1, 0, 1, 1, 1, 0, 9, 9), BadParams, y0Range);
    EXPECT_TK_THROW(f.init(0, -1, -1, 0, 1, 1, 1, 0, 1, 9), BadParams, y1Range);
    EXPECT_TK_THROW(f.init(0, -1, -1, 0, 2, 1, 1, 0, 1, 0), BadParams, L"x1 must be lie between x0 and xc");
    EXPECT_EQ(before, fields(f));
}

TEST(tkClassifierFeatureScoreTwoSided, levelSettersNameTheirField)
{
    tkClassifierFeatureScoreTwoSided f;
    const std::array<double, 10> before = fields(f);
    for (const double bad : {-0.1, 1.1, quietNaN})
    {
        EXPECT_TK_THROW(f.y0(bad), BadParams, y0Range);
        EXPECT_TK_THROW(f.y1(bad), BadParams, y1Range);
        EXPECT_TK_THROW(f.y0h(bad), BadParams, L"y0h must be between 0 and 1");
        EXPECT_TK_THROW(f.y1h(bad), BadParams, L"y1h must be between 0 and 1");
    }
    EXPECT_EQ(before, fields(f));
}

TEST(tkClassifierFeatureScoreTwoSided, settersReachTheirHalf)
{
    tkClassifierFeatureScoreTwoSided f;
    f.x0(-1), f.x1(-2), f.xc(-3), f.y0(0.1), f.y1(0.2);
    f.x0h(1), f.x1h(2), f.xch(3), f.y0h(0.3), f.y1h(0.4);
    EXPECT_EQ((std::array<double, 10>{-1, -2, -3, 0.1, 0.2, 1, 2, 3, 0.3, 0.4}), fields(f));
    EXPECT_TRUE(f.Low() == oneSided(-1, -2, -3, 0.1, 0.2));
    EXPECT_TRUE(f.High() == oneSided(1, 2, 3, 0.3, 0.4));
}

TEST(tkClassifierFeatureScoreTwoSided, scoreChecksLowThenHighThenTheirOrder)
{
    tkClassifierFeatureScoreTwoSided f;
    f.x1(5.0);
    EXPECT_TK_THROW(f.score(0), BadParams, x1Between);
    f.x1(-1.0);
    f.x1h(5.0);
    EXPECT_TK_THROW(f.score(0), BadParams, x1Between);
    f.x0(9.0); // now the order is wrong as well: the halves come first
    EXPECT_TK_THROW(f.score(0), BadParams, x1Between);
    f.x1h(1.0);
    EXPECT_TK_THROW(f.score(0), BadParams, L"Bad x values");
}

TEST(tkClassifierFeatureScoreTwoSided, scoreLooksAtEveryPositionOfLow)
{
    constexpr wchar_t bad[] = L"Bad x values";
    tkClassifierFeatureScoreTwoSided f; // High from 0 to 1
    f.x0(0.5);
    EXPECT_TK_THROW(f.score(9), BadParams, bad);
    f.x0(-1.0);
    f.xc(0.5);
    EXPECT_TK_THROW(f.score(9), BadParams, bad);
    f.x0(0.5);
    f.x1(0.5);
    EXPECT_TK_THROW(f.score(9), BadParams, bad);
    f.x0(0.0), f.x1(0.0), f.xc(0.0); // touching is allowed
    EXPECT_EQ(0.5, f.score(0.5));
    f.x0h(1.0), f.xch(-0.5); // High runs towards smaller values, its lower end is its cut-off
    f.x1h(0.0);
    EXPECT_TK_THROW(f.score(9), BadParams, bad);
}

TEST(tkClassifierFeatureScoreTwoSided, nanPositionIsReportedAndScoresZeroWhenItsHalfIsScored)
{
    const CountedReports reports;
    tkClassifierFeatureScoreTwoSided f;
    f.x0h(quietNaN); // no value is at or above a lower end that is NaN: Low scores
    EXPECT_EQ(1.0, f.score(2.0));
    EXPECT_EQ(0.5, f.score(-0.5));
    EXPECT_EQ(0, reports.count());
    f.x0h(0.0);
    f.xch(quietNaN);
    EXPECT_EQ(0.0, f.score(0.5));
    EXPECT_EQ(1, reports.count());
    f.x1h(-1.0); // now x1h lies below the lower end x0h, and nothing shows that it may not
    EXPECT_EQ(0.0, f.score(-0.5));
    EXPECT_EQ(2, reports.count());
}

TEST(tkClassifierFeatureScoreTwoSided, scoresAsTheDefinitionOnDenseGrids)
{
    std::mt19937 random(7);
    std::uniform_real_distribution<double> position(-3.0, 3.0);
    std::uniform_real_distribution<double> level(0.0, 1.0);
    for (int round = 0; round < 300; ++round)
    {
        std::array<double, 6> x;
        for (double& v : x)
            v = round % 3 == 0 ? std::round(position(random)) : position(random);
        std::sort(x.begin(), x.end());
        // The high half may run either way: its lower end decides between the halves.
        const bool highFalls = round % 4 == 3;
        const double x0h = highFalls ? x[5] : x[3];
        const double xch = highFalls ? x[3] : x[5];
        const double y0 = level(random), y1 = level(random), y0h = level(random), y1h = level(random);
        tkClassifierFeatureScoreTwoSided f;
        f.init(x[2], x[1], x[0], x0h, x[4], xch, y0, y1, y0h, y1h);
        for (const double v : probes({x.begin(), x.end()}))
            expectSameBits(definition::twoSidedScore(f, v), f.score(v), v);
    }
}

TEST(tkClassifierFeatureScoreTwoSided, neverEqualsAOneSidedFunctionAndComparesBothHalves)
{
    const tkClassifierFeatureScoreTwoSided f;
    EXPECT_FALSE(f == f.Low());
    EXPECT_FALSE(f.Low() == f);
    tkClassifierFeatureScoreTwoSided g;
    EXPECT_TRUE(f == g);
    g.y1(0.5);
    EXPECT_FALSE(f == g);
    g = f;
    g.y1h(0.5);
    EXPECT_FALSE(f == g);
}

TEST(tkClsFtSc, clonesAreNewEqualObjectsOfTheSameClass)
{
    tkClassifierFeatureScoreTwoSided twoSided;
    twoSided.y0(0.5);
    const tkClassifierFeatureScoreOneSided one = oneSided(0, 1, 3, 0.2, 0.4);
    const tkClassifierFeatureScoreIgnore ignore;
    for (const tkClsFtSc* f : {static_cast<const tkClsFtSc*>(&twoSided), static_cast<const tkClsFtSc*>(&one),
                               static_cast<const tkClsFtSc*>(&ignore)})
    {
        const tkPtrHandle<tkClsFtSc> clone = f->clone();
        EXPECT_NE(f, clone.get());
        EXPECT_TRUE(*clone == *f);
    }
}

TEST(tkClsFtSc, recordsCarryNoVersionByte)
{
    EXPECT_EQ("", storeToBytes(tkClassifierFeatureScoreIgnore()));
    EXPECT_EQ(5u * 8, storeToBytes(tkClassifierFeatureScoreOneSided()).size());
    EXPECT_EQ(10u * 8, storeToBytes(tkClassifierFeatureScoreTwoSided()).size());

    tkClassifierFeatureScoreTwoSided stored, loaded;
    stored.init(1, 0, -1, 2, 3, 4, 0.9, 0.5, 0.8, 0.25);
    loadFromBytes(storeToBytes(stored), loaded);
    EXPECT_EQ(fields(stored), fields(loaded));
    EXPECT_EQ(storeToBytes(stored), storeToBytes(stored.Low()) + storeToBytes(stored.High()));

    const std::string one = storeToBytes(oneSided(0, 1, 2, 0.25, 0.75)); // x0, x1, xc, y0, y1
    EXPECT_EQ(std::string(
                  "\0\0\0\0\0\0\0\0\0\0\0\0\0\0\xF0\x3F\0\0\0\0\0\0\0\x40\0\0\0\0\0\0\xD0\x3F\0\0\0\0\0\0\xE8\x3F", 40),
              one);
}

TEST(tkClsFtSc, loadedValuesAreNotChecked)
{
    tkClassifierFeatureScoreOneSided f;
    f.x1(9.0);
    tkClassifierFeatureScoreOneSided loaded;
    loadFromBytes(storeToBytes(f), loaded);
    EXPECT_EQ(9.0, loaded.x1());
    EXPECT_TK_THROW(loaded.score(0), BadParams, x1Between);
}

TEST(tkClsFtSc, handlesAreStoredWithTheTagOfTheirClass)
{
    const auto tagOf = [](const tkClsFtSc& f) { return storeToBytes(f.clone()).substr(0, 4); };
    EXPECT_EQ(std::string("\x32\x16\0\0", 4), tagOf(tkClassifierFeatureScoreIgnore()));
    EXPECT_EQ(std::string("\x69\x82\0\0", 4), tagOf(tkClassifierFeatureScoreOneSided()));
    EXPECT_EQ(std::string("\xAC\xE9\0\0", 4), tagOf(tkClassifierFeatureScoreTwoSided()));

    for (const tkPtrHandle<tkClsFtSc>& stored :
         {tkClassifierFeatureScoreIgnore().clone(), oneSided(0, 1, 2, 0.5, 1).clone(),
          tkClassifierFeatureScoreTwoSided().clone()})
    {
        tkPtrHandle<tkClsFtSc> loaded;
        loadFromBytes(storeToBytes(stored), loaded);
        ASSERT_FALSE(loaded.isNull());
        EXPECT_TRUE(*loaded == *stored);
    }
}

TEST(tkClsFtSc, unknownTagLeavesTheHandleAsItWas)
{
    const tkPtrHandle<tkClsFtSc> held = oneSided(0, 1, 2, 0.5, 1).clone();
    tkPtrHandle<tkClsFtSc> handle = held;
    loadFromBytes(std::string("\x07\0\0\0", 4), handle); // reads nothing further
    EXPECT_TRUE(handle == held);
    tkPtrHandle<tkClsFtSc> empty;
    loadFromBytes(std::string("\x07\0\0\0", 4), empty);
    EXPECT_TRUE(empty.isNull());
}

TEST(tkClsFtSc, vectorsLoadedInPlaceKeepWhatTheyHeldForUnknownTags)
{
    const tkPtrHandle<tkClsFtSc> first = tkClassifierFeatureScoreTwoSided().clone();
    const tkPtrHandle<tkClsFtSc> second = tkClassifierFeatureScoreIgnore().clone();
    std::vector<tkPtrHandle<tkClsFtSc>> handles = {first, second};
    // Version 0, three elements: an unknown tag, an ignoring function, an unknown tag.
    loadFromBytes(std::string("\0\x03\0\0\0\x07\0\0\0\x32\x16\0\0\x07\0\0\0", 17), handles);
    ASSERT_EQ(3u, handles.size());
    EXPECT_TRUE(handles[0] == first);
    EXPECT_TRUE(*handles[1] == tkClassifierFeatureScoreIgnore());
    EXPECT_TRUE(handles[2].isNull());
}

TEST(tkClsFtSc, onlyTheThreeClassesCanBeStored)
{
    EXPECT_THROW(storeToBytes(OtherFunction().clone()), tkAssertionFailure);
    EXPECT_THROW(storeToBytes(tkPtrHandle<tkClsFtSc>()), tkBadPointer);
}

TEST(tkClsFtSc, truncatedRecordLeavesTheHandleAsItWas)
{
    const std::string bytes = storeToBytes(tkClassifierFeatureScoreOneSided().clone());
    const tkPtrHandle<tkClsFtSc> held = tkClassifierFeatureScoreIgnore().clone();
    for (std::size_t size = 0; size < bytes.size(); ++size)
    {
        tkPtrHandle<tkClsFtSc> handle = held;
        EXPECT_THROW(loadFromBytes(bytes.substr(0, size), handle), tkArchive::Errors);
        EXPECT_TRUE(handle == held);
    }
}

TEST(tkClsFtSc, recordsStoredEarlierLoadAndAreStoredTheSame)
{
    for (const auto& [file, expected] : {std::make_pair("tkClassifierFeatureScoreIgnore.v0.bin", golden::ignore()),
                                         std::make_pair("tkClassifierFeatureScoreOneSided.v0.bin", golden::oneSided()),
                                         std::make_pair("tkClassifierFeatureScoreTwoSided.v0.bin", golden::twoSided())})
    {
        tkPtrHandle<tkClsFtSc> loaded;
        loadFromBytes(goldenBytes(file), loaded);
        ASSERT_FALSE(loaded.isNull()) << file;
        EXPECT_TRUE(*loaded == *expected) << file;
        EXPECT_EQ(goldenBytes(file), storeToBytes(loaded)) << file;
    }
}
