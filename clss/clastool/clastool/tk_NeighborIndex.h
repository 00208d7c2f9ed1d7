#ifndef CLSS_CLASTOOL_CLASTOOL_TK_NEIGHBORINDEX_H
#define CLSS_CLASTOOL_CLASTOOL_TK_NEIGHBORINDEX_H

#include "clss/clastool/clastool/tkFeaturePattern.h"
#include "foundation/tkPtrHandle.h"
#include "numerics/tkNMNeighborSearch.h"

#include <vector>

/// Finds the patterns of a memory provider that are nearest in a norm distance, with the result of comparing
/// all of them one by one. It lies beside the patterns and is given them with each call.
///
/// It is complete whenever no call of update() is running, so that searching only reads: threads may share it.
class TK_EXPORT tk_NeighborIndex
{
public:
    using Patterns = std::vector<tkPtrHandle_const<tkFeaturePattern>>;

    /// Takes in what was appended to `patterns` since the last call. Amortised constant time per measurement.
    void update(const Patterns& patterns);

    /// Whether the index can answer for `patterns`: it has all of them, each is wholly valid, and all have as many
    /// measurements. Otherwise comparing them one by one fails somewhere, and has to.
    bool covers(const Patterns& patterns) const;

    /// Writes the neighbours of `query` and returns their number, as tkNMNeighborSearch::nearest() does. *Requires*
    /// covers(patterns) and a wholly valid query of their length.
    long nearest(const Patterns& patterns, const tkFeaturePattern& query, double order, long k, long* indices,
                 double* distances) const;

private:
    tkNMNeighborSearch search_;
    bool isRegular_ = true; // all patterns so far are wholly valid and of one length
};

#endif
