#ifndef CLSS_CLASTOOL_CLASTOOL_TKCLASSIFIERFREQUENCIES_H
#define CLSS_CLASTOOL_CLASTOOL_TKCLASSIFIERFREQUENCIES_H

#include "foundation/tkExport.h"

#include <vector>

class tkArchive;

/// A-priori frequency of each category: one default, and overrides for chosen labels.
///
/// A frequency is a relative weight > 0; weights need not sum to 1 (tkClassifierResult divides
/// by the sum over the categories it ranks). Overrides stay in the order in which their labels
/// were first set. A setter that throws leaves the object as it was. A NaN weight passes.
class TK_EXPORT tkClassifierFrequencies
{
public:
    /// Gives every category `frequency`. Throws as the default's setter does.
    tkClassifierFrequencies(double frequency = 1.0);
    tkClassifierFrequencies(const tkClassifierFrequencies&) = default;
    tkClassifierFrequencies(tkClassifierFrequencies&&) = default;
    /// Strong exception guarantee.
    tkClassifierFrequencies& operator=(const tkClassifierFrequencies& other)
    {
        return *this = tkClassifierFrequencies(other);
    }
    tkClassifierFrequencies& operator=(tkClassifierFrequencies&&) = default;

    /// Frequency of a category without an override. Throws tkClassifierDefs::BadParams if frequency <= 0.
    double defaultCategoryFrequency() const { return defaultFrequency_; }
    void defaultCategoryFrequency(double frequency);

    /// Appends an override or, where the label has one, replaces its value in place.
    /// Throws tkClassifierDefs::BadParams if frequency <= 0, and after that tkClassifierDefs::BadLabel if
    /// label < 0.
    void categoryFrequencyOverride(long label, double frequency);

    /// Frequency of a category. Throws tkClassifierDefs::BadLabel if label < 0. Linear in the number of overrides.
    double categoryFrequency(long label) const;

    /// Removes the overrides; the default stays and holds for every category.
    void clearFrequencyOverrides();

    /// One override: the frequency of `label`.
    struct Override
    {
        long label;
        double frequency;
    };

    /// The overrides in their order; *requires* 0 <= index < numFrequencyOverrides().
    long numFrequencyOverrides() const { return static_cast<long>(labels_.size()); }
    Override frequencyOverride(long index) const;

    /// Exact comparison of the default and of the overrides; the same overrides in another order are not equal.
    bool operator==(const tkClassifierFrequencies& other) const;
    bool operator!=(const tkClassifierFrequencies& other) const { return !(*this == other); }

private:
    friend TK_EXPORT tkArchive& operator||(tkArchive& archive, tkClassifierFrequencies& frequencies);

    long freqOverrideIndex_(long label) const; // -1: none

    double defaultFrequency_ = 1.0;
    std::vector<long> labels_;        // >= 0, no label twice
    std::vector<double> frequencies_; // > 0, parallel to labels_
};

/// The record is a version byte, the default, the labels, the frequencies. Loading checks no values, but throws
/// tkArchive::Errors if there are not as many labels as frequencies.
TK_EXPORT tkArchive& operator||(tkArchive& archive, tkClassifierFrequencies& frequencies);

#endif
