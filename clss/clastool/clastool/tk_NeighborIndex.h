#ifndef CLSS_CLASTOOL_CLASTOOL_TK_NEIGHBORINDEX_H
#define CLSS_CLASTOOL_CLASTOOL_TK_NEIGHBORINDEX_H

#include "clss/clastool/clastool/tkFeaturePattern.h"
#include "foundation/tkPtrHandle.h"
#include "numerics/tkNMNeighborSearch.h"

#include <cstddef>
#include <vector>

/// Finds the patterns of a memory provider that are nearest in a norm distance, with the result of comparing
/// all of them one by one. It stands beside the patterns and is given them with each call.
///
/// A pattern is *not comparable* if it is a null handle, has an invalid measurement, or has not as many as the first
/// one: its distance fails. Searching only reads, so that threads may share an index.
class TK_EXPORT tk_NeighborIndex
{
public:
    using Patterns = std::vector<tkPtrHandle_const<tkFeaturePattern>>;

    /// An index of `patterns`. Where most of them are the same objects again, it computes each object's distance once
    /// per query and takes memory for the distinct ones alone: a record of a few bytes per pattern must not become
    /// much more in memory or time.
    explicit tk_NeighborIndex(const Patterns& patterns);

    /// Takes in what was appended to `patterns` since the last call. Amortised constant time per measurement. Running
    /// out of memory costs later queries time, but nothing else.
    void update(const Patterns& patterns);

    /// Whether the index can answer for `patterns`: it has taken in all of them, and all are comparable.
    bool covers(const Patterns& patterns) const;

    /// Bytes that it occupies beside itself.
    std::size_t memory() const { return originals_.capacity() * sizeof originals_[0] + search_.memory(); }

    /// The first pattern that is not comparable, -1 if all are.
    long firstNotComparable() const { return firstNotComparable_; }

    /// Writes the neighbours of `query` and returns their number, as tkNMNeighborSearch::nearest() does or, if `asSet`,
    /// nearestSet(). *Requires* covers(patterns) and a wholly valid query of their length.
    long nearest(const Patterns& patterns, const tkFeaturePattern& query, double order, long k, bool asSet,
                 long* indices, double* distances) const;

private:
    /// The first pattern that is the same object as pattern i.
    std::size_t original_(std::size_t i) const { return i < originals_.size() ? originals_[i] : i; }

    long numPatterns_ = 0;               // taken in
    long firstNotComparable_ = -1;       // of those taken in
    std::vector<std::size_t> originals_; // empty, or by pattern: the first pattern that is the same object
    tkNMNeighborSearch search_;          // of all patterns; of none if there are originals_
};

#endif
