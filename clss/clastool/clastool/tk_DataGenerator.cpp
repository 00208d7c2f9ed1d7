#include "clss/clastool/clastool/tk_DataGenerator.h"

#include "foundation/tkRandom.h"

#include <algorithm>
#include <numeric>

namespace
{
constexpr long seed = 1;
}

tk_ClassDataGenerator::tk_ClassDataGenerator(const std::vector<tkPair<double>>& featureDistributions, long count)
    : featureDistributions_(featureDistributions),
      count_(count)
{
}

tkClassifierDataProviderMemory tk_ClassDataGenerator::generateData()
{
    if (generatedData_.numMeasurements() != 0)
        return generatedData_;
    tkRandomGaussian gaussian(seed);
    tkClassifierDataProviderMemory data(generatedData_);
    std::vector<double> measurements;
    for (long i = 0; i < count_; ++i)
    {
        measurements.clear();
        for (const tkPair<double>& distribution : featureDistributions_)
            measurements.push_back(gaussian.next(distribution.first, distribution.second));
        data.addData(tkPtrHandle_const<tkFeaturePattern>(new tkFeaturePattern(measurements)), 0);
    }
    generatedData_ = data;
    return data;
}

tk_TotalDataGenerator::tk_TotalDataGenerator(const std::vector<tk_ClassDataGenerator>& classGenerators)
    : classGenerators_(classGenerators)
{
}

tkClassifierDataProviderMemory tk_TotalDataGenerator::generateData()
{
    if (generatedData_.numMeasurements() != 0)
        return generatedData_;

    tkClassifierDataProviderMemory all;
    for (std::size_t g = 0; g < classGenerators_.size(); ++g)
    {
        tkClassifierDataProviderMemory data = classGenerators_[g].generateData();
        for (long k = 0; k < data.numMeasurements(); ++k)
            all.addData(data.featurePattern(k), static_cast<long>(g));
    }

    // Swaps each position with one drawn from the whole list, not from the rest of it. The data that a seed gives
    // depend on this.
    const long count = all.numMeasurements();
    std::vector<long> order(static_cast<std::size_t>(count));
    std::iota(order.begin(), order.end(), 0L);
    tkRandomUniform uniform(seed);
    for (long& place : order)
    {
        const long drawn = static_cast<long>(uniform.next(0.0, static_cast<double>(count)));
        std::swap(place, order[static_cast<std::size_t>(std::min(drawn, count - 1))]);
    }

    tkClassifierDataProviderMemory shuffled;
    for (const long index : order)
        shuffled.addData(all.featurePattern(index), all.categoryLabel(index));
    generatedData_ = shuffled;
    return shuffled;
}
