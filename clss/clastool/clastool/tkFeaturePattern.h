#ifndef CLSS_CLASTOOL_CLASTOOL_TKFEATUREPATTERN_H
#define CLSS_CLASTOOL_CLASTOOL_TKFEATUREPATTERN_H

#include "foundation/tkPersistent.h"
#include "foundation/tkRepBase.h"

#include <algorithm>
#include <vector>

/// What the host measured on one object: a fixed number of measurements, each valid or not.
///
/// The units are the host's. An invalid measurement keeps the value it was given, which takes part in
/// comparison and storing but in no classification. A NaN is a value like others: mark what is missing as invalid. A
/// pattern does not change once it is built, except by assignment; data providers share patterns through
/// tkPtrHandle_const.
class TK_EXPORT tkFeaturePattern : public tkPersistent, public tkRepBase
{
public:
    /// Takes the measurements; those at `invalidIndices` (in any order, repeated or not) are invalid.
    /// For each index in turn throws tkClassifierDefs::BadIndex if it is negative, then if it is not below
    /// the number of measurements. Values are not checked. Linear in the number of measurements.
    tkFeaturePattern(const std::vector<double>& measurements = {}, const std::vector<long>& invalidIndices = {});
    tkFeaturePattern(const tkFeaturePattern&) = default;
    tkFeaturePattern(tkFeaturePattern&&) = default;
    /// Strong exception guarantee.
    tkFeaturePattern& operator=(const tkFeaturePattern& other) { return *this = tkFeaturePattern(other); }
    tkFeaturePattern& operator=(tkFeaturePattern&&) = default;

    /// Number of measurements, valid or not. Constant time.
    long numMeasurements() const { return static_cast<long>(measurements_.size()); }

    /// All stored values, which last until the pattern is assigned to or destroyed. Throws
    /// tkClassifierDefs::BadFeatures if `requireAllValid` and one is invalid.
    const std::vector<double>& featureMeasurements(bool requireAllValid) const
    {
        if (requireAllValid && numInvalid() > 0)
            failInvalid_();
        return measurements_;
    }

    /// The value at `index`. Throws tkClassifierDefs::BadIndex if index < 0 and, if `throwIfInvalid`,
    /// tkClassifierDefs::BadFeatures if the measurement is invalid or beyond the end. Otherwise an invalid
    /// measurement gives its stored value, one beyond the end 0.0. Constant time, as isValid() is.
    double featureMeasurement(long index, bool throwIfInvalid) const;

    /// Whether the measurement is valid; beyond the end none is. Throws tkClassifierDefs::BadIndex if index < 0.
    bool isValid(long index) const
    {
        if (index < 0)
            failNegativeIndex_();
        return index < numMeasurements() && (validity_.empty() || validity_[static_cast<std::size_t>(index)]);
    }

    /// Number of invalid measurements; constant time if there are none.
    long numInvalid() const
    {
        return validity_.empty() ? 0 : static_cast<long>(std::count(validity_.begin(), validity_.end(), false));
    }

    /// Indices of the invalid measurements, ascending. Linear in the number of measurements.
    std::vector<long> invalidFeatureIndices();

    /// Exact comparison of all stored values, invalid ones included, and of the validity flags.
    bool operator==(const tkFeaturePattern& other) const;
    bool operator!=(const tkFeaturePattern& other) const { return !(*this == other); }

private:
    // Out of line, so that callers of the operations above contain no code that builds messages.
    [[noreturn]] static void failNegativeIndex_();
    [[noreturn]] static void failInvalid_();
    /// The measurements, then a flag for each. Throws tkArchive::Errors if there are not as many flags.
    TK_FACTORY_RECORD;

    std::vector<double> measurements_;
    std::vector<bool> validity_; // parallel to measurements_; empty if all are valid, as they nearly always are
};

#endif
