#ifndef NUMERICS_TKNMCOVARIANCEFACTOR_H
#define NUMERICS_TKNMCOVARIANCEFACTOR_H

#include "numerics/tkNMBestInstructions.h"
#include "numerics/tkNMTriangle.h"

#include <cstddef>
#include <vector>

/// The covariance C of a normal distribution, repaired where it is singular, as the inverse W of its Cholesky factor:
/// C^-1 = W' W.
///
/// Of d measurements learned from n patterns, those with a reference deviation of 0.0 were the same everywhere and have
/// no term: their rows and columns of W are 0.0. One whose deviation s is at most 2^-52 of its mean was constant: it is
/// independent of the others, with deviation max(s, c reference), where c is 2^-7, and 1 for n = 1. The others have the
/// correlation matrix R. If its eigenvalues are below a floor, the nearest matrix whose eigenvalues are not takes its
/// place (Higham, Linear Algebra and its Applications 103, 1988, 103-118). The floor is 2^-28 for n > d, and
/// 2^-(2 + 8 (n - 1) div (d - 1)) for n <= d, where d counts the measurements with a term. docs/numerics.md says why.
struct TK_EXPORT tkNMCovarianceFactor
{
    enum Role
    {
        eSameEverywhere,
        eConstant,
        eVaries
    };
    struct Measurement
    {
        Role role;
        int exponent; // of its unit u = 2^exponent
    };

    tkNMCovarianceFactor() = default;
    /// Factors the covariance squares / (count - 1), squares for a count of 1, of measurements with these means. A
    /// measurement that `references` does not reach has |mean| as its reference, and 1 for a mean of 0. What is not
    /// finite gives a lnDeterminant that is NaN. *Requires* count > 0. Cost in proportion to dimension³.
    tkNMCovarianceFactor(long count, const std::vector<double>& mean, const tkNMTriangle& squares,
                         const std::vector<double>& references);

    /// The log density at the mean: -1/2 (d ln 2 pi + lnDeterminant) rounded to a multiple of 2^-39, and the logarithms
    /// of the units.
    double logPeak() const;

    /// The same for the marginal distribution over the measurements with `valid` set, and |W (x - m)|² in it. `v` has
    /// x - m, of which invalid elements are not read. Both are 0.0 if no valid measurement has a term. Cost in
    /// proportion to dimension² + dimension b² for b invalid measurements.
    ///
    /// With B the invalid ones, the square is the least of |W_A v_A + W_B z|² over all z, and ln det C_AA =
    /// ln det C + ln det W_B' W_B. The columns of W_B, each divided by its unit, are made orthogonal from the last one
    /// to the first by the modified method of Gram and Schmidt, so that their zeros stay. W_A v_A is treated as one
    /// more column; what is left of it is the residual. All sums are those of tkNMMahalanobis. All
    /// instruction sets give the same bits. *Requires* instructions <= tkNMBestInstructions().
    struct Marginal
    {
        double logPeak;
        double square;
    };
    Marginal marginal(const double* v, const bool* valid, tkNMInstructions instructions = tkNMBestInstructions()) const;

    static constexpr double lnTwoPi = 1.8378770664093454836;
    /// Log densities are sums of multiples of 2^-39. Such sums are exact up to a magnitude of 2^14, in any order, and
    /// differences between categories do not change when a common multiple of ln 2 is added to both: that is what
    /// another unit (a factor of a power of two) does to them. For the same reason ln 2 is a multiple of 2^-39 here;
    /// it is 1.8e-13 too large.
    static constexpr double perGridStep = 0x1p39;
    static constexpr double gridLn2 = 0x1.62e42fefa4p-1;

    tkNMTriangle w;
    std::vector<Measurement> measurements; // parallel
    double lnDeterminant = 0.0;            // of C in the units 1 / u, where variances are from 1 to 4
};

#endif
