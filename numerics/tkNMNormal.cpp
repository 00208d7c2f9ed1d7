#include "numerics/tkNMNormal.h"

#include "foundation/tkAssert.h"
#include "foundation/tkScratch.h"
#include "numerics/kernels/tkNMFollow.h"
#include "numerics/tkNMTriangle.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <numeric>
#include <utility>

namespace
{
/// Log densities are sums of multiples of 2^-39. Such sums are exact up to a magnitude of 2^14, in any order, and
/// differences between categories do not change when a common multiple of ln 2 is added to both: that is what
/// another unit (a factor of a power of two) does to them. For the same reason ln 2 is a multiple of 2^-39 here;
/// it is 1.8e-13 too large.
const double perGridStep = 0x1p39;
const double gridLn2 = 0x1.62e42fefa4p-1;

const double lnTwoPi = 1.8378770664093454836;

/// A covariance factors if no measurement is determined by those before it to more than this part of its variance.
const double smallestPivot = 0x1p-33;
/// A marginal distribution leaves every pivot as large as it was or makes it larger, but for rounding.
const double smallestMarginalPivot = 0x1p-34;
const double smallestRidge = 0x1p-13;
const double largestRidge = 0x1p20;

/// A measurement whose deviation is at most this part of its mean did not vary: rounding explains the rest.
const double constantPart = 0x1p-48;
/// The deviation of a measurement that did not vary, as a part of its reference.
const double constantDeviation = 0x1p-10;
} // namespace

double tkNMNormal::Factor_::logDensity(const double* pattern) const
{
    double square = distance.squaredDistance(pattern);
    if (!(square <= tkNMSingleNormal::largestSquare) && distance.isFiniteAt(pattern))
        square = tkNMSingleNormal::largestSquare;
    return single.logPeak - tkNMSingleNormal::roundedToGrid(0.5 * square);
}

tkNMNormal::tkNMNormal() : count_(0), factorOrNull_(nullptr) {}

tkNMNormal::tkNMNormal(const tkNMNormal& other)
    : count_(other.count_),
      mean_(other.mean_),
      meanRemainder_(other.meanRemainder_),
      squares_(other.squares_),
      reference_(other.reference_),
      factorOrNull_(nullptr)
{
}

tkNMNormal::tkNMNormal(tkNMNormal&& other) noexcept : tkNMNormal()
{
    swap_(other);
}

tkNMNormal& tkNMNormal::operator=(tkNMNormal other) noexcept
{
    swap_(other);
    return *this;
}

tkNMNormal::~tkNMNormal()
{
    forgetFactor_();
}

tkNMMatrix tkNMNormal::mean() const
{
    tkNMMatrix mean(dimension(), 1);
    for (long j = 0; j < dimension(); ++j)
    {
        mean(j, 0) = mean_[j];
        mean.remainder(j, 0, meanRemainder_[j]);
    }
    return mean;
}

tkNMMatrix tkNMNormal::covariance() const
{
    tkNMMatrix covariance(dimension(), dimension());
    const double divisor = static_cast<double>(std::max(count_ - 1, 1L));
    for (long i = 0; i < dimension(); ++i)
        for (long j = 0; j <= i; ++j)
        {
            const double sum = squares_(static_cast<std::size_t>(i), static_cast<std::size_t>(j));
            // The rounded quotient's remainder is exact, so that restore() finds the sum again.
            const double quotient = sum / divisor;
            const double remainder = std::fma(-quotient, divisor, sum) / divisor;
            covariance(i, j) = covariance(j, i) = quotient;
            covariance.remainder(i, j, remainder);
            covariance.remainder(j, i, remainder);
        }
    return covariance;
}

double tkNMNormal::mean(long j) const
{
    TK_ASSERT(j >= 0 && j < dimension());
    return mean_[j];
}

double tkNMNormal::variance(long j) const
{
    TK_ASSERT(j >= 0 && j < dimension());
    return covariance_(j, j);
}

bool tkNMNormal::restore(const tkNMMatrix& mean, const tkNMMatrix& covariance, long count)
{
    const long dimension = mean.rows();
    if (count < 0 || mean.cols() != 1 || covariance.rows() != dimension || covariance.cols() != dimension)
        return false;

    tkNMNormal restored;
    restored.count_ = count;
    restored.squares_ = tkNMTriangle(static_cast<std::size_t>(dimension));
    const double divisor = static_cast<double>(std::max(count - 1, 1L));
    for (long i = 0; i < dimension; ++i)
    {
        restored.mean_.push_back(mean(i, 0));
        restored.meanRemainder_.push_back(mean.remainder(i, 0));
        for (long j = 0; j <= i; ++j)
            restored.squares_(static_cast<std::size_t>(i), static_cast<std::size_t>(j)) =
                std::fma(covariance(i, j), divisor, covariance.remainder(i, j) * divisor);
    }
    swap_(restored);
    return true;
}

void tkNMNormal::clear()
{
    tkNMNormal empty;
    swap_(empty);
}

