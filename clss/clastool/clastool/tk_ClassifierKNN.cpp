#include "clss/clastool/clastool/tk_ClassifierKNN.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/clastool/clastool/tkClassifierFrequencies.h"
#include "clss/clastool/clastool/tk_Messages.h"
#include "foundation/tkArchiveOperators.h"
#include "foundation/tkAssert.h"

#include <algorithm>
#include <limits>
#include <map>

namespace
{
/// A copy of the parameters as those of this method. A loaded k may be out of range: it fails here as in the setter.
tkClassifierTrainParamsKNN knnParams(const tkClassifierTrainParams& params)
{
    const auto* const knn = dynamic_cast<const tkClassifierTrainParamsKNN*>(&params);
    TK_ASSERT(knn != nullptr);
    tkClassifierTrainParamsKNN checked(*knn);
    checked.k(knn->k());
    return checked;
}
} // namespace

const tkPersistent::Registration tk_ClassifierKNN::registration_(typeid(tk_ClassifierKNN), &tk_ClassifierKNN::make);

tkPtrHandle<tk_Classifier> tk_ClassifierKNN::clone() const
{
    return tkPtrHandle<tk_Classifier>(new tk_ClassifierKNN(*this));
}

bool tk_ClassifierKNN::isEquivalent(const tk_Classifier& other) const
{
    const auto* const knn = dynamic_cast<const tk_ClassifierKNN*>(&other);
    return knn && *knn == *this;
}

bool tk_ClassifierKNN::operator==(const tk_ClassifierKNN& other) const
{
    if (!tk_Classifier::isEquivalent(other))
        return false;
    return !isTrained() || *trainingData_ == *other.trainingData_;
}

void tk_ClassifierKNN::train_(const tkClassifierDataProvider& data, const tkClassifierTrainParams& params)
{
    params_ = knnParams(params);

    // A provider's name, description and patterns are read through operations that are not const, although
    // reading is all they do: a provider that computes or caches what it hands out is allowed to.
    auto& provider = const_cast<tkClassifierDataProvider&>(data);
    trainingData_ = tkPtrHandle<tkClassifierDataProviderMemory>(new tkClassifierDataProviderMemory);
    trainingData_->setName(provider.name());
    trainingData_->setDescription(provider.description());

    const long numPatterns = provider.numPatterns();
    std::vector<tkPtrHandle_const<tkFeaturePattern>> patterns;
    std::vector<long> labels;
    for (long i = 0; i < numPatterns; ++i)
    {
        tkPtrHandle_const<tkFeaturePattern> pattern = provider.featurePattern(i);
        if (pattern->numInvalid() != 0)
            throw tkClassifierDefs::BadFeatures(tk_Messages::knnInvalidMeasurements);
        const long label = provider.categoryLabel(i);
        if (label == -1)
            continue;
        patterns.push_back(std::move(pattern));
        labels.push_back(label);
    }
    trainingData_->data(patterns, labels);
}

void tk_ClassifierKNN::retrain_(const tkClassifierTrainParams& params)
{
    static_cast<void>(trainParams()); // must be there; throws if not
    params_ = knnParams(params);
}

void tk_ClassifierKNN::trainStart_(const tkClassifierTrainParams&) {}

void tk_ClassifierKNN::trainIncremental_(const tkFeaturePattern& pattern, long label)
{
    trainingData_->addData(tkPtrHandle_const<tkFeaturePattern>(new tkFeaturePattern(pattern)), label);
}

void tk_ClassifierKNN::untrain_()
{
    trainingData_ = tkPtrHandle<tkClassifierDataProviderMemory>();
}

bool tk_ClassifierKNN::isTrained_() const
{
    return !trainingData_.isNull();
}

void tk_ClassifierKNN::checkRunnable_() const
{
    if (trainingData_->numPatterns() == 0)
        throw tkClassifierDefs::InsufficientTrainData(tk_Messages::noValidTrainData);
}

void tk_ClassifierKNN::run_(const tkFeaturePattern& pattern, tkClassifierResult& result) const
{
    TK_ASSERT(isTrained());
    checkRunnable_();
    if (pattern.numInvalid() != 0 || pattern.numMeasurements() != trainingData_->numMeasurements())
        throw tkClassifierDefs::BadFeatures(tk_Messages::knnInvalidMeasurements);

    std::vector<long> indices;
    std::vector<double> distances;
    std::vector<tkClassifierCategoryResult> categoryResults;
    findNearestNeighbors_(pattern, params_.k(), indices, distances);
    fillMatchResults_(indices, categoryResults);
    result = tkClassifierResult(std::move(categoryResults), tkClassifierFrequencies(1.0),
                                params_.misclassificationCosts(), 0.0);
}

void tk_ClassifierKNN::findNearestNeighbors_(const tkFeaturePattern& pattern, long k, std::vector<long>& indices,
                                             std::vector<double>& distances) const
{
    const tkPatternDistanceMetric& metric = *params_.distanceMetric();
    const long numPatterns = trainingData_->numPatterns();

    // More neighbours than patterns are never found, so a huge k needs no more room.
    const auto room = static_cast<std::size_t>(std::min(k, numPatterns));
    indices.assign(room, 0);
    distances.assign(room, std::numeric_limits<double>::infinity());

    // The comparisons are written for a NaN distance to go where they send it: it is never turned away, and
    // it enters at the front.
    std::size_t found = 0;
    for (long i = 0; i < numPatterns; ++i)
    {
        const double d = metric.distance(pattern, *trainingData_->featurePattern(i));
        if (found >= room && d >= distances[room - 1])
            continue;
        std::size_t pos = 0;
        while (d > distances[pos])
            ++pos;
        if (found < room)
            ++found;
        for (std::size_t j = found - 1; j > pos; --j)
        {
            indices[j] = indices[j - 1];
            distances[j] = distances[j - 1];
        }
        indices[pos] = i;
        distances[pos] = d;
    }
    indices.resize(found);
    distances.resize(found);
}

void tk_ClassifierKNN::fillMatchResults_(const std::vector<long>& indices,
                                         std::vector<tkClassifierCategoryResult>& results) const
{
    std::map<long, long> votes;
    for (const long index : indices)
        ++votes[trainingData_->categoryLabel(index)];
    results.clear();
    results.reserve(votes.size());
    for (const auto& [label, count] : votes)
        results.emplace_back(label, static_cast<double>(count) / static_cast<double>(indices.size()), 0.0, 0.0);
}

void tk_ClassifierKNN::dispatchSerialize(tkArchive& archive)
{
    exchangeLevel_(archive, this, &tk_ClassifierKNN::serialize_);
}

void tk_ClassifierKNN::serialize_(tkArchive& archive, unsigned char version)
{
    tkArchive::requireVersion0(version);
    tk_Classifier::dispatchSerialize(archive);
    archive || trainingData_;
    if (!archive.isLoading())
        return;
    params_ = tkClassifierTrainParamsKNN();
    if (heldParams_() && !dynamic_cast<const tkClassifierTrainParamsKNN*>(heldParams_()))
        throw tkArchive::Errors(L"A nearest-neighbor classifier has parameters of another technique");
}

tkPersistent* tk_ClassifierKNN::make()
{
    return new tk_ClassifierKNN;
}
