#include "numerics/tkNMTriangle.h"

#include <gtest/gtest.h>

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
