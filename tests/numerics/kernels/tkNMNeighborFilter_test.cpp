#include "numerics/kernels/tkNMNeighborFilter.h"

#include "tests/numerics/neighborTables.h"
#include "tkAllocations.h"

#include <new>

using namespace neighborTables;

TEST(tkNMNeighborFilter, nearlyAllRowsAreRuledOutUnseen)
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
TEST(tkNMNeighborFilter, theLargestRoundingErrorOfABlockCounts)
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

TEST(tkNMNeighborFilter, outliersDoNotSpoilTheFilter)
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

TEST(tkNMNeighborFilter, theFilterFollowsRowsThatLieElsewhereThanTheFirstOnes)
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

TEST(tkNMNeighborFilter, dataThatDefeatTheFilterAreReadOnce)
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

TEST(tkNMNeighborFilter, farQueriesOfEveryScaleAndDirection)
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
TEST(tkNMNeighborFilter, queriesNearClippedRows)
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
TEST(tkNMNeighborFilter, farQueriesReadEachRowOnce)
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
TEST(tkNMNeighborFilter, fewDistinctRowsAreReadOnce)
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

TEST(tkNMNeighborFilter, aMillionRowsAndMoreThanOnePassHoldsMinimaOf)
{
    Random random(16);
    Table table;
    for (long i = 0; i < 1100000; ++i)
        table.rows.push_back({static_cast<double>(random() >> 11), static_cast<double>(random() >> 11)});
    const Search search = searchOf(table);
    for (const std::size_t near : {10u, 1099990u})
        compare(search, table, {table.rows[near][0] + 0.5, table.rows[near][1]}, 2.0, {1, 5, 40}, "a million");
}

namespace
{
tkNMNeighborFilter filterOf(const Table& table)
{
    tkNMNeighborFilter filter(table.columns());
    filter.update(table, table.size());
    return filter;
}

/// Lists and sets by every instruction set, for some orders of each kind.
void expectDefinition(const tkNMNeighborFilter& filter, const Table& table, const Row& query,
                      const std::vector<long>& ks, const std::string& what)
{
    for (const double order : {2.0, 1.0, 3.0, 1.5, 7.25})
    {
        const std::vector<double> all = distancesOf(table, query, order);
        for (const long k : ks)
            if (k >= 1 && k < table.size())
                compareKernel(filter, table, query, order, k, all, what);
    }
}
} // namespace

TEST(tkNMNeighborFilter, findsTheNearestOfAnyNumberOfRows)
{
    Random random(31);
    for (const long numRows : {2, 3, 63, 64, 65, 126, 127, 128, 129, 191, 192, 193, 256, 300, 1023, 1024, 1025, 1100})
        for (const long columns : {1, 3})
        {
            const Table table = tableOf(kinds()[0], random, numRows, columns, 10);
            const tkNMNeighborFilter filter = filterOf(table);
            EXPECT_EQ(filter.numRows(), numRows);
            expectDefinition(filter, table, queryOf(kinds()[0], random, table),
                             {1, 2, 5, numRows / 2, numRows - 2, numRows - 1}, "rows");
        }
}

TEST(tkNMNeighborFilter, findsTheNearestInAnyNumberOfColumns)
{
    Random random(32);
    for (long columns = 1; columns <= 70; columns += columns < 35 ? 1 : 7)
    {
        const Table table = tableOf(kinds()[4], random, 200, columns, 0);
        const tkNMNeighborFilter filter = filterOf(table);
        expectDefinition(filter, table, queryOf(kinds()[4], random, table), {1, 4, 100}, "columns");
    }
}

TEST(tkNMNeighborFilter, rowsInPiecesAreTheSameRows)
{
    Random random(33);
    const Table table = tableOf(kinds()[1], random, 1500, 4, 5);
    tkNMNeighborFilter filter(4);
    for (const long numRows : {0, 1, 100, 127, 128, 129, 129, 200, 255, 256, 257, 600, 1024, 1499, 1500})
    {
        filter.update(table, numRows);
        EXPECT_EQ(filter.numRows(), numRows);
        Table present;
        present.rows.assign(table.rows.begin(), table.rows.begin() + numRows);
        if (numRows > 1)
            expectDefinition(filter, present, {0.5, 5.0, 11.0, -2.0}, {1, 3, numRows / 3, numRows - 1}, "pieces");
    }
}

