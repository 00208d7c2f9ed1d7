#include "numerics/tkNMNormal.h"

#include "foundation/tkAssert.h"
#include "numerics/tkNMExactQuotient.h"
#include "numerics/tkNMFactorisation.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <utility>

tkNMNormal::tkNMNormal() : factorisationOrNull_(nullptr) {}

tkNMNormal::tkNMNormal(const tkNMNormal& other)
    : statistics_(other.statistics_),
      reference_(other.reference_),
      factorisationOrNull_(nullptr)
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
    delete factorisationOrNull_.load();
}

tkNMMatrix tkNMNormal::mean() const
{
    tkNMMatrix mean(dimension(), 1);
    for (long j = 0; j < dimension(); ++j)
    {
        mean(j, 0) = statistics_.mean[j];
        mean.compensation(j, 0, statistics_.compensation[j]);
    }
    return mean;
}

tkNMMatrix tkNMNormal::covariance() const
{
    tkNMMatrix covariance(dimension(), dimension());
    const double divisor = static_cast<double>(std::max(count() - 1, 1L));
    for (long i = 0; i < dimension(); ++i)
        for (long j = 0; j <= i; ++j)
        {
            const double sum = statistics_.crossProducts(static_cast<std::size_t>(i), static_cast<std::size_t>(j));
            const tkNMExactQuotient quotient = tkNMExactQuotient::of(sum, divisor);
            covariance(i, j) = covariance(j, i) = quotient.value;
            covariance.compensation(i, j, quotient.compensation);
            covariance.compensation(j, i, quotient.compensation);
        }
    return covariance;
}

double tkNMNormal::mean(long j) const
{
    TK_ASSERT(j >= 0 && j < dimension());
    return statistics_.mean[j];
}

double tkNMNormal::variance(long j) const
{
    TK_ASSERT(j >= 0 && j < dimension());
    const std::size_t i = static_cast<std::size_t>(j);
    return statistics_.crossProducts(i, i) / static_cast<double>(std::max(count() - 1, 1L));
}

bool tkNMNormal::restore(const tkNMMatrix& mean, const tkNMMatrix& covariance, long count)
{
    const long dimension = mean.rows();
    if (count < 0 || mean.cols() != 1 || covariance.rows() != dimension || covariance.cols() != dimension)
        return false;

    tkNMNormal restored;
    restored.statistics_ = tkNMStatistics(static_cast<std::size_t>(dimension));
    restored.statistics_.count = count;
    const double divisor = static_cast<double>(std::max(count - 1, 1L));
    for (long i = 0; i < dimension; ++i)
    {
        restored.statistics_.mean[i] = mean(i, 0);
        restored.statistics_.compensation[i] = mean.compensation(i, 0);
        for (long j = 0; j <= i; ++j)
            restored.statistics_.crossProducts(static_cast<std::size_t>(i), static_cast<std::size_t>(j)) =
                tkNMExactQuotient{covariance(i, j), covariance.compensation(i, j)}.times(divisor);
    }
    swap_(restored);
    return true;
}

void tkNMNormal::swapStatistics(tkNMStatistics& other) noexcept
{
    changed_();
    std::swap(statistics_, other);
}

void tkNMNormal::clear()
{
    tkNMNormal empty;
    swap_(empty);
}

tkNMNormal::Outcome tkNMNormal::check(const double* pattern, long dimension) const
{
    if (count() > 0 && dimension != this->dimension())
        return eSizeChanged;
    if (count() >= std::numeric_limits<std::int32_t>::max())
        return eOutOfRange;
    for (long j = 0; j < dimension; ++j)
        if (!(std::fabs(pattern[j]) <= largestMagnitude()))
            return eOutOfRange;
    return eOk;
}

tkNMNormal::Outcome tkNMNormal::add(const double* pattern, long dimension)
{
    const Outcome status = check(pattern, dimension);
    if (status != eOk)
        return status;

    if (count() == 0)
        statistics_ = tkNMStatistics(static_cast<std::size_t>(dimension));
    changed_();
    statistics_.add(pattern);
    return eOk;
}

void tkNMNormal::referenceDeviations(const std::vector<double>& deviations)
{
    if (deviations == reference_)
        return; // nothing derived is stale: other classifiers that share the density may be running
    std::vector<double> copy(deviations);
    changed_();
    reference_ = std::move(copy);
}

void tkNMNormal::changeNumber(const tkPtrHandle<tkNMChangeNumber>& number)
{
    if (changeNumber_)
        changeNumber_->grow();
    changeNumber_ = number;
}

tkNMNormal::Outcome tkNMNormal::logDensity(const double* pattern, long dimension, double& result,
                                           tkNMInstructions instructions) const
{
    if (count() == 0)
        return eNoValidData;
    if (dimension != this->dimension())
        return eWrongLength;
    result = factorisation().logDensity(pattern, instructions);
    return eOk;
}

tkNMNormal::Outcome tkNMNormal::logMarginal(const double* pattern, const bool* valid, long dimension,
                                            double& result) const
{
    if (count() == 0)
        return eNoValidData;
    if (dimension != this->dimension())
        return eWrongLength;
    result = factorisation().logMarginal(pattern, valid);
    return eOk;
}

void tkNMNormal::swap_(tkNMNormal& other) noexcept
{
    changed_();
    other.changed_();
    std::swap(statistics_, other.statistics_);
    reference_.swap(other.reference_);
}

/// Invalidates what was derived from the present state.
void tkNMNormal::changed_() noexcept
{
    if (changeNumber_)
        changeNumber_->grow();
    // Rarely there while learning, and reading costs less than an exchange.
    if (factorisationOrNull_.load(std::memory_order_relaxed))
        delete factorisationOrNull_.exchange(nullptr);
}

const tkNMFactorisation& tkNMNormal::factorisation() const
{
    tkNMFactorisation* factor = factorisationOrNull_.load(std::memory_order_acquire);
    if (factor)
        return *factor;
    TK_ASSERT(count() > 0);

    auto fresh = std::make_unique<tkNMFactorisation>();
    fresh->mean = statistics_.mean;
    fresh->compensation = statistics_.compensation;
    fresh->covariance = tkNMCovarianceFactor(count(), statistics_.mean, statistics_.crossProducts, reference_);
    fresh->logPeak = fresh->covariance.logPeak();

    // The first thread publishes; all compute the same.
    if (factorisationOrNull_.compare_exchange_strong(factor, fresh.get(), std::memory_order_acq_rel,
                                                     std::memory_order_acquire))
        return *fresh.release();
    return *factor;
}
