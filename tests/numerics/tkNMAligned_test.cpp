#include "numerics/tkNMAligned.h"

#include <gtest/gtest.h>

#include <cstdint>

TEST(tkNMAlignedDoubles, beginAtMultiplesOf64BytesAndCompareAsVectorsDo)
{
    for (std::size_t size = 1; size < 200; size += 7)
    {
        tkNMAlignedDoubles doubles(size, 1.5);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(doubles.data()) % 64, 0u);
        doubles.push_back(2.5); // moves to other memory
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(doubles.data()) % 64, 0u);
        const tkNMAlignedDoubles copy(doubles);
        EXPECT_EQ(copy, doubles);
        doubles.front() = 0.0;
        EXPECT_NE(copy, doubles);
    }
}
