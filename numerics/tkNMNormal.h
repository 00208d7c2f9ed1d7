#ifndef NUMERICS_TKNMNORMAL_H
#define NUMERICS_TKNMNORMAL_H

#include "foundation/tkPtrHandle.h"
#include "numerics/tkNMChangeNumber.h"
#include "numerics/tkNMMatrix.h"
#include "numerics/tkNMStatistics.h"

#include <atomic>
#include <cstddef>
#include <vector>

struct tkNMFactorisation;

/// A multivariate normal distribution, learned pattern by pattern.
///
/// The log density goes through the inverse Cholesky factor of the covariance, each measurement in a unit of a power of
/// two near its deviation. The factorisation is computed at the first evaluation after a change. Singular covariances
/// are repaired (tkNMCovarianceFactor). docs/numerics.md derives all of it.
///
/// Several threads may evaluate one object; a change excludes every other use.
class TK_EXPORT tkNMNormal
{
public:
    enum Outcome
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
    long count() const { return statistics_.count; }
    /// Number of measurements, fixed by the first pattern; 0 while there is none.
    long dimension() const { return static_cast<long>(statistics_.dimension()); }

    /// The means, a column, each with its compensation.
    tkNMMatrix mean() const;
    /// The covariance with divisor count - 1; zeros for a count of 1. Never repaired. Elements and compensations are
    /// those of tkNMExactQuotient.
    tkNMMatrix covariance() const;
    /// Mean and variance of one measurement. *Requires* 0 <= j < dimension().
    double mean(long j) const;
    double variance(long j) const;

    /// Takes over statistics as mean(), covariance() and count() gave them; the distribution then goes on as the
    /// original would, bit for bit. False, and no change, if their sizes do not fit together or count < 0.
    bool restore(const tkNMMatrix& mean, const tkNMMatrix& covariance, long count);

    /// What was learned. swapStatistics() exchanges it for `other`, so that many patterns can be added to it outside.
    const tkNMStatistics& statistics() const { return statistics_; }
    void swapStatistics(tkNMStatistics& other) noexcept;

    /// Back to the state of a new object.
    void clear();

    /// The largest magnitude of a measurement for which no sum of squares can overflow, 2^490.
    static constexpr double largestMagnitude() { return tkNMStatistics::largestMagnitude; }

    /// Whether add() would learn the pattern: eOk, eSizeChanged or eOutOfRange, in this order of checks.
    Outcome check(const double* pattern, long dimension) const;
    /// Learns one pattern of finite measurements by tkNMStatistics::add. Anything but eOk changes nothing.
    Outcome add(const double* pattern, long dimension);

    /// What a measurement that never varied is compared with, one for each measurement: its standard deviation over all
    /// categories, where 0.0 stands for one that was the same everywhere and has no term in the density. Empty: not
    /// known. Not part of the statistics, and forgotten by clear().
    const std::vector<double>& referenceDeviations() const { return reference_; }
    void referenceDeviations(const std::vector<double>& deviations);

    /// A number that grows with every change of this object; null: none. It belongs to the object and not to its value:
    /// copies have none, and assignment leaves it. A number that is replaced grows once more.
    const tkPtrHandle<tkNMChangeNumber>& changeNumber() const { return changeNumber_; }
    void changeNumber(const tkPtrHandle<tkNMChangeNumber>& number);

    /// The factorisation of the present state, which lasts until the next change. *Requires* a count > 0. Cost in
    /// proportion to dimension³ after a change.
    const tkNMFactorisation& factorisation() const;

    /// The natural logarithm of the density at `pattern`, a multiple of 2^-39 up to a magnitude of 2^12. Finite
    /// for finite patterns: a squared distance that overflows is the largest double. Outcomes eNoValidData,
    /// eWrongLength.
    Outcome logDensity(const double* pattern, long dimension, double& result,
                       tkNMInstructions instructions = tkNMBestInstructions()) const;

    /// The same for the marginal distribution over the measurements with `valid` set; 0.0 if there is none. An
    /// invalid measurement's value is not read. Cost in proportion to dimension² + dimension b² for b invalid ones.
    Outcome logMarginal(const double* pattern, const bool* valid, long dimension, double& result) const;

    /// Equality of count, mean and covariance.
    bool operator==(const tkNMNormal& other) const { return statistics_ == other.statistics_; }
    bool operator!=(const tkNMNormal& other) const { return !(*this == other); }

private:
    void swap_(tkNMNormal& other) noexcept;
    void changed_() noexcept;

    tkNMStatistics statistics_;
    std::vector<double> reference_; // empty or one per measurement
    tkPtrHandle<tkNMChangeNumber> changeNumber_;
    mutable std::atomic<tkNMFactorisation*> factorisationOrNull_; // owned; published by the first thread to compute it
};

#endif
