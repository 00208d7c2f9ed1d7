#include "numerics/tkNMTail.h"

#include "tkTest.h"

#include "foundation/tkAssert.h"

#include <cmath>
#include <fstream>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

namespace
{
const double infinity = std::numeric_limits<double>::infinity();
const double notANumber = std::numeric_limits<double>::quiet_NaN();

double tailOf(const std::string& word, const std::vector<double>& x)
{
    if (word == "f")
        return tkNMTail::lnF(x[0], x[1], x[2]);
    if (word == "chisquared")
        return tkNMTail::lnChiSquared(x[0], static_cast<long>(x[1]));
    return tkNMTail::lnBinomial(static_cast<long>(x[0]), static_cast<long>(x[1]), x[2]);
}
} // namespace

TEST(tkNMTail, logarithmsAreThoseOfSixtyDigits)
{
    std::ifstream table(CLASTOOL_REFERENCE_DIR "/tails.csv");
    ASSERT_TRUE(table.is_open());
    std::map<std::string, long> counts;
    double least = 0.0;
    for (std::string line; std::getline(table, line);)
    {
        std::istringstream fields(line);
        std::string word;
        std::getline(fields, word, ',');
        std::vector<double> numbers;
        for (std::string field; std::getline(fields, field, ',');)
            numbers.push_back(std::stod(field));
        ASSERT_GE(numbers.size(), 3u) << line;
        const double expected = numbers.back();
        numbers.pop_back();
        const double error = std::fabs(tailOf(word, numbers) / expected - 1.0);
        EXPECT_LT(error, 1e-11) << line;
        ++counts[word];
        least = std::min(least, expected);
    }
    EXPECT_LT(1000, counts["f"]);
    EXPECT_LT(60, counts["chisquared"]);
    EXPECT_LT(130, counts["binomial"]);
    EXPECT_LT(least, -10000.0);
}

TEST(tkNMTail, fTailsFallAsTheVariableGrows)
{
    for (const double numerator : {1.0, 3.0, 20.0, 5000.0})
        for (const double denominator : {1.0, 3.5, 20.0, 5000.0})
        {
            double last = 0.0;
            for (double x = 1e-3; x < 1e12; x *= 1.01)
            {
                const double tail = tkNMTail::lnF(x, numerator, denominator);
                EXPECT_LE(tail, last) << x << " " << numerator << " " << denominator;
                last = tail;
            }
            EXPECT_LT(last, -5.0);
        }
}

TEST(tkNMTail, fIsOneAtZeroAndImpossibleAtInfinity)
{
    EXPECT_EQ(0.0, tkNMTail::lnF(0.0, 3.0, 4.0));
    EXPECT_EQ(-infinity, tkNMTail::lnF(infinity, 3.0, 4.0));
    EXPECT_GT(tkNMTail::lnF(std::numeric_limits<double>::max(), 3.0, 4.0), -infinity);
    EXPECT_EQ(0.0, tkNMTail::lnF(5e-324, 3.0, 4.0));
}

TEST(tkNMTail, fWithTwoDegreesInTheNumeratorIsAPower)
{
    for (const double denominator : {1.0, 2.0, 7.0, 300.0})
        for (const double x : {0.01, 1.0, 4.0, 1e3, 1e150})
        {
            const double expected = -0.5 * denominator * std::log1p(2.0 / denominator * x);
            EXPECT_NEAR(expected, tkNMTail::lnF(x, 2.0, denominator), 1e-13 * std::fabs(expected)) << x;
        }
}

TEST(tkNMTail, fOfTheReciprocalIsTheComplement)
{
    for (const double x : {0.2, 0.9, 1.0, 1.3, 4.0})
    {
        const double upper = std::exp(tkNMTail::lnF(x, 5.0, 12.0));
        const double lower = std::exp(tkNMTail::lnF(1.0 / x, 12.0, 5.0));
        EXPECT_NEAR(1.0, upper + lower, 1e-14) << x;
    }
}

TEST(tkNMTail, chiSquaredOfTwoDegreesIsAnExponential)
{
    for (const double h : {1e-300, 1e-9, 0.5, 1.0, 50.0, 1e5, 1e300})
        EXPECT_EQ(-h, tkNMTail::lnChiSquared(h, 1));
}

