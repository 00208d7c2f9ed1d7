#include "numerics/tkNMNeighborSearch.h"

#include "foundation/tkAssert.h"
#include "numerics/kernels/tkNMByteDistances.h"
#include "numerics/kernels/tkNMNeighborFilter.h"
#include "numerics/kernels/tkNMNeighborScan.h"
#include "numerics/tkNMElementary.h"

#include "instructionSets.h"
#include "tkAllocations.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <random>
#include <sstream>
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

// The rows of a set of neighbours, in any order.
bool sameSet(const std::vector<long>& a, const std::vector<long>& b)
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

// A search, and beside it both of its kernels, each of which has to be right for all numbers of rows and neighbours.
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

Search searchOf(const Table& table)
{
    Search search;
    search.update(table, table.size(), table.columns());
    return search;
}

void nearest(const tkNMNeighborSearch& search, const Table& table, const double* query, double order, long k,
             std::vector<long>& indices, std::vector<double>& distances,
             tkNMInstructions level = tkNMBestInstructions())
{
    const long size = std::min(k, search.numRows());
    indices.resize(static_cast<std::size_t>(std::max(size, 0L)));
    distances.resize(2 * indices.size());
    EXPECT_EQ(size, search.nearest(table, query, order, k, indices.data(), distances.data(), level));
    distances.resize(indices.size());
}

// The definition, word for word.
double distanceOf(const Row& query, const Row& row, double order)
{
    double sum = 0.0;
    for (std::size_t c = 0; c < query.size(); ++c)
        sum += tkNMElementary::pow(std::fabs(query[c] - row[c]), order);
    return tkNMElementary::pow(sum, 1.0 / order);
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

// Compares list and set by every kernel with the transcription above, of which `all` are the distances.
void compareSearch(const tkNMNeighborSearch& search, const Table& table, const Row& query, double order, long k,
                   const std::vector<double>& all, const std::string& what)
{
    std::vector<long> indices, expectedIndices;
    std::vector<double> distances, expectedDistances;
    listOf(all, k, expectedIndices, expectedDistances);
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
        if (indices != expectedIndices || !sameBits(distances, expectedDistances))
            ADD_FAILURE() << "list of " << where();
        distances.resize(2 * indices.size());
        std::fill(indices.begin(), indices.end(), -1L);
        search.nearestSet(table, query.data(), order, k, indices.data(), distances.data(), level);
        if (!sameSet(indices, expectedIndices))
            ADD_FAILURE() << "set of " << where();
    }
}

// The same by one kernel.
template <class Kernel>
void compareKernel(const Kernel& kernel, const Table& table, const Row& query, double order, long k,
                   const std::vector<double>& all, const std::string& what)
{
    std::vector<long> expectedIndices;
    std::vector<double> expectedDistances;
    listOf(all, k, expectedIndices, expectedDistances);
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
            const bool isRight = asSet ? sameSet(indices, expectedIndices)
                                       : indices == expectedIndices && sameBits(distances, expectedDistances);
            if (!isRight)
                ADD_FAILURE() << what << (asSet ? ", set" : ", list") << " by a kernel: order " << order << ", k " << k
                              << ", " << table.size() << " rows of " << table.columns() << ", by " << level;
        }
}

// Compares for some k, and returns the number of lists of a kernel that were compared. The search's own Definition,
// which takes as long as the transcription, is compared for the first k alone.
long compare(const Search& search, const Table& table, const Row& query, double order, const std::vector<long>& ks,
             const std::string& what)
{
    const std::vector<double> all = distancesOf(table, query, order);
    std::vector<long> indices, expectedIndices;
    std::vector<double> distances, expectedDistances;
    nearest(search, table, query.data(), order, ks.front(), indices, distances, tkNMInstructions::Definition);
    listOf(all, ks.front(), expectedIndices, expectedDistances);
    if (indices != expectedIndices || !sameBits(distances, expectedDistances))
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
} // namespace

class tkNMNeighborSearchData : public ::testing::TestWithParam<int>
{
};

