#include "numerics/tkNMAligned.h"

#include "tkAllocatedBytes.h"
#include "tkAllocations.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <new>
#include <utility>

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

TEST(tkNMAlignedAllocator, alignsElementsOfAnySize)
{
    struct Wide
    {
        char bytes[100];
    };
    for (std::size_t n = 0; n < 50; ++n)
    {
        tkNMAlignedAllocator<char> chars;
        char* const text = chars.allocate(n);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(text) % 64, 0u) << n;
        std::fill_n(text, n, 'x'); // a sanitizer sees what is written beyond
        chars.deallocate(text, n);

        tkNMAlignedAllocator<Wide> wides;
        Wide* const elements = wides.allocate(n);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(elements) % 64, 0u) << n;
        for (std::size_t i = 0; i < n; ++i)
            elements[i].bytes[99] = 'x';
        wides.deallocate(elements, n);
    }
}

TEST(tkNMAlignedAllocator, anyOneFreesWhatAnotherAllocated)
{
    tkNMAlignedAllocator<double> one;
    const tkNMAlignedAllocator<long> other;
    tkNMAlignedAllocator<double> converted(other);
    EXPECT_TRUE(one == other);
    EXPECT_FALSE(one != other);
    converted.deallocate(one.allocate(3), 3);
}

TEST(tkNMAlignedAllocator, freesAllThatItAllocates)
{
    const std::size_t before = tkAllocatedBytes();
    for (int round = 0; round < 200; ++round)
    {
        tkNMAlignedDoubles doubles(1000);
        tkNMAlignedDoubles moved(std::move(doubles));
        moved.resize(5000);
        moved.shrink_to_fit();
    }
    EXPECT_LE(tkAllocatedBytes(), before + 100000); // 8 MB and more if it did not
}

TEST(tkNMAlignedAllocator, withoutMemoryThrowsAsNewDoes)
{
    tkNMAlignedDoubles doubles(10, 2.0);
    {
        const tkAllocations none(0);
        EXPECT_THROW(doubles.resize(1000), std::bad_alloc);
    }
    EXPECT_EQ(doubles, tkNMAlignedDoubles(10, 2.0));
}
