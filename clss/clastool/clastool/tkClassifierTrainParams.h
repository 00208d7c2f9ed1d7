#ifndef CLSS_CLASTOOL_CLASTOOL_TKCLASSIFIERTRAINPARAMS_H
#define CLSS_CLASTOOL_CLASTOOL_TKCLASSIFIERTRAINPARAMS_H

#include "foundation/tkPersistent.h"
#include "foundation/tkPtrHandle.h"

class tk_Classifier;

/// Parameters of one training technique. Their class chooses the technique: it creates the classifier that
/// tkClassifierTool trains with them.
///
/// A classifier keeps a clone of the parameters it was trained with, and hands that out to be read. So they are not
/// changed after a training but replaced, by tkClassifierTool::retrain().
class TK_EXPORT tkClassifierTrainParams : public virtual tkPersistent, public virtual tkRepBase
{
public:
    /// throwIfNotReady() is true.
    tkClassifierTrainParams() = default;

    /// Whether tkClassifierTool undoes a training, and throws, when the trained classifier cannot run. True at
    /// first; copied with the parameters but not stored.
    bool throwIfNotReady() const { return throwIfNotReady_; }
    void throwIfNotReady(bool throwIfNotReady) { throwIfNotReady_ = throwIfNotReady; }

    /// A new copy of the concrete parameters, throwIfNotReady() included.
    virtual tkPtrHandle<tkClassifierTrainParams> clone() const = 0;

protected:
    tkClassifierTrainParams(const tkClassifierTrainParams&) = default;
    tkClassifierTrainParams& operator=(const tkClassifierTrainParams&) = default;

    TK_RECORD;

    /// Whether the other parameters are of the same class and value. An override asks the base first, then compares the
    /// exact classes, then its fields in the order of their declaration.
    virtual bool isEqual_(const tkClassifierTrainParams& other) const;

    /// Whether a classifier trained with the other parameters can be retrained with these: asked before a retraining,
    /// which throws tkClassifierDefs::BadMethod if not.
    virtual bool isSameTechnique_(const tkClassifierTrainParams& other) const = 0;

    /// A new, untrained classifier of the technique, owned by the caller; never null. May throw anything.
    virtual tk_Classifier* newClassifier_() const = 0;

private:
    friend class tk_Classifier;
    friend class tkClassifierTool;

    bool throwIfNotReady_ = true;
};

#endif
