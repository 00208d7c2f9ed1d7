#include "clss/clastool/clastool/tkClassifierResult.h"

#include "clss/clastool/clastool/tkClassifierCosts.h"
#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/clastool/clastool/tkClassifierFrequencies.h"
#include "clss/clastool/clastool/tk_Messages.h"
#include "foundation/tkArchiveOperators.h"
#include "foundation/tkScratch.h"

#include <algorithm>
#include <cmath>

namespace
{
/// The categories of a result by label, to find a label's place without a linear search.
class LabelIndex
{
public:
    /// Throws BadParams if a label occurs twice.
    explicit LabelIndex(const std::vector<tkClassifierCategoryResult>& results) : places_(results.size())
    {
        for (std::size_t i = 0; i < results.size(); ++i)
            places_[i] = {results[i].categoryLabel(), i};
        std::sort(places_.begin(), places_.end(), [](const Place& a, const Place& b) { return a.label < b.label; });
        const auto sameLabel = [](const Place& a, const Place& b) { return a.label == b.label; };
        if (std::adjacent_find(places_.begin(), places_.end(), sameLabel) != places_.end())
            throw tkClassifierDefs::BadParams(tk_Messages::labelsUnique);
    }

    /// Index of the category with this label, `none` if there is none.
    std::size_t find(long label)
    {
        const Place* const place =
            std::lower_bound(places_.begin(), places_.end(), label, [](const Place& p, long l) { return p.label < l; });
        return place != places_.end() && place->label == label ? place->index : none;
    }

    static constexpr std::size_t none = static_cast<std::size_t>(-1);

private:
    struct Place
    {
        long label;
        std::size_t index;
    };

    tkScratch<Place> places_;
};

/// p_i: the frequency of each category. Overrides are walked last to first, so that the first of a label wins.
void fillPriors(tkScratch<double>& priors, const std::vector<tkClassifierCategoryResult>& results, LabelIndex& index,
                const tkClassifierFrequencies& frequencies)
{
    for (const tkClassifierCategoryResult& result : results)
        if (result.categoryLabel() < 0)
            throw tkClassifierDefs::BadLabel(tk_Messages::labelsNotNegative);
    std::fill(priors.begin(), priors.end(), frequencies.defaultCategoryFrequency());
    for (long k = frequencies.numFrequencyOverrides() - 1; k >= 0; --k)
    {
        const tkClassifierFrequencies::Override o = frequencies.frequencyOverride(k);
        const std::size_t i = index.find(o.label);
        if (i != LabelIndex::none)
            priors[i] = o.frequency;
    }
}

/// The cost override of taking category `truth` for `decision`, both as indices into the result.
struct CostOverride
{
    std::size_t truth;
    std::size_t decision;
    long position; // among the overrides: the first of a pair wins
    double cost;
};

/// C_i = sum over j != i, in ascending j, of cost(j, i) * q_j.
///
/// The loop runs over j outside and i inside: every C_i still gets its terms in ascending j, one addition
/// each, but the additions of different i are independent of one another. Where the term is not the default
/// one - none for i = j, another cost for an override - the sum as it was before the addition is taken again.
void addCosts(tkScratch<double>& sums, tkScratch<double>& joint, std::size_t n, LabelIndex& index,
              const tkClassifierCosts& costs)
{
    const std::size_t allOverrides = static_cast<std::size_t>(costs.numMisclassificationOverrides());
    tkScratch<CostOverride> overrides(allOverrides);
    std::size_t count = 0;
    for (std::size_t k = 0; k < allOverrides; ++k)
    {
        const tkClassifierCosts::Override o = costs.misclassificationOverride(static_cast<long>(k));
        const std::size_t truth = index.find(o.first);
        const std::size_t decision = index.find(o.second);
        if (truth != LabelIndex::none && decision != LabelIndex::none && truth != decision)
            overrides[count++] = {truth, decision, static_cast<long>(k), o.cost};
    }
    overrides.shrink(count);
    std::sort(overrides.begin(), overrides.end(),
              [](const CostOverride& a, const CostOverride& b)
              {
                  if (a.truth != b.truth)
                      return a.truth < b.truth;
                  return a.decision != b.decision ? a.decision < b.decision : a.position < b.position;
              });
    const auto samePair = [](const CostOverride& a, const CostOverride& b)
    { return a.truth == b.truth && a.decision == b.decision; };
    overrides.shrink(
        static_cast<std::size_t>(std::unique(overrides.begin(), overrides.end(), samePair) - overrides.begin()));

    std::fill(sums.begin(), sums.end(), 0.0);
    CostOverride* first = overrides.begin();
    for (std::size_t j = 0; j < n; ++j)
    {
        CostOverride* last = first;
        for (; last != overrides.end() && last->truth == j; ++last)
            last->cost = sums[last->decision] + last->cost * joint[j];
        const double own = sums[j];
        const double term = costs.defaultMisclassificationCost() * joint[j];
        double* const sum = sums.begin();
        for (std::size_t i = 0; i < n; ++i)
            sum[i] += term;
        sum[j] = own;
        for (; first != last; ++first)
            sum[first->decision] = first->cost;
    }
}
} // namespace

