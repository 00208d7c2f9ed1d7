#include "clss/model/tk_NoveltyEvidence.h"

#include "clss/clastool/bayes/tkClassifierTrainParamsBayesian.h"
#include "clss/clastool/bayes/tk_ClassifierBayesian.h"
#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/clastool/clastool/tkClassifierTrainParamsKNN.h"
#include "numerics/tkNMElementary.h"
#include "numerics/tkNMReferenceDeviation.h"
#include "numerics/tkNMStatistics.h"
#include "numerics/tkNMTail.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <string>
#include <utility>

namespace
{
constexpr double infinity = std::numeric_limits<double>::infinity();

/// Patterns near which a pattern should lie, in the local evidence of Bayesian classification.
constexpr std::size_t numNear = 3;

/// What is added to the variances within the categories: this share of them, as if each measurement had so much noise
/// of its own. A variance counts as leastVariance of the one over all categories at least.
constexpr double noise = 1e-3;
constexpr double leastVariance = 1e-4;

/// The least pivot of a factorisation, far below any that the noise leaves but for rounding.
constexpr double leastPivot = 0x1p-50;

/// The least mean squared distance, in units of the deviations within the categories: patterns may be equal.
constexpr double leastSquare = 1e-12;

/// The largest magnitude of a measurement in units of its deviation: further away is no further.
constexpr double largestCoordinate = 0x1p256;

/// The sum of a_j b_j, by fours: four sums do not wait for one another. With s_k the sum for j = k modulo 4,
///     ((s_0 + s_2) + (s_1 + s_3)) + what remains of d, in order.
double product(const double* a, const double* b, std::size_t d)
{
    double sums[4] = {0.0, 0.0, 0.0, 0.0};
    std::size_t j = 0;
    for (; j + 4 <= d; j += 4)
        for (std::size_t k = 0; k < 4; ++k)
            sums[k] += a[j + k] * b[j + k];
    double sum = (sums[0] + sums[2]) + (sums[1] + sums[3]);
    for (; j < d; ++j)
        sum += a[j] * b[j];
    return sum;
}

/// The factor of what is left of a matrix A - c u u' along u, in the formula of Sherman and Morrison,
///     x' (A - c u u')^-1 x = x' A^-1 x + c / (1 - c u' A^-1 u) (u' A^-1 x)²,
/// with g = u' A^-1 u. Rounding alone can leave less than 1e-9.
double shermanMorrison(double c, double g)
{
    return c / std::max(1.0 - c * g, 1e-9);
}

/// The Cholesky factor L of a positive definite matrix, row by row.
class Cholesky
{
public:
    template <class Element>
    Cholesky(std::size_t d, const Element& element) : dimension_(d)
    {
        rows_.reserve(d * (d + 1) / 2);
        for (std::size_t i = 0; i < d; ++i)
            for (std::size_t j = 0; j <= i; ++j)
            {
                const double rest = element(i, j) - product(row_(i), row_(j), j);
                rows_.push_back(i == j ? std::sqrt(std::max(rest, leastPivot)) : rest / row_(j)[j]);
            }
    }

    std::size_t dimension() const { return dimension_; }

    /// Solves L y = x in place.
    void solve(double* x) const
    {
        for (std::size_t i = 0; i < dimension_; ++i)
            x[i] = (x[i] - product(row_(i), x, i)) / row_(i)[i];
    }

private:
    const double* row_(std::size_t i) const { return rows_.data() + i * (i + 1) / 2; }

    std::size_t dimension_;
    std::vector<double> rows_;
};

/// What a category's binomial density counts: successes in so many trials, in steps of maximum / trials. By the method
/// of moments, as the density does; the probability of a success is kept from 0 and 1 by half a success and half a
/// failure. No trials: the values do not vary like those of a binomial distribution.
struct Binomial
{
    Binomial(double count, double mean, double squares)
    {
        const double variance = squares / (count - 1.0);
        const double estimate = mean * (1.0 - mean) / variance + 0.5;
        if (!(count >= 2.0 && variance > 1e-15 && estimate >= 1.0))
            return;
        trials = static_cast<long>(std::min(estimate, 0x1p30));
        const double all = count * static_cast<double>(trials);
        probability = (all * mean + 0.5) / (all + 1.0);
    }