// Over all kinds of data 109,200 lists by the search, and some 49,000 of each instruction set by a kernel.
TEST_P(tkNMNeighborSearchData, listsHaveTheBitsOfTheDefinitionOfEveryInstructionSet)
{
    const Kind& kind = kinds()[static_cast<std::size_t>(GetParam())];
    Random random(static_cast<unsigned long>(GetParam()));
    long comparisons = 0;
    for (int round = 0; round < 50; ++round)
    {
        const long numRows = round % 20 == 19 ? 2000 + below(random, 1200) : 1 + below(random, 520);
        const long columns = round % 10 == 7 ? 17 + below(random, 40) : 1 + below(random, 9);
        const Table table = tableOf(kind, random, numRows, columns, round % 3 == 2 ? 60 : 0);
        const Search search = searchOf(table);
        for (const double order : orders)
            comparisons += compare(search, table, queryOf(kind, random, table), order,
                                   {1, 2, 3, 4, 5, 7, 10, 15, 1 + below(random, 20), 1 + below(random, 60),
                                    1 + below(random, numRows + 3), numRows, numRows + 3},
                                   kind.name);
    }
    // Of these kinds, sets with such a value go to the definition alone.
    const std::string name = kind.name;
    const bool isOftenOutOfReach = name == "overflowing" || name == "some infinite" || name == "some not numbers";
    EXPECT_GT(comparisons, isOftenOutOfReach ? -1 : 2000 * static_cast<long>(kernelSets().size()));
    EXPECT_GE(kernelSets().size(), 1u);
}

INSTANTIATE_TEST_SUITE_P(Kinds, tkNMNeighborSearchData, ::testing::Range(0, static_cast<int>(kinds().size())),
                         [](const ::testing::TestParamInfo<int>& parameter)
                         {
                             std::string name;
                             for (const char letter :
                                  std::string(kinds()[static_cast<std::size_t>(parameter.param)].name))
                                 name += letter == ' ' ? '_' : letter;
                             return name;
                         });

// The sizes that users have, on both sides of the bound between copied and quantised rows.
TEST(tkNMNeighborSearch, smallAndLargeSetsHaveTheBitsOfTheDefinition)
{
    Random random(29);
    for (const long numRows : {30, 100, 400, 1000, 4000, 10000})
        for (const long columns : {2, 6, 16, 64})
            for (const std::size_t kind : {0u, 3u})
            {
                const Table table = tableOf(kinds()[kind], random, numRows, columns, kind == 0 ? 0 : 30);
                tkNMNeighborSearch search;
                search.update(table, numRows, columns);
                const long numQueries = numRows <= 1000 ? 4 : 1;
                for (long q = 0; q < numQueries; ++q)
                    for (const double order : {2.0, 1.0, 1.5, 3.0, 7.5})
                    {
                        const Row query = queryOf(kinds()[kind], random, table);
                        const std::vector<double> all = distancesOf(table, query, order);
                        for (const long k : {1, 5, 25})
                            compareSearch(search, table, query, order, k, all, "grid");
                    }
            }
}

// As many rows as one, two or three levels of minima have room for, and one less and more; kinds whose keys are
// all different, equal, zero, denormal or as large as can be.
TEST(tkNMNeighborSearch, fewNeighboursAtTheLimitsOfTheLevelsOfMinima)
{
    Random random(31);
    for (const long numRows : {8, 9, 31, 32, 33, 127, 128, 129, 511, 512, 513, 1500, 2047, 2048, 2049})
        for (const std::size_t kind : {0u, 2u, 9u, 11u, 13u, 16u, 18u})
        {
            const Table table = tableOf(kinds()[kind], random, numRows, 2, 0);
            const Search search = searchOf(table);
            for (const double order : {2.0, 1.0, 3.0, 2.5, 64.0, 1.7})
            {
                const Row query = queryOf(kinds()[kind], random, table);
                const std::vector<double> all = distancesOf(table, query, order);
                for (const long k : {1, 2, 6, 7, 8})
                {
                    compareSearch(search, table, query, order, k, all, kinds()[kind].name);
                    if (search.haveKernels(query, order, k))
                        compareKernel(*search.scan, table, query, order, k, all, kinds()[kind].name);
                }
            }
        }
}

// The nearest rows side by side, in one group of every level, and in one place of successive groups.
TEST(tkNMNeighborSearch, fewNeighboursThatStandTogether)
{
    Random random(32);
    for (const long stride : {1, 8, 32, 128, 200, 512})
    {
        Table table = tableOf(kinds()[0], random, 2048, 3, 0);
        const long first = below(random, 32);
        for (long i = 0; i < 4; ++i)
            table.rows[static_cast<std::size_t>((first + i * stride) % 2048)] = {50.0 + gaussian(random), 50.0, 50.0};
        const Search search = searchOf(table);
        const Row query = {50.0, 51.0, 50.0};
        const std::vector<double> all = distancesOf(table, query, 2.0);
        for (const long k : {1, 2, 3, 4, 5, 7})
            compareSearch(search, table, query, 2.0, k, all, "together");
    }
}

