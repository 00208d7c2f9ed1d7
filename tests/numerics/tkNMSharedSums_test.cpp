#include "numerics/tkNMSharedSums.h"

#include "tkTest.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iterator>
#include <limits>
#include <map>
#include <random>
#include <utility>
#include <vector>

namespace
{
using Exceptions = std::vector<tkNMSharedSums::Exception>;

/// The product of the definition: each sum on its own; of several exceptions for one i and j the last counts.
std::vector<double> plainSums(const std::vector<double>& terms, const Exceptions& exceptions)
{
    std::map<std::pair<std::size_t, std::size_t>, double> other;
    for (const tkNMSharedSums::Exception& e : exceptions)
        other[{e.sum, e.place}] = e.term;
    std::vector<double> sums;
    for (std::size_t i = 0; i < terms.size(); ++i)
    {
        double sum = 0.0;
        for (std::size_t j = 0; j < terms.size(); ++j)
        {
            if (j == i)
                continue;
            const auto found = other.find({i, j});
            sum += found != other.end() ? found->second : terms[j];
        }
        sums.push_back(sum);
    }
    return sums;
}

bool haveSameBits(const std::vector<double>& a, const std::vector<double>& b)
{
    const auto same = [](double x, double y)
    { return (std::isnan(x) && std::isnan(y)) || std::memcmp(&x, &y, sizeof x) == 0; };
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), same);
}

/// Whether every level gives the sums of the definition, and writes nothing behind them.
void expectPlainSums(std::vector<double> terms, Exceptions exceptions)
{
    constexpr std::size_t group = tkNMSharedSums::group;
    const std::vector<double> expected = plainSums(terms, exceptions);
    std::stable_sort(exceptions.begin(), exceptions.end(),
                     [](const tkNMSharedSums::Exception& a, const tkNMSharedSums::Exception& b)
                     { return std::make_pair(a.place / group, a.sum) < std::make_pair(b.place / group, b.sum); });
    const std::size_t n = terms.size();
    terms.resize((n + group - 1) / group * group);
    for (int level = tkNMTriangle::ePlain; level <= tkNMTriangle::bestLevel(); ++level)
    {
        std::vector<double> sums(terms.size() + 1, 7.0);
        Exceptions used = exceptions;
        tkNMSharedSums::compute(sums.data(), terms.data(), terms.size(), used.data(), used.size(),
                                static_cast<tkNMTriangle::Level>(level));
        EXPECT_EQ(7.0, sums.back());
        sums.resize(n);
        EXPECT_TRUE(haveSameBits(expected, sums)) << n << " sums on level " << level;
    }
}

const std::size_t counts[] = {0, 1, 2, 7, 8, 9, 15, 16, 17, 31, 33, 63, 64, 65, 200};
} // namespace

TEST(tkNMSharedSums, everyLevelHasTheBitsOfTheFormula)
{
    std::mt19937_64 generator(1);
    std::normal_distribution<double> deviate;
    for (const std::size_t n : counts)
        for (int round = 0; round < 20; ++round)
        {
            std::vector<double> terms(n);
            for (double& term : terms)
                term = std::ldexp(deviate(generator), static_cast<int>(generator() % 60));
            Exceptions exceptions;
            for (std::size_t k = n > 1 ? generator() % (3 * n) : 0; k > 0; --k)
            {
                const std::size_t i = generator() % n;
                const std::size_t j = generator() % n;
                if (i != j)
                    exceptions.push_back({i, j, deviate(generator)});
            }
            expectPlainSums(terms, {});
            expectPlainSums(terms, exceptions);
        }
}

TEST(tkNMSharedSums, exceptionsMayStandAtEveryPlaceOfAGroupAndReplaceOneAnother)
{
    std::vector<double> terms;
    for (int i = 0; i < 24; ++i)
        terms.push_back(1.0 / (3.0 + i));
    Exceptions all;
    for (std::size_t i = 0; i < terms.size(); ++i)
        for (std::size_t j = 0; j < terms.size(); ++j)
            if (i != j)
            {
                const tkNMSharedSums::Exception e{i, j, std::sqrt(2.0 + static_cast<double>(24 * i + j))};
                expectPlainSums(terms, {e});
                expectPlainSums(terms, {{i, j, 5.0}, e, {i, (j + 1) % 24 == i ? (j + 2) % 24 : (j + 1) % 24, 0.3}});
                all.push_back(e);
            }
    expectPlainSums(terms, all);
}

TEST(tkNMSharedSums, hostileTermsAreAddedAsTheyStand)
{
    const double values[] = {0.0,
                             -0.0,
                             1.0,
                             -1.0,
                             5e-324,
                             -5e-324,
                             1e308,
                             -1e308,
                             std::numeric_limits<double>::infinity(),
                             -std::numeric_limits<double>::infinity(),
                             std::numeric_limits<double>::quiet_NaN()};
    std::mt19937_64 generator(2);
    for (const std::size_t n : counts)
        for (std::size_t kinds = 2; kinds <= std::size(values); ++kinds)
        {
            std::vector<double> terms(n);
            for (double& term : terms)
                term = values[generator() % kinds];
            Exceptions exceptions;
            for (std::size_t k = n; n > 1 && k > 0; --k)
            {
                const std::size_t i = generator() % n;
                exceptions.push_back({i, (i + 1 + generator() % (n - 1)) % n, values[generator() % kinds]});
            }
            expectPlainSums(terms, exceptions);
        }
}
