#include "clss/clastool/bayes/tk_CategoryModelBayesian.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "foundation/tkArchiveOperators.h"
#include "foundation/tkAssert.h"
#include "numerics/tkNMLearner.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <typeinfo>
#include <utility>

namespace
{
tk_ProbabilityDensityFunction* newDensity(tkClassifierDistributionTypes::DistributionType type,
                                          const std::vector<long>& set, const tkFeaturePattern& maxMeasurementValues)
{
    switch (type)
    {
    case tkClassifierDistributionTypes::eNormal:
        return new tk_PDFMultivariateNormal;
    case tkClassifierDistributionTypes::eBinomial:
    {
        const tkFeaturePattern maxima = tk_ProbabilityDensityFunction::restriction(maxMeasurementValues, set);
        return new tk_PDFBinomial(maxima.isValid(0) ? maxima : tkFeaturePattern({1.0}));
    }
    case tkClassifierDistributionTypes::ePoisson:
        throw tkClassifierDefs::NotImplemented(L"Poisson distribution is not implemented");
    case tkClassifierDistributionTypes::eUniform:
        throw tkClassifierDefs::NotImplemented(L"Uniform distribution is not implemented");
    }
    throw tkClassifierDefs::BadParams(L"Unknown distribution type");
}

/// a + b; the largest double of its sign where finite ones overflow, so that a finite pattern, however far it is from
/// all categories, has a finite score in each.
double sumOfLogs(double a, double b)
{
    const double sum = a + b;
    return std::isinf(sum) && std::isfinite(a) && std::isfinite(b)
               ? std::copysign(std::numeric_limits<double>::max(), sum)
               : sum;
}
} // namespace

tk_CategoryModelBayesian::tk_CategoryModelBayesian(
    long categoryLabel, const std::vector<std::vector<long>>& dependencySets,
    const std::vector<tkClassifierDistributionTypes::DistributionType>& types,
    const tkFeaturePattern& maxMeasurementValues)
    : dependencySets_(dependencySets)
{
    TK_ASSERT(dependencySets.size() == types.size());
    this->categoryLabel(categoryLabel);
    long measurements = 0;
    for (std::size_t i = 0; i < types.size(); ++i)
    {
        densities_.push_back(
            tkPtrHandle<tk_ProbabilityDensityFunction>(newDensity(types[i], dependencySets[i], maxMeasurementValues)));
        measurements += static_cast<long>(dependencySets[i].size());
    }
    numMeasurements(measurements);
    shortcuts_ = shortcutsTo_(dependencySets_, densities_);
}

tk_CategoryModelBayesian& tk_CategoryModelBayesian::operator=(tk_CategoryModelBayesian&& other)
{
    leaveProduct_();
    tk_CategoryModel::operator=(other);
    dependencySets_ = std::move(other.dependencySets_);
    densities_ = std::move(other.densities_);
    shortcuts_ = std::move(other.shortcuts_);
    place_ = std::move(other.place_);
    return *this;
}

double tk_CategoryModelBayesian::matchScore(const tkFeaturePattern& pattern, tkDiagObject*, unsigned long) const
{
    return addScores_(pattern, 0, 0.0);
}

double tk_CategoryModelBayesian::addScores_(const tkFeaturePattern& pattern, std::size_t first, double score) const
{
    try
    {
        const std::vector<double>& x = pattern.featureMeasurements(false);
        const std::size_t reach = pattern.numInvalid() == 0 ? x.size() : 0;
        for (std::size_t i = first; i < densities_.size(); ++i)
        {
            const Shortcut_& s = shortcuts_[i];
            double value = 0.0;
            if (!s.isWithin(reach) || !s.normalOrNull->logValueOfValid(&x[s.first], static_cast<long>(s.size), value))
                value = densities_[i]->logValueOfSet(pattern, dependencySets_[i]);
            score = sumOfLogs(score, value);
        }
        return score;
    }
    catch (const tkClassifierDefs::InsufficientTrainData& error)
    {
        throw tkClassifierDefs::InsufficientTrainData(error.message() + L" for category " +
                                                      std::to_wstring(categoryLabel()));
    }
}

void tk_CategoryModelBayesian::adapt(const tkFeaturePattern& pattern, tkDiagObject*, unsigned long)
{
    const std::vector<double>& x = pattern.featureMeasurements(false);
    const std::size_t reach = pattern.numInvalid() == 0 ? x.size() : 0;
    for (std::size_t i = 0; i < densities_.size(); ++i)
    {
        const Shortcut_& s = shortcuts_[i];
        if (!s.isWithin(reach) || !s.normalOrNull->updateWithValid(&x[s.first], static_cast<long>(s.size)))
            densities_[i]->updateWithSet(pattern, dependencySets_[i]);
    }
}

