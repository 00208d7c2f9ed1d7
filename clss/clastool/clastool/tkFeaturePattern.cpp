#include "clss/clastool/clastool/tkFeaturePattern.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/clastool/clastool/tk_Messages.h"
#include "foundation/tkArchiveOperators.h"

#include <algorithm>
#include <cstddef>
#include <utility>

tkFeaturePattern::tkFeaturePattern(const std::vector<double>& measurements, const std::vector<long>& invalidIndices)
    : validity_(invalidIndices.empty() ? 0 : measurements.size(), true)
{
    const long count = static_cast<long>(measurements.size());
    for (const long index : invalidIndices)
    {
        if (index < 0)
            throw tkClassifierDefs::BadIndex(tk_Messages::measurementIndicesNotNegative);
        if (index >= count)
            throw tkClassifierDefs::BadIndex(L"Feature measurement indices must be < number of features");
        validity_[static_cast<std::size_t>(index)] = false;
    }
    measurements_ = measurements;
}

double tkFeaturePattern::featureMeasurement(long index, bool throwIfInvalid) const
{
    if (isValid(index))
        return measurements_[static_cast<std::size_t>(index)];
    if (throwIfInvalid)
        throw tkClassifierDefs::BadFeatures(L"The measurement for the specified measurement index is not valid.");
    return index < numMeasurements() ? measurements_[static_cast<std::size_t>(index)] : 0.0;
}

void tkFeaturePattern::failNegativeIndex_()
{
    throw tkClassifierDefs::BadIndex(tk_Messages::measurementIndicesNotNegative);
}

void tkFeaturePattern::failInvalid_()
{
    throw tkClassifierDefs::BadFeatures(L"Access to full feature vector requires that all features are valid.");
}

std::vector<long> tkFeaturePattern::invalidFeatureIndices()
{
    std::vector<long> indices;
    for (std::size_t i = 0; i < validity_.size(); ++i)
        if (!validity_[i])
            indices.push_back(static_cast<long>(i));
    return indices;
}

bool tkFeaturePattern::operator==(const tkFeaturePattern& other) const
{
    return measurements_ == other.measurements_ && validity_ == other.validity_;
}

TK_DEFINE_FACTORY_RECORD(tkFeaturePattern, 0)

void tkFeaturePattern::serialize_(tkArchive& archive, unsigned char)
{
    tkPersistent::dispatchSerialize(archive);
    // The record holds a flag for each measurement, also where the pattern holds none since all are valid.
    std::vector<bool> validity;
    if (archive.isLoading())
        validity_.clear();
    else
        validity = validity_.empty() ? std::vector<bool>(measurements_.size(), true) : validity_;
    tkExchangeParallel(archive, L"A feature pattern has not as many validity flags as measurements", measurements_,
                       validity);
    if (archive.isLoading() && std::find(validity.begin(), validity.end(), false) != validity.end())
        validity_ = std::move(validity);
}
