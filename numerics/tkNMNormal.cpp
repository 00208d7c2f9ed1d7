#include "numerics/tkNMNormal.h"

#include "foundation/tkAssert.h"
#include "foundation/tkScratch.h"
#include "numerics/kernels/tkNMFollow.h"
#include "numerics/tkNMExactQuotient.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <utility>

namespace
{
/// A squared distance that overflowed at a finite point: nothing is farther.
double cut(double square)
{
    return square <= tkNMSingleNormal::largestSquare ? square : tkNMSingleNormal::largestSquare;
}
} // namespace

double tkNMNormal::Factor_::logDensity(const double* pattern) const
{
    double square = distance.squaredDistance(pattern);
    if (distance.isFiniteAt(pattern))
        square = cut(square);
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
            const tkNMExactQuotient quotient = tkNMExactQuotient::of(sum, divisor);
            covariance(i, j) = covariance(j, i) = quotient.value;
            covariance.remainder(i, j, quotient.remainder);
            covariance.remainder(j, i, quotient.remainder);
        }
    return covariance;
}

double tkNMNormal::mean(long j) const
{
    TK_ASSERT(j >= 0 && j < dimension());
    return mean_[j];
}

double tkNMNormal::compensation(long j) const
{
    TK_ASSERT(j >= 0 && j < dimension());
    return meanRemainder_[j];
}

double tkNMNormal::variance(long j) const
{
    return sumOfSquares(j) / static_cast<double>(std::max(count_ - 1, 1L));
}

double tkNMNormal::sumOfSquares(long j) const
{
    TK_ASSERT(j >= 0 && j < dimension());
    return squares_(static_cast<std::size_t>(j), static_cast<std::size_t>(j));
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
                tkNMExactQuotient{covariance(i, j), covariance.remainder(i, j)}.times(divisor);
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
    const Factor_& factor = factor_();
    if (std::find(valid, valid + dimension, false) == valid + dimension)
    {
        result = factor.logDensity(pattern);
        return eOk;
    }
    tkScratch<double, 256> v(mean_.size());
    bool isFinite = true;
    for (std::size_t j = 0; j < mean_.size(); ++j)
        if (valid[j])
        {
            v[j] = (pattern[j] - mean_[j]) - meanRemainder_[j];
            isFinite = isFinite && std::isfinite(v[j]);
        }
    const tkNMCovarianceFactor::Marginal marginal = factor.covariance.marginal(v.data(), valid);
    const double square = isFinite ? cut(marginal.square) : marginal.square;
    result = marginal.logPeak - tkNMSingleNormal::roundedToGrid(0.5 * square);
    return eOk;
}

void tkNMNormal::join(const tkPtrHandle<tkNMNormalProducts>& products, std::size_t product, std::size_t place)
{
    TK_ASSERT(count_ > 0);
    static_cast<void>(factor_());
    Factor_& factor = *factorOrNull_.load();
    factor.leaveProducts();
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

const tkNMNormal::Factor_& tkNMNormal::factor_() const
{
    Factor_* factor = factorOrNull_.load(std::memory_order_acquire);
    if (factor)
        return *factor;

    auto fresh = std::make_unique<Factor_>();
    fresh->covariance = tkNMCovarianceFactor(count_, mean_, squares_, reference_);
    const double nan = std::numeric_limits<double>::quiet_NaN();
    fresh->single = {nan, nan, nan, fresh->covariance.logPeak()};
    if (mean_.size() == 1)
        fresh->single = {mean_[0], meanRemainder_[0], fresh->covariance.w(0, 0), fresh->single.logPeak};
    fresh->distance = tkNMMahalanobis(mean_, meanRemainder_, fresh->covariance.w);

    // Whoever comes first publishes; all compute the same.
    if (factorOrNull_.compare_exchange_strong(factor, fresh.get(), std::memory_order_acq_rel,
                                              std::memory_order_acquire))
        return *fresh.release();
    return *factor;
}
