// Statistics and sets that no training gives, as a damaged archive may hold: whatever is loaded can be evaluated, and
// only the library's own exceptions end an evaluation.

#include "clss/clastool/bayes/tk_CategoryModelBayesian.h"
#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "foundation/tkArchive.h"
#include "foundation/tkAssert.h"
#include "foundation/tkException.h"
#include "tests/support/bayesianTool.h"
#include "tkTest.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <vector>

TEST(StrangeStatistics, inAStoredToolNeverFailAnAssertion)
{
    BayesianData data;
    std::mt19937_64 generator(5);
    std::normal_distribution<double> deviate;
    for (int i = 0; i < 12; ++i)
        for (const long label : {0, 1})
            data.add(label, {deviate(generator), deviate(generator), 3.0 + static_cast<double>(label)});
    int ran = 0;
    for (const bool isJoint : {false, true})
    {
        const std::string bytes = storeToBytes(bayesianTool(data, isJoint));
        for (const double strange : {std::nan(""), HUGE_VAL, -HUGE_VAL, 1.7976931348623157e308, -1e300, 5e-324, 1e155})
            for (std::size_t position = 0; position + sizeof strange <= bytes.size(); ++position)
            {
                std::string damaged(bytes);
                std::memcpy(&damaged[position], &strange, sizeof strange);
                tkClassifierTool tool;
                try
                {
                    std::istringstream stream(damaged);
                    tkArchive archive(stream);
                    archive || tool;
                    for (const std::vector<long>& invalid : {std::vector<long>{}, {0}, {1, 2}})
                        static_cast<void>(resultOf(tool, {0.5, -0.5, 3.0}, invalid));
                    ++ran;
                }
                catch (const tkAssertionFailure&)
                {
                    ADD_FAILURE() << "an assertion failed at " << position << " with " << strange;
                }
                catch (const tkException&)
                {
                }
            }
    }
    EXPECT_GT(ran, 1000);
}

TEST(StrangeStatistics, ofSetsThatRepeatAMeasurementAreRepaired)
{
    const std::vector<std::vector<long>> sets{{0, 0}, {2, 1, 2, 0}, {7, 0}};
    const std::vector<tkClassifierDistributionTypes::DistributionType> types(3, tkClassifierDistributionTypes::eNormal);
    for (const long count : {1, 2, 3, 5, 40})
    {
        tk_CategoryModelBayesian model(4, {sets[0], sets[1]}, {types[0], types[1]}, tkFeaturePattern());
        std::mt19937_64 generator(6);
        std::normal_distribution<double> deviate;
        for (long i = 0; i < count; ++i)
            model.adapt(tkFeaturePattern({deviate(generator), deviate(generator), deviate(generator)}));
        for (const std::vector<long>& invalid : {std::vector<long>{}, {0}, {1}, {2}, {0, 2}})
            EXPECT_TRUE(std::isfinite(model.matchScore(tkFeaturePattern({0.1, 0.2, 0.3}, invalid)))) << count;
    }
    tk_CategoryModelBayesian beyond(4, {sets[2]}, {types[2]}, tkFeaturePattern());
    beyond.adapt(tkFeaturePattern({1.0})); // without a measurement 7 there is nothing to learn
    EXPECT_TK_THROW(beyond.matchScore(tkFeaturePattern({1.0})), tkClassifierDefs::InsufficientTrainData,
                    L"No valid data has been used to train the distribution for category 4");
}
