#include "clss/clastool/clastool/tkClassifierResult.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/clastool/clastool/tkClassifierFrequencies.h"
#include "clss/clastool/clastool/tk_DecisionTerms.h"
#include "clss/clastool/clastool/tk_Messages.h"
#include "clss/clastool/clastool/tk_RecordPlaces.h"
#include "foundation/tkArchiveOperators.h"
#include "foundation/tkScratch.h"
#include "numerics/tkNMDecision.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <utility>

void tkClassifierCategoryResult::fail_(long categoryLabel, double matchScore, double classScore)
{
    if (categoryLabel < 0)
        throw tkClassifierDefs::BadLabel(tk_Messages::labelsNotNegative);
    if (matchScore < 0.0 || matchScore > 1.0)
        throw tkClassifierDefs::BadParams(tk_Messages::scoresInUnitRange);
    if (classScore < 0.0 || classScore > 1.0)
        throw tkClassifierDefs::BadParams(tk_Messages::scoresInUnitRange);
    throw tkClassifierDefs::BadParams(tk_Messages::costsNotNegative);
}

bool tkClassifierCategoryResult::operator==(const tkClassifierCategoryResult& other) const
{
    return categoryLabel_ == other.categoryLabel_ && matchScore_ == other.matchScore_ &&
           classScore_ == other.classScore_ && expectedCost_ == other.expectedCost_;
}

tkClassifierResult::tkClassifierResult(std::vector<tkClassifierCategoryResult> classScores, double matchScoreFactorLog)
    : categoryResults_(std::move(classScores)),
      matchScoreFactorLog_(matchScoreFactorLog)
{
    tkScratch<long> labels(categoryResults_.size());
    for (std::size_t i = 0; i < labels.size(); ++i)
        labels[i] = categoryResults_[i].categoryLabel();
    tk_DecisionTerms::requireUnique(labels.data(), labels.size());
    sort_();
    double total = 0.0;
    for (const tkClassifierCategoryResult& result : categoryResults_)
        total += result.classScore();
    if (total == 0.0)
        throw tkClassifierDefs::BadParams(L"At least one of the classification scores must be > 0.");
    for (tkClassifierCategoryResult& result : categoryResults_)
        result = tkClassifierCategoryResult(result.categoryLabel(), result.matchScore(), result.classScore() / total,
                                            result.expectedCost());
}

tkClassifierResult::tkClassifierResult(std::vector<tkClassifierCategoryResult> matchResults,
                                       const tkClassifierFrequencies& frequencies, const tkClassifierCosts& costs,
                                       double matchScoreFactorLog)
    : categoryResults_(std::move(matchResults))
{
    const std::size_t n = categoryResults_.size();
    tkScratch<long> labels(n);
    tkScratch<double> matchScores(tkNMDecision::roundUp(n));
    for (std::size_t i = 0; i < n; ++i)
    {
        labels[i] = categoryResults_[i].categoryLabel();
        matchScores[i] = categoryResults_[i].matchScore();
    }
    std::fill(matchScores.begin() + n, matchScores.end(), 0.0);
    decide(labels.data(), matchScores.data(), n, frequencies, costs, matchScoreFactorLog);
}

void tkClassifierResult::decide(const long* labels, const double* matchScores, std::size_t n,
                                const tkClassifierFrequencies& frequencies, const tkClassifierCosts& costs,
                                double matchScoreFactorLog)
{
    tk_DecisionTerms terms(labels, n, frequencies, costs);
    double* const classScores = terms.weights.data(); // which they replace
    tkScratch<double> expectedCosts(tkNMDecision::roundUp(n));
    const double jointSum = tkNMDecision::compute(matchScores, classScores, terms.weightSum, expectedCosts.data(), n,
                                                  terms.cost, terms.overrides.data(), terms.overrides.size());
    if (jointSum == 0.0)
        throw tkClassifierDefs::BadParams(L"At least one of the resulting classification scores must be > 0.");
    for (std::size_t i = 0; i < n; ++i)
        tkClassifierCategoryResult::require_(labels[i], matchScores[i], classScores[i], expectedCosts[i]);
    fillRanked_(labels, matchScores, classScores, expectedCosts.data(), n, terms.labelsAscend);
    matchScoreFactorLog_ = matchScoreFactorLog;
}

void tkClassifierResult::fillRanked_(const long* labels, const double* matchScores, const double* classScores,
                                     const double* expectedCosts, std::size_t n, bool labelsAscend)
{
    const bool isRanked = n > 1 && n <= tkNMDecision::mostRanked && labelsAscend;
    tkScratch<std::uint64_t, tkNMDecision::mostRanked> ranks(isRanked ? tkNMDecision::roundUp(n) : 0);
    if (isRanked)
        tkNMDecision::rank(expectedCosts, ranks.data(), n);
    categoryResults_.resize(n);
    for (std::size_t i = 0; i < n; ++i)
    {
        tkClassifierCategoryResult& result = categoryResults_[isRanked ? static_cast<std::size_t>(ranks[i]) : i];
        result.categoryLabel_ = labels[i];
        result.matchScore_ = matchScores[i];
        result.classScore_ = classScores[i];
        result.expectedCost_ = expectedCosts[i];
    }
    if (!isRanked && n > 1)
        sort_();
}

bool tkClassifierResult::operator==(const tkClassifierResult& other) const
{
    return categoryResults_ == other.categoryResults_ && matchScoreFactorLog_ == other.matchScoreFactorLog_;
}

void tkClassifierResult::sort_()
{
    std::sort(categoryResults_.begin(), categoryResults_.end(),
              [](const tkClassifierCategoryResult& a, const tkClassifierCategoryResult& b)
              {
                  const bool aIsNaN = std::isnan(a.expectedCost());
                  const bool bIsNaN = std::isnan(b.expectedCost());
                  if (aIsNaN != bIsNaN)
                      return bIsNaN;
                  if (a.expectedCost() < b.expectedCost())
                      return true;
                  return !(b.expectedCost() < a.expectedCost()) && a.categoryLabel() < b.categoryLabel();
              });
}

tkArchive& operator||(tkArchive& archive, tkClassifierCategoryResult& result)
{
    archive.exchangeVersion(tk_RecordPlaces::source, tk_RecordPlaces::categoryResultLine);
    return archive || result.categoryLabel_ || result.matchScore_ || result.classScore_ || result.expectedCost_;
}

tkArchive& operator||(tkArchive& archive, tkClassifierResult& result)
{
    archive.exchangeVersion(tk_RecordPlaces::source, tk_RecordPlaces::resultLine);
    return archive || result.categoryResults_ || result.matchScoreFactorLog_;
}
