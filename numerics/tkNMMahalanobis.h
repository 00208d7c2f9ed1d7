#ifndef NUMERICS_TKNMMAHALANOBIS_H
#define NUMERICS_TKNMMAHALANOBIS_H

#include "numerics/tkNMTriangle.h"

#include <cstddef>
#include <vector>

/// The squared Mahalanobis distance |W (x - m)|² of a pattern x from a mean m, with W lower triangular.
///
/// With v_j = (x_j - m_j) - r_j, where m_j + r_j is the mean, y_i = ((W_i0 v_0 + W_i1 v_1) + W_i2 v_2) + ... and
/// q_l = (y_l² + y_(l+8)²) + ..., it is ((q_0 + q_4) + (q_2 + q_6)) + ((q_1 + q_5) + (q_3 + q_7)): eight rows of W
/// form a block, whose sums run side by side. The sum of row i ends with the columns of its block; W is 0.0 above the
/// diagonal there, and below the last row. For a single measurement it is y_0². Every level follows this formula, and
/// their results have the same bits.
///
/// All that an evaluation reads lies in memory in the order in which it is read, since for many measurements it is
/// reading, and not computing, that takes the time. For the same reason the blocks on the diagonal, half of which is
/// empty, lie two in the place of one and an eighth.
class TK_EXPORT tkNMMahalanobis
{
public:
    /// No measurement.
    tkNMMahalanobis() = default;
    /// *Requires* as many means and remainders as W has rows.
    tkNMMahalanobis(const std::vector<double>& mean, const std::vector<double>& remainder, const tkNMTriangle& w);

    std::size_t dimension() const { return dimension_; }

    /// For dimension() doubles at `x`; 0.0 for dimension 0. *Requires* level <= tkNMTriangle::bestLevel().
    double squaredDistance(const double* x) const { return squaredDistance(x, tkNMTriangle::bestLevel()); }
    double squaredDistance(const double* x, tkNMTriangle::Level level) const;

    /// Whether every v_j is finite.
    bool isFiniteAt(const double* x) const;

private:
    struct alignas(64) Eight_
    {
        double elements[8] = {};
    };

    std::size_t dimension_ = 0;
    /// Means and remainders, each up to a multiple of eight; then W, see the source.
    std::vector<Eight_> stream_;
};

#endif