TEST(tkNMNeighborSearch, rowsThatArriveOneByOneOrFarOutsideTheFirstOnesChangeNothing)
{
    for (const bool oneByOne : {true, false})
    {
        Random random(7);
        Table table;
        Search search;
        for (long i = 0; i < 3000; ++i)
        {
            // Later rows lie elsewhere, wider and wider, and the last ones nearer together again.
            const double shift = i < 500 ? 0.0 : i < 2000 ? static_cast<double>(i) : -100.0;
            const double width = i < 500 ? 1.0 : i < 2000 ? 50.0 : 0.25;
            Row row;
            for (long c = 0; c < 5; ++c)
                row.push_back(shift + width * gaussian(random));
            table.rows.push_back(row);
            if (oneByOne || i % 177 == 0 || i == 2999)
                search.update(table, table.size(), 5);
            if (search.numRows() == table.size() && (i < 150 || i % 59 == 0))
                for (const double order : {2.0, 1.0})
                    compare(search, table, queryOf(kinds()[0], random, table), order, {1, 4, 70}, "arriving");
        }
    }
}

TEST(tkNMNeighborSearch, takingRowsInCostsAmortisedConstantTime)
{
    Random random(8);
    const Table all = tableOf(kinds()[0], random, 40000, 3, 0);
    CountingTable table;
    tkNMNeighborSearch search;
    for (const Row& row : all.rows)
    {
        table.rows.push_back(row);
        search.update(table, table.size(), 3);
    }
    EXPECT_LE(table.numFetched, 6 * 40000);
}

TEST(tkNMNeighborSearch, nearlyAllRowsAreRuledOutUnseen)
{
    Random random(9);
    CountingTable table;
    for (const Row& row : tableOf(kinds()[0], random, 20000, 8, 0).rows)
        table.rows.push_back(row);
    const Search search = searchOf(table);
    std::vector<long> indices;
    std::vector<double> distances;
    for (const auto level : kernelSets())
        for (const double order : {2.0, 1.0, 3.0, 1.5, 2.5})
        {
            table.numFetched = 0;
            for (int i = 0; i < 20; ++i)
                nearest(search, table, table.rows[static_cast<std::size_t>(i * 37)].data(), order, 3, indices,
                        distances, level);
            EXPECT_LE(table.numFetched, 20 * 200) << "order " << order << ", by " << level;
        }
}

// In one column the triangle inequality is tight, so that a rounding error taken too small shows at once: bytes are
// the whole numbers here, every block ends with a row that is one, and all others lie 0.45 away from theirs.
TEST(tkNMNeighborSearch, theLargestRoundingErrorOfABlockCounts)
{
    Random random(22);
    Table table;
    for (long i = 0; i < 1280; ++i)
    {
        const double size =
            i % 64 == 63 ? 127.0 : 10.55 + static_cast<double>(below(random, 100)) + 1e-4 * gaussian(random);
        table.rows.push_back({i % 128 < 64 ? size : -size});
    }
    const Search search = searchOf(table);
    for (int whole = -9; whole < 10; ++whole)
        for (const double order : {1.0, 2.0, 3.0, 1.5, 4.0})
            compare(search, table, {static_cast<double>(whole)}, order, {1, 2, 3, 30}, "tight bounds");
}

TEST(tkNMNeighborSearch, outliersDoNotSpoilTheFilter)
{
    Random random(10);
    CountingTable table;
    for (const Row& row : tableOf(kinds()[0], random, 20000, 8, 0).rows)
        table.rows.push_back(row);
    for (std::size_t i = 0; i < 20; ++i)
        table.rows[i * 999][i % 8] = 1e30;
    const Search search = searchOf(table);
    compare(search, table, table.rows[500], 2.0, {1, 3, 7}, "outliers");
    table.numFetched = 0;
    std::vector<long> indices;
    std::vector<double> distances;
    nearest(search, table, table.rows[500].data(), 2.0, 3, indices, distances);
    EXPECT_LE(table.numFetched, 200);
}

