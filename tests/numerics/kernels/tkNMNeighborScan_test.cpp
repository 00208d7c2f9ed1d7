#include "numerics/kernels/tkNMNeighborScan.h"

#include "tests/numerics/neighborTables.h"
#include "tkAllocations.h"

#include <new>

using namespace neighborTables;

namespace
{
tkNMNeighborScan scanOf(const Table& table)
{
    tkNMNeighborScan scan(table.columns());
    scan.update(table, table.size());
    return scan;
}

/// Lists and sets by every instruction set, for orders of each kind: exact keys, keys with rounding, and powers.
void expectDefinition(const tkNMNeighborScan& scan, const Table& table, const Row& query, const std::vector<long>& ks,
                      const std::string& what)
{
    for (const double order : {2.0, 1.0, 3.0, 1.5, 7.25})
    {
        const std::vector<double> all = distancesOf(table, query, order);
        for (const long k : ks)
            if (k >= 1 && k < table.size())
                compareKernel(scan, table, query, order, k, all, what);
    }
}
} // namespace

TEST(tkNMNeighborScan, findsTheNearestOfAnyNumberOfRows)
{
    Random random(41);
    std::vector<long> sizes = {95, 96, 97, 127, 128, 129, 2047, 2048, 2049, 4100};
    for (long size = 2; size < 70; ++size)
        sizes.push_back(size);
    for (const long numRows : sizes)
    {
        const long columns = numRows % 2 == 0 ? 1 : 3;
        const Table table = tableOf(kinds()[0], random, numRows, columns, 10);
        const tkNMNeighborScan scan = scanOf(table);
        EXPECT_EQ(scan.numRows(), numRows);
        expectDefinition(scan, table, queryOf(kinds()[0], random, table), {1, 2, 7, 8, 9, numRows / 2, numRows - 1},
                         "rows");
    }
}

TEST(tkNMNeighborScan, findsTheNearestInAnyNumberOfColumns)
{
    Random random(42);
    for (long columns = 1; columns <= 70; columns += columns < 20 ? 1 : 7)
    {
        const Table table = tableOf(kinds()[4], random, 100, columns, 0);
        expectDefinition(scanOf(table), table, queryOf(kinds()[4], random, table), {1, 4, 50}, "columns");
    }
}

TEST(tkNMNeighborScan, findsAnyNumberOfRows)
{
    Random random(43);
    for (const std::size_t kind : {0u, 3u})
    {
        const Table table = tableOf(kinds()[kind], random, 2500, 2, 0);
        const tkNMNeighborScan scan = scanOf(table);
        expectDefinition(scan, table, queryOf(kinds()[kind], random, table),
                         {3, 16, 63, 64, 65, 127, 128, 129, 255, 256, 257, 511, 512, 513, 1023, 1024, 1025, 2400},
                         "neighbours");
    }
}

// More rows are at the distance of the last neighbour than there is room for.
TEST(tkNMNeighborScan, manyRowsAtOneDistance)
{
    for (const long numRows : {40, 1000, 1500, 2100, 5000})
    {
        Table table;
        for (long i = 0; i < numRows; ++i)
            table.rows.push_back({i % 2 == 0 ? 1.0 : -1.0, i % 3 == 0 ? 2.0 : -2.0});
        table.rows[static_cast<std::size_t>(numRows / 2)] = {0.5, 0.5};
        expectDefinition(scanOf(table), table, {0.0, 0.0}, {1, 2, 3, 20, 150, numRows - 1}, "one distance");
    }
}

TEST(tkNMNeighborScan, nearRowsAfterManyFarOnes)
{
    Table table;
    for (long i = 0; i < 6000; ++i)
        table.rows.push_back({6000.0 - static_cast<double>(i), 1.0}); // every chunk has nearer rows than the last one
    expectDefinition(scanOf(table), table, {0.0, 1.0}, {1, 5, 100, 128, 129, 3000}, "descending");
}

