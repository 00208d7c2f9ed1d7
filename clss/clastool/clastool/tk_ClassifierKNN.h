#ifndef CLSS_CLASTOOL_CLASTOOL_TK_CLASSIFIERKNN_H
#define CLSS_CLASTOOL_CLASTOOL_TK_CLASSIFIERKNN_H

#include "clss/clastool/clastool/tkClassifierTrainParamsKNN.h"
#include "clss/clastool/clastool/tk_Classifier.h"

#include <vector>

/// The k-nearest-neighbour classifier: keeps the training patterns and lets those nearest to a pattern vote.
///
/// Copies share the stored data: a pattern that one of them learns incrementally serves all, while a new
/// training of one leaves the others alone. The stored data hold the patterns by handle, as the provider
/// gave them. *Requires* that nobody assigns to a stored pattern: its index would keep the old values. A classifier
/// loaded from an archive runs with default parameters until it is retrained.
class TK_EXPORT tk_ClassifierKNN : public tk_Classifier
{
public:
    tk_ClassifierKNN() = default;
    tk_ClassifierKNN(const tk_ClassifierKNN&) = default;
    /// Strong exception guarantee.
    tk_ClassifierKNN& operator=(const tk_ClassifierKNN& other);

    tkPtrHandle<tk_Classifier> clone() const override;

    /// The same class, equal parameters and equal stored data; what was last trained or retrained with is in the
    /// parameters.
    bool isEquivalent(const tk_Classifier& other) const override;
    bool operator==(const tk_ClassifierKNN& other) const;
    bool operator!=(const tk_ClassifierKNN& other) const { return !(*this == other); }

    /// A stored pattern, by its number in the order of learning, and how far it is.
    struct Neighbor
    {
        long index;
        double distance;
    };
    /// The k patterns nearest to `pattern`, which vote for it with that k, nearest first; all if there are fewer.
    /// Throws as run_() does before it asks the metric, then what the metric throws. *Requires* k >= 1 and a trained
    /// classifier.
    std::vector<Neighbor> nearestNeighbors(const tkFeaturePattern& pattern, long k) const;

protected:
    /// Throws tkClassifierDefs::BadFeatures at the first pattern with an invalid measurement. Patterns of label
    /// -1 are skipped.
    void train_(const tkClassifierDataProvider& data, const tkClassifierTrainParams& params) override;
    void retrain_(const tkClassifierTrainParams& params) override;
    /// Creates no stored data: the classifier stays untrained.
    void trainStart_(const tkClassifierTrainParams& params) override;
    /// Unlike train_(), takes patterns with invalid measurements and of label -1 as they are.
    void trainIncremental_(const tkFeaturePattern& pattern, long label) override;
    void untrain_() override;
    bool isTrained_() const override;
    /// Throws tkClassifierDefs::InsufficientTrainData if no pattern is stored.
    void checkRunnable_() const override;
    /// Throws as checkRunnable_(), then tkClassifierDefs::BadFeatures for a pattern with an invalid measurement or
    /// of another length than the stored ones, then what the metric and the result throw.
    void run_(const tkFeaturePattern& pattern, tkClassifierResult& result) const override;

private:
    void recordTrainInputs_(tkDiagObject*, unsigned long) const override {}
    void recordTrainDetails_(tkDiagObject*, unsigned long) const override {}
    void recordTrainResults_(tkDiagObject*, unsigned long) const override {}
    void recordRunInputs_(tkDiagObject*, unsigned long, const tkFeaturePattern&) const override {}
    void recordRunDetails_(tkDiagObject*, unsigned long) const override {}
    void recordRunResults_(tkDiagObject*, unsigned long, const tkFeaturePattern&,
                           const tkClassifierResult&) const override
    {
    }

    /// Throws as run_() does before it asks the metric. *Requires* a trained classifier.
    void requireQuery_(const tkFeaturePattern& pattern) const;

    /// Indices and distances of the k stored patterns nearest to `pattern`, nearest first; returns their number,
    /// m = min(k, number of patterns). There is room for m indices and 2 m distances. With `asSet` the indices are in
    /// any order, and the distances working memory.
    ///
    /// The stored patterns are taken in order into a list kept sorted by distance. A pattern enters ahead of
    /// those at the same distance, but does not displace the last of a full list at the same distance. For the norm
    /// distance itself the same comes from an index; any other metric is called once for every pattern.
    long findNearestNeighbors_(const tkFeaturePattern& pattern, long k, bool asSet, long* indices,
                               double* distances) const;

    /// Replaces the first of `count` >= 1 indices by the labels of these patterns, ascending, each once, and fills
    /// their scores, which are their shares of the votes; returns their number. There is room for count + 1 labels, and
    /// for tkNMDecision::roundUp(count + 1) scores.
    std::size_t fillMatchResults_(long count, long* indices, double* scores) const;

    TK_FACTORY_RECORD;

    tkPtrHandle<tkClassifierDataProviderMemory> trainingData_; // null: untrained
    tkClassifierTrainParamsKNN params_;                        // of the last training or retraining; not stored
    tkPtrHandle_const<tkPatternDistanceMetric> metric_ = params_.distanceMetric(); // a run copies no handle
};

#endif
