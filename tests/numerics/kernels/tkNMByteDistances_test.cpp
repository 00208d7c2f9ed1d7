#include "numerics/kernels/tkNMByteDistances.h"

#include "foundation/tkAssert.h"

#include "instructionSets.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <random>
#include <vector>

namespace
{
using Bytes = tkNMByteDistances;

// Some rows of bytes in [-range, range] and the sums that the class promises, from its formula.
struct Blocks
{
    long columns;
    std::vector<Bytes::Line> lines;
    std::vector<std::vector<int>> rows;
    std::unique_ptr<Bytes::Query> query{new Bytes::Query()};

    Blocks(long columns, long count, int range, std::mt19937_64& random)
        : columns(columns),
          lines(static_cast<std::size_t>(count * columns))
    {
        std::uniform_int_distribution<int> byte(-range, range);
        for (long c = 0; c < columns; ++c)
            query->bytes[c] = static_cast<std::int8_t>(byte(random));
        for (long row = 0; row < count * Bytes::blockRows; ++row)
        {
            rows.emplace_back();
            for (long c = 0; c < columns; ++c)
            {
                const int value = byte(random);
                rows.back().push_back(value);
                std::int8_t* block = lines[static_cast<std::size_t>(row / Bytes::blockRows * columns)].bytes;
                block[Bytes::offset(columns, row % Bytes::blockRows, c)] = static_cast<std::int8_t>(value);
            }
        }
    }

    long sum(std::size_t row, int power, int shift) const
    {
        const auto term = [&](long c)
        {
            const long d = std::min(std::abs(query->bytes[c] - rows[row][static_cast<std::size_t>(c)]), 127);
            return power == 2 ? d * d : d;
        };
        const long paired = columns - columns % 2;
        long sum = 0;
        long group = columns % 2 != 0 ? term(paired) : 0;
        for (long c = 0; c < paired; ++c)
        {
            group += term(c);
            if (c % 16 == 15)
            {
                sum += std::min(group, 65535L) >> shift;
                group = 0;
            }
        }
        return sum + (std::min(group, 65535L) >> shift);
    }
};
} // namespace

TEST(tkNMByteDistances, everyInstructionSetGivesTheSumsOfTheFormula)
{
    std::mt19937_64 random(3);
    for (const long columns : {1, 2, 3, 7, 8, 15, 16, 17, 18, 31, 32, 33, 63, 64, 257, 480, 513, 4095, 4096})
        for (const int range : {3, 20, 127})
        {
            const Blocks blocks(columns, 3, range, random);
            for (const int power : {1, 2})
                for (const tkNMInstructions level : instructionSets())
                {
                    const Bytes bytes(columns, power, level);
                    bytes.prepare(*blocks.query);
                    std::uint16_t minima[3];
                    bytes.minima(blocks.lines.data(), 3, *blocks.query, minima);
                    for (long block = 0; block < 3; ++block)
                    {
                        std::uint16_t sums[Bytes::blockRows];
                        bytes.sums(&blocks.lines[static_cast<std::size_t>(block * columns)], *blocks.query, sums);
                        long wrong = 0;
                        for (long row = 0; row < Bytes::blockRows; ++row)
                            wrong += sums[row] != blocks.sum(static_cast<std::size_t>(block * Bytes::blockRows + row),
                                                             power, bytes.shift());
                        EXPECT_EQ(wrong, 0) << columns << " columns, power " << power << ", instructions " << level;
                        EXPECT_EQ(minima[block], *std::min_element(sums, sums + Bytes::blockRows));
                    }
                }
        }
}

TEST(tkNMByteDistances, theShiftIsTheSmallestThatKeepsSumsOfGroupsIn16Bits)
{
    const auto shift = [](long columns, int power)
    { return Bytes(columns, power, tkNMInstructions::Portable).shift(); };
    EXPECT_EQ(shift(1, 2), 0);
    EXPECT_EQ(shift(17, 2), 0);
    EXPECT_EQ(shift(18, 2), 1);
    EXPECT_EQ(shift(33, 2), 1);
    EXPECT_EQ(shift(64, 2), 2);
    EXPECT_EQ(shift(4096, 2), 8);
    EXPECT_EQ(shift(513, 1), 0);
    EXPECT_EQ(shift(514, 1), 1);
    EXPECT_EQ(shift(4096, 1), 3);
}

TEST(tkNMByteDistances, rowsUpToASumAreThoseWhoseSumsDoNotExceedIt)
{
    std::mt19937_64 random(6);
    const std::vector<unsigned> edges = {0, 1, 127, 128, 255, 256, 32767, 32768, 32769, 65280, 65534, 65535};
    for (int round = 0; round < 2000; ++round)
    {
        const auto any = [&] { return random() % 2 == 0 ? edges[random() % edges.size()] : random() % 65536; };
        std::uint16_t sums[Bytes::blockRows];
        for (std::uint16_t& sum : sums)
            sum = static_cast<std::uint16_t>(any());
        const auto highest = static_cast<std::uint16_t>(random() % 4 == 0 ? sums[random() % Bytes::blockRows] : any());
        std::uint64_t expected = 0;
        for (int row = 0; row < Bytes::blockRows; ++row)
            if (sums[row] <= highest)
                expected |= std::uint64_t{1} << row;
        ASSERT_EQ(Bytes::rowsUpTo(highest, sums), expected) << "up to " << highest;
    }
}

