#include "clss/clastool/clastool/tk_DecisionTerms.h"

#include "clss/clastool/clastool/tkClassifierCosts.h"
#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/clastool/clastool/tkClassifierFrequencies.h"
#include "clss/clastool/clastool/tk_Messages.h"

#include <algorithm>
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

tk_DecisionTerms::tk_DecisionTerms(const long* labels, std::size_t n, const tkClassifierFrequencies& frequencies,
                                   const tkClassifierCosts& costs)
    : weights(tkNMDecision::roundUp(n)),
      cost(costs.defaultMisclassificationCost()),
      overrides(static_cast<std::size_t>(costs.numMisclassificationOverrides()))
{
    std::fill(weights.begin(), weights.end(), frequencies.defaultCategoryFrequency());
    // Summed first: the chain of additions overlaps with building the index.
    weightSum = sumOf(weights.data(), n);

    const LabelIndex index(labels, n);
    if (index.hasNegativeLabel())
        throw tkClassifierDefs::BadLabel(tk_Messages::labelsNotNegative);
    if (frequencies.numFrequencyOverrides() > 0)
    {
        overridePriors(weights.data(), index, frequencies);
        weightSum = sumOf(weights.data(), n);
    }
    if (weightSum == 0.0)
        throw tkClassifierDefs::BadParams(L"At least one of the category frequencies must be > 0.");
    fillCostOverrides(overrides, n, index, costs);
    labelsAscend = index.isAscending();
}

void tk_DecisionTerms::requireUnique(const long* labels, std::size_t n)
{
    static_cast<void>(LabelIndex(labels, n)); // checks it
}