TEST(tkNMNeighborSearch, theFilterFollowsRowsThatLieElsewhereThanTheFirstOnes)
{
    Random random(21);
    CountingTable table;
    tkNMNeighborSearch search;
    for (long i = 0; i < 20000; ++i)
    {
        table.rows.push_back({gaussian(random), gaussian(random), gaussian(random), gaussian(random)});
        if (i >= 200)
            for (double& measurement : table.rows.back())
                measurement = 100.0 + 10.0 * measurement;
        search.update(table, table.size(), 4);
    }
    table.numFetched = 0;
    std::vector<long> indices;
    std::vector<double> distances;
    nearest(search, table, table.rows[5000].data(), 2.0, 3, indices, distances);
    EXPECT_LE(table.numFetched, 200);
}

TEST(tkNMNeighborSearch, dataThatDefeatTheFilterAreReadOnce)
{
    Random random(11);
    CountingTable table;
    for (const Row& row : tableOf(kinds()[0], random, 20000, 8, 0).rows)
        table.rows.push_back(row);
    for (std::size_t i = 0; i < 20000; i += 20)
        table.rows[i][i / 20 % 8] = 1e9; // in every block
    const Search search = searchOf(table);
    const Row query(8, 1e6);
    table.numFetched = 0;
    std::vector<long> indices;
    std::vector<double> distances;
    nearest(search, table, query.data(), 2.0, 3, indices, distances);
    EXPECT_LE(table.numFetched, 20000 + 100);
    compare(search, table, query, 2.0, {1, 3, 7, 5000, 19999}, "far query");
}

TEST(tkNMNeighborSearch, farQueriesOfEveryScaleAndDirection)
{
    Random random(23);
    Table table = tableOf(kinds()[0], random, 3000, 4, 20);
    for (const bool outliers : {false, true})
    {
        if (outliers)
            for (std::size_t i = 0; i < 3000; i += 400)
                table.rows[i][i / 400 % 4] = std::pow(10.0, static_cast<double>(i / 400)) * (i % 800 == 0 ? 1.0 : -1.0);
        const Search search = searchOf(table);
        for (const double scale : {2.0, 3.0, 4.0, 5.0,  7.0,  10.0, 30.0, 1e2,  1e3,  1e4,
                                   1e6, 1e8, 1e9, 1e10, 1e12, 1e14, 1e16, 1e30, 1e60, 9e89})
            for (int directions = 1; directions < 81; directions += 8) // 0, 1 or -1 in each column
            {
                Row query;
                for (int c = 0, rest = directions; c < 4; ++c, rest /= 3)
                    query.push_back(gaussian(random) + (rest % 3 == 0 ? 0.0 : rest % 3 == 1 ? scale : -scale));
                const double order = orders[static_cast<std::size_t>(directions) % 8];
                compare(search, table, query, order, {1, 5, 40}, "far query");
                compare(search, table, query, 2.0, {1, 5}, "far query");
            }
    }
}

// Queries on and beside outliers, where rows that the bytes cannot tell from others are the nearest ones.
TEST(tkNMNeighborSearch, queriesNearClippedRows)
{
    Random random(24);
    for (const int kind : {0, 7, 14})
    {
        Table table = tableOf(kinds()[static_cast<std::size_t>(kind)], random, 2500, 5, 0);
        for (std::size_t i = 0; i < 20; ++i)
            for (double& measurement : table.rows[i * 120])
                measurement = measurement * 1e4 + 1e5;
        const Search search = searchOf(table);
        for (std::size_t i = 0; i < 20; i += 3)
            for (const double order : {2.0, 1.0, 3.0, 1.5, 5.0})
                for (const double shift : {0.0, 0.1, 100.0, -5e4, 1e7})
                {
                    Row query = table.rows[i * 120];
                    query[i % 5] += shift;
                    compare(search, table, query, order, {1, 2, 5, 25}, "outliers");
                }
    }
}

// Bytes cannot tell rows apart where the query is far from all of them: then each row is read, but none twice.
TEST(tkNMNeighborSearch, farQueriesReadEachRowOnce)
{
    Random random(25);
    CountingTable table;
    for (const Row& row : tableOf(kinds()[0], random, 20000, 8, 0).rows)
        table.rows.push_back(row);
    const Search search = searchOf(table);
    std::vector<long> indices;
    std::vector<double> distances;
    for (const auto level : kernelSets())
        for (const double order : {2.0, 1.0, 3.0})
            for (const double far : {6.0, 20.0, 1e3, 1e6, 1e7})
            {
                table.numFetched = 0;
                for (int i = 0; i < 10; ++i)
                {
                    Row query;
                    for (int c = 0; c < 8; ++c)
                        query.push_back(gaussian(random) + far);
                    nearest(search, table, query.data(), order, 3, indices, distances, level);
                }
                EXPECT_LE(table.numFetched, 10 * (20000 + 100)) << far << ", order " << order << ", by " << level;
            }
}

