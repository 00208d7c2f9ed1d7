#ifndef TESTS_MODEL_INCOMPLETETESTDATA_H
#define TESTS_MODEL_INCOMPLETETESTDATA_H

#include "tests/model/modelTestData.h"

#include "clss/model/tk_IncompleteStatistics.h"

#include <cmath>
#include <limits>
#include <vector>

/// Patterns with gaps.
namespace incompleteTest
{
using Types = tkClassifierDistributionTypes;
using Data = tkClassifierDataProviderMemory;

const double notANumber = std::numeric_limits<double>::quiet_NaN();

/// The table of NumPy's estimates: patterns with gaps, mean and covariance.
struct Reference
{
    std::vector<std::vector<double>> patterns;
    std::vector<double> mean;
    std::vector<std::vector<double>> covariance;
};

inline Reference reference()
{
    Reference table;
    for (const Line& line : linesOf("incompleteTraining.csv"))
        if (line.word == "pattern")
            table.patterns.push_back(line.numbers);
        else if (line.word == "mean")
            table.mean = line.numbers;
        else
            table.covariance.push_back(line.numbers);
    return table;
}

inline std::vector<tk_Moments> noMoments(std::size_t d)
{
    return std::vector<tk_Moments>(d, tk_Moments{0.0, 0.0});
}

/// The patterns of the table as categories 0 and, moved by the deviations, 1.
inline Data twoCategories()
{
    const Reference table = reference();
    Data data;
    for (std::vector<double> pattern : table.patterns)
    {
        data.addData(handleTo(patternWithGaps(pattern)), 0);
        for (std::size_t j = 0; j < pattern.size(); ++j)
            pattern[j] += std::sqrt(table.covariance[j][j]);
        data.addData(handleTo(patternWithGaps(pattern)), 1);
    }
    return data;
}

inline tkClassifierTrainParamsBayesian jointParams()
{
    Types types(Types::eNormal);
    for (const long label : {0L, 1L})
        types.setDependent(label, {0, 1, 2, 3, 4});
    return tkClassifierTrainParamsBayesian(types);
}
} // namespace incompleteTest

#endif
