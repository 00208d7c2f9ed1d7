#include "clss/clastool/clastool/tkFeaturePattern.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/clastool/clastool/tk_Messages.h"
#include "foundation/tkArchiveOperators.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace
{
/// A pattern's validity flags as a record holds them, one for each measurement.
struct Validity
{
    std::vector<bool>& flags; // empty: all valid
    std::size_t count;

    std::size_t size() const { return count; }
    void clear()
    {
        flags.clear();
        count = 0;
    }
};

/// The record of a vector of bools, without making one where all are valid.
tkArchive& operator||(tkArchive& archive, Validity& validity)
{
    std::vector<bool>& flags = validity.flags;
    archive.exchangeVersion();
    unsigned long count = validity.count;
    archive || count;
    constexpr std::size_t step = 256;
    unsigned char bytes[step];
    for (std::size_t done = 0, n = 0; done < count; done += n)
    {
        n = std::min(count - done, step);
        if (archive.isStoring() && flags.empty())
            std::memset(bytes, 1, n);
        else if (archive.isStoring())
            std::copy_n(flags.begin() + static_cast<std::ptrdiff_t>(done), n, bytes);
        archive.exchangeBools(bytes, n);
        if (archive.isLoading())
        {
            if (!flags.empty() || std::memchr(bytes, 0, n))
            {
                flags.resize(done, true);
                flags.insert(flags.end(), bytes, bytes + n);
            }
            validity.count = done + n;
        }
    }
    return archive;
}
} // namespace

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
    Validity validity{validity_, measurements_.size()};
    if (archive.isLoading())
        validity.clear();
    tkExchangeParallel(archive, L"A feature pattern has not as many validity flags as measurements", measurements_,
                       validity);
}