// Few distinct rows lie farther from a query than their bytes from one another.
TEST(tkNMNeighborSearch, fewDistinctRowsAreReadOnce)
{
    Random random(26);
    const Table few = tableOf(kinds()[0], random, 10, 16, 0);
    for (const bool inRuns : {false, true})
    {
        CountingTable table;
        for (std::size_t i = 0; i < 10000; ++i)
            table.rows.push_back(few.rows[inRuns ? i / 1000 : i % 10]);
        const Search search = searchOf(table);
        std::vector<long> indices;
        std::vector<double> distances;
        long numFetched = 0;
        for (int i = 0; i < 10; ++i)
        {
            const Row query = tableOf(kinds()[0], random, 1, 16, 0).rows[0];
            compare(search, table, query, 2.0, {1, 5, 1000, 1001}, "few distinct rows");
            const long before = table.numFetched;
            nearest(search, table, query.data(), 2.0, 5, indices, distances);
            numFetched += table.numFetched - before;
        }
        EXPECT_LE(numFetched, 10 * (10000 + 100));
    }
}

// Rows that equal others, or nearly: in runs, in turn, and of which every third differs by one unit in the last place,
// by the sign of a zero or by what a NaN carries.
TEST(tkNMNeighborSearch, nearlyEqualRows)
{
    Random random(27);
    for (const long numDistinct : {1, 2, 3, 10, 100})
        for (const int difference : {0, 1, 2, 3})
        {
            const Table few = tableOf(kinds()[1], random, numDistinct, 3, 0);
            for (const bool inRuns : {false, true})
            {
                Table table;
                for (long i = 0; i < 2000; ++i)
                {
                    Row row = few.rows[static_cast<std::size_t>(inRuns ? i * numDistinct / 2000 : i % numDistinct)];
                    double& measurement = row[static_cast<std::size_t>(i / 3 % 3)];
                    if (difference == 1 && i % 3 == 0)
                        measurement = std::nextafter(measurement, i % 2 == 0 ? infinity : -infinity);
                    if (difference >= 2)
                        measurement = i % 3 == 0 ? -0.0 : 0.0;
                    if (difference == 3 && i % 500 == 499)
                        measurement = i % 1000 == 999 ? std::nan("1") : -std::nan("2");
                    table.rows.push_back(row);
                }
                const Search search = searchOf(table);
                for (const double order : {2.0, 1.0, 3.0, 1.5, 0.5})
                {
                    compare(search, table, {0.5, 0.0, -0.0}, order, {1, 4, 30, 700}, "nearly equal");
                    compare(search, table, table.rows[7], order, {1, 4, 30, 700}, "nearly equal");
                    compare(search, table, queryOf(kinds()[1], random, table), order, {1, 4, 30}, "nearly equal");
                }
            }
        }
}

TEST(tkNMNeighborSearch, manyTiesAtTheEdgeOfTheListAreResolvedInStorageOrder)
{
    Random random(12);
    Table table;
    for (long i = 0; i < 6000; ++i)
    {
        const double value = static_cast<double>(i % 10);
        table.rows.push_back({value, value * value, -value});
    }
    const Search search = searchOf(table);
    const std::vector<long> ks = {1, 2, 5, 599, 600, 601, 1200, 5999, 6000, 6001};
    for (const double order : {2.0, 1.0, 3.0, 2.5})
    {
        compare(search, table, {4.0, 16.0, -4.0}, order, ks, "ten rows");
        compare(search, table, {4.125, 16.25, -4.0}, order, ks, "ten rows");
    }
}

TEST(tkNMNeighborSearch, rowsInDescendingAndAscendingOrderOfDistance)
{
    for (const double direction : {-1.0, 1.0})
    {
        Table table;
        for (long i = 0; i < 5000; ++i)
            table.rows.push_back({direction * static_cast<double>(i) * 0.01, 1.0});
        const Search search = searchOf(table);
        for (const double order : {2.0, 1.0, 3.0, 0.5, 6.0})
            compare(search, table, {60.0, 1.5}, order, {1, 2, 40, 700, 4999}, "descending or ascending");
    }
}