tkNMNormal::Status tkNMNormal::check(const double* pattern, long dimension) const
{
    if (count_ > 0 && dimension != this->dimension())
        return eSizeChanged;
    if (count_ >= std::numeric_limits<std::int32_t>::max())
        return eOutOfRange;
    for (long j = 0; j < dimension; ++j)
        if (!(std::fabs(pattern[j]) <= largestMagnitude()))
            return eOutOfRange;
    return eOk;
}

tkNMNormal::Status tkNMNormal::add(const double* pattern, long dimension)
{
    const Status status = check(pattern, dimension);
    if (status != eOk)
        return status;

    if (count_ == 0)
    {
        std::vector<double> mean(static_cast<std::size_t>(dimension));
        std::vector<double> remainder(mean.size());
        tkNMTriangle squares(mean.size());
        mean_.swap(mean);
        meanRemainder_.swap(remainder);
        squares_ = std::move(squares);
    }
    forgetFactor_();
    const double n = static_cast<double>(++count_);
    if (dimension == 1)
    {
        double before = 0.0;
        double after = 0.0;
        tkNMFollow(*pattern, n, mean_[0], meanRemainder_[0], before, after);
        squares_(0, 0) += before * after;
        return eOk;
    }
    const std::size_t padded = (mean_.size() + 7) / 8 * 8;
    tkScratch<double, 256> before(padded);
    tkScratch<double, 256> after(padded);
    for (std::size_t j = 0; j < mean_.size(); ++j)
        tkNMFollow(pattern[j], n, mean_[j], meanRemainder_[j], before[j], after[j]);
    std::fill(before.begin() + mean_.size(), before.end(), 0.0);
    std::fill(after.begin() + mean_.size(), after.end(), 0.0);
    squares_.addProducts(before.data(), after.data(), 1, padded);
    return eOk;
}

void tkNMNormal::referenceDeviations(const std::vector<double>& deviations)
{
    std::vector<double> copy(deviations);
    forgetFactor_();
    reference_ = std::move(copy);
}

tkNMNormal::Status tkNMNormal::logDensity_(const double* pattern, long dimension, double& result) const
{
    if (count_ == 0)
        return eNoValidData;
    if (dimension != this->dimension())
        return eWrongLength;
    result = factor_().logDensity(pattern);
    return eOk;
}

tkNMNormal::Status tkNMNormal::logMarginal(const double* pattern, const bool* valid, long dimension,
                                           double& result) const
{
    if (count_ == 0)
        return eNoValidData;
    if (dimension != this->dimension())
        return eWrongLength;
    std::vector<std::size_t> measurements;
    std::vector<double> validOnes;
    for (std::size_t j = 0; j < mean_.size(); ++j)
        if (valid[j])
        {
            measurements.push_back(j);
            validOnes.push_back(pattern[j]);
        }
    // The ridge is that of the joint distribution, for it is its marginal that is asked for.
    Factor_ factor;
    factor_(measurements, factor_().ridge, smallestMarginalPivot, factor);
    result = factor.logDensity(validOnes.data());
    return eOk;
}

void tkNMNormal::join(const tkPtrHandle<tkNMNormalProducts>& products, std::size_t product, std::size_t place)
{
    TK_ASSERT(count_ > 0);
    static_cast<void>(factor_());
    Factor_& factor = *factorOrNull_.load();
    factor.leaveProducts();
    if (factor.distance.dimension() != mean_.size())
        return;
    products->fill(product, place, factor.distance, factor.single.logPeak);
    factor.products = products;
    factor.product = product;
    factor.place = place;
}

void tkNMNormal::leaveProducts()
{
    if (Factor_* const factor = factorOrNull_.load())
        factor->leaveProducts();
}

bool tkNMNormal::operator==(const tkNMNormal& other) const
{
    return count_ == other.count_ && mean_ == other.mean_ && meanRemainder_ == other.meanRemainder_ &&
           squares_ == other.squares_;
}

void tkNMNormal::swap_(tkNMNormal& other) noexcept
{
    std::swap(count_, other.count_);
    mean_.swap(other.mean_);
    meanRemainder_.swap(other.meanRemainder_);
    std::swap(squares_, other.squares_);
    reference_.swap(other.reference_);
    other.factorOrNull_.store(factorOrNull_.exchange(other.factorOrNull_.load()));
    // A place among products belongs to the object, not to what it learned.
    leaveProducts();
    other.leaveProducts();
}

void tkNMNormal::forgetFactor_()
{
    // Hardly ever there while learning, and asking costs less than an exchange.
    if (factorOrNull_.load(std::memory_order_relaxed))
        delete factorOrNull_.exchange(nullptr);
}

double tkNMNormal::covariance_(std::size_t i, std::size_t j) const
{
    return squares_(i, j) / static_cast<double>(std::max(count_ - 1, 1L));
}