    /// ln of twice the probability of x or more or, if that is less, of x or less.
    double lnTail(double x, double maximum) const
    {
        if (trials == 0)
            return 0.0;
        const double successes = std::floor(static_cast<double>(trials) * x / maximum + 0.5);
        const auto k = static_cast<long>(std::clamp(successes, -1.0, static_cast<double>(trials) + 1.0));
        const double atLeast = tkNMTail::lnBinomial(k, trials, probability);
        const double atMost = tkNMTail::lnBinomial(trials - k, trials, 1.0 - probability);
        return std::min(0.0, std::min(atLeast, atMost) + tkNMElementary::log(2.0));
    }

    long trials = 0;
    double probability = 0.5;
};

/// The least of the squared distances that are added, numNear at most.
class NearSquares
{
public:
    void add(double square)
    {
        if (!(square < bound()))
            return;
        count_ = std::min(count_ + 1, numNear);
        std::size_t place = numNear - 1;
        for (; place > 0 && square < squares_[place - 1]; --place)
            squares_[place] = squares_[place - 1];
        squares_[place] = square;
    }

    /// What is not less is not added.
    double bound() const { return squares_[numNear - 1]; }

    bool isEmpty() const { return count_ == 0; }

    double mean() const
    {
        double sum = 0.0;
        for (std::size_t k = 0; k < count_; ++k)
            sum += squares_[k];
        return sum / static_cast<double>(count_);
    }

private:
    double squares_[numNear] = {infinity, infinity, infinity}; // ascending
    std::size_t count_ = 0;
};

/// A dependency set of a category.
struct Set
{
    std::vector<std::size_t> measurements;
    double maximum = 0.0; // of a binomial one; 0.0: normal
};

/// What is known of all patterns and of those of each category, in units of the deviations over all patterns.
class BayesianEvidence : public tk_NoveltyEvidence
{
public:
    BayesianEvidence(const tk_NoveltyData& data, const tkClassifierTrainParamsBayesian& params);

    std::unique_ptr<const View> view(const std::vector<long>& measurements) const override;

private:
    friend class BayesianView;

    struct Category
    {
        double count;
        std::vector<double> mean;
        tkNMTriangle sums; // of squares and products
        std::vector<Set> sets;
    };

    void learnUnits_();
    void learnSets_(const tkClassifierTrainParamsBayesian& params);
    double coordinate_(const double* pattern, std::size_t j) const
    {
        return std::clamp((pattern[j] - means_[j]) * units_[j], -largestCoordinate, largestCoordinate);
    }

    const tk_NoveltyData& data_;
    std::vector<double> means_;
    std::vector<double> units_; // 0.0: the same in all patterns
    std::vector<Category> categories_;
    tkNMTriangle sums_;         // of squares and products within the categories
    double degrees_ = 0.0;      // of freedom: patterns less categories
    std::vector<double> noise_; // added to the variances
};

/// For the patterns that have certain measurements.
///
/// Two evidences per category are added: how improbable a pattern is that lies so far from the mean, and how close the
/// nearest patterns are. P is the covariance within the categories, with the noise. A dependency set of p of the
/// category's measurements has A = v P + S, with S its sums of squares and products and a weight v of p + 2 patterns
/// for P, so that few patterns are enough: x is off by
///     F = (x - m)' A^-1 (x - m) n / (n + 1) (n + 2) / p,
/// which has an F distribution of p and n + 2 degrees of freedom (Hotelling's T², with a prior; the predictive
/// distribution is Student's: Geisser, Predictive Inference, 1993, section 2.2.4). If some of the p measurements are
/// missing, A keeps its v and p is the number of those left: the marginal distribution. The tails of all sets are
/// combined by Fisher's method and divided by the number of measurements. The nearness is -1/2 ln of the mean squared
/// distance to the numNear nearest patterns, in coordinates in which P is the unit matrix.
class BayesianView : public tk_NoveltyEvidence::View
{
public:
    BayesianView(const BayesianEvidence& model, const std::vector<long>& measurements);

    void fill(const double* pattern, double* evidence) const override;
    void fillLeftOut(std::size_t i, double* evidence) const override;

private:
    /// What a category's set, or what is left of it, takes.
    struct Term
    {
        std::vector<std::size_t> places; // of its measurements among the used ones
        double weight;                   // v, of P
        double maximum;                  // of a binomial one; 0.0: normal
        Cholesky all;
        Cholesky leftOut; // before the pattern's part is taken
    };