tkClassifierCategoryResult::tkClassifierCategoryResult(long categoryLabel, double matchScore, double classScore,
                                                       double expectedCost)
    : categoryLabel_(categoryLabel),
      matchScore_(matchScore),
      classScore_(classScore),
      expectedCost_(expectedCost)
{
    if (categoryLabel < 0)
        throw tkClassifierDefs::BadLabel(tk_Messages::labelsNotNegative);
    if (matchScore < 0.0 || matchScore > 1.0)
        throw tkClassifierDefs::BadParams(tk_Messages::scoresInUnitRange);
    if (classScore < 0.0 || classScore > 1.0)
        throw tkClassifierDefs::BadParams(tk_Messages::scoresInUnitRange);
    if (expectedCost < 0.0)
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
    static_cast<void>(LabelIndex(categoryResults_)); // checks that the labels are unique
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
    : categoryResults_(std::move(matchResults)),
      matchScoreFactorLog_(matchScoreFactorLog)
{
    const std::size_t n = categoryResults_.size();
    LabelIndex index(categoryResults_);

    tkScratch<double> priors(n);
    fillPriors(priors, categoryResults_, index, frequencies);
    double priorSum = 0.0;
    for (const double prior : priors)
        priorSum += prior;
    if (priorSum == 0.0)
        throw tkClassifierDefs::BadParams(L"At least one of the category frequencies must be > 0.");

    tkScratch<double> joint(n);
    double jointSum = 0.0;
    for (std::size_t i = 0; i < n; ++i)
    {
        joint[i] = (categoryResults_[i].matchScore() * priors[i]) / priorSum;
        jointSum += joint[i];
    }
    if (jointSum == 0.0)
        throw tkClassifierDefs::BadParams(L"At least one of the resulting classification scores must be > 0.");

    tkScratch<double>& sums = priors; // no longer needed
    addCosts(sums, joint, n, index, costs);
    for (std::size_t i = 0; i < n; ++i)
        categoryResults_[i] =
            tkClassifierCategoryResult(categoryResults_[i].categoryLabel(), categoryResults_[i].matchScore(),
                                       joint[i] / jointSum, sums[i] / jointSum);
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
    archive.exchangeVersion("clss/clastool/clastool", 346);
    return archive || result.categoryLabel_ || result.matchScore_ || result.classScore_ || result.expectedCost_;
}

tkArchive& operator||(tkArchive& archive, tkClassifierResult& result)
{
    archive.exchangeVersion("clss/clastool/clastool", 670);
    return archive || result.categoryResults_ || result.matchScoreFactorLog_;
}