bool tk_CategoryModelBayesian::startLearner(tkNMLearner& learner) const
{
    const auto hasNormal = [](const Shortcut_& s) { return s.normalOrNull != nullptr; };
    if (!std::all_of(shortcuts_.begin(), shortcuts_.end(), hasNormal))
        return false;
    const auto isTrained = [](const Shortcut_& s)
    { return s.normalOrNull->normal().dimension() == static_cast<long>(s.size); };
    if (!std::all_of(shortcuts_.begin(), shortcuts_.end(), isTrained))
        return true;
    std::vector<tkNMLearner::Part> parts;
    parts.reserve(shortcuts_.size());
    for (const Shortcut_& s : shortcuts_)
        parts.push_back({&s.normalOrNull->normal(), s.first});
    return learner.start(parts);
}

std::vector<tkNMNormalProducts::Set> tk_CategoryModelBayesian::normalSets() const
{
    std::vector<tkNMNormalProducts::Set> sets;
    for (const Shortcut_& s : shortcuts_)
    {
        if (!s.normalOrNull || !s.normalOrNull->isValid() ||
            s.normalOrNull->normal().dimension() != static_cast<long>(s.size))
            break;
        sets.push_back({s.first, s.size});
    }
    return sets;
}

void tk_CategoryModelBayesian::join(const tkPtrHandle<tkNMNormalProducts>& products, std::size_t product)
{
    leaveProduct_();
    const std::size_t count = normalSets().size();
    for (std::size_t i = 0; i < count; ++i)
        shortcuts_[i].normalOrNull->normal().join(products, product, i);
    place_.products = products;
    place_.product = product;
    place_.size = count;
}

void tk_CategoryModelBayesian::leaveProduct_()
{
    for (std::size_t i = 0; i < place_.size; ++i)
        shortcuts_[i].normalOrNull->normal().leaveProducts();
    place_ = Place_();
}

bool tk_CategoryModelBayesian::operator==(const tk_CategoryModelBayesian& other) const
{
    if (!tk_CategoryModel::operator==(other) || densities_.size() != other.densities_.size())
        return false;
    for (std::size_t i = 0; i < densities_.size(); ++i)
        if (!densities_[i]->isEquivalent(*other.densities_[i]))
            return false;
    return true;
}

TK_DEFINE_FACTORY_RECORD(tk_CategoryModelBayesian, 0)

void tk_CategoryModelBayesian::serialize_(tkArchive& archive, unsigned char)
{
    tk_CategoryModel::dispatchSerialize(archive);
    const wchar_t incomplete[] = L"A stored category model has not one density for each dependency set";
    if (archive.isLoading())
    {
        leaveProduct_();
        shortcuts_.clear();
    }
    tkExchangeParallel(archive, incomplete, dependencySets_, densities_);
    if (!archive.isLoading())
        return;
    std::size_t measurements = 0;
    for (const std::vector<long>& set : dependencySets_)
        measurements += set.size();
    const bool isComplete =
        std::none_of(densities_.begin(), densities_.end(), [](const auto& d) { return d.isNull(); });
    const bool hasAll = numMeasurements() == static_cast<long>(measurements);
    if (isComplete && hasAll)
    {
        shortcuts_ = shortcutsTo_(dependencySets_, densities_);
        return;
    }
    dependencySets_.clear();
    densities_.clear();
    if (!isComplete)
        throw tkArchive::Errors(incomplete);
    throw tkArchive::Errors(L"A stored category model has another number of measurements than its dependency sets");
}

std::vector<tk_CategoryModelBayesian::Shortcut_>
tk_CategoryModelBayesian::shortcutsTo_(const std::vector<std::vector<long>>& sets,
                                       const std::vector<tkPtrHandle<tk_ProbabilityDensityFunction>>& densities)
{
    std::vector<Shortcut_> shortcuts(densities.size());
    for (std::size_t i = 0; i < densities.size(); ++i)
    {
        const std::vector<long>& set = sets[i];
        const bool isRun =
            !set.empty() && set.front() >= 0 &&
            std::adjacent_find(set.begin(), set.end(), [](long a, long b) { return b <= a || b - a > 1; }) == set.end();
        // A class derived from the normal density has a right to be asked.
        const tk_ProbabilityDensityFunction& density = *densities[i];
        if (isRun && typeid(density) == typeid(tk_PDFMultivariateNormal))
        {
            shortcuts[i].normalOrNull = static_cast<tk_PDFMultivariateNormal*>(densities[i].get());
            shortcuts[i].first = static_cast<std::size_t>(set.front());
            shortcuts[i].size = set.size();
        }
    }
    return shortcuts;
}
