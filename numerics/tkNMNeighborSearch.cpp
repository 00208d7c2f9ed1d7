#include "numerics/tkNMNeighborSearch.h"

#include "foundation/tkAssert.h"
#include "numerics/kernels/tkNMInstructions.h"
#include "numerics/kernels/tkNMNeighborFilter.h"
#include "numerics/tkNMNeighborList.h"
#include "numerics/tkNMNormDistance.h"

#include <algorithm>
#include <new>

namespace
{
void searchByDefinition(const tkNMNeighborSearch::Rows& rows, long numRows, const double* query, long numColumns,
                        double order, long k, long* indices, double* distances)
{
    tkNMNeighborList list(k, indices, distances);
    list.clear();
    for (long i = 0; i < numRows; ++i)
    {
        const double* row = nullptr;
        rows.fetch(&i, 1, &row);
        list.add(i, tkNMNormDistance(query, row, numColumns, order));
    }
}
} // namespace

tkNMNeighborSearch::tkNMNeighborSearch() = default;
tkNMNeighborSearch::tkNMNeighborSearch(tkNMNeighborSearch&& other) noexcept = default;
tkNMNeighborSearch& tkNMNeighborSearch::operator=(tkNMNeighborSearch&& other) noexcept = default;
tkNMNeighborSearch::~tkNMNeighborSearch() = default;

std::size_t tkNMNeighborSearch::memory() const
{
    return filter_ ? filter_->memory() : 0;
}

void tkNMNeighborSearch::update(const Rows& rows, long numRows, long numColumns)
{
    TK_ASSERT(numRows >= 0 && numColumns >= 0);
    if (numColumns != numColumns_ || numRows < numRows_)
        filter_.reset();
    numRows_ = numRows;
    numColumns_ = numColumns;
    try
    {
        if (!filter_)
            filter_ = std::make_unique<tkNMNeighborFilter>(numColumns);
        filter_->update(rows, numRows);
    }
    catch (const std::bad_alloc&) // the next call goes on from where this one stopped
    {
    }
}

long tkNMNeighborSearch::nearest(const Rows& rows, const double* query, double order, long k, long* indices,
                                 double* distances) const
{
    return nearest(rows, query, order, k, indices, distances, tkNMBestInstructions());
}

long tkNMNeighborSearch::nearest(const Rows& rows, const double* query, double order, long k, long* indices,
                                 double* distances, tkNMInstructions instructions) const
{
    TK_ASSERT(k >= 1);
    k = std::min(k, numRows_);
    const bool isFiltered =
        instructions != tkNMInstructions::Definition && filter_ && k < numRows_ && filter_->canSearch(query, order);
    if (isFiltered)
        filter_->search(rows, query, order, k, indices, distances, instructions);
    else
        searchByDefinition(rows, numRows_, query, numColumns_, order, k, indices, distances);
    return k;
}
