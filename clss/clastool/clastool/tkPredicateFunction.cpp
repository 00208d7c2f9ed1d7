#include "clss/clastool/clastool/tkPredicateFunction.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "foundation/tkArchiveOperators.h"

#include <algorithm>

namespace
{
/// Checks the lower bound alone: the number of measurements is known only when a pattern is evaluated.
void requireIndices(const std::vector<long>& indices)
{
    for (const long index : indices)
        if (index < 0)
            throw tkClassifierDefs::BadIndex(L"Measurement index must be >= 0 and < number of measurements.");
}
} // namespace

bool tkPredicateFunction::isEqual(const tkPredicateFunction&) const
{
    return true;
}

TK_DEFINE_RECORD(tkPredicateFunction, 0)

void tkPredicateFunction::serialize_(tkArchive& archive, unsigned char)
{
    tkPersistent::dispatchSerialize(archive);
}

tkRangePredicate::tkRangePredicate() : indices_{0} {}

tkRangePredicate::tkRangePredicate(const tkRange& range, const std::vector<long>& indices)
    : range_(range),
      indices_(indices)
{
    requireIndices(indices_);
}

tkPtrHandle<tkPredicateFunction> tkRangePredicate::clone() const
{
    return tkPtrHandle<tkPredicateFunction>(new tkRangePredicate(*this));
}

bool tkRangePredicate::isEqual(const tkPredicateFunction& other) const
{
    if (!tkPredicateFunction::isEqual(other) || typeid(*this) != typeid(other))
        return false;
    const auto& predicate = static_cast<const tkRangePredicate&>(other);
    return range_ == predicate.range_ && indices_ == predicate.indices_;
}

TK_DEFINE_FACTORY_RECORD(tkRangePredicate, 0)

void tkRangePredicate::serialize_(tkArchive& archive, unsigned char)
{
    tkPredicateFunction::dispatchSerialize(archive);
    archive || range_ || indices_;
}

tkValidityPredicate::tkValidityPredicate() : indices_{0} {}

tkValidityPredicate::tkValidityPredicate(const std::vector<long>& indices) : indices_(indices)
{
    requireIndices(indices_);
}

bool tkValidityPredicate::outcome(const tkFeaturePattern& pattern) const
{
    return std::all_of(indices_.begin(), indices_.end(), [&](long index) { return pattern.isValid(index); });
}

tkPtrHandle<tkPredicateFunction> tkValidityPredicate::clone() const
{
    return tkPtrHandle<tkPredicateFunction>(new tkValidityPredicate(*this));
}

bool tkValidityPredicate::isEqual(const tkPredicateFunction& other) const
{
    if (!tkPredicateFunction::isEqual(other) || typeid(*this) != typeid(other))
        return false;
    return indices_ == static_cast<const tkValidityPredicate&>(other).indices_;
}

TK_DEFINE_FACTORY_RECORD(tkValidityPredicate, 0)

void tkValidityPredicate::serialize_(tkArchive& archive, unsigned char)
{
    tkPredicateFunction::dispatchSerialize(archive);
    archive || indices_;
}

tkComparisonPredicate::tkComparisonPredicate(long index1, long index2) : index1_(index1), index2_(index2)
{
    if (index1 == index2)
        throw tkClassifierDefs::BadParams(L"Measurement indices must be different.");
    requireIndices({index1, index2});
}

bool tkComparisonPredicate::outcome(const tkFeaturePattern& pattern) const
{
    return pattern.isValid(index1_) && pattern.isValid(index2_) &&
           pattern.featureMeasurement(index1_, true) > pattern.featureMeasurement(index2_, true);
}

tkPtrHandle<tkPredicateFunction> tkComparisonPredicate::clone() const
{
    return tkPtrHandle<tkPredicateFunction>(new tkComparisonPredicate(*this));
}

bool tkComparisonPredicate::isEqual(const tkPredicateFunction& other) const
{
    if (!tkPredicateFunction::isEqual(other) || typeid(*this) != typeid(other))
        return false;
    const auto& predicate = static_cast<const tkComparisonPredicate&>(other);
    return index1_ == predicate.index1_ && index2_ == predicate.index2_;
}

TK_DEFINE_FACTORY_RECORD(tkComparisonPredicate, 0)

void tkComparisonPredicate::serialize_(tkArchive& archive, unsigned char)
{
    tkPredicateFunction::dispatchSerialize(archive);
    archive || index1_ || index2_;
}