TEST(tkNMByteDistances, columnsAndPowerAreRequiredToBeInRange)
{
    EXPECT_THROW(Bytes(0, 2, tkNMInstructions::Portable), tkAssertionFailure);
    EXPECT_THROW(Bytes(Bytes::maxColumns + 1, 2, tkNMInstructions::Portable), tkAssertionFailure);
    EXPECT_THROW(Bytes(4, 3, tkNMInstructions::Portable), tkAssertionFailure);
    EXPECT_NO_THROW(Bytes(Bytes::maxColumns, 1, tkNMInstructions::Portable));
}

TEST(tkNMByteDistances, differencesAreCutAt127)
{
    for (const tkNMInstructions set : instructionSets())
        for (const int power : {1, 2})
        {
            Bytes::Line line;
            const auto query = std::make_unique<Bytes::Query>();
            query->bytes[0] = 127;
            for (int row = 0; row < 64; ++row)
                line.bytes[row] = static_cast<std::int8_t>(row * 4 - 127);
            const Bytes bytes(1, power, set);
            bytes.prepare(*query);
            std::uint16_t sums[Bytes::blockRows];
            bytes.sums(&line, *query, sums);
            for (int row = 0; row < 64; ++row)
            {
                const int d = std::min(254 - 4 * row, 127);
                EXPECT_EQ(sums[row], power == 1 ? d : d * d) << row << ' ' << set;
            }
        }
}

/// With all columns as far apart as can be, each group is full: the sum is the largest there is, and no step wraps.
TEST(tkNMByteDistances, theFarthestRowHasTheLargestSum)
{
    for (const long columns : {16, 17, 18, 64, 1000, 4096})
        for (const int power : {1, 2})
            for (const tkNMInstructions set : instructionSets())
            {
                std::vector<Bytes::Line> block(static_cast<std::size_t>(columns));
                const auto query = std::make_unique<Bytes::Query>();
                for (long c = 0; c < columns; ++c)
                {
                    query->bytes[c] = c % 3 == 0 ? 127 : -127;
                    for (long row = 0; row < Bytes::blockRows; ++row)
                        block[0].bytes[Bytes::offset(columns, row, c)] =
                            row == 5 ? query->bytes[c] : static_cast<std::int8_t>(-query->bytes[c]);
                }
                const Bytes bytes(columns, power, set);
                bytes.prepare(*query);
                std::uint16_t sums[Bytes::blockRows];
                std::uint16_t smallest = 77;
                bytes.sums(block.data(), *query, sums);
                bytes.minima(block.data(), 1, *query, &smallest);
                EXPECT_EQ(sums[5], 0);
                EXPECT_EQ(smallest, 0);
                const long group = std::min(65535L, 16L * (power == 1 ? 127 : 127 * 127));
                EXPECT_GE(sums[6], columns / 16 * (group >> bytes.shift())) << columns << ' ' << power << ' ' << set;
                EXPECT_EQ(*std::max_element(sums, sums + 64), sums[6]);
            }
}

TEST(tkNMByteDistances, everyByteOfABlockHasAPlaceOfItsOwn)
{
    for (const long columns : {1, 2, 3, 8, 17, 64})
    {
        std::vector<bool> isTaken(static_cast<std::size_t>(64 * columns));
        for (long row = 0; row < Bytes::blockRows; ++row)
            for (long c = 0; c < columns; ++c)
            {
                const auto place = static_cast<std::size_t>(Bytes::offset(columns, row, c));
                ASSERT_LT(place, isTaken.size());
                EXPECT_FALSE(isTaken[place]) << columns << ' ' << row << ' ' << c;
                isTaken[place] = true;
            }
    }
}

TEST(tkNMByteDistances, pairsOfAQueryHoldTwoColumnsTwice)
{
    const Bytes bytes(5, 2, tkNMInstructions::Portable);
    const auto query = std::make_unique<Bytes::Query>();
    const std::int8_t values[] = {1, -2, 127, -127, 9};
    std::copy(std::begin(values), std::end(values), query->bytes);
    bytes.prepare(*query);
    for (int pair = 0; pair < 2; ++pair)
    {
        const std::uint32_t first = static_cast<std::uint8_t>(values[2 * pair]);
        const std::uint32_t second = static_cast<std::uint8_t>(values[2 * pair + 1]);
        EXPECT_EQ(query->pairs[pair], first | second << 8 | first << 16 | second << 24);
    }
}
