#include "numerics/tkNMWideDistances.h"

#include "foundation/tkAssert.h"

#include "instructionSets.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

namespace
{
using Bytes = tkNMByteDistances;
using Wide = tkNMWideDistances;

constexpr long numBlocks = 3;
constexpr double centre = 0.5;
constexpr double scale = 4.0;

// Three blocks of bytes, and a query of which some columns lie outside the bytes.
struct Blocks
{
    long columns;
    std::vector<Bytes::Line> lines;
    std::vector<std::vector<int>> rows;
    std::vector<double> query;
    std::vector<double> centres;

    Blocks(long columns, double width, std::mt19937_64& random)
        : columns(columns),
          lines(static_cast<std::size_t>(numBlocks * columns)),
          centres(static_cast<std::size_t>(columns), centre)
    {
        std::uniform_int_distribution<int> byte(-127, 127);
        std::uniform_real_distribution<double> position(-width, width);
        for (long c = 0; c < columns; ++c)
            query.push_back(centre + position(random) / scale);
        for (long row = 0; row < numBlocks * Bytes::blockRows; ++row)
        {
            rows.emplace_back();
            for (long c = 0; c < columns; ++c)
            {
                // The last rows are the two corners nearest to the query and farthest from it.
                const double z = query[static_cast<std::size_t>(c)] - centre;
                const int corner = z < 0.0 ? -127 : 127;
                const long fromLast = numBlocks * Bytes::blockRows - 1 - row;
                const int value = fromLast == 0 ? corner : fromLast == 1 ? -corner : byte(random);
                rows.back().push_back(value);
                std::int8_t* block = lines[static_cast<std::size_t>(row / Bytes::blockRows * columns)].bytes;
                block[Bytes::offset(columns, row % Bytes::blockRows, c)] = static_cast<std::int8_t>(value);
            }
        }
    }

    // |z - x|^2 - |g|^2, where the squares of what lies outside the bytes are left out before they can cancel.
    long double exact(std::size_t row) const
    {
        long double sum = 0.0L;
        for (std::size_t c = 0; c < query.size(); ++c)
        {
            const long double z = (query[c] - static_cast<long double>(centres[c])) * scale;
            const long double g = std::max(std::fabs(z) - 127.0L, 0.0L);
            const long double inside = std::fabs(std::min(std::max(z, -127.0L), 127.0L) - rows[row][c]);
            sum += inside * (inside + 2.0L * g);
        }
        return sum;
    }
};
} // namespace

TEST(tkNMWideDistances, sumsAreBoundsWithinOneUnitAndTheSlack)
{
    std::mt19937_64 random(4);
    for (const long columns : {1, 2, 3, 8, 15, 16, 17, 64, 257, 4095, 4096})
        for (const double width : {10.0, 127.0, 200.0, 1e3, 1e5, 1e9, 1e15, 1e200})
        {
            const Blocks blocks(columns, width, random);
            for (const tkNMInstructions level : instructionSets())
            {
                const Wide wide(columns, blocks.query.data(), blocks.centres.data(), scale, level);
                for (long block = 0; block < numBlocks; ++block)
                {
                    std::uint16_t sums[Bytes::blockRows];
                    wide.sums(&blocks.lines[static_cast<std::size_t>(block * columns)], sums);
                    long wrong = 0;
                    for (long row = 0; row < Bytes::blockRows; ++row)
                    {
                        const long double exact =
                            blocks.exact(static_cast<std::size_t>(block * Bytes::blockRows + row)) / wide.unit();
                        wrong += !(sums[row] - wide.slack() <= exact && exact < sums[row] + 1.0 + wide.slack());
                    }
                    EXPECT_EQ(wrong, 0) << columns << " columns, width " << width << ", instructions " << level;
                }
            }
        }
}

TEST(tkNMWideDistances, everyInstructionSetGivesTheSameSumsAndMinima)
{
    std::mt19937_64 random(5);
    for (const long columns : {1, 2, 3, 7, 8, 16, 17, 63, 64, 513})
        for (const double width : {50.0, 300.0, 1e7})
        {
            const Blocks blocks(columns, width, random);
            std::vector<std::uint16_t> first;
            for (const tkNMInstructions level : instructionSets())
            {
                const Wide wide(columns, blocks.query.data(), blocks.centres.data(), scale, level);
                std::vector<std::uint16_t> sums(numBlocks * Bytes::blockRows);
                std::uint16_t minima[numBlocks];
                wide.minima(blocks.lines.data(), numBlocks, minima);
                for (long block = 0; block < numBlocks; ++block)
                {
                    std::uint16_t* const ofBlock = &sums[static_cast<std::size_t>(block * Bytes::blockRows)];
                    wide.sums(&blocks.lines[static_cast<std::size_t>(block * columns)], ofBlock);
                    EXPECT_EQ(minima[block], *std::min_element(ofBlock, ofBlock + Bytes::blockRows));
                }
                if (first.empty())
                    first = sums;
                EXPECT_EQ(sums, first) << columns << " columns, width " << width << ", instructions " << level;
            }
        }
}

TEST(tkNMWideDistances, theUnitDividesWhatBytesCanDifferByInto65535Parts)
{
    const double query = 1000.0;
    const double zero = 0.0;
    EXPECT_EQ(Wide(1, &query, &zero, 1.0, tkNMInstructions::Portable).unit(), 4.0 * 127.0 * 1000.0 / 65535.0);
    EXPECT_EQ(Wide(1, &zero, &zero, 1.0, tkNMInstructions::Portable).unit(), 127.0 * 127.0 / 65535.0);
}

TEST(tkNMWideDistances, columnsAreRequiredToBeInRange)
{
    const std::vector<double> zeros(Bytes::maxColumns + 1);
    EXPECT_THROW(Wide(0, zeros.data(), zeros.data(), 1.0, tkNMInstructions::Portable), tkAssertionFailure);
    EXPECT_THROW(Wide(Bytes::maxColumns + 1, zeros.data(), zeros.data(), 1.0, tkNMInstructions::Portable),
                 tkAssertionFailure);
    EXPECT_NO_THROW(Wide(Bytes::maxColumns, zeros.data(), zeros.data(), 1.0, tkNMInstructions::Portable));
}
