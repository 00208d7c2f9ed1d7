#include "clss/clastool/clastool/tk_NeighborIndex.h"

#include "foundation/tkAssert.h"
#include "foundation/tkPrefetch.h"

namespace
{
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
} // namespace

void tk_NeighborIndex::update(const Patterns& patterns)
{
    for (auto i = static_cast<std::size_t>(search_.numRows()); isRegular_ && i < patterns.size(); ++i)
        isRegular_ = !patterns[i].isNull() && patterns[i]->numInvalid() == 0 &&
                     patterns[i]->numMeasurements() == patterns.front()->numMeasurements();
    if (!isRegular_ || patterns.empty())
        return;
    const long numMeasurements = patterns.front()->numMeasurements();
    search_.update(PatternRows(patterns, numMeasurements), static_cast<long>(patterns.size()), numMeasurements);
}

bool tk_NeighborIndex::covers(const Patterns& patterns) const
{
    return isRegular_ && search_.numRows() == static_cast<long>(patterns.size());
}

long tk_NeighborIndex::nearest(const Patterns& patterns, const tkFeaturePattern& query, double order, long k,
                               long* indices, double* distances) const
{
    return search_.nearest(PatternRows(patterns, search_.numColumns()), query.featureMeasurements(false).data(), order,
                           k, indices, distances);
}
