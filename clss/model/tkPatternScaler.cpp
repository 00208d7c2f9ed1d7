#include "clss/model/tkPatternScaler.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/model/tk_LabelledPatterns.h"
#include "foundation/tkArchiveOperators.h"
#include "foundation/tkAssert.h"
#include "numerics/tkNMStatistics.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <utility>

namespace
{
struct Map
{
    double offset;
    double scale;
};

Map byDeviation(const std::vector<double>& values)
{
    tkNMStatistics statistics(1);
    for (const double value : values)
        statistics.add(&value);
    const double divisor = std::max(1.0, static_cast<double>(values.size()) - 1.0);
    return {statistics.mean[0], std::sqrt(statistics.crossProducts(0, 0) / divisor)};
}

/// The quantile of share p of ascending values, n of them: that at (n - 1) p, linear between neighbours.
double quantile(const std::vector<double>& ascending, double p)
{
    const double place = static_cast<double>(ascending.size() - 1) * p;
    const auto before = static_cast<std::size_t>(place);
    const double after = ascending[std::min(before + 1, ascending.size() - 1)];
    return ascending[before] + (place - static_cast<double>(before)) * (after - ascending[before]);
}

Map byQuartiles(std::vector<double>& values)
{
    std::sort(values.begin(), values.end());
    return {quantile(values, 0.5), quantile(values, 0.75) - quantile(values, 0.25)};
}

Map byRange(const std::vector<double>& values)
{
    const auto [smallest, largest] = std::minmax_element(values.begin(), values.end());
    return {*smallest, *largest - *smallest};
}

/// The map for these finite values, which are used up.
Map mapOf(std::vector<double>& values, tkPatternScaler::Method method)
{
    if (values.empty())
        return {0.0, 1.0};
    // In a unit of the power of two next to the largest magnitude, squares neither overflow nor vanish. Differences
    // need none, unless they overflow: beside one large value, small ones would vanish.
    double largest = 0.0;
    for (const double value : values)
        largest = std::max(largest, std::abs(value));
    int exponent = 0;
    if (method == tkPatternScaler::eDeviation)
        static_cast<void>(std::frexp(largest, &exponent));
    else if (largest > 0.5 * std::numeric_limits<double>::max())
        exponent = 1;
    for (double& value : values)
        value = std::ldexp(value, -exponent);

    TK_ASSERT(method == tkPatternScaler::eDeviation || method == tkPatternScaler::eQuartiles ||
              method == tkPatternScaler::eRange);
    Map map = method == tkPatternScaler::eDeviation   ? byDeviation(values)
              : method == tkPatternScaler::eQuartiles ? byQuartiles(values)
                                                      : byRange(values);
    map.offset = std::ldexp(map.offset, exponent);
    map.scale = std::min(std::ldexp(map.scale, exponent), std::numeric_limits<double>::max());
    if (map.scale <= 0x1p-52 * std::abs(map.offset) || map.scale == 0.0)
        map.scale = 1.0;
    return map;
}

/// The pattern with change(measurement, index) in the place of each valid measurement.
template <class Change>
tkFeaturePattern changed(const tkFeaturePattern& pattern, const Change& change)
{
    std::vector<double> measurements = pattern.featureMeasurements(false);
    std::vector<long> invalid;
    for (std::size_t j = 0; j < measurements.size(); ++j)
        if (pattern.isValid(static_cast<long>(j)))
            measurements[j] = change(measurements[j], j);
        else
            invalid.push_back(static_cast<long>(j));
    return tkFeaturePattern(measurements, invalid);
}
} // namespace

tkPatternScaler::tkPatternScaler(const tkClassifierDataProvider& data, Method method)
{
    const tk_LabelledPatterns training(data);
    std::vector<double> values;
    for (long j = 0; j < training.numMeasurements; ++j)
    {
        values.clear();
        for (const tkPtrHandle_const<tkFeaturePattern>& pattern : training.patterns)
        {
            const double value = pattern->featureMeasurements(false)[static_cast<std::size_t>(j)];
            if (pattern->isValid(j) && std::isfinite(value))
                values.push_back(value);
        }
        const Map map = mapOf(values, method);
        offsets_.push_back(map.offset);
        scales_.push_back(map.scale);
    }
}

tkPatternScaler::tkPatternScaler(const std::vector<double>& offsets, const std::vector<double>& scales)
    : offsets_(offsets),
      scales_(scales)
{
    if (offsets.size() != scales.size())
        throw tkClassifierDefs::BadParams(L"A scaler needs as many offsets as scales.");
    for (std::size_t j = 0; j < offsets.size(); ++j)
    {
        if (!std::isfinite(offsets[j]))
            throw tkClassifierDefs::BadParams(L"The offset of measurement " + std::to_wstring(j) + L" is not finite.");
        if (!std::isfinite(scales[j]) || scales[j] <= 0.0)
            throw tkClassifierDefs::BadParams(L"The scale of measurement " + std::to_wstring(j) +
                                              L" is not finite and > 0.0.");
    }
}

tkFeaturePattern tkPatternScaler::apply(const tkFeaturePattern& pattern) const
{
    requireSize_(pattern);
    return changed(pattern, [&](double x, std::size_t j) { return (x - offsets_[j]) / scales_[j]; });
}

tkClassifierDataProviderMemory tkPatternScaler::apply(const tkClassifierDataProvider& data) const
{
    auto& provider = const_cast<tkClassifierDataProvider&>(data); // whose operations only read, see tk_LabelledPatterns
    tkClassifierDataProviderMemory scaled;
    scaled.setName(provider.name());
    scaled.setDescription(provider.description());
    const long numPatterns = provider.numPatterns();
    for (long i = 0; i < numPatterns; ++i)
        scaled.addData(tkPtrHandle_const<tkFeaturePattern>(new tkFeaturePattern(apply(*provider.featurePattern(i)))),
                       provider.categoryLabel(i));
    return scaled;
}

tkFeaturePattern tkPatternScaler::undo(const tkFeaturePattern& pattern) const
{
    requireSize_(pattern);
    return changed(pattern, [&](double x, std::size_t j) { return offsets_[j] + scales_[j] * x; });
}

bool tkPatternScaler::operator==(const tkPatternScaler& other) const
{
    return offsets_ == other.offsets_ && scales_ == other.scales_;
}

void tkPatternScaler::requireSize_(const tkFeaturePattern& pattern) const
{
    if (pattern.numMeasurements() != numMeasurements())
        throw tkClassifierDefs::BadFeatures(L"The pattern has " + std::to_wstring(pattern.numMeasurements()) +
                                            L" measurements, the scaler " + std::to_wstring(numMeasurements()) + L".");
}

tkArchive& operator||(tkArchive& archive, tkPatternScaler& scaler)
{
    archive.exchangeVersion();
    return tkExchangeParallel(archive, L"A scaler has not as many offsets as scales", scaler.offsets_, scaler.scales_);
}
