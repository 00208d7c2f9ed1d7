#include "clss/clastool/bayes/tk_ProbabilityDensityFunction.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "foundation/tkArchiveErrors.h"
#include "foundation/tkAssert.h"
#include "foundation/tkException.h"
#include "foundation/tkScratch.h"
#include "numerics/tkNMElementary.h"
#include "numerics/tkNMNormal.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <typeinfo>
#include <utility>

namespace
{
/// The plain measurements that a density works with: those of a whole pattern, or of its restriction to a set.
/// Invalid ones are 0.0.
class Measurements
{
public:
    explicit Measurements(const tkFeaturePattern& pattern)
        : size_(static_cast<std::size_t>(pattern.numMeasurements())),
          values_(size_),
          valid_(size_)
    {
        const bool areSurelyValid = pattern.numInvalid() == 0;
        for (std::size_t i = 0; i < size_; ++i)
            take_(pattern, pattern.featureMeasurements(false), areSurelyValid, i, static_cast<long>(i));
    }

    Measurements(const tkFeaturePattern& pattern, const std::vector<long>& set)
        : size_(set.size()),
          values_(size_),
          valid_(size_)
    {
        // Counting the invalid ones spares asking for each, which pays for more than one.
        const std::vector<double>& all = pattern.featureMeasurements(false);
        const bool areSurelyValid = size_ > 1 && pattern.numInvalid() == 0;
        for (std::size_t i = 0; i < size_; ++i)
            take_(pattern, all, areSurelyValid, i, set[i]);
    }

    long size() const { return static_cast<long>(size_); }
    const double* values() const { return values_.data(); }
    const bool* valid() const { return valid_.data(); }
    bool areAllValid() const { return areAllValid_; }

    /// Divides by `factor` and tells whether the result can be learned from.
    bool normalize(double factor)
    {
        bool areUsable = areAllValid_;
        for (std::size_t i = 0; i < size_ && areUsable; ++i)
        {
            values_[i] /= factor;
            areUsable = std::isfinite(values_[i]);
        }
        return areUsable;
    }

private:
    void take_(const tkFeaturePattern& pattern, const std::vector<double>& all, bool areSurelyValid, std::size_t i,
               long index)
    {
        valid_[i] = (areSurelyValid && static_cast<std::size_t>(index) < all.size()) || pattern.isValid(index);
        values_[i] = valid_[i] ? all[static_cast<std::size_t>(index)] : 0.0;
        areAllValid_ = areAllValid_ && valid_[i];
    }

