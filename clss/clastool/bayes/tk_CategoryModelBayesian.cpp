#include "clss/clastool/bayes/tk_CategoryModelBayesian.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "foundation/tkArchiveOperators.h"
#include "foundation/tkAssert.h"
#include "numerics/tkNMChangeNumber.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <typeinfo>

namespace
{
/// a + b; the largest double of its sign where finite ones overflow, so that a finite pattern, however far it is from
/// all categories, has a finite score in each.
double sumOfLogs(double a, double b)
{
    const double sum = a + b;
    return std::isinf(sum) && std::isfinite(a) && std::isfinite(b)
               ? std::copysign(std::numeric_limits<double>::max(), sum)
               : sum;
}

/// Throws tkArchive::Errors unless the sets have so many measurements.
void requireMeasurements(tkArchive& archive, long numMeasurements, const std::vector<std::vector<long>>& sets)
{
    std::size_t measurements = 0;
    for (const std::vector<long>& set : sets)
        measurements += set.size();
    if (numMeasurements != static_cast<long>(measurements))
        archive.fail(L"A stored category model has another number of measurements than its dependency sets");
}
} // namespace

tk_CategoryModelBayesian::tk_CategoryModelBayesian() = default;
tk_CategoryModelBayesian::tk_CategoryModelBayesian(const tk_CategoryModelBayesian&) = default;
tk_CategoryModelBayesian::tk_CategoryModelBayesian(tk_CategoryModelBayesian&&) noexcept = default;
tk_CategoryModelBayesian& tk_CategoryModelBayesian::operator=(tk_CategoryModelBayesian&&) noexcept = default;
tk_CategoryModelBayesian::~tk_CategoryModelBayesian() = default;

tk_CategoryModelBayesian& tk_CategoryModelBayesian::operator=(const tk_CategoryModelBayesian& other)
{
    return *this = tk_CategoryModelBayesian(other);
}

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
        densities_.push_back(tk_ProbabilityDensityFunction::create(types[i], dependencySets[i], maxMeasurementValues));
        measurements += static_cast<long>(dependencySets[i].size());
    }
    numMeasurements(measurements);
    watchDensities_();
}

double tk_CategoryModelBayesian::matchScore(const tkFeaturePattern& pattern, tkDiagObject*, unsigned long) const
{
    try
    {
        double score = 0.0;
        for (std::size_t i = 0; i < densities_.size(); ++i)
            score = sumOfLogs(score, densities_[i]->logValueOfSet(pattern, dependencySets_[i]));
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
    for (std::size_t i = 0; i < densities_.size(); ++i)
        densities_[i]->updateWithSet(pattern, dependencySets_[i]);
}

bool tk_CategoryModelBayesian::operator==(const tk_CategoryModelBayesian& other) const
{
    if (typeid(*this) != typeid(other) || !tk_CategoryModel::operator==(other) ||
        densities_.size() != other.densities_.size())
        return false;
    for (std::size_t i = 0; i < densities_.size(); ++i)
        if (!densities_[i]->isEquivalent(*other.densities_[i]))
            return false;
    return true;
}

TK_DEFINE_FACTORY_RECORD(tk_CategoryModelBayesian, 0)

void tk_CategoryModelBayesian::serialize_(tkArchive& archive, unsigned char)
{
    if (archive.isStoring())
        requireMeasurements(archive, numMeasurements(), dependencySets_);
    tk_CategoryModel::dispatchSerialize(archive);
    const wchar_t incomplete[] = L"A stored category model has not one density for each dependency set";
    if (archive.isLoading())
        changeNumber_ = tkPtrHandle<tkNMChangeNumber>();
    tkExchangeParallel(archive, incomplete, dependencySets_, densities_);
    if (!archive.isLoading())
        return;
    try
    {
        if (std::any_of(densities_.begin(), densities_.end(), [](const auto& d) { return d.isNull(); }))
            archive.fail(incomplete);
        requireMeasurements(archive, numMeasurements(), dependencySets_);
        watchDensities_();
    }
    catch (...)
    {
        dependencySets_.clear();
        densities_.clear();
        throw;
    }
}

/// Gives the normal densities a common change number. Nothing is derived from those of other classes.
void tk_CategoryModelBayesian::watchDensities_()
{
    changeNumber_ = tkPtrHandle<tkNMChangeNumber>(new tkNMChangeNumber);
    for (const tkPtrHandle<tk_ProbabilityDensityFunction>& density : densities_)
        if (auto* const normal = dynamic_cast<tk_PDFMultivariateNormal*>(density.get()))
            normal->changeNumber(changeNumber_);
}
