#include "clss/clastool/clastool/tk_ClassifierKNN.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/clastool/clastool/tkClassifierFrequencies.h"
#include "clss/clastool/clastool/tk_Messages.h"
#include "clss/clastool/clastool/tk_NeighborIndex.h"
#include "foundation/tkArchiveOperators.h"
#include "foundation/tkAssert.h"
#include "foundation/tkScratch.h"
#include "numerics/tkNMDecision.h"
#include "numerics/tkNMNeighborList.h"

#include <algorithm>
#include <cstdint>

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

// What follows turns `count` votes, one label each, into the labels without repetition, ascending, and a figure for
// each in `scores`; it returns how many there are. `labels` has room for one more, and `scores` for a group.

/// So many votes for labels so close together are counted without branches that could not be foreseen.
constexpr long fewVotes = 8;
constexpr unsigned long fewLabels = 16;
/// Labels no farther apart, as nearly all are, need no sorting.
constexpr unsigned long counted = 64;

/// The i-th label from `smallest` on; it may pass the largest long.
long labelAfter(long smallest, unsigned long i)
{
    return static_cast<long>(static_cast<unsigned long>(smallest) + i);
}

/// Shares of the votes. *Requires* count <= fewVotes, and labels below smallest + fewLabels.
std::size_t fillShares(long count, long smallest, long* labels, double* scores)
{
    double shares[fewVotes + 1]; // of votes not yet known, so that no vote waits for a division
    for (long i = 0; i <= fewVotes; ++i)
        shares[i] = static_cast<double>(i) / static_cast<double>(count);
    std::uint64_t votes = 0; // four bits a label
    for (long j = 0; j < count; ++j)
        votes += std::uint64_t{1} << 4 * (labels[j] - smallest);
    std::size_t numLabels = 0;
    for (unsigned long i = 0; i < fewLabels; ++i, votes >>= 4)
    {
        labels[numLabels] = labelAfter(smallest, i);
        scores[numLabels] = shares[votes & 15];
        numLabels += (votes & 15) != 0;
    }
    return numLabels;
}

/// Numbers of votes. *Requires* range < counted, the largest label less the smallest.
std::size_t countVotes(long count, long smallest, unsigned long range, long* labels, double* scores)
{
    constexpr unsigned long together = 16;
    const unsigned long numCounted = (range / together + 1) * together;
    long votes[counted];
    std::fill(votes, votes + numCounted, 0L);
    for (long j = 0; j < count; ++j)
        ++votes[labels[j] - smallest];
    std::size_t numLabels = 0;
    for (unsigned long i = 0; i < numCounted; ++i)
    {
        labels[numLabels] = labelAfter(smallest, i);
        scores[numLabels] = static_cast<double>(votes[i]);
        numLabels += votes[i] > 0;
    }
    return numLabels;
}

/// Numbers of votes for any labels.
std::size_t sortVotes(long count, long* labels, double* scores)
{
    std::sort(labels, labels + count);
    std::size_t numLabels = 0;
    for (long *first = labels, *const end = labels + count; first != end;)
    {
        long* const last = std::upper_bound(first, end, *first);
        labels[numLabels] = *first;
        scores[numLabels++] = static_cast<double>(last - first);
        first = last;
    }
    return numLabels;
}
} // namespace

tk_ClassifierKNN& tk_ClassifierKNN::operator=(const tk_ClassifierKNN& other)
{
    params_ = other.params_; // all that can fail
    metric_ = other.metric_;
    tk_Classifier::operator=(other);
    trainingData_ = other.trainingData_;
    return *this;
}

tkPtrHandle<tk_Classifier> tk_ClassifierKNN::clone() const
{
    return tkPtrHandle<tk_Classifier>(new tk_ClassifierKNN(*this));
}

bool tk_ClassifierKNN::isEquivalent(const tk_Classifier& other) const
{
    return typeid(*this) == typeid(other) && dynamic_cast<const tk_ClassifierKNN&>(other) == *this;
}

bool tk_ClassifierKNN::operator==(const tk_ClassifierKNN& other) const
{
    if (typeid(*this) != typeid(other) || !tk_Classifier::isEquivalent(other))
        return false;
    return !isTrained() || *trainingData_ == *other.trainingData_;
}

void tk_ClassifierKNN::train_(const tkClassifierDataProvider& data, const tkClassifierTrainParams& params)
{
    params_ = knnParams(params);
    metric_ = params_.distanceMetric();

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
    trainingData_->indexNeighbors();
}

void tk_ClassifierKNN::retrain_(const tkClassifierTrainParams& params)
{
    static_cast<void>(trainParams()); // must be there; throws if not
    params_ = knnParams(params);
    metric_ = params_.distanceMetric();
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
    if (trainingData_->patterns().empty())
        throw tkClassifierDefs::InsufficientTrainData(tk_Messages::noValidTrainData);
}

void tk_ClassifierKNN::requireQuery_(const tkFeaturePattern& pattern) const
{
    TK_ASSERT(isTrained());
    checkRunnable_();
    if (pattern.numInvalid() != 0 || pattern.numMeasurements() != trainingData_->patterns().front()->numMeasurements())
        throw tkClassifierDefs::BadFeatures(tk_Messages::knnInvalidMeasurements);
}

