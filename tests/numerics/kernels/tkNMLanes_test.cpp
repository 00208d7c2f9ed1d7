#include "numerics/kernels/tkNMLanes.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

namespace
{
constexpr double start[8] = {0.5, -1.0, 3.0, 1e300, -0.0, 7.0, 1.0 / 3.0, HUGE_VAL};
constexpr double other[8] = {2.0, 3.0, -1.0, 1e300, 5.0, 0.1, 3.0, -1.0};

template <std::size_t width>
std::vector<double> elementsOf(const LanesOf<width>& lanes)
{
    std::vector<double> elements(8);
    lanes.store(elements.data());
    for (std::size_t l = 0; l < 8; ++l)
        EXPECT_EQ(elements[l], lanes[l]) << l;
    return elements;
}

/// What `vectors` makes of `start` and `other` in registers of `width`, against `plain`, element by element.
template <std::size_t width, class Vectors, class Plain>
void expectPlain(const Vectors& vectors, const Plain& plain)
{
    LanesOf<width> lanes;
    LanesOf<width> operand;
    lanes.load(start);
    operand.load(other);
    vectors(lanes, operand);
    std::vector<double> expected;
    for (std::size_t l = 0; l < 8; ++l)
        expected.push_back(plain(l));
    EXPECT_EQ(elementsOf(lanes), expected) << "width " << width;
}

template <std::size_t width>
void expectPlainOperations()
{
    const auto expect = [](const auto& vectors, const auto& plain) { expectPlain<width>(vectors, plain); };
    expect([](auto& a, const auto&) { a.clear(); }, [](std::size_t) { return 0.0; });
    expect([](auto& a, const auto&) { a.add(0.25); }, [](std::size_t l) { return start[l] + 0.25; });
    expect([](auto& a, const auto& b) { a.multiply(b); }, [](std::size_t l) { return start[l] * other[l]; });
    expect([](auto& a, const auto&) { a.multiply(3.0); }, [](std::size_t l) { return start[l] * 3.0; });
    expect([](auto& a, const auto&) { a.divide(3.0); }, [](std::size_t l) { return start[l] / 3.0; });
    expect([](auto& a, const auto& b) { a.addProduct(b, 0.1); },
           [](std::size_t l) { return start[l] + other[l] * 0.1; });
    expect([](auto& a, const auto& b) { a.addSquare(b); },
           [](std::size_t l) { return start[l] + other[l] * other[l]; });
    for (std::size_t k = 0; k < 8; ++k)
    {
        expect([k](auto& a, const auto&) { a.keepFrom(k); }, [k](std::size_t l) { return l < k ? 0.0 : start[l]; });
        expect([k](auto& a, const auto&) { a.addExcept(HUGE_VAL, k); },
               [k](std::size_t l) { return l == k ? start[l] + 0.0 : start[l] + HUGE_VAL; });
    }
}
} // namespace

TEST(tkNMLanes, everyWidthDoesWhatPlainCodeDoes)
{
    expectPlainOperations<1>();
#if defined(__GNUC__)
    expectPlainOperations<2>(); // wider ones than the target has are spilled, with the same results
    expectPlainOperations<4>();
    expectPlainOperations<8>();
#endif
}

TEST(tkNMLanes, registersOfAnyElementHaveItsSize)
{
    static_assert(sizeof(RegisterOf<double, 1>::Type) == sizeof(double));
#if defined(__GNUC__)
    static_assert(sizeof(RegisterOf<double, 2>::Type) == 16);
    static_assert(sizeof(RegisterOf<unsigned short, 16>::Type) == 32);
    const unsigned short elements[16] = {65535, 1, 2};
    RegisterOf<unsigned short, 16>::Type lanes;
    loadRegister(lanes, elements);
    lanes = lanes + 1;
    unsigned short stored[16];
    storeRegister(lanes, stored);
    EXPECT_EQ(stored[0], 0);
    EXPECT_EQ(stored[1], 2);
    EXPECT_EQ(stored[15], 1);
#endif
}

