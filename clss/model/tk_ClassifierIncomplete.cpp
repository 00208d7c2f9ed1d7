#include "clss/model/tk_ClassifierIncomplete.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/model/tkIncompleteTraining.h"
#include "clss/model/tk_IncompleteStatistics.h"
#include "clss/model/tk_LabelledPatterns.h"
#include "foundation/tkArchiveErrors.h"
#include "foundation/tkAssert.h"
#include "numerics/tkNMNormal.h"

#include <cmath>
#include <limits>
#include <utility>

namespace
{
/// The measurement if it is valid and finite, otherwise NaN. Throws tkFailure for one that no normal density learns.
double learned(const tkFeaturePattern& pattern, long index)
{
    const double x = pattern.featureMeasurement(index, false);
    if (!pattern.isValid(index) || !std::isfinite(x))
        return std::numeric_limits<double>::quiet_NaN();
    if (std::abs(x) > tkNMNormal::largestMagnitude())
        throw tkFailure(L"A measurement is too large for a normal distribution");
    return x;
}

/// Mean and variance of a measurement over all patterns; 0.0 where none has it.
tk_Moments momentsOf(const tk_LabelledPatterns& data, long index)
{
    tkNMStatistics statistics(1);
    for (const tkPtrHandle_const<tkFeaturePattern>& pattern : data.patterns)
    {
        const double x = learned(*pattern, index);
        if (!std::isnan(x))
            statistics.add(&x);
    }
    const double degrees = static_cast<double>(statistics.count) - 1.0;
    return {statistics.mean[0], degrees > 0.0 ? statistics.crossProducts(0, 0) / degrees : 0.0};
}

/// What the patterns of a category have of a set; those that have nothing are left out.
std::vector<std::vector<double>> rowsOf(const tk_LabelledPatterns& data, long label, const std::vector<long>& set)
{
    std::vector<std::vector<double>> rows;
    for (std::size_t i = 0; i < data.patterns.size(); ++i)
    {
        if (data.labels[i] != label)
            continue;
        std::vector<double> row;
        bool isEmpty = true;
        for (const long j : set)
        {
            row.push_back(learned(*data.patterns[i], j));
            isEmpty = isEmpty && std::isnan(row.back());
        }
        if (!isEmpty)
            rows.push_back(std::move(row));
    }
    return rows;
}
} // namespace

tkPtrHandle<tk_Classifier> tk_ClassifierIncomplete::clone() const
{
    return tkPtrHandle<tk_Classifier>(new tk_ClassifierIncomplete(*this));
}

void tk_ClassifierIncomplete::train_(const tkClassifierDataProvider& data, const tkClassifierTrainParams& params)
{
    const auto* const incomplete = dynamic_cast<const tkIncompleteTraining*>(&params);
    TK_ASSERT(incomplete != nullptr);
    const tk_LabelledPatterns labelled(data);
    tkIncompleteTraining(*incomplete).maxSteps(incomplete->maxSteps()); // a loaded one may be out of range
    tk_ClassifierBayesian::train_(data, params);

    long total = 0;
    for (const tkPtrHandle<tk_CategoryModel>& model : categoryModels())
        total += static_cast<long>(dynamic_cast<const tk_CategoryModelBayesian&>(*model).densities().size());
    long done = 0;
    for (const tkPtrHandle<tk_CategoryModel>& handle : categoryModels())
    {
        const auto& model = dynamic_cast<const tk_CategoryModelBayesian&>(*handle);
        for (std::size_t s = 0; s < model.densities().size(); ++s)
        {
            const std::vector<long>& set = model.dependencySets()[s];
            auto* const density = dynamic_cast<tk_PDFMultivariateNormal*>(model.densities()[s].get());
            const std::vector<std::vector<double>> rows = rowsOf(labelled, model.categoryLabel(), set);
            if (density && density->normal().count() < static_cast<long>(rows.size())) // some were skipped
            {
                std::vector<tk_Moments> ofSet;
                ofSet.reserve(set.size());
                for (const long j : set)
                    ofSet.push_back(momentsOf(labelled, j));
                tkNMStatistics statistics = tk_incompleteStatistics(rows, ofSet, incomplete->maxSteps());
                density->swapStatistics(statistics);
            }
            ++done;
            if (incomplete->progress())
                incomplete->progress()(done, total);
        }
    }
    complete_();
}

void tk_ClassifierIncomplete::retrain_(const tkClassifierTrainParams& params)
{
    const auto* const incomplete = dynamic_cast<const tkIncompleteTraining*>(&params);
    const tkPtrHandle_const<tkClassifierTrainParams> kept = trainParams();
    const auto* const current = dynamic_cast<const tkIncompleteTraining*>(kept.get());
    if (!incomplete || !current || incomplete->maxSteps() != current->maxSteps())
        throw tkClassifierDefs::BadParams(L"Cannot retrain a Bayesian classifier with another learning of gaps.");
    tk_ClassifierBayesian::retrain_(params);
}

TK_DEFINE_FACTORY_RECORD(tk_ClassifierIncomplete, 0)

void tk_ClassifierIncomplete::serialize_(tkArchive& archive, unsigned char)
{
    tk_ClassifierBayesian::dispatchSerialize(archive);
}
