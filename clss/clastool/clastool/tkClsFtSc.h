#ifndef CLSS_CLASTOOL_CLASTOOL_TKCLSFTSC_H
#define CLSS_CLASTOOL_CLASTOOL_TKCLSFTSC_H

#include "foundation/tkPtrHandle.h"

/// Membership function of one feature (Zadeh, Information and Control 8, 1965): to which degree, from 0 to 1, a value
/// is what a rule expects of the feature. The score -1.0 is reserved: it tells the rule to leave the feature out.
///
/// A host may derive its own. Functions are shared by handles: what changes one changes every rule that holds it. They
/// may score in several threads at once, but not while one is changed.
class TK_EXPORT tkClsFtSc : public tkRepBase
{
public:
    /// Degree of membership of `value`, which has the unit of the measurement; or -1.0. A rule passes on what is thrown
    /// and leaves a feature out whose score is NaN. Scores outside of [0, 1] are multiplied like others.
    virtual double score(double value) const = 0;

    /// A new copy of the same class, which later changes of this one do not reach.
    virtual tkPtrHandle<tkClsFtSc> clone() const = 0;

    /// Same class and same parameters. Rules compare their functions by it.
    virtual bool operator==(const tkClsFtSc& other) const = 0;
    bool operator!=(const tkClsFtSc& other) const { return !(*this == other); }
};

/// Closed interval of feature values that contains the support of a membership function: below `low` and above `high`
/// the function scores 0, and for no value does score() fail. Both are NaN if that is not certain.
struct tkFeatureScoreSupport
{
    double low;
    double high;
};

/// Leaves its feature out of the rule: scores every value -1.0, NaN included.
class TK_EXPORT tkClassifierFeatureScoreIgnore : public tkClsFtSc
{
public:
    /// -1.0.
    double score(double value) const override;
    tkPtrHandle<tkClsFtSc> clone() const override;
    /// Same class.
    bool operator==(const tkClsFtSc& other) const override;
};

#endif
