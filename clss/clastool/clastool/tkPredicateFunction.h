#ifndef CLSS_CLASTOOL_CLASTOOL_TKPREDICATEFUNCTION_H
#define CLSS_CLASTOOL_CLASTOOL_TKPREDICATEFUNCTION_H

#include "clss/clastool/clastool/tkFeaturePattern.h"
#include "foundation/tkPtrHandle.h"
#include "foundation/tkRange.h"

#include <vector>

/// The question that a node of a decision tree asks about a pattern.
///
/// The predicates of this library count a measurement beyond the end of a pattern as an invalid one. Predicates
/// are equal if they are of the same class and ask the same; trees that share their subtrees rely on this being
/// an equivalence. A host may derive predicates of its own.
class TK_EXPORT tkPredicateFunction : public tkPersistent, public tkRepBase
{
public:
    tkPredicateFunction() = default;

    /// The answer for `pattern`: true leads to the node's true subtree. Must be safe to call from several threads at
    /// once. What it throws passes through run().
    virtual bool outcome(const tkFeaturePattern& pattern) const = 0;

    /// A new copy of the same class. A tree keeps clones of the predicates that it is given.
    virtual tkPtrHandle<tkPredicateFunction> clone() const = 0;

    /// Whether the other predicate asks the same; an override asks the base first, then compares the exact classes,
    /// then its fields.
    virtual bool isEqual(const tkPredicateFunction& other) const;
    bool operator==(const tkPredicateFunction& other) const { return isEqual(other); }
    bool operator!=(const tkPredicateFunction& other) const { return !(*this == other); }

protected:
    tkPredicateFunction(const tkPredicateFunction&) = default;
    tkPredicateFunction& operator=(const tkPredicateFunction&) = default;

    TK_RECORD;
};

/// Whether all of the listed measurements are valid and lie in a range, the same for all of them. True for
/// every pattern if none is listed.
class TK_EXPORT tkRangePredicate : public tkPredicateFunction
{
public:
    /// Whether measurement 0 is valid: the full range accepts every value, NaN included.
    tkRangePredicate();

    /// Throws tkClassifierDefs::BadIndex if an index is negative. How many measurements a pattern has is not known
    /// here: an index beyond the end makes the outcome false.
    tkRangePredicate(const tkRange& range, const std::vector<long>& indices);
    tkRangePredicate(const tkRangePredicate&) = default;
    tkRangePredicate(tkRangePredicate&&) = default;
    /// Strong exception guarantee.
    tkRangePredicate& operator=(const tkRangePredicate& other) { return *this = tkRangePredicate(other); }
    tkRangePredicate& operator=(tkRangePredicate&&) = default;

    /// The range, its ends included, and the measurements asked about, in the order given.
    const tkRange& range() const { return range_; }
    const std::vector<long>& indices() const { return indices_; }

    /// Ends at the first measurement that is invalid, beyond the end or out of range. Throws tkClassifierDefs::BadIndex
    /// for a negative index, which only a loaded predicate can hold.
    bool outcome(const tkFeaturePattern& pattern) const override
    {
        const std::vector<double>& measurements = pattern.featureMeasurements(false);
        for (const long index : indices_)
            if (!pattern.isValid(index) || !range_.isWithin(measurements[static_cast<std::size_t>(index)]))
                return false;
        return true;
    }
    tkPtrHandle<tkPredicateFunction> clone() const override;

    /// Equal ranges, and the same indices in the same order.
    bool isEqual(const tkPredicateFunction& other) const override;

private:
    /// The range, then the indices. Loading checks neither: a negative index shows itself in outcome().
    TK_FACTORY_RECORD;

    tkRange range_;
    std::vector<long> indices_; // >= 0, unless loaded
};

/// Whether all of the listed measurements are valid. True for every pattern if none is listed.
class TK_EXPORT tkValidityPredicate : public tkPredicateFunction
{
public:
    /// Whether measurement 0 is valid.
    tkValidityPredicate();

    /// Throws tkClassifierDefs::BadIndex if an index is negative; one beyond the end makes the outcome false.
    tkValidityPredicate(const std::vector<long>& indices);

    /// The measurements asked about, in the order given.
    const std::vector<long>& indices() const { return indices_; }

    /// Ends at the first invalid one. Throws as that of tkRangePredicate.
    bool outcome(const tkFeaturePattern& pattern) const override;
    tkPtrHandle<tkPredicateFunction> clone() const override;

    /// The same indices in the same order.
    bool isEqual(const tkPredicateFunction& other) const override;

private:
    TK_FACTORY_RECORD;

    std::vector<long> indices_; // >= 0, unless loaded
};

/// Whether measurement index1 is greater than measurement index2; both must be valid.
class TK_EXPORT tkComparisonPredicate : public tkPredicateFunction
{
public:
    /// Throws tkClassifierDefs::BadParams if the indices are equal, then tkClassifierDefs::BadIndex if one is
    /// negative.
    tkComparisonPredicate(long index1 = 0, long index2 = 1);

    /// The measurement that has to be the greater one, and the other.
    long index1() const { return index1_; }
    long index2() const { return index2_; }

    /// False where a measurement is invalid, beyond the end or NaN, and where the two are equal. Throws as that of
    /// tkRangePredicate; index2 is looked at only where measurement index1 is valid.
    bool outcome(const tkFeaturePattern& pattern) const override;
    tkPtrHandle<tkPredicateFunction> clone() const override;

    /// The same indices; with the two swapped it is another predicate.
    bool isEqual(const tkPredicateFunction& other) const override;

private:
    TK_FACTORY_RECORD;

    long index1_; // >= 0 and different from index2_, unless loaded
    long index2_; // >= 0, unless loaded
};

#endif
