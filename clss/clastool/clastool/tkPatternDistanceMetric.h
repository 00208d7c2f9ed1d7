#ifndef CLSS_CLASTOOL_CLASTOOL_TKPATTERNDISTANCEMETRIC_H
#define CLSS_CLASTOOL_CLASTOOL_TKPATTERNDISTANCEMETRIC_H

#include "foundation/tkPersistent.h"
#include "foundation/tkPtrHandle.h"

class tkFeaturePattern;

/// How far apart two feature patterns are. A host may derive its own.
///
/// Nearest-neighbour classification calls a metric of the host's once for every stored pattern, in storage order, with
/// the query first; only the norm distance itself has an index. It needs no triangle inequality.
class TK_EXPORT tkPatternDistanceMetric : public virtual tkPersistent, public virtual tkRepBase
{
public:
    tkPatternDistanceMetric() = default;

    /// Distance of the two patterns, smaller for nearer ones. A NaN passes for nearer than any: nothing is further than
    /// it. Must be safe to call from several threads at once. What it throws passes through run().
    virtual double distance(const tkFeaturePattern& p1, const tkFeaturePattern& p2) const = 0;

    /// A new deep copy: parameters keep clones, which later changes of this object do not reach.
    virtual tkPtrHandle<tkPatternDistanceMetric> clone() const = 0;

    /// Whether the other metric gives the same distances; an override asks the base first, then compares the exact
    /// classes, then its fields.
    virtual bool isEquivalent(const tkPatternDistanceMetric& other) const;

protected:
    tkPatternDistanceMetric(const tkPatternDistanceMetric&) = default;
    tkPatternDistanceMetric& operator=(const tkPatternDistanceMetric&) = default;

    TK_RECORD;
};

/// The norm (Minkowski) distance of order p > 0: (sum of |a_i - b_i|^p)^(1/p).
///
/// Order 1 is the city-block distance, 2 the Euclidean one. Below 1 the triangle inequality does not hold.
/// An infinite order is accepted but gives no maximum norm: the power 1/p is then 0.
class TK_EXPORT tkPatternDistanceMetricNorm : public tkPatternDistanceMetric
{
public:
    /// Throws as order(double) does.
    tkPatternDistanceMetricNorm(double order = 2.0);

    /// The order p. Throws tkClassifierDefs::BadParams unless order > 0; a NaN is refused too.
    double order() const { return order_; }
    void order(double order);

    /// In the unit of the measurements. Throws tkClassifierDefs::BadFeatures if the patterns differ in length,
    /// then if a measurement of p1, then if one of p2 is invalid. Costs a power for each measurement and one for the
    /// root; of orders 1 and 2 at most a square root.
    double distance(const tkFeaturePattern& p1, const tkFeaturePattern& p2) const override;

    tkPtrHandle<tkPatternDistanceMetric> clone() const override;
    /// Same class, and orders of which neither is less.
    bool isEquivalent(const tkPatternDistanceMetric& other) const override;
    bool operator==(const tkPatternDistanceMetricNorm& other) const { return isEquivalent(other); }
    bool operator!=(const tkPatternDistanceMetricNorm& other) const { return !(*this == other); }

private:
    TK_FACTORY_RECORD;

    double order_ = 2.0;
};

#endif
