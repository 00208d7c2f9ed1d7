#include "clss/clastool/clastool/tk_NeighborIndex.h"

#include "foundation/tkAssert.h"
#include "foundation/tkPrefetch.h"
#include "numerics/tkNMNeighborList.h"
#include "numerics/tkNMNormDistance.h"

#include <algorithm>
#include <functional>
#include <numeric>
#include <utility>

namespace
{
/// With more patterns than this for each distinct one, the distinct ones alone are worth memory and time.
constexpr std::size_t mostRepetitions = 4;

/// The measurements of patterns as the rows of a table, where they lie.
class PatternRows : public tkNMNeighborSearch::Rows
{
public:
    PatternRows(const tk_NeighborIndex::Patterns& patterns, long numMeasurements)
        : patterns_(patterns),
          numMeasurements_(numMeasurements)
    {
    }

    void fetch(const long* indices, long count, const double** rows) const override
    {
        for (long j = 0; j < count; ++j)
        {
            const tkFeaturePattern& pattern = *patterns_[static_cast<std::size_t>(indices[j])];
            TK_ASSERT(pattern.numMeasurements() == numMeasurements_);
            rows[j] = pattern.featureMeasurements(false).data();
        }
    }

    void announce(const long* indices, long count) const override
    {
        for (long j = 0; j < count; ++j)
            tkPrefetch(&patterns_[static_cast<std::size_t>(indices[j])]->featureMeasurements(false));
    }

private:
    const tk_NeighborIndex::Patterns& patterns_;
    long numMeasurements_;
};

/// Of each pattern the first one that is the same object.
std::vector<std::size_t> originalsOf(const tk_NeighborIndex::Patterns& patterns)
{
    std::vector<std::size_t> order(patterns.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    const auto object = [&](std::size_t i) { return patterns[i].get(); };
    std::sort(order.begin(), order.end(),
              [&](std::size_t a, std::size_t b)
              { return object(a) != object(b) ? std::less<>()(object(a), object(b)) : a < b; });
    std::vector<std::size_t> originals(patterns.size());
    for (std::size_t j = 0; j < order.size(); ++j)
        originals[order[j]] = j > 0 && object(order[j]) == object(order[j - 1]) ? originals[order[j - 1]] : order[j];
    return originals;
}

/// Whether memory and time are bounded however often patterns repeat.
bool areFew(const tk_NeighborIndex::Patterns& patterns)
{
    if (patterns.empty() || patterns.front().isNull())
        return true; // not comparable
    const auto numMeasurements = static_cast<std::size_t>(std::max(patterns.front()->numMeasurements(), 1L));
    return patterns.size() <= static_cast<std::size_t>(tkNMNeighborSearch::mostScanned) / numMeasurements;
}

bool isComparable(const tk_NeighborIndex::Patterns& patterns, std::size_t i)
{
    return !patterns[i].isNull() && patterns[i]->numInvalid() == 0 &&
           patterns[i]->numMeasurements() == patterns.front()->numMeasurements();
}
} // namespace

tk_NeighborIndex::tk_NeighborIndex(const Patterns& patterns)
{
    if (areFew(patterns))
    {
        update(patterns);
        return;
    }
    std::vector<std::size_t> originals = originalsOf(patterns);
    std::size_t numDistinct = 0;
    for (std::size_t i = 0; i < originals.size(); ++i)
        numDistinct += originals[i] == i;
    if (patterns.size() > mostRepetitions * numDistinct)
        originals_ = std::move(originals);
    update(patterns);
}

void tk_NeighborIndex::update(const Patterns& patterns)
{
    for (auto i = static_cast<std::size_t>(numPatterns_); firstNotComparable_ < 0 && i < patterns.size(); ++i)
        if (original_(i) == i && !isComparable(patterns, i))
            firstNotComparable_ = static_cast<long>(i);
    numPatterns_ = static_cast<long>(patterns.size());
    if (firstNotComparable_ >= 0 || patterns.empty() || !originals_.empty())
        return;
    const long numMeasurements = patterns.front()->numMeasurements();
    search_.update(PatternRows(patterns, numMeasurements), numPatterns_, numMeasurements);
}

bool tk_NeighborIndex::covers(const Patterns& patterns) const
{
    return firstNotComparable_ < 0 && numPatterns_ == static_cast<long>(patterns.size());
}

long tk_NeighborIndex::nearest(const Patterns& patterns, const tkFeaturePattern& query, double order, long k,
                               bool asSet, long* indices, double* distances) const
{
    const std::vector<double>& measurements = query.featureMeasurements(false);
    if (originals_.empty())
    {
        const PatternRows rows(patterns, search_.numColumns());
        return asSet ? search_.nearestSet(rows, measurements.data(), order, k, indices, distances)
                     : search_.nearest(rows, measurements.data(), order, k, indices, distances);
    }

    std::vector<double> ofOriginals(patterns.size());
    tkNMNeighborList list(std::min(k, numPatterns_), indices, distances);
    list.clear();
    for (std::size_t i = 0; i < patterns.size(); ++i)
    {
        const std::size_t original = original_(i);
        if (original == i)
            ofOriginals[i] = tkNMNormDistance(measurements.data(), patterns[i]->featureMeasurements(false).data(),
                                              patterns[i]->numMeasurements(), order);
        list.add(static_cast<long>(i), ofOriginals[original]);
    }
    return list.size();
}
