#ifndef NUMERICS_TKNMNEIGHBORSEARCH_H
#define NUMERICS_TKNMNEIGHBORSEARCH_H

#include "foundation/tkExport.h"
#include "numerics/tkNMBestInstructions.h"

#include <cstddef>
#include <memory>

class tkNMNeighborFilter;
class tkNMNeighborScan;

/// Finds the rows of a table that are nearest to a query in the norm distance: by definition, or by kernels that give
/// the same bits.
///
/// The rows of doubles stay with their owner. Up to mostScanned measurements in all, a kernel compares a copy of the
/// rows, side by side. More, and fewer if k is small, are filtered by quantised rows, which take 1 byte per
/// measurement, 8 bytes per 64 rows, and a few doubles per column. Orders below 1 or above 64, and rows and queries
/// that are not finite or exceed 1e90, are searched by definition. Queries only read, so that threads may share a
/// search.
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

    static constexpr long mostScanned = 65536;

    tkNMNeighborSearch();
    tkNMNeighborSearch(tkNMNeighborSearch&& other) noexcept;
    tkNMNeighborSearch& operator=(tkNMNeighborSearch&& other) noexcept;
    ~tkNMNeighborSearch();

    long numRows() const { return numRows_; }
    long numColumns() const { return numColumns_; }

    /// Bytes of the copied or quantised rows and what belongs to them.
    std::size_t memory() const;

    /// Takes in rows numRows() .. numRows-1 of `rows`; with another number of columns or fewer rows than before it
    /// begins anew. Takes amortised constant time per measurement, however the rows are divided among calls. Running
    /// out of memory costs later queries time, but nothing else: the rows count all the same.
    void update(const Rows& rows, long numRows, long numColumns);

    /// The neighbour list of `query` (numColumns() measurements): rows 0, 1, ... are offered in order to a
    /// tkNMNeighborList of k, each at its tkNMNormDistance of the given order > 0 from the query.
    ///
    /// Returns the number of entries, which is m = min(k, numRows()); *requires* k >= 1, and room for m indices and
    /// for 2 m distances, the second half of which is left undefined. `rows` are those given to `update`.
    /// Allocates nothing.
    long nearest(const Rows& rows, const double* query, double order, long k, long* indices, double* distances) const;
    /// The same by the given instruction set, or the best there is if the processor has not got it.
    long nearest(const Rows& rows, const double* query, double order, long k, long* indices, double* distances,
                 tkNMInstructions instructions) const;

    /// The rows of that list, without their order and distances: less to compute. `indices` gets the rows in any order.
    /// *Requires* the same room; what `distances` gets is undefined.
    long nearestSet(const Rows& rows, const double* query, double order, long k, long* indices,
                    double* distances) const;
    long nearestSet(const Rows& rows, const double* query, double order, long k, long* indices, double* distances,
                    tkNMInstructions instructions) const;

private:
    /// Whether the filter is faster, where there are both kernels.
    bool isFiltered_(double order, long k) const;
    long search_(const Rows& rows, const double* query, double order, long k, bool asSet, long* indices,
                 double* distances, tkNMInstructions instructions) const;

    long numRows_ = 0;
    long numColumns_ = 0;
    bool areInReach_ = true;                     // no measurement is NaN, infinite or beyond 1e90
    std::unique_ptr<tkNMNeighborScan> scan_;     // of all rows, if they are few
    std::unique_ptr<tkNMNeighborFilter> filter_; // of all rows, if they are not very few; null without memory
};

#endif
