#include "numerics/tkNMNeighborSearch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <limits>
#include <new>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace
{
constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();

using Row = std::vector<double>;

// The owner of the rows: each one a vector of its own.
class Table : public tkNMNeighborSearch::Rows
{
public:
    std::vector<Row> rows;
    void fetch(const long* indices, long count, const double** fetched) const override
    {
        for (long j = 0; j < count; ++j)
            fetched[j] = rows.at(static_cast<std::size_t>(indices[j])).data();
    }

    long size() const { return static_cast<long>(rows.size()); }
    long columns() const { return rows.empty() ? 0 : static_cast<long>(rows[0].size()); }
};

tkNMNeighborSearch searchOf(const Table& table)
{
    tkNMNeighborSearch search;
    search.update(table, table.size(), table.columns());
    return search;
}

// The definition, word for word.
double distanceOf(const Row& query, const Row& row, double order)
{
    double sum = 0.0;
    for (std::size_t c = 0; c < query.size(); ++c)
        sum += std::pow(std::fabs(query[c] - row[c]), order);
    return std::pow(sum, 1.0 / order);
}

std::vector<double> distancesOf(const Table& table, const Row& query, double order)
{
    std::vector<double> distances;
    for (const Row& row : table.rows)
        distances.push_back(distanceOf(query, row, order));
    return distances;
}

void listOf(const std::vector<double>& all, long k, std::vector<long>& indices, std::vector<double>& distances)
{
    indices.assign(static_cast<std::size_t>(k), 0);
    distances.assign(static_cast<std::size_t>(k), HUGE_VAL);
    long found = 0;
    for (std::size_t i = 0; i < all.size(); ++i)
    {
        const double d = all[i];
        if (found >= k && d >= distances[k - 1])
            continue;
        long pos = 0;
        while (d > distances[pos])
            ++pos;
        if (found < k)
            ++found;
        for (long j = found - 1; j >= pos + 1; --j)
        {
            indices[j] = indices[j - 1];
            distances[j] = distances[j - 1];
        }
        indices[pos] = static_cast<long>(i);
        distances[pos] = d;
    }
    indices.resize(static_cast<std::size_t>(found));
    distances.resize(static_cast<std::size_t>(found));
}

bool sameBits(const std::vector<double>& a, const std::vector<double>& b)
{
    if (a.size() != b.size())
        return false;
    for (std::size_t i = 0; i < a.size(); ++i)
    {
        const bool bothNaN = a[i] != a[i] && b[i] != b[i]; // the sign of a NaN is the processor's affair
        if (!bothNaN && std::memcmp(&a[i], &b[i], sizeof(double)) != 0)
            return false;
    }
    return true;
}

std::vector<tkNMNeighborSearch::Instructions> levels()
{
    std::vector<tkNMNeighborSearch::Instructions> result;
    for (int level = tkNMByteDistances::Portable; level <= tkNMByteDistances::best(); ++level)
        result.push_back(static_cast<tkNMNeighborSearch::Instructions>(level));
    return result;
}

// Compares the lists for some k on every level with the definition; returns the number of comparisons.
long compare(const tkNMNeighborSearch& search, const Table& table, const Row& query, double order,
             const std::vector<long>& ks, const std::string& what)
{
    long comparisons = 0;
    const std::vector<double> all = distancesOf(table, query, order);
    std::vector<long> indices, expectedIndices;
    std::vector<double> distances, expectedDistances;
    for (const long k : ks)
    {
        listOf(all, k, expectedIndices, expectedDistances);
        for (const auto level : levels())
        {
            search.nearest(table, query.data(), order, k, indices, distances, level);
            ++comparisons;
            if (indices != expectedIndices || !sameBits(distances, expectedDistances))
                ADD_FAILURE() << what << ": order " << order << ", k " << k << ", " << table.size() << " rows of "
                              << table.columns() << ", instructions " << level;
        }
    }
    return comparisons;
}

using Random = std::mt19937_64;

double gaussian(Random& random)
{
    return std::normal_distribution<double>()(random);
}

long below(Random& random, long n)
{
    return static_cast<long>(random() % static_cast<unsigned long>(n));
}

struct Kind
{
    const char* name;
    std::function<double(Random&, long column)> measurement;
};

const std::vector<Kind>& kinds()
{
    static const std::vector<Kind> all = {
        {"Gaussian", [](Random& r, long) { return gaussian(r); }},
        {"mixture",
         [](Random& r, long c) { return 5.0 * static_cast<double>(below(r, 4) * (c + 1) % 7) + gaussian(r); }},
        {"lattice", [](Random& r, long) { return static_cast<double>(below(r, 4)); }},
        {"tenths", [](Random& r, long) { return 0.1 * static_cast<double>(below(r, 5)); }},
        {"mixed scales",
         [](Random& r, long c) { return gaussian(r) * std::pow(10.0, static_cast<double>(c % 13 - 6)); }},
        {"offset", [](Random& r, long) { return 1e8 + gaussian(r); }},
        {"ulps apart", [](Random& r, long) { return 1.0 + 0x1p-52 * static_cast<double>(below(r, 6)); }},
        {"heavy tails", [](Random& r, long) { return std::cauchy_distribution<double>()(r); }},
        {"overflowing", [](Random& r, long) { return gaussian(r) * 1e160; }},
        {"large", [](Random& r, long) { return gaussian(r) * 2e89; }},
        {"underflowing", [](Random& r, long) { return gaussian(r) * 1e-160; }},
        {"just underflowing", [](Random& r, long) { return gaussian(r) * 0x1p-482; }},
        {"cubes underflowing", [](Random& r, long) { return gaussian(r) * 1e-107; }},
        {"denormal", [](Random& r, long) { return 5e-324 * static_cast<double>(below(r, 9)); }},
        {"all magnitudes",
         [](Random& r, long) { return std::ldexp(gaussian(r), static_cast<int>(below(r, 520)) - 260); }},
        {"constant column", [](Random& r, long c) { return c % 2 == 0 ? 3.25 : gaussian(r); }},
        {"constant", [](Random&, long) { return -7.5; }},
        {"some infinite",
         [](Random& r, long) { return below(r, 300) == 0   ? infinity
                                      : below(r, 300) == 0 ? -infinity
                                                           : gaussian(r); }},
        {"some not numbers", [](Random& r, long) { return below(r, 200) == 0 ? notANumber : gaussian(r); }},
    };
    return all;
}

Table tableOf(const Kind& kind, Random& random, long numRows, long columns, long duplicatesInHundred)
{
    Table table;
    for (long i = 0; i < numRows; ++i)
    {
        Row row;
        for (long c = 0; c < columns; ++c)
            row.push_back(kind.measurement(random, c));
        if (i > 0 && below(random, 100) < duplicatesInHundred)
            row = table.rows[static_cast<std::size_t>(below(random, i))];
        table.rows.push_back(row);
    }
    return table;
}

Row queryOf(const Kind& kind, Random& random, const Table& table)
{
    Row query;
    switch (below(random, 6))
    {
    case 0: // a stored row
        return table.rows[static_cast<std::size_t>(below(random, table.size()))];
    case 1: // one measurement beside a stored row
        query = table.rows[static_cast<std::size_t>(below(random, table.size()))];
        query[static_cast<std::size_t>(below(random, table.columns()))] = kind.measurement(random, 0);
        return query;
    case 2: // far away
        for (long c = 0; c < table.columns(); ++c)
            query.push_back(kind.measurement(random, c) * 1e3 + 1e4);
        return query;
    default:
        for (long c = 0; c < table.columns(); ++c)
            query.push_back(kind.measurement(random, c));
        return query;
    }
}

constexpr double orders[] = {2.0, 1.0, 3.0, 0.5, 7.5, 1.5, 2.0, 4.0};
} // namespace

TEST(tkNMNeighborSearch, listsHaveTheBitsOfTheDefinitionOnEveryKindOfDataAndEveryLevel)
{
    Random random(20240229);
    long comparisons = 0;
    for (int round = 0; round < 46; ++round)
        for (const Kind& kind : kinds())
        {
            const long numRows = round % 23 == 22 ? 2000 + below(random, 1200) : 1 + below(random, 520);
            const long columns = round % 8 == 7 ? 17 + below(random, 50) : 1 + below(random, 9);
            const Table table = tableOf(kind, random, numRows, columns, round % 3 == 2 ? 60 : 0);
            const tkNMNeighborSearch search = searchOf(table);
            for (const double order : orders)
            {
                const Row query = queryOf(kind, random, table);
                std::vector<long> ks = {1, 2, 3, 5, 1 + below(random, 20), 1 + below(random, numRows + 3)};
                if (round % 4 == 0)
                    ks.insert(ks.end(), {numRows, numRows + 1, numRows + 3});
                comparisons += compare(search, table, query, order, ks, kind.name);
            }
        }
    const long perLevel = comparisons / static_cast<long>(levels().size());
    EXPECT_GE(perLevel, 40000);
    RecordProperty("comparisons", static_cast<int>(comparisons));
}
