#include "numerics/tkNMTriangle.h"

#include <cmath>
#include <cstdint>
#include <gtest/gtest.h>
#include <utility>

namespace
{
tkNMTriangle numbered(std::size_t dimension)
{
    tkNMTriangle triangle(dimension);
    for (std::size_t i = 0; i < dimension; ++i)
        for (std::size_t j = 0; j <= i; ++j)
            triangle(i, j) = static_cast<double>(100 * i + j + 1);
    return triangle;
}
} // namespace

TEST(tkNMTriangle, everyElementHasAPlaceOfItsOwn)
{
    for (std::size_t d = 0; d <= 35; ++d)
    {
        const tkNMTriangle triangle = numbered(d);
        EXPECT_EQ(triangle.dimension(), d);
        for (std::size_t i = 0; i < d; ++i)
            for (std::size_t j = 0; j <= i; ++j)
                ASSERT_EQ(triangle(i, j), static_cast<double>(100 * i + j + 1)) << d;
    }
}

TEST(tkNMTriangle, columnsOfABlockHaveItsRowsAndZerosElsewhere)
{
    for (std::size_t d = 1; d <= 35; ++d)
    {
        const tkNMTriangle triangle = numbered(d);
        const double* next = triangle.blocks();
        for (std::size_t block = 0; 8 * block < d; ++block)
            for (std::size_t j = 0; j < (d == 1 ? 1 : 8 * block + 8); ++j, next += 8)
            {
                ASSERT_EQ(triangle.column(block, j), next); // one after the other
                for (std::size_t l = 0; l < 8; ++l)
                {
                    const std::size_t i = 8 * block + l;
                    ASSERT_EQ(next[l], i < d && j <= i ? triangle(i, j) : 0.0) << d;
                }
            }
    }
}

TEST(tkNMTriangle, equalityComparesDimensionAndElements)
{
    for (std::size_t d = 1; d <= 10; ++d)
    {
        EXPECT_TRUE(numbered(d) == numbered(d));
        EXPECT_TRUE(numbered(d) != numbered(d + 1));
        EXPECT_TRUE(tkNMTriangle(d) != tkNMTriangle(d - 1));
        tkNMTriangle other = numbered(d);
        other(d - 1, d / 2) = -1.0;
        EXPECT_TRUE(other != numbered(d));
    }
}

TEST(tkNMTriangle, startsWithZerosInAlignedMemory)
{
    for (std::size_t d = 1; d <= 70; ++d)
    {
        const tkNMTriangle triangle(d);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(triangle.blocks()) % 64, 0u) << d;
        for (std::size_t i = 0; i < d; ++i)
            for (std::size_t j = 0; j <= i; ++j)
                ASSERT_EQ(triangle(i, j), 0.0) << d;
    }
    EXPECT_EQ(tkNMTriangle().dimension(), 0u);
    EXPECT_TRUE(tkNMTriangle() == tkNMTriangle(0));
}

TEST(tkNMTriangle, copiesAreApartAndMovedOnesKeepTheirElements)
{
    for (const std::size_t d : {1u, 5u, 8u, 20u})
    {
        tkNMTriangle triangle = numbered(d);
        tkNMTriangle copy(triangle);
        copy(d - 1, 0) = -5.0;
        EXPECT_TRUE(triangle == numbered(d));
        const double* const memory = triangle.blocks();
        const tkNMTriangle moved(std::move(triangle));
        EXPECT_TRUE(moved == numbered(d));
        EXPECT_EQ(moved.blocks(), memory);
        copy = moved;
        EXPECT_TRUE(copy == numbered(d));
        copy = tkNMTriangle(3);
        EXPECT_EQ(copy.dimension(), 3u);
    }
}

TEST(tkNMTriangle, writingThroughTheBlocksIsWritingTheElements)
{
    tkNMTriangle triangle(11);
    triangle.blocks()[8 * 2 + 5] = 7.0; // column 2 of the first block, row 5
    EXPECT_EQ(triangle(5, 2), 7.0);
    triangle.blocks()[8 * (8 + 9) + 2] = 8.0; // column 9 of the second block, row 8 + 2
    EXPECT_EQ(triangle(10, 9), 8.0);
    EXPECT_EQ(triangle.column(1, 9)[2], 8.0);
}

TEST(tkNMTriangle, aNaNEqualsNothing)
{
    tkNMTriangle triangle = numbered(4);
    triangle(2, 1) = std::nan("");
    EXPECT_FALSE(triangle == triangle);
    EXPECT_TRUE(triangle != triangle);
}
