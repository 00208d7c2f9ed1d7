#include "clss/clastool/clastool/tkClassifierResult.h"

#include "clss/clastool/clastool/tkClassifierCosts.h"
#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/clastool/clastool/tkClassifierFrequencies.h"
#include "clss/clastool/clastool/tk_Messages.h"
#include "clss/clastool/clastool/tk_RecordPlaces.h"
#include "foundation/tkArchiveOperators.h"
#include "foundation/tkScratch.h"
#include "numerics/tkNMDecision.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <utility>

namespace
{
/// Positions of labels, found without a linear search.
class LabelIndex
{
public:
    /// Throws BadParams if a label occurs twice. *Requires* that the labels outlive this.
    LabelIndex(const long* labels, std::size_t size)
        : labels_(labels),
          size_(size),
          isAscending_(isAscending(labels, size)),
          entries_(isAscending_ ? 0 : size)
    {
        if (isAscending_)
            return;
        for (std::size_t i = 0; i < size; ++i)
            entries_[i] = {labels[i], i};
        std::sort(entries_.begin(), entries_.end(), [](const Entry& a, const Entry& b) { return a.label < b.label; });
        const auto sameLabel = [](const Entry& a, const Entry& b) { return a.label == b.label; };
        if (std::adjacent_find(entries_.begin(), entries_.end(), sameLabel) != entries_.end())
            throw tkClassifierDefs::BadParams(tk_Messages::labelsUnique);
    }

    /// Whether the labels are ascending, as classifiers give them, and none is negative. They are then their own index.
    bool isAscending() const { return isAscending_; }

    bool hasNegativeLabel() const { return !isAscending_ && entries_[0].label < 0; }

    /// The position of this label, `none` if it is not there. Labels without gaps, as most are, are found at once.
    /// *Requires* that none is negative.
    std::size_t find(long label) const
    {
        if (label < 0 || size_ == 0)
            return none;
        std::size_t position = static_cast<std::size_t>(label - label_(0));
        if (position >= size_ || label_(position) != label)
        {
            position = 0;
            for (std::size_t length = size_; length > 0;)
            {
                const std::size_t half = length / 2;
                const bool isLater = label_(position + half) < label;
                position += isLater ? half + 1 : 0;
                length = isLater ? length - half - 1 : half;
            }
            if (position == size_ || label_(position) != label)
                return none;
        }
        return isAscending_ ? position : entries_[position].index;
    }

    static constexpr std::size_t none = static_cast<std::size_t>(-1);

private:
    struct Entry
    {
        long label;
        std::size_t index;
    };

    static bool isAscending(const long* labels, std::size_t size)
    {
        bool isAscending = size == 0 || labels[0] >= 0;
        for (std::size_t i = 1; i < size; ++i)
            isAscending &= labels[i - 1] < labels[i];
        return isAscending;
    }

    /// In ascending order.
    long label_(std::size_t position) const { return isAscending_ ? labels_[position] : entries_[position].label; }

