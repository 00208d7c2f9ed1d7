#ifndef TESTS_MODEL_POOLINGTESTDATA_H
#define TESTS_MODEL_POOLINGTESTDATA_H

#include "tests/model/modelTestData.h"

#include <cmath>
#include <limits>
#include <vector>

/// Data whose categories have covariances to borrow.
namespace poolingTest
{
using Types = tkClassifierDistributionTypes;
using Data = tkClassifierDataProviderMemory;

const double notANumber = std::numeric_limits<double>::quiet_NaN();

/// Every `step`-th pattern of wine, its first measurements.
inline Data wine(std::size_t step)
{
    Data data;
    std::size_t i = 0;
    for (const Line& line : linesOf("assessment.csv"))
        if (line.word == "pattern" && i++ % step == 0)
            data.addData(std::vector<double>(line.numbers.begin() + 2, line.numbers.end()),
                         static_cast<long>(line.numbers[1]));
    return data;
}

inline tkClassifierTrainParamsBayesian jointParams(const std::vector<long>& labels = {0, 1, 2})
{
    Types types(Types::eNormal);
    for (const long label : labels)
        types.setDependent(label, {0, 1, 2, 3});
    tkClassifierFrequencies frequencies(1.0);
    frequencies.categoryFrequencyOverride(1, 2.0);
    return tkClassifierTrainParamsBayesian(types, frequencies);
}

inline double scoreOf(const tkClassifierResult& result, long label)
{
    for (const tkClassifierCategoryResult& category : result.categoryResults())
        if (category.categoryLabel() == label)
            return category.classScore();
    return -1.0;
}

inline double relative(double expected, double value)
{
    return std::abs(value - expected) / (std::abs(expected) + 1e-300);
}
} // namespace poolingTest

#endif
