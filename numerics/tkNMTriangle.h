#ifndef NUMERICS_TKNMTRIANGLE_H
#define NUMERICS_TKNMTRIANGLE_H

#include "numerics/tkNMAligned.h"

#include <cstddef>

/// A lower triangular matrix.
///
/// Eight rows form a block, which is stored column by column up to the block's last row: element (i, j) stands beside
/// the same column of the seven other rows, so that eight rows can be computed side by side. The elements above the
/// diagonal and below the last row hold zeros. A matrix of one row has one column: nothing is computed side by side
/// there, and a density of one measurement shall not take 1 KiB.
class tkNMTriangle
{
public:
    /// A matrix of zeros.
    explicit tkNMTriangle(std::size_t dimension = 0)
        : dimension_(dimension),
          elements_(8 * (dimension == 1 ? 1 : columnsBefore_((dimension + 7) / 8)))
    {
    }

    std::size_t dimension() const { return dimension_; }

    /// Element in row i and column j. *Requires* j <= i < dimension().
    double operator()(std::size_t i, std::size_t j) const { return elements_[position_(i, j)]; }
    double& operator()(std::size_t i, std::size_t j) { return elements_[position_(i, j)]; }

    /// All blocks, one after the other: 8 columns of eight rows, then 16, 24 and so on.
    const double* blocks() const { return elements_.data(); }
    double* blocks() { return elements_.data(); }
    /// Rows 8 block to 8 block + 7 of column j. *Requires* that one of them is an element.
    const double* column(std::size_t block, std::size_t j) const
    {
        return elements_.data() + 8 * (columnsBefore_(block) + j);
    }

    bool operator==(const tkNMTriangle& other) const
    {
        return dimension_ == other.dimension_ && elements_ == other.elements_;
    }
    bool operator!=(const tkNMTriangle& other) const { return !(*this == other); }

private:
    static std::size_t columnsBefore_(std::size_t block) { return block * (block + 1) * 4; }
    static std::size_t position_(std::size_t i, std::size_t j) { return 8 * (columnsBefore_(i / 8) + j) + i % 8; }

    std::size_t dimension_;
    tkNMAlignedDoubles elements_;
};

#endif
