#include "clss/model/tk_LeaveOneOut.h"

#include "clss/clastool/bayes/tkClassifierTrainParamsBayesian.h"
#include "clss/clastool/bayes/tk_BayesAccelerator.h"
#include "clss/clastool/bayes/tk_CategoryModelBayesian.h"
#include "clss/clastool/bayes/tk_ClassifierBayesian.h"
#include "clss/clastool/clastool/tkClassifierTool.h"
#include "clss/clastool/clastool/tkClassifierTrainParamsKNN.h"
#include "clss/clastool/clastool/tk_ClassifierKNN.h"
#include "foundation/tkScratch.h"
#include "numerics/kernels/tkNMElementaryKernel.h"
#include "numerics/tkNMBestInstructions.h"
#include "numerics/tkNMDecision.h"
#include "numerics/tkNMElementary.h"
#include "numerics/tkNMFactorisation.h"
#include "numerics/tkNMNeighborList.h"
#include "numerics/tkNMNormal.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <memory>
#include <typeinfo>
#include <utility>

namespace
{
tkClassifierDataProviderMemory providerWithout(const tk_LabelledPatterns& data, std::size_t leftOut)
{
    tkClassifierDataProviderMemory provider;
    for (std::size_t i = 0; i < data.patterns.size(); ++i)
        if (i != leftOut)
            provider.addData(data.patterns[i], data.labels[i]);
    return provider;
}

constexpr std::size_t none = static_cast<std::size_t>(-1);

tkClassifierResult judgeAnew(const tk_LabelledPatterns& data, const tkClassifierTrainParams& params, std::size_t i)
{
    tkClassifierTool tool;
    tool.train(providerWithout(data, i), params);
    return tool.run(*data.patterns[i]);
}

/// Whether the log density has a term for it: what is the same for all patterns has none.
bool hasTerm(const tkNMCovarianceFactor::Measurement& measurement)
{
    return measurement.role != tkNMCovarianceFactor::eSameEverywhere;
}

/// Whether R - limit I has a Cholesky factor, so that no eigenvalue of the correlation matrix R is less than `limit`.
template <class Correlation>
bool areEigenvaluesAbove(double limit, std::size_t d, const Correlation& r)
{
    std::vector<std::vector<double>> factor(d, std::vector<double>(d));
    for (std::size_t i = 0; i < d; ++i)
        for (std::size_t j = 0; j <= i; ++j)
        {
            double rest = i == j ? 1.0 - limit : r(i, j);
            for (std::size_t k = 0; k < j; ++k)
                rest -= factor[i][k] * factor[j][k];
            if (i == j && !(rest > 0.0))
                return false;
            factor[i][j] = i == j ? std::sqrt(rest) : rest / factor[j][j];
        }
    return true;
}

/// Whether the covariance is far from being repaired, also when one pattern that makes up at most 3/4 of any variance
/// is left out, and well enough conditioned for distances up to `largestDistance` to be right to 1e-10.
bool isFarFromRepair(const tkNMNormal& normal)
{
    if (normal.count() < normal.dimension() + 3)
        return false;
    const auto& measurements = normal.factorisation().covariance.measurements;
    const tkNMMatrix covariance = normal.covariance();
    std::vector<long> places;
    for (std::size_t j = 0; j < measurements.size(); ++j)
        if (hasTerm(measurements[j]))
            places.push_back(static_cast<long>(j));
        else if (covariance(static_cast<long>(j), static_cast<long>(j)) > 0.0) // varies by rounding
            return false;
    const std::size_t d = places.size();
    const auto c = [&](std::size_t i, std::size_t j) { return covariance(places[i], places[j]); };
    for (std::size_t j = 0; j < d; ++j)
    {
        const double deviation = std::sqrt(c(j, j));
        if (!(deviation > 0x1p-450 && deviation < 0x1p450 && deviation > 0x1p-40 * std::abs(normal.mean(places[j]))))
            return false;
    }
    return areEigenvaluesAbove(
        0x1p-12, d, [&](std::size_t i, std::size_t j) { return c(i, j) / std::sqrt(c(i, i)) / std::sqrt(c(j, j)); });
}

/// Whether a measurement is constant in the category, but not in all: its deviation then depends on the patterns of all
/// categories.
bool hasConstants(const tk_CategoryModelBayesian& model)
{
    for (const tkPtrHandle<tk_ProbabilityDensityFunction>& density : model.densities())
    {
        const auto* const normal = dynamic_cast<const tk_PDFMultivariateNormal*>(density.get());
        if (!normal || !normal->isValid())
            continue;
        for (const auto& measurement : normal->normal().factorisation().covariance.measurements)
            if (measurement.role == tkNMCovarianceFactor::eConstant)
                return true;
    }
    return false;
}

/// The measurements of the set if a normal density would learn them; empty if it would skip the pattern.
std::vector<double> learnedMeasurements(const tkFeaturePattern& pattern, const std::vector<long>& set)
{
    std::vector<double> measurements;
    for (const long j : set)
    {
        const double x = pattern.featureMeasurement(j, false);
        if (!pattern.isValid(j) || !std::isfinite(x))
            return {};
        measurements.push_back(x);
    }
    return measurements;
}

/// The largest squared distance for the closed form, whose error grows with it.
constexpr double largestDistance = 64.0;

/// Adds the log density of x to `sum` as it is when x, one of the patterns learned, is left out. False if that is not
/// sure enough.
bool addLeftOut(const tkNMNormal& normal, const double* x, double& sum)
{
    const double n = static_cast<double>(normal.count());
    const auto& measurements = normal.factorisation().covariance.measurements;
    const auto d = static_cast<double>(std::count_if(measurements.begin(), measurements.end(), hasTerm));
    const double q = normal.factorisation().squaredDistance(x);
    const double rest = 1.0 - n / ((n - 1.0) * (n - 1.0)) * q;
    if (!(rest >= 0.25 && q <= largestDistance))
        return false;
    const double a = (n - 1.0) / (n - 2.0);
    const double shift = n / (n - 1.0);
    sum += normal.factorisation().logPeak -
           0.5 * (d * tkNMElementary::log(a) + tkNMElementary::log(rest) + shift * shift * q / (a * rest));
    return true;
}

/// A Bayesian classifier of all patterns, and what it would say without one of them.
class BayesianLeaveOneOut
{
public:
    BayesianLeaveOneOut(const tk_LabelledPatterns& data, const tkClassifierTrainParamsBayesian& params)
        : data_(data),
          params_(params)
    {
        classifier_.train(providerWithout(data, none), params);
        for (const tkPtrHandle<tk_CategoryModel>& handle : classifier_.categoryModels())
        {
            const auto& model = static_cast<const tk_CategoryModelBayesian&>(*handle);
            labels_.push_back(model.categoryLabel());
            areFarFromRepair_.push_back(isFarFromRepair_(model));
            hasConstants_ = hasConstants_ || hasConstants(model);
        }
        accelerator_ = std::make_unique<const tk_BayesAccelerator>(classifier_.categoryModels());
    }

