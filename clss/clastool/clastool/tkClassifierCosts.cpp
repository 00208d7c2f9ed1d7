#include "clss/clastool/clastool/tkClassifierCosts.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/clastool/clastool/tk_Messages.h"
#include "clss/clastool/clastool/tk_RecordPlaces.h"
#include "foundation/tkArchiveOperators.h"
#include "foundation/tkAssert.h"

tkClassifierCosts::tkClassifierCosts(double defaultCost)
{
    defaultMisclassificationCost(defaultCost);
}

void tkClassifierCosts::defaultMisclassificationCost(double cost)
{
    if (0.0 > cost)
        throw tkClassifierDefs::BadParams(tk_Messages::costsNotNegative);
    defaultCost_ = cost;
}

void tkClassifierCosts::misclassificationCostOverride(long first, long second, double cost)
{
    if (0.0 > cost)
        throw tkClassifierDefs::BadParams(tk_Messages::costsNotNegative);
    if (first == second)
        throw tkClassifierDefs::BadLabel(tk_Messages::labelsDifferent);
    const long index = misclOverrideIndex_(first, second);
    if (index >= 0)
    {
        costs_[static_cast<std::size_t>(index)] = cost;
        return;
    }
    const std::size_t count = costs_.size();
    try
    {
        firstLabels_.push_back(first);
        secondLabels_.push_back(second);
        costs_.push_back(cost);
    }
    catch (...)
    {
        firstLabels_.resize(count);
        secondLabels_.resize(count);
        throw;
    }
}

double tkClassifierCosts::misclassificationCost(long first, long second) const
{
    if (first == second)
        throw tkClassifierDefs::BadLabel(tk_Messages::labelsDifferent);
    const long index = misclOverrideIndex_(first, second);
    return index >= 0 ? costs_[static_cast<std::size_t>(index)] : defaultCost_;
}

void tkClassifierCosts::clearMisclassificationOverrides()
{
    firstLabels_.clear();
    secondLabels_.clear();
    costs_.clear();
}

tkClassifierCosts::Override tkClassifierCosts::misclassificationOverride(long index) const
{
    TK_ASSERT(index >= 0 && index < numMisclassificationOverrides());
    const auto i = static_cast<std::size_t>(index);
    return {firstLabels_[i], secondLabels_[i], costs_[i]};
}

bool tkClassifierCosts::operator==(const tkClassifierCosts& other) const
{
    return defaultCost_ == other.defaultCost_ && firstLabels_ == other.firstLabels_ &&
           secondLabels_ == other.secondLabels_ && costs_ == other.costs_;
}

long tkClassifierCosts::misclOverrideIndex_(long first, long second) const
{
    if (first < 0 || second < 0)
        throw tkClassifierDefs::BadLabel(tk_Messages::labelsNotNegative);
    for (std::size_t i = 0; i < firstLabels_.size(); ++i)
        if (firstLabels_[i] == first && secondLabels_[i] == second)
            return static_cast<long>(i);
    return -1;
}

tkArchive& operator||(tkArchive& archive, tkClassifierCosts& costs)
{
    archive.exchangeVersion(tk_RecordPlaces::source, tk_RecordPlaces::costsLine);
    archive || costs.defaultCost_;
    return tkExchangeParallel(archive, L"Cost overrides have not as many labels as costs", costs.firstLabels_,
                              costs.secondLabels_, costs.costs_);
}
