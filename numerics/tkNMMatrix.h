#ifndef NUMERICS_TKNMMATRIX_H
#define NUMERICS_TKNMMATRIX_H

#include "foundation/tkArchive.h"

#include <vector>

/// Dense matrix of doubles, row by row.
///
/// An element may carry a remainder: what its double leaves of a value that is known more exactly, so that
/// element + remainder is that value (see tkNMExactQuotient for the smallest ones). Statistics that are stored and
/// later go on accumulating need it; it is of no interest to arithmetic with the elements.
class TK_EXPORT tkNMMatrix
{
public:
    /// A matrix of zeros. *Requires* rows >= 0 and cols >= 0.
    explicit tkNMMatrix(long rows = 0, long cols = 0);

    long rows() const { return rows_; }
    long cols() const { return cols_; }

    /// Element in row i and column j. *Requires* that there is one.
    double operator()(long i, long j) const { return elements_[position_(i, j)]; }
    double& operator()(long i, long j) { return elements_[position_(i, j)]; }

    /// Remainder of the element; 0.0 unless it was set. *Requires* that there is such an element.
    double remainder(long i, long j) const;
    void remainder(long i, long j, double value);

    /// Equality of the sizes, elements and remainders.
    bool operator==(const tkNMMatrix& other) const;
    bool operator!=(const tkNMMatrix& other) const { return !(*this == other); }

private:
    friend TK_EXPORT tkArchive& operator||(tkArchive& archive, tkNMMatrix& matrix);

    std::size_t position_(long i, long j) const;

    long rows_;
    long cols_;
    std::vector<double> elements_;
    std::vector<double> remainders_; // empty as long as all are 0.0, else parallel to elements_
};

/// The record of a matrix: version byte, numbers of rows and columns, elements, remainders (none or one for each
/// element). Throws tkArchive::Errors where these do not fit together, and then changes nothing.
TK_EXPORT tkArchive& operator||(tkArchive& archive, tkNMMatrix& matrix);

#endif
