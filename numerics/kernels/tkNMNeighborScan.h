#ifndef NUMERICS_KERNELS_TKNMNEIGHBORSCAN_H
#define NUMERICS_KERNELS_TKNMNEIGHBORSCAN_H

#include "numerics/kernels/tkNMInstructions.h"
#include "numerics/tkNMAligned.h"
#include "numerics/tkNMNeighborSearch.h"

#include <cstddef>

/// Computes tkNMNeighborSearch::nearest() and nearestSet() from keys of all rows: what is fastest for few rows.
///
/// The rows stand a second time as doubles, in blocks of 32: first column 0 of each, then column 1, and so on. Rows
/// are compared side by side, a row to a lane, by keys that ascend with the distance (tkNMNormPower). Takes 8 bytes and
/// a few operations per measurement. tkNMNeighborScan_test.cpp holds it to the bits.
class TK_EXPORT tkNMNeighborScan
{
public:
    using Rows = tkNMNeighborSearch::Rows;

    explicit tkNMNeighborScan(long numColumns) : numColumns_(numColumns) {}

    long numRows() const { return numRows_; }

    /// Bytes of the copied rows.
    std::size_t memory() const { return blocks_.capacity() * sizeof(double); }

    /// Takes in the rows up to numRows, not below what it was. Strong exception guarantee.
    void update(const Rows& rows, long numRows);

    /// Writes the list, or its rows in any order if `asSet`. *Requires* 1 <= k < the number of rows, rows and query not
    /// beyond 1e90, 1 <= order <= 64, and room as for tkNMNeighborSearch::nearest().
    void search(const Rows& rows, const double* query, double order, long k, bool asSet, long* indices,
                double* distances, tkNMInstructions instructions) const;

private:
    long numRows_ = 0;
    long numColumns_;
    tkNMAlignedDoubles blocks_; // unused places hold `beyond`
};

#endif