TEST(tkNMNeighborScan, rowsAtTheEndsOfItsRange)
{
    Random random(44);
    for (const double size : {1e90, 1e-90, 1e-150, 5e-324})
    {
        Table table;
        for (long i = 0; i < 100; ++i)
            table.rows.push_back({static_cast<double>(below(random, 3) - 1) * size, i % 7 == 0 ? size : -size});
        const tkNMNeighborScan scan = scanOf(table);
        for (const Row& query : {Row{0.0, 0.0}, Row{size, -size}, Row{-size, 0.25 * size}, Row{1.0, 1e90}})
            expectDefinition(scan, table, query, {1, 2, 60, 99}, "ends of the range");
        for (const double order : {1.0, 64.0, 63.5, 63.3}) // keys overflow
            compareKernel(scan, table, {0.5 * size, size}, order, 5, distancesOf(table, {0.5 * size, size}, order),
                          "ends of the orders");
    }
}

TEST(tkNMNeighborScan, rowsInPiecesAreTheSameRows)
{
    Random random(45);
    const Table table = tableOf(kinds()[1], random, 300, 4, 5);
    tkNMNeighborScan scan(4);
    for (const long numRows : {0, 1, 2, 31, 32, 33, 33, 64, 100, 299, 300})
    {
        scan.update(table, numRows);
        EXPECT_EQ(scan.numRows(), numRows);
        Table present;
        present.rows.assign(table.rows.begin(), table.rows.begin() + numRows);
        if (numRows > 1)
            expectDefinition(scan, present, {0.5, 5.0, 11.0, -2.0}, {1, 3, numRows / 3, numRows - 1}, "pieces");
    }
}

TEST(tkNMNeighborScan, withoutMemoryNothingChanges)
{
    Random random(46);
    const Table table = tableOf(kinds()[0], random, 500, 3, 0);
    tkNMNeighborScan scan(3);
    scan.update(table, 100);
    const std::size_t memory = scan.memory();
    {
        const tkAllocations none(0);
        EXPECT_THROW(scan.update(table, 500), std::bad_alloc);
    }
    EXPECT_EQ(scan.numRows(), 100);
    EXPECT_EQ(scan.memory(), memory);
    Table present;
    present.rows.assign(table.rows.begin(), table.rows.begin() + 100);
    expectDefinition(scan, present, table.rows[200], {1, 5, 99}, "without memory");
    scan.update(table, 500);
    expectDefinition(scan, table, table.rows[200], {1, 5, 499}, "with memory");
}

TEST(tkNMNeighborScan, takesEightBytesPerMeasurementOfWholeBlocks)
{
    Random random(47);
    for (const long columns : {1, 2, 9})
        for (const long numRows : {1, 32, 33, 500})
        {
            const Table table = tableOf(kinds()[0], random, numRows, columns, 0);
            const auto measurements = static_cast<std::size_t>((numRows + 31) / 32 * 32 * columns);
            EXPECT_EQ(scanOf(table).memory(), 8 * measurements);
        }
    const Table empty;
    tkNMNeighborScan scan(0);
    scan.update(empty, 1000000); // rows of no measurements
    EXPECT_EQ(scan.numRows(), 1000000);
    EXPECT_EQ(scan.memory(), 0u);
}

TEST(tkNMNeighborScan, writesNothingBehindItsRoom)
{
    Random random(48);
    const Table table = tableOf(kinds()[0], random, 200, 5, 30);
    const tkNMNeighborScan scan = scanOf(table);
    for (const tkNMInstructions set : kernelSets())
        for (const double order : {2.0, 1.0, 2.5, 2.2})
            for (const std::size_t k : {1u, 2u, 33u, 199u})
                for (const bool asSet : {false, true})
                {
                    std::vector<long> indices(k + 1, -7);
                    std::vector<double> distances(2 * k + 1, -7.0);
                    scan.search(table, table.rows[3].data(), order, static_cast<long>(k), asSet, indices.data(),
                                distances.data(), set);
                    EXPECT_EQ(indices.back(), -7);
                    EXPECT_EQ(distances.back(), -7.0);
                    EXPECT_EQ(std::count(indices.begin(), indices.end(), -7), 1);
                }
}
