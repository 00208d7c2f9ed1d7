#include "foundation/tkRandom.h"
#include "tkTest.h"

#include <cmath>
#include <limits>

// tkRandomUniform::next(low, high) computes low + u (high - low). Where the difference is larger than any double, it
// gave infinity, or NaN for u = 0. It stays within the range now, and every other range gives the same numbers as ever.

TEST(uniformNumbersOverflowed, numbersStayWithinTheRange)
{
    const double largest = std::numeric_limits<double>::max();
    const double ranges[][2] = {{-largest, largest}, {-largest, largest / 2}, {-largest / 2, largest}};
    for (const auto& range : ranges)
    {
        tkRandomUniform random(7);
        double lowest = largest;
        double highest = -largest;
        for (int i = 0; i < 10000; ++i)
        {
            const double value = random.next(range[0], range[1]);
            ASSERT_TRUE(value >= range[0] && value <= range[1]) << value;
            lowest = std::min(lowest, value);
            highest = std::max(highest, value);
        }
        EXPECT_LT(lowest, range[0] * 0.99);
        EXPECT_GT(highest, range[1] * 0.99);
    }
}

TEST(uniformNumbersOverflowed, otherRangesGiveTheNumbersOfTheFormula)
{
    tkRandomUniform random(3);
    tkRandomUniform unit(3);
    for (const double low : {-1.0, 0.0, 1e-300, -1e300, 5.0})
        for (const double high : {5.0, 1e10, 1e300})
            for (int i = 0; i < 100; ++i)
            {
                const double u = unit.next(0.0, 1.0);
                const double value = random.next(low, high);
                EXPECT_EQ(low + u * (high - low), value);
                EXPECT_TRUE(value >= low && value <= high);
            }
}
