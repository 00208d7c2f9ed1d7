#ifndef NUMERICS_TKNMMAHALANOBIS_H
#define NUMERICS_TKNMMAHALANOBIS_H

#include "numerics/tkNMTriangle.h"

#include <cstddef>
#include <vector>

/// The squared Mahalanobis distance |W (x - m)|² of a pattern x from a mean m, with W lower triangular.
///
/// With v_j = (x_j - m_j) - r_j, where m_j + r_j is the mean, y_i = ((W_i0 v_0 + W_i1 v_1) + W_i2 v_2) + ... and
/// q_l = (y_l² + y_(l+8)²) + ..., it is ((q_0 + q_4) + (q_2 + q_6)) + ((q_1 + q_5) + (q_3 + q_7)). Eight rows of W form
/// a block, whose sums run side by side; the sum of row i ends with the columns of its block, in which W is 0.0 above
/// the diagonal. For a single measurement it is y_0². Every level follows this formula, and their results have the same
/// bits.
class TK_EXPORT tkNMMahalanobis
{
public:
    /// No measurement.
    tkNMMahalanobis() = default;
    /// *Requires* as many means and remainders as W has rows.
    tkNMMahalanobis(std::vector<double> mean, std::vector<double> remainder, tkNMTriangle w);

    std::size_t dimension() const { return w_.dimension(); }
    double mean(std::size_t j) const { return mean_[j]; }
    double remainder(std::size_t j) const { return remainder_[j]; }
    const tkNMTriangle& w() const { return w_; }

    /// For dimension() doubles at `x`; 0.0 for dimension 0. *Requires* level <= tkNMBestInstructions().
    double squaredDistance(const double* x) const { return squaredDistance(x, tkNMBestInstructions()); }
    double squaredDistance(const double* x, tkNMInstructions level) const;

    /// Whether every v_j is finite.
    bool isFiniteAt(const double* x) const;

private:
    double deviation_(const double* x, std::size_t j) const { return (x[j] - mean_[j]) - remainder_[j]; }

    std::vector<double> mean_;
    std::vector<double> remainder_; // parallel
    tkNMTriangle w_;
};

#endif
