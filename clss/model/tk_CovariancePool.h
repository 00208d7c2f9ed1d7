#ifndef CLSS_MODEL_TK_COVARIANCEPOOL_H
#define CLSS_MODEL_TK_COVARIANCEPOOL_H

#include "clss/clastool/bayes/tk_ClassifierBayesian.h"
#include "clss/clastool/clastool/tkClassifierFrequencies.h"
#include "clss/model/tk_LabelledPatterns.h"
#include "numerics/tkNMTriangle.h"

#include <cstddef>
#include <vector>

/// The normal densities of a Bayesian classifier whose dependency sets hold the same measurements, in whatever order.
/// The classifier must outlive it.
class TK_EXPORT tk_CovariancePool
{
public:
    using Models = std::vector<tkPtrHandle<tk_CategoryModel>>;

    /// For the trained models of a Bayesian classifier.
    explicit tk_CovariancePool(const Models& models);

    /// What leave-one-out says of an amount.
    struct Figures
    {
        bool areValid;  // no covariance is singular, and a pattern was judged; else the others are 0
        long errors;    // patterns of which another category is the most probable one
        double logLoss; // sum of -ln of the class score of the right category, 36.04 at most for each pattern
    };

    /// Judges the patterns, with which the models were trained, each left out of its category and of P. With u = x - m
    /// in the pattern's category of n patterns, W the sums of squares and products in all categories, v their degrees
    /// of freedom, and S those of one category, leaving out takes n / (n - 1) u u' from W and from the category's own
    /// S: the covariance of each category changes by a multiple of u u', and its inverse and determinant by the formula
    /// of Sherman and Morrison. Patterns that are the only ones of their category, or of one of its densities, are not
    /// judged. A category whose density is singular and borrows from no other does not take part; a pattern without
    /// which it is so is not judged.
    Figures judge(const tk_LabelledPatterns& data, const tkClassifierFrequencies& frequencies, double amount) const;

    /// tkCovariancePooling::choose() for the patterns with which the models were trained.
    double choose(const tk_LabelledPatterns& data, const tkClassifierFrequencies& frequencies) const;

    /// Gives all densities of groups of two or more the covariance (1 - amount) C + amount P.
    void pool(double amount) const;

    /// A density of a group.
    struct Member
    {
        std::size_t model;
        tk_PDFMultivariateNormal* density;
        std::vector<std::size_t> places; // in the density, of the group's measurements
    };
    /// The densities of the same measurements.
    struct Group
    {
        std::vector<long> measurements; // ascending
        std::vector<Member> members;
        double degrees = 0.0; // of freedom: patterns less members
        tkNMTriangle sums;    // of squares and products within the members
    };

private:
    std::vector<long> labels_; // of the models
    std::vector<Group> groups_;
};

#endif