    std::size_t size_;
    tkScratch<double, 256> values_;
    tkScratch<bool, 256> valid_;
    bool areAllValid_ = true;
};

/// Throws tkClassifierDefs::BadIndex for a negative index, as the restriction of the pattern to the set does.
void requireIndices(const tkFeaturePattern& pattern, const std::vector<long>& set)
{
    for (const long index : set)
        static_cast<void>(pattern.isValid(index));
}

/// Turns what the numerical core reports into exceptions.
void throwUnlessOk(tkNMNormal::Outcome status)
{
    switch (status)
    {
    case tkNMNormal::eOk:
        return;
    case tkNMNormal::eNoValidData:
        throw tkClassifierDefs::InsufficientTrainData(L"No valid data has been used to train the distribution");
    case tkNMNormal::eSizeChanged:
        throw tkClassifierDefs::BadParams(L"Must call clear before updating with feature vectors of different sizes");
    case tkNMNormal::eWrongLength:
        throw tkFailure(L"A pattern has another number of measurements than the distribution was trained with");
    case tkNMNormal::eOutOfRange:
        throw tkFailure(L"A measurement is too large, or the patterns are too many, for a normal distribution");
    }
}

double logValueOf(const tkNMNormal& normal, const Measurements& x)
{
    double result = 0.0;
    throwUnlessOk(x.areAllValid() ? normal.logDensity(x.values(), x.size(), result)
                                  : normal.logMarginal(x.values(), x.valid(), x.size(), result));
    return result;
}

/// Learns x / factor. A pattern with an invalid or non-finite measurement is skipped whole.
void learn(tkNMNormal& normal, Measurements x, double factor)
{
    if (normal.count() > 0 && x.size() != normal.dimension())
        throwUnlessOk(tkNMNormal::eSizeChanged);
    if (x.normalize(factor))
        throwUnlessOk(normal.add(x.values(), x.size()));
}

/// Learns all patterns, divided by `factor`, or none where it throws.
void learnAll(tkNMNormal& normal, const std::vector<tkFeaturePattern>& patterns, double factor)
{
    if (patterns.empty())
        return;
    const long dimension = normal.count() > 0 ? normal.dimension() : patterns.front().numMeasurements();
    for (const tkFeaturePattern& pattern : patterns)
        if (pattern.numMeasurements() != dimension)
            throwUnlessOk(tkNMNormal::eSizeChanged);

    tkNMNormal updated(normal);
    for (const tkFeaturePattern& pattern : patterns)
        learn(updated, Measurements(pattern), factor);
    normal = std::move(updated);
}

/// What a binomial density learns and evaluates is a single measurement.
void requireOneMeasurement(long numMeasurements)
{
    if (numMeasurements != 1)
        throw tkClassifierDefs::NotImplemented(L"Multivariate Binomial Distributions are not implemented");
}

void requireAtMost(double maxValue, const tkFeaturePattern& pattern, long index)
{
    if (pattern.isValid(index) && pattern.featureMeasurement(index, true) > maxValue)
        throw tkClassifierDefs::BadParams(
            L"Train data measurement cannot exceed its maximum value when using binomial distribution");
}

/// Truncates toward zero; what does not fit becomes the nearest value that does, and NaN becomes 0.
std::int64_t saturated(double value)
{
    constexpr double low = std::numeric_limits<std::int32_t>::min();
    constexpr double high = std::numeric_limits<std::int32_t>::max();
    return std::isnan(value) ? 0 : static_cast<std::int64_t>(std::clamp(value, low, high));
}

/// ln m!. Up to 2^16 - 1 the sum of ln 2, ln 3, ... in this order; beyond, Stirling's series, whose first term left
/// out is below 1e-27 there, so that the error is that of rounding: relatively below 1e-15.
double lnFactorial(std::int64_t m)
{
    TK_ASSERT(m >= 0);
    static const std::vector<double> sums = []
    {
        std::vector<double> running(1 << 16, 0.0);
        for (std::size_t i = 2; i < running.size(); ++i)
            running[i] = running[i - 1] + tkNMElementary::log(static_cast<double>(i));
        return running;
    }();
    if (m < static_cast<std::int64_t>(sums.size()))
        return sums[static_cast<std::size_t>(m)];
    const double x = static_cast<double>(m);
    const double halfLnTwoPi = 0.91893853320467274178;
    return (x + 0.5) * tkNMElementary::log(x) - x + halfLnTwoPi + (1.0 - 1.0 / (30.0 * x * x)) / (12.0 * x);
}
} // namespace

tkFeaturePattern tk_ProbabilityDensityFunction::restriction(const tkFeaturePattern& pattern,
                                                            const std::vector<long>& set)
{
    std::vector<double> values;
    std::vector<long> invalid;
    for (const long index : set)
    {
        const bool isValid = pattern.isValid(index);
        if (!isValid)
            invalid.push_back(static_cast<long>(values.size()));
        values.push_back(isValid ? pattern.featureMeasurement(index, true) : 0.0);
    }
    return tkFeaturePattern(values, invalid);
}

tkPtrHandle<tk_ProbabilityDensityFunction>
tk_ProbabilityDensityFunction::create(tkClassifierDistributionTypes::DistributionType type,
                                      const std::vector<long>& set, const tkFeaturePattern& maxMeasurementValues)
{
    using Handle = tkPtrHandle<tk_ProbabilityDensityFunction>;
    switch (type)
    {
    case tkClassifierDistributionTypes::eNormal:
        return Handle(new tk_PDFMultivariateNormal);
    case tkClassifierDistributionTypes::eBinomial:
    {
        const tkFeaturePattern maxima = restriction(maxMeasurementValues, set);
        return Handle(new tk_PDFBinomial(maxima.isValid(0) ? maxima : tkFeaturePattern({1.0})));
    }
    case tkClassifierDistributionTypes::ePoisson:
        throw tkClassifierDefs::NotImplemented(L"Poisson distribution is not implemented");
    case tkClassifierDistributionTypes::eUniform:
        throw tkClassifierDefs::NotImplemented(L"Uniform distribution is not implemented");
    }
    throw tkClassifierDefs::BadParams(L"Unknown distribution type");
}

double tk_ProbabilityDensityFunction::logValueOfSet(const tkFeaturePattern& pattern, const std::vector<long>& set) const
{
    return logValue(restriction(pattern, set));
}