TEST(tkNMLanes, fewDoublesAreCopiedAndNoMore)
{
    const double from[] = {1.0, 2.0, 3.0, 4.0, 5.0, 6.0, 7.0};
    for (std::size_t count = 0; count < 8; ++count)
    {
        double to[8] = {};
        copyFew(from, count, to);
        for (std::size_t i = 0; i < 8; ++i)
            EXPECT_EQ(to[i], i < count ? from[i] : 0.0);
    }
}

namespace
{
template <std::size_t width>
void expectSums()
{
    std::mt19937_64 generator(1);
    std::normal_distribution<double> deviate;
    for (int round = 0; round < 200; ++round)
    {
        double a[8], b[8], c[8];
        for (std::size_t l = 0; l < 8; ++l)
        {
            a[l] = deviate(generator) * std::exp2(static_cast<double>(generator() % 40));
            b[l] = deviate(generator);
            c[l] = deviate(generator);
        }
        LanesOf<width> lanes, x, y;
        lanes.load(a);
        EXPECT_EQ(lanes.sum(), ((a[0] + a[4]) + (a[2] + a[6])) + ((a[1] + a[5]) + (a[3] + a[7])));
        x.load(b);
        y.load(c);
        lanes.addProducts(x, y);
        std::vector<double> expected;
        for (std::size_t l = 0; l < 8; ++l)
            expected.push_back(a[l] + b[l] * c[l]);
        EXPECT_EQ(elementsOf(lanes), expected);
        lanes.subtractProduct(x, 0.3);
        for (std::size_t l = 0; l < 8; ++l)
            expected[l] = expected[l] - b[l] * 0.3;
        EXPECT_EQ(elementsOf(lanes), expected);
    }
}

/// NaN, infinity and zeros of either sign are dropped or kept with their bits.
template <std::size_t width>
void expectStrangeLanesKept()
{
    const double strange[8] = {std::nan(""), HUGE_VAL, -0.0, -HUGE_VAL, 5e-324, -std::nan(""), -0.0, 1e308};
    for (std::size_t first = 0; first < 8; ++first)
    {
        LanesOf<width> lanes;
        lanes.load(strange);
        lanes.keepFrom(first);
        double kept[8];
        lanes.store(kept);
        for (std::size_t l = 0; l < 8; ++l)
        {
            const double expected = l < first ? 0.0 : strange[l];
            EXPECT_EQ(std::memcmp(&kept[l], &expected, sizeof expected), 0) << width << ' ' << first << ' ' << l;
        }
    }
    for (std::size_t lane = 0; lane < 8; ++lane)
    {
        LanesOf<width> lanes;
        lanes.clear();
        lanes.addExcept(std::nan(""), lane);
        for (std::size_t l = 0; l < 8; ++l)
            EXPECT_EQ(std::isnan(lanes[l]), l != lane) << width << ' ' << lane;
        EXPECT_FALSE(std::signbit(lanes[lane]));
    }
}
} // namespace

TEST(tkNMLanes, everyWidthSumsInTheSameOrder)
{
    expectSums<1>();
#if defined(__GNUC__)
    expectSums<2>();
    expectSums<4>();
    expectSums<8>();
#endif
}

TEST(tkNMLanes, whatIsMaskedLeavesNoTrace)
{
    expectStrangeLanesKept<1>();
#if defined(__GNUC__)
    expectStrangeLanesKept<2>();
    expectStrangeLanesKept<4>();
    expectStrangeLanesKept<8>();
#endif
}

TEST(tkNMLanes, loadAndStoreNeedNoAlignment)
{
    std::vector<double> memory(20);
    for (std::size_t i = 0; i < memory.size(); ++i)
        memory[i] = static_cast<double>(i);
    for (std::size_t first = 0; first < 8; ++first)
    {
        std::vector<double> target(20, -1.0);
        LanesOf<plainWidth> lanes;
        lanes.load(memory.data() + first);
        lanes.store(target.data() + 7 - first);
        for (std::size_t i = 0; i < target.size(); ++i)
            EXPECT_EQ(target[i], i >= 7 - first && i < 15 - first ? static_cast<double>(i + 2 * first) - 7.0 : -1.0);
    }
}
