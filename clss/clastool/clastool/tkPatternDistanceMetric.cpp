#include "clss/clastool/clastool/tkPatternDistanceMetric.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/clastool/clastool/tkFeaturePattern.h"
#include "foundation/tkArchive.h"
#include "numerics/tkNMNormDistance.h"

bool tkPatternDistanceMetric::isEquivalent(const tkPatternDistanceMetric&) const
{
    return true;
}

TK_DEFINE_RECORD(tkPatternDistanceMetric, 0)

void tkPatternDistanceMetric::serialize_(tkArchive& archive, unsigned char)
{
    tkPersistent::dispatchSerialize(archive);
}

tkPatternDistanceMetricNorm::tkPatternDistanceMetricNorm(double order)
{
    this->order(order);
}

void tkPatternDistanceMetricNorm::order(double order)
{
    if (!(order > 0.0))
        throw tkClassifierDefs::BadParams(L"Order of norm distance must be > 0");
    order_ = order;
}

double tkPatternDistanceMetricNorm::distance(const tkFeaturePattern& p1, const tkFeaturePattern& p2) const
{
    const long n = p1.numMeasurements();
    if (n != p2.numMeasurements())
        throw tkClassifierDefs::BadFeatures(
            // The missing blank is part of the text.
            L"Pattern distance function requires the number of measurementsin the two patterns to be equal");
    const bool requireAllValid = n > 0;
    const double* const a = p1.featureMeasurements(requireAllValid).data();
    const double* const b = p2.featureMeasurements(requireAllValid).data();
    return tkNMNormDistance(a, b, n, order_);
}

tkPtrHandle<tkPatternDistanceMetric> tkPatternDistanceMetricNorm::clone() const
{
    return tkPtrHandle<tkPatternDistanceMetric>(new tkPatternDistanceMetricNorm(*this));
}

bool tkPatternDistanceMetricNorm::isEquivalent(const tkPatternDistanceMetric& other) const
{
    if (!tkPatternDistanceMetric::isEquivalent(other) || typeid(*this) != typeid(other))
        return false;
    const auto& norm = dynamic_cast<const tkPatternDistanceMetricNorm&>(other);
    return !(order_ < norm.order_) && !(order_ > norm.order_);
}

TK_DEFINE_FACTORY_RECORD(tkPatternDistanceMetricNorm, 0)

void tkPatternDistanceMetricNorm::serialize_(tkArchive& archive, unsigned char)
{
    tkPatternDistanceMetric::dispatchSerialize(archive);
    archive || order_;
}
