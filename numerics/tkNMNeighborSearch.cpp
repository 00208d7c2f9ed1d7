#include "numerics/tkNMNeighborSearch.h"

#include "foundation/tkAssert.h"
#include "numerics/kernels/tkNMInstructions.h"
#include "numerics/kernels/tkNMNeighborFilter.h"
#include "numerics/kernels/tkNMNeighborScan.h"
#include "numerics/tkNMElementary.h"
#include "numerics/tkNMNeighborList.h"
#include "numerics/tkNMNormDistance.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <numeric>

namespace
{
constexpr double largestMagnitude = 1e90;
constexpr double largestOrder = 64.0;

constexpr long fewestFiltered = 6000;    // measurements; fewer are compared faster than filtered
constexpr long rowsPerNeighbor = 128;    // from which on the filter does not look at most rows twice
constexpr long measurementsPerRow = 800; // that are compared in the time that ranking one row again takes

bool isInReach(const double* row, long n)
{
    bool result = true;
    for (long c = 0; c < n; ++c)
        result &= std::fabs(row[c]) <= largestMagnitude;
    return result;
}

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
    return (scan_ ? scan_->memory() : 0) + (filter_ ? filter_->memory() : 0);
}

void tkNMNeighborSearch::update(const Rows& rows, long numRows, long numColumns)
{
    TK_ASSERT(numRows >= 0 && numColumns >= 0);
    if (numColumns != numColumns_ || numRows < numRows_)
        *this = tkNMNeighborSearch();
    for (long i = numRows_; i < numRows; ++i)
    {
        const double* row = nullptr;
        rows.fetch(&i, 1, &row);
        areInReach_ = areInReach_ && isInReach(row, numColumns);
    }
    numRows_ = numRows;
    numColumns_ = numColumns;
    const bool isScanned = numColumns == 0 || numRows <= mostScanned / numColumns;
    const bool isFiltered = numColumns > 0 && numRows > fewestFiltered / numColumns;
    if (!isScanned || !areInReach_)
        scan_.reset();
    if (!areInReach_)
    {
        filter_.reset();
        return;
    }
    try
    {
        if (isScanned && !scan_)
            scan_ = std::make_unique<tkNMNeighborScan>(numColumns);
        if (isScanned)
            scan_->update(rows, numRows);
        if (isFiltered && !filter_)
            filter_ = std::make_unique<tkNMNeighborFilter>(numColumns);
        if (isFiltered)
            filter_->update(rows, numRows);
    }
    catch (const std::bad_alloc&) // the next call goes on from where this one stopped
    {
    }
}

long tkNMNeighborSearch::nearest(const Rows& rows, const double* query, double order, long k, long* indices,
                                 double* distances) const
{
    return search_(rows, query, order, k, false, indices, distances, tkNMBestInstructions());
}

long tkNMNeighborSearch::nearest(const Rows& rows, const double* query, double order, long k, long* indices,
                                 double* distances, tkNMInstructions instructions) const
{
    return search_(rows, query, order, k, false, indices, distances, instructions);
}

long tkNMNeighborSearch::nearestSet(const Rows& rows, const double* query, double order, long k, long* indices,
                                    double* distances) const
{
    return search_(rows, query, order, k, true, indices, distances, tkNMBestInstructions());
}

long tkNMNeighborSearch::nearestSet(const Rows& rows, const double* query, double order, long k, long* indices,
                                    double* distances, tkNMInstructions instructions) const
{
    return search_(rows, query, order, k, true, indices, distances, instructions);
}

bool tkNMNeighborSearch::isFiltered_(double order, long k) const
{
    if (k > std::min(numRows_ / rowsPerNeighbor, numRows_ * numColumns_ / measurementsPerRow))
        return false;
    // The filter of squares bounds distances of larger orders by a factor: too loosely if it is large.
    return order <= 2.0 || tkNMElementary::pow(static_cast<double>(numColumns_), 0.5 - 1.0 / order) < 2.0;
}

long tkNMNeighborSearch::search_(const Rows& rows, const double* query, double order, long k, bool asSet, long* indices,
                                 double* distances, tkNMInstructions instructions) const
{
    TK_ASSERT(k >= 1);
    k = std::min(k, numRows_);
    const bool hasKernel = instructions != tkNMInstructions::Definition && areInReach_ && k < numRows_ &&
                           numColumns_ > 0 && order >= 1.0 && order <= largestOrder && isInReach(query, numColumns_);
    const bool hasScan = hasKernel && scan_ && scan_->numRows() == numRows_;
    const bool hasFilter = hasKernel && filter_ && filter_->numRows() == numRows_;
    if (hasFilter && (!hasScan || isFiltered_(order, k)))
        filter_->search(rows, query, order, k, asSet, indices, distances, instructions);
    else if (hasScan)
        scan_->search(rows, query, order, k, asSet, indices, distances, instructions);
    else if (asSet && k == numRows_ && instructions != tkNMInstructions::Definition)
        std::iota(indices, indices + k, 0L);
    else
        searchByDefinition(rows, numRows_, query, numColumns_, order, k, indices, distances);
    return k;
}
