#include "clss/clastool/clastool/tkClassifierTrainParamsKNN.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/clastool/clastool/tk_ClassifierKNN.h"
#include "foundation/tkArchiveOperators.h"

#include <utility>

tkClassifierTrainParamsKNN::tkClassifierTrainParamsKNN(long k) : tkClassifierTrainParamsKNN(k, tkClassifierCosts(1.0))
{
}

tkClassifierTrainParamsKNN::tkClassifierTrainParamsKNN(long k, const tkClassifierCosts& costs)
    : tkClassifierTrainParamsKNN(k, tkPatternDistanceMetricNorm(2.0), costs)
{
}

tkClassifierTrainParamsKNN::tkClassifierTrainParamsKNN(long k, const tkPatternDistanceMetric& metric,
                                                       const tkClassifierCosts& costs)
    : misclassificationCosts_(costs)
{
    this->k(k);
    distanceMetric(metric);
}

tkClassifierTrainParamsKNN& tkClassifierTrainParamsKNN::operator=(const tkClassifierTrainParamsKNN& other)
{
    misclassificationCosts_ = other.misclassificationCosts_; // all that can fail
    tkClassifierTrainParams::operator=(other);
    k_ = other.k_;
    distanceMetric_ = other.distanceMetric_;
    return *this;
}

void tkClassifierTrainParamsKNN::swap(tkClassifierTrainParamsKNN& other) noexcept
{
    const bool throws = throwIfNotReady();
    throwIfNotReady(other.throwIfNotReady());
    other.throwIfNotReady(throws);
    std::swap(k_, other.k_);
    distanceMetric_.swap(other.distanceMetric_);
    std::swap(misclassificationCosts_, other.misclassificationCosts_);
}

void tkClassifierTrainParamsKNN::k(long k)
{
    if (k < 1)
        throw tkClassifierDefs::BadParams(L"K must be >= 1");
    k_ = k;
}

void tkClassifierTrainParamsKNN::distanceMetric(const tkPatternDistanceMetric& metric)
{
    distanceMetric_ = metric.clone();
}

tkPtrHandle<tkClassifierTrainParams> tkClassifierTrainParamsKNN::clone() const
{
    return tkPtrHandle<tkClassifierTrainParams>(new tkClassifierTrainParamsKNN(*this));
}

bool tkClassifierTrainParamsKNN::isEqual_(const tkClassifierTrainParams& other) const
{
    if (!tkClassifierTrainParams::isEqual_(other) || typeid(*this) != typeid(other))
        return false;
    const auto& knn = dynamic_cast<const tkClassifierTrainParamsKNN&>(other);
    return k_ == knn.k_ && distanceMetric_->isEquivalent(*knn.distanceMetric_) &&
           misclassificationCosts_ == knn.misclassificationCosts_;
}

bool tkClassifierTrainParamsKNN::isSameTechnique_(const tkClassifierTrainParams& other) const
{
    return dynamic_cast<const tkClassifierTrainParamsKNN*>(&other) != nullptr;
}

tk_Classifier* tkClassifierTrainParamsKNN::newClassifier_() const
{
    return new tk_ClassifierKNN;
}

TK_DEFINE_FACTORY_RECORD(tkClassifierTrainParamsKNN, 0)

void tkClassifierTrainParamsKNN::serialize_(tkArchive& archive, unsigned char)
{
    tkClassifierTrainParams::dispatchSerialize(archive);
    archive || k_;
    archive || distanceMetric_;
    archive || misclassificationCosts_;
}