std::vector<tk_ClassifierKNN::Neighbor> tk_ClassifierKNN::nearestNeighbors(const tkFeaturePattern& pattern,
                                                                           long k) const
{
    TK_ASSERT(k >= 1);
    requireQuery_(pattern);
    const auto room = static_cast<std::size_t>(std::min(k, trainingData_->numPatterns()));
    tkScratch<long> indices(room);
    tkScratch<double> distances(2 * room);
    std::vector<Neighbor> neighbors(static_cast<std::size_t>(
        findNearestNeighbors_(pattern, static_cast<long>(room), false, indices.data(), distances.data())));
    for (std::size_t j = 0; j < neighbors.size(); ++j)
        neighbors[j] = {indices[j], distances[j]};
    return neighbors;
}

void tk_ClassifierKNN::run_(const tkFeaturePattern& pattern, tkClassifierResult& result) const
{
    requireQuery_(pattern);

    // More neighbours than patterns are never found, so a huge k needs no more room.
    const auto room = std::min(static_cast<std::size_t>(params_.k()), trainingData_->patterns().size());
    constexpr std::size_t usual = 128; // that many take no memory from the heap
    tkScratch<long, usual + 1> indices(room + 1);
    tkScratch<double, 2 * usual> distances(2 * room);
    tkScratch<double, usual + 8> scores(tkNMDecision::roundUp(room + 1));
    const long found = findNearestNeighbors_(pattern, static_cast<long>(room), true, indices.data(), distances.data());
    long* const labels = indices.data();
    const std::size_t numLabels = fillMatchResults_(found, labels, scores.data());
    result.decide(labels, scores.data(), numLabels, tkClassifierFrequencies(1.0), params_.misclassificationCosts(),
                  0.0);
}

long tk_ClassifierKNN::findNearestNeighbors_(const tkFeaturePattern& pattern, long k, bool asSet, long* indices,
                                             double* distances) const
{
    const tkPatternDistanceMetric& metric = *metric_;
    const std::vector<tkPtrHandle_const<tkFeaturePattern>>& patterns = trainingData_->patterns();
    const tk_NeighborIndex* const index = trainingData_->neighborIndex();
    if (index && typeid(metric) == typeid(tkPatternDistanceMetricNorm))
    {
        if (index->covers(patterns))
            return index->nearest(patterns, pattern, static_cast<const tkPatternDistanceMetricNorm&>(metric).order(), k,
                                  asSet, indices, distances);
        if (index->firstNotComparable() >= 0) // its distance throws; those before it are not needed
            static_cast<void>(
                metric.distance(pattern, *patterns[static_cast<std::size_t>(index->firstNotComparable())]));
    }

    tkNMNeighborList list(k, indices, distances);
    list.clear();
    for (std::size_t i = 0; i < patterns.size(); ++i)
        list.add(static_cast<long>(i), metric.distance(pattern, *patterns[i]));
    return list.size();
}

std::size_t tk_ClassifierKNN::fillMatchResults_(long count, long* indices, double* scores) const
{
    long* const labels = indices;
    labels[0] = trainingData_->labels()[static_cast<std::size_t>(indices[0])];
    std::fill(scores, scores + tkNMDecision::group, 0.0);
    if (count == 1)
    {
        scores[0] = 1.0;
        return 1;
    }
    long smallest = labels[0];
    long largest = labels[0];
    for (long j = 1; j < count; ++j)
    {
        labels[j] = trainingData_->labels()[static_cast<std::size_t>(indices[j])];
        smallest = std::min(smallest, labels[j]);
        largest = std::max(largest, labels[j]);
    }
    const unsigned long range = static_cast<unsigned long>(largest) - static_cast<unsigned long>(smallest);
    if (count <= fewVotes && range < fewLabels)
        return fillShares(count, smallest, labels, scores);
    const std::size_t numLabels =
        range < counted ? countVotes(count, smallest, range, labels, scores) : sortVotes(count, labels, scores);
    const std::size_t padded = tkNMDecision::roundUp(numLabels);
    std::fill(scores + numLabels, scores + padded, 0.0);
    for (std::size_t i = 0; i < padded; ++i)
        scores[i] /= static_cast<double>(count);
    return numLabels;
}

TK_DEFINE_FACTORY_RECORD(tk_ClassifierKNN, 0)

void tk_ClassifierKNN::serialize_(tkArchive& archive, unsigned char)
{
    tk_Classifier::dispatchSerialize(archive);
    archive || trainingData_;
    if (!archive.isLoading())
        return;
    params_ = tkClassifierTrainParamsKNN();
    metric_ = params_.distanceMetric();
    if (heldParams_() && !dynamic_cast<const tkClassifierTrainParamsKNN*>(heldParams_()))
    {
        untrain_();
        archive.fail(L"A nearest-neighbor classifier has parameters of another technique");
    }
    if (!trainingData_.isNull())
        trainingData_->indexNeighbors();
}
