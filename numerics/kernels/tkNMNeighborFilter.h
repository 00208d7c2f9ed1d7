#ifndef NUMERICS_KERNELS_TKNMNEIGHBORFILTER_H
#define NUMERICS_KERNELS_TKNMNEIGHBORFILTER_H

#include "numerics/kernels/tkNMByteDistances.h"
#include "numerics/kernels/tkNMInstructions.h"
#include "numerics/tkNMNeighborSearch.h"

#include <cstddef>
#include <vector>

/// Computes tkNMNeighborSearch::nearest() and nearestSet(), ruling out nearly all rows without looking at their
/// doubles.
///
/// A vector-approximation file (Weber, Schek and Blott, VLDB 1998): the rows stand a second time quantised to a byte
/// per measurement, in blocks of 64 rows as tkNMByteDistances has them. What bytes do not rule out is ranked again by
/// doubles and by the definition. A query reads all quantised rows and few rows of doubles; one far outside the rows
/// costs up to two plain scans of their doubles. tkNMNeighborFilter_test.cpp holds it to the bits;
/// docs/numerics.md has the proof.
class TK_EXPORT tkNMNeighborFilter
{
public:
    using Rows = tkNMNeighborSearch::Rows;

    explicit tkNMNeighborFilter(long numColumns) : numColumns_(numColumns) {}

    long numRows() const { return numRows_; }

    /// Bytes of the quantised rows and what belongs to them.
    std::size_t memory() const;

    /// Takes in the rows up to numRows, not below what it was. Running out of memory throws; the rows count all the
    /// same, and the next call goes on.
    void update(const Rows& rows, long numRows);

    /// Writes the list, or its rows in any order if `asSet`. *Requires* 1 <= k < the number of rows, rows and query not
    /// beyond 1e90, 1 <= order <= 64, and room as for tkNMNeighborSearch::nearest().
    void search(const Rows& rows, const double* query, double order, long k, bool asSet, long* indices,
                double* distances, tkNMInstructions instructions) const;

private:
    using Line = tkNMByteDistances::Line;

    /// Of a row, or at most of all rows of a block: the Euclidean norm of what its bytes are off, in steps.
    struct Errors_
    {
        float clipped; // from the row after clipping
        float whole;   // from the row itself
    };

    class Query_;

    void fit_(const Rows& rows, long numRows);
    void appendBlock_(const Rows& rows);
    Errors_ toBytes_(const double* row, std::int8_t* bytes) const;
    long numBlocks_() const { return static_cast<long>(errors_.size()); }
    const Line* block_(long block) const;

    long numRows_ = 0;
    long numColumns_;
    long fitRows_ = 0;            // rows that there were when centres_ and step_ were chosen
    double step_ = 0.0;           // width of one step of a byte, the same for all columns
    std::vector<double> centres_; // value that byte 0 stands for, by column

    std::vector<std::vector<Line>> chunks_; // blocks of quantised rows, chunkBlocks to a chunk
    std::vector<Errors_> errors_;           // by block
    Errors_ largestErrors_{0.0f, 0.0f};     // of all blocks
};

#endif
