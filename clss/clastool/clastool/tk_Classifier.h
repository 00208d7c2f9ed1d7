#ifndef CLSS_CLASTOOL_CLASTOOL_TK_CLASSIFIER_H
#define CLSS_CLASTOOL_CLASTOOL_TK_CLASSIFIER_H

#include "clss/clastool/clastool/tkClassifierDataProvider.h"
#include "clss/clastool/clastool/tkClassifierResult.h"
#include "clss/clastool/clastool/tkClassifierTrainParams.h"
#include "clss/clastool/clastool/tkFeaturePattern.h"
#include "foundation/tkDiagObject.h"

/// The trained model of one method. The public operations fix the order of work, the checks of state and the
/// recording; each method supplies the steps, whose names end in an underscore.
///
/// States: untrained; trained automatically (parameters kept); trained by other means (no parameters). What
/// counts as trained is the method's isTrained_(). A step that throws leaves what it left: nothing is restored.
class TK_EXPORT tk_Classifier : public tkPersistent, public tkRepBase
{
public:
    /// Trains from `data`: untrain() if trained; recordTrainInputs_(); train_(); keeps a clone of `params`;
    /// recordTrainDetails_(), which receives `diag` itself and not its recording destination;
    /// recordTrainResults_(). Throws what the steps throw.
    void train(const tkClassifierDataProvider& data, const tkClassifierTrainParams& params,
               tkDiagObject* diag = nullptr, unsigned long flags = 0);

    /// Replaces the parameters and keeps what was learned: retrain_(), then a clone of `params`. Records nothing.
    /// Throws tkClassifierDefs::NotTrained if untrained, then tkClassifierDefs::BadMethod if there are no
    /// parameters or they are of another technique.
    void retrain(const tkClassifierTrainParams& params, tkDiagObject* diag = nullptr, unsigned long flags = 0);

    /// Begins incremental training: untrain() if trained; trainStart_(); keeps a clone of `params`.
    void trainStart(const tkClassifierTrainParams& params);

    /// Adds one pattern: trainIncremental_(). Records nothing. Throws tkClassifierDefs::NotTrained if untrained.
    void trainIncremental(const tkFeaturePattern& pattern, long label, tkDiagObject* diag = nullptr,
                          unsigned long flags = 0);

    /// If trained: untrain_() and no parameters. Otherwise nothing, also where parameters are held.
    void untrain();
    bool isTrained() const;

    /// Classifies `pattern`: recordRunInputs_(), run_(), recordRunDetails_(), recordRunResults_(). `result` is
    /// written by run_() alone. Throws tkClassifierDefs::NotTrained if untrained, then what run_() throws.
    void run(const tkFeaturePattern& pattern, tkClassifierResult& result, tkDiagObject* diag = nullptr,
             unsigned long flags = 0) const;

    /// The parameters of the last automatic training, shared. Throws tkClassifierDefs::NotTrained if untrained,
    /// then tkClassifierDefs::BadMethod if there are none.
    tkPtrHandle_const<tkClassifierTrainParams> trainParams() const;

    virtual tkPtrHandle<tk_Classifier> clone() const = 0;

    /// Both trained or both not, with equal parameters or both without; methods add the comparison of models.
    virtual bool isEquivalent(const tk_Classifier& other) const;

protected:
    tk_Classifier() = default;
    tk_Classifier(const tk_Classifier&) = default;
    tk_Classifier& operator=(const tk_Classifier&) = default;

    TK_RECORD;

    /// The parameters kept, null if none: a method refuses to load those of another technique.
    const tkClassifierTrainParams* heldParams_() const { return trainParams_.get(); }

    /// Learns from `data`; the classifier is untrained. *Requires* parameters of the method's own class.
    virtual void train_(const tkClassifierDataProvider& data, const tkClassifierTrainParams& params) = 0;
    /// Takes over new parameters of the same technique; the classifier is trained automatically.
    virtual void retrain_(const tkClassifierTrainParams& params) = 0;
    /// Prepares for trainIncremental_(); the classifier is untrained.
    virtual void trainStart_(const tkClassifierTrainParams& params) = 0;
    /// Learns one pattern; the classifier is trained.
    virtual void trainIncremental_(const tkFeaturePattern& pattern, long label) = 0;
    /// Forgets what was learned; the classifier is trained.
    virtual void untrain_() = 0;
    virtual bool isTrained_() const = 0;
    /// Throws a tkClassifierDefs::Errors if the trained classifier cannot classify.
    virtual void checkRunnable_() const = 0;
    /// Classifies; the classifier is trained. Writes `result` only on success.
    virtual void run_(const tkFeaturePattern& pattern, tkClassifierResult& result) const = 0;

private:
    friend class tkClassifierTool;

    /// Recording hooks; the object to record into may be null.
    virtual void recordTrainInputs_(tkDiagObject* diag, unsigned long flags) const = 0;
    virtual void recordTrainDetails_(tkDiagObject* diag, unsigned long flags) const = 0;
    virtual void recordTrainResults_(tkDiagObject* diag, unsigned long flags) const = 0;
    virtual void recordRunInputs_(tkDiagObject* diag, unsigned long flags, const tkFeaturePattern& pattern) const = 0;
    virtual void recordRunDetails_(tkDiagObject* diag, unsigned long flags) const = 0;
    virtual void recordRunResults_(tkDiagObject* diag, unsigned long flags, const tkFeaturePattern& pattern,
                                   const tkClassifierResult& result) const = 0;

    tkPtrHandle_const<tkClassifierTrainParams> trainParams_; // null: untrained, or trained by other means
};

#endif