    /// What is known of a pattern that is left out; of another, all are 0.
    struct Own
    {
        static constexpr std::size_t none = static_cast<std::size_t>(-1);

        std::size_t category = none;
        double taken = 0.0;    // n / (n - 1): this times u u' is its part of the sums of its category
        std::vector<double> u; // its coordinates less the mean of its category
    };

    double covariance_(std::size_t i, std::size_t j, double degrees) const;
    std::vector<double> whitened_(const Cholesky& factor) const;
    double lnTail_(std::size_t c, const double* pattern, const std::vector<double>& x, const Own& own) const;
    double lnTailOf_(std::size_t c, const Term& term, const std::vector<double>& x, const Own& own) const;
    double lnTailOfBinomial_(std::size_t c, const Term& term, const double* pattern, const Own& own) const;
    void fill_(const double* pattern, std::size_t leftOut, const Own& own, double* evidence) const;
    std::vector<double> coordinates_(const double* pattern) const;

    const BayesianEvidence& model_;
    std::vector<std::size_t> used_; // measurements that vary
    double leftOutDegrees_;
    std::vector<std::vector<Term>> terms_; // of each category
    Cholesky whitening_;
    Cholesky leftOutWhitening_;
    std::vector<double> rows_;        // all patterns, whitened
    std::vector<double> leftOutRows_; // the same before the pattern's part is taken
};

BayesianEvidence::BayesianEvidence(const tk_NoveltyData& data, const tkClassifierTrainParamsBayesian& params)
    : data_(data),
      sums_(static_cast<std::size_t>(data.numMeasurements))
{
    learnUnits_();
    const std::size_t d = sums_.dimension();
    std::vector<double> x(d);
    for (std::size_t c = 0; c < data.labels.size(); ++c)
    {
        tkNMStatistics statistics(d);
        for (std::size_t i = data.begin(c); i < data.end(c); ++i)
        {
            for (std::size_t j = 0; j < d; ++j)
                x[j] = coordinate_(data.pattern(i), j);
            statistics.add(x.data());
        }
        for (std::size_t i = 0; i < d; ++i)
            for (std::size_t j = 0; j <= i; ++j)
                sums_(i, j) += statistics.crossProducts(i, j);
        degrees_ += static_cast<double>(statistics.count) - 1.0;
        categories_.push_back({static_cast<double>(statistics.count),
                               std::move(statistics.mean),
                               std::move(statistics.crossProducts),
                               {}});
    }
    for (std::size_t j = 0; j < d; ++j)
        noise_.push_back(noise * std::max(sums_(j, j) / std::max(degrees_, 1.0), leastVariance));
    learnSets_(params);
}

void BayesianEvidence::learnUnits_()
{
    for (std::size_t j = 0; j < sums_.dimension(); ++j)
    {
        tkNMStatistics statistics(1);
        for (std::size_t i = 0; i < data_.numPatterns(); ++i)
            statistics.add(data_.pattern(i) + j);
        tkNMReferenceDeviation reference;
        const auto count = static_cast<double>(statistics.count);
        reference.addMean(count, statistics.mean[0], statistics.compensation[0]);
        reference.addSquares(count, statistics.mean[0], statistics.compensation[0], statistics.crossProducts(0, 0));
        means_.push_back(statistics.mean[0]);
        units_.push_back(reference.value() > 0.0 ? 1.0 / reference.value() : 0.0);
    }
}

/// Takes the sets from a training, which also refuses what cannot be learned.
void BayesianEvidence::learnSets_(const tkClassifierTrainParamsBayesian& params)
{
    tkClassifierDataProviderMemory training;
    for (std::size_t c = 0; c < data_.labels.size(); ++c)
        for (std::size_t i = data_.begin(c); i < data_.end(c); ++i)
            training.addData(std::vector<double>(data_.pattern(i), data_.pattern(i) + sums_.dimension()),
                             data_.labels[c]);
    tk_ClassifierBayesian classifier;
    classifier.train(training, params);
    for (std::size_t c = 0; c < categories_.size(); ++c)
    {
        const auto& model = dynamic_cast<const tk_CategoryModelBayesian&>(*classifier.categoryModels()[c]);
        for (std::size_t s = 0; s < model.densities().size(); ++s)
        {
            Set set;
            for (const long j : model.dependencySets()[s])
            {
                if (j < 0 || j >= data_.numMeasurements)
                    throw tkClassifierDefs::BadIndex(
                        L"A dependency set of category " + std::to_wstring(data_.labels[c]) + L" has measurement " +
                        std::to_wstring(j) + L", the patterns have " + std::to_wstring(data_.numMeasurements) + L".");
                set.measurements.push_back(static_cast<std::size_t>(j));
            }
            if (dynamic_cast<const tk_PDFBinomial*>(model.densities()[s].get()))
            {
                const long j = model.dependencySets()[s].front();
                const tkFeaturePattern& maxima = params.maxMeasurementValues();
                set.maximum = maxima.isValid(j) ? maxima.featureMeasurement(j, true) : 1.0;
            }
            categories_[c].sets.push_back(std::move(set));
        }
    }
}

std::unique_ptr<const tk_NoveltyEvidence::View> BayesianEvidence::view(const std::vector<long>& measurements) const
{
    return std::make_unique<const BayesianView>(*this, measurements);
}

std::vector<std::size_t> varying(const std::vector<long>& measurements, const std::vector<double>& units)
{
    std::vector<std::size_t> used;
    for (const long j : measurements)
        if (units[static_cast<std::size_t>(j)] > 0.0)
            used.push_back(static_cast<std::size_t>(j));
    return used;
}

BayesianView::BayesianView(const BayesianEvidence& model, const std::vector<long>& measurements)
    : model_(model),
      used_(varying(measurements, model.units_)),
      leftOutDegrees_(std::max(model.degrees_ - 1.0, 1.0)),
      whitening_(used_.size(), [&](std::size_t i, std::size_t j) { return covariance_(i, j, model.degrees_); }),
      leftOutWhitening_(used_.size(), [&](std::size_t i, std::size_t j) { return covariance_(i, j, leftOutDegrees_); }),
      rows_(whitened_(whitening_)),
      leftOutRows_(whitened_(leftOutWhitening_))
{
    for (const BayesianEvidence::Category& category : model.categories_)
    {
        terms_.emplace_back();
        for (const Set& set : category.sets)
        {
            std::vector<std::size_t> places;
            for (std::size_t place = 0; place < used_.size(); ++place)
                if (std::find(set.measurements.begin(), set.measurements.end(), used_[place]) != set.measurements.end())
                    places.push_back(place);
            if (places.empty())
                continue;
            const double weight = static_cast<double>(set.measurements.size()) + 2.0;
            const auto factor = [&](double degrees)
            {
                return Cholesky(set.maximum > 0.0 ? 0 : places.size(),
                                [&](std::size_t i, std::size_t j) {
                                    return weight * covariance_(places[i], places[j], degrees) +
                                           category.sums(used_[places[i]], used_[places[j]]);
                                });
            };
            terms_.back().push_back({places, weight, set.maximum, factor(model.degrees_), factor(leftOutDegrees_)});
        }
    }
}

/// Element (i, j), j <= i, of P over the measurements used.
double BayesianView::covariance_(std::size_t i, std::size_t j, double degrees) const
{
    return model_.sums_(used_[i], used_[j]) / std::max(degrees, 1.0) + (i == j ? model_.noise_[used_[i]] : 0.0);
}

std::vector<double> BayesianView::coordinates_(const double* pattern) const
{
    std::vector<double> x;
    x.reserve(used_.size());
    for (const std::size_t j : used_)
        x.push_back(model_.coordinate_(pattern, j));
    return x;
}

std::vector<double> BayesianView::whitened_(const Cholesky& factor) const
{
    std::vector<double> rows;
    rows.reserve(model_.data_.numPatterns() * used_.size());
    for (std::size_t i = 0; i < model_.data_.numPatterns(); ++i)
    {
        std::vector<double> x = coordinates_(model_.data_.pattern(i));
        factor.solve(x.data());
        rows.insert(rows.end(), x.begin(), x.end());
    }
    return rows;
}

void BayesianView::fill(const double* pattern, double* evidence) const
{
    fill_(pattern, Own::none, Own(), evidence);
}

void BayesianView::fillLeftOut(std::size_t i, double* evidence) const
{
    Own own;
    own.category = 0;
    while (i >= model_.data_.end(own.category))
        ++own.category;
    const BayesianEvidence::Category& category = model_.categories_[own.category];
    if (category.count == 1.0) // the others do not change
        return fill_(model_.data_.pattern(i), i, Own(), evidence);
    own.taken = category.count / (category.count - 1.0);
    own.u = coordinates_(model_.data_.pattern(i));
    for (std::size_t j = 0; j < used_.size(); ++j)
        own.u[j] -= category.mean[used_[j]];
    fill_(model_.data_.pattern(i), i, own, evidence);
}

void BayesianView::fill_(const double* pattern, std::size_t leftOut, const Own& own, double* evidence) const
{
    const std::size_t d = used_.size();
    const tk_NoveltyData& data = model_.data_;
    std::fill(evidence, evidence + data.labels.size(), 0.0);
    if (d == 0)
        return;
    const bool isLeftOut = own.category != Own::none;
    const Cholesky& whitening = isLeftOut ? leftOutWhitening_ : whitening_;
    const double* const rows = isLeftOut ? leftOutRows_.data() : rows_.data();
    const std::vector<double> x = coordinates_(pattern);
    std::vector<double> y = x;
    whitening.solve(y.data());
    std::vector<double> u = own.u;
    double stretch = 0.0; // of squared distances along u
    if (isLeftOut)
    {
        whitening.solve(u.data());
        stretch = shermanMorrison(own.taken / leftOutDegrees_, product(u.data(), u.data(), d));
    }
    std::vector<double> difference(d);
    for (std::size_t c = 0; c < data.labels.size(); ++c)
    {
        NearSquares near;
        for (std::size_t i = data.begin(c); i < data.end(c); ++i)
        {
            if (i == leftOut)
                continue;
            for (std::size_t j = 0; j < d; ++j)
                difference[j] = y[j] - rows[i * d + j];
            double square = product(difference.data(), difference.data(), d);
            if (isLeftOut && square < near.bound())
            {
                const double along = product(u.data(), difference.data(), d);
                square += stretch * along * along;
            }
            near.add(square);
        }
        evidence[c] = near.isEmpty() ? -infinity
                                     : lnTail_(c, pattern, x, own) / static_cast<double>(d) -
                                           0.5 * tkNMElementary::log(std::max(near.mean(), leastSquare));
    }
}

/// The tails of all sets of category c, combined.
double BayesianView::lnTail_(std::size_t c, const double* pattern, const std::vector<double>& x, const Own& own) const
{
    double sum = 0.0;
    for (const Term& term : terms_[c])
        sum += term.maximum > 0.0 ? lnTailOfBinomial_(c, term, pattern, own) : lnTailOf_(c, term, x, own);
    return terms_[c].size() == 1 ? sum : tkNMTail::lnChiSquared(-sum, static_cast<long>(terms_[c].size()));
}

double BayesianView::lnTailOf_(std::size_t c, const Term& term, const std::vector<double>& x, const Own& own) const
{
    const BayesianEvidence::Category& category = model_.categories_[c];
    const std::size_t p = term.places.size();
    double n = category.count;
    double shift = 1.0;
    double taken = own.taken * term.weight / leftOutDegrees_;
    if (own.category == c)
    {
        shift = n / (n - 1.0); // x less the mean without x is n / (n - 1) u
        taken += own.taken;
        n -= 1.0;
    }
    const Cholesky& factor = own.category == Own::none ? term.all : term.leftOut;
    std::vector<double> v(p);
    for (std::size_t j = 0; j < p; ++j)
        v[j] = shift * (x[term.places[j]] - category.mean[used_[term.places[j]]]);
    factor.solve(v.data());
    double square = product(v.data(), v.data(), p);
    if (own.category != Own::none)
    {
        std::vector<double> u(p);
        for (std::size_t j = 0; j < p; ++j)
            u[j] = own.u[term.places[j]];
        factor.solve(u.data());
        const double along = product(u.data(), v.data(), p);
        square += shermanMorrison(taken, product(u.data(), u.data(), p)) * along * along;
    }
    const auto numerator = static_cast<double>(p);
    return tkNMTail::lnF(square * n / (n + 1.0) * (n + 2.0) / numerator, numerator, n + 2.0);
}

double BayesianView::lnTailOfBinomial_(std::size_t c, const Term& term, const double* pattern, const Own& own) const
{
    const BayesianEvidence::Category& category = model_.categories_[c];
    const std::size_t j = used_[term.places.front()];
    double n = category.count;
    // From units of the deviation back to shares of the maximum.
    const double share = 1.0 / (model_.units_[j] * term.maximum);
    double mean = model_.means_[j] / term.maximum + category.mean[j] * share;
    double squares = category.sums(j, j) * share * share;
    if (own.category == c)
    {
        const double u = own.u[term.places.front()] * share;
        mean -= u / (n - 1.0);
        squares -= own.taken * u * u;
        n -= 1.0;
    }
    return Binomial(n, std::clamp(mean, 0.0, 1.0), std::max(squares, 0.0)).lnTail(pattern[j], term.maximum);
}

/// Nearest neighbours: the distance to the k-th nearest pattern of a category, or to the last one where there are
/// fewer, with the sign changed.
class NeighborView : public tk_NoveltyEvidence::View
{
public:
    NeighborView(const tk_NoveltyData& data, const tkPatternDistanceMetric& metric, long k,
                 const std::vector<long>& measurements)
        : data_(data),
          metric_(metric),
          k_(static_cast<std::size_t>(k)),
          measurements_(measurements)
    {
        patterns_.reserve(data.numPatterns());
        for (std::size_t i = 0; i < data.numPatterns(); ++i)
            patterns_.push_back(restricted_(data.pattern(i)));
    }