void tk_ProbabilityDensityFunction::updateWithSet(const tkFeaturePattern& pattern, const std::vector<long>& set)
{
    updateWithData({restriction(pattern, set)});
}

TK_DEFINE_RECORD(tk_ProbabilityDensityFunction, 0)

void tk_ProbabilityDensityFunction::serialize_(tkArchive& archive, unsigned char)
{
    tkPersistent::dispatchSerialize(archive);
}

tk_PDFMultivariateNormal::tk_PDFMultivariateNormal() : normal_(new tkNMNormal) {}

tk_PDFMultivariateNormal::tk_PDFMultivariateNormal(const tk_PDFMultivariateNormal& other)
    : tk_ProbabilityDensityFunction(other),
      normal_(new tkNMNormal(*other.normal_))
{
}

tk_PDFMultivariateNormal& tk_PDFMultivariateNormal::operator=(const tk_PDFMultivariateNormal& other)
{
    *normal_ = *other.normal_;
    return *this;
}

tk_PDFMultivariateNormal::~tk_PDFMultivariateNormal() = default;

double tk_PDFMultivariateNormal::logValue(const tkFeaturePattern& pattern) const
{
    return logValueOf(*normal_, Measurements(pattern));
}

bool tk_PDFMultivariateNormal::isEquivalent(const tk_ProbabilityDensityFunction& other) const
{
    return typeid(*this) == typeid(other) && *this == static_cast<const tk_PDFMultivariateNormal&>(other);
}

void tk_PDFMultivariateNormal::updateWithData(const std::vector<tkFeaturePattern>& patterns)
{
    updateWithDataNormalize(patterns, 1.0);
}

void tk_PDFMultivariateNormal::clear()
{
    normal_->clear();
}

double tk_PDFMultivariateNormal::logValueOfSet(const tkFeaturePattern& pattern, const std::vector<long>& set) const
{
    return logValueOf(*normal_, Measurements(pattern, set));
}

void tk_PDFMultivariateNormal::updateWithSet(const tkFeaturePattern& pattern, const std::vector<long>& set)
{
    learn(*normal_, Measurements(pattern, set), 1.0);
}

void tk_PDFMultivariateNormal::updateWithDataNormalize(const std::vector<tkFeaturePattern>& patterns, double factor)
{
    learnAll(*normal_, patterns, factor);
}

tkNMMatrix tk_PDFMultivariateNormal::mean() const
{
    return normal_->mean();
}

tkNMMatrix tk_PDFMultivariateNormal::covariance() const
{
    return normal_->covariance();
}

bool tk_PDFMultivariateNormal::isValid() const
{
    return normal_->count() > 0;
}

void tk_PDFMultivariateNormal::referenceDeviations(const std::vector<double>& deviations)
{
    normal_->referenceDeviations(deviations);
}

void tk_PDFMultivariateNormal::changeNumber(const tkPtrHandle<tkNMChangeNumber>& number)
{
    normal_->changeNumber(number);
}

void tk_PDFMultivariateNormal::swapStatistics(tkNMStatistics& other) noexcept
{
    normal_->swapStatistics(other);
}

bool tk_PDFMultivariateNormal::operator==(const tk_PDFMultivariateNormal& other) const
{
    return typeid(*this) == typeid(other) && *normal_ == *other.normal_;
}

TK_DEFINE_FACTORY_RECORD(tk_PDFMultivariateNormal, 0)

void tk_PDFMultivariateNormal::serialize_(tkArchive& archive, unsigned char)
{
    tk_ProbabilityDensityFunction::dispatchSerialize(archive);
    tkNMMatrix mean = normal_->mean();
    tkNMMatrix covariance = normal_->covariance();
    long count = normal_->count();
    archive || mean || covariance || count;
    if (archive.isLoading() && !normal_->restore(mean, covariance, count))
        archive.fail(L"The statistics of a stored normal distribution do not fit together");
}

tk_PDFBinomial::tk_PDFBinomial(const tkFeaturePattern& maxValue)
    : numTrials_(0),
      probability_(0.0),
      accumulator_(new tkNMNormal)
{
    TK_ASSERT(maxValue.isValid(0));
    maxValue_ = maxValue.featureMeasurement(0, true);
}

tk_PDFBinomial::tk_PDFBinomial(const tk_PDFBinomial& other)
    : tk_ProbabilityDensityFunction(other),
      numTrials_(other.numTrials_),
      probability_(other.probability_),
      maxValue_(other.maxValue_),
      accumulator_(new tkNMNormal(*other.accumulator_))
{
}

