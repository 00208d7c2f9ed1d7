#ifndef CLSS_CLASTOOL_CLASTOOL_TK_CATEGORYMODEL_H
#define CLSS_CLASTOOL_CLASTOOL_TK_CATEGORYMODEL_H

#include "foundation/tkDiagObject.h"
#include "foundation/tkPersistent.h"
#include "foundation/tkRepBase.h"

class tkFeaturePattern;

/// The model of one category in a method that models each category by itself, as the Bayesian one does.
///
/// It belongs to the classifier that trained it, and to its copies: copies of a classifier share their models. It may
/// score in many threads at once, but learn in none meanwhile.
class TK_EXPORT tk_CategoryModel : public tkPersistent, public tkRepBase
{
public:
    /// The category; 0 at first. Not checked.
    long categoryLabel() const { return categoryLabel_; }
    void categoryLabel(long label) { categoryLabel_ = label; }

    /// Number of measurements that the model looks at; 0 at first. Not checked.
    long numMeasurements() const { return numMeasurements_; }
    void numMeasurements(long measurements) { numMeasurements_ = measurements; }

    /// How well the pattern fits the category, on a scale of the method's: the Bayesian one gives a log likelihood.
    /// Throws where the model cannot score the pattern. Must be safe to call from several threads at once. `diag` and
    /// `flags`: see tkDiagObject.
    virtual double matchScore(const tkFeaturePattern& pattern, tkDiagObject* diag = nullptr,
                              unsigned long flags = 0) const = 0;

    /// Learns from one pattern of the category, on top of what it has learned. A model says itself which patterns it
    /// skips and what it throws for others, and whether it has learned something when it throws.
    virtual void adapt(const tkFeaturePattern& pattern, tkDiagObject* diag = nullptr, unsigned long flags = 0) = 0;

    /// Equal label and number of measurements; derived classes add what they have learned. Not virtual: compares what
    /// the static class knows.
    bool operator==(const tk_CategoryModel& other) const;
    bool operator!=(const tk_CategoryModel& other) const { return !(*this == other); }

protected:
    /// Copies have the label and the number; whether they share what was learned, the derived class says.
    tk_CategoryModel() = default;
    tk_CategoryModel(const tk_CategoryModel&) = default;
    tk_CategoryModel& operator=(const tk_CategoryModel&) = default;

    /// The label, then the number of measurements. Loading checks neither.
    TK_RECORD;

private:
    long categoryLabel_ = 0; // any value, as the number below
    long numMeasurements_ = 0;
};

#endif
