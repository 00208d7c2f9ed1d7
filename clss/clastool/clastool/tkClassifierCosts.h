#ifndef CLSS_CLASTOOL_CLASTOOL_TKCLASSIFIERCOSTS_H
#define CLSS_CLASTOOL_CLASTOOL_TKCLASSIFIERCOSTS_H

#include "foundation/tkExport.h"

#include <vector>

class tkArchive;

/// Cost of taking a pattern of one category for another: one default, and overrides for chosen ordered pairs.
///
/// A cost is >= 0, in a unit of the host's choice; only ratios matter to a decision. A right decision costs nothing.
/// Overrides stay in the order in which their pairs were first set. A setter that throws leaves the object as it was. A
/// NaN cost passes.
class TK_EXPORT tkClassifierCosts
{
public:
    /// Gives every confusion the cost `defaultCost`. Throws as the default's setter does.
    tkClassifierCosts(double defaultCost = 1.0);
    tkClassifierCosts(const tkClassifierCosts&) = default;
    tkClassifierCosts(tkClassifierCosts&&) = default;
    /// Strong exception guarantee.
    tkClassifierCosts& operator=(const tkClassifierCosts& other) { return *this = tkClassifierCosts(other); }
    tkClassifierCosts& operator=(tkClassifierCosts&&) = default;

    /// Cost of a pair without an override. Throws tkClassifierDefs::BadParams if cost < 0.
    double defaultMisclassificationCost() const { return defaultCost_; }
    void defaultMisclassificationCost(double cost);

    /// Appends an override or, where the pair has one, replaces its cost in place. `first` is the true category,
    /// `second` the one decided for. Throws tkClassifierDefs::BadParams if cost < 0, then
    /// tkClassifierDefs::BadLabel if the labels are equal, then if one is negative.
    void misclassificationCostOverride(long first, long second, double cost);

    /// Cost of taking a pattern of category `first` for one of `second`. Throws tkClassifierDefs::BadLabel if
    /// the labels are equal, then if one is negative. Linear in the number of overrides.
    double misclassificationCost(long first, long second) const;

    /// Removes the overrides; the default stays and holds for every pair.
    void clearMisclassificationOverrides();

    /// One override: the cost of taking `first` for `second`.
    struct Override
    {
        long first;
        long second;
        double cost;
    };

    /// The overrides in their order; *requires* 0 <= index < numMisclassificationOverrides().
    long numMisclassificationOverrides() const { return static_cast<long>(costs_.size()); }
    Override misclassificationOverride(long index) const;

    /// Exact comparison; the same overrides in another order are not equal.
    bool operator==(const tkClassifierCosts& other) const;
    bool operator!=(const tkClassifierCosts& other) const { return !(*this == other); }

private:
    friend TK_EXPORT tkArchive& operator||(tkArchive& archive, tkClassifierCosts& costs);

    long misclOverrideIndex_(long first, long second) const; // -1: none

    double defaultCost_ = 1.0;
    std::vector<long> firstLabels_;  // true categories, >= 0
    std::vector<long> secondLabels_; // parallel: categories decided for, >= 0, not the first
    std::vector<double> costs_;      // parallel, >= 0
};

/// The record is a version byte, the default, the first labels, the second labels, the costs. Loading checks no values,
/// but throws tkArchive::Errors if the three are not equally long.
TK_EXPORT tkArchive& operator||(tkArchive& archive, tkClassifierCosts& costs);

#endif