    tkClassifierResult judge(std::size_t i) const
    {
        const std::size_t n = labels_.size();
        const auto own =
            static_cast<std::size_t>(std::find(labels_.begin(), labels_.end(), data_.labels[i]) - labels_.begin());
        tkScratch<double> scores(tkNMDecision::roundUp(n)); // decide() reads whole groups
        if (hasConstants_ || !areFarFromRepair_[own] || !fillLogLikelihoods_(i, own, scores.data()))
            return judgeAnew(data_, params_, i);
        const double best = *std::max_element(scores.begin(), scores.begin() + n);
        for (std::size_t m = 0; m < n; ++m)
            scores[m] -= best;
        tkNMElementaryKernel::exp(scores.data(), scores.data(), n, tkNMBestInstructions());
        std::fill(scores.begin() + n, scores.end(), 0.0);
        tkClassifierResult result;
        result.decide(labels_.data(), scores.data(), n, params_.categoryFrequencies(), params_.misclassificationCosts(),
                      0.0 - best);
        return result;
    }

private:
    static bool isFarFromRepair_(const tk_CategoryModelBayesian& model)
    {
        for (std::size_t s = 0; s < model.densities().size(); ++s)
        {
            const tk_ProbabilityDensityFunction& density = *model.densities()[s];
            if (typeid(density) != typeid(tk_PDFMultivariateNormal))
                return false;
            const tkNMNormal& normal = static_cast<const tk_PDFMultivariateNormal&>(density).normal();
            if (normal.dimension() != static_cast<long>(model.dependencySets()[s].size()) || !isFarFromRepair(normal))
                return false;
        }
        return true;
    }

    /// False if it is not sure that they are those of a classifier trained without pattern i of model `own`.
    bool fillLogLikelihoods_(std::size_t i, std::size_t own, double* logLikelihoods) const
    {
        const auto& models = classifier_.categoryModels();
        const tkFeaturePattern& pattern = *data_.patterns[i];
        accelerator_->matchScores(models, pattern, logLikelihoods);
        const auto& model = static_cast<const tk_CategoryModelBayesian&>(*models[own]);
        double sum = 0.0;
        for (std::size_t s = 0; s < model.densities().size(); ++s)
        {
            const std::vector<long>& set = model.dependencySets()[s];
            const tk_ProbabilityDensityFunction& density = *model.densities()[s];
            const std::vector<double> x = learnedMeasurements(pattern, set);
            if (x.empty())
                sum += density.logValueOfSet(pattern, set);
            else if (!addLeftOut(static_cast<const tk_PDFMultivariateNormal&>(density).normal(), x.data(), sum))
                return false;
        }
        logLikelihoods[own] = sum;
        return std::all_of(logLikelihoods, logLikelihoods + models.size(),
                           [](double each) { return std::isfinite(each); });
    }

