#ifndef NUMERICS_TKNMNEIGHBORSEARCH_H
#define NUMERICS_TKNMNEIGHBORSEARCH_H

#include "numerics/tkNMBestInstructions.h"
#include "numerics/tkNMByteDistances.h"

#include <cstddef>
#include <vector>

/// Finds the rows nearest to a query in the norm distance, reading one byte per measurement instead of eight.
///
/// The rows of doubles stay with their owner; the search keeps a coarse copy of them, the *shadow*, which rules out
/// nearly all rows without looking at their doubles. The result has the bits of the plain definition at `nearest`,
/// whatever the rows and the query hold. The shadow takes 1 byte per measurement and 8 bytes per 64 rows, and a few
/// doubles per column. Orders below 1 or above 64, and rows that are not finite or exceed 1e90, are searched by the
/// plain definition. Queries only read, so that threads may share a search.
class TK_EXPORT tkNMNeighborSearch
{
public:
    /// The owner's rows. A row, once given to `update`, neither changes nor disappears.
    class TK_EXPORT Rows
    {
    public:
        virtual ~Rows() = default;

        /// rows[j] = the measurements of row indices[j], for j = 0 .. count-1.
        virtual void fetch(const long* indices, long count, const double** rows) const = 0;

        /// Says that these rows will be fetched soon: what `fetch` has to read for them may be prefetched.
        virtual void announce(const long*, long) const {}
    };

    long numRows() const { return numRows_; }
    long numColumns() const { return numColumns_; }

    /// Bytes that it occupies beside itself.
    std::size_t memory() const;

    /// Takes in rows numRows() .. numRows-1 of `rows`; with another number of columns or fewer rows than before it
    /// begins anew. Takes amortised constant time per measurement, however the rows are divided among calls. Running
    /// out of memory costs later queries time, but nothing else: the rows count all the same.
    void update(const Rows& rows, long numRows, long numColumns);

    /// The neighbour list of `query` (numColumns() measurements) for the norm of `order` > 0:
    ///
    ///   distance(i) = pow(sum, 1.0 / order),  sum = 0 + pow(|query[0] - row_i[0]|, order) + pow(|query[1] - ...) + ...
    ///
    /// For rows i = 0, 1, ... in order: a full list (k entries) turns away a distance >= its last one; otherwise row i
    /// enters in front of the first entry whose distance is not smaller, and a full list drops its last entry.
    /// Returns the number of entries, which is m = min(k, numRows()); *requires* k >= 1, and room for m indices and
    /// for 2 m distances, the second half of which is left undefined. `rows` are those given to `update`.
    /// Allocates nothing.
    long nearest(const Rows& rows, const double* query, double order, long k, long* indices, double* distances,
                 tkNMInstructions instructions = tkNMBestInstructions()) const;

private:
    using Line = tkNMByteDistances::Line;

    /// Of a row, or at most of all rows of a block: the Euclidean norm of what its bytes are off, in steps.
    struct Errors_
    {
        float clipped; // from the row after clipping
        float whole;   // from the row itself
    };

    class Run_;

    void fit_(const Rows& rows, long numRows);
    void appendBlock_(const Rows& rows);
    Errors_ toBytes_(const double* row, std::int8_t* bytes) const;
    long numBlocks_() const { return static_cast<long>(errors_.size()); }
    const Line* block_(long block) const;

    long numRows_ = 0;
    long numColumns_ = 0;
    bool allModest_ = true;       // no measurement is NaN, infinite or beyond 1e90
    long fitRows_ = 0;            // rows that there were when centres_ and step_ were chosen
    double step_ = 0.0;           // width of one step of a byte, the same for all columns
    std::vector<double> centres_; // value that byte 0 stands for, by column

    std::vector<std::vector<Line>> chunks_; // blocks of the shadow, chunkBlocks to a chunk
    std::vector<Errors_> errors_;           // by block
    Errors_ largestErrors_{0.0f, 0.0f};     // of all blocks
};

#endif
