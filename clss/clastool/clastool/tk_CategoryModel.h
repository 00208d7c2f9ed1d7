#ifndef CLSS_CLASTOOL_CLASTOOL_TK_CATEGORYMODEL_H
#define CLSS_CLASTOOL_CLASTOOL_TK_CATEGORYMODEL_H

#include "foundation/tkDiagObject.h"
#include "foundation/tkPersistent.h"
#include "foundation/tkRepBase.h"

class tkFeaturePattern;

/// The model of one category in a method that models each by itself.
class TK_EXPORT tk_CategoryModel : public tkPersistent, public tkRepBase
{
public:
    /// The category; 0 at first. Not checked.
    long categoryLabel() const { return categoryLabel_; }
    void categoryLabel(long label) { categoryLabel_ = label; }

    /// Number of measurements that the model looks at; 0 at first. Not checked.
    long numMeasurements() const { return numMeasurements_; }
    void numMeasurements(long measurements) { numMeasurements_ = measurements; }

    /// How well the pattern fits the category, on a scale of the method's.
    virtual double matchScore(const tkFeaturePattern& pattern, tkDiagObject* diag = nullptr,
                              unsigned long flags = 0) const = 0;

    /// Learns from one pattern of the category.
    virtual void adapt(const tkFeaturePattern& pattern, tkDiagObject* diag = nullptr, unsigned long flags = 0) = 0;

    /// Equal label and number of measurements.
    bool operator==(const tk_CategoryModel& other) const;
    bool operator!=(const tk_CategoryModel& other) const { return !(*this == other); }

protected:
    tk_CategoryModel() = default;
    tk_CategoryModel(const tk_CategoryModel&) = default;
    tk_CategoryModel& operator=(const tk_CategoryModel&) = default;

    TK_RECORD;

private:
    long categoryLabel_ = 0;
    long numMeasurements_ = 0;
};

#endif