TEST(tkNMNeighborSearch, aTieInsideTheListGoesToTheLaterRowAndAtItsEndToTheEarlierOne)
{
    Table table;
    table.rows = {{1.0}, {-1.0}, {1.0}};
    const Search search = searchOf(table);
    const Row query = {0.0};
    std::vector<long> indices;
    std::vector<double> distances;
    nearest(search, table, query.data(), 2.0, 1, indices, distances);
    EXPECT_EQ(indices, (std::vector<long>{0}));
    nearest(search, table, query.data(), 2.0, 2, indices, distances);
    EXPECT_EQ(indices, (std::vector<long>{1, 0}));
    nearest(search, table, query.data(), 2.0, 3, indices, distances);
    EXPECT_EQ(indices, (std::vector<long>{2, 1, 0}));
    nearest(search, table, query.data(), 2.0, 1000000, indices, distances);
    EXPECT_EQ(indices, (std::vector<long>{2, 1, 0}));
    EXPECT_EQ(distances, (std::vector<double>{1.0, 1.0, 1.0}));
}

TEST(tkNMNeighborSearch, queriesThatAreNotFiniteOrLargeAndOddOrders)
{
    Random random(13);
    const Table table = tableOf(kinds()[1], random, 700, 3, 10);
    const Search search = searchOf(table);
    for (const double odd : {notANumber, infinity, -infinity, 1e90, 1.1e90, -1e308, 5e-324})
        for (const double order : {1.0, 2.0, 3.0, 5.0})
            compare(search, table, {0.5, odd, 1.0}, order, {1, 3, 700}, "odd query");
    for (const double order :
         {1e-300, 0.1, 0.999, 1.0000001, 1.999999, 2.0000001, 63.5, 64.0, 65.0, 1e9, 1e300, infinity})
        for (const Row& query : {table.rows[3], Row{1.0, 2.0, 3.0}, Row{0.01, -0.02, 0.03}})
            compare(search, table, query, order, {1, 3, 20, 700}, "odd order");
}

TEST(tkNMNeighborSearch, noRowsNoColumnsAndVeryManyColumns)
{
    std::vector<long> indices = {4, 5};
    std::vector<double> distances = {1.0};
    const Table none;
    Search search = searchOf(none);
    nearest(search, none, nullptr, 2.0, 3, indices, distances);
    EXPECT_TRUE(indices.empty());
    EXPECT_TRUE(distances.empty());
    EXPECT_EQ(search.memory(), 0u);

    Table empty;
    empty.rows.resize(300);
    search.update(empty, 300, 0);
    compare(search, empty, {}, 2.0, {1, 4, 299, 300, 301}, "no columns");

    Random random(14);
    for (const long columns :
         {tkNMByteDistances::maxColumns - 1, tkNMByteDistances::maxColumns, tkNMByteDistances::maxColumns + 1})
    {
        const Table wide = tableOf(kinds()[0], random, 140, columns, 0);
        compare(searchOf(wide), wide, queryOf(kinds()[0], random, wide), 2.0, {1, 5}, "wide");
        compare(searchOf(wide), wide, queryOf(kinds()[0], random, wide), 1.0, {1, 5}, "wide");
    }
}

TEST(tkNMNeighborSearch, beginsAnewWithFewerRowsOrOtherColumns)
{
    Random random(15);
    const Table first = tableOf(kinds()[1], random, 900, 4, 0);
    const Table fewer = tableOf(kinds()[3], random, 500, 4, 0);
    const Table wider = tableOf(kinds()[0], random, 950, 6, 0);
    Search search = searchOf(first);
    search.update(fewer, fewer.size(), 4);
    EXPECT_EQ(search.numRows(), 500);
    compare(search, fewer, queryOf(kinds()[3], random, fewer), 2.0, {1, 5}, "fewer");
    search.update(wider, wider.size(), 6);
    EXPECT_EQ(search.numRows(), 950);
    EXPECT_EQ(search.numColumns(), 6);
    compare(search, wider, queryOf(kinds()[0], random, wider), 2.0, {1, 5}, "wider");
}

