#include "numerics/tkNMNeighborList.h"

#include "tests/definition/neighbours.h"

#include <gtest/gtest.h>

#include <iterator>
#include <limits>
#include <random>
#include <vector>

namespace
{
const double infinity = std::numeric_limits<double>::infinity();
const double notANumber = std::numeric_limits<double>::quiet_NaN();

/// The rows in the list after rows 0, 1, ... at these distances.
std::vector<long> listOf(long k, const std::vector<double>& offered)
{
    std::vector<long> indices(static_cast<std::size_t>(k));
    std::vector<double> distances(static_cast<std::size_t>(k), -7.0);
    tkNMNeighborList list(k, indices.data(), distances.data());
    list.clear();
    for (std::size_t i = 0; i < offered.size(); ++i)
        list.add(static_cast<long>(i), offered[i]);
    indices.resize(static_cast<std::size_t>(list.size()));
    for (std::size_t j = 0; j < indices.size(); ++j)
    {
        const double expected = offered[static_cast<std::size_t>(indices[j])];
        EXPECT_TRUE(distances[j] == expected || expected != expected) << j;
    }
    return indices;
}

using Rows = std::vector<long>;
} // namespace

TEST(tkNMNeighborList, keepsTheKNearestNearestFirst)
{
    EXPECT_EQ(listOf(2, {5.0, 3.0, 4.0, 1.0}), (Rows{3, 1}));
    EXPECT_EQ(listOf(3, {1.0, 2.0, 3.0, 4.0}), (Rows{0, 1, 2}));
    EXPECT_EQ(listOf(4, {2.0, 1.0}), (Rows{1, 0})) << "fewer rows than places";
    EXPECT_EQ(listOf(1, {}), Rows{});
}

TEST(tkNMNeighborList, atTheEndOfAFullListTheEarlierRowWinsATie)
{
    EXPECT_EQ(listOf(1, {1.0, 1.0, 1.0}), Rows{0});
    EXPECT_EQ(listOf(2, {1.0, 1.0, 1.0}), (Rows{1, 0}));
    EXPECT_EQ(listOf(1, {infinity, infinity}), Rows{0});
}

TEST(tkNMNeighborList, insideTheListTheLaterRowStandsFirst)
{
    EXPECT_EQ(listOf(3, {1.0, 1.0, 1.0}), (Rows{2, 1, 0}));
    EXPECT_EQ(listOf(3, {1.0, 2.0, 1.0, 1.0}), (Rows{3, 2, 0}));
    EXPECT_EQ(listOf(3, {infinity, infinity}), (Rows{1, 0}));
}

TEST(tkNMNeighborList, aNaNIsNeverTurnedAwayAndStandsFirst)
{
    EXPECT_EQ(listOf(1, {1.0, notANumber}), Rows{1});
    EXPECT_EQ(listOf(2, {1.0, 2.0, notANumber}), (Rows{2, 0}));
    EXPECT_EQ(listOf(2, {notANumber, notANumber, notANumber}), (Rows{2, 1}));
    EXPECT_EQ(listOf(3, {notANumber, 5.0, 4.0}), (Rows{2, 1, 0})) << "no distance is larger than a NaN";
}

TEST(tkNMNeighborList, clearedItStartsAnew)
{
    long index = 0;
    double distance = 0.0;
    tkNMNeighborList list(1, &index, &distance);
    list.clear();
    list.add(3, 1.0);
    EXPECT_EQ(list.size(), 1);
    list.clear();
    EXPECT_EQ(list.size(), 0);
    EXPECT_EQ(distance, infinity);
    list.add(4, 2.0);
    EXPECT_EQ(list.size(), 1);
    EXPECT_EQ(index, 4);
}

TEST(tkNMNeighborList, isTheListOfTheDefinitionWhateverTheDistances)
{
    std::mt19937 random(1);
    const double values[] = {0.0, -0.0, 1.0, 1.0, 2.0, 3.0, 5e-324, 1e308, infinity, -infinity, -1.0, notANumber};
    for (int round = 0; round < 3000; ++round)
    {
        std::vector<double> offered(random() % 40);
        for (double& distance : offered)
            distance = values[random() % std::size(values)];
        const long k = 1 + static_cast<long>(random() % 45);
        EXPECT_EQ(listOf(k, offered), definition::neighbours(offered, k).indices())
            << k << " of " << ::testing::PrintToString(offered);
    }
}

TEST(tkNMNeighborList, writesToItsPlacesAlone)
{
    std::vector<long> indices(5, -7);
    std::vector<double> distances(5, -7.0);
    tkNMNeighborList list(3, indices.data() + 1, distances.data() + 1);
    list.clear();
    for (const double distance : {4.0, 3.0, 2.0, 1.0, 0.0, 5.0, notANumber})
        list.add(9, distance);
    EXPECT_EQ(list.size(), 3);
    for (const std::size_t outside : {0u, 4u})
    {
        EXPECT_EQ(indices[outside], -7);
        EXPECT_EQ(distances[outside], -7.0);
    }
}

TEST(tkNMNeighborList, placesThatAreNotTakenAreAtInfinity)
{
    std::vector<long> indices(4, -7);
    std::vector<double> distances(4, -7.0);
    tkNMNeighborList list(4, indices.data(), distances.data());
    list.clear();
    list.add(0, 2.0);
    list.add(1, 1.0);
    EXPECT_EQ(list.size(), 2);
    EXPECT_EQ(distances, (std::vector<double>{1.0, 2.0, infinity, infinity}));
    EXPECT_EQ(indices[2], -7);
}