tk_PDFBinomial& tk_PDFBinomial::operator=(const tk_PDFBinomial& other)
{
    *accumulator_ = *other.accumulator_;
    numTrials_ = other.numTrials_;
    probability_ = other.probability_;
    maxValue_ = other.maxValue_;
    return *this;
}

tk_PDFBinomial::~tk_PDFBinomial() = default;

double tk_PDFBinomial::logValue(const tkFeaturePattern& pattern) const
{
    return logValueOf_(pattern.numMeasurements(), pattern, 0);
}

bool tk_PDFBinomial::isEquivalent(const tk_ProbabilityDensityFunction& other) const
{
    return typeid(*this) == typeid(other) && *this == static_cast<const tk_PDFBinomial&>(other);
}

void tk_PDFBinomial::updateWithData(const std::vector<tkFeaturePattern>& patterns)
{
    if (patterns.empty())
        return;
    requireOneMeasurement(patterns.front().numMeasurements());
    for (const tkFeaturePattern& pattern : patterns)
        for (long i = 0; i < pattern.numMeasurements(); ++i)
            requireAtMost(maxValue_, pattern, i);
    learnAll(*accumulator_, patterns, maxValue_);
    estimate_();
}

void tk_PDFBinomial::clear()
{
    accumulator_->clear();
    numTrials_ = 0;
}

double tk_PDFBinomial::logValueOfSet(const tkFeaturePattern& pattern, const std::vector<long>& set) const
{
    requireIndices(pattern, set);
    return logValueOf_(static_cast<long>(set.size()), pattern, set.empty() ? 0 : set.front());
}

void tk_PDFBinomial::updateWithSet(const tkFeaturePattern& pattern, const std::vector<long>& set)
{
    requireIndices(pattern, set);
    requireOneMeasurement(static_cast<long>(set.size()));
    requireAtMost(maxValue_, pattern, set.front());
    learn(*accumulator_, Measurements(pattern, set), maxValue_);
    estimate_();
}

bool tk_PDFBinomial::operator==(const tk_PDFBinomial& other) const
{
    const auto differ = [](double a, double b) { return a < b || a > b; };
    return typeid(*this) == typeid(other) && numTrials_ == other.numTrials_ &&
           !differ(probability_, other.probability_) && !differ(maxValue_, other.maxValue_);
}

void tk_PDFBinomial::estimate_()
{
    if (accumulator_->count() == 0)
        return;
    probability_ = accumulator_->mean(0);
    const double variance = accumulator_->variance(0);
    if (std::fabs(variance) <= 1e-15)
        return;
    numTrials_ = static_cast<long>(saturated(probability_ * (1.0 - probability_) / variance + 0.5));
}

double tk_PDFBinomial::logValueOf_(long numMeasurements, const tkFeaturePattern& pattern, long index) const
{
    if (numTrials_ == 0)
        throw tkClassifierDefs::InsufficientTrainData(L"Insufficient data has been used to train the distribution");
    requireOneMeasurement(numMeasurements);
    if (!pattern.isValid(index))
        return 0.0;
    const double x = pattern.featureMeasurement(index, true);
    if (x > maxValue_)
        throw tkClassifierDefs::BadParams(L"Feature measurement must be <= specified maximum value");

    const std::int64_t n = numTrials_;
    const std::int64_t k = saturated(static_cast<double>(n) * x / maxValue_ + 0.5);
    return lnFactorial(n) - (lnFactorial(k) + lnFactorial(n - k)) +
           static_cast<double>(k) * tkNMElementary::log(probability_) +
           static_cast<double>(n - k) * tkNMElementary::log(1.0 - probability_);
}

TK_DEFINE_RECORD(tk_PDFBinomial, 0)

const tkPersistent::Registration tk_PDFBinomial::registration_(typeid(tk_PDFBinomial), &tk_PDFBinomial::make);

void tk_PDFBinomial::serialize_(tkArchive& archive, unsigned char)
{
    tk_ProbabilityDensityFunction::dispatchSerialize(archive);
    archive || numTrials_ || probability_ || maxValue_;
    if (archive.isLoading())
        accumulator_->clear();
}

tkPersistent* tk_PDFBinomial::make()
{
    return new tk_PDFBinomial(tkFeaturePattern({1.0}));
}