    void fill(const double* pattern, double* evidence) const override
    {
        fill_(restricted_(pattern), patterns_.size(), evidence);
    }

    void fillLeftOut(std::size_t i, double* evidence) const override { fill_(patterns_[i], i, evidence); }

private:
    tkFeaturePattern restricted_(const double* pattern) const
    {
        std::vector<double> values;
        values.reserve(measurements_.size());
        for (const long j : measurements_)
            values.push_back(pattern[j]);
        return tkFeaturePattern(values);
    }

    void fill_(const tkFeaturePattern& pattern, std::size_t leftOut, double* evidence) const
    {
        std::vector<double> distances;
        for (std::size_t c = 0; c < data_.labels.size(); ++c)
        {
            distances.clear();
            for (std::size_t i = data_.begin(c); i < data_.end(c); ++i)
                if (i != leftOut)
                {
                    const double distance = metric_.distance(pattern, patterns_[i]);
                    distances.push_back(std::isnan(distance) ? infinity : distance);
                }
            evidence[c] = -infinity;
            if (distances.empty())
                continue;
            const std::size_t place = std::min(k_, distances.size()) - 1;
            std::nth_element(distances.begin(), distances.begin() + static_cast<std::ptrdiff_t>(place),
                             distances.end());
            evidence[c] = -distances[place];
        }
    }