TEST(tkNMTail, chiSquaredFallsWithHAndGrowsWithTheDegrees)
{
    for (const long m : {1L, 2L, 9L, 300L})
    {
        double last = 0.0;
        for (double h = 1e-3; h < 1e6; h *= 1.01)
        {
            const double tail = tkNMTail::lnChiSquared(h, m);
            EXPECT_LE(tail, last) << h << " " << m;
            EXPECT_LE(tail, tkNMTail::lnChiSquared(h, m + 1)) << h << " " << m;
            last = tail;
        }
    }
    EXPECT_EQ(0.0, tkNMTail::lnChiSquared(0.0, 3));
    EXPECT_EQ(-infinity, tkNMTail::lnChiSquared(infinity, 3));
}

TEST(tkNMTail, binomialEndsAreCertainAndImpossible)
{
    EXPECT_EQ(0.0, tkNMTail::lnBinomial(0, 7, 0.25));
    EXPECT_EQ(0.0, tkNMTail::lnBinomial(-3, 7, 0.25));
    EXPECT_EQ(-infinity, tkNMTail::lnBinomial(8, 7, 0.25));
    EXPECT_EQ(0.0, tkNMTail::lnBinomial(0, 0, 0.25));
    EXPECT_EQ(-infinity, tkNMTail::lnBinomial(1, 0, 0.25));
    EXPECT_NEAR(7.0 * std::log(0.25), tkNMTail::lnBinomial(7, 7, 0.25), 1e-14);
    EXPECT_NEAR(std::log1p(-std::pow(0.75, 7.0)), tkNMTail::lnBinomial(1, 7, 0.25), 1e-15);
}

TEST(tkNMTail, betaOfSwappedArgumentsIsTheComplement)
{
    for (const double w : {1e-9, 0.1, 0.4, 0.6, 0.999})
    {
        const double sum = std::exp(tkNMTail::lnIncompleteBeta(w, 1.0 - w, 2.5, 0.75)) +
                           std::exp(tkNMTail::lnIncompleteBeta(1.0 - w, w, 0.75, 2.5));
        EXPECT_NEAR(1.0, sum, 1e-14) << w;
    }
    EXPECT_EQ(-infinity, tkNMTail::lnIncompleteBeta(0.0, 1.0, 2.0, 3.0));
    EXPECT_EQ(0.0, tkNMTail::lnIncompleteBeta(1.0, 0.0, 2.0, 3.0));
}

TEST(tkNMTail, argumentsOutOfTheirDomainAreBugs)
{
    for (const double wrong : {-1.0, notANumber})
    {
        EXPECT_THROW(tkNMTail::lnF(wrong, 1.0, 1.0), tkAssertionFailure);
        EXPECT_THROW(tkNMTail::lnF(1.0, wrong, 1.0), tkAssertionFailure);
        EXPECT_THROW(tkNMTail::lnF(1.0, 1.0, wrong), tkAssertionFailure);
        EXPECT_THROW(tkNMTail::lnChiSquared(wrong, 1), tkAssertionFailure);
        EXPECT_THROW(tkNMTail::lnBinomial(1, 2, wrong), tkAssertionFailure);
        EXPECT_THROW(tkNMTail::lnIncompleteBeta(wrong, 0.5, 1.0, 1.0), tkAssertionFailure);
        EXPECT_THROW(tkNMTail::lnIncompleteBeta(0.5, 0.5, wrong, 1.0), tkAssertionFailure);
        EXPECT_THROW(tkNMTail::lnIncompleteBeta(0.5, 0.5, 1.0, wrong), tkAssertionFailure);
    }
    EXPECT_THROW(tkNMTail::lnChiSquared(1.0, 0), tkAssertionFailure);
    EXPECT_THROW(tkNMTail::lnBinomial(1, -1, 0.5), tkAssertionFailure);
    for (const double p : {0.0, 1.0})
        EXPECT_THROW(tkNMTail::lnBinomial(1, 2, p), tkAssertionFailure);
    EXPECT_THROW(tkNMTail::lnIncompleteBeta(1.5, -0.5, 1.0, 1.0), tkAssertionFailure);
}
