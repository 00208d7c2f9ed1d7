#ifndef CLSS_CLASTOOL_BAYES_TK_PROBABILITYDENSITYFUNCTION_H
#define CLSS_CLASTOOL_BAYES_TK_PROBABILITYDENSITYFUNCTION_H

#include "clss/clastool/bayes/tkClassifierDistributionTypes.h"
#include "clss/clastool/clastool/tkFeaturePattern.h"
#include "foundation/tkPersistent.h"
#include "foundation/tkPtrHandle.h"
#include "numerics/tkNMMatrix.h"

#include <memory>
#include <vector>

class tkNMChangeNumber;
class tkNMNormal;
struct tkNMStatistics;

/// The probability density of one dependency set, or one independent measurement, of one category.
///
/// It learns from and evaluates patterns that hold exactly the set's measurements in the set's order. The two
/// operations on a set of a longer pattern have default bodies; a class may override them to avoid building the
/// restriction, with the same bits and errors.
class TK_EXPORT tk_ProbabilityDensityFunction : public tkPersistent, public tkRepBase
{
public:
    /// The measurements of `pattern` at the indices `set`, in this order. One that is invalid, or beyond the end,
    /// is 0.0 and invalid. Throws tkClassifierDefs::BadIndex for a negative index.
    static tkFeaturePattern restriction(const tkFeaturePattern& pattern, const std::vector<long>& set);
    /// An untrained density of the type for the measurements of `set`. A binomial one has the maximum of the first of
    /// them, 1.0 if that is invalid or not there, and throws what restriction() throws. Throws
    /// tkClassifierDefs::NotImplemented for ePoisson and eUniform, tkClassifierDefs::BadParams for an unknown type.
    static tkPtrHandle<tk_ProbabilityDensityFunction> create(tkClassifierDistributionTypes::DistributionType type,
                                                             const std::vector<long>& set,
                                                             const tkFeaturePattern& maxMeasurementValues);

    /// Natural logarithm of the density (or probability) at `pattern`.
    virtual double logValue(const tkFeaturePattern& pattern) const = 0;
    /// Same concrete class and equal state.
    virtual bool isEquivalent(const tk_ProbabilityDensityFunction& other) const = 0;
    /// Learns from patterns, on top of what was learned before.
    virtual void updateWithData(const std::vector<tkFeaturePattern>& patterns) = 0;
    /// Forgets what was learned.
    virtual void clear() = 0;
    /// logValue(restriction(pattern, set)).
    virtual double logValueOfSet(const tkFeaturePattern& pattern, const std::vector<long>& set) const;
    /// updateWithData({restriction(pattern, set)}).
    virtual void updateWithSet(const tkFeaturePattern& pattern, const std::vector<long>& set);

protected:
    tk_ProbabilityDensityFunction() = default;
    tk_ProbabilityDensityFunction(const tk_ProbabilityDensityFunction&) = default;
    tk_ProbabilityDensityFunction& operator=(const tk_ProbabilityDensityFunction&) = default;

    TK_RECORD;
};

/// A normal distribution of any number of measurements; the work is tkNMNormal's.
///
/// A training pattern with an invalid or non-finite measurement is skipped whole. An evaluated pattern with
/// invalid measurements gets the density of the marginal distribution over the valid ones. Several threads may
/// evaluate one object.
class TK_EXPORT tk_PDFMultivariateNormal : public tk_ProbabilityDensityFunction
{
public:
    tk_PDFMultivariateNormal();
    tk_PDFMultivariateNormal(const tk_PDFMultivariateNormal& other);
    /// Strong exception guarantee.
    tk_PDFMultivariateNormal& operator=(const tk_PDFMultivariateNormal& other);
    ~tk_PDFMultivariateNormal() override;

    /// Throws tkClassifierDefs::InsufficientTrainData if no usable pattern was learned, then tkFailure if the
    /// pattern has another number of measurements than those. 0.0 if no measurement is valid.
    double logValue(const tkFeaturePattern& pattern) const override;
    bool isEquivalent(const tk_ProbabilityDensityFunction& other) const override;
    /// updateWithDataNormalize(patterns, 1.0).
    void updateWithData(const std::vector<tkFeaturePattern>& patterns) override;
    void clear() override;
    double logValueOfSet(const tkFeaturePattern& pattern, const std::vector<long>& set) const override;
    void updateWithSet(const tkFeaturePattern& pattern, const std::vector<long>& set) override;

