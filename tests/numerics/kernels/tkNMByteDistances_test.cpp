#include "numerics/kernels/tkNMByteDistances.h"

#include "foundation/tkAssert.h"

#include "instructionSets.h"

#include <gtest/gtest.h>

#include <algorithm>
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
