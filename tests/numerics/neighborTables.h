#ifndef TESTS_NUMERICS_NEIGHBORTABLES_H
#define TESTS_NUMERICS_NEIGHBORTABLES_H

#include "numerics/kernels/tkNMNeighborFilter.h"
#include "numerics/kernels/tkNMNeighborScan.h"
#include "numerics/tkNMNeighborSearch.h"

#include "instructionSets.h"
#include "tests/definition/neighbours.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

/// Tables of rows of many kinds, and searches in them held to the definition.
namespace neighborTables
{
constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();

using Row = std::vector<double>;

/// The owner of the rows: each one a vector of its own.
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

/// The rows of a set of neighbours, in any order.
inline bool sameSet(const std::vector<long>& a, const std::vector<long>& b)
{
    return std::is_permutation(a.begin(), a.end(), b.begin(), b.end());
}

class CountingTable : public Table
{
public:
    mutable long numFetched = 0;

    void fetch(const long* indices, long count, const double** fetched) const override
    {
        numFetched += count;
        Table::fetch(indices, count, fetched);
    }
};

/// A search, and beside it both of its kernels, each of which has to be right for all numbers of rows and neighbours.
class Search : public tkNMNeighborSearch
{
public:
    std::unique_ptr<tkNMNeighborFilter> filter;
    std::unique_ptr<tkNMNeighborScan> scan;

    void update(const Table& table, long numRows, long columns)
    {
        const bool goesOn = filter && columns == numColumns() && numRows >= this->numRows();
        tkNMNeighborSearch::update(table, numRows, columns);
        if (!goesOn)
        {
            filter = std::make_unique<tkNMNeighborFilter>(columns);
            scan = std::make_unique<tkNMNeighborScan>(columns);
        }
        areInReach_ = true;
        for (long i = 0; i < numRows; ++i)
            areInReach_ = areInReach_ && isInReach(table.rows[static_cast<std::size_t>(i)]);
        if (!areInReach_)
            return;
        filter->update(table, numRows);
        scan->update(table, numRows);
    }

    bool haveKernels(const Row& query, double order, long k) const
    {
        return areInReach_ && filter->numRows() == numRows() && scan->numRows() == numRows() && isInReach(query) &&
               order >= 1.0 && order <= 64.0 && k < numRows() && !query.empty();
    }

private:
    static bool isInReach(const Row& row)
    {
        return std::all_of(row.begin(), row.end(), [](double value) { return std::fabs(value) <= 1e90; });
    }

