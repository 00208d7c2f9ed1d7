#include "clss/model/tkDecisionRule.h"

#include "clss/clastool/bayes/tkClassifierTrainParamsBayesian.h"
#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/clastool/clastool/tkClassifierTrainParamsKNN.h"
#include "foundation/tkArchiveOperators.h"

tkDecisionRule::tkDecisionRule(const tkClassifierFrequencies& frequencies, const tkClassifierCosts& costs)
    : frequencies_(frequencies),
      costs_(costs)
{
}

tkDecisionRule::tkDecisionRule(const tkClassifierTrainParams& params)
{
    if (const auto* const bayesian = dynamic_cast<const tkClassifierTrainParamsBayesian*>(&params))
    {
        frequencies_ = bayesian->categoryFrequencies();
        costs_ = bayesian->misclassificationCosts();
    }
    else if (const auto* const knn = dynamic_cast<const tkClassifierTrainParamsKNN*>(&params))
        costs_ = knn->misclassificationCosts();
}

void tkDecisionRule::refusalCost(double cost)
{
    if (!(cost >= 0.0))
        throw tkClassifierDefs::BadParams(L"The cost of a refusal must be >= 0.0");
    refusalCost_ = cost;
}

void tkDecisionRule::alpha(double alpha)
{
    if (!(alpha >= 0.0 && alpha <= 1.0))
        throw tkClassifierDefs::BadParams(L"The share of false alarms must be >= 0.0 and <= 1.0");
    alpha_ = alpha;
}

bool tkDecisionRule::operator==(const tkDecisionRule& other) const
{
    return frequencies_ == other.frequencies_ && costs_ == other.costs_ && refusalCost_ == other.refusalCost_ &&
           alpha_ == other.alpha_;
}

tkArchive& operator||(tkArchive& archive, tkDecisionRule& rule)
{
    archive.exchangeVersion();
    return archive || rule.frequencies_ || rule.costs_ || rule.refusalCost_ || rule.alpha_;
}