    /// Learns from the patterns, every measurement divided by `factor`. Pattern by pattern gives the same bits as
    /// all at once. Throws tkClassifierDefs::BadParams if the patterns, usable or not, differ in their number of
    /// measurements from one another or from what was learned, then tkFailure if a usable one has a measurement
    /// that is too large (tkNMNormal::largestMagnitude()); and then learns none of them.
    void updateWithDataNormalize(const std::vector<tkFeaturePattern>& patterns, double factor);

    /// The means, a column, and the covariance with divisor count - 1; as they are, never regularised.
    tkNMMatrix mean() const;
    tkNMMatrix covariance() const;
    /// Whether a usable pattern was learned.
    bool isValid() const;
    const tkNMNormal& normal() const { return *normal_; }
    /// See tkNMNormal.
    void referenceDeviations(const std::vector<double>& deviations);
    void changeNumber(const tkPtrHandle<tkNMChangeNumber>& number);
    void swapStatistics(tkNMStatistics& other) noexcept;

    /// Same class, and equal count, mean and covariance.
    bool operator==(const tk_PDFMultivariateNormal& other) const;
    bool operator!=(const tk_PDFMultivariateNormal& other) const { return !(*this == other); }

private:
    TK_FACTORY_RECORD;
    std::unique_ptr<tkNMNormal> normal_; // never null
};

/// A binomial distribution of one measurement, which counts successes in steps of M / n: M is the largest value
/// that it can take, n the number of trials, p the probability of a success. Both are estimated by the method of
/// moments from mean and variance of the values divided by M.
class TK_EXPORT tk_PDFBinomial : public tk_ProbabilityDensityFunction
{
public:
    /// M is measurement 0 of `maxValue`; *requires* that it is valid.
    tk_PDFBinomial(const tkFeaturePattern& maxValue);
    tk_PDFBinomial(const tk_PDFBinomial& other);
    /// Strong exception guarantee.
    tk_PDFBinomial& operator=(const tk_PDFBinomial& other);
    ~tk_PDFBinomial() override;

    /// n; 0 while it has not been estimated.
    long numTrials() const { return numTrials_; }
    /// Throws tkClassifierDefs::InsufficientTrainData if n is 0, then tkClassifierDefs::NotImplemented unless
    /// there is one measurement, then, if it is valid, tkClassifierDefs::BadParams if it exceeds M. *Requires*
    /// a measurement >= 0 then. 0.0 for an invalid one. Minus infinity or NaN where p is 0 or 1.
    double logValue(const tkFeaturePattern& pattern) const override;
    bool isEquivalent(const tk_ProbabilityDensityFunction& other) const override;
    /// Throws tkClassifierDefs::NotImplemented unless the first pattern has one measurement, then
    /// tkClassifierDefs::BadParams if a valid measurement exceeds M, then as the normal distribution does. n keeps
    /// its value as long as the variance is 0.
    void updateWithData(const std::vector<tkFeaturePattern>& patterns) override;
    /// Forgets the patterns and n; p and M stay.
    void clear() override;
    double logValueOfSet(const tkFeaturePattern& pattern, const std::vector<long>& set) const override;
    void updateWithSet(const tkFeaturePattern& pattern, const std::vector<long>& set) override;

    /// Same class, and equal n, p and M; a NaN is equal to anything.
    bool operator==(const tk_PDFBinomial& other) const;
    bool operator!=(const tk_PDFBinomial& other) const { return !(*this == other); }

private:
    void estimate_();
    double logValueOf_(long numMeasurements, const tkFeaturePattern& pattern, long index) const;

    TK_FACTORY_RECORD;
    long numTrials_;
    double probability_;
    double maxValue_;
    std::unique_ptr<tkNMNormal> accumulator_; // never null; of the values divided by maxValue_; not stored
};

#endif