/// Whether measurement j varies, and its deviation; the one it is given if it does not. That is a small part of
/// the reference or, where none is known, of the magnitude of its mean, so that it has the measurement's unit. A
/// measurement that was always 0.0 has no unit that could be known here; any deviation will do.
double tkNMNormal::deviation_(std::size_t j, bool& varies) const
{
    const double magnitude = std::fabs(mean_[j]);
    const double deviation = std::sqrt(covariance_(j, j));
    varies = !(deviation <= constantPart * magnitude);
    if (varies)
        return deviation;
    if (j < reference_.size() && reference_[j] > constantPart * magnitude)
        return constantDeviation * reference_[j];
    return magnitude > 0.0 ? constantDeviation * magnitude : 1.0;
}

const tkNMNormal::Factor_& tkNMNormal::factor_() const
{
    Factor_* factor = factorOrNull_.load(std::memory_order_acquire);
    if (factor)
        return *factor;

    std::vector<std::size_t> all(mean_.size());
    std::iota(all.begin(), all.end(), std::size_t(0));
    auto fresh = std::make_unique<Factor_>();
    double ridge = 0.0;
    while (!factor_(all, ridge, smallestPivot, *fresh) && ridge < largestRidge)
        ridge = ridge > 0.0 ? 2.0 * ridge : smallestRidge;

    // Whoever comes first publishes; all compute the same.
    if (factorOrNull_.compare_exchange_strong(factor, fresh.get(), std::memory_order_acq_rel,
                                              std::memory_order_acquire))
        return *fresh.release();
    return *factor;
}

/// Factors the covariance R of the measurements u_j x_j, where u_j is the power of two that brings the deviation
/// into [1, 2): R_ij = u_i C_ij u_j, R_jj times 1 + ridge. Multiplying by u_j is exact, so that R does not depend
/// on the measurements' units as far as these differ by powers of two. With the Cholesky factor L of R,
///     W = L^-1 diag(u),   logPeak = -1/2 (d ln 2 pi + sum over j of ln L_jj²) + (sum over j of log2 u_j) ln 2.
/// False if a pivot L_jj² is below leastPivot R_jj; the log density is then NaN.
bool tkNMNormal::factor_(const std::vector<std::size_t>& measurements, double ridge, double leastPivot,
                         Factor_& factor) const
{
    const std::size_t d = measurements.size();
    tkNMTriangle l(d);
    std::vector<double> u(d);
    std::vector<char> varies(d);
    long exponents = 0;
    for (std::size_t i = 0; i < d; ++i)
    {
        bool itVaries = true;
        const double deviation = deviation_(measurements[i], itVaries);
        varies[i] = itVaries;
        int exponent = 0; // deviation in [2^(exponent - 1), 2^exponent)
        if (std::isfinite(deviation))
            std::frexp(deviation, &exponent);
        exponent = std::max(exponent, -1000); // whose inverse is still a double
        exponents += 1 - exponent;
        u[i] = std::ldexp(1.0, 1 - exponent);
        for (std::size_t j = 0; j < i; ++j)
            l(i, j) = varies[i] && varies[j] ? covariance_(measurements[i], measurements[j]) * u[i] * u[j] : 0.0;
        const double variance = itVaries ? covariance_(measurements[i], measurements[i]) * u[i] * u[i]
                                         : (deviation * u[i]) * (deviation * u[i]);
        l(i, i) = variance + ridge * variance;
    }

    const double nan = std::numeric_limits<double>::quiet_NaN();
    factor.single = {nan, nan, nan, nan};
    factor.ridge = ridge;

    double lnDeterminant = 0.0;
    for (std::size_t j = 0; j < d; ++j)
    {
        double pivot = l(j, j);
        for (std::size_t k = 0; k < j; ++k)
            pivot -= l(j, k) * l(j, k);
        if (!(pivot >= leastPivot * l(j, j)))
            return false;
        lnDeterminant += std::log(pivot);
        l(j, j) = std::sqrt(pivot);
        for (std::size_t i = j + 1; i < d; ++i)
        {
            double element = l(i, j);
            for (std::size_t k = 0; k < j; ++k)
                element -= l(i, k) * l(j, k);
            l(i, j) = element / l(j, j);
        }
    }

    tkNMTriangle inverse(d);
    for (std::size_t j = 0; j < d; ++j)
    {
        inverse(j, j) = 1.0 / l(j, j);
        for (std::size_t i = j + 1; i < d; ++i)
        {
            double sum = 0.0;
            for (std::size_t k = j; k < i; ++k)
                sum += l(i, k) * inverse(k, j);
            inverse(i, j) = -sum / l(i, i);
        }
        for (std::size_t i = j; i < d; ++i)
            inverse(i, j) *= u[j];
    }

    std::vector<double> mean;
    std::vector<double> remainder;
    for (const std::size_t j : measurements)
    {
        mean.push_back(mean_[j]);
        remainder.push_back(meanRemainder_[j]);
    }
    if (d == 1)
        factor.single = {mean[0], remainder[0], inverse(0, 0), nan};
    factor.distance = tkNMMahalanobis(std::move(mean), std::move(remainder), std::move(inverse));

    const double lnScaled = -0.5 * (static_cast<double>(d) * lnTwoPi + lnDeterminant);
    factor.single.logPeak = std::round(lnScaled * perGridStep) / perGridStep + static_cast<double>(exponents) * gridLn2;
    return true;
}
