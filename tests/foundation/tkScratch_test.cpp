#include "foundation/tkScratch.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <numeric>
#include <type_traits>

static_assert(!std::is_copy_constructible_v<tkScratch<double>> && !std::is_copy_assignable_v<tkScratch<double>>);

namespace
{
/// The sum of 0, ..., n - 1, written to a scratch and read back by its iterators.
long sumOfNumbers(std::size_t n)
{
    tkScratch<long, 8> scratch(n);
    for (std::size_t i = 0; i < n; ++i)
        scratch[i] = static_cast<long>(i);
    EXPECT_EQ(n, scratch.size());
    EXPECT_EQ(scratch.data(), scratch.begin());
    EXPECT_EQ(scratch.data() + n, scratch.end());
    return std::accumulate(scratch.begin(), scratch.end(), 0L);
}
} // namespace

TEST(tkScratch, holdsSoManyElements)
{
    for (const std::size_t n : {0u, 1u, 7u, 8u, 9u, 1000u})
        EXPECT_EQ(static_cast<long>(n * (n + 1) / 2) - static_cast<long>(n), sumOfNumbers(n)) << n;
}

TEST(tkScratch, hasItsElementsInItselfAsLongAsTheyFit)
{
    using Scratch = tkScratch<long, 8>;
    for (const std::size_t n : {0u, 1u, 8u, 9u, 100u})
    {
        const Scratch scratch(n);
        const auto begin = reinterpret_cast<std::uintptr_t>(&scratch);
        const auto elements = reinterpret_cast<std::uintptr_t>(scratch.data());
        EXPECT_EQ(n <= 8, begin <= elements && elements < begin + sizeof scratch) << n;
    }
}

TEST(tkScratch, shrinkingKeepsTheFirstElements)
{
    for (const std::size_t n : {8u, 20u})
    {
        tkScratch<int, 8> scratch(n);
        std::iota(scratch.begin(), scratch.end(), 5);
        const int* const before = scratch.data();
        scratch.shrink(3);
        EXPECT_EQ(3u, scratch.size());
        EXPECT_EQ(before, scratch.data());
        EXPECT_EQ(scratch.data() + 3, scratch.end());
        EXPECT_EQ(7, scratch[2]);
    }
}