TEST(tkNMNeighborFilter, rowsCountAlthoughMemoryForThemRunsOut)
{
    Random random(34);
    const Table table = tableOf(kinds()[0], random, 1400, 3, 0);
    int failures = 0;
    for (std::size_t allowed = 0; allowed < 12; ++allowed)
    {
        tkNMNeighborFilter filter(3);
        filter.update(table, 200);
        try
        {
            const tkAllocations limited(allowed);
            filter.update(table, 1400);
        }
        catch (const std::bad_alloc&)
        {
            ++failures;
        }
        EXPECT_EQ(filter.numRows(), 1400);
        expectDefinition(filter, table, table.rows[700], {1, 7}, "out of memory");
        filter.update(table, 1400);
        expectDefinition(filter, table, table.rows[701], {1, 7}, "with memory again");
    }
    EXPECT_GT(failures, 3);
}

TEST(tkNMNeighborFilter, writesNothingBehindItsRoom)
{
    Random random(35);
    const Table table = tableOf(kinds()[0], random, 700, 5, 30);
    const tkNMNeighborFilter filter = filterOf(table);
    for (const tkNMInstructions set : kernelSets())
        for (const double order : {2.0, 1.0, 2.5, 2.2})
            for (const std::size_t k : {1u, 2u, 33u, 699u})
                for (const bool asSet : {false, true})
                {
                    std::vector<long> indices(k + 1, -7);
                    std::vector<double> distances(2 * k + 1, -7.0);
                    filter.search(table, table.rows[3].data(), order, static_cast<long>(k), asSet, indices.data(),
                                  distances.data(), set);
                    EXPECT_EQ(indices.back(), -7);
                    EXPECT_EQ(distances.back(), -7.0);
                    EXPECT_EQ(std::count(indices.begin(), indices.end(), -7), 1);
                }
}

TEST(tkNMNeighborFilter, fetchesWhatItAnnounces)
{
    class AnnouncedTable : public Table
    {
    public:
        mutable std::vector<long> announced;
        mutable std::vector<long> fetched;

        void fetch(const long* indices, long count, const double** rows) const override
        {
            fetched.insert(fetched.end(), indices, indices + count);
            Table::fetch(indices, count, rows);
        }
        void announce(const long* indices, long count) const override
        {
            announced.insert(announced.end(), indices, indices + count);
        }
    };
    Random random(36);
    AnnouncedTable table;
    table.rows = tableOf(kinds()[0], random, 3000, 4, 0).rows;
    const tkNMNeighborFilter filter = filterOf(table);
    std::vector<long> indices(100);
    std::vector<double> distances(200);
    for (const long k : {1, 20, 100})
    {
        table.announced.clear();
        table.fetched.clear();
        filter.search(table, table.rows[11].data(), 2.0, k, false, indices.data(), distances.data(),
                      tkNMBestInstructions());
        EXPECT_FALSE(table.announced.empty());
        std::sort(table.announced.begin(), table.announced.end());
        std::sort(table.fetched.begin(), table.fetched.end());
        EXPECT_TRUE(
            std::includes(table.fetched.begin(), table.fetched.end(), table.announced.begin(), table.announced.end()));
    }
}

TEST(tkNMNeighborFilter, rowsAtTheEndsOfItsRange)
{
    Random random(37);
    for (const double size : {1e90, 1e-90, 1e-150, 5e-324})
    {
        Table table;
        for (long i = 0; i < 400; ++i)
            table.rows.push_back({static_cast<double>(below(random, 3) - 1) * size, i % 7 == 0 ? size : -size});
        const tkNMNeighborFilter filter = filterOf(table);
        for (const Row& query : {Row{0.0, 0.0}, Row{size, -size}, Row{-size, 0.25 * size}, Row{1.0, 1e90}})
            expectDefinition(filter, table, query, {1, 2, 60, 399}, "ends of the range");
        for (const double order : {1.0, 64.0, 63.5, 63.3})
            compareKernel(filter, table, {0.5 * size, size}, order, 5, distancesOf(table, {0.5 * size, size}, order),
                          "ends of the orders");
    }
}
