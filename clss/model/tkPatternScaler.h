#ifndef CLSS_MODEL_TKPATTERNSCALER_H
#define CLSS_MODEL_TKPATTERNSCALER_H

#include "clss/clastool/clastool/tkClassifierDataProvider.h"
#include "clss/clastool/clastool/tkFeaturePattern.h"
#include "foundation/tkExport.h"

#include <vector>

class tkArchive;

/// Brings measurements of different units to comparable sizes: x becomes (x - offset) / scale, with an offset and a
/// scale for each measurement. Distances between patterns need it; a Bayesian classifier does not.
///
/// It is learned from training patterns, and applied to them and to every pattern that is classified. Offsets are
/// finite, scales finite and > 0. A new scaler has no measurements.
class TK_EXPORT tkPatternScaler
{
public:
    /// What offset and scale of a measurement are.
    enum Method : int
    {
        eDeviation, ///< the mean, and the standard deviation with divisor count - 1
        eQuartiles, ///< the median, and the third quartile minus the first; outliers hardly move them
        eRange      ///< the smallest value, and the largest minus the smallest: values learned get into [0, 1]
    };

    tkPatternScaler() = default;

    /// Learns from the patterns with a label; those of label -1 are left out, and so is each measurement that is
    /// invalid, NaN or infinite. A measurement whose scale is at most 2^-52 of its offset's magnitude counts as
    /// constant and keeps its unit: it gets the scale 1.0. One that no pattern has gets the offset 0.0 as well. A scale
    /// that overflows is the largest number; what is learned may then get beyond [0, 1] by apply().
    ///
    /// Quartiles are linear between neighbours in order (Hyndman and Fan, The American Statistician 50, 1996, type 7).
    /// For the patterns in turn throws tkBadPointer for a null handle, tkClassifierDefs::BadFeatures if the pattern
    /// has not numMeasurements() of the data, then tkClassifierDefs::BadLabel if the label is below -1; and lastly
    /// tkClassifierDefs::InsufficientTrainData if no pattern has a label. Linear in all measurements; quartiles sort.
    explicit tkPatternScaler(const tkClassifierDataProvider& data, Method method = eDeviation);

    /// Takes offsets and scales that are known. Throws tkClassifierDefs::BadParams if they differ in number, then for
    /// the measurements in turn if an offset is not finite, then if a scale is not finite and > 0.
    tkPatternScaler(const std::vector<double>& offsets, const std::vector<double>& scales);

    tkPatternScaler(const tkPatternScaler&) = default;
    tkPatternScaler(tkPatternScaler&&) = default;
    /// Strong exception guarantee.
    tkPatternScaler& operator=(const tkPatternScaler& other) { return *this = tkPatternScaler(other); }
    tkPatternScaler& operator=(tkPatternScaler&&) = default;

    /// One of each for every measurement, in the measurement's unit.
    long numMeasurements() const { return static_cast<long>(offsets_.size()); }
    const std::vector<double>& offsets() const { return offsets_; }
    const std::vector<double>& scales() const { return scales_; }

    /// The pattern with each valid measurement x replaced by (x - offset) / scale; what overflows becomes infinite. An
    /// invalid measurement stays as it is. Throws tkClassifierDefs::BadFeatures if the pattern has not
    /// numMeasurements().
    tkFeaturePattern apply(const tkFeaturePattern& pattern) const;
    /// All patterns so, with the labels, name and description of `data`. Throws for the patterns in turn what the
    /// above does, and tkClassifierDefs::BadLabel if the label is below -1.
    tkClassifierDataProviderMemory apply(const tkClassifierDataProvider& data) const;

    /// The reverse of apply(), up to rounding: each valid measurement x becomes offset + scale x. Throws as apply().
    tkFeaturePattern undo(const tkFeaturePattern& pattern) const;

    /// Exact comparison of offsets and scales.
    bool operator==(const tkPatternScaler& other) const;
    bool operator!=(const tkPatternScaler& other) const { return !(*this == other); }

private:
    friend TK_EXPORT tkArchive& operator||(tkArchive& archive, tkPatternScaler& scaler);

    void requireSize_(const tkFeaturePattern& pattern) const;

    std::vector<double> offsets_;
    std::vector<double> scales_; // parallel
};

/// The record is a version byte, the offsets, the scales. Loading checks no values, but throws tkArchive::Errors if
/// there are not as many offsets as scales.
TK_EXPORT tkArchive& operator||(tkArchive& archive, tkPatternScaler& scaler);

#endif
