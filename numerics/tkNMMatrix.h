#ifndef NUMERICS_TKNMMATRIX_H
#define NUMERICS_TKNMMATRIX_H

#include "foundation/tkArchive.h"

#include <vector>

/// Dense matrix of doubles, row by row.
///
/// An element may have a compensation, the low word of a double-double: element + compensation is the value (but see
/// tkNMExactQuotient for the smallest ones). Stored statistics need it to go on accumulating with the same bits; the
/// arithmetic with elements leaves it out.
class TK_EXPORT tkNMMatrix
{
public:
    /// A matrix of zeros. *Requires* rows >= 0 and cols >= 0.
    explicit tkNMMatrix(long rows = 0, long cols = 0);

    /// Numbers of rows and columns, each >= 0.
    long rows() const { return rows_; }
    long cols() const { return cols_; }

    /// Element in row i and column j. *Requires* that there is one.
    double operator()(long i, long j) const { return elements_[position_(i, j)]; }
    double& operator()(long i, long j) { return elements_[position_(i, j)]; }

    /// Compensation of the element; 0.0 unless it was set. *Requires* that there is such an element.
    double compensation(long i, long j) const;
    void compensation(long i, long j, double value);

    /// Equality of the sizes, elements and compensations; a NaN equals nothing, 0.0 equals -0.0. Linear in the number
    /// of elements.
    bool operator==(const tkNMMatrix& other) const;
    bool operator!=(const tkNMMatrix& other) const { return !(*this == other); }

private:
    friend TK_EXPORT tkArchive& operator||(tkArchive& archive, tkNMMatrix& matrix);

    std::size_t position_(long i, long j) const;

    long rows_;
    long cols_;
    std::vector<double> elements_;
    std::vector<double> compensations_; // empty as long as all are 0.0, else parallel to elements_
};

/// The record of a matrix: version byte, numbers of rows and columns, elements, compensations (none or one for each
/// element). Throws tkArchive::Errors where these do not fit together, and then changes nothing.
TK_EXPORT tkArchive& operator||(tkArchive& archive, tkNMMatrix& matrix);

#endif