TEST(tkNMNeighborSearch, aMillionRowsAndMoreThanOnePassHoldsMinimaOf)
{
    Random random(16);
    Table table;
    for (long i = 0; i < 1100000; ++i)
        table.rows.push_back({static_cast<double>(random() >> 11), static_cast<double>(random() >> 11)});
    const Search search = searchOf(table);
    for (const std::size_t near : {10u, 1099990u})
        compare(search, table, {table.rows[near][0] + 0.5, table.rows[near][1]}, 2.0, {1, 5, 40}, "a million");
}

TEST(tkNMNeighborSearch, aQueryAllocatesNothingWhenTheVectorsHaveRoom)
{
    Random random(17);
    const Table table = tableOf(kinds()[0], random, 5000, 9, 30);
    const Table small = tableOf(kinds()[18], random, 50, 9, 0);
    const Search search = searchOf(table);
    const Search smallSearch = searchOf(small);
    std::vector<long> indices;
    std::vector<double> distances;
    indices.reserve(1000);
    distances.reserve(2000);
    const std::vector<tkNMInstructions> all = instructionSets();
    const tkAllocations allocations;
    for (const auto level : all)
        for (const double order : orders)
        {
            nearest(search, table, table.rows[5].data(), order, 3, indices, distances, level);
            nearest(search, table, table.rows[6].data(), order, 1000, indices, distances, level);
            nearest(smallSearch, small, small.rows[6].data(), order, 10, indices, distances, level);
        }
    EXPECT_EQ(allocations.count(), 0u);
}

TEST(tkNMNeighborSearch, takesAtMostFiveQuartersOfABytePerMeasurementOfManyRows)
{
    Random random(18);
    for (const long columns : {1, 2, 3, 8, 16})
    {
        const long numRows = std::max(30000L, 100000 / columns);
        ASSERT_GT(numRows * columns, tkNMNeighborSearch::mostScanned);
        const double bytes = 1.25 * static_cast<double>(numRows * columns);
        const Table table = tableOf(kinds()[0], random, numRows, columns, 0);
        tkNMNeighborSearch search;
        search.update(table, numRows, columns);
        EXPECT_LE(static_cast<double>(search.memory()), bytes);

        Table growing;
        tkNMNeighborSearch other;
        for (const Row& row : table.rows)
        {
            growing.rows.push_back(row);
            other.update(growing, growing.size(), columns);
        }
        EXPECT_LE(static_cast<double>(other.memory()), bytes) << "one by one";
    }
}

TEST(tkNMNeighborSearch, growsFromFewRowsToMany)
{
    Random random(28);
    constexpr long columns = 300;
    Search search;
    Table table;
    for (const Row& row : tableOf(kinds()[0], random, tkNMNeighborSearch::mostScanned / columns + 80, columns, 0).rows)
    {
        table.rows.push_back(row);
        search.update(table, table.size(), columns);
        if (table.size() % 20 == 0 || std::abs(table.size() - tkNMNeighborSearch::mostScanned / columns) < 3)
            for (const double order : {2.0, 1.5})
                compare(search, table, queryOf(kinds()[0], random, table), order, {1, 7}, "growing");
    }
}

TEST(tkNMNeighborSearch, runningOutOfMemoryLosesNoRows)
{
    Random random(19);
    const Table table = tableOf(kinds()[0], random, 1000, 3, 0);
    for (std::size_t allowed = 0; allowed < 12; ++allowed)
    {
        Search search;
        search.update(table, 200, 3);
        {
            const tkAllocations limited(allowed);
            try
            {
                search.update(table, 1000, 3);
            }
            catch (const std::bad_alloc&)
            {
            }
        }
        EXPECT_EQ(search.numRows(), 1000);
        compare(search, table, table.rows[200], 2.0, {1, 7}, "out of memory");
        search.update(table, 1000, 3);
        compare(search, table, table.rows[200], 2.0, {1, 7}, "with memory again");
    }
}

TEST(tkNMNeighborSearch, threadsShareASearch)
{
    Random random(20);
    const Table table = tableOf(kinds()[1], random, 3000, 4, 0);
    const Search search = searchOf(table);
    const auto work = [&]
    {
        for (std::size_t i = 0; i < 20; ++i)
            compare(search, table, table.rows[i * 100], 2.0, {1, 5}, "thread");
    };
    std::thread other(work);
    work();
    other.join();
}

TEST(tkNMNeighborSearch, requiresAtLeastOneNeighbour)
{
    const Table none;
    std::vector<long> indices;
    std::vector<double> distances;
    EXPECT_THROW(nearest(searchOf(none), none, nullptr, 2.0, 0, indices, distances), tkAssertionFailure);
}