    bool areInReach_ = false;
};

inline Search searchOf(const Table& table)
{
    Search search;
    search.update(table, table.size(), table.columns());
    return search;
}

inline void nearest(const tkNMNeighborSearch& search, const Table& table, const double* query, double order, long k,
                    std::vector<long>& indices, std::vector<double>& distances,
                    tkNMInstructions level = tkNMBestInstructions())
{
    const long size = std::min(k, search.numRows());
    indices.resize(static_cast<std::size_t>(std::max(size, 0L)));
    distances.resize(2 * indices.size());
    EXPECT_EQ(size, search.nearest(table, query, order, k, indices.data(), distances.data(), level));
    distances.resize(indices.size());
}

inline std::vector<double> distancesOf(const Table& table, const Row& query, double order)
{
    std::vector<double> distances;
    for (const Row& row : table.rows)
        distances.push_back(definition::normDistance(order, query, row));
    return distances;
}

inline bool sameBits(const std::vector<double>& a, const std::vector<double>& b)
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

/// Compares list and set by every kernel with the definition, of which `all` are the distances.
inline void compareSearch(const tkNMNeighborSearch& search, const Table& table, const Row& query, double order, long k,
                          const std::vector<double>& all, const std::string& what)
{
    const definition::NeighbourList expected = definition::neighbours(all, k);
    std::vector<long> indices;
    std::vector<double> distances;
    for (const auto level : kernelSets())
    {
        const auto where = [&]
        {
            std::ostringstream text;
            text << what << ": order " << order << ", k " << k << ", " << table.size() << " rows of " << table.columns()
                 << ", by " << level;
            return text.str();
        };
        nearest(search, table, query.data(), order, k, indices, distances, level);
        if (indices != expected.indices() || !sameBits(distances, expected.distances()))
            ADD_FAILURE() << "list of " << where();
        distances.resize(2 * indices.size());
        std::fill(indices.begin(), indices.end(), -1L);
        search.nearestSet(table, query.data(), order, k, indices.data(), distances.data(), level);
        if (!sameSet(indices, expected.indices()))
            ADD_FAILURE() << "set of " << where();
    }
}

/// The same by one kernel.
template <class Kernel>
void compareKernel(const Kernel& kernel, const Table& table, const Row& query, double order, long k,
                   const std::vector<double>& all, const std::string& what)
{
    const definition::NeighbourList expected = definition::neighbours(all, k);
    std::vector<double> distances(2 * static_cast<std::size_t>(k));
    for (const auto level : kernelSets())
        for (const bool asSet : {false, true})
        {
            if (asSet != (k % 2 == 0)) // one of both takes half the time
                continue;
            std::vector<long> indices(static_cast<std::size_t>(k), -1);
            distances.resize(2 * indices.size());
            kernel.search(table, query.data(), order, k, asSet, indices.data(), distances.data(), level);
            distances.resize(indices.size());
            const bool isRight = asSet ? sameSet(indices, expected.indices())
                                       : indices == expected.indices() && sameBits(distances, expected.distances());
            if (!isRight)
                ADD_FAILURE() << what << (asSet ? ", set" : ", list") << " by a kernel: order " << order << ", k " << k
                              << ", " << table.size() << " rows of " << table.columns() << ", by " << level;
        }
}

/// Compares for some k, and returns the number of lists of a kernel that were compared. The search's own Definition,
/// which takes as long as the definition in the tests, is compared for the first k alone.
inline long compare(const Search& search, const Table& table, const Row& query, double order,
                    const std::vector<long>& ks, const std::string& what)
{
    const std::vector<double> all = distancesOf(table, query, order);
    std::vector<long> indices;
    std::vector<double> distances;
    nearest(search, table, query.data(), order, ks.front(), indices, distances, tkNMInstructions::Definition);
    const definition::NeighbourList expected = definition::neighbours(all, ks.front());
    if (indices != expected.indices() || !sameBits(distances, expected.distances()))
        ADD_FAILURE() << what << ": order " << order << ", " << table.size() << " rows by definition";
    long numByKernels = 0;
    for (std::size_t i = 0; i < ks.size(); ++i)
    {
        compareSearch(search, table, query, order, ks[i], all, what);
        if (!search.haveKernels(query, order, ks[i]))
            continue;
        numByKernels += i % 3 != 2 ? static_cast<long>(kernelSets().size()) : 0;
        if (i % 3 == 0)
            compareKernel(*search.filter, table, query, order, ks[i], all, what + ", filter");
        if (i % 3 == 1)
            compareKernel(*search.scan, table, query, order, ks[i], all, what + ", scan");
    }
    return numByKernels;
}

using Random = std::mt19937_64;

inline double gaussian(Random& random)
{
    return std::normal_distribution<double>()(random);
}

inline long below(Random& random, long n)
{
    return static_cast<long>(random() % static_cast<unsigned long>(n));
}

struct Kind
{
    const char* name;
    std::function<double(Random&, long column)> measurement;
};

inline const std::vector<Kind>& kinds()
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
        {"zeros of both signs", [](Random& r, long) { return below(r, 8) == 0   ? 1.0
                                                             : below(r, 2) == 0 ? 0.0
                                                                                : -0.0; }},
        {"quantised", [](Random& r, long) { return 0.25 * std::round(4.0 * gaussian(r)); }},
        {"some infinite",
         [](Random& r, long) { return below(r, 300) == 0   ? infinity
                                      : below(r, 300) == 0 ? -infinity
                                                           : gaussian(r); }},
        {"some not numbers", [](Random& r, long) { return below(r, 200) == 0 ? notANumber : gaussian(r); }},
    };
    return all;
}

inline Table tableOf(const Kind& kind, Random& random, long numRows, long columns, long duplicatesInHundred)
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

inline Row queryOf(const Kind& kind, Random& random, const Table& table)
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
    case 2: // far away in all columns or in some
    {
        const double far = std::pow(10.0, static_cast<double>(below(random, 24) - 3));
        const long share = below(random, 3);
        for (long c = 0; c < table.columns(); ++c)
            query.push_back(kind.measurement(random, c) * (1.0 + far) + (below(random, 3) >= share ? far : 0.0));
        return query;
    }
    default:
        for (long c = 0; c < table.columns(); ++c)
            query.push_back(kind.measurement(random, c));
        return query;
    }
}

constexpr double orders[] = {2.0, 1.0, 3.0, 0.5, 7.5, 1.5, 2.0, 4.0};
} // namespace neighborTables

#endif