    const long* labels_;
    std::size_t size_;
    bool isAscending_;
    tkScratch<Entry> entries_;
};

/// Overrides are walked last to first, so that the first of a label wins.
void overridePriors(double* priors, const LabelIndex& index, const tkClassifierFrequencies& frequencies)
{
    for (long k = frequencies.numFrequencyOverrides() - 1; k >= 0; --k)
    {
        const tkClassifierFrequencies::Override o = frequencies.frequencyOverride(k);
        const std::size_t i = index.find(o.label);
        if (i != LabelIndex::none)
            priors[i] = o.frequency;
    }
}

double sumOf(const double* terms, std::size_t n)
{
    double sum = 0.0;
    for (std::size_t i = 0; i < n; ++i)
        sum += terms[i];
    return sum;
}

using CostOverrides = tkScratch<tkNMDecision::CostOverride>;

/// Copies `from` in ascending key(override) < numKeys, those of equal keys in their order.
template <class Key>
void sortByKey(const CostOverrides& from, CostOverrides& to, std::size_t numKeys, const Key& key)
{
    tkScratch<std::size_t> ends(numKeys); // first how many have the key, then where the next of them goes
    std::fill(ends.begin(), ends.end(), std::size_t{0});
    for (std::size_t k = 0; k < from.size(); ++k)
        ++ends[key(from[k])];
    std::size_t begin = 0;
    for (std::size_t& end : ends)
        begin += std::exchange(end, begin);
    for (std::size_t k = 0; k < from.size(); ++k)
        to[ends[key(from[k])]++] = from[k];
}

/// The overrides of pairs of these labels, as tkNMDecision wants them. They are taken last to first, so that the first
/// of a pair wins. *Requires* room for all.
void fillCostOverrides(CostOverrides& overrides, std::size_t n, const LabelIndex& index, const tkClassifierCosts& costs)
{
    std::size_t count = 0;
    for (long k = costs.numMisclassificationOverrides() - 1; k >= 0; --k)
    {
        const tkClassifierCosts::Override o = costs.misclassificationOverride(k);
        const std::size_t truth = index.find(o.first);
        const std::size_t decision = index.find(o.second);
        if (truth != LabelIndex::none && decision != LabelIndex::none && truth != decision)
            overrides[count++] = {decision, truth, o.cost};
    }
    overrides.shrink(count);
    if (count > 1)
    {
        CostOverrides byDecision(count);
        sortByKey(overrides, byDecision, n, [](const tkNMDecision::CostOverride& o) { return o.decision; });
        sortByKey(byDecision, overrides, n / tkNMDecision::group + 1,
                  [](const tkNMDecision::CostOverride& o) { return o.state / tkNMDecision::group; });
    }
}
} // namespace

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
    static_cast<void>(LabelIndex(labels.data(), labels.size())); // checks that they are unique
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
    const std::size_t room = tkNMDecision::roundUp(n);
    tkScratch<double> classScores(room); // first the priors
    std::fill_n(classScores.data(), room, frequencies.defaultCategoryFrequency());
    // Summed first: the chain of additions overlaps with building the index.
    double priorSum = sumOf(classScores.data(), n);

    const LabelIndex index(labels, n);
    if (index.hasNegativeLabel())
        throw tkClassifierDefs::BadLabel(tk_Messages::labelsNotNegative);
    if (frequencies.numFrequencyOverrides() > 0)
    {
        overridePriors(classScores.data(), index, frequencies);
        priorSum = sumOf(classScores.data(), n);
    }
    if (priorSum == 0.0)
        throw tkClassifierDefs::BadParams(L"At least one of the category frequencies must be > 0.");

    CostOverrides overrides(static_cast<std::size_t>(costs.numMisclassificationOverrides()));
    fillCostOverrides(overrides, n, index, costs);
    tkScratch<double> expectedCosts(room);
    const double jointSum =
        tkNMDecision::compute(matchScores, classScores.data(), priorSum, expectedCosts.data(), n,
                              costs.defaultMisclassificationCost(), overrides.data(), overrides.size());
    if (jointSum == 0.0)
        throw tkClassifierDefs::BadParams(L"At least one of the resulting classification scores must be > 0.");
    for (std::size_t i = 0; i < n; ++i)
        tkClassifierCategoryResult::require_(labels[i], matchScores[i], classScores[i], expectedCosts[i]);
    fillRanked_(labels, matchScores, classScores.data(), expectedCosts.data(), n, index.isAscending());
    matchScoreFactorLog_ = matchScoreFactorLog;
}

void tkClassifierResult::fillRanked_(const long* labels, const double* matchScores, const double* classScores,
                                     const double* expectedCosts, std::size_t n, bool labelsAscend)
{
    const bool isRanked = n <= tkNMDecision::mostRanked && labelsAscend;
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
    if (!isRanked)
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
