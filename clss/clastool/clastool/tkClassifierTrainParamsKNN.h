#ifndef CLSS_CLASTOOL_CLASTOOL_TKCLASSIFIERTRAINPARAMSKNN_H
#define CLSS_CLASTOOL_CLASTOOL_TKCLASSIFIERTRAINPARAMSKNN_H

#include "clss/clastool/clastool/tkClassifierCosts.h"
#include "clss/clastool/clastool/tkClassifierTrainParams.h"
#include "clss/clastool/clastool/tkPatternDistanceMetric.h"

/// Parameters of k-nearest-neighbour classification: each category is scored by its share of the k stored
/// patterns nearest to the query (Fix and Hodges, 1951; Cover and Hart, IEEE Trans. Inf. Theory 13, 1967).
///
/// The measurements enter the distance as they are: bring them to comparable scales first (tkPatternScaler). A
/// classifier that was loaded from an archive runs with k = 1, the Euclidean distance and unit costs until it is
/// retrained; the parameters it was stored with stand in trainParams():
///     tool.retrain(*tool.trainParams());
class TK_EXPORT tkClassifierTrainParamsKNN : public tkClassifierTrainParams
{
public:
    /// The Euclidean distance and unit costs. Throws as k(long) does.
    tkClassifierTrainParamsKNN(long k = 1);
    /// The Euclidean distance. Throws as k(long) does.
    tkClassifierTrainParamsKNN(long k, const tkClassifierCosts& costs);
    /// Keeps a clone of `metric`. Throws as k(long) does.
    tkClassifierTrainParamsKNN(long k, const tkPatternDistanceMetric& metric, const tkClassifierCosts& costs);
    tkClassifierTrainParamsKNN(const tkClassifierTrainParamsKNN&) = default;
    /// Strong exception guarantee.
    tkClassifierTrainParamsKNN& operator=(const tkClassifierTrainParamsKNN& other);
    /// Exchanges everything, throwIfNotReady() included.
    void swap(tkClassifierTrainParamsKNN& other) noexcept;

    /// Number of neighbours; more than there are patterns means all of them. Throws
    /// tkClassifierDefs::BadParams if k < 1.
    long k() const { return k_; }
    void k(long k);

    /// The metric: shared with the caller when read, cloned when set. Copies of the parameters share it.
    tkPtrHandle_const<tkPatternDistanceMetric> distanceMetric() const { return distanceMetric_; }
    void distanceMetric(const tkPatternDistanceMetric& metric);

    /// Costs that every result is built with.
    const tkClassifierCosts& misclassificationCosts() const { return misclassificationCosts_; }
    void misclassificationCosts(const tkClassifierCosts& costs) { misclassificationCosts_ = costs; }

    /// A copy that shares the metric.
    tkPtrHandle<tkClassifierTrainParams> clone() const override;

    /// Equal k, equivalent metrics, equal costs.
    bool operator==(const tkClassifierTrainParams& other) const { return isEqual_(other); }
    bool operator!=(const tkClassifierTrainParams& other) const { return !(*this == other); }

protected:
    bool isEqual_(const tkClassifierTrainParams& other) const override;
    /// Parameters of nearest neighbours, derived ones included.
    bool isSameTechnique_(const tkClassifierTrainParams& other) const override;
    tk_Classifier* newClassifier_() const override;

private:
    TK_FACTORY_RECORD;

    long k_ = 1; // >= 1, unless loaded
    tkPtrHandle<tkPatternDistanceMetric> distanceMetric_;
    tkClassifierCosts misclassificationCosts_;
};

inline void swap(tkClassifierTrainParamsKNN& a, tkClassifierTrainParamsKNN& b) noexcept
{
    a.swap(b);
}

#endif