    const tk_NoveltyData& data_;
    const tkPatternDistanceMetric& metric_;
    std::size_t k_;
    std::vector<long> measurements_;
    std::vector<tkFeaturePattern> patterns_;
};

class NeighborEvidence : public tk_NoveltyEvidence
{
public:
    NeighborEvidence(const tk_NoveltyData& data, const tkClassifierTrainParamsKNN& params)
        : data_(data),
          metric_(params.distanceMetric()),
          k_(params.k())
    {
        tkClassifierTrainParamsKNN().k(k_); // a record may hold any k, which the setter refuses
        static_cast<void>(*metric_);
    }

    std::unique_ptr<const View> view(const std::vector<long>& measurements) const override
    {
        return std::make_unique<const NeighborView>(data_, *metric_, k_, measurements);
    }

private:
    const tk_NoveltyData& data_;
    tkPtrHandle_const<tkPatternDistanceMetric> metric_;
    long k_;
};
} // namespace

std::unique_ptr<const tk_NoveltyEvidence> tk_NoveltyEvidence::make(const tk_NoveltyData& data,
                                                                   const tkClassifierTrainParams& params)
{
    if (const auto* const bayesian = dynamic_cast<const tkClassifierTrainParamsBayesian*>(&params))
        return std::make_unique<const BayesianEvidence>(data, *bayesian);
    if (const auto* const knn = dynamic_cast<const tkClassifierTrainParamsKNN*>(&params))
        return std::make_unique<const NeighborEvidence>(data, *knn);
    throw tkClassifierDefs::BadMethod(
        L"Novelty needs the parameters of Bayesian or of nearest-neighbour classification.");
}
