#ifndef NUMERICS_TKNMNORMAL_H
#define NUMERICS_TKNMNORMAL_H

#include "foundation/tkPtrHandle.h"
#include "numerics/tkNMCovarianceFactor.h"
#include "numerics/tkNMMahalanobis.h"
#include "numerics/tkNMMatrix.h"
#include "numerics/tkNMNormalProducts.h"
#include "numerics/tkNMSingleNormal.h"
#include "numerics/tkNMTriangle.h"

#include <atomic>
#include <cstddef>
#include <vector>

/// A multivariate normal distribution, learned pattern by pattern.
///
/// Mean and sums of squares follow Welford (Technometrics 4, 1962, 419-420), the mean with a remainder below its
/// last place. The log density goes through the inverse Cholesky factor of the covariance, each measurement in a
/// unit of a power of two near its deviation; the factor is computed once per state, at the first evaluation.
/// Singular covariances are repaired (tkNMCovarianceFactor). docs/numerics.md derives all of it.
///
/// Several threads may evaluate one object; a change excludes every other use.
class TK_EXPORT tkNMNormal
{
public:
    enum Status
    {
        eOk,
        eNoValidData, ///< evaluated with count 0
        eSizeChanged, ///< a training pattern of another dimension
        eWrongLength, ///< an evaluated pattern of another dimension
        eOutOfRange   ///< a training measurement above largestMagnitude(), or more than 2^31 - 1 patterns
    };

    tkNMNormal();
    tkNMNormal(const tkNMNormal& other);
    tkNMNormal(tkNMNormal&& other) noexcept;
    tkNMNormal& operator=(tkNMNormal other) noexcept;
    ~tkNMNormal();

    /// Number of patterns learned since the last clear().
    long count() const { return count_; }
    /// Number of measurements, fixed by the first pattern; 0 while there is none.
    long dimension() const { return static_cast<long>(mean_.size()); }

    /// The means, a column; each with its remainder.
    tkNMMatrix mean() const;
    /// The covariance with divisor count - 1; zeros for a count of 1. Never repaired. Elements and remainders are those
    /// of tkNMExactQuotient.
    tkNMMatrix covariance() const;
    /// Mean, its compensation, variance, and sum of squared deviations of one measurement.
    /// *Requires* 0 <= j < dimension().
    double mean(long j) const;
    double compensation(long j) const;
    double variance(long j) const;
    double sumOfSquares(long j) const;

    /// Takes over statistics as mean(), covariance() and count() gave them; the distribution then goes on as the
    /// original would, bit for bit. False, and no change, if their sizes do not fit together or count < 0.
    bool restore(const tkNMMatrix& mean, const tkNMMatrix& covariance, long count);

    /// Back to the state of a new object.
    void clear();

    /// The largest magnitude of a measurement for which no sum of squares can overflow, 2^490.
    static constexpr double largestMagnitude() { return 0x1p490; }

    /// Whether add() would learn the pattern: eOk, eSizeChanged or eOutOfRange, in this order of checks.
    Status check(const double* pattern, long dimension) const;
    /// Learns one pattern of finite measurements, at a cost in proportion to dimension². Anything but eOk changes
    /// nothing.
    Status add(const double* pattern, long dimension);

    /// What a measurement that never varied is compared with, one for each measurement: its standard deviation over all
    /// categories, where 0.0 stands for one that was the same everywhere and has no term in the density. Empty: not
    /// known. Not part of the statistics, and forgotten by clear().
    const std::vector<double>& referenceDeviations() const { return reference_; }
    void referenceDeviations(const std::vector<double>& deviations);

    /// The natural logarithm of the density at `pattern`, a multiple of 2^-39 up to a magnitude of 2^12. Finite
    /// for finite patterns: a squared distance that overflows is the largest double. Statuses eNoValidData,
    /// eWrongLength.
    Status logDensity(const double* pattern, long dimension, double& result) const
    {
        const Factor_* const factor = factorOrNull_.load(std::memory_order_acquire);
        return factor && factor->logDensity(pattern, dimension, result) ? eOk : logDensity_(pattern, dimension, result);
    }

    /// The same for the marginal distribution over the measurements with `valid` set; 0.0 if there is none. An
    /// invalid measurement's value is not read. Cost in proportion to dimension² + dimension b² for b invalid ones.
    Status logMarginal(const double* pattern, const bool* valid, long dimension, double& result) const;

    /// Fills the place of a factor with this distribution, which empties it as soon as it changes, and the place that
    /// it filled before. Fills none if the covariance has no factor, as after overflows. *Requires* a count > 0 and a
    /// place for dimension() measurements.
    void join(const tkPtrHandle<tkNMNormalProducts>& products, std::size_t product, std::size_t place);

    /// Empties the place that it filled, if any.
    void leaveProducts();

    /// Equality of count, mean and covariance.
    bool operator==(const tkNMNormal& other) const;
    bool operator!=(const tkNMNormal& other) const { return !(*this == other); }

private:
    friend class tkNMLearner;

    /// What an evaluation needs beside the pattern, and the place among products that mirrors it.
    struct Factor_
    {
        Factor_() = default;
        Factor_(const Factor_&) = delete;
        Factor_& operator=(const Factor_&) = delete;
        ~Factor_() { leaveProducts(); }

        void leaveProducts()
        {
            if (products)
                products->empty(product, place);
            products = tkPtrHandle<tkNMNormalProducts>();
        }

        /// Log density at a pattern near enough, as patterns are: false for a squared distance beyond the largest or
        /// NaN, and for another dimension; `result` then means nothing.
        bool logDensity(const double* pattern, long dimension, double& result) const
        {
            if (dimension == 1)
                return single.logDensity(*pattern, result);
            if (static_cast<std::size_t>(dimension) != distance.dimension())
                return false;
            const double square = distance.squaredDistance(pattern);
            result = single.logPeak - tkNMSingleNormal::roundedToGrid(0.5 * square);
            return square <= tkNMSingleNormal::largestSquare;
        }
        /// Log density at any pattern.
        double logDensity(const double* pattern) const;

        tkNMSingleNormal single; // logPeak for any number of measurements, weight NaN unless there is one
        tkNMCovarianceFactor covariance;
        tkNMMahalanobis distance; // by the inverse of the Cholesky factor, its columns in the measurements' own units
        tkPtrHandle<tkNMNormalProducts> products; // null: none
        std::size_t product = 0;
        std::size_t place = 0;
    };

    Status logDensity_(const double* pattern, long dimension, double& result) const;
    void swap_(tkNMNormal& other) noexcept;
    void forgetFactor_();
    const Factor_& factor_() const;

    long count_;
    std::vector<double> mean_;
    std::vector<double> meanRemainder_;          // mean_ + meanRemainder_ is the mean
    tkNMTriangle squares_;                       // sums of products of deviations
    std::vector<double> reference_;              // empty or one per measurement
    mutable std::atomic<Factor_*> factorOrNull_; // owned; that of the present state, once it was needed
};

#endif
