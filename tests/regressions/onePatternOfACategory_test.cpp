// A category that was trained with one pattern never won.
//
// One pattern has no variance. Each of its measurements got 2^-10 of its reference deviation, so that everything but
// the pattern itself was hundreds of deviations away: such a category found none of its own patterns.
//
// Now the deviations of a single pattern are the reference deviations: it says where the category is, and nothing about
// how wide.

#include "tests/support/bayesianTool.h"

#include <gtest/gtest.h>

#include <random>

TEST(OnePatternOfACategory, recognisesItsKind)
{
    for (const bool isJoint : {false, true})
    {
        std::mt19937_64 generator(10);
        std::normal_distribution<double> deviate;
        const auto pattern = [&](long label)
        {
            const double place = 8.0 * static_cast<double>(label);
            return std::vector<double>{place + deviate(generator), -place + deviate(generator),
                                       place / 2.0 + deviate(generator)};
        };
        BayesianData training;
        BayesianData test;
        for (int i = 0; i < 100; ++i)
            for (const long label : {0, 1, 2})
            {
                if (i == 0 || label == 0)
                    training.add(label, pattern(label));
                test.add(label, pattern(label));
            }
        BayesianData single;
        for (const long label : {0, 1, 2})
            single.add(label, pattern(label));

        // Two categories of one pattern beside one of a hundred, and three of one.
        for (const BayesianData& data : {training, single})
        {
            const tkClassifierTool tool = bayesianTool(data, isJoint);
            for (const long label : {0, 1, 2})
            {
                BayesianData ofLabel;
                for (std::size_t i = 0; i < test.rows.size(); ++i)
                    if (test.labels[i] == label)
                        ofLabel.add(label, test.rows[i]);
                EXPECT_GT(shareOfRight(tool, ofLabel), 0.9) << label << ' ' << isJoint << ' ' << data.rows.size();
            }
        }
    }
}
