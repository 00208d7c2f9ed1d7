#include "numerics/tkNMNeighborSearch.h"

#include "foundation/tkAssert.h"
#include "numerics/kernels/tkNMByteDistances.h"
#include "tests/numerics/neighborTables.h"
#include "tkAllocations.h"

#include <thread>

using namespace neighborTables;

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

// Sizes that the definition, the scan and the filter serve, and one beyond what the scan takes.
TEST(tkNMNeighborSearch, aQueryAllocatesNothingWhenTheVectorsHaveRoom)
{
    Random random(17);
    for (const long numRows : {50, 1500, 5000, 8000})
    {
        const Table table = tableOf(kinds()[numRows == 50 ? 18 : 0], random, numRows, 9, 30);
        tkNMNeighborSearch search;
        search.update(table, numRows, 9);
        std::vector<long> indices(1000);
        std::vector<double> distances(2000);
        const std::vector<tkNMInstructions> all = instructionSets();
        const tkAllocations allocations;
        for (const auto level : all)
            for (const double order : orders)
                for (const long k : {1, 3, 10, 40, 1000})
                {
                    const double* const query = table.rows[static_cast<std::size_t>(k % 41)].data();
                    search.nearest(table, query, order, k, indices.data(), distances.data(), level);
                    search.nearestSet(table, query, order, k, indices.data(), distances.data(), level);
                }
        EXPECT_EQ(allocations.count(), 0u) << numRows;
    }
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
