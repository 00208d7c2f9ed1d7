#ifndef CLSS_MODEL_TKCOVARIANCEPOOLING_H
#define CLSS_MODEL_TKCOVARIANCEPOOLING_H

#include "clss/clastool/bayes/tkClassifierTrainParamsBayesian.h"
#include "clss/clastool/clastool/tkClassifierDataProvider.h"

/// Parameters of Bayesian classification whose categories borrow from one another what few patterns cannot tell: the
/// covariance of each normal density becomes (1 - a) C + a P (Friedman, J. Am. Stat. Assoc. 84, 1989, 165-175).
///
/// C is the covariance learned, and P that within the categories which have the same dependency set, over the patterns
/// of all of them: their sums of squares and products over their degrees of freedom. A set that one category alone has
/// is left as it is, and so are binomial densities and means. The amount a is given, or chosen in each training. All
/// else is as in tkClassifierTrainParamsBayesian.
class TK_EXPORT tkCovariancePooling : public tkClassifierTrainParamsBayesian
{
public:
    /// Each training chooses the amount as choose() does. A retraining keeps it, also with other frequencies.
    tkCovariancePooling(const tkClassifierTrainParamsBayesian& params = tkClassifierTrainParamsBayesian());
    /// The amount is given. Throws as amount(double) does.
    tkCovariancePooling(const tkClassifierTrainParamsBayesian& params, double amount);

    /// Whether each training chooses the amount.
    bool isChosen() const { return isChosen_; }

    /// The amount a; 0.0 while it is chosen in each training. Setting it ends that. Throws tkClassifierDefs::BadParams
    /// unless 0 <= amount <= 1. Loading does not check it: a training with another amount throws the same.
    double amount() const { return amount_; }
    void amount(double amount);

    /// The amount with which leave-one-out by the normal densities makes the fewest mistakes, of 0, 0.01, 0.03, 0.1,
    /// 0.2, ..., 1; of several the one of the least log loss, then the least one. A mistake is a category that is not
    /// the most probable one with the frequencies of `params`.
    ///
    /// Judged are the patterns of which no measurement is invalid or not finite, each without its part in mean and
    /// covariances; but not those of another length than the data's, nor those without which their category, or one of
    /// its densities, has no pattern left. Binomial densities are not looked at; nor are measurements that vary in none
    /// of the categories that share a dependency set, also where categories with another set have a term for them.
    ///
    /// An amount is not considered where a covariance that several categories mix is singular then; if each is, the
    /// amount is 1. No amount changes the covariance of a set that one category alone has. If it is singular, the
    /// category does not take part; if it is so without a pattern, the pattern is not judged.
    ///
    /// Throws what a training with `params` throws, then tkClassifierDefs::InsufficientTrainData if no pattern of the
    /// data's length has a label. Time in proportion to patterns * categories * measurements^2.
    static double choose(const tkClassifierDataProvider& data, const tkClassifierTrainParamsBayesian& params);

    tkPtrHandle<tkClassifierTrainParams> clone() const override;

protected:
    bool isEqual_(const tkClassifierTrainParams& other) const override;
    /// Only other parameters of this class are.
    bool isSameTechnique_(const tkClassifierTrainParams& other) const override;
    tk_Classifier* newClassifier_() const override;

private:
    TK_FACTORY_RECORD;

    bool isChosen_ = true;
    double amount_ = 0.0;
};

#endif