    const tk_LabelledPatterns& data_;
    const tkClassifierTrainParamsBayesian& params_;
    tk_ClassifierBayesian classifier_;
    std::unique_ptr<const tk_BayesAccelerator> accelerator_; // of its models
    std::vector<long> labels_;                               // of its models
    std::vector<bool> areFarFromRepair_;                     // parallel
    bool hasConstants_ = false;
};

bool isFinite(const tkFeaturePattern& pattern)
{
    const std::vector<double>& x = pattern.featureMeasurements(false);
    return pattern.numInvalid() == 0 &&
           std::all_of(x.begin(), x.end(), [](double each) { return std::isfinite(each); });
}

/// A nearest-neighbour classifier of all patterns, and what it would say without one of them.
class NeighborLeaveOneOut
{
public:
    NeighborLeaveOneOut(const tk_LabelledPatterns& data, const tkClassifierTrainParamsKNN& params)
        : data_(data),
          params_(params),
          k_(static_cast<std::size_t>(std::min(params.k(), static_cast<long>(data.patterns.size()) - 1)))
    {
        classifier_.train(providerWithout(data, none), params);
    }

    tkClassifierResult judge(std::size_t i) const
    {
        // Of patterns at the k-th distance the list by definition has those that the order of all leaves in it. It is
        // unique if the next pattern is farther.
        std::vector<tk_ClassifierKNN::Neighbor> others =
            classifier_.nearestNeighbors(*data_.patterns[i], static_cast<long>(k_) + 2);
        const auto self =
            std::find_if(others.begin(), others.end(),
                         [&](const tk_ClassifierKNN::Neighbor& each) { return each.index == static_cast<long>(i); });
        others.erase(self != others.end() ? self : others.end() - 1);
        const bool isUnique = others.size() == k_ || others[k_ - 1].distance < others[k_].distance;
        std::vector<long> neighbors = isUnique ? std::vector<long>() : byDefinition_(i);
        for (std::size_t j = 0; isUnique && j < k_; ++j)
            neighbors.push_back(others[j].index);
        std::map<long, long> votes;
        for (const long neighbor : neighbors)
            ++votes[data_.labels[static_cast<std::size_t>(neighbor)]];
        std::vector<tkClassifierCategoryResult> scores;
        scores.reserve(votes.size());
        for (const auto& [label, count] : votes)
            scores.emplace_back(label, static_cast<double>(count) / static_cast<double>(k_));
        return tkClassifierResult(std::move(scores), tkClassifierFrequencies(1.0), params_.misclassificationCosts(),
                                  0.0);
    }

private:
    std::vector<long> byDefinition_(std::size_t leftOut) const
    {
        const tkPtrHandle_const<tkPatternDistanceMetric> metric = params_.distanceMetric();
        std::vector<long> indices(k_);
        std::vector<double> distances(2 * k_);
        tkNMNeighborList list(static_cast<long>(k_), indices.data(), distances.data());
        list.clear();
        for (std::size_t p = 0; p < data_.patterns.size(); ++p)
            if (p != leftOut)
                list.add(static_cast<long>(p), metric->distance(*data_.patterns[leftOut], *data_.patterns[p]));
        return indices;
    }

    const tk_LabelledPatterns& data_;
    const tkClassifierTrainParamsKNN& params_;
    std::size_t k_;
    tk_ClassifierKNN classifier_;
};
} // namespace

tk_LeftOutJudge tk_leaveOneOut(const tk_LabelledPatterns& data, const tkClassifierTrainParams& params)
{
    if (data.patterns.size() < 2)
        return {};
    if (typeid(params) == typeid(tkClassifierTrainParamsBayesian))
    {
        const auto judge = std::make_shared<const BayesianLeaveOneOut>(
            data, dynamic_cast<const tkClassifierTrainParamsBayesian&>(params));
        return [judge](std::size_t i) { return judge->judge(i); };
    }
    if (typeid(params) != typeid(tkClassifierTrainParamsKNN))
        return {};
    const auto& knn = dynamic_cast<const tkClassifierTrainParamsKNN&>(params);
    const tkPtrHandle_const<tkPatternDistanceMetric> kept = knn.distanceMetric();
    const tkPatternDistanceMetric& metric = *kept;
    if (typeid(metric) != typeid(tkPatternDistanceMetricNorm) ||
        !std::all_of(data.patterns.begin(), data.patterns.end(),
                     [](const auto& pattern) { return isFinite(*pattern); }))
        return {};
    const auto judge = std::make_shared<const NeighborLeaveOneOut>(data, knn);
    return [judge](std::size_t i) { return judge->judge(i); };
}
