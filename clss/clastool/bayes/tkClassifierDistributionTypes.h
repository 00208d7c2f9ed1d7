#ifndef CLSS_CLASTOOL_BAYES_TKCLASSIFIERDISTRIBUTIONTYPES_H
#define CLSS_CLASTOOL_BAYES_TKCLASSIFIERDISTRIBUTIONTYPES_H

#include "foundation/tkExport.h"

#include <vector>

class tkArchive;

/// Which distribution models each measurement of each category, and which measurements of a category are
/// modelled jointly.
///
/// There is one default type, and overrides for chosen pairs of category and measurement. The dependency sets
/// of one category are disjoint; a measurement in none of them is independent of all others. Neither categories
/// nor indices are known in advance, so that no upper bound is checked; nor is the type's value. An operation
/// that throws leaves the object as it was.
class TK_EXPORT tkClassifierDistributionTypes
{
public:
    /// eNormal and eBinomial can be trained; the others, and any other value, are refused when a category's
    /// model is built.
    enum DistributionType : int
    {
        eNormal = 0,
        eBinomial = 1,
        ePoisson = 2,
        eUniform = 3
    };

    tkClassifierDistributionTypes(DistributionType defaultType);
    tkClassifierDistributionTypes(const tkClassifierDistributionTypes&) = default;
    tkClassifierDistributionTypes(tkClassifierDistributionTypes&&) = default;
    /// Strong exception guarantee.
    tkClassifierDistributionTypes& operator=(const tkClassifierDistributionTypes& other)
    {
        return *this = tkClassifierDistributionTypes(other);
    }
    tkClassifierDistributionTypes& operator=(tkClassifierDistributionTypes&&) = default;

    /// Type of every pair without an override. Setting it leaves overrides and dependency sets alone.
    DistributionType defaultDistributionType() const { return defaultType_; }
    void defaultDistributionType(DistributionType type) { defaultType_ = type; }

    /// Sets the type of one pair. A type that is the default one returns at once: it checks nothing, and an
    /// override that the pair has stays in force. Throws tkClassifierDefs::BadParams if the measurement is in a
    /// dependency set of the category, then tkClassifierDefs::BadLabel if category < 0, then
    /// tkClassifierDefs::BadIndex if measurementIndex < 0.
    void distributionTypeOverride(long category, long measurementIndex, DistributionType type);

    /// Removes the overrides; the dependency sets stay.
    void clearDistributionOverrides();

    /// Type of one pair. Throws tkClassifierDefs::BadLabel if category < 0, then tkClassifierDefs::BadIndex if
    /// measurementIndex < 0. Linear in the number of overrides.
    DistributionType distributionType(long category, long measurementIndex) const;

    /// Declares measurements of one category dependent on one another, all sets of the category that hold one of
    /// them included: these become one set, at the place of the first, which holds the indices of the first, the
    /// new ones, and those of the others. Repeated indices count once; without any index nothing changes.
    ///
    /// Throws tkClassifierDefs::BadLabel if category < 0, then tkClassifierDefs::BadIndex if an index is negative,
    /// then tkClassifierDefs::BadParams if the indices given differ in type.
    void setDependent(long category, const std::vector<long>& measurementIndices);

    /// Whether the measurements lie in one dependency set of the category; false for none. Throws
    /// tkClassifierDefs::BadLabel if category < 0, then, unless there are none, tkClassifierDefs::BadIndex if an
    /// index is negative.
    bool isDependent(long category, const std::vector<long>& measurementIndices) const;

    /// The dependency sets of all categories in the order of their creation; *require* 0 <= set < numDependencySets().
    long numDependencySets() const { return static_cast<long>(setCategories_.size()); }
    long dependencySetCategory(long set) const;
    const std::vector<long>& dependencySet(long set) const;

    /// Exact comparison; the same overrides or sets in another order are not equal.
    bool operator==(const tkClassifierDistributionTypes& other) const;
    bool operator!=(const tkClassifierDistributionTypes& other) const { return !(*this == other); }

private:
    friend TK_EXPORT tkArchive& operator||(tkArchive& archive, tkClassifierDistributionTypes& types);

    void mergeSets_(long category, const std::vector<bool>& isMerged, const std::vector<long>& remaining);
    long distOverrideIndex_(long category, long measurementIndex) const; // -1: none

    DistributionType defaultType_;
    std::vector<long> overrideCategories_;
    std::vector<long> overrideIndices_;           // parallel: measurement indices; no pair twice
    std::vector<DistributionType> overrideTypes_; // parallel
    std::vector<long> setCategories_;
    std::vector<std::vector<long>> sets_; // parallel: measurement indices, disjoint within a category
};

TK_EXPORT tkArchive& operator||(tkArchive& archive, tkClassifierDistributionTypes& types);

#endif
