#ifndef NUMERICS_TKNMFACTORISATION_H
#define NUMERICS_TKNMFACTORISATION_H

#include "numerics/tkNMBestInstructions.h"
#include "numerics/tkNMCovarianceFactor.h"

#include <cstddef>
#include <limits>
#include <vector>

/// What the log density of a normal distribution at a point takes: the mean, the covariance as the inverse W of its
/// Cholesky factor, and the log density at the mean. |W (x - m)|² is the squared Mahalanobis distance of x.
/// All instruction sets give the same bits.
struct TK_EXPORT tkNMFactorisation
{
    std::size_t dimension() const { return mean.size(); }

    /// The squared distance |W (x - m)|². With v_j = (x_j - m_j) - c_j, where m_j + c_j is the mean, and v_j = 0.0 for
    /// a measurement without a term, whatever x_j is,
    ///     y_i = ((W_i0 v_0 + W_i1 v_1) + W_i2 v_2) + ...,   q_l = (y_l² + y_(l+8)²) + y_(l+16)² + ...,
    ///     ((q_0 + q_4) + (q_2 + q_6)) + ((q_1 + q_5) + (q_3 + q_7)),
    /// where rows come by eights, and each y_i has the columns of its eight rows: W is 0.0 above the diagonal and in
    /// rows beyond the last. For a single measurement it is y_0². Cost in proportion to dimension²; 0.0 for dimension
    /// 0. *Requires* instructions <= tkNMBestInstructions().
    double squaredDistance(const double* x, tkNMInstructions instructions = tkNMBestInstructions()) const;

    /// logPeak - roundedToGrid(squaredDistance(x) / 2). Where all v are finite, a squared distance that overflows is
    /// largestSquare.
    double logDensity(const double* x, tkNMInstructions instructions = tkNMBestInstructions()) const;

    /// The same for the marginal distribution over the measurements with `valid` set; see
    /// tkNMCovarianceFactor::marginal. An invalid measurement's value is not read.
    double logMarginal(const double* x, const bool* valid,
                       tkNMInstructions instructions = tkNMBestInstructions()) const;

    static constexpr double largestSquare = std::numeric_limits<double>::max();
    /// Doubles above it have steps of 2^-39, the grid of log densities.
    static constexpr double gridShift = 0x1p13;
    /// The nearest multiple of 2^-39 below 2^13; beyond, the nearest of the doubles' own larger steps. For v >= 0.
    static double roundedToGrid(double v) { return (v + gridShift) - gridShift; }

    std::vector<double> mean;         // m: its rounded values
    std::vector<double> compensation; // c
    tkNMCovarianceFactor covariance;  // with W
    double logPeak = 0.0;             // log density at the mean
};

#endif
