#include "clss/clastool/clastool/tkClassifierResult.h"

#include "clss/clastool/clastool/tkClassifierCosts.h"
#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/clastool/clastool/tkClassifierFrequencies.h"
#include "clss/clastool/clastool/tk_Messages.h"
#include "foundation/tkArchiveOperators.h"
#include "foundation/tkScratch.h"
#include "numerics/tkNMSharedSums.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace
{
/// The categories of a result by label, to find a label's place without a linear search.
class LabelIndex
{
public:
    /// Throws BadParams if a label occurs twice.
    explicit LabelIndex(const std::vector<tkClassifierCategoryResult>& results) : places_(results.size())
    {
        long previous = -1;
        for (std::size_t i = 0; i < results.size(); ++i)
        {
            const long label = results[i].categoryLabel();
            places_[i] = {label, i};
            isAscending_ &= previous < label;
            previous = label;
        }
        if (isAscending_)
            return;
        std::sort(places_.begin(), places_.end(), [](const Place& a, const Place& b) { return a.label < b.label; });
        const auto sameLabel = [](const Place& a, const Place& b) { return a.label == b.label; };
        if (std::adjacent_find(places_.begin(), places_.end(), sameLabel) != places_.end())
            throw tkClassifierDefs::BadParams(tk_Messages::labelsUnique);
    }

    /// Whether the categories were given by ascending label, as classifiers do, and none of these is negative.
    bool isAscending() const { return isAscending_; }

    /// The label at this place in ascending order.
    long label(std::size_t place) const { return places_[place].label; }

    bool hasNegativeLabel() const { return !isAscending_ && places_[0].label < 0; }

    /// Index of the category with this label, `none` if there is none. Labels without gaps, as most are, are found
    /// at once. *Requires* that none is negative.
    std::size_t find(long label) const
    {
        if (label < 0 || places_.size() == 0)
            return none;
        const auto guess = static_cast<std::size_t>(label - places_[0].label);
        if (guess < places_.size() && places_[guess].label == label)
            return places_[guess].index;
        const Place* const end = places_.data() + places_.size();
        const Place* const place =
            std::lower_bound(places_.data(), end, label, [](const Place& p, long l) { return p.label < l; });
        return place != end && place->label == label ? place->index : none;
    }

    static constexpr std::size_t none = static_cast<std::size_t>(-1);

private:
    struct Place
    {
        long label;
        std::size_t index;
    };

    tkScratch<Place> places_;
    bool isAscending_ = true;
};

/// p_i: the frequency of each category. Overrides are walked last to first, so that the first of a label wins.
void fillPriors(tkScratch<double>& priors, const LabelIndex& index, const tkClassifierFrequencies& frequencies)
{
    std::fill(priors.begin(), priors.end(), frequencies.defaultCategoryFrequency());
    for (long k = frequencies.numFrequencyOverrides() - 1; k >= 0; --k)
    {
        const tkClassifierFrequencies::Override o = frequencies.frequencyOverride(k);
        const std::size_t i = index.find(o.label);
        if (i != LabelIndex::none)
            priors[i] = o.frequency;
    }
}

using Exceptions = tkScratch<tkNMSharedSums::Exception>;

/// Copies `from` in ascending key(exception) < numKeys, those of equal keys in their order.
template <class Key>
void sortByKey(const Exceptions& from, Exceptions& to, std::size_t numKeys, const Key& key)
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

/// C_i = sum over j != i, in ascending j, of cost(j, i) * q_j. There is room for a multiple of 8 of sums and terms.
void sumCosts(tkScratch<double>& sums, const tkScratch<double>& joint, std::size_t n, const LabelIndex& index,
              const tkClassifierCosts& costs)
{
    tkScratch<double> terms(sums.size());
    const double defaultCost = costs.defaultMisclassificationCost();
    for (std::size_t j = 0; j < n; ++j)
        terms[j] = defaultCost * joint[j];
    std::fill(terms.begin() + n, terms.end(), 0.0);

    // Last to first, so that the first of a pair wins.
    const long numOverrides = costs.numMisclassificationOverrides();
    Exceptions overrides(static_cast<std::size_t>(numOverrides));
    std::size_t count = 0;
    for (long k = numOverrides - 1; k >= 0; --k)
    {
        const tkClassifierCosts::Override o = costs.misclassificationOverride(k);
        const std::size_t truth = index.find(o.first);
        const std::size_t decision = index.find(o.second);
        if (truth != LabelIndex::none && decision != LabelIndex::none && truth != decision)
            overrides[count++] = {decision, truth, o.cost * joint[truth]};
    }
    overrides.shrink(count);
    if (count > 1)
    {
        Exceptions byDecision(count);
        sortByKey(overrides, byDecision, n, [](const tkNMSharedSums::Exception& e) { return e.sum; });
        sortByKey(byDecision, overrides, sums.size() / tkNMSharedSums::group,
                  [](const tkNMSharedSums::Exception& e) { return e.place / tkNMSharedSums::group; });
    }
    tkNMSharedSums::compute(sums.data(), terms.data(), sums.size(), overrides.data(), count);
}

/// The place of each category by ascending cost, those of equal cost in their order. To count those that come before
/// each is quicker for a few categories than a sort, whose comparisons cannot be foreseen. False if a cost is NaN: of
/// two categories one comes before the other, but with a NaN neither does.
bool countPlaces(tkScratch<std::size_t>& places, const double* costs)
{
    const std::size_t n = places.size();
    std::size_t pairs = 0;
    for (std::size_t i = 0; i < n; ++i)
    {
        const double cost = costs[i];
        std::size_t before = 0;
        for (std::size_t j = 0; j < i; ++j)
            before += costs[j] <= cost;
        for (std::size_t j = i + 1; j < n; ++j)
            before += costs[j] < cost;
        places[i] = before;
        pairs += before;
    }
    return 2 * pairs == n * (n - 1);
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
    const LabelIndex index(categoryResults_);
    if (index.hasNegativeLabel())
        throw tkClassifierDefs::BadLabel(tk_Messages::labelsNotNegative);

    tkScratch<double> priors(n);
    fillPriors(priors, index, frequencies);
    double priorSum = 0.0;
    for (const double prior : priors)
        priorSum += prior;
    if (priorSum == 0.0)
        throw tkClassifierDefs::BadParams(L"At least one of the category frequencies must be > 0.");

    tkScratch<double> matchScores(n);
    for (std::size_t i = 0; i < n; ++i)
        matchScores[i] = categoryResults_[i].matchScore();
    tkScratch<double>& joint = priors; // each is needed for its own joint score only
    for (std::size_t i = 0; i < n; ++i)
        joint[i] = (matchScores[i] * priors[i]) / priorSum;
    double jointSum = 0.0;
    for (const double score : joint)
        jointSum += score;
    if (jointSum == 0.0)
        throw tkClassifierDefs::BadParams(L"At least one of the resulting classification scores must be > 0.");

    tkScratch<double> sums((n + tkNMSharedSums::group - 1) / tkNMSharedSums::group * tkNMSharedSums::group);
    sumCosts(sums, joint, n, index, costs);
    for (std::size_t i = 0; i < n; ++i)
        joint[i] /= jointSum;
    for (std::size_t i = 0; i < n; ++i)
        sums[i] /= jointSum;

    tkScratch<std::size_t> places(n);
    if (n <= 32 && index.isAscending() && countPlaces(places, sums.data()))
    {
        for (std::size_t i = 0; i < n; ++i)
            categoryResults_[places[i]] = tkClassifierCategoryResult(index.label(i), matchScores[i], joint[i], sums[i]);
        return;
    }
    for (std::size_t i = 0; i < n; ++i)
        categoryResults_[i] =
            tkClassifierCategoryResult(categoryResults_[i].categoryLabel(), matchScores[i], joint[i], sums[i]);
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
