#ifndef NUMERICS_TKNMNEIGHBORSEARCH_H
#define NUMERICS_TKNMNEIGHBORSEARCH_H

#include "foundation/tkExport.h"
#include "numerics/tkNMBestInstructions.h"

#include <cstddef>
#include <memory>

class tkNMNeighborFilter;

/// Finds the rows of a table that are nearest to a query in the norm distance: by definition, or by a filter that gives
/// the same bits and reads an eighth of the data.
///
/// The rows of doubles stay with their owner. The filter takes 1 byte per measurement, 8 bytes per 64 rows, and a few
/// doubles per column. Orders below 1 or above 64, rows and queries that are not finite or exceed 1e90, and k not below
/// the number of rows are searched by definition. Queries only read, so that threads may share a search.
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

    tkNMNeighborSearch();
    tkNMNeighborSearch(tkNMNeighborSearch&& other) noexcept;
    tkNMNeighborSearch& operator=(tkNMNeighborSearch&& other) noexcept;
    ~tkNMNeighborSearch();

    long numRows() const { return numRows_; }
    long numColumns() const { return numColumns_; }

    /// Bytes of the quantised rows and what belongs to them: 0 before there are 128 rows.
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

private:
    long numRows_ = 0;
    long numColumns_ = 0;
    std::unique_ptr<tkNMNeighborFilter> filter_; // of all rows; null if there was no memory for it
};

#endif
