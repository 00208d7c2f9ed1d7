#ifndef CLSS_CLASTOOL_BAYES_TK_CLASSIFIERBAYESIAN_H
#define CLSS_CLASTOOL_BAYES_TK_CLASSIFIERBAYESIAN_H

#include "clss/clastool/bayes/tk_CategoryModelBayesian.h"
#include "clss/clastool/clastool/tk_Classifier.h"

#include <memory>
#include <vector>

class tkClassifierTrainParamsBayesian;
class tk_BayesAccelerator;

/// The Bayesian classifier: models each category by probability densities and ranks the categories by the expected
/// cost that follows from likelihoods, frequencies and costs (Duda, Hart and Stork, Pattern Classification, 2nd
/// ed., chapters 2 and 3).
///
/// Copies share the models. Several threads may run copies, or one object; a change of a density excludes every other
/// use of the classifiers that have it.
class TK_EXPORT tk_ClassifierBayesian : public tk_Classifier
{
public:
    /// A copy that shares the models.
    tkPtrHandle<tk_Classifier> clone() const override;

    /// The models, in the order in which the categories first occurred.
    const std::vector<tkPtrHandle<tk_CategoryModel>>& categoryModels() const { return categoryModels_; }

    /// Same class, equal parameters and equal models; the list of labels is not compared.
    bool isEquivalent(const tk_Classifier& other) const override;
    bool operator==(const tk_ClassifierBayesian& other) const;
    bool operator!=(const tk_ClassifierBayesian& other) const { return !(*this == other); }

protected:
    /// Creates a category at its first pattern. What throws ends the training there and leaves what was learned.
    /// Patterns of label -1 are skipped.
    void train_(const tkClassifierDataProvider& data, const tkClassifierTrainParams& params) override;
    /// Throws tkClassifierDefs::BadParams if the distribution types differ from the present ones, then if the
    /// maximum values do. Nothing is learned anew.
    void retrain_(const tkClassifierTrainParams& params) override;
    void trainStart_(const tkClassifierTrainParams& params) override;
    /// This method cannot learn incrementally: an assertion that fails.
    void trainIncremental_(const tkFeaturePattern& pattern, long label) override;
    /// Releases the models. The list of labels stays until the next training.
    void untrain_() override;
    bool isTrained_() const override;
    /// Throws tkClassifierDefs::InsufficientTrainData without a category, then what run_() throws for a pattern
    /// of zeros.
    void checkRunnable_() const override;
    /// Log likelihoods s_i of all categories, match scores exp(s_i - s_max), then the result with factor -s_max. Throws
    /// what the models and the result throw.
    void run_(const tkFeaturePattern& pattern, tkClassifierResult& result) const override;

    /// Ends training and loading: setReferenceDeviations_(), then a new accelerator. A derived class that changes
    /// densities after a training calls it again.
    void complete_();

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

    /// Learns all patterns; the models have what was learned also where it throws.
    void learn_(const tkClassifierDataProvider& data, const tkClassifierTrainParamsBayesian& params);

    /// scores[i] = categoryModels_[i]->matchScore(pattern), in this order; throws what the models throw.
    void matchScores_(const tkFeaturePattern& pattern, double* scores) const;

    /// Sets the reference deviations of every normal density: those of its measurements over all categories.
    void setReferenceDeviations_();

    TK_FACTORY_RECORD;

    std::vector<long> categoryLabels_;
    std::vector<tkPtrHandle<tk_CategoryModel>> categoryModels_; // parallel, each a tk_CategoryModelBayesian
    std::shared_ptr<const tk_BayesAccelerator> accelerator_;    // of these models, shared by copies; null: none yet
};

#endif
